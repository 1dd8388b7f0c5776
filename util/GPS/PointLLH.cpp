#include "util/GPS/PointLLH.h"

#include "platform/Debug.h"
#include "util/GPS/CoordConv.h"
#include "util/GPS/Point3D.h"
#include "util/GPS/ellipsoid.h"

#include <cmath>

namespace {

constexpr double PI = 3.141592653589793;

constexpr double F = 0.0033528106647474805;
constexpr double ONE_MINUS_F = 0.9966471893352525;
constexpr double F_OVER_16 = 0.00020955066654671753;
constexpr double B = 6356752.314245;
constexpr double A2_MINUS_B2 = 272331606109.84375;
constexpr double B2 = 40408299984659.16;

constexpr double CONVERGED = 1e-12;  // radians of lambda
constexpr double COINCIDENT = 1e-10; // sine of the arc
constexpr int LAST_ITERATION = 99;   // counted from 0

/// Sine and cosine of the reduced latitude atan((1 - f) tan(lat)), without the detour over the angle. By its
/// tangent, since sines that differ in their last digit, as those of two maths libraries may, would turn the
/// bearings of a short line by more than that.
struct Reduced_latitude {
    explicit Reduced_latitude(double lat)
    {
        const double tangent = ONE_MINUS_F * std::tan(lat);
        cosine = 1.0 / std::sqrt(1.0 + tangent * tangent);
        sine = tangent * cosine;
    }
    double sine;
    double cosine;
};

double degrees_of(double radians)
{
    return radians * 180.0 / PI; // in this order: the last printed digit depends on it
}

} // namespace

void PointLLH::print(char const* prefix, char const* suffix, bool degrees) const
{
    if (degrees)
        Debug::Print::dprint("%s(%.10f,%.10f,%.3f)%s", prefix, degrees_of(lat), degrees_of(lon), height,
                             suffix);
    else
        Debug::Print::dprint("%s(%.11f,%.11f,%.3f)%s", prefix, lat, lon, height, suffix);
}

bool PointLLH::operator==(PointLLH const& other) const
{
    return std::fabs(lat - other.lat) < ZERO_TOLD && std::fabs(lon - other.lon) < ZERO_TOLD &&
           std::fabs(height - other.height) < ZERO_TOL;
}

bool PointLLH::operator!=(PointLLH const& other) const
{
    return !(*this == other);
}

PointLLH PointLLH::operator+(PointLLH const& other)
{
    return {lat + other.lat, lon + other.lon, height + other.height};
}

PointLLH PointLLH::operator-(PointLLH const& other)
{
    return {lat - other.lat, lon - other.lon, height - other.height};
}

PointLLH& PointLLH::operator=(Point3D const& other)
{
    CoordConv converter;
    converter.setLocalCenterECEF(other.x, other.y, other.z);
    converter.getLocalCenterLLH(&lat, &lon, &height);
    return *this;
}

Point3D PointLLH::as_3D() const
{
    Point3D result;
    Geo2Decart(lat, lon, height, result.x, result.y, result.z);
    return result;
}

bool PointLLH::path_along_surface(PointLLH& to, double& distance, double& bearing_from, double& bearing_to)
{
    const Reduced_latitude u1(lat);
    const Reduced_latitude u2(to.lat);
    const double sin_sin = u1.sine * u2.sine;
    const double cos_cos = u1.cosine * u2.cosine;
    const double cos_sin = u1.cosine * u2.sine;
    const double sin_cos = u1.sine * u2.cosine;
    const double longitude_difference = to.lon - lon;

    double lambda = longitude_difference;
    for (int iteration = 0;; ++iteration) {
        const double sin_lambda = std::sin(lambda);
        const double cos_lambda = std::cos(lambda);
        const double to_east = u2.cosine * sin_lambda;
        const double to_north = cos_sin - sin_cos * cos_lambda;
        const double sin_sigma = std::sqrt(to_east * to_east + to_north * to_north);
        if (sin_sigma < COINCIDENT) {
            distance = bearing_from = bearing_to = 0.0;
            return true;
        }
        const double cos_sigma = sin_sin + cos_cos * cos_lambda;
        const double sigma = std::atan2(sin_sigma, cos_sigma);
        const double sin_alpha = cos_cos * sin_lambda / sin_sigma;
        const double cos2_alpha = 1.0 - sin_alpha * sin_alpha;
        double cos_2sigma_m = cos_sigma - 2.0 * sin_sin / cos2_alpha;
        if (std::isnan(cos_2sigma_m)) // along the equator there is no vertex to measure from
            cos_2sigma_m = 0.0;
        const double middle = -1.0 + 2.0 * cos_2sigma_m * cos_2sigma_m;
        const double c = F_OVER_16 * cos2_alpha * (4.0 + F * (4.0 - 3.0 * cos2_alpha));
        const double next =
            longitude_difference +
            (1.0 - c) * F * sin_alpha * (sigma + c * sin_sigma * (cos_2sigma_m + c * cos_sigma * middle));
        const bool converged = std::fabs(next - lambda) < CONVERGED;
        if (iteration == LAST_ITERATION && converged)
            return false; // deliberate, see the header
        if (iteration < LAST_ITERATION && !converged) {
            lambda = next;
            continue;
        }

        const double u_2 = cos2_alpha * A2_MINUS_B2 / B2;
        const double a = 1.0 + u_2 / 16384.0 * (4096.0 + u_2 * (-768.0 + u_2 * (320.0 - 175.0 * u_2)));
        const double b = u_2 / 1024.0 * (256.0 + u_2 * (-128.0 + u_2 * (74.0 - 47.0 * u_2)));
        const double delta_sigma =
            b * sin_sigma *
            (cos_2sigma_m +
             b / 4.0 *
                 (cos_sigma * middle - b / 6.0 * cos_2sigma_m * (-3.0 + 4.0 * sin_sigma * sin_sigma) *
                                           (-3.0 + 4.0 * cos_2sigma_m * cos_2sigma_m)));
        distance = B * a * (sigma - delta_sigma);
        bearing_from = std::atan2(to_east, to_north);
        bearing_to = std::atan2(u1.cosine * sin_lambda, cos_lambda * cos_sin - sin_cos);
        return true;
    }
}
