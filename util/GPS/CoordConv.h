#pragma once

#include "platform/matrix.h"
#include "util/export.h"

/// Converts between earth-centred, geodetic and local coordinates around one centre on the earth.
///
/// Local axes: first north, second east, third down, in metres, on the plane through the centre at right
/// angles to the ellipsoid's normal there. Angles are radians, north and east positive; heights are metres
/// above the WGS-84 ellipsoid.
///
/// A converter has a centre from the first setLocalCenter...() on, unless that centre, as it is kept, lies
/// within 1000 m of the earth's own. Without one every conversion and both getters return false and leave
/// their outputs untouched. Output pointers must be valid but where a null is allowed; an output may be one
/// of the inputs.
///
/// A plain value, for one thread at a time.
///
/// @see IOGP 373-7-2, methods EPSG:9836 (geocentric/topocentric) and EPSG:9837 (geographic/topocentric);
///      theirs is east, north, up
class QUARVEL_EXPORT CoordConv {
public:
    /// Sets the centre; every derived value follows.
    void setLocalCenterLLH(double lat, double lon, double h);

    /// Sets the centre from an earth-centred point. What is kept is the point converted to geodetic and
    /// back, which differs from the one given by less than 0.1 mm from 5000 km off the earth's centre
    /// outwards, and by more the deeper it lies (see Decart2Geo).
    void setLocalCenterECEF(double x, double y, double z);

    /// The centre as it is kept: radians and metres, or metres.
    /// @{
    bool getLocalCenterLLH(double* lat, double* lon, double* h) const;
    bool getLocalCenterECEF(double* x, double* y, double* z) const;
    /// @}

    /// Earth-centred to local; `d` may be null when it is not wanted.
    bool convECEF2Local(double x, double y, double z, double* n, double* e, double* d);

    /// Geodetic to local; `d` may be null when it is not wanted.
    bool convLLH2Local(double lat, double lon, double h, double* n, double* e, double* d);

    /// Local to earth-centred, and to geodetic (Decart2Geo).
    /// @{
    bool convLocal2ECEF(double n, double e, double d, double* x, double* y, double* z);
    bool convLocal2LLH(double n, double e, double d, double* lat, double* lon, double* h);
    /// @}

    /// The same for a point of the plane through the centre, down being 0.
    /// @{
    bool convLocal2LLH(double n, double e, double* lat, double* lon, double* h);
    bool convLocal2ECEF(double n, double e, double* x, double* y, double* z);
    /// @}

protected:
    SVec center_ecef;       ///< metres; shorter than 1000, it counts as no centre
    SVec center_llh;        ///< latitude, longitude, height
    OrthoMat local_to_ecef; ///< its columns are the local axes in earth-centred coordinates
    OrthoMat ecef_to_local; ///< the transpose of local_to_ecef

private:
    bool has_center() const;
};
