#include "util/net/TCP_server_buffered.h"

#include "tests/support/Debug_output.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Open_descriptors.h"
#include "tests/support/Reserved_port.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <tuple>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

static_assert(TCP_server_buffered::WRITE_BUFFER_SIZE == 4096);
static_assert(std::is_abstract_v<TCP_server_buffered>);
static_assert(std::has_virtual_destructor_v<TCP_server_buffered>);
static_assert(!std::is_copy_constructible_v<TCP_server_buffered>);

namespace {

using Way = Debug_output::Way;
using Bytes = std::vector<unsigned char>;
using std::chrono::steady_clock;

constexpr int LIMIT_MS = 60000; // for what comes at once unless the machine is busy
constexpr int MOST = TCP_server_buffered::WRITE_BUFFER_SIZE - 1;
constexpr const char* NEVER_QUIT = "PRE-failure: we haven't called wait_quit() for TCP_server_buffered\n";
constexpr const char* INCONSISTENT =
    "PRE-failure: can't destruct TCP_server_buffered, as it's in an inconsistent state\n";

/// Waits, looking every millisecond; false when the condition still does not hold after a minute.
template <typename CONDITION>
bool wait_until(CONDITION condition)
{
    const auto end = steady_clock::now() + std::chrono::milliseconds(LIMIT_MS);
    while (!condition()) {
        if (steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

Bytes bytes_of(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// Random bytes: a stretch of them can be found again among the others.
Bytes random_bytes(int count, std::uint64_t seed = 1)
{
    std::mt19937 random(static_cast<std::uint32_t>(seed));
    Bytes bytes(static_cast<std::size_t>(count));
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes stretch(const Bytes& stream, std::size_t first, std::size_t count)
{
    const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(first);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

/// A server whose members the tests may look at.
class Server : public TCP_server_buffered {
public:
    explicit Server(int wanted_port = 0) : TCP_server_buffered(wanted_port) {}
    ~Server() override = default;

    void handle_data(int sd, unsigned char* data, int len) override
    {
        received[sd].append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(len));
        lengths.push_back(len);
        if (on_data)
            on_data(sd);
    }

    int write(const Bytes& bytes)
    {
        return write_to_all_connections(bytes.data(), static_cast<unsigned>(std::uint64_t{bytes.size()}));
    }
    int write(const std::string& text) { return write(bytes_of(text)); }

    int unread(int sd) const { return readers.at(sd).unread(); }

    /// The clients' descriptors.
    std::vector<int> clients() const
    {
        std::vector<int> sds;
        for (const auto& client : readers)
            sds.push_back(client.first);
        return sds;
    }

    std::map<int, std::string> received; // on the loop's thread
    std::vector<int> lengths;
    std::function<void(int)> on_data;

    using TCP_server_buffered::buffer_lock;
    using TCP_server_buffered::dropped_bytes;
    using TCP_server_buffered::fds;
    using TCP_server_buffered::has_connections;
    using TCP_server_buffered::listen_sd;
    using TCP_server_buffered::lock_owner_thread;
    using TCP_server_buffered::lock_owner_tid;
    using TCP_server_buffered::notify_pipe;
    using TCP_server_buffered::port;
    using TCP_server_buffered::readers;
    using TCP_server_buffered::stopped;
    using TCP_server_buffered::wake_on_write;
    using TCP_server_buffered::wake_pending;
    using TCP_server_buffered::write_buffer;
};

/// A peer on loopback.
class Client {
public:
    /// @param receive_buffer  as SO_RCVBUF; 0 for the system's choice
    explicit Client(int port, int receive_buffer = 0) : sd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        if (receive_buffer != 0)
            ::setsockopt(sd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        connected = ::connect(sd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        EXPECT_TRUE(connected) << std::strerror(errno);
    }
    ~Client() { close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd() const { return sd; }

    void close()
    {
        if (sd >= 0)
            ::close(sd);
        sd = -1;
    }

    void reset()
    {
        const linger at_once{1, 0};
        ::setsockopt(sd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close();
    }

    void write(const std::string& text, int flags = 0) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  ::send(sd, text.data(), text.size(), flags | MSG_NOSIGNAL));
    }

    /// Whether something comes to be read within a time: bytes, or the end.
    bool readable(int timeout_ms = LIMIT_MS) const
    {
        pollfd entry{sd, POLLIN, 0};
        return ::poll(&entry, 1, timeout_ms) == 1;
    }

    /// Reads just that many bytes; fewer when they do not come.
    Bytes read(std::size_t count) const
    {
        Bytes bytes(count);
        std::size_t size = 0;
        while (size < count && readable()) {
            const ssize_t now = ::recv(sd, bytes.data() + size, count - size, 0);
            if (now <= 0)
                break;
            size += static_cast<std::size_t>(now);
        }
        bytes.resize(size);
        return bytes;
    }
    std::string read_text(std::size_t count) const
    {
        const Bytes bytes = read(count);
        return {bytes.begin(), bytes.end()};
    }

    /// Whatever is there.
    Bytes read_available() const
    {
        Bytes all;
        unsigned char bytes[4096];
        for (;;) {
            const ssize_t now = ::recv(sd, bytes, sizeof bytes, MSG_DONTWAIT);
            if (now <= 0)
                return all;
            all.insert(all.end(), bytes, bytes + now);
        }
    }

    /// Whether the server has closed the connection, after whatever was sent before.
    bool at_end() const
    {
        unsigned char bytes[4096];
        while (readable()) {
            const ssize_t now = ::recv(sd, bytes, sizeof bytes, 0);
            if (now <= 0)
                return now == 0 || errno == ECONNRESET;
        }
        return false;
    }

private:
    int sd;
    bool connected = false;
};

/// Polls until the server has one client more. @return its descriptor in the server
int accept(Server& server)
{
    const std::vector<int> before = server.clients();
    EXPECT_TRUE(wait_until([&] {
        EXPECT_TRUE(server.run_poll());
        return server.readers.size() == before.size() + 1;
    }));
    for (const int sd : server.clients())
        if (std::find(before.begin(), before.end(), sd) == before.end())
            return sd;
    return -1;
}

/// A client of a server that is polled.
struct Accepted : Client {
    explicit Accepted(Server& server) : Client(server.port), in_server(accept(server)) {}
    const int in_server;
};

/// Runs the server on a thread of its own until the object goes.
class Loop {
public:
    explicit Loop(Server& served) : server(served), thread([&served] { served.run_blocking(); })
    {
        EXPECT_TRUE(wait_until([&served] { return !served.stopped; }));
    }
    ~Loop() { quit(); }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    void quit()
    {
        if (!thread.joinable())
            return;
        server.wait_quit();
        thread.join();
    }

private:
    Server& server;
    std::thread thread;
};

/// Waits until the descriptor is readable, so that the next pass finds it so.
bool arrived(int sd)
{
    pollfd entry{sd, POLLIN, 0};
    return ::poll(&entry, 1, LIMIT_MS) == 1;
}

/// What the kernel has not yet given to the reader of a pipe.
Bytes in_pipe(int read_end)
{
    Bytes bytes(70000);
    const ssize_t count = ::read(read_end, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

void put_into_pipe(Server& server, const Bytes& bytes)
{
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), ::write(server.notify_pipe[0], bytes.data(), bytes.size()));
}

int option(int sd, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(sd, level, name, &value, &size);
    return value;
}

bool is_open(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

std::vector<std::string> printed(const Debug_output& output)
{
    std::vector<std::string> texts;
    for (const Debug_output::Line& line : output.lines())
        if (line.way == Way::PRINT) {
            EXPECT_EQ(107, line.category);
            texts.push_back(line.text);
        }
    return texts;
}

/// The prefixes of the C library's perror, with the errno of each.
std::vector<std::pair<std::string, int>> errors(const Debug_output& output)
{
    std::vector<std::pair<std::string, int>> texts;
    for (const Debug_output::Line& line : output.lines()) {
        EXPECT_NE(Way::DEBUG_PERROR, line.way);
        if (line.way == Way::PERROR)
            texts.emplace_back(line.text, line.error);
    }
    return texts;
}

std::vector<std::string> criticals(const Debug_output& output)
{
    std::vector<std::string> texts;
    for (const Debug_output::Line& line : output.lines())
        if (line.way == Way::CRITICAL)
            texts.push_back(line.text);
    return texts;
}

using Errors = std::vector<std::pair<std::string, int>>;

/// Fails calls as they are told to.
class Failing_calls : public Interposed_calls {
public:
    // errno, or 0 for calls that go on to the C library
    int socket_error = 0, pipe2_error = 0, bind_error = 0, getsockname_error = 0, listen_error = 0;
    int poll_error = 0, accept_error = 0;
    int read_error = 0;
    std::atomic<int> write_error{0};

    int failing_option = 0; // of setsockopt
    int failing_read = -1;  // descriptor
    int failing_write = -1;

    int socket(int domain, int type, int protocol) override
    {
        return fails(socket_error) ? -1 : Interposed_calls::socket(domain, type, protocol);
    }
    int pipe2(int* ends, int flags) override
    {
        return fails(pipe2_error) ? -1 : Interposed_calls::pipe2(ends, flags);
    }
    int setsockopt(int fd, int level, int name, const void* value, socklen_t size) override
    {
        if (failing_option == name && fails(ENOPROTOOPT))
            return -1;
        return Interposed_calls::setsockopt(fd, level, name, value, size);
    }
    int bind(int fd, const sockaddr* address, socklen_t size) override
    {
        return fails(bind_error) ? -1 : Interposed_calls::bind(fd, address, size);
    }
    int getsockname(int fd, sockaddr* address, socklen_t* size) override
    {
        return fails(getsockname_error) ? -1 : Interposed_calls::getsockname(fd, address, size);
    }
    int listen(int fd, int backlog) override
    {
        return fails(listen_error) ? -1 : Interposed_calls::listen(fd, backlog);
    }
    int poll(pollfd* fds, nfds_t count, int timeout_ms) override
    {
        return fails(poll_error) ? -1 : Interposed_calls::poll(fds, count, timeout_ms);
    }
    int accept(int fd, sockaddr* address, socklen_t* size) override
    {
        return fails(accept_error) ? -1 : Interposed_calls::accept(fd, address, size);
    }
    ssize_t read(int fd, void* data, std::size_t size) override
    {
        return fd == failing_read && fails(read_error) ? -1 : Interposed_calls::read(fd, data, size);
    }
    ssize_t write(int fd, const void* data, std::size_t size) override
    {
        return fd == failing_write && fails(write_error) ? -1 : Interposed_calls::write(fd, data, size);
    }

private:
    static bool fails(int error)
    {
        if (error != 0)
            errno = error;
        return error != 0;
    }
};

} // namespace

// ---- construction

TEST(TCP_server_buffered, listens_on_a_port_of_the_systems_choosing)
{
    const Debug_output output;
    const Server server;
    EXPECT_GT(server.port, 0);
    EXPECT_THAT(printed(output), ElementsAre("Starting Buffered TCP server on any port\n",
                                             "  Bound to port " + std::to_string(server.port) + "\n"));
    EXPECT_THAT(errors(output), IsEmpty());
    const Client client(server.port);
}

TEST(TCP_server_buffered, listens_on_the_port_it_is_told)
{
    const Reserved_port reserved;
    const int port = reserved.number();
    const Debug_output output;
    const Server server(port);
    EXPECT_EQ(port, server.port);
    const std::string number = std::to_string(port);
    EXPECT_THAT(printed(output), ElementsAre("Starting Buffered TCP server on port " + number + "\n",
                                             "  Bound to port " + number + "\n"));
}

TEST(TCP_server_buffered, starts_with_nothing_to_do)
{
    const Debug_output output;
    const Server server;
    EXPECT_TRUE(server.wake_on_write);
    EXPECT_FALSE(server.stopped);
    EXPECT_FALSE(server.has_connections);
    EXPECT_FALSE(server.wake_pending);
    EXPECT_EQ(0, server.dropped_bytes);
    EXPECT_EQ(0, server.write_buffer.total());
    EXPECT_EQ(nullptr, server.lock_owner_thread.load());
    EXPECT_EQ(0, server.lock_owner_tid);
    EXPECT_TRUE(server.readers.empty());
    std::vector<int> fixed{server.listen_sd, server.notify_pipe[0], server.notify_pipe[1]};
    std::sort(fixed.begin(), fixed.end());
    EXPECT_EQ(fixed, server.fds);
}

TEST(TCP_server_buffered, sets_its_descriptors_up)
{
    struct Noted_calls : Interposed_calls {
        int pipe_flags = -1;
        std::vector<int> socket_arguments;
        int backlog = -1;
        int pipe2(int* ends, int flags) override
        {
            pipe_flags = flags;
            return Interposed_calls::pipe2(ends, flags);
        }
        int socket(int domain, int type, int protocol) override
        {
            socket_arguments = {domain, type, protocol};
            return Interposed_calls::socket(domain, type, protocol);
        }
        int listen(int fd, int wanted) override
        {
            backlog = wanted;
            return Interposed_calls::listen(fd, wanted);
        }
    };
    const Debug_output output;
    const Noted_calls calls;
    const Server server;
    EXPECT_EQ(O_NONBLOCK, calls.pipe_flags);
    EXPECT_THAT(calls.socket_arguments, ElementsAre(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(5, calls.backlog);
    EXPECT_EQ(O_WRONLY, ::fcntl(server.notify_pipe[0], F_GETFL) & O_ACCMODE);
    EXPECT_EQ(O_RDONLY, ::fcntl(server.notify_pipe[1], F_GETFL) & O_ACCMODE);
    EXPECT_NE(0, ::fcntl(server.listen_sd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(1, option(server.listen_sd, SOL_SOCKET, SO_REUSEADDR));
    EXPECT_EQ(1, option(server.listen_sd, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(1, option(server.listen_sd, SOL_SOCKET, SO_ACCEPTCONN));
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(0, ::getsockname(server.listen_sd, reinterpret_cast<sockaddr*>(&address), &size));
    EXPECT_EQ(htonl(INADDR_ANY), address.sin_addr.s_addr);
}

TEST(TCP_server_buffered, works_without_a_pipe_as_far_as_it_can)
{
    const Debug_output output;
    {
        Failing_calls calls;
        calls.pipe2_error = EMFILE;
        Server server;
        EXPECT_EQ(-1, server.notify_pipe[0]);
        EXPECT_EQ(-1, server.notify_pipe[1]);
        EXPECT_THAT(server.fds, ElementsAre(-1, -1, server.listen_sd));
        EXPECT_THAT(printed(output), testing::SizeIs(2));
        EXPECT_EQ((Errors{{"TCP_server: could not create notification pipe", EMFILE}}), errors(output));

        const Accepted client(server);
        EXPECT_EQ(5, server.write("hello"));
        EXPECT_EQ(5, server.write("again")); // a byte that was not written is not written again
        EXPECT_EQ(1, output.count(Way::PERROR, "could not wake"));
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ("helloagain", client.read_text(10));
    }
    EXPECT_THAT(criticals(output), IsEmpty());
}

TEST(TCP_server_buffered, takes_the_end_of_its_pipe_for_no_wake_and_no_failure)
{
    const Debug_output output;
    Server server;
    int ended[2];
    ASSERT_EQ(0, ::pipe(ended));
    ::close(ended[1]);
    const int kept = ::dup(server.notify_pipe[1]);
    ASSERT_EQ(server.notify_pipe[1], ::dup2(ended[0], server.notify_pipe[1]));
    errno = 0;
    EXPECT_TRUE(server.run_poll());
    EXPECT_THAT(errors(output), IsEmpty());
    EXPECT_EQ(server.notify_pipe[1], ::dup2(kept, server.notify_pipe[1]));
    ::close(kept);
    ::close(ended[0]);
}

TEST(TCP_server_buffered, stops_where_it_has_no_socket)
{
    const Debug_output output;
    const long before = open_descriptors();
    {
        Failing_calls calls;
        calls.socket_error = EMFILE;
        Server server;
        EXPECT_EQ(-1, server.listen_sd);
        EXPECT_EQ(-1, server.port);
        EXPECT_THAT(server.fds, IsEmpty());
        EXPECT_EQ((Errors{{"cannot open socket ", EMFILE}}), errors(output));
        EXPECT_THAT(printed(output), ElementsAre("Starting Buffered TCP server on any port\n"));
        EXPECT_EQ(before + 2, open_descriptors());
    }
    EXPECT_THAT(criticals(output), ElementsAre(NEVER_QUIT, INCONSISTENT));
    EXPECT_EQ(before, open_descriptors());
}

TEST(TCP_server_buffered, stops_where_it_cannot_bind)
{
    const Debug_output output;
    const Server first;
    const long before = open_descriptors();
    {
        Server second(first.port);
        EXPECT_GE(second.listen_sd, 0);
        EXPECT_EQ(-1, second.port);
        EXPECT_THAT(second.fds, IsEmpty());
        EXPECT_EQ((Errors{{"cannot bind port ", EADDRINUSE}}), errors(output));
        EXPECT_THAT(printed(output), testing::SizeIs(3)); // no "Bound" of the second
        EXPECT_EQ(0, option(second.listen_sd, SOL_SOCKET, SO_ACCEPTCONN));

        EXPECT_FALSE(second.run_poll());
        EXPECT_FALSE(second.run_blocking());
        second.wait_quit();
        EXPECT_EQ(3, second.write("abc"));
    }
    EXPECT_THAT(criticals(output), ElementsAre(INCONSISTENT));
    EXPECT_EQ(before, open_descriptors());
}

TEST(TCP_server_buffered, goes_on_without_a_socket_option)
{
    const std::pair<int, const char*> cases[] = {{SO_REUSEADDR, "setsockopt(SO_REUSEPORT)"},
                                                 {TCP_NODELAY, "setsockopt(TCP_NODELAY)"}};
    for (const auto& [name, text] : cases) {
        SCOPED_TRACE(text);
        const Debug_output output;
        Failing_calls calls;
        calls.failing_option = name;
        Server server;
        EXPECT_EQ((Errors{{text, ENOPROTOOPT}}), errors(output));
        const Accepted client(server);
        server.write("served");
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ("served", client.read_text(6));
    }
}

TEST(TCP_server_buffered, says_nothing_of_other_failures_while_it_is_made)
{
    const Debug_output output;
    Failing_calls calls;
    calls.getsockname_error = ENOBUFS;
    calls.listen_error = EADDRINUSE;
    const Server server;
    EXPECT_THAT(errors(output), IsEmpty());
    EXPECT_EQ(3U, server.fds.size());
}

// ---- writing

TEST(TCP_server_buffered, refuses_a_message_as_long_as_its_buffer)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    const Bytes message = random_bytes(4097);
    const auto write = [&](unsigned len) { return server.write_to_all_connections(message.data(), len); };
    for (const unsigned len : {4096U, 4097U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(0, write(len));
        EXPECT_EQ(0, server.unread(client.in_server));
        EXPECT_FALSE(server.wake_pending);
    }
    EXPECT_EQ(4095, write(4095));
    EXPECT_EQ(4095, server.unread(client.in_server));
    EXPECT_EQ(4095, server.write_buffer.total());
    EXPECT_EQ(0, server.dropped_bytes);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(stretch(message, 0, 4095), client.read(4095));
    EXPECT_THAT(errors(output), IsEmpty());
}

TEST(TCP_server_buffered, wakes_for_an_empty_message_too)
{
    const Debug_output output;
    Server server;
    EXPECT_EQ(0, server.write_to_all_connections(nullptr, 0));
    EXPECT_TRUE(server.wake_pending);
    EXPECT_THAT(in_pipe(server.notify_pipe[1]), ElementsAre(3));
}

TEST(TCP_server_buffered, keeps_the_newest_4095_bytes_for_a_client_that_reads_nothing)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    const Bytes stream = random_bytes(5000);
    const int dropped[] = {0, 0, 0, 0, 905};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(1000, server.write(stretch(stream, i * 1000, 1000)));
        EXPECT_EQ(dropped[i], server.dropped_bytes);
    }
    server.write(stretch(stream, 0, 1)); // exact from here on, too
    EXPECT_EQ(906, server.dropped_bytes);
    EXPECT_EQ(4095, server.unread(client.in_server));
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(server.run_poll());
    Bytes newest = stretch(stream, 906, 5000 - 906);
    newest.push_back(stream[0]);
    EXPECT_EQ(newest, client.read(4095));
}

TEST(TCP_server_buffered, sums_the_losses_of_all_clients)
{
    const Debug_output output;
    Server server;
    const Accepted first(server);
    server.write(Bytes(100));
    const Accepted second(server); // the pass that accepts it sends the first its bytes
    server.write(Bytes(4000));
    EXPECT_EQ(0, server.dropped_bytes);
    server.write(Bytes(200));
    EXPECT_EQ(2 * 105, server.dropped_bytes);
    EXPECT_TRUE(server.run_poll());
    server.write(Bytes(2000)); // 1024 bytes further on, each has room for that
    EXPECT_EQ(2 * (105 + 976), server.dropped_bytes);
}

TEST(TCP_server_buffered, has_nothing_from_before_a_client_came_for_it)
{
    const Debug_output output;
    Server server;
    server.write("before");
    const Accepted client(server);
    EXPECT_EQ(0, server.unread(client.in_server));
    server.write("after");
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ("after", client.read_text(5));
    EXPECT_FALSE(client.readable(0));
}

TEST(TCP_server_buffered, loses_what_nobody_is_there_for_without_counting)
{
    const Debug_output output;
    Server server;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(4095, server.write(Bytes(4095)));
    EXPECT_EQ(0, server.dropped_bytes);
    EXPECT_EQ(3 * 4095, server.write_buffer.total());
}

TEST(TCP_server_buffered, notes_who_holds_its_lock)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    struct Looking_calls : Interposed_calls {
        explicit Looking_calls(Server& looked_at) : server(looked_at) {}
        Server& server;
        int free_at_write = 0;
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            if (server.lock_owner_tid == 0 && server.lock_owner_thread.load() == nullptr &&
                server.buffer_lock.tryLock()) {
                server.buffer_lock.unlock();
                ++free_at_write;
            }
            return Interposed_calls::write(fd, data, size);
        }
    };
    Looking_calls calls(server);
    server.write("hello");          // a wake byte ...
    EXPECT_TRUE(server.run_poll()); // ... and the message, neither under the lock
    EXPECT_EQ(2, calls.free_at_write);
    EXPECT_EQ("hello", client.read_text(5));
}

TEST(TCP_server_buffered, notes_the_producer_while_it_holds_the_lock)
{
    const Debug_output output;
    Server server;
    std::atomic<pid_t> tid{0};
    std::atomic<bool> seen{false};
    std::thread producer([&] {
        tid = ::gettid();
        const Bytes message(MOST);
        while (!seen)
            server.write(message);
    });
    EXPECT_TRUE(wait_until([&] { return tid != 0 && server.lock_owner_tid == tid; }));
    EXPECT_TRUE(wait_until([&] { return server.lock_owner_thread.load() != nullptr; }));
    seen = true;
    producer.join();
    EXPECT_EQ(0, server.lock_owner_tid);
    EXPECT_EQ(nullptr, server.lock_owner_thread.load());
}

TEST(TCP_server_buffered, waits_for_a_lock_that_is_taken)
{
    const Debug_output output;
    Server server;
    std::atomic<bool> written{false};
    server.buffer_lock.lock();
    std::thread producer([&] {
        server.write("hello");
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(written);
    server.buffer_lock.unlock();
    producer.join();
    EXPECT_EQ(5, server.write_buffer.total());
    EXPECT_EQ(0, server.lock_owner_tid);
    EXPECT_EQ(nullptr, server.lock_owner_thread.load());
}

// ---- waking

TEST(TCP_server_buffered, wakes_the_loop_once_until_it_has_taken_notice)
{
    const Debug_output output;
    Server server;
    server.write("a");
    server.write("b");
    EXPECT_TRUE(server.wake_pending);
    EXPECT_THAT(in_pipe(server.notify_pipe[1]), ElementsAre(3));
    put_into_pipe(server, {3});
    EXPECT_TRUE(server.run_poll());
    EXPECT_FALSE(server.wake_pending);
    server.write("c");
    EXPECT_TRUE(server.wake_pending);
    EXPECT_THAT(in_pipe(server.notify_pipe[1]), ElementsAre(3));
}

TEST(TCP_server_buffered, does_not_wake_a_loop_that_needs_no_waking)
{
    const Debug_output output;
    Server server;
    server.wake_on_write = false;
    EXPECT_EQ(1, server.write("a"));
    EXPECT_FALSE(server.wake_pending);
    EXPECT_THAT(in_pipe(server.notify_pipe[1]), IsEmpty());
}

TEST(TCP_server_buffered, says_when_it_cannot_wake_and_queues_all_the_same)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    {
        Failing_calls calls;
        calls.failing_write = server.notify_pipe[0];
        calls.write_error = EAGAIN;
        EXPECT_EQ(5, server.write("hello"));
    }
    EXPECT_EQ((Errors{{"could not wake", EAGAIN}}), errors(output));
    EXPECT_TRUE(server.wake_pending);
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ("hello", client.read_text(5));
}

TEST(TCP_server_buffered, asks_to_be_woken_when_a_client_has_got_everything)
{
    const Debug_output output;
    Server server;
    server.wake_on_write = false;
    EXPECT_TRUE(server.run_poll());
    EXPECT_FALSE(server.wake_on_write) << "without clients";

    const Accepted client(server);
    EXPECT_TRUE(server.wake_on_write) << "with a client that came just now";

    server.wake_on_write = false;
    server.write(Bytes(1025));
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(1, server.unread(client.in_server));
    EXPECT_FALSE(server.wake_on_write) << "with a byte left";
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.wake_on_write);

    server.wake_on_write = false;
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.wake_on_write) << "without anything to send";
}

TEST(TCP_server_buffered, does_not_ask_to_be_woken_for_a_client_that_takes_nothing)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    server.wake_on_write = false;
    server.write("hello");
    Failing_calls calls;
    calls.failing_write = client.in_server;
    for (const int error : {EAGAIN, EPIPE}) { // left alone, closed
        calls.write_error = error;
        EXPECT_TRUE(server.run_poll());
        EXPECT_FALSE(server.wake_on_write);
    }
}

TEST(TCP_server_buffered, quits_on_a_four_and_ignores_what_is_neither_three_nor_four)
{
    struct Case {
        Bytes bytes;
        bool goes_on, wake_pending;
    };
    const Case cases[] = {
        {{3}, true, false},
        {{4}, false, true},
        {{0, 1, 2, 5, 255}, true, true},
        {{7, 3, 7}, true, false},
        {{3, 4}, false, false},
        {{4, 3}, false, true}, // at once: the 3 is not looked at
        {{3, 3, 3}, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        const Debug_output output;
        Server server;
        server.wake_pending = true;
        put_into_pipe(server, c.bytes);
        EXPECT_EQ(c.goes_on, server.run_poll());
        EXPECT_EQ(c.wake_pending, server.wake_pending);
        EXPECT_THAT(in_pipe(server.notify_pipe[1]), IsEmpty());
        EXPECT_TRUE(server.stopped);
    }
}

TEST(TCP_server_buffered, takes_64_bytes_from_the_pipe_in_a_pass)
{
    const Debug_output output;
    Server server;
    Bytes bytes(64, 9);
    bytes.push_back(4);
    put_into_pipe(server, bytes);
    EXPECT_TRUE(server.run_poll());
    EXPECT_FALSE(server.run_poll());

    put_into_pipe(server, Bytes(bytes.begin() + 1, bytes.end()));
    EXPECT_FALSE(server.run_poll());
    EXPECT_TRUE(server.run_poll());
}

TEST(TCP_server_buffered, does_nothing_else_in_the_pass_that_quits)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    client.write("hello");
    server.write("world");
    ASSERT_TRUE(arrived(client.in_server));
    put_into_pipe(server, {4});
    EXPECT_FALSE(server.run_poll());
    EXPECT_TRUE(server.received.empty());
    EXPECT_EQ(5, server.unread(client.in_server));
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ("hello", server.received[client.in_server]);
    EXPECT_EQ("world", client.read_text(5));
}

TEST(TCP_server_buffered, goes_on_when_the_wake_byte_is_gone_already)
{
    const Debug_output output;
    Server server;
    put_into_pipe(server, {4});
    Failing_calls calls;
    calls.failing_read = server.notify_pipe[1];
    calls.read_error = EAGAIN;
    EXPECT_TRUE(server.run_poll());
    EXPECT_THAT(errors(output), IsEmpty());
}

// ---- a pass

TEST(TCP_server_buffered, returns_at_once_when_there_is_nothing_to_do)
{
    const Debug_output output;
    Server server;
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.stopped);
    EXPECT_THAT(errors(output), IsEmpty());
}

TEST(TCP_server_buffered, takes_its_steps_in_order)
{
    struct Noted_calls : Interposed_calls {
        std::map<int, std::string> names;
        std::vector<std::string> calls;
        int timeout_ms = -2;
        void note(const char* call, int fd)
        {
            const auto name = names.find(fd);
            calls.push_back(std::string(call) + " " + (name == names.end() ? "new" : name->second));
        }
        int poll(pollfd* fds, nfds_t count, int timeout) override
        {
            calls.emplace_back("poll");
            timeout_ms = timeout;
            return Interposed_calls::poll(fds, count, timeout);
        }
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            note("read", fd);
            EXPECT_EQ(names[fd] == "pipe" ? 64U : 256U, size);
            pollfd entry{fd, POLLIN, 0};
            if (Interposed_calls::poll(&entry, 1, 0) == 1)
                return Interposed_calls::read(fd, data, size);
            ADD_FAILURE() << "the read would block";
            errno = EAGAIN;
            return -1;
        }
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            note("write", fd);
            return Interposed_calls::write(fd, data, size);
        }
        int close(int fd) override
        {
            note("close", fd);
            return Interposed_calls::close(fd);
        }
        int accept(int fd, sockaddr* address, socklen_t* size) override
        {
            note("accept", fd);
            return Interposed_calls::accept(fd, address, size);
        }
        int fcntl(int fd, int command, long argument) override
        {
            note(command == F_GETFL ? "getfl" : "setfl", fd);
            return Interposed_calls::fcntl(fd, command, argument);
        }
    };
    const Debug_output output;
    Server server;
    const Accepted a(server);
    const Accepted b(server);
    const Accepted c(server);
    const Accepted d(server);
    ASSERT_TRUE(a.in_server < b.in_server && b.in_server < c.in_server && c.in_server < d.in_server);
    server.write("everyone");
    c.write("from c");
    ASSERT_TRUE(arrived(c.in_server));
    c.write("!", MSG_OOB);
    const Client e(server.port);
    a.write("from a");
    d.write("from d");
    for (const int sd : {a.in_server, d.in_server, server.listen_sd})
        ASSERT_TRUE(arrived(sd));
    pollfd urgent{c.in_server, POLLPRI, 0};
    ASSERT_EQ(1, ::poll(&urgent, 1, LIMIT_MS));
    {
        Noted_calls noted;
        noted.names = {{server.notify_pipe[1], "pipe"},
                       {server.listen_sd, "listener"},
                       {a.in_server, "a"},
                       {b.in_server, "b"},
                       {c.in_server, "c"},
                       {d.in_server, "d"}};
        const bool go_on = server.run_poll();
        const std::vector<std::string> calls = noted.calls;
        EXPECT_TRUE(go_on);
        EXPECT_EQ(0, noted.timeout_ms);
        // The new client takes the number of the one that was closed, and is not taken for it.
        EXPECT_THAT(calls,
                    ElementsAre("poll", "read pipe", "close c", "accept listener", "getfl c",
                                "setfl listener", "read a", "read d", "write a", "write b", "write d"));
    }
    EXPECT_EQ("from a", server.received[a.in_server]);
    EXPECT_EQ("from d", server.received[d.in_server]);
    EXPECT_EQ(4U, server.readers.size());
    EXPECT_EQ(0, server.unread(c.in_server));
    EXPECT_EQ("everyone", b.read_text(8));
    EXPECT_TRUE(c.at_end());
    EXPECT_FALSE(e.readable(0));
}

TEST(TCP_server_buffered, waits_without_limit_when_it_blocks)
{
    struct Noted_calls : Interposed_calls {
        std::vector<int> timeouts_ms;
        int poll(pollfd* fds, nfds_t count, int timeout) override
        {
            timeouts_ms.push_back(timeout);
            return Interposed_calls::poll(fds, count, timeout);
        }
    };
    const Debug_output output;
    Server server;
    put_into_pipe(server, {4});
    Noted_calls calls;
    EXPECT_FALSE(server.run_blocking());
    EXPECT_TRUE(server.stopped);
    EXPECT_THAT(calls.timeouts_ms, ElementsAre(-1));
}

TEST(TCP_server_buffered, takes_the_processor_from_nobody_who_wakes_it_while_it_blocks)
{
    struct Noted_policy : Interposed_calls {
        int policy = -1;
        int poll(pollfd* fds, nfds_t count, int timeout) override
        {
            policy = ::sched_getscheduler(0);
            return Interposed_calls::poll(fds, count, timeout);
        }
    };
    struct Case {
        int before;
        bool blocking;
        int meanwhile;
    };
    for (const Case& c : {Case{SCHED_OTHER, true, SCHED_BATCH}, Case{SCHED_OTHER, false, SCHED_OTHER},
                          Case{SCHED_IDLE, true, SCHED_IDLE}}) {
        SCOPED_TRACE(testing::Message() << c.before << " " << c.blocking);
        const Debug_output output;
        Server server;
        put_into_pipe(server, {4});
        std::thread([&] { // of its own, for nobody may leave SCHED_IDLE on every system
            const sched_param none{};
            ASSERT_EQ(0, ::sched_setscheduler(0, c.before, &none));
            Noted_policy noted;
            EXPECT_FALSE(c.blocking ? server.run_blocking() : server.run_poll());
            EXPECT_EQ(c.meanwhile, noted.policy);
            EXPECT_EQ(c.before, ::sched_getscheduler(0));
        })
            .join();
    }
}

TEST(TCP_server_buffered, ends_its_run_when_waiting_is_interrupted)
{
    for (const int error : {EINTR, EAGAIN}) {
        const Debug_output output;
        Server server;
        Failing_calls calls;
        calls.poll_error = error;
        EXPECT_FALSE(server.run_poll());
        EXPECT_FALSE(server.run_blocking());
        EXPECT_TRUE(server.stopped);
        EXPECT_THAT(errors(output), IsEmpty());
    }
}

TEST(TCP_server_buffered, ends_its_run_on_a_signal)
{
    struct sigaction action {
    }, previous{};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART; // waiting is interrupted all the same
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &previous));
    const Debug_output output;
    Server server;
    std::atomic<bool> returned{false};
    std::thread loop([&] {
        server.run_blocking();
        returned = true;
    });
    EXPECT_TRUE(wait_until([&] {
        ::pthread_kill(loop.native_handle(), SIGUSR1);
        return returned.load();
    }));
    loop.join();
    EXPECT_TRUE(server.stopped);
    ::sigaction(SIGUSR1, &previous, nullptr);
}

TEST(TCP_server_buffered, closes_a_client_that_sends_urgent_data)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    client.write("!", MSG_OOB);
    EXPECT_TRUE(wait_until([&] {
        EXPECT_TRUE(server.run_poll());
        return server.readers.empty();
    }));
    EXPECT_FALSE(server.has_connections);
    EXPECT_EQ(3U, server.fds.size());
    EXPECT_FALSE(is_open(client.in_server));
    EXPECT_TRUE(client.at_end());
    EXPECT_THAT(errors(output), IsEmpty());
}

TEST(TCP_server_buffered, accepts_one_client_in_a_pass)
{
    const Debug_output output;
    Server server;
    const Client first(server.port);
    const Client second(server.port);
    ASSERT_TRUE(arrived(server.listen_sd));
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(1U, server.readers.size());
    EXPECT_TRUE(server.has_connections);
    EXPECT_EQ(4U, server.fds.size());
    EXPECT_TRUE(std::is_sorted(server.fds.begin(), server.fds.end()));
    ASSERT_TRUE(arrived(server.listen_sd));
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(2U, server.readers.size());
}

TEST(TCP_server_buffered, gives_the_clients_flags_to_the_listening_socket)
{
    struct Noted_calls : Interposed_calls {
        std::vector<std::pair<int, long>> set;
        int fcntl(int fd, int command, long argument) override
        {
            if (command == F_GETFL)
                return O_RDWR | O_APPEND;
            if (command == F_SETFL) {
                set.emplace_back(fd, argument);
                return 0;
            }
            return Interposed_calls::fcntl(fd, command, argument);
        }
    };
    const Debug_output output;
    Server server;
    int sd = -1;
    {
        const Client client(server.port);
        Noted_calls calls;
        sd = accept(server);
        const std::vector<std::pair<int, long>> expected{{server.listen_sd, O_RDWR | O_APPEND | O_NONBLOCK}};
        EXPECT_EQ(expected, calls.set);
    }
    EXPECT_EQ(0, ::fcntl(sd, F_GETFL) & O_NONBLOCK) << "the client stays blocking";
}

TEST(TCP_server_buffered, makes_the_listening_socket_non_blocking_again)
{
    const Debug_output output;
    Server server;
    ::fcntl(server.listen_sd, F_SETFL, 0);
    const Accepted client(server);
    EXPECT_NE(0, ::fcntl(server.listen_sd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(0, ::fcntl(client.in_server, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(1, option(client.in_server, IPPROTO_TCP, TCP_NODELAY));
}

TEST(TCP_server_buffered, says_when_it_cannot_accept_and_goes_on)
{
    const Debug_output output;
    Server server;
    const Client client(server.port);
    ASSERT_TRUE(arrived(server.listen_sd));
    {
        Failing_calls calls;
        calls.accept_error = ECONNABORTED;
        EXPECT_TRUE(server.run_poll());
    }
    EXPECT_EQ((Errors{{"cannot accept connection ", ECONNABORTED}}), errors(output));
    EXPECT_EQ(3U, server.fds.size());
    EXPECT_FALSE(server.has_connections);
    EXPECT_NE(0, ::fcntl(server.listen_sd, F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(1U, server.readers.size());
}

TEST(TCP_server_buffered, hands_over_256_bytes_of_each_client_in_a_pass)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    const Accepted other(server);
    const std::string text(600, 'x');
    client.write(text);
    other.write("y");
    ASSERT_TRUE(wait_until([&] {
        int there = 0;
        ::ioctl(client.in_server, FIONREAD, &there);
        return there == 600 && arrived(other.in_server);
    }));
    EXPECT_TRUE(server.run_poll());
    EXPECT_THAT(server.lengths, ElementsAre(256, 1));
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.run_poll());
    EXPECT_THAT(server.lengths, ElementsAre(256, 1, 256, 88));
    EXPECT_EQ(text, server.received[client.in_server]);
    EXPECT_EQ("y", server.received[other.in_server]);
}

TEST(TCP_server_buffered, closes_a_client_that_has_gone)
{
    for (const bool reset : {false, true}) {
        const Debug_output output;
        Server server;
        Accepted client(server);
        const Accepted other(server);
        if (reset)
            client.reset();
        else
            client.close();
        EXPECT_TRUE(wait_until([&] {
            EXPECT_TRUE(server.run_poll());
            return server.readers.size() == 1;
        }));
        EXPECT_FALSE(is_open(client.in_server));
        EXPECT_TRUE(server.has_connections);
        server.write("still here");
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ("still here", other.read_text(10));
        EXPECT_THAT(errors(output), IsEmpty());
    }
}

TEST(TCP_server_buffered, closes_a_client_when_reading_fails_but_not_when_it_would_block)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    client.write("hello");
    ASSERT_TRUE(arrived(client.in_server));
    Failing_calls calls;
    calls.failing_read = client.in_server;
    calls.read_error = EAGAIN;
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(1U, server.readers.size());
    calls.read_error = EINTR;
    EXPECT_TRUE(server.run_poll());
    EXPECT_TRUE(server.readers.empty());
    EXPECT_FALSE(is_open(client.in_server));
    EXPECT_TRUE(server.received.empty());
    EXPECT_THAT(errors(output), IsEmpty());
}

TEST(TCP_server_buffered, sends_1024_bytes_to_each_client_in_a_pass)
{
    const Debug_output output;
    Server server;
    const Accepted first(server);
    const Accepted second(server);
    const Bytes stream = random_bytes(2500);
    server.write(stream);
    for (const int left : {1476, 452, 0, 0}) {
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ(left, server.unread(first.in_server));
        EXPECT_EQ(left, server.unread(second.in_server));
    }
    EXPECT_EQ(stream, first.read(2500));
    EXPECT_EQ(stream, second.read(2500));
    EXPECT_FALSE(first.readable(0));
}

TEST(TCP_server_buffered, sends_the_rest_of_a_short_write_later)
{
    struct Short_writes : Interposed_calls {
        int sd = -1;
        std::vector<std::size_t> sizes;
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            if (fd != sd)
                return Interposed_calls::write(fd, data, size);
            sizes.push_back(size);
            return Interposed_calls::write(fd, data, std::min<std::size_t>(size, 1000));
        }
    };
    const Debug_output output;
    Server server;
    const Accepted client(server);
    const Bytes stream = random_bytes(2050);
    Short_writes calls;
    calls.sd = client.in_server;
    server.write(stream);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(server.run_poll());
    EXPECT_THAT(calls.sizes, ElementsAre(1024, 1024, 50));
    EXPECT_EQ(stream, client.read(2050));
}

TEST(TCP_server_buffered, skips_a_client_that_would_block_and_closes_one_that_fails)
{
    for (const int error : {EINTR, ECONNRESET, EPIPE}) { // the last without its signal
        SCOPED_TRACE(std::strerror(error));
        const Debug_output output;
        Server server;
        const Accepted client(server);
        const Accepted other(server);
        server.write("hello");
        Failing_calls calls;
        calls.failing_write = client.in_server;
        calls.write_error = EAGAIN;
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ(5, server.unread(client.in_server));
        EXPECT_EQ("hello", other.read_text(5));
        calls.write_error = error;
        EXPECT_TRUE(server.run_poll());
        EXPECT_THAT(server.clients(), ElementsAre(other.in_server));
        EXPECT_FALSE(is_open(client.in_server));
        EXPECT_TRUE(client.at_end());
        EXPECT_THAT(errors(output), IsEmpty());
    }
}

// A piece counts as read only when it is sent, and then from wherever the position has got to.
TEST(TCP_server_buffered, loses_bytes_to_a_producer_that_gets_ahead_while_they_are_sent)
{
    struct Overtaken_writes : Interposed_calls {
        int sd = -1;
        std::function<void()> meanwhile;
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            if (fd == sd && meanwhile)
                std::exchange(meanwhile, nullptr)();
            return Interposed_calls::write(fd, data, size);
        }
    };
    struct Case {
        int before, meanwhile, lost;
    };
    for (const Case& c : {Case{1024, 3071, 0}, {1024, 3072, 1}, {1024, 4095, 1024}, {4095, 100, 100}}) {
        SCOPED_TRACE(testing::Message() << c.before << " bytes, then " << c.meanwhile);
        const Debug_output output;
        Server server;
        const Accepted client(server);
        const Bytes stream = random_bytes(c.before + c.meanwhile);
        const auto before = static_cast<std::size_t>(c.before);
        server.write(stretch(stream, 0, before));
        Overtaken_writes calls;
        calls.sd = client.in_server;
        calls.meanwhile = [&] { server.write(stretch(stream, before, stream.size() - before)); };
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ(c.lost, server.dropped_bytes);
        EXPECT_EQ(c.before + c.meanwhile - 1024 - c.lost, server.unread(client.in_server));
        for (int i = 0; i < 4; ++i)
            EXPECT_TRUE(server.run_poll());
        Bytes expected = stretch(stream, 0, 1024); // sent, though some of it was given up
        expected.insert(expected.end(), stream.begin() + 1024 + c.lost, stream.end());
        EXPECT_EQ(expected, client.read(expected.size()));
        EXPECT_FALSE(client.readable(0));
    }
}

TEST(TCP_server_buffered, makes_room_beside_what_a_derived_class_writes_into_the_buffer_itself)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    const Bytes stream = random_bytes(100 + 3000 + 1500);
    server.write(stretch(stream, 0, 100));
    server.buffer_lock.lock();
    server.write_buffer.write(&stream[100], 3000);
    server.buffer_lock.unlock();
    EXPECT_EQ(0, server.dropped_bytes);
    server.write(stretch(stream, 3100, 1500));
    const int lost = 100 + 3000 + 1500 - MOST;
    EXPECT_EQ(lost, server.dropped_bytes);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(server.run_poll());
    EXPECT_EQ(stretch(stream, static_cast<std::size_t>(lost), MOST), client.read(MOST));
}

TEST(TCP_server_buffered, counts_losses_wherever_the_total_has_got_to)
{
    // Half the range of the total on, and where it passes the middle and the end of that range.
    for (const std::uint32_t before : {2147488000U, 2147479543U, 4294963191U}) {
        SCOPED_TRACE(before);
        const Debug_output output;
        Server server;
        server.write("to nobody");
        const Bytes piece = random_bytes(MOST);
        server.buffer_lock.lock();
        while (const std::uint32_t left = before - static_cast<std::uint32_t>(server.write_buffer.total()))
            server.write_buffer.write(piece.data(), static_cast<int>(std::min<std::uint32_t>(left, MOST)));
        server.buffer_lock.unlock();
        const Accepted client(server);
        const Bytes stream = random_bytes(9000);
        for (std::size_t i = 0; i < stream.size(); i += 3000)
            server.write(stretch(stream, i, 3000));
        EXPECT_EQ(9000 - MOST, server.dropped_bytes);
        for (int i = 0; i < 4; ++i)
            EXPECT_TRUE(server.run_poll());
        EXPECT_EQ(stretch(stream, 9000 - MOST, MOST), client.read(MOST));
    }
}

TEST(TCP_server_buffered, leaves_a_client_alone_whose_connection_is_full)
{
    const Debug_output output;
    Server server;
    const int small = 4608;
    ::setsockopt(server.listen_sd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small); // clients inherit it
    const Client slow(server.port, small);
    const int sd = accept(server);
    const Bytes message = random_bytes(1000);
    int written = 0;
    EXPECT_TRUE(wait_until([&] {
        written += server.write(message);
        EXPECT_TRUE(server.run_poll());
        return server.dropped_bytes > 0;
    }));
    // What cannot be sent is not even tried.
    struct Counted_writes : Interposed_calls {
        int sd = -1;
        int tries = 0;
        bool writable = false;
        int poll(pollfd* fds, nfds_t count, int timeout_ms) override
        {
            const int result = Interposed_calls::poll(fds, count, timeout_ms);
            writable = std::any_of(fds, fds + count, [this](const pollfd& entry) {
                return entry.fd == sd && (entry.revents & POLLOUT) != 0;
            });
            return result;
        }
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            tries += fd == sd ? 1 : 0;
            return Interposed_calls::write(fd, data, size);
        }
    };
    {
        Counted_writes calls;
        calls.sd = sd;
        EXPECT_TRUE(wait_until([&] { // a late acknowledgement may make room again
            written += server.write(message);
            calls.tries = 0;
            EXPECT_TRUE(server.run_poll());
            EXPECT_EQ(calls.writable ? 1 : 0, calls.tries);
            return !calls.writable;
        }));
    }
    const std::size_t left = static_cast<std::size_t>(written - server.dropped_bytes);
    std::size_t received = 0;
    EXPECT_TRUE(wait_until([&] {
        EXPECT_TRUE(server.run_poll());
        received += slow.read_available().size();
        return received == left;
    })) << received
        << " of " << left;
}

