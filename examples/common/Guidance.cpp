#include "examples/common/Guidance.h"

#include "util/log/Log_item.h"
#include "util/log/Log_item_sender.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>

namespace {

using Priority = Util::Log_item_priority;

// The gains as built follow from how a vehicle of wheelbase L turns at speed v: a steering angle s moves it
// across the line with the acceleration s * v * v / L (small angles, radians). Steering by
// -(kp * x + kd * dx/dt) makes this a damped oscillator with w * w = kp * v * v / L and
// 2 * w = kd * v * v / L when critically damped. For L = 2.8 m, v = 3 m/s and w = 1 rad/s, which leaves 5 %
// of an offset after some 5 s, that is 17.8 degrees a metre and 35.7 degrees a metre a second.
//
// The integral takes out what holds the vehicle off the line for good, such as a wheel sensor that is not
// centred: slowly, within some kp / ki = 9 s, and no more than can be wrong with a sensor.
//
// Farther out the integral would only wind up on the way in, and carry the vehicle across the line.
constexpr double INTEGRATE_WITHIN = 0.3; // metres

// Far from the line kp * x would ask for circles: the error handed to the controller is held at the one that
// balances the rate of an approach at this angle.
constexpr double APPROACH_DEG = 30.0;

// The heading comes from two positions a metre apart: with a centimetre of noise it is good to a degree.
// Who needs longer than this for it is at rest.
constexpr double HEADING_BASE = 1.0; // metres
constexpr double REST_S = 2.0;

constexpr double ON_LINE = 0.10;  // metres
constexpr double OFF_LINE = 0.30; // wider than ON_LINE, so that noise does not make an event

PID make_pid(const Gains& gains, double interval_s, FILE* trace)
{
    PID pid(static_cast<float>(gains.kp_deg), static_cast<float>(gains.ki_deg * interval_s),
            static_cast<float>(gains.kd_deg), static_cast<float>(gains.max_integral_deg),
            static_cast<float>(-gains.max_steering_deg), static_cast<float>(gains.max_steering_deg));
    pid.set_logger(trace, "xtrack");
    return pid;
}

} // namespace

Guidance::Guidance(const PointLLH& a, const PointLLH& b, double fix_interval_s, FILE* trace)
    : line(a, b), pid(make_pid(tuning, fix_interval_s, trace)), interval_s(fix_interval_s),
      last_heading_deg(line.ab_heading()),
      receiver_log("receiver", "fix", 0, Util::Log_item_source::Target_type::none),
      line_log("guidance", "line", 0, Util::Log_item_source::Target_type::none),
      steering_log("steering", "limit", 0, Util::Log_item_source::Target_type::none)
{
}

void Guidance::forward_logs_to(Util::Log_item_sender& central) const
{
    for (const Util::Log_item_source* source : {&receiver_log, &line_log, &steering_log})
        source->sender()->forward_to(central);
}

Epoch Guidance::step(const Fix& fix)
{
    Epoch epoch;
    epoch.fix = fix;
    log_receiver(fix);

    // 1. The receiver's position, in the plane whose centre is A: north and east, metres.
    line.convPointLLH2Local(fix.position, epoch.local.first, epoch.local.second);

    // 2. Where that is, seen from the line.
    epoch.xtrack = line.ab_xtrack(epoch.local) - offset;
    epoch.atrack = line.ab_atrack(epoch.local);
    epoch.judged_xtrack = epoch.xtrack;
    observe_motion(epoch);
    log_line(epoch);

    // 3. What the front wheels are to do about it.
    epoch.steering_deg = steer(epoch);
    log_steering(epoch);
    return epoch;
}

void Guidance::set_line(const PointLLH& a, const PointLLH& b)
{
    line = Mini_PP(a, b);
    trail.clear(); // its places are measured from the old A
    on_line = false;
    pid.reset();
}

void Guidance::set_gains(const Gains& changed)
{
    const bool only_kp = changed.ki_deg == tuning.ki_deg && changed.kd_deg == tuning.kd_deg &&
                         changed.max_integral_deg == tuning.max_integral_deg &&
                         changed.max_steering_deg == tuning.max_steering_deg;
    tuning = changed;
    if (only_kp)
        pid.set_kp(static_cast<float>(tuning.kp_deg));
    else
        init_controller();
}

void Guidance::set_interval_s(double fix_interval_s)
{
    interval_s = fix_interval_s;
    init_controller();
}

void Guidance::init_controller()
{
    pid.init(static_cast<float>(tuning.kp_deg), static_cast<float>(tuning.ki_deg * interval_s),
             static_cast<float>(tuning.kd_deg), static_cast<float>(tuning.max_integral_deg),
             static_cast<float>(-tuning.max_steering_deg), static_cast<float>(tuning.max_steering_deg));
}

