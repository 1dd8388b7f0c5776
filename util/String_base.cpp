#include "util/String_base.h"

#include "platform/Debug.h"

#include <cassert>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace {

/// Writes `count` bytes: the text, cut to as many characters, and zeros behind it.
void copy_and_fill(char* dest, const char* text, std::size_t count)
{
    const std::size_t length = strnlen(text, count);
    std::memmove(dest, text, length);
    std::memset(dest + length, 0, count - length);
}

std::size_t not_negative(int count)
{
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

// What is inline in the header is in the library too, for programs built when it was not.
[[gnu::used]] char* (String_base::*const BUF)() = &String_base::buf;
[[gnu::used]] const char* (String_base::*const CBUF)() const = &String_base::cbuf;
[[gnu::used]] const char* (String_base::*const GET)() const = &String_base::get;
[[gnu::used]] char* (String_base::*const GET_BYTE)(int) = &String_base::get;
[[gnu::used]] int (String_base::*const MAX_LEN)() const = &String_base::max_len;
[[gnu::used]] int (String_base::*const MAX_STRING_LEN)() const = &String_base::max_string_len;

} // namespace

char* stzncpy(char* dest, const char* src, unsigned n)
{
    // Measured before the first byte moves: a text that is appended to itself loses its
    // terminator on the way.
    const std::size_t length = strnlen(src, n);
    std::memmove(dest, src, length);
    dest[length] = 0;
    return dest + length;
}

String_base::String_base(char* buffer, int cap)
{
    init(buffer, cap);

    // Applications compiled against an earlier build hold strings by value: the layout stays.
    static_assert(offsetof(String_base, capacity) == 0 && offsetof(String_base, distance) == 4);
    static_assert(offsetof(String_base, spare) == 8 && sizeof(String_base) == 12);
}

String_base::String_base(char* buffer, int cap, const char* s) : String_base(buffer, cap)
{
    _set(s);
}

String_base::String_base(char* buffer, int cap, const String_base& s) : String_base(buffer, cap)
{
    _set(s.get());
}

String_base::String_base(const String_base& s) : String_base(&spare, 1)
{
    _set(s.get());
}

// NOLINTNEXTLINE(readability-non-const-parameter): the buffer is written to, through its distance
void String_base::init(char* buffer, int cap)
{
    capacity = cap;
    const std::uintptr_t whole =
        reinterpret_cast<std::uintptr_t>(buffer) - reinterpret_cast<std::uintptr_t>(&spare);
    distance = static_cast<std::int32_t>(whole); // modulo 2^32
#if UINTPTR_MAX > UINT32_MAX
    far_distance = 0; // programs built against an earlier header look at it for a near buffer as well
    if (distance < NEAR_FROM || whole != static_cast<std::uintptr_t>(distance)) {
        distance = INT32_MIN + static_cast<std::int32_t>(whole & 0xFFFFFF);
        far_distance = whole >> 24 & 0xFFFFFF;
    }
#endif
    assert(buf() == buffer);
    zero();
}

void String_base::zero()
{
    if (capacity > 0)
        std::memset(buf(), 0, not_negative(capacity));
}

int String_base::get(char* out, int n) const
{
    if (n < 1)
        return 0;
    const int room = capacity < n ? max_string_len() : n - 1;
    copy_and_fill(out, get(), not_negative(room));
    out[not_negative(room)] = 0;
    return static_cast<int>(std::strlen(out));
}

void String_base::_set(const char* s)
{
    set(s, max_string_len());
}

void String_base::set(const char* s)
{
    _set(s);
}

String_base& String_base::operator=(const char* s)
{
    _set(s);
    return *this;
}

// Its own text is no trouble: _set() takes any part of it.
String_base& String_base::operator=(const String_base& o) // NOLINT(cert-oop54-cpp)
{
    _set(o.get());
    return *this;
}

void String_base::set(const char* s, int n)
{
    if (capacity < 1)
        return;
    const std::size_t count = not_negative(n < capacity ? n : max_string_len());
    copy_and_fill(buf(), s, count);
    buf()[count] = 0;
}

void String_base::_append(const char* s)
{
    if (capacity < 1)
        return;
    const unsigned length = len();
    stzncpy(buf() + length, s, static_cast<unsigned>(max_string_len()) - length);
    buf()[max_string_len()] = 0;
}

void String_base::append(const char* s)
{
    _append(s);
}

String_base& String_base::operator+=(const char* s)
{
    _append(s);
    return *this;
}

String_base& String_base::operator+=(String_base& o)
{
    _append(o.get());
    return *this;
}

unsigned String_base::len() const
{
    // Not further than the last byte, should the caller have overwritten the terminator through buf().
    const auto length = static_cast<int>(strnlen(get(), not_negative(max_string_len())));
    return static_cast<unsigned>(length);
}

int String_base::compare(const char* s) const
{
    return std::strcmp(get(), s);
}

int String_base::compare(const char* s, int n) const
{
    return std::strncmp(get(), s, static_cast<std::size_t>(n));
}

int String_base::case_compare(const char* s) const
{
    return strcasecmp(get(), s);
}

int String_base::case_compare(const char* s, int n) const
{
    return strncasecmp(get(), s, static_cast<std::size_t>(n));
}

void String_base::print(const char* prefix, const char* suffix) const
{
    Debug::Print::dprint("%s%s%s", prefix != nullptr ? prefix : "", get(), suffix != nullptr ? suffix : "");
}

int String_base::printf(const char* fmt, ...)
{
    std::va_list arguments;
    va_start(arguments, fmt);
    const int length = std::vsnprintf(buf(), not_negative(capacity), fmt, arguments);
    va_end(arguments);
    return length;
}

int String_base::appendf(const char* fmt, ...)
{
    const unsigned length = len();
    std::va_list arguments;
    va_start(arguments, fmt);
    const int appended = std::vsnprintf(buf() + length, not_negative(capacity) - length, fmt, arguments);
    va_end(arguments);
    return appended;
}
