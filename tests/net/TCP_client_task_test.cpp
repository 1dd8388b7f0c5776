#include "util/net/TCP_client_task.h"

#include "platform/Debug.h"
#include "tests/support/Debug_output.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Many_descriptors.h"
#include "tests/support/Open_descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

static_assert(std::is_abstract_v<TCP_client_task>);
static_assert(std::has_virtual_destructor_v<TCP_client_task>);
static_assert(std::is_base_of_v<TCP_client, TCP_client_task>);
static_assert(!std::is_convertible_v<TCP_client_task*, TCP_client*>, "the base is private");

namespace {

std::atomic<bool> no_threads{false};

} // namespace

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*start)(void*),
                                                                     void* argument) noexcept
{
    using Function = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "pthread_create"));
    return no_threads ? EAGAIN : next(thread, attributes, start, argument);
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int CATEGORY = 107;
constexpr int LIMIT_MS = 30000; // for what is sure to happen

const std::string ATTEMPTING = "TCP_client_task: attempting to (re)open socket\n";
const std::string SUCCESSFUL = "TCP_client_task: socket (re)open successful\n";
const std::string FAILED = "TCP_client_task: socket (re)open failed\n";
const std::string READABLE = "sd set in read_set\n";
const std::string WRITABLE = "sd set in write_set\n";
const std::string SOCKET_ERROR = "TCP_client_task: socket error\n";
const std::string INTERRUPTED = "select interrupted\n";
const std::string UNEXPECTED = "TCP_client_task: received unexpected value\n";
const std::string JOINING = "TCP_client_task: joining on comms thread\n";

std::string connected(int port, const std::string& address = "127.0.0.1")
{
    return "TCP_client: Connected to " + address + ":" + std::to_string(port) + "\n";
}

std::string not_connected(int port, const std::string& address = "127.0.0.1")
{
    return "TCP_client: Could not connect to " + address + ":" + std::to_string(port) + "\n";
}

template <typename CONDITION>
bool eventually(CONDITION condition)
{
    const auto limit = Clock::now() + milliseconds(LIMIT_MS);
    while (!condition() && Clock::now() < limit)
        std::this_thread::sleep_for(milliseconds(1));
    return condition();
}

/// The threads of this process, by their numbers: one that has been joined may stay among them for a moment,
/// so that how many there are says nothing.
std::set<std::string> threads()
{
    // With a process's first thread the race checker starts one of its own, for good.
    static std::once_flag first;
    std::call_once(first, [] { std::thread([] {}).join(); });
    std::set<std::string> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        numbers.insert(entry.path().filename());
    return numbers;
}

/// Whether every thread that was not there before has gone, or does so before long.
bool no_more_threads_than(const std::set<std::string>& before)
{
    return eventually([&before] {
        const std::set<std::string> now = threads();
        return std::includes(before.begin(), before.end(), now.begin(), now.end());
    });
}

/// The texts of the debug channel, all of which have to be of the one category.
std::vector<std::string> printed(const Debug_output& output)
{
    std::vector<std::string> texts;
    for (const Debug_output::Line& line : output.lines()) {
        EXPECT_EQ(Debug_output::PRINT, line.way) << line.text;
        EXPECT_EQ(CATEGORY, line.category) << line.text;
        texts.push_back(line.text);
    }
    return texts;
}

/// The errno of each perror with that text.
std::vector<int> errors(const Debug_output& output, const std::string& text)
{
    std::vector<int> errors;
    for (const Debug_output::Line& line : output.lines())
        if (line.way == Debug_output::PERROR && line.text == text)
            errors.push_back(line.error);
    return errors;
}

/// A TCP peer at 127.0.0.1, on a port of the system's choosing.
class Peer {
public:
    Peer() : fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (fd < 0 || ::bind(fd, generic, size) != 0 || ::getsockname(fd, generic, &size) != 0)
            std::abort();
        port = ntohs(address.sin_port);
    }
    explicit Peer(int backlog) : Peer() { listen(backlog); }
    ~Peer() { ::close(fd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Until here connections are refused.
    ///
    /// @param backlog  room for those that no test accepts: one more would wait for ever
    void listen(int backlog = 1024) const
    {
        if (::listen(fd, backlog) != 0)
            std::abort();
    }

    /// @return the caller's to close
    int accept() const
    {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, LIMIT_MS) != 1)
            std::abort();
        return ::accept(fd, nullptr, nullptr);
    }

    int port = 0;

private:
    int fd;
};

/// One that takes connections.
struct Listening_peer : Peer {
    Listening_peer() { listen(); }
};

/// @return whether the other end has closed
bool ends(int fd)
{
    char byte = 0;
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, LIMIT_MS) == 1 && ::recv(fd, &byte, 1, 0) <= 0;
}

void send(int fd, const std::string& text, int flags = 0)
{
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::send(fd, text.data(), text.size(), flags | MSG_NOSIGNAL));
}

std::string receive(int fd, std::size_t size)
{
    std::string text(size, '\0');
    const auto length = ::recv(fd, text.data(), size, MSG_WAITALL);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
}

/// Leaves the base's answer on data to write.
class Reading_task : public TCP_client_task {
public:
    explicit Reading_task(int peer, const char* host = "127.0.0.1") : TCP_client_task(host, peer) {}
    ~Reading_task() override { close(); }
    Reading_task(const Reading_task&) = delete;
    Reading_task& operator=(const Reading_task&) = delete;

    int handle_read(int fd) override { return on_read(fd); }
    void handle_write(int fd) override { on_write(fd); }

    using TCP_client_task::comms_thread;
    using TCP_client_task::connect_timeout_ms;
    using TCP_client_task::notify_pipe;
    using TCP_client_task::reconnect_period_ms;
    using TCP_client_task::running;

    // Set before open().
    std::function<int(int)> on_read = [this](int fd) {
        char bytes[256];
        const auto length = ::read(fd, bytes, sizeof bytes);
        if (length <= 0)
            return -1;
        const std::lock_guard<std::mutex> lock(mutex);
        received.append(bytes, static_cast<std::size_t>(length));
        return 0;
    };
    std::function<void(int)> on_write = [](int) {};

    bool has_received(const std::string& text)
    {
        return eventually([&] {
            const std::lock_guard<std::mutex> lock(mutex);
            return received == text;
        });
    }

private:
    std::mutex mutex;
    std::string received;
};

class Task : public Reading_task {
public:
    using Reading_task::Reading_task;
    ~Task() override { close(); }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    bool is_write_data_avail() override { return has_data(); }

    std::function<bool()> has_data = [] { return false; };
};

/// Stands in for the sleeps of the comms threads, for as long as the object lives. One at a time.
class Sleeps {
public:
    explicit Sleeps(std::function<void(std::int64_t)> action) : on_sleep(std::move(action)) { active = this; }
    ~Sleeps() { active = nullptr; }
    Sleeps(const Sleeps&) = delete;
    Sleeps& operator=(const Sleeps&) = delete;

    static int sleep(const timespec& time, timespec* left)
    {
        Sleeps* const sleeps = active;
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        if (sleeps == nullptr || std::strncmp(name, "TCT_", 4) != 0) {
            const int error = ::clock_nanosleep(CLOCK_REALTIME, 0, &time, left); // what nanosleep() does
            return error == 0 ? 0 : fail_with(error);
        }
        sleeps->on_sleep(std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000);
        return 0;
    }

private:
    static inline std::atomic<Sleeps*> active{nullptr};
    const std::function<void(std::int64_t us)> on_sleep;
};

