#include "bench/inputs.h"
#include "util/GPS/CoordConv.h"
#include "util/GPS/PointLLH.h"
#include "util/GPS/ellipsoid.h"

#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/LocalCartesian.hpp>
#include <proj.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

// Measures how far ours and the peers lie apart, and prints it as the tables of docs/accuracy.md.

namespace {

using GeographicLib::Geocentric;
using GeographicLib::Geodesic;
using GeographicLib::LocalCartesian;

constexpr std::size_t CASES = 200000;
constexpr double RADIUS = 6378137.0;

struct Point {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

double distance(const Point& a, const Point& b)
{
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z));
}

/// Metres between two geodetic positions that are all but equal; the radius is near enough for that.
double distance(double lat, double lon, double h, double other_lat, double other_lon, double other_h)
{
    const double from_centre = RADIUS + h;
    const double north = (lat - other_lat) * from_centre;
    const double east = std::remainder(lon - other_lon, 2.0 * PI) * from_centre * std::cos(lat);
    return std::sqrt(north * north + east * east + (h - other_h) * (h - other_h));
}

/// A length as a person reads it.
std::string length(double metres)
{
    const struct {
        double metres;
        const char* name;
    } units[] = {{1e3, "km"}, {1.0, "m"}, {1e-3, "mm"}, {1e-6, "µm"}, {1e-9, "nm"}};
    for (const auto& unit : units)
        if (metres >= unit.metres || unit.metres < 1e-8) {
            char text[32];
            std::snprintf(text, sizeof text, "%.3g %s", metres / unit.metres, unit.name);
            return text;
        }
    return {};
}

struct Proj_deleter {
    void operator()(PJ* operation) const { proj_destroy(operation); }
};

void earth_centred_band(const char* band, double lowest, double highest, PJ* cart)
{
    double round_trip = 0.0;
    double forward = 0.0;
    double reverse = 0.0;
    double reverse_proj = 0.0;
    for (const Place& place : globe_places(CASES, lowest, highest)) {
        Point ours;
        Geo2Decart(place.lat, place.lon, place.h, ours.x, ours.y, ours.z);
        forward = std::max(forward, distance(ours, {place.x, place.y, place.z}));

        double lat = 0.0;
        double lon = 0.0;
        double h = 0.0;
        Decart2Geo(ours.x, ours.y, ours.z, lat, lon, h);
        round_trip = std::max(round_trip, distance(lat, lon, h, place.lat, place.lon, place.h));

        double lat_deg = 0.0;
        double lon_deg = 0.0;
        double peer_h = 0.0;
        Geocentric::WGS84().Reverse(ours.x, ours.y, ours.z, lat_deg, lon_deg, peer_h);
        reverse =
            std::max(reverse, distance(lat, lon, h, lat_deg * PI / 180.0, lon_deg * PI / 180.0, peer_h));
        const PJ_COORD proj = proj_trans(cart, PJ_INV, proj_coord(ours.x, ours.y, ours.z, 0.0));
        reverse_proj = std::max(reverse_proj, distance(lat, lon, h, proj.lpz.phi, proj.lpz.lam, proj.lpz.z));
    }
    std::printf("| %s | %s | %s | %s | %s |\n", band, length(round_trip).c_str(), length(forward).c_str(),
                length(reverse).c_str(), length(reverse_proj).c_str());
}

void print_earth_centred()
{
    const std::unique_ptr<PJ, Proj_deleter> cart(proj_create(PJ_DEFAULT_CTX, "+proj=cart +ellps=WGS84"));
    std::printf(
        "## Earth-centred coordinates\n\n"
        "The largest distance between two positions, over %zu places spread evenly over the globe in each "
        "band of heights. The columns beside a peer carry the peer's own errors, and the rounding of the "
        "conversion to degrees, too.\n\n"
        "| height | `Geo2Decart`, then `Decart2Geo` | `Geo2Decart` against GeographicLib "
        "| `Decart2Geo` against GeographicLib | `Decart2Geo` against PROJ |\n|---|--:|--:|--:|--:|\n",
        CASES);
    earth_centred_band("-1 to 0 km", -1e3, 0.0, cart.get());
    earth_centred_band("0 to 10 km", 0.0, 10e3, cart.get());
    earth_centred_band("10 to 100 km", 10e3, 100e3, cart.get());
    earth_centred_band("100 to 2,000 km", 100e3, 2000e3, cart.get());
    earth_centred_band("2,000 to 40,000 km", 2000e3, 40000e3, cart.get());
}

