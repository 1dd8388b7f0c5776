#pragma once

#include "util/String_base.h"
#include "util/export.h"

#include <cstdint>
#include <cstring>
#include <endian.h>

/// Appends to a String_base without measuring it again at every step; what does not fit is cut silently.
///
/// The string has to outlive the builder and keep its place. Change it through the builder alone: the cursor
/// does not follow other changes, though no append ever writes behind the buffer. One thread at a time.
class QUARVEL_EXPORT String_builder_base {
public:
    /// Appends behind the text that is there.
    String_builder_base(String_base& s); // NOLINT(google-explicit-constructor)

    /// Deliberate: unlike with a reference, the first append overwrites from the start; until then the text
    /// stays.
    String_builder_base(String_base* s); // NOLINT(google-explicit-constructor)

    /// @param s  never null; may lie in the string itself, and counts as it was before the call
    /// @return 0
    QUARVEL_EXPORT int append(const char* s);

    /// @return 0
    QUARVEL_EXPORT int append(char ch);

    /// @param fmt  its arguments must not lie in the string
    /// @return the length of the uncut addition, or a negative number, with nothing appended, where the C
    ///         library cannot format it
    int appendf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    /// Drops the last `n` characters: a count, not the new length.
    ///
    /// @return false, with nothing changed, when there are fewer (or `n` is negative)
    bool truncate(int n);

    /// Back to the empty text.
    QUARVEL_EXPORT void reset();

    const char* begin() const; ///< of the whole text, with what stood there before
    /// Where the next character goes: the terminator, once this builder has written.
    const char* end() const;

private:
    String_base* target;
    std::int32_t cursor; // characters written, as far as this builder knows

    void append_measured(const char* s);
};

inline int String_builder_base::append(const char* s)
{
    // The compiler knows the length of a literal: a few stores then do the work of three calls.
    if (__builtin_constant_p(std::strlen(s)) &&
        cursor + static_cast<std::int64_t>(std::strlen(s)) <= target->max_string_len()) {
        std::memcpy(target->buf() + cursor, s, std::strlen(s) + 1);
        cursor += static_cast<std::int32_t>(std::strlen(s));
    } else {
        append_measured(s);
    }
    return 0;
}

inline int String_builder_base::append(char ch)
{
    // Unsigned, as extending the sign costs more than the rest: the next append waits for it.
    const auto last = static_cast<std::uint32_t>(cursor);
    const auto next = static_cast<std::int32_t>(last + 1);
    if (next < target->max_len()) {
        const std::uint16_t with_terminator = htole16(static_cast<unsigned char>(ch));
        std::memcpy(target->buf() + last, &with_terminator, sizeof with_terminator); // one store
        cursor = next;
    }
    return 0;
}

// Inline like the appends that follow it: a call in between costs them more than itself, since a processor
// that keeps the cursor in a register loses it there.
inline void String_builder_base::reset()
{
    cursor = 0;
    *target->get(0) = 0;
}
