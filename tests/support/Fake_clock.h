#pragma once

#include <cstdint>

/// Holds the wall clock of this process at a chosen moment for as long as the object lives.
///
/// The test program's own clock_gettime answers in place of the C library's, so whatever reads the clock
/// sees it. One at a time.
class Fake_clock {
public:
    /// @param seconds  since 1970-01-01 00:00 UTC
    explicit Fake_clock(std::int64_t seconds, int milliseconds = 0);
    ~Fake_clock();
    Fake_clock(const Fake_clock&) = delete;
    Fake_clock& operator=(const Fake_clock&) = delete;
};

/// The same for the monotonic clock, which stands still but for advance(). Nothing in the process may wait
/// for time to pass meanwhile.
class Fake_monotonic_clock {
public:
    explicit Fake_monotonic_clock(std::int64_t milliseconds);
    ~Fake_monotonic_clock();
    Fake_monotonic_clock(const Fake_monotonic_clock&) = delete;
    Fake_monotonic_clock& operator=(const Fake_monotonic_clock&) = delete;

    void advance(std::int64_t milliseconds); // NOLINT(readability-convert-member-functions-to-static)
};
