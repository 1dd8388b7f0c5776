#include "platform/console.h"

#include "platform/Atime.h"
#include "platform/Debug.h"
#include "platform/Platform.h"
#include "platform/Rtime.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

std::string console::printed;
std::int64_t console::now_ms = 0;

namespace {

__attribute__((format(printf, 1, 0))) void print_all(const char* format, std::va_list arguments)
{
    char text[512];
    static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments)); // what is too long is cut
    console::printed += text;
}

} // namespace

void Debug::Print::dprint(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    print_all(format, arguments);
    va_end(arguments);
}

void Debug::Channel::print(int category, const char* format, ...)
{
    console::printed += std::to_string(category) + "> ";
    std::va_list arguments;
    va_start(arguments, format);
    print_all(format, arguments);
    va_end(arguments);
}

void Debug::Channel::critical(const char* format, ...)
{
    console::printed += "critical> ";
    std::va_list arguments;
    va_start(arguments, format);
    print_all(format, arguments);
    va_end(arguments);
}

void Debug_print::perror(const char* text)
{
    console::printed += std::string(text) + ": error " + std::to_string(errno) + "\n";
}

Atime::Atime(bool now) : ms(now ? console::now_ms : 0)
{
}

Atime Atime::now()
{
    return Atime(true);
}

void Atime::set_now()
{
    ms = console::now_ms;
}

void Atime::delay(int ms)
{
    console::now_ms += ms;
}

Rtime::Rtime(bool now) : Rtime(Atime(now))
{
}

Rtime::Rtime(const Atime& moment)
    : seconds(moment.ms / 1000), milliseconds(static_cast<std::uint16_t>(moment.ms % 1000))
{
}

Platform& Platform::instance()
{
    static Platform platform;
    return platform;
}

const std::string& Platform::base_directory() const
{
    static const std::string card = "/card/";
    return card;
}
