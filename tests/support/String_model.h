#pragma once

#include "util/String_base.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

/// A buffer between two fences, filled with '#' all over.
class Fenced {
public:
    explicit Fenced(int capacity) : size(capacity), bytes(static_cast<std::size_t>(capacity + 2 * FENCE), '#')
    {
    }

    char* data() { return bytes.data() + FENCE; }
    std::string contents() const { return bytes.substr(FENCE, static_cast<std::size_t>(size)); }
    bool fences_stand() const
    {
        return bytes.substr(0, FENCE) == std::string(FENCE, '#') &&
               bytes.substr(static_cast<std::size_t>(FENCE + size)) == std::string(FENCE, '#');
    }

private:
    static constexpr int FENCE = 16;

    int size;
    std::string bytes;
};

/// What a String_base holds, byte by byte, done the slow way.
class String_model {
public:
    explicit String_model(int capacity) : bytes(static_cast<std::size_t>(capacity), '\0') {}

    const std::string& contents() const { return bytes; }
    std::string text() const { return from(0); }
    std::string from(std::size_t i) const { return bytes.substr(i, bytes.find('\0', i) - i); }
    int capacity() const { return static_cast<int>(bytes.size()); }

    void set(const std::string& s)
    {
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = i + 1 < bytes.size() && i < s.size() ? s[i] : '\0';
    }
    void set(const std::string& s, int n)
    {
        if (bytes.empty())
            return;
        const auto count = static_cast<std::size_t>(n < capacity() ? n : capacity() - 1);
        for (std::size_t i = 0; i < count; ++i)
            bytes[i] = i < s.size() ? s[i] : '\0';
        bytes[count] = '\0';
    }
    void append(const std::string& s)
    {
        put(text() + s);
        write(capacity() - 1, '\0');
    }
    /// A formatted text: its bytes and one terminator, as far as there is room.
    ///
    /// @return how many bytes had room
    std::size_t put(const std::string& s, std::size_t at = 0)
    {
        if (at >= bytes.size())
            return 0;
        const std::string visible = s.substr(0, bytes.size() - 1 - at);
        std::copy(visible.begin(), visible.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        bytes[at + visible.size()] = '\0';
        return visible.size();
    }
    void write(int i, char ch)
    {
        if (i >= 0 && i < capacity())
            bytes[static_cast<std::size_t>(i)] = ch;
    }

private:
    std::string bytes;
};

/// What a String_builder_base does to such a string.
class String_builder_model {
public:
    /// @param start  where the cursor is: behind the text or at the start of it
    String_builder_model(String_model& model, std::size_t start) : target(&model), at(start) {}

    std::size_t cursor() const { return at; }

    void append(const std::string& s) { at += target->put(s, at); }
    void append(char ch)
    {
        if (at + 1 < target->contents().size())
            append(std::string(1, ch));
    }
    bool truncate(std::size_t n)
    {
        if (n > at)
            return false;
        at -= n;
        target->write(static_cast<int>(at), '\0');
        return true;
    }
    void reset() { truncate(at); }

private:
    String_model* target;
    std::size_t at;
};
