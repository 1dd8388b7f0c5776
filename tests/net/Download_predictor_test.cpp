#include "util/net/Download_predictor.h"

#include "tests/support/Allocations.h"
#include "tests/support/Debug_output.h"
#include "tests/support/Fake_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

static_assert(std::is_aggregate_v<Download_predictor> && std::is_standard_layout_v<Download_predictor>);

constexpr std::int64_t TUESDAY = 1700006400 - 86400; // 2023-11-14 00:00 UTC
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr unsigned ENDLESS = 4294967295;

/// A transfer on a clock of its own.
class Transfer {
public:
    explicit Transfer(int warmup_seconds = 0)
    {
        predictor.start_time = predictor.last_time = Atime::now();
        predictor.warmup_seconds = warmup_seconds;
    }

    double report_after(std::int64_t ms, unsigned done, unsigned total)
    {
        clock.advance(ms);
        return predictor.get_estimate_seconds(done, total);
    }
    int minutes_after(std::int64_t ms, unsigned done, unsigned total)
    {
        clock.advance(ms);
        return predictor.get_estimate(done, total);
    }

    Fake_monotonic_clock clock{5000};
    Download_predictor predictor{};
};

std::vector<double> samples(const Download_predictor& predictor)
{
    return {predictor.history, predictor.history + predictor.history_count};
}

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text(const char* format, ...)
{
    char shown[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(shown, sizeof shown, format, arguments);
    va_end(arguments);
    return shown;
}

/// What is undefined may carry a sign, which says nothing.
std::string without_signs_of_nan(std::string s)
{
    for (std::size_t at = s.find("-nan"); at != std::string::npos; at = s.find("-nan"))
        s.erase(at, 1);
    return s;
}

/// The same prediction, from all that was ever reported.
class Model {
public:
    Model(std::int64_t start_wall_ms, int warmup_seconds) : started(start_wall_ms), warmup(warmup_seconds) {}

    double report(std::int64_t wall_ms, unsigned done, unsigned total)
    {
        const std::int64_t interval = wall_ms - (reports == 0 ? started : last_wall);
        said = text("get_estimate(%u / %u) %" PRId64 "\n", done, total, interval) + "## TIME: start_time(" +
               week_time(started) + "), cur_time(" + week_time(wall_ms) + ")\n";
        last_wall = wall_ms;
        // Modulo 2^32 the step with the sign: the one within half of it.
        auto step = static_cast<std::int64_t>(done) - last_done;
        step += step < -2147483648LL ? 4294967296LL : step >= 2147483648LL ? -4294967296LL : 0;
        last_done = done;
        ++reports;
        const double rate = static_cast<double>(step) / (static_cast<double>(interval) / 1000.0);
        if (rates.size() == 20)
            rates.pop_back();
        rates.push_back(rate);

        const std::int64_t ms = wall_ms - started;
        const double seconds = static_cast<double>(ms) / 1000.0;
        if (warmup > 0 && seconds < warmup) {
            said +=
                text("Not ready yet (elapsedr_ ms = %" PRId64 ") elapsed=%f, other=%" PRId64 ".000000...\n",
                     ms, seconds, ms / 1000);
            return -1.0;
        }
        return estimate(step, done / seconds, total - done);
    }

    std::vector<double> rates;
    std::string said; ///< about the latest report

private:
    double estimate(std::int64_t step, double overall, unsigned left)
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < rates.size(); ++i)
            sum += static_cast<double>(i + 1) * rates[i];
        const double n = static_cast<double>(rates.size());
        const double weights = n * (n + 1) / 2;
        const double recent = sum / weights;
        const double overall_weight = std::floor(static_cast<double>(reports) / n);
        const double rate = (overall * overall_weight + recent * 3.0) / (overall_weight + 3.0);
        const std::size_t held = rates.size();
        if (held == 20) {
            rates.push_back(rates.back());
            rates.erase(rates.begin());
        }
        said += text("transfered_this_interval = %" PRId64 "\n", step) +
                text("    weighted_average   = %f\n", recent) +
                text("       weighted_count  = %f\n", weights) + text("       weighted_sum    = %f\n", sum) +
                text("    overall_avg        = %f\n", overall) +
                text("    overall_avg_weight = %f\n", overall_weight) +
                text("    weighted_transfer_rate = %f\n", rate) +
                text("    history_count      = %zu\n", held) + "    {";
        for (std::size_t i = 0; i + 1 < held; ++i)
            said += text("%f, ", rates[i]);
        said += "    }\n";
        return left / rate;
    }

    static std::string week_time(std::int64_t wall_ms)
    {
        // Weeks are told from a Thursday, the milliseconds from a Sunday.
        std::int64_t sunday = 259200000;
        sunday += (wall_ms - sunday) / 604800000 * 604800000;
        return text("%" PRId64 ", %" PRId64, wall_ms / 604800000, wall_ms - sunday);
    }

    std::int64_t started;
    std::int64_t last_wall = 0;
    int warmup;
    std::int64_t last_done = 0;
    std::int64_t reports = 0;
};

} // namespace

