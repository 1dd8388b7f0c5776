#include "util/GPS/ellipsoid.h"

#include "tests/support/Geodesy.h"
#include "tests/support/Table.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <type_traits>
#include <vector>

#if __has_include(<boost/multiprecision/cpp_bin_float.hpp>)
#include <boost/multiprecision/cpp_bin_float.hpp>
#define QUARVEL_QUAD
#endif
#ifdef QUARVEL_GEOGRAPHICLIB
#include <GeographicLib/Geocentric.hpp>
#endif

namespace {

constexpr double PI = 3.141592653589793;
constexpr double A = 6378137.0;
constexpr double E2 = 0.0066943799901413;
constexpr double ONE_MINUS_E2 = 0.9933056200098587;
constexpr double SEMI_MINOR = 6356752.314245179; // WGS-84 (NIMA TR8350.2), to the nanometre
constexpr int RANDOM_POINTS = 20000;
constexpr bool WIDE_LONG_DOUBLE = std::numeric_limits<long double>::digits >= 64;

struct Xyz {
    double x, y, z;
};
struct Llh {
    double lat, lon, h;
};

Xyz to_xyz(double lat, double lon, double h)
{
    Xyz p{};
    Geo2Decart(lat, lon, h, p.x, p.y, p.z);
    return p;
}

Llh to_llh(const Xyz& p)
{
    Llh result{};
    Decart2Geo(p.x, p.y, p.z, result.lat, result.lon, result.h);
    return result;
}

/// The same bits, or both not a number.
bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

/// The corrections step by step in any number type, nothing rearranged: residuals along
/// the equatorial radius and the axis, turned into the meridian frame, until a correction is below 1 cm.
template <class T>
struct Reading {
    T lat, h;
    int corrections = 0;
    bool stopped = false;     ///< by the 1 cm rule, not by the count
    bool on_the_edge = false; ///< a correction so close to 1 cm that rounding decides whether it is the last
    bool between_radii = false; ///< the last correction is below 1 cm on the radius a but not on the normal
};

template <class T>
Reading<T> read_plainly(const Xyz& point, int limit = 10, double stop_below = 0.0001)
{
    using std::atan2;
    using std::cos;
    using std::sin;
    using std::sqrt;
    const T x = point.x;
    const T y = point.y;
    const T z = point.z;
    const T a = A;
    const T e2 = E2;
    // 1 - 0.0066943799901413 is 0.9933056200098587 to the last decimal; a wider type has it unrounded.
    const T one_minus_e2 = std::is_same_v<T, double> ? T(ONE_MINUS_E2) : T(1.0) - e2;
    const T p = sqrt(x * x + y * y);
    const T r = sqrt(x * x + y * y + z * z);
    Reading<T> now{atan2(z, p), r - a};
    while (now.corrections < limit && !now.stopped) {
        const T sine = sin(now.lat);
        const T cosine = cos(now.lat);
        const T n = a / sqrt(T(1.0) - e2 * sine * sine);
        const T dp = p - (n + now.h) * cosine;
        const T dz = z - (n * one_minus_e2 + now.h) * sine;
        const T dh = cosine * dp + sine * dz;
        const T dlat = (cosine * dz - sine * dp) / (n + now.h);
        now.lat += dlat;
        now.h += dh;
        ++now.corrections;
        const T size = (dlat * a) * (dlat * a) + dh * dh;
        now.stopped = size < stop_below;
        now.on_the_edge = now.on_the_edge || (size > stop_below * 0.999999 && size < stop_below * 1.000001);
        now.between_radii = now.stopped && (dlat * n) * (dlat * n) + dh * dh >= stop_below;
    }
    return now;
}

class Random_points : public Random_places {
public:
    using Random_places::Random_places;
    /// Anywhere on the globe, between two heights.
    Xyz around(double low, double high)
    {
        const double lat = latitude();
        const double lon = longitude();
        return to_xyz(lat, lon, between(low, high));
    }
    /// In the whole ball between two distances from the centre.
    Xyz at_radius(double low, double high)
    {
        const double r = between(low, high);
        const double lat = latitude();
        const double lon = longitude();
        return {r * std::cos(lat) * std::cos(lon), r * std::cos(lat) * std::sin(lon), r * std::sin(lat)};
    }
};

double ulp(double value)
{
    return std::nextafter(value, 1e300) - value;
}

} // namespace

