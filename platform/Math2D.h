#pragma once

#include <cmath>

/// Plane geometry of guidance. Plain values: nothing fails, and what is not a number comes out again.
namespace Math2D {

/// A point of the plane.
struct Point {
    double first = 0.0;  ///< north, metres
    double second = 0.0; ///< east, metres

    Point() = default;
    /// North, then east.
    Point(double first_coordinate, double second_coordinate)
        : first(first_coordinate), second(second_coordinate)
    {
    }

    /// The Euclidean distance to another point.
    double get_distance(const Point& other) const
    {
        const double d_first = other.first - first;
        const double d_second = other.second - second;
        return std::sqrt(d_first * d_first + d_second * d_second);
    }
};

/// A directed line from `start` to `finish`.
///
/// A line whose ends coincide has no direction: it answers a heading of 0 and distances of 0.
struct Line {
    Point start;  ///< where distances along begin
    Point finish; ///< with `start` gives the direction, and no end to the line

    /// The direction of start to finish, atan2(first, second): 0 along `second`,
    /// a quarter turn along `first`.
    ///
    /// @return degrees when asked for, else radians; -180 to 180 or -pi to pi
    double get_heading(bool degrees) const
    {
        const double angle = std::atan2(finish.first - start.first, finish.second - start.second);
        return degrees ? angle * 180.0 / 3.141592653589793 : angle;
    }

    /// How far along the line a point lies: the signed length of its projection, measured from `start`
    /// towards `finish`, which may lie behind the start or beyond the finish.
    double get_distance_along(Point p) const
    {
        const Point to_finish{finish.first - start.first, finish.second - start.second};
        return over_length((p.first - start.first) * to_finish.first +
                           (p.second - start.second) * to_finish.second);
    }

    /// How far from the line a point lies, positive to the right when looking from start to finish.
    double get_distance_across(Point p) const
    {
        const Point to_finish{finish.first - start.first, finish.second - start.second};
        return over_length((p.second - start.second) * to_finish.first -
                           (p.first - start.first) * to_finish.second);
    }

private:
    double over_length(double product) const
    {
        const double length = start.get_distance(finish);
        return length > 0.0 ? product / length : 0.0;
    }
};

} // namespace Math2D
