#include "tests/support/Allocations.h"

#include <atomic>
#include <cstddef>

namespace {
std::atomic<std::int64_t> count{0};
} // namespace

std::int64_t allocations()
{
    return count;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The C library lets a program replace malloc(), and offers its own under these names.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    ++count;
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t elements, std::size_t size)
{
    ++count;
    return __libc_calloc(elements, size);
}
__attribute__((visibility("default"))) void* realloc(void* old, std::size_t size)
{
    ++count;
    return __libc_realloc(old, size);
}
}
#endif
