#include "util/String_builder_base.h"

#include "tests/support/Allocations.h"
#include "tests/support/String_model.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>

namespace {

static_assert(sizeof(String_builder_base) == 2 * sizeof(void*));
static_assert(std::is_convertible_v<String_base&, String_builder_base> &&
              std::is_convertible_v<String_base*, String_builder_base>);
static_assert(std::is_same_v<int, decltype(std::declval<String_builder_base&>().append(""))>);
static_assert(std::is_same_v<int, decltype(std::declval<String_builder_base&>().append('x'))>);
static_assert(std::is_same_v<const char*, decltype(std::declval<const String_builder_base&>().end())>);

/// A string in a buffer between two fences.
class Fenced_string {
public:
    explicit Fenced_string(int capacity) : buffer(capacity), s(buffer.data(), capacity) {}
    Fenced_string(const Fenced_string&) = delete;
    Fenced_string& operator=(const Fenced_string&) = delete;

    String_base& string() { return s; }
    std::string contents() const { return buffer.contents(); }
    bool fences_stand() const { return buffer.fences_stand(); }

private:
    Fenced buffer;
    String_base s;
};

std::string zeros(std::size_t count)
{
    return std::string(count, '\0');
}

std::ptrdiff_t cursor(const String_builder_base& builder)
{
    return builder.end() - builder.begin();
}

/// Hides from the compiler what it points to: such a text is measured when the program runs.
const char* unknown(const char* s)
{
    const char* volatile hidden = s;
    return hidden;
}

/// A function so small that the compiler does not think twice about appending inline.
[[gnu::noinline]] void append_xy(String_builder_base& builder)
{
    builder.append("xy");
}

} // namespace

TEST(String_builder_base, keeps_target_and_cursor_in_this_order)
{
    Fenced_string text(10);
    text.string() = "abc";
    const String_builder_base builder(text.string());
    String_base* target = nullptr;
    std::int32_t cursor = 0;
    std::memcpy(&target, &builder, sizeof target);
    std::memcpy(&cursor, reinterpret_cast<const char*>(&builder) + sizeof target, sizeof cursor);
    EXPECT_EQ(&text.string(), target);
    EXPECT_EQ(3, cursor);
}

TEST(String_builder_base, on_a_reference_appends_behind_the_text)
{
    Fenced_string text(10);
    text.string() = "abc";
    String_builder_base builder(text.string());
    EXPECT_EQ(0, builder.append("de"));
    EXPECT_EQ("abcde" + zeros(5), text.contents());
    EXPECT_EQ(text.string().get(), builder.begin());
    EXPECT_EQ(text.string().get() + 5, builder.end());
}

TEST(String_builder_base, on_a_pointer_overwrites_from_the_start_at_the_first_append)
{
    Fenced_string text(10);
    text.string() = "abcdef";
    String_builder_base builder(&text.string());
    EXPECT_EQ(0, cursor(builder));
    EXPECT_STREQ("abcdef", builder.begin());
    builder.append("xy");
    EXPECT_EQ("xy" + zeros(1) + "def" + zeros(4), text.contents());
    EXPECT_EQ(2, cursor(builder));
}

TEST(String_builder_base, append_cuts_a_text_at_the_capacity)
{
    for (const bool literal : {false, true})
        for (const int capacity : {1, 2, 6, 7, 8, 9}) {
            SCOPED_TRACE(testing::Message() << capacity << (literal ? ", literal" : ""));
            Fenced_string text(capacity);
            String_builder_base builder(text.string());
            EXPECT_EQ(0, literal ? builder.append("abcd") : builder.append(unknown("abcd")));
            EXPECT_EQ(0, literal ? builder.append("efg") : builder.append(unknown("efg")));
            const std::string expected =
                std::string("abcdefg").substr(0, static_cast<std::size_t>(capacity - 1));
            EXPECT_EQ(expected + zeros(static_cast<std::size_t>(capacity) - expected.size()),
                      text.contents());
            EXPECT_EQ(static_cast<std::ptrdiff_t>(expected.size()), cursor(builder));
            EXPECT_TRUE(text.fences_stand());
        }
}

