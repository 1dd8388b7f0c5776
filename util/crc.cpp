#include "util/crc.h"

#include "util/crc_private.h"

namespace {

template <typename Sum>
std::uint32_t add_bytes(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    return length < Crc::FOLD_FROM ? Crc::by_tables<Sum>(crc, data, length)
                                   : Crc::by_wide_folding<Sum>(crc, data, length);
}

} // namespace

unsigned short crc16(unsigned short crc, const unsigned char* data, unsigned len)
{
    return static_cast<unsigned short>(add_bytes<Crc::Ccitt>(crc, data, len));
}

const unsigned short* crc16table()
{
    return Crc::TABLES<Crc::Ccitt>[0].data();
}

unsigned short calculate_crc16_byte(unsigned short crc, unsigned char b)
{
    return static_cast<unsigned short>(Crc::Arc::add_byte(Crc::TABLES<Crc::Arc>[0], crc, b));
}

unsigned short calculate_crc16(const unsigned char* data, unsigned len, unsigned short crc)
{
    return static_cast<unsigned short>(add_bytes<Crc::Arc>(crc, data, len));
}

unsigned crc24q(unsigned crc, const unsigned char* data, int nbits)
{
    crc &= Crc::Crc24q::MASK; // more would look past the table's end
    if (nbits <= 0)
        return crc;
    const auto whole_bytes = static_cast<unsigned>(nbits) / 8;
    crc = add_bytes<Crc::Crc24q>(crc, data, whole_bytes);
    for (int bit = 0; bit < nbits % 8; ++bit) {
        const std::uint32_t fed = (data[whole_bytes] >> (7 - bit)) & 1U;
        crc = Crc::Crc24q::times_x(crc ^ (fed << 23));
    }
    return crc;
}

const unsigned* crc24q_table()
{
    return Crc::TABLES<Crc::Crc24q>[0].data();
}
