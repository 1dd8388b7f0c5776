#include "util/net/TCP_server.h"

#include "platform/Debug.h"
#include "tests/support/Debug_output.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Reserved_port.h"

#include <QThread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

// The server has no virtual destructor, and neither have those that derive from it here.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

static_assert(std::is_abstract_v<TCP_server> && !std::has_virtual_destructor_v<TCP_server>);
static_assert(!std::is_copy_constructible_v<TCP_server>);

namespace {

constexpr int LIMIT_MS = 60000; // for what takes no time on an idle machine

bool is_open(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

/// Waits until the kernel has brought something to a descriptor: what is sent to a local address is not
/// always there when the sending call returns.
bool wait_for(int fd, short events)
{
    pollfd waiting{fd, events, 0};
    return ::poll(&waiting, 1, LIMIT_MS) == 1;
}

sockaddr_in local_address(int sd)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(0, ::getsockname(sd, reinterpret_cast<sockaddr*>(&address), &size));
    return address;
}

int option(int sd, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(0, ::getsockopt(sd, level, name, &value, &size));
    return value;
}

/// What the server's handlers and its messages have in common: one record of all in the order in which it
/// happened, kept by Debug_output.
constexpr int HANDLER = 1;

class Server final : public TCP_server {
public:
    using TCP_server::connection_count;
    using TCP_server::connections;
    using TCP_server::connections_lock;
    using TCP_server::listen_sd;
    using TCP_server::lock_owner_thread;
    using TCP_server::lock_owner_tid;
    using TCP_server::notify_pipe;
    using TCP_server::port;
    using TCP_server::quit_done;

    /// Closes what run() has not.
    ~Server()
    {
        for (const int fd : {listen_sd, notify_pipe[0].load(), notify_pipe[1].load()})
            if (fd >= 0)
                ::close(fd);
    }

    int handle_data(int sd, unsigned char* data, int len) override
    {
        const std::string bytes(data, data + len);
        Debug::Channel::print(HANDLER, "%d: %s\n", slot_of(sd), bytes.c_str());
        return on_data ? on_data(sd, bytes) : len;
    }

    void handle_disconnected(int sd) override
    {
        Debug::Channel::print(HANDLER, "%d: gone\n", slot_of(sd));
        if (on_disconnected)
            on_disconnected(sd);
    }

    bool write(const std::string& text, int except_sd)
    {
        return write_to_all_connections(bytes_of(text), size_of(text), except_sd);
    }

    /// For the handlers.
    bool answer(const std::string& text, int except_sd)
    {
        return _write_to_all_connections(bytes_of(text), size_of(text), except_sd);
    }

    int slot_of(int sd) const
    {
        for (int slot = 0; slot < 100; ++slot)
            if (connections[slot] == sd)
                return slot;
        return -1;
    }

