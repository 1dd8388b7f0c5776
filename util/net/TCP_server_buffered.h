#pragma once

#include "util/export.h"
#include "util/net/Multiread_cbuf_safer.h"

#include <QMutex>
#include <QThread>

#include <atomic>
#include <cstdint>
#include <map>
#include <poll.h>
#include <sys/types.h>
#include <vector>

/// Serves one stream of bytes to any number of TCP clients, on all IPv4 addresses. The derived class handles
/// what the clients send.
///
/// Messages go to one buffer of 4096 bytes, from which the loop feeds each client at the client's own pace,
/// in pieces of up to 1024 bytes. Nobody waits for a slow client: one that falls more than 4095 bytes behind
/// loses its oldest bytes, without regard for where a message begins. A client counts a piece as read only
/// when it is sent, so producers that run more than 3071 bytes ahead of the loop can cost even a
/// quick client bytes.
///
/// Any thread: write_to_all_connections(), wait_quit().
/// The loop's thread: run_blocking(), or run_poll() again and again, and from within them handle_data().
/// handle_data() alone may call close_connection() and, for no lock is held, write_to_all_connections(). The
/// object must outlive the loop: call wait_quit() before it is destroyed.
///
/// Descriptors may have any number; memory is allocated only when a client connects. Failed system calls are
/// reported by perror on standard error, the rest on the debug channel under category 107. Three failures end
/// the process with status 1, see run_blocking(). A client's failure closes that client only; SIGPIPE does
/// not reach the process from here, whatever it does with that signal.
class QUARVEL_EXPORT TCP_server_buffered {
public:
    /// Bytes; a message may have one less.
    static constexpr int WRITE_BUFFER_SIZE = Multiread_cbuf_safer::SIZE;

    /// Listens; the clients that connect wait for the loop to run.
    ///
    /// After "cannot open socket " or "cannot bind port " (by perror) there is nothing to serve:
    /// run_blocking() and run_poll() return at once. Other failures are only reported:
    /// "setsockopt(SO_REUSEPORT)" (it is SO_REUSEADDR), "setsockopt(TCP_NODELAY)", and "TCP_server: could not
    /// create notification pipe", after which messages wait for some client to send something, and
    /// wait_quit() does not end run_blocking().
    ///
    /// @param wanted_port  host order, of which 16 bits count; 0 lets the system choose. The `port` member
    ///              then has what was bound.
    TCP_server_buffered(int wanted_port);

    /// Closes the clients, waiting for them to close their side too: up to 100 ms for every hundred of them.
    ///
    /// Before wait_quit(), and when the constructor could not listen, it says so as a broken precondition,
    /// and closes what there is.
    virtual ~TCP_server_buffered();

    /// Takes what a client sent. On the loop's thread, without a lock.
    ///
    /// @param sd    the client; its socket is a blocking one,
    ///              and who writes to it here holds up all the others
    /// @param data  1 to 256 bytes, which may be altered
    virtual void handle_data(int sd, unsigned char* data, int len) = 0;

    /// Queues one message for every client that is connected now, and wakes the loop. Any thread; it does not
    /// wait for clients.
    ///
    /// perror says "could not wake" when the loop could not be woken; the message is queued all the same.
    ///
    /// @param len  0 to 4095
    /// @return `len`; 0, with nothing queued, for a longer message
    int write_to_all_connections(const unsigned char* data, unsigned int len);

    /// Serves until wait_quit(), or until a signal handler runs on this thread: deliberate,
    /// so that one ends it.
    ///
    /// Meanwhile the thread is scheduled as SCHED_BATCH where it was SCHED_OTHER, so that a producer on the same
    /// core is not held up by the turn that it asks for. Threads that handle_data() starts inherit that.
    ///
    /// Waiting for events that fails otherwise than with EAGAIN or EINTR ("error in select" by perror; also
    /// when a client's descriptor was closed by other means than close_connection()), reading the wake pipe
    /// that fails otherwise than with EAGAIN ("error in wake fd") and an exceptional condition of the
    /// listening socket end the process with status 1.
    ///
    /// @return false
    bool run_blocking();

    /// Serves what there is to do now, without waiting for more.
    /// It ends the process where run_blocking() does.
    ///
    /// @return false when run_blocking() would end
    bool run_poll();

    /// One turn of the loop, for run_blocking() and run_poll(): one client accepted, up to 256 bytes received
    /// from and up to 1024 sent to each.
    ///
    /// @param blocking  wait until there is something to do
    /// @return whether to go on
    bool _run(bool blocking);

    /// Makes run_blocking() or run_poll() return false, and waits until it has. Not from handle_data(), which
    /// would wait for itself.
    ///
    /// Between two calls of run_poll() it returns at once, and the next one is not affected. Where nothing
    /// has run yet it waits until something has.
    /// perror says "could not quit" when the loop could not be told.
    void wait_quit();

    /// Closes a client. On the loop's thread.
    ///
    /// @return how many clients that were: 1, or 0 when `sd` is not one; it is closed even then
    int close_connection(int sd);

protected:
    std::int32_t notify_pipe[2];               ///< write end, read end; -1 for none
    std::int32_t listen_sd;                    ///< -1 for none
    std::atomic<bool> wake_on_write;           ///< a message has to wake the loop
    std::atomic<bool> stopped;                 ///< neither run_blocking() nor run_poll() is in progress
    std::atomic<bool> has_connections;         ///< some client is connected
    std::atomic<bool> wake_pending;            ///< a wake byte is in the pipe: another one is not needed
    std::atomic<std::int32_t> dropped_bytes;   ///< lost by slow clients, summed over them
    Multiread_cbuf_safer write_buffer;         ///< under buffer_lock
    QMutex buffer_lock;                        ///< of the buffer, and of which readers there are
    std::atomic<Qt::HANDLE> lock_owner_thread; ///< who holds buffer_lock; null when it is free
    std::atomic<pid_t> lock_owner_tid;         ///< the same as the kernel names it; 0 when it is free
    std::vector<std::int32_t> fds;             ///< all that the loop watches, ascending; the loop's own
    std::map<std::int32_t, Multiread_cbuf_safer::Reader<unsigned char>>
        readers;       ///< altered under buffer_lock
    std::int32_t port; ///< bound, host order; -1 until then

private:
    using Client_reader = Multiread_cbuf_safer::Reader<unsigned char>;

    bool listen_on(int wanted_port);
    void close_clients();
    void notify(unsigned char value, const char* failure);

    void make_room(int count);

    // A turn of the loop.
    void watch();
    pollfd* find_watched(int sd);
    bool has_come(int sd, int events);
    void check_descriptors() const;
    bool told_to_quit();
    void close_exceptional();
    void accept_client();
    void receive_from_clients();
    void receive_from(int sd);
    bool send_to_clients(bool turns_follow);
    void hold_back(int sd, bool on);
    bool send_to(int sd, Client_reader& reader, bool turns_follow);

    std::uint32_t roomy_until;   // under buffer_lock: up to this total of the buffer no client loses anything
    std::vector<bool> held_back; // by descriptor: the system gathers what is written to the client
    std::vector<pollfd> watched; // what the turn waits for and what has come: first the pipe's read end
};
