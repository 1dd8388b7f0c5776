#include "util/GPS/Coordinate_converter.h"

static_assert(sizeof(Coordinate_converter) == sizeof(CConv_plus), "operations only");

void Coordinate_converter::setLocalCenter(PointLLH const& p)
{
    CConv_plus::setLocalCenterLLH(p.lat, p.lon, p.height);
}

void Coordinate_converter::setLocalCenter(Point3D const& p)
{
    CConv_plus::setLocalCenterECEF(p.x, p.y, p.z);
}

bool Coordinate_converter::convLocal2PointLLH(double const& n, double const& e, PointLLH& out)
{
    PointLLH converted;
    if (!convLocal2LLH(n, e, &converted.lat, &converted.lon, &converted.height))
        return false;
    out = converted;
    return true;
}

bool Coordinate_converter::convPointLLH2Local(PointLLH const& p, double& n, double& e)
{
    return convLLH2Local(p.lat, p.lon, p.height, &n, &e, nullptr);
}

bool Coordinate_converter::convLocal2PointXYZ(double const& n, double const& e, Point3D& out)
{
    return convLocal2ECEF(n, e, &out.x, &out.y, &out.z);
}

bool Coordinate_converter::convPointXYZ2Local(Point3D const& p, double& n, double& e)
{
    return convECEF2Local(p.x, p.y, p.z, &n, &e, nullptr);
}