TEST(Geo2Decart, puts_the_origin_of_latitude_and_longitude_on_the_x_axis)
{
    const Xyz p = to_xyz(0.0, 0.0, 0.0);
    EXPECT_EQ(6378137.0, p.x);
    EXPECT_EQ(0.0, p.y);
    EXPECT_EQ(0.0, p.z);
}

TEST(Geo2Decart, puts_the_pole_at_the_semi_minor_axis)
{
    for (const double sign : {1.0, -1.0}) {
        const Xyz p = to_xyz(sign * PI / 2.0, 0.3, 0.0);
        EXPECT_NEAR(0.0, p.x, 1e-9);
        EXPECT_NEAR(0.0, p.y, 1e-9);
        EXPECT_NEAR(sign * SEMI_MINOR, p.z, 2e-9);
        EXPECT_NEAR(sign * 6378137.0 * 0.9933056200098587 / std::sqrt(0.9933056200098587), p.z, 2e-9);
    }
}

TEST(Geo2Decart, counts_latitude_to_the_north_and_longitude_to_the_east)
{
    EXPECT_GT(to_xyz(0.1, 0.0, 0.0).z, 600000.0);
    EXPECT_LT(to_xyz(-0.1, 0.0, 0.0).z, -600000.0);
    EXPECT_GT(to_xyz(0.0, 0.1, 0.0).y, 600000.0);
    EXPECT_LT(to_xyz(0.0, -0.1, 0.0).y, -600000.0);
}

TEST(Geo2Decart, adds_the_height_along_the_normal)
{
    const double lat = 0.9;
    const double lon = -2.1;
    const Xyz ground = to_xyz(lat, lon, 0.0);
    const Xyz high = to_xyz(lat, lon, 1000.0);
    EXPECT_NEAR(1000.0 * std::cos(lat) * std::cos(lon), high.x - ground.x, 4e-9);
    EXPECT_NEAR(1000.0 * std::cos(lat) * std::sin(lon), high.y - ground.y, 4e-9);
    EXPECT_NEAR(1000.0 * std::sin(lat), high.z - ground.z, 4e-9);
}

TEST(Geo2Decart, gives_nothing_but_a_point_at_the_centre_for_the_height_that_reaches_it)
{
    const Xyz p = to_xyz(0.0, 1.0, -6378137.0);
    EXPECT_EQ(0.0, p.x);
    EXPECT_EQ(0.0, p.y);
    EXPECT_EQ(0.0, p.z);
}

TEST(Geo2Decart, passes_on_what_is_not_a_number)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(to_xyz(nan, 0.0, 0.0).z));
    EXPECT_TRUE(std::isnan(to_xyz(0.0, nan, 0.0).y));
    EXPECT_TRUE(std::isnan(to_xyz(0.0, 0.0, nan).x));
}

