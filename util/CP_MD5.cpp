#include "util/CP_MD5.h"

#include "util/base64.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <endian.h>

namespace {

constexpr unsigned BLOCK = 64;
constexpr unsigned COUNT_AT = 56; // the count of bits ends the last block

static_assert(sizeof(unsigned) == 4, "a word of the algorithm");

// RFC 1321, section 3.4: the whole part of 2^32 |sin(i)|, i from 1 to 64 in radians.
constexpr unsigned SINES[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501, //
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821, //
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8, //
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A, //
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70, //
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665, //
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1, //
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391};

unsigned load_word(const unsigned char* bytes)
{
    unsigned word;
    std::memcpy(&word, bytes, sizeof word);
    return le32toh(word);
}

void store_word(unsigned char* bytes, unsigned word)
{
    word = htole32(word);
    std::memcpy(bytes, &word, sizeof word);
}

/// One of the four rounds: how step i finds its word of the block, and how far it rotates.
struct Round {
    unsigned first_word, word_step;
    unsigned shifts[4];
};
constexpr Round ROUNDS[] = {
    {0, 1, {7, 12, 17, 22}}, {1, 5, {5, 9, 14, 20}}, {5, 3, {4, 11, 16, 23}}, {0, 7, {6, 10, 15, 21}}};

/// Adds the round's function of b, c and d to `sum`.
///
/// Every step waits for b, which the step before has just made. So what does without b comes first, and b
/// enters as late as it can. In round 2 the two terms have no bit in common, so that their sum is RFC 1321's
/// "or", of which one half need not wait.
template <unsigned ROUND>
unsigned add_function(unsigned sum, unsigned b, unsigned c, unsigned d)
{
    if constexpr (ROUND == 0)
        return sum + (d ^ (b & (c ^ d)));
    else if constexpr (ROUND == 1)
        return sum + (~d & c) + (d & b);
    else if constexpr (ROUND == 2)
        return sum + (b ^ (c ^ d));
    else
        return sum + (c ^ (b | ~d));
}

template <unsigned STEP>
void step(unsigned& a, unsigned b, unsigned c, unsigned d, const unsigned char* block)
{
    constexpr Round ROUND = ROUNDS[STEP / 16];
    constexpr std::size_t WORD = (ROUND.first_word + STEP * ROUND.word_step) % 16;
    constexpr unsigned SHIFT = ROUND.shifts[STEP % 4];
    const unsigned sum = add_function<STEP / 16>(a + SINES[STEP] + load_word(block + 4 * WORD), b, c, d);
    a = b + (sum << SHIFT | sum >> (32 - SHIFT));
}

template <unsigned STEP>
void four_steps(unsigned& a, unsigned& b, unsigned& c, unsigned& d, const unsigned char* block)
{
    step<STEP>(a, b, c, d, block);
    step<STEP + 1>(d, a, b, c, block);
    step<STEP + 2>(c, d, a, b, block);
    step<STEP + 3>(b, c, d, a, block);
}

template <unsigned ROUND>
void run_round(unsigned& a, unsigned& b, unsigned& c, unsigned& d, const unsigned char* block)
{
    four_steps<ROUND * 16>(a, b, c, d, block);
    four_steps<ROUND * 16 + 4>(a, b, c, d, block);
    four_steps<ROUND * 16 + 8>(a, b, c, d, block);
    four_steps<ROUND * 16 + 12>(a, b, c, d, block);
}

void compress(unsigned* state, const unsigned char* data, unsigned blocks)
{
    unsigned a = state[0];
    unsigned b = state[1];
    unsigned c = state[2];
    unsigned d = state[3];
    for (; blocks > 0; --blocks, data += BLOCK) {
        const unsigned before[] = {a, b, c, d};
        run_round<0>(a, b, c, d, data);
        run_round<1>(a, b, c, d, data);
        run_round<2>(a, b, c, d, data);
        run_round<3>(a, b, c, d, data);
        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

/// The value of a hexadecimal digit; 16 for another character.
unsigned digit_value(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10) : 16;
}

/// Two digits are read here, since sscanf reads to the end of the text before it begins. The rest is left to
/// it: C libraries differ in what they make of "0x".
///
/// @param pair  two characters, none of them the terminator, of a text
bool scan_byte(const char* pair, unsigned char& byte)
{
    unsigned value = 0;
    const unsigned high = digit_value(pair[0]);
    const unsigned low = digit_value(pair[1]);
    if (high < 16 && low < 16)
        value = high * 16 + low;
    else if (std::sscanf(pair, "%2X", &value) != 1) // NOLINT(cert-err34-c): two digits cannot overflow
        return false;
    byte = static_cast<unsigned char>(value);
    return true;
}

} // namespace

namespace CP_MD5 {

char* ConvertToHex(const char* data, char* out, int n)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    if (n < 1)
        return out;
    for (const char* const end = data + n; data != end; ++data) {
        const auto byte = static_cast<unsigned char>(*data);
        *out++ = DIGITS[byte >> 4];
        *out++ = DIGITS[byte & 15];
    }
    *out = 0;
    return out;
}

TSignature::TSignature() : bytes()
{
}

bool TSignature::operator==(const TSignature& other) const
{
    return std::memcmp(bytes, other.bytes, sizeof bytes) == 0;
}

char* TSignature::WriteToBuf(char* buf) const
{
    return ConvertToHex(reinterpret_cast<const char*>(bytes), buf, sizeof bytes);
}

const char* TSignature::ReadFromBuf(const char* buf)
{
    if (buf == nullptr)
        return nullptr;
    for (unsigned char& byte : bytes) {
        if (buf[0] == 0 || buf[1] == 0 || !scan_byte(buf, byte))
            return nullptr;
        buf += 2;
    }
    return buf;
}

char* TSignature::WriteBase64ToBuf(char* buf) const
{
    int room = 25;
    base64_encode(reinterpret_cast<unsigned char*>(buf), &room, bytes, sizeof bytes);
    return buf + 24;
}

TMD5::TMD5()
{
    Init();
}

TMD5::TMD5(const char* data, unsigned len)
{
    Init();
    Update(data, len);
}

void TMD5::Init()
{
    static_assert(offsetof(TMD5, state) == 0 && offsetof(TMD5, count) == 16 && offsetof(TMD5, buffer) == 24 &&
                  sizeof(TMD5) == 88 && sizeof(TSignature) == 16);
    state[0] = 0x67452301;
    state[1] = 0xEFCDAB89;
    state[2] = 0x98BADCFE;
    state[3] = 0x10325476;
    count[0] = 0;
    count[1] = 0;
}

unsigned TMD5::pending() const
{
    return count[0] / 8 % BLOCK;
}

void TMD5::Update(const char* data, unsigned len)
{
    if (len == 0)
        return;
    const unsigned used = pending();
    const unsigned bits = len << 3;
    count[0] += bits;
    count[1] += (len >> 29) + (count[0] < bits);

    const auto* next = reinterpret_cast<const unsigned char*>(data);
    if (used != 0) {
        const unsigned room = BLOCK - used;
        if (len < room) {
            std::memcpy(buffer + used, next, len);
            return;
        }
        std::memcpy(buffer + used, next, room);
        compress(state, buffer, 1);
        next += room;
        len -= room;
    }
    const unsigned rest = len % BLOCK;
    compress(state, next, len / BLOCK);
    std::memcpy(buffer, next + (len - rest), rest);
}

void TMD5::Final(TSignature& sig)
{
    unsigned used = pending();
    buffer[used++] = 0x80;
    if (used > COUNT_AT) {
        std::memset(buffer + used, 0, BLOCK - used);
        compress(state, buffer, 1);
        used = 0;
    }
    std::memset(buffer + used, 0, COUNT_AT - used);
    store_word(buffer + COUNT_AT, count[0]);
    store_word(buffer + COUNT_AT + 4, count[1]);
    compress(state, buffer, 1);
    for (std::size_t i = 0; i < 4; ++i)
        store_word(sig.bytes + 4 * i, state[i]);
    explicit_bzero(this, sizeof *this); // one that the compiler does not leave out
}

void TMD5::Transform(unsigned* words, const unsigned* block)
{
    compress(words, reinterpret_cast<const unsigned char*>(block), 1);
}

} // namespace CP_MD5
