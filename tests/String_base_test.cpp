#include "util/String_base.h"

#include "platform/Debug.h"
#include "tests/support/Allocations.h"
#include "tests/support/String_model.h"
#include "util/String_builder_base.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <sys/mman.h>
#include <type_traits>
#include <vector>

namespace {

std::vector<std::pair<std::string, std::string>> printed; // format and text of every debug print

} // namespace

// The program's own debug print answers in place of the platform's, so every call is seen.
void Debug::Print::dprint(const char* format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printed.emplace_back(format, text);
}

namespace {

static_assert(sizeof(String_base) == 12 && alignof(String_base) == 4);
static_assert(!std::is_polymorphic_v<String_base>);
static_assert(std::is_same_v<char*, decltype(stzncpy(nullptr, nullptr, 0U))>);
static_assert(std::is_same_v<unsigned, decltype(std::declval<const String_base&>().len())>);
static_assert(std::is_same_v<char*, decltype(std::declval<String_base&>().get(0))>);
static_assert(std::is_same_v<const char*, decltype(std::declval<String_base&>().get())>);
static_assert(std::is_same_v<int, decltype(std::declval<const String_base&>().get(nullptr, 1))>);
static_assert(std::is_same_v<String_base&, decltype(std::declval<String_base&>() += "")>);
static_assert(std::is_same_v<String_base&, decltype(std::declval<String_base&>() = "")>);

template <typename RIGHT, typename = void>
constexpr bool CAN_BE_APPENDED = false;
template <typename RIGHT>
constexpr bool
    CAN_BE_APPENDED<RIGHT, std::void_t<decltype(std::declval<String_base&>() += std::declval<RIGHT>())>> =
        true;
static_assert(CAN_BE_APPENDED<String_base&> && !CAN_BE_APPENDED<const String_base&>);

std::string zeros(std::size_t count)
{
    return std::string(count, '\0');
}

/// An object and its buffer in one piece, to be moved byte by byte.
struct Name {
    explicit Name(const char* s) : text(buffer, sizeof buffer, s) {}
    String_base text;
    char buffer[12];
};

} // namespace

TEST(stzncpy, copies_up_to_the_terminator_and_returns_where_it_stands)
{
    struct Case {
        const char* source;
        unsigned n;
        const char* expected; // the bytes written, the last the terminator
        std::ptrdiff_t length;
    };
    const Case cases[] = {{"abc", 2, "ab", 2}, {"a", 5, "a", 1},           {"", 5, "", 0},
                          {"abc", 0, "", 0},   {"abc", 3, "abc", 3},       {"abc", 4, "abc", 3},
                          {"", 0, "", 0},      {"abc", UINT_MAX, "abc", 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << '"' << c.source << "\", " << c.n);
        Fenced dest(8);
        EXPECT_EQ(dest.data() + c.length, stzncpy(dest.data(), c.source, c.n));
        const std::string written(c.expected, static_cast<std::size_t>(c.length) + 1);
        EXPECT_EQ(written + std::string(8 - written.size(), '#'), dest.contents());
        EXPECT_TRUE(dest.fences_stand());
    }
}

TEST(stzncpy, reads_no_further_than_it_copies)
{
    const std::unique_ptr<char[]> source(new char[3]{'a', 'b', 'c'}); // address sanitizer watches its end
    char dest[4];
    EXPECT_EQ(dest + 3, stzncpy(dest, source.get(), 3));
    EXPECT_STREQ("abc", dest);
}

TEST(stzncpy, copies_an_overlapping_source_as_it_was)
{
    char text[16] = "abcdef";
    EXPECT_EQ(text + 8, stzncpy(text + 2, text, 10));
    EXPECT_STREQ("ababcdef", text);
    EXPECT_EQ(text + 4, stzncpy(text, text + 2, 4));
    EXPECT_STREQ("abcd", text);
}

