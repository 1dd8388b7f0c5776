#include "util/net/TCP_server.h"

#include "platform/Debug.h"
#include "util/net/Owned_lock_private.h"
#include "util/net/Server_socket_private.h"
#include "util/net/TCP_client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int CATEGORY = 107;
constexpr int BACKLOG = 5;
constexpr int QUIT_TIMEOUT_MS = 200;

// Indices of notify_pipe.
constexpr int WRITE_END = 0;
constexpr int READ_END = 1;

// poll() waits where select() is spoken of: a descriptor set ends at 1,024. These are the flags for which the
// kernel puts a descriptor into select()'s sets.
constexpr int READABLE = POLLIN | POLLHUP | POLLERR;
constexpr int EXCEPTIONAL = POLLPRI;

bool is_readable(const pollfd& watched)
{
    return (watched.revents & READABLE) != 0;
}

bool is_exceptional(const pollfd& watched)
{
    return (watched.revents & EXCEPTIONAL) != 0;
}

pollfd watching(int fd)
{
    return {fd, POLLIN | POLLPRI, 0};
}

void set_nonblocking(int sd)
{
    ::fcntl(sd, F_SETFL, ::fcntl(sd, F_GETFL) | O_NONBLOCK); // a valid descriptor takes it
}

} // namespace

/// What one turn of the loop waits for, and what of it is still to be handled.
struct TCP_server::Turn {
    enum { LISTENING, QUITTING, FIRST_CLIENT };

    pollfd watched[FIRST_CLIENT + MAX_CLIENTS];
    int count;   ///< of those that are watched
    int pending; ///< events, counted as select() does: one for each set that a descriptor is in

    pollfd& client(int slot) { return watched[FIRST_CLIENT + slot]; }

    /// @return false when it failed, with errno
    bool wait()
    {
        if (::poll(watched, static_cast<nfds_t>(count), -1) < 0)
            return false;
        pending = 0;
        for (int i = 0; i < count; ++i) {
            if ((watched[i].revents & POLLNVAL) != 0) {
                errno = EBADF;
                return false;
            }
            pending += (is_readable(watched[i]) ? 1 : 0) + (is_exceptional(watched[i]) ? 1 : 0);
        }
        return true;
    }
};

TCP_server::TCP_server()
    : listen_sd(-1), port(-1), connection_count(0), quit_done(false), lock_owner_thread(nullptr),
      lock_owner_tid(0)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // supported where it matters, and only a static check
    // Applications that derive from it may be compiled against an earlier build: the layout stays.
    static_assert(offsetof(TCP_server, listen_sd) == sizeof(void*));
    static_assert(offsetof(TCP_server, port) == sizeof(void*) + 4);
    static_assert(offsetof(TCP_server, connections) == sizeof(void*) + 8);
    static_assert(offsetof(TCP_server, connection_count) == sizeof(void*) + 408);
    static_assert(offsetof(TCP_server, notify_pipe) == sizeof(void*) + 412);
    static_assert(offsetof(TCP_server, quit_done) == sizeof(void*) + 420);
    static_assert(offsetof(TCP_server, connections_lock) == (sizeof(void*) == 4 ? 428 : 432));
    static_assert(offsetof(TCP_server, lock_owner_thread) ==
                  offsetof(TCP_server, connections_lock) + sizeof(void*));
    static_assert(offsetof(TCP_server, lock_owner_tid) ==
                  offsetof(TCP_server, lock_owner_thread) + sizeof(void*));
    static_assert(sizeof(TCP_server) == (sizeof(void*) == 4 ? 440 : 456));
#pragma GCC diagnostic pop

    std::fill(std::begin(connections), std::end(connections), -1);
    int ends[] = {-1, -1};
    if (::pipe2(ends, O_NONBLOCK) < 0)
        std::perror("TCP_server: could not create notification pipe");
    notify_pipe[READ_END] = ends[0];
    notify_pipe[WRITE_END] = ends[1];
}

bool TCP_server::open(int new_port)
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // fails only for a signal that there is not
    Debug::Channel::print(CATEGORY, "Starting TCP server on port %i\n", new_port);
    listen_sd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (listen_sd < 0) {
        std::perror("cannot open socket ");
        listen_sd = -1;
        return false;
    }
    if (!enable(listen_sd, SOL_SOCKET, SO_REUSEADDR)) {
        std::perror("setsockopt(SO_REUSEPORT)"); // deliberate: the other option's name, and no close
        return false;
    }
    if (!enable(listen_sd, IPPROTO_TCP, TCP_NODELAY)) {
        std::perror("setsockopt(TCP_NODELAY)"); // deliberate: no close
        return false;
    }

    const int bound_port = bind_to_port(listen_sd, new_port);
    if (bound_port < 0) {
        std::perror("cannot bind port ");
        ::close(listen_sd);
        listen_sd = -1;
        return false;
    }
    port = bound_port;
    Debug::Channel::print(CATEGORY, "  Bound to port %i\n", port);
    ::listen(listen_sd, BACKLOG); // where it fails, accept() tells
    return true;
}

void TCP_server::run()
{
    if (listen_sd < 0)
        return;
    set_nonblocking(listen_sd);

    Turn turn;
    for (;;) {
        watch(turn);
        if (!turn.wait()) {
            if (errno == EAGAIN || errno == EINTR)
                continue;
            std::perror("error in select");
            std::exit(EXIT_FAILURE);
        }
        if (is_readable(turn.watched[Turn::QUITTING])) {
            shut_down();
            return;
        }
        if (is_exceptional(turn.watched[Turn::LISTENING])) {
            Debug::Channel::print(CATEGORY, "Exception in the listening socket.  Exiting.\n");
            std::exit(EXIT_FAILURE);
        }
        close_exceptional(turn);
        if (is_readable(turn.watched[Turn::LISTENING]))
            accept_client(turn);
        serve_readable(turn);
    }
}

