#include "platform/Debug.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

__attribute__((format(printf, 1, 0))) void write(const char* format, std::va_list arguments)
{
    // Locked for the whole text: the C library writes a long one to an unbuffered stream in pieces. A
    // diagnostic that cannot be written has nowhere else to go.
    flockfile(stderr);
    static_cast<void>(std::vfprintf(stderr, format, arguments));
    funlockfile(stderr);
}

} // namespace

void Debug::Print::dprint(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(format, arguments);
    va_end(arguments);
}

void Debug::Channel::print(int /*category*/, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(format, arguments);
    va_end(arguments);
}

void Debug::Channel::critical(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(format, arguments);
    va_end(arguments);
}

void Debug_print::perror(const char* text)
{
    const int error = errno;
    char buffer[128];
    Debug::Print::dprint("%s: %s\n", text, strerror_r(error, buffer, sizeof buffer));
    errno = error;
}
