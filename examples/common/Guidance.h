#pragma once

#include "examples/common/Fix.h"
#include "platform/Math2D.h"
#include "util/guidance/Mini_PP.h"
#include "util/guidance/PID.h"
#include "util/log/Log_item_priority.h"
#include "util/log/Log_item_source.h"

#include <cstdio>
#include <deque>
#include <string>

/// One turn of the cycle: what came in, what was made of it, what goes out.
///
/// Signs: across the line is positive to the right looking from A to B; a heading is clockwise from north;
/// steering is positive to the right. So a vehicle right of its line is asked for a negative steering angle.
struct Epoch {
    Fix fix;
    Math2D::Point local;       ///< north and east of A, metres
    double xtrack = 0.0;       ///< metres off the line
    double atrack = 0.0;       ///< metres along the line from A
    double heading_deg = 0.0;  ///< over the ground, 0 to 360; the last known one while at rest
    double speed = 0.0;        ///< metres a second, 0 at rest
    double steering_deg = 0.0; ///< asked of the front wheels

    /// The distance off the line that the figures judge: in the simulation the true one of the rear axle, of
    /// a recorded drive the measured one.
    double judged_xtrack = 0.0;
    bool counted = false; ///< whether it lies in the window that the figures are taken over
};

/// The controller's settings; as built, they suit the simulated vehicle (see Guidance.cpp).
struct Gains {
    double kp_deg = 17.8;          ///< degrees a metre
    double ki_deg = 2.0;           ///< degrees a metre and second of time
    double kd_deg = 35.7;          ///< degrees a metre a second
    double max_integral_deg = 5.0; ///< what the integral may come to, either way
    double max_steering_deg = 35.0;
};

/// The cycle: receiver position in, steering angle out, events to the log. For one thread.
class Guidance {
public:
    static constexpr double MAX_STEERING_DEG = 35.0;

    /// @param interval_s  the time from fix to fix: the controller is stepped once a fix
    /// @param trace       takes the controller's trace, one line a fix; outlives this
    Guidance(const PointLLH& a, const PointLLH& b, double interval_s, FILE* trace);

    /// From now on every event goes to the central sender as well, which outlives this.
    void forward_logs_to(Util::Log_item_sender& central) const;

    Epoch step(const Fix& fix);

    /// From the next step on along another line; the steering's integral is cleared.
    void set_line(const PointLLH& a, const PointLLH& b);

    /// From the next step on along a parallel, so many metres to the right of the line.
    void set_offset(double metres) { offset = metres; }

    /// From the next step on; the integral is cleared, unless kp alone is another.
    void set_gains(const Gains& changed);
    const Gains& gains() const { return tuning; }

    /// The time from fix to fix, where it is known only while they come; the integral is cleared.
    void set_interval_s(double fix_interval_s);

    /// Where the controller's trace goes from now on, or null.
    void set_trace(FILE* trace) { pid.set_logger(trace, "xtrack"); }

    /// Clears the steering's integral.
    void reset() { pid.reset(); }

private:
    void init_controller();
    void observe_motion(Epoch& epoch);
    double steer(const Epoch& epoch);
    void log_receiver(const Fix& fix);
    void log_line(const Epoch& epoch);
    void log_steering(const Epoch& epoch);

    struct Place {
        double time_s;
        Math2D::Point local;
    };

    Mini_PP line;
    Gains tuning;
    PID pid;
    double interval_s;
    double offset = 0.0;     ///< of what is followed, to the right of the line, metres
    std::deque<Place> trail; ///< the latest metre of the way, oldest first
    double last_heading_deg;
    Fix last_fix;
    bool started = false;
    bool on_line = false;
    bool at_limit = false;

    // One source for each part of the program that has something to say.
    Util::Log_item_source receiver_log;
    Util::Log_item_source line_log;
    Util::Log_item_source steering_log;
};

/// An epoch as a line of text for people and programs: words of the form name=value, and a line end.
std::string telemetry_line(const Epoch& epoch);

/// "RTK fixed" and the like.
const char* name(Quality quality);

/// Submits one item through its source.
void submit(const Util::Log_item_source& source, Util::Log_item_priority priority, const std::string& message,
            int code_line);

/// printf into a string, of at most 511 characters.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
