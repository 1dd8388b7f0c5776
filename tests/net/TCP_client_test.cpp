#include "util/net/TCP_client.h"

#include "tests/support/Allocations.h"
#include "tests/support/Debug_output.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Many_descriptors.h"
#include "tests/support/Open_descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <random>
#include <set>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

static_assert(!std::is_polymorphic_v<TCP_client>);
static_assert(!std::is_copy_constructible_v<TCP_client>, "two would close one descriptor");
static_assert(sizeof(TCP_client) == 256 + 4 + 4);

namespace {

/// Stands between this process and the C library's resolver for as long as the object lives. One at a time.
class Resolver {
public:
    /// Answers with an error, or with the entries that are added.
    explicit Resolver(int result = 0) : error(result) { active = this; }
    ~Resolver() { active = nullptr; }
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    Resolver& add(int family, socklen_t size, std::uint32_t address = INADDR_LOOPBACK)
    {
        Entry& entry = entries.emplace_back();
        auto* const v4 = reinterpret_cast<sockaddr_in*>(&entry.address);
        entry.address.ss_family = static_cast<sa_family_t>(family);
        v4->sin_port = htons(1); // to be overwritten
        if (family == AF_INET)
            v4->sin_addr.s_addr = htonl(address);
        else if (family == AF_INET6)
            reinterpret_cast<sockaddr_in6*>(&entry.address)->sin6_addr = in6addr_loopback;
        entry.info.ai_family = family;
        entry.info.ai_addrlen = size;
        entry.info.ai_addr = reinterpret_cast<sockaddr*>(&entry.address);
        if (entries.size() > 1)
            entries[entries.size() - 2].info.ai_next = &entry.info;
        return *this;
    }
    Resolver& add_v4(std::uint32_t address = INADDR_LOOPBACK)
    {
        return add(AF_INET, sizeof(sockaddr_in), address);
    }

    int frees = 0;
    std::vector<std::string> asked; ///< the names

    static int resolve(const char* node, const char* service, const addrinfo* hints, addrinfo** result)
    {
        using Function = int(const char*, const char*, const addrinfo*, addrinfo**);
        static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "getaddrinfo"));
        Resolver* const resolver = active;
        if (resolver == nullptr)
            return next(node, service, hints, result);
        EXPECT_EQ(nullptr, service);
        EXPECT_EQ(nullptr, hints);
        resolver->asked.emplace_back(node);
        if (resolver->error == 0)
            *result = &resolver->entries.at(0).info;
        return resolver->error;
    }
    static void free(addrinfo* list)
    {
        using Function = void(addrinfo*);
        static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "freeaddrinfo"));
        Resolver* const resolver = active;
        if (resolver == nullptr)
            return next(list);
        EXPECT_EQ(&resolver->entries.at(0).info, list);
        ++resolver->frees;
        errno = EPROTO; // what a report says must not come from here
    }

private:
    struct Entry {
        addrinfo info{};
        sockaddr_storage address{};
    };

    static inline std::atomic<Resolver*> active{nullptr};
    const int error;
    std::deque<Entry> entries; // addresses stay
};

} // namespace

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo* hints, addrinfo** result)
{
    return Resolver::resolve(node, service, hints, result);
}

extern "C" __attribute__((visibility("default"))) void freeaddrinfo(addrinfo* list) noexcept
{
    Resolver::free(list);
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int CATEGORY = 107;
constexpr int LIMIT_MS = 30000; // for what is sure to happen

struct Client : TCP_client {
    using TCP_client::address;
    using TCP_client::port;
    using TCP_client::sd;
    using TCP_client::TCP_client;
};

/// A TCP peer at 127.0.0.1, on a port of the system's choosing.
class Peer {
public:
    /// @param backlog  of listen(); negative for one that refuses
    explicit Peer(int backlog = 128) : fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (fd < 0 || ::bind(fd, generic, size) != 0 || ::getsockname(fd, generic, &size) != 0)
            std::abort();
        port = ntohs(address.sin_port);
        if (backlog >= 0 && ::listen(fd, backlog) != 0)
            std::abort();
    }
    ~Peer() { ::close(fd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// @return the caller's to close
    int accept() const
    {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, LIMIT_MS) != 1)
            std::abort();
        return ::accept(fd, nullptr, nullptr);
    }

    /// @return -1 when nobody comes
    int accept_within(int limit_ms) const
    {
        pollfd entry{fd, POLLIN, 0};
        return ::poll(&entry, 1, limit_ms) == 1 ? ::accept(fd, nullptr, nullptr) : -1;
    }

    int port = 0;

private:
    int fd;
};

