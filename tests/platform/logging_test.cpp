#include "VoAlgorithms/platform/logging.h"
#include "platform/log.h"

#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using Logging::ELogLevel;

class LoggingTest : public testing::Test {
protected:
    ~LoggingTest() override
    {
        Logging::SetSink(nullptr);
        Logging::SetLevel(ELogLevel::Warn);
    }

    void collect(ELogLevel level)
    {
        Logging::SetLevel(level);
        Logging::SetSink([this](const Logging::Message& m) { texts_.push_back(m.text); });
    }

    std::vector<std::wstring> texts_;
};

TEST_F(LoggingTest, SinkGetsEveryPartOfAMessage)
{
    const auto& logger = Logging::GetLogger("KEP.Registration");
    EXPECT_EQ(&logger, &Logging::GetLogger("KEP.Registration"));
    int calls = 0;
    const int line = __LINE__ + 11;
    Logging::SetSink([&](const Logging::Message& m) {
        ++calls;
        EXPECT_STREQ(m.channel, "KEP.Registration");
        EXPECT_EQ(m.level, ELogLevel::Warn);
        EXPECT_STREQ(m.function, "CClass::Function");
        EXPECT_EQ(m.line, line);
        EXPECT_THAT(m.file, testing::EndsWith("tests/platform/logging_test.cpp"));
        EXPECT_THAT(m.file, testing::Not(testing::HasSubstr(VOALGO_SOURCE_DIR)));
        EXPECT_EQ(m.text, L"12 points, 0.250 s, wide é, narrow");
    });
    VOALGO_LOG(logger, Warn, "CClass::Function", L"%u points, %.3f s, %ls, %hs", 12U, 0.25, L"wide é", "narrow");
    EXPECT_EQ(calls, 1);
}

TEST_F(LoggingTest, LongAndBrokenTextsReachTheSink)
{
    collect(ELogLevel::Info);
    for (const std::size_t length : {510U, 511U, 512U, 513U, 2048U, 100000U}) {
        const std::wstring text(length, L'x');
        VOALGO_LOG(Logging::GetLogger("long"), Info, "f", L"%ls", text.c_str());
        EXPECT_EQ(texts_.back(), text) << length;
    }
    VOALGO_LOG(Logging::GetLogger("broken"), Error, "f", L"file %hs", "\xff\xfe"); // cannot be converted
    EXPECT_THAT(texts_.back(), testing::StartsWith(L"file "));
}

TEST_F(LoggingTest, LevelIncludesTheMoreSevereOnesAndGuardsTheArguments)
{
    const auto& logger = Logging::GetLogger("levels");
    for (int level = 0; level <= 4; ++level) {
        texts_.clear();
        int evaluated = 0;
        collect(static_cast<ELogLevel>(level));
        VOALGO_LOG(logger, Error, "f", L"%d", ++evaluated);
        VOALGO_LOG(logger, Warn, "f", L"%d", ++evaluated);
        VOALGO_LOG(logger, Info, "f", L"%d", ++evaluated);
        VOALGO_LOG(logger, Trace, "f", L"%d", ++evaluated);
        logger.Trace("f", 1, "file", L"unguarded");
        EXPECT_EQ(evaluated, level);
        EXPECT_EQ(texts_.size(), static_cast<std::size_t>(level == 4 ? 5 : level));
    }
}

TEST_F(LoggingTest, WithoutASinkOnlyWarningsAndErrorsReachStandardError)
{
    Logging::SetLevel(ELogLevel::Trace);
    const auto& logger = Logging::GetLogger("KEP.PreRegistration");
    testing::internal::CaptureStderr();
    VOALGO_LOG(logger, Error, "f", L"broken %d", 1);
    VOALGO_LOG(logger, Warn, "g", L"dubious é");
    VOALGO_LOG(logger, Info, "h", L"hidden");
    VOALGO_LOG(logger, Trace, "h", L"hidden");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "VoAlgorithms: KEP.PreRegistration: error: f: broken 1\n"
                                                      "VoAlgorithms: KEP.PreRegistration: warning: g: dubious ?\n");
}

TEST_F(LoggingTest, SinkMayLogAndReplaceItself)
{
    Logging::SetLevel(ELogLevel::Warn);
    std::vector<std::wstring> texts;
    Logging::SetSink([&](const Logging::Message& m) {
        texts.push_back(m.text);
        Logging::SetSink([&](const Logging::Message& inner) { texts.push_back(L"second " + inner.text); });
        Logging::GetLogger("other").Warn("f", 1, "file", L"from the sink");
    });
    Logging::GetLogger("channel").Warn("f", 1, "file", L"first");
    EXPECT_THAT(texts, testing::ElementsAre(L"first", L"second from the sink"));
}

// Mainly for the thread sanitizer: all threads of a host share the registry, the sink and the level.
TEST_F(LoggingTest, ThreadsLogWhileTheSinkChanges)
{
    Logging::SetLevel(ELogLevel::Info);
    std::atomic<int> received{0};
    const auto sink = [&](const Logging::Message&) { ++received; };
    Logging::SetSink(sink);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i)
                VOALGO_LOG(Logging::GetLogger("thread " + std::to_string((t + i) % 7)), Info, "f", L"%d", i);
        });
    for (int i = 0; i < 100; ++i) {
        Logging::SetSink(sink);
        Logging::SetLevel(i % 2 ? ELogLevel::Info : ELogLevel::Trace);
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(received, 800);
}

} // namespace
