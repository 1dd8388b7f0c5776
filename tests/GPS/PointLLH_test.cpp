#include "util/GPS/PointLLH.h"

#include "tests/support/Geodesy.h"
#include "tests/support/Table.h"
#include "util/GPS/Point3D.h"
#include "util/GPS/ellipsoid.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#ifdef QUARVEL_GEOGRAPHICLIB
#include <GeographicLib/Geodesic.hpp>
#endif

namespace {

constexpr double PI = 3.141592653589793;
constexpr double DEGREE = PI / 180.0;
constexpr double A = 6378137.0;

// Applications hold points by value and read the fields: the layout is part of the interface.
static_assert(offsetof(PointLLH, lat) == 0 && offsetof(PointLLH, lon) == 8 &&
              offsetof(PointLLH, height) == 16);
static_assert(sizeof(PointLLH) == 24);
static_assert(PointLLH::ZERO_TOLD == 1e-14 && PointLLH::ZERO_TOL == 0.001);

static_assert(
    std::is_same_v<decltype(std::declval<PointLLH&>() = std::declval<const PointLLH&>()), PointLLH&>);
static_assert(
    std::is_same_v<decltype(std::declval<PointLLH&>() = std::declval<const Point3D&>()), PointLLH&>);
static_assert(std::is_same_v<decltype(&PointLLH::operator+), PointLLH (PointLLH::*)(PointLLH const&)>,
              "not const");
static_assert(std::is_same_v<decltype(&PointLLH::operator-), PointLLH (PointLLH::*)(PointLLH const&)>,
              "not const");
static_assert(std::is_same_v<decltype(&PointLLH::path_along_surface),
                             bool (PointLLH::*)(PointLLH&, double&, double&, double&)>);
static_assert(std::is_same_v<decltype(std::declval<const PointLLH&>().as_3D()), Point3D>);

double PointLLH::*const FIELDS[] = {&PointLLH::lat, &PointLLH::lon, &PointLLH::height};

void expect_llh(double lat, double lon, double height, const PointLLH& p)
{
    EXPECT_EQ(lat, p.lat);
    EXPECT_EQ(lon, p.lon);
    EXPECT_EQ(height, p.height);
}

std::string printed(const PointLLH& p, const char* prefix, const char* suffix, bool degrees)
{
    testing::internal::CaptureStderr();
    p.print(prefix, suffix, degrees);
    return testing::internal::GetCapturedStderr();
}

/// What a call of path_along_surface() left behind; the outputs start as sentinels.
struct Path {
    double distance = -11.0;
    double from = -22.0;
    double to = -33.0;
    bool result = false;