/// Heading and speed over the ground, from the positions of the latest metre.
void Guidance::observe_motion(Epoch& epoch)
{
    const Place now{epoch.fix.time_s, epoch.local};
    while (!trail.empty() && now.time_s - trail.front().time_s > std::max(REST_S, 1.5 * interval_s))
        trail.pop_front();
    while (trail.size() > 1 && trail[1].local.get_distance(now.local) >= HEADING_BASE)
        trail.pop_front();
    if (!trail.empty() && trail.front().local.get_distance(now.local) >= HEADING_BASE) {
        const Place& then = trail.front();
        const double north = now.local.first - then.local.first;
        const double east = now.local.second - then.local.second;
        last_heading_deg = std::fmod(std::atan2(east, north) / RADIANS_PER_DEGREE + 360.0, 360.0);
        epoch.speed = then.local.get_distance(now.local) / (now.time_s - then.time_s);
    }
    epoch.heading_deg = last_heading_deg;
    trail.push_back(now);
}

double Guidance::steer(const Epoch& epoch)
{
    const double heading_error = (epoch.heading_deg - line.ab_heading()) * RADIANS_PER_DEGREE;
    const double xtrack_rate = epoch.speed * std::sin(heading_error);

    // The target is the line itself when it is near, else a parallel to it on the way there. At rest it is
    // where the vehicle stands: wheels are not turned on the spot.
    const double reach = tuning.kp_deg > 0.0 ? epoch.speed * std::sin(APPROACH_DEG * RADIANS_PER_DEGREE) *
                                                   tuning.kd_deg / tuning.kp_deg
                                             : 0.0;
    const double target = epoch.xtrack - std::clamp(epoch.xtrack, -reach, reach);

    if (std::fabs(epoch.xtrack) > INTEGRATE_WITHIN)
        pid.reset();
    const float out = pid.control(static_cast<float>(target), static_cast<float>(epoch.xtrack), 0.0F,
                                  static_cast<float>(xtrack_rate), nullptr);

    // Driven from B to A, turning right leads to the line's left.
    const double facing = std::cos(heading_error) < 0.0 ? -1.0 : 1.0;
    return facing * static_cast<double>(out);
}

void Guidance::log_receiver(const Fix& fix)
{
    const double gap_s = fix.time_s - last_fix.time_s;
    if (!started)
        submit(receiver_log, Priority::Info, text("first fix, %s", name(fix.quality)), __LINE__);
    else if (fix.quality != last_fix.quality)
        submit(receiver_log, fix.quality < last_fix.quality ? Priority::Caution : Priority::Info,
               text("%.2f s: %s after %s", fix.time_s, name(fix.quality), name(last_fix.quality)), __LINE__);
    if (started && gap_s > 2.5 * interval_s)
        submit(receiver_log, Priority::Warning, text("%.2f s: no fix for %.2f s", fix.time_s, gap_s),
               __LINE__);
    started = true;
    last_fix = fix;
}

void Guidance::log_line(const Epoch& epoch)
{
    const double off = std::fabs(epoch.xtrack);
    if (on_line ? off <= OFF_LINE : off > ON_LINE)
        return;
    on_line = !on_line;
    submit(line_log, on_line ? Priority::Info : Priority::Caution,
           text("%.2f s: %s the line, %+.3f m across, %.2f m along", epoch.fix.time_s, on_line ? "on" : "off",
                epoch.xtrack, epoch.atrack),
           __LINE__);
}

void Guidance::log_steering(const Epoch& epoch)
{
    const bool now_at_limit = std::fabs(epoch.steering_deg) >= tuning.max_steering_deg;
    if (now_at_limit == at_limit)
        return;
    at_limit = now_at_limit;
    submit(steering_log, at_limit ? Priority::Caution : Priority::Info,
           text("%.2f s: %s, %+.1f degrees", epoch.fix.time_s, at_limit ? "at its limit" : "free again",
                epoch.steering_deg),
           __LINE__);
}

std::string telemetry_line(const Epoch& epoch)
{
    return text(
        "t=%.2f lat=%.9f lon=%.9f h=%.3f xtrack=%+.3f atrack=%.2f heading=%.1f speed=%.2f steering=%+.1f\n",
        epoch.fix.time_s, epoch.fix.position.lat / RADIANS_PER_DEGREE,
        epoch.fix.position.lon / RADIANS_PER_DEGREE, epoch.fix.position.height, epoch.xtrack, epoch.atrack,
        epoch.heading_deg, epoch.speed, epoch.steering_deg);
}

const char* name(Quality quality)
{
    constexpr std::array<const char*, 4> NAMES = {"plain", "differential", "RTK float", "RTK fixed"};
    return NAMES.at(static_cast<std::size_t>(quality));
}

void submit(const Util::Log_item_source& source, Priority priority, const std::string& message, int code_line)
{
    source.submit(Util::Log_item(source, priority, false, 0, message, code_line, nullptr));
}

std::string text(const char* format, ...)
{
    char buffer[512];
    std::va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): version 14 overlooks the line above
    static_cast<void>(std::vsnprintf(buffer, sizeof buffer, format, arguments)); // what is too long is cut
    va_end(arguments);
    return buffer;
}
