#pragma once

#include "util/Version.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A second way to read, order and show what a Util::Version holds.
namespace Version_model {

using Util::Version;

constexpr char NO_LETTER = static_cast<char>(-1);

/// All seven fields to the letter; operator== leaves two out and stops for versions that do not compare.
inline std::string fields(const Version& v)
{
    std::string text;
    for (const int number : {v.major, v.minor, v.patch, v.build, v.revision})
        text += std::to_string(number) + " ";
    return text + (v.revision_letter == NO_LETTER ? std::string("none") : std::string(1, v.revision_letter)) +
           (v.test ? " test" : "");
}

/// Reads by hand, character by character, from the C standard's words on fscanf().
class Reader {
public:
    explicit Reader(std::string what) : text(std::move(what)) {}

    void blanks()
    {
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0)
            ++at;
    }

    bool literal(const std::string& word)
    {
        const bool is_there = text.compare(at, word.size(), word) == 0;
        at += is_there ? word.size() : 0;
        return is_there;
    }

    bool number(int& value)
    {
        blanks();
        std::size_t end = at;
        if (end < text.size() && (text[end] == '+' || text[end] == '-'))
            ++end;
        const std::size_t digits = end;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0)
            ++end;
        if (end == digits)
            return false;
        value = static_cast<int>(std::strtol(text.substr(at, end - at).c_str(), nullptr, 10));
        at = end;
        return true;
    }

    bool character(char& c)
    {
        if (at == text.size())
            return false;
        c = text[at++];
        return true;
    }

    /// Whether blanks, a letter and a number follow; what was read of them stays read only if they do.
    bool lettered(const char* letter, int& value)
    {
        const std::size_t before = at;
        blanks();
        if (literal(letter) && number(value))
            return true;
        at = before;
        return false;
    }

private:
    std::string text;
    std::size_t at = 0;
};

inline std::optional<std::string> decode(const std::string& text)
{
    Reader reader(text);
    Version v;
    if (!reader.number(v.major) || !reader.literal(".") || !reader.number(v.minor))
        return std::nullopt;
    reader.lettered("p", v.patch);
    reader.lettered("b", v.build);
    return fields(v);
}

inline std::optional<std::string> velmar(const std::string& text)
{
    const auto plain = decode(text);
    return plain || text.rfind("Version: ", 0) != 0 ? plain : decode(text.substr(9));
}

inline bool has_test(const std::string& text)
{
    const std::vector<std::string> marks{" test", " Test", " TEST"};
    return std::any_of(marks.begin(), marks.end(),
                       [&text](const std::string& mark) { return text.find(mark) != std::string::npos; });
}

inline std::optional<std::string> modem(const std::string& text, bool arwest)
{
    Reader reader(text);
    Version v;
    v.test = has_test(text);
    if (!reader.literal(arwest ? "Ver." : "V") || !reader.number(v.major) || !reader.literal(".") ||
        !reader.number(v.minor))
        return std::nullopt;
    bool has_more = true;
    if (arwest) {
        reader.blanks();
        has_more = reader.literal("Rev.");
        reader.blanks();
    }
    char letter = 0;
    const std::string lower = "abcdefghijklmnopqrstuvwxyz";
    const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    if (has_more && reader.character(letter)) {
        const std::size_t place = std::min(lower.find(letter), upper.find(letter));
        v.revision_letter = place != std::string::npos ? upper[place] : NO_LETTER;
    }
    return fields(v);
}

inline std::optional<std::string> easy(const std::string& text)
{
    Reader reader(text);
    Version v;
    if (!reader.literal("V") || !reader.number(v.major) || !reader.literal(".") || !reader.number(v.minor))
        return std::nullopt;
    int patch = 0;
    int build = 0;
    if (reader.literal(".") && reader.number(patch)) {
        v.patch = patch;
        v.build = reader.literal(".") && reader.number(build) ? build : 0;
    }
    return fields(v);
}

enum Form { PLAIN, BUILD, PATCH, BOTH, REVISION };
constexpr Form FORMS[] = {PLAIN, BUILD, PATCH, BOTH, REVISION};

/// Of a valid version.
inline Form form_of(const Version& v)
{
    if (v.revision >= 0)
        return REVISION;
    return v.patch >= 0 ? (v.build >= 0 ? BOTH : PATCH) : v.build >= 0 ? BUILD : PLAIN;
}

struct Cell {
    Form left;
    Form right;
    // Whether left is less than right, with left's numbers (patch, build) smaller, equal or greater than
    // right's: smaller-smaller, smaller-equal, smaller-greater, equal-smaller, ...
    const char* less;
};

// The table, cell by cell: n no, y yes.
const Cell CELLS[] = {
    {PLAIN, PLAIN, "nnnnnnnnn"}, {PLAIN, BUILD, "nnnnnnnnn"},       {PLAIN, PATCH, "yyyyyyyyy"},
    {PLAIN, BOTH, "yyyyyyyyy"},  {BUILD, PLAIN, "yyyyyyyyy"},       {BUILD, BUILD, "ynnynnynn"},
    {BUILD, PATCH, "yyyyyyyyy"}, {BUILD, BOTH, "yyyyyyyyy"},        {PATCH, PLAIN, "nnnnnnnnn"},
    {PATCH, BUILD, "nnnnnnnnn"}, {PATCH, PATCH, "yyynnnnnn"},       {PATCH, BOTH, "yyynnnnnn"},
    {BOTH, PLAIN, "yyyyyyyyy"},  {BOTH, BUILD, "nnnnnnnnn"},        {BOTH, PATCH, "yyyyyyyyy"},
    {BOTH, BOTH, "yyyynnnnn"},   {REVISION, REVISION, "ynnynnynn"}, // its revision is the second number here
};

/// Whether a is less than b, two valid versions of one family and with the same major and minor.
inline bool less_by_the_table(const Version& a, const Version& b)
{
    const auto place = [](int left, int right) { return left < right ? 0U : (left == right ? 1U : 2U); };
    for (const Cell& cell : CELLS)
        if (cell.left == form_of(a) && cell.right == form_of(b))
            return cell.less[3 * place(a.patch, b.patch) + (cell.left == REVISION
                                                                ? place(a.revision, b.revision)
                                                                : place(a.build, b.build))] == 'y';
    std::abort(); // no such cell
}

/// What to_string() writes: each piece behind the first has a byte less than is left, pieces cut as texts.
inline std::string shown(const std::vector<std::string>& pieces, std::size_t size)
{
    std::string text = pieces.at(0).substr(0, size - 1);
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        const std::size_t left = size - 1 - text.size();
        text += pieces[i].substr(0, left > 0 ? left - 1 : 0);
    }
    return text;
}

} // namespace Version_model