TEST(Download_predictor, is_all_zero_until_someone_starts_it)
{
    const Download_predictor predictor{};
    EXPECT_EQ(0U, predictor.history_count);
    EXPECT_EQ(0U, predictor.last_done);
    EXPECT_EQ(0U, predictor.report_count);
    EXPECT_EQ(0, predictor.warmup_seconds);
    EXPECT_FALSE(predictor.debug);
    EXPECT_TRUE(
        std::all_of(predictor.history, predictor.history + 20, [](double rate) { return rate == 0; }));
}

TEST(Download_predictor, a_steady_transfer_takes_what_is_left_by_its_rate)
{
    Transfer transfer;
    for (unsigned i = 1; i <= 60; ++i)
        EXPECT_DOUBLE_EQ((100000.0 - 500.0 * i) / 250.0, transfer.report_after(2000, 500 * i, 100000)) << i;
    EXPECT_EQ(60U, transfer.predictor.report_count);
    EXPECT_EQ(30000U, transfer.predictor.last_done);
}

TEST(Download_predictor, weighs_recent_samples_as_three_reports_and_the_overall_average_as_one)
{
    Transfer transfer;
    // Samples 100 and 400: (100 + 2 * 400) / 3 = 300. Overall 500 bytes in 2 s: 250.
    // Two reports, two samples.
    EXPECT_DOUBLE_EQ(900.0 / 100.0, transfer.report_after(1000, 100, 1000));
    EXPECT_DOUBLE_EQ(500.0 / ((250.0 * 1 + 300.0 * 3) / 4), transfer.report_after(1000, 500, 1000));
}

TEST(Download_predictor, weighs_the_overall_average_by_the_whole_histories_reported)
{
    // 39 reports of nothing, then one of 400 bytes: the one weighs 20 of 210, the average over 40 s weighs 2.
    Transfer transfer;
    for (int i = 0; i < 38; ++i)
        transfer.report_after(1000, 0, 10000);
    Download_predictor one_fewer = transfer.predictor;
    const double recent = 400.0 * 20 / 210;
    transfer.clock.advance(1000);
    EXPECT_DOUBLE_EQ(9600.0 / ((400.0 / 39 * 1 + recent * 3) / 4),
                     one_fewer.get_estimate_seconds(400, 10000));
    transfer.predictor.get_estimate_seconds(0, 10000);
    EXPECT_DOUBLE_EQ(9600.0 / ((400.0 / 40 * 2 + recent * 3) / 5), transfer.report_after(1000, 400, 10000));
}

