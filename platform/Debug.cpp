#include "platform/Debug.h"

#include <cstdarg>
#include <cstdio>

void Debug::Print::dprint(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    // Locked for the whole text: the C library writes a long one to an unbuffered stream in pieces. A
    // diagnostic that cannot be written has nowhere else to go.
    flockfile(stderr);
    static_cast<void>(std::vfprintf(stderr, format, arguments));
    funlockfile(stderr);
    va_end(arguments);
}
