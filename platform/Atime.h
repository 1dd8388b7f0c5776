#pragma once

#include "platform/export.h"

#include <cstdint>

/// A moment of the monotonic clock, for measuring how long things take: setting the wall clock does not move
/// it.
///
/// Moments of one run of the machine compare with one another; Rtime tells the calendar time of one. A plain
/// value; any thread may read the clock.
class QUARVEL_PLATFORM_EXPORT Atime {
public:
    /// The clock's zero, which lies at or before the start of the machine.
    Atime() = default;

    /// The current moment when `now`, else the clock's zero; the clock is read with clock_gettime.
    explicit Atime(bool now);

    static Atime now(); ///< the same as Atime(true)
    void set_now();     ///< moves this value to the current moment

    /// Whole milliseconds from `earlier` to this moment, cut towards zero; negative when it is the later one.
    std::int64_t operator-(const Atime& earlier) const;

    /// Sleeps for that long at least, signals or not; returns at once for 0 or less.
    static void delay(int ms);

private:
    friend struct Rtime;

    std::int64_t nanoseconds = 0;
};
