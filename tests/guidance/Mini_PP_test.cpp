#include "util/guidance/Mini_PP.h"

#include <gtest/gtest.h>

#ifdef QUARVEL_GEOGRAPHICLIB
#include <GeographicLib/Geodesic.hpp>
#endif

#include <cmath>
#include <cstddef>
#include <fstream>
#include <random>
#include <sstream>

namespace {

constexpr double DEGREE = 3.141592653589793 / 180.0;
const PointLLH A(-27.0 * DEGREE, 153.0 * DEGREE, 30.0);

PointLLH offset(const PointLLH& from, double d_lat_deg, double d_lon_deg)
{
    return {from.lat + d_lat_deg * DEGREE, from.lon + d_lon_deg * DEGREE, from.height};
}

/// Opens what derived classes see.
struct Open_line : Mini_PP {
    using Mini_PP::finish_set;
    using Mini_PP::line;
    using Mini_PP::Mini_PP;
    using Mini_PP::start_set;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static void check_layout()
    {
        static_assert(offsetof(Open_line, start_set) == 264 && offsetof(Open_line, finish_set) == 265);
        static_assert(offsetof(Open_line, line) == 272 && sizeof(Open_line) == 304);
    }
#pragma GCC diagnostic pop
};

void expect_ends(const Math2D::Line& line, double start_first, double start_second, double finish_first,
                 double finish_second)
{
    EXPECT_EQ(start_first, line.start.first);
    EXPECT_EQ(start_second, line.start.second);
    EXPECT_EQ(finish_first, line.finish.first);
    EXPECT_EQ(finish_second, line.finish.second);
}

Math2D::Point local(Mini_PP& line, const PointLLH& p)
{
    Math2D::Point point;
    EXPECT_TRUE(line.convPointLLH2Local(p, point.first, point.second));
    return point;
}

/// A heading without the fold at north: how far it is from the expected one, in degrees.
double heading_error(double heading, double expected)
{
    return std::remainder(heading - expected, 360.0);
}

} // namespace

TEST(Mini_PP, starts_without_ends_and_without_a_centre)
{
    Open_line line;
    EXPECT_FALSE(line.start_set);
    EXPECT_FALSE(line.finish_set);
    expect_ends(line.line, 0.0, 0.0, 0.0, 0.0);
    double lat = 0.0;
    double lon = 0.0;
    double h = 0.0;
    EXPECT_FALSE(line.getLocalCenterLLH(&lat, &lon, &h));
}

TEST(Mini_PP, one_point_makes_the_centre)
{
    Open_line geodetic(A);
    Open_line earth_centred(A.as_3D());
    for (Open_line* line : {&geodetic, &earth_centred}) {
        EXPECT_TRUE(line->start_set);
        EXPECT_FALSE(line->finish_set);
        expect_ends(line->line, 0.0, 0.0, 0.0, 0.0);
        PointLLH centre;
        ASSERT_TRUE(line->getLocalCenterLLH(&centre.lat, &centre.lon, &centre.height));
        EXPECT_NEAR(A.lat, centre.lat, 1e-11);
        EXPECT_NEAR(A.lon, centre.lon, 1e-11);
        EXPECT_NEAR(A.height, centre.height, 1e-4);
    }
}

TEST(Mini_PP, two_points_make_the_line)
{
    const PointLLH b = offset(A, 0.01, 0.01);
    Open_line geodetic(A, b);
    Open_line earth_centred(A.as_3D(), b.as_3D());
    for (Open_line* line : {&geodetic, &earth_centred}) {
        EXPECT_TRUE(line->start_set);
        EXPECT_TRUE(line->finish_set);
        const Math2D::Point finish = local(*line, b);
        EXPECT_NEAR(finish.first, line->line.finish.first, 1e-8);
        EXPECT_NEAR(finish.second, line->line.finish.second, 1e-8);
        EXPECT_NEAR(1108.0, line->line.finish.first, 1.0);
        EXPECT_NEAR(992.5, line->line.finish.second, 1.0);
        EXPECT_EQ(0.0, line->line.start.first);
        EXPECT_EQ(0.0, line->line.start.second);
    }
}

