#include "util/net/TCP_client_task.h"

#include "platform/Debug.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr int DEBUG_CATEGORY = 107;
constexpr int SLEEPS_PER_PERIOD = 20;

/// A set of descriptors for select(2) that is as large as it must be. FD_SETSIZE is only what one fd_set has
/// room for; Linux reads as much of a set as the highest descriptor asks for.
class Descriptor_set {
public:
    void clear(int highest) { blocks.assign(static_cast<std::size_t>(highest) / FD_SETSIZE + 1, fd_set{}); }
    void insert(int fd)
    {
        if (fd >= 0)
            FD_SET(fd % FD_SETSIZE, &blocks[static_cast<std::size_t>(fd) / FD_SETSIZE]);
    }
    bool contains(int fd) const
    {
        return fd >= 0 && FD_ISSET(fd % FD_SETSIZE, &blocks[static_cast<std::size_t>(fd) / FD_SETSIZE]);
    }
    fd_set* get() { return blocks.data(); }

private:
    std::vector<fd_set> blocks;
};

} // namespace

/// What the comms thread waits for, and what came of it.
///
/// With select(2), not poll(2): the thread goes by what select() calls readable, writable and exceptional,
/// and by what it leaves in the sets when it fails.
class TCP_client_task::Watch {
public:
    void set(int sd, int wake_end, bool with_write_set)
    {
        highest = std::max(sd, wake_end);
        for (Descriptor_set* each : {&readable, &writable, &exceptional})
            each->clear(highest);
        readable.insert(sd);
        readable.insert(wake_end);
        exceptional.insert(sd);
        writing = with_write_set;
        if (writing)
            writable.insert(sd);
    }

    /// @return false when a signal came instead
    bool wait()
    {
        fd_set* const write_set = writing ? writable.get() : nullptr;
        if (::select(highest + 1, readable.get(), write_set, exceptional.get(), nullptr) >= 0)
            return true;
        if (errno == EINTR) {
            Debug::Channel::print(DEBUG_CATEGORY, "select interrupted\n");
            return false;
        }
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: select() failed: %s\n", std::strerror(errno));
        return true;
    }

    bool is_readable(int fd) const { return readable.contains(fd); }
    bool is_writable(int fd) const { return writing && writable.contains(fd); }
    bool is_exceptional(int fd) const { return exceptional.contains(fd); }

private:
    int highest = -1;
    bool writing = false;
    Descriptor_set readable;
    Descriptor_set writable;
    Descriptor_set exceptional;
};

TCP_client_task::TCP_client_task() : reconnect_period_ms(1000), connect_timeout_ms(-1)
{
    init();
}

TCP_client_task::TCP_client_task(const char* new_address, int new_port)
    : TCP_client(new_address, new_port), reconnect_period_ms(1000), connect_timeout_ms(-1)
{
    init();
}

bool TCP_client_task::is_write_data_avail()
{
    return false;
}

TCP_client_task::~TCP_client_task()
{
    close();
    for (int& end : notify_pipe) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}

void TCP_client_task::init()
{
    // Applications derive from it: the layout stays.
    static_assert(sizeof(void*) != 4 || sizeof(TCP_client_task) == 292);
    notify_pipe[0] = notify_pipe[1] = -1;
    // Non-blocking: close() must get through, and a producer go on, when nobody empties a full pipe.
    if (::pipe2(notify_pipe, O_NONBLOCK) != 0)
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: pipe create"); // no newline: it is meant
    running = true;
}

bool TCP_client_task::open()
{
    if (comms_thread.joinable())
        std::terminate();
    running = true; // a close() without a thread has left it false
    try {
        comms_thread = std::thread(thread_starter, this);
    } catch (const std::system_error& error) {
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: cannot start the comms thread: %s\n",
                              error.what());
        return false;
    }
    return true;
}

bool TCP_client_task::close()
{
    running = false;
    notify_write_data_avail();
    if (!comms_thread.joinable())
        return false;
    Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: joining on comms thread\n");
    comms_thread.join();
    return true;
}

void TCP_client_task::notify_write_data_avail()
{
    const char wake = 0;
    if (::write(notify_pipe[1], &wake, 1) != 1)
        std::perror("TCP_client_task::notify_write_data_avail");
}

void TCP_client_task::set_reconnect_period(int ms)
{
    reconnect_period_ms = ms;
}

void TCP_client_task::set_connect_timeout(int ms)
{
    connect_timeout_ms = ms;
}

void* TCP_client_task::thread_starter(void* task)
{
    static_cast<TCP_client_task*>(task)->do_thread();
    return nullptr;
}

void TCP_client_task::do_thread()
{
    name_thread();
    Watch watch;
    while (running) {
        if (sd < 0)
            reopen();
        if (sd < 0)
            continue;
        watch.set(sd, notify_pipe[0], is_write_data_avail());
        if (!watch.wait())
            continue;
        if (!running)
            break;
        serve(watch);
    }
    if (sd >= 0)
        drop_connection();
    running = true; // for the thread of the next open()
}

void TCP_client_task::name_thread() const
{
    const std::size_t length = std::strlen(address);
    const char* const ending = address + (length > 4 ? length - 4 : 0); // a thread's name has 15 characters
    char name[512];
    static_cast<void>(std::snprintf(name, sizeof name, "TCT_%s:%d", ending, port));
    ::pthread_setname_np(::pthread_self(), name);
}

void TCP_client_task::reopen()
{
    Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: attempting to (re)open socket\n");
    if (running) {
        // Deliberate: a close() during the wait is followed by one more attempt.
        while (!open_nonblocking() && running)
            wait_for_next_attempt();
    }
    // Deliberate: a descriptor of 0 works, and is called failed.
    Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: socket (re)open %s\n",
                          sd > 0 ? "successful" : "failed");
}

bool TCP_client_task::open_nonblocking()
{
    sd = open_connection(connect_timeout_ms);
    if (sd < 0)
        return false;
    const int flags = ::fcntl(sd, F_GETFL);
    if (flags >= 0 && ::fcntl(sd, F_SETFL, flags | O_NONBLOCK) >= 0)
        return true;
    const int error = errno;
    drop_connection();
    errno = error;
    std::perror("TCP_client_task: fcntl(O_SETFL O_NONBLOCK)");
    return false;
}

// Twenty short sleeps, not one long one: close() is noticed within a twentieth of the period.
void TCP_client_task::wait_for_next_attempt()
{
    for (int i = 0; i < SLEEPS_PER_PERIOD && running; ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(std::int64_t{50} * reconnect_period_ms));
}

void TCP_client_task::serve(const Watch& watch)
{
    if (watch.is_exceptional(sd)) {
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: socket error\n");
        drop_connection();
        return;
    }
    if (watch.is_readable(notify_pipe[0]))
        read_wake_byte();
    if (watch.is_readable(sd)) {
        Debug::Channel::print(DEBUG_CATEGORY, "sd set in read_set\n");
        if (handle_read(sd) < 0) {
            drop_connection();
            return;
        }
    }
    if (watch.is_writable(sd)) {
        Debug::Channel::print(DEBUG_CATEGORY, "sd set in write_set\n");
        handle_write(sd);
    }
}

void TCP_client_task::read_wake_byte()
{
    char wake = 0;
    if (::read(notify_pipe[0], &wake, 1) != 1)
        std::perror("TCP_client_task::do_thread");
    if (wake != 0)
        Debug::Channel::print(DEBUG_CATEGORY, "TCP_client_task: received unexpected value\n");
}

void TCP_client_task::drop_connection()
{
    ::close(sd);
    sd = -1;
}
