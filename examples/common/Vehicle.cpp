#include "examples/common/Vehicle.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double WHEELBASE = 2.8;
constexpr double MAX_WHEEL_DEG = 35.0;
constexpr double MAX_WHEEL_RATE_DEG = 25.0;  // a second
constexpr double WHEEL_SENSOR_OFF_DEG = 0.7; // what the integral of the controller is there for
constexpr double ANTENNA_AHEAD = 1.2;        // metres before the rear axle
constexpr double ANTENNA_ABOVE = 2.9;        // metres above the ground
constexpr int SUBSTEPS = 10;                 // a receiver interval; at 3 m/s one is 3 cm of the way
constexpr double SLOW_S = 60.0;              // correlation time of multipath
constexpr double SIGMA_SLOW = 0.007;         // metres, each horizontal axis
constexpr double SIGMA_WHITE = 0.004;        // metres, each horizontal axis
constexpr double VERTICAL = 1.8;             // heights are that much worse
constexpr double TURN = 6.283185307179586;

} // namespace

Vehicle::Vehicle(const PointLLH& a, const PointLLH& b, std::uint32_t seed) : line(a, b), random(seed)
{
    const double line_heading = line.ab_heading() * RADIANS_PER_DEGREE;
    north = -START_XTRACK * std::sin(line_heading);
    east = START_XTRACK * std::cos(line_heading);
    heading = line_heading + START_OFF_DEG * RADIANS_PER_DEGREE;
    slow_error = {SIGMA_SLOW * gaussian(), SIGMA_SLOW * gaussian(), VERTICAL * SIGMA_SLOW * gaussian()};
}

Fix Vehicle::measure()
{
    Fix fix;
    fix.time_s = time_s;
    fix.quality = Quality::rtk_fixed;
    const double n =
        north + ANTENNA_AHEAD * std::cos(heading) + error(slow_error[0], SIGMA_SLOW, SIGMA_WHITE);
    const double e = east + ANTENNA_AHEAD * std::sin(heading) + error(slow_error[1], SIGMA_SLOW, SIGMA_WHITE);
    const double up = ANTENNA_ABOVE + error(slow_error[2], VERTICAL * SIGMA_SLOW, VERTICAL * SIGMA_WHITE);
    line.convLocal2LLH(n, e, -up, &fix.position.lat, &fix.position.lon, &fix.position.height);
    return fix;
}

void Vehicle::drive(double steering_deg)
{
    constexpr double STEP_S = INTERVAL_S / SUBSTEPS;
    const double wanted_deg = std::clamp(steering_deg, -MAX_WHEEL_DEG, MAX_WHEEL_DEG);
    for (int i = 0; i < SUBSTEPS; ++i) {
        const double most_deg = MAX_WHEEL_RATE_DEG * STEP_S;
        wheel_deg += std::clamp(wanted_deg - wheel_deg, -most_deg, most_deg);
        const double wheel = (wheel_deg + WHEEL_SENSOR_OFF_DEG) * RADIANS_PER_DEGREE;
        heading += SPEED * STEP_S * std::tan(wheel) / WHEELBASE;
        north += SPEED * STEP_S * std::cos(heading);
        east += SPEED * STEP_S * std::sin(heading);
    }
    time_s += INTERVAL_S;
}

double Vehicle::true_xtrack()
{
    return line.ab_xtrack({north, east});
}

double Vehicle::error(double& slow, double sigma_slow, double sigma_white)
{
    // First-order Gauss-Markov process; this keeps its variance at sigma_slow squared.
    const double keep = std::exp(-INTERVAL_S / SLOW_S);
    slow = keep * slow + sigma_slow * std::sqrt(1.0 - keep * keep) * gaussian();
    return slow + sigma_white * gaussian();
}

double Vehicle::gaussian()
{
    // Box-Muller by hand: std::normal_distribution is another sequence in every standard library.
    const double u = (static_cast<double>(random()) + 0.5) / 4294967296.0;
    const double v = (static_cast<double>(random()) + 0.5) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(TURN * v);
}
