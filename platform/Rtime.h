#pragma once

#include "platform/Atime.h"
#include "platform/export.h"

#include <cstdint>

/// Calendar time: seconds since 1970-01-01 00:00 UTC, without leap seconds, and a millisecond part.
///
/// The seconds have 64 bits on every machine, so 32-bit consoles pass the year 2038. A plain value; any
/// thread may read the clock.
struct QUARVEL_PLATFORM_EXPORT Rtime {
    std::int64_t seconds = 0;       ///< negative before 1970
    std::uint16_t milliseconds = 0; ///< 0 to 999

    /// The epoch itself.
    Rtime() = default;

    /// The current time when `now`, else the epoch; the clock is read with clock_gettime.
    explicit Rtime(bool now);

    /// When a moment of the monotonic clock is or was, as the wall clock now stands. Before 1970 the seconds
    /// are negative and the milliseconds count on from them.
    explicit Rtime(const Atime& moment);
};
