#include "util/GPS/Satellites.h"

#include "tests/support/Function_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

using Satellites::Satellites_list;
using testing::ElementsAre;

namespace {

template <int NUM>
std::vector<int> identifiers(const Satellites_list<NUM>& list)
{
    std::vector<int> ids;
    for (int i = 0; i < list.num_sats(); ++i)
        ids.push_back(list.get_sat(static_cast<unsigned>(i)));
    return ids;
}

std::vector<int> range(int min, int max)
{
    std::vector<int> ids;
    for (int id = min; id <= max; ++id)
        ids.push_back(id);
    return ids;
}

/// A static initialiser of this program, which may use what the library built while it loaded.
const std::vector<int> seen_by_a_static_initialiser = identifiers(Satellites::EGNOS_SATS);

/// The fields of a list as they lie in memory.
struct Image {
    const void* compare;
    unsigned capacity;
    const int* data;
    unsigned size;
    int storage[4];
};
static_assert(sizeof(Image) == sizeof(Satellites_list<4>));

} // namespace

TEST(Satellites, lists_hold_the_identifiers_of_each_service)
{
    EXPECT_EQ(range(1, 37), identifiers(Satellites::GPS_SATS));
    EXPECT_EQ(range(38, 70), identifiers(Satellites::GLONASS_SATS));
    EXPECT_THAT(identifiers(Satellites::WAAS_SATS), ElementsAre(133, 135, 138));
    EXPECT_THAT(identifiers(Satellites::EGNOS_SATS), ElementsAre(120, 123, 124, 126, 136));
    EXPECT_THAT(identifiers(Satellites::MSAS_SATS), ElementsAre(129, 137));
    EXPECT_THAT(identifiers(Satellites::AUSBAS_SATS), ElementsAre(122));
    EXPECT_THAT(identifiers(Satellites::OMNISTAR_SATS), ElementsAre(200));
}

TEST(Satellites, capacities_have_their_constants)
{
    static_assert(std::is_same_v<const int, decltype(Satellites::MAX_GPS_SATS)>);
    EXPECT_EQ(37, Satellites::MAX_GPS_SATS);
    EXPECT_EQ(33, Satellites::MAX_GLONASS_SATS);
    EXPECT_EQ(3, Satellites::MAX_WAAS_SATS);
    EXPECT_EQ(5, Satellites::MAX_EGNOS_SATS);
    EXPECT_EQ(2, Satellites::MAX_MSAS_SATS);
    EXPECT_EQ(1, Satellites::MAX_AUSBAS_SATS);
    EXPECT_EQ(1, Satellites::MAX_OMNISTAR_SATS);
}