/// Both ends of one loopback connection.
struct Connection {
    Connection()
    {
        const Peer peer;
        Debug_output output;
        near = TCP_client("127.0.0.1", peer.port).open_connection(-1);
        far = peer.accept();
        if (near < 0 || far < 0)
            std::abort();
    }
    ~Connection() { hang_up(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void hang_up()
    {
        ::close(far);
        far = -1;
    }

    int near; ///< whoever tests closes it
    int far;
};

/// An address of a known family.
template <typename FAMILY>
const FAMILY* as(const sockaddr* address)
{
    return static_cast<const FAMILY*>(static_cast<const void*>(address));
}

bool is_open(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

bool is_blocking(int fd)
{
    return (::fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

/// @return whether the descriptor's peer has closed, after whatever it sent before
bool ends(int fd)
{
    char bytes[4096];
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, LIMIT_MS) != 1)
            return false;
        const auto length = ::read(fd, bytes, sizeof bytes);
        if (length <= 0)
            return length == 0;
    }
}

void make_close_reset(int fd)
{
    const linger none{1, 0};
    ASSERT_EQ(0, ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none));
}

std::string message(const char* outcome, const std::string& address, int port)
{
    return std::string("TCP_client: ") + outcome + " to " + address + ":" + std::to_string(port) + "\n";
}

/// What was said, one text a line: the way, the category of the debug channel, the text, the error.
std::vector<std::string> said(const Debug_output& output)
{
    const std::map<Debug_output::Way, std::string> ways = {{Debug_output::PRINT, "print"},
                                                           {Debug_output::CRITICAL, "critical"},
                                                           {Debug_output::DPRINT, "dprint"},
                                                           {Debug_output::DEBUG_PERROR, "debug perror"},
                                                           {Debug_output::PERROR, "perror"}};
    std::vector<std::string> texts;
    for (const Debug_output::Line& line : output.lines()) {
        const bool print = line.way == Debug_output::PRINT;
        texts.push_back(ways.at(line.way) + " " + std::to_string(print ? line.category : line.error) + " " +
                        line.text);
    }
    return texts;
}

std::string printed(const std::string& text)
{
    return "print " + std::to_string(CATEGORY) + " " + text;
}

std::string debug_perror(const std::string& text, int error)
{
    return "debug perror " + std::to_string(error) + " " + text;
}

std::string c_perror(const std::string& text, int error)
{
    return "perror " + std::to_string(error) + " " + text;
}

/// What a call writes to standard error, past the debug output.
template <typename CALL>
std::string error_output(CALL call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

constexpr int FIRST = 50000; ///< and those that follow: far beyond what is open

const std::string DIRTY = "Warning, the following peers did not disconnect (dirty close):\n";

std::string dirty(const std::vector<int>& sds)
{
    std::string text = DIRTY;
    for (const int sd : sds)
        text += "  " + std::to_string(sd) + "\n";
    return text;
}

/// No call on a descriptor is expected.
struct Calls_nothing : Interposed_calls {
    int shutdown(int, int) override { return unexpected(); }
    int poll(pollfd*, nfds_t, int) override { return unexpected(); }
    ssize_t read(int, void*, std::size_t) override { return unexpected(); }
    int close(int) override { return unexpected(); }

    static int unexpected()
    {
        ADD_FAILURE();
        return fail_with(ENOSYS);
    }
};

} // namespace

// The peer's address

TEST(TCP_client, starts_closed_with_an_empty_address_and_port_0)
{
    const Client client;
    EXPECT_THAT(client.address, Each('\0'));
    EXPECT_EQ(0, client.port);
    EXPECT_EQ(-1, client.sd);
}

TEST(TCP_client, starts_closed_with_the_address_and_port_that_it_is_given)
{
    const Client client("vehicle.example", 2101);
    EXPECT_STREQ("vehicle.example", client.address);
    EXPECT_EQ(2101, client.port);
    EXPECT_EQ(-1, client.sd);
}

TEST(TCP_client, keeps_its_fields_where_programs_expect_them)
{
    const Client client;
    const auto* const start = reinterpret_cast<const char*>(&client);
    EXPECT_EQ(start, client.address);
    EXPECT_EQ(start + 256, reinterpret_cast<const char*>(&client.port));
    EXPECT_EQ(start + 260, reinterpret_cast<const char*>(&client.sd));
}

TEST(TCP_client, takes_an_address_of_255_characters)
{
    const std::string longest(255, 'a');
    for (const int length : {-1, 255, INT_MIN}) {
        Client client;
        EXPECT_TRUE(client.set_address(longest.c_str(), length)) << length;
        EXPECT_EQ(longest, client.address) << length;
    }
    EXPECT_EQ(longest, Client(longest.c_str(), 1).address);
}

TEST(TCP_client, refuses_an_address_of_256_characters_and_keeps_the_one_it_has)
{
    const std::string too_long(256, 'b');
    for (const int length : {-1, 256, 257, INT_MAX}) {
        Client client("kept", 7);
        EXPECT_FALSE(client.set_address(too_long.c_str(), length)) << length;
        EXPECT_STREQ("kept", client.address) << length;
        EXPECT_EQ(7, client.port) << length;
    }
    const Client client(too_long.c_str(), 7);
    EXPECT_STREQ("", client.address);
    EXPECT_EQ(7, client.port);
}

TEST(TCP_client, copies_as_many_bytes_as_it_is_told_and_ends_them)
{
    Client client("0123456789", 1);
    EXPECT_TRUE(client.set_address("ab\0cdef", 5)); // embedded NULs are bytes like any other
    EXPECT_EQ(std::string("ab\0cd\0"
                          "6789",
                          10),
              std::string(client.address, 10));
    EXPECT_TRUE(client.set_address("xyz", 0));
    EXPECT_EQ(std::string("\0b\0cd\0", 6), std::string(client.address, 6));
}

TEST(TCP_client, takes_a_part_of_its_own_address)
{
    Client client("www.vehicle.example", 1);
    EXPECT_TRUE(client.set_address(client.address + 4, -1));
    EXPECT_STREQ("vehicle.example", client.address);
}

TEST(TCP_client, stores_any_address_like_a_plain_array)
{
    std::mt19937 random(20);
    Client client;
    std::string model(256, '\0');
    for (int i = 0; i < 20000; ++i) {
        std::string bytes(random() % 300, '\0');
        std::generate(bytes.begin(), bytes.end(), [&random] { return "ab.\0"[random() % 4]; });
        const int length = random() % 3 == 0 ? -1 : static_cast<int>(random() % (bytes.size() + 1));
        const std::size_t size = length < 0 ? std::strlen(bytes.c_str()) : static_cast<std::size_t>(length);
        EXPECT_EQ(size <= 255, client.set_address(bytes.c_str(), length));
        if (size <= 255)
            model.replace(0, size + 1, bytes.substr(0, size) + '\0');
        ASSERT_EQ(model, std::string(client.address, 256)) << "case " << i;
        ASSERT_EQ(-1, client.sd) << "case " << i;
    }
}

TEST(TCP_client, takes_any_port)
{
    Client client;
    for (const int port : {0, 1, 65535, 65536, -1, INT_MAX, INT_MIN}) {
        EXPECT_TRUE(client.set_port(port));
        EXPECT_EQ(port, client.port);
    }
}

// Connecting

TEST(TCP_client, connects_to_a_name_or_a_number_with_and_without_time_limit)
{
    for (const std::string address : {"127.0.0.1", "localhost"})
        for (const int timeout_ms : {-1, INT_MIN, LIMIT_MS}) {
            SCOPED_TRACE(address + " " + std::to_string(timeout_ms));
            const Peer peer;
            Debug_output output;
            const Client client(address.c_str(), peer.port);
            const int fd = client.open_connection(timeout_ms);
            ASSERT_LE(0, fd);
            EXPECT_EQ(-1, client.sd);
            EXPECT_THAT(said(output), ElementsAre(printed(message("Connected", address, peer.port))));
            const int accepted = peer.accept();
            EXPECT_EQ(3, ::write(fd, "abc", 3));
            ::close(fd);
            char received[4];
            EXPECT_EQ(3, ::recv(accepted, received, 3, MSG_WAITALL));
            ::close(accepted);
        }
}

TEST(TCP_client, connects_on_any_number_of_threads_at_once)
{
    static constexpr std::size_t THREADS = 4;
    static constexpr std::size_t CALLS = 50;
    struct Calls : Interposed_calls {
        int connect(int fd, const sockaddr* address, socklen_t size) override
        {
            {
                std::unique_lock<std::mutex> lock(mutex);
                const std::size_t all = (arrived++ / THREADS + 1) * THREADS;
                met.notify_all();
                met.wait_for(lock, milliseconds(200), [this, all] { return arrived >= all; });
            }
            return Interposed_calls::connect(fd, address, size);
        }
        std::mutex mutex;
        std::condition_variable met; // all threads, each with a socket of its own
        std::size_t arrived = 0;
    };
    const Calls calls;
    const Peer peer;
    Debug_output output;
    const Client client("127.0.0.1", peer.port);
    std::vector<int> fds[THREADS];
    std::atomic<std::size_t> through{0};
    std::vector<std::thread> threads;
    for (std::vector<int>& of_thread : fds)
        threads.emplace_back([&client, &of_thread, &through] {
            for (std::size_t i = 0; i < CALLS; ++i)
                of_thread.push_back(client.open_connection(i % 2 == 0 ? -1 : LIMIT_MS));
            ++through;
        });
    std::vector<int> accepted; // all the while, or the queue would fill
    while (through < THREADS)
        accepted.push_back(peer.accept_within(10));
    for (std::thread& thread : threads)
        thread.join();
    std::set<int> distinct(accepted.begin(), accepted.end());
    distinct.erase(-1);
    accepted.assign(distinct.begin(), distinct.end());
    distinct.clear();
    for (const std::vector<int>& of_thread : fds)
        distinct.insert(of_thread.begin(), of_thread.end());
    EXPECT_THAT(distinct, SizeIs(THREADS * CALLS));
    EXPECT_LE(0, *distinct.begin());
    EXPECT_EQ(200, output.count(Debug_output::PRINT, message("Connected", "127.0.0.1", peer.port)));
    for (const int fd : accepted)
        ::close(fd);
    for (const int fd : distinct)
        ::close(fd);
}

TEST(TCP_client, leaves_the_connection_blocking_and_without_delay)
{
    for (const int timeout_ms : {-1, LIMIT_MS}) {
        const Peer peer;
        const Debug_output output;
        const int fd = Client("127.0.0.1", peer.port).open_connection(timeout_ms);
        ASSERT_LE(0, fd);
        EXPECT_TRUE(is_blocking(fd));
        int on = 0;
        socklen_t size = sizeof on;
        EXPECT_EQ(0, ::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, &size));
        EXPECT_NE(0, on);
        ::close(fd);
    }
}

TEST(TCP_client, makes_a_socket_of_any_local_address_and_port)
{
    struct Calls : Interposed_calls {
        int socket(int domain, int type, int protocol) override
        {
            EXPECT_EQ(AF_INET, domain);
            EXPECT_EQ(SOCK_STREAM, type);
            EXPECT_EQ(0, protocol);
            calls += "socket ";
            return fd = Interposed_calls::socket(domain, type, protocol);
        }
        int setsockopt(int on, int level, int option, const void* value, socklen_t size) override
        {
            EXPECT_EQ(fd, on);
            EXPECT_EQ(IPPROTO_TCP, level);
            EXPECT_EQ(TCP_NODELAY, option);
            EXPECT_EQ(sizeof(int), size);
            EXPECT_EQ(1, *static_cast<const int*>(value));
            calls += "setsockopt ";
            return Interposed_calls::setsockopt(on, level, option, value, size);
        }
        int bind(int on, const sockaddr* address, socklen_t size) override
        {
            EXPECT_EQ(fd, on);
            EXPECT_EQ(sizeof(sockaddr_in), size);
            const auto* const v4 = as<sockaddr_in>(address);
            EXPECT_EQ(AF_INET, v4->sin_family);
            EXPECT_EQ(htonl(INADDR_ANY), v4->sin_addr.s_addr);
            EXPECT_EQ(0, v4->sin_port);
            calls += "bind ";
            return Interposed_calls::bind(on, address, size);
        }
        int connect(int on, const sockaddr* address, socklen_t size) override
        {
            EXPECT_EQ(fd, on);
            calls += "connect ";
            return Interposed_calls::connect(on, address, size);
        }
        int fd = -1;
        std::string calls;
    };
    const Peer peer;
    const Debug_output output;
    Calls calls;
    ::close(Client("127.0.0.1", peer.port).open_connection(-1));
    EXPECT_EQ("socket setsockopt bind connect ", calls.calls);
}

