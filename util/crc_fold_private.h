#pragma once

#include "util/crc_private.h"

// The one folding routine, for the file of each kind of register. Before it includes this, that file defines
//   QUARVEL_FOLDS       the attribute of a function that uses the register's instructions,
//   QUARVEL_FOLDS_STEP  the same for a part of one, which only works as fast when it is inlined.
// Its type Lane, a register of one or more blocks of 16 bytes, gives the operations used below.
//
// V. Gopal et al., Fast CRC computation for generic polynomials using PCLMULQDQ instruction, Intel 2009: a
// block is moved along the message by multiplying its two halves by powers of x, modulo the polynomial, and
// added to the block that lies there. The message comes down to one lane that leaves the same remainder.

namespace Crc {

/// What the halves of a block are multiplied by, in the order in which a register holds them.
struct Factors {
    std::uint64_t low, high;
};

/// What moves a block by `bytes`. Its first half lies 64 bits further from there than its second; the product
/// of two reflected values is one power short of its place.
template <typename Sum>
constexpr Factors factors(std::size_t bytes)
{
    const std::size_t bits = 8 * bytes;
    return Sum::REFLECTED ? Factors{Sum::reversed(Sum::x_to_the(bits + 63), 64),
                                    Sum::reversed(Sum::x_to_the(bits - 1), 64)}
                          : Factors{Sum::x_to_the(bits), Sum::x_to_the(bits + 64)};
}

template <typename Lane>
QUARVEL_FOLDS_STEP typename Lane::Register moved(typename Lane::Register blocks, Factors by)
{
    return Lane::sum_of_products(blocks, Lane::every_block(by.low, by.high));
}

/// Between the order of memory and that of the multiplication, which wants the powers of a block to rise or
/// to fall all the way; those of a reflected check do so in memory.
template <typename Lane, typename Sum>
QUARVEL_FOLDS_STEP typename Lane::Register ordered(typename Lane::Register blocks)
{
    return Sum::REFLECTED ? blocks : Lane::with_bytes_reversed(blocks);
}

template <typename Lane, typename Sum>
QUARVEL_FOLDS_STEP typename Lane::Register load(const unsigned char* data)
{
    return ordered<Lane, Sum>(Lane::load(data));
}

/// Four lanes at a time: a product takes as long as the start of several others.
///
/// @param[out] folded  one lane that leaves from 0 what the message leaves from `crc`
/// @param length  whole lanes, four or more
template <typename Lane, typename Sum>
QUARVEL_FOLDS void fold(unsigned char* folded, std::uint32_t crc, const unsigned char* data,
                        std::size_t length)
{
    constexpr std::size_t SIZE = sizeof(typename Lane::Register);
    constexpr Factors BY_ONE = factors<Sum>(SIZE);
    constexpr Factors BY_TWO = factors<Sum>(2 * SIZE);
    constexpr Factors BY_THREE = factors<Sum>(3 * SIZE);
    constexpr Factors BY_FOUR = factors<Sum>(4 * SIZE);

    auto first = ordered<Lane, Sum>(Lane::load(data) ^ Lane::first_word(Sum::over_next_bytes(crc)));
    auto second = load<Lane, Sum>(data + SIZE);
    auto third = load<Lane, Sum>(data + 2 * SIZE);
    auto fourth = load<Lane, Sum>(data + 3 * SIZE);
    std::size_t at = 4 * SIZE;
    for (; at + 4 * SIZE <= length; at += 4 * SIZE) {
        first = moved<Lane>(first, BY_FOUR) ^ load<Lane, Sum>(data + at);
        second = moved<Lane>(second, BY_FOUR) ^ load<Lane, Sum>(data + at + SIZE);
        third = moved<Lane>(third, BY_FOUR) ^ load<Lane, Sum>(data + at + 2 * SIZE);
        fourth = moved<Lane>(fourth, BY_FOUR) ^ load<Lane, Sum>(data + at + 3 * SIZE);
    }
    auto sum =
        moved<Lane>(first, BY_THREE) ^ moved<Lane>(second, BY_TWO) ^ moved<Lane>(third, BY_ONE) ^ fourth;
    for (; at < length; at += SIZE)
        sum = moved<Lane>(sum, BY_ONE) ^ load<Lane, Sum>(data + at);
    Lane::store(folded, ordered<Lane, Sum>(sum));
}

} // namespace Crc
