#include "util/Version.h"

#include <cassert>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

using Util::Version;

struct Velmar_format {
    const char* format;
    int items;
    std::int32_t Version::*third; // a fourth is the build
};

const Velmar_format VELMAR_FORMATS[] = {
    {"%d.%dp%db%d", 4, &Version::patch},   {"%d.%d p%db%d", 4, &Version::patch},
    {"%d.%d p%d b%d", 4, &Version::patch}, {"%d.%dp%d", 3, &Version::patch},
    {"%d.%d p%d", 3, &Version::patch},     {"%d.%db%d", 3, &Version::build},
    {"%d.%d b%d", 3, &Version::build},     {"%d.%d", 2, &Version::patch}};

enum Shape { PLAIN, BUILD_ONLY, PATCH_ONLY, PATCH_AND_BUILD, REVISION, MIXED, SHAPES };

enum Order { OUTSIDE, NO, YES, BY_BUILD, BY_PATCH, BY_PATCH_THEN_BUILD, BY_REVISION };

// Deliberate, contradictions included: see operator<() in the header. What is not named is outside.
constexpr Order LESS[SHAPES][SHAPES] = {{NO, NO, YES, YES},
                                        {YES, BY_BUILD, YES, YES},
                                        {NO, NO, BY_PATCH, BY_PATCH},
                                        {YES, NO, YES, BY_PATCH_THEN_BUILD},
                                        {OUTSIDE, OUTSIDE, OUTSIDE, OUTSIDE, BY_REVISION}};

/// sscanf() with a format that the caller chose; each item that it reads has its target.
template <typename... TARGETS>
int scan(const char* text, const char* format, TARGETS*... targets)
{
    // The formats of a receiver or modem family are passed in, so the compiler cannot see them here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return std::sscanf(text, format, targets...);
#pragma GCC diagnostic pop
}

bool is_present(std::int32_t number)
{
    return number >= 0;
}

Shape shape_of(const Version& v)
{
    const bool has_patch = is_present(v.patch);
    const bool has_build = is_present(v.build);
    if (is_present(v.revision))
        return has_patch || has_build ? MIXED : REVISION;
    if (has_patch)
        return has_build ? PATCH_AND_BUILD : PATCH_ONLY;
    return has_build ? BUILD_ONLY : PLAIN;
}

bool is_valid(const Version& v)
{
    return v.major >= 0 && v.minor >= 0 && shape_of(v) != MIXED;
}

bool has_test_mark(const char* text)
{
    return std::strstr(text, " test") != nullptr || std::strstr(text, " Test") != nullptr ||
           std::strstr(text, " TEST") != nullptr;
}

/// Where the text in a buffer ends and the next piece goes.
struct Tail {
    // Deliberate: the buffer's last byte is not part of the room, though snprintf() ends within it anyway.
    Tail(char* buf, unsigned size)
        : end(buf + std::strlen(buf)), room(static_cast<std::size_t>(buf + size - 1 - end))
    {
    }

    char* end;
    std::size_t room;
};

/// Appends as snprintf() does.
void print_numbers(const Tail& tail, const Version& v)
{
    // What does not fit is cut, so nobody asks how long it would have been.
    switch (shape_of(v)) {
    case BUILD_ONLY:
        static_cast<void>(std::snprintf(tail.end, tail.room, " b%d", v.build));
        break;
    case PATCH_ONLY:
        static_cast<void>(std::snprintf(tail.end, tail.room, " p%d", v.patch));
        break;
    case PATCH_AND_BUILD:
        static_cast<void>(std::snprintf(tail.end, tail.room, " p%d b%d", v.patch, v.build));
        break;
    case REVISION:
        static_cast<void>(std::snprintf(tail.end, tail.room, " Rev. %d", v.revision));
        break;
    default:
        break;
    }
}

} // namespace

bool Util::Version::decode_velmar_version_number(const char* text)
{
    for (const Velmar_format& f : VELMAR_FORMATS) {
        Version read;
        if (scan(text, f.format, &read.major, &read.minor, &(read.*f.third), &read.build) == f.items) {
            *this = read;
            return true;
        }
    }
    return false;
}

