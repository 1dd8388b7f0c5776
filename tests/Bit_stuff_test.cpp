#include "util/Bit_stuff.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

static_assert(std::is_same_v<const unsigned char[256], decltype(Bit_stuff::counting_array)>);

} // namespace

TEST(Bit_stuff, counts_the_set_bits_of_every_byte)
{
    const unsigned char first[] = {0, 1, 1, 2, 1, 2, 2, 3};
    for (unsigned byte = 0; byte < 8; ++byte)
        EXPECT_EQ(first[byte], Bit_stuff::counting_array[byte]) << byte;
    for (unsigned byte = 0; byte < 256; ++byte)
        EXPECT_EQ(__builtin_popcount(byte), Bit_stuff::counting_array[byte]) << byte;
}

TEST(Bit_stuff, counts_a_word_byte_by_byte)
{
    const unsigned word = 0xDEADBEEF;
    int bits = 0;
    for (int shift = 0; shift < 32; shift += 8)
        bits += Bit_stuff::counting_array[word >> shift & 0xFF];
    EXPECT_EQ(24, bits); // 11011110 10101101 10111110 11101111
}
