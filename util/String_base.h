#pragma once

#include "util/export.h"

#include <cstdint>

/// Copies at most `n` characters of `src` and ends them with a zero: up to n + 1 bytes of `dest` are written.
///
/// @param src  ends with a zero or has `n` characters; may overlap `dest`, and is then copied as it was
/// @return the address of the terminator in `dest`, so that the next text can be put there
QUARVEL_EXPORT char* stzncpy(char* dest, const char* src, unsigned n);

/// A text in a buffer of the caller's, cut silently to what the buffer holds; nothing is ever allocated.
///
/// The buffer has to outlive the object. It is found by its distance from the object, so the two may be moved
/// together, byte by byte (a structure that holds both may be copied with memcpy), and neither alone. Every
/// operation leaves a text that ends inside the buffer.
///
/// A capacity below 1 has no room for even the empty text: it is kept as given, nothing is written to the
/// buffer, and the text reads as empty.
///
/// Texts passed in are never null and may lie in the buffer itself: they count as they were before the call.
/// An object and its buffer belong to one thread at a time.
class QUARVEL_EXPORT String_base {
public:
    /// The empty text, or `s`, in a buffer taken as init() takes it.
    /// @{
    String_base(char* buffer, int cap);
    String_base(char* buffer, int cap, const char* s);
    String_base(char* buffer, int cap, const String_base& s);
    /// @}

    /// Deliberate: a bare copy has no buffer but its own spare cell, so it is always the empty text, with a
    /// capacity of 1. Assignment copies the text.
    String_base(const String_base& s);

    /// Takes a buffer and fills it with zeros; a former one is left as it is.
    ///
    /// @param cap  bytes, the terminator included
    void init(char* buffer, int cap);

    /// Fills the whole buffer with zeros.
    void zero();

    /// The buffer itself, for a text of the caller's own making: it has to end inside.
    /// @{
    QUARVEL_EXPORT char* buf();
    QUARVEL_EXPORT const char* cbuf() const;
    /// @}

    /// The text; the address changes when the object is moved or gets another buffer.
    QUARVEL_EXPORT const char* get() const;

    /// The byte at `i` of the buffer, or a cell inside the object, for a stray write to land in, where the
    /// buffer has no such byte.
    QUARVEL_EXPORT char* get(int i);

    /// Copies the text out, cut to min(n, max_len()) - 1 characters; zeros follow up to that many bytes.
    ///
    /// @param n  bytes that `out` has, at least 1 (with less, nothing is written and the result is 0)
    /// @return the characters that arrived
    int get(char* out, int n) const;

    /// Replaces the text and fills the rest of the buffer with zeros.
    /// @{
    void _set(const char* s);
    void set(const char* s);
    String_base& operator=(const char* s);
    String_base& operator=(const String_base& o);
    /// @}

    /// Replaces the text by at most `n` characters of `s`, which needs no terminator when it has as many.
    ///
    /// Bytes behind min(n, max_len() - 1) stay as they are.
    /// @param n  not negative (taken as 0)
    void set(const char* s, int n);

    /// Appends what fits; the bytes behind the new text stay, but the last of the buffer becomes 0.
    /// @{
    void _append(const char* s);
    void append(const char* s);
    String_base& operator+=(const char* s);
    String_base& operator+=(String_base& o); // deliberate: takes no constant text
    /// @}

    unsigned len() const;                      ///< characters up to the first zero, counted anew each time
    QUARVEL_EXPORT int max_len() const;        ///< the capacity, terminator included
    QUARVEL_EXPORT int max_string_len() const; ///< characters of the longest text

    /// As strcmp(), strncmp(), strcasecmp() and strncasecmp() do: below 0, 0 or above 0. A negative `n` is no
    /// limit.
    /// @{
    int compare(const char* s) const;
    int compare(const char* s, int n) const;
    int case_compare(const char* s) const;
    int case_compare(const char* s, int n) const;
    /// @}

    /// Writes prefix, text and suffix to the debug output, in one call and without a line end.
    ///
    /// @param prefix, suffix  may be null, for nothing
    void print(const char* prefix, const char* suffix) const;

    /// Replaces the text by a formatted one. Unlike elsewhere, arguments must not lie in the buffer.
    ///
    /// @return the length that the text has uncut (it was cut if that is above max_string_len()), or a
    ///         negative number where the C library cannot format it: the part before that then stands
    int printf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    /// The same behind the text that is there; the result counts what was to be appended.
    int appendf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

private:
    std::int32_t capacity;
    std::int32_t distance; // bytes from `spare` to the buffer
    char spare = 0;
#if UINTPTR_MAX > UINT32_MAX
    // 64-bit machines keep stack, heap and static data further apart than `distance` reaches. Then `distance`,
    // below any that it holds otherwise, has the lower 24 bits of 48; the upper are here, in what is padding on
    // the console.
    static constexpr std::int32_t NEAR_FROM = INT32_MIN + (1 << 24);
    std::uint32_t far_distance : 24;
#endif

    std::uintptr_t address() const;
};

inline std::uintptr_t String_base::address() const
{
    const auto start = reinterpret_cast<std::uintptr_t>(&spare);
#if UINTPTR_MAX > UINT32_MAX
    if (__builtin_expect(distance < NEAR_FROM, 0)) { // rare among objects that keep their buffer beside them
        const std::uintptr_t lower = static_cast<std::uint32_t>(distance) & 0xFFFFFFU;
        const std::uintptr_t far = std::uintptr_t{far_distance} << 24 | lower;
        return (start + far) & 0xFFFF'FFFF'FFFF; // modulo 2^48, as programs have no addresses beyond
    }
#endif
    return start + static_cast<std::uintptr_t>(distance);
}

inline char* String_base::buf()
{
    return reinterpret_cast<char*>(address()); // NOLINT(performance-no-int-to-ptr): no pointer is stored
}

inline const char* String_base::cbuf() const
{
    return reinterpret_cast<const char*>(address()); // NOLINT(performance-no-int-to-ptr)
}

inline const char* String_base::get() const
{
    return capacity > 0 ? cbuf() : "";
}

inline char* String_base::get(int i)
{
    return i >= 0 && i < capacity ? buf() + i : &spare;
}

inline int String_base::max_len() const
{
    return capacity;
}

inline int String_base::max_string_len() const
{
    return capacity > INT32_MIN ? capacity - 1 : INT32_MIN;
}
