#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// What a program finds otherwise than the test does.
struct Surroundings {
    // Descriptors, which stay the caller's to close.
    int in = -1;  ///< -1: nothing to read
    int out = -1; ///< -1: a file, for what is to be known of it
    int err = -1; ///< as `out`

    std::string folder = {};                           ///< to work in
    std::map<std::string, std::string> variables = {}; ///< of the environment
    rlim_t largest_file = RLIM_INFINITY;               ///< that it may write
};

/// What a program left behind.
struct Outcome {
    int status = -1; ///< its exit status
    std::string out;
    std::string err;
    long most_kilobytes = 0; ///< of memory
};

/// A program that runs beside the test, under the emulator where there is one.
/// What still runs is killed with the object.
///
/// Bare fork and exec: other ways of starting a child are beyond the user-mode emulator.
class Child_process {
public:
    /// @param emulator  words parted by "|", or empty
    Child_process(const std::string& emulator, const std::string& program,
                  const std::vector<std::string>& arguments, const Surroundings& surroundings = {})
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

        pid = fork();
        if (pid == 0) {
            if (prepare(surroundings))
                execvp(command[0], command.data());
            _exit(127);
        }
    }
    ~Child_process()
    {
        signal(SIGKILL);
        status();
        close(out_file);
        close(err_file);
    }
    Child_process(const Child_process&) = delete;
    Child_process& operator=(const Child_process&) = delete;

    bool runs() const
    {
        siginfo_t ended{};
        return pid > 0 && waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == 0;
    }

    /// What it has written to standard output by now.
    std::string out() const { return content(out_file); }

    /// The next line of it, without its end; empty when none comes.
    std::string line(std::chrono::seconds limit = std::chrono::seconds(60))
    {
        const auto until = std::chrono::steady_clock::now() + limit;
        for (;;) {
            // Asked before the file is looked at: it may write and end in between.
            const bool over = !runs() || std::chrono::steady_clock::now() > until;
            const std::string text = out();
            const std::size_t end = text.find('\n', lines_end);
            if (end != std::string::npos) {
                const std::size_t start = std::exchange(lines_end, end + 1);
                return text.substr(start, end - start);
            }
            if (over)
                return "";
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    void signal(int number) const
    {
        if (pid > 0) // anything else would be many processes
            kill(pid, number);
    }

    /// Waits for its end.
    ///
    /// @return its exit status, or -1 when it was ended by a signal
    int status()
    {
        int result = 0;
        if (pid <= 0 || wait4(std::exchange(pid, -1), &result, 0, &used) < 0)
            return -1;
        return WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    }

    /// Waits for its end, which has to come without a signal.
    Outcome finish()
    {
        const int result = status();
        EXPECT_NE(-1, result) << "ended by a signal";
        return {result, out(), content(err_file), used.ru_maxrss};
    }

private:
    /// In the child.
    bool prepare(const Surroundings& surroundings) const
    {
        const rlimit largest{surroundings.largest_file, surroundings.largest_file};
        if (surroundings.largest_file != RLIM_INFINITY &&
            (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &largest) != 0))
            return false;
        for (const auto& [name, value] : surroundings.variables)
            if (setenv(name.c_str(), value.c_str(), 1) != 0)
                return false;
        const auto given = [](int fd, int otherwise) { return fd >= 0 ? fd : otherwise; };
        return std::signal(SIGPIPE, SIG_DFL) != SIG_ERR &&
               (surroundings.folder.empty() || chdir(surroundings.folder.c_str()) == 0) &&
               dup2(given(surroundings.in, open("/dev/null", O_RDONLY | O_CLOEXEC)), 0) == 0 &&
               dup2(given(surroundings.out, out_file), 1) == 1 &&
               dup2(given(surroundings.err, err_file), 2) == 2;
    }

    static std::string content(int file)
    {
        std::string all;
        std::array<char, 65536> block;
        for (ssize_t size = 0;
             (size = pread(file, block.data(), block.size(), static_cast<off_t>(all.size()))) > 0;)
            all.append(block.data(), static_cast<std::size_t>(size));
        return all;
    }

    // In memory, without a name: the folders in which programs run hold their own files only.
    const int out_file = memfd_create("out", MFD_CLOEXEC);
    const int err_file = memfd_create("err", MFD_CLOEXEC);
    std::size_t lines_end = 0; // of those that line() gave
    rusage used{};
    pid_t pid = -1;
};
