#pragma once

#include "examples/common/Fix.h"
#include "platform/Math2D.h"

#include <cstddef>
#include <string>
#include <vector>

/// Two fixes of a drive, by their numbers, and the distance between them in metres.
struct Stretch {
    std::size_t first = 0;
    std::size_t last = 0;
    double length = 0.0;
};

/// The longest run of fixes that all lie within `tolerance` metres of the line through its two ends, ahead of
/// the first or that near to it.
Stretch longest_straight(const std::vector<Math2D::Point>& places, double tolerance);

/// The two fixes that lie farthest apart.
Stretch farthest_apart(const std::vector<Math2D::Point>& places);

/// The fixes in a plane around the first: north and east, metres.
std::vector<Math2D::Point> in_plane(const std::vector<Fix>& fixes);

/// A line for a drive that came without one.
struct Line_choice {
    PointLLH a;
    PointLLH b;
    bool straight = false; ///< false: there is no straight stretch, these are the two fixes farthest apart
    std::string reason;    ///< for the log
};

/// @throw std::runtime_error  when all fixes lie in one place
Line_choice choose_line(const std::vector<Fix>& fixes);
