// First, and on purpose: with these two, major and minor are macros in older C libraries.
#include <sys/types.h>

#include <sys/sysmacros.h>

#include "util/Version.h"

#include "tests/support/Function_text.h"
#include "tests/support/Table.h"
#include "tests/support/Version_model.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using Util::Version;
using namespace Version_model;

static_assert(offsetof(Version, major) == 0 && offsetof(Version, minor) == 4 &&
              offsetof(Version, patch) == 8 && offsetof(Version, build) == 12 &&
              offsetof(Version, revision) == 16 && offsetof(Version, revision_letter) == 20 &&
              offsetof(Version, test) == 21 && sizeof(Version) == 24);

template <typename T, typename... MEMBERS>
constexpr bool all_are(MEMBERS Version::*... /*members*/)
{
    return (std::is_same_v<T, MEMBERS> && ...);
}
static_assert(all_are<std::int32_t>(&Version::major, &Version::minor, &Version::patch, &Version::build,
                                    &Version::revision));
static_assert(all_are<char>(&Version::revision_letter) && all_are<bool>(&Version::test));
static_assert(std::is_trivially_copyable_v<Version> && std::is_standard_layout_v<Version> &&
              std::is_aggregate_v<Version>);

static_assert(all_are<bool(const char*)>(&Version::decode_velmar_version_number,
                                         &Version::parse_velmar_version_string,
                                         &Version::parse_arwest_version_string,
                                         &Version::parse_satel_version_string,
                                         &Version::parse_satel_easy_version_string));
static_assert(all_are<bool(const char*, const char*)>(&Version::parse_arwest_satel_version_string,
                                                      &Version::parse_standard_version_string));
static_assert(all_are<bool(const Version&) const>(&Version::is_compatible_with, &Version::operator==,
                                                  &Version::operator!=, &Version::operator<,
                                                  &Version::operator>, &Version::operator<=,
                                                  &Version::operator>=));
static_assert(all_are<int(const Version&) const>(&Version::compare_version));
static_assert(all_are<char*(char*, unsigned) const>(&Version::to_string));
static_assert(all_are<void(const char*, const char*) const>(&Version::print));

Version make(int major_number, int minor_number, int patch = -1, int build = -1, int revision = -1)
{
    Version v;
    v.major = major_number;
    v.minor = minor_number;
    v.patch = patch;
    v.build = build;
    v.revision = revision;
    return v;
}

/// Nothing that a parser leaves behind, so that each field it forgets is seen.
Version marked()
{
    Version v = make(91, 92, 93, 94, 95);
    v.revision_letter = 'Q';
    v.test = true;
    return v;
}

Version marked_the_other_way()
{
    Version v = marked();
    v.test = false;
    return v;
}

using Parser = std::function<bool(Version&, const char*)>;

const Parser DECODE = [](Version& v, const char* text) { return v.decode_velmar_version_number(text); };
const Parser VELMAR = [](Version& v, const char* text) { return v.parse_velmar_version_string(text); };
const Parser ARWEST = [](Version& v, const char* text) { return v.parse_arwest_version_string(text); };
const Parser SATEL = [](Version& v, const char* text) { return v.parse_satel_version_string(text); };
const Parser EASY = [](Version& v, const char* text) { return v.parse_satel_easy_version_string(text); };

/// The fields that a parser sets, or nothing when it refuses; checks that it sets all or none.
std::optional<std::string> parsed(const Parser& parse, const char* text)
{
    Version v = marked();
    Version other = marked_the_other_way();
    const bool accepted = parse(v, text);
    EXPECT_EQ(accepted, parse(other, text));
    if (!accepted) {
        EXPECT_EQ(fields(marked()), fields(v)) << text;
        EXPECT_EQ(fields(marked_the_other_way()), fields(other)) << text;
        return std::nullopt;
    }
    EXPECT_EQ(fields(v), fields(other)) << text;
    return fields(v);
}

struct Case {
    const char* text;
    const char* fields; // null for a refusal
};

