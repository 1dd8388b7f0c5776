#include "util/Dumper.h"

#include "platform/Debug.h"

#include <cstddef>

namespace {

// Deliberate: values and trailers are format texts, which callers rely on for "%%"; nothing from outside the
// program gets here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void print_as_format(const char* format)
{
    Debug::Print::dprint(format);
}
#pragma GCC diagnostic pop

} // namespace

Debug::Dumper::~Dumper() = default;

Debug::Debug_dumper::Debug_dumper(bool new_with_names, const char* new_trailer)
    : with_names(new_with_names), at_first(true), trailer(new_trailer)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // supported where it matters, and only a static check
    static_assert(offsetof(Debug_dumper, with_names) == sizeof(void*));
    static_assert(offsetof(Debug_dumper, at_first) == sizeof(void*) + 1);
    static_assert(offsetof(Debug_dumper, trailer) == 2 * sizeof(void*));
    static_assert(sizeof(Debug_dumper) == 3 * sizeof(void*));
#pragma GCC diagnostic pop
}

Debug::Debug_dumper::~Debug_dumper()
{
    if (trailer != nullptr)
        print_as_format(trailer);
}

bool Debug::Debug_dumper::child_start(const char* name)
{
    separate();
    at_first = true;
    if (with_names)
        Print::dprint("%s={", name);
    else
        Print::dprint("{");
    return true;
}

void Debug::Debug_dumper::child_end(const char* /*name*/)
{
    Print::dprint("}");
}

void Debug::Debug_dumper::print_item(const char* name, const char* value)
{
    separate();
    at_first = false;
    if (with_names)
        Print::dprint("%s=", name);
    print_as_format(value);
}

void Debug::Debug_dumper::separate()
{
    if (!at_first)
        Print::dprint(",");
}
