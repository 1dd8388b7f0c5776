#include "util/Byte_packer.h"

#include "tests/support/Byte_packer_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/// A size or a random number as an unsigned; on 32 bits these are of that type already.
constexpr unsigned as_unsigned(std::uint64_t number)
{
    return static_cast<unsigned>(number);
}

static_assert(std::is_same_v<unsigned (Simple_data_array::*)(int), decltype(&Simple_data_array::GetValue)>);
static_assert(
    std::is_same_v<int (Byte_packer::*)(unsigned char*, int, int, int), decltype(&Byte_packer::BytePack)>);
static_assert(std::is_base_of_v<Simple_data_array, Byte_packer> && std::is_abstract_v<Simple_data_array> &&
              std::has_virtual_destructor_v<Simple_data_array>);
static_assert(sizeof(Simple_data_array) == 2 * sizeof(void*) && sizeof(Byte_packer) == 3 * sizeof(void*));

template <typename T, typename = void>
struct Shows_count : std::false_type {
};
template <typename T>
struct Shows_count<T, decltype(void(std::declval<T&>().count))> : std::true_type {
};
template <typename T, typename = void>
struct Shows_array : std::false_type {
};
template <typename T>
struct Shows_array<T, decltype(void(std::declval<T&>().array))> : std::true_type {
};

/// Its members, as a derived class sees them.
class Open_packer : public Byte_packer {
public:
    using Byte_packer::array;
    using Byte_packer::Byte_packer;
    using Byte_packer::count;
};

static_assert(!Shows_count<Byte_packer>::value && Shows_count<Open_packer>::value);
static_assert(!Shows_array<Byte_packer>::value && Shows_array<Open_packer>::value);

/// Values that no array holds.
class Computed : public Byte_packer {
public:
    using Value = std::function<unsigned(int)>;

    Computed(unsigned how_many, Value answer) : Byte_packer(nullptr, how_many), value(std::move(answer)) {}
    unsigned GetValue(int i) override
    {
        asked.push_back(i);
        return value(i);
    }

    std::vector<int> asked;

private:
    Value value;
};

/// Packs the values, from an array or through the accessor of a derived class.
int pack(bool derived, Bytes values, Bytes& out, int width, int index, int bit)
{
    const auto how_many = as_unsigned(values.size());
    if (!derived)
        return Byte_packer(values.data(), how_many).BytePack(out.data(), width, index, bit);
    Computed computed(how_many, [&values](int i) { return values[static_cast<std::size_t>(i)]; });
    return computed.BytePack(out.data(), width, index, bit);
}

struct Example {
    std::vector<unsigned> values;
    int width;
    Bytes written;
};

/// Packs computed values into bytes of 0xEE, from the start of byte 1.
void expect_packed(const Example& example)
{
    SCOPED_TRACE(testing::Message() << "width " << example.width);
    Bytes out(8, 0xEE);
    Bytes expected = out;
    std::copy(example.written.begin(), example.written.end(), expected.begin() + 1);
    Computed packer(as_unsigned(example.values.size()),
                    [&example](int i) { return example.values[static_cast<std::size_t>(i)]; });
    EXPECT_EQ(1 + static_cast<int>(example.written.size()), packer.BytePack(out.data(), example.width, 1, 0));
    EXPECT_EQ(expected, out);
}

} // namespace

TEST(Byte_packer, packs_examples_done_by_hand)
{
    for (const bool derived : {false, true}) {
        Bytes out{0xFF, 0xFF, 0xFF};
        EXPECT_EQ(1, pack(derived, {1, 0, 1}, out, 1, 0, 0));
        EXPECT_EQ((Bytes{0xA0, 0xFF, 0xFF}), out);
        EXPECT_EQ(2, pack(derived, {0xF, 0x3}, out, 4, 1, 0));
        EXPECT_EQ((Bytes{0xA0, 0xF3, 0xFF}), out);
    }
    Bytes out{0x50, 0xFF, 0xFF};
    Computed computed(1, [](int) { return 0xABC; });
    EXPECT_EQ(2, computed.BytePack(out.data(), 12, 0, 4));
    EXPECT_EQ((Bytes{0x5A, 0xBC, 0xFF}), out);
}