TEST(Download_predictor, keeps_the_last_20_samples_and_a_copy_of_the_newest_in_the_free_slot)
{
    Transfer transfer;
    unsigned done = 0;
    for (unsigned rate = 1; rate <= 25; ++rate) {
        transfer.report_after(1000, done += rate, ENDLESS);
        std::vector<double> expected;
        for (unsigned kept = rate < 20 ? 1 : rate - 18; kept <= rate; ++kept)
            expected.push_back(kept);
        if (rate >= 20)
            expected.push_back(rate);
        EXPECT_EQ(expected, samples(transfer.predictor)) << rate;
        EXPECT_EQ(std::min(rate, 20U), transfer.predictor.history_count);
    }
    // The 25th took rates 6 to 25, weighing 1 to 20.
    Transfer again;
    done = 0;
    for (unsigned rate = 1; rate < 25; ++rate)
        again.report_after(1000, done += rate, ENDLESS);
    double sum = 0;
    for (int weight = 1; weight <= 20; ++weight)
        sum += weight * (weight + 5);
    done += 25;
    EXPECT_DOUBLE_EQ((ENDLESS - done) / ((done / 25.0 + sum / 210 * 3) / 4),
                     again.report_after(1000, done, ENDLESS));
}

TEST(Download_predictor, declines_while_warming_up_and_records_all_the_same)
{
    Transfer transfer(10);
    for (unsigned i = 1; i <= 4; ++i)
        EXPECT_EQ(-1.0, transfer.report_after(2000, 100 * i, 1000));
    EXPECT_EQ(0, transfer.minutes_after(1999, 500, 1000)); // 9.999 s
    EXPECT_EQ((std::vector<double>{50, 50, 50, 50, 100 / 1.999}), samples(transfer.predictor));
    EXPECT_EQ(5U, transfer.predictor.report_count);
    EXPECT_GT(transfer.report_after(1, 501, 1000), 0.0);
}

TEST(Download_predictor, a_warm_up_that_is_not_positive_is_none)
{
    for (const int seconds : {0, -1, INT_MIN})
        EXPECT_EQ(9.0, Transfer(seconds).report_after(1000, 100, 1000)) << seconds;
    Transfer early;
    early.clock.advance(60000);
    early.predictor.start_time = early.predictor.last_time = Atime::now();
    EXPECT_DOUBLE_EQ(-61.0, early.report_after(-61000, 1, 2)); // before its start, at a negative rate
    EXPECT_EQ(-1.0, Transfer(1).report_after(999, 100, 1000));
    EXPECT_EQ(-1.0, Transfer(INT_MAX).report_after(1000, 100, 1000));
}

TEST(Download_predictor, a_long_warm_up_replaces_the_last_sample_only)
{
    Transfer transfer(25);
    unsigned done = 0;
    for (unsigned rate = 1; rate <= 24; ++rate)
        EXPECT_EQ(-1.0, transfer.report_after(1000, done += rate, ENDLESS));
    std::vector<double> expected;
    for (unsigned rate = 1; rate <= 19; ++rate)
        expected.push_back(rate);
    expected.push_back(24);
    EXPECT_EQ(expected, samples(transfer.predictor));
    transfer.report_after(1000, done + 25, ENDLESS); // the first estimate shifts
    expected.erase(expected.begin());
    expected.back() = 25;
    expected.push_back(25);
    EXPECT_EQ(expected, samples(transfer.predictor));
}

TEST(Download_predictor, minutes_are_those_begun)
{
    const struct {
        unsigned left;
        int minutes;
    } cases[] = {{0, 1}, {59, 1}, {60, 2}, {61, 2}, {119, 2}, {120, 3}, {3600, 61}};
    for (const auto& c : cases)
        EXPECT_EQ(c.minutes, Transfer().minutes_after(1000, 1, c.left + 1)) << c.left;
}

TEST(Download_predictor, minutes_of_a_negative_rate_are_cut_towards_zero)
{
    // One byte back in a second and none since the start: minus three quarters of a byte a second.
    for (const auto& [left, minutes] :
         {std::pair{44U, 0}, {45U, 0}, {89U, 0}, {90U, -1}, {134U, -1}, {135U, -2}}) {
        Transfer transfer;
        transfer.predictor.last_done = 1;
        EXPECT_EQ(minutes, transfer.minutes_after(1000, 0, left)) << left;
    }
}