/// Fails connect() with an errno, or lets it through.
struct Scripted_connect : Interposed_calls {
    int connect(int fd, const sockaddr* address, socklen_t size) override
    {
        ++attempts;
        return error == 0 ? Interposed_calls::connect(fd, address, size) : fail_with(error);
    }
    std::atomic<int> error{ECONNREFUSED};
    std::atomic<int> attempts{0};
};

} // namespace

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec* left)
{
    return Sleeps::sleep(*time, left);
}

// What it is made of

TEST(TCP_client_task, has_its_virtual_operations_in_the_slots_that_derived_classes_fill)
{
    // Where the Itanium ABI keeps the slot of a virtual function, ARM's with a flag elsewhere.
    const auto slot = [](auto function) {
        std::ptrdiff_t first = 0;
        std::memcpy(&first, &function, sizeof first);
        return (first & ~std::ptrdiff_t{1}) / static_cast<std::ptrdiff_t>(sizeof(void*));
    };
    EXPECT_EQ(0, slot(&TCP_client_task::handle_read));
    EXPECT_EQ(1, slot(&TCP_client_task::handle_write));
    EXPECT_EQ(2, slot(&TCP_client_task::is_write_data_avail));
}

TEST(TCP_client_task, keeps_its_fields_where_derived_classes_expect_them)
{
    const Reading_task task(1);
    const auto offset = [&task](const auto& field) {
        return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) -
                                        reinterpret_cast<const char*>(&task));
    };
    EXPECT_EQ(sizeof(void*) + sizeof(TCP_client), offset(task.notify_pipe));
    EXPECT_EQ(offset(task.notify_pipe) + 8, offset(task.reconnect_period_ms));
    EXPECT_EQ(offset(task.notify_pipe) + 12, offset(task.connect_timeout_ms));
    EXPECT_EQ(offset(task.notify_pipe) + 16, offset(task.comms_thread));
    EXPECT_EQ(offset(task.comms_thread) + sizeof(std::thread), offset(task.running));
    EXPECT_EQ(offset(task.running) + sizeof(void*), sizeof(TCP_client_task));
}

TEST(TCP_client_task, starts_with_a_pipe_and_without_a_thread)
{
    const Debug_output output;
    const auto before = threads();
    const Reading_task task(1);
    EXPECT_EQ(1000, task.reconnect_period_ms);
    EXPECT_EQ(-1, task.connect_timeout_ms);
    EXPECT_TRUE(task.running);
    EXPECT_FALSE(task.comms_thread.joinable());
    EXPECT_TRUE(no_more_threads_than(before));
    char byte = 0;
    ASSERT_EQ(1, ::write(task.notify_pipe[1], "x", 1));
    EXPECT_EQ(1, ::read(task.notify_pipe[0], &byte, 1));
    EXPECT_EQ('x', byte);
    EXPECT_THAT(printed(output), IsEmpty());
}

TEST(TCP_client_task, starts_the_same_without_an_address)
{
    struct Bare_task : TCP_client_task {
        int handle_read(int) override { return 0; }
        void handle_write(int) override {}
        ~Bare_task() override { close(); }
        using TCP_client_task::connect_timeout_ms;
        using TCP_client_task::notify_pipe;
        using TCP_client_task::reconnect_period_ms;
        using TCP_client_task::running;
    };
    Debug_output output;
    Bare_task task;
    EXPECT_EQ(1000, task.reconnect_period_ms);
    EXPECT_EQ(-1, task.connect_timeout_ms);
    EXPECT_TRUE(task.running);
    EXPECT_LE(0, task.notify_pipe[0]);
    EXPECT_FALSE(task.is_write_data_avail());
    EXPECT_TRUE(task.open());
    EXPECT_TRUE(eventually([&output] {
        return output.text().find("TCP_client getaddrinfo '' lookup failed: ") != std::string::npos;
    }));
}

TEST(TCP_client_task, leaves_nothing_open_when_it_is_destroyed)
{
    const Debug_output output;
    const auto before = open_descriptors();
    auto task = std::make_unique<Reading_task>(1);
    EXPECT_EQ(before + 2, open_descriptors());
    task.reset();
    EXPECT_EQ(before, open_descriptors());
}

TEST(TCP_client_task, stores_what_it_is_told_of_its_periods)
{
    const Debug_output output;
    Reading_task task(1);
    for (const int ms : {0, 1, -1, INT_MAX, INT_MIN}) {
        task.set_reconnect_period(ms);
        task.set_connect_timeout(ms / 2);
        EXPECT_EQ(ms, task.reconnect_period_ms);
        EXPECT_EQ(ms / 2, task.connect_timeout_ms);
    }
}

// Connecting, reading and writing

TEST(TCP_client_task, connects_reads_and_closes)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    EXPECT_TRUE(task.open());
    const int fd = peer.accept();
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    EXPECT_TRUE(task.close());
    EXPECT_TRUE(ends(fd));
    EXPECT_THAT(printed(output),
                ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, READABLE, JOINING));
    ::close(fd);
}

TEST(TCP_client_task, hands_the_handlers_a_non_blocking_socket_on_a_thread_of_its_own)
{
    const Listening_peer peer;
    const Debug_output output;
    std::atomic<int> calls{0};
    Task task(peer.port);
    const auto look_at = [&calls](int sd) {
        EXPECT_NE(0, ::fcntl(sd, F_GETFL) & O_NONBLOCK);
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_EQ("TCT_", std::string(name, 4));
        ++calls;
    };
    task.has_data = [&calls] { return calls < 1; };
    task.on_write = look_at;
    task.on_read = [&look_at](int sd) {
        look_at(sd);
        char byte = 0;
        return static_cast<int>(std::int64_t{::read(sd, &byte, 1)}) - 1;
    };
    task.open();
    const int fd = peer.accept();
    EXPECT_TRUE(eventually([&calls] { return calls == 1; }));
    send(fd, "x");
    EXPECT_TRUE(eventually([&calls] { return calls == 2; }));
    ::close(fd);
}

TEST(TCP_client_task, calls_handle_read_for_as_long_as_there_is_something_to_read)
{
    const Listening_peer peer;
    const Debug_output output;
    Reading_task task(peer.port);
    std::atomic<int> calls{0};
    task.on_read = [&calls](int sd) {
        if (++calls < 5)
            return 0;
        char byte = 0;
        return static_cast<int>(std::int64_t{::read(sd, &byte, 1)});
    };
    task.open();
    const int fd = peer.accept();
    send(fd, "x");
    EXPECT_TRUE(eventually([&calls] { return calls >= 5; }));
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(5, calls);
    ::close(fd);
    EXPECT_TRUE(eventually([&calls] { return calls > 5; })); // the end of the stream is readable too
}

TEST(TCP_client_task, connects_anew_when_handle_read_answers_negative)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.on_read = [](int) { return INT_MIN; };
    task.open();
    const int first = peer.accept();
    send(first, "x");
    EXPECT_TRUE(ends(first));
    const int second = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
    task.close();
    EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, READABLE,
                                             ATTEMPTING, connected(peer.port), SUCCESSFUL, JOINING));
    ::close(first);
    ::close(second);
}

