#include "platform/Rtime.h"

#include "tests/support/Fake_clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <type_traits>

static_assert(sizeof(Rtime::seconds) == 8, "32 bits would end in January 2038");
static_assert(!std::is_convertible_v<bool, Rtime>, "a bool is not a time by accident");

namespace {

std::int64_t milliseconds_now()
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

} // namespace

TEST(Rtime, is_the_epoch_when_built_with_nothing_or_not_for_now)
{
    const Fake_clock clock(1234567890, 123);
    for (const Rtime& time : {Rtime(), Rtime(false)}) {
        EXPECT_EQ(0, time.seconds);
        EXPECT_EQ(0, time.milliseconds);
    }
}

TEST(Rtime, reads_the_clock_each_time_it_is_built_for_now)
{
    struct Case {
        std::int64_t seconds;
        int milliseconds;
    };
    const Case cases[] = {
        {0, 0},
        {0, 1},
        {951782399, 999},
        {951782400, 0},
        {1234567890, 500},
        {2147483647, 999},  // the last second that 32 bits count
        {2147483648, 0},    // and the one after it, 2038-01-19 03:14:08 UTC
        {4294967296, 7},    // beyond unsigned 32 bits
        {253402300799, 999} // 9999-12-31 23:59:59 UTC
    };
    for (const Case& each : cases) {
        const Fake_clock clock(each.seconds, each.milliseconds);
        const Rtime time(true);
        EXPECT_EQ(each.seconds, time.seconds);
        EXPECT_EQ(each.milliseconds, time.milliseconds);
    }
}

TEST(Rtime, counts_whole_milliseconds_that_have_passed)
{
    // Over several milliseconds of the real clock: a rounded time would be ahead for half of them.
    int compared = 0;
    for (const std::int64_t start = milliseconds_now(); milliseconds_now() < start + 5 || compared == 0;) {
        const std::int64_t before = milliseconds_now();
        const Rtime time(true);
        const std::int64_t after = milliseconds_now();
        if (before != after)
            continue;
        ASSERT_EQ(before, time.seconds * 1000 + time.milliseconds);
        ++compared;
    }
    EXPECT_LT(0, compared);
}

TEST(Rtime, tells_when_a_moment_of_the_monotonic_clock_was_or_will_be)
{
    struct Case {
        std::int64_t wall_ms;
        std::int64_t ago_ms;
        std::int64_t seconds;
        int milliseconds;
    };
    const Case cases[] = {{1234567890500, 0, 1234567890, 500},
                          {1234567890500, 500, 1234567890, 0},
                          {1234567890500, 501, 1234567889, 999},
                          {1234567890500, -600, 1234567891, 100},
                          {2147483648000, 1, 2147483647, 999},
                          {1000, 1000, 0, 0},
                          {1000, 1001, -1, 999},
                          {1000, 2500, -2, 500}};
    for (const Case& each : cases) {
        const Fake_clock wall(each.wall_ms / 1000, static_cast<int>(each.wall_ms % 1000));
        Fake_monotonic_clock clock(1000000);
        const Atime moment(true);
        clock.advance(each.ago_ms);
        const Rtime time(moment);
        EXPECT_EQ(each.seconds, time.seconds);
        EXPECT_EQ(each.milliseconds, time.milliseconds);
    }
}
