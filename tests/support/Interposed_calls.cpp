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

INTERPOSE(int, fstat, "__fstat64_time64", (int fd, struct stat* status), (fd, status), noexcept)
INTERPOSE(ssize_t, read, "read", (int fd, void* data, std::size_t size), (fd, data, size), )
INTERPOSE(ssize_t, write, "write", (int fd, const void* data, std::size_t size), (fd, data, size), )
INTERPOSE(int, close, "close", (int fd), (fd), )
INTERPOSE(int, remove, "remove", (const char* path), (path), noexcept)
INTERPOSE(int, unlink, "unlink", (const char* path), (path), noexcept)
INTERPOSE(int, rmdir, "rmdir", (const char* path), (path), noexcept)
INTERPOSE(char*, realpath, "realpath", (const char* path, char* resolved), (path, resolved), noexcept)
INTERPOSE(int, nftw, "__nftw64_time64",
          (const char* path, __nftw_func_t callback, int max_descriptors, int flags),
          (path, callback, max_descriptors, flags), )
INTERPOSE(std::size_t, fwrite, "fwrite",
          (const void* data, std::size_t size, std::size_t count, FILE* stream),
          (data, size, count, stream), )
INTERPOSE(off_t, ftello, "ftello64", (FILE * stream), (stream), )
INTERPOSE(int, fseeko, "fseeko64", (FILE * stream, off_t offset, int whence), (stream, offset, whence), )
