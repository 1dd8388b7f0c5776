#include "util/GPS/CConv_plus.h"

void CConv_plus::setLocalCenterLLH(double lat, double lon, double h)
{
    CoordConv::setLocalCenterLLH(lat, lon, h);
    ned_to_ecef = OrthoMat(lat, lon);
}

void CConv_plus::setLocalCenterECEF(double x, double y, double z)
{
    CoordConv::setLocalCenterECEF(x, y, z);
    double lat = 0.0;
    double lon = 0.0;
    double h = 0.0;
    if (getLocalCenterLLH(&lat, &lon, &h))
        ned_to_ecef = OrthoMat(lat, lon);
}

bool CConv_plus::get_origin(bool absolute, SVec& origin) const
{
    if (!absolute)
        return true; // a free vector starts nowhere
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    if (!getLocalCenterECEF(&x, &y, &z))
        return false;
    origin = SVec(x, y, z);
    return true;
}

bool CConv_plus::convECEF2NED(double const& x, double const& y, double const& z, double& n, double& e,
                              double& d, bool absolute)
{
    SVec origin;
    if (!get_origin(absolute, origin))
        return false;
    const SVec ned = STranspose(ned_to_ecef) * (SVec(x, y, z) - origin);
    n = ned[0];
    e = ned[1];
    d = ned[2];
    return true;
}

bool CConv_plus::convNED2ECEF(double const& n, double const& e, double const& d, double& x, double& y,
                              double& z, bool absolute)
{
    SVec origin;
    if (!get_origin(absolute, origin))
        return false;
    const SVec ecef = ned_to_ecef * SVec(n, e, d) + origin;
    x = ecef[0];
    y = ecef[1];
    z = ecef[2];
    return true;
}

bool CConv_plus::convECEF2NEU(double const& x, double const& y, double const& z, double& n, double& e,
                              double& u, bool absolute)
{
    double d = 0.0;
    const bool converted = convECEF2NED(x, y, z, n, e, d, absolute);
    u = -d; // deliberate: also after a refusal
    return converted;
}

bool CConv_plus::convNEU2ECEF(double const& n, double const& e, double const& u, double& x, double& y,
                              double& z, bool absolute)
{
    return convNED2ECEF(n, e, -u, x, y, z, absolute);
}

bool CConv_plus::convECEF2ENU(double const& x, double const& y, double const& z, double& e, double& n,
                              double& u, bool absolute)
{
    return convECEF2NEU(x, y, z, n, e, u, absolute);
}

bool CConv_plus::convENU2ECEF(double const& e, double const& n, double const& u, double& x, double& y,
                              double& z, bool absolute)
{
    return convNED2ECEF(n, e, -u, x, y, z, absolute);
}