// What an exchange of FIN and RST does in the midst of a pass is done here at once.
TEST(TCP_server_buffered, closes_a_client_with_a_broken_pipe_and_nothing_more)
{
    sigset_t sigpipe, mask, pending;
    ::sigemptyset(&sigpipe);
    ::sigaddset(&sigpipe, SIGPIPE);
    for (const bool blocked : {false, true}) {
        SCOPED_TRACE(blocked ? "SIGPIPE blocked" : "SIGPIPE not blocked");
        ASSERT_EQ(0, ::pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &sigpipe, nullptr));
        const Debug_output output;
        Server server;
        const Accepted client(server);
        const Accepted other(server);
        ASSERT_EQ(0, ::shutdown(client.in_server, SHUT_WR));
        server.write("hello");
        EXPECT_TRUE(server.run_poll());
        EXPECT_THAT(server.clients(), ElementsAre(other.in_server));
        EXPECT_EQ("hello", other.read_text(5));

        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_EQ(blocked ? 1 : 0, ::sigismember(&mask, SIGPIPE)) << "the mask is left as it was";
        ::sigpending(&pending);
        EXPECT_EQ(blocked ? 1 : 0, ::sigismember(&pending, SIGPIPE));
    }
    const timespec at_once{};
    EXPECT_EQ(SIGPIPE, ::sigtimedwait(&sigpipe, nullptr, &at_once));
    ::pthread_sigmask(SIG_UNBLOCK, &sigpipe, nullptr);
}

