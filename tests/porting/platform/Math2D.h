#pragma once

#include <cmath>

namespace Math2D {

struct Point {
    double first = 0.0;
    double second = 0.0;

    Point() = default;
    Point(double north, double east) : first(north), second(east) {}
    double get_distance(const Point& other) const
    {
        return std::hypot(other.first - first, other.second - second);
    }
};

struct Line {
    Point start;
    Point finish;

    double get_heading(bool degrees) const
    {
        const double angle = std::atan2(finish.first - start.first, finish.second - start.second);
        return degrees ? angle * 180.0 / 3.141592653589793 : angle;
    }
    double get_distance_along(Point p) const { return dot(p) / start.get_distance(finish); }
    double get_distance_across(Point p) const
    {
        return ((p.second - start.second) * (finish.first - start.first) -
                (p.first - start.first) * (finish.second - start.second)) /
               start.get_distance(finish);
    }

private:
    double dot(Point p) const
    {
        return (p.first - start.first) * (finish.first - start.first) +
               (p.second - start.second) * (finish.second - start.second);
    }
};

} // namespace Math2D
