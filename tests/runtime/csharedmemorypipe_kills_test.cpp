// Kills senders and receivers at random moments: a sender that says "done" has a receiver that got the message, a
// receiver gets a whole message or an error, and nobody waits for the dead.
// VOALGO_PIPE_ROUNDS sets the number of rounds, VOALGO_PIPE_SEED the first one.
#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "runtime/peer_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using VoAlgo::CSharedMemoryPipe;

const std::wstring Name = L"VoAlgorithms-test-kills-" + std::to_wstring(getpid());

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise)
{
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/// Random bytes. A message is any piece of them, so pieces of two messages never make up one.
const std::vector<std::uint64_t>& Pool()
{
    static const std::vector<std::uint64_t> pool = [] {
        std::vector<std::uint64_t> words(5'100'000);
        std::generate(words.begin(), words.end(), std::mt19937_64(1));
        return words;
    }();
    return pool;
}

enum Role : int { Sending, Receiving };

/// What happens in one round, drawn from its number.
struct Round {
    explicit Round(std::uint64_t number)
    {
        std::mt19937_64 random(number);
        const auto logUniform = [&](double from, double to) {
            return std::exp(std::uniform_real_distribution(std::log(from), std::log(to))(random));
        };
        block = std::array<std::size_t, 3>{0x10000, 0x100000, 0xa00000}[random() % 3];
        for (auto& message : messages)
            message = {reinterpret_cast<const char*>(Pool().data() + random() % 100'000),
                       static_cast<std::size_t>(logUniform(1e3, 4e7))};
        creator = random() % 3 == 0 ? Sending : Receiving; // as with cases, mostly the receiver
        const auto victims = random() % 8;
        kills[Sending] = victims < 4;
        kills[Receiving] = victims >= 3 && victims < 7;
        early = kills[creator] && random() % 8 == 0;
        delay = std::chrono::microseconds(static_cast<int>(logUniform(1.0, 6e4)));
    }
    [[nodiscard]] Role Opener() const { return creator == Sending ? Receiving : Sending; }

    std::size_t block;
    std::string_view messages[2]; // of the first sender, and of the one that replaces it
    Role creator;
    bool kills[2];
    bool early; // kills even before the pipe is complete
    std::chrono::microseconds delay;
};

/// One side of a round in a process of its own.
class Side {
public:
    Side(const Round& round, Role role, int attempt = 0) : process_([&] { work(round, role, attempt); })
    {
        if (role == round.creator && !round.early) {
            EXPECT_EQ(process_.Line(), "ready");
        }
    }

    void Kill() { process_.Kill(); }
    /// Waits for its end and says how it was: "done" and the number of the message, "failed", or "" when killed.
    std::string End()
    {
        std::string last;
        for (std::string line; !(line = process_.Line()).empty();)
            if (line != "ready") last = line;
        return last;
    }

private:
    static void work(const Round& round, Role role, int attempt)
    {
        try {
            auto pipe = role == round.creator ? CSharedMemoryPipe::Create(Name, round.block)
                                              : CSharedMemoryPipe::Open(Name, round.block);
            PeerProcess::Say("ready");
            const std::string_view message = round.messages[attempt];
            if (role == Sending) {
                pipe.Deliver(message.data(), message.size());
                PeerProcess::Say("done " + std::to_string(attempt));
            } else {
                pipe.Accept([&](const auto& got) { PeerProcess::Say("done " + numberOf(round, got)); });
            }
        } catch (const std::exception&) {
            PeerProcess::Say("failed");
        }
    }
    static std::string numberOf(const Round& round, const std::vector<unsigned char>& got)
    {
        const std::string_view bytes(reinterpret_cast<const char*>(got.data()), got.size());
        for (const int number : {0, 1})
            if (bytes == round.messages[number]) return std::to_string(number);
        return "with wrong bytes";
    }

    PeerProcess process_;
};

/// Plays a round and checks it; how both sides ended.
std::string Play(const Round& round)
{
    std::vector<std::unique_ptr<Side>> sides[2];
    const Role creator = round.creator, opener = round.Opener();
    for (const Role role : {creator, opener}) sides[role].push_back(std::make_unique<Side>(round, role));
    std::this_thread::sleep_for(round.delay);
    for (const Role role : {opener, creator})
        if (round.kills[role]) sides[role][0]->Kill();
    // A creator may wait for an opener for ever; but an opener must notice that its creator was killed.
    if (round.kills[opener] && !round.kills[creator]) sides[opener].push_back(std::make_unique<Side>(round, opener, 1));

    std::vector<std::string> ends[2];
    for (const Role role : {Sending, Receiving})
        for (std::size_t i = 0; i < sides[role].size(); ++i) {
            ends[role].push_back(sides[role][i]->End());
            EXPECT_TRUE(!ends[role][i].empty() || (round.kills[role] && i == 0)) << "hangs, or died by itself";
        }
    const auto received = [&](const std::string& end) {
        return std::count(ends[Receiving].begin(), ends[Receiving].end(), end);
    };
    for (const std::string& end : ends[Sending]) EXPECT_TRUE(!end.starts_with("done") || received(end) == 1) << end;
    EXPECT_EQ(received("done with wrong bytes"), 0);

    std::string outcome;
    for (const Role role : {Sending, Receiving}) {
        outcome += role == Sending ? "senders" : "receivers";
        for (const std::string& end : ends[role]) outcome += end.empty() ? " killed" : " " + end;
        outcome += ' ';
    }
    return outcome;
}

TEST(SharedMemoryPipeKills, DoneMeansReceivedAndReceivedMeansWhole)
{
    const std::uint64_t first = FromEnvironment("VOALGO_PIPE_SEED", 1),
                        rounds = FromEnvironment("VOALGO_PIPE_ROUNDS", 200);
    std::map<std::string, int> outcomes;
    for (std::uint64_t number = first; number < first + rounds && !HasFailure(); ++number) {
        SCOPED_TRACE("round " + std::to_string(number));
        ++outcomes[Play(Round(number))];
    }
    (void)CSharedMemoryPipe::Create(Name, 64); // removes the remains
    for (const auto& [outcome, count] : outcomes) std::cout << count << "  " << outcome << '\n';
}

} // namespace