TEST(TCP_client_task, keeps_the_connection_whatever_handle_read_answers_else)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    std::atomic<int> calls{0};
    task.on_read = [&calls](int sd) {
        char byte = 0;
        EXPECT_EQ(1, ::read(sd, &byte, 1));
        ++calls;
        return byte == 'a' ? 0 : INT_MAX;
    };
    task.open();
    const int fd = peer.accept();
    send(fd, "aba");
    EXPECT_TRUE(eventually([&calls] { return calls == 3; }));
    task.close();
    EXPECT_EQ(1, output.count(Debug_output::PRINT, ATTEMPTING));
    ::close(fd);
}

TEST(TCP_client_task, connects_anew_when_the_peer_has_gone)
{
    const Listening_peer peer;
    const Debug_output output;
    Reading_task task(peer.port);
    task.open();
    ::close(peer.accept());
    const int fd = peer.accept();
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    ::close(fd);
}

TEST(TCP_client_task, offers_writing_for_as_long_as_there_is_data)
{
    const Listening_peer peer;
    Debug_output output;
    Task task(peer.port);
    std::atomic<int> left{5};
    task.has_data = [&left] { return left > 0; };
    task.on_write = [&left](int sd) {
        --left;
        send(sd, "x");
    };
    task.open();
    const int fd = peer.accept();
    EXPECT_EQ("xxxxx", receive(fd, 5));
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, WRITABLE, 5));
    std::this_thread::sleep_for(milliseconds(20));
    task.close();
    EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, WRITABLE, WRITABLE,
                                             WRITABLE, WRITABLE, WRITABLE, JOINING));
    ::close(fd);
}

TEST(TCP_client_task, asks_for_data_again_when_it_is_notified)
{
    const Listening_peer peer;
    Debug_output output;
    Task task(peer.port);
    std::atomic<int> asked{0};
    std::atomic<bool> data{false};
    task.has_data = [&] {
        ++asked;
        return data.load();
    };
    task.on_write = [&data](int sd) {
        data = false;
        send(sd, "abc");
    };
    task.open();
    const int fd = peer.accept();
    EXPECT_TRUE(eventually([&asked] { return asked == 1; }));
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(1, asked); // it sleeps
    task.notify_write_data_avail();
    EXPECT_TRUE(eventually([&asked] { return asked == 2; }));
    EXPECT_EQ(0, output.count(Debug_output::PRINT, WRITABLE));
    data = true;
    task.notify_write_data_avail();
    EXPECT_EQ("abc", receive(fd, 3));
    ::close(fd);
}

TEST(TCP_client_task, offers_no_writing_where_the_base_is_not_asked_to)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.on_write = [](int) { ADD_FAILURE(); };
    task.open();
    const int fd = peer.accept();
    for (int i = 0; i < 10; ++i)
        task.notify_write_data_avail();
    send(fd, "x");
    EXPECT_TRUE(task.has_received("x"));
    task.close();
    EXPECT_EQ(0, output.count(Debug_output::PRINT, WRITABLE));
    ::close(fd);
}

TEST(TCP_client_task, reads_before_it_writes_and_does_not_write_to_what_it_has_closed)
{
    const Listening_peer peer;
    Debug_output output;
    Task task(peer.port);
    std::mutex mutex;
    std::condition_variable changed;
    bool sent = false;
    std::atomic<int> reads{0};
    task.has_data = [&] { // there is something to read whenever select is asked
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&sent] { return sent; });
        return reads < 2;
    };
    task.on_read = [&reads](int) { return ++reads == 1 ? 0 : -1; };
    task.open();
    const int fd = peer.accept();
    send(fd, "x");
    EXPECT_TRUE(eventually([fd] { // what is acknowledged has arrived
        int unacknowledged = 1;
        return ::ioctl(fd, TIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0;
    }));
    {
        const std::lock_guard<std::mutex> lock(mutex);
        sent = true;
    }
    changed.notify_all();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
    task.close();
    EXPECT_THAT(printed(output),
                ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, READABLE, WRITABLE, READABLE,
                            ATTEMPTING, connected(peer.port), SUCCESSFUL, JOINING));
    ::close(fd);
}

TEST(TCP_client_task, connects_anew_after_urgent_data_which_it_takes_for_an_error)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.open();
    const int first = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL));
    send(first, "!", MSG_OOB);
    const int second = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
    task.close();
    EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, SOCKET_ERROR,
                                             ATTEMPTING, connected(peer.port), SUCCESSFUL, JOINING));
    ::close(first);
    ::close(second);
}

TEST(TCP_client_task, delivers_what_several_threads_have_to_send)
{
    constexpr int THREADS = 4;
    constexpr int MESSAGES = 500;
    const Listening_peer peer;
    const Debug_output output;
    std::mutex mutex;
    std::string waiting;
    Task task(peer.port);
    task.has_data = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return !waiting.empty();
    };
    task.on_write = [&](int sd) {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto length = ::write(sd, waiting.data(), std::min<std::size_t>(waiting.size(), 100));
        if (length > 0)
            waiting.erase(0, static_cast<std::size_t>(length));
    };
    task.open();
    std::vector<std::thread> producers;
    for (int id = 0; id < THREADS; ++id)
        producers.emplace_back([&, id] {
            for (int i = 0; i < MESSAGES; ++i) {
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    waiting += static_cast<char>('a' + id);
                }
                task.notify_write_data_avail();
                task.set_reconnect_period(i);
                task.set_connect_timeout(-1);
            }
        });
    const int fd = peer.accept();
    const std::string received = receive(fd, THREADS * MESSAGES);
    for (std::thread& producer : producers)
        producer.join();
    for (int id = 0; id < THREADS; ++id)
        EXPECT_EQ(MESSAGES, std::count(received.begin(), received.end(), 'a' + id));
    ::close(fd);
}

// The comms thread's name

TEST(TCP_client_task, names_its_thread_after_the_end_of_the_address_and_the_port)
{
    struct Calls : Interposed_calls {
        int socket(int, int, int) override
        {
            char text[16] = {};
            pthread_getname_np(pthread_self(), text, sizeof text);
            const std::lock_guard<std::mutex> lock(mutex);
            name = text;
            return fail_with(EMFILE);
        }
        std::string get()
        {
            const std::lock_guard<std::mutex> lock(mutex);
            return name;
        }
        std::mutex mutex;
        std::string name;
    };
    char own[16] = {};
    pthread_getname_np(pthread_self(), own, sizeof own);
    struct Case {
        const char* address;
        int port;
        const char* name;
    };
    for (const Case& each :
         {Case{"127.0.0.1", 65535, "TCT_.0.1:65535"}, Case{"127.1", 0, "TCT_27.1:0"},
          Case{"0.10", 21, "TCT_0.10:21"}, Case{"0.1", 1, "TCT_0.1:1"}, Case{"0", 7, "TCT_0:7"},
          Case{"127.0.0.2", 123456, "TCT_.0.2:123456"}, // 15 characters
          Case{"127.0.0.2", -123456, own}}) {           // 16 are none
        Debug_output output;
        Calls calls;
        Reading_task task(each.port, each.address);
        task.open();
        EXPECT_TRUE(eventually([&calls] { return !calls.get().empty(); }));
        EXPECT_EQ(each.name, calls.get());
        task.set_reconnect_period(0);
        task.close();
    }
}

// Attempts

