#include "util/GPS/Point3D.h"

#include "util/GPS/PointLLH.h"
#include "util/GPS/ellipsoid.h"

#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <type_traits>
#include <utility>

namespace {

// Applications hold points by value and read the fields: the layout is part of the interface.
static_assert(offsetof(Point3D, x) == 0 && offsetof(Point3D, y) == 8 && offsetof(Point3D, z) == 16);
static_assert(sizeof(Point3D) == 24);
static_assert(std::is_same_v<decltype(Point3D::x), double> && std::is_same_v<decltype(Point3D::y), double> &&
              std::is_same_v<decltype(Point3D::z), double>);
static_assert(Point3D::ZERO_TOL == 0.001);

static_assert(std::is_same_v<decltype(std::declval<Point3D&>() = std::declval<const Point3D&>()), Point3D>,
              "assignment hands back a copy, not a reference");
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>() + Point3D()), Point3D>);
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>() - Point3D()), Point3D>);
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>() * 2.0), Point3D>);
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>() / 2.0), Point3D>);
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>().as_llh()), PointLLH>);
static_assert(std::is_same_v<decltype(std::declval<const Point3D&>().distance_to(Point3D())), double>);

void expect_xyz(double x, double y, double z, const Point3D& p)
{
    EXPECT_EQ(x, p.x);
    EXPECT_EQ(y, p.y);
    EXPECT_EQ(z, p.z);
}

std::string printed(const Point3D& p, const char* prefix, const char* suffix)
{
    testing::internal::CaptureStderr();
    p.print(prefix, suffix);
    return testing::internal::GetCapturedStderr();
}

double Point3D::*const COORDINATES[] = {&Point3D::x, &Point3D::y, &Point3D::z};

} // namespace

TEST(Point3D, starts_at_the_earths_centre)
{
    expect_xyz(0.0, 0.0, 0.0, Point3D());
}

TEST(Point3D, takes_three_coordinates_in_order)
{
    expect_xyz(1.5, -2.5, 3.5, Point3D(1.5, -2.5, 3.5));
}

TEST(Point3D, copies_all_three_coordinates)
{
    const Point3D original(1.5, -2.5, 3.5);
    const Point3D copy(original);
    expect_xyz(1.5, -2.5, 3.5, copy);
}

TEST(Point3D, prints_millimetres_between_prefix_and_suffix)
{
    EXPECT_EQ("centre: (1.500,-2.250,6378137.000)\n",
              printed(Point3D(1.5, -2.25, 6378137.0), "centre: ", "\n"));
    EXPECT_EQ("(0.000,0.000,0.000)", printed(Point3D(), "", ""));
    EXPECT_EQ("a(0.001,-0.001,0.000)b", printed(Point3D(0.00051, -0.0006, 0.0004), "a", "b"));
    EXPECT_EQ("(-2508073.670,1911126.832,-5525578.868)",
              printed(Point3D(-2508073.66985084, 1911126.83200433, -5525578.86811147), "", ""));
}

TEST(Point3D, prints_a_percent_sign_in_prefix_and_suffix_as_it_is)
{
    EXPECT_EQ("100%d(1.000,2.000,3.000)%s", printed(Point3D(1.0, 2.0, 3.0), "100%d", "%s"));
}

// Halves and quarters are exact in doubles, so the limit itself can be met.
TEST(Point3D, equals_only_where_every_coordinate_is_nearer_than_the_tolerance)
{
    const Point3D origin(8.0, -16.0, 32.0);
    for (double Point3D::*const coordinate : COORDINATES)
        for (const double sign : {1.0, -1.0}) {
            Point3D other(origin);
            other.*coordinate += sign * 0.5;
            EXPECT_FALSE(origin.equals(other, 0.5));
            EXPECT_FALSE(other.equals(origin, 0.5));
            EXPECT_TRUE(origin.equals(other, std::nextafter(0.5, 1.0)));
            other.*coordinate -= sign * 0.25;
            EXPECT_TRUE(origin.equals(other, 0.5));
            EXPECT_FALSE(origin.equals(other, 0.25));
        }
}

TEST(Point3D, measures_the_tolerance_on_each_coordinate_alone)
{
    EXPECT_TRUE(Point3D(0.0, 0.0, 0.0).equals(Point3D(0.9, 0.9, -0.9), 1.0)); // 1.56 m apart
}

TEST(Point3D, equals_nothing_at_tolerance_zero_not_even_itself)
{
    const Point3D p(1.0, 2.0, 3.0);
    EXPECT_FALSE(p.equals(p, 0.0));
    EXPECT_FALSE(p.equals(p, -1.0));
    EXPECT_TRUE(p.equals(p, std::numeric_limits<double>::denorm_min()));
}