    bool untouched() const { return distance == -11.0 && from == -22.0 && to == -33.0; }
};

Path path(PointLLH from, PointLLH to)
{
    Path p;
    p.result = from.path_along_surface(to, p.distance, p.from, p.to);
    return p;
}

Path path_of_degrees(double lat1, double lon1, double lat2, double lon2)
{
    return path(PointLLH(lat1 * DEGREE, lon1 * DEGREE, 0.0), PointLLH(lat2 * DEGREE, lon2 * DEGREE, 0.0));
}

/// The smaller angle between two directions.
double turn_between(double a, double b)
{
    return std::fabs(std::remainder(a - b, 2.0 * PI));
}

/// Vincenty's inverse formula with its angles written out, the terms named as in his paper.
struct Vincenty {
    double distance = 0.0;
    double from = 0.0;
    double to = 0.0;
    int iterations = 0;
    bool converged = false;
    bool coincident = false;
    double last_step = 0.0;     ///< change of lambda in the last iteration
    double previous_step = 0.0; ///< and in the one before
    bool on_the_edge = false;   ///< some step is so near the limit that rounding decides about it
};

Vincenty vincenty(double lat1, double lon1, double lat2, double lon2)
{
    const double f = 0.0033528106647474805;
    const double U1 = std::atan(0.9966471893352525 * std::tan(lat1));
    const double U2 = std::atan(0.9966471893352525 * std::tan(lat2));
    const double sinU1 = std::sin(U1), cosU1 = std::cos(U1);
    const double sinU2 = std::sin(U2), cosU2 = std::cos(U2);
    const double L = lon2 - lon1;
    Vincenty now;
    double lambda = L;
    double sinl = 0.0, cosl = 0.0, sin_sigma = 0.0, cos_sigma = 0.0, sigma = 0.0, cos2_alpha = 0.0,
           cos_2sm = 0.0;
    while (!now.converged && now.iterations < 100) {
        ++now.iterations;
        sinl = std::sin(lambda);
        cosl = std::cos(lambda);
        sin_sigma =
            std::sqrt(std::pow(cosU2 * sinl, 2.0) + std::pow(cosU1 * sinU2 - sinU1 * cosU2 * cosl, 2.0));
        if (sin_sigma < 1e-10) {
            now.coincident = true;
            return now;
        }
        cos_sigma = sinU1 * sinU2 + cosU1 * cosU2 * cosl;
        sigma = std::atan2(sin_sigma, cos_sigma);
        const double sin_alpha = cosU1 * cosU2 * sinl / sin_sigma;
        cos2_alpha = 1.0 - sin_alpha * sin_alpha;
        cos_2sm = cos_sigma - 2.0 * sinU1 * sinU2 / cos2_alpha;
        if (std::isnan(cos_2sm))
            cos_2sm = 0.0;
        const double C = 0.00020955066654671753 * cos2_alpha * (4.0 + f * (4.0 - 3.0 * cos2_alpha));
        const double inner = cos_2sm + C * cos_sigma * (-1.0 + 2.0 * cos_2sm * cos_2sm);
        const double next = L + (1.0 - C) * f * sin_alpha * (sigma + C * sin_sigma * inner);
        now.previous_step = now.last_step;
        now.last_step = std::fabs(next - lambda);
        now.converged = now.last_step < 1e-12;
        now.on_the_edge = now.on_the_edge || (now.last_step > 0.95e-12 && now.last_step < 1.05e-12);
        lambda = next;
    }
    const double u2 = cos2_alpha * 272331606109.84375 / 40408299984659.16;
    const double big_a = 1.0 + u2 / 16384.0 * (4096.0 + u2 * (-768.0 + u2 * (320.0 - 175.0 * u2)));
    const double big_b = u2 / 1024.0 * (256.0 + u2 * (-128.0 + u2 * (74.0 - 47.0 * u2)));
    const double last =
        big_b / 6.0 * cos_2sm * (-3.0 + 4.0 * sin_sigma * sin_sigma) * (-3.0 + 4.0 * cos_2sm * cos_2sm);
    const double delta_sigma =
        big_b * sin_sigma * (cos_2sm + big_b / 4.0 * (cos_sigma * (-1.0 + 2.0 * cos_2sm * cos_2sm) - last));
    now.distance = 6356752.314245 * big_a * (sigma - delta_sigma);
    now.from = std::atan2(cosU2 * sinl, cosU1 * sinU2 - sinU1 * cosU2 * cosl);
    now.to = std::atan2(cosU1 * sinl, cosl * cosU1 * sinU2 - sinU1 * cosU2);
    return now;
}

Vincenty vincenty(const PointLLH& from, const PointLLH& to)
{
    return vincenty(from.lat, from.lon, to.lat, to.lon);
}

/// How far the results move when the four angles move by as much as rounding moves them.
struct Sensitivity {
    double distance = 0.0;
    double bearing = 0.0;
    bool same_course = true; ///< the iterations ran alike throughout
};

Sensitivity sensitivity(const PointLLH& from, const PointLLH& to)
{
    const Vincenty base = vincenty(from, to);
    Sensitivity s;
    for (double PointLLH::*const angle : {&PointLLH::lat, &PointLLH::lon})
        for (const double step : {1e-15, -1e-15})
            for (const bool first : {true, false}) {
                PointLLH from2(from);
                PointLLH to2(to);
                PointLLH& end = first ? from2 : to2;
                end.*angle += step;
                const Vincenty moved = vincenty(from2, to2);
                s.distance = std::max(s.distance, std::fabs(moved.distance - base.distance));
                s.bearing = std::max(
                    {s.bearing, turn_between(moved.from, base.from), turn_between(moved.to, base.to)});
                s.same_course = s.same_course && moved.iterations == base.iterations &&
                                moved.converged == base.converged && moved.coincident == base.coincident;
            }
    return s;
}

/// 20 nm is a few units in the last place of half a meridian;
/// what the angles' own rounding does comes on top.
void expect_like_the_paper(const PointLLH& from, const PointLLH& to, const std::string& trace, int& compared)
{
    const Vincenty expected = vincenty(from, to);
    const Sensitivity moved = sensitivity(from, to);
    if (expected.on_the_edge || !moved.same_course)
        return;
    ++compared;
    const Path got = path(from, to);
    ASSERT_TRUE(got.result) << trace;
    ASSERT_NEAR(expected.distance, got.distance, 2e-8 + 8.0 * moved.distance) << trace;
    ASSERT_LT(turn_between(expected.from, got.from), 2e-15 + 8.0 * moved.bearing) << trace;
    ASSERT_LT(turn_between(expected.to, got.to), 2e-15 + 8.0 * moved.bearing) << trace;
}

class Random_points : public Random_places {
public:
    using Random_places::Random_places;
    PointLLH anywhere() { return {latitude(), longitude(), between(-100.0, 9000.0)}; }
    /// Within `span` radians of the opposite side of the earth.
    PointLLH opposite(const PointLLH& p, double span)
    {
        return {-p.lat + between(-span, span), p.lon + PI - between(0.0, span), 0.0};
    }
    /// At a latitude further than the pole, where no map has one, but the formula an answer.
    PointLLH beyond_the_poles()
    {
        const double lat = between(std::nextafter(PI / 2.0, 2.0), 3.0);
        return {between(-1.0, 1.0) < 0.0 ? -lat : lat, longitude(), 0.0};
    }
};

/// Calls check(from, to, model) for lines from the origin to places near its antipode, where lines settle
/// late, but for those where rounding decides when.
template <typename CHECK>
void for_lines_to_near_the_antipode(double first_lon_deg, double lon_step_deg, CHECK check)
{
    for (double lat_deg = 0.30; lat_deg < 0.70; lat_deg += 0.02)
        for (double lon_deg = first_lon_deg; lon_deg < 179.60; lon_deg += lon_step_deg) {
            SCOPED_TRACE(testing::Message() << lat_deg << ' ' << lon_deg);
            const PointLLH to(lat_deg * DEGREE, lon_deg * DEGREE, 0.0);
            const Vincenty model = vincenty(PointLLH(), to);
            if (!model.on_the_edge)
                check(PointLLH(), to, model);
        }
}

} // namespace