TEST(Byte_packer, agrees_with_the_digits_written_one_after_the_other)
{
    for (unsigned seed = 1; seed <= 12000; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
        const int width = 1 + below(16);
        const int bit = below(8);
        const int index = 1 + below(3);
        const bool derived = below(2) == 1;
        std::vector<unsigned> values(random() % 12);
        Bytes array;
        for (unsigned& value : values) {
            value = derived ? as_unsigned(random()) : as_unsigned(random() % 256);
            array.push_back(static_cast<unsigned char>(value));
        }
        Bytes out(32);
        for (unsigned char& byte : out)
            byte = static_cast<unsigned char>(random());
        Bytes expected = out;
        const Byte_packer_model model(values, width, bit);
        model.write(expected, index);

        const auto how_many = as_unsigned(values.size());
        Computed computed(how_many, [&values](int i) { return values[static_cast<std::size_t>(i)]; });
        Byte_packer plain(array.data(), how_many);
        Byte_packer& packer = derived ? computed : plain;
        ASSERT_EQ(index + model.bytes(), packer.BytePack(out.data(), width, index, bit)) << "seed " << seed;
        ASSERT_EQ(expected, out) << "seed " << seed << ", width " << width << ", bit " << bit;
    }
}

TEST(Byte_packer, gives_the_same_for_every_width_and_first_bit_from_an_array_and_an_accessor)
{
    const Bytes values{0x81, 0xFF, 0x00, 0x5A, 0xA5, 0x01, 0xFE, 0x33, 0x7F};
    for (int width = 1; width <= 16; ++width)
        for (int bit = 0; bit < 8; ++bit)
            for (std::size_t how_many = 0; how_many <= values.size(); ++how_many) {
                const Bytes some(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(how_many));
                Bytes expected(24, 0xC3);
                const Byte_packer_model model({some.begin(), some.end()}, width, bit);
                model.write(expected, 1);
                for (const bool derived : {false, true}) {
                    Bytes out(24, 0xC3);
                    ASSERT_EQ(1 + model.bytes(), pack(derived, some, out, width, 1, bit));
                    ASSERT_EQ(expected, out) << width << " from bit " << bit << ", values " << how_many;
                }
            }
}

TEST(Byte_packer, assigns_each_byte_that_it_reaches_fresh)
{
    for (const bool derived : {false, true}) {
        Bytes out(5, 0xFF);
        EXPECT_EQ(4, pack(derived, {0, 0, 0}, out, 7, 1, 0));
        EXPECT_EQ((Bytes{0xFF, 0, 0, 0, 0xFF}), out);
    }
}

TEST(Byte_packer, merges_into_a_started_byte_even_behind_its_used_bits)
{
    for (const bool derived : {false, true}) {
        Bytes out{0xFF, 0xE1, 0xFF, 0xFF};
        EXPECT_EQ(2, pack(derived, {1}, out, 2, 1, 3)); // 111 00001 or 000 01 000
        EXPECT_EQ((Bytes{0xFF, 0xE9, 0xFF, 0xFF}), out);
        EXPECT_EQ(3, pack(derived, {0, 0}, out, 4, 1, 4)); // the second value starts a byte
        EXPECT_EQ((Bytes{0xFF, 0xE9, 0x00, 0xFF}), out);
    }
}

TEST(Byte_packer, drops_the_bits_above_the_width)
{
    for (const bool derived : {false, true}) {
        Bytes out(2);
        EXPECT_EQ(1, pack(derived, {0xFD, 0xF2, 0xF7}, out, 2, 0, 2)); // 01, 10, 11
        EXPECT_EQ((Bytes{0x1B, 0}), out);
    }
    expect_packed({{0xFFFFFABC, 0xFFFFF123}, 12, {0xAB, 0xC1, 0x23}});
    expect_packed({{0xFFFF1234}, 16, {0x12, 0x34}});
}

TEST(Byte_packer, without_values_writes_nothing_and_steps_over_a_started_byte)
{
    for (const bool derived : {false, true})
        for (int bit = 0; bit < 8; ++bit)
            for (const int width : {0, 1, 8, 16}) {
                Bytes out{0xAA, 0xBB, 0xCC};
                EXPECT_EQ(bit == 0 ? 1 : 2, pack(derived, {}, out, width, 1, bit)) << bit;
                EXPECT_EQ((Bytes{0xAA, 0xBB, 0xCC}), out);
            }
    EXPECT_EQ(1, Byte_packer(nullptr, 0).BytePack(nullptr, 8, 0, 3)); // nor is anything read
}

