#pragma once

#include "util/export.h"

/// So many small unsigned values, wherever they come from.
class QUARVEL_EXPORT Simple_data_array {
public:
    virtual ~Simple_data_array();

    /// The value at i, 0 to count - 1.
    virtual unsigned GetValue(int i) = 0;

protected:
    /// @param new_count  how many values the derived class has; 0 is fine
    explicit Simple_data_array(unsigned new_count) : count(new_count) {}

    unsigned count; ///< of values: what BytePack() asks for
};

/// Packs values of one width into a buffer, most significant bit first, from any bit of a byte on.
///
/// The values are those of an array, or what GetValue() of a derived class answers, which may be wider than
/// the array's bytes. A packer keeps nothing between calls; it belongs to one thread at a time.
class QUARVEL_EXPORT Byte_packer : public Simple_data_array {
public:
    /// @param data   stays the caller's and is read anew by every call; not used by a class that overrides
    ///               GetValue()
    /// @param count  how many values it holds
    Byte_packer(unsigned char* data, unsigned count);

    ~Byte_packer() override;

    /// `data[i]`; i is not checked.
    unsigned GetValue(int i) override;

    /// Packs all values, each asked for once and in order, just before its bits are written.
    ///
    /// The byte at `index` is assigned when packing starts at its bit 0. From a later bit on the values are
    /// OR-ed into it: its first bits stay, and so do bits that are set behind them, so these should be 0.
    /// Every following byte is assigned, the unused last bits of the last one with 0. Other bytes are left
    /// alone; so is every byte when there are no values.
    ///
    /// @param out    room for what is written: from `index` on (bit + count * width) / 8 bytes, rounded up,
    ///               and at least one when there are values. It may overlap the array: each value is then
    ///               read as the packing so far has left it.
    /// @param width  bits of a value, 0 to 16, a negative one counting as 0; a value's higher bits are
    ///               dropped. With 0 the byte at `index` is set to 0 when packing starts at its bit 0, and
    ///               nothing else is written. More than 16 are not refused: a value's 16 low bits are then
    ///               led by zeros, and it fills the rest of the byte that it starts in, one byte more and
    ///               the bits that are left over (width modulo 8), so that its last whole byte is lost when
    ///               it would need it.
    /// @param index  of the byte to start in
    /// @param bit    how many bits of that byte are in use, 0 to 7 (not checked)
    /// @return the index of the first byte not touched (with width 0 `index` itself, also when that byte was
    ///         set to 0); index + 1 when there are no values and `bit` is not 0
    int BytePack(unsigned char* out, int width, int index, int bit);

protected:
    unsigned char* array; ///< the caller's, as the constructor got it
};
