#include "util/GPS/CConv_plus.h"

#include "tests/support/Geodesy.h"
#include "tests/support/Table.h"
#include "util/GPS/ellipsoid.h"

#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <random>
#include <type_traits>
#include <utility>

namespace {

constexpr double PI = 3.141592653589793;
constexpr double A = 6378137.0;

// Derived classes of applications read these members: order and places are part of the interface.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct Layout : CConv_plus {
    static constexpr bool holds()
    {
        return offsetof(Layout, center_ecef) == 0 && offsetof(Layout, center_llh) == 24 &&
               offsetof(Layout, local_to_ecef) == 48 && offsetof(Layout, ecef_to_local) == 120 &&
               offsetof(Layout, ned_to_ecef) == 192;
    }
    static_assert(std::is_same_v<decltype(ned_to_ecef), SMat>);
};
#pragma GCC diagnostic pop
static_assert(Layout::holds() && sizeof(CConv_plus) == 264);
static_assert(std::is_base_of_v<CoordConv, CConv_plus> && !std::is_polymorphic_v<CConv_plus>);
static_assert(std::is_void_v<decltype(std::declval<CConv_plus&>().setLocalCenterLLH(0.0, 0.0, 0.0))>);
static_assert(std::is_void_v<decltype(std::declval<CConv_plus&>().setLocalCenterECEF(0.0, 0.0, 0.0))>);

using Conversion = bool (CConv_plus::*)(double const&, double const&, double const&, double&, double&,
                                        double&, bool);

Out converted(CConv_plus converter, Conversion conversion, const Out& in, bool absolute)
{
    Out out;
    EXPECT_TRUE((converter.*conversion)(in.a, in.b, in.c, out.a, out.b, out.c, absolute));
    return out;
}

struct Pair {
    const char* name;
    Conversion to_frame, to_ecef;
};
const Pair PAIRS[] = {{"NED", &CConv_plus::convECEF2NED, &CConv_plus::convNED2ECEF},
                      {"NEU", &CConv_plus::convECEF2NEU, &CConv_plus::convNEU2ECEF},
                      {"ENU", &CConv_plus::convECEF2ENU, &CConv_plus::convENU2ECEF}};

struct Open_converter : CConv_plus {
    const SMat& rotation() const { return ned_to_ecef; }
};

bool is_rotation_of(const SMat& m, double lat, double lon)
{
    const OrthoMat expected(lat, lon);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            if (m(i, j) != expected(i, j))
                return false;
    return true;
}

} // namespace

TEST(CConv_plus, refuses_positions_before_it_has_a_centre)
{
    CConv_plus converter;
    for (const Conversion conversion : {&CConv_plus::convECEF2NED, &CConv_plus::convNED2ECEF,
                                        &CConv_plus::convNEU2ECEF, &CConv_plus::convENU2ECEF}) {
        Out out;
        EXPECT_FALSE((converter.*conversion)(7e6, 1.0, 2.0, out.a, out.b, out.c, true));
        EXPECT_TRUE(out.untouched());
    }
    Out out;
    EXPECT_FALSE(converter.getLocalCenterLLH(&out.a, &out.b, &out.c));
    EXPECT_TRUE(out.untouched());
}

// Deliberate: "up" is written from a temporary that nothing has filled; callers look at the result first.
TEST(CConv_plus, writes_nothing_but_up_when_it_refuses_to_leave_earth_centred_axes)
{
    CConv_plus converter;
    Out neu;
    EXPECT_FALSE(converter.convECEF2NEU(7e6, 1.0, 2.0, neu.a, neu.b, neu.c, true));
    EXPECT_EQ(-11.0, neu.a);
    EXPECT_EQ(-22.0, neu.b);
    EXPECT_NE(-33.0, neu.c);
    Out enu;
    EXPECT_FALSE(converter.convECEF2ENU(7e6, 1.0, 2.0, enu.a, enu.b, enu.c, true));
    EXPECT_EQ(-11.0, enu.a);
    EXPECT_EQ(-22.0, enu.b);
    EXPECT_NE(-33.0, enu.c);
}

TEST(CConv_plus, turns_free_vectors_without_a_centre_with_the_zero_rotation)
{
    for (const Pair& pair : PAIRS)
        for (const Conversion conversion : {pair.to_frame, pair.to_ecef})
            expect_out(0.0, 0.0, 0.0, converted(CConv_plus(), conversion, {1.0, 2.0, 3.0}, false));
}

