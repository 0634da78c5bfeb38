#include "VoAlgorithms/documents/records.h"
#include "VoAlgorithms/runtime/csharedmemory.h"
#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "runtime/peer_process.h"
#include "tools/tool_runner.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace tooltest {
namespace {

using nlohmann::json;
using prereg::CFPFHPreRegistration;
using testing::HasSubstr;
using VoAlgo::bson::element;

std::string Bytes(const element::object& document)
{
    const auto [bytes, size] = document.freeze();
    return {reinterpret_cast<const char*>(bytes.get()), size};
}

/// A case whose sets have 20 points and as many features; it has two results.
CFPFHPreRegistration SmallCase()
{
    const Points points = Blob(20, 10.0F), normals(20, kdtree::Vector<3>(0.0F, 0.0F, 1.0F));
    std::vector<prereg::CPointFeatureHistogram> features(20);
    for (std::size_t i = 0; i < features.size(); ++i) features[i].bins[i] = 1.0F;
    const prereg::CFPFHPointSet set(points, normals, points, normals, features);
    prereg::ConfigurationFPFH config;
    config.uiNumPolygons = 7;
    CFPFHPreRegistration registration(set, set, config, true);
    for (const float rmse : {0.25F, 0.5F}) {
        prereg::ICPResult result;
        result.fStop_OverlapRatio = result.fStart_OverlapRatio = 0.75F;
        result.fStop_RMSE = rmse;
        registration.InjectICPResult(result);
    }
    return registration;
}

/// The part of the answer that must not depend on where the clouds came from.
json Answer(const Outcome& outcome)
{
    EXPECT_NE(outcome.output, "") << outcome.errors;
    json answer = json::parse(outcome.output);
    for (const char* source : {"fix", "flt", "seconds"}) answer.erase(source);
    return answer;
}

TEST(ToolCase, RunGivesTheResultsOfTheCloudsToTheLastBit)
{
    const Workplace place;
    place.Write("config.json",
                R"({"uiNumPolygons": 2000, "icpConfig": {"dMinOverlapRatio": 0.3, "uiNumSamples": 400}})");
    const std::string clouds = Fix + ' ' + Flt + " --unit cm --preset dense --config config.json --quiet ";
    const Outcome fromClouds = place.Run("register " + clouds + "--json --out reg");
    EXPECT_EQ(fromClouds.exitCode, 0) << fromClouds.errors;
    EXPECT_EQ(place.Run("case pack " + clouds + "--out packed.bson").exitCode, 0);
    const Outcome fromPacked = place.Run("case run packed.bson --json --quiet");
    const Outcome fromKept = place.Run("case run reg/case.bson --json --quiet --out again");
    EXPECT_EQ(fromPacked.exitCode, 0);
    EXPECT_EQ(Answer(fromPacked), Answer(fromClouds));
    EXPECT_EQ(Answer(fromKept), Answer(fromClouds));
    for (const char* file : {"/case.bson", "/pose.txt", "/registered.ply", "/registered.png"})
        EXPECT_TRUE(place.Read(std::string("reg") + file) == place.Read(std::string("again") + file)) << file;
}

/// The settings here are those that follow from the scans.
TEST(ToolCase, RefusalsAreRepeatedToo)
{
    const Workplace place;
    place.Write("fix.ply", PlyBytes(Blob(1500, 30.0F)));
    place.Write("flt.ply", PlyBytes(Blob(1500, 15.0F)));
    const Outcome fromClouds = place.Run("register fix.ply flt.ply --json --quiet --out reg");
    EXPECT_EQ(fromClouds.exitCode, 2);
    const Outcome again = place.Run("case run reg/case.bson --json --quiet");
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_EQ(Answer(again), Answer(fromClouds));
}

TEST(ToolCase, ShowIsJsonWithoutTheBytesOfTheScans)
{
    const Workplace place;
    element::object document = VoAlgo::bson::to_object(SmallCase());
    document.append({"text", "a \"{,}\" \\ b"});
    document.append({"none", element::object()});
    document.append({"few", "abc", 3U});
    place.Write("case.bson", Bytes(document));
    const Outcome outcome = place.Run("case show case.bson");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    const json shown = json::parse(outcome.output);
    EXPECT_EQ(shown, json::parse(document.to_json(32)));
    EXPECT_EQ(shown["FixPointSet"]["Features"]["$binary"]["size"], 20 * 132);
    EXPECT_EQ(shown["few"]["$binary"]["base64"], "YWJj");
    EXPECT_THAT(outcome.output, HasSubstr("\n  \"Configuration\": {\n    \"uiNumPolygons\": 7,\n"));
}

/// A damaged case is reported at once; nothing is written and nothing sent.
TEST(ToolCase, BrokenCasesAreBadInput)
{
    const element::object good = VoAlgo::bson::to_object(SmallCase());
    const std::string bytes = Bytes(good);
    const auto with = [&](const char* key, auto value) {
        element::object document = good;
        return Bytes(document.append({key, value}));
    };
    const element::object lame((element("Points", "12345678901234567", 17U), element("Normals", "", 0U)));
    const element::object longer((element("Points", "0123456789abcdef", 16U), element("Normals", "", 0U)));
    const element::object noRadius(element("dFeatureRadius", 0.0));
    struct Row {
        std::string content;
        const char* message;
        bool parses; // as a case
    };
    const Row table[] = {
        {"", "truncated, or not a case file", false},
        {"solid scan\n", "truncated, or not a case file", false},
        {bytes.substr(0, bytes.size() - 1), "truncated, or not a case file", false},
        {bytes.substr(0, bytes.size() / 2), "truncated, or not a case file", false},
        {bytes + '\0', "truncated, or not a case file", false},
        {std::string(5, '\0'), "not a case: \"FixPointSet\" is missing", false},
        {Bytes(element::object(element("FixPointSet", 1))), "not a case: \"FixPointSet\" is missing", false},
        {with("Configuration", 7), "damaged case: bad cast", false},
        {with("FltPointSet", lame), "damaged case: ", false},
        {with("FltPointSet", longer), "damaged case: ", false},
        {with("Tool", element::object(element("unit", "furlong"))), "damaged case: unknown preset or unit", false},
        {with("Configuration", noRadius), "\"dFeatureRadius\": must be greater than 0", true},
    };
    const Workplace place;
    for (const Row& row : table) {
        place.Write("case.bson", row.content);
        const Outcome run = place.Run("case run case.bson --out results");
        EXPECT_EQ(run.exitCode, 3) << row.message;
        EXPECT_THAT(run.errors, HasSubstr(std::string("case.bson: ") + row.message));
        const Outcome send = place.Run("case send case.bson --pipe VoAlgorithms-test-nobody");
        EXPECT_EQ(send.exitCode, 3) << row.message;
        EXPECT_THAT(send.errors, HasSubstr(row.parses ? "no process is waiting for a case" : row.message));
    }
    EXPECT_FALSE(place.Has("results"));

    // Deeper than any stack.
    constexpr std::size_t Levels = 100'000;
    std::string deep(4, '\0');
    for (std::size_t i = 0; i < Levels; ++i) deep += std::string("\4x\0\0\0\0\0", 7);
    place.Write("deep.bson", deep + std::string(Levels + 1, '\0'));
    EXPECT_EQ(place.Run("case show deep.bson").exitCode, 0);
    EXPECT_EQ(place.Run("case run deep.bson").exitCode, 3);
}

/// Calls until it succeeds: the other process takes a while to create the pipe.
void Retry(const std::function<bool()>& send)
{
    for (int i = 0; i < 600 && !send(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

std::string PipeName(const std::string& what)
{
    return "VoAlgorithms-test-" + what + "-" + std::to_string(getpid());
}

std::vector<std::string> ToolReceive(const Workplace& place, const std::string& pipe)
{
    return {"case", "receive", "--quiet", "--pipe", pipe, "--out", place.PathOf("received.bson")};
}

TEST(ToolCase, PassesFromProcessToProcessAsItIs)
{
    const Workplace place;
    element::object document = VoAlgo::bson::to_object(SmallCase());
    place.Write("case.bson", Bytes(document.append({"Comment", "kept as well"})));
    PeerProcess receiver(VOALGO_TOOL, ToolReceive(place, PipeName("tools")));
    Outcome sent{};
    Retry([&] { return (sent = place.Run("case send case.bson --pipe " + PipeName("tools"))).exitCode == 0; });
    EXPECT_EQ(sent.exitCode, 0) << sent.errors;
    EXPECT_EQ(receiver.ExitCode(), 0);
    EXPECT_TRUE(place.Read("received.bson") == place.Read("case.bson"));
}

/// "Done" means that the other side has written the file.
TEST(ToolCase, SendFailsWhenTheCaseIsNotKept)
{
    const Workplace place;
    place.Write("case.bson", Bytes(VoAlgo::bson::to_object(SmallCase())));
    const std::string name = PipeName("lost");
    const auto send = [&] {
        Outcome sent{};
        Retry([&] {
            sent = place.Run("case send case.bson --pipe " + name);
            return sent.errors.find("no process is waiting") == std::string::npos;
        });
        EXPECT_EQ(sent.exitCode, 3);
        EXPECT_THAT(sent.errors, HasSubstr("the case was not received: "));
    };
    PeerProcess unwritable(VOALGO_TOOL,
                           {"case", "receive", "--quiet", "--pipe", name, "--out", place.PathOf("no/folder")});
    send();
    EXPECT_EQ(unwritable.ExitCode(), 3);

    PeerProcess killed(VOALGO_TOOL, ToolReceive(place, name));
    const std::wstring pipe(name.begin(), name.end());
    Retry([&] { return static_cast<bool>(VoAlgo::CSharedMemory::Open(pipe)); });
    EXPECT_THAT(place.Run("case receive --out other.bson --pipe " + name).errors, HasSubstr("File exists"));
    killed.Stop();
    std::thread kill([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        killed.Kill();
    });
    send();
    kill.join();
    EXPECT_FALSE(place.Has("received.bson"));
    (void)VoAlgo::CSharedMemoryPipe::Create(pipe, 64); // removes the remains
}

/// Missing keys read as defaults: without a check, every document would be a case.
TEST(ToolCase, OtherDocumentsAreNotEmptyCases)
{
    const std::string name = PipeName("empty");
    const std::wstring pipe(name.begin(), name.end());
    const element::object onlyOne(element("FixPointSet", element::object()));
    for (const std::string& document : {std::string(5, '\0'), Bytes(element::object()), Bytes(onlyOne)}) {
        auto waiting = std::async(std::launch::async, [&] { return CFPFHPreRegistration::ReceiveCase(pipe); });
        Retry([&] {
            try {
                auto sender = VoAlgo::CSharedMemoryPipe::Open(pipe, CFPFHPreRegistration::CasePipeBlock);
                EXPECT_THROW(sender.Deliver(document.data(), document.size()), std::runtime_error);
                return true;
            } catch (const std::runtime_error&) {
                return false;
            }
        });
        EXPECT_THROW((void)waiting.get(), std::invalid_argument);
    }
}

TEST(ToolCase, PassesFromTheLibraryToAnotherProcessAndBack)
{
    const Workplace place;
    const CFPFHPreRegistration original = SmallCase();
    const std::string name = PipeName("library");
    const std::wstring pipe(name.begin(), name.end());
    EXPECT_THROW(original.SendCase(pipe), std::runtime_error) << "nobody waits";
    PeerProcess receiver(VOALGO_TOOL, ToolReceive(place, name));
    Retry([&] {
        try {
            original.SendCase(pipe);
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    });
    EXPECT_EQ(receiver.ExitCode(), 0);
    EXPECT_TRUE(place.Read("received.bson") == Bytes(VoAlgo::bson::to_object(original)));

    auto waiting = std::async(std::launch::async, [&] { return CFPFHPreRegistration::ReceiveCase(pipe); });
    Retry([&] { return place.Run("case send received.bson --pipe " + name).exitCode == 0; });
    const CFPFHPreRegistration received = waiting.get();
    const auto sets = [](const CFPFHPreRegistration& r) {
        return Bytes(VoAlgo::bson::to_object(r.GetFixPointSet())) + Bytes(VoAlgo::bson::to_object(r.GetFltPointSet())) +
               Bytes(VoAlgo::bson::to_object(r.GetMatchingConfig()));
    };
    EXPECT_TRUE(sets(received) == sets(original));
    ASSERT_EQ(received.GetVerifiedTrafos().size(), 2U);
    for (const auto& result : received.GetVerifiedTrafos()) {
        EXPECT_EQ(result.clusterSize, 1U);
        EXPECT_EQ(result.resultType, -1);
        EXPECT_EQ(result.fStart_OverlapRatio, 0.75F);
    }
}

} // namespace
} // namespace tooltest
