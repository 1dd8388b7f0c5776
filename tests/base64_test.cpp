#include "util/base64.h"

#include "tests/support/Base64_model.h"
#include "tests/support/Guarded_page.h"

#include <QByteArray>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <random>
#include <string>
#include <type_traits>

namespace {

using Function = int(unsigned char*, int*, const unsigned char*, int);
static_assert(std::is_same_v<Function, decltype(base64_encode)>);
static_assert(std::is_same_v<Function, decltype(base64_decode)>);
static_assert(std::is_same_v<int(int), decltype(base64_self_test)>);

constexpr bool EMULATED = sizeof(void*) == 4; // the 32-bit tests run some twenty times slower
constexpr int ROOM = 4096;
constexpr char FENCE = '\xA5';

enum class Fault { NONE, CODE, FIRST_BYTE, LAST_BYTE };
Fault encoding_fault = Fault::NONE;
Fault decoding_fault = Fault::NONE;

int spoiled(Fault fault, Function* function, unsigned char* dst, int* dlen, const unsigned char* src,
            int slen)
{
    const int code = function(dst, dlen, src, slen);
    if (fault == Fault::CODE)
        return -16;
    if (fault != Fault::NONE)
        dst[fault == Fault::FIRST_BYTE ? 0 : *dlen - 1] ^= 1;
    return code;
}

Function* library_function(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These stand before the library's own, also for the self-test's calls, so that it can be made to fail.
int base64_encode(unsigned char* dst, int* dlen, const unsigned char* src, int slen)
{
    static Function* const function = library_function("base64_encode");
    return spoiled(encoding_fault, function, dst, dlen, src, slen);
}

int base64_decode(unsigned char* dst, int* dlen, const unsigned char* src, int slen)
{
    static Function* const function = library_function("base64_decode");
    return spoiled(decoding_fault, function, dst, dlen, src, slen);
}

namespace {

const unsigned char* data(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* data(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

/// What a call gave: its code, `*dlen`, and the whole buffer, fences behind the room among it.
struct Outcome {
    int code;
    int length;
    std::string buffer;

    std::string written() const { return buffer.substr(0, static_cast<std::size_t>(length)); }
    bool touched() const { return buffer.find_first_not_of(FENCE) != std::string::npos; }
    bool touched_from(int at) const
    {
        return buffer.find_first_not_of(FENCE, static_cast<std::size_t>(at)) != std::string::npos;
    }
};

Outcome call(Function* function, const std::string& src, int room)
{
    Outcome outcome{0, room, std::string(static_cast<std::size_t>(std::max(room, 0) + 8), FENCE)};
    outcome.code = function(data(outcome.buffer), &outcome.length, data(src), static_cast<int>(src.size()));
    return outcome;
}

std::string encoded(const std::string& bytes)
{
    const Outcome outcome = call(base64_encode, bytes, ROOM);
    EXPECT_EQ(0, outcome.code);
    return bytes.empty() ? std::string() : outcome.written();
}

std::string encoded_by_qt(const std::string& bytes)
{
    return QByteArray::fromStdString(bytes).toBase64().toStdString();
}

/// Compares a call with the model, with room to spare, with just enough, and with a byte too few.
testing::AssertionResult agrees(const std::string& text)
{
    const Base64_model model(text);
    const bool writes = model.code == 0 && model.count > 0;
    for (const int room : {model.room() + 5, model.room(), model.room() - 1}) {
        const Outcome outcome = call(base64_decode, text, room);
        const bool fits = room >= model.room();
        const int code = writes && !fits ? -16 : model.code;
        const int length = !writes ? room : fits ? static_cast<int>(model.bytes.size()) : model.room();
        if (outcome.code != code || outcome.length != length)
            return testing::AssertionFailure()
                   << testing::PrintToString(text) << " with room for " << room << " gives " << outcome.code
                   << " and length " << outcome.length << ", not " << code << " and " << length;
        if (code == 0 && writes ? outcome.written() != model.bytes || outcome.touched_from(length)
                                : outcome.touched())
            return testing::AssertionFailure() << testing::PrintToString(text) << " with room for " << room
                                               << " gives " << testing::PrintToString(outcome.buffer);
    }
    return testing::AssertionSuccess();
}

std::string random_bytes(std::mt19937& random, std::size_t length)
{
    std::string bytes(length, 0);
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// Valid, with ends of lines at regular distances, here and there, or nowhere.
std::string random_text(std::mt19937& random)
{
    std::string text = encoded_by_qt(random_bytes(random, random() % 300));
    if (random() % 4 == 0)
        text.resize(random() % (text.size() + 1)); // a last group that is not whole, or half of the padding
    const std::size_t regular = 1 + random() % 80;
    const bool anywhere = random() % 2 == 0;
    std::string broken;
    for (std::size_t i = 0; i < text.size(); ++i) {
        broken += text[i];
        if (anywhere ? random() % 40 == 0 : (i + 1) % regular == 0 && regular > 3)
            broken += random() % 2 == 0 ? "\n" : "\r\n";
    }
    return broken;
}

/// Calls with both buffers at the start and at the end of a page, the destination just large enough.
void expect_within_bounds(Function* function, const std::string& from, int room, const std::string& to)
{
    static Guarded_page source, destination;
    for (const bool at_end : {false, true}) {
        unsigned char* const src = at_end ? source.last(from.size()) : source.begin();
        unsigned char* const dst =
            at_end ? destination.last(static_cast<std::size_t>(room)) : destination.begin();
        std::copy(from.begin(), from.end(), src);
        int length = room;
        ASSERT_EQ(0, function(dst, &length, src, static_cast<int>(from.size())));
        ASSERT_EQ(to, std::string(dst, dst + length));
    }
}

struct Pair {
    const char *bytes, *text;
};
// RFC 4648, section 10
const Pair PUBLISHED[] = {{"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
                          {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};

} // namespace

TEST(base64, has_c_linkage)
{
    for (const char* const name : {"base64_encode", "base64_decode", "base64_self_test"})
        EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, name)) << name;
}

TEST(base64, gives_the_published_pairs_in_both_directions)
{
    for (const Pair& pair : PUBLISHED) {
        EXPECT_EQ(pair.text, encoded(pair.bytes));
        EXPECT_TRUE(agrees(pair.text));
        EXPECT_EQ(pair.bytes, call(base64_decode, pair.text, ROOM).written());
    }
}

TEST(base64_encode, takes_every_value_of_a_byte_in_every_place)
{
    for (std::size_t place = 0; place < 20; ++place)
        for (int value = 0; value < 256; ++value) {
            std::string bytes(20, '\x5A');
            bytes[place] = static_cast<char>(value);
            ASSERT_EQ(encoded_by_qt(bytes), encoded(bytes)) << value << " at " << place;
        }
}

TEST(base64_encode, encodes_as_qt_does_whatever_the_length)
{
    std::mt19937 random(4648);
    for (int i = 0; i < 12000; ++i) {
        const std::string bytes = random_bytes(random, random() % 120);
        ASSERT_EQ(encoded_by_qt(bytes), encoded(bytes)) << "text " << i << ", seed 4648";
    }
}

TEST(base64_encode, ends_the_text_with_a_nul_that_the_length_leaves_out)
{
    for (std::size_t size = 1; size < 30; ++size) {
        const Outcome outcome = call(base64_encode, std::string(size, 'x'), 50);
        const int length = static_cast<int>((size + 2) / 3) * 4;
        EXPECT_EQ(length, outcome.length);
        EXPECT_EQ(0, outcome.buffer[static_cast<std::size_t>(length)]);
        EXPECT_FALSE(outcome.touched_from(length + 1)) << size;
    }
}

TEST(base64_encode, wants_room_for_the_nul)
{
    const struct {
        std::size_t size;
        int needed;
    } cases[] = {{1, 5}, {2, 5}, {3, 5}, {4, 9}, {5, 9}, {6, 9}, {7, 13}, {64, 89}};
    for (const auto& c : cases) {
        const std::string bytes(c.size, 'x');
        EXPECT_EQ(0, call(base64_encode, bytes, c.needed).code) << c.size;
        for (const int room : {c.needed - 1, 4, 1, 0, -1, INT_MIN}) {
            const Outcome outcome = call(base64_encode, bytes, room);
            EXPECT_EQ(-16, outcome.code) << c.size << " bytes, room for " << room;
            EXPECT_EQ(c.needed, outcome.length);
            EXPECT_FALSE(outcome.touched());
        }
    }
}

TEST(base64_encode, does_nothing_without_a_byte_to_encode)
{
    for (const int slen : {0, -1, INT_MIN})
        for (const int room : {-1, 0, 7}) {
            int length = room;
            EXPECT_EQ(0, base64_encode(nullptr, &length, nullptr, slen)) << slen;
            EXPECT_EQ(room, length);
        }
}

TEST(base64_encode, asks_for_as_much_as_an_int_counts)
{
    const struct {
        int slen, room, needed;
    } cases[] = {{268435456, 0, 357913945}, // eight times this is 2^31
                 {1610612733, 2147483644, 2147483645},
                 {1610612734, 0, INT_MAX}, // 2^31 characters and the NUL
                 {1610612734, INT_MAX, INT_MAX},
                 {INT_MAX, INT_MAX, INT_MAX}};
    for (const auto& c : cases) {
        int length = c.room;
        EXPECT_EQ(-16, base64_encode(nullptr, &length, nullptr, c.slen)) << c.slen;
        EXPECT_EQ(c.needed, length) << c.slen;
    }
}

TEST(base64_encode, stays_within_its_buffers)
{
    std::mt19937 random(7);
    for (std::size_t size = 1; size < 100; ++size) {
        const std::string bytes = random_bytes(random, size);
        const std::string text = encoded_by_qt(bytes);
        expect_within_bounds(base64_encode, bytes, static_cast<int>(text.size()) + 1, text);
    }
}

TEST(base64_decode, skips_ends_of_lines_and_refuses_what_it_should)
{
    const struct {
        const char* text;
        int code;
        const char* bytes;
    } cases[] = {{"QUJD\r\nREVG", 0, "ABCDEF"},
                 {"QUJD\nREVG\n", 0, "ABCDEF"},
                 {"\r\n\nQU\nJ\r\nD", 0, "ABC"},
                 {"QQ\r\n=\n=\r\n", 0, "A"},
                 {"QUJD\n", 0, "ABC"},
                 {"QQ==\r\nQQ==", -18, ""},
                 {"QUJD\r", -18, ""},
                 {"\r", -18, ""},
                 {"QUJD\rREVG", -18, ""},
                 {"QUJD\r\r\nREVG", -18, ""},
                 {"QUJD\n\rREVG", -18, ""},
                 {"QQ=Q", -18, ""},
                 {"QQ===", -18, ""},
                 {"Q=\n=\r\n=", -18, ""},
                 {"QUJD REVG", -18, ""},
                 {"QU-_", -18, ""}};
    for (const auto& c : cases) {
        const Outcome outcome = call(base64_decode, c.text, 20);
        EXPECT_EQ(c.code, outcome.code) << testing::PrintToString(c.text);
        EXPECT_EQ(c.code == 0 ? c.bytes : std::string(20, FENCE), outcome.written());
        EXPECT_TRUE(agrees(c.text));
    }
}

TEST(base64_decode, leaves_the_length_where_nothing_counts)
{
    for (const char* const text : {"", "\n", "\r\n", "\n\n\r\n\n"})
        for (const int room : {-1, 0, 5}) {
            const Outcome outcome = call(base64_decode, text, room);
            EXPECT_EQ(0, outcome.code) << testing::PrintToString(text);
            EXPECT_EQ(room, outcome.length);
            EXPECT_FALSE(outcome.touched());
        }
}

TEST(base64_decode, does_nothing_with_a_negative_length)
{
    for (const int slen : {-1, INT_MIN}) {
        int length = 3;
        EXPECT_EQ(0, base64_decode(nullptr, &length, nullptr, slen));
        EXPECT_EQ(3, length);
    }
}

TEST(base64_decode, drops_a_last_group_that_is_not_whole_but_wants_room_for_it)
{
    const struct {
        const char* text;
        int room;
        const char* bytes;
    } cases[] = {{"Q", 1, ""},         {"QU", 2, ""},         {"QUJ", 3, ""},        {"QUJDR", 4, "ABC"},
                 {"QUJDRE", 5, "ABC"}, {"QUJDREV", 6, "ABC"}, {"=", 1, ""},          {"==", 2, ""},
                 {"Q=", 2, ""},        {"Q==", 3, ""},        {"QU=", 3, ""},        {"QUI==", 4, "AB"},
                 {"QUJD=", 4, "ABC"},  {"QUJD==", 5, "ABC"},  {"QUJDQ==", 6, "ABC"}, {"QUI=", 3, "AB"},
                 {"QQ==", 3, "A"}};
    for (const auto& c : cases) {
        const Outcome outcome = call(base64_decode, c.text, c.room);
        EXPECT_EQ(0, outcome.code) << c.text;
        EXPECT_EQ(c.bytes, outcome.written()) << c.text;
        EXPECT_FALSE(outcome.touched_from(outcome.length)) << c.text;
        for (const int room : {c.room - 1, 0, -1, INT_MIN}) {
            const Outcome refused = call(base64_decode, c.text, room);
            EXPECT_EQ(-16, refused.code) << c.text;
            EXPECT_EQ(c.room, refused.length) << c.text;
            EXPECT_FALSE(refused.touched());
        }
    }
}

TEST(base64_decode, ignores_the_bits_that_are_left_over)
{
    for (const char* const text : {"QQ==", "QR==", "Qf=="})
        EXPECT_EQ("A", call(base64_decode, text, 3).written());
    for (const char* const text : {"QUI=", "QUJ=", "QUL="})
        EXPECT_EQ("AB", call(base64_decode, text, 3).written());
}

TEST(base64_decode, finds_an_invalid_text_before_it_finds_too_little_room)
{
    const Outcome outcome = call(base64_decode, "QUJDQUJDQUJD-", 1);
    EXPECT_EQ(-18, outcome.code);
    EXPECT_EQ(1, outcome.length);
}

TEST(base64_decode, takes_and_refuses_every_code_in_every_place)
{
    // 141 characters: blocks, groups and single characters, whichever way the text is cut up.
    for (std::size_t place = 0; place < 141; place += EMULATED ? 5 : 1)
        for (int code = 0; code < 256; ++code) {
            std::string text(141, 'Q');
            text[place] = static_cast<char>(code);
            const bool last = place == 140;
            const bool valid =
                Base64_model::digit(static_cast<char>(code)) >= 0 || code == '\n' || (code == '=' && last);
            const Outcome outcome = call(base64_decode, text, 120);
            ASSERT_EQ(valid ? 0 : -18, outcome.code) << code << " at " << place;
            ASSERT_EQ(valid ? 105 : 120, outcome.length);
            ASSERT_EQ(valid, outcome.touched());
        }
}

TEST(base64_decode, agrees_with_the_model_on_every_short_text)
{
    // All that a text can hold: two digits, padding, both parts of an end of line, and a code above 127.
    const std::string symbols = "+q=\r\n\xC1";
    const std::size_t longest = EMULATED ? 6 : 8;
    for (std::size_t length = 0; length <= longest; ++length) {
        std::string text(length, symbols[0]);
        for (bool more = true; more;) {
            ASSERT_TRUE(agrees(text));
            more = false;
            for (std::size_t i = 0; i < length && !more; ++i) {
                const std::size_t next = (symbols.find(text[i]) + 1) % symbols.size();
                text[i] = symbols[next];
                more = next != 0;
            }
        }
    }
}

TEST(base64_decode, agrees_with_the_model_on_random_texts)
{
    std::mt19937 random(20180405);
    for (int i = 0; i < 10000; ++i) {
        std::string text = random_text(random);
        if (random() % 2 == 0 && !text.empty())
            text[random() % text.size()] = "=\r\n\x80 A"[random() % 6];
        ASSERT_TRUE(agrees(text)) << "text " << i << ", seed 20180405";
    }
}

TEST(base64_decode, stays_within_its_buffers)
{
    std::mt19937 random(11);
    for (int i = 0; i < 1000; ++i) {
        const std::string text = random_text(random);
        const Base64_model model(text);
        if (model.count > 0)
            expect_within_bounds(base64_decode, text, model.room(), model.bytes);
    }
}

TEST(base64_decode, does_not_look_behind_a_last_cr)
{
    Guarded_page page;
    for (const std::string& text : {std::string("\r"), std::string("QUJD\r"), std::string("QUJD\r\nQ\r")}) {
        std::copy(text.begin(), text.end(), page.last(text.size()));
        int length = 9;
        EXPECT_EQ(-18,
                  base64_decode(nullptr, &length, page.last(text.size()), static_cast<int>(text.size())));
    }
}

TEST(base64_decode, decodes_in_place)
{
    std::mt19937 random(13);
    for (int i = 0; i < 10000; ++i) {
        const std::string text = random_text(random);
        const Base64_model model(text);
        std::string buffer = text;
        int length = static_cast<int>(buffer.size());
        ASSERT_EQ(0, base64_decode(data(buffer), &length, data(buffer), length));
        if (model.count == 0)
            continue;
        ASSERT_EQ(model.bytes, buffer.substr(0, static_cast<std::size_t>(length))) << i << ", seed 13";
        ASSERT_EQ(text.substr(model.bytes.size()), buffer.substr(model.bytes.size())) << "past the end";
    }
}

TEST(base64_decode, counts_more_bits_than_an_int_holds)
{
    if (EMULATED)
        GTEST_SKIP() << "the emulator takes a minute for so long a text";
    constexpr std::size_t PIECE = 1 << 20;
    constexpr int COUNT = 357913944; // times six is 2^31 + 16
    constexpr std::size_t PIECES = COUNT / PIECE + 1;
    const int fd = memfd_create("text", 0);
    const std::string piece(PIECE, 'Q');
    ASSERT_EQ(static_cast<ssize_t>(PIECE), write(fd, piece.data(), PIECE));
    // The same piece again and again, so that the text takes up addresses but no memory.
    void* const text = mmap(nullptr, PIECE * PIECES, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, text);
    for (std::size_t i = 0; i < PIECES; ++i)
        ASSERT_NE(MAP_FAILED, mmap(static_cast<char*>(text) + i * PIECE, PIECE, PROT_READ,
                                   MAP_SHARED | MAP_FIXED, fd, 0));
    int length = 0;
    EXPECT_EQ(-16, base64_decode(nullptr, &length, static_cast<const unsigned char*>(text), COUNT));
    EXPECT_EQ(268435458, length); // three quarters
    munmap(text, PIECE * PIECES);
    close(fd);
}

TEST(base64, decodes_what_it_encodes)
{
    std::mt19937 random(17);
    for (std::size_t size = 1; size < 300; ++size) {
        const std::string bytes = random_bytes(random, size);
        const std::string text = encoded(bytes);
        EXPECT_EQ(bytes, call(base64_decode, text, ROOM).written()) << size;
        EXPECT_EQ(bytes, QByteArray::fromBase64(QByteArray::fromStdString(text)).toStdString()) << size;
    }
}

TEST(base64, prints_nothing_whatever_it_is_given)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const char* const text : {"Zm9vYmFy", "Zg==", "Z", "Z===", "Zm9\rv", "\xFF\xFF\xFF\xFF", ""}) {
        unsigned char out[16];
        for (const int room : {0, 1, 16}) {
            const auto* const from = reinterpret_cast<const unsigned char*>(text);
            const int size = static_cast<int>(std::strlen(text));
            int length = room;
            base64_decode(out, &length, from, size);
            length = room;
            base64_encode(out, &length, from, size);
        }
    }
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(base64_self_test, passes_and_says_nothing_unasked)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, base64_self_test(0));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST(base64_self_test, tells_what_it_tests_when_asked)
{
    for (const int verbose : {1, -1, 256}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(0, base64_self_test(verbose));
        EXPECT_EQ("  Base64 encoding test: passed\n  Base64 decoding test: passed\n\n",
                  testing::internal::GetCapturedStdout());
    }
}

TEST(base64_self_test, stops_at_the_first_failure)
{
    const struct {
        Fault encoding, decoding;
        const char* told;
    } cases[] = {
        {Fault::CODE, Fault::NONE, "  Base64 encoding test: failed\n"},
        {Fault::FIRST_BYTE, Fault::NONE, "  Base64 encoding test: failed\n"},
        {Fault::LAST_BYTE, Fault::CODE, "  Base64 encoding test: failed\n"},
        {Fault::NONE, Fault::CODE, "  Base64 encoding test: passed\n  Base64 decoding test: failed\n"},
        {Fault::NONE, Fault::FIRST_BYTE, "  Base64 encoding test: passed\n  Base64 decoding test: failed\n"},
        {Fault::NONE, Fault::LAST_BYTE, "  Base64 encoding test: passed\n  Base64 decoding test: failed\n"}};
    for (const auto& c : cases)
        for (const int verbose : {0, 1}) {
            encoding_fault = c.encoding;
            decoding_fault = c.decoding;
            testing::internal::CaptureStdout();
            EXPECT_EQ(1, base64_self_test(verbose));
            EXPECT_EQ(verbose != 0 ? c.told : "", testing::internal::GetCapturedStdout());
            encoding_fault = decoding_fault = Fault::NONE;
        }
}