    std::function<int(int sd, const std::string& bytes)> on_data;
    std::function<void(int sd)> on_disconnected;

private:
    static const unsigned char* bytes_of(const std::string& text)
    {
        return reinterpret_cast<const unsigned char*>(text.data());
    }
    static unsigned size_of(const std::string& text)
    {
        return static_cast<unsigned>(std::uint64_t{text.size()});
    }
};

class Client {
public:
    explicit Client(int port) : sd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        EXPECT_EQ(0, ::connect(sd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    ~Client() { close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const std::string& text) const { send(text, 0); }
    void send_urgent(const std::string& text) const { send(text, MSG_OOB); }

    void close()
    {
        if (sd >= 0)
            ::close(sd);
        sd = -1;
    }

    /// Closes with a reset instead of an end of stream.
    void abort()
    {
        const linger at_once{1, 0};
        EXPECT_EQ(0, ::setsockopt(sd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once));
        close();
    }

    /// All that the server sends until so many bytes are there, or until it closes.
    std::string receive(std::size_t size = SIZE_MAX) const
    {
        std::string text;
        while (text.size() < size && wait_for(sd, POLLIN)) {
            char block[4096];
            const ssize_t count = ::recv(sd, block, std::min(sizeof block, size - text.size()), 0);
            if (count <= 0)
                break;
            text.append(block, static_cast<std::size_t>(count));
        }
        return text;
    }

    bool has_nothing() const
    {
        char byte = 0;
        return ::recv(sd, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == -1 && errno == EAGAIN;
    }

    int port() const { return ntohs(local_address(sd).sin_port); }

    int sd;

private:
    void send(const std::string& text, int flags) const
    {
        EXPECT_EQ(text.size(), static_cast<std::size_t>(::send(sd, text.data(), text.size(), flags)));
    }
};

/// Answers the server's calls as the test wants, and keeps what it must know of them.
class System : public Interposed_calls {
public:
    int socket(int domain, int type, int protocol) override
    {
        return refused("socket") ? -1 : Interposed_calls::socket(domain, type, protocol);
    }

    int setsockopt(int fd, int level, int name, const void* value, socklen_t size) override
    {
        const std::string call = "setsockopt " + std::to_string(level) + " " + std::to_string(name);
        return refused(call) ? -1 : Interposed_calls::setsockopt(fd, level, name, value, size);
    }

    int bind(int fd, const sockaddr* address, socklen_t size) override
    {
        return refused("bind") ? -1 : Interposed_calls::bind(fd, address, size);
    }

    int getsockname(int fd, sockaddr* address, socklen_t* size) override
    {
        return refused("getsockname") ? -1 : Interposed_calls::getsockname(fd, address, size);
    }

    int listen(int fd, int wanted_backlog) override
    {
        backlog = wanted_backlog;
        return refused("listen") ? -1 : Interposed_calls::listen(fd, wanted_backlog);
    }

    int accept(int fd, sockaddr* address, socklen_t* size) override
    {
        return refused("accept") ? -1 : Interposed_calls::accept(fd, address, size);
    }

    int pipe2(int* ends, int flags) override
    {
        pipe_flags = flags;
        return refused("pipe2") ? -1 : Interposed_calls::pipe2(ends, flags);
    }

    int close(int fd) override
    {
        closed.push_back(fd);
        if (on_close)
            on_close(fd);
        const int result = Interposed_calls::close(fd);
        return refused("close") ? -1 : result;
    }

    ssize_t read(int fd, void* data, std::size_t size) override
    {
        if (refused("read"))
            return -1;
        const ssize_t result = Interposed_calls::read(fd, data, size);
        reads.emplace_back(size, result);
        return result;
    }

    ssize_t write(int fd, const void* data, std::size_t size) override
    {
        if (on_write)
            on_write();
        const auto answers = write_answers.find(fd);
        if (answers == write_answers.end() || answers->second.empty()) {
            const ssize_t result = Interposed_calls::write(fd, data, size);
            full_writes += result < 0 && errno == EAGAIN ? 1 : 0;
            return result;
        }
        const auto [result, error] = answers->second.front();
        answers->second.pop_front();
        errno = error;
        return result > 0 ? Interposed_calls::write(fd, data, static_cast<std::size_t>(result)) : result;
    }

    /// The errors of the calls to come, by name; another name's calls are made.
    std::map<std::string, std::deque<int>> refusals;
    /// Results and errors of the writes to come; of a positive result so many bytes are written.
    std::map<int, std::deque<std::pair<ssize_t, int>>> write_answers;

    std::function<void()> on_write;
    std::function<void(int fd)> on_close;

    int backlog = 0;
    int pipe_flags = 0;
    std::atomic<int> full_writes{0}; ///< that found the connection full
    std::vector<int> closed;
    std::vector<std::pair<std::size_t, ssize_t>> reads;

private:
    bool refused(const std::string& call)
    {
        const auto errors = refusals.find(call);
        if (errors == refusals.end() || errors->second.empty())
            return false;
        errno = errors->second.front();
        errors->second.pop_front();
        return true;
    }
};

/// Runs a server on the testing thread, one turn of its loop after the other.
///
/// A step is called when the server is about to wait; so what one step brings about, and that alone, is what
/// the following turn finds. With the last step, which only looks at what came of it, the server quits.
class Turns : public System {
public:
    using Step = std::function<void()>;
    using Wait = std::function<int(pollfd*, nfds_t)>;

    explicit Turns(Server& running) : server(running) {}

    void run(std::vector<Step> wanted_steps)
    {
        steps = std::move(wanted_steps);
        next = 0;
        server.run();
        EXPECT_EQ(steps.size(), next) << "turns";
    }

    int poll(pollfd* fds, nfds_t count, int timeout_ms) override
    {
        if (timeout_ms >= 0) {
            if (timeout_ms != LIMIT_MS) // which are the test's own, on whatever thread
                limits_ms.push_back(timeout_ms);
            return Interposed_calls::poll(fds, count, timeout_ms);
        }
        steps.at(next)();
        if (++next == steps.size())
            server.quit();
        if (wait)
            return std::exchange(wait, nullptr)(fds, count);
        const int result = Interposed_calls::poll(fds, count, LIMIT_MS);
        if (result == 0) {
            ADD_FAILURE() << "nothing to wake up for";
            std::abort();
        }
        return result;
    }

    Server& server;
    Wait wait;                  ///< in place of the next wait
    std::vector<int> limits_ms; ///< of the waits for clients that are to close

private:
    std::vector<Step> steps;
    std::size_t next = 0;
};

class TCP_server_turns : public testing::Test {
protected:
    TCP_server_turns()
    {
        if (!server.open(0))
            throw std::runtime_error("no server");
        output.clear();
    }

    /// Connects one more client; the server accepts it in the turn that follows.
    Client& connect()
    {
        clients.push_back(std::make_unique<Client>(server.port));
        EXPECT_TRUE(wait_for(server.listen_sd, POLLIN));
        return *clients.back();
    }

    /// The steps that connect so many clients.
    std::vector<Turns::Step> connecting(int count)
    {
        return std::vector<Turns::Step>(static_cast<std::size_t>(count), [this] { connect(); });
    }

    /// Waits until what a client sent, or its end, has reached the server.
    void arrives(int slot) const { EXPECT_TRUE(wait_for(server.connections[slot], POLLIN)); }
    void urgent_arrives(int slot) const { EXPECT_TRUE(wait_for(server.connections[slot], POLLPRI)); }

    /// What has been said since the last call: handlers' texts bare, the server's with their category,
    /// perror's with what errno says. The line ends are left out.
    std::vector<std::string> said()
    {
        std::vector<std::string> texts;
        for (Debug_output::Line& line : output.lines()) {
            if (line.way == Debug_output::PERROR)
                texts.push_back("perror " + line.text + ": " + std::strerror(line.error));
            else if (line.text.empty() || line.text.back() != '\n')
                texts.push_back("no line: " + line.text);
            else if (line.way == Debug_output::PRINT && line.category == HANDLER)
                texts.push_back(line.text.substr(0, line.text.size() - 1));
            else
                texts.push_back(std::to_string(line.category) + " " +
                                line.text.substr(0, line.text.size() - 1));
        }
        output.clear();
        return texts;
    }

    std::string connection_line(const Client& client, int total) const
    {
        return "107 Connection from 127.0.0.1 on port " + std::to_string(client.port()) +
               ".  Total cons: " + std::to_string(total);
    }

    Debug_output output;
    Server server;
    Turns turns{server};
    std::vector<std::unique_ptr<Client>> clients;
};

/// Runs a server on a thread of its own, until the object goes.
class Running {
public:
    explicit Running(Server& running) : server(running), thread([this] { server.run(); }) {}
    ~Running() { quit(); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    void quit()
    {
        if (!thread.joinable())
            return;
        server.quit();
        thread.join();
    }

private:
    Server& server;
    std::thread thread;
};

template <typename CONDITION>
bool comes_true(CONDITION condition)
{
    for (int waited_ms = 0; waited_ms < LIMIT_MS && !condition(); ++waited_ms)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

/// The slot of the virtual table that a pointer to a virtual member names, in the Itanium C++ ABI and ARM's:
/// the offset in bytes, with a lowest bit that one of them sets.
template <typename MEMBER>
std::size_t virtual_slot(MEMBER member)
{
    std::uintptr_t parts[2];
    static_assert(sizeof parts == sizeof member);
    std::memcpy(parts, &member, sizeof parts);
    return (parts[0] & ~std::uintptr_t{1}) / sizeof(void*);
}

} // namespace

TEST(TCP_server, has_its_handlers_in_the_order_of_the_slots)
{
    EXPECT_EQ(0U, virtual_slot(&TCP_server::handle_data));
    EXPECT_EQ(1U, virtual_slot(&TCP_server::handle_disconnected));
}

TEST(TCP_server, starts_with_a_pipe_and_nothing_else)
{
    const Debug_output output;
    System system;
    const Server server;
    EXPECT_EQ(-1, server.listen_sd);
    EXPECT_EQ(-1, server.port);
    EXPECT_THAT(server.connections, Each(-1));
    EXPECT_EQ(0, server.connection_count);
    EXPECT_EQ(0, server.num_connections());
    EXPECT_FALSE(server.quit_done);
    EXPECT_EQ(nullptr, server.lock_owner_thread);
    EXPECT_EQ(0, server.lock_owner_tid);
    EXPECT_EQ(O_NONBLOCK, system.pipe_flags);
    EXPECT_EQ(O_WRONLY | O_NONBLOCK, ::fcntl(server.notify_pipe[0], F_GETFL) & (O_ACCMODE | O_NONBLOCK));
    EXPECT_EQ(O_RDONLY | O_NONBLOCK, ::fcntl(server.notify_pipe[1], F_GETFL) & (O_ACCMODE | O_NONBLOCK));
    EXPECT_EQ("", output.text());
}

TEST(TCP_server, reports_that_it_has_no_pipe_and_then_that_it_cannot_quit)
{
    const Debug_output output;
    System system;
    system.refusals["pipe2"] = {EMFILE};
    Server server;
    ASSERT_EQ(1U, output.lines().size());
    EXPECT_EQ(Debug_output::PERROR, output.lines()[0].way);
    EXPECT_EQ("TCP_server: could not create notification pipe", output.lines()[0].text);
    EXPECT_EQ(EMFILE, output.lines()[0].error);

    server.quit();
    ASSERT_EQ(2U, output.lines().size());
    EXPECT_EQ(Debug_output::PERROR, output.lines()[1].way);
    EXPECT_EQ("TCP_server: cannot notify quit", output.lines()[1].text);
    EXPECT_EQ(EBADF, output.lines()[1].error);
}

TEST(TCP_server, serves_without_a_pipe)
{
    struct Served {};
    const Debug_output output;
    std::unique_ptr<Server> server;
    {
        System system;
        system.refusals["pipe2"] = {EMFILE};
        server = std::make_unique<Server>();
    }
    ASSERT_TRUE(server->open(0));
    server->on_data = [](int, const std::string&) -> int { throw Served(); };
    Turns turns(*server);
    std::unique_ptr<Client> client;
    EXPECT_THROW(
        turns.run({[&] { client = std::make_unique<Client>(server->port); }, [&] { client->send("x"); }}),
        Served);
    EXPECT_TRUE(server->connections_lock.tryLock()) << "still locked";
    server->connections_lock.unlock();
}

TEST(TCP_server, opens_a_port_of_the_systems_choosing)
{
    std::signal(SIGPIPE, SIG_DFL);
    const Debug_output output;
    System system;
    Server server;
    ASSERT_TRUE(server.open(0));

    ASSERT_GE(server.listen_sd, 0);
    const sockaddr_in bound = local_address(server.listen_sd);
    EXPECT_EQ(AF_INET, bound.sin_family);
    EXPECT_EQ(htonl(INADDR_ANY), bound.sin_addr.s_addr);
    EXPECT_EQ(ntohs(bound.sin_port), server.port);
    EXPECT_GT(server.port, 0);
    EXPECT_EQ(1, option(server.listen_sd, SOL_SOCKET, SO_ACCEPTCONN));
    EXPECT_EQ(SOCK_STREAM, option(server.listen_sd, SOL_SOCKET, SO_TYPE));
    EXPECT_NE(0, option(server.listen_sd, SOL_SOCKET, SO_REUSEADDR));
    EXPECT_NE(0, option(server.listen_sd, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(5, system.backlog);
    EXPECT_EQ(SIG_IGN, std::signal(SIGPIPE, SIG_IGN));

    ASSERT_EQ(2U, output.lines().size());
    EXPECT_EQ(1, output.count(Debug_output::PRINT, "Starting TCP server on port 0\n"));
    EXPECT_EQ("  Bound to port " + std::to_string(server.port) + "\n", output.lines()[1].text);
    for (const Debug_output::Line& line : output.lines()) {
        EXPECT_EQ(Debug_output::PRINT, line.way);
        EXPECT_EQ(107, line.category);
    }
}

TEST(TCP_server, opens_the_port_that_it_is_given_also_while_old_connections_linger)
{
    const Debug_output output;
    const Reserved_port reserved;
    const int port = reserved.number();
    {
        Server first;
        ASSERT_TRUE(first.open(port));
        Running running(first);
        const Client client(port);
        ASSERT_TRUE(comes_true([&] { return first.num_connections() == 1; }));
        std::thread quitter([&] { running.quit(); }); // the server closes first, so the wait is on its side
        EXPECT_EQ("", client.receive());
        quitter.join();
    }
    Server second;
    EXPECT_TRUE(second.open(port));
    EXPECT_EQ(port, second.port);
    EXPECT_EQ(
        2, output.count(Debug_output::PRINT, "Starting TCP server on port " + std::to_string(port) + "\n"));
    EXPECT_EQ(2, output.count(Debug_output::PRINT, "  Bound to port " + std::to_string(port) + "\n"));
    EXPECT_EQ(port, ntohs(local_address(second.listen_sd).sin_port));
}

TEST(TCP_server, says_why_it_cannot_open)
{
    const std::string reuse = "setsockopt " + std::to_string(SOL_SOCKET) + " " + std::to_string(SO_REUSEADDR);
    const std::string no_delay =
        "setsockopt " + std::to_string(IPPROTO_TCP) + " " + std::to_string(TCP_NODELAY);
    const struct {
        std::string call;
        int error;
        const char* words;
        bool socket_stays;
    } cases[] = {{"socket", EMFILE, "cannot open socket ", false},
                 {reuse, ENOPROTOOPT, "setsockopt(SO_REUSEPORT)", true},
                 {no_delay, ENOMEM, "setsockopt(TCP_NODELAY)", true},
                 {"bind", EACCES, "cannot bind port ", false}};
    for (const auto& failing : cases) {
        SCOPED_TRACE(failing.call);
        const Debug_output output;
        Server server;
        System system;
        system.refusals[failing.call] = {failing.error};
        EXPECT_FALSE(server.open(0));
        EXPECT_EQ(-1, server.port);
        EXPECT_TRUE(system.refusals[failing.call].empty());
        ASSERT_EQ(2U, output.lines().size());
        EXPECT_EQ("Starting TCP server on port 0\n", output.lines()[0].text);
        EXPECT_EQ(Debug_output::PERROR, output.lines()[1].way);
        EXPECT_EQ(failing.words, output.lines()[1].text);
        EXPECT_EQ(failing.error, output.lines()[1].error);
        if (failing.socket_stays) {
            EXPECT_TRUE(is_open(server.listen_sd));
            EXPECT_THAT(system.closed, IsEmpty());
        } else {
            EXPECT_EQ(-1, server.listen_sd);
            EXPECT_EQ(failing.call == "bind" ? 1U : 0U, system.closed.size());
        }
    }
}

TEST(TCP_server, says_that_another_has_the_port_and_then_has_nothing_to_run)
{
    const Debug_output output;
    Server first;
    ASSERT_TRUE(first.open(0));
    Server second;
    System system;
    EXPECT_FALSE(second.open(first.port));
    EXPECT_EQ(-1, second.listen_sd);
    ASSERT_EQ(1U, system.closed.size());
    EXPECT_FALSE(is_open(system.closed[0]));
    EXPECT_EQ("cannot bind port ", output.lines().back().text);
    EXPECT_EQ(EADDRINUSE, output.lines().back().error);

    second.run();
    EXPECT_FALSE(second.quit_done);
    EXPECT_TRUE(is_open(second.notify_pipe[0]));
}

TEST(TCP_server, opens_although_the_port_cannot_be_read_back_or_listen_fails)
{
    const Debug_output output;
    const Reserved_port reserved;
    const int free_port = reserved.number();
    Server server;
    System system;
    system.refusals["getsockname"] = {ENOBUFS};
    system.refusals["listen"] = {EADDRINUSE};
    EXPECT_TRUE(server.open(free_port));
    EXPECT_EQ(free_port, server.port);
    EXPECT_THAT(system.refusals,
                Each(testing::Field(&std::pair<const std::string, std::deque<int>>::second, IsEmpty())));
    EXPECT_EQ(0, output.count(Debug_output::PERROR, "setsockopt(TCP_NODELAY)"));
    EXPECT_EQ(2U, output.lines().size());
}

TEST(TCP_server, returns_at_once_where_it_was_not_opened)
{
    const Debug_output output;
    Server server;
    server.quit();
    server.run();
    EXPECT_FALSE(server.quit_done);
    EXPECT_TRUE(is_open(server.notify_pipe[1]));
    EXPECT_EQ("", output.text());
}

TEST(TCP_server, quits_with_one_written_byte)
{
    const Server server;
    const_cast<Server&>(server).quit();
    char bytes[10] = {};
    EXPECT_EQ(1, ::read(server.notify_pipe[1], bytes, sizeof bytes));
    EXPECT_STREQ("1", bytes);
}

TEST(TCP_server, says_that_it_cannot_quit_once_the_pipe_takes_no_more)
{
    const Debug_output output;
    Server server;
    int capacity = 0;
    while (::write(server.notify_pipe[0], "1", 1) == 1)
        ++capacity;
    EXPECT_GT(capacity, 0);
    server.quit();
    ASSERT_EQ(1U, output.lines().size());
    EXPECT_EQ(Debug_output::PERROR, output.lines()[0].way);
    EXPECT_EQ("TCP_server: cannot notify quit", output.lines()[0].text);
    EXPECT_EQ(EAGAIN, output.lines()[0].error);

    System system;
    system.write_answers[server.notify_pipe[0]] = {{0, EIO}};
    server.quit();
    EXPECT_EQ(2, output.count(Debug_output::PERROR, "TCP_server: cannot notify quit"));
}

TEST_F(TCP_server_turns, the_sockets_do_not_block_and_do_not_delay)
{
    turns.run({[&] {
                   EXPECT_NE(0, ::fcntl(server.listen_sd, F_GETFL) & O_NONBLOCK);
                   connect();
               },
               [&] {
                   EXPECT_NE(0, ::fcntl(server.connections[0], F_GETFL) & O_NONBLOCK);
                   EXPECT_NE(0, option(server.connections[0], IPPROTO_TCP, TCP_NODELAY));
               }});
}

TEST_F(TCP_server_turns, a_client_is_accepted_served_and_dropped)
{
    int sd = -1;
    turns.run({[&] { connect(); },
               [&] {
                   sd = server.connections[0];
                   EXPECT_THAT(said(), ElementsAre(connection_line(*clients[0], 1)));
                   EXPECT_EQ(1, server.num_connections());
                   clients[0]->send("hello");
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("0: hello"));
                   clients[0]->close();
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("107 Connection closed.", "0: gone"));
                   EXPECT_THAT(server.connections, Each(-1));
                   EXPECT_EQ(0, server.num_connections());
                   EXPECT_FALSE(is_open(sd));
                   connect(); // whose slot is the same
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre(connection_line(*clients[1], 1)));
                   EXPECT_GE(server.connections[0], 0);
               }});
}

TEST_F(TCP_server_turns, a_dropped_client_is_closed_but_in_its_slot_while_its_handler_runs)
{
    int gone = 0;
    server.on_disconnected = [&](int sd) {
        ++gone;
        EXPECT_EQ(server.connections[0], sd);
        EXPECT_EQ(1, server.num_connections());
        EXPECT_FALSE(is_open(sd));
    };
    std::vector<Turns::Step> steps{[&] { connect(); }, [&] { clients[0]->close(); }, [&] { connect(); },
                                   [&] {
                                       clients[1]->send_urgent("!");
                                       urgent_arrives(0);
                                   },
                                   [&] { EXPECT_EQ(2, gone); }};
    turns.run(steps);
}

TEST_F(TCP_server_turns, clients_take_the_lowest_free_slot)
{
    std::vector<Turns::Step> steps = connecting(4);
    steps.push_back([&] {
        clients[2]->close();
        arrives(2);
        clients[1]->close();
        arrives(1);
    });
    steps.push_back([&] {
        EXPECT_EQ(2, server.num_connections());
        EXPECT_EQ(-1, server.connections[1]);
        EXPECT_EQ(-1, server.connections[2]);
        connect();
    });
    steps.push_back([&] {
        EXPECT_GE(server.connections[1], 0);
        EXPECT_EQ(-1, server.connections[2]);
        connect();
    });
    steps.push_back([&] {
        EXPECT_GE(server.connections[2], 0);
        EXPECT_EQ(-1, server.connections[4]);
        said();
        clients[4]->send("first free");
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre("1: first free"));
        clients[5]->send("next free");
    });
    steps.push_back([&] { EXPECT_THAT(said(), ElementsAre("2: next free")); });
    turns.run(steps);
}

TEST_F(TCP_server_turns, one_turn_accepts_one_client)
{
    turns.run({[&] {
                   connect();
                   connect();
               },
               [&] { EXPECT_EQ(1, server.num_connections()); },
               [&] { EXPECT_EQ(2, server.num_connections()); }});
}

TEST_F(TCP_server_turns, what_is_sent_comes_in_pieces_of_256_bytes_all_in_one_turn)
{
    std::string sent;
    for (int i = 0; i < 600; ++i)
        sent += static_cast<char>('a' + i % 26);
    std::vector<std::pair<std::size_t, ssize_t>> reads;
    turns.run({[&] { connect(); },
               [&] {
                   clients[0]->send(sent);
                   said();
                   turns.reads.clear();
               },
               [&] {
                   reads = turns.reads;
                   EXPECT_THAT(said(), ElementsAre("0: " + sent.substr(0, 256), "0: " + sent.substr(256, 256),
                                                   "0: " + sent.substr(512)));
                   clients[0]->send(sent.substr(0, 256));
               },
               [&] { EXPECT_THAT(said(), ElementsAre("0: " + sent.substr(0, 256))); }});
    EXPECT_THAT(
        reads, ElementsAre(std::pair(256, 256), std::pair(256, 256), std::pair(256, 88), std::pair(256, -1)));
}

TEST_F(TCP_server_turns, what_a_handler_leaves_is_handed_over_again)
{
    const std::string ten = "0123456789";
    const struct {
        std::string sent;
        std::vector<int> used;
        std::vector<std::string> handed_over;
    } cases[] = {
        {ten, {10}, {ten}},
        {ten, {11}, {ten}},
        {ten, {1000}, {ten}},
        {ten, {0}, {ten}},
        {ten, {-1}, {ten}},
        {ten, {-1000}, {ten}},
        {ten, {9, 1}, {ten, "9"}},
        {ten, {3, 4, 3}, {ten, "3456789", "789"}},
        {ten, {3, 0}, {ten, "3456789"}},
        {ten, {3, -5}, {ten, "3456789"}},
        {ten, {3, 8}, {ten, "3456789"}},
        {ten,
         {1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
         {ten, "123456789", "23456789", "3456789", "456789", "56789", "6789", "789", "89", "9"}},
        // What is dropped is the rest of one piece.
        {std::string(256, 'a') + "bcd", {0, 3}, {std::string(256, 'a'), "bcd"}},
        {std::string(256, 'a') + "bcd",
         {100, -1, 1, 2},
         {std::string(256, 'a'), std::string(156, 'a'), "bcd", "cd"}},
        {std::string(256, 'a') + "bcd", {255, 300, 0}, {std::string(256, 'a'), "a", "bcd"}},
    };
    std::size_t answered = 0;
    const auto send = [&](std::size_t i) {
        answered = 0;
        server.on_data = [&, i](int, const std::string&) {
            return answered < cases[i].used.size() ? cases[i].used[answered++] : 1000;
        };
        said();
        clients[0]->send(cases[i].sent);
    };
    const auto check = [&](std::size_t i) {
        SCOPED_TRACE("case " + std::to_string(i));
        std::vector<std::string> lines;
        for (const std::string& piece : cases[i].handed_over)
            lines.push_back("0: " + piece);
        EXPECT_THAT(said(), ElementsAreArray(lines));
        EXPECT_EQ(cases[i].used.size(), answered);
    };

    std::vector<Turns::Step> steps = connecting(1);
    steps.push_back([&] { send(0); });
    for (std::size_t i = 1; i < std::size(cases); ++i)
        steps.push_back([&, i] {
            check(i - 1);
            send(i);
        });
    steps.push_back([&] { check(std::size(cases) - 1); });
    turns.run(steps);
}

TEST_F(TCP_server_turns, data_before_the_end_come_a_turn_before_the_end)
{
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   clients[0]->send("last words");
                   clients[0]->close();
                   arrives(0);
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("0: last words"));
                   EXPECT_EQ(1, server.num_connections());
               },
               [&] { EXPECT_THAT(said(), ElementsAre("107 Connection closed.", "0: gone")); }});
}

