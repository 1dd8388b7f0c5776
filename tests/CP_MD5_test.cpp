#include "util/CP_MD5.h"

#include "tests/support/Guarded_page.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using CP_MD5::ConvertToHex;
using CP_MD5::TMD5;
using CP_MD5::TSignature;

static_assert(std::is_same_v<char*(const char*, char*, int), decltype(ConvertToHex)>);
static_assert(std::is_same_v<void (TMD5::*)(), decltype(&TMD5::Init)>);
static_assert(std::is_same_v<void (TMD5::*)(const char*, unsigned), decltype(&TMD5::Update)>);
static_assert(std::is_same_v<void (TMD5::*)(unsigned*, const unsigned*), decltype(&TMD5::Transform)>);
static_assert(std::is_same_v<void (TMD5::*)(TSignature&), decltype(&TMD5::Final)>);
static_assert(std::is_same_v<bool (TSignature::*)(const TSignature&) const, //
                             decltype(&TSignature::operator==)>);
static_assert(std::is_same_v<char* (TSignature::*)(char*) const, decltype(&TSignature::WriteToBuf)>);
static_assert(std::is_same_v<char* (TSignature::*)(char*) const, decltype(&TSignature::WriteBase64ToBuf)>);
static_assert(std::is_same_v<const char* (TSignature::*)(const char*), decltype(&TSignature::ReadFromBuf)>);
static_assert(sizeof(TMD5) == 88 && alignof(TMD5) == 4 && std::is_standard_layout_v<TMD5> &&
              std::is_trivially_copyable_v<TMD5>);
static_assert(sizeof(TSignature) == 16 && alignof(TSignature) == 1 && std::is_standard_layout_v<TSignature> &&
              std::is_trivially_copyable_v<TSignature>);

constexpr bool EMULATED = sizeof(void*) == 4; // the 32-bit tests run some twenty times slower
constexpr char FENCE = '\x5A';

using Words = std::array<unsigned, 4>;
constexpr Words RFC_WORDS = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

/// A context as it lies in memory.
struct Fields {
    Words state;
    unsigned low, high;
    char buffer[64];

    std::uint64_t bits() const { return std::uint64_t{high} << 32 | low; }
    std::string pending() const { return std::string(buffer, low / 8 % 64); }
};

Fields fields_of(const TMD5& md5)
{
    Fields fields;
    static_assert(sizeof fields == sizeof md5);
    std::memcpy(&fields, &md5, sizeof fields);
    return fields;
}

bool operator==(const Fields& a, const Fields& b)
{
    return a.state == b.state && a.bits() == b.bits() && a.pending() == b.pending();
}

std::string bytes_of(const TSignature& signature)
{
    std::string bytes(sizeof signature, '\0');
    std::memcpy(bytes.data(), &signature, sizeof signature);
    return bytes;
}

TSignature signature_of(const std::string& bytes)
{
    TSignature signature;
    std::memcpy(&signature, bytes.data(), sizeof signature);
    return signature;
}

unsigned length_of(const std::string& text)
{
    const std::uint64_t length = text.size();
    return static_cast<unsigned>(length);
}

std::string finish(TMD5& md5)
{
    TSignature signature;
    md5.Final(signature);
    return bytes_of(signature);
}

std::string digest(const std::string& message)
{
    TMD5 md5(message.data(), length_of(message));
    return finish(md5);
}

std::string qt_digest(const std::string& message)
{
    return QCryptographicHash::hash(QByteArray::fromStdString(message), QCryptographicHash::Md5)
        .toStdString();
}

std::string hex(const std::string& bytes)
{
    return QByteArray::fromStdString(bytes).toHex().toStdString();
}