TEST(TCP_client_task, tries_again_after_each_period_until_the_peer_is_there)
{
    constexpr int PERIOD_MS = 60;
    const Peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.set_reconnect_period(PERIOD_MS);
    const auto start = Clock::now();
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(peer.port), 4));
    EXPECT_LE(milliseconds(3 * PERIOD_MS), Clock::now() - start);
    peer.listen();
    ::close(peer.accept());
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL));
    EXPECT_EQ(ATTEMPTING, printed(output).at(0));
    EXPECT_EQ(not_connected(peer.port), printed(output).at(1));
    EXPECT_EQ(not_connected(peer.port), printed(output).at(2)); // said to be attempting but once an outage
}

TEST(TCP_client_task, tries_about_once_a_second_by_itself)
{
    Debug_output output;
    Scripted_connect calls;
    Reading_task task(2101);
    const auto start = Clock::now();
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101), 2));
    EXPECT_LE(milliseconds(1000), Clock::now() - start);
}

TEST(TCP_client_task, says_failed_when_it_leaves_an_attempt_without_a_connection)
{
    const Peer refusing;
    Debug_output output;
    Reading_task task(refusing.port);
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(refusing.port)));
    task.close();
    std::vector<std::string> texts = printed(output);
    texts.erase(std::remove(texts.begin(), texts.end(), JOINING), texts.end()); // of the other thread
    EXPECT_EQ(ATTEMPTING, texts.front());
    EXPECT_EQ(FAILED, texts.back());
}

TEST(TCP_client_task, notices_a_close_within_a_twentieth_of_its_period_and_tries_at_most_once_more)
{
    constexpr int PERIOD_MS = 20000;
    Debug_output output;
    Scripted_connect calls;
    std::atomic<bool> sleeps{false};
    const Sleeps sleep([&sleeps](std::int64_t us) {
        sleeps = true;
        ::poll(nullptr, 0, static_cast<int>(us / 1000));
    });
    Reading_task task(2101);
    task.set_reconnect_period(PERIOD_MS);
    task.open();
    EXPECT_TRUE(eventually([&sleeps] { return sleeps.load(); }));
    EXPECT_EQ(1, output.count(Debug_output::PRINT, not_connected(2101)));
    const int attempts = calls.attempts;
    const auto start = Clock::now();
    EXPECT_TRUE(task.close());
    EXPECT_GE(milliseconds(PERIOD_MS / 2), Clock::now() - start);
    EXPECT_EQ(2, output.count(Debug_output::PRINT, not_connected(2101)));
    EXPECT_EQ(2 * attempts, calls.attempts);
    EXPECT_EQ(1, output.count(Debug_output::PRINT, FAILED));
}

TEST(TCP_client_task, takes_up_a_new_period_while_it_waits)
{
    Debug_output output;
    const Scripted_connect calls;
    Reading_task task(2101);
    task.set_reconnect_period(10000);
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101)));
    const auto start = Clock::now();
    task.set_reconnect_period(0); // from the next twentieth on
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101), 3));
    EXPECT_GE(milliseconds(5000), Clock::now() - start);
}

TEST(TCP_client_task, sleeps_20_times_a_twentieth_of_the_period_that_it_is_by_then)
{
    Debug_output output;
    const Scripted_connect calls;
    Reading_task task(2101);
    task.set_reconnect_period(60);
    std::vector<std::pair<int, std::int64_t>> slept; // after how many attempts, microseconds
    const Sleeps sleeps([&](std::int64_t us) {
        slept.emplace_back(output.count(Debug_output::PRINT, not_connected(2101)), us);
        if (slept.size() == 25)
            task.set_reconnect_period(7);
        if (slept.size() == 43)
            task.running = false;
    });
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, FAILED));
    task.close();
    std::vector<std::pair<int, std::int64_t>> expected;
    for (int i = 1; i <= 43; ++i)
        expected.emplace_back((i + 19) / 20, i <= 25 ? 3000 : 350);
    EXPECT_EQ(expected, slept);
    EXPECT_EQ(4, output.count(Debug_output::PRINT, not_connected(2101))); // one more after the close
}

TEST(TCP_client_task, tries_without_a_pause_for_a_period_below_1)
{
    for (const int period_ms : {0, -1, INT_MIN}) {
        Debug_output output;
        const Scripted_connect calls;
        Reading_task task(2101);
        task.set_reconnect_period(period_ms);
        task.open();
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101), 5));
    }
}

TEST(TCP_client_task, reads_its_time_limit_before_each_attempt)
{
    struct Calls : Scripted_connect {
        Calls() { error = EINPROGRESS; }
        int poll(pollfd* fds, nfds_t, int timeout_ms) override
        {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                if (timeouts.empty() || timeouts.back() != timeout_ms)
                    timeouts.push_back(timeout_ms);
            }
            fds->revents = 0;
            return fail_with(EINTR);
        }
        std::vector<int> get()
        {
            const std::lock_guard<std::mutex> lock(mutex);
            return timeouts;
        }
        std::mutex mutex;
        std::vector<int> timeouts;
    };
    Debug_output output;
    Calls calls;
    Reading_task task(2101);
    task.set_reconnect_period(0);
    task.set_connect_timeout(3);
    task.open();
    EXPECT_TRUE(eventually([&calls] { return calls.get() == std::vector<int>{3}; }));
    task.set_connect_timeout(0);
    EXPECT_TRUE(eventually([&calls] { return calls.get() == std::vector<int>{3, 0}; }));
    task.set_connect_timeout(-1); // no poll any more
    const int before = output.count(Debug_output::PRINT, not_connected(2101));
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101), before + 3));
    task.close();
    EXPECT_THAT(calls.get(), ElementsAre(3, 0));
}

TEST(TCP_client_task, tries_again_where_the_socket_cannot_be_made_non_blocking)
{
    for (const int refused : {F_GETFL, F_SETFL}) {
        struct Calls : Interposed_calls {
            explicit Calls(int command) : refused_command(command) {}
            int fcntl(int fd, int command, long argument) override
            {
                if (command != refused_command || refusals == 0)
                    return Interposed_calls::fcntl(fd, command, argument);
                --refusals;
                return fail_with(EDEADLK);
            }
            int close(int fd) override
            {
                Interposed_calls::close(fd);
                return fail_with(EIO); // what is reported must not come from here
            }
            const int refused_command;
            std::atomic<int> refusals{3};
        };
        const Listening_peer peer;
        Debug_output output;
        const Calls calls(refused);
        Reading_task task(peer.port);
        task.set_reconnect_period(1);
        task.open();
        for (int i = 0; i < 3; ++i) {
            const int fd = peer.accept();
            ASSERT_TRUE(ends(fd));
            ::close(fd);
        }
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL));
        task.close();
        EXPECT_THAT(errors(output, "TCP_client_task: fcntl(O_SETFL O_NONBLOCK)"),
                    ElementsAre(EDEADLK, EDEADLK, EDEADLK));
        EXPECT_EQ(1, output.count(Debug_output::PRINT, ATTEMPTING));
    }
}

TEST(TCP_client_task, calls_descriptor_0_failed_and_works_with_it)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    const int input = ::dup(0);
    ASSERT_LE(0, input) << "there is no standard input to make room for it";
    ::close(0);
    task.open();
    const int fd = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, FAILED));
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    task.close();
    EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, connected(peer.port), FAILED, READABLE, JOINING));
    ::dup2(input, 0);
    ::close(input);
    ::close(fd);
}

// Waiting