TEST_F(TCP_server_turns, a_failed_read_leaves_the_client_for_the_next_turn)
{
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   clients[0]->abort(); // the first read is refused with ECONNRESET, the second finds the end
                   arrives(0);
               },
               [&] {
                   EXPECT_THAT(said(), IsEmpty());
                   EXPECT_EQ(1, server.num_connections());
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("107 Connection closed.", "0: gone"));
                   connect();
               },
               [&] {
                   said();
                   turns.refusals["read"] = {EINTR};
                   clients[1]->send("once more");
               },
               [&] { EXPECT_THAT(said(), IsEmpty()); },
               [&] { EXPECT_THAT(said(), ElementsAre("0: once more")); }});
}

TEST_F(TCP_server_turns, a_failed_read_uses_up_one_event_of_several)
{
    std::vector<Turns::Step> steps = connecting(3);
    steps.push_back([&] {
        said();
        turns.refusals["read"] = {EINTR};
        clients[0]->send("a");
        clients[1]->send("b");
        clients[2]->send("c");
        for (const int slot : {0, 1, 2})
            arrives(slot);
    });
    steps.push_back([&] { EXPECT_THAT(said(), ElementsAre("1: b", "2: c")); });
    turns.run(steps);
}

TEST_F(TCP_server_turns, out_of_band_data_end_a_connection)
{
    int sd = -1;
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   sd = server.connections[0];
                   clients[0]->send("unread");
                   clients[0]->send_urgent("!");
                   urgent_arrives(0);
                   arrives(0);
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("107 Got a connection exception.  Closing.", "0: gone"));
                   EXPECT_FALSE(is_open(sd));
                   EXPECT_THAT(server.connections, Each(-1));
                   EXPECT_EQ(0, server.num_connections());
                   connect();
               },
               [&] {
                   clients[1]->send("next");
                   said();
               },
               [&] { EXPECT_THAT(said(), ElementsAre("0: next")); }});
}