std::string random_bytes(std::mt19937& random, std::size_t size)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// The algorithm a second way: RFC 1321, section 3.4, in its words, with the table made from the sine.
Words model_transform(const Words& start, const std::string& block)
{
    static constexpr unsigned SHIFTS[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    static constexpr unsigned ORDER[4][2] = {{0, 1}, {1, 5}, {5, 3}, {0, 7}};
    static const std::vector<unsigned> SINES = [] {
        std::vector<unsigned> sines;
        for (int i = 1; i <= 64; ++i)
            sines.push_back(static_cast<unsigned>(std::floor(4294967296.0 * std::fabs(std::sin(i)))));
        return sines;
    }();
    unsigned x[16] = {};
    for (unsigned i = 0; i < 64; ++i)
        x[i / 4] |= static_cast<unsigned>(static_cast<unsigned char>(block[i])) << i % 4 * 8;
    unsigned a = start[0], b = start[1], c = start[2], d = start[3];
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned functions[] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d, c ^ (b | ~d)};
        const unsigned shift = SHIFTS[i / 16][i % 4];
        const unsigned sum =
            a + functions[i / 16] + x[(ORDER[i / 16][0] + i * ORDER[i / 16][1]) % 16] + SINES[i];
        a = d;
        d = c;
        c = b;
        b += sum << shift | sum >> (32 - shift);
    }
    return {start[0] + a, start[1] + b, start[2] + c, start[3] + d};
}

std::string little_endian(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value);
    return text;
}

/// The digest when `text` follows from `start`, padded by hand.
///
/// @param bits  all that were taken; `text` is what they have left over, and what came after
std::string model_digest(Words start, std::uint64_t bits, std::string text)
{
    text += '\x80';
    while (text.size() % 64 != 56)
        text += '\0';
    text += little_endian(bits, 8);
    for (std::size_t at = 0; at < text.size(); at += 64)
        start = model_transform(start, text.substr(at, 64));
    std::string bytes;
    for (const unsigned word : start)
        bytes += little_endian(word, 4);
    return bytes;
}

/// A context that says it has taken so many bits, of which it holds `pending`.
TMD5 context(const Words& state, std::uint64_t bits, const std::string& pending)
{
    Fields fields{state, static_cast<unsigned>(bits), static_cast<unsigned>(bits >> 32), {}};
    std::memset(fields.buffer, FENCE, sizeof fields.buffer);
    pending.copy(fields.buffer, sizeof fields.buffer);
    TMD5 md5;
    std::memcpy(static_cast<void*>(&md5), &fields, sizeof md5);
    return md5;
}

Words random_words(std::mt19937& random)
{
    Words words;
    for (unsigned& word : words) {
        const std::uint64_t number = random();
        word = static_cast<unsigned>(number);
    }
    return words;
}

} // namespace

