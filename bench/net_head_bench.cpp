#include "util/net/Header_helper.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

enum { HOST, USER_AGENT, ACCEPT };
const char* names[] = {"Host", "User-Agent", "Accept"};
const Header_helper::type_t TYPES[] = {Header_helper::TYPE_HEADER, Header_helper::TYPE_HEADER,
                                       Header_helper::TYPE_HEADER};

struct Request {
    const char *name, *host;
    int port;
    const char *path, *host_value, *user_agent, *accept;
};
const Request REQUESTS[] = {
    {"status of a neighbour", "10.0.0.7", 8080, "status", "10.0.0.7:8080", "console/1.0", "text/plain"},
    {"file from a server", "updates.example.org", 80,
     "firmware/receiver/4.2p3/image.bin?unit=0123456789&channel=stable", "updates.example.org",
     "console/4.2 (armv7l; 1024x768)", "application/octet-stream, application/x-firmware;q=0.9, */*;q=0.1"},
    {"path alone", nullptr, 0, "status", "10.0.0.7:8080", "console/1.0", "text/plain"}};

char buffer[1024];

int by_builder(const Request& request)
{
    Header_helper head(names, TYPES, 3);
    head.set_buf(buffer, sizeof buffer);
    const bool fits = head.add_http_start("GET", request.path, request.host, request.port) &&
                      head.add_header(HOST, request.host_value) &&
                      head.add_header(USER_AGENT, request.user_agent) &&
                      head.add_header(ACCEPT, request.accept) && head.add_http_finish();
    return fits ? head.index : -1;
}

int by_snprintf(const Request& request)
{
    const bool has_host = request.host != nullptr;
    const int length =
        has_host
            ? std::snprintf(buffer, sizeof buffer,
                            "%s http://%s:%d/%s HTTP/1.1\r\n%s: %s\r\n%s: %s\r\n%s: %s\r\n\r\n", "GET",
                            request.host, request.port, request.path, names[HOST], request.host_value,
                            names[USER_AGENT], request.user_agent, names[ACCEPT], request.accept)
            : std::snprintf(buffer, sizeof buffer, "%s /%s HTTP/1.1\r\n%s: %s\r\n%s: %s\r\n%s: %s\r\n\r\n",
                            "GET", request.path, names[HOST], request.host_value, names[USER_AGENT],
                            request.user_agent, names[ACCEPT], request.accept);
    return length < static_cast<int>(sizeof buffer) ? length : -1;
}

std::string head_of(int (*build)(const Request&), const Request& request)
{
    const int length = build(request);
    return length < 0 ? "" : std::string(buffer, static_cast<std::size_t>(length));
}

void whole_head(benchmark::State& state, int (*build)(const Request&), const Request& request)
{
    if (head_of(by_builder, request) != head_of(by_snprintf, request) || head_of(build, request).empty())
        state.SkipWithError("the two heads differ");
    for (auto _ : state) {
        const Request* given = &request;
        benchmark::DoNotOptimize(given); // no text of it is known beforehand
        benchmark::DoNotOptimize(build(*given));
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
    for (const Request& request : REQUESTS) {
        benchmark::RegisterBenchmark((std::string("HTTP head/ours/") + request.name).c_str(), whole_head,
                                     by_builder, request);
        benchmark::RegisterBenchmark((std::string("HTTP head/snprintf/") + request.name).c_str(), whole_head,
                                     by_snprintf, request);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
