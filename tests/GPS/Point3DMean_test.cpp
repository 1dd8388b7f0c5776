#include "util/GPS/Point3DMean.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <type_traits>
#include <utility>

namespace {

static_assert(sizeof(Point3DMean) == 32, "a point and a 32-bit count, on every target");
static_assert(std::is_same_v<decltype(std::declval<Point3DMean&>().get_mean()), Point3D>, "a copy");

void expect_mean(double x, double y, double z, Point3DMean& mean)
{
    EXPECT_EQ(x, mean.get_mean().x);
    EXPECT_EQ(y, mean.get_mean().y);
    EXPECT_EQ(z, mean.get_mean().z);
}

/// One coordinate of the running mean: the new sample by 1/(n + 1), the old mean by n times that.
struct Running {
    double mean = 0.0;
    unsigned count = 0;
    void add(double sample)
    {
        const double n = count++;
        const double w = 1.0 / (n + 1.0);
        const double fresh = w * sample;
        const double old = (n * w) * mean;
        mean = fresh + old;
    }
};

} // namespace

TEST(Point3DMean, is_zero_before_anything_is_added)
{
    Point3DMean mean;
    expect_mean(0.0, 0.0, 0.0, mean);
}

TEST(Point3DMean, is_the_only_point_added)
{
    Point3DMean mean;
    mean.add_point(Point3D(-2508073.66985084, 1911126.83200433, -5525578.86811147));
    expect_mean(-2508073.66985084, 1911126.83200433, -5525578.86811147, mean);
}

TEST(Point3DMean, averages_by_component)
{
    Point3DMean mean;
    mean.add_point(Point3D(0.0, 0.0, 0.0));
    mean.add_point(Point3D(2.0, 4.0, 6.0));
    expect_mean(1.0, 2.0, 3.0, mean);
    mean.add_point(Point3D(4.0, -4.0, 9.0));
    mean.add_point(Point3D(-6.0, 0.0, 1.0));
    EXPECT_NEAR(0.0, mean.get_mean().x, 1e-15);
    EXPECT_NEAR(0.0, mean.get_mean().y, 1e-15);
    EXPECT_NEAR(4.0, mean.get_mean().z, 1e-15);
}

TEST(Point3DMean, forgets_the_points_and_their_number_on_reset)
{
    Point3DMean mean;
    for (int i = 0; i < 5; ++i)
        mean.add_point(Point3D(100.0, 200.0, 300.0));
    mean.reset();
    expect_mean(0.0, 0.0, 0.0, mean);
    mean.add_point(Point3D(8.0, 9.0, 10.0));
    expect_mean(8.0, 9.0, 10.0, mean);
    mean.add_point(Point3D(10.0, 11.0, 12.0));
    expect_mean(9.0, 10.0, 11.0, mean);
}

TEST(Point3DMean, hands_out_a_copy)
{
    Point3DMean mean;
    mean.add_point(Point3D(1.0, 2.0, 3.0));
    Point3D copy = mean.get_mean();
    copy = Point3D(9.0, 9.0, 9.0);
    EXPECT_EQ(9.0, copy.x);
    expect_mean(1.0, 2.0, 3.0, mean);
}

TEST(Point3DMean, goes_on_separately_in_a_copy)
{
    Point3DMean mean;
    mean.add_point(Point3D(2.0, 2.0, 2.0));
    Point3DMean copy(mean);
    copy.add_point(Point3D(4.0, 4.0, 4.0));
    expect_mean(2.0, 2.0, 2.0, mean);
    expect_mean(3.0, 3.0, 3.0, copy);
}

TEST(Point3DMean, may_be_fed_its_own_mean)
{
    Point3DMean mean;
    mean.add_point(Point3D(1.0, 3.0, 5.0));
    mean.add_point(mean.get_mean());
    expect_mean(1.0, 3.0, 5.0, mean);
}

TEST(Point3DMean, weighs_the_sample_and_the_old_mean_step_by_step)
{
    const unsigned seed = 20241;
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> coordinate(-7e6, 7e6);
    Point3DMean mean;
    Running x;
    Running y;
    Running z;
    for (int i = 0; i < 10000; ++i) {
        const Point3D p(coordinate(generator), coordinate(generator), coordinate(generator));
        mean.add_point(p);
        x.add(p.x);
        y.add(p.y);
        z.add(p.z);
        ASSERT_EQ(x.mean, mean.get_mean().x) << "seed " << seed << ", case " << i;
        ASSERT_EQ(y.mean, mean.get_mean().y) << "seed " << seed << ", case " << i;
        ASSERT_EQ(z.mean, mean.get_mean().z) << "seed " << seed << ", case " << i;
    }
}

// A day of fixes around one place: the true mean is known, since the noise comes in pairs of both signs.
TEST(Point3DMean, keeps_the_precision_over_100000_earth_centred_points)
{
    const unsigned seed = 20242;
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> noise(-4096, 4096); // times 2^-10 m, exact beside the coordinates
    const Point3D place(-2508073.625, 1911126.75, -5525578.875);
    Point3DMean mean;
    for (int i = 0; i < 50000; ++i) {
        const Point3D offset =
            Point3D(noise(generator), noise(generator), noise(generator)) * std::ldexp(1.0, -10);
        mean.add_point(place + offset);
        mean.add_point(place - offset);
    }
    EXPECT_NEAR(place.x, mean.get_mean().x, 1e-6) << "seed " << seed;
    EXPECT_NEAR(place.y, mean.get_mean().y, 1e-6) << "seed " << seed;
    EXPECT_NEAR(place.z, mean.get_mean().z, 1e-6) << "seed " << seed;
}
