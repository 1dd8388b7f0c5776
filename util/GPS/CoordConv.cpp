#include "util/GPS/CoordConv.h"

#include "util/GPS/ellipsoid.h"

namespace {

constexpr double MIN_CENTER_RADIUS = 1000.0;

void store(const SVec& v, double* first, double* second, double* third)
{
    *first = v[0];
    *second = v[1];
    *third = v[2];
}

} // namespace

bool CoordConv::has_center() const
{
    return norm(center_ecef) >= MIN_CENTER_RADIUS;
}

void CoordConv::setLocalCenterLLH(double lat, double lon, double h)
{
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    Geo2Decart(lat, lon, h, x, y, z);
    center_llh = SVec(lat, lon, h);
    center_ecef = SVec(x, y, z);
    local_to_ecef = OrthoMat(lat, lon);
    ecef_to_local = OrthoMat(transpose(local_to_ecef));
}

void CoordConv::setLocalCenterECEF(double x, double y, double z)
{
    double lat = 0.0;
    double lon = 0.0;
    double h = 0.0;
    Decart2Geo(x, y, z, lat, lon, h);
    CoordConv::setLocalCenterLLH(lat, lon, h);
}

bool CoordConv::getLocalCenterLLH(double* lat, double* lon, double* h) const
{
    if (!has_center())
        return false;
    store(center_llh, lat, lon, h);
    return true;
}

bool CoordConv::getLocalCenterECEF(double* x, double* y, double* z) const
{
    if (!has_center())
        return false;
    store(center_ecef, x, y, z);
    return true;
}

bool CoordConv::convECEF2Local(double x, double y, double z, double* n, double* e, double* d)
{
    if (!has_center())
        return false;
    const SVec local = ecef_to_local * (SVec(x, y, z) - center_ecef);
    *n = local[0];
    *e = local[1];
    if (d != nullptr)
        *d = local[2];
    return true;
}

bool CoordConv::convLLH2Local(double lat, double lon, double h, double* n, double* e, double* d)
{
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    Geo2Decart(lat, lon, h, x, y, z);
    return convECEF2Local(x, y, z, n, e, d);
}

bool CoordConv::convLocal2ECEF(double n, double e, double d, double* x, double* y, double* z)
{
    if (!has_center())
        return false;
    store(center_ecef + local_to_ecef * SVec(n, e, d), x, y, z);
    return true;
}

bool CoordConv::convLocal2LLH(double n, double e, double d, double* lat, double* lon, double* h)
{
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    if (!convLocal2ECEF(n, e, d, &x, &y, &z))
        return false;
    Decart2Geo(x, y, z, *lat, *lon, *h);
    return true;
}

bool CoordConv::convLocal2LLH(double n, double e, double* lat, double* lon, double* h)
{
    return convLocal2LLH(n, e, 0.0, lat, lon, h);
}

bool CoordConv::convLocal2ECEF(double n, double e, double* x, double* y, double* z)
{
    return convLocal2ECEF(n, e, 0.0, x, y, z);
}
