#include "util/base64.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <endian.h>

namespace {

constexpr int TOO_SMALL = -16;
constexpr int INVALID_CHARACTER = -18;

// Its characters are called digits below.
constexpr unsigned char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encoding looks up 12 bits at a time, two characters an entry, as A. Klomp's base64 library does where it
// has no vectors: half the look-ups and stores of one character at a time, for 8 KiB of table.
using Pair = std::array<unsigned char, 2>;

constexpr std::array<Pair, 4096> make_pairs()
{
    std::array<Pair, 4096> pairs{};
    for (std::size_t bits = 0; bits < pairs.size(); ++bits) {
        pairs[bits][0] = ALPHABET[bits >> 6];
        pairs[bits][1] = ALPHABET[bits & 63];
    }
    return pairs;
}
constexpr auto PAIRS = make_pairs();

/// Writes the group that is in the upper 24 bits.
void put_text(unsigned char* dst, std::uint32_t group)
{
    std::memcpy(dst, PAIRS[group >> 20].data(), 2);
    std::memcpy(dst + 2, PAIRS[group >> 8 & 0xFFF].data(), 2);
}

/// Four bytes, the first one highest, written so that the compiler finds the one load in it.
std::uint32_t word_at(const unsigned char* src)
{
    return std::uint32_t{src[0]} << 24 | std::uint32_t{src[1]} << 16 | std::uint32_t{src[2]} << 8 | src[3];
}

// Decoding puts a group together from four words, as N. Galbreath's modp_b64 does: each place in the group
// has a table of its own, where a character's bits stand as they will among the three bytes, the first byte
// lowest. Above them stands what is no digit.
constexpr std::uint32_t PADDING = 1U << 24; // two of them add up
constexpr std::uint32_t NO_DIGIT = 1U << 26;

using Words = std::array<std::uint32_t, 256>;

constexpr std::array<Words, 4> make_words()
{
    std::array<Words, 4> words{};
    for (Words& place : words) {
        for (std::uint32_t& word : place)
            word = NO_DIGIT;
        place['='] = PADDING;
    }
    for (std::uint32_t value = 0; value < 64; ++value) {
        const std::size_t digit = ALPHABET[value];
        words[0][digit] = value << 2;
        words[1][digit] = value >> 4 | (value & 15) << 12;
        words[2][digit] = (value >> 2) << 8 | (value & 3) << 22;
        words[3][digit] = value << 16;
    }
    return words;
}
constexpr auto WORDS = make_words();

std::uint32_t group_at(const unsigned char* src)
{
    return WORDS[0][src[0]] + WORDS[1][src[1]] + WORDS[2][src[2]] + WORDS[3][src[3]];
}

bool all_digits(std::uint32_t group)
{
    return group < PADDING;
}

#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr bool HAS_VECTORS = true;
#else
constexpr bool HAS_VECTORS = false;
#endif
constexpr int BLOCK = 64;

/// Nothing but arithmetic, so that the compiler makes vector instructions of it. Where the processor has
/// none, the tables are quicker.
bool block_of_digits(const unsigned char* src)
{
    unsigned char others = 0;
    for (int i = 0; i < BLOCK; ++i) {
        const auto from_a = static_cast<unsigned char>((src[i] | 0x20) - 'a'); // either case
        const auto from_slash = static_cast<unsigned char>(src[i] - '/');      // "0" to "9" follow it
        others |= from_a < 26 || from_slash < 11 || src[i] == '+' ? 0 : 0xFF;
    }
    return others == 0;
}

/// How many characters at the start are digits, or a few less.
int leading_digits(const unsigned char* src, int slen)
{
    int i = 0;
    while (HAS_VECTORS && slen - i >= BLOCK && block_of_digits(src + i))
        i += BLOCK;
    while (slen - i >= 4 && all_digits(group_at(src + i)))
        i += 4;
    return i;
}

/// The characters that are not skipped; -1 for an invalid text.
int count_significant(const unsigned char* src, int slen)
{
    int skipped = 0;
    int padding = 0;
    int i = leading_digits(src, slen);
    while (i < slen) {
        const unsigned char c = src[i++];
        if (all_digits(WORDS[0][c])) {
            if (padding != 0)
                return -1;
        } else if (c == '=') {
            if (++padding > 2)
                return -1;
        } else {
            const bool cr_lf = c == '\r' && i < slen && src[i] == '\n';
            if (c != '\n' && !cr_lf)
                return -1;
            i += cr_lf;
            skipped += 1 + cr_lf;
            if (padding == 0)
                i += leading_digits(src + i, slen - i);
        }
    }
    return slen - skipped;
}

bool ends_line(unsigned char c)
{
    return c == '\r' || c == '\n';
}

/// The next four characters of a valid text, which has them, that are not skipped.
std::uint32_t next_group(const unsigned char*& src)
{
    std::uint32_t group = group_at(src);
    if (group < NO_DIGIT) {
        src += 4;
        return group;
    }
    group = 0;
    for (std::size_t place = 0; place < 4; ++src)
        if (!ends_line(*src))
            group += WORDS[place++][*src];
    return group;
}

unsigned char* put_bytes(unsigned char* dst, std::uint32_t group)
{
    const std::uint32_t padding = group / PADDING;
    dst[0] = static_cast<unsigned char>(group);
    if (padding < 2)
        dst[1] = static_cast<unsigned char>(group >> 8);
    if (padding < 1)
        dst[2] = static_cast<unsigned char>(group >> 16);
    return dst + 3 - padding;
}

} // namespace