TEST(TMD5, gives_the_digests_of_the_standards_test_suite)
{
    const struct {
        std::string message;
        const char* expected;
    } examples[] = {// RFC 1321, appendix A.5
                    {"", "d41d8cd98f00b204e9800998ecf8427e"},
                    {"a", "0cc175b9c0f1b6a831c399e269772661"},
                    {"abc", "900150983cd24fb0d6963f7d28e17f72"},
                    {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
                    {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
                    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
                     "d174ab98d277d9f5a5611c2c9f419d9f"},
                    {"1234567890123456789012345678901234567890123456789012345678901234567890123456789"
                     "0",
                     "57edf4a22be3c955ac49da2e2107b67a"}};
    for (const auto& example : examples) {
        EXPECT_EQ(example.expected, hex(digest(example.message))) << example.message;
        EXPECT_EQ(example.expected, hex(model_digest(RFC_WORDS, 8 * example.message.size(), example.message)))
            << "the model, " << example.message;
    }
}

TEST(TMD5, gives_qts_digest_for_every_length_up_to_a_few_blocks)
{
    std::mt19937 random(1);
    for (std::size_t size = 0; size <= 300; ++size) {
        const std::string message = random_bytes(random, size);
        EXPECT_EQ(qt_digest(message), digest(message)) << size;
    }
}

TEST(TMD5, starts_with_the_standards_words_and_no_bits)
{
    const Fields fields = fields_of(TMD5());
    EXPECT_EQ(RFC_WORDS, fields.state);
    EXPECT_EQ(0U, fields.bits());
}

TEST(TMD5, comes_to_the_same_wherever_a_message_is_cut_twice)
{
    constexpr unsigned LENGTH = 200;
    std::mt19937 random(2);
    const std::string message = random_bytes(random, LENGTH);
    std::vector<TMD5> whole;
    for (unsigned i = 0; i <= LENGTH; ++i) {
        whole.emplace_back(message.data(), i);
        TMD5 ended = whole[i];
        ASSERT_EQ(qt_digest(message.substr(0, i)), finish(ended)) << i;
    }
    for (unsigned first = 0; first <= LENGTH; first += EMULATED ? 9 : 1)
        for (unsigned second = first; second <= LENGTH; ++second) {
            TMD5 two = whole[first];
            two.Update(message.data() + first, second - first);
            for (unsigned length = second; length <= LENGTH; ++length) {
                TMD5 three = two;
                three.Update(message.data() + second, length - second);
                ASSERT_TRUE(fields_of(whole[length]) == fields_of(three))
                    << "cut at " << first << " and " << second << ", length " << length;
            }
        }
}

TEST(TMD5, gives_qts_digest_for_random_messages_in_random_pieces)
{
    for (unsigned seed = 0; seed < 10000; ++seed) {
        std::mt19937 random(seed);
        const std::string message = random_bytes(random, random() % 400);
        TMD5 md5;
        for (std::size_t at = 0; at < message.size();) {
            const std::string piece = message.substr(at, random() % 150);
            md5.Update(piece.data(), length_of(piece));
            at += piece.size();
        }
        ASSERT_EQ(qt_digest(message), finish(md5)) << "seed " << seed;
    }
}

TEST(TMD5, takes_nothing_from_an_empty_piece)
{
    EXPECT_EQ(qt_digest(""), digest(""));
    TMD5 md5(nullptr, 0);
    md5.Update(nullptr, 0);
    md5.Update("message", 7);
    const Fields before = fields_of(md5);
    md5.Update(nullptr, 0);
    md5.Update(" digest", 0);
    const Fields after = fields_of(md5);
    EXPECT_EQ(before.state, after.state);
    EXPECT_EQ(before.bits(), after.bits());
    EXPECT_EQ(before.pending(), after.pending());
    md5.Update(" digest", 7);
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", hex(finish(md5))); // RFC 1321, appendix A.5
}

TEST(TMD5, carries_the_count_of_bits_into_the_high_word)
{
    const struct {
        std::uint64_t before;
        unsigned bytes;
        std::uint64_t after;
    } examples[] = {{0xFFFFFFF0, 1, 0xFFFFFFF8},
                    {0xFFFFFFF8, 1, 0x100000000},
                    {0xFFFFFFF8, 2, 0x100000008},
                    {0xFFFFFE00, 200, 0x100000440},
                    {0x1FFFFFFF8, 1, 0x200000000},
                    {0xFFFFFFFFFFFFFFF8, 1, 0}, // RFC 1321, section 3.2: only the low 64 bits are used
                    {0xFFFFFFFFFFFFFFF8, 9, 64}};
    for (const auto& example : examples) {
        SCOPED_TRACE(testing::Message() << std::hex << example.before << " and " << example.bytes);
        const std::string pending(example.before / 8 % 64, 'p');
        const std::string more(example.bytes, 'm');
        TMD5 md5 = context(RFC_WORDS, example.before, pending);
        md5.Update(more.data(), example.bytes);
        EXPECT_EQ(example.after, fields_of(md5).bits());
        EXPECT_EQ(model_digest(RFC_WORDS, example.after, pending + more), finish(md5));
    }
}

TEST(TMD5, goes_on_from_any_context_as_the_model_does)
{
    for (unsigned seed = 0; seed < 10000; ++seed) {
        std::mt19937 random(seed);
        const Words state = random_words(random);
        std::uint64_t bits = (std::uint64_t{random()} << 32 | random()) & ~std::uint64_t{7};
        if (seed % 2 == 0)
            bits |= 0xFFFFF800; // so that the low word overflows often
        const std::string pending = random_bytes(random, bits / 8 % 64);
        TMD5 md5 = context(state, bits, pending);
        const std::string more = random_bytes(random, random() % 400);
        md5.Update(more.data(), length_of(more));
        ASSERT_EQ(model_digest(state, bits + 8 * more.size(), pending + more), finish(md5))
            << "seed " << seed;
    }
}

TEST(TMD5, takes_more_than_half_a_gigabyte_at_once)
{
    if (EMULATED)
        GTEST_SKIP() << "half a gigabyte takes too long where the processor is emulated";
    constexpr unsigned LENGTH = (1U << 29) + 5;
    void* const zeros = mmap(nullptr, LENGTH, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, zeros);
    TMD5 md5(static_cast<const char*>(zeros), LENGTH);
    munmap(zeros, LENGTH);
    EXPECT_EQ(0x100000028U, fields_of(md5).bits());
    // GNU coreutils 9.1: head -c 536870917 /dev/zero | md5sum
    EXPECT_EQ("53f83c490b7435d7e205466bfd984882", hex(finish(md5)));
}

TEST(TMD5, is_all_zeros_after_the_end_of_a_message)
{
    const std::string message(200, '\xFF');
    for (unsigned length = 0; length <= 200; ++length) {
        // What is read is the memory, after the object's life: nothing else would miss the zeros.
        alignas(TMD5) char memory[sizeof(TMD5)];
        std::memset(memory, FENCE, sizeof memory);
        auto* const md5 = new (memory) TMD5(message.data(), length);
        finish(*md5);
        md5->~TMD5();
        EXPECT_EQ(std::string(sizeof memory, '\0'), std::string(memory, sizeof memory)) << length;
    }
}

TEST(TMD5, goes_on_from_zeros_after_the_end_of_a_message)
{
    constexpr Words ZEROS = {};
    TMD5 md5("abc", 3);
    finish(md5);
    EXPECT_EQ(model_digest(ZEROS, 0, ""), finish(md5));
    for (unsigned length = 0; length <= 200; ++length) {
        const std::string message(length, 'z');
        md5.Update(message.data(), length);
        EXPECT_EQ(model_digest(ZEROS, 8 * length, message), finish(md5)) << length;
    }
}

TEST(TMD5, starts_anew_with_init_after_the_end_and_in_the_middle)
{
    TMD5 md5("abc", 3);
    finish(md5);
    md5.Init();
    md5.Update("abc", 3);
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", hex(finish(md5))); // RFC 1321, appendix A.5
    md5 = context(RFC_WORDS, 0x123456789ABCDEF8, std::string(63, 'p'));
    md5.Init();
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", hex(finish(md5)));
}

TEST(TMD5, gives_its_copy_a_life_of_its_own)
{
    TMD5 first("message ", 8);
    TMD5 second = first;
    first.Update("one", 3);
    second.Update("two", 3);
    EXPECT_EQ(qt_digest("message one"), finish(first));
    EXPECT_EQ(qt_digest("message two"), finish(second));
}

TEST(TMD5, reads_no_byte_around_a_piece)
{
    const std::string message(130, 'm');
    for (unsigned before = 0; before <= 64; ++before)
        for (unsigned length = 0; length <= 65; ++length) {
            const std::vector<char> piece(length, 'm'); // the address sanitizer sees its end
            TMD5 md5(message.data(), before);
            md5.Update(piece.data(), length);
            ASSERT_EQ(qt_digest(message.substr(0, before + length)), finish(md5)) << before << ' ' << length;
        }
}

TEST(Transform, compresses_a_block_at_any_address_as_the_model_does)
{
    for (unsigned seed = 0; seed < 10000; ++seed) {
        std::mt19937 random(seed);
        const Words start = random_words(random);
        const std::string block = random_bytes(random, 64);
        alignas(16) char memory[64 + 16];
        const unsigned offset = seed % 16;
        block.copy(memory + offset, 64);
        const void* const address = memory + offset;
        Words words = start;
        TMD5 md5;
        md5.Transform(words.data(), static_cast<const unsigned*>(address));
        ASSERT_EQ(model_transform(start, block), words) << "seed " << seed;
        ASSERT_EQ(block, std::string(memory + offset, 64)) << "seed " << seed;
        ASSERT_EQ(qt_digest(""), finish(md5)) << "seed " << seed;
    }
}

TEST(Transform, takes_the_standards_padding_of_no_message_to_its_digest)
{
    unsigned words[] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    unsigned char block[64] = {0x80};
    unsigned aligned[16];
    std::memcpy(aligned, block, sizeof aligned);
    TMD5().Transform(words, aligned);
    // The digest of RFC 1321, appendix A.5, cut into little-endian words by hand.
    EXPECT_EQ(0xD98C1DD4U, words[0]);
    EXPECT_EQ(0x04B2008FU, words[1]);
    EXPECT_EQ(0x980980E9U, words[2]);
    EXPECT_EQ(0x7E42F8ECU, words[3]);
}

TEST(ConvertToHex, writes_every_byte_as_printf_does_and_ends_the_text)
{
    std::string bytes, expected;
    for (int byte = 0; byte < 256; ++byte) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(byte));
        bytes += static_cast<char>(byte);
        expected += digits;
    }
    for (int n = 1; n <= 256; ++n) {
        const auto length = static_cast<std::size_t>(2 * n);
        std::string out(520, FENCE);
        EXPECT_EQ(out.data() + length, ConvertToHex(bytes.data(), out.data(), n)) << n;
        EXPECT_EQ(expected.substr(0, length) + '\0' + std::string(519 - length, FENCE), out) << n;
    }
}