TEST_F(TCP_server_turns, a_client_in_the_slot_of_one_just_dropped_has_nothing_of_its_events)
{
    turns.run({[&] { connect(); },
               [&] {
                   clients[0]->send("unread");
                   clients[0]->send_urgent("!");
                   arrives(0);
                   urgent_arrives(0);
                   connect();
                   turns.reads.clear();
               },
               [&] {
                   EXPECT_EQ(1, server.num_connections());
                   EXPECT_GE(server.connections[0], 0);
                   EXPECT_THAT(turns.reads, IsEmpty());
               }});
}

TEST_F(TCP_server_turns, one_turn_handles_all_that_is_pending_exceptions_first_then_a_new_client)
{
    std::vector<Turns::Step> steps = connecting(8);
    steps.push_back([&] {
        said();
        clients[7]->send("seven");
        clients[6]->close();
        clients[5]->send("five");
        clients[4]->close();
        clients[3]->send("unread");
        clients[3]->send_urgent("!");
        clients[1]->send_urgent("!");
        clients[0]->send_urgent("!");
        connect();
        for (const int slot : {3, 4, 5, 6, 7})
            arrives(slot);
        for (const int slot : {0, 1, 3})
            urgent_arrives(slot);
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre("107 Got a connection exception.  Closing.", "0: gone",
                                        "107 Got a connection exception.  Closing.", "1: gone",
                                        "107 Got a connection exception.  Closing.", "3: gone",
                                        connection_line(*clients[8], 6), "107 Connection closed.", "4: gone",
                                        "5: five", "107 Connection closed.", "6: gone", "7: seven"));
        EXPECT_EQ(4, server.num_connections());
        clients[8]->send("eight");
    });
    steps.push_back([&] { EXPECT_THAT(said(), ElementsAre("0: eight")); });
    turns.run(steps);
}

TEST_F(TCP_server_turns, events_are_counted_as_select_counts_them)
{
    // As many events as there are, told in one way only: a hang-up or an error is a readable end.
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   clients[0]->send("x");
                   arrives(0);
                   turns.wait = [](pollfd* fds, nfds_t count) {
                       EXPECT_EQ(3U, count);
                       fds[2].revents = POLLHUP;
                       return 1;
                   };
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre("0: x"));
                   clients[0]->send("y");
                   arrives(0);
                   turns.wait = [](pollfd* fds, nfds_t) {
                       fds[2].revents = POLLERR;
                       return 1;
                   };
               },
               [&] { EXPECT_THAT(said(), ElementsAre("0: y")); }});
}