/// From one place along the surface to another.
struct Line {
    Place from;
    Place to;
};

Line line_from(const Place& start, double azimuth_deg, double metres)
{
    double lat_deg = 0.0;
    double lon_deg = 0.0;
    Geodesic::WGS84().Direct(start.lat_deg, start.lon_deg, azimuth_deg, metres, lat_deg, lon_deg);
    return {start, Place(lat_deg * PI / 180.0, lon_deg * PI / 180.0, start.h)};
}

void local_band(const char* band, double metres)
{
    std::mt19937_64 random(20180405);
    std::uniform_real_distribution<double> azimuth_deg(-180.0, 180.0);
    double forward = 0.0;
    double way_back = 0.0;
    for (const Place& centre : globe_places(CASES / 4)) {
        const Place place = line_from(centre, azimuth_deg(random), metres).to;
        CoordConv converter;
        converter.setLocalCenterLLH(centre.lat, centre.lon, centre.h);
        double n = 0.0;
        double e = 0.0;
        double d = 0.0;
        converter.convLLH2Local(place.lat, place.lon, place.h, &n, &e, &d);
        const LocalCartesian peer(centre.lat_deg, centre.lon_deg, centre.h);
        Point enu;
        peer.Forward(place.lat_deg, place.lon_deg, place.h, enu.x, enu.y, enu.z);
        forward = std::max(forward, distance({e, n, -d}, enu));

        double lat = 0.0;
        double lon = 0.0;
        double h = 0.0;
        converter.convLocal2LLH(n, e, d, &lat, &lon, &h);
        way_back = std::max(way_back, distance(lat, lon, h, place.lat, place.lon, place.h));
    }
    std::printf("| %s | %s | %s |\n", band, length(forward).c_str(), length(way_back).c_str());
}

void print_local()
{
    std::printf(
        "\n## Local coordinates\n\n"
        "The largest distance between two positions, over %zu centres on the globe at heights of -1 to "
        "9 km and as many places at a distance from them.\n\n"
        "| distance from the centre | `convLLH2Local` against GeographicLib's LocalCartesian "
        "| `convLLH2Local`, then `convLocal2LLH` |\n|---|--:|--:|\n",
        CASES / 4);
    local_band("10 m", 10.0);
    local_band("1 km", 1e3);
    local_band("100 km", 100e3);
    local_band("1,000 km", 1000e3);
    local_band("10,000 km", 10000e3);
}

/// Whether Vincenty's iteration (Survey Review XXIII no. 176, 1975, equations 10 to 18) settles to 1e-12
/// radians within a hundred steps.
bool converges(const Line& line)
{
    const double f = 1.0 / 298.257223563;
    const double u1 = std::atan((1.0 - f) * std::tan(line.from.lat));
    const double u2 = std::atan((1.0 - f) * std::tan(line.to.lat));
    const double difference = line.to.lon - line.from.lon;
    double lambda = difference;
    for (int i = 0; i < 100; ++i) {
        const double sin_sigma =
            std::hypot(std::cos(u2) * std::sin(lambda),
                       std::cos(u1) * std::sin(u2) - std::sin(u1) * std::cos(u2) * std::cos(lambda));
        const double cos_sigma = std::sin(u1) * std::sin(u2) + std::cos(u1) * std::cos(u2) * std::cos(lambda);
        const double sin_alpha = std::cos(u1) * std::cos(u2) * std::sin(lambda) / sin_sigma;
        const double cos2_alpha = 1.0 - sin_alpha * sin_alpha;
        const double cos_2sm = cos_sigma - 2.0 * std::sin(u1) * std::sin(u2) / cos2_alpha;
        const double c = f / 16.0 * cos2_alpha * (4.0 + f * (4.0 - 3.0 * cos2_alpha));
        const double next =
            difference + (1.0 - c) * f * sin_alpha *
                             (std::atan2(sin_sigma, cos_sigma) +
                              c * sin_sigma * (cos_2sm + c * cos_sigma * (-1.0 + 2.0 * cos_2sm * cos_2sm)));
        if (std::fabs(next - lambda) < 1e-12)
            return true;
        lambda = next;
    }
    return false;
}

