#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <termios.h>
#include <unistd.h>

/// A terminal without any processing of what goes through it, and its other end.
class Terminal {
public:
    Terminal() : other_end(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_TRUE(grantpt(other_end) == 0 && unlockpt(other_end) == 0);
        fd = open(ptsname(other_end), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings{};
        EXPECT_EQ(0, tcgetattr(fd, &settings));
        cfmakeraw(&settings);
        EXPECT_EQ(0, tcsetattr(fd, TCSANOW, &settings));
    }
    ~Terminal()
    {
        hang_up();
        close(other_end);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// What was written to the terminal and is not taken yet.
    ///
    /// The kernel hands it to the other end in its own time: a mark behind it tells when all of it is there.
    std::string shown() const
    {
        constexpr char MARK = '\0';
        EXPECT_EQ(1, write(fd, &MARK, 1));
        std::string text;
        for (;;) {
            pollfd entry{other_end, POLLIN, 0};
            std::array<char, 4096> block{};
            const ssize_t count =
                poll(&entry, 1, LIMIT_MS) == 1 ? read(other_end, block.data(), block.size()) : -1;
            if (count <= 0) {
                ADD_FAILURE() << "the mark does not arrive behind: " << text;
                return text;
            }
            text.append(block.data(), static_cast<std::size_t>(count));
            if (text.back() == MARK)
                break;
        }
        text.pop_back();
        return text;
    }

    void hang_up()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    const int other_end;
    int fd = -1;

private:
    static constexpr int LIMIT_MS = 30000;
};