TEST(TCP_client, asks_the_resolver_for_its_address_once_and_frees_the_answer_once)
{
    for (const int backlog : {-1, 5}) {
        const Peer peer(backlog);
        const Debug_output output;
        Resolver resolver;
        resolver.add_v4().add_v4();
        const int fd = Client("vehicle.example", peer.port).open_connection(-1);
        EXPECT_EQ(backlog >= 0, fd >= 0);
        EXPECT_THAT(resolver.asked, ElementsAre("vehicle.example"));
        EXPECT_EQ(1, resolver.frees);
        if (fd >= 0)
            ::close(fd);
    }
}

TEST(TCP_client, says_why_a_name_does_not_resolve)
{
    struct No_socket : Interposed_calls {
        int socket(int, int, int) override { return Calls_nothing::unexpected(); }
    };
    for (const int error : {EAI_NONAME, EAI_AGAIN, EAI_FAIL, EAI_MEMORY, EAI_SYSTEM}) {
        Debug_output output;
        const Resolver resolver(error);
        No_socket calls;
        EXPECT_EQ(-1, Client("no.%s.such", 1).open_connection(-1));
        EXPECT_THAT(said(output), ElementsAre(printed("TCP_client getaddrinfo 'no.%s.such' lookup failed: " +
                                                      std::string(::gai_strerror(error)) + "\n")));
        EXPECT_EQ(0, resolver.frees);
    }
}

TEST(TCP_client, has_no_peer_by_the_empty_name)
{
    Debug_output output;
    EXPECT_EQ(-1, Client().open_connection(-1));
    EXPECT_THAT(said(output), ElementsAre(printed("TCP_client getaddrinfo '' lookup failed: " +
                                                  std::string(::gai_strerror(EAI_NONAME)) + "\n")));
}

TEST(TCP_client, reports_a_socket_that_cannot_be_made)
{
    struct Refusal : Interposed_calls {
        int socket(int, int, int) override { return fail_with(EMFILE); }
        int close(int fd) override
        {
            ADD_FAILURE() << fd;
            return Interposed_calls::close(fd);
        }
    };
    Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    const Refusal refusal;
    EXPECT_EQ(-1, Client("127.0.0.1", 1).open_connection(-1));
    EXPECT_THAT(said(output), ElementsAre(debug_perror("TCP_client: socket", EMFILE)));
    EXPECT_EQ(1, resolver.frees);
}

namespace {

/// Refuses a call of the socket's making; closing the socket sets errno.
struct Refused_socket : Interposed_calls {
    explicit Refused_socket(const char* call) : refused(call) {}
    int socket(int domain, int type, int protocol) override
    {
        return fd = Interposed_calls::socket(domain, type, protocol);
    }
    int setsockopt(int on, int level, int option, const void* value, socklen_t size) override
    {
        return refused == "setsockopt" ? fail_with(ENOPROTOOPT)
                                       : Interposed_calls::setsockopt(on, level, option, value, size);
    }
    int bind(int on, const sockaddr* address, socklen_t size) override
    {
        return refused == "bind" ? fail_with(EADDRNOTAVAIL) : Interposed_calls::bind(on, address, size);
    }
    int connect(int, const sockaddr*, socklen_t) override { return Calls_nothing::unexpected(); }
    int close(int closing) override
    {
        EXPECT_EQ(fd, closing);
        ++closed;
        Interposed_calls::close(closing);
        return fail_with(EIO);
    }

    std::string refused;
    int fd = -1;
    int closed = 0;
};

} // namespace

TEST(TCP_client, reports_an_option_that_cannot_be_set_and_closes_the_socket)
{
    Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    const Refused_socket calls("setsockopt");
    EXPECT_EQ(-1, Client("127.0.0.1", 1).open_connection(-1));
    EXPECT_THAT(said(output), ElementsAre(debug_perror("TCP_client: setsockopt(TCP_NODELAY)", ENOPROTOOPT)));
    EXPECT_EQ(1, calls.closed);
    EXPECT_EQ(1, resolver.frees);
}

TEST(TCP_client, reports_a_socket_that_cannot_be_bound_and_closes_it)
{
    Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    const Refused_socket calls("bind");
    EXPECT_EQ(-1, Client("127.0.0.1", 1).open_connection(-1));
    EXPECT_THAT(said(output), ElementsAre(debug_perror("TCP_client: bind", EADDRNOTAVAIL)));
    EXPECT_EQ(1, calls.closed);
    EXPECT_EQ(1, resolver.frees);
}

TEST(TCP_client, says_that_it_could_not_connect_and_closes_the_socket)
{
    const Peer refusing(-1);
    const auto before = open_descriptors();
    Debug_output output;
    EXPECT_EQ(-1, Client("127.0.0.1", refusing.port).open_connection(-1));
    EXPECT_THAT(said(output), ElementsAre(printed(message("Could not connect", "127.0.0.1", refusing.port))));
    EXPECT_EQ(before, open_descriptors());
}

namespace {

/// What connect() is asked for, and what it answers: an errno, 0 for success.
struct Scripted_connect : Interposed_calls {
    int connect(int fd, const sockaddr* address, socklen_t size) override
    {
        fds.push_back(fd);
        const bool v6 = address->sa_family == AF_INET6;
        EXPECT_EQ(v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in), size);
        const auto* const v4 = as<sockaddr_in>(address);
        ports.push_back(ntohs(v6 ? as<sockaddr_in6>(address)->sin6_port : v4->sin_port));
        addresses.push_back(v6 ? 6 : ntohl(v4->sin_addr.s_addr));
        blocking.push_back(is_blocking(fd));
        const int error = fds.size() <= answers.size() ? answers[fds.size() - 1] : ECONNREFUSED;
        return error == 0 ? 0 : fail_with(error);
    }
    std::vector<int> answers;
    std::vector<int> fds;
    std::vector<int> ports;
    std::vector<std::uint32_t> addresses;
    std::vector<bool> blocking;
};

} // namespace

TEST(TCP_client, tries_every_address_in_the_resolvers_order_with_one_socket)
{
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4(1).add(AF_INET6, sizeof(sockaddr_in6)).add_v4(3).add_v4(2).add_v4(5);
    Scripted_connect calls;
    calls.answers = {ECONNREFUSED, EAFNOSUPPORT, ETIMEDOUT, 0};
    const int fd = Client("vehicle.example", 2101).open_connection(-1);
    EXPECT_THAT(calls.addresses, ElementsAre(1, 6, 3, 2)); // the last is not needed
    EXPECT_THAT(calls.ports, Each(2101));
    EXPECT_THAT(calls.fds, Each(fd));
    EXPECT_THAT(calls.blocking, Each(true));
    ::close(fd);
}

TEST(TCP_client, passes_over_entries_that_are_neither_of_the_internets_families)
{
    Debug_output output;
    Resolver resolver;
    resolver.add(AF_UNIX, sizeof(sockaddr_in)).add(AF_UNSPEC, sizeof(sockaddr_in6)).add_v4(1);
    resolver.add(AF_INET, sizeof(sockaddr_in6)).add(AF_INET6, sizeof(sockaddr_in)).add(AF_INET, 0);
    resolver.add(AF_UNIX, sizeof(sockaddr_in));
    for (const int timeout_ms : {-1, 0}) {
        Scripted_connect calls;
        EXPECT_EQ(-1, Client("vehicle.example", 2101).open_connection(timeout_ms));
        EXPECT_THAT(calls.addresses, ElementsAre(1));
    }
}

TEST(TCP_client, dials_the_low_16_bits_of_its_port)
{
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Scripted_connect calls;
    for (const int port : {0, 1, 255, 256, 65535, 65536 + 2101, -1})
        EXPECT_EQ(-1, Client("a", port).open_connection(-1));
    EXPECT_THAT(calls.ports, ElementsAre(0, 1, 255, 256, 65535, 2101, 65535));
}

TEST(TCP_client, reaches_a_peer_behind_an_address_that_refuses)
{
    const Peer peer; // at 127.0.0.1 only
    Debug_output output;
    Resolver resolver;
    resolver.add(AF_INET6, sizeof(sockaddr_in6)).add_v4(INADDR_LOOPBACK + 1).add_v4();
    const int fd = Client("a", peer.port).open_connection(-1);
    ASSERT_LE(0, fd);
    EXPECT_THAT(said(output), ElementsAre(printed(message("Connected", "a", peer.port))));
    EXPECT_LE(0, ::close(peer.accept()));
    ::close(fd);
}

// The time limit

namespace {

/// A connection in progress, and what poll() answers about it.
struct Scripted_poll : Scripted_connect {
    Scripted_poll() { answers.assign(100, EINPROGRESS); }

    struct Answer {
        int result;
        short events;
    };