TEST_F(TCP_server_turns, the_hundred_and_first_client_is_left_unattended)
{
    constexpr int MOST = 100;
    std::unique_ptr<Client> one_more;
    std::vector<int> descriptors;
    std::vector<Turns::Step> steps = connecting(MOST);
    steps.push_back([&] {
        const auto lines = said();
        ASSERT_EQ(100U, lines.size());
        EXPECT_EQ(connection_line(*clients[99], 100), lines[99]);
        one_more = std::make_unique<Client>(server.port);
        descriptors.assign(std::begin(server.connections), std::end(server.connections));
        turns.closed.clear();
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre(connection_line(*one_more, 100),
                                        "107 Unable to service incoming connection. We're full."));
        EXPECT_EQ(100, server.num_connections());
        EXPECT_THAT(server.connections, ElementsAreArray(descriptors));
        EXPECT_THAT(turns.closed, IsEmpty());
        one_more->send("is anybody there?");
        for (int slot = 0; slot < MOST; ++slot) {
            clients[static_cast<std::size_t>(slot)]->send(std::to_string(slot));
            arrives(slot);
        }
    });
    steps.push_back([&] {
        std::vector<std::string> lines;
        for (int slot = 0; slot < MOST; ++slot)
            lines.push_back(std::to_string(slot) + ": " + std::to_string(slot));
        EXPECT_THAT(said(), ElementsAreArray(lines));
        EXPECT_TRUE(one_more->has_nothing()) << "neither an answer nor an end";
        clients[57]->close();
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre("107 Connection closed.", "57: gone"));
        connect();
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre(connection_line(*clients[100], 100)));
        EXPECT_GE(server.connections[57], 0);
        clients[100]->send("in the free slot");
    });
    steps.push_back([&] {
        EXPECT_THAT(said(), ElementsAre("57: in the free slot"));
        EXPECT_TRUE(one_more->has_nothing());
    });
    turns.run({steps});
    // The server's end of it is still open; it is the one descriptor here that nobody owns.
    EXPECT_TRUE(one_more->has_nothing());
    const sockaddr_in client_end = local_address(one_more->sd);
    int left_open = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin_port == client_end.sin_port) {
            ++left_open;
            ::close(fd);
        }
    }
    EXPECT_EQ(1, left_open);
}

TEST_F(TCP_server_turns, a_refused_accept_is_reported_and_the_loop_goes_on)
{
    turns.run({[&] {
                   connect();
                   turns.refusals["accept"] = {EMFILE};
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre(std::string("perror cannot accept connection : ") +
                                                   std::strerror(EMFILE)));
                   EXPECT_EQ(0, server.num_connections());
                   EXPECT_THAT(server.connections, Each(-1));
               },
               [&] { EXPECT_THAT(said(), ElementsAre(connection_line(*clients[0], 1))); }});
}

TEST_F(TCP_server_turns, a_refused_accept_uses_up_one_event)
{
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   clients[0]->send("x");
                   arrives(0);
                   connect();
                   turns.refusals["accept"] = {ECONNABORTED};
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre(std::string("perror cannot accept connection : ") +
                                                       std::strerror(ECONNABORTED),
                                                   "0: x"));
               }});
}

TEST_F(TCP_server_turns, a_refused_close_is_reported_and_the_client_is_gone_all_the_same)
{
    const std::string report = std::string("perror error closing connection: ") + std::strerror(EIO);
    turns.run({[&] { connect(); }, [&] { connect(); },
               [&] {
                   said();
                   clients[1]->send_urgent("!");
                   urgent_arrives(1);
                   turns.refusals["close"] = {EIO};
               },
               [&] {
                   EXPECT_THAT(said(),
                               ElementsAre(report, "107 Got a connection exception.  Closing.", "1: gone"));
                   clients[0]->close();
                   turns.refusals["close"] = {EIO};
               },
               [&] {
                   EXPECT_THAT(said(), ElementsAre(report, "107 Connection closed.", "0: gone"));
                   EXPECT_EQ(0, server.num_connections());
               }});
}

TEST_F(TCP_server_turns, a_wait_that_was_interrupted_or_short_of_memory_is_repeated)
{
    turns.run({[&] { turns.wait = [](pollfd*, nfds_t) { return fail_with(EINTR); }; },
               [&] { turns.wait = [](pollfd*, nfds_t) { return fail_with(EAGAIN); }; }, [&] { connect(); },
               [&] { EXPECT_THAT(said(), ElementsAre(connection_line(*clients[0], 1))); }});
}

TEST_F(TCP_server_turns, a_message_takes_one_read_more_than_it_has_pieces)
{
    turns.run({[&] { connect(); },
               [&] {
                   turns.reads.clear();
                   turns.closed.clear();
                   clients[0]->send("x");
               },
               [&] {
                   EXPECT_THAT(turns.reads, ElementsAre(std::pair(256, 1), std::pair(256, -1)));
                   EXPECT_THAT(turns.closed, IsEmpty());
               }});
}

TEST_F(TCP_server_turns, quit_closes_the_clients_then_the_pipe_and_the_listening_socket)
{
    std::vector<Turns::Step> steps = connecting(3);
    std::vector<int> descriptors;
    int pipe_ends[2] = {};
    int listening = -1;
    std::vector<bool> done_by_then;
    steps.push_back([&] {
        clients[1]->close();
        arrives(1);
    });
    steps.push_back([&] {
        said();
        descriptors.assign(std::begin(server.connections), std::end(server.connections));
        pipe_ends[0] = server.notify_pipe[0];
        pipe_ends[1] = server.notify_pipe[1];
        listening = server.listen_sd;
        turns.closed.clear();
        turns.limits_ms.clear();
        turns.on_close = [&](int) { done_by_then.push_back(server.quit_done); };
        // The ends of the clients, which answer the closing with their own.
        for (const std::size_t i : {0U, 2U})
            EXPECT_EQ(0, ::shutdown(clients[i]->sd, SHUT_WR));
    });
    turns.run(steps);
    turns.on_close = nullptr;
    EXPECT_TRUE(server.quit_done);
    ASSERT_FALSE(turns.limits_ms.empty());
    EXPECT_EQ(200, turns.limits_ms[0]);
    EXPECT_THAT(turns.closed,
                ElementsAre(descriptors[0], descriptors[2], pipe_ends[0], pipe_ends[1], listening));
    EXPECT_THAT(done_by_then, ElementsAre(false, false, true, true, true));
    for (const int fd : turns.closed)
        EXPECT_FALSE(is_open(fd));
    EXPECT_EQ("", clients[0]->receive());
    EXPECT_EQ("", clients[2]->receive());
    EXPECT_THAT(server.connections, ElementsAreArray(descriptors)) << "as they were";
    EXPECT_EQ(2, server.num_connections()) << "as it was";
    EXPECT_THAT(said(), IsEmpty()) << "nobody hears that a client is gone";
    EXPECT_EQ(0, server.lock_owner_tid);

    server.run();
    EXPECT_EQ(-1, server.listen_sd);
    server.quit();
    EXPECT_THAT(said(),
                ElementsAre(std::string("perror TCP_server: cannot notify quit: ") + std::strerror(EBADF)));
}

TEST_F(TCP_server_turns, quit_closes_clients_that_stay_and_clients_whose_data_nobody_read)
{
    turns.run({[&] { connect(); }, [&] { connect(); }, [&] { clients[1]->send("unread"); }});
    EXPECT_TRUE(server.quit_done);
    EXPECT_FALSE(is_open(server.connections[0]));
    EXPECT_FALSE(is_open(server.connections[1]));
    EXPECT_EQ("", clients[0]->receive());
    EXPECT_EQ("", clients[1]->receive());
}

TEST_F(TCP_server_turns, quit_comes_before_anything_else_that_is_pending)
{
    turns.run({[&] { connect(); },
               [&] {
                   said();
                   connect();
                   clients[0]->send("unread");
                   clients[0]->send_urgent("!");
                   arrives(0);
                   urgent_arrives(0);
                   clients[0]->close();
                   turns.wait = [&](pollfd* fds, nfds_t count) {
                       const int result = turns.Interposed_calls::poll(fds, count, 0);
                       EXPECT_EQ(server.listen_sd, fds[0].fd);
                       fds[0].revents |= POLLPRI; // which would end the process
                       return result;
                   };
               }});
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_EQ(1, server.num_connections());
}

TEST_F(TCP_server_turns, a_quit_before_the_run_ends_it_at_its_first_turn)
{
    server.quit();
    server.quit();
    connect();
    const int listening = server.listen_sd;
    turns.run({[] {}});
    EXPECT_TRUE(server.quit_done);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_FALSE(is_open(listening));
}

