// The first two lines of the input go to every parser; what they make of the first one is printed, and
// ordered beside what they make of the second one.

#include "util/Version.h"

#include "tests/fuzz/fuzz.h"
#include "tests/support/Version_model.h"

#include <optional>

namespace {

using Util::Version;
using namespace Version_model;

const struct Parser {
    const char* name;
    bool (Version::*parse)(const char*);
    std::optional<std::string> (*model)(const std::string&);
} PARSERS[] = {
    {"decode_velmar_version_number", &Version::decode_velmar_version_number, decode},
    {"parse_velmar_version_string", &Version::parse_velmar_version_string, velmar},
    {"parse_arwest_version_string", &Version::parse_arwest_version_string,
     [](const std::string& text) { return modem(text, true); }},
    {"parse_satel_version_string", &Version::parse_satel_version_string,
     [](const std::string& text) { return modem(text, false); }},
    {"parse_satel_easy_version_string", &Version::parse_satel_easy_version_string, easy},
};

Version marked()
{
    Version v;
    v.major = v.minor = v.patch = v.build = v.revision = 90;
    v.revision_letter = 'Q';
    v.test = true;
    return v;
}

/// What the parsers make of a text, and from each the revision that none of them reads.
std::vector<Version> parsed(const std::string& line)
{
    const std::string text = line.substr(0, line.find('\0'));
    // As large as the text, so that the address checks see a character too much.
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    std::vector<Version> all;
    for (const Parser& parser : PARSERS) {
        Version v = marked();
        const std::optional<std::string> model = parser.model(text);
        expect_equal(parser.name, model.has_value() ? 1 : 0, (v.*parser.parse)(exact.data()) ? 1 : 0);
        expect_equal(parser.name, model.value_or(fields(marked())), fields(v));
        if (!model)
            continue;
        all.push_back(v);
        v.revision = v.build;
        all.push_back(v); // invalid where there is one
        v.patch = v.build = -1;
        all.push_back(v);
    }
    return all;
}

bool is_valid(const Version& v)
{
    return v.major >= 0 && v.minor >= 0 && (v.revision < 0 || (v.patch < 0 && v.build < 0));
}

std::vector<std::string> pieces(const Version& v)
{
    std::string numbers;
    if (v.patch >= 0)
        numbers += " p" + std::to_string(v.patch);
    if (v.build >= 0)
        numbers += " b" + std::to_string(v.build);
    if (v.revision >= 0)
        numbers += " Rev. " + std::to_string(v.revision);
    return {std::to_string(v.major) + '.' + std::to_string(v.minor), numbers, v.test ? " Test" : ""};
}

void compare_text(const Version& v, std::size_t size)
{
    std::vector<char> buf(size, '#');
    buf.reserve(1); // not null where there is no room
    const char* const answer = v.to_string(buf.data(), static_cast<unsigned>(size));
    expect_equal("whether to_string() writes", is_valid(v), answer != nullptr);
    if (!is_valid(v)) {
        expect_equal("a buffer that stays", std::string(size, '#'), std::string(buf.begin(), buf.end()));
        return;
    }
    expect_equal("whether to_string() gives the buffer", true, answer == buf.data());
    if (size == 0)
        return;
    expect_equal("the last byte", 0, int{buf.back()});
    expect_equal("the text", shown(pieces(v), size), std::string(answer));
}

bool model_less(const Version& a, const Version& b)
{
    if (a.major != b.major)
        return a.major < b.major;
    return a.minor != b.minor ? a.minor < b.minor : less_by_the_table(a, b);
}

void compare_order(const Version& a, const Version& b)
{
    const bool compatible = is_valid(a) && is_valid(b) && (a.revision >= 0) == (b.revision >= 0);
    expect_equal("is_compatible_with()", compatible, a.is_compatible_with(b));
    if (!compatible) {
        expect_equal("compare_version()", -2, a.compare_version(b));
        return;
    }
    const bool less = model_less(a, b);
    const bool greater = model_less(b, a);
    const bool equal = a.major == b.major && a.minor == b.minor && a.patch == b.patch && a.build == b.build &&
                       a.revision == b.revision;
    expect_equal("compare_version()", less ? -1 : greater ? 1 : 0, a.compare_version(b));
    expect_equal("<", less, a < b);
    expect_equal(">", greater, a > b);
    expect_equal("<=", !greater, a <= b);
    expect_equal(">=", !less, a >= b);
    expect_equal("==", equal, a == b);
    expect_equal("!=", !equal, a != b);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::vector<Version> first = parsed(input.line());
    const std::vector<Version> second = parsed(input.line());
    for (const Version& a : first) {
        compare_text(a, size % 60);
        compare_text(a, 60);
        for (const Version& b : second) {
            compare_order(a, b);
            compare_order(b, a);
        }
    }
    return 0;
}