TEST(String_builder_base, append_ends_the_text_in_the_middle_of_an_older_one)
{
    for (const bool known : {true, false}) {
        Fenced_string target(16);
        String_builder_base builder(&target.string());
        builder.append(unknown("abcdef"));
        builder.reset();
        if (known)
            append_xy(builder);
        else
            builder.append(unknown("xy"));
        EXPECT_STREQ("xy", target.string().get()) << known;
    }
}

TEST(String_builder_base, append_of_nothing_changes_nothing)
{
    Fenced_string text(5);
    text.string() = "abcd";
    String_builder_base builder(text.string());
    EXPECT_EQ(0, builder.append(""));
    EXPECT_EQ(0, builder.append(unknown("")));
    EXPECT_EQ("abcd" + zeros(1), text.contents());
    EXPECT_EQ(4, cursor(builder));
}

TEST(String_builder_base, append_of_a_character_writes_it_and_a_terminator)
{
    Fenced_string text(5);
    std::memset(text.string().buf(), 'x', 4);
    String_builder_base builder(&text.string());
    EXPECT_EQ(0, builder.append('a'));
    EXPECT_EQ("a" + zeros(1) + "xx" + zeros(1), text.contents());
    EXPECT_EQ(0, builder.append('b'));
    EXPECT_EQ("ab" + zeros(1) + "x" + zeros(1), text.contents());
    EXPECT_EQ(2, cursor(builder));
}

TEST(String_builder_base, append_of_a_character_to_a_full_string_is_dropped)
{
    for (const int capacity : {1, 2, 4}) {
        SCOPED_TRACE(capacity);
        Fenced_string text(capacity);
        String_builder_base builder(text.string());
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(0, builder.append(static_cast<char>('a' + i)));
        const auto length = static_cast<std::size_t>(capacity - 1);
        EXPECT_EQ(std::string("abcdef").substr(0, length) + zeros(1), text.contents());
        EXPECT_EQ(capacity - 1, cursor(builder));
        EXPECT_TRUE(text.fences_stand());
    }
}

TEST(String_builder_base, appended_its_own_text_doubles_it)
{
    for (const int capacity : {20, 13, 12, 9, 7}) {
        SCOPED_TRACE(capacity);
        Fenced_string text(capacity);
        text.string() = "abcdef";
        String_builder_base builder(text.string());
        builder.append(builder.begin());
        EXPECT_EQ(std::string("abcdefabcdef").substr(0, static_cast<std::size_t>(capacity - 1)),
                  builder.begin());
        EXPECT_EQ(std::min(capacity - 1, 12), cursor(builder));
        EXPECT_TRUE(text.fences_stand());
    }
}

TEST(String_builder_base, overwrites_a_text_with_its_own_middle)
{
    Fenced_string text(10);
    text.string() = "abcdefgh";
    String_builder_base builder(&text.string());
    builder.append(text.string().get() + 3);
    EXPECT_STREQ("defgh", builder.begin());
    EXPECT_EQ(5, cursor(builder));
}

TEST(String_builder_base, appendf_moves_the_cursor_by_what_it_appended)
{
    Fenced_string text(12);
    String_builder_base builder(text.string());
    EXPECT_EQ(4, builder.appendf("%s=%d", "x", 12));
    EXPECT_EQ(4, cursor(builder));
    EXPECT_EQ(5, builder.appendf(",%c=%02d", 'y', 3));
    EXPECT_STREQ("x=12,y=03", builder.begin());
    EXPECT_EQ(9, cursor(builder));
}

TEST(String_builder_base, appendf_cut_short_fills_the_string_and_returns_the_uncut_length)
{
    struct Case {
        const char* addition;
        const char* expected;
    };
    const Case cases[] = {
        {"de", "abcde"}, {"def", "abcdef"}, {"defg", "abcdef"}, {"defghijklmnopqrst", "abcdef"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.addition);
        Fenced_string text(7);
        text.string() = "abc";
        String_builder_base builder(text.string());
        EXPECT_EQ(static_cast<int>(std::strlen(c.addition)), builder.appendf("%s", c.addition));
        EXPECT_STREQ(c.expected, builder.begin());
        EXPECT_EQ(static_cast<std::ptrdiff_t>(std::strlen(c.expected)), cursor(builder));
        EXPECT_TRUE(text.fences_stand());
    }
}