TEST(Point3D, compares_to_the_millimetre_strictly)
{
    const Point3D origin;
    for (double Point3D::*const coordinate : COORDINATES)
        for (const double sign : {1.0, -1.0}) {
            Point3D other;
            other.*coordinate = sign * 0.001;
            EXPECT_FALSE(origin == other);
            EXPECT_TRUE(origin != other);
            other.*coordinate = sign * std::nextafter(0.001, 0.0);
            EXPECT_TRUE(origin == other);
            EXPECT_FALSE(origin != other);
        }
    EXPECT_TRUE(Point3D(1.0, 2.0, 3.0) == Point3D(1.0009, 2.0, 3.0));
    EXPECT_FALSE(Point3D(1.0, 2.0, 3.0) == Point3D(1.0011, 2.0, 3.0));
}

TEST(Point3D, differs_from_everything_when_not_a_number)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (double Point3D::*const coordinate : COORDINATES) {
        Point3D p(1.0, 2.0, 3.0);
        p.*coordinate = nan;
        EXPECT_FALSE(p == p);
        EXPECT_TRUE(p != p);
        EXPECT_FALSE(p.equals(Point3D(1.0, 2.0, 3.0), 1e300));
    }
}

TEST(Point3D, adds_and_subtracts_by_component_and_leaves_the_operands)
{
    const Point3D a(1.0, 2.0, 3.0);
    const Point3D b(0.5, -4.0, 16.0);
    expect_xyz(1.5, -2.0, 19.0, a + b);
    expect_xyz(0.5, 6.0, -13.0, a - b);
    expect_xyz(1.0, 2.0, 3.0, a);
    expect_xyz(0.5, -4.0, 16.0, b);
}

TEST(Point3D, scales_every_component)
{
    const Point3D p(1.0, -2.0, 3.0);
    expect_xyz(2.5, -5.0, 7.5, p * 2.5);
    expect_xyz(0.25, -0.5, 0.75, p / 4.0);
    expect_xyz(1.0, -2.0, 3.0, p);
}

TEST(Point3D, divides_each_component_rather_than_multiplying_by_the_inverse)
{
    // 49 * (1 / 49) is not 1 in doubles.
    expect_xyz(1.0, 2.0, -3.0, Point3D(49.0, 98.0, -147.0) / 49.0);
}

TEST(Point3D, leaves_a_division_by_zero_to_the_arithmetic)
{
    const Point3D p = Point3D(1.0, -1.0, 0.0) / 0.0;
    EXPECT_EQ(std::numeric_limits<double>::infinity(), p.x);
    EXPECT_EQ(-std::numeric_limits<double>::infinity(), p.y);
    EXPECT_TRUE(std::isnan(p.z));
}

TEST(Point3D, assigns_all_three_coordinates_and_hands_back_a_copy)
{
    const Point3D source(1.0, 2.0, 3.0);
    Point3D target(7.0, 8.0, 9.0);
    Point3D returned = (target = source);
    expect_xyz(1.0, 2.0, 3.0, target);
    expect_xyz(1.0, 2.0, 3.0, returned);
    returned.x = 5.0;
    EXPECT_EQ(1.0, target.x);
}

TEST(Point3D, survives_assignment_to_itself)
{
    Point3D p(1.0, 2.0, 3.0);
    const Point3D& same = p;
    p = same;
    expect_xyz(1.0, 2.0, 3.0, p);
}

TEST(Point3D, measures_the_straight_line)
{
    EXPECT_EQ(7.0, Point3D(1.0, 1.0, 1.0).distance_to(Point3D(3.0, 4.0, 7.0))); // 2, 3, 6
    EXPECT_EQ(7.0, Point3D(3.0, 4.0, 7.0).distance_to(Point3D(1.0, 1.0, 1.0)));
    EXPECT_EQ(9.0, Point3D().distance_to(Point3D(-4.0, 4.0, -7.0)));
    EXPECT_EQ(0.0, Point3D(1.0, 2.0, 3.0).distance_to(Point3D(1.0, 2.0, 3.0)));
}

TEST(Point3D, converts_to_geodetic_as_Decart2Geo_does)
{
    const Point3D p(-2508073.66985084, 1911126.83200433, -5525578.86811147);
    double lat = 0.0;
    double lon = 0.0;
    double h = 0.0;
    Decart2Geo(p.x, p.y, p.z, lat, lon, h);
    const PointLLH converted = p.as_llh();
    EXPECT_EQ(lat, converted.lat);
    EXPECT_EQ(lon, converted.lon);
    EXPECT_EQ(h, converted.height);
}

TEST(Point3D, comes_back_from_geodetic_within_a_tenth_of_a_millimetre)
{
    const unsigned seed = 20231;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < 10000; ++i) {
        const PointLLH start(1.57 * unit(generator), 3.14 * unit(generator),
                             50000.0 + 51000.0 * unit(generator));
        const PointLLH back = start.as_3D().as_llh();
        ASSERT_NEAR(start.lat, back.lat, 1e-4 / 6378137.0) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(start.lon, back.lon, 1e-12) << "seed " << seed << ", case " << i;
        ASSERT_NEAR(start.height, back.height, 1e-4) << "seed " << seed << ", case " << i;
    }
}