// The signal, let through to the thread when it waits next or handles data, would end the process.
TEST(TCP_server_buffered, goes_on_running_after_a_broken_pipe)
{
    const Debug_output output;
    Server server;
    const Accepted broken(server);
    const Accepted broken_later(server);
    const Accepted other(server);
    ASSERT_EQ(0, ::shutdown(broken.in_server, SHUT_WR));
    server.on_data = [&server](int) { server.write("pong"); };
    const Loop loop(server);
    server.write("hello");
    EXPECT_EQ("hello", other.read_text(5));
    EXPECT_TRUE(broken.at_end());
    other.write("ping"); // handled with the signal let through ...
    EXPECT_EQ("pong", other.read_text(4));
    ASSERT_EQ(0, ::shutdown(broken_later.in_server, SHUT_WR));
    server.write("world"); // ... and sent without
    EXPECT_EQ("world", other.read_text(5));
    EXPECT_EQ("hellopong", broken_later.read_text(9));
    EXPECT_TRUE(broken_later.at_end());
}

TEST(TCP_server_buffered, lets_the_application_s_signals_through_while_it_waits)
{
    static std::atomic<int> handled;
    struct sigaction action {
    }, previous{};
    action.sa_handler = [](int) { ++handled; };
    ASSERT_EQ(0, ::sigaction(SIGPIPE, &action, &previous));
    const Bytes message = random_bytes(MOST);
    for (const bool stalled : {false, true}) {
        SCOPED_TRACE(stalled ? "with a client that takes nothing" : "with nothing to send");
        handled = 0;
        const Debug_output output;
        Server server;
        const Accepted client(server);
        std::atomic<bool> returned{false};
        std::thread loop([&] {
            server.run_blocking();
            returned = true;
        });
        server.write("hello");
        EXPECT_EQ("hello", client.read_text(5)); // from here on it keeps its own away
        EXPECT_TRUE(!stalled || wait_until([&] {
            server.write(message);
            return server.dropped_bytes > 100 * MOST;
        }));
        EXPECT_TRUE(wait_until([&] {
            ::pthread_kill(loop.native_handle(), SIGPIPE);
            return returned.load();
        }));
        EXPECT_GT(handled, 0);
        server.wait_quit();
        loop.join();
    }
    ::sigaction(SIGPIPE, &previous, nullptr);
}

