#include "util/net/TCP_server_buffered.h"

#include "platform/Atime.h"
#include "platform/Debug.h"
#include "util/net/Owned_lock_private.h"
#include "util/net/Server_socket_private.h"
#include "util/net/TCP_client.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int NETWORKING = 107;
constexpr int BACKLOG = 5;
constexpr int RECEIVE_CHUNK = 256;
constexpr int SEND_CHUNK = 1024;
constexpr std::size_t WAKE_CHUNK = 64;
constexpr int CLOSE_TIMEOUT_MS = 100;
constexpr std::size_t CLOSED_AT_ONCE = 100; // all that wait_shutdown_close has room for

constexpr int WRITE_END = 0; // of notify_pipe
constexpr int READ_END = 1;
constexpr std::size_t FIXED_DESCRIPTORS = 3; // of fds: listen_sd and the ends of the pipe

constexpr unsigned char WAKE = 3; // what goes through the pipe
constexpr unsigned char QUIT = 4;

// What select, which has no room for descriptors beyond 1023, would count as readable, writable, exceptional.
constexpr short READABLE = POLLIN | POLLHUP | POLLERR;
constexpr short WRITABLE = POLLOUT | POLLERR;
constexpr short EXCEPTIONAL = POLLPRI;
constexpr short TO_RECEIVE = POLLIN | POLLPRI;
constexpr short TO_RECEIVE_AND_SEND = POLLIN | POLLPRI | POLLOUT;
constexpr std::size_t FIRST_OF_FDS = 1; // in the table of a turn, behind the pipe's read end

constexpr const char* WAIT_FAILED = "error in select";

[[noreturn]] void give_up(const char* text)
{
    std::perror(text);
    std::exit(1);
}

void close_if_open(int fd)
{
    if (fd >= 0)
        ::close(fd);
}

/// Keeps SIGPIPE from the calling thread from the first begin() on: a client that resets must not end a
/// process that does not ignore it.
class Sigpipe_guard {
public:
    Sigpipe_guard() = default;
    ~Sigpipe_guard()
    {
        if (!begun || sigismember(&previous, SIGPIPE) != 0)
            return; // the application blocks it, and may have one pending of its own
        if (raised) {
            const timespec at_once{};
            sigtimedwait(&sigpipe, nullptr, &at_once);
        }
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    Sigpipe_guard(const Sigpipe_guard&) = delete;
    Sigpipe_guard& operator=(const Sigpipe_guard&) = delete;

    void begin()
    {
        if (begun)
            return;
        sigemptyset(&sigpipe);
        sigaddset(&sigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &sigpipe, &previous);
        begun = true;
    }

    /// A write failed, which may have raised the signal.
    void expect_signal() { raised = true; }

private:
    bool begun = false;
    bool raised = false;
    sigset_t sigpipe{};
    sigset_t previous{};
};

/// Keeps the calling thread from taking the processor from whoever wakes it. A producer that shares a core with
/// the loop would else wait inside its call until the loop has served every client, and a burst of messages
/// would leave one by one.
class Yielding_thread {
public:
    // Not by pthread_getschedparam(), which tells what it was asked for last.
    Yielding_thread()
        : changed(sched_getscheduler(0) == SCHED_OTHER &&
                  sched_setscheduler(0, SCHED_BATCH, &NO_PRIORITY) == 0)
    {
    }
    ~Yielding_thread()
    {
        if (changed)
            sched_setscheduler(0, SCHED_OTHER, &NO_PRIORITY);
    }
    Yielding_thread(const Yielding_thread&) = delete;
    Yielding_thread& operator=(const Yielding_thread&) = delete;

private:
    static constexpr sched_param NO_PRIORITY{};
    bool changed;
};

} // namespace

