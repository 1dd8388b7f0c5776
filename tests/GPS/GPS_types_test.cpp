#include "util/GPS/GPS_types.h"

#include "tests/support/Fake_clock.h"
#include "tests/support/Geodesy.h"
#include "util/GPS/Point3D.h"
#include "util/GPS/PointLLH.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#ifdef QUARVEL_GEOGRAPHICLIB
#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/LocalCartesian.hpp>
#endif

namespace {

constexpr double PI = 3.141592653589793;
constexpr std::int32_t WEEK = 604800000;

static_assert(offsetof(GPS::Global_point, x) == 0 && offsetof(GPS::Global_point, y) == 8 &&
              offsetof(GPS::Global_point, z) == 16 && sizeof(GPS::Global_point) == sizeof(Point3D));
static_assert(offsetof(GPS::Local_point, x) == 0 && offsetof(GPS::Local_point, y) == 8 &&
              offsetof(GPS::Local_point, z) == 16 && sizeof(GPS::Local_point) == 24);
static_assert(offsetof(GPS::Time, week) == 0 && offsetof(GPS::Time, ms) == 4 && sizeof(GPS::Time) == 8);
static_assert(sizeof(GPS::Heading) == 8 && sizeof(GPS::Elevation) == 8);

GPS::Global_point global(const Point3D& p)
{
    return {p.x, p.y, p.z};
}

/// A second way to standardify: the sum of both fields never changes, so the week number alone is the state
/// and the milliseconds are what is left. Each step answers what it does to the week.
class Week_model {
public:
    Week_model(std::int64_t week_number, std::int64_t ms) : total(week_number * WEEK + ms), week(week_number)
    {
    }

    void run(unsigned budget)
    {
        credit = budget;
        while (credit > 0) {
            --credit;
            pass();
        }
    }

    std::int64_t week_number() const { return week; }
    std::int64_t rest() const { return total - week * WEEK; }

private:
    void pass()
    {
        if (week > 0 && rest() < 0) {
            week -= 1;
            week -= rest() < 1 - WEEK ? 1 : 0;
            return;
        }
        if (week == 0 && rest() < WEEK) {
            week -= rest() < 1 - WEEK ? 1 : 0;
            return;
        }
        if (week < 0 && rest() <= 0) {
            week -= rest() < 1 - WEEK ? 1 : 0;
            return;
        }
        if (week < 0)
            week += 1;
        for (bool paid = true; paid && rest() >= WEEK;) {
            week += 1;
            paid = credit > 0;
            credit -= paid ? 1 : 0;
        }
    }

    std::int64_t total;
    std::int64_t week;
    unsigned credit = 0;
};

void expect_time(std::int32_t week, std::int32_t ms, const GPS::Time& time)
{
    EXPECT_EQ(week, time.week);
    EXPECT_EQ(ms, time.ms);
}

void expect_as_modelled(std::int32_t week, std::int32_t ms, unsigned budget)
{
    Week_model model(week, ms);
    model.run(budget);
    GPS::Time time(week, ms);
    time.standardify(budget);
    ASSERT_TRUE(model.week_number() == time.week && model.rest() == time.ms)
        << "(" << week << ", " << ms << ") with " << budget << " gave (" << time.week << ", " << time.ms
        << "), not (" << model.week_number() << ", " << model.rest() << ")";
}

GPS::Heading standardified(double radians, unsigned short max_steps)
{
    GPS::Heading heading(radians);
    heading.standardify(max_steps);
    return heading;
}

int week_at(std::int64_t seconds)
{
    const Fake_clock clock(seconds);
    return GPS::Time::get_current_gps_week();
}

} // namespace

TEST(GPS_Time, is_zero_when_default_built)
{
    expect_time(0, 0, GPS::Time());
}

TEST(GPS_Time, standardify_gives_the_known_answers)
{
    const struct {
        std::int32_t week, ms;
        unsigned budget;
        std::int32_t expected_week, expected_ms;
    } cases[] = {
        {1, -1, 1, 0, 604799999},
        {0, 604800000, 1, 1, 0},
        {0, -604800000, 1, -1, 0},
        {-1, 5, 1, 0, -604799995},
        {0, 3 * WEEK + 7, 2, 2, 604800007}, // spent before the third carry
        {0, 3 * WEEK + 7, 5, 3, 7},
        {0, 3 * WEEK + 7, 1, 1, 2 * WEEK + 7}, // the first carry is made though nothing is left for it
        {2, -WEEK, 1, 1, 0},
        {1, -WEEK - 1, 1, 0, -1},
        {2, -2 * WEEK, 1, 0, 0}, // two borrows in one pass
        {1, -2 * WEEK, 1, -1, 0},
        {3, -3 * WEEK, 1, 1, -WEEK}, // and never three
        {0, 604799999, 6, 0, 604799999},
        {0, -604799999, 6, 0, -604799999}, // week 0 takes either sign
        {5, 0, 6, 5, 0},
        {-5, 0, 6, -5, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.week << ", " << c.ms << ", budget " << c.budget);
        GPS::Time time(c.week, c.ms);
        time.standardify(c.budget);
        expect_time(c.expected_week, c.expected_ms, time);
    }
}

