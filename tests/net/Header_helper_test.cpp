#include "util/net/Header_helper.h"

#include "tests/support/Allocations.h"
#include "tests/support/Guarded_page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace {

static_assert(Header_helper::TYPE_HEADER == 0 && Header_helper::TYPE_LINE == 1);

using Type = Header_helper::type_t;
constexpr Type HEADER = Header_helper::TYPE_HEADER;
constexpr Type LINE = Header_helper::TYPE_LINE;

enum { CONTENT_LENGTH, HOST, EMPTY };
const char* names[] = {"Content-Length", "Host", ""};
const Type TYPES[] = {HEADER, HEADER, HEADER};

constexpr char FILL = '#';

/// Filled, so that it shows where something was written.
struct Text_page : Guarded_page {
    Text_page() { clear(); }

    char* begin() const { return reinterpret_cast<char*>(Guarded_page::begin()); }
    char* end() const { return reinterpret_cast<char*>(Guarded_page::end()); }
    void clear() { std::fill(begin(), end(), FILL); }

    /// That everything but the `count` bytes from there on is as clear() left it.
    bool is_clear_around(const char* from, std::size_t count) const
    {
        const auto is_clear = [](char byte) { return byte == FILL; };
        return std::all_of<const char*>(begin(), from, is_clear) &&
               std::all_of<const char*>(from + count, end(), is_clear);
    }
};

/// What a builder does, one byte after the other.
struct Model {
    explicit Model(int buffer_size) : stored(static_cast<std::size_t>(buffer_size), FILL) {}

    /// @param text  with the byte that follows it
    void write(const std::string& text)
    {
        const int size = static_cast<int>(stored.size());
        const int last = size - 1; // of the buffer: only the terminator may go there
        bool any = false;
        int place = index;
        for (const char byte : text) {
            if (place >= 0 && place < last) {
                stored[static_cast<std::size_t>(place)] = byte;
                any = true;
            }
            ++place;
        }
        overflowed = overflowed || place > last;
        if (any)
            stored[static_cast<std::size_t>(std::min(place, last))] = '\0';
        index = place - 1;
    }

    /// @param spare  bytes of the buffer that stay free
    bool add(const std::string& line, int spare)
    {
        const int needed = static_cast<int>(line.size()) + spare;
        const int room = static_cast<int>(stored.size()) - index;
        overflowed = overflowed || (!allow_truncation && needed > room);
        if (overflowed)
            return false;
        write(line + '\0');
        return true;
    }

    bool add_http_start(const std::string& method, const std::string& path, const std::string& host, int port)
    {
        const std::string authority = host.empty() ? "" : "http://" + host + ":" + std::to_string(port);
        return add(method + " " + authority + "/" + path + " HTTP/1.1\r\n", 0);
    }
    bool add_header(int i, const std::string& value)
    {
        return i >= 0 && i < 3 && add(std::string(names[i]) + ": " + value + "\r\n", 2);
    }
    bool add_http_finish() { return add("\r\n", 1); }

    std::string stored;
    int index = 0;
    bool allow_truncation = false;
    bool overflowed = false;
};

/// A builder with a buffer of just the right size for what the test is about.
class Built {
public:
    explicit Built(int size) : head(names, TYPES, 3), bytes(new char[static_cast<std::size_t>(size)])
    {
        std::memset(bytes.get(), FILL, static_cast<std::size_t>(size));
        head.set_buf(bytes.get(), size);
    }

    std::string contents() const { return {head.buf, static_cast<std::size_t>(head.size)}; }

    Header_helper head;

private:
    std::unique_ptr<char[]> bytes; // address sanitizer watches both ends
};

std::string zeros(std::size_t count)
{
    return std::string(count, '\0');
}

const std::string START = "GET http://console:8080/status HTTP/1.1\r\n";
const std::string START_WITHOUT_HOST = "GET /status HTTP/1.1\r\n";

} // namespace

TEST(Header_helper, starts_without_a_buffer_and_without_a_fault)
{
    const Header_helper head(names, TYPES, 3);
    EXPECT_EQ(nullptr, head.buf);
    EXPECT_EQ(0, head.size);
    EXPECT_EQ(names, head.names);
    EXPECT_EQ(TYPES, head.types);
    EXPECT_EQ(3, head.count);
    EXPECT_EQ(0, head.index);
    EXPECT_FALSE(head.allow_truncation);
    EXPECT_FALSE(head.overflowed);
}