TEST(Download_predictor, minutes_stay_within_an_int)
{
    EXPECT_EQ(INT_MAX, Transfer().minutes_after(1000, 0, 1000)); // infinite
    EXPECT_EQ(0, Transfer().minutes_after(1000, 0, 0));          // undefined
    EXPECT_EQ(0, Transfer().minutes_after(0, 0, 1000));
    Transfer slow;
    EXPECT_EQ(INT_MAX, slow.minutes_after(1000000000000, 1, ENDLESS)); // 10^9 s a byte
    Transfer back;
    back.predictor.last_done = 1;
    EXPECT_EQ(INT_MIN, back.minutes_after(1000000000000, 0, ENDLESS));
}

TEST(Download_predictor, a_transfer_that_stands_still_takes_infinitely_long)
{
    Transfer transfer;
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(INFINITE, transfer.report_after(1000, 0, 1000));
}

TEST(Download_predictor, two_reports_at_once_pass_an_infinite_rate_through)
{
    Transfer transfer;
    transfer.report_after(1000, 100, 1000);
    EXPECT_EQ(0.0, transfer.report_after(0, 200, 1000));
    EXPECT_EQ(INFINITE, transfer.predictor.history[1]);
    EXPECT_EQ(0.0, transfer.report_after(1000, 300, 1000)); // as long as the sample is held
    for (int i = 0; i < 17; ++i)
        transfer.report_after(1000, 300, 1000);
    EXPECT_TRUE(std::isinf(transfer.predictor.history[0]));
    EXPECT_EQ(0.0, transfer.report_after(1000, 300, 1000));
    EXPECT_TRUE(std::isfinite(transfer.predictor.history[0]));
    EXPECT_GT(transfer.report_after(1000, 400, 1000), 0.0);
}

TEST(Download_predictor, nothing_in_no_time_passes_through_undefined)
{
    Transfer transfer;
    EXPECT_TRUE(std::isnan(transfer.report_after(0, 0, 1000)));
    EXPECT_TRUE(std::isnan(transfer.predictor.history[0]));
    EXPECT_TRUE(std::isnan(transfer.report_after(1000, 100, 1000)));
    Transfer backwards;
    backwards.predictor.last_done = 7;
    EXPECT_TRUE(std::isnan(backwards.report_after(0, 5, 1000))); // infinite both ways
    EXPECT_EQ(-INFINITE, backwards.predictor.history[0]);
}

TEST(Download_predictor, a_step_back_is_a_negative_rate)
{
    Transfer transfer;
    transfer.report_after(1000, 500, 1000);
    transfer.report_after(1000, 300, 1000);
    transfer.report_after(1000, 4294967295, 1000);
    transfer.report_after(1000, 2147483647, 1000);
    EXPECT_EQ((std::vector<double>{500, -200, -301, -2147483648.0}), samples(transfer.predictor));
}

TEST(Download_predictor, a_count_beyond_the_history_counts_as_20)
{
    const Debug_output output;
    Transfer transfer;
    transfer.predictor.debug = true;
    std::fill(transfer.predictor.history, transfer.predictor.history + 20, 100.0);
    transfer.predictor.history_count = 25;
    transfer.predictor.report_count = 39;
    EXPECT_DOUBLE_EQ(900.0 / 100.0, transfer.report_after(1000, 100, 1000));
    EXPECT_EQ(25U, transfer.predictor.history_count);
    EXPECT_EQ(4U + 20U, output.lines().size());
    EXPECT_NE(std::string::npos, output.text().find("    overall_avg_weight = 2.000000\n"));
}

TEST(Download_predictor, beyond_the_total_what_is_left_wraps)
{
    EXPECT_DOUBLE_EQ(4294967295.0 / 101, Transfer().report_after(1000, 101, 100));
    EXPECT_EQ(0.0, Transfer().report_after(1000, 100, 100));
}

