// Drives the simulated vehicle and serves each epoch as a line of text to whoever connects: nc HOST PORT.

#include "examples/common/Guidance.h"
#include "examples/common/Options.h"
#include "examples/common/Vehicle.h"
#include "platform/Atime.h"
#include "util/net/TCP_server_buffered.h"

#include <QCoreApplication>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

constexpr const char* USAGE = R"(usage: telemetry_server [--port N] [--seconds N] [--fast]

Steers a simulated vehicle onto a line and serves each epoch, ten a second, as a line of text to any number of
viewers, each at its own pace: nc localhost PORT. One that falls behind by more than 4 KiB loses lines; the
others, and the drive, never wait for it.

  --port N      listen there, 1 to 65535 (default: a free port, which the first line names)
  --seconds N   end after so long a drive, 1 to 86400 (default: when interrupted)
  --fast        do not wait between epochs
)";

struct Options {
    bool help = false;
    int port = 0;
    double seconds = std::numeric_limits<double>::infinity();
    bool fast = false;
};

Options read_options(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help")
            options.help = true;
        else if (option == "--fast")
            options.fast = true;
        else if (option == "--port")
            options.port = static_cast<int>(number_option("--port", argv[++i], 1, 65535));
        else if (option == "--seconds")
            options.seconds = number_option("--seconds", argv[++i], 1, 86400);
        else
            throw std::runtime_error("'" + option + "' is no option. See telemetry_server --help.");
        if (i >= argc)
            break;
    }
    return options;
}

/// The library's server on a thread of its own. Viewers only listen: what they send is dropped.
class Telemetry : public TCP_server_buffered {
public:
    explicit Telemetry(int wanted_port)
        : TCP_server_buffered(wanted_port), loop([this] {
              do // once at least: wait_quit() waits for a run to end
                  run_blocking();
              while (!stopping);
              ended = true;
          })
    {
    }
    ~Telemetry() override
    {
        stopping = true;
        while (!ended) { // again, for a loop that was just between two runs
            wait_quit();
            Atime::delay(1);
        }
        loop.join();
    }
    Telemetry(const Telemetry&) = delete;
    Telemetry& operator=(const Telemetry&) = delete;

    int bound_port() const { return port; }
    int lost() const { return dropped_bytes; }

    void send(const std::string& line)
    {
        write_to_all_connections(reinterpret_cast<const unsigned char*>(line.data()),
                                 static_cast<unsigned>(std::uint64_t{line.size()}));
    }

private:
    void handle_data(int /*sd*/, unsigned char* /*data*/, int /*len*/) override {}

    std::atomic<bool> stopping{false};
    std::atomic<bool> ended{false};
    std::thread loop; // last: it uses the rest
};

std::atomic<bool> interrupted{false};

void interrupt(int /*signal*/)
{
    interrupted = true;
}

/// A line of 100 km: the vehicle never gets to its end.
void set_line(PointLLH& a, PointLLH& b)
{
    a = PointLLH(-27.5 * RADIANS_PER_DEGREE, 151.5 * RADIANS_PER_DEGREE, 400.0);
    Coordinate_converter plane;
    plane.setLocalCenter(a);
    plane.convLocal2PointLLH(100000.0, 0.0, b);
}

void serve(const Options& options)
{
    Telemetry telemetry(options.port);
    if (telemetry.bound_port() < 0)
        throw std::runtime_error(text("port %d cannot be served: see above for the reason.", options.port));
    std::printf("serving on port %d\n", telemetry.bound_port());
    static_cast<void>(std::fflush(stdout));

    PointLLH a;
    PointLLH b;
    set_line(a, b);
    Vehicle vehicle(a, b, 1);
    Guidance guidance(a, b, Vehicle::INTERVAL_S, nullptr);
    const Atime start(true);
    for (long i = 0; !interrupted; ++i) {
        const Fix fix = vehicle.measure();
        if (fix.time_s >= options.seconds)
            break;
        if (!options.fast)
            Atime::delay(static_cast<int>(std::lround(fix.time_s * 1000.0)) -
                         static_cast<int>(Atime::now() - start));
        const Epoch epoch = guidance.step(fix);
        telemetry.send(telemetry_line(epoch));
        vehicle.drive(epoch.steering_deg);
    }
    std::printf("%d bytes lost by viewers that fell behind\n", telemetry.lost());
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);   // for the log sources, whose senders it deletes
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // a viewer that left is an error of its write, no more
    static_cast<void>(std::signal(SIGINT, interrupt));
    static_cast<void>(std::signal(SIGTERM, interrupt));
    int status = 0;
    try {
        const Options options = read_options(argc, argv);
        if (options.help)
            std::printf("%s", USAGE);
        else
            serve(options);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "telemetry_server: %s\n", error.what()));
        status = 1;
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return status;
}
