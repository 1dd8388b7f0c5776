#pragma once

#include "examples/common/Fix.h"
#include "util/guidance/Mini_PP.h"

#include <array>
#include <cstdint>
#include <random>

/// A simulated vehicle with an RTK receiver, beside an AB line; the same seed makes the same drive.
///
/// Kinematic bicycle: the rear axle goes where the vehicle points, which turns with speed * tan(wheel angle)
/// / wheelbase. It drives on the plane that touches the ellipsoid at A, at constant speed.
class Vehicle {
public:
    static constexpr double INTERVAL_S = 0.1;      ///< the receiver's
    static constexpr double SPEED = 3.0;           ///< metres a second
    static constexpr double START_XTRACK = -6.0;   ///< metres off the line: left of it
    static constexpr double START_OFF_DEG = -25.0; ///< off the line's heading: pointing away from it

    Vehicle(const PointLLH& a, const PointLLH& b, std::uint32_t seed);

    /// What the receiver reports at this moment: the antenna, with the errors of an RTK receiver.
    Fix measure();

    /// Drives on for one interval while the wheels turn to what is asked, as fast and as far as they can.
    ///
    /// @param steering_deg  positive to the right
    void drive(double steering_deg);

    /// How far the rear axle really is off the line, metres, positive to the right.
    double true_xtrack();

private:
    /// What one axis of a receiver is off by: multipath, which comes and goes within a minute, and noise.
    double error(double& slow, double sigma_slow, double sigma_white);
    double gaussian();

    Mini_PP line;
    std::mt19937 random;
    double time_s = 0.0;
    double north = 0.0; ///< the rear axle's place, metres from A
    double east = 0.0;
    double heading = 0.0;             ///< radians clockwise from north
    double wheel_deg = 0.0;           ///< where the front wheels are
    std::array<double, 3> slow_error; ///< north, east, up
};