TEST(Download_predictor, end_is_the_minutes_since_the_start)
{
    Transfer transfer;
    EXPECT_EQ(0.0, transfer.predictor.end());
    transfer.clock.advance(120000);
    EXPECT_EQ(2.0, transfer.predictor.end());
    transfer.clock.advance(1);
    EXPECT_EQ(120001 / 1000.0 / 60.0, transfer.predictor.end());
    EXPECT_EQ(0U, transfer.predictor.report_count);
    transfer.report_after(-240001, 1, 10);
    EXPECT_EQ(-2.0, transfer.predictor.end());
    EXPECT_EQ(std::vector<double>{1 / -120.0},
              samples(transfer.predictor)); // since the start, not since an end()
}

TEST(Download_predictor, allocates_nothing)
{
    if (!ALLOCATIONS_ARE_COUNTED)
        GTEST_SKIP() << "the sanitizers bring their own malloc()";
    Transfer transfer(2);
    const std::int64_t before = allocations();
    for (unsigned i = 1; i <= 50; ++i)
        transfer.minutes_after(1000, i, 1000);
    transfer.predictor.end();
    EXPECT_EQ(before, allocations());
    const auto counted = std::make_unique<char[]>(10);
    const char* volatile used = counted.get(); // or the compiler would leave it out
    static_cast<void>(used);
    EXPECT_LT(before, allocations());
}

TEST(Download_predictor, prints_nothing_unless_asked)
{
    const Debug_output output;
    Transfer transfer(2);
    for (unsigned i = 1; i <= 5; ++i)
        transfer.minutes_after(1000, i, 1000);
    EXPECT_EQ(0U, output.lines().size());
}

TEST(Download_predictor, prints_its_reasoning_to_the_letter)
{
    const Debug_output output;
    const Fake_clock wall(TUESDAY + 3661, 250);
    Transfer transfer(2);
    transfer.predictor.debug = true;
    transfer.report_after(1500, 300, 1000);
    // 2810 weeks are 1699488000 s; 172800 s of the week lie before that Tuesday.
    EXPECT_EQ("get_estimate(300 / 1000) 1500\n"
              "## TIME: start_time(2810, 176459750), cur_time(2810, 176461250)\n"
              "Not ready yet (elapsedr_ ms = 1500) elapsed=1.500000, other=1.000000...\n",
              output.text());
    for (const Debug_output::Line& line : output.lines())
        EXPECT_EQ(Debug_output::DPRINT, line.way);
    for (int i = 0; i < 2; ++i)
        transfer.report_after(500, 400, 1000);
    // Samples 200, 200, 0: sum 600 over 6 weights. Overall 400 bytes in 2.5 s.
    const std::string third = "get_estimate(400 / 1000) 500\n"
                              "## TIME: start_time(2810, 176458750), cur_time(2810, 176461250)\n"
                              "transfered_this_interval = 0\n"
                              "    weighted_average   = 100.000000\n"
                              "       weighted_count  = 6.000000\n"
                              "       weighted_sum    = 600.000000\n"
                              "    overall_avg        = 160.000000\n"
                              "    overall_avg_weight = 1.000000\n"
                              "    weighted_transfer_rate = 115.000000\n"
                              "    history_count      = 3\n"
                              "    {200.000000, 200.000000,     }\n";
    const std::string all = output.text();
    ASSERT_GT(all.size(), third.size());
    EXPECT_EQ(third, all.substr(all.size() - third.size()));
}