TEST(PointLLH, starts_as_zeros)
{
    expect_llh(0.0, 0.0, 0.0, PointLLH());
}

TEST(PointLLH, takes_latitude_longitude_and_height_in_order_and_copies_them)
{
    const PointLLH p(0.5, -0.25, 10.0);
    expect_llh(0.5, -0.25, 10.0, p);
    const PointLLH copy(p);
    expect_llh(0.5, -0.25, 10.0, copy);
}

TEST(PointLLH, prints_degrees_with_ten_decimals)
{
    EXPECT_EQ("(28.6478897565,14.3239448783,10.000)", printed(PointLLH(0.5, 0.25, 10.0), "", "", true));
    EXPECT_EQ("at (-28.6478897565,-14.3239448783,-0.125)\n",
              printed(PointLLH(-0.5, -0.25, -0.125), "at ", "\n", true));
    EXPECT_EQ("a(180.0000000000,-90.0000000000,1234.568)b",
              printed(PointLLH(PI, -PI / 2.0, 1234.5678), "a", "b", true));
}

TEST(PointLLH, prints_radians_with_eleven_decimals)
{
    EXPECT_EQ("(0.50000000000,0.25000000000,10.000)", printed(PointLLH(0.5, 0.25, 10.0), "", "", false));
    EXPECT_EQ("at (-1.23456789012,3.14159265359,-0.001)\n",
              printed(PointLLH(-1.234567890123, PI, -0.0006), "at ", "\n", false));
}

TEST(PointLLH, prints_a_percent_sign_in_prefix_and_suffix_as_it_is)
{
    for (const bool degrees : {true, false}) {
        const std::string text = printed(PointLLH(), "50%d", "%s", degrees);
        EXPECT_EQ(0U, text.find("50%d("));
        EXPECT_EQ(text.size() - 3, text.rfind(")%s"));
    }
}

// Here x * 180 / pi and x * (180 / pi) differ in the tenth decimal: computed in IEEE doubles outside.
TEST(PointLLH, multiplies_by_180_before_it_divides_by_pi)
{
    EXPECT_EQ("(-87.3408268530,45.1149418427,0.000)",
              printed(PointLLH(-1.524385, 0.787404277, 0.0), "", "", true));
    EXPECT_EQ("(69.9515004751,77.3854632275,0.000)",
              printed(PointLLH(1.220884, 1.3506311265, 0.0), "", "", true));
}

TEST(PointLLH, compares_angles_to_1e_14_strictly)
{
    const PointLLH origin;
    for (double PointLLH::*const angle : {&PointLLH::lat, &PointLLH::lon})
        for (const double sign : {1.0, -1.0}) {
            PointLLH other;
            other.*angle = sign * 1e-14;
            EXPECT_FALSE(origin == other);
            EXPECT_TRUE(origin != other);
            other.*angle = sign * std::nextafter(1e-14, 0.0);
            EXPECT_TRUE(origin == other);
            EXPECT_FALSE(origin != other);
            other.*angle = sign * 1e-13;
            EXPECT_FALSE(origin == other);
        }
}

TEST(PointLLH, compares_heights_to_the_millimetre_strictly)
{
    const PointLLH origin;
    for (const double sign : {1.0, -1.0}) {
        EXPECT_FALSE(origin == PointLLH(0.0, 0.0, sign * 0.001));
        EXPECT_TRUE(origin != PointLLH(0.0, 0.0, sign * 0.001));
        EXPECT_TRUE(origin == PointLLH(0.0, 0.0, sign * std::nextafter(0.001, 0.0)));
        EXPECT_FALSE(origin != PointLLH(0.0, 0.0, sign * std::nextafter(0.001, 0.0)));
    }
}

