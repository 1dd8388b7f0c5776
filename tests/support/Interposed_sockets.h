#pragma once

#include <cstddef>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

/// Stands between this process and the C library's calls on sockets for as long as the object lives.
///
/// What a test overrides answers in the C library's place, also to the libraries, on every thread; what it does
/// not override goes on to the C library, and so does a call of the base's own from within an override. One at
/// a time, made before the threads that it is meant for and destroyed after them.
class Interposed_sockets {
public:
    Interposed_sockets();
    virtual ~Interposed_sockets();
    Interposed_sockets(const Interposed_sockets&) = delete;
    Interposed_sockets& operator=(const Interposed_sockets&) = delete;

    virtual int socket(int domain, int type, int protocol);
    virtual int setsockopt(int fd, int level, int option, const void* value, socklen_t size);
    virtual int bind(int fd, const sockaddr* address, socklen_t size);
    virtual int getsockname(int fd, sockaddr* address, socklen_t* size);
    virtual int listen(int fd, int backlog);
    virtual int connect(int fd, const sockaddr* address, socklen_t size);
    virtual int accept(int fd, sockaddr* address, socklen_t* size);
    virtual int accept4(int fd, sockaddr* address, socklen_t* size, int flags);
    virtual int shutdown(int fd, int how);
    virtual int fcntl(int fd, int command, long argument);
    virtual int pipe2(int* ends, int flags);
    virtual int poll(pollfd* fds, nfds_t count, int timeout_ms);
    virtual int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout);
    virtual int epoll_wait(int fd, epoll_event* events, int count, int timeout_ms);
    virtual ssize_t read(int fd, void* data, std::size_t size);
    virtual ssize_t write(int fd, const void* data, std::size_t size);
    virtual int close(int fd);
};
