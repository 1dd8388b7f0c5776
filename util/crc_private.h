#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The ways of a checksum, apart from the choice between them, so that tests and benchmarks can take each.
namespace Crc {

/// One check, by its polynomial: the top term left out, the most significant bit first.
///
/// The register lies in the low WIDTH bits. A reflected check takes each byte from its least significant bit
/// and holds the register turned round, the highest power in bit 0.
template <typename Register, unsigned WIDTH, std::uint32_t POLYNOMIAL, bool REFLECTED_BITS>
struct Check {
    using Entry = Register;
    using Table = std::array<Entry, 256>;
    using Tables = std::array<Table, 16>;

    static constexpr bool REFLECTED = REFLECTED_BITS;
    static constexpr std::uint32_t MASK = (1U << WIDTH) - 1;
    static constexpr std::uint32_t TOP_BIT = 1U << (WIDTH - 1);

    /// `value` times x, modulo the polynomial; the most significant bit first in every check.
    static constexpr std::uint32_t times_x(std::uint32_t value)
    {
        return ((value << 1) & MASK) ^ ((value & TOP_BIT) != 0 ? POLYNOMIAL : 0);
    }

    static constexpr std::uint64_t x_to_the(std::size_t power)
    {
        std::uint32_t value = 1;
        for (std::size_t i = 0; i < power; ++i)
            value = times_x(value);
        return value;
    }

    /// The low `count` bits of `value`, turned round.
    static constexpr std::uint64_t reversed(std::uint64_t value, unsigned count)
    {
        std::uint64_t turned = 0;
        for (unsigned bit = 0; bit < count; ++bit)
            turned |= ((value >> bit) & 1) << (count - 1 - bit);
        return turned;
    }

    /// The register after one byte, started at 0, bit by bit.
    static constexpr Entry after_one_byte(std::uint32_t byte)
    {
        auto crc = static_cast<std::uint32_t>(REFLECTED ? reversed(byte, 8) : byte) << (WIDTH - 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = times_x(crc);
        return static_cast<Entry>(REFLECTED ? reversed(crc, WIDTH) : crc);
    }

    static constexpr std::uint32_t add_byte(const Table& table, std::uint32_t crc, std::uint32_t byte)
    {
        return REFLECTED ? table[(crc ^ byte) & 0xFF] ^ (crc >> 8)
                         : table[(crc >> (WIDTH - 8)) ^ byte] ^ ((crc << 8) & MASK);
    }

    /// The register as it lies over the next bytes of the message, the first of them in the low eight bits:
    /// a message that has these added to its start gives from 0 what the message gives from `crc`.
    static constexpr std::uint32_t over_next_bytes(std::uint32_t crc)
    {
        return REFLECTED ? crc : __builtin_bswap32(crc << (32 - WIDTH));
    }
};

/// Table 0 is the common one; table k holds the register after the byte and k zero bytes.
/// Generated, not typed: a wrong digit among 4096 entries would pass every review.
template <typename Sum>
constexpr typename Sum::Tables make_tables()
{
    typename Sum::Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte)
        tables[0][byte] = Sum::after_one_byte(byte);
    for (std::size_t zeros = 1; zeros < tables.size(); ++zeros)
        for (std::size_t byte = 0; byte < 256; ++byte)
            tables[zeros][byte] =
                static_cast<typename Sum::Entry>(Sum::add_byte(tables[0], tables[zeros - 1][byte], 0));
    return tables;
}

template <typename Sum>
inline constexpr typename Sum::Tables TABLES = make_tables<Sum>();

using Ccitt = Check<std::uint16_t, 16, 0x1021, false>;
using Arc = Check<std::uint16_t, 16, 0x8005, true>;
using Crc24q = Check<std::uint32_t, 24, 0x864CFB, false>;

static_assert(TABLES<Ccitt>[0][1] == 0x1021 && TABLES<Crc24q>[0][1] == 0x864CFB &&
                  TABLES<Arc>[0][128] == 0xA001,
              "a lone last bit leaves the polynomial itself");

/// Four bytes of a message, the first in the low eight bits; compilers make one load of it.
inline std::uint32_t word(const unsigned char* data)
{
    return static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
           static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

/// What four bytes leave in the register when `ZEROS` zero bytes follow them.
template <typename Sum, std::size_t ZEROS>
std::uint32_t slice(std::uint32_t bytes)
{
    return TABLES<Sum>[ZEROS + 3][bytes & 0xFF] ^ TABLES<Sum>[ZEROS + 2][(bytes >> 8) & 0xFF] ^
           TABLES<Sum>[ZEROS + 1][(bytes >> 16) & 0xFF] ^ TABLES<Sum>[ZEROS][bytes >> 24];
}

/// Slicing by four, for what is shorter than slicing by sixteen takes. Inlined, since a call takes as long as
/// a short piece.
template <typename Sum>
__attribute__((always_inline)) inline std::uint32_t by_four(std::uint32_t crc, const unsigned char* data,
                                                            std::size_t length)
{
    for (; length >= 4; data += 4, length -= 4)
        crc = slice<Sum, 0>(word(data) ^ Sum::over_next_bytes(crc));
    for (; length > 0; ++data, --length)
        crc = Sum::add_byte(TABLES<Sum>[0], crc, *data);
    return crc;
}

/// Slicing by sixteen: the register is a sum over the bytes of a block, so that their look-ups do not wait for
/// one another as those of the common byte loop do. Only the first word's wait for the block before; they are
/// added last.
///
/// @see   M. E. Kounavis, F. L. Berry, A systematic approach to building high performance software-based CRC
///        generators, IEEE ISCC 2005
template <typename Sum>
std::uint32_t by_sixteen(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    for (; length >= 16; data += 16, length -= 16)
        crc = slice<Sum, 0>(word(data + 12)) ^ slice<Sum, 4>(word(data + 8)) ^ slice<Sum, 8>(word(data + 4)) ^
              slice<Sum, 12>(word(data) ^ Sum::over_next_bytes(crc));
    return by_four<Sum>(crc, data, length);
}

/// The portable way.
///
/// @param crc  WIDTH bits at the most, here and in the other ways
template <typename Sum>
__attribute__((always_inline)) inline std::uint32_t by_tables(std::uint32_t crc, const unsigned char* data,
                                                              std::size_t length)
{
    return length < 16 ? by_four<Sum>(crc, data, length) : by_sixteen<Sum>(crc, data, length);
}

/// Whether this processor multiplies without carries, in registers of 16 and of 64 bytes. Both are false in
/// what runs before the library is initialised, which takes the slower way.
extern const bool CAN_FOLD;
extern const bool CAN_FOLD_WIDE;

constexpr std::size_t FOLD_FROM = 64; // four registers: the folding takes no less
constexpr std::size_t WIDE_FOLD_FROM = 256;

/// The way by carry-less multiplication; by_tables() where the processor has none and for what is shorter
/// than FOLD_FROM.
template <typename Sum>
std::uint32_t by_folding(std::uint32_t crc, const unsigned char* data, std::size_t length);

/// The same in wide registers; by_folding() where there are none and for what is shorter than WIDE_FOLD_FROM.
template <typename Sum>
std::uint32_t by_wide_folding(std::uint32_t crc, const unsigned char* data, std::size_t length);

} // namespace Crc