// The published figures are rounded to 0.1 or 1 mm.
TEST(Geo2Decart, agrees_with_published_stations)
{
    const Table stations("ecef/stations-grs80.csv");
    if (!stations.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(60U, stations.rows().size());
    for (const Table::Row& row : stations.rows()) {
        const Xyz p = to_xyz(Table::radians(row, 1), Table::radians(row, 2), Table::number(row, 3));
        EXPECT_NEAR(Table::number(row, 4), p.x, 0.0008) << row[0];
        EXPECT_NEAR(Table::number(row, 5), p.y, 0.0008) << row[0];
        EXPECT_NEAR(Table::number(row, 6), p.z, 0.0008) << row[0];
    }
}

TEST(Decart2Geo, agrees_with_published_stations)
{
    const Table stations("ecef/stations-grs80.csv");
    if (!stations.found())
        GTEST_SKIP() << "the published data are not at hand";
    for (const Table::Row& row : stations.rows()) {
        const Llh p = to_llh({Table::number(row, 4), Table::number(row, 5), Table::number(row, 6)});
        EXPECT_NEAR(Table::radians(row, 1), p.lat, 0.0008 / A) << row[0];
        EXPECT_NEAR(Table::radians(row, 2), p.lon, 0.0008 / A / std::cos(p.lat)) << row[0];
        EXPECT_NEAR(Table::number(row, 3), p.h, 0.0008) << row[0];
    }
}

// Angles with ten decimals of a degree: 8 micrometres on the ground.
TEST(Geo2Decart, agrees_with_points_spread_over_the_ellipsoid)
{
    const Table grid("ecef/wgs84-surface-grid.csv");
    if (!grid.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(500U, grid.rows().size());
    for (const Table::Row& row : grid.rows()) {
        const Xyz p = to_xyz(Table::radians(row, 4), Table::radians(row, 3), Table::number(row, 5));
        EXPECT_NEAR(Table::number(row, 0), p.x, 8e-6);
        EXPECT_NEAR(Table::number(row, 1), p.y, 8e-6);
        EXPECT_NEAR(Table::number(row, 2), p.z, 8e-6);
    }
}

// The stop at 1 cm leaves up to 0.1 mm, on top of the tables' own digits.
TEST(Decart2Geo, agrees_with_points_spread_over_the_ellipsoid)
{
    const Table grid("ecef/wgs84-surface-grid.csv");
    if (!grid.found())
        GTEST_SKIP() << "the published data are not at hand";
    for (const Table::Row& row : grid.rows()) {
        const Llh p = to_llh({Table::number(row, 0), Table::number(row, 1), Table::number(row, 2)});
        EXPECT_NEAR(Table::radians(row, 4), p.lat, 1.1e-4 / A);
        EXPECT_NEAR(Table::radians(row, 3), p.lon, 8e-6 / A / std::cos(p.lat));
        EXPECT_NEAR(0.0, p.h, 8e-6);
    }
}

TEST(Geo2Decart, agrees_with_published_points)
{
    const Table points("ecef/wgs84-published-points.csv");
    if (!points.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(10U, points.rows().size());
    for (const Table::Row& row : points.rows()) {
        const Xyz p = to_xyz(Table::radians(row, 0), Table::radians(row, 1), Table::number(row, 2));
        const double tolerance = Table::number(row, 6);
        EXPECT_NEAR(Table::number(row, 3), p.x, tolerance) << row[7];
        EXPECT_NEAR(Table::number(row, 4), p.y, tolerance) << row[7];
        EXPECT_NEAR(Table::number(row, 5), p.z, tolerance) << row[7];
    }
}

TEST(Decart2Geo, agrees_with_published_points)
{
    const Table points("ecef/wgs84-published-points.csv");
    if (!points.found())
        GTEST_SKIP() << "the published data are not at hand";
    for (const Table::Row& row : points.rows()) {
        const Llh p = to_llh({Table::number(row, 3), Table::number(row, 4), Table::number(row, 5)});
        const double tolerance = Table::number(row, 6) + 1e-4; // with what the stop at 1 cm leaves
        EXPECT_NEAR(Table::radians(row, 0), p.lat, tolerance / A) << row[7];
        EXPECT_NEAR(Table::radians(row, 1), p.lon, 1e-11) << row[7];
        EXPECT_NEAR(Table::number(row, 2), p.h, tolerance) << row[7];
    }
}

// One unit in the last place of a constant moves the mean by 3e-10 m or more, rounding by 1e-11 m.
TEST(Geo2Decart, uses_its_constants_to_the_last_digit)
{
    if (!WIDE_LONG_DOUBLE)
        GTEST_SKIP() << "no type wider than double";
    const unsigned seed = 20211;
    Random_points random(seed);
    long double equatorial = 0.0L;
    long double polar = 0.0L;
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const double lat = random.between(1.0, 1.5);
        const long double sine = std::sin(static_cast<long double>(lat));
        const long double n = 6378137.0L / std::sqrt(1.0L - static_cast<long double>(E2) * sine * sine);
        const Xyz p = to_xyz(lat, 0.0, 0.0);
        equatorial += (p.x - n * std::cos(static_cast<long double>(lat))) / std::cos(lat);
        polar += p.z - n * static_cast<long double>(ONE_MINUS_E2) * sine;
    }
    EXPECT_NEAR(0.0, static_cast<double>(equatorial) / RANDOM_POINTS, 5e-11) << "seed " << seed;
    EXPECT_NEAR(0.0, static_cast<double>(polar) / RANDOM_POINTS, 5e-11) << "seed " << seed;
}

TEST(Decart2Geo, gives_the_longitude_as_exactly_atan2_of_y_and_x)
{
    const unsigned seed = 20212;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = i % 2 == 0 ? random.around(-1000.0, 1e6) : random.at_radius(1.0, A);
        ASSERT_TRUE(same(std::atan2(p.y, p.x), to_llh(p).lon)) << "seed " << seed << ", case " << i;
    }
}

TEST(Decart2Geo, gives_the_longitude_of_atan2_on_the_axes_too)
{
    for (const double x : {0.0, -0.0, 7e6, -7e6})
        for (const double y : {0.0, -0.0, 7e6, -7e6})
            EXPECT_TRUE(same(std::atan2(y, x), to_llh({x, y, 7e6}).lon)) << x << ' ' << y;
    EXPECT_EQ(0.0, to_llh({0.0, 0.0, 7e6}).lon);
    EXPECT_EQ(PI, to_llh({-7e6, 0.0, 0.0}).lon);
    EXPECT_EQ(-PI, to_llh({-7e6, -0.0, 0.0}).lon);
}

TEST(Decart2Geo, finds_the_poles_on_the_axis)
{
    for (const double z : {5.1e6, SEMI_MINOR - 1000.0, SEMI_MINOR, 7e6, 4e7}) {
        const Llh north = to_llh({0.0, 0.0, z});
        EXPECT_EQ(0.0, north.lon);
        EXPECT_NEAR(PI / 2.0, north.lat, 5e-16) << z;
        EXPECT_NEAR(z - SEMI_MINOR, north.h, 1e-9 + ulp(z)) << z;
        const Llh south = to_llh({0.0, 0.0, -z});
        EXPECT_EQ(0.0, south.lon);
        EXPECT_NEAR(-PI / 2.0, south.lat, 5e-16) << z;
        EXPECT_NEAR(z - SEMI_MINOR, south.h, 1e-9 + ulp(z)) << z;
    }
}

TEST(Decart2Geo, stays_on_the_equator)
{
    const Llh p = to_llh({0.0, 6378139.0, 0.0});
    EXPECT_EQ(0.0, p.lat);
    EXPECT_EQ(PI / 2.0, p.lon);
    EXPECT_EQ(2.0, p.h);
}

TEST(Decart2Geo, gives_at_the_centre_what_the_plain_corrections_give)
{
    const Reading<double> plain = read_plainly<double>({0.0, 0.0, 0.0});
    ASSERT_TRUE(std::isnan(plain.lat)); // 0 / (a - a) in the first correction
    const Llh centre = to_llh({0.0, 0.0, 0.0});
    EXPECT_TRUE(same(plain.lat, centre.lat));
    EXPECT_TRUE(same(plain.h, centre.h));
    EXPECT_EQ(0.0, centre.lon);
}

TEST(Decart2Geo, passes_on_what_is_not_a_number_or_not_finite)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const Xyz& p : {Xyz{nan, 0.0, 0.0}, Xyz{0.0, nan, 7e6}, Xyz{7e6, 0.0, nan}, Xyz{inf, 0.0, 0.0},
                         Xyz{0.0, 0.0, -inf}, Xyz{1e200, 1e200, 1e200}}) {
        const Reading<double> plain = read_plainly<double>(p);
        const Llh got = to_llh(p);
        EXPECT_EQ(std::isnan(plain.lat), std::isnan(got.lat)) << p.x << ' ' << p.y << ' ' << p.z;
        EXPECT_EQ(std::isnan(plain.h), std::isnan(got.h)) << p.x << ' ' << p.y << ' ' << p.z;
        EXPECT_TRUE(same(std::atan2(p.y, p.x), got.lon));
    }
}