    int poll(pollfd* fds_, nfds_t count, int timeout_ms) override
    {
        EXPECT_EQ(1U, count);
        EXPECT_EQ(fds.back(), fds_->fd);
        EXPECT_EQ(POLLOUT, fds_->events);
        EXPECT_FALSE(is_blocking(fds_->fd));
        timeouts.push_back(timeout_ms);
        const Answer answer = timeouts.size() <= events.size() ? events[timeouts.size() - 1] : for_ever;
        if (answer.result < 0)
            return fail_with(-answer.result);
        fds_->revents = answer.events;
        return answer.result;
    }
    std::vector<Answer> events;
    Answer for_ever{0, 0};
    std::vector<int> timeouts;
};

const Scripted_poll::Answer REFUSED{1, POLLERR | POLLHUP};
const Scripted_poll::Answer WRITABLE{1, POLLOUT};
const Scripted_poll::Answer INTERRUPTED{-EINTR, 0};
const Scripted_poll::Answer NOTHING{0, 0};

} // namespace

TEST(TCP_client, takes_any_writable_socket_for_connected_whatever_else_it_is)
{
    for (const int more : {0, POLLERR, POLLHUP, POLLERR | POLLHUP, POLLIN | POLLPRI | POLLNVAL})
        for (const int timeout_ms : {0, 1, LIMIT_MS}) {
            Debug_output output;
            Resolver resolver;
            resolver.add_v4().add_v4();
            Scripted_poll calls;
            calls.events = {{1, static_cast<short>(POLLOUT | more)}};
            const int fd = Client("a", 2101).open_connection(timeout_ms);
            EXPECT_LE(0, fd);
            EXPECT_THAT(calls.timeouts, ElementsAre(timeout_ms));
            EXPECT_THAT(calls.fds, ElementsAre(fd));
            EXPECT_THAT(said(output), ElementsAre(printed(message("Connected", "a", 2101))));
            EXPECT_TRUE(is_blocking(fd));
            ::close(fd);
        }
}

TEST(TCP_client, asks_again_with_the_full_time_limit_until_the_socket_is_writable)
{
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Scripted_poll calls;
    calls.events = {REFUSED, INTERRUPTED, {-ENOMEM, 0}, NOTHING, {1, POLLIN}, REFUSED, WRITABLE};
    const int fd = Client("a", 2101).open_connection(LIMIT_MS);
    EXPECT_LE(0, fd);
    EXPECT_THAT(calls.timeouts, SizeIs(7));
    EXPECT_THAT(calls.timeouts, Each(LIMIT_MS));
    ::close(fd);
}

TEST(TCP_client, gives_up_on_a_refused_connection_only_when_the_time_has_run_out)
{
    for (const Scripted_poll::Answer& answer : {REFUSED, INTERRUPTED, Scripted_poll::Answer{-EINVAL, 0}}) {
        constexpr int TIMEOUT_MS = 500;
        Debug_output output;
        Resolver resolver;
        resolver.add_v4();
        Scripted_poll calls;
        calls.for_ever = answer;
        const auto start = Clock::now();
        EXPECT_EQ(-1, Client("a", 2101).open_connection(TIMEOUT_MS));
        EXPECT_LE(milliseconds(TIMEOUT_MS), Clock::now() - start);
        EXPECT_THAT(calls.timeouts, Each(TIMEOUT_MS));
        EXPECT_LE(2U, calls.timeouts.size());
        EXPECT_GE(TIMEOUT_MS + 1U, calls.timeouts.size()) << "it burns the processor meanwhile";
        EXPECT_THAT(said(output), ElementsAre(printed(message("Could not connect", "a", 2101))));
    }
}

TEST(TCP_client, judges_a_refused_connection_with_a_time_limit_by_what_the_system_reports)
{
    const Peer refusing(-1);
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(refusing.port));
    ASSERT_EQ(-1, ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    const bool at_once = errno != EINPROGRESS;
    pollfd entry{probe, POLLOUT, 0};
    ::poll(&entry, 1, LIMIT_MS);
    ::close(probe);
    const bool writable =
        !at_once && (entry.revents & POLLOUT) != 0; // Linux: together with POLLERR and POLLHUP

    Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    const int fd = Client("a", refusing.port).open_connection(300);
    EXPECT_EQ(writable, fd >= 0);
    EXPECT_THAT(said(output), ElementsAre(printed(message(writable ? "Connected" : "Could not connect", "a",
                                                          refusing.port))));
    if (fd < 0)
        return;
    char byte = 0;
    EXPECT_EQ(-1, ::read(fd, &byte, 1)); // the pending error is still there
    EXPECT_EQ(ECONNREFUSED, errno);
    ::close(fd);
}

TEST(TCP_client, gives_up_on_a_peer_that_does_not_answer_when_the_time_has_run_out)
{
    constexpr int TIMEOUT_MS = 150;
    const Peer peer(0);
    std::vector<int> queue; // more than it takes: the system drops what comes then
    Debug_output output;
    for (int i = 0; i < 3; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(peer.port));
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        queue.push_back(fd);
    }
    const auto start = Clock::now();
    EXPECT_EQ(-1, Client("127.0.0.1", peer.port).open_connection(TIMEOUT_MS));
    EXPECT_LE(milliseconds(TIMEOUT_MS), Clock::now() - start);
    EXPECT_THAT(said(output), ElementsAre(printed(message("Could not connect", "127.0.0.1", peer.port))));
    for (const int fd : queue)
        ::close(fd);
}

TEST(TCP_client, looks_once_with_a_time_limit_of_0)
{
    Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Scripted_poll calls;
    EXPECT_EQ(-1, Client("a", 2101).open_connection(0));
    EXPECT_THAT(calls.timeouts, ElementsAre(0));
    calls.for_ever = REFUSED;
    EXPECT_EQ(-1, Client("a", 2101).open_connection(0));
    EXPECT_THAT(calls.timeouts, ElementsAre(0, 0));
}

TEST(TCP_client, does_not_look_where_connect_succeeds_or_fails_at_once)
{
    struct No_poll : Scripted_connect {
        int poll(pollfd*, nfds_t, int) override { return Calls_nothing::unexpected(); }
    };
    for (const int timeout_ms : {0, 1, LIMIT_MS}) {
        const Debug_output output;
        Resolver resolver;
        resolver.add_v4().add_v4().add_v4().add_v4();
        No_poll calls;
        calls.answers = {ECONNREFUSED, EALREADY, EINTR, 0};
        const int fd = Client("a", 2101).open_connection(timeout_ms);
        EXPECT_LE(0, fd);
        EXPECT_THAT(calls.fds, ElementsAre(fd, fd, fd, fd));
        EXPECT_THAT(calls.blocking, Each(false));
        EXPECT_TRUE(is_blocking(fd));
        ::close(fd);
    }
}

namespace {

/// Refuses to change the mode of a socket: the n-th call of fcntl, counted from 0.
struct Refused_fcntl : Scripted_connect {
    int fcntl(int fd, int command, long argument) override
    {
        if (!counting || (command != F_GETFL && command != F_SETFL))
            return Interposed_calls::fcntl(fd, command, argument);
        commands.push_back(command);
        arguments.push_back(argument);
        return refused.count(static_cast<int>(commands.size()) - 1) != 0
                   ? fail_with(EDEADLK)
                   : Interposed_calls::fcntl(fd, command, argument);
    }
    int connect(int fd, const sockaddr* address, socklen_t size) override
    {
        counting = false; // what the base asks for is its own affair
        const int result = Scripted_connect::connect(fd, address, size);
        counting = true;
        return result;
    }
    bool counting = true;
    std::set<int> refused;
    std::vector<int> commands;
    std::vector<long> arguments;
};

const std::string NO_NONBLOCKING = c_perror("TCP_client: fcntl(O_SETFL O_NONBLOCK)", EDEADLK);
const std::string NO_BLOCKING = c_perror("TCP_client: fcntl(O_SETFL ~O_NONBLOCK)", EDEADLK);

} // namespace

TEST(TCP_client, reads_the_modes_of_the_socket_and_changes_only_the_one)
{
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Refused_fcntl calls;
    calls.answers = {0};
    const int fd = Client("a", 2101).open_connection(0);
    EXPECT_THAT(calls.commands, ElementsAre(F_GETFL, F_SETFL, F_GETFL, F_SETFL));
    EXPECT_EQ(O_RDWR | O_NONBLOCK, calls.arguments.at(1));
    EXPECT_EQ(O_RDWR, calls.arguments.at(3));
    ::close(fd);
}

TEST(TCP_client, leaves_the_modes_alone_without_time_limit)
{
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Refused_fcntl calls;
    calls.answers = {0};
    ::close(Client("a", 2101).open_connection(-1));
    EXPECT_THAT(calls.commands, IsEmpty());
}

