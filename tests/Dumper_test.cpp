#include "util/Dumper.h"

#include "platform/Debug.h"

#include <gmock/gmock.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <type_traits>
#include <vector>

namespace {

std::vector<std::string> pieces;  // what every debug print wrote
std::vector<std::string> formats; // and the format it was given

} // namespace

// The program's own debug print answers in place of the platform's, so every call is seen.
void Debug::Print::dprint(const char* format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    pieces.emplace_back(text);
    formats.emplace_back(format);
}

namespace {

using Debug::Debug_dumper;
using Debug::Dumper;
using testing::ElementsAre;

static_assert(std::is_abstract_v<Dumper> && std::has_virtual_destructor_v<Dumper>);
static_assert(sizeof(Dumper) == sizeof(void*) && sizeof(Debug_dumper) == 3 * sizeof(void*));
static_assert(std::is_same_v<bool (Dumper::*)(const char*), decltype(&Dumper::child_start)>);

class Dump : public testing::Test {
protected:
    Dump()
    {
        pieces.clear();
        formats.clear();
    }

    static std::string text() { return std::accumulate(pieces.begin(), pieces.end(), std::string()); }
};

/// The slot of the virtual table that a pointer to a virtual member names, in the Itanium C++ ABI and ARM's:
/// the offset in bytes, with a lowest bit that one of them sets.
template <typename MEMBER>
std::size_t slot(MEMBER member)
{
    std::uintptr_t parts[2];
    static_assert(sizeof parts == sizeof member);
    std::memcpy(parts, &member, sizeof parts);
    return (parts[0] & ~std::uintptr_t{1}) / sizeof(void*);
}

/// An object that describes itself through whatever dumper it gets.
void describe(Dumper& dumper)
{
    if (dumper.child_start("pos")) {
        dumper.print_item("x", "1");
        dumper.print_item("y", "2");
        dumper.child_end("pos");
    }
    dumper.print_item("ok", "1");
}

} // namespace

TEST(Dumper, has_its_operations_in_the_order_of_the_slots_behind_the_destructors_two)
{
    EXPECT_EQ(2U, slot(&Dumper::child_start));
    EXPECT_EQ(3U, slot(&Dumper::child_end));
    EXPECT_EQ(4U, slot(&Dumper::print_item));
}

TEST_F(Dump, keeps_its_fields_in_order)
{
    const Debug_dumper dumper(true, "");
    bool flags[2];
    std::memcpy(flags, reinterpret_cast<const char*>(&dumper) + sizeof(void*), sizeof flags);
    EXPECT_TRUE(flags[0]);
    EXPECT_TRUE(flags[1]);
    const Debug_dumper nameless(false, "");
    std::memcpy(flags, reinterpret_cast<const char*>(&nameless) + sizeof(void*), sizeof flags);
    EXPECT_FALSE(flags[0]);
    EXPECT_TRUE(flags[1]);
}

TEST_F(Dump, prints_nested_items_in_braces)
{
    Debug_dumper dumper(true, nullptr);
    describe(dumper);
    EXPECT_EQ("pos={x=1,y=2},ok=1", text());
}

TEST_F(Dump, leaves_names_out_when_asked_to)
{
    Debug_dumper dumper(false, nullptr);
    describe(dumper);
    EXPECT_EQ("{1,2},1", text());
}

TEST_F(Dump, separates_items_and_not_the_first)
{
    Debug_dumper dumper(true, nullptr);
    dumper.print_item("a", "1");
    EXPECT_EQ("a=1", text());
    dumper.print_item("b", "2");
    EXPECT_EQ("a=1,b=2", text());
}

TEST_F(Dump, separates_a_child_from_the_item_before_it)
{
    Debug_dumper dumper(true, nullptr);
    dumper.print_item("a", "1");
    dumper.child_start("p");
    dumper.child_start("q");
    dumper.print_item("x", "1");
    dumper.child_end("q");
    dumper.child_end("p");
    dumper.child_start("r");
    dumper.child_end("r");
    EXPECT_EQ("a=1,p={q={x=1}},r={}", text());
}

TEST_F(Dump, puts_nothing_between_an_empty_child_and_what_follows)
{
    Debug_dumper dumper(true, nullptr);
    dumper.child_start("e");
    dumper.child_end("e");
    dumper.print_item("k", "2");
    dumper.print_item("l", "3");
    EXPECT_EQ("e={}k=2,l=3", text());
}

TEST_F(Dump, sends_every_piece_through_one_call)
{
    Debug_dumper dumper(true, nullptr);
    dumper.print_item("a", "1");
    EXPECT_THAT(pieces, ElementsAre("a=", "1"));
    dumper.child_start("p");
    EXPECT_THAT(pieces, ElementsAre("a=", "1", ",", "p={"));
    dumper.child_end("p");
    EXPECT_THAT(pieces, ElementsAre("a=", "1", ",", "p={", "}"));
    EXPECT_THAT(formats, ElementsAre("%s=", "1", ",", "%s={", "}"));
}

TEST_F(Dump, sends_only_values_and_braces_without_names)
{
    Debug_dumper dumper(false, nullptr);
    dumper.child_start(nullptr);
    dumper.print_item(nullptr, "1");
    dumper.print_item(nullptr, "2");
    dumper.child_end(nullptr);
    EXPECT_THAT(formats, ElementsAre("{", "1", ",", "2", "}"));
}

TEST_F(Dump, takes_names_as_text_and_values_as_format)
{
    Debug_dumper dumper(true, nullptr);
    dumper.child_start("100%%");
    dumper.print_item("5%d", "50%%");
    EXPECT_THAT(pieces, ElementsAre("100%%={", "5%d=", "50%"));
}

TEST_F(Dump, says_yes_to_every_child)
{
    Debug_dumper dumper(false, nullptr);
    EXPECT_TRUE(dumper.child_start("p"));
    EXPECT_TRUE(dumper.child_start("q"));
}

TEST_F(Dump, ends_with_the_trailer_when_it_goes_out_of_scope)
{
    {
        Debug_dumper dumper(true, " 100%%\n");
        dumper.print_item("a", "1");
        EXPECT_EQ("a=1", text());
    }
    EXPECT_EQ("a=1 100%\n", text());
    EXPECT_THAT(formats, ElementsAre("%s=", "1", " 100%%\n"));
}

TEST_F(Dump, deleted_through_its_interface_prints_the_trailer_too)
{
    Dumper* const dumper = new Debug_dumper(true, "\n");
    delete dumper;
    EXPECT_THAT(pieces, ElementsAre("\n"));
}

TEST_F(Dump, ends_with_nothing_when_there_is_no_trailer)
{
    {
        Debug_dumper dumper(true, nullptr);
        dumper.print_item("a", "1");
    }
    EXPECT_THAT(pieces, ElementsAre("a=", "1"));
}
