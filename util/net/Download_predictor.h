#pragma once

#include "platform/Atime.h"
#include "util/export.h"

#include <cstdint>

/// Estimates how long a running transfer still takes, from reports of how far it is.
///
/// Each report gives one sample of the transfer rate. The estimate takes the average of the last 20, the
/// latest weighing most, together with the average since the start,
/// which weighs more the longer the transfer runs.
///
/// A plain value without a constructor of its own: whoever starts a transfer sets what is not to be 0.
///
///     Download_predictor predictor{};
///     predictor.start_time = predictor.last_time = Atime::now();
///     predictor.warmup_seconds = 5;
///     ...
///     const double seconds = predictor.get_estimate_seconds(done, total); // after every piece
///
/// Nothing is refused. Reports within a millisecond of each other, and one within a millisecond of the start,
/// divide by zero; what is infinite or undefined then passes through, a sample until it has left the history.
///
/// Nothing is allocated. One thread at a time.
class QUARVEL_EXPORT Download_predictor {
public:
    std::uint32_t history_count = 0; ///< samples held, at most 20
    /// Bytes per second, oldest first. Once it is full an estimate drops the oldest for the next sample's
    /// sake, and the last slot keeps a copy until then; while warming up, each new sample replaces the last.
    double history[20] = {};
    Atime start_time;                ///< of the transfer
    Atime last_time;                 ///< of the report before, or of the start
    std::uint32_t last_done = 0;     ///< bytes, by the report before
    std::uint32_t report_count = 0;  ///< of all reports; it goes on where the history is full
    std::int32_t warmup_seconds = 0; ///< no estimate before so many have passed; 0 or less: at once
    bool debug = false;              ///< print the reasoning with Debug::Print::dprint

    /// Takes one report.
    ///
    /// @param done   bytes by now; less than before counts as a negative rate
    /// @param total  bytes in all. What is left, `total` - `done`, is unsigned and so wraps beyond the total.
    /// @return seconds that are left, or -1.0 while warming up;
    ///         infinite after a transfer that stood still all along
    double get_estimate_seconds(unsigned int done, unsigned int total);

    /// The same in minutes begun: seconds / 60 + 1, cut towards zero.
    ///
    /// @return 0 while warming up. What no int can hold is the nearest one, what is undefined 0.
    int get_estimate(unsigned int done, unsigned int total);

    /// @return minutes since the start
    double end();
};
