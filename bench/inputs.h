#pragma once

#include <GeographicLib/Geocentric.hpp>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

// What the programs feed to ours and to the peer alike. The seeds are fixed: every run sees the same inputs.

constexpr double PI = 3.141592653589793;

/// One place in every form that a library wants, so that no conversion is measured by the way.
struct Place {
    Place(double lat_rad, double lon_rad, double h_m)
        : lat(lat_rad), lon(lon_rad), h(h_m), lat_deg(lat_rad * 180.0 / PI), lon_deg(lon_rad * 180.0 / PI)
    {
        GeographicLib::Geocentric::WGS84().Forward(lat_deg, lon_deg, h, x, y, z);
    }

    double lat;
    double lon;
    double h;
    double lat_deg;
    double lon_deg;
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

using Places = std::vector<Place>;

constexpr std::size_t PLACES = 2048;

/// Where recorded drives with centimetre positions begin.
inline Place field_centre()
{
    return {40.0968 * PI / 180.0, -105.1476 * PI / 180.0, 1600.0};
}

/// Beyond 139 degrees of longitude the maths library's sine takes longer, as its argument is reduced first.
inline Place far_east()
{
    return {-27.5 * PI / 180.0, 152.3 * PI / 180.0, 420.0};
}

/// Evenly over the globe, at heights from `lowest` to `highest`.
inline Places globe_places(std::size_t count = PLACES, double lowest = -1000.0, double highest = 9000.0)
{
    std::mt19937_64 random(20180401);
    std::uniform_real_distribution<double> sine_of_latitude(-1.0, 1.0);
    std::uniform_real_distribution<double> longitude(-PI, PI);
    std::uniform_real_distribution<double> height(lowest, highest);
    Places places;
    places.reserve(count);
    while (places.size() < count) {
        const double lat = std::asin(sine_of_latitude(random));
        const double lon = longitude(random);
        places.emplace_back(lat, lon, height(random));
    }
    return places;
}

/// Within a kilometre or so of one place, on rolling ground.
inline Places field_places(const Place& centre = field_centre())
{
    std::mt19937_64 random(20180402);
    std::uniform_real_distribution<double> offset(-0.00016, 0.00016); // a kilometre on the ground
    std::uniform_real_distribution<double> height(-15.0, 15.0);
    Places places;
    places.reserve(PLACES);
    while (places.size() < PLACES) {
        const double lat = centre.lat + offset(random);
        const double lon = centre.lon + offset(random);
        places.emplace_back(lat, lon, centre.h + height(random));
    }
    return places;
}