TEST(TCP_server_buffered, handles_data_with_the_application_s_signals)
{
    const auto blocks_sigpipe = [] {
        sigset_t mask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return ::sigismember(&mask, SIGPIPE) == 1;
    };
    for (const bool blocked : {false, true}) {
        SCOPED_TRACE(blocked ? "SIGPIPE blocked" : "SIGPIPE not blocked");
        const Debug_output output;
        Server server;
        const Accepted client(server);
        bool while_handling = !blocked;
        bool afterwards = !blocked;
        server.on_data = [&](int) {
            while_handling = blocks_sigpipe();
            server.write("pong");
        };
        std::thread loop([&] {
            sigset_t sigpipe;
            ::sigemptyset(&sigpipe);
            ::sigaddset(&sigpipe, SIGPIPE);
            ::pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &sigpipe, nullptr);
            server.run_blocking();
            afterwards = blocks_sigpipe();
        });
        server.write("hello");
        EXPECT_EQ("hello", client.read_text(5)); // by then it has sent
        client.write("ping");
        EXPECT_EQ("pong", client.read_text(4));
        server.wait_quit();
        loop.join();
        EXPECT_EQ(blocked, while_handling);
        EXPECT_EQ(blocked, afterwards);
    }
}

// ---- closing a client

TEST(TCP_server_buffered, closes_a_connection_and_says_whether_it_was_a_clients)
{
    const Debug_output output;
    Server server;
    const Accepted a(server);
    const Accepted b(server);
    const Accepted c(server);
    std::vector<int> left = server.fds;
    left.erase(std::find(left.begin(), left.end(), b.in_server));

    EXPECT_EQ(1, server.close_connection(b.in_server));
    EXPECT_EQ(left, server.fds);
    EXPECT_THAT(server.clients(), ElementsAre(a.in_server, c.in_server));
    EXPECT_FALSE(is_open(b.in_server));
    EXPECT_TRUE(b.at_end());
    EXPECT_TRUE(server.has_connections);
    EXPECT_EQ(0, server.close_connection(b.in_server));
    EXPECT_EQ(0, server.close_connection(-1));
    EXPECT_EQ(left, server.fds);

    EXPECT_EQ(1, server.close_connection(c.in_server));
    EXPECT_TRUE(server.has_connections);
    EXPECT_EQ(1, server.close_connection(a.in_server));
    EXPECT_FALSE(server.has_connections);
    EXPECT_EQ(3U, server.fds.size());
}