TCP_server_buffered::TCP_server_buffered(int wanted_port)
    : notify_pipe{-1, -1}, listen_sd(-1), wake_on_write(true), stopped(false), has_connections(false),
      wake_pending(false), dropped_bytes(0), lock_owner_thread(nullptr), lock_owner_tid(0), port(-1),
      roomy_until(0), watched(1)
{
    if (wanted_port == 0)
        Debug::Channel::print(NETWORKING, "Starting Buffered TCP server on any port\n");
    else
        Debug::Channel::print(NETWORKING, "Starting Buffered TCP server on port %i\n", wanted_port);

    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_NONBLOCK) == 0) {
        notify_pipe[WRITE_END] = ends[1];
        notify_pipe[READ_END] = ends[0];
    } else
        std::perror("TCP_server: could not create notification pipe");

    if (listen_on(wanted_port)) {
        fds = {listen_sd, notify_pipe[WRITE_END], notify_pipe[READ_END]};
        std::sort(fds.begin(), fds.end());
    }
}

TCP_server_buffered::~TCP_server_buffered()
{
    if (!stopped)
        Debug::Channel::critical("PRE-failure: we haven't called wait_quit() for TCP_server_buffered\n");
    if (fds.size() >= FIXED_DESCRIPTORS)
        close_clients();
    else
        Debug::Channel::critical(
            "PRE-failure: can't destruct TCP_server_buffered, as it's in an inconsistent state\n");
    close_if_open(listen_sd);
    close_if_open(notify_pipe[WRITE_END]);
    close_if_open(notify_pipe[READ_END]);
}

int TCP_server_buffered::write_to_all_connections(const unsigned char* data, unsigned int len)
{
    if (len >= WRITE_BUFFER_SIZE)
        return 0;
    const int count = static_cast<int>(len);
    const bool wake = wake_on_write;
    {
        const Owned_lock lock(buffer_lock, lock_owner_thread, lock_owner_tid);
        make_room(count);
        write_buffer.write(data, count);
    }
    // Exchanged here and where the loop takes the byte: when this finds one pending, the loop has yet to take
    // it and then sees these bytes.
    if (wake && !wake_pending.exchange(true))
        notify(WAKE, "could not wake");
    return count;
}

bool TCP_server_buffered::run_blocking()
{
    const Yielding_thread yielding;
    stopped = false;
    while (_run(true)) {
    }
    stopped = true;
    return false;
}

bool TCP_server_buffered::run_poll()
{
    stopped = false;
    const bool go_on = _run(false);
    stopped = true;
    return go_on;
}

bool TCP_server_buffered::_run(bool blocking)
{
    if (fds.empty())
        return false;
    watch();
    if (::poll(watched.data(), watched.size(), blocking ? -1 : 0) < 0) {
        if (errno == EAGAIN || errno == EINTR)
            return false; // deliberate: a signal ends run_blocking()
        give_up(WAIT_FAILED);
    }
    check_descriptors();
    if ((watched.front().revents & READABLE) != 0 && told_to_quit())
        return false;
    if (has_come(listen_sd, EXCEPTIONAL)) {
        Debug::Channel::print(NETWORKING, "Exception in the listening socket.  Exiting.\n");
        std::exit(1);
    }
    close_exceptional();
    if (has_come(listen_sd, READABLE))
        accept_client();
    receive_from_clients();
    if (send_to_clients(blocking))
        wake_on_write = true;
    return true;
}

void TCP_server_buffered::wait_quit()
{
    if (stopped)
        return;
    notify(QUIT, "could not quit");
    while (!stopped)
        Atime::delay(5);
}

int TCP_server_buffered::close_connection(int sd)
{
    ::close(sd);
    if (pollfd* const entry = find_watched(sd))
        entry->revents = 0; // the number may become the next client's in this very turn
    const auto place = std::lower_bound(fds.begin(), fds.end(), sd);
    if (place != fds.end() && *place == sd)
        fds.erase(place);
    std::size_t erased = 0;
    {
        const Owned_lock lock(buffer_lock, lock_owner_thread, lock_owner_tid);
        erased = readers.erase(sd);
    }
    has_connections = fds.size() > FIXED_DESCRIPTORS;
    return static_cast<int>(erased);
}

