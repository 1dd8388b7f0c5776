// The input: width from -1 on, bit, index, where the array starts in the memory that is packed into, how many
// values it has, whether a derived class answers for it, and the memory.

#include "util/Byte_packer.h"

#include "tests/fuzz/fuzz.h"
#include "tests/support/Byte_packer_model.h"

#include <algorithm>

namespace {

/// Answers with more bits than a byte has.
class Wide_packer : public Byte_packer {
public:
    using Byte_packer::Byte_packer;
    unsigned GetValue(int i) override { return wide(array[i]); }

    static unsigned wide(unsigned char value) { return value * 0x01234567U; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const int width = input.below(34) - 1;
    const int first_bit = input.below(8);
    const int index = input.below(40);
    const auto from = static_cast<std::size_t>(input.below(100));
    const auto count = static_cast<std::size_t>(input.below(40));
    const bool derived = input.below(2) == 1;
    const std::string rest = input.rest();

    // One value after the other, as each may overwrite those behind it.
    Bytes expected(rest.begin(), rest.end());
    const int values = static_cast<int>(count);
    const auto end = static_cast<std::size_t>(index + (first_bit + values * std::max(width, 0)) / 8 + 1);
    expected.resize(std::max(end, from + count));
    Bytes memory = expected;
    int at = index;
    int bit = first_bit;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char value = expected[from + i];
        const Byte_packer_model one({derived ? Wide_packer::wide(value) : value}, width, bit);
        one.write(expected, at);
        at += one.bytes() - (one.end_bit() != 0 ? 1 : 0);
        bit = one.end_bit();
    }

    Byte_packer plain(memory.data() + from, static_cast<unsigned>(count));
    Wide_packer wide(memory.data() + from, static_cast<unsigned>(count));
    Byte_packer& packer = derived ? wide : plain;
    const int answer = packer.BytePack(memory.data(), width, index, first_bit);
    expect_equal("the next index", at + (bit != 0 ? 1 : 0), answer);
    expect_equal("the memory", expected, memory);
    return 0;
}