TEST_F(TCP_server_turns, a_handler_may_quit)
{
    server.on_data = [&](int, const std::string&) {
        server.quit();
        return 1;
    };
    turns.run({[&] { connect(); }, [&] { clients[0]->send("quit"); }, [&] { clients[0]->close(); }});
    EXPECT_TRUE(server.quit_done);
}

TEST_F(TCP_server_turns, a_message_reaches_every_client_or_every_client_but_one)
{
    EXPECT_TRUE(server.write("nobody", -1));
    std::vector<Turns::Step> steps = connecting(4);
    steps.push_back([&] { clients[0]->close(); });
    steps.push_back([&] {
        EXPECT_TRUE(server.write("all,", -1));
        EXPECT_TRUE(server.write("but one,", server.connections[2]));
        EXPECT_TRUE(server.write("", -1));
        EXPECT_TRUE(server.write(std::string("\0,", 2), server.listen_sd)); // which is no client's
    });
    turns.run(steps);
    EXPECT_EQ(std::string("all,but one,\0,", 14), clients[1]->receive());
    EXPECT_EQ(std::string("all,\0,", 6), clients[2]->receive());
    EXPECT_EQ(std::string("all,but one,\0,", 14), clients[3]->receive());
}

TEST_F(TCP_server_turns, a_message_is_tried_again_and_failures_do_not_keep_it_from_the_others)
{
    using Answers = std::deque<std::pair<ssize_t, int>>;
    const struct {
        Answers answers; ///< to writing to the second of three clients
        bool written;
        std::string received;
    } cases[] = {
        {{}, true, "12345"},
        {{{-1, EAGAIN}}, true, "12345"},
        {Answers(1000, {-1, EAGAIN}), true, "12345"},
        {{{3, 0}}, true, "123"},
        {{{-1, EAGAIN}, {3, 0}}, true, "123"},
        {{{0, 0}}, true, ""},
        {{{-1, EPIPE}}, false, ""},
        {{{-1, EINTR}}, false, ""},
        {{{-1, EAGAIN}, {-1, EAGAIN}, {-1, ECONNRESET}}, false, ""},
    };
    std::string expected_of_second, expected_of_others;
    std::vector<Turns::Step> steps = connecting(3);
    steps.push_back([&] {
        for (const auto& writing : cases) {
            const std::size_t number = static_cast<std::size_t>(&writing - cases);
            SCOPED_TRACE("case " + std::to_string(number));
            turns.write_answers[server.connections[1]] = writing.answers;
            EXPECT_EQ(writing.written, server.write("12345", -1));
            EXPECT_THAT(turns.write_answers[server.connections[1]], IsEmpty());
            expected_of_second += writing.received;
            expected_of_others += "12345";
        }
    });
    turns.run(steps);
    EXPECT_EQ(expected_of_others, clients[0]->receive());
    EXPECT_EQ(expected_of_second, clients[1]->receive());
    EXPECT_EQ(expected_of_others, clients[2]->receive());
}

TEST_F(TCP_server_turns, writing_to_a_client_that_has_gone_fails_and_the_process_goes_on)
{
    turns.run({[&] { connect(); }, [&] { connect(); },
               [&] {
                   clients[0]->abort();
                   EXPECT_TRUE(wait_for(server.connections[0], 0)) << "no error arrived";
                   EXPECT_FALSE(server.write("x", -1)); // ECONNRESET
                   EXPECT_FALSE(server.write("x", -1)); // EPIPE
                   EXPECT_TRUE(server.write("x", server.connections[0]));
               },
               [&] {}});
    EXPECT_EQ("xxx", clients[1]->receive());
}

