#include "tests/support/Fake_clock.h"

#include <atomic>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<bool> faked{false};
timespec fake_time{};
std::atomic<bool> monotonic_faked{false};
std::atomic<std::int64_t> fake_monotonic_ms{0};

int real_time(clockid_t clock, timespec* time)
{
#ifdef SYS_clock_gettime64
    return static_cast<int>(syscall(SYS_clock_gettime64, clock, time));
#else
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
#endif
}

} // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (clock == CLOCK_MONOTONIC && monotonic_faked) {
        const std::int64_t ms = fake_monotonic_ms;
        time->tv_sec = ms / 1000;
        time->tv_nsec = static_cast<int>(ms % 1000) * 1000000;
        return 0;
    }
    if (clock != CLOCK_REALTIME || !faked)
        return real_time(clock, time);
    *time = fake_time;
    return 0;
}

Fake_clock::Fake_clock(std::int64_t seconds, int milliseconds)
{
    fake_time.tv_sec = seconds; // 64 bits on every machine
    fake_time.tv_nsec = milliseconds * 1000000L;
    faked = true;
}

Fake_clock::~Fake_clock()
{
    faked = false;
}

Fake_monotonic_clock::Fake_monotonic_clock(std::int64_t milliseconds)
{
    fake_monotonic_ms = milliseconds;
    monotonic_faked = true;
}

Fake_monotonic_clock::~Fake_monotonic_clock()
{
    monotonic_faked = false;
}

void Fake_monotonic_clock::advance(std::int64_t milliseconds)
{
    fake_monotonic_ms += milliseconds;
}