TEST(PointLLH, tells_longitudes_a_turn_apart_and_what_is_not_a_number_from_everything)
{
    EXPECT_FALSE(PointLLH(0.0, PI, 0.0) == PointLLH(0.0, -PI, 0.0));
    for (double PointLLH::*const field : FIELDS) {
        PointLLH p;
        p.*field = std::numeric_limits<double>::quiet_NaN();
        EXPECT_FALSE(p == p);
        EXPECT_TRUE(p != p);
    }
}

TEST(PointLLH, adds_and_subtracts_by_component_without_wrapping)
{
    PointLLH a(1.5, 3.0, 100.0);
    PointLLH b(0.5, -3.5, 25.0);
    expect_llh(2.0, -0.5, 125.0, a + b);
    expect_llh(1.0, 6.5, 75.0, a - b);
    expect_llh(1.5, 3.0, 100.0, a);
    expect_llh(0.5, -3.5, 25.0, b);
}

TEST(PointLLH, assigns_a_point_of_its_kind_and_hands_back_itself)
{
    const PointLLH source(0.5, -0.25, 10.0);
    PointLLH target(1.0, 2.0, 3.0);
    EXPECT_EQ(&target, &(target = source));
    expect_llh(0.5, -0.25, 10.0, target);
}

TEST(PointLLH, assigns_an_earth_centred_point_converted)
{
    const Point3D source(-2508073.66985084, 1911126.83200433, -5525578.86811147);
    PointLLH target(1.0, 2.0, 3.0);
    EXPECT_EQ(&target, &(target = source));
    const PointLLH expected = source.as_llh();
    expect_llh(expected.lat, expected.lon, expected.height, target);
    EXPECT_NEAR(-60.4537104836 * DEGREE, target.lat, 1.1e-4 / A); // made with PROJ
    EXPECT_NEAR(142.6929650555 * DEGREE, target.lon, 3e-12);
    EXPECT_NEAR(0.0, target.height, 8e-6);
}

// What decides is the length of the point converted to geodetic and back, since that is what is kept.
TEST(PointLLH, stays_as_it_was_when_the_centre_that_the_point_makes_is_within_1000_m)
{
    const unsigned seed = 20261;
    Random_points random(seed);
    int refused = 0;
    int taken = 0;
    for (int i = 0; i < 10000; ++i) {
        const PointLLH direction = random.anywhere();
        const double r = random.between(0.0, 2000.0);
        const Point3D source(r * std::cos(direction.lat) * std::cos(direction.lon),
                             r * std::cos(direction.lat) * std::sin(direction.lon),
                             r * std::sin(direction.lat));
        const PointLLH converted = source.as_llh();
        PointLLH target(7.0, 8.0, 9.0);
        target = source;
        if (converted.as_3D().distance_to(Point3D()) >= 1000.0) {
            ++taken;
            ASSERT_EQ(converted.lat, target.lat) << trace(seed, i);
            ASSERT_EQ(converted.lon, target.lon) << trace(seed, i);
            ASSERT_EQ(converted.height, target.height) << trace(seed, i);
        } else {
            ++refused;
            ASSERT_EQ(7.0, target.lat) << trace(seed, i);
            ASSERT_EQ(8.0, target.lon) << trace(seed, i);
            ASSERT_EQ(9.0, target.height) << trace(seed, i);
        }
    }
    EXPECT_GT(refused, 1000) << "seed " << seed;
    EXPECT_GT(taken, 1000) << "seed " << seed;
}

TEST(PointLLH, stays_as_it_was_for_points_on_the_equator_within_1000_m)
{
    PointLLH target(7.0, 8.0, 9.0);
    EXPECT_EQ(&target, &(target = Point3D(999.0, 0.0, 0.0)));
    expect_llh(7.0, 8.0, 9.0, target);
    target = Point3D(0.0, 1001.0, 0.0);
    expect_llh(0.0, PI / 2.0, 1001.0 - A, target);
}

TEST(PointLLH, stays_as_it_was_for_a_point_that_is_not_a_number)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const Point3D& source : {Point3D(nan, 0.0, 0.0), Point3D(A, nan, 0.0), Point3D(A, 0.0, nan)}) {
        PointLLH target(7.0, 8.0, 9.0);
        EXPECT_EQ(&target, &(target = source));
        expect_llh(7.0, 8.0, 9.0, target);
    }
}

TEST(PointLLH, converts_to_earth_centred_as_Geo2Decart_does)
{
    const PointLLH p(-0.8, 2.4, 345.0);
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    Geo2Decart(p.lat, p.lon, p.height, x, y, z);
    EXPECT_EQ(x, p.as_3D().x);
    EXPECT_EQ(y, p.as_3D().y);
    EXPECT_EQ(z, p.as_3D().z);
}

