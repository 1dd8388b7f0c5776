#include "bench/inputs.h"
#include "util/GPS/CoordConv.h"
#include "util/GPS/PointLLH.h"
#include "util/GPS/ellipsoid.h"

#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/LocalCartesian.hpp>
#include <benchmark/benchmark.h>
#include <boost/geometry/core/cs.hpp>
#include <boost/geometry/formulas/vincenty_inverse.hpp>
#include <boost/geometry/srs/spheroid.hpp>
#include <boost/version.hpp>
#include <proj.h>

#include <memory>
#include <string>
#include <utility>

namespace {

using GeographicLib::Geocentric;
using GeographicLib::Geodesic;
using GeographicLib::LocalCartesian;

struct Proj_deleter {
    void operator()(PJ* operation) const { proj_destroy(operation); }
};
using Proj = std::unique_ptr<PJ, Proj_deleter>;

Proj make_proj(const std::string& definition)
{
    return Proj(proj_create(PJ_DEFAULT_CTX, definition.c_str()));
}

Proj make_topocentric(const Place& centre)
{
    return make_proj("+proj=topocentric +ellps=WGS84 +X_0=" + std::to_string(centre.x) +
                     " +Y_0=" + std::to_string(centre.y) + " +Z_0=" + std::to_string(centre.z));
}

CoordConv make_converter(const Place& centre)
{
    CoordConv converter;
    converter.setLocalCenterLLH(centre.lat, centre.lon, centre.h);
    return converter;
}

/// Measures one call for each input; `call` returns what must not be optimised away.
template <typename INPUTS, typename CALL>
void measure(const std::string& name, const INPUTS& inputs, CALL call)
{
    benchmark::RegisterBenchmark(name.c_str(), [&inputs, call](benchmark::State& state) mutable {
        for (auto _ : state)
            for (const auto& input : inputs)
                benchmark::DoNotOptimize(call(input));
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(inputs.size()));
    });
}

struct Triple {
    double first;
    double second;
    double third;
};

void measure_earth_centred(const std::string& where, const Places& places)
{
    measure("Geo2Decart/ours/" + where, places, [](const Place& p) {
        Triple out{};
        Geo2Decart(p.lat, p.lon, p.h, out.first, out.second, out.third);
        return out;
    });
    measure("Geo2Decart/GeographicLib Geocentric Forward/" + where, places,
            [earth = Geocentric::WGS84()](const Place& p) {
                Triple out{};
                earth.Forward(p.lat_deg, p.lon_deg, p.h, out.first, out.second, out.third);
                return out;
            });

    measure("Decart2Geo/ours/" + where, places, [](const Place& p) {
        Triple out{};
        Decart2Geo(p.x, p.y, p.z, out.first, out.second, out.third);
        return out;
    });
    measure("Decart2Geo/GeographicLib Geocentric Reverse/" + where, places,
            [earth = Geocentric::WGS84()](const Place& p) {
                Triple out{};
                earth.Reverse(p.x, p.y, p.z, out.first, out.second, out.third);
                return out;
            });
    static const Proj cart = make_proj("+proj=cart +ellps=WGS84");
    measure("Decart2Geo/PROJ cart inverse/" + where, places, [operation = cart.get()](const Place& p) {
        return proj_trans(operation, PJ_INV, proj_coord(p.x, p.y, p.z, 0.0));
    });
}

/// Local coordinates of a place around the field's centre, for the way back.
Triple local_of(const Place& place)
{
    static const Place centre = field_centre();
    static const LocalCartesian local(centre.lat_deg, centre.lon_deg, centre.h);
    Triple enu{};
    local.Forward(place.lat_deg, place.lon_deg, place.h, enu.first, enu.second, enu.third);
    return enu;
}

