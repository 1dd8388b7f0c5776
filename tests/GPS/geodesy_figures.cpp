// Prints geodesy results of a fixed set of places, or compares them with those of another machine:
//
//   geodesy_figures            the results, one a line: what, unit, value as a hexadecimal double
//   geodesy_figures FILE       status 1 when a result differs from FILE's by more than 1e-9 m or 1e-15 rad
//
// The two maths libraries may differ in a last digit; the bounds leave room for no more than that.
#include "util/GPS/Coordinate_converter.h"
#include "util/GPS/ellipsoid.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double DEGREE = 3.141592653589793 / 180.0;

struct Figure {
    std::string what;
    double value;
    double bound;
};

class Figures {
public:
    void metres(const char* what, double value) { all.push_back({what, value, 1e-9}); }
    void radians(const char* what, double value) { all.push_back({what, value, 1e-15}); }
    const std::vector<Figure>& get() const { return all; }

private:
    std::vector<Figure> all;
};

/// The same doubles on every machine, which the standard's distributions are not.
class Uniform {
public:
    double operator()(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(generator()) / 4294967296.0);
    }

private:
    std::mt19937 generator{42};
};

void convert(Figures& figures, const PointLLH& p)
{
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    Geo2Decart(p.lat, p.lon, p.height, x, y, z);
    figures.metres("Geo2Decart.x", x);
    figures.metres("Geo2Decart.y", y);
    figures.metres("Geo2Decart.z", z);
    // From rounded coordinates, so that both machines convert the same point back.
    const Point3D grid(std::round(x), std::round(y), std::round(z));
    const PointLLH back = grid.as_llh();
    figures.radians("Decart2Geo.lat", back.lat);
    figures.radians("Decart2Geo.lon", back.lon);
    figures.metres("Decart2Geo.h", back.height);
}

void localise(Figures& figures, const PointLLH& centre, const PointLLH& p)
{
    Coordinate_converter converter;
    converter.setLocalCenter(centre);
    double n = 0.0;
    double e = 0.0;
    double d = 0.0;
    converter.convLLH2Local(p.lat, p.lon, p.height, &n, &e, &d);
    figures.metres("convLLH2Local.n", n);
    figures.metres("convLLH2Local.e", e);
    figures.metres("convLLH2Local.d", d);
    PointLLH back;
    converter.convLocal2PointLLH(std::round(n), std::round(e), back);
    figures.radians("convLocal2PointLLH.lat", back.lat);
    figures.radians("convLocal2PointLLH.lon", back.lon);
    figures.metres("convLocal2PointLLH.height", back.height);
}

void measure(Figures& figures, PointLLH from, PointLLH to)
{
    double distance = 0.0;
    double bearing_from = 0.0;
    double bearing_to = 0.0;
    from.path_along_surface(to, distance, bearing_from, bearing_to);
    figures.metres("path_along_surface.distance", distance);
    figures.radians("path_along_surface.bearing_from", bearing_from);
    figures.radians("path_along_surface.bearing_to", bearing_to);
}

Figures compute()
{
    Figures figures;
    Uniform uniform;
    for (int i = 0; i < 2000; ++i) {
        // Braces: only there are arguments computed in the same order by every compiler.
        const PointLLH p{uniform(-89.0, 89.0) * DEGREE, uniform(-180.0, 180.0) * DEGREE,
                         uniform(-500.0, 5000.0)};
        convert(figures, p);
        const PointLLH near{p.lat + uniform(-1e-3, 1e-3), p.lon + uniform(-1e-3, 1e-3),
                            p.height + uniform(-50.0, 50.0)};
        localise(figures, p, near);
        measure(figures, p, near);
    }
    return figures;
}

void print(const Figures& figures)
{
    for (const Figure& figure : figures.get())
        std::printf("%s %a\n", figure.what.c_str(), figure.value);
}

int compare(const Figures& figures, const char* path)
{
    std::ifstream file(path);
    std::map<std::string, double> worst;
    int wrong = 0;
    for (const Figure& figure : figures.get()) {
        std::string what;
        std::string text;
        if (!(file >> what >> text) || what != figure.what) {
            std::fprintf(stderr, "%s does not hold the figures of this program\n", path);
            return 1;
        }
        const double other = std::strtod(text.c_str(), nullptr);
        const double difference = std::fabs(figure.value - other);
        worst[what] = std::max(worst[what], difference);
        if (!(difference <= figure.bound)) {
            if (++wrong <= 20)
                std::printf("%s: %.17g here, %.17g there, %.3g apart\n", what.c_str(), figure.value, other,
                            difference);
        }
    }
    for (const auto& [what, difference] : worst)
        std::printf("%-32s at most %.3g apart\n", what.c_str(), difference);
    std::printf("%zu figures, %d further apart than allowed\n", figures.get().size(), wrong);
    return wrong == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const Figures figures = compute();
    if (argc > 1)
        return compare(figures, argv[1]);
    print(figures);
    return 0;
}