TEST(Header_helper, builds_a_whole_head)
{
    Built built(200);
    EXPECT_TRUE(built.head.add_http_start("GET", "status", "console", 8080));
    EXPECT_TRUE(built.head.add_header(HOST, "console:8080"));
    EXPECT_TRUE(built.head.add_header(CONTENT_LENGTH, "0"));
    EXPECT_TRUE(built.head.add_http_finish());
    const std::string expected = START + "Host: console:8080\r\nContent-Length: 0\r\n\r\n";
    EXPECT_EQ(expected, built.head.buf);
    EXPECT_EQ(static_cast<int>(expected.size()), built.head.index);
    EXPECT_FALSE(built.head.overflowed);
}

TEST(Header_helper, writes_the_request_line_to_the_letter)
{
    const struct {
        const char *method, *path, *host;
        int port;
        const char* line;
    } cases[] = {{"GET", "status", "console", 8080, "GET http://console:8080/status HTTP/1.1\r\n"},
                 {"GET", "status", nullptr, 8080, "GET /status HTTP/1.1\r\n"},
                 {"GET", "status", "", 8080, "GET /status HTTP/1.1\r\n"},
                 {"GET", "/status", nullptr, 0, "GET //status HTTP/1.1\r\n"},
                 {"GET", "/status", "h", 1, "GET http://h:1//status HTTP/1.1\r\n"},
                 {"", "", nullptr, 0, " / HTTP/1.1\r\n"},
                 {"", "", "h", 0, " http://h:0/ HTTP/1.1\r\n"},
                 {"POST", "a b?c=d\r\n", "[::1]", -1, "POST http://[::1]:-1/a b?c=d\r\n HTTP/1.1\r\n"},
                 {"M", "p", "h", INT_MAX, "M http://h:2147483647/p HTTP/1.1\r\n"},
                 {"M", "p", "h", INT_MIN, "M http://h:-2147483648/p HTTP/1.1\r\n"}};
    for (const auto& c : cases) {
        Built built(100);
        EXPECT_TRUE(built.head.add_http_start(c.method, c.path, c.host, c.port));
        EXPECT_STREQ(c.line, built.head.buf);
        EXPECT_EQ(static_cast<int>(std::strlen(c.line)), built.head.index);
        EXPECT_FALSE(built.head.overflowed);
    }
}

TEST(Header_helper, takes_a_request_line_as_long_as_the_buffer_and_cuts_it)
{
    for (const bool with_host : {true, false}) {
        const std::string& line = with_host ? START : START_WITHOUT_HOST;
        const int length = static_cast<int>(line.size());
        const struct {
            int size;
            bool answer, overflowed;
            std::string stored;
        } cases[] = {{length - 1, false, true, std::string(line.size() - 1, '#')},
                     {length, true, true, line.substr(0, line.size() - 1) + zeros(1)},
                     {length + 1, true, true, line + zeros(1)},
                     {length + 2, true, false, line + zeros(2)}};
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << c.size << (with_host ? ", with host" : ""));
            Built built(c.size);
            EXPECT_EQ(c.answer,
                      built.head.add_http_start("GET", "status", with_host ? "console" : nullptr, 8080));
            EXPECT_EQ(c.overflowed, built.head.overflowed);
            EXPECT_EQ(c.stored, built.contents());
            EXPECT_EQ(c.answer ? length : 0, built.head.index);
        }
    }
}

TEST(Header_helper, a_port_takes_room_by_its_digits)
{
    for (const int port : {1, 80, 65535, -7, INT_MIN}) {
        const std::string line = "M http://h:" + std::to_string(port) + "/p HTTP/1.1\r\n";
        const int length = static_cast<int>(line.size());
        EXPECT_FALSE(Built(length - 1).head.add_http_start("M", "p", "h", port)) << port;
        EXPECT_TRUE(Built(length).head.add_http_start("M", "p", "h", port)) << port;
    }
}

TEST(Header_helper, a_field_needs_room_for_itself_and_two_bytes)
{
    const std::string line = "Host: console\r\n";
    const int length = static_cast<int>(line.size());
    Built right(length + 2);
    EXPECT_TRUE(right.head.add_header(HOST, "console"));
    EXPECT_EQ(line + zeros(2), right.contents());
    EXPECT_FALSE(right.head.overflowed);

    Built small(length + 1);
    EXPECT_FALSE(small.head.add_header(HOST, "console"));
    EXPECT_TRUE(small.head.overflowed);
    EXPECT_EQ(std::string(line.size() + 1, '#'), small.contents());
    EXPECT_EQ(0, small.head.index);
    EXPECT_FALSE(small.head.add_http_finish()); // there would be room
}

