#pragma once

#include "util/export.h"

#include <cstdint>

/// Directions, offsets, positions and times: plain values, each for one thread at a time.
namespace GPS {

/// A direction in the horizontal plane, in radians: 0 along y, a quarter turn along x.
struct QUARVEL_EXPORT Heading {
    double radians = 0.0; ///< any turn; clockwise, where y is north

    Heading() = default;
    /// @param angle  radians, not wrapped
    Heading(double angle) : radians(angle) {} // NOLINT(google-explicit-constructor): an angle is a heading

    /// Wraps the angle into [-pi, pi], both ends included, one turn a step.
    ///
    /// @param max_steps  how many turns at most; with fewer than it takes, the angle stays outside
    void standardify(unsigned short max_steps);
};

/// An angle above the horizontal, in radians.
struct QUARVEL_EXPORT Elevation {
    double radians = 0.0; ///< negative below the horizontal; not wrapped

    Elevation() = default;
    /// @param angle  radians
    Elevation(double angle) : radians(angle) {} // NOLINT(google-explicit-constructor)
};

/// An offset in metres: x and y along the first and second local axis, z up.
///
/// Offsets made in different ways do not add up: from a distance and a compass heading, y is north and x is
/// east; as the difference of two global points, x is north and y is east.
struct QUARVEL_EXPORT Local_point {
    double x = 0.0; ///< metres, along the first axis
    double y = 0.0; ///< metres, along the second axis
    double z = 0.0; ///< metres, up

    Local_point() = default;
    Local_point(double x_m, double y_m, double z_m) : x(x_m), y(y_m), z(z_m) {} ///< all in metres

    /// The offset `distance` metres away in a direction.
    Local_point(double distance, GPS::Heading h, GPS::Elevation e);

    /// The same on the level.
    Local_point(double distance, GPS::Heading h);

    /// The length of the horizontal part, metres.
    double distance_2d();

    /// The whole length, metres.
    double distance_3d();

    /// By component, for two offsets along the same axes.
    /// @{
    Local_point operator+(GPS::Local_point other);
    Local_point operator-(GPS::Local_point other);
    /// @}
};

/// An earth-centred, earth-fixed position in metres, laid out like Point3D.
struct QUARVEL_EXPORT Global_point {
    double x = 0.0; ///< metres, towards latitude 0, longitude 0
    double y = 0.0; ///< metres, towards latitude 0, longitude 90 east
    double z = 0.0; ///< metres, towards the north pole

    Global_point() = default;
    Global_point(double x_m, double y_m, double z_m) : x(x_m), y(y_m), z(z_m) {} ///< all in metres

    /// This point as seen from `origin`: x north and y east on the plane through the origin, z the
    /// difference of the two heights above the ellipsoid (so not the plane's own third axis).
    ///
    /// Good to a tenth of a millimetre, which a point's difference from itself may show too. An origin less
    /// than 1000 m from the earth's centre has no such plane: x and y are then 0.
    Local_point operator-(GPS::Global_point origin);
};

/// A GPS time: week number and milliseconds into the week.
struct QUARVEL_EXPORT Time {
    std::int32_t week = 0; ///< since 1980-01-06, or modulo 1024 as it is broadcast; may be negative
    std::int32_t ms = 0;   ///< into the week, 0 to 604799999 in a positive standard time

    Time() = default;
    /// Takes both as they are; see standardify().
    Time(std::int32_t week_number, std::int32_t ms_of_week) : week(week_number), ms(ms_of_week) {}

    /// Moves whole weeks between `week` and `ms`, the sum of both kept, towards at most 604799999 ms of
    /// the week's own sign (of either sign in week 0).
    ///
    /// @param max_passes  the budget. Each pass over the value takes one, needed or not, and so does each
    ///        week moved up out of a non-negative time; once it is spent the value stays as it then is.
    ///        0 changes nothing; a small number, such as 5, is enough for times within a few weeks. The week
    ///        must not be at either end of its range.
    void standardify(unsigned int max_passes);

    /// The week that the satellites broadcast now: its number modulo 1024, by the platform's clock.
    ///
    /// Deliberate: no leap seconds are applied, so the week turns by their count too late.
    /// @see IS-GPS-200, 20.3.3.3.1.1 (transmission week number)
    static int get_current_gps_week();
};

} // namespace GPS
