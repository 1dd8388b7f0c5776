#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

/// Runs `body` in a child of this process, where what the libraries keep for the process is as it was at
/// load, as long as only such children touch it. An expectation that fails in the child fails the test here.
inline void in_a_fresh_process(const std::function<void()>& body)
{
    constexpr unsigned LONGEST_S = 240; // a child that hangs fails as well
    std::fflush(nullptr);               // or the child would write it once more
    const pid_t child = fork();
    if (child == 0) {
        alarm(LONGEST_S);
        body();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child ended with status " << status;
}
