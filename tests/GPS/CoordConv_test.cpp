#include "util/GPS/CoordConv.h"

#include "tests/support/Geodesy.h"
#include "tests/support/Table.h"
#include "util/GPS/ellipsoid.h"

#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <initializer_list>
#include <limits>
#include <type_traits>
#include <utility>

#ifdef QUARVEL_GEOGRAPHICLIB
#include <GeographicLib/LocalCartesian.hpp>
#endif

namespace {

constexpr double PI = 3.141592653589793;
constexpr double DEGREE = PI / 180.0;
constexpr double A = 6378137.0;

// Derived classes of applications read these members: order and places are part of the interface.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct Layout : CoordConv {
    static constexpr bool holds()
    {
        return offsetof(Layout, center_ecef) == 0 && offsetof(Layout, center_llh) == 24 &&
               offsetof(Layout, local_to_ecef) == 48 && offsetof(Layout, ecef_to_local) == 120;
    }
    static_assert(std::is_same_v<decltype(center_ecef), SVec> && std::is_same_v<decltype(center_llh), SVec>);
    static_assert(std::is_same_v<decltype(local_to_ecef), OrthoMat> &&
                  std::is_same_v<decltype(ecef_to_local), OrthoMat>);
};
#pragma GCC diagnostic pop
static_assert(Layout::holds() && sizeof(CoordConv) == 192);

static_assert(std::is_void_v<decltype(std::declval<CoordConv&>().setLocalCenterLLH(0.0, 0.0, 0.0))>);
static_assert(std::is_void_v<decltype(std::declval<CoordConv&>().setLocalCenterECEF(0.0, 0.0, 0.0))>);
static_assert(std::is_same_v<decltype(&CoordConv::getLocalCenterLLH),
                             bool (CoordConv::*)(double*, double*, double*) const>);
static_assert(std::is_same_v<decltype(&CoordConv::getLocalCenterECEF),
                             bool (CoordConv::*)(double*, double*, double*) const>);
static_assert(!std::is_polymorphic_v<CoordConv>);

Out local_of(CoordConv converter, double x, double y, double z)
{
    Out out;
    EXPECT_TRUE(converter.convECEF2Local(x, y, z, &out.a, &out.b, &out.c));
    return out;
}