TEST(CConv_plus, names_north_east_down_and_up_at_latitude_0_longitude_0)
{
    const CConv_plus converter = centered_at<CConv_plus>(0.0, 0.0, 0.0);
    const Out north{A, 0.0, 100.0};
    expect_out(100.0, 0.0, 0.0, converted(converter, &CConv_plus::convECEF2NED, north, true));
    expect_out(100.0, 0.0, 0.0, converted(converter, &CConv_plus::convECEF2NEU, north, true));
    expect_out(0.0, 100.0, 0.0, converted(converter, &CConv_plus::convECEF2ENU, north, true));
    const Out above{A + 100.0, 20.0, 0.0};
    expect_out(0.0, 20.0, -100.0, converted(converter, &CConv_plus::convECEF2NED, above, true));
    expect_out(0.0, 20.0, 100.0, converted(converter, &CConv_plus::convECEF2NEU, above, true));
    expect_out(20.0, 0.0, 100.0, converted(converter, &CConv_plus::convECEF2ENU, above, true));
}

TEST(CConv_plus, leads_back_to_earth_centred_axes_at_latitude_0_longitude_0)
{
    const CConv_plus converter = centered_at<CConv_plus>(0.0, 0.0, 0.0);
    expect_out(A - 3.0, 20.0, 100.0,
               converted(converter, &CConv_plus::convNED2ECEF, {100.0, 20.0, 3.0}, true));
    expect_out(A + 3.0, 20.0, 100.0,
               converted(converter, &CConv_plus::convNEU2ECEF, {100.0, 20.0, 3.0}, true));
    expect_out(A + 3.0, 100.0, 20.0,
               converted(converter, &CConv_plus::convENU2ECEF, {100.0, 20.0, 3.0}, true));
}

TEST(CConv_plus, only_turns_a_free_vector)
{
    const CConv_plus converter = centered_at<CConv_plus>(0.0, 0.0, 0.0);
    expect_out(3.0, 2.0, -1.0, converted(converter, &CConv_plus::convECEF2NED, {1.0, 2.0, 3.0}, false));
    expect_out(3.0, 2.0, 1.0, converted(converter, &CConv_plus::convECEF2NEU, {1.0, 2.0, 3.0}, false));
    expect_out(2.0, 3.0, 1.0, converted(converter, &CConv_plus::convECEF2ENU, {1.0, 2.0, 3.0}, false));
    expect_out(-3.0, 2.0, 1.0, converted(converter, &CConv_plus::convNED2ECEF, {1.0, 2.0, 3.0}, false));
    expect_out(3.0, 2.0, 1.0, converted(converter, &CConv_plus::convNEU2ECEF, {1.0, 2.0, 3.0}, false));
    expect_out(3.0, 1.0, 2.0, converted(converter, &CConv_plus::convENU2ECEF, {1.0, 2.0, 3.0}, false));
}

TEST(CConv_plus, agrees_with_the_local_frame_of_its_base)
{
    const unsigned seed = 20281;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < 10000; ++i) {
        CConv_plus converter =
            centered_at<CConv_plus>(1.57 * unit(generator), PI * unit(generator), 5000.0 * unit(generator));
        const Out place{7e6 * unit(generator), 7e6 * unit(generator), 7e6 * unit(generator)};
        Out local;
        ASSERT_TRUE(converter.convECEF2Local(place.a, place.b, place.c, &local.a, &local.b, &local.c));
        const Out ned = converted(converter, &CConv_plus::convECEF2NED, place, true);
        const Out neu = converted(converter, &CConv_plus::convECEF2NEU, place, true);
        const Out enu = converted(converter, &CConv_plus::convECEF2ENU, place, true);
        ASSERT_TRUE(local.a == ned.a && local.b == ned.b && local.c == ned.c) << trace(seed, i);
        ASSERT_TRUE(ned.a == neu.a && ned.b == neu.b && ned.c == -neu.c) << trace(seed, i);
        ASSERT_TRUE(ned.a == enu.b && ned.b == enu.a && ned.c == -enu.c) << trace(seed, i);
        ASSERT_TRUE(converter.convLocal2ECEF(place.a, place.b, place.c, &local.a, &local.b, &local.c));
        const Out ecef = converted(converter, &CConv_plus::convNED2ECEF, place, true);
        ASSERT_TRUE(local.a == ecef.a && local.b == ecef.b && local.c == ecef.c) << trace(seed, i);
    }
}

