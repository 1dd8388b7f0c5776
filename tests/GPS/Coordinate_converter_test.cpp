#include "util/GPS/Coordinate_converter.h"

#include "tests/support/Table.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <type_traits>

namespace {

constexpr double A = 6378137.0;

static_assert(std::is_base_of_v<CConv_plus, Coordinate_converter>);
static_assert(sizeof(Coordinate_converter) == 264, "no fields of its own");

Coordinate_converter centered_at(const PointLLH& p)
{
    Coordinate_converter converter;
    converter.setLocalCenter(p);
    return converter;
}

PointLLH centre_of(const Coordinate_converter& converter)
{
    PointLLH centre;
    EXPECT_TRUE(converter.getLocalCenterLLH(&centre.lat, &centre.lon, &centre.height));
    return centre;
}

struct Plane {
    double n = -11.0;
    double e = -22.0;
};

} // namespace

TEST(Coordinate_converter, refuses_everything_before_it_has_a_centre)
{
    Coordinate_converter converter;
    PointLLH llh(7.0, 8.0, 9.0);
    EXPECT_FALSE(converter.convLocal2PointLLH(1.0, 2.0, llh));
    EXPECT_EQ(7.0, llh.lat);
    EXPECT_EQ(8.0, llh.lon);
    EXPECT_EQ(9.0, llh.height);
    Point3D xyz(7.0, 8.0, 9.0);
    EXPECT_FALSE(converter.convLocal2PointXYZ(1.0, 2.0, xyz));
    EXPECT_EQ(7.0, xyz.x);
    EXPECT_EQ(8.0, xyz.y);
    EXPECT_EQ(9.0, xyz.z);
    Plane plane;
    EXPECT_FALSE(converter.convPointLLH2Local(PointLLH(0.1, 0.2, 3.0), plane.n, plane.e));
    EXPECT_FALSE(converter.convPointXYZ2Local(Point3D(A, 0.0, 0.0), plane.n, plane.e));
    EXPECT_EQ(-11.0, plane.n);
    EXPECT_EQ(-22.0, plane.e);
}

TEST(Coordinate_converter, takes_a_geodetic_centre_with_both_rotations)
{
    Coordinate_converter converter = centered_at(PointLLH(0.75, -2.0, 321.0));
    const PointLLH centre = centre_of(converter);
    EXPECT_EQ(0.75, centre.lat);
    EXPECT_EQ(-2.0, centre.lon);
    EXPECT_EQ(321.0, centre.height);

    CConv_plus expected;
    expected.setLocalCenterLLH(0.75, -2.0, 321.0);
    double n[2];
    double e[2];
    double d[2];
    EXPECT_TRUE(converter.convECEF2NED(1.0, 2.0, 3.0, n[0], e[0], d[0], false));
    EXPECT_TRUE(expected.convECEF2NED(1.0, 2.0, 3.0, n[1], e[1], d[1], false));
    EXPECT_EQ(n[1], n[0]);
    EXPECT_EQ(e[1], e[0]);
    EXPECT_EQ(d[1], d[0]);
}

TEST(Coordinate_converter, takes_an_earth_centred_centre_with_both_rotations)
{
    const Point3D place(-2508073.66985084, 1911126.83200433, -5525578.86811147);
    Coordinate_converter converter;
    converter.setLocalCenter(place);
    const PointLLH centre = centre_of(converter);
    EXPECT_EQ(place.as_llh().lat, centre.lat);
    EXPECT_EQ(place.as_llh().lon, centre.lon);
    EXPECT_EQ(place.as_llh().height, centre.height);

    CConv_plus expected;
    expected.setLocalCenterECEF(place.x, place.y, place.z);
    double n[2];
    double e[2];
    double d[2];
    EXPECT_TRUE(converter.convECEF2NED(1.0, 2.0, 3.0, n[0], e[0], d[0], false));
    EXPECT_TRUE(expected.convECEF2NED(1.0, 2.0, 3.0, n[1], e[1], d[1], false));
    EXPECT_EQ(n[1], n[0]);
    EXPECT_EQ(e[1], e[0]);
    EXPECT_EQ(d[1], d[0]);
}

