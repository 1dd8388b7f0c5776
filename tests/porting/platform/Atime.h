#pragma once

#include <cstdint>

/// Milliseconds of the console's own clock.
class Atime {
public:
    Atime() = default;
    explicit Atime(bool now);
    static Atime now();
    void set_now();
    std::int64_t operator-(const Atime& earlier) const { return ms - earlier.ms; }
    static void delay(int ms);

private:
    friend struct Rtime;
    std::int64_t ms = 0;
};
