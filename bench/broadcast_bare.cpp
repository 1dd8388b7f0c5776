#include "bench/broadcast.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// The system calls of our turns and hardly anything else: a byte through a pipe wakes the loop, which asks who can
/// take something and then sends each client 1024 bytes at most. It takes it that no client falls behind and
/// none fails: a measure of what those calls take, not a server.
class Bare : public Broadcast {
public:
    Bare()
    {
        if (pipe(wake.data()) != 0)
            fail("a pipe cannot be made");
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        const int on = 1;
        if (listener < 0 || setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
            bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener, 5) != 0)
            fail("nobody can connect");
        watched = {{wake[0], POLLIN, 0}, {listener, POLLIN, 0}};
        loop = std::thread([this] { run(); });
    }
    ~Bare() override
    {
        send_byte(QUIT);
        loop.join();
        for (const pollfd& entry : watched)
            close(entry.fd);
        close(wake[1]);
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    int port() const override
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    int received() const override { return bytes; }
    void publish(const unsigned char* data, std::size_t size) override
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            const std::size_t from = written % buffer.size();
            const std::size_t until_end = std::min(size, buffer.size() - from);
            std::memcpy(&buffer[from], data, until_end);
            std::memcpy(buffer.data(), data + until_end, size - until_end);
            written += size;
        }
        if (!wake_pending.exchange(true))
            send_byte(WAKE);
    }

private:
    static constexpr char WAKE = 3;
    static constexpr char QUIT = 4;
    static constexpr std::size_t FIXED = 2; // entries of watched
    static constexpr std::size_t CHUNK = 1024;
    struct Client {
        std::size_t sent;
        bool held_back;
    };

    [[noreturn]] static void fail(const char* what)
    {
        std::perror(what);
        std::exit(1);
    }
    void send_byte(char value)
    {
        if (write(wake[1], &value, 1) != 1)
            fail("the loop cannot be woken");
    }

    void run()
    {
        const sched_param none{};
        sched_setscheduler(0, SCHED_BATCH, &none); // as ours has it
        while (turn()) {
        }
    }

    bool turn()
    {
        for (std::size_t i = 0; i < clients.size(); ++i)
            watched[FIXED + i].events = clients[i].sent < written ? POLLIN | POLLOUT : POLLIN;
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0) {
            char value = 0;
            if (read(wake[0], &value, 1) != 1 || value == QUIT)
                return false;
            wake_pending.exchange(false);
        }
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if ((watched[FIXED + i].revents & POLLIN) != 0) {
                std::array<char, 256> data{};
                bytes += static_cast<int>(
                    std::max<ssize_t>(read(watched[FIXED + i].fd, data.data(), data.size()), 0));
            }
            if ((watched[FIXED + i].revents & POLLOUT) != 0)
                send_to(watched[FIXED + i].fd, clients[i]);
        }
        if (watched[1].revents != 0) {
            watched.push_back({accept(listener, nullptr, nullptr), POLLIN, 0});
            clients.push_back({written, false});
        }
        return true;
    }

    void send_to(int fd, Client& client)
    {
        const std::size_t unread = written - client.sent;
        std::array<unsigned char, CHUNK> data;
        const std::size_t count = std::min(unread, CHUNK);
        const std::size_t from = client.sent % buffer.size();
        const std::size_t until_end = std::min(count, buffer.size() - from);
        std::memcpy(data.data(), &buffer[from], until_end);
        std::memcpy(data.data() + until_end, buffer.data(), count - until_end);
        hold_back(fd, client, unread > count || client.held_back);
        if (write(fd, data.data(), count) != static_cast<ssize_t>(count))
            fail("a client cannot be sent to");
        client.sent += count;
        hold_back(fd, client, unread > count);
    }
    static void hold_back(int fd, Client& client, bool wanted)
    {
        const int on = wanted ? 1 : 0;
        if (client.held_back != wanted)
            setsockopt(fd, IPPROTO_TCP, TCP_CORK, &on, sizeof on);
        client.held_back = wanted;
    }

    std::array<int, 2> wake{};
    int listener = -1;
    std::vector<pollfd> watched;
    std::vector<Client> clients; // as watched has them behind the FIXED
    std::array<unsigned char, 4096> buffer{};
    std::atomic<std::size_t> written{0};
    std::mutex mutex;
    std::atomic<bool> wake_pending{false};
    std::atomic<int> bytes{0};
    std::thread loop;
};

} // namespace

std::unique_ptr<Broadcast> broadcast_bare()
{
    return std::make_unique<Bare>();
}
