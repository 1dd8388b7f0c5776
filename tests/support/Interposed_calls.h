#pragma once

#include <cstddef>
#include <cstdio>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/types.h>

/// Stands between this process and the C library for as long as the object lives.
///
/// What a test overrides answers in the C library's place, also to the libraries; what it does not override
/// goes on to the C library, and so does a call of the base's own from within an override. One at a time;
/// calls that the C library makes itself (fwrite's of write, nftw's of open) do not come by.
class Interposed_calls {
public:
    Interposed_calls();
    virtual ~Interposed_calls();
    Interposed_calls(const Interposed_calls&) = delete;
    Interposed_calls& operator=(const Interposed_calls&) = delete;

    /// @param mode  0 unless the flags ask for a file to be made
    virtual int open(const char* path, int flags, mode_t mode);
    virtual int fstat(int fd, struct stat* status);
    virtual ssize_t read(int fd, void* data, std::size_t size);
    virtual ssize_t write(int fd, const void* data, std::size_t size);
    virtual int close(int fd);
    virtual int remove(const char* path);
    virtual int unlink(const char* path);
    virtual int rmdir(const char* path);
    virtual char* realpath(const char* path, char* resolved);
    virtual int nftw(const char* path, __nftw_func_t callback, int max_descriptors, int flags);
    virtual std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream);
    virtual off_t ftello(FILE* stream);
    virtual int fseeko(FILE* stream, off_t offset, int whence);
};
