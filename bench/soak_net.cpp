// Wears the networking classes out: clients come and go, stall and reset, servers go away and come back. At
// the end descriptors, threads and resident memory are where they began,
// and no client that kept up missed a byte.

#include "platform/Atime.h"
#include "util/net/TCP_client.h"
#include "util/net/TCP_client_task.h"
#include "util/net/TCP_server.h"
#include "util/net/TCP_server_buffered.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <memory>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int TELLERS = 4; // threads that play clients
constexpr int CLIENTS_EACH = 30;
constexpr int TASKS = 5; // reconnecting clients
constexpr int SERVER_LIFE_MS = 3000;
constexpr long MEMORY_SLACK_KIB = 1024; // what the allocator and the thread library may keep for later

/// Each message is its own number and that number's complement, so that a hole or a torn one is seen.
using Message = std::array<std::uint32_t, 2>;

std::atomic<long> connections{0};
std::atomic<long> bytes_checked{0};
std::atomic<long> faults{0};

void fault(const char* what)
{
    ++faults;
    std::printf("FAULT: %s\n", what);
}

/// Checks a stream of messages, in pieces of any size.
class Checker {
public:
    void take(const unsigned char* data, std::size_t size)
    {
        bytes_checked += static_cast<long>(size);
        for (std::size_t i = 0; i < size; ++i) {
            reinterpret_cast<unsigned char*>(pending.data())[filled++] = data[i];
            if (filled < sizeof pending)
                continue;
            filled = 0;
            if (pending[1] != ~pending[0])
                fault("a message is torn");
            else if (started && pending[0] != last + 1)
                fault("a client that kept up missed messages");
            started = true;
            last = pending[0];
        }
    }

private:
    Message pending{};
    std::size_t filled = 0;
    std::uint32_t last = 0;
    bool started = false;
};

/// The stream of messages, two hundred a second.
class Stream : public TCP_server_buffered {
public:
    explicit Stream(int wanted_port) : TCP_server_buffered(wanted_port)
    {
        loop = std::thread([this] {
            do // once at least: wait_quit() waits for a run to end
                run_blocking();
            while (!ending);
            ended = true;
        });
        producer = std::thread([this] {
            for (std::uint32_t number = 0; !ending; ++number) {
                const Message message{number, ~number};
                write_to_all_connections(reinterpret_cast<const unsigned char*>(message.data()),
                                         sizeof message);
                Atime::delay(5);
            }
        });
    }
    ~Stream() override
    {
        ending = true;
        producer.join();
        while (!ended) {
            wait_quit();
            Atime::delay(1);
        }
        loop.join();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int bound_port() const { return port; }

private:
    void handle_data(int /*sd*/, unsigned char* /*data*/, int /*len*/) override {}

    std::atomic<bool> ending{false};
    std::atomic<bool> ended{false};
    std::thread loop;
    std::thread producer;
};

/// Sends back what it is sent.
class Echo : private TCP_server {
public:
    Echo()
    {
        if (!open(0))
            fault("the echo server cannot listen");
        loop = std::thread([this] { run(); });
    }
    virtual ~Echo()
    {
        quit();
        loop.join();
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

    int bound_port() const { return port; }

private:
    int handle_data(int sd, unsigned char* data, int len) override
    {
        return static_cast<int>(::send(sd, data, static_cast<std::size_t>(len), MSG_NOSIGNAL));
    }

    std::thread loop;
};

/// A reconnecting client that checks the stream; each connection starts a stream of its own.
class Task : public TCP_client_task {
public:
    explicit Task(int server_port) : TCP_client_task("127.0.0.1", server_port)
    {
        set_reconnect_period(40);
        set_connect_timeout(200);
        open();
    }
    ~Task() override { close(); }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

private:
    int handle_read(int connection) override
    {
        std::array<unsigned char, 512> data{};
        const ssize_t size = ::read(connection, data.data(), data.size());
        if (size > 0) {
            checker.take(data.data(), static_cast<std::size_t>(size));
            return 0;
        }
        if (size < 0 && (errno == EAGAIN || errno == EINTR))
            return 0;
        checker = Checker();
        ++connections;
        return -1;
    }
    void handle_write(int /*sd*/) override {}

