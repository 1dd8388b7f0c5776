#include "tests/support/Interposed_calls.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Null from the start, for libraries make calls before any constructor has run.
std::atomic<Interposed_calls*> active{nullptr};

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

Interposed_calls::Interposed_calls()
{
    if (active.exchange(this) != nullptr)
        std::abort();
}

Interposed_calls::~Interposed_calls()
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
    RESULT Interposed_calls::NAME PARAMETERS                                                                 \
    {                                                                                                        \
        return c_library_##NAME ARGUMENTS;                                                                   \
    }
#define INTERPOSE(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, EXCEPT)                                      \
    PASS_ON(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, PARAMETERS)                                        \
    DEFINITION RESULT NAME PARAMETERS EXCEPT                                                                 \
    {                                                                                                        \
        Interposed_calls* const calls = active;                                                              \
        return calls != nullptr ? calls->NAME ARGUMENTS : c_library_##NAME ARGUMENTS;                        \
    }

PASS_ON(int, open, "open64", (const char* path, int flags, mode_t mode), (path, flags, mode),
        (const char*, int, ...))
PASS_ON(int, fcntl, "fcntl64", (int fd, int command, long argument), (fd, command, argument), (int, int, ...))

DEFINITION int open(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    Interposed_calls* const calls = active;
    return calls != nullptr ? calls->open(path, flags, mode) : c_library_open(path, flags, mode);
}

DEFINITION int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long); // whether it is there or not; the machines pass it alike
    va_end(arguments);
    Interposed_calls* const calls = active;
    return calls != nullptr ? calls->fcntl(fd, command, argument) : c_library_fcntl(fd, command, argument);
}

INTERPOSE(int, fstat, "__fstat64_time64", (int fd, struct stat* status), (fd, status), noexcept)
INTERPOSE(off_t, lseek, "lseek64", (int fd, off_t offset, int whence), (fd, offset, whence), noexcept)
INTERPOSE(ssize_t, read, "read", (int fd, void* data, std::size_t size), (fd, data, size), )
INTERPOSE(ssize_t, write, "write", (int fd, const void* data, std::size_t size), (fd, data, size), )
INTERPOSE(int, fdatasync, "fdatasync", (int fd), (fd), )
INTERPOSE(int, close, "close", (int fd), (fd), )
INTERPOSE(int, stat, "__stat64_time64", (const char* path, struct stat* status), (path, status), noexcept)
INTERPOSE(int, remove, "remove", (const char* path), (path), noexcept)
INTERPOSE(int, unlink, "unlink", (const char* path), (path), noexcept)
INTERPOSE(int, mkdir, "mkdir", (const char* path, mode_t mode), (path, mode), noexcept)
INTERPOSE(int, rmdir, "rmdir", (const char* path), (path), noexcept)
INTERPOSE(char*, realpath, "realpath", (const char* path, char* resolved), (path, resolved), noexcept)
INTERPOSE(int, nftw, "__nftw64_time64",
          (const char* path, __nftw_func_t callback, int max_descriptors, int flags),
          (path, callback, max_descriptors, flags), )
INTERPOSE(DIR*, opendir, "opendir", (const char* path), (path), )
INTERPOSE(dirent*, readdir, "readdir64", (DIR * stream), (stream), )
INTERPOSE(std::size_t, fwrite, "fwrite",
          (const void* data, std::size_t size, std::size_t count, FILE* stream),
          (data, size, count, stream), )
INTERPOSE(off_t, ftello, "ftello64", (FILE * stream), (stream), )
INTERPOSE(int, fseeko, "fseeko64", (FILE * stream, off_t offset, int whence), (stream, offset, whence), )
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
// What _FORTIFY_SOURCE makes of poll().
DEFINITION int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, std::size_t size)
{
    if (size / sizeof *fds < count)
        std::abort();
    Interposed_calls* const calls = active;
    return calls != nullptr ? calls->poll(fds, count, timeout_ms) : c_library_poll(fds, count, timeout_ms);
}

INTERPOSE(int, select, "__select64",
          (int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout),
          (count, readable, writable, exceptional, timeout), )
INTERPOSE(int, epoll_wait, "epoll_wait", (int fd, epoll_event* events, int count, int timeout_ms),
          (fd, events, count, timeout_ms), )
INTERPOSE(pid_t, gettid, "gettid", (), (), noexcept)
