#include "util/GPS/Point3D.h"

#include "platform/Debug.h"
#include "util/GPS/PointLLH.h"
#include "util/GPS/ellipsoid.h"

#include <cmath>

void Point3D::print(char const* prefix, char const* suffix) const
{
    Debug::Print::dprint("%s(%.3f,%.3f,%.3f)%s", prefix, x, y, z, suffix);
}

bool Point3D::equals(Point3D const& other, double tol) const
{
    return std::fabs(x - other.x) < tol && std::fabs(y - other.y) < tol && std::fabs(z - other.z) < tol;
}

bool Point3D::operator==(Point3D const& other) const
{
    return equals(other, ZERO_TOL);
}

bool Point3D::operator!=(Point3D const& other) const
{
    return !(*this == other);
}

Point3D Point3D::operator+(Point3D const& other) const
{
    return {x + other.x, y + other.y, z + other.z};
}

Point3D Point3D::operator-(Point3D const& other) const
{
    return {x - other.x, y - other.y, z - other.z};
}

Point3D Point3D::operator*(double factor) const
{
    return {x * factor, y * factor, z * factor};
}

Point3D Point3D::operator/(double divisor) const
{
    return {x / divisor, y / divisor, z / divisor};
}

// NOLINTNEXTLINE(misc-unconventional-assign-operator,bugprone-unhandled-self-assignment)
Point3D Point3D::operator=(Point3D const& other)
{
    x = other.x;
    y = other.y;
    z = other.z;
    return *this;
}

double Point3D::distance_to(Point3D const& other) const
{
    const Point3D d = *this - other;
    return std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
}

PointLLH Point3D::as_llh() const
{
    PointLLH result;
    Decart2Geo(x, y, z, result.lat, result.lon, result.height);
    return result;
}
