#include "util/Random.h"

#include "tests/support/Fake_clock.h"

#include <gtest/gtest.h>

#include <random>

namespace {

static_assert(sizeof(Random::seed) == 4);

const std::uint32_t FIRST_SEED = Random::seed; // before any test

constexpr std::uint64_t MODULUS = 2147483647;

/// The plain definition, which needs 64 bits; 0 is the modulus here.
std::uint32_t modelled(std::uint32_t seed)
{
    const std::uint64_t next = 48271ULL * seed % MODULUS;
    return static_cast<std::uint32_t>(next == 0 ? MODULUS : next);
}

std::uint32_t after(std::uint32_t seed)
{
    Random::seed = seed;
    return Random::rand();
}

std::uint32_t seed_at(std::int64_t seconds)
{
    const Fake_clock clock(seconds, 567);
    Random::init();
    return Random::seed;
}

} // namespace

TEST(Random, starts_at_1_so_that_a_program_that_never_seeds_draws_well)
{
    EXPECT_EQ(1U, FIRST_SEED);
}

TEST(Random, returns_the_new_seed)
{
    Random::seed = 1;
    EXPECT_EQ(48271U, Random::rand());
    EXPECT_EQ(48271U, Random::seed);
    EXPECT_EQ(182605794U, Random::rand());
    EXPECT_EQ(182605794U, Random::seed);
}

TEST(Random, gives_the_published_ten_thousandth_value)
{
    Random::srand(1);
    for (int i = 1; i < 10000; ++i)
        Random::rand();
    EXPECT_EQ(399268537U, Random::rand()); // ISO/IEC 14882:2017, 29.6.5 [rand.predef]
}

TEST(Random, draws_as_the_standard_librarys_generator_does)
{
    for (const std::uint32_t seed : {1U, 48271U, 2147483646U, 20180406U}) {
        std::minstd_rand standard(seed);
        Random::srand(seed);
        for (int i = 0; i < 25000; ++i)
            ASSERT_EQ(standard(), Random::rand()) << "draw " << i << " from seed " << seed;
    }
}

TEST(Random, never_sticks_at_0)
{
    EXPECT_EQ(2147483647U, after(0));
    EXPECT_EQ(2147483647U, Random::rand()); // it stays there
    EXPECT_EQ(2147483647U, after(2147483647));
}

TEST(Random, takes_seeds_past_the_modulus_for_their_remainder)
{
    const struct {
        std::uint32_t seed, next;
    } cases[] = {
        {2147483646U, 2147435376U}, // -1: 2147483647 - 48271
        {2147483648U, 48271U},      // 1
        {4294967293U, 2147435376U}, // -1
        {4294967294U, 2147483647U}, // 0
        {4294967295U, 48271U},      // 1
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.next, after(c.seed)) << "seed " << c.seed;
}

TEST(Random, follows_the_definition_from_any_seed)
{
    std::mt19937 random(20180407);
    std::uniform_int_distribution<std::uint32_t> seeds; // all of them
    for (int i = 0; i < 100000; ++i) {
        const std::uint32_t seed = seeds(random);
        ASSERT_EQ(modelled(seed), after(seed)) << "seed " << seed;
    }
    for (std::uint32_t seed = 44488 - 2; seed <= 44488 + 2; ++seed)
        EXPECT_EQ(modelled(seed), after(seed)) << "seed " << seed;
}

TEST(Random, srand_sets_the_seed_and_draws_nothing)
{
    Random::srand(12345);
    EXPECT_EQ(12345U, Random::seed);
    Random::srand(0xFFFFFFFFUL);
    EXPECT_EQ(0xFFFFFFFFU, Random::seed);
}

TEST(Random, srand_keeps_the_low_32_bits)
{
    constexpr std::uint64_t PAST_32_BITS = 0x500000007ULL; // 7 already where a long has 32
    Random::srand(static_cast<unsigned long>(PAST_32_BITS));
    EXPECT_EQ(7U, Random::seed);
}

TEST(Random, init_takes_the_seconds_and_one_step)
{
    EXPECT_EQ(48271U, seed_at(1));
    EXPECT_EQ(modelled(1514862245), seed_at(1514862245)); // 2018-01-02
    EXPECT_EQ(modelled(4102444800), seed_at(4102444800)); // 2100-01-01, past 31 bits
}

TEST(Random, init_takes_the_low_32_bits_of_the_seconds)
{
    EXPECT_EQ(48271U * 5U, seed_at(4294967296 + 5));
}