TEST(TCP_client, passes_over_an_address_for_which_the_socket_cannot_be_made_non_blocking)
{
    for (const int refused : {0, 1}) { // reading the modes, changing them
        Debug_output output;
        Resolver resolver;
        resolver.add_v4(1).add_v4(2);
        Refused_fcntl calls;
        calls.refused = {refused};
        calls.answers = {0};
        const int fd = Client("a", 2101).open_connection(0);
        EXPECT_LE(0, fd);
        EXPECT_THAT(calls.addresses, ElementsAre(2));
        EXPECT_THAT(calls.commands, SizeIs(static_cast<std::size_t>(refused) + 1 + 4));
        EXPECT_THAT(said(output), ElementsAre(NO_NONBLOCKING, printed(message("Connected", "a", 2101))));
        ::close(fd);
    }
}

TEST(TCP_client, cannot_connect_where_no_socket_can_be_made_non_blocking)
{
    Debug_output output;
    Resolver resolver;
    resolver.add_v4(1).add_v4(2);
    Refused_fcntl calls;
    calls.refused = {0, 1};
    EXPECT_EQ(-1, Client("a", 2101).open_connection(0));
    EXPECT_THAT(calls.addresses, IsEmpty());
    EXPECT_THAT(said(output), ElementsAre(NO_NONBLOCKING, NO_NONBLOCKING,
                                          printed(message("Could not connect", "a", 2101))));
}

TEST(TCP_client, keeps_the_outcome_where_the_socket_cannot_be_made_blocking_again)
{
    for (const int refused : {2, 3}) { // reading the modes, changing them
        Debug_output output;
        Resolver resolver;
        resolver.add_v4();
        Refused_fcntl calls;
        calls.refused = {refused};
        calls.answers = {0, ECONNREFUSED};
        const int fd = Client("a", 2101).open_connection(0);
        EXPECT_LE(0, fd);
        EXPECT_FALSE(is_blocking(fd));
        EXPECT_THAT(said(output), ElementsAre(NO_BLOCKING, printed(message("Connected", "a", 2101))));
        ::close(fd);

        calls.commands.clear();
        output.clear();
        EXPECT_EQ(-1, Client("a", 2101).open_connection(0));
        EXPECT_THAT(said(output), ElementsAre(NO_BLOCKING, printed(message("Could not connect", "a", 2101))));
    }
}

namespace {

/// One resolved address, and how connecting to it goes.
struct Attempt {
    bool skipped;
    int connect_error; ///< 0 for success
    bool writable;     ///< where it is in progress
    int refused_fcntl; ///< 0 to 3; beyond: none
};

/// Plays attempts, and notes each call in a word.
struct Played : Interposed_calls {
    explicit Played(const std::vector<Attempt>& script) : attempts(script)
    {
        while (next < attempts.size() && attempts[next].skipped)
            ++next;
    }
    const Attempt& attempt() const { return attempts.at(next); }
    void advance()
    {
        do
            ++next;
        while (next < attempts.size() && attempts[next].skipped);
        modes = 0;
    }
    int fcntl(int, int, long) override
    {
        const int number = modes++;
        const bool refused = number == attempt().refused_fcntl;
        calls += "fcntl ";
        if (refused || number == 3)
            advance();
        return refused ? fail_with(EDEADLK) : O_RDWR;
    }
    int connect(int, const sockaddr*, socklen_t) override
    {
        calls += "connect ";
        const int error = attempt().connect_error;
        if (modes == 0)
            advance();
        return error == 0 ? 0 : fail_with(error);
    }
    int poll(pollfd* fds, nfds_t, int) override
    {
        calls += "poll ";
        fds->revents = attempt().writable ? POLLOUT : POLLHUP;
        return 1;
    }

    std::vector<Attempt> attempts;
    std::size_t next = 0;
    int modes = 0;
    std::string calls;
};

struct Outcome {
    bool connected = false;
    std::string calls;
    std::vector<std::string> said;
};

Outcome expected_outcome(const std::vector<Attempt>& attempts, bool limited)
{
    Outcome outcome;
    for (const Attempt& each : attempts) {
        if (each.skipped || outcome.connected)
            continue;
        if (!limited) {
            outcome.calls += "connect ";
            outcome.connected = each.connect_error == 0;
            continue;
        }
        if (each.refused_fcntl < 2) {
            outcome.calls += each.refused_fcntl == 0 ? "fcntl " : "fcntl fcntl ";
            outcome.said.push_back(NO_NONBLOCKING);
            continue;
        }
        const bool looks = each.connect_error == EINPROGRESS;
        outcome.connected = each.connect_error == 0 || (looks && each.writable);
        outcome.calls += std::string("fcntl fcntl connect ") + (looks ? "poll " : "");
        outcome.calls += each.refused_fcntl == 2 ? "fcntl " : "fcntl fcntl ";
        if (each.refused_fcntl < 4)
            outcome.said.push_back(NO_BLOCKING);
    }
    outcome.said.push_back(
        printed(message(outcome.connected ? "Connected" : "Could not connect", "a", 2101)));
    return outcome;
}

} // namespace

TEST(TCP_client, makes_the_calls_that_any_answer_of_resolver_and_system_asks_for)
{
    std::mt19937 random(45);
    const auto before = open_descriptors();
    const int errors[] = {0, ECONNREFUSED, EINPROGRESS, EINPROGRESS, ETIMEDOUT, EAFNOSUPPORT};
    for (int i = 0; i < 10000; ++i) {
        const bool limited = random() % 4 != 0;
        Resolver resolver;
        std::vector<Attempt> attempts(1 + random() % 6);
        for (Attempt& each : attempts) {
            each = {random() % 5 == 0, errors[random() % 6], random() % 3 == 0,
                    static_cast<int>(random() % 9)};
            if (each.skipped)
                resolver.add(AF_UNIX, sizeof(sockaddr_in));
            else if (random() % 2 == 0)
                resolver.add(AF_INET6, sizeof(sockaddr_in6));
            else
                resolver.add_v4();
        }
        const Outcome expected = expected_outcome(attempts, limited);
        Debug_output output;
        int fd = -1;
        {
            const Played played(attempts);
            fd = Client("a", 2101).open_connection(limited ? 0 : -1);
            ASSERT_EQ(expected.calls, played.calls) << "case " << i;
        }
        ASSERT_EQ(expected.connected, fd >= 0) << "case " << i;
        ASSERT_EQ(expected.said, said(output)) << "case " << i;
        ASSERT_EQ(1, resolver.frees) << "case " << i;
        if (fd >= 0)
            ::close(fd);
    }
    EXPECT_EQ(before, open_descriptors());
}

// One connection

TEST(TCP_client, opens_reads_writes_and_closes_a_connection)
{
    const Peer peer;
    const Debug_output output;
    Client client("127.0.0.1", peer.port);
    ASSERT_TRUE(client.open());
    ASSERT_LE(0, client.sd);
    EXPECT_TRUE(is_blocking(client.sd));
    const int fd = client.sd;
    const int accepted = peer.accept();
    const unsigned char sent[] = {'a', 0, 'c', 0xFF};
    unsigned char received[8] = {};
    EXPECT_EQ(4, client.write(sent, 4));
    EXPECT_EQ(4, ::recv(accepted, received, 4, MSG_WAITALL));
    EXPECT_EQ(0, std::memcmp(sent, received, 4));
    EXPECT_EQ(3, ::write(accepted, "xyz", 3));
    EXPECT_EQ(2, client.read(received, 2));
    EXPECT_EQ(1, client.read(received + 2, sizeof received - 2));
    EXPECT_EQ(0, std::memcmp("xyz", received, 3));
    client.close();
    EXPECT_EQ(-1, client.sd);
    EXPECT_FALSE(is_open(fd));
    EXPECT_TRUE(ends(accepted));
    ::close(accepted);
}

TEST(TCP_client, reads_0_at_the_end_of_the_stream)
{
    const Peer peer;
    const Debug_output output;
    Client client("127.0.0.1", peer.port);
    ASSERT_TRUE(client.open());
    ::close(peer.accept());
    unsigned char byte = 0;
    EXPECT_EQ(0, client.read(&byte, 1));
}

TEST(TCP_client, reads_and_writes_with_one_call_each_and_hands_the_result_on)
{
    struct Calls : Interposed_calls {
        ssize_t read(int fd, void* data, std::size_t size) override { return note('r', fd, data, size); }
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            return note('w', fd, data, size);
        }
        ssize_t note(char call, int fd, const void* data, std::size_t size)
        {
            EXPECT_EQ(1000, fd);
            EXPECT_EQ(expected, data);
            EXPECT_EQ(UINT_MAX, size);
            calls += call;
            errno = EAGAIN;
            return result;
        }
        const void* expected = nullptr;
        ssize_t result = 0;
        std::string calls;
    };
    Calls calls;
    Client client;
    client.sd = 1000;
    unsigned char buffer[1] = {};
    calls.expected = buffer;
    for (const int result : {-1, 0, 1, 0x7FFFF000}) {
        calls.result = result;
        calls.calls.clear();
        EXPECT_EQ(result, client.read(buffer, UINT_MAX));
        EXPECT_EQ(EAGAIN, errno);
        EXPECT_EQ(result, client.write(buffer, UINT_MAX));
        EXPECT_EQ("rw", calls.calls);
    }
    client.sd = -1;
}