TEST(GPS_Time, standardify_without_a_budget_changes_nothing)
{
    GPS::Time time(-2, 2000000000);
    time.standardify(0);
    expect_time(-2, 2000000000, time);
}

TEST(GPS_Time, standardify_follows_the_model_around_every_week_boundary)
{
    std::vector<std::int32_t> starts;
    for (std::int32_t weeks = -3; weeks <= 3; ++weeks)
        for (const std::int32_t off : {-WEEK / 2, -7, -2, -1, 0, 1, 2, 7, WEEK / 2})
            starts.push_back(weeks * WEEK + off);
    for (std::int32_t week = -3; week <= 3; ++week)
        for (const std::int32_t ms : starts)
            for (unsigned budget = 0; budget <= 6; ++budget)
                expect_as_modelled(week, ms, budget);
}

TEST(GPS_Time, standardify_follows_the_model_for_random_times)
{
    std::mt19937 random(20260117);
    std::uniform_int_distribution<std::int32_t> weeks(-3, 3);
    std::uniform_int_distribution<std::int32_t> times(-3 * WEEK, 3 * WEEK);
    for (int i = 0; i < 20000; ++i) {
        const std::int32_t week = weeks(random);
        const std::int32_t ms = times(random);
        for (unsigned budget = 0; budget <= 6; ++budget)
            expect_as_modelled(week, ms, budget);
    }
}

TEST(GPS_Time, standardify_takes_the_largest_and_smallest_milliseconds)
{
    for (const std::int32_t ms :
         {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()})
        for (std::int32_t week = -5; week <= 5; ++week)
            for (unsigned budget = 0; budget <= 12; ++budget)
                expect_as_modelled(week, ms, budget);
}

TEST(GPS_Time, reaches_its_goal_with_a_budget_of_a_few_passes)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int32_t> times(-3 * WEEK, 3 * WEEK);
    for (int i = 0; i < 10000; ++i) {
        const std::int32_t start = times(random);
        GPS::Time time(i % 7 - 3, start);
        time.standardify(8);
        ASSERT_LT(std::abs(time.ms), WEEK) << "week " << i % 7 - 3 << ", ms " << start;
        ASSERT_TRUE(time.week == 0 || time.ms == 0 || (time.ms > 0) == (time.week > 0))
            << "week " << i % 7 - 3 << ", ms " << start;
    }
}

TEST(GPS_Time, current_week_is_the_broadcast_ten_bits)
{
    EXPECT_EQ(0, week_at(315964800));    // 1980-01-06 00:00 UTC, the GPS epoch
    EXPECT_EQ(0, week_at(316569599));    // the last second of week 0
    EXPECT_EQ(1, week_at(316569600));    // and the first of week 1
    EXPECT_EQ(1023, week_at(935279999)); // 1999-08-21 23:59:59 UTC
    EXPECT_EQ(0, week_at(935280000));    // the first rollover, 1999-08-22 (US Coast Guard notice)
    EXPECT_EQ(1023, week_at(1554595199));
    EXPECT_EQ(0, week_at(1554595200)); // the second, 2019-04-07
    EXPECT_EQ(0, week_at(2173910400)); // the third, 2038-11-21, past the range of a signed 32-bit clock
}

TEST(GPS_Time, current_week_wraps_before_the_epoch_as_32_bits_do)
{
    // 2^32 - 1 seconds are 7101 whole weeks, and 7101 modulo 1024 is 957.
    EXPECT_EQ(957, week_at(315964799));
}

TEST(GPS_Heading, is_zero_when_default_built)
{
    EXPECT_EQ(0.0, GPS::Heading().radians);
    EXPECT_EQ(0.0, GPS::Elevation().radians);
}

TEST(GPS_Heading, standardify_gives_the_known_answers)
{
    EXPECT_EQ(0.7168146928204138, standardified(7.0, 1).radians);
    EXPECT_EQ(13.716814692820414, standardified(20.0, 1).radians); // one turn is not enough
    EXPECT_EQ(-0.7168146928204138, standardified(-7.0, 1).radians);
}

