#include "platform/Debug.h"

#include <cstdarg>
#include <cstdio>

void Debug::Print::dprint(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    // Standard error is unbuffered and one call of the C library is one locked write: nothing to flush,
    // and a diagnostic that cannot be written has nowhere else to go.
    static_cast<void>(std::vfprintf(stderr, format, arguments));
    va_end(arguments);
}