bool Util::Version::parse_velmar_version_string(const char* text)
{
    if (text == nullptr)
        return false;
    if (decode_velmar_version_number(text))
        return true;
    constexpr char LABEL[] = "Version: ";
    constexpr std::size_t LABEL_LENGTH = sizeof LABEL - 1;
    return std::strncmp(text, LABEL, LABEL_LENGTH) == 0 && decode_velmar_version_number(text + LABEL_LENGTH);
}

bool Util::Version::parse_arwest_satel_version_string(const char* format, const char* text)
{
    if (text == nullptr)
        return false;
    Version read;
    read.test = has_test_mark(text);
    char letter = 0;
    const int items = scan(text, format, &read.major, &read.minor, &letter);
    if (items != 2 && items != 3)
        return false;
    const int upper = std::toupper(static_cast<unsigned char>(letter));
    if (items == 3 && upper >= 'A' && upper <= 'Z')
        read.revision_letter = static_cast<char>(upper);
    *this = read;
    return true;
}

bool Util::Version::parse_arwest_version_string(const char* text)
{
    return parse_arwest_satel_version_string("Ver. %d.%d Rev. %c", text);
}

bool Util::Version::parse_satel_version_string(const char* text)
{
    return parse_arwest_satel_version_string("V%d.%d%c ", text);
}

bool Util::Version::parse_standard_version_string(const char* format, const char* text)
{
    if (text == nullptr)
        return false;
    Version read;
    const int items = scan(text, format, &read.major, &read.minor, &read.patch, &read.build);
    if (items < 2 || items > 4)
        return false;
    if (items == 3)
        read.build = 0; // deliberate, though two items leave both at -1
    *this = read;
    return true;
}

bool Util::Version::parse_satel_easy_version_string(const char* text)
{
    return parse_standard_version_string("V%d.%d.%d.%d", text);
}

bool Util::Version::is_compatible_with(const Version& rhs) const
{
    return is_valid(*this) && is_valid(rhs) && (shape_of(*this) == REVISION) == (shape_of(rhs) == REVISION);
}

bool Util::Version::operator==(const Version& rhs) const
{
    assert(is_compatible_with(rhs));
    return major == rhs.major && minor == rhs.minor && patch == rhs.patch && build == rhs.build &&
           revision == rhs.revision;
}

bool Util::Version::operator!=(const Version& rhs) const
{
    return !(*this == rhs);
}

bool Util::Version::operator<(const Version& rhs) const
{
    assert(is_compatible_with(rhs));
    if (major != rhs.major)
        return major < rhs.major;
    if (minor != rhs.minor)
        return minor < rhs.minor;
    switch (LESS[shape_of(*this)][shape_of(rhs)]) {
    case NO:
        return false;
    case YES:
        return true;
    case BY_BUILD:
        return build < rhs.build;
    case BY_PATCH:
        return patch < rhs.patch;
    case BY_PATCH_THEN_BUILD:
        return patch != rhs.patch ? patch < rhs.patch : build < rhs.build;
    case BY_REVISION:
        return revision < rhs.revision;
    default:
        assert(false);
        return false;
    }
}

bool Util::Version::operator>(const Version& rhs) const
{
    return rhs < *this;
}

bool Util::Version::operator<=(const Version& rhs) const
{
    return !(rhs < *this);
}

bool Util::Version::operator>=(const Version& rhs) const
{
    return !(*this < rhs);
}

int Util::Version::compare_version(const Version& rhs) const
{
    if (!is_compatible_with(rhs))
        return -2;
    if (*this < rhs)
        return -1;
    return *this > rhs ? 1 : 0;
}

char* Util::Version::to_string(char* buf, unsigned size) const
{
    if (!is_valid(*this))
        return nullptr;
    if (size == 0)
        return buf;
    static_cast<void>(std::snprintf(buf, size, "%d.%d", major, minor));
    buf[size - 1] = 0; // also behind a shorter text
    print_numbers(Tail(buf, size), *this);
    if (test) {
        const Tail tail(buf, size);
        static_cast<void>(std::snprintf(tail.end, tail.room, " Test"));
    }
    return buf;
}

void Util::Version::print(const char* prefix, const char* suffix) const
{
    char text[80]; // the longest is 50 characters
    const char* const shown = to_string(text, sizeof text);
    std::printf("%s", prefix);
    std::printf("%s", shown != nullptr ? shown : "<Invalid version>");
    std::printf("%s", suffix);
}