TEST(Coordinate_converter, measures_north_and_east_at_latitude_0_longitude_0)
{
    Coordinate_converter converter = centered_at(PointLLH());
    Plane plane;
    EXPECT_TRUE(converter.convPointXYZ2Local(Point3D(A + 5.0, 20.0, 100.0), plane.n, plane.e));
    EXPECT_EQ(100.0, plane.n);
    EXPECT_EQ(20.0, plane.e);
    Point3D xyz;
    EXPECT_TRUE(converter.convLocal2PointXYZ(100.0, 20.0, xyz));
    EXPECT_EQ(A, xyz.x);
    EXPECT_EQ(20.0, xyz.y);
    EXPECT_EQ(100.0, xyz.z);
}

TEST(Coordinate_converter, drops_down_but_takes_the_height_into_account)
{
    Coordinate_converter converter = centered_at(PointLLH());
    // A longitude of asin(0.001): y is a thousandth of the distance from the axis.
    Plane low;
    Plane high;
    EXPECT_TRUE(converter.convPointLLH2Local(PointLLH(0.0, std::asin(0.001), 0.0), low.n, low.e));
    EXPECT_TRUE(converter.convPointLLH2Local(PointLLH(0.0, std::asin(0.001), 5000.0), high.n, high.e));
    EXPECT_NEAR(6378.137, low.e, 1e-11);
    EXPECT_NEAR(6383.137, high.e, 1e-11);
    EXPECT_EQ(0.0, low.n);
}

TEST(Coordinate_converter, finds_its_own_centre_at_zero)
{
    Coordinate_converter converter = centered_at(PointLLH(0.75, -2.0, 321.0));
    PointLLH llh;
    EXPECT_TRUE(converter.convLocal2PointLLH(0.0, 0.0, llh));
    EXPECT_NEAR(0.75, llh.lat, 1e-4 / A);
    EXPECT_NEAR(-2.0, llh.lon, 1e-15);
    EXPECT_NEAR(321.0, llh.height, 1e-4);
    Plane plane;
    EXPECT_TRUE(converter.convPointLLH2Local(PointLLH(0.75, -2.0, 321.0), plane.n, plane.e));
    EXPECT_EQ(0.0, plane.n);
    EXPECT_EQ(0.0, plane.e);
}

// s * s / 2 R, with the radius of curvature between b * b / a and a * a / b.
TEST(Coordinate_converter, stands_above_the_ellipsoid_away_from_the_centre)
{
    Coordinate_converter converter = centered_at(PointLLH(0.75, -2.0, 0.0));
    PointLLH llh;
    EXPECT_TRUE(converter.convLocal2PointLLH(600.0, -800.0, llh));
    EXPECT_GT(llh.height, 1e6 / 2.0 / 6399594.0);
    EXPECT_LT(llh.height, 1e6 / 2.0 / 6335439.0);
}

TEST(Coordinate_converter, agrees_with_the_conversions_that_it_is_made_of)
{
    const unsigned seed = 20291;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < 10000; ++i) {
        Coordinate_converter converter =
            centered_at(PointLLH(1.5 * unit(generator), 3.1 * unit(generator), 5000.0 * unit(generator)));
        const double n = 1e5 * unit(generator);
        const double e = 1e5 * unit(generator);
        PointLLH llh;
        PointLLH llh3;
        ASSERT_TRUE(converter.convLocal2PointLLH(n, e, llh));
        ASSERT_TRUE(converter.convLocal2LLH(n, e, 0.0, &llh3.lat, &llh3.lon, &llh3.height));
        ASSERT_TRUE(llh.lat == llh3.lat && llh.lon == llh3.lon && llh.height == llh3.height)
            << "seed " << seed << ", case " << i;
        Point3D xyz;
        Point3D xyz3;
        ASSERT_TRUE(converter.convLocal2PointXYZ(n, e, xyz));
        ASSERT_TRUE(converter.convLocal2ECEF(n, e, 0.0, &xyz3.x, &xyz3.y, &xyz3.z));
        ASSERT_TRUE(xyz.x == xyz3.x && xyz.y == xyz3.y && xyz.z == xyz3.z)
            << "seed " << seed << ", case " << i;

        Plane back;
        ASSERT_TRUE(converter.convPointXYZ2Local(xyz, back.n, back.e));
        ASSERT_NEAR(0.0, std::hypot(n - back.n, e - back.e), 4e-9) << "seed " << seed << ", case " << i;
        ASSERT_TRUE(converter.convPointLLH2Local(llh, back.n, back.e));
        ASSERT_NEAR(0.0, std::hypot(n - back.n, e - back.e), 1e-4) << "seed " << seed << ", case " << i;
    }
}

