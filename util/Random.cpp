#include "util/Random.h"

#include "platform/Rtime.h"

namespace {

constexpr std::uint32_t MULTIPLIER = 48271;
constexpr std::uint32_t MODULUS = 2147483647;

// L. Schrage, A more portable Fortran random number generator, ACM TOMS 5 (1979): with these two both
// products stay below 2^31, from any 32-bit seed.
constexpr std::uint32_t QUOTIENT = 44488;
constexpr std::uint32_t REMAINDER = 3399;
static_assert(MODULUS / MULTIPLIER == QUOTIENT && MODULUS % MULTIPLIER == REMAINDER);

} // namespace

std::uint32_t Random::seed = 1;

void Random::srand(unsigned long s)
{
    seed = static_cast<std::uint32_t>(s & 0xFFFFFFFF);
}

std::uint32_t Random::rand()
{
    const std::uint32_t added = MULTIPLIER * (seed % QUOTIENT);
    const std::uint32_t taken = REMAINDER * (seed / QUOTIENT);
    seed = added > taken ? added - taken : added - taken + MODULUS;
    return seed;
}

void Random::init()
{
    seed = static_cast<std::uint32_t>(Rtime(true).seconds & 0xFFFFFFFF);
    static_cast<void>(rand());
}