TEST(ConvertToHex, writes_nothing_for_no_bytes_or_fewer)
{
    for (const int n : {0, -1, -2, INT_MIN}) {
        char out[] = {FENCE, FENCE, FENCE, FENCE};
        EXPECT_EQ(out + 1, ConvertToHex("data", out + 1, n)) << n;
        EXPECT_EQ(out + 1, ConvertToHex(nullptr, out + 1, n)) << n;
        EXPECT_EQ(std::string(4, FENCE), std::string(out, 4)) << n;
    }
}

TEST(TSignature, is_zero_by_default)
{
    alignas(TSignature) char memory[sizeof(TSignature)];
    std::memset(memory, FENCE, sizeof memory);
    EXPECT_EQ(std::string(16, '\0'), bytes_of(*new (memory) TSignature));
}

TEST(TSignature, equals_only_one_with_the_same_sixteen_bytes)
{
    const std::string bytes("\0same bytes\0 \xFF\x80!", 16);
    const TSignature signature = signature_of(bytes);
    EXPECT_TRUE(signature == signature_of(bytes));
    for (std::size_t i = 0; i < 16; ++i)
        for (int bit = 0; bit < 8; ++bit) {
            std::string other = bytes;
            other[i] = static_cast<char>(other[i] ^ 1 << bit);
            EXPECT_FALSE(signature == signature_of(other)) << i << ' ' << bit;
        }
}

