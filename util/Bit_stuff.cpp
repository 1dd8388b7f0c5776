#include "util/Bit_stuff.h"

// Generated, not typed: a wrong digit among 256 entries would pass every review. Each line doubles the bits
// twice: two bits more in front add 0, 1, 1 or 2 to the count.
#define COUNT_2_BITS(n) (n), (n) + 1, (n) + 1, (n) + 2
#define COUNT_4_BITS(n) COUNT_2_BITS(n), COUNT_2_BITS((n) + 1), COUNT_2_BITS((n) + 1), COUNT_2_BITS((n) + 2)
#define COUNT_6_BITS(n) COUNT_4_BITS(n), COUNT_4_BITS((n) + 1), COUNT_4_BITS((n) + 1), COUNT_4_BITS((n) + 2)

constexpr unsigned char Bit_stuff::counting_array[256] = {COUNT_6_BITS(0), COUNT_6_BITS(1), COUNT_6_BITS(1),
                                                          COUNT_6_BITS(2)};

static_assert(Bit_stuff::counting_array[0x00] == 0 && Bit_stuff::counting_array[0x07] == 3 &&
              Bit_stuff::counting_array[0x80] == 1 && Bit_stuff::counting_array[0xFF] == 8);