TEST(path_along_surface, measures_a_degree_of_the_equator)
{
    const Path east = path_of_degrees(0.0, 0.0, 0.0, 1.0);
    EXPECT_TRUE(east.result);
    EXPECT_NEAR(A * DEGREE, east.distance, 1e-6); // an arc of the equator
    EXPECT_NEAR(111319.49, east.distance, 0.01);
    EXPECT_DOUBLE_EQ(PI / 2.0, east.from);
    EXPECT_DOUBLE_EQ(PI / 2.0, east.to);
    const Path west = path_of_degrees(0.0, 1.0, 0.0, 0.0);
    EXPECT_TRUE(west.result);
    EXPECT_NEAR(A * DEGREE, west.distance, 1e-6);
    EXPECT_DOUBLE_EQ(-PI / 2.0, west.from);
    EXPECT_DOUBLE_EQ(-PI / 2.0, west.to);
}

// 7 micrometres: the last step of lambda, up to 1e-12 rad, is tested but not taken.
TEST(path_along_surface, measures_any_arc_of_the_equator)
{
    for (double degrees = 0.001; degrees < 179.0; degrees += 0.77) { // the geodesic leaves it at 179.396
        const Path arc = path_of_degrees(0.0, -10.0, 0.0, degrees - 10.0);
        ASSERT_TRUE(arc.result) << degrees;
        ASSERT_NEAR(A * degrees * DEGREE, arc.distance, 7e-6) << degrees;
        ASSERT_NEAR(PI / 2.0, arc.from, 1e-14) << degrees;
        ASSERT_NEAR(PI / 2.0, arc.to, 1e-14) << degrees;
    }
}

TEST(path_along_surface, measures_the_quarter_meridian)
{
    // 10001965.729 m: WGS-84 (GeographicLib's and every geodesy handbook's figure)
    for (const double sign : {1.0, -1.0}) {
        const Path to_pole = path_of_degrees(0.0, 30.0, sign * 90.0, 30.0);
        EXPECT_TRUE(to_pole.result);
        EXPECT_NEAR(10001965.729, to_pole.distance, 0.001);
        EXPECT_NEAR(0.0, turn_between(to_pole.from, sign > 0.0 ? 0.0 : PI), 1e-15);
        EXPECT_NEAR(0.0, turn_between(to_pole.to, sign > 0.0 ? 0.0 : PI), 1e-15);
    }
}

TEST(path_along_surface, gives_zeros_for_a_point_to_itself)
{
    for (PointLLH p :
         {PointLLH(), PointLLH(0.5, 0.25, 10.0), PointLLH(-1.2, -3.0, 0.0), PointLLH(PI / 2.0, 1.0, 0.0)}) {
        const Path here = path(p, p);
        EXPECT_TRUE(here.result);
        EXPECT_EQ(0.0, here.distance);
        EXPECT_EQ(0.0, here.from);
        EXPECT_EQ(0.0, here.to);
        Path same;
        EXPECT_TRUE(p.path_along_surface(p, same.distance, same.from, same.to));
        EXPECT_EQ(0.0, same.distance);
    }
}

TEST(path_along_surface, ignores_heights)
{
    const Path low = path(PointLLH(0.5, 0.25, 0.0), PointLLH(0.6, 0.3, 0.0));
    const Path high = path(PointLLH(0.5, 0.25, 8000.0), PointLLH(0.6, 0.3, -100.0));
    EXPECT_EQ(low.distance, high.distance);
    EXPECT_EQ(low.from, high.from);
    EXPECT_EQ(low.to, high.to);
}

TEST(path_along_surface, leaves_both_points_alone)
{
    PointLLH from(0.5, 0.25, 10.0);
    PointLLH to(0.6, 0.3, 20.0);
    Path p;
    from.path_along_surface(to, p.distance, p.from, p.to);
    expect_llh(0.5, 0.25, 10.0, from);
    expect_llh(0.6, 0.3, 20.0, to);
}

// An iteration that reaches half a turn there ends the same way, as the sine does not tell half a turn from
// none. Both the data's lines and the model's judgement say which ones these are.
TEST(path_along_surface, gives_zeros_for_an_iteration_that_runs_into_the_antipode)
{
    const Table lines("geodesic/geodtest-a.dat", ' ');
    if (!lines.found())
        GTEST_SKIP() << "the published data are not at hand";
    int found = 0;
    for (const Table::Row& row : lines.rows()) {
        const PointLLH from(Table::radians(row, 0), Table::radians(row, 1), 0.0);
        const PointLLH to(Table::radians(row, 3), Table::radians(row, 4), 0.0);
        if (!vincenty(from, to).coincident || !sensitivity(from, to).same_course)
            continue;
        ++found;
        const Path p = path(from, to);
        EXPECT_TRUE(p.result) << row[0];
        EXPECT_EQ(0.0, p.distance) << row[0];
        EXPECT_EQ(0.0, p.from) << row[0];
        EXPECT_EQ(0.0, p.to) << row[0];
    }
    EXPECT_GT(found, 50);
}

