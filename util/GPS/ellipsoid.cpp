#include "util/GPS/ellipsoid.h"

#include <cmath>

namespace {

constexpr double A = 6378137.0;
constexpr double E2 = 0.0066943799901413;
constexpr double ONE_MINUS_E2 = 0.9933056200098587;

constexpr int MAX_CORRECTIONS = 10;
constexpr double STOP_BELOW = 0.0001; // metres squared: corrections under 1 cm

/// From here outwards the corrections fall by a factor of a hundred or more, and the geodetic latitude stays
/// within 5 mrad of the geocentric one.
constexpr double OUTER_REGION = 5.0e6;

bool is_last(double dlat, double dh)
{
    return (dlat * A) * (dlat * A) + dh * dh < STOP_BELOW;
}

/// The corrections step by step. Near the centre they do not contract, so a digit lost in the first is metres
/// in the tenth: there nothing but these very operations gives their result.
void correct_step_by_step(double p, double z, double& lat, double& h)
{
    for (int i = 0; i < MAX_CORRECTIONS; ++i) {
        const double sin_lat = std::sin(lat);
        const double cos_lat = std::cos(lat);
        const double n = A / std::sqrt(1.0 - E2 * sin_lat * sin_lat);
        const double dp = p - (n + h) * cos_lat;
        const double dz = z - (n * ONE_MINUS_E2 + h) * sin_lat;
        const double dh = cos_lat * dp + sin_lat * dz;
        const double dlat = (cos_lat * dz - sin_lat * dp) / (n + h); // h from before this correction
        lat += dlat;
        h += dh;
        if (is_last(dlat, dh))
            return;
    }
}

/// The same corrections, carried as the angle t that the latitude has moved from the geocentric start. With
/// the residuals dp and dz written out, all large terms cancel on paper instead of in the machine:
///
///   dlat = (e2 n sin(lat) cos(lat) - r sin(t)) / (n + h)        and        h + dh = r cos(t) - a w
///
/// where w = sqrt(1 - e2 sin2(lat)) and n = a / w. t is small, so its sine and cosine are short series, and
/// the result keeps digits that the residuals, differences of numbers near a, lose. A third faster, too: no
/// sine is looked up, and the arctangents of latitude and longitude run beside the iteration.
///
/// @param radius2  x*x + y*y + z*z, whose root is r
void correct_from_geocentric(double p, double z, double r, double radius2, double& lat, double& h)
{
    const double sin_start = z / r;
    const double cos_start = p / r;
    const double above_sphere = (radius2 - A * A) / (r + A); // r - A, without the rounding of the root
    double t = 0.0;
    double estimate = above_sphere; // of h
    for (int i = 1;; ++i) {
        const double tt = t * t;
        const double sin_t = t - t * tt * (1.0 / 6.0 - tt / 120.0);
        const double versine_t = tt * (0.5 - tt / 24.0); // 1 - cos(t)
        const double sin_lat = sin_start + (cos_start * sin_t - sin_start * versine_t);
        const double cos_lat = cos_start - (sin_start * sin_t + cos_start * versine_t);
        const double e2_sin2 = E2 * sin_lat * sin_lat;
        const double w = std::sqrt(1.0 - e2_sin2);
        const double dlat = (E2 * A * sin_lat * cos_lat - r * sin_t * w) / (A + estimate * w);
        const double corrected = r - r * versine_t - A * w;
        const double dh = corrected - estimate;
        t += dlat;
        if (i == MAX_CORRECTIONS || is_last(dlat, dh)) {
            lat += t;
            h = above_sphere + (A * e2_sin2 / (1.0 + w) - r * versine_t); // `corrected`, to the last digit
            return;
        }
        estimate = corrected;
    }
}

} // namespace

void Geo2Decart(double lat, double lon, double h, double& x, double& y, double& z)
{
    const double sin_lon = std::sin(lon); // before the latitude's, which n needs at once
    const double cos_lon = std::cos(lon);
    const double sin_lat = std::sin(lat);
    const double cos_lat = std::cos(lat);
    const double n = A / std::sqrt(1.0 - E2 * sin_lat * sin_lat);
    x = (n + h) * cos_lat * cos_lon;
    y = (n + h) * cos_lat * sin_lon;
    z = (n * ONE_MINUS_E2 + h) * sin_lat;
}

void Decart2Geo(double x, double y, double z, double& lat, double& lon, double& h)
{
    const double radius2 = x * x + y * y + z * z;
    const double p = std::sqrt(x * x + y * y);
    const double r = std::sqrt(radius2);
    lon = std::atan2(y, x);
    lat = std::atan2(z, p);
    h = r - A;
    if (r >= OUTER_REGION)
        correct_from_geocentric(p, z, r, radius2, lat, h);
    else
        correct_step_by_step(p, z, lat, h);
}

void Decart2Geo(double const* xyz, double& lat, double& lon, double& h)
{
    Decart2Geo(xyz[0], xyz[1], xyz[2], lat, lon, h);
}

void Geo2Local(double lat, double lon, double& east, double& north)
{
    east = lon * A * std::cos(lat);
    north = lat * A;
}

double getLocalGravity(double lat, double h)
{
    const double sin_lat = std::sin(lat);
    const double sin_2lat = std::sin(2.0 * lat);
    return 9.780327 * (1.0 + 0.0053024 * sin_lat * sin_lat - 5.8e-06 * sin_2lat * sin_2lat) - 3.0877e-06 * h;
}