TEST(WriteToBuf, writes_32_upper_case_digits_and_a_terminator)
{
    TSignature signature;
    TMD5().Final(signature);
    std::string buf(40, FENCE);
    EXPECT_EQ(buf.data() + 32, signature.WriteToBuf(buf.data()));
    EXPECT_EQ("D41D8CD98F00B204E9800998ECF8427E" + std::string(1, '\0') + std::string(7, FENCE), buf);
}

TEST(WriteBase64ToBuf, writes_24_characters_and_a_terminator)
{
    const struct {
        std::string bytes;
        const char* expected;
    } examples[] = {{std::string(16, '\0'), "AAAAAAAAAAAAAAAAAAAAAA=="},
                    // RFC 4648, section 10: "foobar", "foobar" and "foob"
                    {"foobarfoobarfoob", "Zm9vYmFyZm9vYmFyZm9vYg=="},
                    {std::string(16, '\xFF'), "/////////////////////w=="}};
    for (const auto& example : examples) {
        std::string buf(32, FENCE);
        EXPECT_EQ(buf.data() + 24, signature_of(example.bytes).WriteBase64ToBuf(buf.data()));
        EXPECT_EQ(example.expected + std::string(1, '\0') + std::string(7, FENCE), buf);
    }
}

TEST(WriteBase64ToBuf, writes_qts_text_for_random_digests)
{
    std::mt19937 random(3);
    for (int i = 0; i < 10000; ++i) {
        const std::string bytes = random_bytes(random, 16);
        char buf[25];
        signature_of(bytes).WriteBase64ToBuf(buf);
        ASSERT_EQ(QByteArray::fromStdString(bytes).toBase64().toStdString(), buf) << i;
    }
}

