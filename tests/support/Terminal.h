#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
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
    std::string shown() const
    {
        EXPECT_EQ(0, fcntl(other_end, F_SETFL, O_NONBLOCK));
        std::array<char, 4096> block{};
        const ssize_t count = read(other_end, block.data(), block.size());
        return {block.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count))};
    }

    void hang_up()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    const int other_end;
    int fd = -1;
};