int base64_encode(unsigned char* dst, int* dlen, const unsigned char* src, int slen)
{
    if (slen <= 0)
        return 0;
    auto left = static_cast<unsigned>(slen);
    const unsigned length = (left + 2) / 3 * 4; // below 2^32 for any int
    if (*dlen < 0 || length >= static_cast<unsigned>(*dlen)) {
        *dlen = length < INT_MAX ? static_cast<int>(length + 1) : INT_MAX;
        return TOO_SMALL;
    }
    // A word has one byte more than its group. Four are loaded before the first store, which could change
    // the others for all that the compiler knows.
    for (; left > 12; left -= 12, src += 12, dst += 16) {
        const std::uint32_t words[] = {word_at(src), word_at(src + 3), word_at(src + 6), word_at(src + 9)};
        put_text(dst, words[0]);
        put_text(dst + 4, words[1]);
        put_text(dst + 8, words[2]);
        put_text(dst + 12, words[3]);
    }
    for (; left > 3; left -= 3, src += 3, dst += 4)
        put_text(dst, word_at(src));
    std::uint32_t last = std::uint32_t{src[0]} << 24;
    if (left > 1)
        last |= std::uint32_t{src[1]} << 16;
    if (left > 2)
        last |= std::uint32_t{src[2]} << 8;
    put_text(dst, last);
    if (left < 3)
        dst[3] = '=';
    if (left < 2)
        dst[2] = '=';
    dst[4] = 0;
    *dlen = static_cast<int>(length);
    return 0;
}

int base64_decode(unsigned char* dst, int* dlen, const unsigned char* src, int slen)
{
    const int significant = slen > 0 ? count_significant(src, slen) : 0;
    if (significant < 0)
        return INVALID_CHARACTER;
    if (significant == 0)
        return 0;
    const int room = significant - significant / 4; // six bits each, in bytes begun, without an overflow
    if (room > *dlen) {
        *dlen = room;
        return TOO_SMALL;
    }
    unsigned char* const start = dst;
    int groups = significant / 4;
    // Two groups in one store of eight bytes. The two behind the groups' six are written again: there are two
    // groups more, of which only the last has padding.
    while (groups > 3) {
        const std::uint32_t first = group_at(src);
        const std::uint32_t second = group_at(src + 4);
        if (all_digits(first | second)) {
            const std::uint64_t both = htole64(first | std::uint64_t{second} << 24);
            std::memcpy(dst, &both, sizeof both);
            src += 8;
            dst += 6;
            groups -= 2;
        } else {
            dst = put_bytes(dst, next_group(src));
            --groups;
        }
    }
    for (; groups > 0; --groups)
        dst = put_bytes(dst, next_group(src));
    const std::int64_t written = dst - start;
    *dlen = static_cast<int>(written);
    return 0;
}

int base64_self_test(int verbose)
{
    // Their encoding has every character of the alphabet.
    static constexpr unsigned char BYTES[64] = {
        0x00, 0x10, 0x83, 0x10, 0x51, 0x87, 0x20, 0x92, 0x8B, 0x30, 0xD3, 0x8F, 0x41, 0x14, 0x93, 0x51,
        0x55, 0x97, 0x61, 0x96, 0x9B, 0x71, 0xD7, 0x9F, 0x82, 0x18, 0xA3, 0x92, 0x59, 0xA7, 0xA2, 0x9A,
        0xAB, 0xB2, 0xDB, 0xAF, 0xC3, 0x1C, 0xB3, 0xD3, 0x5D, 0xB7, 0xE3, 0x9E, 0xBB, 0xF3, 0xDF, 0xBF,
        0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA, 0x99, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x00};
    static constexpr unsigned char TEXT[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
                                            "/+7dzLuqmYh3ZlVEMyIRAA==";
    constexpr int TEXT_LENGTH = sizeof TEXT - 1;
    static_assert(TEXT_LENGTH == 88);

    const auto failed = [verbose] {
        if (verbose != 0)
            std::puts("failed");
        return 1;
    };
    unsigned char buffer[128];
    int length = sizeof buffer;
    if (verbose != 0)
        std::printf("  Base64 encoding test: ");
    if (base64_encode(buffer, &length, BYTES, sizeof BYTES) != 0 ||
        std::memcmp(buffer, TEXT, TEXT_LENGTH) != 0)
        return failed();
    if (verbose != 0)
        std::printf("passed\n  Base64 decoding test: ");
    length = sizeof buffer;
    if (base64_decode(buffer, &length, TEXT, TEXT_LENGTH) != 0 ||
        std::memcmp(buffer, BYTES, sizeof BYTES) != 0)
        return failed();
    if (verbose != 0)
        std::puts("passed\n"); // the empty line is meant
    return 0;
}
