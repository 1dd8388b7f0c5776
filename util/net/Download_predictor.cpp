#include "util/net/Download_predictor.h"

#include "platform/Debug.h"
#include "platform/Rtime.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

using Debug::Print::dprint;

constexpr std::uint32_t HISTORY_SIZE = 20;
constexpr int RECENT_WEIGHT = 3; // of the samples, where the overall average has 1 for every n reports

constexpr std::int64_t WEEK_S = 604800;
constexpr std::int64_t FIRST_SUNDAY_S = 259200; // 1970-01-04

// Applications compiled against an earlier build hold predictors by value: the layout stays.
static_assert(offsetof(Download_predictor, history_count) == 0 && offsetof(Download_predictor, history) == 8);
static_assert(offsetof(Download_predictor, start_time) == 168);
static_assert(offsetof(Download_predictor, last_time) == 168 + sizeof(Atime));
static_assert(offsetof(Download_predictor, last_done) == 168 + 2 * sizeof(Atime));
static_assert(offsetof(Download_predictor, report_count) == offsetof(Download_predictor, last_done) + 4);
static_assert(offsetof(Download_predictor, warmup_seconds) == offsetof(Download_predictor, last_done) + 8);
static_assert(offsetof(Download_predictor, debug) == offsetof(Download_predictor, last_done) + 12);

/// As the debug lines show a moment.
struct Week_time {
    explicit Week_time(const Atime& moment)
    {
        const Rtime time(moment);
        const long long weeks = time.seconds / WEEK_S;
        // A clock that was never set may stand before the first Sunday; that is within a week as well.
        const std::int64_t rest = (time.seconds - FIRST_SUNDAY_S) % WEEK_S;
        const long long second = rest < 0 ? rest + WEEK_S : rest;
        week = static_cast<long>(weeks);
        ms = static_cast<long>(second * 1000 + time.milliseconds);
    }

    long week;
    long ms;
};

struct Weighted {
    double count = 0.0;
    double sum = 0.0;
};

std::uint32_t samples_held(const Download_predictor& predictor)
{
    return std::min(predictor.history_count, HISTORY_SIZE);
}

void add_sample(Download_predictor& predictor, double rate)
{
    if (predictor.history_count < HISTORY_SIZE)
        predictor.history[predictor.history_count++] = rate;
    else
        predictor.history[HISTORY_SIZE - 1] = rate;
}

/// Weighs the samples and makes room for the next one.
Weighted weigh_samples(Download_predictor& predictor)
{
    const std::uint32_t held = samples_held(predictor);
    Weighted weighted;
    for (std::uint32_t i = 0; i < held; ++i) {
        const double weight = i + 1;
        weighted.count += weight;
        weighted.sum += weight * predictor.history[i];
        if (held == HISTORY_SIZE && i > 0)
            predictor.history[i - 1] = predictor.history[i];
    }
    return weighted;
}

/// Where the language leaves the result open, the one that the console's processor gives.
int nearest_int(double value)
{
    using Limits = std::numeric_limits<int>;
    if (std::isnan(value))
        return 0;
    return static_cast<int>(std::clamp(value, double{Limits::min()}, double{Limits::max()}));
}

} // namespace

double Download_predictor::get_estimate_seconds(unsigned int done, unsigned int total)
{
    const Atime now = Atime::now();
    const long long interval_ms = now - last_time;
    last_time = now;
    if (debug) {
        dprint("get_estimate(%u / %u) %ld\n", done, total, static_cast<long>(interval_ms));
        const Week_time started(start_time);
        const Week_time current(now);
        dprint("## TIME: start_time(%ld, %ld), cur_time(%ld, %ld)\n", started.week, started.ms, current.week,
               current.ms);
    }

    const auto delta = static_cast<std::int32_t>(done - last_done);
    last_done = done;
    ++report_count;
    add_sample(*this, delta / (static_cast<double>(interval_ms) / 1000.0));

    const long long elapsed_ms = now - start_time;
    const double elapsed = static_cast<double>(elapsed_ms) / 1000.0;
    if (warmup_seconds > 0 && elapsed < warmup_seconds) {
        const long long whole_seconds = elapsed_ms / 1000;
        if (debug)
            dprint("Not ready yet (elapsedr_ ms = %ld) elapsed=%f, other=%f...\n",
                   static_cast<long>(elapsed_ms), elapsed, static_cast<double>(whole_seconds));
        return -1.0;
    }

    const Weighted weighted = weigh_samples(*this);
    const double weighted_average = weighted.sum / weighted.count;
    const double overall_avg = done / elapsed;
    const std::uint32_t full_histories = report_count / samples_held(*this);
    const double overall_avg_weight = full_histories;
    const double weighted_transfer_rate =
        (overall_avg * overall_avg_weight + weighted_average * RECENT_WEIGHT) /
        (overall_avg_weight + RECENT_WEIGHT);
    if (debug) {
        dprint("transfered_this_interval = %ld\n    weighted_average   = %f\n       weighted_count  = %f\n"
               "       weighted_sum    = %f\n    overall_avg        = %f\n    overall_avg_weight = %f\n"
               "    weighted_transfer_rate = %f\n    history_count      = %ld\n    {",
               static_cast<long>(delta), weighted_average, weighted.count, weighted.sum, overall_avg,
               overall_avg_weight, weighted_transfer_rate, static_cast<long>(history_count));
        const std::uint32_t shown = std::min(history_count - 1, HISTORY_SIZE); // one fewer, deliberately
        for (std::uint32_t i = 0; i < shown; ++i)
            dprint("%f, ", history[i]);
        dprint("    }\n");
    }
    return (total - done) / weighted_transfer_rate;
}

int Download_predictor::get_estimate(unsigned int done, unsigned int total)
{
    return nearest_int(get_estimate_seconds(done, total) / 60.0 + 1.0);
}

double Download_predictor::end()
{
    const long long elapsed_ms = Atime::now() - start_time;
    return static_cast<double>(elapsed_ms) / 1000.0 / 60.0;
}