TEST(String_builder_base, appendf_far_beyond_the_capacity_writes_only_what_fits)
{
    Fenced_string text(7);
    text.string() = "abc";
    String_builder_base builder(text.string());
    EXPECT_EQ(100000, builder.appendf("%*s", 100000, "x"));
    EXPECT_EQ("abc   " + zeros(1), text.contents());
    EXPECT_EQ(6, cursor(builder));
}

TEST(String_builder_base, appendf_that_cannot_format_appends_nothing)
{
    Fenced_string text(12);
    text.string() = "abc";
    String_builder_base builder(text.string());
    const wchar_t unencodable[] = {static_cast<wchar_t>(0x7FFFFFF0), 0};
    EXPECT_LT(builder.appendf("def%ls", unencodable), 0);
    EXPECT_STREQ("abc", builder.begin());
    EXPECT_EQ(3, cursor(builder));
    builder.append("x");
    EXPECT_STREQ("abcx", builder.begin());
}

TEST(String_builder_base, truncate_drops_characters_from_the_end)
{
    Fenced_string text(10);
    text.string() = "abcdef";
    String_builder_base builder(text.string());
    EXPECT_TRUE(builder.truncate(2));
    EXPECT_EQ("abcd" + zeros(1) + "f" + zeros(4), text.contents());
    EXPECT_EQ(4, cursor(builder));
    EXPECT_TRUE(builder.truncate(0));
    EXPECT_STREQ("abcd", builder.begin());
    EXPECT_TRUE(builder.truncate(4));
    EXPECT_STREQ("", builder.begin());
    EXPECT_EQ(0, cursor(builder));
}

TEST(String_builder_base, truncate_refuses_more_than_there_is)
{
    Fenced_string text(10);
    text.string() = "abcdef";
    String_builder_base builder(text.string());
    for (const int n : {7, 8, INT_MAX, -1, INT_MIN}) {
        EXPECT_FALSE(builder.truncate(n)) << n;
        EXPECT_EQ("abcdef" + zeros(4), text.contents()) << n;
        EXPECT_EQ(6, cursor(builder)) << n;
    }
}

TEST(String_builder_base, truncate_on_a_pointer_knows_only_what_was_appended)
{
    Fenced_string text(10);
    text.string() = "abcdef";
    String_builder_base builder(&text.string());
    EXPECT_FALSE(builder.truncate(1));
    EXPECT_STREQ("abcdef", builder.begin());
    EXPECT_TRUE(builder.truncate(0)); // the terminator is written where the cursor is
    EXPECT_STREQ("", builder.begin());
}

TEST(String_builder_base, reset_starts_over)
{
    Fenced_string text(10);
    text.string() = "abcdef";
    String_builder_base builder(text.string());
    builder.reset();
    EXPECT_STREQ("", builder.begin());
    EXPECT_EQ(0, cursor(builder));
    builder.append("xy");
    EXPECT_STREQ("xy", builder.begin());
}

TEST(String_builder_base, on_a_string_without_room_does_nothing)
{
    for (const int capacity : {1, 0, -1, INT_MIN}) {
        SCOPED_TRACE(capacity);
        char bytes[9] = "########";
        String_base s(bytes + 4, capacity);
        const std::string before(bytes, 8);
        String_builder_base by_reference(s);
        String_builder_base by_pointer(&s);
        for (String_builder_base* builder : {&by_reference, &by_pointer}) {
            EXPECT_EQ(0, builder->append("abc"));
            EXPECT_EQ(0, builder->append(unknown("abc")));
            EXPECT_EQ(0, builder->append(""));
            EXPECT_EQ(0, builder->append('x'));
            EXPECT_EQ(3, builder->appendf("%s", "abc"));
            EXPECT_FALSE(builder->truncate(1));
            EXPECT_TRUE(builder->truncate(0));
            builder->reset();
            EXPECT_STREQ("", builder->begin());
            EXPECT_EQ(0, cursor(*builder));
        }
        EXPECT_EQ(before, std::string(bytes, 8));
        EXPECT_EQ(capacity, s.max_len());
    }
}

