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
    void setLocalCenter(PointLLH const& p);

    /// @param p  earth-centred
    void setLocalCenter(Point3D const& p);

    /// The geodetic point of a place on the plane through the centre; its height is not the centre's, since
    /// the ellipsoid falls away below the plane (8 cm after a kilometre).
    bool convLocal2PointLLH(double const& n, double const& e, PointLLH& out);
    bool convPointLLH2Local(PointLLH const& p, double& n, double& e);

    bool convLocal2PointXYZ(double const& n, double const& e, Point3D& out);
    bool convPointXYZ2Local(Point3D const& p, double& n, double& e);
};