TEST(Byte_packer, a_width_of_0_clears_a_fresh_byte_without_passing_it)
{
    for (const bool derived : {false, true})
        for (const int width : {0, -1, -100}) {
            Bytes out{0xAA, 0xBB, 0xCC};
            EXPECT_EQ(1, pack(derived, {0xFF, 0xFF}, out, width, 1, 0));
            EXPECT_EQ((Bytes{0xAA, 0x00, 0xCC}), out);
            EXPECT_EQ(1, pack(derived, {0xFF, 0xFF}, out, width, 0, 5));
            EXPECT_EQ((Bytes{0xAA, 0x00, 0xCC}), out);
        }
}

TEST(Byte_packer, leads_the_16_low_bits_with_zeros_when_the_width_is_greater)
{
    // By hand: the first byte, one whole byte, then the width's rest modulo 8.
    expect_packed({{0x1FFFF}, 17, {0x7F, 0xFF, 0x80}});                       // 0 1111111 11111111 1
    expect_packed({{0xABCDE}, 20, {0x0B, 0xCD, 0xE0}});                       // 0000 BCDE
    expect_packed({{0xFFFFFF}, 23, {0x01, 0xFF, 0xFE}});                      // 0000000 1 11111111 1111111
    expect_packed({{0xABCDE, 0x54321}, 20, {0x0B, 0xCD, 0xE0, 0x43}});        // the second one loses 0x21
    expect_packed({{0xABCD}, 24, {0x00, 0xAB}});                              // 0xCD is lost
    expect_packed({{0xFFFFFFFF}, 25, {0x00, 0x7F, 0x80}});                    // and here eight ones
    expect_packed({{0xFFFFFFFF}, 32, {0x00, 0x00}});                          // all of them
    expect_packed({{0xFFFFFFFF}, 44, {0x00, 0x00, 0xF0}});                    // all but the rest of 4
    expect_packed({{0xFFFFFFFF, 0xFFFFFFFF}, 100, {0x00, 0x00, 0xF0, 0x00}}); // which the next one joins
}

TEST(Byte_packer, asks_a_derived_class_for_each_value_once_and_in_order)
{
    Bytes out(4);
    Computed packer(5, [](int i) { return static_cast<unsigned>(i); });
    EXPECT_EQ(2, packer.BytePack(out.data(), 3, 0, 0)); // 000 001 010 011 100
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), packer.asked);
    EXPECT_EQ((Bytes{0x05, 0x38, 0, 0}), out);
}

TEST(Byte_packer, asks_for_a_value_when_those_before_it_are_written)
{
    Bytes out(4);
    std::vector<Bytes> seen;
    Computed packer(3, [&](int) {
        seen.push_back(out);
        return 0xFFU;
    });
    packer.BytePack(out.data(), 8, 0, 0);
    EXPECT_EQ((std::vector<Bytes>{{0, 0, 0, 0}, {0xFF, 0, 0, 0}, {0xFF, 0xFF, 0, 0}}), seen);
}

TEST(Byte_packer, reads_an_array_that_it_overwrites_as_the_packing_has_left_it)
{
    // Each value is packed one byte further on, over the next value: the first one spreads.
    Bytes spread{1, 2, 3, 4, 5};
    EXPECT_EQ(5, Byte_packer(spread.data(), 4).BytePack(spread.data(), 8, 1, 0));
    EXPECT_EQ((Bytes{1, 1, 1, 1, 1}), spread);

    Bytes closed{0xF, 0x3, 0x5, 0xC};
    EXPECT_EQ(2, Byte_packer(closed.data(), 4).BytePack(closed.data(), 4, 0, 0));
    EXPECT_EQ((Bytes{0xF3, 0x5C, 0x5, 0xC}), closed);
}

TEST(Byte_packer, overlapping_or_not_does_what_an_accessor_does)
{
    for (unsigned seed = 1; seed <= 4000; ++seed) {
        std::mt19937 random(seed);
        const int width = 1 + static_cast<int>(random() % 16);
        const int bit = static_cast<int>(random() % 8);
        const int index = static_cast<int>(random() % 24);
        const std::size_t from = random() % 24;
        Bytes plain_memory(48);
        for (unsigned char& byte : plain_memory)
            byte = static_cast<unsigned char>(random());
        Bytes derived_memory = plain_memory;
        const auto how_many = as_unsigned(random() % 10);
        Computed derived(how_many, [&](int i) { return derived_memory[from + static_cast<std::size_t>(i)]; });
        Byte_packer plain(plain_memory.data() + from, how_many);
        ASSERT_EQ(derived.BytePack(derived_memory.data(), width, index, bit),
                  plain.BytePack(plain_memory.data(), width, index, bit))
            << "seed " << seed;
        ASSERT_EQ(derived_memory, plain_memory) << "seed " << seed;
    }
}

