#include "tests/support/Interposed_sockets.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Null from the start, for libraries make calls before any constructor has run.
std::atomic<Interposed_sockets*> active{nullptr};

// Where pointers have 32 bits, the build asks for file offsets and times of 64, and the headers rename calls.
template <typename FUNCTION>
FUNCTION* c_library(const char* name, const char* renamed)
{
    auto* const function = reinterpret_cast<FUNCTION*>(dlsym(RTLD_NEXT, sizeof(void*) == 4 ? renamed : name));
    if (function == nullptr)
        std::abort();
    return function;
}

} // namespace

Interposed_sockets::Interposed_sockets()
{
    if (active.exchange(this) != nullptr)
        std::abort();
}

Interposed_sockets::~Interposed_sockets()
{
    active = nullptr;
}

#define DEFINITION extern "C" __attribute__((visibility("default")))

// The C library's function, the member that passes a call on to it, and what stands in its place.
#define PASS_ON(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, TYPE)                                          \
    static RESULT c_library_##NAME PARAMETERS                                                                \
    {                                                                                                        \
        static auto* const function = c_library<RESULT TYPE>(#NAME, RENAMED);                                \
        return function ARGUMENTS;                                                                           \
    }                                                                                                        \
    RESULT Interposed_sockets::NAME PARAMETERS                                                               \
    {                                                                                                        \
        return c_library_##NAME ARGUMENTS;                                                                   \
    }
#define INTERPOSE(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, EXCEPT)                                      \
    PASS_ON(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, PARAMETERS)                                        \
    DEFINITION RESULT NAME PARAMETERS EXCEPT                                                                 \
    {                                                                                                        \
        Interposed_sockets* const calls = active;                                                            \
        return calls != nullptr ? calls->NAME ARGUMENTS : c_library_##NAME ARGUMENTS;                        \
    }

PASS_ON(int, fcntl, "fcntl64", (int fd, int command, long argument), (fd, command, argument), (int, int, ...))

DEFINITION int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long); // whether it is there or not; the machines pass it alike
    va_end(arguments);
    Interposed_sockets* const calls = active;
    return calls != nullptr ? calls->fcntl(fd, command, argument) : c_library_fcntl(fd, command, argument);
}

INTERPOSE(int, socket, "socket", (int domain, int type, int protocol), (domain, type, protocol), noexcept)
INTERPOSE(int, setsockopt, "__setsockopt64",
          (int fd, int level, int option, const void* value, socklen_t size),
          (fd, level, option, value, size), noexcept)
INTERPOSE(int, bind, "bind", (int fd, const sockaddr* address, socklen_t size), (fd, address, size), noexcept)
INTERPOSE(int, getsockname, "getsockname", (int fd, sockaddr* address, socklen_t* size), (fd, address, size),
          noexcept)
INTERPOSE(int, listen, "listen", (int fd, int backlog), (fd, backlog), noexcept)
INTERPOSE(int, connect, "connect", (int fd, const sockaddr* address, socklen_t size), (fd, address, size), )
INTERPOSE(int, accept, "accept", (int fd, sockaddr* address, socklen_t* size), (fd, address, size), )
INTERPOSE(int, accept4, "accept4", (int fd, sockaddr* address, socklen_t* size, int flags),
          (fd, address, size, flags), )
INTERPOSE(int, shutdown, "shutdown", (int fd, int how), (fd, how), noexcept)
INTERPOSE(int, pipe2, "pipe2", (int* ends, int flags), (ends, flags), noexcept)
INTERPOSE(int, poll, "poll", (pollfd * fds, nfds_t count, int timeout_ms), (fds, count, timeout_ms), )
INTERPOSE(int, select, "__select64",
          (int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout),
          (count, readable, writable, exceptional, timeout), )
INTERPOSE(int, epoll_wait, "epoll_wait", (int fd, epoll_event* events, int count, int timeout_ms),
          (fd, events, count, timeout_ms), )
INTERPOSE(ssize_t, read, "read", (int fd, void* data, std::size_t size), (fd, data, size), )
INTERPOSE(ssize_t, write, "write", (int fd, const void* data, std::size_t size), (fd, data, size), )
INTERPOSE(int, close, "close", (int fd), (fd), )
