// Folding in registers of 64 bytes, four blocks at once: VPCLMULQDQ of x86.
#ifdef __x86_64__

#include <immintrin.h>

#define QUARVEL_FOLDS __attribute__((target("avx512f,avx512bw,vpclmulqdq")))
#define QUARVEL_FOLDS_STEP QUARVEL_FOLDS __attribute__((always_inline)) inline

#include "util/crc_fold_private.h"

namespace {

bool can_fold()
{
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
           __builtin_cpu_supports("vpclmulqdq") != 0;
}

struct Lane {
    using Register = __m512i;

    QUARVEL_FOLDS_STEP static Register load(const unsigned char* data) { return _mm512_loadu_si512(data); }
    QUARVEL_FOLDS_STEP static void store(unsigned char* data, Register blocks)
    {
        _mm512_storeu_si512(data, blocks);
    }
    QUARVEL_FOLDS_STEP static Register first_word(std::uint32_t word)
    {
        return _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(word)));
    }
    QUARVEL_FOLDS_STEP static Register every_block(std::uint64_t low, std::uint64_t high)
    {
        const auto first = static_cast<long long>(low);
        const auto second = static_cast<long long>(high);
        return _mm512_set4_epi64(second, first, second, first);
    }
    QUARVEL_FOLDS_STEP static Register with_bytes_reversed(Register blocks)
    {
        return _mm512_shuffle_epi8(blocks, every_block(0x08090A0B0C0D0E0F, 0x0001020304050607));
    }
    QUARVEL_FOLDS_STEP static Register sum_of_products(Register a, Register b)
    {
        return _mm512_clmulepi64_epi128(a, b, 0x00) ^ _mm512_clmulepi64_epi128(a, b, 0x11);
    }
};

} // namespace

const bool Crc::CAN_FOLD_WIDE = can_fold();

template <typename Sum>
std::uint32_t Crc::by_wide_folding(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    if (!CAN_FOLD_WIDE || length < WIDE_FOLD_FROM)
        return by_folding<Sum>(crc, data, length);
    const std::size_t rest = length % 64;
    unsigned char folded[64];
    fold<Lane, Sum>(folded, crc, data, length - rest);
    crc = by_folding<Sum>(0, folded, sizeof folded);
    return by_folding<Sum>(crc, data + length - rest, rest);
}

#else

#include "util/crc_private.h"

const bool Crc::CAN_FOLD_WIDE = false;

template <typename Sum>
std::uint32_t Crc::by_wide_folding(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    return by_folding<Sum>(crc, data, length);
}

#endif

template std::uint32_t Crc::by_wide_folding<Crc::Ccitt>(std::uint32_t, const unsigned char*, std::size_t);
template std::uint32_t Crc::by_wide_folding<Crc::Arc>(std::uint32_t, const unsigned char*, std::size_t);
template std::uint32_t Crc::by_wide_folding<Crc::Crc24q>(std::uint32_t, const unsigned char*, std::size_t);
