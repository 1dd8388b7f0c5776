#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <dirent.h>
#include <ftw.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

/// Stands between this process and the C library for as long as the object lives.
///
/// What a test overrides answers in the C library's place, also to the libraries, on every thread; what it
/// does not override goes on to the C library, and so does a call of the base's own from within an override.
/// One at a time, made before the threads that it is meant for and destroyed after them. Calls that the C
/// library makes itself (fwrite's of write, nftw's of open) do not come by.
class Interposed_calls {
public:
    Interposed_calls();
    virtual ~Interposed_calls();
    Interposed_calls(const Interposed_calls&) = delete;
    Interposed_calls& operator=(const Interposed_calls&) = delete;

    // Descriptors.
    /// @param mode  0 unless the flags ask for a file to be made
    virtual int open(const char* path, int flags, mode_t mode);
    virtual int fstat(int fd, struct stat* status);
    virtual int fcntl(int fd, int command, long argument);
    virtual off_t lseek(int fd, off_t offset, int whence);
    virtual ssize_t read(int fd, void* data, std::size_t size);
    virtual ssize_t write(int fd, const void* data, std::size_t size);
    virtual int fdatasync(int fd);
    virtual int close(int fd);

    // Paths and folders.
    virtual int stat(const char* path, struct stat* status);
    virtual int remove(const char* path);
    virtual int unlink(const char* path);
    virtual int mkdir(const char* path, mode_t mode);
    virtual int rmdir(const char* path);
    virtual char* realpath(const char* path, char* resolved);
    virtual int nftw(const char* path, __nftw_func_t callback, int max_descriptors, int flags);
    virtual DIR* opendir(const char* path);
    virtual dirent* readdir(DIR* stream);

    // Streams.
    virtual std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream);
    virtual off_t ftello(FILE* stream);
    virtual int fseeko(FILE* stream, off_t offset, int whence);

    // Sockets, pipes and waiting.
    virtual int socket(int domain, int type, int protocol);
    virtual int setsockopt(int fd, int level, int option, const void* value, socklen_t size);
    virtual int bind(int fd, const sockaddr* address, socklen_t size);
    virtual int getsockname(int fd, sockaddr* address, socklen_t* size);
    virtual int listen(int fd, int backlog);
    virtual int connect(int fd, const sockaddr* address, socklen_t size);
    virtual int accept(int fd, sockaddr* address, socklen_t* size);
    virtual int accept4(int fd, sockaddr* address, socklen_t* size, int flags);
    virtual int shutdown(int fd, int how);
    virtual int pipe2(int* ends, int flags);
    virtual int poll(pollfd* fds, nfds_t count, int timeout_ms);
    virtual int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout);
    virtual int epoll_wait(int fd, epoll_event* events, int count, int timeout_ms);

    virtual pid_t gettid();
};

/// How a system call answers that fails.
inline int fail_with(int error)
{
    errno = error;
    return -1;
}