// On the equator the sine of the arc is that of the longitude difference: 1e-10 rad is 0.6 mm.
TEST(path_along_surface, takes_points_as_coincident_below_a_sine_of_1e_10)
{
    const Path near = path(PointLLH(), PointLLH(0.0, 0.999e-10, 0.0));
    EXPECT_TRUE(near.result);
    EXPECT_EQ(0.0, near.distance);
    EXPECT_EQ(0.0, near.from);
    EXPECT_EQ(0.0, near.to);
    const Path at_the_limit = path(PointLLH(), PointLLH(0.0, 1e-10, 0.0)); // its own sine, to the last digit
    EXPECT_NEAR(6.3567523142e-4, at_the_limit.distance, 1e-14);
    const Path apart = path(PointLLH(), PointLLH(0.0, 1.001e-10, 0.0));
    EXPECT_TRUE(apart.result);
    EXPECT_NEAR(6.3631090665592e-4, apart.distance, 1e-15); // the first step is the last: b times the angle
    EXPECT_DOUBLE_EQ(PI / 2.0, apart.from);
}

// The sine does not tell nothing from half a turn.
TEST(path_along_surface, takes_exact_antipodes_as_coincident_too)
{
    for (const Path& p : {path(PointLLH(), PointLLH(0.0, PI, 0.0)),
                          path(PointLLH(PI / 2.0, 0.0, 0.0), PointLLH(-PI / 2.0, 0.0, 0.0))}) {
        EXPECT_TRUE(p.result);
        EXPECT_EQ(0.0, p.distance);
        EXPECT_EQ(0.0, p.from);
        EXPECT_EQ(0.0, p.to);
    }
}