bool TCP_server_buffered::listen_on(int wanted_port)
{
    listen_sd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (listen_sd < 0) {
        std::perror("cannot open socket ");
        return false;
    }
    if (!enable(listen_sd, SOL_SOCKET, SO_REUSEADDR))
        std::perror("setsockopt(SO_REUSEPORT)"); // deliberate: the text names the other option
    if (!enable(listen_sd, IPPROTO_TCP, TCP_NODELAY))
        std::perror("setsockopt(TCP_NODELAY)"); // clients inherit it

    const int bound_port = bind_to_port(listen_sd, wanted_port);
    if (bound_port < 0) {
        std::perror("cannot bind port ");
        return false;
    }
    port = bound_port;
    Debug::Channel::print(NETWORKING, "  Bound to port %i\n", port);
    ::fcntl(listen_sd, F_SETFL, ::fcntl(listen_sd, F_GETFL) | O_NONBLOCK);
    ::listen(listen_sd, BACKLOG);
    return true;
}

void TCP_server_buffered::close_clients()
{
    std::vector<int> sds;
    for (const auto& client : readers)
        sds.push_back(client.first);
    for (std::size_t i = 0; i < sds.size(); i += CLOSED_AT_ONCE)
        wait_shutdown_close(&sds[i], static_cast<unsigned>(std::min(CLOSED_AT_ONCE, sds.size() - i)),
                            CLOSE_TIMEOUT_MS);
}

void TCP_server_buffered::notify(unsigned char value, const char* failure)
{
    if (::write(notify_pipe[WRITE_END], &value, 1) < 0)
        std::perror(failure);
}

// What clients take only adds to their room. Until as much is written as the fullest of them had room for, none of
// them, and no newer one, can lose anything, and none is asked.
void TCP_server_buffered::make_room(int count)
{
    const auto total = static_cast<std::uint32_t>(write_buffer.total());
    const std::uint32_t known_room = roomy_until - total;
    if (known_room < WRITE_BUFFER_SIZE && count <= static_cast<int>(known_room))
        return;
    int room = WRITE_BUFFER_SIZE - 1;
    for (auto& client : readers) {
        Client_reader& reader = client.second;
        const int lost = reader.make_room(count);
        if (lost > 0)
            dropped_bytes += lost;
        room = std::min(room, reader.free_space());
    }
    roomy_until = total + static_cast<std::uint32_t>(room);
}

void TCP_server_buffered::watch()
{
    watched.clear(); // which keeps the memory
    watched.push_back({notify_pipe[READ_END], POLLIN, 0});
    auto client = readers.cbegin();
    for (const int sd : fds) {
        if (sd == notify_pipe[READ_END])
            continue;
        while (client != readers.cend() && client->first < sd)
            ++client;
        const bool to_send = client != readers.cend() && client->first == sd && client->second.unread() > 0;
        watched.push_back({sd, to_send ? TO_RECEIVE_AND_SEND : TO_RECEIVE, 0});
    }
}

pollfd* TCP_server_buffered::find_watched(int sd)
{
    const auto entry =
        std::lower_bound(watched.begin() + FIRST_OF_FDS, watched.end(), sd,
                         [](const pollfd& candidate, int wanted) { return candidate.fd < wanted; });
    return entry != watched.end() && entry->fd == sd ? &*entry : nullptr;
}

bool TCP_server_buffered::has_come(int sd, int events)
{
    const pollfd* const entry = find_watched(sd);
    return entry != nullptr && (entry->revents & events) != 0;
}

void TCP_server_buffered::check_descriptors() const
{
    for (const pollfd& entry : watched)
        if ((entry.revents & POLLNVAL) != 0) {
            errno = EBADF; // which select would fail with
            give_up(WAIT_FAILED);
        }
}

bool TCP_server_buffered::told_to_quit()
{
    unsigned char values[WAKE_CHUNK];
    const ssize_t count = ::read(notify_pipe[READ_END], values, sizeof values);
    if (count < 0 && errno != EAGAIN)
        give_up("error in wake fd");
    for (ssize_t i = 0; i < count; ++i) {
        if (values[i] == WAKE)
            wake_pending.exchange(false);
        else if (values[i] == QUIT)
            return true;
    }
    return false;
}

