#include "examples/common/Straight.h"

#include "examples/common/Guidance.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

constexpr double TOLERANCES[] = {0.1, 0.3, 1.0, 3.0}; // metres, the best first
constexpr double SHORTEST_STRETCH = 100.0;            // metres
constexpr double TURN = 6.283185307179586;

/// The directions in which a ray leaves the first fix and passes within the tolerance of all fixes so far.
class Wedge {
public:
    /// Whether the ray at this bearing does.
    bool holds(double bearing) const
    {
        const double off = std::remainder(bearing - middle, TURN);
        return open || (low <= off && off <= high);
    }

    /// @return false when no direction is left
    bool narrow(double bearing, double half_width)
    {
        if (open) {
            open = false;
            middle = bearing;
            low = -half_width;
            high = half_width;
        }
        const double off = std::remainder(bearing - middle, TURN);
        low = std::max(low, off - half_width);
        high = std::min(high, off + half_width);
        return low <= high;
    }

private:
    bool open = true; ///< every direction
    double middle = 0.0;
    double low = 0.0; ///< from the middle, radians
    double high = 0.0;
};

} // namespace

Stretch longest_straight(const std::vector<Math2D::Point>& places, double tolerance)
{
    Stretch best;
    for (std::size_t first = 0; first < places.size(); ++first) {
        Wedge wedge;
        for (std::size_t last = first + 1; last < places.size(); ++last) {
            const double length = places[first].get_distance(places[last]);
            if (length <= tolerance) // near any line through the first fix
                continue;
            const double bearing = std::atan2(places[last].second - places[first].second,
                                              places[last].first - places[first].first);
            if (length > best.length && wedge.holds(bearing))
                best = {first, last, length};
            if (!wedge.narrow(bearing, std::asin(tolerance / length)))
                break;
        }
    }
    return best;
}

Stretch farthest_apart(const std::vector<Math2D::Point>& places)
{
    Stretch best;
    for (std::size_t first = 0; first < places.size(); ++first)
        for (std::size_t last = first + 1; last < places.size(); ++last) {
            const double length = places[first].get_distance(places[last]);
            if (length > best.length)
                best = {first, last, length};
        }
    return best;
}

std::vector<Math2D::Point> in_plane(const std::vector<Fix>& fixes)
{
    Coordinate_converter plane;
    plane.setLocalCenter(fixes.front().position);
    std::vector<Math2D::Point> places(fixes.size());
    for (std::size_t i = 0; i < fixes.size(); ++i)
        plane.convPointLLH2Local(fixes[i].position, places[i].first, places[i].second);
    return places;
}

Line_choice choose_line(const std::vector<Fix>& fixes)
{
    const std::vector<Math2D::Point> places = in_plane(fixes);
    for (const double tolerance : TOLERANCES) {
        const Stretch found = longest_straight(places, tolerance);
        if (found.length >= SHORTEST_STRETCH)
            return {fixes[found.first].position, fixes[found.last].position, true,
                    text("line along %.1f m of the drive, from %.2f s to %.2f s, straight to %.1f m",
                         found.length, fixes[found.first].time_s, fixes[found.last].time_s, tolerance)};
    }
    const Stretch widest = farthest_apart(places);
    if (widest.length <= 0.0)
        throw std::runtime_error("All fixes of the recording lie in one place, which makes no line: give "
                                 "one with --a and --b.");
    return {fixes[widest.first].position, fixes[widest.last].position, false,
            text("no straight stretch of %.0f m in the drive: line through the two fixes farthest apart, "
                 "%.2f m, from %.2f s to %.2f s",
                 SHORTEST_STRETCH, widest.length, fixes[widest.first].time_s, fixes[widest.last].time_s)};
}
