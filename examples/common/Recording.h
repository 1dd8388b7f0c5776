#pragma once

#include "examples/common/Fix.h"

#include <QString>

#include <vector>

/// A recorded drive: NMEA 0183, or the solution text (.pos) of a post-processing program.
struct Recording {
    std::vector<Fix> fixes; ///< whole epochs, in the order of time, at least one
    int without_fix = 0;    ///< position sentences that say that they hold none
    int damaged = 0;        ///< sentences of any kind whose checksum is wrong or missing
    int repeated = 0;       ///< positions of an epoch that was there before

    int rejected() const { return without_fix + damaged + repeated; }

    /// The usual time from fix to fix (the median).
    double interval_s() const;
};

/// Reads and checks a whole file.
///
/// Positions come from GGA where the file has any, else from RMC, so that no epoch counts twice.
/// @throw std::runtime_error  says what is wrong with the file and what to do about it
Recording read_recording(const QString& path);