void TCP_server::quit()
{
    if (::write(notify_pipe[WRITE_END], "1", 1) < 1)
        std::perror("TCP_server: cannot notify quit");
}

int TCP_server::num_connections() const
{
    return connection_count;
}

bool TCP_server::write_to_all_connections(const unsigned char* data, unsigned int len, int except_sd)
{
    const Owned_lock lock(connections_lock, lock_owner_thread, lock_owner_tid);
    return _write_to_all_connections(data, len, except_sd);
}

bool TCP_server::_write_to_all_connections(const unsigned char* data, unsigned int len, int except_sd)
{
    bool all_written = true;
    for (const int sd : connections) {
        if (sd < 0 || sd == except_sd)
            continue;
        ssize_t written = 0;
        do
            written = ::write(sd, data, len);
        while (written < 0 && errno == EAGAIN);
        all_written = all_written && written >= 0;
    }
    return all_written;
}

void TCP_server::handle_disconnected(int /*sd*/)
{
}

void TCP_server::watch(Turn& turn)
{
    const Owned_lock lock(connections_lock, lock_owner_thread, lock_owner_tid);
    turn.watched[Turn::LISTENING] = watching(listen_sd);
    turn.watched[Turn::QUITTING] = watching(notify_pipe[READ_END]);
    turn.count = Turn::FIRST_CLIENT;
    for (int slot = 0; slot < MAX_CLIENTS; ++slot) {
        turn.client(slot) = watching(connections[slot]); // poll() passes over the -1 of a free one
        if (connections[slot] >= 0)
            turn.count = Turn::FIRST_CLIENT + slot + 1;
    }
}

void TCP_server::close_exceptional(Turn& turn)
{
    const Owned_lock lock(connections_lock, lock_owner_thread, lock_owner_tid);
    int passed = 0;
    for (int slot = 0; slot < MAX_CLIENTS && turn.pending > 0 && passed < connection_count; ++slot) {
        if (connections[slot] < 0)
            continue;
        if (is_exceptional(turn.client(slot)))
            drop_client(turn, slot, "Got a connection exception.  Closing.\n");
        else
            ++passed;
    }
}

void TCP_server::accept_client(Turn& turn)
{
    --turn.pending;
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int sd = ::accept(listen_sd, reinterpret_cast<sockaddr*>(&peer), &size);
    if (sd < 0) {
        std::perror("cannot accept connection ");
        return;
    }
    set_nonblocking(sd);
    const bool taken = take_free_slot(sd);
    char address[INET_ADDRSTRLEN];
    ::inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    Debug::Channel::print(CATEGORY, "Connection from %s on port %d.  Total cons: %d\n", address,
                          ntohs(peer.sin_port), num_connections());
    if (!taken) // deliberate: the connection is not closed
        Debug::Channel::print(CATEGORY, "Unable to service incoming connection. We're full.\n");
}

void TCP_server::serve_readable(Turn& turn)
{
    const Owned_lock lock(connections_lock, lock_owner_thread, lock_owner_tid);
    int handled = 0;
    for (int slot = 0; slot < MAX_CLIENTS && turn.pending > 0 && handled < connection_count; ++slot) {
        if (connections[slot] < 0)
            continue;
        if (!is_readable(turn.client(slot))) {
            ++handled;
        } else if (receive(connections[slot])) {
            ++handled;
            --turn.pending;
        } else {
            drop_client(turn, slot, "Connection closed.\n");
        }
    }
}

void TCP_server::shut_down()
{
    // Without the lock, which a writer may hold who tries a full connection again and again:
    // this sets it free.
    wait_shutdown_close(connections, MAX_CLIENTS, QUIT_TIMEOUT_MS);
    const int ends[] = {notify_pipe[WRITE_END].exchange(-1), notify_pipe[READ_END].exchange(-1)};
    const int listening = std::exchange(listen_sd, -1);
    quit_done = true; // who waits for it may destroy the server: no member is touched from here on
    ::close(ends[0]);
    ::close(ends[1]);
    ::close(listening);
}

/// @return false when there is none
bool TCP_server::take_free_slot(int sd)
{
    const Owned_lock lock(connections_lock, lock_owner_thread, lock_owner_tid);
    std::int32_t* const slot = std::find(std::begin(connections), std::end(connections), -1);
    if (slot == std::end(connections))
        return false;
    *slot = sd;
    ++connection_count;
    return true;
}

/// Of the client's pending events one is used up.
void TCP_server::drop_client(Turn& turn, int slot, const char* reason)
{
    const int sd = connections[slot];
    if (::close(sd) < 0)
        std::perror("error closing connection");
    Debug::Channel::print(CATEGORY, "%s", reason);
    handle_disconnected(sd);
    turn.client(slot) = watching(-1); // a client that takes the slot in this turn has no events yet
    connections[slot] = -1;
    --connection_count;
    --turn.pending;
}

/// Hands over what the client has sent by now.
///
/// @return false when it has closed its side and sent nothing
bool TCP_server::receive(int sd)
{
    unsigned char data[256];
    std::int64_t size = ::read(sd, data, sizeof data);
    if (size == 0)
        return false;
    while (size > 0) {
        hand_over(sd, data, static_cast<int>(size));
        size = ::read(sd, data, sizeof data);
    }
    return true;
}

void TCP_server::hand_over(int sd, unsigned char* data, int len)
{
    int used = handle_data(sd, data, len);
    while (used > 0 && used < len) {
        data += used;
        len -= used;
        used = handle_data(sd, data, len);
    }
}
