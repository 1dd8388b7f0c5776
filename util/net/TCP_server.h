#pragma once

#include "util/export.h"

#include <QMutex>
#include <QThread>

#include <atomic>
#include <cstdint>
#include <sys/types.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // meant: nobody deletes a server through its base

/// Listens on one TCP port on all IPv4 addresses and serves up to 100 clients on the thread that calls run(),
/// until quit(). The derived class handles what the clients send.
///
/// Any thread: quit(), num_connections(), write_to_all_connections().
/// run()'s thread, with connections_lock held: handle_data(), handle_disconnected(). These two answer through
/// _write_to_all_connections(), because the lock does not nest.
///
/// A server serves one run(), for that closes the pipe which ends it. There is no destructor: what was opened
/// and not run stays open when the object goes. The object must outlive run().
///
/// Descriptors may have any number; nothing is allocated per client or per message. What happens is reported
/// on the debug channel under category 107, and failed system calls by perror on standard error. Two failures
/// end the process with status 1, see run().
class QUARVEL_EXPORT TCP_server {
public:
    /// Where the pipe that ends run() cannot be made, perror says "TCP_server: could not create notification
    /// pipe" and run() does not end.
    TCP_server();

    /// Listens. SIGPIPE is ignored from then on in the whole process: writing to a client that has gone fails
    /// instead of ending the process.
    ///
    /// Once only; a socket that the server holds already is not closed.
    ///
    /// @param port  host order, of which 16 bits count; 0 lets the system choose. The `port` member then has
    ///              what was bound.
    /// @return false after a failure, which perror names:
    ///
    /// | line begins | state left behind |
    /// |---|---|
    /// | "cannot open socket :" | no socket |
    /// | "setsockopt(SO_REUSEPORT):" (it is SO_REUSEADDR) | deliberate: the socket stays open, in `listen_sd`
    /// | | "setsockopt(TCP_NODELAY):" | the same |
    /// | "cannot bind port :" | no socket |
    ///
    /// A server that could not open is not to be run; without a socket run() returns at once.
    bool open(int port);

    /// Serves until quit(), then closes the clients, waiting up to 200 ms for them to close their side, the
    /// pipe and the listening socket, and returns.
    ///
    /// After that `connections` and its count are as they were, with descriptors that are closed: nothing may
    /// be written any more, for their numbers may have become other files'.
    ///
    /// A client that closes, or that has an exceptional condition (out-of-band data), is closed, with
    /// handle_disconnected(). The 101st client at a time is accepted and reported, and deliberately neither
    /// served nor closed.
    ///
    /// Waiting for events that fails otherwise than with EAGAIN or EINTR ("error in select" by perror; also
    /// when a client's descriptor was closed by someone else) and an exceptional condition of the listening
    /// socket end the process with status 1.
    void run();

    /// Makes run() end, also one that is called later. Any thread, the handlers too.
    ///
    /// perror says "TCP_server: cannot notify quit" where the pipe takes no more, or is gone with run().
    void quit();

    /// How many clients are connected now. Any thread.
    int num_connections() const;

    /// Writes one message to every client, or all but one. Any thread, but not the handlers: it takes
    /// connections_lock.
    ///
    /// A client whose connection is full is tried again without a pause until it takes something or is closed
    /// by quit(); the lock is held, so meanwhile nobody is served. When it takes a part of the message, the
    /// rest is lost.
    ///
    /// @param except_sd  the client to leave out; -1 for none
    /// @return false when the message could not be written to some client; the others have it
    bool write_to_all_connections(const unsigned char* data, unsigned int len, int except_sd);

    /// The same for who holds connections_lock: the handlers. In handle_disconnected() the client is closed
    /// and still in its slot, so leave it out.
    bool _write_to_all_connections(const unsigned char* data, unsigned int len, int except_sd);

    /// Takes what a client sent.
    ///
    /// @param sd    the client; not to be closed
    /// @param data  1 to 256 bytes, which may be altered
    /// @return how many of them were used. When it is not all, the rest is handed over again at once; below
    ///         1, the rest is dropped.
    virtual int handle_data(int sd, unsigned char* data, int len) = 0;

    /// Hears that a client is gone. Here it does nothing.
    ///
    /// @param sd  closed already, still in its slot and counted
    virtual void handle_disconnected(int sd);

protected:
    static constexpr int MAX_CLIENTS = 100; ///< served at a time

    std::int32_t listen_sd;                     ///< -1 for none
    std::int32_t port;                          ///< bound, host order; -1 before open()
    std::int32_t connections[MAX_CLIENTS];      ///< the clients' descriptors, -1 in a free slot
    std::atomic<std::int32_t> connection_count; ///< used slots
    std::atomic<std::int32_t> notify_pipe[2];   ///< write end, read end; -1 for none
    std::atomic<bool> quit_done;                ///< run() has closed the clients after a quit()
    QMutex connections_lock;                    ///< of `connections`, and of altering their count
    std::atomic<Qt::HANDLE> lock_owner_thread;  ///< who holds connections_lock; null when it is free
    std::atomic<pid_t> lock_owner_tid;          ///< the same as the kernel names it; 0 when it is free

private:
    struct Turn;

    void watch(Turn& turn);
    void close_exceptional(Turn& turn);
    void accept_client(Turn& turn);
    void serve_readable(Turn& turn);
    void shut_down();

    bool take_free_slot(int sd);
    void drop_client(Turn& turn, int slot, const char* reason);
    bool receive(int sd);
    void hand_over(int sd, unsigned char* data, int len);
};

#pragma GCC diagnostic pop