TEST(Decart2Geo, takes_an_array_like_three_coordinates)
{
    const unsigned seed = 20213;
    Random_points random(seed);
    for (int i = 0; i < 1000; ++i) {
        const Xyz p = random.at_radius(0.0, 2e7);
        const double array[3] = {p.x, p.y, p.z};
        Llh got{};
        Decart2Geo(array, got.lat, got.lon, got.h);
        const Llh expected = to_llh(p);
        ASSERT_TRUE(same(expected.lat, got.lat) && same(expected.lon, got.lon) && same(expected.h, got.h))
            << "seed " << seed << ", case " << i;
    }
}

TEST(Decart2Geo, may_write_over_the_array_that_it_reads)
{
    double array[3] = {-2508073.66985084, 1911126.83200433, -5525578.86811147};
    const Llh expected = to_llh({array[0], array[1], array[2]});
    Decart2Geo(array, array[0], array[1], array[2]);
    EXPECT_TRUE(same(expected.lat, array[0]) && same(expected.lon, array[1]) && same(expected.h, array[2]));
}

TEST(Decart2Geo, ends_after_ten_corrections_where_they_never_fall_below_the_limit)
{
    const unsigned seed = 20214;
    Random_points random(seed);
    int endless = 0;
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.at_radius(1.0, 43000.0);
        const Reading<double> plain = read_plainly<double>(p);
        const Llh got = to_llh(p);
        ASSERT_TRUE(same(plain.lat, got.lat)) << "seed " << seed << ", case " << i;
        ASSERT_TRUE(same(plain.h, got.h)) << "seed " << seed << ", case " << i;
        if (!plain.stopped) {
            ASSERT_EQ(10, plain.corrections);
            const Reading<double> nine = read_plainly<double>(p, 9);
            const Reading<double> eleven = read_plainly<double>(p, 11);
            endless += nine.h != got.h && eleven.h != got.h;
        }
    }
    EXPECT_GT(endless, 4000) << "seed " << seed;
}