TEST_F(TCP_server_turns, a_full_connection_is_tried_until_it_takes_something)
{
    std::thread reader;
    std::size_t received = 0;
    turns.run({[&] { connect(); },
               [&] {
                   const int small = 4096;
                   EXPECT_EQ(
                       0, ::setsockopt(server.connections[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small));
                   reader = std::thread([&] {
                       EXPECT_TRUE(comes_true([&] { return turns.full_writes > 0; }));
                       received = clients[0]->receive().size();
                   });
                   const std::string message(65536, '.');
                   for (int i = 0; i < 1000 && turns.full_writes == 0; ++i)
                       EXPECT_TRUE(server.write(message, -1));
                   EXPECT_GT(turns.full_writes, 0);
               }});
    reader.join();
    EXPECT_GT(received, 0U);
}

TEST(TCP_server, a_turn_does_not_begin_while_somebody_holds_the_lock)
{
    const Debug_output output;
    Server server;
    ASSERT_TRUE(server.open(0));
    server.connections_lock.lock();
    server.quit();
    std::thread thread([&] { server.run(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(server.quit_done);
    server.connections_lock.unlock();
    thread.join();
    EXPECT_TRUE(server.quit_done);
}

TEST(TCP_server, quit_frees_a_writer_whose_client_takes_nothing)
{
    class Counted : public Interposed_calls {
    public:
        int poll(pollfd* fds, nfds_t count, int timeout_ms) override
        {
            waits += timeout_ms < 0 ? 1 : 0;
            return Interposed_calls::poll(fds, count, timeout_ms);
        }
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            const ssize_t result = Interposed_calls::write(fd, data, size);
            ++(result < 0 && errno == EAGAIN ? full_writes : done_writes);
            return result;
        }
        std::atomic<int> waits{0}, full_writes{0}, done_writes{0};
    };
    const Debug_output output;
    Counted counted;
    Server server;
    ASSERT_TRUE(server.open(0));
    Running running(server);
    const Client client(server.port);
    ASSERT_TRUE(comes_true([&] { return counted.waits == 2; })); // and so without the lock
    const int small = 4096;                                      // and not adapted any more
    EXPECT_EQ(0, ::setsockopt(server.connections[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small));
    EXPECT_EQ(0, ::setsockopt(client.sd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small));
    std::atomic<bool> failed{false};
    std::thread writer([&] {
        const std::string message(65536, '.');
        while (server.write(message, -1)) {
        }
        failed = true;
    });
    EXPECT_TRUE(comes_true([&] {
        const int before = counted.done_writes;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return counted.full_writes > 0 && counted.done_writes == before;
    }));
    EXPECT_FALSE(failed);
    running.quit();
    writer.join();
    EXPECT_TRUE(server.quit_done);
}

TEST_F(TCP_server_turns, the_handlers_run_under_the_lock_and_answer_without_taking_it)
{
    const auto expect_locked = [&] {
        EXPECT_FALSE(server.connections_lock.tryLock());
        EXPECT_EQ(QThread::currentThreadId(), server.lock_owner_thread);
        EXPECT_EQ(::gettid(), server.lock_owner_tid);
    };
    const auto expect_free = [&] {
        EXPECT_EQ(nullptr, server.lock_owner_thread);
        EXPECT_EQ(0, server.lock_owner_tid);
        ASSERT_TRUE(server.connections_lock.tryLock());
        server.connections_lock.unlock();
    };
    int handled = 0;
    server.on_data = [&](int sd, const std::string& text) {
        ++handled;
        expect_locked();
        EXPECT_TRUE(server.answer(text, sd));
        return 100;
    };
    server.on_disconnected = [&](int sd) {
        ++handled;
        expect_locked();
        EXPECT_TRUE(server.answer("gone,", sd));
        EXPECT_FALSE(server.answer("gone,", -1)) << "the one that is gone is in its slot";
    };
    std::vector<Turns::Step> steps = connecting(3);
    steps.push_back([&] {
        expect_free();
        clients[0]->send("to the others,");
    });
    steps.push_back([&] {
        // Read, or closing would be a reset.
        EXPECT_EQ("to the others,", clients[2]->receive(14));
        clients[2]->close();
    });
    steps.push_back([&] {
        expect_free();
        EXPECT_EQ("to the others,gone,gone,", clients[1]->receive(24));
        clients[1]->send_urgent("!");
        urgent_arrives(1);
    });
    steps.push_back([&] {
        expect_free();
        EXPECT_EQ(3, handled);
        int writes = 0;
        turns.on_write = [&] {
            ++writes;
            expect_locked();
        };
        EXPECT_TRUE(server.write("x", -1));
        turns.on_write = nullptr;
        EXPECT_EQ(1, writes);
        expect_free();
    });
    turns.run(steps);
    EXPECT_EQ("gone,gone,gone,gone,x", clients[0]->receive());
}

TEST(TCP_server, a_base_that_does_not_hear_of_clients_that_are_gone_serves_on)
{
    class Deaf : public TCP_server {
    public:
        using TCP_server::port;
        int handle_data(int /*sd*/, unsigned char* data, int len) override
        {
            received += std::string(data, data + len);
            _write_to_all_connections(data, static_cast<unsigned>(len), -1);
            return len;
        }
        std::string received;
    };
    const Debug_output output;
    Deaf server;
    ASSERT_TRUE(server.open(0));
    std::thread thread([&] { server.run(); });
    for (const char* const text : {"one", "two"}) {
        const Client client(server.port);
        client.send(text);
        EXPECT_EQ(text, client.receive(3));
    }
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, "Connection closed.\n", 2));
    server.quit();
    thread.join();
    EXPECT_EQ("onetwo", server.received);
}

TEST(TCP_server, who_wants_to_write_while_a_handler_runs_waits_for_it)
{
    const Debug_output output;
    Server server;
    ASSERT_TRUE(server.open(0));
    std::atomic<bool> handling{false}, go_on{false}, written{false};
    std::atomic<pid_t> loop_tid{0};
    std::atomic<Qt::HANDLE> loop_thread{nullptr};
    server.on_data = [&](int, const std::string&) {
        loop_tid = ::gettid();
        loop_thread = QThread::currentThreadId();
        handling = true;
        EXPECT_TRUE(comes_true([&] { return go_on.load(); }));
        return 1;
    };
    Running running(server);
    const Client client(server.port);
    client.send("x");
    ASSERT_TRUE(comes_true([&] { return handling.load(); }));

    std::thread writer([&] {
        EXPECT_TRUE(server.write("y", -1));
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(written);
    EXPECT_TRUE(client.has_nothing());
    EXPECT_EQ(1, server.num_connections()) << "takes no lock";
    EXPECT_EQ(loop_tid, server.lock_owner_tid);
    EXPECT_EQ(loop_thread, server.lock_owner_thread);
    EXPECT_NE(::gettid(), server.lock_owner_tid);
    go_on = true;
    writer.join();
    EXPECT_EQ("y", client.receive(1));
}

namespace {

/// Has what is caught told on standard error when the process ends, in one line.
void tell_at_exit(const Debug_output& output)
{
    static const Debug_output* telling = nullptr;
    telling = &output;
    std::atexit([] {
        std::string all = "said: ";
        for (const Debug_output::Line& line : telling->lines()) {
            all += line.way == Debug_output::PRINT ? std::to_string(line.category) + " " : "perror ";
            all += line.text.substr(0, line.text.find('\n'));
            all += line.way == Debug_output::PERROR ? std::string(": ") + std::strerror(line.error) : "";
            all += "|";
        }
        std::fputs((all + "\n").c_str(), stderr);
    });
}

} // namespace

using TCP_server_turns_death = TCP_server_turns;

TEST_F(TCP_server_turns_death, a_wait_that_fails_ends_the_process)
{
    for (const int error : {EBADF, EINVAL, ENOMEM, EFAULT}) {
        EXPECT_EXIT(
            {
                tell_at_exit(output);
                turns.run({[&] { turns.wait = [=](pollfd*, nfds_t) { return fail_with(error); }; }, [] {}});
            },
            testing::ExitedWithCode(1),
            std::string("^said: perror error in select: ") + std::strerror(error) + "\\|\n$");
    }
}

TEST_F(TCP_server_turns_death, a_clients_descriptor_that_somebody_else_closed_ends_the_process)
{
    server.on_data = [](int sd, const std::string&) { return ::close(sd); };
    EXPECT_EXIT(
        {
            tell_at_exit(output);
            turns.run({[&] { connect(); },
                       [&] {
                           output.clear();
                           clients[0]->send("x");
                       },
                       [] {}, [] {}});
        },
        testing::ExitedWithCode(1),
        std::string("^said: 1 0: x\\|perror error in select: ") + std::strerror(EBADF) + "\\|\n$");
}

TEST_F(TCP_server_turns_death,
       an_exception_of_the_listening_socket_ends_the_process_before_anything_is_served)
{
    EXPECT_EXIT(
        {
            tell_at_exit(output);
            turns.run({[&] { connect(); },
                       [&] {
                           output.clear();
                           clients[0]->send("unread");
                           clients[0]->send_urgent("!");
                           arrives(0);
                           urgent_arrives(0);
                           connect();
                           turns.wait = [&](pollfd* fds, nfds_t count) {
                               const int result = turns.Interposed_calls::poll(fds, count, 0);
                               fds[0].revents |= POLLPRI;
                               return result;
                           };
                       },
                       [] {}});
        },
        testing::ExitedWithCode(1), "^said: 107 Exception in the listening socket\\.  Exiting\\.\\|\n$");
}

TEST(TCP_server, descriptors_beyond_a_descriptor_set_are_served)
{
    constexpr rlim_t WANTED = 4096;
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &before));
    if (before.rlim_max < WANTED)
        GTEST_SKIP() << "this process may not hold " << WANTED << " descriptors";
    rlimit raised = before;
    raised.rlim_cur = WANTED;
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &raised));

    const Debug_output output;
    Server low;
    ASSERT_TRUE(low.open(0)); // whose own descriptors fit into a set, but its clients' do not
    std::vector<int> held;
    for (int i = 0; i < 2000; ++i)
        held.push_back(::dup(low.listen_sd));
    Server high;
    ASSERT_TRUE(high.open(0));
    EXPECT_GT(high.listen_sd, 2000);
    for (Server* const server : {&low, &high}) {
        std::vector<std::unique_ptr<Client>> clients;
        Running running(*server);
        for (int i = 0; i < 100; ++i) {
            clients.push_back(std::make_unique<Client>(server->port));
            ASSERT_TRUE(comes_true([&] { return server->num_connections() == i + 1; }));
        }
        for (std::size_t i = 0; i < 100; ++i)
            clients[i]->send(std::to_string(i * i));
        const int round = server == &low ? 1 : 2;
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(output.wait_for(Debug_output::PRINT,
                                        std::to_string(i) + ": " + std::to_string(i * i) + "\n", round));
        clients[50]->close();
        clients[99]->send_urgent("!");
        EXPECT_TRUE(comes_true([&] { return server->num_connections() == 98; }));
        EXPECT_TRUE(server->write("z", -1));
        for (const std::size_t i : {0U, 49U, 51U, 98U})
            EXPECT_EQ("z", clients[i]->receive(1));
        running.quit();
        EXPECT_TRUE(server->quit_done);
        EXPECT_GT(*std::max_element(server->connections, server->connections + 100), 2000);
        EXPECT_EQ(round, output.count(Debug_output::PRINT, "50: gone\n"));
        EXPECT_EQ(round, output.count(Debug_output::PRINT, "99: gone\n"));
    }
    for (const int fd : held)
        ::close(fd);
    EXPECT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &before));
}

namespace {

/// How many bytes of a piece the handler uses: all, more, some, none, or below none.
int used_of(const std::string& piece)
{
    unsigned sum = 0;
    for (const char character : piece)
        sum = sum * 31 + static_cast<unsigned char>(character);
    const int size = static_cast<int>(piece.size());
    switch (sum % 8) {
    case 0:
        return 0;
    case 1:
        return -static_cast<int>(sum % 100);
    case 2:
        return size + 1;
    case 3:
        return 1;
    case 4:
        return size / 2;
    default:
        return size;
    }
}

/// Says in advance what one turn of the server does, from what its clients have done.
class Model {
public:
    struct Peer {
        std::unique_ptr<Client> client;
        int slot = -1; ///< -1 until it is accepted
        std::string sent;
        bool urgent = false, closed = false, aborted = false;
        int port = 0;

        bool is_done() const { return closed || aborted || urgent; }
        bool has_event() const { return !sent.empty() || is_done(); }
    };

    /// The lines of the turn; the peers that are gone with it are forgotten.
    std::vector<std::string> turn()
    {
        std::vector<std::string> lines;
        const auto drop = [&](std::size_t i, const char* reason) {
            lines.emplace_back(reason);
            lines.push_back(std::to_string(peers[i]->slot) + ": gone");
            peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(i));
        };
        for (int slot = 0; slot < 100; ++slot) {
            const std::size_t i = in_slot(slot);
            if (i < peers.size() && peers[i]->urgent)
                drop(i, "107 Got a connection exception.  Closing.");
        }
        Peer* const newcomer = accept(lines);
        for (int slot = 0; slot < 100; ++slot) {
            const std::size_t i = in_slot(slot);
            if (i == peers.size() || peers[i].get() == newcomer || !peers[i]->has_event())
                continue;
            if (peers[i]->sent.empty() && peers[i]->closed)
                drop(i, "107 Connection closed.");
            else
                receive(*peers[i], lines);
        }
        return lines;
    }

