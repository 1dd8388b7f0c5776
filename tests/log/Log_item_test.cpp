#include "util/log/Log_item.h"

#include "tests/support/Event_thread.h"
#include "util/log/Log_item_private.h"
#include "util/log/Log_item_sender.h"

#include <QString>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <cinttypes>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using Target_type = Util::Log_item_source::Target_type;
using Priority = Util::Log_item_priority;

static_assert(sizeof(Util::Log_item) == 2 * sizeof(void*), "an item is a shared pointer and nothing else");

// The fields of the shared part in their order, and how wide they are.
using Item_private = Util::Log_item_private;
static_assert(offsetof(Item_private, source) == 0);
static_assert(offsetof(Item_private, source) < offsetof(Item_private, display_type));
static_assert(offsetof(Item_private, display_type) < offsetof(Item_private, message));
static_assert(offsetof(Item_private, message) < offsetof(Item_private, line_number));
static_assert(offsetof(Item_private, line_number) < offsetof(Item_private, priority));
static_assert(offsetof(Item_private, priority) < offsetof(Item_private, force));
static_assert(offsetof(Item_private, force) < offsetof(Item_private, code_file));
static_assert(std::is_same_v<decltype(Item_private::source), Util::Log_item_source>);
static_assert(std::is_signed_v<decltype(Item_private::display_type)> &&
              sizeof(Item_private::display_type) == 4);
static_assert(std::is_same_v<decltype(Item_private::message), std::string>);
static_assert(std::is_signed_v<decltype(Item_private::line_number)> &&
              sizeof(Item_private::line_number) == 4);
static_assert(sizeof(Item_private::priority) == 1 && sizeof(Item_private::force) == 1);
static_assert(std::is_same_v<decltype(Item_private::force), bool>);
static_assert(std::is_same_v<decltype(Item_private::code_file), std::string>);

namespace {

std::atomic<int> allocations{0};

} // namespace

// The program's own, so that a test can count what the library allocates. Not inlined: the compiler would
// take the free() in one for the wrong partner of the other.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1); memory != nullptr)
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

class Log_item : public testing::Test {
protected:
    Application application;
    Util::Log_item_source source{"gps", "fix", 255, Target_type::none};
};

const char* const NULL_TEXT = nullptr;

/// What an empty item's source was when it was first asked for: by a second thread, before main() began.
struct First_sight_of_the_dummy {
    First_sight_of_the_dummy()
    {
        std::thread([this] {
            const Util::Log_item_source source = Util::Log_item().source();
            functionality = source.functionality();
            thread_of_the_sender = source.sender()->thread();
        }).join();
    }
    std::string functionality;
    QThread* thread_of_the_sender = nullptr;
};
const First_sight_of_the_dummy first_sight;

// Longer than what a string keeps inside itself.
const std::string LONG_TEXT(100, 'x');

const std::string& name_of(const std::string (&names)[6], unsigned priority)
{
    return names[priority <= 5 ? priority : 0];
}

} // namespace

TEST_F(Log_item, keeps_what_it_was_built_with)
{
    const Util::Log_item item(source, Priority::Error, true, 17, "lost", 42, "nmea.cpp");
    EXPECT_EQ(Priority::Error, item.priority());
    EXPECT_TRUE(item.force());
    EXPECT_EQ(17, item.displayType());
    EXPECT_EQ(42, item.line_number());
    EXPECT_EQ("lost", item.message_utf8());
    EXPECT_EQ(QString("lost"), item.message_qs());
    EXPECT_EQ("nmea.cpp", item.code_source());
    EXPECT_EQ(source.sender(), item.source().sender());
}

TEST_F(Log_item, is_the_same_whichever_kind_of_text_the_message_is)
{
    const Util::Log_item items[] = {
        {source, Priority::Warning, true, -5, QString("lost"), 42, "nmea.cpp"},
        {source, Priority::Warning, true, -5, std::string("lost"), 42, "nmea.cpp"},
        {source, Priority::Warning, true, -5, "lost", 42, "nmea.cpp"},
    };
    for (const Util::Log_item& item : items) {
        EXPECT_EQ("Warning:nmea.cpp:fix:00000000000000FF:42:lost", item.to_string());
        EXPECT_TRUE(item.force());
        EXPECT_EQ(-5, item.displayType());
        EXPECT_EQ("lost", item.message_utf8());
    }
}