TEST(Decart2Geo, follows_the_plain_corrections_everywhere_inside_5000_km)
{
    const unsigned seed = 20215;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.at_radius(43000.0, 4999999.0);
        const Reading<double> plain = read_plainly<double>(p);
        const Llh got = to_llh(p);
        ASSERT_TRUE(same(plain.lat, got.lat) && same(plain.h, got.h)) << "seed " << seed << ", case " << i;
    }
}

TEST(Decart2Geo, follows_the_plain_corrections_on_and_beside_the_axis)
{
    for (const double z : {1.0, 100.0, -100.0, 42000.0, 1e6, -4e6})
        for (const double p : {0.0, 1e-9, 1.0}) {
            const Reading<double> plain = read_plainly<double>({p, 0.0, z});
            const Llh got = to_llh({p, 0.0, z});
            EXPECT_TRUE(same(plain.lat, got.lat)) << p << ' ' << z;
            EXPECT_TRUE(same(plain.h, got.h)) << p << ' ' << z;
        }
}

namespace {

/// Ours beside the plain corrections in a wider type; where their last bit decides which correction is the last one,
/// nothing is compared.
template <typename T>
void expect_plain_reading(const Xyz& p, double height_tolerance, double angle_tolerance)
{
    const Reading<T> exact = read_plainly<T>(p);
    if (exact.on_the_edge)
        return;
    const Llh got = to_llh(p);
    ASSERT_NEAR(0.0, static_cast<double>(got.h - exact.h), height_tolerance);
    ASSERT_NEAR(0.0, static_cast<double>(got.lat - exact.lat), angle_tolerance);
}

} // namespace

// The corrections leave up to 0.1 mm where they stop. That remainder is part of the answer: it is compared
// here against the same corrections in a wider type, to the nanometre.
TEST(Decart2Geo, gives_what_the_plain_corrections_give_without_rounding)
{
    if (!WIDE_LONG_DOUBLE)
        GTEST_SKIP() << "no type wider than double";
    const unsigned seed = 20216;
    Random_points random(seed);
    int edges = 0;
    long double bias = 0.0L;
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.around(-1000.0, 100000.0);
        const Reading<long double> exact = read_plainly<long double>(p);
        edges += exact.on_the_edge;
        if (exact.on_the_edge)
            continue;
        const Llh got = to_llh(p);
        ASSERT_NEAR(0.0, static_cast<double>(got.h - exact.h), 1e-9) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(0.0, static_cast<double>(got.lat - exact.lat), 1e-15)
            << "seed " << seed << ", case " << i;
        bias += got.h - exact.h;
    }
    EXPECT_LT(edges, 10);
    EXPECT_NEAR(0.0, static_cast<double>(bias) / RANDOM_POINTS, 5e-11)
        << "a constant is off in its last digit";
}

// 2.5 units in the last place: three squares, their sum and the quotient each round, then the last sum.
TEST(Decart2Geo, rounds_like_the_distance_from_the_centre_up_to_40000_km)
{
    if (!WIDE_LONG_DOUBLE)
        GTEST_SKIP() << "no type wider than double";
    const unsigned seed = 20217;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.around(100000.0, 4e7);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", case " << i);
        ASSERT_NO_FATAL_FAILURE(
            expect_plain_reading<long double>(p, 2.5 * ulp(std::hypot(p.x, p.y, p.z)), 1e-15));
    }
}

