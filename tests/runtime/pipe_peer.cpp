// The other process of the pipe's tests:
//     pipe_peer send NAME BLOCK SIZE...      opens the pipe and sends the message of each size
//     pipe_peer receive NAME BLOCK SIZE...   creates the pipe, says "ready", expects these messages
//     pipe_peer leave NAME BLOCK             creates the pipe, sends a byte that nobody takes, says "ready", waits
// Exit code 0 when all went as expected, 2 for a wrong message, 3 with the text on standard output for an exception.
#include "VoAlgorithms/runtime/csharedmemorypipe.h"
#include "runtime/pipe_message.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using VoAlgo::CSharedMemoryPipe;

void SayReady()
{
    std::cout << "ready" << std::endl;
}

int Run(const std::vector<std::string>& arguments)
{
    const std::string& command = arguments.at(0);
    const std::wstring name(arguments.at(1).begin(), arguments.at(1).end());
    const std::size_t block = std::stoul(arguments.at(2));
    auto pipe = command == "send" ? CSharedMemoryPipe::Open(name, block) : CSharedMemoryPipe::Create(name, block);
    if (command == "leave") pipe.Send("x", 1);
    if (command != "send") SayReady();
    if (command == "leave") pause();
    for (std::size_t i = 3; i < arguments.size(); ++i) {
        const auto message = PipeMessage(std::stoul(arguments[i]));
        if (command == "send")
            pipe.Send(message);
        else if (pipe.Receive() != message)
            return 2;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    alarm(300); // a peer that waits for ever must not outlive its test
    try {
        return Run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cout << error.what() << std::endl;
        return 3;
    }
}
