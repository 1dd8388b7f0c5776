#include "util/Byte_packer.h"

#include <algorithm>
#include <cstdint>
#include <typeinfo>

namespace {

constexpr int MAX_WIDTH = 16;

constexpr std::uint32_t low_bits(int width)
{
    return (std::uint32_t{1} << std::min(width, MAX_WIDTH)) - 1;
}

/// A shift by more than the word has is not defined; here it leaves nothing.
constexpr unsigned char byte_at(std::uint32_t value, int shift)
{
    return static_cast<unsigned char>(shift < 32 ? value >> shift : 0);
}

std::uint64_t address(const unsigned char* p)
{
    return reinterpret_cast<std::uintptr_t>(p);
}

bool overlap(const unsigned char* a, std::uint64_t a_size, const unsigned char* b, std::uint64_t b_size)
{
    return address(a) < address(b) + b_size && address(b) < address(a) + a_size;
}

/// What BytePack() does one value at a time, two bytes at a time.
///
/// @param values  at least one, none of them where the bytes go
/// @param width   1 to 16
void pack_array(const unsigned char* values, unsigned count, unsigned char* out, int width, int bit)
{
    const std::uint32_t mask = low_bits(width);
    const unsigned char kept = bit == 0 ? 0 : *out;
    unsigned char* next = out;
    std::uint32_t pending = 0; // its low `used` bits are still to be written: 15 and 16 new ones at the most
    int used = bit;
    for (const unsigned char* const end = values + count; values != end; ++values) {
        pending = pending << width | (*values & mask);
        used += width;
        if (used >= 16) {
            used -= 16;
            next[0] = static_cast<unsigned char>(pending >> (used + 8));
            next[1] = static_cast<unsigned char>(pending >> used);
            next += 2;
        }
    }
    if (used >= 8) {
        used -= 8;
        *next++ = static_cast<unsigned char>(pending >> used);
    }
    if (used > 0)
        *next++ = static_cast<unsigned char>(pending << (8 - used));
    *out |= kept;
}

} // namespace

Simple_data_array::~Simple_data_array() = default;

Byte_packer::Byte_packer(unsigned char* data, unsigned new_count) : Simple_data_array(new_count), array(data)
{
}

Byte_packer::~Byte_packer() = default;

unsigned Byte_packer::GetValue(int i)
{
    return array[i];
}

int Byte_packer::BytePack(unsigned char* out, int width, int index, int bit)
{
    width = std::max(width, 0);
    if (count != 0 && width >= 1 && width <= MAX_WIDTH && bit >= 0 && bit <= 7 &&
        typeid(*this) == typeid(Byte_packer)) {
        // Nobody sees GetValue() being called here, and the values cannot change meanwhile.
        const std::uint64_t bits =
            std::uint64_t{count} * static_cast<unsigned>(width) + static_cast<unsigned>(bit);
        const std::uint64_t bytes = (bits + 7) / 8;
        if (!overlap(array, count, out + index, bytes)) {
            pack_array(array, count, out + index, width, bit);
            return index + static_cast<int>(bytes);
        }
    }

    const std::uint32_t mask = low_bits(width);
    for (unsigned i = 0; i < count; ++i) {
        const std::uint32_t value = GetValue(static_cast<int>(i)) & mask;
        const int end = bit + width;
        if (end < 8) {
            const auto byte = static_cast<unsigned char>(value << (8 - end));
            out[index] = bit == 0 ? byte : static_cast<unsigned char>(out[index] | byte);
        } else {
            const unsigned char first = byte_at(value, end - 8);
            out[index] = bit == 0 ? first : static_cast<unsigned char>(out[index] | first);
            ++index;
            if (end > 15)
                out[index++] = byte_at(value, end - 16);
            if (end % 8 != 0)
                out[index] = static_cast<unsigned char>(value << (8 - end % 8));
        }
        bit = end % 8;
    }
    return bit != 0 ? index + 1 : index;
}
