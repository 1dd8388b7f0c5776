#include "bench/broadcast.h"

#include <uv.h>

#include <array>
#include <atomic>
#include <mutex>
#include <netinet/in.h>
#include <thread>
#include <vector>

namespace {

class Libuv : public Broadcast {
public:
    Libuv()
    {
        uv_loop_init(&events);
        uv_async_init(&events, &wake, &Libuv::woken);
        uv_tcp_init(&events, &listener);
        listener.data = wake.data = this;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        uv_tcp_bind(&listener, reinterpret_cast<sockaddr*>(&address), 0);
        uv_listen(reinterpret_cast<uv_stream_t*>(&listener), 128, &Libuv::accepted);
        loop = std::thread([this] { uv_run(&events, UV_RUN_DEFAULT); });
    }
    ~Libuv() override
    {
        ending = true;
        uv_async_send(&wake);
        loop.join();
        uv_run(&events, UV_RUN_DEFAULT); // what the closing of handles still calls
        uv_loop_close(&events);
    }
    Libuv(const Libuv&) = delete;
    Libuv& operator=(const Libuv&) = delete;

    int port() const override
    {
        sockaddr_in address{};
        int size = sizeof address;
        uv_tcp_getsockname(&listener, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    int received() const override { return bytes; }
    void publish(const unsigned char* data, std::size_t size) override
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            queue.insert(queue.end(), data, data + size);
        }
        uv_async_send(&wake);
    }

private:
    using Shared = std::shared_ptr<std::vector<char>>;
    struct Client {
        uv_tcp_t handle{};
        Libuv* server = nullptr;
        std::array<char, 256> in{};
    };
    struct Write {
        uv_write_t request{};
        Shared bytes;
    };

    static void accepted(uv_stream_t* from, int status)
    {
        auto* const server = static_cast<Libuv*>(from->data);
        if (status < 0)
            return;
        auto client = std::make_unique<Client>();
        client->server = server;
        client->handle.data = client.get();
        uv_tcp_init(&server->events, &client->handle);
        auto* const stream = reinterpret_cast<uv_stream_t*>(&client->handle);
        uv_accept(from, stream);
        uv_tcp_nodelay(&client->handle, 1);
        uv_read_start(
            stream,
            [](uv_handle_t* handle, std::size_t /*suggested*/, uv_buf_t* buffer) {
                auto& in = static_cast<Client*>(handle->data)->in;
                *buffer = uv_buf_init(in.data(), static_cast<unsigned>(in.size()));
            },
            [](uv_stream_t* handle, ssize_t size, const uv_buf_t* /*buffer*/) {
                if (size > 0)
                    static_cast<Client*>(handle->data)->server->bytes += static_cast<int>(size);
                else if (size < 0)
                    uv_read_stop(handle);
            });
        server->clients.push_back(std::move(client));
    }

    static void woken(uv_async_t* handle)
    {
        auto* const server = static_cast<Libuv*>(handle->data);
        if (server->ending) {
            uv_walk(
                &server->events, [](uv_handle_t* each, void* /*none*/) { uv_close(each, nullptr); }, nullptr);
            return;
        }
        const auto message = std::make_shared<std::vector<char>>();
        {
            const std::lock_guard<std::mutex> lock(server->mutex);
            message->swap(server->queue);
        }
        if (message->empty())
            return;
        for (const auto& client : server->clients)
            server->write(*client, message);
    }

    void write(Client& client, const Shared& message)
    {
        auto* const stream = reinterpret_cast<uv_stream_t*>(&client.handle);
        uv_buf_t buffer = uv_buf_init(message->data(), static_cast<unsigned>(message->size()));
        const int written = uv_try_write(stream, &buffer, 1); // all of it, as long as the client keeps up
        if (written == static_cast<int>(message->size()))
            return;
        auto* const rest = new Write{{}, message};
        const unsigned done = written > 0 ? static_cast<unsigned>(written) : 0;
        buffer = uv_buf_init(message->data() + done, static_cast<unsigned>(message->size()) - done);
        rest->request.data = rest;
        uv_write(&rest->request, stream, &buffer, 1,
                 [](uv_write_t* request, int /*status*/) { delete static_cast<Write*>(request->data); });
    }

    uv_loop_t events{};
    uv_async_t wake{};
    uv_tcp_t listener{};
    std::vector<std::unique_ptr<Client>> clients;
    std::atomic<int> bytes{0};
    std::atomic<bool> ending{false};
    std::mutex mutex;
    std::vector<char> queue; // guarded by mutex
    std::thread loop;
};

} // namespace

std::unique_ptr<Broadcast> broadcast_by_libuv()
{
    return std::make_unique<Libuv>();
}
