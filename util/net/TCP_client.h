#pragma once

#include "util/export.h"

#include <cstdint>

/// Shuts sockets down in both directions, waits for the peers to close their sides, then closes the sockets.
///
/// What peers still send is read and thrown away. Calls perror("error calling shutdown\n") for a descriptor
/// that cannot be shut down, which is waited for and closed like the others.
///
/// @param sds         `count` descriptors, negative ones are passed over; may be null when `count` is 0
/// @param timeout_ms  how long to wait; negative: until the first peer sends or closes, however long that
///                    takes, and no longer
/// @return true when every peer closed in time, or there was no descriptor. False
///         - when some did not: they are listed on standard error, and all are closed all the same;
///         - for more than 100 descriptors, at once: **they are shut down and stay open**.
QUARVEL_EXPORT bool wait_shutdown_close(const int* sds, unsigned int count, int timeout_ms);

/// Holds the address of one TCP peer, and one connection to it.
///
/// No lock: one thread at a time, except that open_connection() may run on any thread while none changes the
/// address or the port.
class QUARVEL_EXPORT TCP_client {
public:
    /// An empty address, which does not resolve, and port 0.
    TCP_client();

    /// As set_address(address, -1) and set_port(port); an address that is too long leaves the empty one.
    TCP_client(const char* address, int port);

    /// As close(). A class that derives is not destroyed through a pointer to this one:
    /// nothing here is virtual.
    ~TCP_client();

    TCP_client(const TCP_client&) = delete;            ///< the connection has one owner
    TCP_client& operator=(const TCP_client&) = delete; ///< the connection has one owner

    /// Stores a host name or a numeric address, for the next connection.
    ///
    /// @param length  bytes to copy, which need not end in a NUL; negative: those before the first NUL
    /// @return false, with the stored address as it was, for more than 255 bytes
    bool set_address(const char* address, int length);

    /// Stores the port for the next connection, in host byte order; only its low 16 bits are dialled.
    bool set_port(int port);

    /// Opens one more connection to the stored peer; the connection that the object holds is left alone.
    ///
    /// The name is looked up first, which may take long whatever the time limit is. Then each address that it
    /// stands for is tried in turn, with one IPv4 socket: an IPv6 address never connects. The outcome and
    /// what fails on the way is printed on the debug channel.
    ///
    /// @param timeout_ms  limit for each address, not for the whole; 0 takes what is there at once; negative:
    ///                    as long as the system tries. Deliberate: with a limit, a socket that the system
    ///                    reports as writable counts as connected even when the connection was refused, as
    ///                    Linux reports it; the first read or write tells.
    /// @return a descriptor that the caller closes, blocking, with TCP_NODELAY set; -1 when there is none
    int open_connection(int timeout_ms) const;

    /// Connects without time limit. A connection that is already held is not closed: its descriptor is lost.
    bool open();

    /// Ends the connection, if there is one: see wait_shutdown_close(), here with 100 ms.
    void close();

    /// One read(2): the bytes read, 0 when the peer has closed, -1 with errno.
    int read(unsigned char* buf, unsigned int len);

    /// One write(2): the bytes written, perhaps fewer than `len`, or -1 with errno. Raises SIGPIPE when the
    /// connection is broken, which ends a process that does not ignore it.
    int write(const unsigned char* buf, unsigned int len);

protected:
    char address[256]; ///< ends in a NUL
    std::int32_t port; ///< host byte order, as it was given
    std::int32_t sd;   ///< the connection, -1 when there is none
};