template <std::size_t N>
void expect_all(const Parser& parse, const Case (&cases)[N])
{
    for (const Case& c : cases) {
        const auto expected = c.fields != nullptr ? std::optional<std::string>(c.fields) : std::nullopt;
        EXPECT_EQ(expected, parsed(parse, c.text)) << '"' << c.text << '"';
    }
}

void expect_as_modelled(const std::string& text)
{
    EXPECT_EQ(Version_model::decode(text), parsed(DECODE, text.c_str()));
    EXPECT_EQ(Version_model::velmar(text), parsed(VELMAR, text.c_str()));
    EXPECT_EQ(Version_model::modem(text, true), parsed(ARWEST, text.c_str()));
    EXPECT_EQ(Version_model::modem(text, false), parsed(SATEL, text.c_str()));
    EXPECT_EQ(Version_model::easy(text), parsed(EASY, text.c_str()));
}

/// What the C library makes of a number: the nearest long, of which an int keeps the low bits.
int clamped(const char* digits)
{
    return static_cast<int>(std::strtol(digits, nullptr, 10));
}

} // namespace

TEST(Version, is_built_invalid_with_everything_absent)
{
    const Version v;
    EXPECT_EQ("-1 -1 -1 -1 -1 none", fields(v));
    char text[8] = "before";
    EXPECT_EQ(nullptr, v.to_string(text, sizeof text));
    EXPECT_STREQ("before", text);
}

TEST(Version, velmar_reads_every_form_with_and_without_white_space)
{
    const Case cases[] = {{"4.2p3b7", "4 2 3 7 -1 none"},
                          {"4.2 p3b7", "4 2 3 7 -1 none"},
                          {"4.2 p3 b7", "4 2 3 7 -1 none"},
                          {"4.2p3 b7", "4 2 3 7 -1 none"},
                          {"4.2 \t\n p3\r\nb7", "4 2 3 7 -1 none"},
                          {" 4. 2p 3b\t7", "4 2 3 7 -1 none"},
                          {"4.2p3", "4 2 3 -1 -1 none"},
                          {"4.2  p3", "4 2 3 -1 -1 none"},
                          {"4.2b7", "4 2 -1 7 -1 none"},
                          {"4.2 b7", "4 2 -1 7 -1 none"},
                          {"4.2\v\fb 7", "4 2 -1 7 -1 none"},
                          {"4.2", "4 2 -1 -1 -1 none"},
                          {"0.0", "0 0 -1 -1 -1 none"},
                          {"1.05", "1 5 -1 -1 -1 none"},
                          {"010.010p010b010", "10 10 10 10 -1 none"}};
    expect_all(DECODE, cases);
    expect_all(VELMAR, cases);
}

TEST(Version, velmar_ignores_what_follows_the_last_item)
{
    const Case cases[] = {{"4.2.9", "4 2 -1 -1 -1 none"},       {"4.2 test", "4 2 -1 -1 -1 none"},
                          {"4.2 b7 p3", "4 2 -1 7 -1 none"},    {"4.2p3b", "4 2 3 -1 -1 none"},
                          {"4.2p3 c7", "4 2 3 -1 -1 none"},     {"4.2p", "4 2 -1 -1 -1 none"},
                          {"4.2pb7", "4 2 -1 -1 -1 none"},      {"4.2 P3", "4 2 -1 -1 -1 none"},
                          {"4.2p3b7c8", "4 2 3 7 -1 none"},     {"4.2b7b8", "4 2 -1 7 -1 none"},
                          {"4.0x10p3", "4 0 -1 -1 -1 none"},    {"4.2 b", "4 2 -1 -1 -1 none"},
                          {"5.33,31/JAN", "5 33 -1 -1 -1 none"}};
    expect_all(DECODE, cases);
}

