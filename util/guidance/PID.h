#pragma once

#include "util/export.h"

#include <cstdio>

/// A proportional-integral-derivative controller in single precision, its integral and its output clamped,
/// with an optional trace line a step.
///
/// It keeps no time: the caller steps it at a fixed rate, so that ki and kd carry the step. The derivative
/// term is taken from rates that the caller passes, not from successive errors. Nothing is checked: what is
/// not a number passes through, and an integral that is none stays so until reset().
///
/// A controller belongs to one thread.
class QUARVEL_EXPORT PID {
public:
    /// Gains and limits of a controller that does nothing: its output is 0 until init() says otherwise.
    /// @{
    static constexpr float KP_DEFAULT = 0.0F;
    static constexpr float KI_DEFAULT = 0.0F;
    static constexpr float KD_DEFAULT = 0.0F;
    static constexpr float I_MAX_DEFAULT = 0.0F;
    static constexpr float OUT_MIN_DEFAULT = 0.0F;
    static constexpr float OUT_MAX_DEFAULT = 0.0F;
    /// @}

    /// The parts of one step.
    struct Result {
        float p;   ///< proportional term
        float i;   ///< the integral after this step
        float d;   ///< derivative term
        float out; ///< the clamped output
    };

    /// Sets gains and limits (see init()) and no trace; the name is left unset until set_logger().
    PID(float kp, float ki, float kd, float i_limit, float out_min, float out_max);

    /// Deliberate: leaves every member unset. Call init() and set_logger() before the first control().
    PID();

    /// Sets gains and limits and clears the integral.
    ///
    /// @param ki       applied to the error at every step and summed
    /// @param i_limit  the integral stays within -i_limit to i_limit
    /// @param out_min, out_max  limits of the output; out_min wins when they cross
    void init(float kp, float ki, float kd, float i_limit, float out_min, float out_max);

    /// Clears the integral.
    void reset();

    /// Changes kp alone, from the next step on.
    void set_kp(float kp);

    /// Sets where the trace goes.
    ///
    /// @param log   stays the caller's and open as long as it is set; null for no trace
    /// @param name  the label in each line, cut to 19 characters; never null
    void set_logger(FILE* log, char const* name);

    /// One step: clamp(integral + (target - actual) * kp + (target_rate - actual_rate) * kd).
    ///
    /// The trace line is "PID:name:ms,target,actual,target_rate,actual_rate,kp,ki,kd,p,i,d,out\r\n", ms
    /// being the milliseconds into the UTC day, every other number with three decimals; nothing is flushed.
    ///
    /// @param[out] result  may be null
    /// @return the output
    float control(float target, float actual, float target_rate, float actual_rate, PID::Result* result);

private:
    void trace(float target, float actual, float target_rate, float actual_rate, const Result& step) const;

    float kp;
    float ki;
    float kd;
    float i_limit;
    float out_min;
    float out_max;
    float integral;
    FILE* log;
    char name[20];
};