TEST(Mini_PP, set_start_sets_the_flag_and_the_centre)
{
    Open_line geodetic;
    geodetic.set_start(A);
    Open_line earth_centred;
    earth_centred.set_start(A.as_3D());
    for (Open_line* line : {&geodetic, &earth_centred}) {
        EXPECT_TRUE(line->start_set);
        EXPECT_TRUE(line->set_finish(offset(A, 0.01, 0.0)));
        EXPECT_TRUE(line->finish_set);
        EXPECT_NEAR(0.0, heading_error(line->ab_heading(), 0.0), 0.01);
    }
}

TEST(Mini_PP, set_finish_takes_either_kind_of_point)
{
    const PointLLH b = offset(A, 0.0, 0.01);
    Open_line geodetic(A);
    Open_line earth_centred(A);
    EXPECT_TRUE(geodetic.set_finish(b));
    EXPECT_TRUE(earth_centred.set_finish(b.as_3D()));
    EXPECT_EQ(geodetic.line.finish.first, earth_centred.line.finish.first);
    EXPECT_EQ(geodetic.line.finish.second, earth_centred.line.finish.second);
}

TEST(Mini_PP, moving_the_start_leaves_the_finish_relative_to_the_old_centre)
{
    Open_line line(A, offset(A, 0.01, 0.0));
    const Math2D::Line before = line.line;
    line.set_start(offset(A, 1.0, 1.0));
    expect_ends(line.line, 0.0, 0.0, before.finish.first, before.finish.second);
    EXPECT_TRUE(line.finish_set);
}

TEST(Mini_PP, refuses_a_finish_without_a_centre)
{
    Open_line line;
    EXPECT_FALSE(line.set_finish(A));
    EXPECT_FALSE(line.finish_set);
    EXPECT_FALSE(line.set_finish(A.as_3D()));
    EXPECT_FALSE(line.finish_set);
    expect_ends(line.line, 0.0, 0.0, 0.0, 0.0);
}

TEST(Mini_PP, a_start_in_the_middle_of_the_earth_counts_but_gives_no_centre)
{
    Open_line line(A, offset(A, 0.01, 0.0));
    const Math2D::Line before = line.line;
    line.set_start(PointLLH(0.0, 0.0, -6378000.0)); // 137 m from the centre
    EXPECT_TRUE(line.start_set);
    EXPECT_FALSE(line.set_finish(A));
    EXPECT_FALSE(line.finish_set); // the flag follows the refusal
    expect_ends(line.line, 0.0, 0.0, before.finish.first, before.finish.second);
}

TEST(Mini_PP, reset_keeps_only_the_centre)
{
    Open_line line(A, offset(A, 0.01, 0.01));
    line.reset();
    EXPECT_FALSE(line.start_set);
    EXPECT_FALSE(line.finish_set);
    expect_ends(line.line, 0.0, 0.0, 0.0, 0.0);
    EXPECT_TRUE(line.set_finish(offset(A, 0.0, 0.01)));
    EXPECT_TRUE(line.finish_set);
    EXPECT_FALSE(line.start_set);
    EXPECT_NEAR(90.0, line.ab_heading(), 0.01);
    line.set_start(A);
    EXPECT_TRUE(line.start_set);
}

TEST(Mini_PP, heads_by_the_compass)
{
    const struct {
        double d_lat, d_lon, heading;
    } cases[] = {{0.01, 0.0, 0.0}, {0.0, 0.01, 90.0}, {-0.01, 0.0, 180.0}, {0.0, -0.01, 270.0}};
    for (const auto& c : cases) {
        const double heading = Mini_PP(A, offset(A, c.d_lat, c.d_lon)).ab_heading();
        EXPECT_NEAR(0.0, heading_error(heading, c.heading), 0.01) << c.heading;
        EXPECT_GE(heading, 0.0);
        EXPECT_LE(heading, 360.0);
    }
}

TEST(Mini_PP, heads_for_0_and_not_for_360_on_a_line_due_north)
{
    Open_line line(A);
    line.line.finish = Math2D::Point(30.0, 0.0);
    EXPECT_EQ(0.0, line.ab_heading());
}

