#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// A program that runs beside the test, under the emulator where there is one. Standard output is read as it comes;
/// standard error is dropped. What still runs is killed with the object.
class Child_process {
public:
    /// @param emulator  words parted by "|", or empty
    Child_process(const std::string& emulator, const std::string& program,
                  const std::vector<std::string>& arguments)
    {
        std::vector<std::string> words;
        std::istringstream parts(emulator);
        for (std::string word; std::getline(parts, word, '|');)
            words.push_back(word);
        words.push_back(program);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> command;
        for (std::string& word : words)
            command.push_back(word.data());
        command.push_back(nullptr);

        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0)
            return;
        pid = fork();
        if (pid == 0) {
            dup2(ends[1], STDOUT_FILENO);
            const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(null, STDERR_FILENO);
            execvp(command[0], command.data());
            _exit(127);
        }
        close(ends[1]);
        output = ends[0];
    }
    ~Child_process()
    {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        if (output >= 0)
            close(output);
    }
    Child_process(const Child_process&) = delete;
    Child_process& operator=(const Child_process&) = delete;

    /// The next line of its output, without its end; empty when none comes.
    std::string line(std::chrono::seconds limit = std::chrono::seconds(60))
    {
        const auto until = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const std::size_t end = pending.find('\n');
            if (end != std::string::npos) {
                const std::string whole = pending.substr(0, end);
                pending.erase(0, end + 1);
                return whole;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                until - std::chrono::steady_clock::now());
            pollfd readable{output, POLLIN, 0};
            if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
                return "";
            char bytes[4096];
            const ssize_t size = read(output, bytes, sizeof bytes);
            if (size <= 0)
                return "";
            pending.append(bytes, static_cast<std::size_t>(size));
        }
    }

    void signal(int number) const { kill(pid, number); }

    /// Waits for its end.
    ///
    /// @return its exit status, or -1 when it was ended by a signal
    int status()
    {
        int result = 0;
        waitpid(pid, &result, 0);
        pid = -1;
        return WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    }

private:
    pid_t pid = -1;
    int output = -1;
    std::string pending;
};
