#include "platform/Atime.h"

#include <cerrno>
#include <ctime>

Atime::Atime(bool now)
{
    if (now)
        set_now();
}

Atime Atime::now()
{
    return Atime(true);
}

void Atime::set_now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time); // cannot fail: the clock exists and the address is valid
    nanoseconds = std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

std::int64_t Atime::operator-(const Atime& earlier) const
{
    return (nanoseconds - earlier.nanoseconds) / 1000000;
}

void Atime::delay(int ms)
{
    if (ms <= 0)
        return;
    timespec left{};
    left.tv_sec = ms / 1000;
    left.tv_nsec = ms % 1000 * 1000000L;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}