TEST(TCP_server_buffered, closes_what_is_no_client_too)
{
    const Debug_output output;
    Server server;
    const int other = ::dup(server.listen_sd);
    EXPECT_EQ(0, server.close_connection(other));
    EXPECT_FALSE(is_open(other));
}

TEST(TCP_server_buffered, lets_the_handler_close_any_client)
{
    for (const std::size_t closed : {0U, 1U, 2U}) {
        SCOPED_TRACE(closed);
        const Debug_output output;
        Server server;
        const Accepted a(server);
        const Accepted b(server);
        const Accepted c(server);
        const int sds[] = {a.in_server, b.in_server, c.in_server};
        for (const Accepted* client : {&a, &b, &c}) {
            client->write("hello");
            ASSERT_TRUE(arrived(client->in_server));
        }
        server.write("everyone");
        server.on_data = [&](int sd) {
            if (sd == b.in_server) {
                EXPECT_EQ(1, server.close_connection(sds[closed]));
            }
        };
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ(2U, server.readers.size());
        EXPECT_EQ(closed == 2 ? 2U : 3U, server.received.size());
        for (const Accepted* client : {&a, &b, &c}) {
            if (client->in_server == sds[closed])
                EXPECT_TRUE(client->at_end());
            else
                EXPECT_EQ("everyone", client->read_text(8));
        }
        EXPECT_TRUE(server.run_poll());
    }
}

