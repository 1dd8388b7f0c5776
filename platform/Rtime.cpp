#include "platform/Rtime.h"

#include <ctime>

Rtime::Rtime(bool now)
{
    if (!now)
        return;
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time); // cannot fail: the clock exists and the address is valid
    seconds = time.tv_sec;
    milliseconds = static_cast<std::uint16_t>(time.tv_nsec / 1000000);
}

Rtime::Rtime(const Atime& moment)
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time); // cannot fail, as above
    const std::int64_t wall = std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    const std::int64_t then = wall - (Atime::now().nanoseconds - moment.nanoseconds);
    const std::int64_t whole_ms = then / 1000000 - (then % 1000000 < 0 ? 1 : 0);
    seconds = whole_ms / 1000 - (whole_ms % 1000 < 0 ? 1 : 0);
    milliseconds = static_cast<std::uint16_t>(whole_ms - seconds * 1000);
}
