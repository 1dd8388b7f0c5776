// Folding in registers of 16 bytes: PCLMULQDQ of x86, VMULL.P64 of 32-bit ARMv8. The instructions are asked
// for function by function, so that the rest of the library runs on any processor of the kind.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#define QUARVEL_FOLDS __attribute__((target("pclmul,ssse3")))
#define QUARVEL_FOLDS_STEP QUARVEL_FOLDS __attribute__((always_inline)) inline

#include "util/crc_fold_private.h"

namespace {

bool can_fold()
{
    return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("ssse3") != 0;
}

struct Lane {
    using Register = __m128i;

    QUARVEL_FOLDS_STEP static Register load(const unsigned char* data)
    {
        return _mm_loadu_si128(reinterpret_cast<const Register*>(data));
    }
    QUARVEL_FOLDS_STEP static void store(unsigned char* data, Register block)
    {
        _mm_storeu_si128(reinterpret_cast<Register*>(data), block);
    }
    QUARVEL_FOLDS_STEP static Register first_word(std::uint32_t word)
    {
        return _mm_cvtsi32_si128(static_cast<int>(word));
    }
    QUARVEL_FOLDS_STEP static Register every_block(std::uint64_t low, std::uint64_t high)
    {
        return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
    }
    QUARVEL_FOLDS_STEP static Register with_bytes_reversed(Register block)
    {
        return _mm_shuffle_epi8(block, every_block(0x08090A0B0C0D0E0F, 0x0001020304050607));
    }
    QUARVEL_FOLDS_STEP static Register sum_of_products(Register a, Register b)
    {
        return _mm_clmulepi64_si128(a, b, 0x00) ^ _mm_clmulepi64_si128(a, b, 0x11);
    }
};

} // namespace

#elif defined(__arm__) && !defined(__ARM_BIG_ENDIAN)

#include <arm_neon.h>
#include <sys/auxv.h>

#define QUARVEL_FOLDS __attribute__((target("arch=armv8-a,fpu=crypto-neon-fp-armv8")))
#define QUARVEL_FOLDS_STEP QUARVEL_FOLDS __attribute__((always_inline)) inline

#include "util/crc_fold_private.h"

namespace {

bool can_fold()
{
    constexpr unsigned long PMULL = 1UL << 1; // HWCAP2_PMULL, in the kernel's <asm/hwcap.h> alone
    return (getauxval(AT_HWCAP2) & PMULL) != 0;
}

struct Lane {
    using Register = uint64x2_t;

    QUARVEL_FOLDS_STEP static Register load(const unsigned char* data)
    {
        return vreinterpretq_u64_u8(vld1q_u8(data));
    }
    QUARVEL_FOLDS_STEP static void store(unsigned char* data, Register block)
    {
        vst1q_u8(data, vreinterpretq_u8_u64(block));
    }
    QUARVEL_FOLDS_STEP static Register first_word(std::uint32_t word) { return every_block(word, 0); }
    QUARVEL_FOLDS_STEP static Register every_block(std::uint64_t low, std::uint64_t high)
    {
        return vcombine_u64(vcreate_u64(low), vcreate_u64(high));
    }
    QUARVEL_FOLDS_STEP static Register with_bytes_reversed(Register block)
    {
        const Register halves = vreinterpretq_u64_u8(vrev64q_u8(vreinterpretq_u8_u64(block)));
        return vextq_u64(halves, halves, 1);
    }
    QUARVEL_FOLDS_STEP static Register sum_of_products(Register a, Register b)
    {
        return vreinterpretq_u64_p128(vmull_p64(vgetq_lane_u64(a, 0), vgetq_lane_u64(b, 0))) ^
               vreinterpretq_u64_p128(vmull_p64(vgetq_lane_u64(a, 1), vgetq_lane_u64(b, 1)));
    }
};

} // namespace

#else

#include "util/crc_private.h"

#endif

#ifdef QUARVEL_FOLDS

const bool Crc::CAN_FOLD = can_fold();

template <typename Sum>
std::uint32_t Crc::by_folding(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    if (!CAN_FOLD || length < FOLD_FROM)
        return by_sixteen<Sum>(crc, data, length);
    const std::size_t rest = length % 16;
    unsigned char folded[16];
    fold<Lane, Sum>(folded, crc, data, length - rest);
    crc = by_sixteen<Sum>(0, folded, sizeof folded);
    return by_sixteen<Sum>(crc, data + length - rest, rest);
}

#else

const bool Crc::CAN_FOLD = false;

template <typename Sum>
std::uint32_t Crc::by_folding(std::uint32_t crc, const unsigned char* data, std::size_t length)
{
    return by_sixteen<Sum>(crc, data, length);
}

#endif

template std::uint32_t Crc::by_folding<Crc::Ccitt>(std::uint32_t, const unsigned char*, std::size_t);
template std::uint32_t Crc::by_folding<Crc::Arc>(std::uint32_t, const unsigned char*, std::size_t);
template std::uint32_t Crc::by_folding<Crc::Crc24q>(std::uint32_t, const unsigned char*, std::size_t);