TEST(TCP_server_buffered, sends_nothing_to_a_client_in_the_pass_that_accepts_it)
{
    const Debug_output output;
    Server server;
    const int low = ::dup(STDERR_FILENO); // for the new client, just before the other
    const Accepted old(server);
    server.on_data = [&](int) { server.write("world"); };
    server.write("hello");
    old.write("!");
    const Client young(server.port);
    ASSERT_TRUE(arrived(old.in_server));
    ASSERT_TRUE(arrived(server.listen_sd));
    ::close(low);
    EXPECT_TRUE(server.run_poll());
    ASSERT_THAT(server.clients(), ElementsAre(low, old.in_server));
    EXPECT_EQ(5, server.unread(low));
    EXPECT_EQ("helloworld", old.read_text(10));
    server.on_data = nullptr;
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ("world", young.read_text(5));
}

TEST(TCP_server_buffered, lets_the_handler_write_to_all)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    server.on_data = [&](int sd) { server.write(server.received[sd]); };
    client.write("echo");
    ASSERT_TRUE(arrived(client.in_server));
    EXPECT_TRUE(server.run_poll()); // it was not in the write set
    EXPECT_EQ(4, server.unread(client.in_server));
    EXPECT_TRUE(server.run_poll());
    EXPECT_EQ("echo", client.read_text(4));
}

// ---- quitting

TEST(TCP_server_buffered, quits_at_once_when_it_is_not_running)
{
    const Debug_output output;
    Server server;
    EXPECT_TRUE(server.run_poll());
    server.wait_quit();
    EXPECT_THAT(in_pipe(server.notify_pipe[1]), IsEmpty());
    EXPECT_TRUE(server.run_poll()); // which is not affected
}

TEST(TCP_server_buffered, is_stopped_but_while_it_runs)
{
    const Debug_output output;
    Server server;
    const Accepted client(server);
    EXPECT_TRUE(server.stopped);
    const auto serve = [&](const std::function<void()>& run) {
        client.write("!");
        ASSERT_TRUE(arrived(client.in_server));
        int calls = 0;
        server.on_data = [&](int) {
            EXPECT_FALSE(server.stopped);
            ++calls;
            put_into_pipe(server, {4});
        };
        run();
        EXPECT_EQ(1, calls);
        EXPECT_TRUE(server.stopped);
    };
    serve([&] { EXPECT_FALSE(server.run_blocking()); });
    serve([&] { EXPECT_TRUE(server.run_poll()); });
    EXPECT_FALSE(server.run_poll());
}

TEST(TCP_server_buffered, quits_with_one_four_and_waits_until_it_has_stopped)
{
    struct Noted_writes : Interposed_calls {
        std::mutex mutex;
        std::vector<std::pair<int, Bytes>> writes;
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            const std::lock_guard<std::mutex> lock(mutex);
            const auto* const bytes = static_cast<const unsigned char*>(data);
            writes.emplace_back(fd, Bytes(bytes, bytes + size));
            return Interposed_calls::write(fd, data, size);
        }
    };
    const Debug_output output;
    Noted_writes calls;
    Server server;
    Loop loop(server);
    server.wait_quit();
    EXPECT_TRUE(server.stopped);
    loop.quit();
    const std::vector<std::pair<int, Bytes>> expected{{server.notify_pipe[0], Bytes{4}}};
    EXPECT_EQ(expected, calls.writes);
}

TEST(TCP_server_buffered, waits_for_a_run_to_end_when_nothing_has_run_yet)
{
    const Debug_output output;
    Server server;
    std::atomic<bool> has_quit{false};
    std::thread quitter([&] {
        server.wait_quit();
        has_quit = true;
    });
    EXPECT_TRUE(arrived(server.notify_pipe[1]));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(has_quit);
    EXPECT_FALSE(server.run_blocking()); // the four is in the pipe
    quitter.join();
    EXPECT_TRUE(has_quit);
}

