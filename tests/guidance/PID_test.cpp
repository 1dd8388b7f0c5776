#include "util/guidance/PID.h"

#include "tests/support/Fake_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <type_traits>

namespace {

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr std::int64_t MIDNIGHT = 1700006400; // 2023-11-15 00:00 UTC

static_assert(sizeof(PID) == (sizeof(void*) == 4 ? 52 : 64) && sizeof(PID::Result) == 16);
static_assert(std::is_same_v<float, decltype(PID::Result::p)>);

/// A stream that can be read back.
class Trace {
public:
    Trace() : stream(open_memstream(&text, &length)) {}
    ~Trace()
    {
        std::fclose(stream);
        std::free(text);
    }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    FILE* file() { return stream; }
    std::string written()
    {
        std::fflush(stream);
        return {text, length};
    }

private:
    char* text = nullptr;
    std::size_t length = 0;
    FILE* stream;
};

std::string trace_at(std::int64_t seconds, int milliseconds, const char* name = "steer")
{
    const Fake_clock clock(seconds, milliseconds);
    Trace trace;
    PID pid(2.0F, 0.5F, 1.0F, 1.0F, -10.0F, 10.0F);
    pid.set_logger(trace.file(), name);
    pid.control(3.0F, 1.0F, 0.2F, 0.1F, nullptr);
    return trace.written();
}

PID::Result step(PID& pid, float target, float actual, float target_rate = 0.0F, float actual_rate = 0.0F)
{
    PID::Result result{};
    EXPECT_EQ(pid.control(target, actual, target_rate, actual_rate, &result), result.out);
    return result;
}

PID::Result step_to_nan(PID& pid)
{
    PID::Result result{};
    pid.control(NOT_A_NUMBER, 0.0F, 0.0F, 0.0F, &result);
    return result;
}

} // namespace

TEST(PID, defaults_are_all_zero_floats)
{
    static_assert(std::is_same_v<const float, decltype(PID::KP_DEFAULT)>);
    for (const float value : {PID::KP_DEFAULT, PID::KI_DEFAULT, PID::KD_DEFAULT, PID::I_MAX_DEFAULT,
                              PID::OUT_MIN_DEFAULT, PID::OUT_MAX_DEFAULT})
        EXPECT_EQ(0.0F, value);
}

TEST(PID, one_step_adds_the_three_terms)
{
    PID pid(2.0F, 0.5F, 1.0F, 1.0F, -10.0F, 10.0F);
    const PID::Result result = step(pid, 3.0F, 1.0F, 0.2F, 0.1F);
    EXPECT_EQ(4.0F, result.p);
    EXPECT_EQ(1.0F, result.i); // 1.0 reaches the limit
    EXPECT_EQ(0.2F - 0.1F, result.d);
    EXPECT_EQ(1.0F + 4.0F + (0.2F - 0.1F), result.out);
    EXPECT_NEAR(5.1, result.out, 1e-6);
}

TEST(PID, derivative_comes_from_the_rates_alone)
{
    PID pid(0.0F, 0.0F, 3.0F, 0.0F, -100.0F, 100.0F);
    EXPECT_EQ(0.0F, step(pid, 50.0F, -50.0F).out);
    EXPECT_EQ(-6.0F, step(pid, 0.0F, 0.0F, 1.0F, 3.0F).d);
}

TEST(PID, integral_sums_the_error_times_ki_and_stops_at_both_limits)
{
    PID pid(0.0F, 0.25F, 0.0F, 1.0F, -10.0F, 10.0F);
    for (const float expected : {0.5F, 1.0F, 1.0F})
        EXPECT_EQ(expected, step(pid, 2.0F, 0.0F).i);
    for (const float expected : {0.0F, -1.0F, -1.0F})
        EXPECT_EQ(expected, step(pid, -4.0F, 0.0F).i);
    EXPECT_EQ(-0.75F, step(pid, 1.0F, 0.0F).i); // it leaves the limit at once, with nothing stored up
}

TEST(PID, an_integral_limit_of_0_pins_it_at_0)
{
    PID pid(0.0F, 1.0F, 0.0F, 0.0F, -10.0F, 10.0F);
    const float pinned = step(pid, 5.0F, 0.0F).i;
    EXPECT_EQ(0.0F, pinned);
    EXPECT_TRUE(std::signbit(pinned)); // the lower limit, minus 0, is applied last
    EXPECT_EQ(0.0F, step(pid, -5.0F, 0.0F).i);
}

