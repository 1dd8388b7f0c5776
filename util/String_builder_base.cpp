#include "util/String_builder_base.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace {

// What is inline in the header is in the library too, for programs built when it was not.
[[gnu::used]] int (String_builder_base::*const APPEND_TEXT)(const char*) = &String_builder_base::append;
[[gnu::used]] int (String_builder_base::*const APPEND_CHARACTER)(char) = &String_builder_base::append;
[[gnu::used]] void (String_builder_base::*const RESET)() = &String_builder_base::reset;

} // namespace

String_builder_base::String_builder_base(String_base& s)
    : target(&s), cursor(static_cast<std::int32_t>(s.len()))
{
    // Applications compiled against an earlier build hold builders by value: the layout stays.
    static_assert(offsetof(String_builder_base, target) == 0);
    static_assert(offsetof(String_builder_base, cursor) == sizeof(void*));
    static_assert(sizeof(String_builder_base) == 2 * sizeof(void*));
}

String_builder_base::String_builder_base(String_base* s) : target(s), cursor(0)
{
}

void String_builder_base::append_measured(const char* s)
{
    if (cursor > target->max_string_len())
        return;
    const int room = target->max_string_len() - cursor;
    char* const from = target->buf() + cursor;
    const auto length = static_cast<unsigned>(stzncpy(from, s, static_cast<unsigned>(room)) - from);
    cursor += static_cast<std::int32_t>(length);
}

int String_builder_base::appendf(const char* fmt, ...)
{
    const int room = target->max_len() > cursor ? target->max_len() - cursor : 0;
    char* const from = target->get(cursor);
    std::va_list arguments;
    va_start(arguments, fmt);
    const int length = std::vsnprintf(from, static_cast<std::size_t>(room), fmt, arguments);
    va_end(arguments);
    if (room == 0)
        return length;
    if (length < 0)
        *from = 0; // it may have written some of it
    else
        cursor += length < room ? length : room - 1;
    return length;
}

bool String_builder_base::truncate(int n)
{
    if (n < 0 || n > cursor)
        return false;
    cursor -= n;
    *target->get(cursor) = 0;
    return true;
}

const char* String_builder_base::begin() const
{
    return target->get();
}

const char* String_builder_base::end() const
{
    return begin() + cursor;
}