TEST(TCP_client, neither_reads_nor_writes_while_it_is_closed)
{
    Client client;
    unsigned char byte = 0;
    EXPECT_EQ(-1, client.read(&byte, 1));
    EXPECT_EQ(EBADF, errno);
    errno = 0;
    EXPECT_EQ(-1, client.write(&byte, 1));
    EXPECT_EQ(EBADF, errno);
}

TEST(TCP_client, stays_closed_where_it_cannot_open)
{
    const Peer refusing(-1);
    const Debug_output output;
    Client client("127.0.0.1", refusing.port);
    EXPECT_FALSE(client.open());
    EXPECT_EQ(-1, client.sd);
}

TEST(TCP_client, opens_without_time_limit)
{
    struct No_poll : Interposed_calls {
        int poll(pollfd*, nfds_t, int) override { return Calls_nothing::unexpected(); }
    };
    const Peer peer;
    const Debug_output output;
    Client client("127.0.0.1", peer.port);
    {
        const No_poll calls;
        EXPECT_TRUE(client.open());
    }
}

TEST(TCP_client, opens_anew_without_closing_the_connection_it_holds)
{
    const Peer peer;
    const Debug_output output;
    Client client("127.0.0.1", peer.port);
    ASSERT_TRUE(client.open());
    const int first = client.sd;
    ASSERT_TRUE(client.open());
    EXPECT_NE(first, client.sd);
    EXPECT_TRUE(is_open(first));
    ::close(first);
}

TEST(TCP_client, counts_a_descriptor_of_0_as_open)
{
    struct Zero : Interposed_calls {
        int socket(int, int, int) override { return 0; }
        int setsockopt(int, int, int, const void*, socklen_t) override { return 0; }
        int bind(int, const sockaddr*, socklen_t) override { return 0; }
        int connect(int, const sockaddr*, socklen_t) override { return 0; }
        int shutdown(int fd, int) override { return fd; }
        int poll(pollfd* fds, nfds_t, int) override
        {
            fds->revents = POLLIN;
            return 1;
        }
        ssize_t read(int, void*, std::size_t) override { return 0; }
        int close(int fd) override
        {
            closed.push_back(fd);
            return 0;
        }
        std::vector<int> closed;
    };
    const Debug_output output;
    Resolver resolver;
    resolver.add_v4();
    Zero calls;
    Client client("a", 1);
    EXPECT_TRUE(client.open());
    EXPECT_EQ(0, client.sd);
    client.close();
    EXPECT_THAT(calls.closed, ElementsAre(0));
}

TEST(TCP_client, does_nothing_to_close_while_it_is_closed)
{
    Client client;
    const Calls_nothing calls;
    client.close();
    EXPECT_EQ(-1, client.sd);
    client.sd = -2;
    client.close();
    EXPECT_EQ(-1, client.sd); // in every case
}

TEST(TCP_client, closes_its_connection_when_it_is_destroyed)
{
    const Peer peer;
    const Debug_output output;
    int fd = -1;
    {
        Client client("127.0.0.1", peer.port);
        ASSERT_TRUE(client.open());
        fd = client.sd;
    }
    EXPECT_FALSE(is_open(fd));
    const int accepted = peer.accept();
    EXPECT_TRUE(ends(accepted));
    ::close(accepted);
}

namespace {

/// Peers that never hear of a shutdown, and so never close; notes the time limits of poll.
struct Deaf_peers : Interposed_calls {
    int shutdown(int, int) override { return 0; }
    int poll(pollfd* fds, nfds_t count, int timeout_ms) override
    {
        timeouts.push_back(timeout_ms);
        return Interposed_calls::poll(fds, count, timeout_ms);
    }
    std::vector<int> timeouts;
};

} // namespace

TEST(TCP_client, is_closed_after_100_ms_whatever_the_peer_does)
{
    const Peer peer;
    const Debug_output output;
    Client client("127.0.0.1", peer.port);
    ASSERT_TRUE(client.open());
    const int fd = client.sd;
    const int accepted = peer.accept();
    Deaf_peers calls;
    const auto start = Clock::now();
    EXPECT_EQ(dirty({fd}), error_output([&client] { client.close(); }));
    EXPECT_LE(milliseconds(100), Clock::now() - start);
    EXPECT_THAT(calls.timeouts, Each(100));
    EXPECT_EQ(-1, client.sd);
    EXPECT_FALSE(is_open(fd));
    ::close(accepted);
}

TEST(TCP_client, raises_SIGPIPE_when_it_writes_to_a_broken_connection)
{
    const auto write_until_the_end = [] {
        std::signal(SIGPIPE, SIG_DFL);
        const Peer peer;
        Client client("127.0.0.1", peer.port);
        if (!client.open())
            std::abort();
        const int accepted = peer.accept();
        make_close_reset(accepted);
        ::close(accepted);
        for (int i = 0; i < 100; ++i) {
            client.write(reinterpret_cast<const unsigned char*>("x"), 1);
            std::this_thread::sleep_for(milliseconds(1));
        }
    };
    EXPECT_EXIT(write_until_the_end(), testing::KilledBySignal(SIGPIPE), "");
}

// Closing gracefully

TEST(wait_shutdown_close, touches_nothing_where_there_is_no_descriptor)
{
    const std::vector<int> none(300, -1);
    const int least = INT_MIN;
    Debug_output output;
    EXPECT_EQ("", error_output([&none, &least] {
                  const Calls_nothing calls;
                  EXPECT_TRUE(wait_shutdown_close(nullptr, 0, LIMIT_MS));
                  EXPECT_TRUE(wait_shutdown_close(none.data(), 300, LIMIT_MS));
                  EXPECT_TRUE(wait_shutdown_close(none.data(), 1, -1));
                  EXPECT_TRUE(wait_shutdown_close(&least, 1, 0));
              }));
    EXPECT_THAT(said(output), IsEmpty());
}

TEST(wait_shutdown_close, shuts_down_and_closes_what_it_is_given)
{
    const Connection a;
    const Connection b;
    const Connection untouched;
    const int sds[] = {-1, a.near, -5, b.near, untouched.near};
    Debug_output output;
    EXPECT_EQ("", error_output([&sds] { EXPECT_TRUE(wait_shutdown_close(sds, 4, LIMIT_MS)); }));
    EXPECT_THAT(said(output), IsEmpty());
    EXPECT_FALSE(is_open(a.near));
    EXPECT_FALSE(is_open(b.near));
    EXPECT_TRUE(is_open(untouched.near));
    EXPECT_TRUE(ends(a.far));
    EXPECT_TRUE(ends(b.far));
    ::close(untouched.near);
}

TEST(wait_shutdown_close, throws_away_what_the_peer_sent_before_it_closed)
{
    int ends_of_pair[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends_of_pair));
    const std::vector<char> sent(100 * 1000 + 1, 'x');
    ASSERT_EQ(static_cast<ssize_t>(sent.size()), ::write(ends_of_pair[1], sent.data(), sent.size()));
    struct Calls : Interposed_calls {
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            EXPECT_EQ(1000U, size);
            ++reads;
            return Interposed_calls::read(fd, data, size);
        }
        int reads = 0;
    };
    Calls calls;
    EXPECT_TRUE(wait_shutdown_close(ends_of_pair, 1, LIMIT_MS));
    EXPECT_EQ(102, calls.reads);
    EXPECT_FALSE(is_open(ends_of_pair[0]));
    ::close(ends_of_pair[1]);
}

TEST(wait_shutdown_close, waits_for_a_peer_that_closes_later)
{
    Connection connection;
    const Deaf_peers calls; // else the system itself ends the stream with the shutdown
    std::thread peer([&connection] {
        std::this_thread::sleep_for(milliseconds(30));
        connection.hang_up();
    });
    EXPECT_EQ(
        "", error_output([&connection] { EXPECT_TRUE(wait_shutdown_close(&connection.near, 1, LIMIT_MS)); }));
    peer.join();
    EXPECT_FALSE(is_open(connection.near));
}

