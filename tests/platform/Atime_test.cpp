#include "platform/Atime.h"

#include "tests/support/Fake_clock.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/time.h>
#include <type_traits>

static_assert(!std::is_convertible_v<bool, Atime>, "a bool is not a time by accident");

TEST(Atime, is_the_clocks_zero_when_built_with_nothing_or_not_for_now)
{
    const Fake_monotonic_clock clock(5000);
    EXPECT_EQ(5000, Atime::now() - Atime());
    EXPECT_EQ(5000, Atime::now() - Atime(false));
}

TEST(Atime, is_the_same_moment_however_it_is_made)
{
    Fake_monotonic_clock clock(123456789012);
    const Atime built(true);
    Atime set;
    set.set_now();
    EXPECT_EQ(0, Atime::now() - built);
    EXPECT_EQ(0, set - built);
    clock.advance(1);
    EXPECT_EQ(0, set - built);
    EXPECT_EQ(1, Atime::now() - built);
}

TEST(Atime, tells_differences_in_milliseconds_of_either_sign_and_any_size)
{
    Fake_monotonic_clock clock(0);
    const Atime start(true);
    for (const std::int64_t step : {std::int64_t{1}, std::int64_t{999}, std::int64_t{86400000},
                                    std::int64_t{2147483648}, std::int64_t{1000000000000}}) {
        const Atime before(true);
        clock.advance(step);
        EXPECT_EQ(step, Atime::now() - before);
        EXPECT_EQ(-step, before - Atime::now());
    }
}

TEST(Atime, is_not_moved_by_the_wall_clock)
{
    const Atime before(true);
    const Fake_clock long_ago(1000);
    EXPECT_LE(0, Atime::now() - before);
    EXPECT_GT(60000, Atime::now() - before);
}

TEST(Atime, counts_whole_milliseconds_that_have_passed)
{
    for (int i = 0; i < 200; ++i) {
        const auto outer = std::chrono::steady_clock::now();
        const Atime start(true);
        const auto inner = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - inner < std::chrono::microseconds(50)) {
        }
        const auto inner_end = std::chrono::steady_clock::now();
        const std::int64_t elapsed = Atime::now() - start;
        const auto outer_end = std::chrono::steady_clock::now();
        using std::chrono::duration_cast;
        using std::chrono::milliseconds;
        ASSERT_LE(duration_cast<milliseconds>(inner_end - inner).count(), elapsed);
        ASSERT_GE(duration_cast<milliseconds>(outer_end - outer).count(), elapsed);
    }
}

TEST(Atime, delays_by_the_time_asked_for)
{
    for (const int ms : {1, 5, 1050}) {
        const auto start = std::chrono::steady_clock::now();
        Atime::delay(ms);
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_LE(std::chrono::milliseconds(ms), elapsed);
        EXPECT_GT(std::chrono::milliseconds(ms + 10000), elapsed);
    }
}

TEST(Atime, does_not_delay_for_nothing_or_less)
{
    const auto start = std::chrono::steady_clock::now();
    for (const int ms : {0, -1, -2147483647 - 1})
        Atime::delay(ms);
    EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - start);
}

TEST(Atime, sleeps_on_after_a_signal)
{
    static volatile std::sig_atomic_t alarms = 0;
    struct sigaction counting {};
    counting.sa_handler = [](int) { alarms = alarms + 1; };
    struct sigaction former {};
    ASSERT_EQ(0, sigaction(SIGALRM, &counting, &former));
    const itimerval every_millisecond{{0, 1000}, {0, 1000}};
    const itimerval never{};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &every_millisecond, nullptr));
    const auto start = std::chrono::steady_clock::now();
    Atime::delay(50);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(0, setitimer(ITIMER_REAL, &never, nullptr));
    EXPECT_EQ(0, sigaction(SIGALRM, &former, nullptr));
    EXPECT_LT(0, alarms);
    EXPECT_LE(std::chrono::milliseconds(50), elapsed);
}