    Checker checker;
};

/// One client of either server, which behaves as it likes.
class Visitor {
public:
    Visitor(int stream_port, int echo_port, std::mt19937& dice) : random(dice)
    {
        echoing = random() % 4 == 0;
        behaviour = static_cast<Behaviour>(random() % BEHAVIOURS);
        turns = static_cast<int>(random() % 100);
        const TCP_client client("127.0.0.1", echoing ? echo_port : stream_port);
        fd = client.open_connection(random() % 2 == 0 ? -1 : 500);
        if (fd >= 0) {
            ++connections;
            fcntl(fd, F_SETFL, O_NONBLOCK);
        }
    }
    ~Visitor()
    {
        if (fd < 0)
            return;
        if (behaviour == RESETS) {
            const linger at_once{1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        }
        close(fd);
    }
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    /// @return whether it stays
    bool turn()
    {
        if (fd < 0 || turns-- <= 0)
            return false;
        if (behaviour == HALF_CLOSES && turns == 5)
            shutdown(fd, SHUT_WR);
        if (behaviour == STALLS)
            return true;
        if (echoing && random() % 3 == 0) {
            const Message message{sent, ~sent};
            if (::send(fd, message.data(), sizeof message, MSG_NOSIGNAL) == sizeof message)
                ++sent;
        }
        std::array<unsigned char, 1024> data{};
        const ssize_t size = ::read(fd, data.data(), data.size());
        if (size > 0)
            checker.take(data.data(), static_cast<std::size_t>(size));
        return size > 0 || (size < 0 && errno == EAGAIN);
    }

private:
    enum Behaviour { READS, STALLS, RESETS, HALF_CLOSES, BEHAVIOURS };

    std::mt19937& random;
    bool echoing;
    Behaviour behaviour;
    int turns;
    int fd;
    std::uint32_t sent = 0;
    Checker checker;
};

struct Ports {
    std::atomic<int> stream;
    std::atomic<int> echo;
};

void play_clients(const Ports& ports, const std::atomic<bool>& ending, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<std::unique_ptr<Visitor>> visitors(CLIENTS_EACH);
    while (!ending) {
        for (auto& visitor : visitors)
            if (visitor == nullptr ? random() % 20 == 0 : !visitor->turn())
                visitor = visitor == nullptr ? std::make_unique<Visitor>(ports.stream, ports.echo, random)
                                             : nullptr;
        Atime::delay(10);
    }
}

int entries(const char* folder)
{
    DIR* const listing = opendir(folder);
    int count = -2; // "." and ".."
    while (listing != nullptr && readdir(listing) != nullptr)
        ++count;
    if (listing != nullptr)
        closedir(listing);
    return count;
}

struct Held {
    int descriptors;
    int threads;
    long resident_kib;
};

Held held()
{
    malloc_trim(0); // what is free but not given back is no leak
    long pages = 0;
    long resident = 0;
    if (FILE* const file = std::fopen("/proc/self/statm", "re")) {
        if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(file);
    }
    return {entries("/proc/self/fd"), entries("/proc/self/task"), resident * (sysconf(_SC_PAGESIZE) / 1024)};
}

void run(double seconds, unsigned seed, bool show)
{
    Ports ports{};
    auto stream = std::make_unique<Stream>(0);
    auto echo = std::make_unique<Echo>();
    ports.stream = stream->bound_port();
    ports.echo = echo->bound_port();
    std::atomic<bool> ending{false};
    std::vector<std::thread> tellers;
    for (unsigned i = 0; i < TELLERS; ++i)
        tellers.emplace_back([&, i] { play_clients(ports, ending, seed + i); });
    std::vector<std::unique_ptr<Task>> tasks;
    for (int i = 0; i < TASKS; ++i)
        tasks.push_back(std::make_unique<Task>(ports.stream));

    const Atime start(true);
    std::mt19937 random(seed + 1000);
    for (int round = 0; static_cast<double>(Atime::now() - start) < seconds * 1000.0; ++round) {
        Atime::delay(static_cast<int>(std::min(SERVER_LIFE_MS, static_cast<int>(seconds * 200.0))));
        tasks[random() % TASKS] = nullptr; // before its successor opens
        for (auto& task : tasks)
            if (task == nullptr)
                task = std::make_unique<Task>(ports.stream);
        if (round % 2 == 0) { // the server goes away; where its clients look for it, it comes back
            const int port = stream->bound_port();
            do { // again, while some client's own end has the port
                stream = nullptr;
                stream = std::make_unique<Stream>(port);
            } while (stream->bound_port() != port);
        } else {
            echo = nullptr;
            echo = std::make_unique<Echo>();
            ports.echo = echo->bound_port();
        }
        if (show) {
            const Held now = held();
            std::printf(
                "%6.0f s  %8ld connections  %11ld bytes checked  %4d descriptors  %3d threads  %7ld KiB\n",
                static_cast<double>(Atime::now() - start) / 1000.0, connections.load(), bytes_checked.load(),
                now.descriptors, now.threads, now.resident_kib);
            std::fflush(stdout);
        }
    }
    ending = true;
    for (std::thread& teller : tellers)
        teller.join();
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    if (!(seconds > 0.0)) {
        static_cast<void>(std::fprintf(stderr, "usage: soak_net [SECONDS]\n"));
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN);
    if (std::freopen("/dev/null", "w", stderr) ==
        nullptr) // thousands of lines about connections that come and go
        return 1;
    run(std::min(seconds, 5.0), 1, false); // once round, so that what is made once is made
    const Held before = held();
    run(seconds, 100, true);
    const Held after = held();
    std::printf(
        "before: %d descriptors, %d threads, %ld KiB resident\nafter:  %d descriptors, %d threads, %ld KiB "
        "resident\n%ld connections, %ld bytes checked, %ld faults\n",
        before.descriptors, before.threads, before.resident_kib, after.descriptors, after.threads,
        after.resident_kib, connections.load(), bytes_checked.load(), faults.load());
    const bool same = after.descriptors == before.descriptors && after.threads == before.threads &&
                      after.resident_kib <= before.resident_kib + MEMORY_SLACK_KIB;
    if (!same)
        std::printf("FAILED: not everything was given back\n");
    return same && faults == 0 ? 0 : 1;
}
