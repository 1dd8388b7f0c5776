#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

/// A second way to pack: the message as a text of binary digits, cut into eights.
class Byte_packer_model {
public:
    /// @param width  taken as 0 when it is negative; above 16 it is that of 16 bits led by zeros, of which
    ///               the packer keeps what fills the byte begun, the byte behind it and the rest modulo 8
    Byte_packer_model(const std::vector<unsigned>& values, int width, int bit)
        : digits(static_cast<std::size_t>(bit), '0')
    {
        for (const unsigned value : values)
            add(binary(value, std::max(width, 0)));
        merges_first = bit != 0;
        clears_one = width <= 0 && bit == 0;
        is_empty = values.empty();
        last_bits = digits.size() % 8;
        digits.resize((digits.size() + 7) / 8 * 8, '0');
    }

    int bytes() const { return static_cast<int>(digits.size() / 8); }

    /// Of the last byte's bits how many are in use, 0 for all of them.
    int end_bit() const { return static_cast<int>(last_bits); }

    void write(std::vector<unsigned char>& out, int index) const
    {
        if (is_empty)
            return;
        if (clears_one)
            out[static_cast<std::size_t>(index)] = 0;
        for (std::size_t i = 0; i < digits.size() / 8; ++i) {
            unsigned char& at = out[static_cast<std::size_t>(index) + i];
            const int before = i == 0 && merges_first ? at : 0;
            at = static_cast<unsigned char>(before | std::stoi(digits.substr(i * 8, 8), nullptr, 2));
        }
    }

private:
    static std::string binary(unsigned value, int width)
    {
        std::string text;
        for (int i = width; i-- > 0;)
            text += i < 16 && (value >> i) % 2 == 1 ? '1' : '0';
        return text;
    }

    void add(std::string value)
    {
        const std::size_t whole = 16 - digits.size() % 8; // the rest of this byte and the next one
        const std::size_t rest = (digits.size() + value.size()) % 8;
        if (value.size() > whole + rest)
            value.erase(whole, value.size() - whole - rest);
        digits += value;
    }

    std::string digits;
    std::size_t last_bits;
    bool merges_first;
    bool clears_one;
    bool is_empty;
};