TEST_F(Log_item, takes_a_QString_as_utf8)
{
    // U+00F6, U+20AC and U+1F69C; the bytes are worked out by hand from RFC 3629, section 3
    const Util::Log_item item(source, Priority::Info, false, 0,
                              QString::fromUtf16(u"h\u00F6 \u20AC \U0001F69C"), 1, nullptr);
    EXPECT_EQ("h\xC3\xB6 \xE2\x82\xAC \xF0\x9F\x9A\x9C", item.message_utf8());
    EXPECT_EQ(QString::fromUtf16(u"h\u00F6 \u20AC \U0001F69C"), item.message_qs());
}

TEST_F(Log_item, takes_a_QString_up_to_its_first_NUL)
{
    const QString message = QString::fromUtf16(u"a\u00E9\0b", 4);
    ASSERT_EQ(4, message.size());
    const Util::Log_item item(source, Priority::Info, false, 0, message, 1, nullptr);
    EXPECT_EQ("a\xC3\xA9", item.message_utf8());
    EXPECT_EQ(3U, item.message_utf8().size());
}

TEST_F(Log_item, takes_a_null_QString_as_the_empty_message)
{
    const Util::Log_item item(source, Priority::Info, false, 0, QString(), 1, nullptr);
    EXPECT_EQ("", item.message_utf8());
    EXPECT_EQ("Info:gps:fix:00000000000000FF:1:", item.to_string());
}

TEST_F(Log_item, takes_a_string_whole_with_its_NULs)
{
    const std::string message("\0a\0b\0", 5);
    const Util::Log_item item(source, Priority::Info, false, 0, message, 1, nullptr);
    EXPECT_EQ(message, item.message_utf8());
    EXPECT_EQ("Info:gps:fix:00000000000000FF:1:" + message, item.to_string());
}

TEST_F(Log_item, takes_the_bytes_of_a_string_unchanged_though_they_are_no_utf8)
{
    std::string message;
    for (int byte = 0; byte <= 255; ++byte)
        message += static_cast<char>(byte);
    EXPECT_EQ(message, Util::Log_item(source, Priority::Info, false, 0, message, 1, nullptr).message_utf8());
}

TEST_F(Log_item, takes_a_pointer_up_to_the_NUL)
{
    const char message[] = "h\xC3\xB6\0not this";
    const Util::Log_item item(source, Priority::Info, false, 0, message, 1, nullptr);
    EXPECT_EQ("h\xC3\xB6", item.message_utf8());
}

TEST_F(Log_item, copies_the_texts_behind_pointers)
{
    char message[] = "lost";
    char code_file[] = "nmea.cpp";
    const Util::Log_item item(source, Priority::Info, false, 0, message, 1, code_file);
    message[0] = code_file[0] = 'X';
    EXPECT_EQ("lost", item.message_utf8());
    EXPECT_EQ("nmea.cpp", item.code_source());
}

TEST_F(Log_item, decodes_the_message_up_to_its_first_NUL)
{
    const std::string message("h\xC3\xB6\0b", 5);
    const Util::Log_item item(source, Priority::Info, false, 0, message, 1, nullptr);
    EXPECT_EQ(QString::fromUtf16(u"h\u00F6"), item.message_qs());
    EXPECT_EQ(2, item.message_qs().size());
}

TEST_F(Log_item, answers_an_empty_but_not_a_null_QString_for_an_empty_message)
{
    const Util::Log_item item(source, Priority::Info, false, 0, "", 1, nullptr);
    EXPECT_TRUE(item.message_qs().isEmpty());
    EXPECT_FALSE(item.message_qs().isNull());
}

TEST_F(Log_item, refuses_a_null_message_and_keeps_hold_of_nothing)
{
    EXPECT_THROW(Util::Log_item(source, Priority::Info, false, 0, NULL_TEXT, 1, nullptr), std::logic_error);
    EXPECT_THROW(Util::Log_item(source, Priority::Info, false, 0, NULL_TEXT, 1, "nmea.cpp"),
                 std::logic_error);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    source = Util::Log_item_source(); // the last handle: a half-made item would hold another
    Application::run_event_loop();
    EXPECT_TRUE(sender.isNull());
}