namespace {

/// Bytes that no test reads, to see which ones a refusal leaves.
const std::string OLD_BYTES("\x51\x52\x53\x54\x55\x56\x57\x58\x59\x5A\x5B\x5C\x5D\x5E\x5F\x60", 16);

/// The bytes and how far the text was read, -1 for null.
struct Reading {
    std::string bytes;
    std::ptrdiff_t length;
};

bool operator==(const Reading& a, const Reading& b)
{
    return a.bytes == b.bytes && a.length == b.length;
}

std::ostream& operator<<(std::ostream& out, const Reading& reading)
{
    return out << hex(reading.bytes) << ", " << reading.length;
}

Reading read(const char* text)
{
    TSignature signature = signature_of(OLD_BYTES);
    const char* const end = signature.ReadFromBuf(text);
    return {bytes_of(signature), end == nullptr ? -1 : end - text};
}

/// Pair by pair with sscanf; a lone character before the terminator is no pair.
Reading model_read(const char* text)
{
    Reading reading{OLD_BYTES, -1};
    for (std::size_t i = 0; i < 16; ++i) {
        unsigned value;
        if (std::strlen(text + 2 * i) < 2 || std::sscanf(text + 2 * i, "%2X", &value) != 1)
            return reading;
        reading.bytes[i] = static_cast<char>(value);
    }
    reading.length = 32;
    return reading;
}

/// A text that ends with a page behind which nothing can be read.
const char* at_end_of(const Guarded_page& page, const char* text, std::size_t length)
{
    std::memcpy(page.last(length), text, length);
    return reinterpret_cast<const char*>(page.last(length));
}

} // namespace

TEST(ReadFromBuf, reads_what_was_written)
{
    std::mt19937 random(4);
    for (int i = 0; i < 10000; ++i) {
        const TSignature written = signature_of(random_bytes(random, 16));
        char buf[33];
        written.WriteToBuf(buf);
        TSignature signature;
        ASSERT_EQ(buf + 32, signature.ReadFromBuf(buf)) << i;
        ASSERT_TRUE(written == signature) << i;
    }
}

TEST(ReadFromBuf, reads_every_pair_of_digits_in_every_case)
{
    const std::string digits = "0123456789abcdefABCDEF";
    for (const char high : digits)
        for (const char low : digits) {
            std::string text;
            for (int i = 0; i < 16; ++i)
                text += {high, low};
            const int value = std::stoi(text.substr(0, 2), nullptr, 16);
            EXPECT_EQ((Reading{std::string(16, static_cast<char>(value)), 32}), read(text.c_str())) << text;
        }
}

TEST(ReadFromBuf, stops_behind_the_digits_whatever_follows)
{
    const std::string digits = "000102030405060708090a0b0c0d0e0F";
    const std::string bytes("\0\1\2\3\4\5\6\7\x8\x9\xA\xB\xC\xD\xE\xF", 16);
    for (const char* tail : {"", "0", "00", " next", "x"})
        EXPECT_EQ((Reading{bytes, 32}), read((digits + tail).c_str())) << tail;
}

