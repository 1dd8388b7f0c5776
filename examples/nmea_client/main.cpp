// Shows the positions of a receiver that serves NMEA over TCP, for as long as it takes: when the connection
// is lost or was not there yet, the library's task makes it again.

#include "examples/common/Guidance.h"
#include "examples/common/Nmea.h"
#include "examples/common/Options.h"
#include "platform/Atime.h"
#include "util/net/TCP_client_task.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

constexpr const char* USAGE = R"(usage: nmea_client HOST PORT [--seconds N] [--fixes N]

Connects to a receiver (or ser2net, gpsd's raw port, a caster's NMEA) and prints a line for each position. A lost
connection is made again every second. What the connection does is told on standard error.

  --seconds N   end after so long (default: when interrupted)
  --fixes N     end after so many positions
)";

struct Options {
    bool help = false;
    std::string host;
    int port = 0;
    double seconds = std::numeric_limits<double>::infinity();
    double fixes = std::numeric_limits<double>::infinity();
};

Options read_options(int argc, char** argv)
{
    Options options;
    std::vector<const char*> places;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const auto value = [&] { return number_option(word, i + 1 < argc ? argv[++i] : nullptr, 1, 1e9); };
        if (word == "--help")
            options.help = true;
        else if (word == "--seconds")
            options.seconds = value();
        else if (word == "--fixes")
            options.fixes = value();
        else if (word.rfind("--", 0) == 0)
            throw std::runtime_error("'" + word + "' is no option. See nmea_client --help.");
        else
            places.push_back(argv[i]);
    }
    if (options.help)
        return options;
    if (places.size() != 2)
        throw std::runtime_error("it takes a host and a port. See nmea_client --help.");
    options.host = places[0];
    options.port = static_cast<int>(number_option("PORT", places[1], 1, 65535));
    return options;
}

/// The library's reconnecting task, with NMEA as its protocol.
class Receiver : public TCP_client_task {
public:
    Receiver(const char* host, int tcp_port) : TCP_client_task(host, tcp_port) { open(); }
    ~Receiver() override { close(); } // before what handle_read() uses is gone
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    int fixes() const { return count; }

    /// For after the end of the task's thread.
    const Nmea_stream& stream() const { return nmea; }

    using TCP_client_task::close;

private:
    int handle_read(int connection) override
    {
        char data[1024];
        const ssize_t size = ::read(connection, data, sizeof data);
        if (size < 0)
            return errno == EAGAIN || errno == EINTR ? 0 : -1;
        if (size == 0)
            return -1; // the receiver hung up: connect again
        for (const Fix& fix : nmea.take(data, static_cast<int>(size))) {
            std::printf("%9.2f s  %13.8f %13.8f %9.3f m\n", fix.time_s, fix.position.lat / RADIANS_PER_DEGREE,
                        fix.position.lon / RADIANS_PER_DEGREE, fix.position.height);
            ++count;
        }
        static_cast<void>(std::fflush(stdout));
        return 0;
    }
    void handle_write(int /*sd*/) override {} // it has nothing to say

    Nmea_stream nmea;
    std::atomic<int> count{0};
};

std::atomic<bool> interrupted{false};

void interrupt(int /*signal*/)
{
    interrupted = true;
}

void show(const Options& options)
{
    Receiver receiver(options.host.c_str(), options.port);
    const Atime start(true);
    while (!interrupted && receiver.fixes() < options.fixes &&
           static_cast<double>(Atime::now() - start) < options.seconds * 1000.0)
        Atime::delay(20);
    receiver.close();
    const Nmea_stream& stream = receiver.stream();
    std::printf("%d positions of %d sentences; %d without a position, %d damaged\n", receiver.fixes(),
                stream.sentences, stream.without_fix, stream.damaged);
}

} // namespace

int main(int argc, char** argv)
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGINT, interrupt));
    static_cast<void>(std::signal(SIGTERM, interrupt));
    try {
        const Options options = read_options(argc, argv);
        if (options.help)
            std::printf("%s", USAGE);
        else
            show(options);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "nmea_client: %s\n", error.what()));
        return 1;
    }
    return 0;
}