TEST(CConv_plus, comes_back_from_every_frame)
{
    const unsigned seed = 20282;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < 10000; ++i) {
        const CConv_plus converter =
            centered_at<CConv_plus>(1.57 * unit(generator), PI * unit(generator), 5000.0 * unit(generator));
        const Out start{1e5 * unit(generator), 1e5 * unit(generator), 1e5 * unit(generator)};
        for (const Pair& pair : PAIRS)
            for (const bool absolute : {true, false}) {
                const Out ecef = converted(converter, pair.to_ecef, start, absolute);
                const Out back = converted(converter, pair.to_frame, ecef, absolute);
                ASSERT_NEAR(0.0, std::hypot(start.a - back.a, start.b - back.b, start.c - back.c), 5e-9)
                    << pair.name << ", absolute " << absolute << ", seed " << seed << ", case " << i;
            }
    }
}

TEST(CConv_plus, may_write_over_its_inputs)
{
    CConv_plus converter = centered_at<CConv_plus>(0.75, -2.0, 321.0);
    for (const Pair& pair : PAIRS)
        for (const Conversion conversion : {pair.to_frame, pair.to_ecef})
            for (const bool absolute : {true, false}) {
                const Out start{1234.0, -567.0, 89.0};
                const Out expected = converted(converter, conversion, start, absolute);
                Out place(start);
                EXPECT_TRUE(
                    (converter.*conversion)(place.a, place.b, place.c, place.a, place.b, place.c, absolute));
                expect_out(expected.a, expected.b, expected.c, place);
            }
}