TEST(Version, velmar_reads_signs)
{
    const Case cases[] = {{"+4.+2p+3b+7", "4 2 3 7 -1 none"},
                          {"-4.2", "-4 2 -1 -1 -1 none"},
                          {"4.-2", "4 -2 -1 -1 -1 none"},
                          {"4.2p-3b-7", "4 2 -3 -7 -1 none"},
                          {"+-4.2", nullptr},
                          {"4.- 2", nullptr}};
    expect_all(DECODE, cases);
}

TEST(Version, velmar_refuses_what_has_no_major_and_minor)
{
    const Case cases[] = {{"", nullptr},     {" ", nullptr},    {"4", nullptr},    {"4.", nullptr},
                          {"4 .2", nullptr}, {".2", nullptr},   {"v4.2", nullptr}, {"4,2", nullptr},
                          {"p3b7", nullptr}, {"4.p3", nullptr}, {"test", nullptr}, {"4p3", nullptr}};
    expect_all(DECODE, cases);
    expect_all(VELMAR, cases);
}

TEST(Version, only_the_velmar_string_may_begin_with_its_label)
{
    const Case labelled[] = {{"Version: 4.2 p3", "4 2 3 -1 -1 none"},
                             {"Version:   4.2p3b7", "4 2 3 7 -1 none"},
                             {"Version: 4.2 Version: 5.3", "4 2 -1 -1 -1 none"},
                             {"Version: Version: 4.2", nullptr},
                             {"Version:4.2", nullptr},
                             {"Version:\t4.2", nullptr},
                             {"version: 4.2", nullptr},
                             {" Version: 4.2", nullptr},
                             {"Version: ", nullptr},
                             {"Version:", nullptr},
                             {"Version: x", nullptr}};
    expect_all(VELMAR, labelled);
    for (const Case& c : labelled)
        EXPECT_EQ(std::nullopt, parsed(DECODE, c.text)) << c.text;
}

TEST(Version, a_null_text_is_refused)
{
    for (const Parser& parse : {VELMAR, ARWEST, SATEL, EASY})
        EXPECT_EQ(std::nullopt, parsed(parse, nullptr));
    EXPECT_FALSE(Version().parse_arwest_satel_version_string("%d.%d%c", nullptr));
    EXPECT_FALSE(Version().parse_standard_version_string("%d.%d.%d.%d", nullptr));
}

TEST(Version, arwest_reads_a_letter_in_either_case)
{
    expect_all(ARWEST, {{"Ver. 1.05 Rev. c test", "1 5 -1 -1 -1 C test"},
                        {"Ver. 1.05 Rev. C", "1 5 -1 -1 -1 C"},
                        {"Ver. 1.05 Rev. a", "1 5 -1 -1 -1 A"},
                        {"Ver. 1.05 Rev. z", "1 5 -1 -1 -1 Z"},
                        {"Ver.1.05Rev.Z", "1 5 -1 -1 -1 Z"},
                        {"Ver.\t1. 05\nRev.  A7", "1 5 -1 -1 -1 A"}});
}