void expect_no_centre(CoordConv converter)
{
    Out out;
    EXPECT_FALSE(converter.getLocalCenterLLH(&out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.getLocalCenterECEF(&out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convECEF2Local(7e6, 1.0, 2.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convECEF2Local(7e6, 1.0, 2.0, &out.a, &out.b, nullptr));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLLH2Local(0.1, 0.2, 3.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLLH2Local(0.1, 0.2, 3.0, &out.a, &out.b, nullptr));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLocal2ECEF(1.0, 2.0, 3.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLocal2ECEF(1.0, 2.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLocal2LLH(1.0, 2.0, 3.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(converter.convLocal2LLH(1.0, 2.0, &out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
}

/// Direct access to the rotations, which no operation hands out.
struct Open_converter : CoordConv {
    const OrthoMat& to_ecef() const { return local_to_ecef; }
    const OrthoMat& to_local() const { return ecef_to_local; }
    const SVec& llh() const { return center_llh; }
    const SVec& ecef() const { return center_ecef; }
};

} // namespace

TEST(CoordConv, refuses_everything_before_it_has_a_centre)
{
    expect_no_centre(CoordConv());
}

TEST(CoordConv, hands_out_the_centre_that_was_set)
{
    const CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out llh;
    EXPECT_TRUE(converter.getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    expect_out(0.75, -2.0, 321.0, llh);
    Out expected;
    Geo2Decart(0.75, -2.0, 321.0, expected.a, expected.b, expected.c);
    Out ecef;
    EXPECT_TRUE(converter.getLocalCenterECEF(&ecef.a, &ecef.b, &ecef.c));
    expect_out(expected.a, expected.b, expected.c, ecef);
}

TEST(CoordConv, keeps_angles_of_the_centre_beyond_a_turn_as_given)
{
    Out llh;
    EXPECT_TRUE(centered_at<CoordConv>(0.5, 10.0, 0.0).getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    expect_out(0.5, 10.0, 0.0, llh);
}

// The stop of the conversion at 1 cm leaves a remainder, which the centre keeps.
TEST(CoordConv, keeps_an_earth_centred_centre_converted_to_geodetic_and_back)
{
    const unsigned seed = 20271;
    Random_places random(seed);
    int moved = 0;
    for (int i = 0; i < 10000; ++i) {
        Out given;
        Geo2Decart(random.latitude(), random.longitude(), random.between(-100.0, 9000.0), given.a, given.b,
                   given.c);
        Out llh;
        Decart2Geo(given.a, given.b, given.c, llh.a, llh.b, llh.c);
        Out back;
        Geo2Decart(llh.a, llh.b, llh.c, back.a, back.b, back.c);

        CoordConv converter;
        converter.setLocalCenterECEF(given.a, given.b, given.c);
        Out ecef;
        ASSERT_TRUE(converter.getLocalCenterECEF(&ecef.a, &ecef.b, &ecef.c));
        ASSERT_EQ(back.a, ecef.a) << trace(seed, i);
        ASSERT_EQ(back.b, ecef.b) << trace(seed, i);
        ASSERT_EQ(back.c, ecef.c) << trace(seed, i);
        Out kept;
        ASSERT_TRUE(converter.getLocalCenterLLH(&kept.a, &kept.b, &kept.c));
        ASSERT_EQ(llh.a, kept.a) << trace(seed, i);
        ASSERT_EQ(llh.b, kept.b) << trace(seed, i);
        ASSERT_EQ(llh.c, kept.c) << trace(seed, i);
        moved += std::fabs(ecef.c - given.c) > 1e-6;
    }
    EXPECT_GT(moved, 1000) << "seed " << seed;
}

TEST(CoordConv, has_a_centre_from_just_1000_m_off_the_earths_own)
{
    // On the equator at longitude 0 the distance is a + h, exact in doubles.
    CoordConv converter = centered_at<CoordConv>(0.0, 0.0, 1000.0 - A);
    Out ecef;
    EXPECT_TRUE(converter.getLocalCenterECEF(&ecef.a, &ecef.b, &ecef.c));
    expect_out(1000.0, 0.0, 0.0, ecef);
    EXPECT_TRUE(converter.getLocalCenterLLH(&ecef.a, &ecef.b, &ecef.c));
    expect_out(0.0, 0.0, 1000.0 - A, ecef);
    EXPECT_TRUE(converter.convECEF2Local(0.0, 0.0, 0.0, &ecef.a, &ecef.b, &ecef.c));
    expect_out(0.0, 0.0, 1000.0, ecef);
    expect_no_centre(centered_at<CoordConv>(0.0, 0.0, std::nextafter(1000.0 - A, -1e7)));
    expect_no_centre(centered_at<CoordConv>(0.0, 0.0, -A));
    expect_no_centre(
        centered_at<CoordConv>(0.0, 0.0, std::nextafter(-1000.0 - A, 0.0))); // through the centre, out again
    EXPECT_TRUE(centered_at<CoordConv>(0.0, 0.0, -1000.0 - A).getLocalCenterECEF(&ecef.a, &ecef.b, &ecef.c));
    expect_out(-1000.0, 0.0, 0.0, ecef);
}

TEST(CoordConv, measures_the_distance_of_the_centre_in_space)
{
    Out out;
    EXPECT_TRUE(centered_at<CoordConv>(0.0, PI / 4.0, 1200.0 - A)
                    .getLocalCenterLLH(&out.a, &out.b, &out.c)); // 849 m in x and y
    expect_no_centre(centered_at<CoordConv>(0.0, PI / 4.0, 999.0 - A));
    const double semi_minor = 6356752.314245179; // WGS-84
    for (const double sign : {1.0, -1.0}) {
        EXPECT_TRUE(centered_at<CoordConv>(sign * PI / 2.0, 0.0, 1000.001 - semi_minor)
                        .getLocalCenterLLH(&out.a, &out.b, &out.c));
        expect_no_centre(centered_at<CoordConv>(sign * PI / 2.0, 0.0, 999.999 - semi_minor));
    }
}

TEST(CoordConv, loses_its_centre_when_a_new_one_lies_within_1000_m)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    converter.setLocalCenterLLH(0.0, 0.0, 999.0 - A);
    expect_no_centre(converter);
    converter.setLocalCenterLLH(0.75, -2.0, 321.0);
    Out llh;
    EXPECT_TRUE(converter.getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    expect_out(0.75, -2.0, 321.0, llh);
}

// Deep inside the earth the conversion there and back goes astray; only where it ends counts.
TEST(CoordConv, judges_a_deep_centre_by_where_the_conversion_there_and_back_puts_it)
{
    const unsigned seed = 20272;
    Random_places random(seed);
    int set = 0;
    int unset = 0;
    for (int i = 0; i < 10000; ++i) {
        const double r = i == 0 ? 100.0 : random.between(0.0, 3000.0);
        const double lat = i == 0 ? PI / 2.0 : random.latitude();
        const double lon = random.longitude();
        const double x = i == 0 ? 0.0 : r * std::cos(lat) * std::cos(lon);
        const double y = i == 0 ? 0.0 : r * std::cos(lat) * std::sin(lon);
        const double z = r * std::sin(lat);
        Out llh;
        Decart2Geo(x, y, z, llh.a, llh.b, llh.c);
        Out back;
        Geo2Decart(llh.a, llh.b, llh.c, back.a, back.b, back.c);
        CoordConv converter;
        converter.setLocalCenterECEF(x, y, z);
        Out got;
        const bool has = converter.getLocalCenterECEF(&got.a, &got.b, &got.c);
        ASSERT_EQ(norm(SVec(back.a, back.b, back.c)) >= 1000.0, has) << trace(seed, i);
        ASSERT_EQ(!has, got.untouched()) << trace(seed, i);
        ++(has ? set : unset);
    }
    EXPECT_GT(set, 1000);
    EXPECT_GT(unset, 1000);
}

TEST(CoordConv, refuses_everything_after_a_centre_at_the_earths_own)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    converter.setLocalCenterECEF(0.0, 0.0, 0.0);
    expect_no_centre(converter);
}

TEST(CoordConv, has_no_centre_once_given_one_that_is_not_a_number)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const bool with_a_centre : {false, true})
        for (int which = 0; which < 3; ++which) {
            SCOPED_TRACE(which);
            const auto unless = [which, nan](int i, double value) { return which == i ? nan : value; };
            CoordConv by_llh = with_a_centre ? centered_at<CoordConv>(0.75, -2.0, 321.0) : CoordConv();
            CoordConv by_ecef(by_llh);
            by_llh.setLocalCenterLLH(unless(0, 0.5), unless(1, 0.25), unless(2, 10.0));
            expect_no_centre(by_llh);
            by_ecef.setLocalCenterECEF(unless(0, 3e6), unless(1, 4e6), unless(2, 4e6));
            expect_no_centre(by_ecef);
        }
}

TEST(CoordConv, counts_north_east_and_down_at_latitude_0_longitude_0)
{
    const CoordConv converter = centered_at<CoordConv>(0.0, 0.0, 0.0);
    expect_out(100.0, 0.0, 0.0, local_of(converter, A, 0.0, 100.0));
    expect_out(0.0, 100.0, 0.0, local_of(converter, A, 100.0, 0.0));
    expect_out(0.0, 0.0, -100.0, local_of(converter, A + 100.0, 0.0, 0.0));
    expect_out(0.0, 0.0, 0.0, local_of(converter, A, 0.0, 0.0));
}

TEST(CoordConv, gives_back_earth_centred_points_at_latitude_0_longitude_0)
{
    CoordConv converter = centered_at<CoordConv>(0.0, 0.0, 0.0);
    Out ecef;
    EXPECT_TRUE(converter.convLocal2ECEF(100.0, 20.0, -3.0, &ecef.a, &ecef.b, &ecef.c));
    expect_out(A + 3.0, 20.0, 100.0, ecef);
    EXPECT_TRUE(converter.convLocal2ECEF(100.0, 20.0, &ecef.a, &ecef.b, &ecef.c));
    expect_out(A, 20.0, 100.0, ecef);
}

TEST(CoordConv, leaves_out_a_third_output_that_is_null)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out with;
    Out without;
    EXPECT_TRUE(converter.convECEF2Local(7e6, 1.0, 2.0, &with.a, &with.b, &with.c));
    EXPECT_TRUE(converter.convECEF2Local(7e6, 1.0, 2.0, &without.a, &without.b, nullptr));
    expect_out(with.a, with.b, -33.0, without);
    EXPECT_TRUE(converter.convLLH2Local(0.8, -2.1, 2.0, &with.a, &with.b, &with.c));
    EXPECT_TRUE(converter.convLLH2Local(0.8, -2.1, 2.0, &without.a, &without.b, nullptr));
    expect_out(with.a, with.b, -33.0, without);
}

TEST(CoordConv, takes_geodetic_points_through_earth_centred_ones)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out ecef;
    Geo2Decart(0.8, -2.1, 1234.0, ecef.a, ecef.b, ecef.c);
    const Out expected = local_of(converter, ecef.a, ecef.b, ecef.c);
    Out local;
    EXPECT_TRUE(converter.convLLH2Local(0.8, -2.1, 1234.0, &local.a, &local.b, &local.c));
    expect_out(expected.a, expected.b, expected.c, local);
}

TEST(CoordConv, gives_geodetic_points_through_earth_centred_ones)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out ecef;
    ASSERT_TRUE(converter.convLocal2ECEF(5000.0, -700.0, 80.0, &ecef.a, &ecef.b, &ecef.c));
    Out expected;
    Decart2Geo(ecef.a, ecef.b, ecef.c, expected.a, expected.b, expected.c);
    Out llh;
    EXPECT_TRUE(converter.convLocal2LLH(5000.0, -700.0, 80.0, &llh.a, &llh.b, &llh.c));
    expect_out(expected.a, expected.b, expected.c, llh);
}

TEST(CoordConv, puts_two_coordinates_on_the_plane_through_the_centre)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out three;
    Out two;
    EXPECT_TRUE(converter.convLocal2LLH(5000.0, -700.0, 0.0, &three.a, &three.b, &three.c));
    EXPECT_TRUE(converter.convLocal2LLH(5000.0, -700.0, &two.a, &two.b, &two.c));
    expect_out(three.a, three.b, three.c, two);
    EXPECT_TRUE(converter.convLocal2ECEF(5000.0, -700.0, 0.0, &three.a, &three.b, &three.c));
    EXPECT_TRUE(converter.convLocal2ECEF(5000.0, -700.0, &two.a, &two.b, &two.c));
    expect_out(three.a, three.b, three.c, two);
}

TEST(CoordConv, finds_its_own_centre_at_zero)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    Out llh;
    EXPECT_TRUE(converter.convLocal2LLH(0.0, 0.0, 0.0, &llh.a, &llh.b, &llh.c));
    EXPECT_NEAR(0.75, llh.a, 1e-4 / A);
    EXPECT_NEAR(-2.0, llh.b, 1e-15);
    EXPECT_NEAR(321.0, llh.c, 1e-4);
    EXPECT_TRUE(converter.convLLH2Local(0.75, -2.0, 321.0, &llh.a, &llh.b, &llh.c));
    expect_out(0.0, 0.0, 0.0, llh);
}

TEST(CoordConv, may_write_over_its_inputs)
{
    CoordConv converter = centered_at<CoordConv>(0.75, -2.0, 321.0);
    const Out expected = local_of(converter, -2e6, -4e6, 4.5e6);
    Out place{-2e6, -4e6, 4.5e6};
    EXPECT_TRUE(converter.convECEF2Local(place.a, place.b, place.c, &place.a, &place.b, &place.c));
    expect_out(expected.a, expected.b, expected.c, place);
    EXPECT_TRUE(converter.convLocal2ECEF(place.a, place.b, place.c, &place.a, &place.b, &place.c));
    expect_out(-2e6, -4e6, 4.5e6, place, 4e-9);

    Out llh{0.8, -2.1, 55.0};
    EXPECT_TRUE(converter.convLLH2Local(llh.a, llh.b, llh.c, &llh.a, &llh.b, &llh.c));
    EXPECT_TRUE(converter.convLocal2LLH(llh.a, llh.b, llh.c, &llh.a, &llh.b, &llh.c));
    EXPECT_NEAR(0.8, llh.a, 1e-4 / A);
    EXPECT_NEAR(-2.1, llh.b, 1e-14);
    EXPECT_NEAR(55.0, llh.c, 1e-4);
}

TEST(CoordConv, recomputes_everything_at_a_new_centre)
{
    const CoordConv fresh = centered_at<CoordConv>(-0.4, 1.1, 50.0);
    CoordConv moved = centered_at<CoordConv>(0.75, -2.0, 321.0);
    moved.setLocalCenterLLH(-0.4, 1.1, 50.0);
    const Out expected = local_of(fresh, 2.6e6, 5.2e6, -2.4e6);
    const Out got = local_of(moved, 2.6e6, 5.2e6, -2.4e6);
    expect_out(expected.a, expected.b, expected.c, got);
    Out there;
    Out here;
    EXPECT_TRUE(CoordConv(fresh).convLocal2LLH(1.0, 2.0, 3.0, &there.a, &there.b, &there.c));
    EXPECT_TRUE(moved.convLocal2LLH(1.0, 2.0, 3.0, &here.a, &here.b, &here.c));
    expect_out(there.a, there.b, there.c, here);
}

TEST(CoordConv, holds_two_rotations_that_undo_each_other)
{
    const unsigned seed = 20273;
    Random_places random(seed);
    for (int i = 0; i < 1000; ++i) {
        const double lat = random.latitude();
        const double lon = random.longitude();
        Open_converter converter;
        converter.setLocalCenterLLH(lat, lon, 10.0);
        const OrthoMat expected(lat, lon);
        for (unsigned row = 0; row < 3; ++row)
            for (unsigned column = 0; column < 3; ++column) {
                ASSERT_EQ(expected(row, column), converter.to_ecef()(row, column)) << trace(seed, i);
                ASSERT_EQ(expected(row, column), converter.to_local()(column, row)) << trace(seed, i);
                double product = 0.0;
                for (unsigned k = 0; k < 3; ++k)
                    product += converter.to_ecef()(row, k) * converter.to_local()(k, column);
                ASSERT_NEAR(row == column ? 1.0 : 0.0, product, 1e-15) << trace(seed, i);
            }
    }
}

TEST(CoordConv, keeps_all_fields_of_a_centre_that_does_not_count)
{
    Open_converter converter;
    converter.setLocalCenterLLH(0.0, 0.25, 500.0 - A);
    expect_no_centre(converter);
    EXPECT_EQ(0.25, converter.llh()[1]);
    EXPECT_EQ(500.0 - A, converter.llh()[2]);
    EXPECT_NEAR(500.0, norm(converter.ecef()), 1e-9);
    EXPECT_EQ(std::cos(0.25), converter.to_ecef()(1, 1));
}

TEST(CoordConv, comes_back_from_local_to_the_same_point)
{
    const unsigned seed = 20274;
    Random_places random(seed);
    for (int i = 0; i < 10000; ++i) {
        CoordConv converter =
            centered_at<CoordConv>(random.latitude(), random.longitude(), random.between(-100.0, 9000.0));
        const Out start{random.between(-1e5, 1e5), random.between(-1e5, 1e5), random.between(-1e4, 1e3)};
        Out ecef;
        Out back;
        ASSERT_TRUE(converter.convLocal2ECEF(start.a, start.b, start.c, &ecef.a, &ecef.b, &ecef.c));
        ASSERT_TRUE(converter.convECEF2Local(ecef.a, ecef.b, ecef.c, &back.a, &back.b, &back.c));
        ASSERT_NEAR(0.0, std::hypot(start.a - back.a, start.b - back.b, start.c - back.c), 5e-9)
            << trace(seed, i);
        Out llh;
        ASSERT_TRUE(converter.convLocal2LLH(start.a, start.b, start.c, &llh.a, &llh.b, &llh.c));
        ASSERT_TRUE(converter.convLLH2Local(llh.a, llh.b, llh.c, &back.a, &back.b, &back.c));
        ASSERT_NEAR(0.0, std::hypot(start.a - back.a, start.b - back.b, start.c - back.c), 1e-4)
            << trace(seed, i);
    }
}

// The third axis is the normal of the ellipsoid, along which heights are measured.
TEST(CoordConv, has_the_points_above_the_centre_straight_up)
{
    const unsigned seed = 20275;
    Random_places random(seed);
    for (int i = 0; i < 1000; ++i) {
        const double lat = random.latitude();
        const double lon = random.longitude();
        CoordConv converter = centered_at<CoordConv>(lat, lon, 100.0);
        Out local;
        ASSERT_TRUE(converter.convLLH2Local(lat, lon, 5100.0, &local.a, &local.b, &local.c));
        ASSERT_NEAR(0.0, local.a, 3e-9) << trace(seed, i);
        ASSERT_NEAR(0.0, local.b, 3e-9) << trace(seed, i);
        ASSERT_NEAR(-5000.0, local.c, 3e-9) << trace(seed, i);
    }
}

TEST(CoordConv, agrees_with_published_examples)
{
    const Table examples("ecef/local-frame-examples.csv");
    if (!examples.found())
        GTEST_SKIP() << "the published data are not at hand";
    ASSERT_EQ(8U, examples.rows().size());
    int points = 0;
    for (const Table::Row& row : examples.rows()) {
        if (row[0] != "point")
            continue; // free vectors: see CConv_plus
        ++points;
        CoordConv converter =
            centered_at<CoordConv>(Table::radians(row, 1), Table::radians(row, 2), Table::number(row, 3));
        const double tolerance = Table::number(row, 13);
        if (!row[4].empty()) {
            Out local;
            EXPECT_TRUE(converter.convLLH2Local(Table::radians(row, 4), Table::radians(row, 5),
                                                Table::number(row, 6), &local.a, &local.b, &local.c));
            expect_out(Table::number(row, 10), Table::number(row, 11), Table::number(row, 12), local,
                       tolerance);
            Out llh;
            EXPECT_TRUE(converter.convLocal2LLH(Table::number(row, 10), Table::number(row, 11),
                                                Table::number(row, 12), &llh.a, &llh.b, &llh.c));
            EXPECT_NEAR(Table::radians(row, 4), llh.a, (1.0001e-4 + 2.0 * tolerance) / A) << row[14];
            EXPECT_NEAR(Table::radians(row, 5), llh.b, 4.0 * tolerance / A) << row[14];
            EXPECT_NEAR(Table::number(row, 6), llh.c, 1e-6 + 2.0 * tolerance) << row[14];
        }
        if (!row[7].empty())
            expect_out(
                Table::number(row, 10), Table::number(row, 11), Table::number(row, 12),
                local_of(converter, Table::number(row, 7), Table::number(row, 8), Table::number(row, 9)),
                tolerance);
    }
    EXPECT_EQ(7, points);
}

#ifdef QUARVEL_GEOGRAPHICLIB
TEST(CoordConv, agrees_with_GeographicLib_around_the_globe)
{
    const unsigned seed = 20276;
    Random_places random(seed);
    for (int i = 0; i < 10000; ++i) {
        const double lat0 = random.latitude() / DEGREE;
        const double lon0 = random.longitude() / DEGREE;
        const double h0 = random.between(-100.0, 9000.0);
        const double span = i % 2 == 0 ? 1.0 : 30.0; // degrees
        const double lat = std::fmax(-90.0, std::fmin(90.0, lat0 + random.between(-span, span)));
        const double lon = lon0 + random.between(-span, span);
        const double h = random.between(-100.0, 20000.0);
        const GeographicLib::LocalCartesian frame(lat0, lon0, h0);
        Out enu;
        frame.Forward(lat, lon, h, enu.a, enu.b, enu.c);

        CoordConv converter = centered_at<CoordConv>(lat0 * DEGREE, lon0 * DEGREE, h0);
        Out local;
        ASSERT_TRUE(converter.convLLH2Local(lat * DEGREE, lon * DEGREE, h, &local.a, &local.b, &local.c));
        ASSERT_NEAR(enu.b, local.a, 2e-8) << trace(seed, i);
        ASSERT_NEAR(enu.a, local.b, 2e-8) << trace(seed, i);
        ASSERT_NEAR(-enu.c, local.c, 2e-8) << trace(seed, i);

        Out back;
        ASSERT_TRUE(converter.convLocal2LLH(enu.b, enu.a, -enu.c, &back.a, &back.b, &back.c));
        ASSERT_NEAR(lat * DEGREE, back.a, 1.1e-4 / A) << trace(seed, i);
        ASSERT_NEAR(0.0, std::remainder(lon * DEGREE - back.b, 2.0 * PI) * std::cos(back.a), 2e-8 / A)
            << trace(seed, i);
        ASSERT_NEAR(h, back.c, 1e-4) << trace(seed, i);
    }
}
#endif
