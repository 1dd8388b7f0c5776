#include "bench/broadcast.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>
#include <event2/thread.h>

#include <atomic>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace {

class Libevent : public Broadcast {
public:
    Libevent()
    {
        evthread_use_pthreads();
        base = event_base_new();
        sockaddr_in address{};
        address.sin_family = AF_INET;
        listener = evconnlistener_new_bind(base, &Libevent::accepted, this,
                                           LEV_OPT_CLOSE_ON_FREE | LEV_OPT_REUSEABLE, 128,
                                           reinterpret_cast<sockaddr*>(&address), sizeof address);
        wake = event_new(base, -1, EV_PERSIST, &Libevent::woken, this);
        loop = std::thread([this] { event_base_loop(base, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    ~Libevent() override
    {
        event_base_loopbreak(base);
        loop.join();
        for (bufferevent* client : clients)
            bufferevent_free(client);
        event_free(wake);
        evconnlistener_free(listener);
        event_base_free(base);
    }
    Libevent(const Libevent&) = delete;
    Libevent& operator=(const Libevent&) = delete;

    int port() const override
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(evconnlistener_get_fd(listener), reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    int received() const override { return bytes; }
    void publish(const unsigned char* data, std::size_t size) override
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            queue.insert(queue.end(), data, data + size);
        }
        event_active(wake, 0, 0);
    }

private:
    static void accepted(evconnlistener* /*from*/, evutil_socket_t fd, sockaddr* /*peer*/, int /*size*/,
                         void* self)
    {
        auto* const server = static_cast<Libevent*>(self);
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        bufferevent* const client = bufferevent_socket_new(server->base, fd, BEV_OPT_CLOSE_ON_FREE);
        bufferevent_setcb(client, &Libevent::readable, nullptr, nullptr, self);
        bufferevent_enable(client, EV_READ | EV_WRITE);
        server->clients.push_back(client);
    }

    static void readable(bufferevent* client, void* self)
    {
        evbuffer* const input = bufferevent_get_input(client);
        static_cast<Libevent*>(self)->bytes += static_cast<int>(evbuffer_get_length(input));
        evbuffer_drain(input, evbuffer_get_length(input));
    }

    static void woken(evutil_socket_t /*fd*/, short /*what*/, void* self)
    {
        auto* const server = static_cast<Libevent*>(self);
        {
            const std::lock_guard<std::mutex> lock(server->mutex);
            server->sending.swap(server->queue);
        }
        for (bufferevent* client : server->clients)
            bufferevent_write(client, server->sending.data(), server->sending.size());
        server->sending.clear();
    }

    event_base* base = nullptr;
    evconnlistener* listener = nullptr;
    event* wake = nullptr;
    std::vector<bufferevent*> clients;
    std::atomic<int> bytes{0};
    std::mutex mutex;
    std::vector<unsigned char> queue; // guarded by mutex
    std::vector<unsigned char> sending;
    std::thread loop;
};

} // namespace

std::unique_ptr<Broadcast> broadcast_by_libevent()
{
    return std::make_unique<Libevent>();
}
