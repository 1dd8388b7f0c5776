#pragma once

#include "util/export.h"

class Point3D;

/// A geodetic point on the WGS-84 ellipsoid.
///
/// A plain value, for one thread at a time.
class QUARVEL_EXPORT PointLLH {
public:
    static constexpr double ZERO_TOLD =
        1e-14;                                ///< radians: latitudes or longitudes closer than this are equal
    static constexpr double ZERO_TOL = 0.001; ///< metres: heights closer than this are equal

    double lat = 0.0;    ///< radians, north positive
    double lon = 0.0;    ///< radians, east positive
    double height = 0.0; ///< metres above the ellipsoid

    PointLLH() = default;
    /// @param lat_rad, lon_rad  taken as they are, neither wrapped nor checked
    PointLLH(double lat_rad, double lon_rad, double height_m) : lat(lat_rad), lon(lon_rad), height(height_m)
    {
    }
    PointLLH(PointLLH const&) = default; ///< exact

    /// Writes prefix, "(lat,lon,height)" and suffix to the debug output: in degrees with ten decimals or in
    /// radians with eleven; the height with three.
    ///
    /// @param prefix, suffix  never null
    void print(char const* prefix, char const* suffix, bool degrees) const;

    /// Equality within ZERO_TOLD (60 nm on the ground) and ZERO_TOL; differences of just that much are not
    /// equal. Longitudes a whole turn apart are different.
    /// @{
    bool operator==(PointLLH const& other) const;
    bool operator!=(PointLLH const& other) const;
    /// @}

    /// Componentwise on latitude, longitude and height; angles are not wrapped.
    /// @{
    PointLLH operator+(PointLLH const& other);
    PointLLH operator-(PointLLH const& other);
    /// @}

    PointLLH& operator=(PointLLH const& other) = default; ///< exact

    /// Takes over an earth-centred point, converted; this stays as it was when the point, converted to
    /// geodetic and back, lies less than 1000 m from the earth's centre (see CoordConv).
    PointLLH& operator=(Point3D const& other);

    /// This point in earth-centred coordinates (Geo2Decart).
    Point3D as_3D() const;

    /// The geodesic along the surface of the ellipsoid from here to another point; heights are ignored, and
    /// latitudes beyond the poles, which are not checked, stand for those of the same tangent within them.
    ///
    /// Points that are nearly antipodal may not converge within a hundred iterations: the last estimate is
    /// then the answer, and still true. Deliberate: convergence in just the hundredth iteration is refused.
    /// Where the iteration passes through a point antipodal or equal to this one it stops as for coincident
    /// points; lines along the equator whose ends are some 1e-9 radians off it may give a distance that is
    /// not a number.
    ///
    /// @param[out] distance      metres
    /// @param[out] bearing_from  radians clockwise from north at this point, -pi to pi
    /// @param[out] bearing_to    the same at the far end, still in the direction of travel
    /// @return false, with the outputs untouched, when the hundredth iteration is the first to converge.
    ///         Coincident points give 0 for all three.
    /// @see T. Vincenty, Direct and inverse solutions of geodesics on the ellipsoid with application of
    ///      nested equations, Survey Review XXIII no. 176, 1975 (the inverse formula)
    bool path_along_surface(PointLLH& to, double& distance, double& bearing_from, double& bearing_to);
};