void TCP_server_buffered::close_exceptional()
{
    for (std::size_t i = FIRST_OF_FDS; i < watched.size(); ++i)
        if ((watched[i].revents & EXCEPTIONAL) != 0 && readers.count(watched[i].fd) != 0)
            close_connection(watched[i].fd);
}

void TCP_server_buffered::accept_client()
{
    const int sd = ::accept(listen_sd, nullptr, nullptr);
    if (sd < 0) {
        std::perror("cannot accept connection ");
        return;
    }
    // Deliberate: the flags are for the listening socket; the client stays blocking.
    ::fcntl(listen_sd, F_SETFL, ::fcntl(sd, F_GETFL) | O_NONBLOCK);
    if (held_back.size() <= static_cast<std::size_t>(sd))
        held_back.resize(static_cast<std::size_t>(sd) + 1);
    held_back[static_cast<std::size_t>(sd)] = false;
    fds.insert(std::lower_bound(fds.begin(), fds.end(), sd), sd);
    {
        const Owned_lock lock(buffer_lock, lock_owner_thread, lock_owner_tid);
        readers.try_emplace(sd, write_buffer);
    }
    has_connections = true;
}

// By index, and each looked up anew: handle_data() may close any client.
void TCP_server_buffered::receive_from_clients()
{
    for (std::size_t i = FIRST_OF_FDS; i < watched.size(); ++i)
        if ((watched[i].revents & READABLE) != 0 && readers.count(watched[i].fd) != 0)
            receive_from(watched[i].fd);
}

void TCP_server_buffered::receive_from(int sd)
{
    unsigned char data[RECEIVE_CHUNK];
    const ssize_t count = ::read(sd, data, sizeof data);
    if (count > 0)
        handle_data(sd, data, static_cast<int>(count));
    else if (count == 0 || errno != EAGAIN)
        close_connection(sd);
}

bool TCP_server_buffered::send_to_clients(bool turns_follow)
{
    Sigpipe_guard guard;
    bool drained = false;
    std::size_t i = FIRST_OF_FDS;
    for (auto client = readers.begin(); client != readers.end();) {
        const int sd = client->first;
        Client_reader& reader = client->second;
        ++client; // now, for this one may be closed
        while (i < watched.size() && watched[i].fd < sd)
            ++i;
        if (reader.unread() == 0)
            drained = true;
        else if (i < watched.size() && watched[i].fd == sd && (watched[i].events & POLLOUT) != 0 &&
                 (watched[i].revents & WRITABLE) != 0) {
            guard.begin();
            const std::size_t clients = readers.size();
            drained = send_to(sd, reader, turns_follow) || drained;
            if (readers.size() < clients)
                guard.expect_signal();
        }
    }
    return drained;
}

// While there is more to come, and the next turn follows at once, the system gathers the pieces: one segment
// then leaves instead of three.
void TCP_server_buffered::hold_back(int sd, bool on)
{
    const auto client = static_cast<std::size_t>(sd);
    if (held_back[client] == on)
        return;
    const int value = on ? 1 : 0;
    ::setsockopt(sd, IPPROTO_TCP, TCP_CORK, &value, sizeof value); // where it fails, more segments leave
    held_back[client] = on;
}

bool TCP_server_buffered::send_to(int sd, Client_reader& reader, bool turns_follow)
{
    unsigned char data[SEND_CHUNK];
    int count = 0;
    bool more = false;
    {
        const Owned_lock lock(buffer_lock, lock_owner_thread, lock_owner_tid);
        count = reader.copy(data, SEND_CHUNK);
        more = turns_follow && reader.unread() > count;
    }
    if (more)
        hold_back(sd, true);
    const ssize_t written = ::write(sd, data, static_cast<std::size_t>(count));
    if (written < 0) {
        if (errno != EAGAIN)
            close_connection(sd);
        return false;
    }
    if (!more)
        hold_back(sd, false);
    reader.advance(static_cast<int>(written));
    return reader.unread() == 0;
}