TEST(Header_helper, refused_additions_leave_what_was_written_before)
{
    Built built(24);
    EXPECT_TRUE(built.head.add_http_start("GET", "status", nullptr, 0));
    EXPECT_FALSE(built.head.add_header(HOST, "console"));
    EXPECT_EQ(START_WITHOUT_HOST + zeros(2), built.contents());
    EXPECT_FALSE(built.head.add_http_start("", "", nullptr, 0));
    EXPECT_FALSE(built.head.add_http_start("", "", "h", 0));
    EXPECT_FALSE(built.head.add_header(EMPTY, ""));
    EXPECT_FALSE(built.head.add_http_finish());
    EXPECT_EQ(START_WITHOUT_HOST + zeros(2), built.contents());
    EXPECT_EQ(22, built.head.index);
}

TEST(Header_helper, a_field_outside_the_table_is_refused_without_a_fault)
{
    Built built(40);
    for (const int i : {-1, 3, INT_MIN, INT_MAX})
        EXPECT_FALSE(built.head.add_header(i, "value")) << i;
    EXPECT_FALSE(built.head.overflowed);
    EXPECT_EQ(std::string(40, '#'), built.contents());
    built.head.count = 2;
    EXPECT_FALSE(built.head.add_header(2, ""));
    EXPECT_TRUE(built.head.add_header(1, ""));
    built.head.count = -1;
    EXPECT_FALSE(built.head.add_header(0, ""));
    EXPECT_FALSE(built.head.overflowed);
}

TEST(Header_helper, the_blank_line_takes_three_bytes_and_flags_the_last_one)
{
    const struct {
        int size;
        bool answer, overflowed;
        std::string stored;
    } cases[] = {{0, false, true, ""},
                 {1, false, true, "#"},
                 {2, false, true, "##"},
                 {3, true, true, "\r\n" + zeros(1)},
                 {4, true, false, "\r\n" + zeros(2)},
                 {5, true, false, "\r\n" + zeros(2) + "#"}};
    for (const auto& c : cases) {
        Built built(c.size);
        EXPECT_EQ(c.answer, built.head.add_http_finish()) << c.size;
        EXPECT_EQ(c.overflowed, built.head.overflowed) << c.size;
        EXPECT_EQ(c.stored, built.contents()) << c.size;
    }
}

TEST(Header_helper, truncates_a_head_of_40_bytes_in_a_buffer_of_16)
{
    const std::string line = "GET http://console:8080/stats HTTP/1.1\r\n";
    ASSERT_EQ(40U, line.size());
    Built built(16);
    built.head.allow_truncation = true;
    EXPECT_TRUE(built.head.add_http_start("GET", "stats", "console", 8080));
    EXPECT_EQ(line.substr(0, 15) + zeros(1), built.contents());
    EXPECT_EQ(40, built.head.index);
    EXPECT_TRUE(built.head.overflowed);
    // The switch saves from the checks of room, not from the flag.
    EXPECT_FALSE(built.head.add_http_start("", "", nullptr, 0));
    EXPECT_FALSE(built.head.add_header(EMPTY, ""));
    EXPECT_FALSE(built.head.add_http_finish());
    EXPECT_EQ(40, built.head.index);
}

TEST(Header_helper, truncates_each_kind_of_addition)
{
    const auto truncated = [](int size, const auto& addition) {
        Built built(size);
        built.head.allow_truncation = true;
        EXPECT_TRUE(addition(built.head));
        EXPECT_TRUE(built.head.overflowed);
        return built.contents();
    };
    EXPECT_EQ("GET /" + zeros(1), truncated(6, [](Header_helper& head) {
                  return head.add_http_start("GET", "status", nullptr, 0);
              }));
    EXPECT_EQ("Host:" + zeros(1),
              truncated(6, [](Header_helper& head) { return head.add_header(HOST, "console"); }));
    EXPECT_EQ("\r" + zeros(1), truncated(2, [](Header_helper& head) { return head.add_http_finish(); }));
    EXPECT_EQ("#", truncated(1, [](Header_helper& head) { return head.add_http_finish(); }));
    EXPECT_EQ("", truncated(0, [](Header_helper& head) { return head.add_http_finish(); }));
}

