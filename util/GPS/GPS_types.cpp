#include "util/GPS/GPS_types.h"

#include "platform/Rtime.h"
#include "util/GPS/Coordinate_converter.h"

#include <cmath>

namespace {

constexpr double PI = 3.141592653589793;
constexpr double TWO_PI = 6.283185307179586;

constexpr std::int32_t WEEK_MS = 604800000;
constexpr std::int32_t MAX_MS = WEEK_MS - 1;
constexpr std::uint32_t WEEK_S = 604800;
constexpr std::uint32_t GPS_EPOCH_S = 315964800; // 1980-01-06 00:00 UTC
constexpr std::uint32_t BROADCAST_WEEK_BITS = 0x3FF;

static_assert(sizeof(GPS::Global_point) == sizeof(Point3D), "one is converted as the other");
static_assert(sizeof(GPS::Time) == 8 && sizeof(GPS::Heading) == 8 && sizeof(GPS::Elevation) == 8);

Point3D as_point(const GPS::Global_point& p)
{
    return {p.x, p.y, p.z};
}

void borrow(GPS::Time& time)
{
    time.ms += WEEK_MS;
    --time.week;
}

void carry(GPS::Time& time)
{
    time.ms -= WEEK_MS;
    ++time.week;
}

/// Carries every whole week, each for one unit of the budget; the one that finds the budget spent is still
/// made and is the last.
void carry_whole_weeks(GPS::Time& time, unsigned int& budget)
{
    while (time.ms > MAX_MS) {
        carry(time);
        if (budget == 0)
            return;
        --budget;
    }
}

} // namespace

void GPS::Heading::standardify(unsigned short max_steps)
{
    for (unsigned step = 0; step < max_steps; ++step) {
        if (radians < -PI)
            radians += TWO_PI;
        else if (radians > PI)
            radians -= TWO_PI;
        else
            return;
    }
}

GPS::Local_point::Local_point(double distance, GPS::Heading h, GPS::Elevation e)
    : x(distance * std::sin(h.radians) * std::cos(e.radians)),
      y(distance * std::cos(h.radians) * std::cos(e.radians)), z(distance * std::sin(e.radians))
{
}

GPS::Local_point::Local_point(double distance, GPS::Heading h)
    : x(distance * std::sin(h.radians)), y(distance * std::cos(h.radians))
{
}

double GPS::Local_point::distance_2d()
{
    return std::sqrt(x * x + y * y);
}

double GPS::Local_point::distance_3d()
{
    return std::sqrt(x * x + y * y + z * z);
}

GPS::Local_point GPS::Local_point::operator+(GPS::Local_point other)
{
    return {x + other.x, y + other.y, z + other.z};
}

GPS::Local_point GPS::Local_point::operator-(GPS::Local_point other)
{
    return {x - other.x, y - other.y, z - other.z};
}

GPS::Local_point GPS::Global_point::operator-(GPS::Global_point origin)
{
    Coordinate_converter around_origin;
    around_origin.setLocalCenter(as_point(origin));
    Local_point offset;
    around_origin.convPointXYZ2Local(as_point(*this), offset.x, offset.y);
    offset.z = as_point(*this).as_llh().height - as_point(origin).as_llh().height;
    return offset;
}

void GPS::Time::standardify(unsigned int max_passes)
{
    unsigned int budget = max_passes;
    while (budget > 0) {
        --budget;
        if (week > 0 && ms < 0) {
            borrow(*this);
            if (ms < -MAX_MS)
                borrow(*this);
        } else if (week < 0 && ms > 0) {
            carry(*this); // free of charge; what is left is charged
            carry_whole_weeks(*this, budget);
        } else if (ms < -MAX_MS) {
            borrow(*this);
        } else {
            carry_whole_weeks(*this, budget);
        }
    }
}

int GPS::Time::get_current_gps_week()
{
    const auto now = static_cast<std::uint32_t>(Rtime(true).seconds);
    return static_cast<int>(((now - GPS_EPOCH_S) / WEEK_S) & BROADCAST_WEEK_BITS);
}