TEST(PID, with_a_negative_integral_limit_the_lower_clamp_wins)
{
    // First down to the limit -2, then, not above 2, up to 2.
    PID pid(0.0F, 1.0F, 0.0F, -2.0F, -10.0F, 10.0F);
    EXPECT_EQ(2.0F, step(pid, 5.0F, 0.0F).i);
    EXPECT_EQ(2.0F, step(pid, -5.0F, 0.0F).i);
}

TEST(PID, output_stays_within_its_limits_which_are_reached)
{
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, -2.0F, 3.0F);
    const struct {
        float target, out;
    } cases[] = {{2.5F, 2.5F}, {3.0F, 3.0F}, {3.5F, 3.0F}, {-1.5F, -1.5F}, {-2.0F, -2.0F}, {-9.0F, -2.0F}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.out, step(pid, c.target, 0.0F).out) << c.target;
        EXPECT_EQ(c.target, step(pid, c.target, 0.0F).p) << "the terms are not clamped";
    }
}

TEST(PID, an_output_equal_to_a_limit_becomes_the_limit)
{
    // Only the sign of 0 tells.
    PID upper(0.0F, 0.0F, 0.0F, 1.0F, -1.0F, -0.0F);
    EXPECT_TRUE(std::signbit(step(upper, 0.0F, 0.0F).out));
    PID lower(-1.0F, 0.0F, -1.0F, 0.0F, 0.0F, 1.0F);
    EXPECT_FALSE(std::signbit(step(lower, 0.0F, 0.0F).out));
}

TEST(PID, crossed_output_limits_give_the_minimum)
{
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, 5.0F, -5.0F);
    for (const float target : {-100.0F, -5.0F, 0.0F, 5.0F, 100.0F})
        EXPECT_EQ(5.0F, step(pid, target, 0.0F).out) << target;
}

TEST(PID, reset_clears_the_integral_and_nothing_else)
{
    PID pid(2.0F, 0.5F, 1.0F, 10.0F, -10.0F, 10.0F);
    step(pid, 4.0F, 0.0F);
    pid.reset();
    const PID::Result result = step(pid, 1.0F, 0.0F, 1.0F, 0.0F);
    EXPECT_EQ(0.5F, result.i);
    EXPECT_EQ(2.0F, result.p);
    EXPECT_EQ(1.0F, result.d);
}

TEST(PID, init_takes_the_six_values_in_order_and_clears_the_integral)
{
    PID pid(9.0F, 9.0F, 9.0F, 9.0F, -9.0F, 9.0F);
    step(pid, 1.0F, 0.0F);
    pid.init(2.0F, 0.5F, 3.0F, 0.75F, -8.0F, 6.0F);
    const PID::Result first = step(pid, 1.0F, 0.0F, 1.0F, 0.0F);
    EXPECT_EQ(2.0F, first.p);
    EXPECT_EQ(0.5F, first.i);
    EXPECT_EQ(3.0F, first.d);
    EXPECT_EQ(0.75F, step(pid, 1.0F, 0.0F).i);
    EXPECT_EQ(6.0F, step(pid, 100.0F, 0.0F).out);
    EXPECT_EQ(-8.0F, step(pid, -100.0F, 0.0F).out);
}

TEST(PID, init_keeps_the_trace)
{
    Trace trace;
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, -1.0F, 1.0F);
    pid.set_logger(trace.file(), "kept");
    pid.init(2.0F, 0.0F, 0.0F, 0.0F, -1.0F, 1.0F);
    pid.control(0.0F, 0.0F, 0.0F, 0.0F, nullptr);
    EXPECT_EQ("PID:kept:", trace.written().substr(0, 9));
}

TEST(PID, set_kp_changes_kp_alone_from_the_next_step_on)
{
    PID pid(2.0F, 0.5F, 3.0F, 10.0F, -100.0F, 100.0F);
    step(pid, 1.0F, 0.0F);
    pid.set_kp(7.0F);
    const PID::Result result = step(pid, 1.0F, 0.0F, 1.0F, 0.0F);
    EXPECT_EQ(7.0F, result.p);
    EXPECT_EQ(1.0F, result.i); // goes on from the first step
    EXPECT_EQ(3.0F, result.d);
}