TEST(Download_predictor, prints_one_sample_fewer_than_it_holds)
{
    Transfer transfer;
    transfer.predictor.debug = true;
    unsigned done = 0;
    for (unsigned rate = 1; rate <= 22; ++rate) {
        const Debug_output output;
        transfer.report_after(1000, done += rate, ENDLESS);
        std::string expected = "{";
        for (unsigned shown = rate < 20 ? 1 : rate - 18; shown < (rate < 20 ? rate : rate + 1); ++shown)
            expected += text("%u.000000, ", shown);
        const std::string all = output.text();
        EXPECT_EQ(expected + "    }\n", all.substr(all.find('{'))) << rate;
        EXPECT_EQ(4U + std::min(rate - 1, 19U), output.lines().size());
    }
}

TEST(Download_predictor, counts_the_milliseconds_of_the_week_from_sunday)
{
    const struct {
        std::int64_t seconds;
        int milliseconds;
        const char* shown;
    } cases[] = {{0, 0, "0, 345600000"}, // a clock that was never set: Thursday 1970-01-01
                 {0, 7, "0, 345600007"},
                 {259199, 999, "0, 604799999"},
                 {259200, 0, "0, 0"},
                 {604799, 999, "0, 345599999"},
                 {604800, 0, "1, 345600000"},
                 {TUESDAY, 1, "2810, 172800001"},
                 {4102444800, 5, "6783, 432000005"}}; // 2100-01-01, a Friday
    for (const auto& c : cases) {
        const Debug_output output;
        const Fake_clock wall(c.seconds, c.milliseconds);
        Transfer transfer;
        transfer.predictor.debug = true;
        transfer.report_after(0, 1, 10);
        EXPECT_EQ(text("## TIME: start_time(%s), cur_time(%s)\n", c.shown, c.shown),
                  output.lines().at(1).text);
    }
}

TEST(Download_predictor, agrees_with_a_model_over_random_reports)
{
    const std::uint32_t seed = 76;
    std::mt19937 random(seed);
    const auto below = [&random](unsigned n) {
        return std::uniform_int_distribution<unsigned>(0, n - 1)(random);
    };
    int undefined = 0;
    int infinite = 0;
    int declined = 0;
    int estimated = 0;
    for (int round = 0; round < 300; ++round) {
        const std::int64_t wall_ms = TUESDAY * 1000 + below(604800) * 1000LL + below(1000);
        const int warmup_seconds = below(3) == 0 ? static_cast<int>(below(60)) : 0;
        const bool may_stand_still = below(2) == 0;
        const unsigned speed = below(3) == 0 ? 200000000U : 1U + below(20000);
        Transfer transfer(warmup_seconds);
        transfer.predictor.debug = true;
        Model model(wall_ms, warmup_seconds);
        std::int64_t now_ms = wall_ms;
        unsigned done = 0;
        for (int report = 0; report < 70; ++report) {
            const unsigned ms = may_stand_still && below(30) == 0 ? 0 : 1 + below(3000);
            done += may_stand_still && below(3) == 0 ? 0 : below(speed);
            if (below(60) == 0)
                done = below(ENDLESS);
            const unsigned total = below(4) == 0 ? below(ENDLESS) : 2000000000U;
            now_ms += ms;
            SCOPED_TRACE(testing::Message()
                         << "seed " << seed << ", round " << round << ", report " << report);
            const Fake_clock wall(now_ms / 1000, static_cast<int>(now_ms % 1000));
            const Debug_output output;
            const double expected = model.report(now_ms, done, total);
            const double seconds = transfer.report_after(ms, done, total);
            if (std::isnan(expected))
                ASSERT_TRUE(std::isnan(seconds));
            else
                ASSERT_EQ(expected, seconds);
            ASSERT_EQ(without_signs_of_nan(model.said), without_signs_of_nan(output.text()));
            undefined += std::isnan(expected) ? 1 : 0;
            infinite += std::isinf(expected) || expected == 0 ? 1 : 0;
            declined += expected == -1.0 ? 1 : 0;
            estimated += std::isnormal(expected) ? 1 : 0;
        }
    }
    EXPECT_GT(undefined, 100);
    EXPECT_GT(infinite, 100);
    EXPECT_GT(declined, 500);
    EXPECT_GT(estimated, 10000);
}
