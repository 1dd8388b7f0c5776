#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

/// Stands between this process and further calls of the C library's that the file store makes, beside
/// Interposed_calls and by its rules: what is overridden answers for as long as the object lives, the rest goes
/// on. One at a time, made before the threads that it is meant for and destroyed after them.
class Interposed_store_calls {
public:
    Interposed_store_calls();
    virtual ~Interposed_store_calls();
    Interposed_store_calls(const Interposed_store_calls&) = delete;
    Interposed_store_calls& operator=(const Interposed_store_calls&) = delete;

    virtual int stat(const char* path, struct stat* status);
    virtual int mkdir(const char* path, mode_t mode);
    virtual DIR* opendir(const char* path);
    virtual dirent* readdir(DIR* stream);
    virtual off_t lseek(int fd, off_t offset, int whence);
    virtual int fdatasync(int fd);
    virtual pid_t gettid();
};
