#include "util/text.h"

#include "tests/support/Temporary_folder.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <random>
#include <string>
#include <vector>
#include <wordexp.h>

namespace {

int result_to_pretend = 0; // 0 lets the C library answer
int result_of_last_call = 0;
int flags_of_last_call = -1;
int frees = 0;

} // namespace

// The program's own wordexp() and wordfree() stand before the C library's and watch them.
extern "C" QUARVEL_EXPORT int wordexp(const char* text, wordexp_t* words, int flags)
{
    flags_of_last_call = flags;
    static const auto real =
        reinterpret_cast<int (*)(const char*, wordexp_t*, int)>(dlsym(RTLD_NEXT, "wordexp"));
    if (result_to_pretend == 0)
        return result_of_last_call = real(text, words, flags);
    // POSIX: out of memory leaves the words found so far, any other failure leaves the structure as it was.
    if (result_to_pretend == WRDE_NOSPACE && real("first second", words, flags) != 0)
        ADD_FAILURE() << "the C library has no words to begin with";
    return result_of_last_call = result_to_pretend;
}

extern "C" QUARVEL_EXPORT void wordfree(wordexp_t* words)
{
    static const auto real = reinterpret_cast<void (*)(wordexp_t*)>(dlsym(RTLD_NEXT, "wordfree"));
    ++frees;
    real(words);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Util::String::expand_shell;
using Util::String::trim_trailing;

/// Sets a variable of the environment, or removes it, and puts it back.
class Variable {
public:
    Variable(const char* variable, const char* value) : name(variable)
    {
        const char* const before = std::getenv(name);
        was_set = before != nullptr;
        old = was_set ? before : "";
        assign(value);
    }
    ~Variable() { assign(was_set ? old.c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void assign(const char* value) const
    {
        if (value != nullptr)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }

    const char* name;
    bool was_set = false;
    std::string old;
};

} // namespace

TEST(trim_trailing, cuts_the_end_and_only_the_end)
{
    struct Case {
        std::string text;
        std::string chars;
        std::string expected;
    };
    const Case cases[] = {{"abc  ", " ", "abc"},
                          {"   ", " ", ""},
                          {"a\r\n", "\r\n", "a"},
                          {"a\n\r\n", "\r\n", "a"},
                          {"", " ", ""},
                          {"", "", ""},
                          {"abc  ", "", "abc  "},
                          {"  abc", " ", "  abc"},
                          {" a b ", " ", " a b"},
                          {"abc", "c", "ab"},
                          {"abc", "cba", ""},
                          {"abc", "ab", "abc"},
                          {"x", "y", "x"},
                          {std::string("ab\0\0", 4), std::string("\0", 1), "ab"},
                          {std::string("a\0b ", 4), " ", std::string("a\0b", 3)},
                          {"\xC3\xA9\xFF", "\xFF", "\xC3\xA9"}};
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, trim_trailing(c.text, c.chars))
            << '"' << c.text << "\" and \"" << c.chars << '"';
}

TEST(trim_trailing, agrees_with_cutting_one_character_at_a_time)
{
    std::mt19937 random(20180405);
    for (int i = 0; i < 10000; ++i) {
        std::string text(random() % 12, '\0');
        for (char& ch : text)
            ch = static_cast<char>('a' + random() % 4);
        const std::string chars = std::string("abcd").substr(random() % 4, random() % 4);
        std::string expected = text;
        while (!expected.empty() && chars.find(expected.back()) != std::string::npos)
            expected.pop_back();
        ASSERT_EQ(expected, trim_trailing(text, chars))
            << '"' << text << "\" and \"" << chars << "\", case " << i;
    }
}

TEST(expand_shell, splits_into_words_and_removes_quotes)
{
    EXPECT_THAT(expand_shell("a 'b c'"), ElementsAre("a", "b c"));
    EXPECT_THAT(expand_shell("  a\tb  "), ElementsAre("a", "b"));
    EXPECT_THAT(expand_shell(R"(a\ b "c d"e '')"), ElementsAre("a b", "c de", ""));
    EXPECT_EQ(0, flags_of_last_call);
}

TEST(expand_shell, of_nothing_is_no_words)
{
    EXPECT_THAT(expand_shell(""), IsEmpty());
    EXPECT_THAT(expand_shell(" \t "), IsEmpty());
}

TEST(expand_shell, expands_the_home_directory)
{
    const Variable home("HOME", "/home/driver");
    EXPECT_THAT(expand_shell("~/x"), ElementsAre("/home/driver/x"));
    EXPECT_THAT(expand_shell("'~/x' a~"), ElementsAre("~/x", "a~"));
}

TEST(expand_shell, expands_variables_and_splits_their_values)
{
    const Variable fields("QUARVEL_TEST_FIELDS", "north east");
    EXPECT_THAT(expand_shell("$QUARVEL_TEST_FIELDS"), ElementsAre("north", "east"));
    EXPECT_THAT(expand_shell("\"${QUARVEL_TEST_FIELDS}\""), ElementsAre("north east"));
    EXPECT_THAT(expand_shell("'$QUARVEL_TEST_FIELDS'"), ElementsAre("$QUARVEL_TEST_FIELDS"));
}

TEST(expand_shell, takes_an_undefined_variable_for_nothing)
{
    const Variable undefined("QUARVEL_TEST_UNDEFINED", nullptr);
    EXPECT_THAT(expand_shell("$QUARVEL_TEST_UNDEFINED"), IsEmpty());
    EXPECT_THAT(expand_shell("a${QUARVEL_TEST_UNDEFINED}b \"$QUARVEL_TEST_UNDEFINED\""),
                ElementsAre("ab", ""));
    EXPECT_EQ(0, result_of_last_call);
}

TEST(expand_shell, runs_commands_and_computes)
{
    EXPECT_THAT(expand_shell("$(echo one two) `echo three`"), ElementsAre("one", "two", "three"));
    EXPECT_THAT(expand_shell("$((6 * 7))"), ElementsAre("42"));
}

TEST(expand_shell, finds_files_by_pattern_and_keeps_a_pattern_without_any)
{
    const Temporary_folder folder;
    for (const char* name : {"b.log", "a.log", "c.txt"})
        folder.file(name);
    EXPECT_THAT(expand_shell(folder.path("*.log")), ElementsAre(folder.path("a.log"), folder.path("b.log")));
    EXPECT_THAT(expand_shell(folder.path("*.csv")), ElementsAre(folder.path("*.csv")));
}

TEST(expand_shell, of_a_text_that_the_shell_refuses_is_no_words)
{
    struct Case {
        const char* text;
        int result;
    };
    const Case cases[] = {{"a 'b", WRDE_SYNTAX},   {"a \"b", WRDE_SYNTAX},  {"a $(b", WRDE_SYNTAX},
                          {"a ${b", WRDE_SYNTAX},  {"a b|c", WRDE_BADCHAR}, {"a b;c", WRDE_BADCHAR},
                          {"a b&", WRDE_BADCHAR},  {"a <b", WRDE_BADCHAR},  {"a >b", WRDE_BADCHAR},
                          {"a (b)", WRDE_BADCHAR}, {"a {b}", WRDE_BADCHAR}, {"a\nb", WRDE_BADCHAR}};
    for (const Case& c : cases) {
        EXPECT_THAT(expand_shell(c.text), IsEmpty()) << c.text;
        EXPECT_EQ(c.result, result_of_last_call) << c.text;
    }
}

TEST(expand_shell, is_no_words_after_a_failure_that_leaves_the_result_untouched)
{
    // The first two need a flag that is never set, so the C library has no occasion to answer them.
    const int failures[] = {WRDE_BADVAL, WRDE_CMDSUB, WRDE_SYNTAX, WRDE_BADCHAR, WRDE_NOSYS, 4711};
    for (const int failure : failures) {
        result_to_pretend = failure;
        EXPECT_THAT(expand_shell("a b"), IsEmpty()) << failure;
        result_to_pretend = 0;
    }
}

TEST(expand_shell, keeps_the_words_found_before_memory_ran_out_and_frees_them)
{
    result_to_pretend = WRDE_NOSPACE;
    frees = 0;
    EXPECT_THAT(expand_shell("first second third"), ElementsAre("first", "second"));
    EXPECT_EQ(1, frees);
    result_to_pretend = 0;
}

TEST(expand_shell, frees_what_it_got)
{
    frees = 0;
    expand_shell("a b c");
    EXPECT_EQ(1, frees);
}

TEST(expand_shell, reads_up_to_the_first_zero_character)
{
    EXPECT_THAT(expand_shell(std::string("a b\0c d", 7)), ElementsAre("a", "b"));
}

TEST(expand_shell, returns_ten_thousand_words_in_order)
{
    std::string text;
    for (int i = 0; i < 10000; ++i)
        text += "w" + std::to_string(i) + ' ';
    const std::vector<std::string> words = expand_shell(text);
    ASSERT_EQ(10000U, words.size());
    for (std::size_t i = 0; i < words.size(); ++i)
        ASSERT_EQ("w" + std::to_string(i), words[i]);
}