TEST(Decart2Geo, keeps_to_the_plain_corrections_between_5000_km_and_the_surface)
{
    if (!WIDE_LONG_DOUBLE)
        GTEST_SKIP() << "no type wider than double";
    const unsigned seed = 20218;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.at_radius(4.9e6, 6.36e6);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", case " << i);
        ASSERT_NO_FATAL_FAILURE(expect_plain_reading<long double>(p, 5e-9, 1.5e-15));
    }
}

#ifdef QUARVEL_QUAD
// Also where long double is no wider than double; fewer points, since each takes a tenth of a millisecond.
TEST(Decart2Geo, gives_what_the_plain_corrections_give_in_113_bits)
{
    using Quad = boost::multiprecision::cpp_bin_float_quad;
    const unsigned seed = 20219;
    Random_points random(seed);
    for (int i = 0; i < 400; ++i) {
        const Xyz p = random.around(-1000.0, 100000.0);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", case " << i);
        ASSERT_NO_FATAL_FAILURE(expect_plain_reading<Quad>(p, 1e-9, 1e-15));
    }
}
#endif

// 5 nm: what the residuals, differences of numbers near a, lose in double precision.
TEST(Decart2Geo, stays_near_the_plain_corrections_in_double_precision)
{
    const unsigned seed = 20220;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.around(-1000.0, 100000.0);
        const Reading<double> plain = read_plainly<double>(p);
        if (plain.on_the_edge)
            continue;
        const Llh got = to_llh(p);
        ASSERT_NEAR(plain.h, got.h, 5e-9) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(plain.lat, got.lat, 5e-9 / A) << "seed " << seed << ", case " << i;
    }
}

TEST(Decart2Geo, stops_below_1_cm_and_keeps_the_remainder)
{
    const unsigned seed = 20221;
    Random_points random(seed);
    int visible = 0;
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const Xyz p = random.around(-1000.0, 100000.0);
        const Reading<double> stopped = read_plainly<double>(p);
        const Reading<double> converged = read_plainly<double>(p, 10, 1e-16);
        const double remainder = (stopped.lat - converged.lat) * A;
        if (stopped.on_the_edge || std::fabs(remainder) < 1e-7)
            continue;
        ++visible;
        ASSERT_NEAR(remainder, (to_llh(p).lat - converged.lat) * A, 1e-8)
            << "seed " << seed << ", case " << i;
    }
    EXPECT_GT(visible, 1000);
}

// On the normal N, longer than a, the corrections between the two limits would not be the last ones.
TEST(Decart2Geo, measures_the_latitude_step_on_the_equatorial_radius)
{
    int between = 0;
    for (double h = -1000.0; h <= 100000.0; h += 2000.0)
        for (double start = 0.05; start < 1.5; start += 0.05) {
            double fewer = start; // ends up where the last correction is just below 1 cm
            double more = start + 0.05;
            const auto corrections = [h](double lat) {
                return read_plainly<double>(to_xyz(lat, 0.7, h)).corrections;
            };
            if (corrections(fewer) == corrections(more))
                continue;
            if (corrections(fewer) > corrections(more))
                std::swap(fewer, more);
            const int wanted = corrections(fewer);
            for (int i = 0; i < 12; ++i) {
                const double middle = (fewer + more) / 2.0;
                (corrections(middle) == wanted ? fewer : more) = middle;
            }
            const Xyz p = to_xyz(fewer, 0.7, h);
            const Reading<double> plain = read_plainly<double>(p);
            if (!plain.between_radii || plain.on_the_edge)
                continue;
            ++between;
            ASSERT_NEAR(plain.lat, to_llh(p).lat, 5e-9 / A) << h << ' ' << fewer;
        }
    EXPECT_GT(between, 20);
}

TEST(Decart2Geo, undoes_Geo2Decart_from_1_km_below_to_orbital_heights)
{
    const unsigned seed = 20223;
    Random_points random(seed);
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const double lat = random.latitude();
        const double lon = random.longitude();
        const double h = random.between(-1000.0, i % 2 == 0 ? 10000.0 : 4e7);
        const Llh got = to_llh(to_xyz(lat, lon, h));
        ASSERT_NEAR(lat, got.lat, 1e-4 / A) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(lon, got.lon, 1e-15 / std::cos(lat) + 1e-15) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(h, got.h, 1e-6) << "seed " << seed << ", case " << i;
    }
}