void measure_local(const std::string& where, const Places& places, const std::vector<Triple>& locals)
{
    const Place centre = field_centre();
    measure("convECEF2Local/ours/" + where, places,
            [converter = make_converter(centre)](const Place& p) mutable {
                Triple out{};
                converter.convECEF2Local(p.x, p.y, p.z, &out.first, &out.second, &out.third);
                return out;
            });
    static const Proj topocentric = make_topocentric(centre);
    measure("convECEF2Local/PROJ topocentric/" + where, places,
            [operation = topocentric.get()](const Place& p) {
                return proj_trans(operation, PJ_FWD, proj_coord(p.x, p.y, p.z, 0.0));
            });

    const LocalCartesian local(centre.lat_deg, centre.lon_deg, centre.h);
    measure("convLLH2Local/ours/" + where, places,
            [converter = make_converter(centre)](const Place& p) mutable {
                Triple out{};
                converter.convLLH2Local(p.lat, p.lon, p.h, &out.first, &out.second, &out.third);
                return out;
            });
    measure("convLLH2Local/GeographicLib LocalCartesian Forward/" + where, places, [local](const Place& p) {
        Triple out{};
        local.Forward(p.lat_deg, p.lon_deg, p.h, out.first, out.second, out.third);
        return out;
    });

    measure("convLocal2LLH/ours/" + where, locals,
            [converter = make_converter(centre)](const Triple& enu) mutable {
                Triple out{};
                converter.convLocal2LLH(enu.second, enu.first, -enu.third, &out.first, &out.second,
                                        &out.third);
                return out;
            });
    measure("convLocal2LLH/GeographicLib LocalCartesian Reverse/" + where, locals,
            [local](const Triple& enu) {
                Triple out{};
                local.Reverse(enu.first, enu.second, enu.third, out.first, out.second, out.third);
                return out;
            });
}

using Lines = std::vector<std::pair<Place, Place>>;

/// From each place in some direction over a distance, metres.
Lines lines_over(const Places& starts, double distance)
{
    std::mt19937_64 random(20180403);
    std::uniform_real_distribution<double> azimuth_deg(-180.0, 180.0);
    Lines lines;
    lines.reserve(starts.size());
    for (const Place& start : starts) {
        double lat_deg = 0.0;
        double lon_deg = 0.0;
        Geodesic::WGS84().Direct(start.lat_deg, start.lon_deg, azimuth_deg(random), distance, lat_deg,
                                 lon_deg);
        lines.emplace_back(start, Place(lat_deg * PI / 180.0, lon_deg * PI / 180.0, 0.0));
    }
    return lines;
}

/// From each place to one that has nothing to do with it.
Lines lines_anywhere(const Places& places)
{
    Lines lines;
    lines.reserve(places.size());
    for (std::size_t i = 0; i < places.size(); ++i)
        lines.emplace_back(places[i], places[(i + 1) % places.size()]);
    return lines;
}

void measure_path(const std::string& how_long, const Lines& lines)
{
    measure("path_along_surface/ours/" + how_long, lines, [](const std::pair<Place, Place>& line) {
        PointLLH from(line.first.lat, line.first.lon, 0.0);
        PointLLH to(line.second.lat, line.second.lon, 0.0);
        Triple out{};
        from.path_along_surface(to, out.first, out.second, out.third);
        return out;
    });
    using Vincenty = boost::geometry::formula::vincenty_inverse<double, true, true, true>;
    measure("path_along_surface/Boost.Geometry Vincenty/" + how_long, lines,
            [wgs84 = boost::geometry::srs::spheroid<double>(6378137.0, 6356752.314245)](
                const std::pair<Place, Place>& line) {
                return Vincenty::apply(line.first.lon, line.first.lat, line.second.lon, line.second.lat,
                                       wgs84);
            });
    measure("path_along_surface/GeographicLib Geodesic Inverse/" + how_long, lines,
            [earth = Geodesic::WGS84()](const std::pair<Place, Place>& line) {
                Triple out{};
                earth.Inverse(line.first.lat_deg, line.first.lon_deg, line.second.lat_deg,
                              line.second.lon_deg, out.first, out.second, out.third);
                return out;
            });
}

std::vector<Triple> locals_of(const Places& places)
{
    std::vector<Triple> locals;
    locals.reserve(places.size());
    for (const Place& place : places)
        locals.push_back(local_of(place));
    return locals;
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("compiler", "GCC " __VERSION__ ", " QUARVEL_BENCH_FLAGS);
    benchmark::AddCustomContext("GeographicLib", GEOGRAPHICLIB_VERSION_STRING);
    benchmark::AddCustomContext("PROJ", proj_info().version);
    benchmark::AddCustomContext("Boost", BOOST_LIB_VERSION);

    const Places globe = globe_places();
    const Places field = field_places();
    const Places east = field_places(far_east());
    const std::vector<Triple> globe_locals = locals_of(globe);
    const std::vector<Triple> field_locals = locals_of(field);
    const Lines short_lines = lines_over(globe, 1000.0);
    const Lines medium_lines = lines_over(globe, 100000.0);
    const Lines long_lines = lines_anywhere(globe);
    measure_earth_centred("globe", globe);
    measure_earth_centred("field", field);
    measure_earth_centred("field at 152 E", east);
    measure_local("globe", globe, globe_locals);
    measure_local("field", field, field_locals);
    measure_path("1 km", short_lines);
    measure_path("100 km", medium_lines);
    measure_path("any length", long_lines);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