TEST(TCP_client_task, goes_on_after_a_signal)
{
    const Listening_peer peer;
    Debug_output output;
    struct sigaction ignoring {};
    struct sigaction before {};
    ignoring.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &ignoring, &before));
    Reading_task task(peer.port);
    task.open();
    const int fd = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL));
    EXPECT_TRUE(eventually([&] { // one may come before it waits
        pthread_kill(task.comms_thread.native_handle(), SIGUSR1);
        return output.wait_for(Debug_output::PRINT, INTERRUPTED, 1, milliseconds(20));
    }));
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    task.close();
    EXPECT_EQ(1, output.count(Debug_output::PRINT, ATTEMPTING));
    EXPECT_EQ(0, output.count(Debug_output::PRINT, SOCKET_ERROR));
    sigaction(SIGUSR1, &before, nullptr);
    ::close(fd);
}

namespace {

/// Answers select() once in the system's place.
struct Scripted_select : Interposed_calls {
    int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) override
    {
        EXPECT_EQ(nullptr, timeout);
        EXPECT_EQ(nullptr, writable);
        if (done.exchange(true))
            return Interposed_calls::select(count, readable, writable, exceptional, timeout);
        if (leaves_nothing) {
            FD_ZERO(readable);
            FD_ZERO(exceptional);
        }
        return fail_with(error);
    }
    int error = ENOMEM;
    bool leaves_nothing = false;
    std::atomic<bool> done{false};
};

std::string select_failed(int error)
{
    return std::string("TCP_client_task: select() failed: ") + std::strerror(error) + "\n";
}

} // namespace

TEST(TCP_client_task, takes_every_set_for_full_where_select_fails_and_leaves_them_so)
{
    for (const int error : {ENOMEM, EBADF, EINVAL, EAGAIN}) {
        const Listening_peer peer;
        Debug_output output;
        Scripted_select calls;
        calls.error = error;
        Reading_task task(peer.port);
        task.open();
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
        task.close();
        EXPECT_THAT(printed(output),
                    ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, select_failed(error),
                                SOCKET_ERROR, ATTEMPTING, connected(peer.port), SUCCESSFUL, JOINING));
    }
}

TEST(TCP_client_task, goes_on_with_the_connection_where_select_fails_and_empties_the_sets)
{
    const Listening_peer peer;
    Debug_output output;
    Scripted_select calls;
    calls.leaves_nothing = true;
    Reading_task task(peer.port);
    task.open();
    const int fd = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, select_failed(ENOMEM)));
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    EXPECT_EQ(1, output.count(Debug_output::PRINT, ATTEMPTING));
    ::close(fd);
}

TEST(TCP_client_task, looks_at_nothing_after_an_interrupted_select)
{
    const Listening_peer peer;
    Debug_output output;
    Scripted_select calls; // leaves the sets full
    calls.error = EINTR;
    Reading_task task(peer.port);
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, INTERRUPTED));
    task.close();
    EXPECT_THAT(printed(output),
                ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, INTERRUPTED, JOINING));
}

TEST(TCP_client_task, finds_out_by_select_that_a_handler_closed_its_descriptor)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.on_read = [](int sd) { return ::close(sd); };
    task.open();
    const int first = peer.accept();
    send(first, "x");
    const int second = peer.accept();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
    EXPECT_EQ(1, output.count(Debug_output::PRINT, select_failed(EBADF)));
    EXPECT_EQ(1, output.count(Debug_output::PRINT, SOCKET_ERROR));
    task.close();
    ::close(first);
    ::close(second);
}

TEST(TCP_client_task, handles_nothing_once_it_is_closed)
{
    for (const bool error : {false, true}) {
        struct Calls : Interposed_calls {
            int select(int, fd_set*, fd_set*, fd_set* exceptional, timeval*) override
            {
                task->running = false; // a close() by now
                if (!with_error)
                    FD_ZERO(exceptional);
                return 1; // all else is ready
            }
            Task* task = nullptr;
            bool with_error = false;
        };
        const Listening_peer peer;
        Debug_output output;
        Calls calls;
        Task task(peer.port);
        calls.task = &task;
        calls.with_error = error;
        task.has_data = [] { return true; };
        task.on_read = [](int) {
            ADD_FAILURE();
            return 0;
        };
        task.on_write = [](int) { ADD_FAILURE(); };
        task.open();
        const int fd = peer.accept();
        EXPECT_TRUE(ends(fd));
        task.close();
        char bytes[2];
        EXPECT_EQ(1, ::read(task.notify_pipe[0], bytes, 2)); // close()'s
        EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, connected(peer.port), SUCCESSFUL, JOINING));
        ::close(fd);
    }
}

TEST(TCP_client_task, watches_the_socket_and_the_pipe)
{
    struct Calls : Interposed_calls {
        int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                   timeval* timeout) override
        {
            for (int fd = 0; fd < count; ++fd) {
                const std::lock_guard<std::mutex> lock(mutex);
                if (FD_ISSET(fd, readable))
                    read_set.insert(fd);
                if (writable != nullptr && FD_ISSET(fd, writable))
                    write_set.insert(fd);
                if (FD_ISSET(fd, exceptional))
                    exception_set.insert(fd);
                highest = count - 1;
            }
            ++waits;
            return Interposed_calls::select(count, readable, writable, exceptional, timeout);
        }
        std::mutex mutex;
        std::set<int> read_set;
        std::set<int> write_set;
        std::set<int> exception_set;
        int highest = -1;
        std::atomic<int> waits{0};
    };
    for (const bool pipe_is_higher : {false, true}) {
        const Listening_peer peer;
        const Debug_output output;
        Calls calls;
        const int gap = ::dup(0); // a number below the pipe's
        Task task(peer.port);
        std::atomic<int> sd{-1};
        std::atomic<bool> data{true};
        task.has_data = [&data] { return data.load(); };
        task.on_write = [&](int written) {
            sd = written;
            data = false;
        };
        if (pipe_is_higher)
            ::close(gap);
        task.open();
        const int fd = peer.accept();
        EXPECT_TRUE(eventually([&calls] { return calls.waits >= 2; }));
        task.close();
        const int pipe = task.notify_pipe[0];
        EXPECT_EQ((std::set<int>{sd, pipe}), calls.read_set);
        EXPECT_EQ((std::set<int>{sd}), calls.write_set);
        EXPECT_EQ((std::set<int>{sd}), calls.exception_set);
        EXPECT_EQ(std::max<int>(sd, pipe), calls.highest);
        EXPECT_EQ(pipe_is_higher, pipe > sd);
        if (!pipe_is_higher)
            ::close(gap);
        ::close(fd);
    }
}

// The pipe

TEST(TCP_client_task, reports_a_byte_in_the_pipe_that_it_did_not_write)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.open();
    const int fd = peer.accept();
    ASSERT_EQ(2, ::write(task.notify_pipe[1], "\x01\xFF", 2));
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, UNEXPECTED, 2));
    task.notify_write_data_avail();
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    EXPECT_EQ(2, output.count(Debug_output::PRINT, UNEXPECTED));
    ::close(fd);
}

