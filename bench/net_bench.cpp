#include "bench/broadcast.h"

#include <asio/version.hpp>
#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <uv.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

// One producer, its messages to all clients, on loopback: the time until every client has the bytes. All of
// it runs on one core: how the scheduler spreads two threads over two cores would otherwise be
// most of the figure.

namespace {

constexpr std::size_t MESSAGE = 100;

[[noreturn]] void fail(const char* what)
{
    std::perror(what);
    std::exit(1);
}

/// Clients of a server, read by the thread that publishes.
class Clients {
public:
    Clients(const Broadcast& server, int count)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(server.port()));
        for (int i = 0; i < count; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
                write(fd, "!", 1) != 1)
                fail("a client cannot connect");
            fds.push_back(fd);
            while (server.received() <= i) // a server's backlog may be short
                std::this_thread::yield();
        }
    }
    ~Clients()
    {
        for (const int fd : fds)
            close(fd);
    }
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    /// Waits until each has that many bytes more. The one that all servers serve last is read first: whoever waits
    /// for each in turn is woken by each, and measures the scheduler.
    void receive(std::size_t size) const
    {
        std::array<char, 8192> bytes{};
        for (auto fd = fds.rbegin(); fd != fds.rend(); ++fd)
            for (std::size_t got = 0; got < size;) {
                const ssize_t now = read(*fd, bytes.data(), std::min(bytes.size(), size - got));
                if (now <= 0)
                    fail("a client lost its connection");
                got += static_cast<std::size_t>(now);
            }
    }

private:
    std::vector<int> fds;
};

double cpu_seconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

using Make = std::unique_ptr<Broadcast> (*)();

void broadcast(benchmark::State& state, Make make, int count, int burst)
{
    const std::unique_ptr<Broadcast> server = make();
    const Clients clients(*server, count);
    const std::vector<unsigned char> message(MESSAGE, 'm');
    const auto round = [&] {
        for (int i = 0; i < burst; ++i)
            server->publish(message.data(), message.size());
        clients.receive(MESSAGE * static_cast<std::size_t>(burst));
    };
    round();
    const double cpu = cpu_seconds();
    for (auto _ : state)
        round();
    state.counters["cpu_us"] =
        (cpu_seconds() - cpu) * 1e6 / static_cast<double>(state.iterations()); // of all threads, a round
    state.SetItemsProcessed(state.iterations());
}

/// The producer's own share: how long a call takes, readers stalled or not, 99.9 % of the calls are within it.
/// It publishes as a console does, a message now and then, and others read what the clients get.
void producer(benchmark::State& state, int count, bool stalled)
{
    const std::unique_ptr<Broadcast> server = broadcast_by_us();
    const Clients clients(*server, count);
    const std::vector<unsigned char> message(MESSAGE, 'm');
    std::vector<double> nanoseconds;
    std::thread reader([&] {
        for (benchmark::IterationCount i = 0; !stalled && i < state.max_iterations; ++i)
            clients.receive(MESSAGE);
    });
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        server->publish(message.data(), message.size());
        nanoseconds.push_back(
            std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
        std::this_thread::sleep_for(std::chrono::milliseconds(stalled ? 2 : 20));
    }
    reader.join();
    const auto nth = static_cast<std::ptrdiff_t>(static_cast<double>(nanoseconds.size() - 1) * 0.999);
    std::nth_element(nanoseconds.begin(), nanoseconds.begin() + nth, nanoseconds.end());
    const double percentile = nanoseconds[static_cast<std::size_t>(nth)];
    state.counters["worst_us"] = *std::max_element(nanoseconds.begin(), nanoseconds.end()) / 1000.0;
    // What compare reads as the time of an item is here that percentile.
    state.counters["items_per_second"] = 1e9 / percentile;
}

void raise_descriptor_limit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
    setrlimit(RLIMIT_NOFILE, &limit);
}

void pin_to_one_core()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0)
        fail("the benchmark cannot be pinned to one core");
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    raise_descriptor_limit();
    pin_to_one_core();
    benchmark::AddCustomContext("asio", std::to_string(ASIO_VERSION / 100000) + "." +
                                            std::to_string(ASIO_VERSION / 100 % 1000) + "." +
                                            std::to_string(ASIO_VERSION % 100));
    benchmark::AddCustomContext("libevent", event_get_version());
    benchmark::AddCustomContext("libuv", uv_version_string());

    struct Who {
        const char* name;
        Make make;
    };
    const Who all[] = {{"ours", broadcast_by_us},
                       {"asio", broadcast_by_asio},
                       {"libevent", broadcast_by_libevent},
                       {"libuv", broadcast_by_libuv},
                       {"bare calls", broadcast_bare}};
    for (const int count : {1, 10, 100, 900})
        for (const int burst : {1, 24})
            for (const Who& who : all) {
                const std::string inputs = std::to_string(count) + (count == 1 ? " client, " : " clients, ") +
                                           (burst == 1 ? "a message" : "a burst of 24");
                benchmark::RegisterBenchmark(("broadcast/" + std::string(who.name) + "/" + inputs).c_str(),
                                             [make = who.make, count, burst](benchmark::State& state) {
                                                 broadcast(state, make, count, burst);
                                             })
                    ->UseRealTime()
                    ->Unit(benchmark::kMicrosecond);
            }
    for (const bool stalled : {false, true})
        benchmark::RegisterBenchmark(stalled ? "producer's 99.9th percentile/ours/900 clients, stalled"
                                             : "producer's 99.9th percentile/ours/900 clients, reading",
                                     [stalled](benchmark::State& state) { producer(state, 900, stalled); })
            ->UseRealTime()
            ->Iterations(2000)
            ->Repetitions(1)
            ->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