TEST(Header_helper, skips_as_many_bytes_as_a_negative_position_says)
{
    const std::string head = "GET /status/of/it HTTP/1.1\r\n\r\n";
    ASSERT_EQ(30U, head.size());
    Built built(40);
    built.head.set_index(-10);
    built.head.write(head.c_str(), 30);
    EXPECT_EQ(head.substr(10) + zeros(2) + std::string(18, '#'), built.contents());
    EXPECT_EQ(20, built.head.index);

    Built in_steps(40);
    in_steps.head.set_index(-10);
    EXPECT_TRUE(in_steps.head.add_http_start("GET", "status/of/it", nullptr, 0));
    EXPECT_TRUE(in_steps.head.add_http_finish());
    EXPECT_EQ(built.contents(), in_steps.contents());
    EXPECT_EQ(20, in_steps.head.index);
}

TEST(Header_helper, a_negative_position_counts_as_room)
{
    for (const int size : {15, 16, 17}) { // the line with its two bytes: 17, of which 1 is skipped
        Built built(size);
        built.head.set_index(-1);
        EXPECT_EQ(size >= 16, built.head.add_header(HOST, "console")) << size;
        EXPECT_EQ(size < 16, built.head.overflowed);
    }
}

TEST(Header_helper, produces_a_long_head_piece_by_piece_into_a_small_buffer)
{
    const std::string expected = START + "Host: console:8080\r\nContent-Length: 12345\r\n\r\n";
    for (int size = 2; size < 100; ++size) {
        std::string pieces;
        for (bool more = true; more;) {
            ASSERT_LE(pieces.size(), expected.size()) << size;
            Built built(size);
            built.head.allow_truncation = true;
            built.head.set_index(-static_cast<int>(pieces.size()));
            more = !(built.head.add_http_start("GET", "status", "console", 8080) &&
                     built.head.add_header(HOST, "console:8080") &&
                     built.head.add_header(CONTENT_LENGTH, "12345") && built.head.add_http_finish()) ||
                   built.head.overflowed;
            const int there = more ? size - 1 : built.head.index;
            if (there <= 0)
                break;
            pieces.append(built.head.buf, static_cast<std::size_t>(there));
        }
        ASSERT_EQ(expected, pieces) << size;
    }
}

TEST(Header_helper, a_new_buffer_starts_at_0_and_keeps_the_fault)
{
    Built built(3);
    EXPECT_FALSE(built.head.add_header(HOST, "console"));
    built.head.index = 2;
    char other[100] = {};
    built.head.set_buf(other, sizeof other);
    EXPECT_EQ(other, built.head.buf);
    EXPECT_EQ(100, built.head.size);
    EXPECT_EQ(0, built.head.index);
    EXPECT_TRUE(built.head.overflowed);
    built.head.set_index(0); // nor does this clear it
    EXPECT_TRUE(built.head.overflowed);
    EXPECT_FALSE(built.head.add_header(HOST, "console"));
    built.head.write("as ever", 7);
    EXPECT_STREQ("as ever", other);
    EXPECT_TRUE(built.head.overflowed);
}

TEST(Header_helper, without_a_buffer_it_refuses_or_counts)
{
    Header_helper head(names, TYPES, 3);
    EXPECT_FALSE(head.add_http_start("GET", "status", nullptr, 0));
    EXPECT_EQ(0, head.index);
    Header_helper counting(names, TYPES, 3);
    counting.allow_truncation = true;
    EXPECT_TRUE(counting.add_http_start("GET", "status", "console", 8080));
    EXPECT_EQ(static_cast<int>(START.size()), counting.index);
    counting.set_buf(nullptr, -5);
    EXPECT_TRUE(counting.allow_truncation);
    counting.write("abc", 3);
    EXPECT_EQ(3, counting.index);
}