#ifdef QUARVEL_GEOGRAPHICLIB
TEST(Mini_PP, heading_and_length_agree_with_the_geodesic_for_random_short_lines)
{
    const GeographicLib::Geodesic& geodesic = GeographicLib::Geodesic::WGS84();
    std::mt19937 random(2718);
    std::uniform_real_distribution<double> lat(-75.0, 75.0);
    std::uniform_real_distribution<double> lon(-180.0, 180.0);
    std::uniform_real_distribution<double> azimuth(0.0, 360.0);
    std::uniform_real_distribution<double> length(100.0, 1000.0);
    for (int i = 0; i < 10000; ++i) {
        const double lat_a = lat(random);
        const double lon_a = lon(random);
        const double azi = azimuth(random);
        const double metres = length(random);
        double lat_b = 0.0;
        double lon_b = 0.0;
        geodesic.Direct(lat_a, lon_a, azi, metres, lat_b, lon_b);
        Open_line line(PointLLH(lat_a * DEGREE, lon_a * DEGREE, 0.0),
                       PointLLH(lat_b * DEGREE, lon_b * DEGREE, 0.0));
        ASSERT_NEAR(0.0, heading_error(line.ab_heading(), azi), 1e-5) << "line " << i;
        ASSERT_NEAR(metres, line.dist_from_start(line.line.finish), 1e-5) << "line " << i;
    }
}
#endif

TEST(Mini_PP, measures_along_across_and_from_both_ends)
{
    Open_line line(A);
    line.line.finish = Math2D::Point(30.0, 40.0);
    const Math2D::Point p(30.0, 0.0); // east of the line's start lies its right side; this is to its left
    EXPECT_DOUBLE_EQ(18.0, line.ab_atrack(p));
    EXPECT_DOUBLE_EQ(-24.0, line.ab_xtrack(p));
    EXPECT_DOUBLE_EQ(30.0, line.dist_from_start(p));
    EXPECT_DOUBLE_EQ(40.0, line.dist_from_finish(p));
}

TEST(Mini_PP, right_of_the_line_is_positive)
{
    Mini_PP line(A, offset(A, 0.01, 0.0));
    EXPECT_NEAR(9.93, line.ab_xtrack(local(line, offset(A, 0.0, 0.0001))), 0.01);
    EXPECT_NEAR(-9.93, line.ab_xtrack(local(line, offset(A, 0.0, -0.0001))), 0.01);
    Mini_PP back(A, offset(A, -0.01, 0.0));
    EXPECT_NEAR(-9.93, back.ab_xtrack(local(back, offset(A, 0.0, 0.0001))), 0.01);
}

TEST(Mini_PP, along_track_is_negative_behind_the_start_and_grows_55_m_a_step)
{
    Mini_PP line(A, offset(A, 0.01, 0.0));
    EXPECT_NEAR(0.0, line.ab_atrack(local(line, offset(A, 0.0, 0.0001))), 0.001);
    for (int step = -6; step < 26; ++step)
        EXPECT_NEAR(55.4 * step, line.ab_atrack(local(line, offset(A, 0.0005 * step, 0.0001))), 0.2) << step;
}

TEST(Mini_PP, answers_for_zeros_while_the_line_is_incomplete)
{
    Mini_PP line;
    EXPECT_EQ(90.0, line.ab_heading()); // a line from nowhere to nowhere lies along the first direction, 0
    EXPECT_EQ(0.0, line.ab_atrack({3.0, 4.0}));
    EXPECT_EQ(0.0, line.ab_xtrack({3.0, 4.0}));
    EXPECT_EQ(5.0, line.dist_from_start({3.0, 4.0}));
    EXPECT_EQ(5.0, line.dist_from_finish({3.0, 4.0}));
}

TEST(Mini_PP, unit_test_passes_and_prints_its_text)
{
    // The file was computed by sweep_model.py beside it, a second way to the same figures.
    std::ifstream file(QUARVEL_TESTS_DIR "/guidance/Mini_PP_unit_test.txt");
    std::stringstream expected;
    expected << file.rdbuf();
    ASSERT_FALSE(expected.str().empty());
    testing::internal::CaptureStdout();
    const int result = Mini_PP::unit_test();
    EXPECT_EQ(expected.str(), testing::internal::GetCapturedStdout());
    EXPECT_EQ(0, result);
}