TEST(path_along_surface, agrees_with_published_lines)
{
    const Table lines("geodesic/published-lines.csv");
    if (!lines.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(9U, lines.rows().size());
    for (const Table::Row& row : lines.rows()) {
        const Path p = path(PointLLH(Table::radians(row, 0), Table::radians(row, 1), 0.0),
                            PointLLH(Table::radians(row, 2), Table::radians(row, 3), 0.0));
        EXPECT_TRUE(p.result) << row[9];
        EXPECT_NEAR(Table::number(row, 4), p.distance, Table::number(row, 7)) << row[9];
        if (row[5].empty())
            continue;
        const double digits = row[5].find('.') == std::string::npos ? 1e-9 : 1.5e-6; // degrees: 0.005 seconds
        EXPECT_LT(turn_between(Table::radians(row, 5), p.from), digits * DEGREE) << row[9];
        EXPECT_LT(turn_between(Table::radians(row, 6), p.to), digits * DEGREE) << row[9];
    }
}

TEST(path_along_surface, agrees_with_published_lines_across_the_globe)
{
    const Table lines("geodesic/wgs84-twelve-column.csv");
    if (!lines.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(10U, lines.rows().size());
    for (const Table::Row& row : lines.rows()) {
        const Path p = path(PointLLH(Table::radians(row, 0), Table::radians(row, 1), 0.0),
                            PointLLH(Table::radians(row, 3), Table::radians(row, 4), 0.0));
        EXPECT_TRUE(p.result) << row[0];
        EXPECT_NEAR(Table::number(row, 6), p.distance, 0.00008) << row[0];
        EXPECT_LT(turn_between(Table::radians(row, 2), p.from), 1e-8 * DEGREE) << row[0];
        EXPECT_LT(turn_between(Table::radians(row, 5), p.to), 1e-8 * DEGREE) << row[0];
    }
}

// C. F. F. Karney's test set for geodesics: short lines within 6 micrometres and 1e-8 degree, lines up to
// 19900 km within 0.08 mm, and no promise for those that a hundred iterations do not settle.
TEST(path_along_surface, agrees_with_the_geodesic_test_set)
{
    const Table lines("geodesic/geodtest-a.dat", ' ');
    if (!lines.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(1200U, lines.rows().size());
    int compared = 0;
    int unsettled = 0;
    for (const Table::Row& row : lines.rows()) {
        const PointLLH from(Table::radians(row, 0), Table::radians(row, 1), 0.0);
        const PointLLH to(Table::radians(row, 3), Table::radians(row, 4), 0.0);
        const double distance = Table::number(row, 6);
        const Vincenty model = vincenty(from, to);
        unsettled += !model.converged;
        if (!model.converged || distance > 19900e3)
            continue;
        ++compared;
        const Path p = path(from, to);
        EXPECT_TRUE(p.result) << row[0];
        const bool is_short = distance < 1200.0;
        EXPECT_NEAR(distance, p.distance, is_short ? 6e-6 : 8e-5) << row[0];
        if (is_short && distance > 0.1) {
            const double tolerance = 1e-8 * DEGREE + 6.4e-6 / distance; // the untaken step, seen from here
            EXPECT_LT(turn_between(Table::radians(row, 2), p.from), tolerance) << row[0];
            EXPECT_LT(turn_between(Table::radians(row, 5), p.to), tolerance) << row[0];
        }
    }
    EXPECT_GT(compared, 800);
    EXPECT_NEAR(183, unsettled, 5);
}

TEST(path_along_surface, follows_the_paper_between_random_places)
{
    const unsigned seed = 20262;
    int compared = 0;
    Random_points random(seed);
    for (int i = 0; i < 11000 && !HasFatalFailure(); ++i) {
        const PointLLH from = random.anywhere();
        expect_like_the_paper(from, random.anywhere(), trace(seed, i), compared);
    }
    EXPECT_GT(compared, 10000);
}

// Latitudes are angles to the formula: the reduced latitude folds one beyond a pole back to the near side.
TEST(path_along_surface, follows_the_paper_beyond_the_poles)
{
    const unsigned seed = 20268;
    int compared = 0;
    Random_points random(seed);
    for (int i = 0; i < 11000 && !HasFatalFailure(); ++i) {
        const PointLLH from = random.beyond_the_poles();
        expect_like_the_paper(from, random.beyond_the_poles(), trace(seed, i), compared);
    }
    EXPECT_GT(compared, 10000);
}

// All lines lead to the north-east, so that a constant's last digits shift each of them the same way, while
// rounding, 1e-9 m a line, averages out.
TEST(path_along_surface, uses_its_constants_to_their_last_observable_digit)
{
    const unsigned seed = 20267;
    Random_points random(seed);
    double difference = 0.0;
    for (int i = 0; i < 20000; ++i) {
        const PointLLH from(random.between(-0.1, 0.1), 0.0, 0.0);
        const PointLLH to(random.between(0.5, 1.1), random.between(0.5, 1.5), 0.0);
        difference += path(from, to).distance - vincenty(from, to).distance;
    }
    EXPECT_NEAR(0.0, difference / 20000.0, 3e-11) << "seed " << seed;
}

TEST(path_along_surface, follows_the_paper_over_short_lines)
{
    const unsigned seed = 20263;
    int compared = 0;
    Random_points random(seed);
    for (int i = 0; i < 3000 && !HasFatalFailure(); ++i) {
        const PointLLH from = random.anywhere();
        const double span = std::pow(10.0, random.between(-8.0, -1.0));
        const PointLLH to(from.lat + random.between(-span, span), from.lon + random.between(-span, span),
                          0.0);
        expect_like_the_paper(from, to, trace(seed, i), compared);
    }
    EXPECT_GT(compared, 2900);
}

TEST(path_along_surface, follows_the_paper_towards_the_other_side_of_the_earth)
{
    const unsigned seed = 20264;
    int compared = 0;
    Random_points random(seed);
    for (int i = 0; i < 1000 && !HasFatalFailure(); ++i) {
        const PointLLH from = random.anywhere();
        expect_like_the_paper(from, random.opposite(from, 0.1), trace(seed, i), compared);
    }
    EXPECT_GT(compared, 800);
}

// The last iteration is odd on purpose: settling there is a refusal, never settling is not.
TEST(path_along_surface, refuses_a_line_that_settles_in_just_the_hundredth_iteration)
{
    int found = 0;
    for_lines_to_near_the_antipode(179.30, 0.0005,
                                   [&found](const PointLLH& from, const PointLLH& to, const Vincenty& model) {
                                       if (!model.converged || model.iterations != 100)
                                           return;
                                       ++found;
                                       const Path p = path(from, to);
                                       EXPECT_FALSE(p.result);
                                       EXPECT_TRUE(p.untouched());
                                   });
    EXPECT_GE(found, 3);
}

TEST(path_along_surface, accepts_a_line_that_settles_in_the_ninety_ninth_iteration)
{
    int found = 0;
    for_lines_to_near_the_antipode(179.30, 0.0005,
                                   [&found](const PointLLH& from, const PointLLH& to, const Vincenty& model) {
                                       if (!model.converged || model.iterations != 99)
                                           return;
                                       ++found;
                                       const Path p = path(from, to);
                                       EXPECT_TRUE(p.result);
                                       EXPECT_NEAR(model.distance, p.distance, 1e-5);
                                   });
    EXPECT_GE(found, 3);
}

TEST(path_along_surface, gives_the_hundredth_estimate_of_a_line_that_settles_later)
{
    int found = 0;
    for_lines_to_near_the_antipode(
        179.40, 0.002, [&found](const PointLLH& from, const PointLLH& to, const Vincenty& model) {
            if (model.converged || model.coincident)
                return;
            const Sensitivity moved = sensitivity(from, to);
            if (!moved.same_course || moved.distance > 1e-5)
                return;
            ++found;
            const Path p = path(from, to);
            EXPECT_TRUE(p.result);
            EXPECT_NEAR(model.distance, p.distance, 1e-7 + 8.0 * moved.distance);
            EXPECT_LT(turn_between(model.from, p.from), 1e-12 + 8.0 * moved.bearing);
            EXPECT_LT(turn_between(model.to, p.to), 1e-12 + 8.0 * moved.bearing);
        });
    EXPECT_GE(found, 50);
}

TEST(path_along_surface, gives_an_estimate_also_where_the_iteration_never_settles)
{
    const unsigned seed = 20265;
    Random_points random(seed);
    int endless = 0;
    int compared = 0;
    for (int i = 0; i < 500; ++i) {
        const PointLLH from = random.anywhere();
        const PointLLH to = random.opposite(from, 0.003);
        const Vincenty model = vincenty(from, to);
        if (model.converged || model.coincident || model.on_the_edge || model.last_step < 1e-6)
            continue;
        ++endless;
        const Path p = path(from, to);
        ASSERT_TRUE(p.result) << trace(seed, i);
        ASSERT_FALSE(p.untouched()) << trace(seed, i);
        const Sensitivity moved = sensitivity(from, to);
        if (!moved.same_course || moved.distance > 1e-3)
            continue; // rounding has grown too large to compare
        ++compared;
        ASSERT_NEAR(model.distance, p.distance, 1e-7 + 20.0 * moved.distance) << trace(seed, i);
        ASSERT_LT(turn_between(model.from, p.from), 1e-12 + 20.0 * moved.bearing) << trace(seed, i);
    }
    EXPECT_GT(endless, 100);
    EXPECT_GT(compared, 30);
}

// A nanoradian off the equator sin(alpha) can round to 1 while the latitudes are not 0: a division by zero,
// whose infinity then meets a zero. Only where it is 0 / 0 does the formula step in.
TEST(path_along_surface, is_not_a_number_a_hair_off_the_equator_where_the_azimuth_rounds_to_90_degrees)
{
    int lost = 0;
    for (const double lat1 : {1e-9, -1e-9, 3e-10})
        for (const double lat2 : {1e-9, -1e-9, 5e-10})
            for (double lon = 0.5; lon < 2.5; lon += 0.05) {
                const double sine = std::sin(lon);
                if (sine / std::sqrt(sine * sine) != 1.0) // what the latitudes add is below the last digit
                    continue;
                ++lost;
                const Path p = path(PointLLH(lat1, 0.0, 0.0), PointLLH(lat2, lon, 0.0));
                ASSERT_TRUE(p.result) << lat1 << ' ' << lat2 << ' ' << lon;
                ASSERT_TRUE(std::isnan(p.distance)) << lat1 << ' ' << lat2 << ' ' << lon;
                const Path on_it = path(PointLLH(0.0, 0.0, 0.0), PointLLH(lat2, lon, 0.0));
                ASSERT_TRUE(on_it.result) << lat2 << ' ' << lon;
                ASSERT_NEAR(A * lon, on_it.distance, 7e-6) << lat2 << ' ' << lon;
            }
    EXPECT_GT(lost, 100);
}

TEST(path_along_surface, passes_on_what_is_not_a_number)
{
    const Path p =
        path(PointLLH(std::numeric_limits<double>::quiet_NaN(), 0.0, 0.0), PointLLH(0.5, 0.5, 0.0));
    EXPECT_TRUE(p.result); // never below the limit, so the hundredth estimate counts
    EXPECT_TRUE(std::isnan(p.distance));
    EXPECT_TRUE(std::isnan(p.from));
    EXPECT_TRUE(std::isnan(p.to));
}

#ifdef QUARVEL_GEOGRAPHICLIB
TEST(path_along_surface, agrees_with_GeographicLib_between_random_places)
{
    const unsigned seed = 20266;
    Random_points random(seed);
    const GeographicLib::Geodesic& geodesic = GeographicLib::Geodesic::WGS84();
    for (int i = 0; i < 11000; ++i) {
        const PointLLH from = random.anywhere();
        const PointLLH to = random.anywhere();
        double distance = 0.0;
        double azimuth1 = 0.0;
        double azimuth2 = 0.0;
        const double arc = geodesic.Inverse(from.lat / DEGREE, from.lon / DEGREE, to.lat / DEGREE,
                                            to.lon / DEGREE, distance, azimuth1, azimuth2);
        if (arc > 178.0)
            continue;
        const Path p = path(from, to);
        ASSERT_TRUE(p.result) << trace(seed, i);
        ASSERT_NEAR(distance, p.distance, 0.001) << trace(seed, i);
        const double bearing_tolerance = 1e-3 / A / std::sin(arc * DEGREE);
        ASSERT_LT(turn_between(azimuth1 * DEGREE, p.from), bearing_tolerance) << trace(seed, i);
        ASSERT_LT(turn_between(azimuth2 * DEGREE, p.to), bearing_tolerance) << trace(seed, i);
    }
}
#endif
