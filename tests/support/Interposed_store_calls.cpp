#include "tests/support/Interposed_store_calls.h"

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

namespace {

// Null from the start, for libraries make calls before any constructor has run.
std::atomic<Interposed_store_calls*> active{nullptr};

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

Interposed_store_calls::Interposed_store_calls()
{
    if (active.exchange(this) != nullptr)
        std::abort();
}

Interposed_store_calls::~Interposed_store_calls()
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
    RESULT Interposed_store_calls::NAME PARAMETERS                                                           \
    {                                                                                                        \
        return c_library_##NAME ARGUMENTS;                                                                   \
    }
#define INTERPOSE(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, EXCEPT)                                      \
    PASS_ON(RESULT, NAME, RENAMED, PARAMETERS, ARGUMENTS, PARAMETERS)                                        \
    DEFINITION RESULT NAME PARAMETERS EXCEPT                                                                 \
    {                                                                                                        \
        Interposed_store_calls* const calls = active;                                                        \
        return calls != nullptr ? calls->NAME ARGUMENTS : c_library_##NAME ARGUMENTS;                        \
    }

INTERPOSE(int, stat, "__stat64_time64", (const char* path, struct stat* status), (path, status), noexcept)
INTERPOSE(int, mkdir, "mkdir", (const char* path, mode_t mode), (path, mode), noexcept)
INTERPOSE(DIR*, opendir, "opendir", (const char* path), (path), )
INTERPOSE(dirent*, readdir, "readdir64", (DIR * stream), (stream), )
INTERPOSE(off_t, lseek, "lseek64", (int fd, off_t offset, int whence), (fd, offset, whence), noexcept)
INTERPOSE(int, fdatasync, "fdatasync", (int fd), (fd), )
INTERPOSE(pid_t, gettid, "gettid", (), (), noexcept)
