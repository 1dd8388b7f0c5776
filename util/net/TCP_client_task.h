#pragma once

#include "util/export.h"
#include "util/net/TCP_client.h"

#include <atomic>
#include <cstdint>
#include <thread>

/// Keeps a connection to one TCP peer alive on a thread of its own, the comms thread, and tells a derived
/// class when it can read and write. What is read and written is the derived class's affair.
///
/// The comms thread connects, waits, and connects again whenever the connection fails or is lost, from open()
/// until close(). It is named "TCT_", the last four characters of the address, ":" and the port.
///
/// The comms thread: handle_read(), handle_write(), is_write_data_avail().
/// Any thread: notify_write_data_avail(), set_reconnect_period(), set_connect_timeout().
/// Any thread but the comms thread, one at a time: open(), close(), the destructor.
///
/// **The destructor of the class that derives has to call close()**: the handlers are gone when this one's
/// destructor does, and the comms thread may be about to call them.
class QUARVEL_EXPORT TCP_client_task : private TCP_client {
public:
    /// As TCP_client's of the same parameters; the peer does not change later. Connects to nothing yet.
    /// @{
    TCP_client_task();
    TCP_client_task(const char* address, int port);
    /// @}

    /// The peer sent, has closed, or the connection is broken: a read tells.
    ///
    /// Called again and again for as long as there is something to read, so it need not read everything.
    /// @param sd  the connection, non-blocking; the task closes it
    /// @return negative to have the connection closed and opened anew; a handler that does not answer so at
    ///         the end of the stream is called again at once
    virtual int handle_read(int sd) = 0;

    /// There is room to write into, and is_write_data_avail() said that there is something to write.
    ///
    /// @param sd  the connection, non-blocking; writing to a broken one raises SIGPIPE unless it is ignored
    virtual void handle_write(int sd) = 0;

    /// Whether handle_write() is to be called as soon as the peer takes data;
    /// asked before each wait. Here: no.
    virtual bool is_write_data_avail();

    /// close(), then the pipe. Ends the process when the comms thread cannot be joined:
    /// when it is the caller.
    virtual ~TCP_client_task();

    /// Makes the wake-up pipe; the constructors call it. A failure is printed, and nothing can wake the comms
    /// thread from its wait then.
    void init();

    /// Starts the comms thread. Ends the process (std::terminate) where one is held already: between two
    /// calls lies a close().
    ///
    /// @return true; false when the system has no thread to give, after a message
    bool open();

    /// Ends the comms thread and the connection.
    ///
    /// Waits for a handler to return, for a connection attempt to end (see set_connect_timeout()), and,
    /// between two attempts, for one more.
    /// @return false when no thread was held; the task can be opened (again) all the same
    bool close();

    /// Has the comms thread ask is_write_data_avail() anew. Never waits;
    /// an overfull pipe is reported by perror.
    void notify_write_data_avail();

    /// Time between the end of an attempt to connect and the next; 1000 at first, 0 or less for none.
    void set_reconnect_period(int ms);

    /// Limit for connecting, as open_connection() of TCP_client takes it; -1 at first.
    void set_connect_timeout(int ms);

protected:
    int notify_pipe[2];                            ///< read end, write end; -1 when absent
    std::atomic<std::int32_t> reconnect_period_ms; ///< see set_reconnect_period()
    std::atomic<std::int32_t> connect_timeout_ms;  ///< see set_connect_timeout()
    std::thread comms_thread;                      ///< held from open() to close()
    std::atomic<bool> running;                     ///< the comms thread is to go on; close() takes it back

private:
    class Watch;

    static void* thread_starter(void* task);
    void do_thread();
    void name_thread() const;
    void reopen();
    bool open_nonblocking();
    void wait_for_next_attempt();
    void serve(const Watch& watch);
    void read_wake_byte();
    void drop_connection();
};
