#include "platform/Math2D.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>

using Math2D::Line;
using Math2D::Point;

namespace {

constexpr double PI = 3.141592653589793;

Line line(double first_a, double second_a, double first_b, double second_b)
{
    Line ab;
    ab.start = Point(first_a, second_a);
    ab.finish = Point(first_b, second_b);
    return ab;
}

} // namespace

TEST(Math2D_Point, is_the_origin_when_built_with_nothing)
{
    const Point point;
    EXPECT_EQ(0.0, point.first);
    EXPECT_EQ(0.0, point.second);
}

TEST(Math2D_Point, is_assigned)
{
    const Point source(3.0, -4.0);
    Point point;
    point = source;
    EXPECT_EQ(3.0, point.first);
    EXPECT_EQ(-4.0, point.second);
}

TEST(Math2D_Point, measures_the_euclidean_distance)
{
    struct Case {
        Point a, b;
        double distance; // of right triangles with whole sides
    };
    const Case cases[] = {{{0, 0}, {0, 0}, 0},    {{0, 0}, {3, 4}, 5},         {{3, 4}, {0, 0}, 5},
                          {{1, 2}, {6, 14}, 13},  {{-1, -2}, {-6, -14}, 13},   {{7, -7}, {7, 8}, 15},
                          {{-8, 1}, {7, -7}, 17}, {{1e6, 1e6}, {1e6, 0}, 1e6}, {{2, 2}, {2, 2}, 0}};
    for (const Case& each : cases)
        EXPECT_EQ(each.distance, each.a.get_distance(each.b));
}

TEST(Math2D_Line, lies_at_the_origin_when_built_with_nothing)
{
    const Line line;
    EXPECT_EQ(0.0, line.start.first);
    EXPECT_EQ(0.0, line.start.second);
    EXPECT_EQ(0.0, line.finish.first);
    EXPECT_EQ(0.0, line.finish.second);
}

TEST(Math2D_Line, measures_its_direction_from_second_towards_first)
{
    struct Case {
        double d_first, d_second, degrees;
    };
    const Case cases[] = {{0, 1, 0},    {1, 1, 45},     {1, 0, 90},   {1, -1, 135},
                          {0, -1, 180}, {-1, -1, -135}, {-1, 0, -90}, {-1, 1, -45}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.degrees);
        const Line from_origin = line(0, 0, each.d_first, each.d_second);
        const Line elsewhere = line(100, -20, 100 + 7 * each.d_first, -20 + 7 * each.d_second);
        EXPECT_DOUBLE_EQ(each.degrees, from_origin.get_heading(true));
        EXPECT_DOUBLE_EQ(each.degrees, elsewhere.get_heading(true));
        EXPECT_DOUBLE_EQ(each.degrees * PI / 180.0, from_origin.get_heading(false));
        EXPECT_DOUBLE_EQ(each.degrees * PI / 180.0, elsewhere.get_heading(false));
    }
}

TEST(Math2D_Line, measures_along_from_start_towards_finish)
{
    const Line ab = line(10, 20, 10 + 3, 20 + 4); // of length 5
    EXPECT_DOUBLE_EQ(0.0, ab.get_distance_along({10, 20}));
    EXPECT_DOUBLE_EQ(5.0, ab.get_distance_along({13, 24}));
    EXPECT_DOUBLE_EQ(2.5, ab.get_distance_along({11.5, 22}));
    EXPECT_DOUBLE_EQ(50.0, ab.get_distance_along({40, 60}));        // beyond the finish
    EXPECT_DOUBLE_EQ(-5.0, ab.get_distance_along({7, 16}));         // behind the start
    EXPECT_DOUBLE_EQ(5.0, ab.get_distance_along({13 + 4, 24 - 3})); // beside the finish
    EXPECT_DOUBLE_EQ(0.6 * 1.0, ab.get_distance_along({11, 20}));
}

TEST(Math2D_Line, measures_across_positive_to_the_right)
{
    // first is north, second is east: whoever drives north has east to the right, and so on round the compass
    EXPECT_DOUBLE_EQ(7.0, line(0, 0, 5, 0).get_distance_across({3, 7}));
    EXPECT_DOUBLE_EQ(-7.0, line(0, 0, 5, 0).get_distance_across({3, -7}));
    EXPECT_DOUBLE_EQ(7.0, line(0, 0, 0, 5).get_distance_across({-7, 3}));
    EXPECT_DOUBLE_EQ(7.0, line(0, 0, -5, 0).get_distance_across({3, -7}));
    EXPECT_DOUBLE_EQ(7.0, line(0, 0, 0, -5).get_distance_across({7, 3}));
}

TEST(Math2D_Line, measures_across_without_end_and_from_wherever_it_starts)
{
    const Line ab = line(10, 20, 10 + 3, 20 + 4); // of length 5; right of it lies (-4, 3)
    EXPECT_DOUBLE_EQ(0.0, ab.get_distance_across({10, 20}));
    EXPECT_DOUBLE_EQ(0.0, ab.get_distance_across({40, 60}));
    EXPECT_DOUBLE_EQ(5.0, ab.get_distance_across({10 - 4, 20 + 3}));
    EXPECT_DOUBLE_EQ(5.0, ab.get_distance_across({40 - 4, 60 + 3}));
    EXPECT_DOUBLE_EQ(-5.0, ab.get_distance_across({7 + 4, 16 - 3}));
}

TEST(Math2D_Line, turns_the_sign_of_both_distances_when_it_is_turned_round)
{
    const Line ab = line(1, 2, 4, 6);
    const Line ba = line(4, 6, 1, 2);
    EXPECT_DOUBLE_EQ(-ab.get_distance_across({9, 1}), ba.get_distance_across({9, 1}));
    EXPECT_DOUBLE_EQ(5.0 - ab.get_distance_along({9, 1}), ba.get_distance_along({9, 1}));
}

TEST(Math2D_Line, answers_zeros_when_its_ends_coincide)
{
    const Line point = line(3, -4, 3, -4);
    for (const Point& p : {Point(3, -4), Point(0, 0), Point(1e6, -1e6)}) {
        EXPECT_EQ(0.0, point.get_distance_along(p));
        EXPECT_EQ(0.0, point.get_distance_across(p));
    }
    EXPECT_EQ(0.0, point.get_heading(true));
    EXPECT_EQ(0.0, point.get_heading(false));
}

TEST(Math2D_Line, agrees_with_the_rotation_of_complex_numbers)
{
    constexpr unsigned SEED = 7;
    std::mt19937 random(SEED);
    std::uniform_real_distribution<double> metres(-10000.0, 10000.0);
    for (int i = 0; i < 10000; ++i) {
        const Point a(metres(random), metres(random));
        const Point b(metres(random), metres(random));
        const Point p(metres(random), metres(random));
        // north + i east, turned until the line runs due north
        const std::complex<double> ab(b.first - a.first, b.second - a.second);
        const std::complex<double> ap(p.first - a.first, p.second - a.second);
        const std::complex<double> turned = ap * std::polar(1.0, -std::arg(ab));
        const Line on = line(a.first, a.second, b.first, b.second);
        ASSERT_NEAR(turned.real(), on.get_distance_along(p), 1e-8) << "seed " << SEED << ", case " << i;
        ASSERT_NEAR(turned.imag(), on.get_distance_across(p), 1e-8) << "seed " << SEED << ", case " << i;
        ASSERT_NEAR(std::abs(ab), a.get_distance(b), 1e-9) << "seed " << SEED << ", case " << i;
    }
}