TEST(Coordinate_converter, may_write_over_its_inputs)
{
    Coordinate_converter converter = centered_at(PointLLH(0.75, -2.0, 321.0));
    const Point3D start = PointLLH(0.751, -2.001, 300.0).as_3D();
    Plane expected;
    EXPECT_TRUE(converter.convPointXYZ2Local(start, expected.n, expected.e));
    Point3D place(start);
    EXPECT_TRUE(converter.convPointXYZ2Local(place, place.x, place.y));
    EXPECT_EQ(expected.n, place.x);
    EXPECT_EQ(expected.e, place.y);
    EXPECT_EQ(start.z, place.z);

    PointLLH llh(0.751, -2.001, 300.0);
    EXPECT_TRUE(converter.convPointLLH2Local(llh, llh.lat, llh.lon));
    EXPECT_NEAR(expected.n, llh.lat, 1e-9);
    EXPECT_NEAR(expected.e, llh.lon, 1e-9);
    PointLLH far(llh);
    PointLLH separate;
    EXPECT_TRUE(converter.convLocal2PointLLH(llh.lat, llh.lon, separate));
    EXPECT_TRUE(converter.convLocal2PointLLH(far.lat, far.lon, far));
    EXPECT_EQ(separate.lat, far.lat);
    EXPECT_EQ(separate.lon, far.lon);
    Point3D from_plane(expected.n, expected.e, 0.0);
    Point3D apart;
    EXPECT_TRUE(converter.convLocal2PointXYZ(expected.n, expected.e, apart));
    EXPECT_TRUE(converter.convLocal2PointXYZ(from_plane.x, from_plane.y, from_plane));
    EXPECT_EQ(apart.x, from_plane.x);
    EXPECT_EQ(apart.y, from_plane.y);
    EXPECT_EQ(apart.z, from_plane.z);
}

TEST(Coordinate_converter, moves_to_a_new_centre_of_either_kind)
{
    Coordinate_converter converter = centered_at(PointLLH(0.75, -2.0, 321.0));
    converter.setLocalCenter(Point3D(A, 0.0, 0.0));
    Plane plane;
    EXPECT_TRUE(converter.convPointXYZ2Local(Point3D(A, 20.0, 100.0), plane.n, plane.e));
    EXPECT_EQ(100.0, plane.n);
    EXPECT_EQ(20.0, plane.e);
    converter.setLocalCenter(PointLLH(-0.5, 1.0, 7.0));
    EXPECT_EQ(-0.5, centre_of(converter).lat);
    converter.setLocalCenter(Point3D(0.0, 999.0, 0.0));
    EXPECT_FALSE(converter.convPointXYZ2Local(Point3D(A, 20.0, 100.0), plane.n, plane.e));
    EXPECT_EQ(100.0, plane.n);
}

TEST(Coordinate_converter, agrees_with_published_examples)
{
    const Table examples("ecef/local-frame-examples.csv");
    if (!examples.found())
        GTEST_SKIP() << "the published data are not at hand";
    int points = 0;
    for (const Table::Row& row : examples.rows()) {
        if (row[0] != "point" || row[4].empty())
            continue;
        ++points;
        Coordinate_converter converter =
            centered_at(PointLLH(Table::radians(row, 1), Table::radians(row, 2), Table::number(row, 3)));
        const PointLLH place(Table::radians(row, 4), Table::radians(row, 5), Table::number(row, 6));
        Plane plane;
        EXPECT_TRUE(converter.convPointLLH2Local(place, plane.n, plane.e));
        EXPECT_NEAR(Table::number(row, 10), plane.n, Table::number(row, 13)) << row[14];
        EXPECT_NEAR(Table::number(row, 11), plane.e, Table::number(row, 13)) << row[14];
        EXPECT_TRUE(converter.convPointXYZ2Local(place.as_3D(), plane.n, plane.e));
        EXPECT_NEAR(Table::number(row, 10), plane.n, Table::number(row, 13)) << row[14];
        EXPECT_NEAR(Table::number(row, 11), plane.e, Table::number(row, 13)) << row[14];
    }
    EXPECT_EQ(6, points);
}
