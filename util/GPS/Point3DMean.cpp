#include "util/GPS/Point3DMean.h"

#include <cstddef>

Point3DMean::Point3DMean()
{
    // Applications compiled against an earlier build hold these objects by value: the layout stays.
    static_assert(offsetof(Point3DMean, mean) == 0 && offsetof(Point3DMean, count) == 24);
    static_assert(sizeof(Point3DMean) == 32);
}

void Point3DMean::add_point(Point3D const& p)
{
    const double n = count;
    ++count;
    const double weight = 1.0 / (n + 1.0);
    mean = p * weight + mean * (n * weight);
}

Point3D Point3DMean::get_mean()
{
    return mean;
}

void Point3DMean::reset()
{
    mean = Point3D();
    count = 0;
}