TEST(String_builder_base, whose_string_got_a_smaller_buffer_never_writes_behind_it)
{
    Fenced_string large(20);
    Fenced_string small(4);
    String_base& s = large.string();
    s = "abcdefghij";
    String_builder_base builder(s);
    s.init(small.string().buf(), 4);
    EXPECT_EQ(0, builder.append("abc"));
    EXPECT_EQ(0, builder.append(unknown("abc")));
    EXPECT_EQ(0, builder.append('x'));
    EXPECT_EQ(3, builder.appendf("%s", "abc"));
    EXPECT_TRUE(builder.truncate(1));
    EXPECT_EQ(zeros(4), small.contents());
    EXPECT_TRUE(small.fences_stand() && large.fences_stand());
    builder.reset();
    builder.append("xyz");
    EXPECT_EQ("xyz" + zeros(1), small.contents());
}

TEST(String_builder_base, allocates_nothing)
{
    if (!ALLOCATIONS_ARE_COUNTED)
        GTEST_SKIP() << "the sanitizers bring their own malloc()";
    char buffer[101];
    const std::int64_t before = allocations();
    String_base s(buffer, sizeof buffer);
    String_builder_base builder(s);
    for (int i = 0; i < 30; ++i) {
        builder.append("lat");
        builder.append(unknown("="));
        builder.append('x');
        builder.appendf("%d", i);
        builder.truncate(1);
    }
    EXPECT_EQ(before, allocations());
    EXPECT_EQ(99, cursor(builder)); // it was full
    const auto counted = std::make_unique<char[]>(10);
    const char* volatile used = counted.get(); // or the compiler would leave it out
    static_cast<void>(used);
    EXPECT_LT(before, allocations());
}

namespace {

/// Random operations on a builder and on its model.
class Player {
public:
    explicit Player(unsigned seed)
        : random(seed), capacity(below(40) + 1), text(capacity), builder(text.string()), bytes(capacity),
          model(bytes, 0)
    {
    }

    void step()
    {
        std::string foreign(static_cast<std::size_t>(below(30)), '\0');
        for (char& ch : foreign)
            ch = static_cast<char>('a' + below(26));
        switch (below(7)) {
        case 0: {
            const char* const source =
                below(2) == 0 ? text.string().get() + below(capacity) : foreign.c_str();
            const std::string snapshot(source);
            EXPECT_EQ(0, builder.append(source));
            model.append(snapshot);
            break;
        }
        case 1:
            EXPECT_EQ(0, builder.append("literal"));
            model.append("literal");
            break;
        case 2:
        case 3:
            EXPECT_EQ(0, builder.append('X'));
            model.append('X');
            break;
        case 4:
            EXPECT_EQ(static_cast<int>(foreign.size()) + 2, builder.appendf("%s:%d", foreign.c_str(), 7));
            model.append(foreign + ":7");
            break;
        case 5: {
            const int n = below(12);
            EXPECT_EQ(model.truncate(static_cast<std::size_t>(n)), builder.truncate(n));
            break;
        }
        default:
            if (below(4) == 0) {
                builder.reset();
                model.reset();
            }
        }
    }

    bool agrees() const
    {
        return bytes.contents() == text.contents() && text.fences_stand() &&
               static_cast<std::ptrdiff_t>(model.cursor()) == cursor(builder) &&
               bytes.text() == builder.begin();
    }

private:
    int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

    std::mt19937 random;
    int capacity;
    Fenced_string text;
    String_builder_base builder;
    String_model bytes;
    String_builder_model model;
};

} // namespace

TEST(String_builder_base, holds_what_a_model_holds_after_random_operations)
{
    for (unsigned seed = 0; seed < 10000; ++seed) {
        Player player(seed);
        for (int step = 0; step < 8; ++step) {
            player.step();
            ASSERT_TRUE(player.agrees()) << "seed " << seed << ", step " << step;
        }
    }
}