TEST(Satellites, lists_have_room_for_just_what_they_hold)
{
    static_assert(std::is_same_v<Satellites_list<37>, decltype(Satellites::GPS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<33>, decltype(Satellites::GLONASS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<3>, decltype(Satellites::WAAS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<5>, decltype(Satellites::EGNOS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<2>, decltype(Satellites::MSAS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<1>, decltype(Satellites::AUSBAS_SATS)>);
    static_assert(std::is_same_v<Satellites_list<1>, decltype(Satellites::OMNISTAR_SATS)>);
}

TEST(Satellites, lists_are_built_before_the_programs_own_statics)
{
    EXPECT_THAT(seen_by_a_static_initialiser, ElementsAre(120, 123, 124, 126, 136));
}

TEST(Satellites, lists_answer_for_their_bounds)
{
    EXPECT_EQ(1, Satellites::GPS_SATS.min_sat());
    EXPECT_EQ(37, Satellites::GPS_SATS.max_sat());
    EXPECT_EQ(37, Satellites::GPS_SATS.num_sats());
    EXPECT_EQ(38, Satellites::GLONASS_SATS.get_sat(0));
    EXPECT_EQ(37, Satellites::GPS_SATS.get_sat(36));
}

TEST(Satellites, every_identifier_belongs_to_the_lists_that_name_it)
{
    for (int id = -300; id <= 300; ++id) {
        SCOPED_TRACE(id);
        EXPECT_EQ(id >= 1 && id <= 37, Satellites::GPS_SATS.is_sat(id));
        EXPECT_EQ(id >= 38 && id <= 70, Satellites::GLONASS_SATS.is_sat(id));
        EXPECT_EQ(id == 133 || id == 135 || id == 138, Satellites::WAAS_SATS.is_sat(id));
        EXPECT_EQ(id == 120 || id == 123 || id == 124 || id == 126 || id == 136,
                  Satellites::EGNOS_SATS.is_sat(id));
        EXPECT_EQ(id == 129 || id == 137, Satellites::MSAS_SATS.is_sat(id));
        EXPECT_EQ(id == 122, Satellites::AUSBAS_SATS.is_sat(id));
        EXPECT_EQ(id == 200, Satellites::OMNISTAR_SATS.is_sat(id));
    }
}

TEST(Satellites_list, sorts_what_it_is_given)
{
    const Satellites_list<3> list(Satellites_list<3>::LIST, 9, 3, 5, 0);
    EXPECT_THAT(identifiers(list), ElementsAre(3, 5, 9));
}

TEST(Satellites_list, drops_what_comes_when_it_is_full)
{
    const Satellites_list<2> list(Satellites_list<2>::LIST, 7, 1, 5, 0);
    EXPECT_THAT(identifiers(list), ElementsAre(1, 7));
    const Satellites_list<3> cut(Satellites_list<3>::RANGE, 10, 20);
    EXPECT_THAT(identifiers(cut), ElementsAre(10, 11, 12));
}

TEST(Satellites_list, keeps_a_repeated_identifier_twice)
{
    const Satellites_list<5> list(Satellites_list<5>::LIST, 4, 2, 4, 2, 0);
    EXPECT_THAT(identifiers(list), ElementsAre(2, 2, 4, 4));
    EXPECT_TRUE(list.is_sat(2));
    EXPECT_FALSE(list.is_sat(3));
}

TEST(Satellites_list, takes_negative_identifiers_in_a_range_through_0)
{
    const Satellites_list<8> list(Satellites_list<8>::RANGE, -2, 1);
    EXPECT_THAT(identifiers(list), ElementsAre(-2, -1, 0, 1));
}

TEST(Satellites_list, takes_a_range_up_to_the_largest_int)
{
    const int max = std::numeric_limits<int>::max();
    const Satellites_list<4> list(Satellites_list<4>::RANGE, max - 1, max);
    EXPECT_THAT(identifiers(list), ElementsAre(max - 1, max));
}

TEST(Satellites_list, lies_in_memory_as_programs_were_compiled_against)
{
    const Satellites_list<4> list(Satellites_list<4>::LIST, 8, 6, 0);
    Image image{};
    std::memcpy(&image, &list, sizeof image);
    EXPECT_EQ(Sorted_lookup_compare<int>::get(), image.compare);
    EXPECT_EQ(4U, image.capacity);
    const auto* const start = reinterpret_cast<const char*>(&list);
    EXPECT_EQ(static_cast<const void*>(start + offsetof(Image, storage)), image.data);
    EXPECT_EQ(2U, image.size);
    EXPECT_THAT(image.storage, ElementsAre(6, 8, 0, 0));
}

TEST(Satellites_list, follows_a_sorted_vector_for_random_lists)
{
    std::mt19937 random(99);
    std::uniform_int_distribution<int> id(1, 40);
    for (int i = 0; i < 10000; ++i) {
        int ids[9];
        std::generate(std::begin(ids), std::end(ids), [&] { return id(random); });
        const Satellites_list<6> list(Satellites_list<6>::LIST, ids[0], ids[1], ids[2], ids[3], ids[4],
                                      ids[5], ids[6], ids[7], ids[8], 0);
        std::vector<int> model(ids, ids + 6);
        std::sort(model.begin(), model.end());
        ASSERT_EQ(model, identifiers(list)) << "list " << i;
        for (int wanted = 0; wanted <= 41; ++wanted)
            ASSERT_EQ(std::find(model.begin(), model.end(), wanted) != model.end(), list.is_sat(wanted))
                << "list " << i << ", identifier " << wanted;
    }
}

TEST(Satellites_list_DeathTest, get_sat_beyond_the_end_names_condition_line_and_function)
{
    EXPECT_DEATH(Satellites::GPS_SATS.get_sat(37),
                 testing::HasSubstr("util/GPS/Satellites.h:64: int Satellites::Satellites_list<NUM>::get_sat("
                                    "unsigned int) const [with int NUM = 37]: Assertion `(int)index < "
                                    "num_sats()' failed."));
    EXPECT_DEATH(Satellites::WAAS_SATS.get_sat(3), testing::HasSubstr("[with int NUM = 3]: Assertion"));
}

TEST(Satellites_list_DeathTest, get_sat_compares_signed_so_a_huge_index_fails_one_step_later)
{
    EXPECT_DEATH(Satellites::GPS_SATS.get_sat(0x80000000U),
                 testing::HasSubstr(std::string("util/Sorted_lookup.h:96: ") + SORTED_LOOKUP_INDEX +
                                    ": Assertion `i < size' failed."));
}

TEST(Satellites_list_DeathTest, a_range_needs_two_ends)
{
    using Sats = Satellites_list<37>;
    const char* const text = "util/GPS/Satellites.h:79: Satellites::Satellites_list<NUM>::Satellites_list("
                             "Satellites::Satellites_list<NUM>::type_t, ...) [with int NUM = 37]: Assertion "
                             "`min < max' failed.";
    EXPECT_DEATH(Sats(Sats::RANGE, 5, 5), testing::HasSubstr(text));
    EXPECT_DEATH(Sats(Sats::RANGE, 6, 5), testing::HasSubstr(text));
}

TEST(Satellites_list_DeathTest, a_list_may_not_stay_empty)
{
    using Sats = Satellites_list<5>;
    const char* const text = "util/GPS/Satellites.h:94: Satellites::Satellites_list<NUM>::Satellites_list("
                             "Satellites::Satellites_list<NUM>::type_t, ...) [with int NUM = 5]: Assertion "
                             "`sats.get_size()' failed.";
    EXPECT_DEATH(Sats(Sats::LIST, 0), testing::HasSubstr(text));
    EXPECT_DEATH(Sats(static_cast<Sats::type_t>(2), 1, 2, 3, 0), testing::HasSubstr(text));
    EXPECT_DEATH(Sats(static_cast<Sats::type_t>(-1), 1, 2, 3, 0), testing::HasSubstr(text));
}