TEST_F(Log_item, names_the_sources_code_when_it_has_no_code_file)
{
    const QString qstring("lost");
    const std::string string("lost");
    for (const char* const code_file : {NULL_TEXT, ""}) {
        EXPECT_EQ("gps",
                  Util::Log_item(source, Priority::Info, false, 0, "lost", 1, code_file).code_source());
        EXPECT_EQ("gps",
                  Util::Log_item(source, Priority::Info, false, 0, string, 1, code_file).code_source());
        EXPECT_EQ("gps",
                  Util::Log_item(source, Priority::Info, false, 0, qstring, 1, code_file).code_source());
    }
}

TEST_F(Log_item, names_its_code_file_when_it_has_one)
{
    const QString qstring("lost");
    const std::string string("lost");
    EXPECT_EQ("a", Util::Log_item(source, Priority::Info, false, 0, "lost", 1, "a").code_source());
    EXPECT_EQ("a", Util::Log_item(source, Priority::Info, false, 0, string, 1, "a").code_source());
    EXPECT_EQ("a", Util::Log_item(source, Priority::Info, false, 0, qstring, 1, "a").code_source());
    EXPECT_EQ("gps", source.code_source());
}

TEST_F(Log_item, has_an_answer_for_everything_while_empty)
{
    const Util::Log_item item;
    EXPECT_EQ(0, static_cast<int>(item.priority()));
    EXPECT_FALSE(item.force());
    EXPECT_EQ(-1, item.displayType());
    EXPECT_EQ(-1, item.line_number());
    EXPECT_EQ("", item.message_utf8());
    EXPECT_TRUE(item.message_qs().isNull());
    EXPECT_EQ("", item.code_source());
    EXPECT_EQ("Invalid::Dummy:0000000000000000:-1:", item.to_string());
}

TEST_F(Log_item, answers_one_static_empty_text_while_empty)
{
    const Util::Log_item item;
    EXPECT_EQ(&item.message_utf8(), &item.code_source());
    EXPECT_EQ(&item.message_utf8(), &Util::Log_item().message_utf8());
}

TEST_F(Log_item, answers_one_valid_dummy_source_while_empty)
{
    const Util::Log_item item;
    EXPECT_EQ("Dummy", item.source().code_source());
    EXPECT_EQ("Dummy", item.source().functionality());
    EXPECT_EQ(0U, item.source().target());
    EXPECT_EQ(4, static_cast<int>(item.source().target_type()));
    EXPECT_NE(nullptr, item.source().sender());
    EXPECT_EQ(&item.source(), &Util::Log_item().source());
}

TEST_F(Log_item, has_its_dummy_source_before_the_program_initialises_its_own_objects)
{
    EXPECT_EQ("Dummy", first_sight.functionality);
}

TEST_F(Log_item, has_its_dummy_source_built_in_the_main_thread_whoever_asks_first)
{
    EXPECT_EQ(QThread::currentThread(), first_sight.thread_of_the_sender);
    const QThread* seen_from_a_thread = nullptr;
    std::thread([&] { seen_from_a_thread = Util::Log_item().source().sender()->thread(); }).join();
    EXPECT_EQ(QThread::currentThread(), seen_from_a_thread);
}

TEST_F(Log_item, of_an_invalid_source_is_not_empty)
{
    const Util::Log_item item(Util::Log_item_source(), Priority::Critical, true, 3, "lost", 7, nullptr);
    EXPECT_EQ("", item.code_source());
    EXPECT_EQ("", item.source().functionality());
    EXPECT_EQ("Critical:::0000000000000000:7:lost", item.to_string());
    EXPECT_EQ(4, static_cast<int>(item.source().target_type()));
}

TEST_F(Log_item, keeps_every_priority_and_prints_those_without_name_as_Invalid)
{
    const char* const names[] = {"Invalid", "Info", "Caution", "Warning", "Error", "Critical"};
    for (int value = 0; value <= 255; ++value) {
        SCOPED_TRACE(value);
        const Util::Log_item item(source, static_cast<Priority>(value), false, 0, "", 0, nullptr);
        EXPECT_EQ(value, static_cast<int>(item.priority()));
        EXPECT_EQ(std::string(names[value <= 5 ? value : 0]) + ":gps:fix:00000000000000FF:0:",
                  item.to_string());
    }
}

