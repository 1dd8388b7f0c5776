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