TEST(TCP_client_task, reports_a_wake_byte_that_it_cannot_read)
{
    struct Calls : Interposed_calls {
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            if (fd != pipe || refusals == 0)
                return Interposed_calls::read(fd, data, size);
            EXPECT_EQ(1U, size);
            --refusals;
            return fail_with(EIO);
        }
        std::atomic<int> pipe{-1};
        std::atomic<int> refusals{2};
    };
    const Listening_peer peer;
    Debug_output output;
    Calls calls;
    Reading_task task(peer.port);
    calls.pipe = task.notify_pipe[0];
    task.open();
    const int fd = peer.accept();
    task.notify_write_data_avail();
    EXPECT_TRUE(output.wait_for(Debug_output::PERROR, "TCP_client_task::do_thread", 2));
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    EXPECT_THAT(errors(output, "TCP_client_task::do_thread"), ElementsAre(EIO, EIO));
    EXPECT_EQ(0, output.count(Debug_output::PRINT, UNEXPECTED));
    ::close(fd);
}

TEST(TCP_client_task, reports_a_wake_byte_that_it_cannot_write)
{
    struct Calls : Interposed_calls {
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            return fd == pipe ? fail_with(EIO) : Interposed_calls::write(fd, data, size);
        }
        std::atomic<int> pipe{-1};
    };
    Debug_output output;
    Calls calls;
    Reading_task task(1);
    calls.pipe = task.notify_pipe[1];
    task.notify_write_data_avail();
    calls.pipe = -1;
    EXPECT_THAT(errors(output, "TCP_client_task::notify_write_data_avail"), ElementsAre(EIO));
}

TEST(TCP_client_task, does_not_wait_for_room_in_the_pipe)
{
    Debug_output output;
    const Scripted_connect calls;
    Reading_task task(2101); // nobody empties it while there is no connection
    task.set_reconnect_period(1);
    task.open();
    const std::string report = "TCP_client_task::notify_write_data_avail";
    for (int i = 0; i < 2000 && output.count(Debug_output::PERROR, report) == 0; ++i)
        for (int k = 0; k < 1000; ++k)
            task.notify_write_data_avail();
    EXPECT_THAT(errors(output, report), Each(EAGAIN));
    EXPECT_FALSE(errors(output, report).empty());
    EXPECT_TRUE(task.close());
}

namespace {

struct No_pipe : Interposed_calls {
    int pipe2(int*, int) override { return fail_with(EMFILE); }
};

} // namespace

TEST(TCP_client_task, says_that_it_has_no_pipe_and_works_without)
{
    const Listening_peer peer;
    Debug_output output;
    const No_pipe calls;
    const auto before = open_descriptors();
    Reading_task task(peer.port);
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(-1, task.notify_pipe[0]);
    EXPECT_EQ(-1, task.notify_pipe[1]);
    EXPECT_TRUE(task.running);
    EXPECT_THAT(printed(output), ElementsAre("TCP_client_task: pipe create"));
    task.open();
    const int fd = peer.accept();
    send(fd, "abc");
    EXPECT_TRUE(task.has_received("abc"));
    ::close(fd); // and it tries again, for close() to be noticed
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL, 2));
    const int again = peer.accept();
    std::atomic<bool> closed{false};
    std::thread closing([&] {
        EXPECT_TRUE(task.close());
        closed = true;
    });
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, JOINING));
    EXPECT_THAT(errors(output, "TCP_client_task::notify_write_data_avail"), ElementsAre(EBADF));
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_FALSE(closed);
    send(again, "x"); // what wakes it
    closing.join();
    ::close(again);
}

// Opening and closing

TEST(TCP_client_task, writes_the_wake_byte_when_it_is_closed_without_having_been_opened)
{
    Debug_output output;
    Reading_task task(1);
    EXPECT_FALSE(task.close());
    EXPECT_THAT(printed(output), IsEmpty());
    unsigned char bytes[2] = {0xFF, 0xFF};
    EXPECT_EQ(1, ::read(task.notify_pipe[0], bytes, 2));
    EXPECT_EQ(0, bytes[0]);
    EXPECT_FALSE(task.running);
}

TEST(TCP_client_task, opens_after_a_close_that_found_no_thread)
{
    const Listening_peer peer;
    const Debug_output output;
    Reading_task task(peer.port);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(task.close());
        EXPECT_FALSE(task.close());
        EXPECT_TRUE(task.open());
        ::close(peer.accept());
        EXPECT_TRUE(task.close());
    }
}

TEST(TCP_client_task, closes_once)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    task.open();
    EXPECT_TRUE(task.close());
    EXPECT_FALSE(task.close());
    EXPECT_EQ(1, output.count(Debug_output::PRINT, JOINING));
}

TEST(TCP_client_task, opens_again_after_a_close)
{
    const Listening_peer peer;
    const Debug_output output;
    Reading_task task(peer.port);
    std::string all;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(task.open());
        const int fd = peer.accept();
        send(fd, "abc");
        EXPECT_TRUE(task.has_received(all += "abc"));
        EXPECT_TRUE(task.close());
        EXPECT_TRUE(task.running);
        EXPECT_FALSE(task.comms_thread.joinable());
        EXPECT_TRUE(ends(fd));
        ::close(fd);
    }
}

TEST(TCP_client_task, closes_while_it_connects)
{
    struct Calls : Interposed_calls {
        int connect(int fd, const sockaddr* address, socklen_t size) override
        {
            std::unique_lock<std::mutex> lock(mutex);
            connecting = true;
            changed.notify_all();
            changed.wait(lock, [this] { return answered; });
            return refused ? fail_with(ECONNREFUSED) : Interposed_calls::connect(fd, address, size);
        }
        void wait_until_connecting()
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [this] { return connecting; });
        }
        void answer()
        {
            const std::lock_guard<std::mutex> lock(mutex);
            answered = true;
            changed.notify_all();
        }
        bool refused = false;
        std::mutex mutex;
        std::condition_variable changed;
        bool connecting = false;
        bool answered = false;
    };
    for (const bool refused : {false, true}) {
        const Listening_peer peer;
        Debug_output output;
        Calls calls;
        calls.refused = refused;
        Reading_task task(peer.port);
        task.open();
        calls.wait_until_connecting();
        std::thread closing([&task] { EXPECT_TRUE(task.close()); });
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, JOINING));
        calls.answer();
        closing.join();
        EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, JOINING,
                                                 refused ? not_connected(peer.port) : connected(peer.port),
                                                 refused ? FAILED : SUCCESSFUL));
        EXPECT_TRUE(task.running);
        if (!refused) {
            const int fd = peer.accept();
            EXPECT_TRUE(ends(fd));
            ::close(fd);
        }
    }
}

TEST(TCP_client_task, tries_nothing_when_it_is_closed_before_the_first_attempt)
{
    struct Calls : Interposed_calls {
        int socket(int domain, int type, int protocol) override
        {
            ++sockets;
            return Interposed_calls::socket(domain, type, protocol);
        }
        std::atomic<int> sockets{0};
    };
    const Listening_peer peer;
    Debug_output output;
    Calls calls;
    Reading_task task(peer.port);
    // The thread is on its way to the attempt, and goes on when close() has told it to stop.
    output.hold(ATTEMPTING, JOINING);
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, ATTEMPTING));
    EXPECT_TRUE(task.close());
    EXPECT_THAT(printed(output), ElementsAre(ATTEMPTING, JOINING, FAILED));
    EXPECT_EQ(0, calls.sockets);
    EXPECT_TRUE(task.running);
}

