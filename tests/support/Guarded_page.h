#pragma once

#include <cstddef>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

/// A page of memory, of zeros at first, between two whose touching ends the process.
class Guarded_page {
public:
    Guarded_page()
        : size(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          pages(mmap(nullptr, 3 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        if (pages == MAP_FAILED || mprotect(begin(), size, PROT_READ | PROT_WRITE) != 0)
            std::abort();
    }
    ~Guarded_page() { munmap(pages, 3 * size); }
    Guarded_page(const Guarded_page&) = delete;
    Guarded_page& operator=(const Guarded_page&) = delete;

    unsigned char* begin() const { return static_cast<unsigned char*>(pages) + size; }
    unsigned char* end() const { return begin() + size; }

    /// Where `count` bytes begin that end with the page.
    unsigned char* last(std::size_t count) const { return end() - count; }

private:
    std::size_t size;
    void* pages;
};