TEST(Header_helper, writes_exactly_what_a_model_says_at_every_small_size_and_position)
{
    Text_page page;
    Text_page text_page;
    std::mt19937 random(75);
    for (int size = 0; size <= 12; ++size)
        for (int index = -14; index <= 14; ++index)
            for (int length = 0; length <= 14; ++length)
                for (const bool at_the_end : {false, true}) {
                    const auto bytes = static_cast<std::size_t>(length) + 1;
                    char* const text = text_page.end() - bytes; // one byte more cannot be read
                    for (std::size_t i = 0; i < bytes; ++i)
                        text[i] = static_cast<char>('a' + random() % 26);
                    page.clear();
                    char* const buf = at_the_end ? page.end() - size : page.begin();

                    Header_helper head(names, TYPES, 3);
                    head.set_buf(buf, size);
                    head.set_index(index);
                    head.write(text, length);
                    Model model(size);
                    model.index = index;
                    model.write({text, bytes});

                    SCOPED_TRACE(testing::Message() << size << ", at " << index << ", length " << length);
                    ASSERT_EQ(model.stored, std::string(buf, static_cast<std::size_t>(size)));
                    ASSERT_EQ(model.overflowed, head.overflowed);
                    ASSERT_EQ(index + length, head.index);
                    ASSERT_TRUE(page.is_clear_around(buf, static_cast<std::size_t>(size)));
                }
}

TEST(Header_helper, touches_nothing_at_positions_near_the_limits)
{
    const struct {
        int size, index;
        bool overflowed;
    } cases[] = {
        {8, INT_MIN, false},      {8, INT_MIN + 5, false}, {8, INT_MAX - 10, true}, {0, INT_MIN, false},
        {INT_MIN, INT_MIN, true}, {INT_MIN, 0, true},      {-1, -4, false},         {-1, 0, true}};
    Text_page page;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << ", at " << c.index);
        Header_helper head(names, TYPES, 3);
        head.set_buf(page.begin(), c.size);
        head.set_index(c.index);
        head.write("a", 1);
        EXPECT_EQ(c.overflowed, head.overflowed);
        EXPECT_EQ(c.index + 1, head.index);
        EXPECT_TRUE(page.is_clear_around(page.begin(), 0));
    }
    for (const int index : {INT_MIN, INT_MAX}) { // room beyond what an int holds, or none at all
        Header_helper head(names, TYPES, 3);
        head.set_buf(page.begin(), index < 0 ? INT_MAX : INT_MIN);
        head.set_index(index);
        EXPECT_EQ(index < 0, head.add_header(HOST, "console"));
        EXPECT_EQ(index < 0, head.add_http_start("GET", "status", "console", 8080));
        EXPECT_EQ(index < 0, head.add_http_finish());
        EXPECT_TRUE(page.is_clear_around(page.begin(), 0));
    }
}

TEST(Header_helper, a_negative_length_writes_nothing_and_moves_back)
{
    Built built(8);
    built.head.write("abcdef", 3);
    EXPECT_EQ("abcd" + zeros(1) + "###", built.contents()); // the byte behind, and a terminator
    built.head.write("xyz", -1);
    EXPECT_EQ("abcd" + zeros(1) + "###", built.contents());
    EXPECT_EQ(2, built.head.index);
    EXPECT_FALSE(built.head.overflowed);
}