TEST(Byte_packer, reads_the_callers_array_anew_at_every_call)
{
    unsigned char values[] = {1, 2, 3};
    Byte_packer packer(values, 3);
    Bytes out(3);
    packer.BytePack(out.data(), 8, 0, 0);
    EXPECT_EQ((Bytes{1, 2, 3}), out);
    values[1] = 0x77;
    packer.BytePack(out.data(), 8, 0, 0);
    EXPECT_EQ((Bytes{1, 0x77, 3}), out);
    EXPECT_EQ(0x77U, packer.GetValue(1));
}

TEST(Byte_packer, continues_where_the_last_field_ended)
{
    // 5 bits, 3 bits, 6 bits and 10 bits: 10110 011 000001 1111100000
    Bytes out(4, 0xFF);
    EXPECT_EQ(1, pack(false, {0x16}, out, 5, 0, 0));
    EXPECT_EQ(1, pack(true, {0x3}, out, 3, 0, 5));
    EXPECT_EQ(2, pack(false, {0x01}, out, 6, 1, 0));
    Computed last(1, [](int) { return 0x3E0; });
    EXPECT_EQ(3, last.BytePack(out.data(), 10, 1, 6));
    EXPECT_EQ((Bytes{0xB3, 0x07, 0xE0, 0xFF}), out);
}

TEST(Byte_packer, writes_no_byte_beyond_those_it_counts)
{
    for (int width = 1; width <= 16; ++width)
        for (int bit = 0; bit < 8; ++bit)
            for (unsigned how_many = 1; how_many < 20; ++how_many) {
                // Of the exact size, so that an address check sees a byte too much.
                const auto size =
                    (static_cast<unsigned>(bit) + how_many * static_cast<unsigned>(width) + 7) / 8;
                const std::unique_ptr<unsigned char[]> out(new unsigned char[size]());
                const std::unique_ptr<unsigned char[]> values(new unsigned char[how_many]());
                Byte_packer packer(values.get(), how_many);
                ASSERT_EQ(static_cast<int>(size), packer.BytePack(out.get(), width, 0, bit));
            }
}

TEST(Byte_packer, holds_the_count_then_the_array_and_copies_neither)
{
    unsigned char values[] = {1, 2, 3};
    Open_packer packer(values, 3);
    const auto* const start = reinterpret_cast<const unsigned char*>(&packer);
    EXPECT_EQ(start + sizeof(void*), reinterpret_cast<const unsigned char*>(&packer.count));
    EXPECT_EQ(start + 2 * sizeof(void*), reinterpret_cast<const unsigned char*>(&packer.array));
    EXPECT_EQ(3U, packer.count);
    EXPECT_EQ(values, packer.array);
}

namespace {

int destroyed = 0;
int deleted = 0;

class Counted : public Byte_packer {
public:
    using Byte_packer::Byte_packer;
    ~Counted() override { ++destroyed; }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t, void* place) { return place; }
    static void operator delete(void* memory)
    {
        ++deleted;
        ::operator delete(memory);
    }
};

/// The function in a slot of the table that an object starts with, as the C++ ABI of GCC lays it out.
template <typename FUNCTION>
FUNCTION slot(const void* object, std::size_t number)
{
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    FUNCTION function = nullptr;
    std::memcpy(&function, table + number, sizeof function);
    return function;
}

} // namespace

TEST(Byte_packer, its_virtual_slots_are_both_destructors_and_then_the_accessor)
{
    using Destroy = void (*)(void*);
    using Get = unsigned (*)(void*, int);
    unsigned char values[] = {7, 8, 9};
    destroyed = deleted = 0;

    alignas(Counted) unsigned char memory[sizeof(Counted)];
    auto* const in_place = new (memory) Counted(values, 3);
    EXPECT_EQ(9U, slot<Get>(in_place, 2)(in_place, 2));
    slot<Destroy>(in_place, 0)(in_place);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(0, deleted);

    auto* const on_heap = new Counted(values, 3);
    slot<Destroy>(on_heap, 1)(on_heap);
    EXPECT_EQ(2, destroyed);
    EXPECT_EQ(1, deleted);
}

TEST(Byte_packer, is_deleted_through_its_base_and_leaves_the_array_alone)
{
    destroyed = 0;
    unsigned char values[] = {7, 8, 9};
    std::unique_ptr<Simple_data_array> base = std::make_unique<Counted>(values, 3);
    EXPECT_EQ(8U, base->GetValue(1));
    base.reset();
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(7, values[0]);
}
