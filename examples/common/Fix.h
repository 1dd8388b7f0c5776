#pragma once

#include "util/GPS/PointLLH.h"

constexpr double RADIANS_PER_DEGREE = 3.141592653589793 / 180.0;

enum class Quality { plain, differential, rtk_float, rtk_fixed };

/// What a receiver reports once an epoch, simulated or recorded.
struct Fix {
    double time_s = 0.0; ///< since the first fix, always growing
    PointLLH position;   ///< of the antenna; radians, metres above the ellipsoid
    Quality quality = Quality::plain;
};
