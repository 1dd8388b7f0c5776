#include "util/net/TCP_client.h"

#include "platform/Atime.h"
#include "platform/Debug.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <type_traits>
#include <unistd.h>

namespace {

constexpr int DEBUG_CATEGORY = 107;
constexpr unsigned MAX_WAITING = 100;
constexpr std::size_t SCRATCH_SIZE = 1000;

static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));

// A socket that failed or hung up makes poll return at once, again and again. Without a pause the rest of the
// time limit would be spent at full load.
void pause_between_polls()
{
    Atime::delay(1);
}

/// @return a socket of no particular local address and port, -1 after a report
int make_socket()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        Debug_print::perror("TCP_client: socket");
        return -1;
    }
    const int on = 1;
    if (::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        Debug_print::perror("TCP_client: setsockopt(TCP_NODELAY)");
        return -1;
    }
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        Debug_print::perror("TCP_client: bind");
        ::close(fd);
        return -1;
    }
    return fd;
}

bool set_nonblocking(int fd, bool nonblocking)
{
    const int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && ::fcntl(fd, F_SETFL, nonblocking ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) >= 0;
}

bool wait_until_writable(int fd, const Atime& start, int timeout_ms)
{
    for (;;) {
        pollfd entry{fd, POLLOUT, 0};
        ::poll(&entry, 1, timeout_ms); // what it returned is in the events
        // Deliberate: the flag alone decides, the socket's pending error is not asked for.
        if ((entry.revents & POLLOUT) != 0)
            return true;
        if (Atime::now() - start >= timeout_ms)
            return false;
        pause_between_polls();
    }
}

bool connect_within(int fd, const addrinfo& entry, int timeout_ms)
{
    if (!set_nonblocking(fd, true)) {
        std::perror("TCP_client: fcntl(O_SETFL O_NONBLOCK)");
        return false;
    }
    const Atime start(true);
    bool connected = ::connect(fd, entry.ai_addr, entry.ai_addrlen) == 0;
    if (!connected && errno == EINPROGRESS)
        connected = wait_until_writable(fd, start, timeout_ms);
    if (!set_nonblocking(fd, false))
        std::perror("TCP_client: fcntl(O_SETFL ~O_NONBLOCK)");
    return connected;
}

bool connect_to(int fd, const addrinfo& entry, int port, int timeout_ms)
{
    const bool v4 = entry.ai_family == AF_INET && entry.ai_addrlen == sizeof(sockaddr_in);
    const bool v6 = entry.ai_family == AF_INET6 && entry.ai_addrlen == sizeof(sockaddr_in6);
    if (!v4 && !v6)
        return false;
    // In both families the port stands at the same place.
    const in_port_t network_port = htons(static_cast<in_port_t>(port));
    std::memcpy(reinterpret_cast<char*>(entry.ai_addr) + offsetof(sockaddr_in, sin_port), &network_port,
                sizeof network_port);
    if (timeout_ms < 0)
        return ::connect(fd, entry.ai_addr, entry.ai_addrlen) == 0;
    return connect_within(fd, entry, timeout_ms);
}

/// Deliberate: one socket for all entries, also after an attempt on it failed.
bool connect_to_any(int fd, const addrinfo* entries, int port, int timeout_ms)
{
    for (const addrinfo* entry = entries; entry != nullptr; entry = entry->ai_next)
        if (connect_to(fd, *entry, port, timeout_ms))
            return true;
    return false;
}

/// The sockets that wait_shutdown_close() waits for; those whose peers have closed want no events any more.
struct Waiting {
    pollfd table[MAX_WAITING];
    unsigned count = 0; ///< more than the table holds when there were too many
    unsigned closed = 0;

    void shut_down(int sd)
    {
        if (::shutdown(sd, SHUT_RDWR) != 0)
            std::perror("error calling shutdown\n"); // the newline is meant
        if (count < MAX_WAITING)
            table[count] = {sd, POLLIN, 0};
        ++count;
    }

