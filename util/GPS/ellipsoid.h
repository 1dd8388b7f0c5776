#pragma once

#include "util/export.h"

/// @file
/// Positions on and around the WGS-84 ellipsoid (NIMA TR8350.2): a = 6378137.0 m, e2 = 0.0066943799901413.
///
/// Everywhere: latitude and longitude in radians, north and east positive, any turn; heights in metres above
/// the ellipsoid; earth-centred, earth-fixed coordinates in metres (z towards the north pole, x towards
/// latitude 0, longitude 0). Nothing is checked and nothing fails: what is not a number goes in and comes
/// out. No state: any thread at any time.

/// Geodetic to earth-centred coordinates, closed form.
///
/// @param[out] x, y, z  metres
/// @see EPSG:9602 (IOGP 373-7-2, geographic/geocentric conversions)
QUARVEL_EXPORT void Geo2Decart(double lat, double lon, double h, double& x, double& y, double& z);

/// Earth-centred to geodetic coordinates, by at most ten corrections from the geocentric start.
///
/// Stops after the first correction below 1 cm (the latitude's share taken on the radius a), which leaves
/// less than 0.1 mm from 5000 km off the centre outwards. Deeper inside, the corrections shrink more slowly,
/// and within some 300 km of the centre many points never settle: the tenth estimate is then the answer.
///
/// @param[out] lat  -pi/2 to pi/2, to rounding; nearer than those 300 km to the centre anything, and at the
///                  centre itself, like h, not a number
/// @param[out] lon  atan2(y, x), 0 on the axis
/// @param[out] h    metres
QUARVEL_EXPORT void Decart2Geo(double x, double y, double z, double& lat, double& lon, double& h);

/// The same for three coordinates x, y, z in an array.
QUARVEL_EXPORT void Decart2Geo(double const* xyz, double& lat, double& lon, double& h);

/// Flat-earth metres about latitude 0, longitude 0, the earth taken as a sphere of radius a.
///
/// @param[out] east   lon * a * cos(lat), metres
/// @param[out] north  lat * a, metres
QUARVEL_EXPORT void Geo2Local(double lat, double lon, double& east, double& north);

/// Normal gravity in m/s2: the sea-level formula of the Geodetic Reference System 1980 (H. Moritz, Journal of
/// Geodesy 74, 2000) with a linear free-air term, which takes off 0.0030877 for each kilometre of height.
QUARVEL_EXPORT double getLocalGravity(double lat, double h);