TEST(PID, answers_the_same_without_a_result)
{
    PID with(2.0F, 0.5F, 1.0F, 1.0F, -10.0F, 10.0F);
    PID without = with;
    PID::Result result{};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(with.control(0.3F, 0.1F, 0.2F, 0.1F, &result),
                  without.control(0.3F, 0.1F, 0.2F, 0.1F, nullptr));
}

TEST(PID, default_construction_leaves_the_object_unset)
{
    // Deliberate: a controller is built in place over old bytes and keeps every one of them.
    alignas(PID) unsigned char memory[sizeof(PID)];
    std::memset(memory, 0xA5, sizeof memory);
    new (memory) PID();
    for (const unsigned char byte : memory)
        EXPECT_EQ(0xA5, byte);
}

TEST(PID, the_other_constructor_sets_all_but_the_name)
{
    alignas(PID) unsigned char memory[sizeof(PID)];
    std::memset(memory, 0xA5, sizeof memory);
    PID* const pid = new (memory) PID(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F);
    float values[7];
    std::memcpy(values, memory, sizeof values);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(static_cast<float>(i + 1), values[i]);
    EXPECT_EQ(0.0F, values[6]);
    const std::size_t log_at = sizeof(void*) == 4 ? 28 : 32;
    FILE* log = stderr;
    std::memcpy(&log, memory + log_at, sizeof log);
    EXPECT_EQ(nullptr, log);
    for (std::size_t i = log_at + sizeof log; i < log_at + sizeof log + 20; ++i)
        EXPECT_EQ(0xA5, memory[i]);
    pid->~PID();
}

TEST(PID, set_logger_fills_the_name_with_zeros_behind_its_end)
{
    alignas(PID) unsigned char memory[sizeof(PID)];
    std::memset(memory, 0xA5, sizeof memory);
    PID* const pid = new (memory) PID();
    pid->set_logger(nullptr, "abc");
    const unsigned char* const name = memory + (sizeof(void*) == 4 ? 32 : 40);
    EXPECT_EQ(0, std::memcmp(name, "abc", 3));
    for (int i = 3; i < 20; ++i)
        EXPECT_EQ(0, name[i]) << i;
    pid->set_logger(nullptr, "abcdefghijklmnopqrstuvwxy");
    EXPECT_EQ(0, std::memcmp(name, "abcdefghijklmnopqrs", 20));
    pid->~PID();
}

TEST(PID, traces_each_step_to_the_letter)
{
    EXPECT_EQ("PID:steer:0,3.000,1.000,0.200,0.100,2.000,0.500,1.000,4.000,1.000,0.100,5.100\r\n",
              trace_at(MIDNIGHT, 0));
}

TEST(PID, traces_the_unclamped_terms_and_the_clamped_output)
{
    const Fake_clock clock(MIDNIGHT, 1);
    Trace trace;
    PID pid(-2.0F, 0.0005F, 0.25F, 10.0F, -1.5F, 1.5F);
    pid.set_logger(trace.file(), "x");
    pid.control(-1.0F, 1.0F, 2.0F, -2.0F, nullptr);
    pid.control(1.0F, -1.0F, -2.0F, 2.0F, nullptr);
    EXPECT_EQ("PID:x:1,-1.000,1.000,2.000,-2.000,-2.000,0.001,0.250,4.000,-0.001,1.000,1.500\r\n"
              "PID:x:1,1.000,-1.000,-2.000,2.000,-2.000,0.001,0.250,-4.000,0.000,-1.000,-1.500\r\n",
              trace.written());
}

TEST(PID, traces_the_milliseconds_into_the_utc_day)
{
    const struct {
        std::int64_t seconds;
        int milliseconds;
        const char* text;
    } cases[] = {{MIDNIGHT - 1, 999, "86399999"},
                 {MIDNIGHT, 0, "0"},
                 {MIDNIGHT, 1, "1"},
                 {MIDNIGHT + 43200, 500, "43200500"},
                 {259200, 0, "0"},          // the Sunday that the weeks are counted from
                 {259199, 999, "23295999"}, // before it 32 bits wrap: 2^32 s are 49710 days and 23296 s
                 {0, 7, "23296007"},
                 {4102444800, 5, "5"}}; // 2100-01-01, past the range of a signed 32-bit clock
    for (const auto& c : cases)
        EXPECT_EQ(std::string("PID:t:") + c.text + ",3.000",
                  trace_at(c.seconds, c.milliseconds, "t").substr(0, std::strlen(c.text) + 12))
            << c.seconds;
}

