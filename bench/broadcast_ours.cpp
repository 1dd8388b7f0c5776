#include "bench/broadcast.h"

#include "platform/Atime.h"
#include "util/net/TCP_server_buffered.h"

#include <atomic>
#include <thread>

namespace {

class Server : public TCP_server_buffered {
public:
    Server() : TCP_server_buffered(0), loop([this] { run_blocking(); }) {}
    ~Server() override
    {
        wait_quit();
        loop.join();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int bound_port() const { return port; }
    int received() const { return bytes; }

private:
    void handle_data(int /*sd*/, unsigned char* /*data*/, int len) override { bytes += len; }

    std::atomic<int> bytes{0};
    std::thread loop; // last: it uses the rest
};

class Ours : public Broadcast {
public:
    int port() const override { return server.bound_port(); }
    int received() const override { return server.received(); }
    void publish(const unsigned char* data, std::size_t size) override
    {
        server.write_to_all_connections(data, static_cast<unsigned>(size));
    }

private:
    Server server;
};

} // namespace

std::unique_ptr<Broadcast> broadcast_by_us()
{
    return std::make_unique<Ours>();
}