TEST(CConv_plus, turns_by_the_centre_that_an_earth_centred_setting_keeps)
{
    const double x = -2508073.66985084;
    const double y = 1911126.83200433;
    const double z = -5525578.86811147;
    Open_converter converter;
    converter.setLocalCenterECEF(x, y, z);
    Out llh;
    ASSERT_TRUE(converter.getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    Out expected;
    Decart2Geo(x, y, z, expected.a, expected.b, expected.c);
    expect_out(expected.a, expected.b, expected.c, llh);
    EXPECT_TRUE(is_rotation_of(converter.rotation(), llh.a, llh.b));
    const CConv_plus same = centered_at<CConv_plus>(llh.a, llh.b, llh.c);
    const Out by_llh = converted(same, &CConv_plus::convECEF2NED, {-2.4e6, 1.9e6, -5.5e6}, true);
    const Out by_ecef = converted(converter, &CConv_plus::convECEF2NED, {-2.4e6, 1.9e6, -5.5e6}, true);
    expect_out(by_llh.a, by_llh.b, by_llh.c, by_ecef);
}

TEST(CConv_plus, keeps_its_rotation_when_an_earth_centred_centre_does_not_count)
{
    Open_converter converter;
    converter.setLocalCenterLLH(0.75, -2.0, 321.0);
    converter.setLocalCenterECEF(500.0, 0.0, 0.0); // stays on the equator, so 500 m it is
    Out out;
    EXPECT_FALSE(converter.getLocalCenterECEF(&out.a, &out.b, &out.c));
    EXPECT_FALSE(converter.convNED2ECEF(1.0, 2.0, 3.0, out.a, out.b, out.c, true));
    EXPECT_TRUE(out.untouched());
    EXPECT_TRUE(is_rotation_of(converter.rotation(), 0.75, -2.0));
    const Out turned = converted(converter, &CConv_plus::convNED2ECEF, {1.0, 2.0, 3.0}, false);
    const Out expected = converted(centered_at<CConv_plus>(0.75, -2.0, 0.0), &CConv_plus::convNED2ECEF,
                                   {1.0, 2.0, 3.0}, false);
    expect_out(expected.a, expected.b, expected.c, turned);
}

TEST(CConv_plus, takes_the_rotation_of_a_geodetic_centre_even_where_that_does_not_count)
{
    Open_converter converter;
    converter.setLocalCenterLLH(0.75, -2.0, 321.0);
    converter.setLocalCenterLLH(0.0, 0.25, 500.0 - A);
    Out out;
    EXPECT_FALSE(converter.convECEF2NED(1.0, 2.0, 3.0, out.a, out.b, out.c, true));
    EXPECT_TRUE(out.untouched());
    EXPECT_TRUE(is_rotation_of(converter.rotation(), 0.0, 0.25));
}

// The setters are not virtual: the base's own know nothing of the second rotation.
TEST(CConv_plus, keeps_its_rotation_when_only_its_base_is_given_a_centre)
{
    Open_converter converter;
    converter.setLocalCenterLLH(0.75, -2.0, 321.0);
    CoordConv& base = converter;
    base.setLocalCenterLLH(0.0, 0.0, 0.0);
    Out llh;
    EXPECT_TRUE(converter.getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    expect_out(0.0, 0.0, 0.0, llh);
    EXPECT_TRUE(is_rotation_of(converter.rotation(), 0.75, -2.0));
    base.setLocalCenterECEF(0.0, A, 0.0);
    EXPECT_TRUE(converter.getLocalCenterLLH(&llh.a, &llh.b, &llh.c));
    expect_out(0.0, PI / 2.0, 0.0, llh);
    EXPECT_TRUE(is_rotation_of(converter.rotation(), 0.75, -2.0));
    // The position is then taken from the new centre and turned by the old rotation.
    const Out offset = converted(converter, &CConv_plus::convECEF2NED, {10.0, A + 20.0, 30.0}, true);
    const Out vector = converted(centered_at<CConv_plus>(0.75, -2.0, 0.0), &CConv_plus::convECEF2NED,
                                 {10.0, 20.0, 30.0}, false);
    expect_out(vector.a, vector.b, vector.c, offset, 1e-9);
}

TEST(CConv_plus, uses_the_rotation_of_a_new_centre)
{
    CConv_plus moved = centered_at<CConv_plus>(0.75, -2.0, 321.0);
    moved.setLocalCenterLLH(-0.4, 1.1, 50.0);
    for (const Pair& pair : PAIRS)
        for (const bool absolute : {true, false}) {
            const Out expected =
                converted(centered_at<CConv_plus>(-0.4, 1.1, 50.0), pair.to_frame, {1e6, 2e6, 3e6}, absolute);
            const Out got = converted(moved, pair.to_frame, {1e6, 2e6, 3e6}, absolute);
            expect_out(expected.a, expected.b, expected.c, got);
        }
}

TEST(CConv_plus, agrees_with_published_examples)
{
    const Table examples("ecef/local-frame-examples.csv");
    if (!examples.found())
        GTEST_SKIP() << "the published data are not at hand";
    int vectors = 0;
    for (const Table::Row& row : examples.rows()) {
        const bool is_vector = row[0] == "vector";
        const CConv_plus converter = centered_at<CConv_plus>(Table::radians(row, 1), Table::radians(row, 2),
                                                             is_vector ? 0.0 : Table::number(row, 3));
        Out ecef;
        if (row[7].empty())
            Geo2Decart(Table::radians(row, 4), Table::radians(row, 5), Table::number(row, 6), ecef.a, ecef.b,
                       ecef.c);
        else
            ecef = {Table::number(row, 7), Table::number(row, 8), Table::number(row, 9)};
        vectors += is_vector;
        const Out local{Table::number(row, 10), Table::number(row, 11), Table::number(row, 12)};
        const double tolerance = Table::number(row, 13);
        expect_out(local.a, local.b, local.c,
                   converted(converter, &CConv_plus::convECEF2NED, ecef, !is_vector), tolerance);
        expect_out(local.b, local.a, -local.c,
                   converted(converter, &CConv_plus::convECEF2ENU, ecef, !is_vector), tolerance);
        expect_out(ecef.a, ecef.b, ecef.c, converted(converter, &CConv_plus::convNED2ECEF, local, !is_vector),
                   2.0 * tolerance);
        expect_out(ecef.a, ecef.b, ecef.c,
                   converted(converter, &CConv_plus::convNEU2ECEF, {local.a, local.b, -local.c}, !is_vector),
                   2.0 * tolerance);
    }
    EXPECT_EQ(1, vectors);
}
