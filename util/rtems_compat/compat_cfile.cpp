#include "util/rtems_compat/compat_cfile.h"

#include "util/rtems_compat/compat_pcfile.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

char cf_file_name_0[256] = "";
char cf_file_name_1[256] = "";
char* cf_file_name[2] = {cf_file_name_0, cf_file_name_1};

namespace {

constexpr int SLOTS = 2;
constexpr int CLOSED = -1;
constexpr std::size_t PATH_SIZE = 517;
constexpr mode_t FILE_MODE = 0600;

int descriptors[SLOTS] = {0, 0}; // deliberate: not CLOSED
bool implicit[SLOTS] = {false, false};

bool is_slot(int slot)
{
    return slot >= 0 && slot < SLOTS;
}

bool open_slot(int slot, const char* name, int create)
{
    if (!is_slot(slot))
        return false;
    char path[PATH_SIZE];
    static_cast<void>(std::snprintf(path, sizeof path, "%s/%s", pcfDirectory(), name)); // cut if need be
    descriptors[slot] = ::open(path, O_WRONLY | O_APPEND | O_CLOEXEC | create, FILE_MODE);
    if (descriptors[slot] == CLOSED)
        return false;
    const std::size_t length = ::strnlen(name, sizeof cf_file_name_0 - 1);
    std::memmove(cf_file_name[slot], name, length); // which may be the slot's name itself
    cf_file_name[slot][length] = '\0';
    return true;
}

} // namespace

bool cfCreate(int slot, const char* name)
{
    return open_slot(slot, name, O_CREAT);
}

bool cfOpen(int slot, const char* name)
{
    return open_slot(slot, name, 0);
}

int cfWrite(int slot, const void* data, int len)
{
    if (!is_slot(slot))
        return 0;
    if (descriptors[slot] == CLOSED)
        return -1;
    // A negative length becomes one that the system refuses.
    const std::int64_t count = ::write(descriptors[slot], data, static_cast<std::size_t>(len));
    return static_cast<int>(count);
}

int cfClose(int slot, bool /*unused*/)
{
    if (!is_slot(slot) || descriptors[slot] == CLOSED)
        return 0;
    ::close(descriptors[slot]); // deliberate: whatever happened
    descriptors[slot] = CLOSED;
    cf_file_name[slot][0] = '\0';
    return 0;
}

const char* cfGetName(int slot)
{
    return is_slot(slot) ? cf_file_name[slot] : "";
}

bool cfExists()
{
    return (implicit[0] && descriptors[0] != CLOSED) || (implicit[1] && descriptors[1] != CLOSED);
}

int cfFindLog(const char* name)
{
    for (int slot = 0; slot < SLOTS; ++slot)
        if (std::strcmp(name, cf_file_name[slot]) == 0)
            return slot;
    return -1;
}

bool cfGetImplicit(int slot)
{
    return is_slot(slot) && implicit[slot];
}

void cfSetImplicit(int slot, bool on)
{
    if (is_slot(slot))
        implicit[slot] = on;
}

unsigned long cfGetImplicitBits()
{
    return (implicit[0] ? 1UL : 0UL) | (implicit[1] ? 2UL : 0UL);
}

void cfSetImplicitBits(unsigned long bits)
{
    implicit[0] = (bits & 1UL) != 0;
    implicit[1] = (bits & 2UL) != 0;
}

void cfStartLogging(const char* /*unused*/, bool /*unused*/, bool /*unused*/, bool /*unused*/)
{
    std::puts("TODO: cfStartLogging");
}

void cfInit0()
{
    std::puts("TODO: cfInit0");
}

void cfInit()
{
    std::puts("TODO: cfInit");
}
