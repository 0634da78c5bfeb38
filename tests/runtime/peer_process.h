#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

/// A program started with arguments; killed and collected in the end, unless it was waited for.
class PeerProcess {
public:
    explicit PeerProcess(const std::string& program, std::vector<std::string> arguments)
    {
        std::vector<char*> words = {const_cast<char*>(program.c_str())};
        for (auto& argument : arguments) words.push_back(argument.data());
        words.push_back(nullptr);
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("no pipe");
        id_ = fork();
        if (id_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execv(words[0], words.data());
            _exit(127);
        }
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;
    ~PeerProcess()
    {
        Kill();
        std::fclose(output_);
    }

    /// The next line of its standard output, waited for; empty when it ended without one.
    std::string Line()
    {
        std::string line;
        for (int letter = 0; (letter = std::fgetc(output_)) != EOF && letter != '\n';)
            line += static_cast<char>(letter);
        return line;
    }

    /// Its exit code, waited for; -1 after a signal.
    int ExitCode()
    {
        int status = 0;
        while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void Kill()
    {
        if (id_ <= 0) return;
        kill(id_, SIGKILL);
        ExitCode();
    }

private:
    pid_t id_ = -1;
    std::FILE* output_ = nullptr;
};