TEST(String_base, keeps_capacity_distance_and_spare_cell_in_this_order)
{
    Name name("abc");
    std::int32_t image[3];
    std::memcpy(image, &name.text, sizeof image);
    EXPECT_EQ(12, image[0]);
    EXPECT_EQ(name.buffer - (reinterpret_cast<char*>(&name.text) + 8), image[1]);
    EXPECT_EQ(reinterpret_cast<char*>(&name.text) + 8, name.text.get(-1));
}

TEST(String_base, starts_empty_with_the_whole_buffer_zeroed)
{
    Fenced buffer(10);
    const String_base s(buffer.data(), 10);
    EXPECT_EQ(zeros(10), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
    EXPECT_EQ(buffer.data(), s.get());
    EXPECT_EQ(buffer.data(), s.cbuf());
    EXPECT_EQ(0U, s.len());
    EXPECT_EQ(10, s.max_len());
    EXPECT_EQ(9, s.max_string_len());
}

TEST(String_base, starts_with_a_text_or_that_of_another_string)
{
    Fenced first(10);
    const String_base s(first.data(), 10, "position");
    EXPECT_EQ("position" + zeros(2), first.contents());
    Fenced second(4);
    const String_base cut(second.data(), 4, s);
    EXPECT_EQ("pos" + zeros(1), second.contents());
    EXPECT_TRUE(first.fences_stand() && second.fences_stand());
}

TEST(String_base, copied_bare_is_the_empty_text_with_capacity_1)
{
    char buffer[10];
    const String_base s(buffer, 10, "abc");
    String_base copy(s); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(1, copy.max_len());
    EXPECT_EQ(0, copy.max_string_len());
    EXPECT_STREQ("", copy.get());
    EXPECT_EQ(copy.get(-1), copy.buf()); // its buffer is its spare cell
    copy = "xyz";
    copy += "xyz";
    copy.printf("%d", 12);
    EXPECT_STREQ("", copy.get());
    EXPECT_STREQ("abc", s.get());
}

TEST(String_base, assigned_takes_the_text_and_keeps_its_own_buffer)
{
    char buffer[10];
    const String_base s(buffer, 10, "abcdef");
    Fenced other(5);
    String_base t(other.data(), 5, "zzzz");
    EXPECT_EQ(&t, &(t = s));
    EXPECT_EQ("abcd" + zeros(1), other.contents());
    EXPECT_EQ(5, t.max_len());
    EXPECT_EQ(other.data(), t.buf());
    const String_base& itself = t;
    t = itself;
    EXPECT_STREQ("abcd", t.get());
    EXPECT_TRUE(other.fences_stand());
}

TEST(String_base, init_takes_another_buffer_and_leaves_the_first)
{
    Fenced first(4);
    Fenced second(6);
    String_base s(first.data(), 4, "abc");
    s.init(second.data(), 6);
    EXPECT_EQ("abc" + zeros(1), first.contents());
    EXPECT_EQ(zeros(6), second.contents());
    EXPECT_EQ(6, s.max_len());
    EXPECT_EQ(second.data(), s.buf());
}

TEST(String_base, zero_clears_every_byte_of_the_buffer_and_no_other)
{
    Fenced buffer(6);
    String_base s(buffer.data(), 6);
    std::memset(buffer.data(), 'x', 6);
    s.zero();
    EXPECT_EQ(zeros(6), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, moved_bytewise_with_its_buffer_finds_the_new_one)
{
    Name first("first");
    alignas(Name) unsigned char raw[sizeof(Name)];
    std::memcpy(raw, static_cast<const void*>(&first), sizeof raw);
    auto* second = static_cast<Name*>(static_cast<void*>(raw));
    EXPECT_STREQ("first", second->text.get());
    EXPECT_EQ(second->buffer, second->text.buf());
    second->text = "second";
    EXPECT_STREQ("first", first.text.get());
    EXPECT_STREQ("second", second->buffer);
}

TEST(String_base, reaches_a_buffer_anywhere_in_memory)
{
    static char fixed_buffer[8];
    static String_base fixed(fixed_buffer, 8);
    const std::unique_ptr<char[]> heap_buffer(new char[8]);
    char stack_buffer[8];
    char* const buffers[] = {fixed_buffer, heap_buffer.get(), stack_buffer};
    String_base on_stack(stack_buffer, 8);
    const auto on_heap = std::make_unique<String_base>(stack_buffer, 8);
    String_base* const strings[] = {&on_stack, &fixed, on_heap.get()};
    for (String_base* s : strings)
        for (char* buffer : buffers) {
            s->init(buffer, 8);
            *s = "far away";
            EXPECT_EQ(buffer, s->buf());
            EXPECT_EQ(buffer, s->cbuf());
            EXPECT_STREQ("far awa", buffer);
        }
    fixed.init(fixed_buffer, 8); // the stack's and the heap's are about to go
}

TEST(String_base, reaches_a_buffer_at_either_end_of_the_near_distances)
{
    if (sizeof(void*) == 4)
        GTEST_SKIP() << "there is no such memory in 32 bits";
    constexpr std::int64_t REACH = std::int64_t{1} << 31;
    constexpr std::int64_t BAND = std::int64_t{1} << 24;
    const std::size_t size = static_cast<std::size_t>(2 * REACH + 4 * BAND);
    void* const memory =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    char* const middle = static_cast<char*>(memory) + size / 2;
    auto* const s = new (middle) String_base(middle + 100, 1);
    const char* const spare = s->get(-1);
    for (const std::int64_t distance :
         {-REACH - 1, -REACH, -REACH + 1, -REACH + BAND - 1, -REACH + BAND, REACH - 1, REACH, REACH + BAND}) {
        SCOPED_TRACE(distance);
        s->init(middle + (spare - middle) + distance, 8);
        EXPECT_EQ(distance, s->buf() - spare);
        String_builder_base builder(*s);
        builder.append('a');
        builder.append("bc");
        EXPECT_STREQ("abc", spare + distance);
    }
    ::munmap(memory, size);
}

TEST(String_base, leaves_nothing_of_a_far_buffer_when_it_takes_a_near_one)
{
    Name near("near");
    const auto far = std::make_unique<char[]>(8);
    unsigned char fresh[sizeof(String_base)];
    std::memcpy(fresh, static_cast<const void*>(&near.text), sizeof fresh);
    near.text.init(far.get(), 8);
    near.text.init(near.buffer, sizeof near.buffer);
    EXPECT_EQ(0, std::memcmp(fresh, static_cast<const void*>(&near.text), sizeof fresh));
}

TEST(String_base, refuses_a_buffer_whose_distance_it_cannot_hold)
{
    if (sizeof(void*) == 4)
        GTEST_SKIP() << "a 32-bit distance reaches all of the memory";
    const std::uintptr_t unreachable =
        UINTPTR_MAX / 16; // on 64 bits, half way round from any memory there is
    EXPECT_DEATH(String_base(reinterpret_cast<char*>(unreachable), 0),
                 "util/String_base\\.cpp.*buf\\(\\) == buffer");
}

TEST(String_base, set_cuts_the_text_and_fills_the_rest_with_zeros)
{
    struct Case {
        int capacity;
        const char* text;
        std::string expected;
    };
    const Case cases[] = {{1, "abc", zeros(1)},         {2, "abc", "a" + zeros(1)},
                          {3, "abc", "ab" + zeros(1)},  {4, "abc", "abc" + zeros(1)},
                          {5, "abc", "abc" + zeros(2)}, {9, "", zeros(9)}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.capacity << ", \"" << c.text << '"');
        Fenced buffer(c.capacity);
        String_base s(buffer.data(), c.capacity);
        const auto fill = [&] { std::memset(buffer.data(), '#', static_cast<std::size_t>(c.capacity)); };
        fill();
        s._set(c.text);
        EXPECT_EQ(c.expected, buffer.contents());
        fill();
        s.set(c.text);
        EXPECT_EQ(c.expected, buffer.contents());
        fill();
        EXPECT_EQ(&s, &(s = c.text));
        EXPECT_EQ(c.expected, buffer.contents());
        EXPECT_TRUE(buffer.fences_stand());
    }
}

TEST(String_base, set_with_a_count_writes_that_many_characters_and_a_terminator)
{
    struct Case {
        int capacity;
        const char* text;
        int n;
        std::string expected; // over a buffer of 'x'
    };
    const Case cases[] = {{10, "abcdef", 3, "abc" + zeros(1) + "xxxxxx"},
                          {3, "abcdef", 3, "ab" + zeros(1)},
                          {4, "abcdef", 3, "abc" + zeros(1)},
                          {4, "abcdef", INT_MAX, "abc" + zeros(1)},
                          {10, "ab", 5, "ab" + zeros(4) + "xxxx"}, // zeros up to the count and one behind
                          {10, "ab", 9, "ab" + zeros(8)},
                          {10, "ab", 10, "ab" + zeros(8)},
                          {10, "ab", 0, zeros(1) + "xxxxxxxxx"},
                          {1, "ab", 1, zeros(1)},
                          {10, "ab", -1, zeros(1) + "xxxxxxxxx"},
                          {10, "ab", INT_MIN, zeros(1) + "xxxxxxxxx"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.capacity << ", \"" << c.text << "\", " << c.n);
        Fenced buffer(c.capacity);
        String_base s(buffer.data(), c.capacity);
        std::memset(buffer.data(), 'x', static_cast<std::size_t>(c.capacity));
        s.set(c.text, c.n);
        EXPECT_EQ(c.expected, buffer.contents());
        EXPECT_TRUE(buffer.fences_stand());
    }
}

TEST(String_base, set_with_a_count_needs_no_terminator)
{
    const std::unique_ptr<char[]> source(new char[3]{'a', 'b', 'c'});
    char buffer[10];
    String_base s(buffer, 10);
    s.set(source.get(), 3);
    EXPECT_STREQ("abc", s.get());
}

TEST(String_base, append_cuts_at_the_capacity_whatever_is_appended)
{
    Fenced buffer(8);
    String_base s(buffer.data(), 8, "abc");
    s.append("de");
    EXPECT_EQ("abcde" + zeros(3), buffer.contents());
    s._append(std::string(100, 'f').c_str());
    EXPECT_EQ("abcdeff" + zeros(1), buffer.contents());
    EXPECT_EQ(&s, &(s += "g"));
    EXPECT_EQ("abcdeff" + zeros(1), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, append_leaves_the_bytes_behind_the_text_but_the_last)
{
    Fenced buffer(8);
    String_base s(buffer.data(), 8);
    std::memcpy(buffer.data(), "ab\0xxxxx", 8);
    s.append("c");
    EXPECT_EQ("abc" + zeros(1) + "xxx" + zeros(1), buffer.contents());
}

TEST(String_base, append_ends_a_text_whose_terminator_was_overwritten)
{
    Fenced buffer(4);
    String_base s(buffer.data(), 4);
    std::memcpy(s.buf(), "wxyz", 4);
    EXPECT_EQ(3U, s.len());
    s.append("more");
    EXPECT_EQ("wxy" + zeros(1), buffer.contents());
    std::memcpy(s.buf(), "wxyz", 4);
    EXPECT_EQ(4, s.appendf("%s", "more"));
    EXPECT_EQ("wxy" + zeros(1), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, appends_another_string)
{
    char buffer[4];
    String_base other(buffer, 4, "xyz");
    Fenced target(6);
    String_base s(target.data(), 6, "abc");
    EXPECT_EQ(&s, &(s += other));
    EXPECT_EQ("abcxy" + zeros(1), target.contents());
}

TEST(String_base, appended_to_itself_is_doubled_and_cut)
{
    for (const int capacity : {20, 13, 12, 9, 7}) {
        SCOPED_TRACE(capacity);
        Fenced buffer(capacity);
        String_base s(buffer.data(), capacity, "abcdef");
        s += s;
        EXPECT_EQ(std::string("abcdefabcdef").substr(0, static_cast<std::size_t>(capacity - 1)), s.get());
        EXPECT_TRUE(buffer.fences_stand());
    }
}

TEST(String_base, takes_parts_of_its_own_text)
{
    char buffer[16];
    String_base s(buffer, 16, "abcdefgh");
    s.append(s.get() + 5);
    EXPECT_STREQ("abcdefghfgh", s.get());
    s.set(s.get() + 2);
    EXPECT_STREQ("cdefghfgh", s.get());
    EXPECT_EQ(zeros(7), std::string(buffer + 9, 7));
    s.set(s.get() + 1, 3);
    EXPECT_STREQ("def", s.get());
    s = s.get() + 1;
    EXPECT_STREQ("ef", s.get());
    s = s.get();
    EXPECT_STREQ("ef", s.get());
    EXPECT_EQ(1, s.get(s.get(3), 2)); // a copy of the text into the free end of the buffer
    EXPECT_EQ("ef" + zeros(1) + "e" + zeros(1), std::string(buffer, 5));
}

TEST(String_base, get_by_index_gives_the_spare_cell_outside_the_buffer)
{
    Fenced buffer(4);
    String_base s(buffer.data(), 4, "abc");
    EXPECT_EQ(buffer.data(), s.get(0));
    EXPECT_EQ(buffer.data() + 3, s.get(3));
    char* const spare = s.get(4);
    EXPECT_TRUE(reinterpret_cast<char*>(&s) <= spare && spare < reinterpret_cast<char*>(&s + 1));
    for (const int i : {-1, 5, INT_MIN, INT_MAX})
        EXPECT_EQ(spare, s.get(i)) << i;
    *spare = 'x'; // a stray write harms nothing
    EXPECT_STREQ("abc", s.get());
    EXPECT_EQ(4, s.max_len());
    EXPECT_EQ(buffer.data(), s.buf());
}

TEST(String_base, get_into_a_buffer_cuts_to_the_smaller_of_the_two)
{
    struct Case {
        int capacity;
        int n;
        std::string expected; // over ten bytes of '#'
        int length;
    };
    const Case cases[] = {{10, 1, zeros(1) + "#########", 0},
                          {10, 3, "ab" + zeros(1) + "#######", 2},
                          {10, 4, "abc" + zeros(1) + "######", 3},
                          {10, 6, "abc" + zeros(3) + "####", 3},
                          {10, 10, "abc" + zeros(7), 3},
                          {6, 10, "abc" + zeros(3) + "####", 3},
                          {4, INT_MAX, "abc" + zeros(1) + "######", 3},
                          {3, 10, "ab" + zeros(1) + "#######", 2},
                          {1, 10, zeros(1) + "#########", 0},
                          {10, 0, "##########", 0},
                          {10, -1, "##########", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.capacity << ", " << c.n);
        Fenced buffer(c.capacity);
        const String_base s(buffer.data(), c.capacity, "abc");
        Fenced out(10);
        EXPECT_EQ(c.length, s.get(out.data(), c.n));
        EXPECT_EQ(c.expected, out.contents());
        EXPECT_TRUE(out.fences_stand());
    }
}

TEST(String_base, compares_like_the_c_library)
{
    char buffer[10];
    const String_base s(buffer, 10, "Boom");
    EXPECT_EQ(0, s.compare("Boom"));
    EXPECT_LT(s.compare("Boon"), 0);
    EXPECT_GT(s.compare("Boo"), 0);
    EXPECT_LT(s.compare("boom"), 0);
    EXPECT_EQ(0, s.compare("Boolean", 3));
    EXPECT_GT(s.compare("Boolean", 4), 0); // m behind l
    EXPECT_EQ(0, s.compare("x", 0));
    EXPECT_EQ(0, s.case_compare("bOOM"));
    EXPECT_LT(s.case_compare("BOON"), 0);
    EXPECT_GT(s.case_compare("BOOL"), 0);
    EXPECT_EQ(0, s.case_compare("bOOLEAN", 3));
    EXPECT_GT(s.case_compare("bOOLEAN", 4), 0);
}

TEST(String_base, prints_prefix_text_and_suffix_in_one_call)
{
    char buffer[10];
    const String_base s(buffer, 10, "50%d");
    printed.clear();
    s.print("<", ">\n");
    s.print(nullptr, "!");
    s.print("?", nullptr);
    s.print(nullptr, nullptr);
    EXPECT_THAT(printed,
                testing::ElementsAre(testing::Pair("%s%s%s", "<50%d>\n"), testing::Pair("%s%s%s", "50%d!"),
                                     testing::Pair("%s%s%s", "?50%d"), testing::Pair("%s%s%s", "50%d")));
}

TEST(String_base, printf_cuts_and_returns_the_uncut_length)
{
    Fenced buffer(8);
    String_base s(buffer.data(), 8, "before");
    EXPECT_EQ(7, s.printf("%d:%s", 123, "abc"));
    EXPECT_EQ("123:abc" + zeros(1), buffer.contents());
    EXPECT_EQ(8, s.printf("%d:%s", 123, "abcd"));
    EXPECT_EQ("123:abc" + zeros(1), buffer.contents());
    EXPECT_EQ(1, s.printf("%c", 'x'));
    EXPECT_EQ("x" + zeros(1) + "3:abc" + zeros(1), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, appendf_appends_what_fits_and_returns_the_length_of_the_addition)
{
    Fenced buffer(8);
    String_base s(buffer.data(), 8, "ab");
    EXPECT_EQ(3, s.appendf("%03d", 7));
    EXPECT_STREQ("ab007", s.get());
    EXPECT_EQ(6, s.appendf("%s", "cdefgh"));
    EXPECT_EQ("ab007cd" + zeros(1), buffer.contents());
    EXPECT_EQ(4, s.appendf("%d", 1234)); // the text is full
    EXPECT_EQ("ab007cd" + zeros(1), buffer.contents());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, below_capacity_1_reads_as_empty_and_writes_nothing)
{
    for (const int capacity : {0, -1, -7, INT_MIN}) {
        SCOPED_TRACE(capacity);
        Fenced buffer(8);
        String_base s(buffer.data(), capacity, "abc");
        EXPECT_EQ(capacity, s.max_len());
        EXPECT_LT(s.max_string_len(), 0);
        EXPECT_EQ(buffer.data(), s.buf());
        s.zero();
        s = "abc";
        s.set("abc", 2);
        s.set("abc", 0);
        s.append("abc");
        s += s;
        EXPECT_EQ(3, s.printf("%s", "abc"));
        EXPECT_EQ(3, s.appendf("%s", "abc"));
        *s.get(0) = 'x';
        EXPECT_STREQ("", s.get());
        EXPECT_EQ(0U, s.len());
        EXPECT_EQ(0, s.compare(""));
        char out[3] = {'x', 'y', 'z'};
        EXPECT_EQ(0, s.get(out, 3));
        EXPECT_EQ(zeros(1) + "yz", std::string(out, 3));
        EXPECT_EQ(std::string(8, '#'), buffer.contents());
        EXPECT_TRUE(buffer.fences_stand());
    }
    String_base nowhere(nullptr, 0, "abc");
    EXPECT_STREQ("", nowhere.get());
    EXPECT_EQ(3, nowhere.appendf("abc"));
}

TEST(String_base, formatting_stops_at_a_text_that_the_locale_cannot_encode)
{
    Fenced buffer(10);
    String_base s(buffer.data(), 10, "position");
    EXPECT_GT(0, s.printf("ab%lsz", L"\u20AC"));
    EXPECT_STREQ("ab", s.get());
    EXPECT_GT(0, s.appendf("cd%lsz", L"\u20AC"));
    EXPECT_STREQ("abcd", s.get());
    EXPECT_EQ(2, s.appendf("%s", "ef"));
    EXPECT_STREQ("abcdef", s.get());
    EXPECT_TRUE(buffer.fences_stand());
}

TEST(String_base, allocates_nothing)
{
    if (!ALLOCATIONS_ARE_COUNTED)
        GTEST_SKIP() << "the sanitizers bring their own malloc()";
    char buffer[32];
    char other_buffer[8];
    char out[8];
    const std::int64_t before = allocations();
    String_base s(buffer, 32, "abc");
    String_base other(other_buffer, 8, s);
    const String_base copy(s);
    s = "def";
    s = other;
    s.set("ghi");
    s.set("jkl", 2);
    s += "mno";
    s += other;
    s += s;
    s.printf("%d %s", 12, other.get());
    s.appendf("%-10d", 5);
    s.get(out, 8);
    s.zero();
    EXPECT_EQ(before, allocations());
    const auto counted = std::make_unique<char[]>(10);
    const char* volatile used = counted.get(); // or the compiler would leave it out
    static_cast<void>(used);
    EXPECT_LT(before, allocations());
}

namespace {

class Player {
public:
    explicit Player(unsigned seed)
        : random(seed), capacity(below(40) + 1), buffer(capacity), s(buffer.data(), capacity), model(capacity)
    {
    }

    void step()
    {
        std::string foreign(static_cast<std::size_t>(below(50)), '\0');
        for (char& ch : foreign)
            ch = static_cast<char>('a' + below(26));
        // Now and then the source is a part of the text itself, or the stale bytes behind it.
        const bool own = below(4) == 0;
        const char* const source = own ? s.get() + below(capacity) : foreign.c_str();
        const std::string snapshot(source);
        switch (below(9)) {
        case 0:
            s = source;
            model.set(snapshot);
            break;
        case 1: {
            const int n = below(50);
            s.set(source, n);
            model.set(snapshot, n);
            break;
        }
        case 2:
        case 3:
            s.append(source);
            model.append(snapshot);
            break;
        case 4:
            s += s;
            model.append(model.text());
            break;
        case 5:
            EXPECT_EQ(static_cast<int>(foreign.size()) + 1, s.printf("%s.", foreign.c_str()));
            model.put(foreign + '.');
            break;
        case 6:
            EXPECT_EQ(static_cast<int>(foreign.size()) + 1, s.appendf("%s!", foreign.c_str()));
            model.put(model.text() + foreign + '!');
            break;
        case 7: {
            const int i = below(60) - 10;
            *s.get(i) = 'X';
            *s.get(capacity - 1) = 0;
            model.write(i, 'X');
            model.write(capacity - 1, '\0');
            break;
        }
        default:
            if (below(4) == 0) {
                s.zero();
                model.set("");
            }
        }
    }

    bool agrees() const
    {
        return model.contents() == buffer.contents() && buffer.fences_stand() && model.text() == s.get() &&
               model.text().size() == s.len() && s.compare(model.text().c_str()) == 0;
    }

private:
    int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

    std::mt19937 random;
    int capacity;
    Fenced buffer;
    String_base s;
    String_model model;
};

} // namespace

TEST(String_base, holds_what_a_model_holds_after_random_operations)
{
    for (unsigned seed = 0; seed < 10000; ++seed) {
        Player player(seed);
        for (int step = 0; step < 6; ++step) {
            player.step();
            ASSERT_TRUE(player.agrees()) << "seed " << seed << ", step " << step;
        }
    }
}