/// The worst over many lines, those whose iteration does not converge apart.
class Path_errors {
public:
    void add(const Line& line)
    {
        PointLLH from(line.from.lat, line.from.lon, 0.0);
        PointLLH to(line.to.lat, line.to.lon, 0.0);
        double metres = 0.0;
        double bearing_from = 0.0;
        double bearing_to = 0.0;
        ++lines;
        if (!from.path_along_surface(to, metres, bearing_from, bearing_to)) {
            ++refused;
            return;
        }
        double peer_metres = 0.0;
        double azimuth_from = 0.0;
        double azimuth_to = 0.0;
        Geodesic::WGS84().Inverse(line.from.lat_deg, line.from.lon_deg, line.to.lat_deg, line.to.lon_deg,
                                  peer_metres, azimuth_from, azimuth_to);
        const double off = std::fabs(metres - peer_metres);
        worst = std::max(worst, off);
        if (!converges(line)) {
            ++not_converged;
            return;
        }
        worst_converged = std::max(worst_converged, off);
        worst_bearing = std::max({worst_bearing, angle_between(bearing_from, azimuth_from),
                                  angle_between(bearing_to, azimuth_to)});
    }

    void print(const char* band) const
    {
        const auto percent = [this](std::size_t count) {
            return 100.0 * static_cast<double>(count) / static_cast<double>(lines);
        };
        std::printf("| %s | %.2f %% | %.2f %% | %s | %.2g | %s |\n", band, percent(not_converged),
                    percent(refused), length(worst_converged).c_str(), worst_bearing * 1e6,
                    length(worst).c_str());
    }

private:
    static double angle_between(double radians, double degrees)
    {
        return std::fabs(std::remainder(radians - degrees * PI / 180.0, 2.0 * PI));
    }

    std::size_t lines = 0;
    std::size_t refused = 0;
    std::size_t not_converged = 0;
    double worst = 0.0;
    double worst_converged = 0.0;
    double worst_bearing = 0.0;
};

void path_band(const char* band, double metres)
{
    std::mt19937_64 random(20180406);
    std::uniform_real_distribution<double> azimuth_deg(-180.0, 180.0);
    Path_errors errors;
    for (const Place& start : globe_places(CASES / 4))
        errors.add(line_from(start, azimuth_deg(random), metres));
    errors.print(band);
}

/// Ends within half a degree, in latitude and in longitude, of the point across the earth's centre.
void nearly_antipodal()
{
    std::mt19937_64 random(20180407);
    std::uniform_real_distribution<double> offset(-0.5 * PI / 180.0, 0.5 * PI / 180.0);
    Path_errors errors;
    for (const Place& start : globe_places(CASES / 4)) {
        const double lat = std::clamp(-start.lat + offset(random), -PI / 2.0, PI / 2.0);
        const double lon = std::remainder(start.lon + PI + offset(random), 2.0 * PI);
        errors.add({start, Place(lat, lon, 0.0)});
    }
    errors.print("within 0.5° of antipodal");
}

void print_paths()
{
    std::printf(
        "\n## Paths along the surface\n\n"
        "`path_along_surface` against GeographicLib's Geodesic, over %zu lines in each row, in any "
        "direction from places spread evenly over the globe. A line that does not converge within a "
        "hundred iterations gets the last estimate; a refused one returned false. The bearings are those of "
        "converged lines; the "
        "shorter the line, the more the rounding of its ends turns it.\n\n"
        "| length | not converged | refused | worst length, converged | worst bearing, converged, µrad "
        "| worst length of all |\n|---|--:|--:|--:|--:|--:|\n",
        CASES / 4);
    path_band("10 m", 10.0);
    path_band("1 km", 1e3);
    path_band("100 km", 100e3);
    path_band("1,000 km", 1000e3);
    path_band("10,000 km", 10000e3);
    path_band("19,000 km", 19000e3);
    nearly_antipodal();
}

} // namespace

int main()
{
    print_earth_centred();
    print_local();
    print_paths();
    return 0;
}