TEST(ReadFromBuf, refuses_null_and_changes_nothing)
{
    TSignature signature = signature_of(OLD_BYTES);
    EXPECT_EQ(nullptr, signature.ReadFromBuf(nullptr));
    EXPECT_EQ(OLD_BYTES, bytes_of(signature));
}

TEST(ReadFromBuf, refuses_every_shorter_text_and_keeps_the_bytes_read_so_far)
{
    const std::string digits(32, 'A');
    for (std::size_t length = 0; length < 32; ++length) {
        const std::string expected = std::string(length / 2, '\xAA') + OLD_BYTES.substr(length / 2);
        EXPECT_EQ((Reading{expected, -1}), read(digits.substr(0, length).c_str())) << length;
    }
}

TEST(ReadFromBuf, refuses_what_is_no_digit_wherever_it_stands)
{
    for (std::size_t at = 0; at < 32; at += 2)
        for (const char wrong : {'G', 'g', '@', '`', '/', ':', 'x', '%', '\x80', '\xFF', '\x10'}) {
            std::string text(32, 'b');
            text[at] = wrong;
            const std::string expected = std::string(at / 2, '\xBB') + OLD_BYTES.substr(at / 2);
            EXPECT_EQ((Reading{expected, -1}), read(text.c_str())) << at << ' ' << wrong;
        }
}

TEST(ReadFromBuf, takes_an_odd_pair_as_sscanf_does)
{
    const struct {
        const char*
            pair; // by hand: ISO C 7.21.6.2 and 7.22.1.4, a field of two characters behind white space
        unsigned char value;
    } examples[] = {{"7 ", 0x07}, {"7g", 0x07}, {"+C", 0x0C}, {"-1", 0xFF}, {"-F", 0xF1}, {" 5", 0x50}};
    for (const auto& example : examples) {
        // What follows is a zero: " 5" skips the space and reads "50".
        const std::string text = example.pair + std::string(30, '0');
        std::string expected(16, '\0');
        expected[0] = static_cast<char>(example.value);
        EXPECT_EQ((Reading{expected, 32}), read(text.c_str())) << example.pair;
    }
}

TEST(ReadFromBuf, reads_random_texts_as_sscanf_does)
{
    static constexpr char ODD[] = "0123456789abcdefABCDEFxXgG+- \t\n\v\f\r@`/:\x80\xFF";
    int odd_accepted = 0;
    for (unsigned seed = 0; seed < 20000; ++seed) {
        std::mt19937 random(seed);
        const unsigned oddity = seed % 4 == 0 ? 1 : 12; // one in so many characters may be odd
        std::string text;
        bool plain = true;
        for (auto length = random() % 8 == 0 ? random() % 40 : 32 + random() % 4; length > 0; --length) {
            const bool odd = random() % oddity == 0;
            text += ODD[random() % (odd ? sizeof ODD - 1 : 22)];
            plain = plain && !odd;
        }
        const Reading expected = model_read(text.c_str());
        odd_accepted += expected.length == 32 && !plain;
        ASSERT_EQ(expected, read(text.c_str())) << "seed " << seed << ": " << text;
    }
    EXPECT_LT(200, odd_accepted) << "the texts no longer test what is odd and accepted";
}

TEST(ReadFromBuf, reads_nothing_behind_the_terminator)
{
    const Guarded_page page;
    for (const std::string piece : {"A", " ", "-", "+", "0x", "\t9", "9\t"}) {
        std::string text;
        while (text.size() < 33)
            text += piece;
        for (std::size_t length = 0; length <= 31; ++length) {
            text[length] = 0;
            EXPECT_EQ(-1, read(at_end_of(page, text.c_str(), length + 1)).length) << piece << ' ' << length;
            text[length] = piece[length % piece.size()];
        }
    }
}

TEST(ReadFromBuf, reads_nothing_behind_32_digits)
{
    const Guarded_page page;
    const std::string digits(32, 'c');
    EXPECT_EQ((Reading{std::string(16, '\xCC'), 32}), read(at_end_of(page, digits.data(), 32)));
}