#ifdef QUARVEL_GEOGRAPHICLIB
TEST(ellipsoid, agrees_with_GeographicLib_from_1_km_below_to_40000_km)
{
    const unsigned seed = 20224;
    Random_points random(seed);
    const GeographicLib::Geocentric& earth = GeographicLib::Geocentric::WGS84();
    for (int i = 0; i < RANDOM_POINTS; ++i) {
        const double lat = random.latitude() * 180.0 / PI;
        const double lon = random.longitude() * 180.0 / PI;
        const double h = random.between(-1000.0, i % 2 == 0 ? 10000.0 : 4e7);
        Xyz expected{};
        earth.Forward(lat, lon, h, expected.x, expected.y, expected.z);
        const Xyz p = to_xyz(lat * PI / 180.0, lon * PI / 180.0, h);
        ASSERT_NEAR(0.0, std::hypot(p.x - expected.x, p.y - expected.y, p.z - expected.z), 1e-7)
            << "seed " << seed << ", case " << i;

        Llh back{};
        earth.Reverse(p.x, p.y, p.z, back.lat, back.lon, back.h);
        const Llh got = to_llh(p);
        ASSERT_NEAR(0.0, (back.lat * PI / 180.0 - got.lat) * (A + h), 1e-3)
            << "seed " << seed << ", case " << i;
        ASSERT_NEAR(0.0, (back.lon * PI / 180.0 - got.lon) * (A + h) * std::cos(got.lat), 1e-3)
            << "seed " << seed << ", case " << i;
        ASSERT_NEAR(back.h, got.h, 1e-3) << "seed " << seed << ", case " << i;
    }
}
#endif

TEST(Geo2Local, measures_on_a_sphere_of_the_equatorial_radius)
{
    double east = 0.0;
    double north = 0.0;
    Geo2Local(PI / 3.0, 0.25, east, north);
    EXPECT_NEAR(0.25 * 6378137.0 * 0.5, east, 1e-8); // the cosine of 60 degrees is a half
    EXPECT_DOUBLE_EQ(PI / 3.0 * 6378137.0, north);

    Geo2Local(-0.5, -0.25, east, north);
    EXPECT_NEAR(-0.25 * 6378137.0 * 0.8775825618903728, east, 1e-8);
    EXPECT_EQ(-3189068.5, north);
}

TEST(Geo2Local, keeps_the_meridian_of_longitude_0_at_east_0)
{
    for (const double lat : {0.0, 0.5, -1.25, 2.0}) {
        double east = 1.0;
        double north = 1.0;
        Geo2Local(lat, 0.0, east, north);
        EXPECT_EQ(0.0, east);
        EXPECT_DOUBLE_EQ(lat * 6378137.0, north);
    }
}

TEST(Geo2Local, is_exact_along_the_equator)
{
    double east = 0.0;
    double north = 1.0;
    Geo2Local(0.0, 0.125, east, north);
    EXPECT_EQ(797267.125, east);
    EXPECT_EQ(0.0, north);
}

// By hand from 9.780327 (1 + 0.0053024 sin2(lat) - 0.0000058 sin2(2 lat)) - 0.0000030877 h.
TEST(getLocalGravity, gives_each_term_of_the_formula)
{
    struct Case {
        double lat, h, gravity;
    };
    const Case cases[] = {
        {0.0, 0.0, 9.780327},
        {PI / 2.0, 0.0, 9.8321862058848},          // 9.780327 * 1.0053024
        {-PI / 2.0, 0.0, 9.8321862058848},         //
        {PI / 4.0, 0.0, 9.8061998770458},          // 9.780327 * (1 + 0.0026512 - 0.0000058)
        {-PI / 4.0, 0.0, 9.8061998770458},         //
        {PI / 6.0, 0.0, 9.79324925704875},         // sin2 is 1/4, sin2 of the double 3/4
        {0.0, 1000.0, 9.7772393},                  // a kilometre takes off 0.0030877
        {0.0, -1000.0, 9.7834147},                 //
        {PI / 2.0, 1e6, 9.8321862058848 - 3.0877}, // not scaled with the latitude
        {PI / 4.0, 10000.0, 9.8061998770458 - 0.030877},
    };
    for (const Case& c : cases)
        EXPECT_NEAR(c.gravity, getLocalGravity(c.lat, c.h), 1e-14) << c.lat << ' ' << c.h;
}
