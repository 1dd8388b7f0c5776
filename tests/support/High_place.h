#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

/// A page of memory whose address has bit 31 set: on 32-bit machines that is the sign of a pointer.
class High_place {
public:
    High_place() : size(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
    {
        // The sanitizers keep some of these for themselves; beyond 32 bits are those of 64-bit machines.
        const std::array<std::uint64_t, 5> wanted = {0x90000000, 0xA8000000, 0xC0000000, 0x123490000000,
                                                     0x7e8090000000};
        for (const std::uint64_t each : wanted) {
            if (static_cast<std::uintptr_t>(each) != each)
                break;
            void* const hint = reinterpret_cast<void*>(static_cast<std::uintptr_t>(each));
            start = mmap(hint, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (start != MAP_FAILED && (reinterpret_cast<std::uintptr_t>(start) & 0x80000000U) != 0)
                return;
            if (start != MAP_FAILED)
                munmap(start, size);
        }
        throw std::runtime_error("there is no memory at the addresses wanted");
    }
    ~High_place() { munmap(start, size); }
    High_place(const High_place&) = delete;
    High_place& operator=(const High_place&) = delete;

    void* get() const { return start; }

private:
    std::size_t size;
    void* start = MAP_FAILED;
};