TEST(GPS_Heading, standardify_keeps_both_bounds)
{
    EXPECT_EQ(-PI, standardified(-PI, 5).radians);
    EXPECT_EQ(PI, standardified(PI, 5).radians);
    const double above = std::nextafter(PI, 4.0);
    EXPECT_EQ(above - 6.283185307179586, standardified(above, 1).radians);
    const double below = std::nextafter(-PI, -4.0);
    EXPECT_EQ(below + 6.283185307179586, standardified(below, 1).radians);
}

TEST(GPS_Heading, standardify_takes_one_turn_a_step_and_stops_when_it_is_there)
{
    EXPECT_EQ(100.0, standardified(100.0, 0).radians);
    double expected = 100.0;
    for (unsigned short steps = 1; steps <= 16; ++steps) {
        expected -= 6.283185307179586;
        EXPECT_EQ(expected, standardified(100.0, steps).radians) << steps << " steps";
    }
    EXPECT_EQ(expected, standardified(100.0, 65535).radians);
}

TEST(GPS_Heading, standardify_lets_what_is_not_a_number_pass)
{
    EXPECT_TRUE(std::isnan(standardified(std::numeric_limits<double>::quiet_NaN(), 3).radians));
}

TEST(GPS_Local_point, is_zero_when_default_built_and_keeps_three_values)
{
    const GPS::Local_point zero;
    EXPECT_TRUE(zero.x == 0.0 && zero.y == 0.0 && zero.z == 0.0);
    const GPS::Local_point p(1.5, -2.5, 3.5);
    EXPECT_TRUE(p.x == 1.5 && p.y == -2.5 && p.z == 3.5);
}

TEST(GPS_Local_point, turns_its_heading_from_y_towards_x)
{
    const GPS::Local_point along_y(10.0, 0.0);
    EXPECT_EQ(0.0, along_y.x);
    EXPECT_EQ(10.0, along_y.y);
    EXPECT_EQ(0.0, along_y.z);
    const GPS::Local_point along_x(10.0, PI / 2.0);
    EXPECT_EQ(10.0, along_x.x);
    EXPECT_NEAR(0.0, along_x.y, 1e-14);
    EXPECT_EQ(0.0, along_x.z);
}

TEST(GPS_Local_point, rises_with_its_elevation)
{
    const GPS::Local_point up(10.0, GPS::Heading(1.0), GPS::Elevation(PI / 2.0));
    EXPECT_NEAR(0.0, up.x, 1e-14);
    EXPECT_NEAR(0.0, up.y, 1e-14);
    EXPECT_EQ(10.0, up.z);
    // 30 degrees up, 60 degrees from y: half of it up, the rest split by sine and cosine of 60 degrees.
    const GPS::Local_point p(8.0, GPS::Heading(PI / 3.0), GPS::Elevation(PI / 6.0));
    EXPECT_NEAR(6.0, p.x, 1e-14);
    EXPECT_NEAR(2.0 * std::sqrt(3.0), p.y, 1e-14);
    EXPECT_NEAR(4.0, p.z, 1e-14);
}

TEST(GPS_Local_point, on_the_level_is_the_same_as_with_elevation_0)
{
    for (double heading = -7.0; heading < 7.0; heading += 0.37) {
        const GPS::Local_point level(12.5, heading);
        const GPS::Local_point raised(12.5, GPS::Heading(heading), GPS::Elevation(0.0));
        EXPECT_EQ(raised.x, level.x);
        EXPECT_EQ(raised.y, level.y);
        EXPECT_EQ(raised.z, level.z);
    }
}

TEST(GPS_Local_point, measures_its_length_with_and_without_z)
{
    GPS::Local_point p(3.0, 4.0, 12.0);
    EXPECT_EQ(5.0, p.distance_2d());
    EXPECT_EQ(13.0, p.distance_3d());
}

TEST(GPS_Local_point, adds_and_subtracts_componentwise)
{
    GPS::Local_point a(1.0, 2.0, 3.0);
    const GPS::Local_point b(10.0, 20.0, 40.0);
    const GPS::Local_point sum = a + b;
    EXPECT_TRUE(sum.x == 11.0 && sum.y == 22.0 && sum.z == 43.0);
    const GPS::Local_point difference = a - b;
    EXPECT_TRUE(difference.x == -9.0 && difference.y == -18.0 && difference.z == -37.0);
    EXPECT_TRUE(a.x == 1.0 && a.y == 2.0 && a.z == 3.0);
}

