#include "util/net/Header_helper.h"

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace {

using Text = std::string_view; // of a C string, so that a terminator follows it

constexpr int LONGEST_INT = 11; // -2147483648

void append(Header_helper& head, const char* text, std::int64_t len)
{
    const std::int64_t start = head.index > 0 ? head.index : 0;
    std::int64_t end = head.index + len + 1;
    if (end >= head.size) {
        end = std::int64_t{head.size} - 1;
        head.overflowed = true;
    }
    if (end > start) {
        std::memcpy(head.buf + start, text + (start - head.index), static_cast<std::size_t>(end - start));
        head.buf[end] = '\0';
    }
    head.index = static_cast<std::int32_t>(head.index + len);
}

char* copy(char* to, Text text)
{
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

/// @param spare  bytes that must be free behind the texts
template <typename... TEXTS>
bool add(Header_helper& head, int spare, TEXTS... texts)
{
    const auto length = static_cast<std::int64_t>((texts.size() + ...));
    if (!head.allow_truncation && length + spare > std::int64_t{head.size} - head.index)
        head.overflowed = true;
    if (head.overflowed)
        return false;
    if (head.index < 0 || head.index + length + 1 >= head.size) {
        (append(head, texts.data(), static_cast<std::int64_t>(texts.size())), ...);
        return true;
    }
    // Nothing is skipped or cut: as above without looking again at each text.
    char* end = head.buf + head.index;
    ((end = copy(end, texts)), ...);
    std::memset(end, 0, 2);
    head.index = static_cast<std::int32_t>(head.index + length);
    return true;
}

} // namespace

Header_helper::Header_helper(const char** all_names, const type_t* all_types, int name_count)
    : names(all_names), types(all_types), count(name_count), allow_truncation(false), overflowed(false)
{
    set_buf(nullptr, 0);

    // Applications compiled against an earlier build hold builders by value: the layout stays.
    static_assert(sizeof(type_t) == 4);
    static_assert(sizeof(void*) != 4 ||
                  (offsetof(Header_helper, buf) == 0 && offsetof(Header_helper, size) == 4 &&
                   offsetof(Header_helper, names) == 8 && offsetof(Header_helper, types) == 12));
    static_assert(offsetof(Header_helper, count) == (sizeof(void*) == 4 ? 16 : 32));
    static_assert(offsetof(Header_helper, index) == offsetof(Header_helper, count) + 4);
    static_assert(offsetof(Header_helper, allow_truncation) == offsetof(Header_helper, count) + 8);
    static_assert(offsetof(Header_helper, overflowed) == offsetof(Header_helper, count) + 9);
    static_assert(sizeof(Header_helper) == (sizeof(void*) == 4 ? 28 : 48));
}

void Header_helper::set_buf(char* new_buf, int new_size)
{
    buf = new_buf;
    size = new_size;
    index = 0;
}

void Header_helper::set_index(int new_index)
{
    index = new_index;
}

int Header_helper::get_line_type(const char* line) const
{
    for (int i = 0; i < count; ++i) {
        const std::size_t name_length = std::strlen(names[i]);
        if (types[i] == TYPE_HEADER && std::strncmp(line, names[i], name_length) == 0 &&
            line[name_length] == ':')
            return i;
        if (types[i] == TYPE_LINE && std::strcmp(line, names[i]) == 0)
            return i;
    }
    return -1;
}

void Header_helper::write(const char* text, int len)
{
    append(*this, text, len);
}

bool Header_helper::add_http_start(const char* method, const char* path, const char* host, int port)
{
    // Deliberate: without a byte to spare, so that a line may lose its last one to the terminator.
    if (host == nullptr || *host == '\0')
        return add(*this, 0, Text(method), Text(" /"), Text(path), Text(" HTTP/1.1\r\n"));
    char port_text[LONGEST_INT + 1] = {};
    std::to_chars(port_text, port_text + LONGEST_INT, port); // never fails: every int has room
    return add(*this, 0, Text(method), Text(" http://"), Text(host), Text(":"), Text(port_text), Text("/"),
               Text(path), Text(" HTTP/1.1\r\n"));
}

bool Header_helper::add_header(int name_index, const char* value)
{
    if (name_index < 0 || name_index >= count)
        return false;
    return add(*this, 2, Text(names[name_index]), Text(": "), Text(value), Text("\r\n"));
}

bool Header_helper::add_http_finish()
{
    return add(*this, 1, Text("\r\n"));
}