TEST(wait_shutdown_close, lists_a_peer_that_keeps_sending_and_closes_its_descriptor)
{
    constexpr int TIMEOUT_MS = 100;
    const Connection connection;
    std::atomic<bool> done{false};
    std::thread peer([&] {
        while (!done) {
            ::send(connection.far, "x", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    const Deaf_peers calls;
    const auto start = Clock::now();
    EXPECT_EQ(dirty({connection.near}), error_output([&connection] {
                  EXPECT_FALSE(wait_shutdown_close(&connection.near, 1, TIMEOUT_MS));
              }));
    EXPECT_LE(milliseconds(TIMEOUT_MS), Clock::now() - start);
    done = true;
    peer.join();
    EXPECT_FALSE(is_open(connection.near));
}

TEST(wait_shutdown_close, lists_only_the_peers_that_did_not_close_in_the_order_given)
{
    const Connection silent;
    Connection gone;
    const Connection sending;
    Connection gone_too;
    const int sds[] = {gone.near, sending.near, -1, gone_too.near, silent.near};
    gone.hang_up();
    gone_too.hang_up();
    ASSERT_EQ(1, ::write(sending.far, "x", 1));
    const Deaf_peers calls;
    EXPECT_EQ(dirty({sending.near, silent.near}),
              error_output([&sds] { EXPECT_FALSE(wait_shutdown_close(sds, 5, 50)); }));
    EXPECT_THAT(calls.timeouts, Each(50));
    for (const int sd : {gone.near, sending.near, gone_too.near, silent.near})
        EXPECT_FALSE(is_open(sd));
}

TEST(wait_shutdown_close, spares_the_processor_while_it_waits)
{
    constexpr unsigned TIMEOUT_MS = 500;
    Connection gone; // hung up: poll returns at once for it, each time
    const Connection silent;
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0); // the same
    const int sds[] = {gone.near, silent.near, unconnected};
    Deaf_peers calls;
    ::close(gone.far);
    ASSERT_EQ(0, ::shutdown(gone.near, SHUT_RDWR));
    gone.far = -1;
    EXPECT_EQ(dirty({silent.near, unconnected}),
              error_output([&sds] { EXPECT_FALSE(wait_shutdown_close(sds, 3, TIMEOUT_MS)); }));
    EXPECT_LE(2U, calls.timeouts.size());
    EXPECT_GE(TIMEOUT_MS + 2, calls.timeouts.size());
}

TEST(wait_shutdown_close, reports_what_cannot_be_shut_down_then_waits_for_it_and_closes_it)
{
    int no_socket[2];
    ASSERT_EQ(0, ::pipe2(no_socket, 0));
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0);
    const Connection connection;
    const int sds[] = {no_socket[0], connection.near, unconnected};
    ASSERT_EQ(2, ::write(no_socket[1], "ab", 2));
    Debug_output output;
    EXPECT_EQ(dirty({no_socket[0]}), error_output([&sds] { EXPECT_FALSE(wait_shutdown_close(sds, 3, 20)); }));
    EXPECT_THAT(said(output), ElementsAre(c_perror("error calling shutdown\n", ENOTSOCK),
                                          c_perror("error calling shutdown\n", ENOTCONN)));
    for (const int sd : sds)
        EXPECT_FALSE(is_open(sd));
    ::close(no_socket[1]);
}

TEST(wait_shutdown_close, allocates_nothing)
{
    if (!ALLOCATIONS_ARE_COUNTED)
        GTEST_SKIP() << "the sanitizers bring their own malloc()";
    struct Calls : Interposed_calls {
        int shutdown(int, int) override { return 0; } // the peers do not notice
    };
    const Calls calls;
    std::int64_t counted = -1;
    for (int round = 0; round < 2; ++round) { // the first looks the C library's functions up
        Connection gone;
        const Connection silent;
        const Connection silent_too;
        gone.hang_up();
        const int sds[] = {gone.near, -1, silent.near, silent_too.near};
        bool clean = false;
        bool dirty = true;
        error_output([&] {
            const std::int64_t before = allocations();
            clean = wait_shutdown_close(sds, 2, LIMIT_MS);
            dirty = !wait_shutdown_close(sds + 2, 2, 5);
            counted = allocations() - before;
        });
        EXPECT_TRUE(clean);
        EXPECT_TRUE(dirty);
    }
    EXPECT_EQ(0, counted);
    const std::int64_t before = allocations();
    const auto one = std::make_unique<char[]>(10);
    const char* volatile used = one.get(); // or the compiler would leave it out
    static_cast<void>(used);
    EXPECT_LT(before, allocations());
}

TEST(wait_shutdown_close, goes_on_past_a_descriptor_that_is_not_open)
{
    const Connection connection;
    const int sds[] = {FIRST, connection.near};
    Debug_output output;
    EXPECT_EQ(dirty({FIRST}), error_output([&sds] { EXPECT_FALSE(wait_shutdown_close(sds, 2, 10)); }));
    EXPECT_THAT(said(output), ElementsAre(c_perror("error calling shutdown\n", EBADF)));
    EXPECT_FALSE(is_open(connection.near));
}

namespace {

/// What poll() and read() answer for descriptors that nobody has; notes every call.
struct Scripted_wait : Interposed_calls {
    using Poll = std::vector<short>; ///< the events of each entry; none: it fails with EINTR and leaves them

    int shutdown(int fd, int how) override
    {
        EXPECT_EQ(SHUT_RDWR, how);
        shut_down.push_back(fd);
        return 0;
    }
    int poll(pollfd* fds, nfds_t count, int timeout_ms) override
    {
        std::vector<std::pair<int, int>> entries;
        for (nfds_t i = 0; i < count; ++i)
            entries.emplace_back(fds[i].fd, fds[i].events);
        asked.push_back(entries);
        timeouts.push_back(timeout_ms);
        if (asked.size() > polls.size() || polls[asked.size() - 1].empty())
            return fail_with(EINTR);
        for (nfds_t i = 0; i < count; ++i)
            fds[i].revents = polls[asked.size() - 1][i];
        return 1;
    }
    ssize_t read(int fd, void*, std::size_t) override
    {
        reads.push_back(fd);
        const ssize_t result = reads.size() <= results.size() ? results[reads.size() - 1] : 0;
        return result < 0 ? fail_with(ECONNRESET) : result;
    }
    int close(int fd) override
    {
        if (fd < FIRST)
            return Interposed_calls::close(fd); // of the test's own
        closed.push_back(fd);
        return 0;
    }

    std::vector<Poll> polls;
    std::vector<ssize_t> results; ///< of the reads; then 0
    std::vector<int> shut_down;
    std::vector<std::vector<std::pair<int, int>>> asked;
    std::vector<int> timeouts;
    std::vector<int> reads;
    std::vector<int> closed;
};

} // namespace

TEST(wait_shutdown_close, asks_for_input_until_each_peer_has_closed)
{
    Scripted_wait calls;
    calls.polls = {{POLLIN, 0}, {0, POLLIN}, {POLLHUP, POLLIN | POLLHUP}};
    calls.results = {0, 999, 0};
    const int sds[] = {FIRST, FIRST + 1};
    EXPECT_TRUE(wait_shutdown_close(sds, 2, LIMIT_MS));
    const std::pair<int, int> first(FIRST, POLLIN), closed(FIRST, 0), second(FIRST + 1, POLLIN);
    EXPECT_THAT(calls.asked, ElementsAre(ElementsAre(first, second), ElementsAre(closed, second),
                                         ElementsAre(closed, second)));
    EXPECT_THAT(calls.timeouts, ElementsAre(LIMIT_MS, LIMIT_MS, LIMIT_MS));
    EXPECT_THAT(calls.shut_down, ElementsAre(FIRST, FIRST + 1));
    EXPECT_THAT(calls.reads, ElementsAre(FIRST, FIRST + 1, FIRST + 1));
    EXPECT_THAT(calls.closed, ElementsAre(FIRST, FIRST + 1));
}

TEST(wait_shutdown_close, counts_a_peer_that_closed_only_once)
{
    Scripted_wait calls;
    calls.polls = {{POLLIN, 0}, {POLLIN, 0}, {POLLIN, POLLIN}};
    const int sds[] = {FIRST, FIRST + 1};
    EXPECT_TRUE(wait_shutdown_close(sds, 2, LIMIT_MS));
    EXPECT_THAT(calls.reads, ElementsAre(FIRST, FIRST + 1));
}

TEST(wait_shutdown_close, does_not_read_after_a_poll_that_failed)
{
    Scripted_wait calls;
    calls.polls = {{POLLIN}, {}, {}, {POLLIN}};
    calls.results = {1000, 0};
    EXPECT_TRUE(wait_shutdown_close(&FIRST, 1, LIMIT_MS));
    EXPECT_THAT(calls.asked, SizeIs(4));
    EXPECT_THAT(calls.reads, SizeIs(2)); // one more would wait for what never comes
}

TEST(wait_shutdown_close, ends_in_time_where_poll_always_fails)
{
    constexpr int TIMEOUT_MS = 60;
    Scripted_wait calls;
    const auto start = Clock::now();
    EXPECT_EQ(dirty({FIRST}), error_output([] { EXPECT_FALSE(wait_shutdown_close(&FIRST, 1, TIMEOUT_MS)); }));
    EXPECT_LE(milliseconds(TIMEOUT_MS), Clock::now() - start);
    EXPECT_GE(TIMEOUT_MS + 2U, calls.asked.size());
    EXPECT_THAT(calls.closed, ElementsAre(FIRST));
}

TEST(wait_shutdown_close, goes_on_after_a_read_that_failed)
{
    Scripted_wait calls;
    calls.polls = {{POLLIN | POLLERR}, {POLLIN}, {POLLIN}};
    calls.results = {-1, -1, 0};
    EXPECT_TRUE(wait_shutdown_close(&FIRST, 1, LIMIT_MS));
    EXPECT_THAT(calls.reads, SizeIs(3));
}

TEST(wait_shutdown_close, reads_only_where_there_is_input)
{
    Scripted_wait calls;
    calls.polls = {{POLLHUP | POLLERR | POLLNVAL | POLLPRI | POLLOUT}};
    EXPECT_EQ(dirty({FIRST}), error_output([] { EXPECT_FALSE(wait_shutdown_close(&FIRST, 1, 0)); }));
    EXPECT_THAT(calls.reads, IsEmpty());
}

TEST(wait_shutdown_close, looks_once_without_time_and_without_time_limit)
{
    for (const int timeout_ms : {0, -1, INT_MIN}) {
        SCOPED_TRACE(timeout_ms);
        Scripted_wait calls;
        calls.polls = {{POLLIN}};
        calls.results = {1};
        EXPECT_EQ(dirty({FIRST}),
                  error_output([timeout_ms] { EXPECT_FALSE(wait_shutdown_close(&FIRST, 1, timeout_ms)); }));
        EXPECT_THAT(calls.timeouts, ElementsAre(timeout_ms));
        EXPECT_THAT(calls.closed, ElementsAre(FIRST));
        calls.results = {1, 0};
        calls.polls.push_back({POLLIN});
        EXPECT_TRUE(wait_shutdown_close(&FIRST, 1, timeout_ms));
        EXPECT_THAT(calls.timeouts, SizeIs(2));
    }
}

TEST(wait_shutdown_close, closes_100_sockets_among_any_number_of_free_slots)
{
    std::vector<int> sds;
    for (int i = 0; i < 100; ++i)
        sds.insert(sds.end(), {-1, FIRST + i, -1});
    Scripted_wait calls;
    calls.polls = {Scripted_wait::Poll(100, POLLIN)};
    EXPECT_TRUE(wait_shutdown_close(sds.data(), 300, LIMIT_MS));
    EXPECT_THAT(calls.shut_down, SizeIs(100));
    EXPECT_EQ(calls.shut_down, calls.reads);
    EXPECT_EQ(calls.shut_down, calls.closed);
}

TEST(wait_shutdown_close, shuts_more_than_100_sockets_down_and_leaves_them_open)
{
    for (const int count : {101, 102, 250}) {
        std::vector<int> sds;
        for (int i = 0; i < count; ++i)
            sds.insert(sds.end(), {FIRST + i, -1});
        Scripted_wait calls;
        Debug_output output;
        EXPECT_EQ("", error_output([&sds, count] {
                      EXPECT_FALSE(
                          wait_shutdown_close(sds.data(), static_cast<unsigned>(2 * count), LIMIT_MS));
                  }));
        EXPECT_THAT(said(output), IsEmpty());
        ASSERT_THAT(calls.shut_down, SizeIs(static_cast<std::size_t>(count)));
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(FIRST + i, calls.shut_down[static_cast<std::size_t>(i)]);
        EXPECT_THAT(calls.asked, IsEmpty());
        EXPECT_THAT(calls.closed, IsEmpty());
    }
}

TEST(wait_shutdown_close, goes_through_any_script_of_peers_as_its_model_does)
{
    std::mt19937 random(100);
    for (int i = 0; i < 10000; ++i) {
        const auto number = static_cast<int>(1 + random() % 12);
        const auto count = static_cast<std::size_t>(number);
        std::vector<int> sds;
        for (std::size_t k = 0; k < count; ++k)
            sds.push_back(FIRST + static_cast<int>(k));
        // What the peers do, and what the model makes of it, up to the last pass; then all have closed.
        Scripted_wait calls;
        std::vector<bool> open(count, true);
        std::vector<int> reads;
        for (bool all_closed = false; !all_closed;) {
            Scripted_wait::Poll events(count, POLLHUP);
            events[static_cast<std::size_t>(std::find(open.begin(), open.end(), true) - open.begin())] |=
                POLLIN;
            for (short& each : events)
                each = static_cast<short>(random() % 2 == 0 ? each | POLLIN : each);
            for (std::size_t k = 0; k < count; ++k) {
                if (!open[k] || (events[k] & POLLIN) == 0)
                    continue;
                reads.push_back(sds[k]);
                calls.results.push_back(random() % 64 == 0 ? -1 : static_cast<ssize_t>(random() % 3 * 500));
                open[k] = calls.results.back() != 0;
            }
            calls.polls.push_back(events);
            all_closed = std::count(open.begin(), open.end(), true) == 0;
        }
        ASSERT_TRUE(wait_shutdown_close(sds.data(), static_cast<unsigned>(number), LIMIT_MS)) << "case " << i;
        ASSERT_EQ(calls.polls.size(), calls.asked.size()) << "case " << i;
        ASSERT_EQ(reads, calls.reads) << "case " << i;
        ASSERT_EQ(sds, calls.closed) << "case " << i;
    }
}

// What a process goes through in the field

TEST(TCP_client, works_beyond_the_descriptors_that_a_descriptor_set_holds)
{
    const Many_descriptors many;
    if (!many.are_open())
        GTEST_SKIP() << "the hard limit of descriptors is below " << Many_descriptors::COUNT;
    const Peer peer;
    for (const int timeout_ms : {-1, LIMIT_MS}) {
        Debug_output output;
        Client client("127.0.0.1", peer.port);
        client.sd = client.open_connection(timeout_ms);
        ASSERT_LT(Many_descriptors::COUNT, client.sd);
        const int accepted = peer.accept();
        unsigned char byte = 0;
        EXPECT_EQ(1, client.write(reinterpret_cast<const unsigned char*>("x"), 1));
        EXPECT_EQ(1, ::read(accepted, &byte, 1));
        const int sds[] = {client.sd, accepted};
        EXPECT_EQ("", error_output([&sds] { EXPECT_TRUE(wait_shutdown_close(sds, 2, LIMIT_MS)); }));
        client.sd = -1;
    }
}

TEST(TCP_client, leaves_no_descriptor_behind_however_the_peer_goes)
{
    enum Going { RESETS, HALF_CLOSES, SENDS_AND_CLOSES, CLOSES };
    const Going ALL[] = {RESETS, HALF_CLOSES, SENDS_AND_CLOSES, CLOSES};
    const auto before = open_descriptors();
    const Debug_output output;
    for (int i = 0; i < 200; ++i) {
        const Peer peer;
        Client client("127.0.0.1", peer.port);
        client.sd = client.open_connection(i % 2 == 0 ? -1 : LIMIT_MS);
        const int accepted = peer.accept();
        const Going going = ALL[i / 2 % 4];
        if (going == RESETS)
            make_close_reset(accepted);
        if (going == HALF_CLOSES)
            ::shutdown(accepted, SHUT_WR);
        if (going == SENDS_AND_CLOSES)
            ::send(accepted, "abc", 3, 0);
        if (going != HALF_CLOSES)
            ::close(accepted);
        unsigned char received[8];
        EXPECT_EQ(going == RESETS             ? -1
                  : going == SENDS_AND_CLOSES ? 3
                                              : 0,
                  client.read(received, sizeof received));
        EXPECT_EQ("", error_output([&client] { client.close(); }));
        if (going == HALF_CLOSES)
            ::close(accepted);
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST(TCP_client, leaves_no_descriptor_behind_while_the_peer_is_gone_and_comes_back)
{
    const auto before = open_descriptors();
    const Debug_output output;
    for (int i = 0; i < 200; ++i) {
        Client client("127.0.0.1", 0);
        {
            const Peer gone(-1);
            client.set_port(gone.port);
            EXPECT_FALSE(client.open());
        }
        const Peer back;
        client.set_port(back.port);
        EXPECT_TRUE(client.open());
    }
    EXPECT_EQ(before, open_descriptors());
}
