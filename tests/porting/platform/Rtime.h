#pragma once

#include "platform/Atime.h"

#include <cstdint>

struct Rtime {
    std::int64_t seconds = 0;
    std::uint16_t milliseconds = 0;

    Rtime() = default;
    explicit Rtime(bool now);
    explicit Rtime(const Atime& moment);
};