TEST(TCP_client_task, closes_while_the_connection_is_tried_with_a_time_limit)
{
    const Peer peer(0);
    Debug_output output;
    std::vector<int> queue; // more than it takes: the system drops what comes then
    for (int i = 0; i < 3; ++i) {
        queue.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(peer.port));
        ::connect(queue.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    Reading_task task(peer.port);
    task.set_connect_timeout(100);
    task.set_reconnect_period(20000);
    task.open();
    EXPECT_TRUE(output.wait_for(Debug_output::PRINT, ATTEMPTING));
    EXPECT_TRUE(task.close());
    EXPECT_GE(2, output.count(Debug_output::PRINT, not_connected(peer.port))); // where close() was late
    std::vector<std::string> texts = printed(output);
    texts.erase(std::remove(texts.begin(), texts.end(), JOINING), texts.end()); // of the other thread
    EXPECT_EQ(FAILED, texts.back());
    for (const int fd : queue)
        ::close(fd);
}

TEST(TCP_client_task, closes_while_handle_write_is_offered_again_and_again)
{
    const Listening_peer peer;
    const Debug_output output;
    std::atomic<int> writes{0};
    Task task(peer.port);
    task.has_data = [] { return true; };
    task.on_write = [&writes](int) {
        ++writes;
        std::this_thread::sleep_for(milliseconds(1));
    };
    task.open();
    EXPECT_TRUE(eventually([&writes] { return writes >= 3; }));
    EXPECT_TRUE(task.close());
    const int after = writes;
    std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(after, writes);
}

TEST(TCP_client_task, waits_for_its_thread_when_it_is_destroyed_between_attempts)
{
    struct Forgetful_task : TCP_client_task {
        using TCP_client_task::TCP_client_task;
        int handle_read(int) override { return 0; }
        void handle_write(int) override {}
    };
    Debug_output output;
    const Scripted_connect calls;
    const auto before_fds = open_descriptors();
    const auto before_threads = threads();
    {
        Forgetful_task task("127.0.0.1", 2101);
        task.set_reconnect_period(20);
        task.open();
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(2101)));
    }
    EXPECT_EQ(1, output.count(Debug_output::PRINT, JOINING));
    EXPECT_EQ(before_fds, open_descriptors());
    EXPECT_TRUE(no_more_threads_than(before_threads));
}

TEST(TCP_client_task, does_not_open_where_the_system_has_no_thread)
{
    const Listening_peer peer;
    Debug_output output;
    Reading_task task(peer.port);
    no_threads = true;
    EXPECT_FALSE(task.open());
    no_threads = false;
    ASSERT_EQ(1U, printed(output).size());
    EXPECT_EQ(0U, printed(output).at(0).find("TCP_client_task: cannot start the comms thread: "));
    EXPECT_TRUE(task.open());
    ::close(peer.accept());
}

namespace {

void say(const std::string& what)
{
    static_cast<void>(std::fputs(("about to " + what + "\n").c_str(), stderr));
}

/// What a process says that came to its end over what it was about to do.
testing::Matcher<const std::string&> Refused(const std::string& what, const std::string& how)
{
    return testing::AllOf(testing::HasSubstr("about to " + what), testing::HasSubstr("terminate called"),
                          testing::HasSubstr(how));
}

} // namespace

TEST(TCP_client_task_death, ends_the_process_rather_than_overwrite_a_running_thread)
{
    EXPECT_EXIT(
        {
            const Listening_peer peer;
            Reading_task task(peer.port);
            task.open();
            say("again");
            task.open();
        },
        testing::KilledBySignal(SIGABRT), Refused("again", "without an active exception"));
}

TEST(TCP_client_task_death, ends_the_process_rather_than_overwrite_a_thread_that_is_through)
{
    EXPECT_EXIT(
        {
            const Listening_peer peer;
            Reading_task task(peer.port);
            task.open();
            task.running = false;
            task.notify_write_data_avail();
            eventually([&task] { return task.running.load(); }); // its last act
            say("again");
            task.open();
        },
        testing::KilledBySignal(SIGABRT), Refused("again", "without an active exception"));
}

TEST(TCP_client_task_death, ends_the_process_when_its_own_thread_closes_it)
{
    EXPECT_EXIT(
        {
            const Listening_peer peer;
            Reading_task task(peer.port);
            task.on_read = [&task](int) {
                say("close");
                return task.close() ? 0 : -1;
            };
            task.open();
            send(peer.accept(), "x");
            std::this_thread::sleep_for(milliseconds(LIMIT_MS));
        },
        testing::KilledBySignal(SIGABRT), Refused("close", "'std::system_error'"));
}

TEST(TCP_client_task_death, ends_the_process_when_its_own_thread_destroys_it)
{
    struct Suicidal_task : TCP_client_task {
        using TCP_client_task::TCP_client_task;
        int handle_read(int) override
        {
            say("destroy");
            delete this;
            return 0;
        }
        void handle_write(int) override {}
    };
    EXPECT_EXIT(
        {
            const Listening_peer peer;
            auto* const task = new Suicidal_task("127.0.0.1", peer.port);
            task->open();
            send(peer.accept(), "x");
            std::this_thread::sleep_for(milliseconds(LIMIT_MS));
        },
        testing::KilledBySignal(SIGABRT),
        // Clang's code destroys the thread, which is still there, before the exception is given up on.
        testing::AnyOf(Refused("destroy", "'std::system_error'"),
                       Refused("destroy", "without an active exception")));
}

// What a process goes through in the field

TEST(TCP_client_task, finds_its_peer_again_200_times_however_it_goes)
{
    enum Going { RESETS, CLOSES, SENDS_AND_CLOSES, HALF_CLOSES };
    const Listening_peer peer;
    const Debug_output output;
    Reading_task task(peer.port);
    task.set_reconnect_period(1);
    task.open();
    long fds = 0;
    std::set<std::string> running;
    for (int i = 0; i < 200; ++i) {
        const int fd = peer.accept();
        ASSERT_LE(0, fd);
        if (i == 0) {
            fds = open_descriptors();
            running = threads();
        }
        const auto going = static_cast<Going>(i % 4);
        const linger none{1, 0};
        if (going == RESETS)
            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none);
        if (going == SENDS_AND_CLOSES)
            send(fd, "abc");
        if (going == HALF_CLOSES) {
            ::shutdown(fd, SHUT_WR);
            EXPECT_TRUE(ends(fd)); // the task closes its side
        }
        ::close(fd);
    }
    const int last = peer.accept();
    EXPECT_EQ(fds, open_descriptors());
    EXPECT_TRUE(no_more_threads_than(running));
    ::close(last);
}

TEST(TCP_client_task, finds_a_peer_that_was_gone_for_a_while_200_times)
{
    Debug_output output;
    Scripted_connect calls;
    const Listening_peer peer;
    calls.error = 0;
    Reading_task task(peer.port);
    task.set_reconnect_period(1);
    task.open();
    long fds = 0;
    for (int i = 0; i < 200; ++i) {
        const int fd = peer.accept();
        if (i == 0)
            fds = open_descriptors();
        calls.error = ECONNREFUSED;
        ::close(fd);
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, not_connected(peer.port)));
        calls.error = 0;
        EXPECT_TRUE(output.wait_for(Debug_output::PRINT, SUCCESSFUL));
        output.clear();
    }
    const int last = peer.accept();
    EXPECT_EQ(fds, open_descriptors());
    ::close(last);
}