TEST(PID, cuts_the_name_to_19_characters)
{
    const struct {
        const char *name, *kept;
    } cases[] = {{"abcdefghijklmnopqrstuvwxy", "abcdefghijklmnopqrs"},
                 {"abcdefghijklmnopqrst", "abcdefghijklmnopqrs"},
                 {"abcdefghijklmnopqrs", "abcdefghijklmnopqrs"},
                 {"abcdefghijklmnopqr", "abcdefghijklmnopqr"},
                 {"", ""}};
    for (const auto& c : cases)
        EXPECT_EQ(std::string("PID:") + c.kept + ":0,",
                  trace_at(MIDNIGHT, 0, c.name).substr(0, std::strlen(c.kept) + 7));
}

TEST(PID, stops_tracing_when_the_stream_is_taken_away)
{
    Trace trace;
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, -1.0F, 1.0F);
    pid.control(1.0F, 0.0F, 0.0F, 0.0F, nullptr); // no stream from the start
    pid.set_logger(trace.file(), "t");
    pid.control(1.0F, 0.0F, 0.0F, 0.0F, nullptr);
    const std::string one_line = trace.written();
    pid.set_logger(nullptr, "t");
    pid.control(1.0F, 0.0F, 0.0F, 0.0F, nullptr);
    EXPECT_EQ(one_line, trace.written());
    EXPECT_FALSE(one_line.empty());
}

TEST(PID, leaves_flushing_to_the_stream)
{
    char buffer[4096] = {};
    FILE* const null = std::fopen("/dev/null", "w");
    ASSERT_EQ(0, std::setvbuf(null, buffer, _IOFBF, sizeof buffer));
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, -1.0F, 1.0F);
    pid.set_logger(null, "t");
    pid.control(1.0F, 0.0F, 0.0F, 0.0F, nullptr);
    EXPECT_EQ(0, std::memcmp(buffer, "PID:t:", 6)); // still in the buffer
    std::fclose(null);
}

TEST(PID, what_is_not_a_number_passes_through)
{
    PID pid(1.0F, 1.0F, 1.0F, 1.0F, -1.0F, 1.0F);
    const PID::Result result = step_to_nan(pid);
    EXPECT_TRUE(std::isnan(result.p));
    EXPECT_TRUE(std::isnan(result.i));
    EXPECT_EQ(0.0F, result.d);
    EXPECT_TRUE(std::isnan(result.out));
}

TEST(PID, an_undefined_integral_stays_until_reset)
{
    PID pid(1.0F, 1.0F, 1.0F, 1.0F, -1.0F, 1.0F);
    step_to_nan(pid);
    PID::Result result{};
    pid.control(0.5F, 0.0F, 0.0F, 0.0F, &result);
    EXPECT_TRUE(std::isnan(result.i));
    EXPECT_EQ(0.5F, result.p);
    EXPECT_TRUE(std::isnan(result.out));
    pid.reset();
    EXPECT_EQ(1.0F, step(pid, 0.5F, 0.0F).out);
}

TEST(PID, computes_in_single_precision_like_a_plain_reading)
{
    std::mt19937 random(31);
    std::uniform_real_distribution<float> value(-3.0F, 3.0F);
    PID pid(1.7F, 0.013F, 0.31F, 0.9F, -2.5F, 2.25F);
    float integral = 0.0F;
    for (int i = 0; i < 20000; ++i) {
        const float target = value(random);
        const float actual = value(random);
        const float target_rate = value(random);
        const float actual_rate = value(random);
        const volatile float error = target - actual; // volatile: every step rounded to single precision
        const volatile float increment = error * 0.013F;
        const volatile float sum = integral + increment;
        integral = sum >= 0.9F ? 0.9F : (sum <= -0.9F ? -0.9F : sum);
        const volatile float p = error * 1.7F;
        const volatile float rate = target_rate - actual_rate;
        const volatile float d = rate * 0.31F;
        const volatile float ip = integral + p;
        const volatile float out = ip + d;
        const PID::Result result = step(pid, target, actual, target_rate, actual_rate);
        ASSERT_EQ(p, result.p) << "step " << i;
        ASSERT_EQ(integral, result.i) << "step " << i;
        ASSERT_EQ(d, result.d) << "step " << i;
        ASSERT_EQ(out >= 2.25F ? 2.25F : (out <= -2.5F ? -2.5F : out), result.out) << "step " << i;
    }
}
