#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

/// Another process, forked from this one; killed on destruction unless it was waited for.
class PeerProcess {
public:
    /// Runs a function; the exit code is 0 when it returns and 1 when it throws.
    explicit PeerProcess(const std::function<void()>& work)
    {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("no pipe");
        id_ = fork();
        if (id_ == 0) {
            alarm(300); // a peer that waits for ever must not outlive its test
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            try {
                work();
                _exit(0);
            } catch (...) {
                _exit(1);
            }
        }
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    /// Runs a program with arguments.
    PeerProcess(const std::string& program, std::vector<std::string> arguments)
        : PeerProcess([&] {
              std::vector<char*> words = {const_cast<char*>(program.c_str())};
              for (auto& argument : arguments) words.push_back(argument.data());
              words.push_back(nullptr);
              execv(words[0], words.data());
              _exit(127);
          })
    {
    }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;
    ~PeerProcess()
    {
        Kill();
        std::fclose(output_);
    }

    /// Called in the peer: writes a line to its standard output.
    static void Say(const std::string& line) { (void)!write(STDOUT_FILENO, (line + '\n').data(), line.size() + 1); }

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

    void Stop() const { kill(id_, SIGSTOP); }
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
