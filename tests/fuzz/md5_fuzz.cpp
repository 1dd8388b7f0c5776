// The first line of the input: how often the message is repeated, then the lengths of the pieces in which it
// is passed. The rest is the message, and a text to read a digest from.

#include "util/CP_MD5.h"

#include "tests/fuzz/fuzz.h"
#include "tests/support/Base64_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

using Digest = std::array<unsigned char, 16>;

std::uint32_t rotated(std::uint32_t word, unsigned by)
{
    return word << by | word >> (32 - by);
}

/// RFC 1321 as it is written, section 3, over the whole message at once.
Digest md5(Bytes message)
{
    const std::uint64_t bits = std::uint64_t{message.size()} * 8;
    message.push_back(0x80);
    while (message.size() % 64 != 56)
        message.push_back(0);
    for (unsigned i = 0; i < 64; i += 8)
        message.push_back(static_cast<unsigned char>(bits >> i));

    std::array<std::uint32_t, 4> state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    const unsigned shifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    for (std::size_t block = 0; block < message.size(); block += 64) {
        std::uint32_t x[16] = {};
        for (std::size_t i = 0; i < 64; ++i)
            x[i / 4] |= std::uint32_t{message[block + i]} << (i % 4 * 8);
        auto [a, b, c, d] = state;
        for (unsigned i = 0; i < 64; ++i) {
            const std::uint32_t mixed[] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d, c ^ (b | ~d)};
            const unsigned places[] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
            const auto sine = static_cast<std::uint32_t>(std::fabs(std::sin(i + 1.0)) * 4294967296.0);
            const std::uint32_t sum = a + mixed[i / 16] + x[places[i / 16] % 16] + sine;
            a = d;
            d = c;
            c = b;
            b += rotated(sum, shifts[i / 16][i % 4]);
        }
        state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
    }
    Digest digest{};
    for (unsigned i = 0; i < 16; ++i)
        digest[i] = static_cast<unsigned char>(state[i / 4] >> (i % 4 * 8));
    return digest;
}

std::string hex(const Digest& digest)
{
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789ABCDEF"[byte / 16];
        text += "0123456789ABCDEF"[byte % 16];
    }
    return text;
}

std::string hex(const CP_MD5::TSignature& signature)
{
    std::vector<char> text(33, '#');
    const char* const end = signature.WriteToBuf(text.data());
    expect_equal("where the digits end", 32L, static_cast<long>(end - text.data()));
    expect_equal("the character behind the digits", 0, int{text.back()});
    return {text.data(), 32};
}

/// Passes each piece in memory of its own, for the address checks.
std::string hex_of_pieces(const Bytes& message, const std::string& lengths)
{
    CP_MD5::TMD5 context;
    std::size_t from = 0;
    for (std::size_t i = 0; from < message.size(); ++i) {
        const std::size_t left = message.size() - from;
        const std::size_t wanted = i < lengths.size() ? static_cast<unsigned char>(lengths[i] - '0') : left;
        const std::size_t length = std::min(left, wanted);
        const auto start = message.begin() + static_cast<std::ptrdiff_t>(from);
        const std::vector<char> piece(start, start + static_cast<std::ptrdiff_t>(length));
        context.Update(piece.data(), static_cast<unsigned>(length));
        from += length;
    }
    CP_MD5::TSignature signature;
    context.Final(signature);
    const Bytes image(reinterpret_cast<unsigned char*>(&context),
                      reinterpret_cast<unsigned char*>(&context) + sizeof context);
    expect_equal("the context behind the digest", Bytes(image.size()), image);
    return hex(signature);
}

/// Reads with nothing but what the header refers to, two characters after the other.
void compare_reading(const std::string& text)
{
    // As large as the text, so that the address checks see a character too much.
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    CP_MD5::TSignature signature;
    const char* const end = signature.ReadFromBuf(exact.data());

    Digest bytes{};
    std::size_t pairs = 0;
    for (unsigned value = 0; pairs < bytes.size() && 2 * pairs + 1 < text.size(); ++pairs) {
        if (std::sscanf(text.c_str() + 2 * pairs, "%2X", &value) != 1)
            break;
        bytes[pairs] = static_cast<unsigned char>(value);
    }
    expect_equal("whether a digest is read", pairs == bytes.size(), end != nullptr);
    expect_equal("the digest read", hex(bytes), hex(signature));
    if (end != nullptr)
        expect_equal("where reading ends", 32L, static_cast<long>(end - exact.data()));
}

void compare_base64(const Digest& digest)
{
    CP_MD5::TSignature signature;
    signature.ReadFromBuf(hex(digest).c_str());
    std::vector<char> text(25, '#');
    const char* const end = signature.WriteBase64ToBuf(text.data());
    expect_equal("where Base64 ends", 24L, static_cast<long>(end - text.data()));
    expect_equal("Base64", Base64_model::encoded(std::string(digest.begin(), digest.end())),
                 std::string(text.data()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const int times = input.below(8);
    const std::string lengths = input.line();
    const std::string rest = input.rest();
    Bytes message;
    for (int i = 0; i < times; ++i)
        message.insert(message.end(), rest.begin(), rest.end());

    const Digest digest = md5(message);
    const std::string model = hex(digest);
    expect_equal("the digest", model, hex_of_pieces(message, lengths));
    expect_equal("the digest of one piece", model, hex_of_pieces(message, ""));
    compare_reading(model);
    compare_base64(digest);
    compare_reading(rest.substr(0, rest.find('\0')));
    return 0;
}
