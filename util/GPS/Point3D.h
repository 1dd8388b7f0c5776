#pragma once

#include "util/export.h"

class PointLLH;

/// A cartesian point or offset, usually earth-centred: three coordinates in metres.
///
/// A plain value, for one thread at a time.
class QUARVEL_EXPORT Point3D {
public:
    static constexpr double ZERO_TOL =
        0.001; ///< metres: points closer than this in each coordinate are equal

    double x = 0.0; ///< metres; earth-centred towards latitude 0, longitude 0
    double y = 0.0; ///< metres; earth-centred towards latitude 0, longitude 90 east
    double z = 0.0; ///< metres; earth-centred towards the north pole

    /// The earth's centre.
    Point3D() = default;
    Point3D(double x_m, double y_m, double z_m) : x(x_m), y(y_m), z(z_m) {} ///< all in metres
    Point3D(Point3D const&) = default;                                      ///< exact, as the assignment is

    /// Writes prefix, "(x,y,z)" with three decimals, and suffix to the debug output.
    ///
    /// @param prefix, suffix  never null
    void print(char const* prefix, char const* suffix) const;

    /// Whether each coordinate differs by less than `tol` metres; at exactly `tol` it does not.
    bool equals(Point3D const& other, double tol) const;

    /// Equality to the millimetre: equals() with ZERO_TOL, so not transitive.
    /// @{
    bool operator==(Point3D const& other) const;
    bool operator!=(Point3D const& other) const;
    /// @}

    /// Coordinate by coordinate; a division by zero is left to the arithmetic.
    /// @{
    Point3D operator+(Point3D const& other) const;
    Point3D operator-(Point3D const& other) const;
    Point3D operator*(double factor) const;
    Point3D operator/(double divisor) const;
    /// @}

    /// Deliberate: the new value comes back by copy, not as a reference.
    // NOLINTNEXTLINE(misc-unconventional-assign-operator)
    Point3D operator=(Point3D const& other);

    /// The straight-line distance in metres.
    double distance_to(Point3D const& other) const;

    /// This earth-centred point in geodetic coordinates (Decart2Geo).
    PointLLH as_llh() const;
};