    int accepted() const
    {
        const std::int64_t count =
            std::count_if(peers.begin(), peers.end(), [](const auto& peer) { return peer->slot >= 0; });
        return static_cast<int>(count);
    }

    bool has_event() const
    {
        return std::any_of(peers.begin(), peers.end(),
                           [](const auto& peer) { return peer->slot < 0 || peer->has_event(); });
    }

    std::vector<std::unique_ptr<Peer>> peers; ///< in the order in which they connected

private:
    std::size_t in_slot(int slot) const
    {
        std::size_t i = 0;
        while (i < peers.size() && peers[i]->slot != slot)
            ++i;
        return i;
    }

    Peer* accept(std::vector<std::string>& lines)
    {
        for (const auto& peer : peers) {
            if (peer->slot >= 0)
                continue;
            int slot = 0;
            while (in_slot(slot) < peers.size())
                ++slot;
            peer->slot = slot;
            lines.push_back("107 Connection from 127.0.0.1 on port " + std::to_string(peer->port) +
                            ".  Total cons: " + std::to_string(accepted()));
            return peer.get();
        }
        return nullptr;
    }

    /// What comes of a reset is refused once, with the read that finds nothing more; then the end is found.
    static void receive(Peer& peer, std::vector<std::string>& lines)
    {
        for (std::size_t from = 0; from < peer.sent.size(); from += 256) {
            std::string rest = peer.sent.substr(from, 256);
            for (;;) {
                lines.push_back(std::to_string(peer.slot) + ": " + rest);
                const int used = used_of(rest);
                if (used < 1 || used >= static_cast<int>(rest.size()))
                    break;
                rest.erase(0, static_cast<std::size_t>(used));
            }
        }
        peer.sent.clear();
        if (peer.aborted) {
            peer.aborted = false;
            peer.closed = true;
        }
    }
};

} // namespace

TEST_F(TCP_server_turns, does_what_a_model_does_whatever_clients_come_up_with)
{
    constexpr int TURNS = 6000;
    constexpr std::size_t MOST_PEERS = 14;
    constexpr unsigned SEED = 20240611;
    std::mt19937 random(SEED);
    const auto below = [&](unsigned bound) { return static_cast<unsigned>(std::uint64_t{random()} % bound); };
    Model model;
    int actions = 0, accepted_most = 0;

    const auto arrive_all = [&] {
        for (const auto& peer : model.peers) {
            if (peer->slot < 0)
                continue;
            const int sd = server.connections[peer->slot];
            EXPECT_TRUE(peer->sent.empty() || wait_for(sd, POLLIN));
            EXPECT_TRUE(!peer->urgent || wait_for(sd, POLLPRI));
            EXPECT_TRUE(!peer->closed || wait_for(sd, POLLRDHUP));
            EXPECT_TRUE(!peer->aborted || wait_for(sd, 0));
        }
    };
    const auto connect_one = [&] {
        auto peer = std::make_unique<Model::Peer>();
        peer->client = std::make_unique<Client>(server.port);
        peer->port = peer->client->port();
        model.peers.push_back(std::move(peer));
        EXPECT_TRUE(wait_for(server.listen_sd, POLLIN));
        ++actions;
    };
    const auto act = [&](Model::Peer& peer) {
        const unsigned action = below(24);
        if (action < 12 && peer.sent.empty()) {
            std::string text(1 + (below(4) == 0 ? below(700) : below(20)), '.');
            for (char& character : text)
                character = static_cast<char>('a' + below(26));
            peer.client->send(text);
            peer.sent = text;
        } else if (action == 12 || action == 13) {
            peer.client->close();
            peer.closed = true;
        } else if (action == 14) {
            peer.client->send_urgent("!");
            peer.urgent = true;
        } else if (action == 15 && peer.slot >= 0) {
            peer.client->abort();
            peer.aborted = true;
        } else {
            return;
        }
        ++actions;
    };

    server.on_data = [](int, const std::string& piece) { return used_of(piece); };
    std::vector<std::string> expected;
    std::vector<Turns::Step> steps(TURNS, [&] {
        if (testing::Test::HasFailure())
            std::abort(); // everything after the first difference differs
        EXPECT_THAT(said(), ElementsAreArray(expected))
            << "seed " << SEED << ", after " << actions << " actions";
        EXPECT_EQ(model.accepted(), server.num_connections());
        for (const auto& peer : model.peers)
            if (!peer->is_done() && below(2) == 0)
                act(*peer);
        const auto waiting = model.peers.size() - static_cast<std::size_t>(model.accepted());
        if ((waiting < 3 && model.peers.size() < MOST_PEERS && below(3) == 0) || !model.has_event())
            connect_one();
        arrive_all();
        accepted_most = std::max(accepted_most, model.accepted());
        expected = model.turn();
    });
    steps.push_back([&] { EXPECT_THAT(said(), ElementsAreArray(expected)) << "seed " << SEED; });
    turns.run(steps);
    EXPECT_GE(actions, 10000);
    EXPECT_GE(accepted_most, 10);
}

TEST(TCP_server, writers_clients_and_readers_of_the_count_get_on_with_each_other_until_it_quits)
{
    const Debug_output output;
    Server server;
    ASSERT_TRUE(server.open(0));
    server.on_data = [&](int sd, const std::string& text) {
        server.answer("<" + text + ">", sd);
        return static_cast<int>(text.size());
    };
    Running running(server);

    // Clients that stay, and read whatever comes until the server closes.
    const Client staying[] = {Client(server.port), Client(server.port)};
    std::vector<std::thread> readers;
    std::atomic<std::size_t> received{0};
    for (const Client& client : staying)
        readers.emplace_back([&] { received += client.receive().size(); });

    std::atomic<bool> go_on{true};
    std::atomic<int> written{0};
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i)
        others.emplace_back([&] {
            const std::string message(100, 'm');
            while (go_on) {
                written += server.write(message, -1) ? 1 : 0;
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    others.emplace_back([&] {
        while (go_on) {
            const int count = server.num_connections();
            EXPECT_TRUE(count >= 0 && count <= 100) << count;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });

    // Clients that come, say something and go in one way or another.
    std::vector<std::thread> passing;
    for (int i = 0; i < 3; ++i)
        passing.emplace_back([&, i] {
            for (int visit = 0; visit < 30; ++visit) {
                Client client(server.port);
                client.send("visit " + std::to_string(visit));
                if (visit % 3 == i) {
                    EXPECT_EQ(1U, client.receive(1).size());
                }
                if (visit % 5 == 0)
                    client.send_urgent("!");
                if (visit % 7 == 0)
                    client.abort();
            }
        });
    for (std::thread& thread : passing)
        thread.join();
    EXPECT_TRUE(comes_true([&] { return server.num_connections() == 2 && written > 10; }));
    std::thread([&] { running.quit(); }).join(); // with the writers still at it
    go_on = false;
    for (std::thread& thread : others)
        thread.join();
    for (std::thread& thread : readers)
        thread.join();
    EXPECT_TRUE(server.quit_done);
    EXPECT_GT(received, 1000U);
    EXPECT_EQ(0, server.lock_owner_tid);
}

TEST(TCP_server, talks_to_programs_of_others)
{
    const std::pair<const char*, const char*> programs[] = {
        {"socat", "printf ahoy | socat -t 30 - TCP4:127.0.0.1:$PORT"},
        {"nc", "printf ahoy | nc -w 30 127.0.0.1 $PORT"},
        {"bash", "bash -c 'exec 3<>/dev/tcp/127.0.0.1/$PORT; printf ahoy >&3; cat <&3'"}};
    int present = 0;
    for (const auto& [name, command] : programs) {
        SCOPED_TRACE(name);
        if (std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) != 0)
            continue;
        ++present;
        const Debug_output output;
        Server server;
        ASSERT_TRUE(server.open(0));
        server.on_data = [&](int, const std::string&) {
            EXPECT_TRUE(server.answer("hello there\n", -1));
            return 4;
        };
        FILE* const program =
            ::popen(("export PORT=" + std::to_string(server.port) + "; " + command).c_str(), "r");
        ASSERT_NE(nullptr, program);
        Running running(server);
        char line[100] = {};
        EXPECT_NE(nullptr, std::fgets(line, sizeof line, program));
        EXPECT_STREQ("hello there\n", line);
        EXPECT_EQ(1, output.count(Debug_output::PRINT, "0: ahoy\n"));
        running.quit(); // the program ends with the connection
        EXPECT_EQ(nullptr, std::fgets(line, sizeof line, program));
        EXPECT_EQ(0, ::pclose(program));
    }
    if (present == 0)
        GTEST_SKIP() << "neither socat nor nc nor bash is at hand";
}