TEST(Version, arwest_accepts_a_missing_or_odd_letter_as_none)
{
    expect_all(ARWEST, {{"Ver. 1.05", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev.", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. ", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 rev. c", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. 7", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. @", "1 5 -1 -1 -1 none"}, // before A
                        {"Ver. 1.05 Rev. [", "1 5 -1 -1 -1 none"}, // behind Z
                        {"Ver. 1.05 Rev. `", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. {", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. \xE9", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. \xFF", "1 5 -1 -1 -1 none"},
                        {"Ver. 1.05 Rev. \x80", "1 5 -1 -1 -1 none"},
                        {"Ver. -1.-5", "-1 -5 -1 -1 -1 none"}});
}

TEST(Version, arwest_refuses_what_has_no_major_and_minor)
{
    expect_all(ARWEST, {{"", nullptr},
                        {"Ver. 1", nullptr},
                        {"Ver. 1. Rev. c", nullptr},
                        {"Ver. x.05 Rev. c", nullptr},
                        {"Ver 1.05 Rev. c", nullptr},
                        {" Ver. 1.05", nullptr},
                        {"V1.05", nullptr},
                        {"1.05", nullptr},
                        {" test", nullptr}});
}

TEST(Version, satel_reads_the_character_next_to_the_number)
{
    expect_all(SATEL, {{"V2.10 ", "2 10 -1 -1 -1 none"},
                       {"V2.10", "2 10 -1 -1 -1 none"},
                       {"V2.10c", "2 10 -1 -1 -1 C"},
                       {"V2.10C ", "2 10 -1 -1 -1 C"},
                       {"V2.10Zz", "2 10 -1 -1 -1 Z"},
                       {"V2.10 c", "2 10 -1 -1 -1 none"}, // the blank is the character
                       {"V2.10.3", "2 10 -1 -1 -1 none"},
                       {"V 2. 10b", "2 10 -1 -1 -1 B"},
                       {"V2.10\xE4", "2 10 -1 -1 -1 none"},
                       {"V2.", nullptr},
                       {"V2", nullptr},
                       {"v2.10", nullptr},
                       {" V2.10", nullptr},
                       {"2.10", nullptr}});
}

TEST(Version, modem_texts_mark_a_test_firmware_in_three_spellings_after_a_blank)
{
    expect_all(SATEL, {{"V2.10 test", "2 10 -1 -1 -1 none test"},
                       {"V2.10c Test", "2 10 -1 -1 -1 C test"},
                       {"V2.10 TEST", "2 10 -1 -1 -1 none test"},
                       {"V2.10 some testing", "2 10 -1 -1 -1 none test"},
                       {"V2.10 teST", "2 10 -1 -1 -1 none"},
                       {"V2.10 tEST", "2 10 -1 -1 -1 none"},
                       {"V2.10Test", "2 10 -1 -1 -1 T"},
                       {"V2.10TEST", "2 10 -1 -1 -1 T"},
                       {"V2.10test", "2 10 -1 -1 -1 T"},
                       {"V2.10\ttest", "2 10 -1 -1 -1 none"},
                       {"V2.10 tes", "2 10 -1 -1 -1 none"}});
}

TEST(Version, modem_texts_are_read_by_any_format)
{
    Version v = marked();
    EXPECT_TRUE(v.parse_arwest_satel_version_string("radio %d/%d-%c", "radio 3/4-x Test"));
    EXPECT_EQ("3 4 -1 -1 -1 X test", fields(v));
    EXPECT_FALSE(v.parse_arwest_satel_version_string("radio %d/%d-%c", "radio 5"));
    EXPECT_EQ("3 4 -1 -1 -1 X test", fields(v));
    EXPECT_FALSE(v.parse_arwest_satel_version_string("radio", "radio")); // no item
    EXPECT_EQ("3 4 -1 -1 -1 X test", fields(v));
}

TEST(Version, standard_reads_two_to_four_numbers_and_gives_three_a_build_of_0)
{
    expect_all(EASY, {{"V1.2.3.4", "1 2 3 4 -1 none"},
                      {"V1.2.3.4.5", "1 2 3 4 -1 none"},
                      {"V06.16.3.61", "6 16 3 61 -1 none"},
                      {"V1.2.3", "1 2 3 0 -1 none"},
                      {"V1.2.3.", "1 2 3 0 -1 none"},
                      {"V1.2.3.x", "1 2 3 0 -1 none"},
                      {"V1.2", "1 2 -1 -1 -1 none"},
                      {"V1.2.", "1 2 -1 -1 -1 none"},
                      {"V1.2 .3", "1 2 -1 -1 -1 none"},
                      {"V1.2 test", "1 2 -1 -1 -1 none"},
                      {"V 1. 2. 3. 4", "1 2 3 4 -1 none"},
                      {"V-1.-2.-3.-4", "-1 -2 -3 -4 -1 none"},
                      {"V1.", nullptr},
                      {"V1", nullptr},
                      {"V", nullptr},
                      {"", nullptr},
                      {"v1.2", nullptr},
                      {"1.2.3.4", nullptr}});
}

TEST(Version, standard_texts_are_read_by_any_format)
{
    Version v = marked();
    EXPECT_TRUE(v.parse_standard_version_string("%d-%d-%d-%d", "7-8-9"));
    EXPECT_EQ("7 8 9 0 -1 none", fields(v));
    EXPECT_FALSE(v.parse_standard_version_string("%d-%d-%d-%d", "7"));
    EXPECT_FALSE(v.parse_standard_version_string("none", "none"));
    EXPECT_EQ("7 8 9 0 -1 none", fields(v));
}

TEST(Version, a_number_too_great_gives_what_the_c_library_makes_of_it)
{
    for (const char* digits : {"2147483647", "2147483648", "4294967295", "4294967296", "-2147483649",
                               "99999999999", "9223372036854775807", "9223372036854775808",
                               "-9223372036854775809", "123456789012345678901234567890"}) {
        Version v;
        const std::string text = std::string("1.") + digits + "p" + digits;
        EXPECT_TRUE(v.decode_velmar_version_number(text.c_str()));
        EXPECT_EQ(fields(make(1, clamped(digits), clamped(digits))), fields(v)) << digits;
        EXPECT_TRUE(v.parse_satel_easy_version_string((std::string("V") + digits + ".2").c_str()));
        EXPECT_EQ(fields(make(clamped(digits), 2)), fields(v)) << digits;
    }
}

TEST(Version, reads_recorded_texts_like_a_reader_by_hand)
{
    const Table table("versions/version-texts.tsv", '\t');
    if (!table.found())
        GTEST_SKIP() << "no recorded version texts at hand";
    ASSERT_GE(table.rows().size(), 18U);
    std::size_t accepted = 0;
    for (const Table::Row& row : table.rows()) {
        SCOPED_TRACE(row.at(0));
        expect_as_modelled(row.at(0));
        expect_as_modelled("Version: " + row.at(0));
        expect_as_modelled("V" + row.at(0));
        expect_as_modelled("Ver. " + row.at(0) + " Rev. d TEST");
        accepted += parsed(DECODE, row.at(0).c_str()).has_value() ? 1U : 0U;
        for (std::size_t cut = 0; cut < row.at(0).size(); ++cut) // from anywhere to the end
            expect_as_modelled(row.at(0).substr(cut));
    }
    EXPECT_EQ(5U, accepted); // 6.02, 4.50, 4.11.606, 5.33 and 5.1.0
}

TEST(Version, reads_random_texts_like_a_reader_by_hand)
{
    const char* const pieces[] = {"4",     "2",   "10", "007", ".",  ".",  ".",    "p",    "b",
                                  " ",     " ",   "\t", "-",   "+",  "V",  "Ver.", "Rev.", "Version: ",
                                  " test", "c",   "Z",  "x",   "p3", "b7", "4.2",  "V1.2", "Ver. 1.2 Rev. ",
                                  ".3",    "\xE9"};
    for (unsigned seed = 1; seed <= 10; ++seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < 1000; ++i) {
            std::string text;
            for (std::size_t left = random() % 8; left > 0; --left)
                text += pieces[random() % std::size(pieces)];
            SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << text);
            expect_as_modelled(text);
            ASSERT_FALSE(testing::Test::HasFailure());
        }
    }
}

namespace {

/// A version of major.minor 4.2 of a form, with the numbers that the form has.
Version of(Form form, int patch, int build)
{
    switch (form) {
    case BUILD:
        return make(4, 2, -1, build);
    case PATCH:
        return make(4, 2, patch);
    case BOTH:
        return make(4, 2, patch, build);
    case REVISION:
        return make(4, 2, -1, -1, build);
    default:
        return make(4, 2);
    }
}

} // namespace

TEST(Version, orders_equal_major_and_minor_by_the_table_of_forms)
{
    struct Numbers {
        int patch;
        int build;
    };
    std::vector<Numbers> numbers;
    for (const int patch : {0, 1, 9, INT_MAX})
        for (const int build : {0, 1, 9, INT_MAX})
            numbers.push_back({patch, build});
    for (const Cell& cell : CELLS)
        for (const Numbers& left : numbers)
            for (const Numbers& right : numbers) {
                const Version a = of(cell.left, left.patch, left.build);
                const Version b = of(cell.right, right.patch, right.build);
                const bool less = less_by_the_table(a, b);
                const bool greater = less_by_the_table(b, a);
                SCOPED_TRACE(fields(a) + " and " + fields(b));
                ASSERT_EQ(less, a < b);
                ASSERT_EQ(greater, a > b);
                ASSERT_EQ(!greater, a <= b);
                ASSERT_EQ(!less, a >= b);
                ASSERT_EQ(less ? -1 : (greater ? 1 : 0), a.compare_version(b));
            }
}

TEST(Version, keeps_both_contradictions_of_the_table)
{
    const Version plain = make(4, 2);
    const Version both = make(4, 2, 9, 9);
    EXPECT_TRUE(both < plain && plain < both && both > plain && plain > both);
    EXPECT_FALSE(both <= plain || plain <= both || both >= plain || plain >= both);
    EXPECT_EQ(-1, plain.compare_version(both));
    EXPECT_EQ(-1, both.compare_version(plain));

    const Version patch = make(4, 2, 1);
    EXPECT_TRUE(both < patch && patch < both);
    EXPECT_EQ(-1, patch.compare_version(both));
    EXPECT_EQ(-1, both.compare_version(patch));
    EXPECT_FALSE(make(4, 2, 10) < both);
    EXPECT_EQ(1, make(4, 2, 10).compare_version(both));
}

TEST(Version, orders_by_major_and_then_minor_whatever_the_forms)
{
    const std::pair<int, int> ascending[] = {{0, 0},  {0, INT_MAX}, {1, 0},      {1, 9},
                                             {1, 10}, {2, 1},       {INT_MAX, 0}};
    for (std::size_t i = 0; i < std::size(ascending); ++i)
        for (std::size_t j = 0; j < std::size(ascending); ++j)
            for (const Form left : FORMS)
                for (const Form right : FORMS) {
                    if (i == j || (left == REVISION) != (right == REVISION))
                        continue;
                    Version a = of(left, 5, 5);
                    Version b = of(right, 5, 5);
                    std::tie(a.major, a.minor) = ascending[i];
                    std::tie(b.major, b.minor) = ascending[j];
                    ASSERT_EQ(i < j, a < b) << fields(a) << " and " << fields(b);
                    ASSERT_EQ(i > j, a > b);
                    ASSERT_EQ(i < j ? -1 : 1, a.compare_version(b));
                    ASSERT_FALSE(a == b);
                }
}

TEST(Version, equality_takes_the_five_numbers_and_neither_letter_nor_test)
{
    const Version version = make(4, 2, 3, 7);
    Version lettered = version;
    lettered.revision_letter = 'C';
    lettered.test = true;
    EXPECT_TRUE(version == lettered);
    EXPECT_FALSE(version != lettered);
    EXPECT_EQ(0, version.compare_version(lettered));
    for (const Version& other : {make(5, 2, 3, 7), make(4, 3, 3, 7), make(4, 2, 4, 7), make(4, 2, 3, 8),
                                 make(4, 2, 3), make(4, 2, -1, 7), make(4, 2)}) {
        EXPECT_FALSE(version == other) << fields(other);
        EXPECT_TRUE(version != other) << fields(other);
    }
    EXPECT_TRUE(make(4, 2, -1, -1, 5) == make(4, 2, -1, -1, 5));
    EXPECT_TRUE(make(4, 2, -1, -1, 5) != make(4, 2, -1, -1, 6));
}

TEST(Version, is_compatible_within_a_family_when_both_are_valid)
{
    for (const Form left : FORMS)
        for (const Form right : FORMS) {
            const Version a = of(left, 0, 0);
            const Version b = of(right, 0, 0);
            const bool one_family = (left == REVISION) == (right == REVISION);
            EXPECT_EQ(one_family, a.is_compatible_with(b));
            EXPECT_EQ(!one_family, a.compare_version(b) == -2);
        }
    const Version good = make(4, 2);
    const Version good_revision = make(4, 2, -1, -1, 0);
    for (const Version& bad : {Version(), make(-1, 2), make(4, -1), make(4, 2, 0, -1, 0),
                               make(4, 2, -1, 0, 0), make(4, 2, 1, 2, 3), make(INT_MIN, 0)})
        for (const Version& other : {good, good_revision, bad}) {
            EXPECT_FALSE(bad.is_compatible_with(other)) << fields(bad);
            EXPECT_FALSE(other.is_compatible_with(bad)) << fields(bad);
            EXPECT_EQ(-2, bad.compare_version(other));
            EXPECT_EQ(-2, other.compare_version(bad));
        }
}

TEST(Version, every_negative_number_counts_as_absent)
{
    const Version odd = make(4, 2, -3, -7, -5);
    EXPECT_TRUE(odd.is_compatible_with(make(4, 2)));
    EXPECT_FALSE(odd < make(4, 2));
    EXPECT_TRUE(make(4, 2, -1, 1) < odd); // as a build is less than neither
    char text[20];
    EXPECT_STREQ("4.2", odd.to_string(text, sizeof text));
    EXPECT_STREQ("4.2 Rev. 0", make(4, 2, -2, -2, 0).to_string(text, sizeof text));
    EXPECT_TRUE(odd != make(4, 2)); // equality is of the bare numbers
}

TEST(VersionDeathTest, comparing_incompatible_versions_stops_the_program)
{
    const Version plain = make(4, 2);
    const Version revision = make(4, 2, -1, -1, 1);
    const auto text = [](const char* operation) {
        return testing::AllOf(HasSubstr("util/Version.cpp:"),
                              HasSubstr(std::string(": bool Util::Version::") + operation + "(" +
                                        CONST_VERSION_REFERENCE +
                                        ") const: Assertion `is_compatible_with(rhs)' failed."));
    };
    EXPECT_DEATH(static_cast<void>(plain == revision), text("operator=="));
    EXPECT_DEATH(static_cast<void>(plain != revision), text("operator=="));
    EXPECT_DEATH(static_cast<void>(plain < revision), text("operator<"));
    EXPECT_DEATH(static_cast<void>(plain > revision), text("operator<"));
    EXPECT_DEATH(static_cast<void>(plain <= revision), text("operator<"));
    EXPECT_DEATH(static_cast<void>(plain >= revision), text("operator<"));
}

TEST(VersionDeathTest, comparing_an_invalid_version_stops_the_program_whatever_else_differs)
{
    const Version plain = make(4, 2);
    for (const Version& bad : {Version(), make(5, 2, 1, -1, 1), make(4, 2, -1, 1, 1)}) {
        EXPECT_DEATH(static_cast<void>(bad < plain), HasSubstr("is_compatible_with(rhs)"));
        EXPECT_DEATH(static_cast<void>(plain < bad), HasSubstr("is_compatible_with(rhs)"));
        EXPECT_DEATH(static_cast<void>(bad == bad), HasSubstr("is_compatible_with(rhs)"));
    }
}

TEST(VersionDeathTest, names_its_source_relative_to_the_tree)
{
    EXPECT_DEATH(static_cast<void>(Version() == Version()), testing::Not(HasSubstr("/util/Version.cpp")));
}

namespace {

struct Printed {
    Version version;
    std::vector<std::string> pieces;
};

std::vector<Printed> printed()
{
    std::vector<Printed> all{
        {make(10, 20), {"10.20"}},
        {make(0, 0), {"0.0"}},
        {make(4, 2, -1, 7), {"4.2", " b7"}},
        {make(4, 2, 3), {"4.2", " p3"}},
        {make(4, 12, 3, 7), {"4.12", " p3 b7"}},
        {make(4, 2, 0, 0), {"4.2", " p0 b0"}},
        {make(4, 2, -1, -1, 15), {"4.2", " Rev. 15"}},
        {make(INT_MAX, INT_MAX, INT_MAX, INT_MAX), {"2147483647.2147483647", " p2147483647 b2147483647"}}};
    for (std::size_t i = all.size(); i-- > 0;) {
        Printed test = all[i];
        test.version.test = true;
        test.version.revision_letter = 'C'; // never shown
        test.pieces.emplace_back(" Test");
        all.push_back(test);
    }
    return all;
}

} // namespace

TEST(Version, to_string_cuts_every_piece_to_its_room_at_every_size)
{
    for (const Printed& p : printed())
        for (unsigned size = 1; size <= 60; ++size) {
            char text[64];
            std::memset(text, '#', sizeof text);
            ASSERT_EQ(text, p.version.to_string(text, size));
            ASSERT_EQ(Version_model::shown(p.pieces, size), text) << fields(p.version) << ", size " << size;
            ASSERT_EQ(0, text[size - 1]);
            ASSERT_EQ(std::string(64 - size, '#'), std::string(text + size, text + 64)) << size;
        }
}

TEST(Version, to_string_leaves_the_last_byte_but_one_unused_by_a_cut_piece)
{
    const struct {
        Version version;
        unsigned size;
        const char* text;
    } cases[] = {{make(10, 20), 1, ""},
                 {make(10, 20), 4, "10."},
                 {make(10, 20), 5, "10.2"},
                 {make(10, 20), 6, "10.20"},
                 {make(4, 2, 3, 7), 4, "4.2"},
                 {make(4, 2, 3, 7), 5, "4.2"},
                 {make(4, 2, 3, 7), 6, "4.2 "},
                 {make(4, 2, 3, 7), 10, "4.2 p3 b"},
                 {make(4, 2, 3, 7), 11, "4.2 p3 b7"}}; // 9 characters and their end would fit 10
    for (const auto& c : cases) {
        char text[16];
        EXPECT_STREQ(c.text, c.version.to_string(text, c.size)) << c.size;
    }
}

TEST(Version, to_string_shows_test_in_one_spelling)
{
    char text[32];
    for (const char* spelling : {"Ver. 1.05 Rev. c test", "Ver. 1.05 Rev. c Test", "Ver. 1.05 Rev. c TEST"}) {
        Version v;
        ASSERT_TRUE(v.parse_arwest_version_string(spelling));
        EXPECT_STREQ("1.5 Test", v.to_string(text, sizeof text));
    }
}

TEST(Version, to_string_writes_nothing_into_no_room_or_for_an_invalid_version)
{
    char text[] = "fences";
    EXPECT_EQ(text + 3, make(4, 2, 3, 7).to_string(text + 3, 0));
    EXPECT_STREQ("fences", text);
    for (const Version& bad :
         {Version(), make(-1, 2), make(4, -1), make(4, 2, 1, -1, 1), make(4, 2, -1, 1, 1)})
        for (const unsigned size : {0U, 1U, 7U}) {
            EXPECT_EQ(nullptr, bad.to_string(text, size));
            EXPECT_STREQ("fences", text);
        }
}

TEST(Version, prints_between_prefix_and_suffix_to_standard_output)
{
    testing::internal::CaptureStdout();
    make(4, 2, 3, 7).print("Firmware: ", ".\n");
    Version().print("Modem: ", "%d\n"); // no format: shown as it stands
    make(INT_MAX, INT_MAX, INT_MAX, INT_MAX).print("%s", "");
    EXPECT_EQ("Firmware: 4.2 p3 b7.\n"
              "Modem: <Invalid version>%d\n"
              "%s2147483647.2147483647 p2147483647 b2147483647",
              testing::internal::GetCapturedStdout());
}
