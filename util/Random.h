#pragma once

#include "util/export.h"

#include <cstdint>

/// Small pseudo-random numbers that repeat: the same seed gives the same row on every machine. Not for
/// secrets.
///
/// The minimal standard generator with multiplier 48271 and modulus 2^31 - 1, as std::minstd_rand.
///
/// One row for the whole process and no lock: callers of several threads agree among themselves.
/// @see  S. K. Park, K. W. Miller, Random number generators: good ones are hard to find, Comm. ACM 31 (1988),
///       and their answer in 36 (1993) for the multiplier
class QUARVEL_EXPORT Random {
public:
    /// The whole state, which may be read and set at any time; 1 until something seeds it.
    ///
    /// 0 and the multiples of 2^31 - 1 are poor seeds: from these rand() gives 2147483647 for ever.
    static std::uint32_t seed;

    /// Sets the seed to the low 32 bits of `s`.
    static void srand(unsigned long s);

    /// Steps the seed and returns it: 1 to 2147483647, the upper bound from the poor seeds alone.
    ///
    /// A seed of 2^31 or more stands for its remainder modulo 2^31 - 1.
    static std::uint32_t rand();

    /// Seeds from the low 32 bits of the wall clock's seconds, and takes one step: the seconds themselves are
    /// too much alike. Two calls within a second give the same row.
    static void init();
};