TEST(GPS_Global_point, is_zero_when_default_built_and_keeps_three_values)
{
    const GPS::Global_point zero;
    EXPECT_TRUE(zero.x == 0.0 && zero.y == 0.0 && zero.z == 0.0);
    const GPS::Global_point p(1.5, -2.5, 3.5);
    EXPECT_TRUE(p.x == 1.5 && p.y == -2.5 && p.z == 3.5);
}

TEST(GPS_Global_point, seen_from_itself_is_nowhere)
{
    // The origin is converted to geodetic and back, which a tenth of a millimetre bounds.
    GPS::Global_point p(660675.2518247, -4700948.68316, 4245737.66222);
    const GPS::Local_point offset = p - p;
    EXPECT_NEAR(0.0, offset.x, 1e-4);
    EXPECT_NEAR(0.0, offset.y, 1e-4);
    EXPECT_EQ(0.0, offset.z);
}

TEST(GPS_Global_point, difference_is_north_east_and_height)
{
    GPS::Global_point north(6378137.0, 0.0, 100.0);
    const GPS::Global_point origin(6378137.0, 0.0, 0.0);
    const GPS::Local_point offset = north - origin;
    EXPECT_NEAR(100.0, offset.x, 1e-4);
    EXPECT_NEAR(0.0, offset.y, 1e-4);
    GPS::Global_point east(6378137.0, 100.0, 0.0);
    EXPECT_NEAR(100.0, (east - origin).y, 1e-4);
    GPS::Global_point above(6378237.0, 0.0, 0.0);
    EXPECT_NEAR(100.0, (above - origin).z, 1e-4);
}

TEST(GPS_Global_point, takes_z_from_the_heights_and_not_from_the_plane)
{
    // Ten kilometres away at the same height: the plane is d^2 / 2R = 7.84 m above the ellipsoid there.
    const PointLLH a(0.5, 1.0, 50.0);
    const PointLLH b(0.5 + 10000.0 / 6378137.0, 1.0, 50.0);
    GPS::Global_point far = global(b.as_3D());
    const GPS::Local_point offset = far - global(a.as_3D());
    EXPECT_NEAR(0.0, offset.z, 1e-4);
    EXPECT_NEAR(10000.0, offset.x, 100.0);
}

TEST(GPS_Global_point, seen_from_near_the_earths_centre_has_no_horizontal_offset)
{
    GPS::Global_point p(6378137.0, 0.0, 0.0);
    const GPS::Global_point inside(500.0, 0.0, 0.0);
    const GPS::Local_point offset = p - inside;
    EXPECT_EQ(0.0, offset.x);
    EXPECT_EQ(0.0, offset.y);
    EXPECT_EQ(Point3D(6378137.0, 0.0, 0.0).as_llh().height - Point3D(500.0, 0.0, 0.0).as_llh().height,
              offset.z);
}

#ifdef QUARVEL_GEOGRAPHICLIB
// Each of the two conversions to geodetic leaves up to a tenth of a millimetre.
TEST(GPS_Global_point, difference_agrees_with_GeographicLib_around_the_globe)
{
    constexpr double DEGREE = PI / 180.0;
    const unsigned seed = 20291;
    Random_places random(seed);
    const GeographicLib::Geocentric& earth = GeographicLib::Geocentric::WGS84();
    for (int i = 0; i < 10000; ++i) {
        const double lat0 = random.latitude() / DEGREE;
        const double lon0 = random.longitude() / DEGREE;
        const double h0 = random.between(-100.0, 9000.0);
        const double span = i % 2 == 0 ? 0.1 : 10.0; // degrees
        const double lat = std::fmax(-90.0, std::fmin(90.0, lat0 + random.between(-span, span)));
        const double lon = lon0 + random.between(-span, span);
        const double h = random.between(-100.0, 20000.0);
        GPS::Global_point origin;
        earth.Forward(lat0, lon0, h0, origin.x, origin.y, origin.z);
        GPS::Global_point point;
        earth.Forward(lat, lon, h, point.x, point.y, point.z);
        double east = 0.0;
        double north = 0.0;
        double up = 0.0;
        GeographicLib::LocalCartesian(lat0, lon0, h0).Forward(lat, lon, h, east, north, up);

        const GPS::Local_point offset = point - origin;
        ASSERT_NEAR(north, offset.x, 2e-4) << trace(seed, i);
        ASSERT_NEAR(east, offset.y, 2e-4) << trace(seed, i);
        ASSERT_NEAR(h - h0, offset.z, 2e-4) << trace(seed, i);
    }
}
#endif
