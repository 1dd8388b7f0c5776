#pragma once

#include "util/GPS/Point3D.h"
#include "util/export.h"

#include <cstdint>

/// A running average of points.
///
/// The mean itself is carried, never a sum: earth-centred coordinates added up for hours would lose the
/// digits that matter.
///
/// A plain value, for one thread at a time.
class QUARVEL_EXPORT Point3DMean {
public:
    /// Nothing added yet: mean (0, 0, 0).
    Point3DMean();

    /// Takes one more point into the mean, each point counting the same.
    void add_point(Point3D const& p);

    /// The average of all points since the last reset, (0, 0, 0) when there is none.
    Point3D get_mean();

    /// Forgets every point.
    void reset();

private:
    Point3D mean;
    std::uint32_t count = 0;
};