TEST(Header_helper, agrees_with_a_model_over_random_sequences)
{
    const std::uint32_t seed = 7511;
    std::mt19937 random(seed);
    const auto below = [&random](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const auto text = [&](int longest) {
        std::string s(static_cast<std::size_t>(below(longest + 1)), ' ');
        for (char& byte : s)
            byte = static_cast<char>('!' + below(90));
        return s;
    };
    Text_page page;
    int overflows = 0;
    int additions = 0;
    for (int round = 0; round < 20000; ++round) {
        const int size = below(120);
        page.clear();
        char* const buf = below(2) == 0 ? page.begin() : page.end() - size;
        Header_helper head(names, TYPES, 3);
        Model model(size);
        head.set_buf(buf, size);
        head.allow_truncation = model.allow_truncation = below(3) == 0;
        if (below(2) == 0) {
            model.index = below(100) - 70;
            head.set_index(model.index);
        }
        for (int step = below(7); step >= 0; --step) {
            bool answer = true;
            bool expected = true;
            switch (below(4)) {
            case 0: {
                const std::string method = text(5);
                const std::string path = text(9);
                const std::string host = below(2) == 0 ? "" : text(9);
                const int port = static_cast<int>(random()) >> below(32);
                answer = head.add_http_start(method.c_str(), path.c_str(), host.c_str(), port);
                expected = model.add_http_start(method, path, host, port);
                break;
            }
            case 1: {
                const int i = below(5) - 1;
                const std::string value = text(20);
                answer = head.add_header(i, value.c_str());
                expected = model.add_header(i, value);
                break;
            }
            case 2:
                answer = head.add_http_finish();
                expected = model.add_http_finish();
                break;
            default: {
                const std::string more = text(20) + '\0';
                head.write(more.c_str(), static_cast<int>(more.size()) - 1);
                model.write(more);
            }
            }
            additions += answer ? 1 : 0;
            ASSERT_EQ(expected, answer) << "seed " << seed << ", round " << round;
            ASSERT_EQ(model.stored, std::string(buf, static_cast<std::size_t>(size)))
                << "seed " << seed << ", round " << round;
            ASSERT_EQ(model.index, head.index) << "seed " << seed << ", round " << round;
            ASSERT_EQ(model.overflowed, head.overflowed) << "seed " << seed << ", round " << round;
        }
        overflows += head.overflowed ? 1 : 0;
        ASSERT_TRUE(page.is_clear_around(buf, static_cast<std::size_t>(size)));
    }
    EXPECT_GT(overflows, 5000);
    EXPECT_GT(additions, 20000);
}

TEST(Header_helper, allocates_nothing)
{
    if (!ALLOCATIONS_ARE_COUNTED)
        GTEST_SKIP() << "the sanitizers bring their own malloc()";
    const std::string path(100, 'p'); // more than a std::string holds without allocating
    char buf[400];
    const std::int64_t before = allocations();
    for (const int size : {400, 150, 1}) // with room for all, for a part, for nothing
        for (const int index : {0, -50}) // and with a part skipped
            for (const bool may_truncate : {false, true}) {
                Header_helper head(names, TYPES, 3);
                head.set_buf(buf, size);
                head.set_index(index);
                head.allow_truncation = may_truncate;
                head.add_http_start("GET", path.c_str(), "console.example", INT_MIN);
                head.add_http_start("GET", path.c_str(), nullptr, 0);
                head.add_header(HOST, path.c_str());
                head.add_header(3, path.c_str());
                head.add_http_finish();
                head.write(path.c_str(), 100);
                head.get_line_type(path.c_str());
            }
    EXPECT_EQ(before, allocations());
    const auto counted = std::make_unique<char[]>(10);
    const char* volatile used = counted.get(); // or the compiler would leave it out
    static_cast<void>(used);
    EXPECT_LT(before, allocations());
}

TEST(Header_helper, tells_lines_apart_by_the_first_entry_that_matches)
{
    const char* table[] = {"Content", "Content-Length", "Content-Length", "OK", "OK", "", "other kind", ""};
    const Type types[] = {HEADER, LINE, HEADER, LINE, HEADER, HEADER, static_cast<Type>(2), LINE};
    const Header_helper head(table, types, 8);
    const struct {
        const char* line;
        int entry;
    } cases[] = {{"Content-Length: 5", 2},
                 {"Content-Length:5", 2},
                 {"Content-Length:", 2},
                 {"Content-Length", 1},
                 {"Content-Length ", -1},
                 {"Content-Length : 5", -1},
                 {"Content: text", 0},
                 {"Content:", 0},
                 {"Content", -1},
                 {"Conten", -1},
                 {"content-length: 5", -1}, // the case counts
                 {" Content: text", -1},
                 {"OK", 3},
                 {"OK:", 4},
                 {"OKAY", -1},
                 {"O", -1},
                 {":", 5}, // the empty name and its colon
                 {": x", 5},
                 {"", 7},
                 {"other kind", -1},
                 {"other kind: x", -1}};
    for (const auto& c : cases)
        EXPECT_EQ(c.entry, head.get_line_type(c.line)) << c.line;
}

TEST(Header_helper, finds_nothing_in_an_empty_table)
{
    EXPECT_EQ(-1, Header_helper(nullptr, nullptr, 0).get_line_type(""));
    EXPECT_EQ(-1, Header_helper(names, TYPES, -1).get_line_type(":"));
    EXPECT_EQ(-1, Header_helper(names, TYPES, 1).get_line_type("Host: console")); // behind the end
}

TEST(Header_helper, reads_no_further_than_the_end_of_a_line)
{
    Text_page page;
    for (const char* line : {"", "C", "Content-Length", "Content-Length:", "Host"}) {
        char* const text = page.end() - std::strlen(line) - 1;
        std::memcpy(text, line, std::strlen(line) + 1);
        EXPECT_EQ(text[std::strlen(line) - (*line == 0 ? 0 : 1)] == ':' ? 0 : -1,
                  Header_helper(names, TYPES, 2).get_line_type(text))
            << line;
    }
}
