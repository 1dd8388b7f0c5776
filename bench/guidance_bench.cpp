#include "bench/inputs.h"
#include "tests/support/Allocations.h"
#include "util/guidance/Mini_PP.h"
#include "util/guidance/PID.h"

#include <benchmark/benchmark.h>

namespace {

constexpr double EARTH_RADIUS = 6.37e6; // near enough to lay out a drive

/// A drive to the north at 10 epochs a second and 2.5 m/s, weaving by a metre or so as the driver steers.
Places drive()
{
    std::mt19937_64 random(20180404);
    std::normal_distribution<double> noise(0.0, 0.01);
    const Place start = field_centre();
    Places epochs;
    epochs.reserve(PLACES);
    while (epochs.size() < PLACES) {
        const double north = 0.25 * static_cast<double>(epochs.size()) + noise(random);
        const double east = std::sin(north / 20.0) + noise(random);
        epochs.emplace_back(start.lat + north / EARTH_RADIUS,
                            start.lon + east / (EARTH_RADIUS * std::cos(start.lat)), start.h + noise(random));
    }
    return epochs;
}

/// What the console does with every position that the receiver reports.
float guide(Mini_PP& line, PID& pid, const Place& received)
{
    const PointLLH position(received.lat, received.lon, received.h);
    Math2D::Point local;
    if (!line.convPointLLH2Local(position, local.first, local.second))
        return 0.0F;
    benchmark::DoNotOptimize(line.ab_atrack(local));
    const auto off_line = static_cast<float>(line.ab_xtrack(local));
    return pid.control(0.0F, off_line, 0.0F, 0.0F, nullptr);
}

void guidance_epoch(benchmark::State& state)
{
    const Places epochs = drive();
    const Place a = epochs.front();
    Mini_PP line(PointLLH(a.lat, a.lon, a.h), PointLLH(a.lat + 0.0002, a.lon, a.h));
    PID pid(8.0F, 0.05F, 1.0F, 5.0F, -35.0F, 35.0F);
    std::int64_t allocated = 0;
    for (auto _ : state) {
        const std::int64_t before = allocations();
        for (const Place& epoch : epochs)
            benchmark::DoNotOptimize(guide(line, pid, epoch));
        allocated += allocations() - before;
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(epochs.size()));
    state.counters["allocations"] = static_cast<double>(allocated);
}

void geocentric_forward(benchmark::State& state)
{
    const Places epochs = drive();
    const GeographicLib::Geocentric earth = GeographicLib::Geocentric::WGS84();
    for (auto _ : state)
        for (const Place& epoch : epochs) {
            double x = 0.0;
            double y = 0.0;
            double z = 0.0;
            earth.Forward(epoch.lat_deg, epoch.lon_deg, epoch.h, x, y, z);
            benchmark::DoNotOptimize(x);
            benchmark::DoNotOptimize(y);
            benchmark::DoNotOptimize(z);
        }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(epochs.size()));
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RegisterBenchmark("guidance epoch/ours/drive", guidance_epoch);
    benchmark::RegisterBenchmark("guidance epoch/GeographicLib Geocentric Forward/drive", geocentric_forward);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
