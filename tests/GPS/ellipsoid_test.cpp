#include "util/GPS/ellipsoid.h"

#include <gtest/gtest.h>

TEST(Geo2Decart, puts_the_origin_of_latitude_and_longitude_on_the_x_axis)
{
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    Geo2Decart(0.0, 0.0, 0.0, x, y, z);
    EXPECT_EQ(6378137.0, x);
    EXPECT_EQ(0.0, y);
    EXPECT_EQ(0.0, z);
}
