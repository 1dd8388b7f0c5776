#include "util/Sorted_lookup.h"

#include "tests/support/Function_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

/// A table of up to three texts.
class Texts : public Sorted_lookup_base<Sorted_lookup_compare<std::string>, std::string> {
public:
    Texts() : Sorted_lookup_base(storage, 3) {}
    using Sorted_lookup_base::insert;

private:
    std::string storage[3];
};

/// A table that fills from the front.
class Even_numbers : public Sorted_lookup_base<Sorted_lookup_compare<int>, int> {
public:
    explicit Even_numbers(int count) : Sorted_lookup_base(storage, MOST)
    {
        for (int i = 0; i < count; ++i)
            insert(2 * i);
    }
    static constexpr unsigned MOST = 40;

private:
    int storage[MOST] = {};
};

class Numbers : public Sorted_lookup_base<Sorted_lookup_compare<int>, int> {
public:
    Numbers() : Sorted_lookup_base(storage, 1) {}

private:
    int storage[1] = {};
};

} // namespace

TEST(Sorted_lookup_compare, orders_by_the_operators_of_the_type)
{
    const auto* compare = Sorted_lookup_compare<int>::get();
    EXPECT_LT(compare->compare(1, 2), 0);
    EXPECT_EQ(compare->compare(2, 2), 0);
    EXPECT_GT(compare->compare(3, 2), 0);
    EXPECT_GT(compare->compare(2147483647, -2147483647 - 1), 0); // a difference would overflow
}

TEST(Sorted_lookup_compare, is_one_shared_object)
{
    EXPECT_EQ(Sorted_lookup_compare<int>::get(), Sorted_lookup_compare<int>::get());
}

TEST(Sorted_lookup, holds_any_ordered_type_up_to_its_capacity)
{
    Texts texts;
    EXPECT_EQ(0U, texts.get_size());
    EXPECT_FALSE(texts.contains("a"));
    texts.insert("m");
    texts.insert("z");
    texts.insert("a");
    texts.insert("b"); // full
    ASSERT_EQ(3U, texts.get_size());
    EXPECT_EQ("a", texts[0]);
    EXPECT_EQ("m", texts[1]);
    EXPECT_EQ("z", texts[2]);
    EXPECT_TRUE(texts.contains("m"));
    EXPECT_FALSE(texts.contains("b"));
}

TEST(Sorted_lookup, finds_each_element_and_nothing_between_them_whatever_their_count)
{
    for (int count = 0; count <= static_cast<int>(Even_numbers::MOST); ++count) {
        const Even_numbers table(count);
        for (int number = -1; number <= 2 * count; ++number)
            EXPECT_EQ(number >= 0 && number < 2 * count && number % 2 == 0, table.contains(number))
                << number << " among " << count;
    }
}

TEST(Sorted_lookup, is_not_copied_since_a_copy_would_look_into_the_originals_storage)
{
    EXPECT_FALSE(std::is_copy_constructible_v<Texts>);
    EXPECT_FALSE(std::is_copy_assignable_v<Texts>);
}

TEST(Sorted_lookup_DeathTest, an_index_beyond_the_end_names_condition_line_and_function)
{
    const Numbers empty;
    EXPECT_DEATH(empty[0], testing::HasSubstr(std::string("util/Sorted_lookup.h:96: ") + SORTED_LOOKUP_INDEX +
                                              ": Assertion `i < size' failed."));
}