TEST_F(Log_item, keeps_and_prints_any_line_number)
{
    const std::pair<int, const char*> lines[] = {{0, "0"},
                                                 {-1, "-1"},
                                                 {9, "9"},
                                                 {10, "10"},
                                                 {INT_MAX, "2147483647"},
                                                 {INT_MIN, "-2147483648"},
                                                 {INT_MIN + 1, "-2147483647"}};
    for (const auto& [line, text] : lines) {
        const Util::Log_item item(source, Priority::Info, false, 0, "m", line, nullptr);
        EXPECT_EQ(line, item.line_number());
        EXPECT_EQ(std::string("Info:gps:fix:00000000000000FF:") + text + ":m", item.to_string());
    }
}

TEST_F(Log_item, keeps_any_display_type)
{
    for (const int type : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(type, Util::Log_item(source, Priority::Info, false, type, "", 1, nullptr).displayType());
}

TEST_F(Log_item, prints_sixteen_digits_of_the_target)
{
    const std::pair<unsigned long long, const char*> targets[] = {{0, "0000000000000000"},
                                                                  {0x1A2B, "0000000000001A2B"},
                                                                  {255, "00000000000000FF"},
                                                                  {0x123456789ABCDEF0, "123456789ABCDEF0"},
                                                                  {0x8000000000000000, "8000000000000000"},
                                                                  {0xFFFFFFFFFFFFFFFF, "FFFFFFFFFFFFFFFF"}};
    for (const auto& [target, text] : targets) {
        const Util::Log_item_source of_target("a", "b", target, Target_type::none);
        EXPECT_EQ(std::string("Info:a:b:") + text + ":1:m",
                  Util::Log_item(of_target, Priority::Info, false, 0, "m", 1, nullptr).to_string());
    }
}

TEST_F(Log_item, prints_the_worked_example)
{
    const Util::Log_item item(source, static_cast<Priority>(3), false, 0, "lost", 42, nullptr);
    EXPECT_EQ("Warning:gps:fix:00000000000000FF:42:lost", item.to_string());
}

TEST_F(Log_item, prints_colons_newlines_and_percent_signs_unchanged)
{
    const Util::Log_item_source odd("C:\\gps", "a:b\n", 1, Target_type::none);
    const Util::Log_item item(odd, Priority::Info, false, 0, "x:y\n\t%s%n\\", 1, nullptr);
    EXPECT_EQ("Info:C:\\gps:a:b\n:0000000000000001:1:x:y\n\t%s%n\\", item.to_string());
}

TEST_F(Log_item, prints_what_another_way_prints_for_random_items)
{
    constexpr unsigned SEED = 20240611;
    const std::string names[] = {"Invalid", "Info", "Caution", "Warning", "Error", "Critical"};
    std::mt19937_64 random(SEED);
    const auto text = [&random] {
        std::string bytes(static_cast<unsigned>(random() % 24), ' ');
        for (char& byte : bytes)
            byte = static_cast<char>(1 + random() % 255);
        return bytes;
    };
    for (int i = 0; i < 10000; ++i) {
        const std::string code = text();
        const std::string functionality = text();
        const std::string code_file = random() % 2 != 0 ? text() : "";
        std::string message = text();
        const std::uint64_t target = random() >> (random() % 64);
        const auto priority = static_cast<unsigned>(random() % (random() % 2 != 0 ? 7 : 256));
        const int line = static_cast<int>(static_cast<std::uint32_t>(random())) >> (random() % 32);

        char middle[64];
        std::snprintf(middle, sizeof middle, ":%016" PRIX64 ":%d:", target, line);
        const std::string expected = name_of(names, priority) + ":" + (code_file.empty() ? code : code_file) +
                                     ":" + functionality + middle + message;

        const Util::Log_item_source from(code.c_str(), functionality.c_str(), target, Target_type::none);
        const char* const file = code_file.empty() && random() % 2 != 0 ? nullptr : code_file.c_str();
        const auto as = static_cast<Priority>(priority);
        const bool as_pointer = random() % 2 != 0;
        const Util::Log_item item = as_pointer
                                        ? Util::Log_item(from, as, false, 0, message.c_str(), line, file)
                                        : Util::Log_item(from, as, false, 0, message, line, file);
        ASSERT_EQ(expected, item.to_string()) << "seed " << SEED << ", case " << i;
    }
}

TEST_F(Log_item, prints_texts_of_any_length)
{
    for (const std::size_t length : {15U, 16U, 1000U, 100000U}) {
        const std::string code(length, 'c');
        const std::string functionality(length, 'f');
        const std::string message(length, 'm');
        const Util::Log_item_source from(code.c_str(), functionality.c_str(), 1, Target_type::none);
        EXPECT_EQ("Info:" + code + ":" + functionality + ":0000000000000001:1:" + message,
                  Util::Log_item(from, Priority::Info, false, 0, message, 1, nullptr).to_string());
    }
}

TEST_F(Log_item, shares_everything_with_its_copies)
{
    const Util::Log_item item(source, Priority::Info, true, 2, LONG_TEXT, 3, "nmea.cpp");
    const Util::Log_item copy(item);
    Util::Log_item assigned;
    assigned = item;
    for (const Util::Log_item& each : {copy, assigned}) {
        EXPECT_EQ(&item.message_utf8(), &each.message_utf8());
        EXPECT_EQ(&item.code_source(), &each.code_source());
        EXPECT_EQ(&item.source(), &each.source());
        EXPECT_EQ(item.to_string(), each.to_string());
    }
}

TEST_F(Log_item, shares_the_texts_of_its_source)
{
    const Util::Log_item item(source, Priority::Info, false, 0, "lost", 1, nullptr);
    EXPECT_EQ(&source.code_source(), &item.code_source());
    EXPECT_EQ(&source.functionality(), &item.source().functionality());
}

TEST_F(Log_item, allocates_nothing_when_it_is_copied)
{
    const Util::Log_item item(source, Priority::Info, false, 0, LONG_TEXT, 3, LONG_TEXT.c_str());
    Util::Log_item assigned;
    const int before = allocations;
    {
        const Util::Log_item copy(item);
        assigned = copy;
        const Util::Log_item_source source_copy(copy.source());
    }
    EXPECT_EQ(before, allocations);
    EXPECT_EQ(LONG_TEXT, assigned.message_utf8());
}

TEST_F(Log_item, copies_no_text_of_its_source)
{
    const Util::Log_item_source wordy(LONG_TEXT.c_str(), LONG_TEXT.c_str(), 1, Target_type::none);
    const int before = allocations;
    const Util::Log_item item(wordy, Priority::Info, false, 0, "short", 3, nullptr);
    EXPECT_EQ(before + 1, allocations); // its own shared part
}

TEST_F(Log_item, outlives_the_item_it_was_copied_from)
{
    Util::Log_item copy;
    {
        const Util::Log_item item(source, Priority::Info, false, 0, LONG_TEXT, 3, nullptr);
        copy = item;
    }
    EXPECT_EQ("Info:gps:fix:00000000000000FF:3:" + LONG_TEXT, copy.to_string());
}

TEST_F(Log_item, outlives_its_source_handle)
{
    Util::Log_item item(source, Priority::Info, false, 0, "lost", 3, nullptr);
    const QPointer<Util::Log_item_sender> sender = source.sender();
    source = Util::Log_item_source();
    Application::run_event_loop();
    EXPECT_EQ("Info:gps:fix:00000000000000FF:3:lost", item.to_string());
    EXPECT_FALSE(sender.isNull());
}

TEST_F(Log_item, stays_as_it_was_when_its_source_handle_is_given_another_source)
{
    const Util::Log_item item(source, Priority::Info, false, 0, "lost", 3, nullptr);
    source = Util::Log_item_source("radio", "link", 1, Target_type::none);
    EXPECT_EQ("Info:gps:fix:00000000000000FF:3:lost", item.to_string());
}

TEST_F(Log_item, is_read_and_copied_by_many_threads_at_once)
{
    constexpr int THREADS = 4;
    constexpr int READS = 1000;
    const Util::Log_item item(source, Priority::Info, false, 0, LONG_TEXT, 3, nullptr);
    const std::string expected = "Info:gps:fix:00000000000000FF:3:" + LONG_TEXT;
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < READS; ++n) {
                const Util::Log_item copy(item);
                if (copy.to_string() == expected && Util::Log_item().source().functionality() == "Dummy")
                    ++right;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(THREADS * READS, right);
}
