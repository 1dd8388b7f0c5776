#include "util/Byte_packer.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int VALUES = 1024;

/// What a decoder of bit-packed messages usually has: each bit of the value set or cleared by itself.
void set_bits(unsigned char* out, int at, int width, unsigned value)
{
    for (int bit = 0; bit < width; ++bit, ++at) {
        const auto place = static_cast<unsigned char>(0x80U >> at % 8);
        if ((value >> (width - 1 - bit) & 1U) != 0)
            out[at / 8] = static_cast<unsigned char>(out[at / 8] | place);
        else
            out[at / 8] = static_cast<unsigned char>(out[at / 8] & ~place);
    }
}

int set_all_bits(const std::vector<unsigned char>& values, unsigned char* out, int width, int bit)
{
    int at = bit;
    for (const unsigned char value : values) {
        set_bits(out, at, width, value);
        at += width;
    }
    return (at + 7) / 8;
}

/// Values that are computed, so that each comes through the virtual accessor.
class Computed : public Byte_packer {
public:
    using Byte_packer::Byte_packer;
    unsigned GetValue(int i) override { return array[i]; }
};

struct Layout {
    int width;
    int bit;
};
const Layout LAYOUTS[] = {{1, 0}, {3, 0}, {8, 0}, {8, 3}, {12, 0}};

using Buffer = std::array<unsigned char, VALUES * 2 + 1>;

std::vector<unsigned char> random_values()
{
    std::mt19937 random(20180405);
    std::vector<unsigned char> values(VALUES);
    for (unsigned char& value : values)
        value = static_cast<unsigned char>(random());
    return values;
}

template <typename PACKER>
void pack(benchmark::State& state, Layout layout)
{
    std::vector<unsigned char> values = random_values();
    Buffer expected{};
    const int bytes = set_all_bits(values, expected.data(), layout.width, layout.bit);
    Buffer out{};
    PACKER packer(values.data(), VALUES);
    if (packer.BytePack(out.data(), layout.width, 0, layout.bit) != bytes || out != expected)
        state.SkipWithError("the two packings differ");
    for (auto _ : state) {
        benchmark::DoNotOptimize(packer.BytePack(out.data(), layout.width, 0, layout.bit));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * VALUES);
}

void set_bit_by_bit(benchmark::State& state, Layout layout)
{
    const std::vector<unsigned char> values = random_values();
    Buffer out{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(set_all_bits(values, out.data(), layout.width, layout.bit));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * VALUES);
}

std::string name(const char* what, const char* who, Layout layout)
{
    return std::string(what) + "/" + who + "/width " + std::to_string(layout.width) + " from bit " +
           std::to_string(layout.bit);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    for (const Layout& layout : LAYOUTS) {
        benchmark::RegisterBenchmark(name("BytePack", "ours", layout).c_str(), pack<Byte_packer>, layout);
        benchmark::RegisterBenchmark(name("BytePack", "bit at a time", layout).c_str(), set_bit_by_bit,
                                     layout);
        benchmark::RegisterBenchmark(name("BytePack of a derived class", "ours", layout).c_str(),
                                     pack<Computed>, layout);
        benchmark::RegisterBenchmark(name("BytePack of a derived class", "bit at a time", layout).c_str(),
                                     set_bit_by_bit, layout);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
