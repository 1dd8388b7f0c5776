#include "util/Version.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

namespace {

using Util::Version;

using Parser = bool (Version::*)(const char*);

void parse(benchmark::State& state, Parser parser, const char* text, bool accepted)
{
    Version version;
    if ((version.*parser)(text) != accepted)
        state.SkipWithError("the text is not taken as it should be");
    for (auto _ : state) {
        benchmark::DoNotOptimize((version.*parser)(text));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void print(benchmark::State& state, const char* text)
{
    Version version;
    char shown[80];
    if (!version.decode_velmar_version_number(text) ||
        std::strcmp(text, version.to_string(shown, sizeof shown)) != 0)
        state.SkipWithError("the text is not printed as it was read");
    for (auto _ : state) {
        benchmark::DoNotOptimize(version.to_string(shown, sizeof shown));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void compare(benchmark::State& state)
{
    Version older;
    Version newer;
    if (!older.decode_velmar_version_number("4.2 p3 b7") ||
        !newer.decode_velmar_version_number("4.2 p3 b8") || older.compare_version(newer) != -1)
        state.SkipWithError("the older is not less");
    for (auto _ : state) {
        benchmark::DoNotOptimize(older.compare_version(newer));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const struct {
        Parser parser;
        const char *name, *text;
        bool accepted;
    } cases[] = {{&Version::parse_velmar_version_string, "velmar", "4.2p3b7", true}, // the first format
                 {&Version::parse_velmar_version_string, "velmar", "4.2", true},     // the last one
                 {&Version::parse_velmar_version_string, "velmar", "Version: 4.2 p3", true},
                 {&Version::parse_velmar_version_string, "velmar", "refused", false},
                 {&Version::parse_arwest_version_string, "arwest", "Ver. 1.05 Rev. c test", true},
                 {&Version::parse_satel_version_string, "satel", "V2.10 ", true},
                 {&Version::parse_satel_easy_version_string, "satel easy", "V06.16.3.61", true}};
    for (const auto& c : cases)
        benchmark::RegisterBenchmark((std::string("Version parse ") + c.name + "/ours/" + c.text).c_str(),
                                     parse, c.parser, c.text, c.accepted);
    for (const char* text : {"4.2", "4.2 p3 b7"})
        benchmark::RegisterBenchmark((std::string("Version to_string/ours/") + text).c_str(), print, text);
    benchmark::RegisterBenchmark("Version compare_version/ours/4.2 p3 b7", compare);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
