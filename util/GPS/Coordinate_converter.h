#pragma once

#include "util/GPS/CConv_plus.h"
#include "util/GPS/Point3D.h"
#include "util/GPS/PointLLH.h"
#include "util/export.h"

/// The local frame in two dimensions, on the point types: north and east in metres around a centre.
///
/// As in the bases, a conversion without a centre returns false and leaves its outputs untouched.
class QUARVEL_EXPORT Coordinate_converter : public CConv_plus {
public:
    /// As setLocalCenterLLH() or, for an earth-centred point, setLocalCenterECEF().
    /// @{
    void setLocalCenter(PointLLH const& p);
    void setLocalCenter(Point3D const& p);
    /// @}

    /// The geodetic point of a place on the plane through the centre; its height is not the centre's, since
    /// the ellipsoid falls away below the plane (8 cm after a kilometre).
    bool convLocal2PointLLH(double const& n, double const& e, PointLLH& out);

    /// The foot of a point on the plane, along the centre's normal: its height above the plane is left out.
    bool convPointLLH2Local(PointLLH const& p, double& n, double& e);

    /// The same two for earth-centred points.
    /// @{
    bool convLocal2PointXYZ(double const& n, double const& e, Point3D& out);
    bool convPointXYZ2Local(Point3D const& p, double& n, double& e);
    /// @}
};