TEST(TCP_server_buffered, says_when_it_cannot_tell_the_loop_to_quit_and_waits_all_the_same)
{
    const Debug_output output;
    Server server;
    Failing_calls calls;
    calls.failing_write = server.notify_pipe[0];
    calls.write_error = EAGAIN;
    std::thread loop([&] { server.run_blocking(); });
    std::atomic<bool> has_quit{false};
    std::thread quitter([&] {
        server.wait_quit();
        has_quit = true;
    });
    EXPECT_TRUE(output.wait_for(Way::PERROR, "could not quit"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(has_quit);
    calls.write_error = 0;
    put_into_pipe(server, {4});
    quitter.join();
    loop.join();
    EXPECT_EQ((Errors{{"could not quit", EAGAIN}}), errors(output));
}

TEST(TCP_server_buffered, wakes_up_to_send_while_it_blocks)
{
    const Debug_output output;
    Server server;
    const Loop loop(server);
    const Client client(server.port);
    client.write("!"); // it is accepted when this has come through
    for (int i = 0; i < 100; ++i) {
        const std::string text = "message " + std::to_string(i);
        EXPECT_TRUE(wait_until([&] { return server.has_connections.load(); }));
        server.write(text);
        ASSERT_EQ(text, client.read_text(text.size()));
    }
    EXPECT_EQ(0, server.dropped_bytes);
}

// ---- destruction

TEST(TCP_server_buffered, complains_when_it_is_destroyed_before_it_has_quit)
{
    const Debug_output output;
    {
        const Server never_ran;
    }
    EXPECT_THAT(criticals(output), ElementsAre(NEVER_QUIT));
    {
        Server ran;
        ran.run_poll();
    }
    EXPECT_THAT(criticals(output), ElementsAre(NEVER_QUIT));
}

TEST(TCP_server_buffered, closes_all_its_descriptors)
{
    struct Noted_calls : Interposed_calls {
        const std::thread::id testing_thread = std::this_thread::get_id();
        std::vector<int> shut, closed, timeouts_ms; // on that thread
        void note(std::vector<int>& values, int value) const
        {
            if (std::this_thread::get_id() == testing_thread)
                values.push_back(value);
        }
        int shutdown(int fd, int how) override
        {
            EXPECT_EQ(SHUT_RDWR, how);
            note(shut, fd);
            return Interposed_calls::shutdown(fd, how);
        }
        int poll(pollfd* fds, nfds_t count, int timeout) override
        {
            note(timeouts_ms, timeout);
            return Interposed_calls::poll(fds, count, timeout);
        }
        int close(int fd) override
        {
            note(closed, fd);
            return Interposed_calls::close(fd);
        }
    };
    const Debug_output output;
    const long before = open_descriptors();
    Noted_calls calls;
    std::vector<int> clients, fixed;
    {
        auto server = std::make_unique<Server>();
        const int port = server->port;
        std::thread peers([port] {
            const Client first(port);
            const Client second(port);
            EXPECT_TRUE(first.at_end());
            EXPECT_TRUE(second.at_end());
        });
        accept(*server);
        accept(*server);
        clients = server->clients();
        fixed = {server->listen_sd, server->notify_pipe[0], server->notify_pipe[1]};
        calls.closed.clear();
        server.reset();
        const std::vector<int> timeouts_ms = calls.timeouts_ms;
        EXPECT_TRUE(std::find(timeouts_ms.begin(), timeouts_ms.end(), 100) != timeouts_ms.end());
        peers.join();
    }
    EXPECT_EQ(clients, calls.shut);
    for (const int fd : clients)
        EXPECT_EQ(1, std::count(calls.closed.begin(), calls.closed.begin() + 2, fd)) << "the clients first";
    for (const int fd : fixed)
        EXPECT_NE(0, std::count(calls.closed.begin(), calls.closed.end(), fd));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_THAT(criticals(output), IsEmpty());
}

TEST(TCP_server_buffered, closes_more_clients_than_can_be_closed_at_once)
{
    constexpr std::size_t CLIENTS = 205;
    const Debug_output output;
    const long before = open_descriptors();
    std::vector<std::unique_ptr<Accepted>> clients;
    {
        Server server;
        for (std::size_t i = 0; i < CLIENTS; ++i)
            clients.push_back(std::make_unique<Accepted>(server));
        server.write("goodbye");
        EXPECT_TRUE(server.run_poll());
        testing::internal::CaptureStderr(); // of peers that do not close their side
    }
    testing::internal::GetCapturedStderr();
    for (const auto& client : clients) {
        EXPECT_EQ("goodbye", client->read_text(7));
        EXPECT_TRUE(client->at_end());
    }
    EXPECT_EQ(before + static_cast<long>(CLIENTS), open_descriptors());
}

// Descriptors from before the server was made may become free, and then a client's.
TEST(TCP_server_buffered, closes_its_clients_whatever_their_numbers)
{
    const Debug_output output;
    const int low = ::dup(STDERR_FILENO);
    std::unique_ptr<Client> client;
    {
        Server server;
        client = std::make_unique<Client>(server.port);
        ASSERT_LT(low, server.fds.front());
        ::close(low);
        EXPECT_EQ(low, accept(server));
        EXPECT_TRUE(std::is_sorted(server.fds.begin(), server.fds.end()));
        server.write("hello");
        EXPECT_TRUE(server.run_poll());
        client->write("world");
        ASSERT_TRUE(arrived(low));
        EXPECT_TRUE(server.run_poll());
        EXPECT_EQ("world", server.received[low]);
        testing::internal::CaptureStderr(); // of a peer that does not close its side
    }
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(is_open(low));
    EXPECT_EQ("hello", client->read_text(5));
    EXPECT_TRUE(client->at_end());
}

// ---- many at once

namespace {

/// Raises the limit on open descriptors; false when the system does not allow it.
bool can_open(rlim_t descriptors)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= descriptors)
        return true;
    limit.rlim_cur = descriptors;
    return limit.rlim_max >= descriptors && ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

} // namespace

TEST(TCP_server_buffered, works_among_thousands_of_descriptors)
{
    constexpr int OTHERS = 2000;
    if (!can_open(OTHERS + 100))
        GTEST_SKIP() << "the system does not allow so many descriptors";
    const Debug_output output;
    std::vector<int> others;
    for (int i = 0; i < OTHERS; ++i)
        others.push_back(::dup(STDERR_FILENO));
    {
        Server server;
        ASSERT_GT(server.fds.front(), 1024);
        Accepted first(server);
        const Accepted second(server);
        const Accepted urgent(server);
        const Bytes stream = random_bytes(3000);
        for (int round = 0; round < 20; ++round) {
            server.write(stream);
            for (int i = 0; i < 4; ++i)
                EXPECT_TRUE(server.run_poll());
            EXPECT_EQ(stream, first.read(stream.size()));
            EXPECT_EQ(stream, second.read(stream.size()));
        }
        second.write("hello");
        ASSERT_TRUE(arrived(second.in_server));
        first.close();
        urgent.write("!", MSG_OOB);
        EXPECT_TRUE(wait_until([&] {
            EXPECT_TRUE(server.run_poll());
            return server.readers.size() == 1;
        }));
        EXPECT_EQ("hello", server.received[second.in_server]);

        Loop loop(server);
        for (int i = 0; i < 20; ++i) {
            server.write("message");
            EXPECT_EQ("message", second.read_text(7));
        }
        loop.quit();
        testing::internal::CaptureStderr(); // of a peer that does not close its side
    }
    testing::internal::GetCapturedStderr();
    for (const int fd : others)
        ::close(fd);
    EXPECT_THAT(errors(output), IsEmpty());
}

namespace {

/// Holds clients back as told: what they have room for is hidden, or writing to them is cut short or fails.
class Throttling_calls : public Interposed_calls {
public:
    struct Plan {
        bool full = false;
        std::size_t limit = std::numeric_limits<std::size_t>::max();
        int error = 0;
    };
    std::map<int, Plan> plans;

    int poll(pollfd* fds, nfds_t count, int timeout_ms) override
    {
        const int ready = Interposed_calls::poll(fds, count, timeout_ms);
        for (nfds_t i = 0; i < count; ++i) {
            const auto plan = plans.find(fds[i].fd);
            if (plan != plans.end() && plan->second.full)
                fds[i].revents = static_cast<short>(fds[i].revents & ~POLLOUT);
        }
        return ready;
    }
    ssize_t write(int fd, const void* data, std::size_t size) override
    {
        const auto plan = plans.find(fd);
        if (plan == plans.end())
            return Interposed_calls::write(fd, data, size);
        if (plan->second.error != 0) {
            errno = plan->second.error;
            return -1;
        }
        return Interposed_calls::write(fd, data, std::min(size, plan->second.limit));
    }
};

} // namespace

// Each client as a position in an endless stream: what the rules give it, and what it loses by them.
TEST(TCP_server_buffered, agrees_with_a_model_on_random_sequences)
{
    struct Modelled_client {
        std::unique_ptr<Accepted> peer;
        std::size_t position;
    };
    constexpr unsigned SEQUENCES = 100;
    constexpr int STEPS = 200;
    for (unsigned seed = 1; seed <= SEQUENCES && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const Debug_output output;
        std::mt19937 random(seed);
        const auto below = [&random](std::size_t limit) { return random() % limit; };
        Throttling_calls calls;
        std::map<int, Modelled_client> clients;
        Bytes stream;
        std::size_t dropped = 0;
        Server server;

        const auto modelled_pass = [&] {
            for (auto client = clients.begin(); client != clients.end();) {
                const Throttling_calls::Plan& plan = calls.plans[client->first];
                auto& [peer, position] = client->second;
                const std::size_t wanted = std::min<std::size_t>(1024, stream.size() - position);
                const std::size_t sent = plan.full || plan.error != 0 ? 0 : std::min(wanted, plan.limit);
                ASSERT_EQ(stretch(stream, position, sent), peer->read(sent));
                position += sent;
                const bool fails = wanted > 0 && !plan.full && plan.error == ECONNRESET;
                client = fails ? clients.erase(client) : std::next(client);
            }
        };
        for (int step = 0; step < STEPS && !testing::Test::HasFailure(); ++step) {
            const std::size_t what = below(20);
            if (what == 0 && clients.size() < 6) {
                // Everything is sent first: more than one pass may be needed to accept.
                for (auto& plan : calls.plans)
                    plan.second = {};
                for (int i = 0; i < 5; ++i) {
                    ASSERT_TRUE(server.run_poll());
                    modelled_pass();
                }
                auto peer = std::make_unique<Accepted>(server);
                const int sd = peer->in_server;
                calls.plans[sd] = {};
                clients[sd] = {std::move(peer), stream.size()};
            } else if (what == 1 && !clients.empty()) {
                const int sd = std::next(clients.begin(), static_cast<int>(below(clients.size())))->first;
                clients.erase(sd);
                ASSERT_EQ(1, server.close_connection(sd));
            } else if (what < 6 && !clients.empty()) {
                const int sd = std::next(clients.begin(), static_cast<int>(below(clients.size())))->first;
                const int errors[] = {0, 0, 0, EAGAIN, EAGAIN, ECONNRESET};
                calls.plans[sd] = {below(2) == 0, 1 + below(1500), errors[below(6)]};
            } else if (what < 15) {
                const Bytes message =
                    random_bytes(static_cast<int>(below(step % 5 == 0 ? 4096 : 500)), random());
                ASSERT_EQ(static_cast<int>(message.size()), server.write(message));
                stream.insert(stream.end(), message.begin(), message.end());
                for (auto& [sd, client] : clients)
                    if (stream.size() - client.position > static_cast<std::size_t>(MOST)) {
                        dropped += stream.size() - client.position - static_cast<std::size_t>(MOST);
                        client.position = stream.size() - static_cast<std::size_t>(MOST);
                    }
            } else {
                ASSERT_TRUE(server.run_poll());
                modelled_pass();
            }
            ASSERT_EQ(static_cast<std::int32_t>(dropped), server.dropped_bytes);
            ASSERT_EQ(clients.size(), server.readers.size());
            ASSERT_EQ(!clients.empty(), server.has_connections);
            for (const auto& [sd, client] : clients)
                ASSERT_EQ(stream.size() - client.position, static_cast<std::size_t>(server.unread(sd)));
        }
        clients.clear();
        calls.plans.clear();
    }
}

namespace {

/// A stream that is cut into messages, and who may write the next one when.
///
/// A client's position in the server advances only after a piece of up to 1024 bytes is sent, so it loses
/// nothing as long as no more than 4095 - 1024 bytes are written that it has not received.
class Pace {
public:
    void write(std::size_t size, const std::function<void()>& write_it)
    {
        std::unique_lock<std::mutex> lock(mutex);
        const bool in_time = changed.wait_for(lock, std::chrono::milliseconds(LIMIT_MS),
                                              [&] { return given_up || written + size <= received + 3071; });
        EXPECT_TRUE(in_time) << written << " written, " << received << " received";
        given_up = given_up || !in_time; // once is enough
        written += size;
        write_it();
    }

    /// @param least  what every client has received that is to lose nothing
    void set_received(std::size_t least)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        received = least;
        changed.notify_all();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool given_up = false;
    std::size_t written = 0;
    std::size_t received = 0;
};

/// How many bytes of a stream are missing from what was received of it;
/// -1 when there is more to it than gaps.
std::ptrdiff_t count_missing(const Bytes& stream, const Bytes& received)
{
    constexpr std::ptrdiff_t ENOUGH = 16; // random bytes to find a place by
    auto expected = stream.begin();
    auto next = received.begin();
    for (;;) {
        std::tie(expected, next) = std::mismatch(expected, stream.end(), next, received.end());
        if (next == received.end())
            return static_cast<std::ptrdiff_t>(stream.size() - received.size());
        const auto piece_end = next + std::min(ENOUGH, received.end() - next);
        expected = std::search(expected, stream.end(), next, piece_end);
        if (expected == stream.end())
            return -1;
    }
}

} // namespace

TEST(TCP_server_buffered, serves_hundreds_of_clients_while_half_of_them_read_nothing)
{
    constexpr std::size_t CLIENTS = 900;
    constexpr std::size_t MESSAGES = 400;
    constexpr std::size_t MESSAGE_SIZE = 100;
    enum Kind { STALLED, RESETTING, HEALTHY };
    struct Peer {
        Kind kind;
        std::unique_ptr<Client> client;
        std::size_t received;
        std::size_t resets_at;
    };
    if (!can_open(2 * CLIENTS + 100))
        GTEST_SKIP() << "the system does not allow so many descriptors";
    const Debug_output output;
    std::mt19937 random(1);

    // A message is its number and random bytes.
    Bytes stream = random_bytes(static_cast<int>(MESSAGES * MESSAGE_SIZE));
    for (std::size_t i = 0; i < MESSAGES; ++i)
        std::memcpy(&stream[i * MESSAGE_SIZE], &i, sizeof(std::uint32_t));

    auto server = std::make_unique<Server>();
    const int small = 4608; // so that who reads nothing has soon no room for more; clients inherit it
    ::setsockopt(server->listen_sd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    std::atomic<std::size_t> served{0};
    server->on_data = [&](int) { ++served; };
    auto loop = std::make_unique<Loop>(*server);

    std::vector<Peer> peers;
    for (std::size_t i = 0; i < CLIENTS; ++i) {
        const Kind kind = i % 2 == 0 ? STALLED : i % 10 == 1 ? RESETTING : HEALTHY;
        peers.push_back({kind, std::make_unique<Client>(server->port, kind == STALLED ? small : 0), 0,
                         random() % stream.size()});
        peers.back().client->write("!");
        ASSERT_TRUE(wait_until([&] { return served == i + 1; })); // the system lets few wait
    }

    // Two producers take turns.
    Pace pace;
    std::mutex turn;
    std::size_t next = 0;
    std::vector<std::thread> producers;
    for (int i = 0; i < 2; ++i)
        producers.emplace_back([&] {
            for (;;) {
                const std::lock_guard<std::mutex> lock(turn);
                if (next == MESSAGES)
                    return;
                const unsigned char* const message = &stream[next++ * MESSAGE_SIZE];
                pace.write(MESSAGE_SIZE, [&] {
                    EXPECT_EQ(int{MESSAGE_SIZE}, server->write_to_all_connections(message, MESSAGE_SIZE));
                });
            }
        });

    std::size_t least = 0;
    bool exact = true;
    const auto end = steady_clock::now() + std::chrono::milliseconds(2 * LIMIT_MS);
    while (least < stream.size() && steady_clock::now() < end) {
        std::vector<pollfd> table;
        for (const Peer& peer : peers)
            if (peer.kind != STALLED && peer.client->fd() >= 0)
                table.push_back({peer.client->fd(), POLLIN, 0});
        ::poll(table.data(), table.size(), 1000);
        least = stream.size();
        for (Peer& peer : peers) {
            if (peer.kind == STALLED || peer.client->fd() < 0)
                continue;
            const Bytes bytes = peer.client->read_available();
            exact = exact && peer.received + bytes.size() <= stream.size() &&
                    stretch(stream, peer.received, bytes.size()) == bytes;
            peer.received += bytes.size();
            if (peer.kind == RESETTING && peer.received >= peer.resets_at)
                peer.client->reset();
            else
                least = std::min(least, peer.received);
        }
        pace.set_received(exact ? least : stream.size());
    }
    for (std::thread& producer : producers)
        producer.join();
    EXPECT_TRUE(exact);
    ASSERT_EQ(stream.size(), least);

    // Now the others read: each has what there was room for before it stood still, and the newest bytes.
    const std::int32_t dropped = server->dropped_bytes;
    EXPECT_GT(dropped, 0);
    std::map<const Client*, Bytes> received;
    std::size_t stalled = 0;
    for (const Peer& peer : peers)
        stalled += peer.kind == STALLED ? 1 : 0;
    std::size_t left = stalled * stream.size() - static_cast<std::size_t>(dropped);
    EXPECT_TRUE(wait_until([&] {
        for (const Peer& peer : peers)
            if (peer.kind == STALLED) {
                const Bytes bytes = peer.client->read_available();
                left -= std::min(left, bytes.size());
                Bytes& all = received[peer.client.get()];
                all.insert(all.end(), bytes.begin(), bytes.end());
            }
        return left == 0;
    })) << left
        << " bytes are missing that were not counted as dropped";
    std::ptrdiff_t missing = 0;
    for (const auto& [client, bytes] : received) {
        const std::ptrdiff_t now = count_missing(stream, bytes);
        EXPECT_GE(now, 0);
        missing += now;
        const Bytes newest = stretch(stream, stream.size() - 1000, 1000);
        EXPECT_TRUE(bytes.size() >= 1000 && std::equal(newest.begin(), newest.end(), bytes.end() - 1000));
    }
    EXPECT_EQ(dropped, missing);

    loop.reset();
    EXPECT_TRUE(wait_until([&] { // of those that reset nobody is left
        EXPECT_TRUE(server->run_poll());
        return server->readers.size() == CLIENTS - CLIENTS / 10;
    }));
    peers.clear();
    server.reset();
    EXPECT_THAT(errors(output), IsEmpty());
}

// Producers of their own pace, clients that come and go, and a quitter: for the thread sanitizer.
TEST(TCP_server_buffered, serves_several_threads_at_once)
{
    constexpr int PRODUCERS = 4;
    constexpr int READERS = 4;
    constexpr unsigned MESSAGES = 1000;
    const Debug_output output;
    Server server;
    auto loop = std::make_unique<Loop>(server);

    std::vector<std::unique_ptr<Client>> clients;
    std::atomic<int> served{0};
    server.on_data = [&](int) { ++served; };
    for (int i = 0; i < READERS; ++i) {
        clients.push_back(std::make_unique<Client>(server.port));
        clients.back()->write("!");
        ASSERT_TRUE(wait_until([&] { return served > i; }));
    }

    Pace pace;
    std::mutex mutex;
    std::vector<std::size_t> received(READERS);
    std::vector<std::thread> threads;
    std::atomic<int> producing{PRODUCERS};
    std::atomic<std::size_t> written{0};
    std::atomic<bool> produced{false};
    // A message is its length, who sent it, its number there, and random bytes made from these two.
    const auto message_of = [](unsigned producer, unsigned number) {
        const unsigned seed = producer << 16 | number;
        Bytes message = random_bytes(static_cast<int>(4 + seed * 7919 % 250), seed);
        message[0] = static_cast<unsigned char>(message.size());
        message[1] = static_cast<unsigned char>(producer);
        message[2] = static_cast<unsigned char>(number >> 8);
        message[3] = static_cast<unsigned char>(number);
        return message;
    };
    for (unsigned producer = 0; producer < PRODUCERS; ++producer)
        threads.emplace_back([&, producer] {
            for (unsigned number = 0; number < MESSAGES; ++number) {
                const Bytes message = message_of(producer, number);
                pace.write(message.size(), [] {});
                written += message.size();
                EXPECT_EQ(static_cast<int>(message.size()), server.write(message));
            }
            if (--producing == 0)
                produced = true;
        });
    for (std::size_t reader = 0; reader < READERS; ++reader)
        threads.emplace_back([&, reader] {
            std::vector<unsigned> next(PRODUCERS, 0);
            for (unsigned i = 0; i < PRODUCERS * MESSAGES; ++i) {
                Bytes message = clients[reader]->read(1);
                ASSERT_EQ(1U, message.size());
                const Bytes rest = clients[reader]->read(message[0] - std::size_t{1});
                message.insert(message.end(), rest.begin(), rest.end());
                ASSERT_GE(message.size(), 4U);
                ASSERT_LT(message[1], PRODUCERS);
                ASSERT_EQ(message_of(message[1], next[message[1]]++), message);
                const std::lock_guard<std::mutex> lock(mutex);
                received[reader] += message.size();
                pace.set_received(*std::min_element(received.begin(), received.end()));
            }
        });
    threads.emplace_back([&] { // passers-by, who lose what they lose
        std::mt19937 random(1);
        while (!produced) {
            Client passer_by(server.port);
            passer_by.write("hello");
            if (random() % 2 == 0)
                passer_by.readable(5);
            if (random() % 2 == 0)
                passer_by.reset();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    threads.clear();

    // Nobody is paced any more; it ends in the midst of it.
    std::atomic<bool> has_quit{false};
    const Bytes message = random_bytes(700);
    for (int producer = 0; producer < PRODUCERS; ++producer)
        threads.emplace_back([&] {
            while (!has_quit) {
                server.write(message);
                std::this_thread::yield();
            }
        });
    EXPECT_TRUE(wait_until([&] { return server.dropped_bytes > 0; }));
    loop->quit();
    has_quit = true;
    for (std::thread& thread : threads)
        thread.join();
    clients.clear();
    EXPECT_TRUE(server.stopped);
    EXPECT_THAT(errors(output), IsEmpty());
}

// The same without any pace, where bytes are lost: as many as are counted.
TEST(TCP_server_buffered, counts_what_clients_lose_to_producers_that_run_ahead)
{
    constexpr std::size_t MESSAGES = 10000;
    constexpr std::size_t MESSAGE_SIZE = 100;
    constexpr std::size_t READERS = 3;
    const Debug_output output;
    Server server;
    std::atomic<std::size_t> served{0};
    server.on_data = [&](int) { ++served; };
    const Loop loop(server);
    std::vector<std::unique_ptr<Client>> clients;
    for (std::size_t i = 0; i < READERS; ++i) {
        clients.push_back(std::make_unique<Client>(server.port));
        clients.back()->write("!");
        ASSERT_TRUE(wait_until([&] { return served == i + 1; }));
    }
    const Bytes stream = random_bytes(static_cast<int>(MESSAGES * MESSAGE_SIZE));
    std::atomic<std::size_t> total{0};
    std::atomic<bool> all_there{false};
    std::vector<Bytes> received(READERS);
    std::vector<std::thread> readers;
    for (std::size_t i = 0; i < READERS; ++i)
        readers.emplace_back([&, i] {
            while (!all_there) {
                clients[i]->readable(10);
                const Bytes bytes = clients[i]->read_available();
                received[i].insert(received[i].end(), bytes.begin(), bytes.end());
                total += bytes.size();
            }
        });
    for (std::size_t i = 0; i < MESSAGES; ++i)
        server.write_to_all_connections(&stream[i * MESSAGE_SIZE], MESSAGE_SIZE);
    const std::int32_t dropped = server.dropped_bytes;
    EXPECT_TRUE(wait_until([&] {
        return total + static_cast<std::size_t>(dropped) == READERS * stream.size();
    })) << total
        << " received, " << dropped << " dropped";
    all_there = true;
    for (std::thread& reader : readers)
        reader.join();
    std::ptrdiff_t missing = 0;
    for (const Bytes& bytes : received) {
        const std::ptrdiff_t now = count_missing(stream, bytes);
        EXPECT_GE(now, 0);
        missing += now;
    }
    EXPECT_EQ(dropped, missing);
}

// ---- hard stops

class TCP_server_buffered_hard_stop : public testing::Test {
protected:
    /// Shows at the end of the process what was said, and how.
    static void show_output()
    {
        static Debug_output output;
        std::atexit([] {
            for (const Debug_output::Line& line : output.lines())
                std::fprintf(stderr, "way %d category %d: %s|%d\n", line.way, line.category,
                             line.text.c_str(), line.error);
        });
    }

    static std::string line(Way way, int category, const std::string& text, int error)
    {
        return "way " + std::to_string(way) + " category " + std::to_string(category) + ": " + text + "|" +
               std::to_string(error) + "\n";
    }
};

TEST_F(TCP_server_buffered_hard_stop, ends_the_process_when_waiting_fails)
{
    const auto fail = [] {
        show_output();
        Server server;
        Failing_calls calls;
        calls.poll_error = ENOMEM;
        server.run_poll();
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(1),
                HasSubstr(line(Way::PERROR, 0, "error in select", ENOMEM)));
}

TEST_F(TCP_server_buffered_hard_stop, ends_the_process_when_a_watched_descriptor_is_closed)
{
    const auto fail = [] {
        show_output();
        Server server;
        const Accepted client(server);
        ::close(client.in_server);
        server.run_blocking();
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(1),
                HasSubstr(line(Way::PERROR, 0, "error in select", EBADF)));
}

TEST_F(TCP_server_buffered_hard_stop, ends_the_process_when_the_wake_pipe_cannot_be_read)
{
    const auto fail = [] {
        show_output();
        Server server;
        server.write("a");
        Failing_calls calls;
        calls.failing_read = server.notify_pipe[1];
        calls.read_error = EINTR;
        server.run_poll();
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(1),
                HasSubstr(line(Way::PERROR, 0, "error in wake fd", EINTR)));
}

TEST_F(TCP_server_buffered_hard_stop, ends_the_process_on_an_exception_of_the_listening_socket)
{
    struct Exceptional_calls : Interposed_calls {
        int sd = -1;
        int poll(pollfd* fds, nfds_t count, int timeout_ms) override
        {
            const int ready = Interposed_calls::poll(fds, count, timeout_ms);
            for (nfds_t i = 0; i < count; ++i)
                if (fds[i].fd == sd && (fds[i].events & POLLPRI) != 0)
                    fds[i].revents = POLLPRI;
            return ready + 1;
        }
    };
    const auto fail = [] {
        show_output();
        Server server;
        Exceptional_calls calls;
        calls.sd = server.listen_sd;
        server.run_poll();
    };
    EXPECT_EXIT(fail(), testing::ExitedWithCode(1),
                HasSubstr(line(Way::PRINT, 107, "Exception in the listening socket.  Exiting.\n", 0)));
}