    /// @return whether a peer sent or closed
    bool wait(int timeout_ms)
    {
        // A poll that fails leaves the events, and the read would wait for what is not there.
        for (unsigned i = 0; i < count; ++i)
            table[i].revents = 0;
        ::poll(table, count, timeout_ms);
        bool heard = false;
        for (unsigned i = 0; i < count; ++i)
            if ((table[i].revents & table[i].events & POLLIN) != 0)
                heard |= drain(table[i]);
        return heard;
    }

    bool drain(pollfd& entry)
    {
        unsigned char scratch[SCRATCH_SIZE];
        const auto length = ::read(entry.fd, scratch, sizeof scratch);
        if (length == 0) {
            entry.events = 0;
            ++closed;
        }
        return length >= 0;
    }

    void list_open_ones() const
    {
        static_cast<void>(
            std::fputs("Warning, the following peers did not disconnect (dirty close):\n", stderr));
        for (unsigned i = 0; i < count; ++i)
            if (table[i].events != 0)
                static_cast<void>(std::fprintf(stderr, "  %d\n", table[i].fd));
    }

    void close_all() const
    {
        for (unsigned i = 0; i < count; ++i)
            ::close(table[i].fd);
    }
};

} // namespace

bool wait_shutdown_close(const int* sds, unsigned int count, int timeout_ms)
{
    Waiting waiting;
    for (unsigned i = 0; i < count; ++i)
        if (sds[i] >= 0)
            waiting.shut_down(sds[i]);
    if (waiting.count == 0)
        return true;
    if (waiting.count > MAX_WAITING)
        return false;

    const Atime start(true);
    for (;;) {
        const bool heard = waiting.wait(timeout_ms);
        if (waiting.closed == waiting.count || Atime::now() - start >= timeout_ms)
            break;
        if (!heard)
            pause_between_polls();
    }
    const bool clean = waiting.closed == waiting.count;
    if (!clean)
        waiting.list_open_ones();
    waiting.close_all();
    return clean;
}

TCP_client::TCP_client() : address{}, port(0), sd(-1)
{
    // Applications hold clients by value and derive from them: the layout stays.
    static_assert(std::is_standard_layout_v<TCP_client>);
    static_assert(offsetof(TCP_client, address) == 0);
    static_assert(offsetof(TCP_client, port) == 256);
    static_assert(offsetof(TCP_client, sd) == 260);
    static_assert(sizeof(TCP_client) == 264);
}

TCP_client::TCP_client(const char* new_address, int new_port) : TCP_client()
{
    set_address(new_address, -1);
    set_port(new_port);
}

TCP_client::~TCP_client()
{
    close();
}

bool TCP_client::set_address(const char* new_address, int length)
{
    const std::size_t size = length < 0 ? std::strlen(new_address) : static_cast<std::size_t>(length);
    if (size >= sizeof address)
        return false;
    std::memmove(address, new_address, size); // it may be a part of the old one
    address[size] = 0;
    return true;
}

bool TCP_client::set_port(int new_port)
{
    port = new_port;
    return true;
}

int TCP_client::open_connection(int timeout_ms) const
{
    addrinfo* entries = nullptr;
    const int error = ::getaddrinfo(address, nullptr, nullptr, &entries);
    if (error != 0) {
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client getaddrinfo '%s' lookup failed: %s\n", address,
                              ::gai_strerror(error));
        return -1;
    }
    const int fd = make_socket();
    const bool connected = fd >= 0 && connect_to_any(fd, entries, port, timeout_ms);
    ::freeaddrinfo(entries);
    if (fd < 0)
        return -1;
    Debug::Channel::print(DEBUG_CATEGORY, "TCP_client: %s to %s:%i\n",
                          connected ? "Connected" : "Could not connect", address, port);
    if (connected)
        return fd;
    ::close(fd);
    return -1;
}

bool TCP_client::open()
{
    sd = open_connection(-1);
    return sd >= 0;
}

void TCP_client::close()
{
    if (sd >= 0)
        wait_shutdown_close(&sd, 1, 100);
    sd = -1;
}

int TCP_client::read(unsigned char* buf, unsigned int len)
{
    const std::int64_t length = ::read(sd, buf, len);
    return static_cast<int>(length);
}

int TCP_client::write(const unsigned char* buf, unsigned int len)
{
    const std::int64_t length = ::write(sd, buf, len);
    return static_cast<int>(length);
}
