#include "tests/support/Allocations.h"
#include "util/String_base.h"
#include "util/String_builder_base.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace {

constexpr int LENGTH = 100; // of every text that is built

/// Ours, in a buffer on the stack.
class Built {
public:
    void clear() { builder.reset(); }
    void append(const char* s) { builder.append(s); }
    void append(char ch) { builder.append(ch); }
    std::string text() const { return text_buffer.get(); }

private:
    char buffer[LENGTH + 1];
    String_base text_buffer{buffer, sizeof buffer};
    String_builder_base builder{text_buffer};
};

/// The peer, with the same interface and room for the whole text from the start.
class Reserved {
public:
    Reserved() { standard.reserve(LENGTH); }
    void clear() { standard.clear(); }
    void append(const char* s) { standard.append(s); }
    void append(char ch) { standard.push_back(ch); }
    std::string text() const { return standard; }

private:
    std::string standard;
};

const char* const LINE = "lat=-27.500000,lon=152.300000,h=420.00,fix=differential,age=1.2,sats=14,"
                         "line=headland A-B, 2nd pass.";

/// What a status line is put together from: fourteen literals.
struct Short_literals {
    static constexpr int APPENDS = 14;
    template <typename TEXT>
    static void build(TEXT& text)
    {
        text.append("lat=");
        text.append("-27.500000");
        text.append(",lon=");
        text.append("152.300000");
        text.append(",h=");
        text.append("420.00");
        text.append(",fix=");
        text.append("differential");
        text.append(",age=");
        text.append("1.2");
        text.append(",sats=");
        text.append("14");
        text.append(",line=");
        text.append("headland A-B, 2nd pass.");
    }
};

/// The same line, copied from another text.
struct Single_characters {
    static constexpr int APPENDS = LENGTH;
    template <typename TEXT>
    static void build(TEXT& text)
    {
        for (const char* from = LINE; *from != 0; ++from)
            text.append(*from);
    }
};

/// As a value printer works: names as literals, digits and separators one by one.
struct Mixed {
    static constexpr int APPENDS = 60;
    template <typename TEXT>
    static void build(TEXT& text)
    {
        for (int i = 0; i < 10; ++i) {
            text.append("value");
            text.append('=');
            text.append(static_cast<char>('0' + i));
            text.append('.');
            text.append('5');
            text.append(',');
        }
    }
};

template <typename TEXT, typename INPUTS>
void builder_append(benchmark::State& state)
{
    TEXT text;
    INPUTS::build(text);
    if (text.text().size() != LENGTH)
        state.SkipWithError("the text has not the length that it should have");
    const std::int64_t before = allocations();
    for (auto _ : state) {
        text.clear();
        INPUTS::build(text);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
    if (allocations() != before)
        state.SkipWithError("an append allocated");
    state.SetItemsProcessed(state.iterations() * INPUTS::APPENDS);
}

} // namespace

BENCHMARK_TEMPLATE(builder_append, Built, Short_literals)->Name("builder append/ours/short literals");
BENCHMARK_TEMPLATE(builder_append, Reserved, Short_literals)
    ->Name("builder append/std::string reserved/short literals");
BENCHMARK_TEMPLATE(builder_append, Built, Single_characters)->Name("builder append/ours/single characters");
BENCHMARK_TEMPLATE(builder_append, Reserved, Single_characters)
    ->Name("builder append/std::string reserved/single characters");
BENCHMARK_TEMPLATE(builder_append, Built, Mixed)->Name("builder append/ours/literals and characters");
BENCHMARK_TEMPLATE(builder_append, Reserved, Mixed)
    ->Name("builder append/std::string reserved/literals and characters");

BENCHMARK_MAIN();