TEST(TCP_client_task, opens_and_closes_200_times_without_leaving_a_descriptor_or_a_thread)
{
    const Listening_peer peer;
    const Debug_output output;
    const auto fds = open_descriptors();
    const auto before = threads();
    for (int i = 0; i < 200; ++i) {
        Reading_task task(peer.port);
        task.open();
        if (i % 2 == 0)
            ::close(peer.accept());
        task.close();
        if (i % 2 != 0) { // closed before or after it connected
            task.open();
            task.close();
        }
    }
    EXPECT_EQ(fds, open_descriptors());
    EXPECT_TRUE(no_more_threads_than(before));
}

namespace {

/// Linux's select() takes sets of any size; an emulator of it may come to its end over one.
bool select_takes_high_descriptors()
{
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::fcntl(0, F_DUPFD, 3 * FD_SETSIZE / 2);
        fd_set sets[2] = {};
        FD_SET(fd - FD_SETSIZE, &sets[1]);
        timeval none{};
        _exit(fd >= 0 && ::select(fd + 1, sets, nullptr, nullptr, &none) >= 0 ? 0 : 1);
    }
    int status = 1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

TEST(TCP_client_task, works_beyond_the_descriptors_that_a_descriptor_set_holds)
{
    Many_descriptors many;
    if (!many.are_open())
        GTEST_SKIP() << "the hard limit of descriptors is below " << Many_descriptors::COUNT;
    if (!select_takes_high_descriptors())
        GTEST_SKIP() << "this system's select() ends at descriptor " << FD_SETSIZE;
    const Listening_peer peer;
    Debug_output output;
    std::atomic<int> sd{-1};
    std::atomic<int> to_write{1};
    Task task(peer.port);
    ASSERT_LE(Many_descriptors::COUNT, task.notify_pipe[0]);
    task.has_data = [&to_write] { return to_write > 0; };
    task.on_write = [&](int written) {
        sd = written;
        --to_write;
        send(written, "abc");
    };
    task.open();
    const int first = peer.accept();
    EXPECT_EQ("abc", receive(first, 3));
    EXPECT_LE(Many_descriptors::COUNT, sd);
    send(first, "xyz");
    EXPECT_TRUE(task.has_received("xyz"));
    send(first, "!", MSG_OOB);
    const int second = peer.accept(); // the exception set works too
    many.release();                   // from here on the pipe is high, and the next socket low
    ::close(second);
    const int third = peer.accept();
    ++to_write;
    task.notify_write_data_avail();
    EXPECT_EQ("abc", receive(third, 3));
    EXPECT_GT(FD_SETSIZE, sd);
    EXPECT_TRUE(task.close());
    EXPECT_EQ(1, output.count(Debug_output::PRINT, SOCKET_ERROR));
    ::close(first);
    ::close(third);
}

// Any course of events

namespace {

/// What happens at one turn of the comms thread's loop.
struct Turn {
    bool data;     ///< is_write_data_avail()
    int error;     ///< of select(); 0: it succeeds
    bool wake;     ///< what select() leaves in the sets: the pipe's end
    bool readable; ///< the connection, in each of the sets
    bool writable;
    bool exceptional;
    char wake_byte; ///< 0, or what nobody wrote
    bool wake_fails;
    bool read_fails; ///< handle_read()
};

Turn random_turn(std::mt19937& random)
{
    const auto one_in = [&random](unsigned n) { return random() % n == 0; };
    const int errors[] = {0, 0, 0, 0, 0, EINTR, EBADF, ENOMEM};
    return {one_in(2), errors[random() % 8],         one_in(3), one_in(2), one_in(2),
            one_in(8), static_cast<char>(one_in(4)), one_in(4), one_in(4)};
}

/// Plays turns, then leaves the waiting to the system.
struct Played : Interposed_calls {
    int connect(int, const sockaddr*, socklen_t) override { return 0; }
    int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) override
    {
        const bool over = next >= turns.size();
        if (!over) {
            const Turn& turn = turns[next++];
            EXPECT_EQ(turn.data, writable != nullptr);
            for (int fd = 0; fd < count; ++fd) {
                const bool is_pipe = fd == pipe;
                leave(readable, fd, is_pipe ? turn.wake : turn.readable);
                leave(writable, fd, turn.writable);
                leave(exceptional, fd, turn.exceptional);
            }
            return turn.error == 0 ? 1 : fail_with(turn.error);
        }
        done = true;
        FD_ZERO(readable);
        FD_ZERO(exceptional);
        FD_SET(pipe, readable);
        return Interposed_calls::select(count, readable, nullptr, nullptr, timeout);
    }
    ssize_t read(int fd, void* data, std::size_t size) override
    {
        if (fd != pipe)
            return Interposed_calls::read(fd, data, size);
        *static_cast<char*>(data) = turn().wake_fails ? '\0' : turn().wake_byte;
        return turn().wake_fails ? fail_with(EIO) : 1;
    }
    static void leave(fd_set* set, int fd, bool there)
    {
        if (set != nullptr && !there)
            FD_CLR(fd, set);
    }
    const Turn& turn() const
    {
        static constexpr Turn NONE{};
        EXPECT_NE(0U, next) << "there was no turn yet";
        return next == 0 ? NONE : turns[next - 1];
    }

    int pipe = -1;
    std::vector<Turn> turns;
    std::size_t next = 0; ///< of the comms thread
    std::atomic<bool> done{false};
};

std::vector<std::string> expected_course(const std::vector<Turn>& turns, int port)
{
    std::vector<std::string> said;
    bool open = false;
    const auto say = [&said](const std::string& text) { said.push_back(text); };
    const auto connect = [&] {
        if (!open)
            for (const std::string& text : {ATTEMPTING, connected(port), SUCCESSFUL})
                say(text);
        open = true;
    };
    for (const Turn& turn : turns) {
        connect();
        if (turn.error == EINTR) {
            say(INTERRUPTED);
            continue;
        }
        if (turn.error != 0)
            say(select_failed(turn.error));
        if (turn.exceptional) {
            say(SOCKET_ERROR);
            open = false;
            continue;
        }
        if (turn.wake && turn.wake_fails)
            say("TCP_client_task::do_thread");
        else if (turn.wake && turn.wake_byte != 0)
            say(UNEXPECTED);
        if (turn.readable) {
            say(READABLE);
            say("handle_read");
            open = !turn.read_fails;
        }
        if (open && turn.data && turn.writable) {
            say(WRITABLE);
            say("handle_write");
        }
    }
    connect();
    return said;
}

} // namespace

TEST(TCP_client_task, goes_through_any_course_of_events_as_its_model_does)
{
    constexpr int COURSES = 400;
    std::mt19937 random(72);
    for (int course = 0; course < COURSES; ++course) {
        Debug_output output;
        Played played;
        for (auto i = random() % 60; i > 0; --i)
            played.turns.push_back(random_turn(random));
        Task task(2101);
        played.pipe = task.notify_pipe[0];
        task.has_data = [&played] {
            return played.next < played.turns.size() && played.turns[played.next].data;
        };
        task.on_read = [&played](int) {
            Debug::Channel::print(CATEGORY, "handle_read");
            return played.turn().read_fails ? -1 : 0;
        };
        task.on_write = [](int) { Debug::Channel::print(CATEGORY, "handle_write"); };
        task.open();
        ASSERT_TRUE(eventually([&played] { return played.done.load(); })) << "course " << course;
        std::vector<std::string> said;
        for (const Debug_output::Line& line : output.lines())
            said.push_back(line.text);
        task.close();
        ASSERT_THAT(said, ElementsAreArray(expected_course(played.turns, 2101))) << "course " << course;
    }
}
