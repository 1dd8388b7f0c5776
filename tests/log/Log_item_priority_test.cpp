#include "util/log/Log_item_priority.h"

#include <QString>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

static_assert(sizeof(Util::Log_item_priority) == 1, "the priority of an item takes 8 bits");
static_assert(std::is_same_v<const QString&, decltype(qstring(Util::Log_item_priority::Info))>);
static_assert(std::is_same_v<const std::string&, decltype(string(Util::Log_item_priority::Info))>);

namespace {

const char* const NAMED[] = {"Invalid", "Info", "Caution", "Warning", "Error", "Critical"};

const char* expected_name(int value)
{
    return value <= 5 ? NAMED[value] : "Invalid";
}

Util::Log_item_priority priority(int value)
{
    return static_cast<Util::Log_item_priority>(value);
}

} // namespace

// First of the file: in a whole run of the program no name has been asked for before.
TEST(Log_item_priority, builds_each_name_once_when_threads_ask_for_it_first_at_the_same_time)
{
    constexpr int THREADS = 4;
    struct Answers {
        std::array<const QString*, 6> qstrings;
        std::array<const std::string*, 6> strings;
        std::array<std::string, 6> texts;
    };
    std::array<Answers, THREADS> answers;
    std::atomic<int> waiting{0};
    std::vector<std::thread> threads;
    for (Answers& mine : answers)
        threads.emplace_back([&mine, &waiting] {
            for (++waiting; waiting < THREADS;)
                std::this_thread::yield();
            for (unsigned value = 0; value < 6; ++value) {
                mine.strings[value] = &string(priority(static_cast<int>(value)));
                mine.qstrings[value] = &qstring(priority(static_cast<int>(value)));
                mine.texts[value] = *mine.strings[value] + mine.qstrings[value]->toStdString();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Answers& each : answers)
        for (unsigned value = 0; value < 6; ++value) {
            EXPECT_EQ(answers[0].strings[value], each.strings[value]);
            EXPECT_EQ(answers[0].qstrings[value], each.qstrings[value]);
            EXPECT_EQ(std::string(NAMED[value]) + NAMED[value], each.texts[value]);
        }
}

TEST(Log_item_priority, numbers_the_five_priorities_from_1)
{
    EXPECT_EQ(0, static_cast<int>(Util::Log_item_priority::Invalid));
    EXPECT_EQ(1, static_cast<int>(Util::Log_item_priority::Info));
    EXPECT_EQ(2, static_cast<int>(Util::Log_item_priority::Caution));
    EXPECT_EQ(3, static_cast<int>(Util::Log_item_priority::Warning));
    EXPECT_EQ(4, static_cast<int>(Util::Log_item_priority::Error));
    EXPECT_EQ(5, static_cast<int>(Util::Log_item_priority::Critical));
}

TEST(Log_item_priority, names_1_to_5_and_calls_every_other_value_Invalid)
{
    for (int value = 0; value <= 255; ++value) {
        SCOPED_TRACE(value);
        EXPECT_EQ(expected_name(value), Util::string(priority(value)));
        EXPECT_EQ(QLatin1String(expected_name(value)), Util::qstring(priority(value)));
    }
}

TEST(Log_item_priority, is_found_without_naming_the_namespace)
{
    EXPECT_EQ("Caution", string(Util::Log_item_priority::Caution));
    EXPECT_EQ(QLatin1String("Caution"), qstring(Util::Log_item_priority::Caution));
}

TEST(Log_item_priority, answers_with_the_same_text_each_time)
{
    for (int value = 0; value <= 255; ++value) {
        SCOPED_TRACE(value);
        EXPECT_EQ(&string(priority(value)), &string(priority(value)));
        EXPECT_EQ(&qstring(priority(value)), &qstring(priority(value)));
    }
}

TEST(Log_item_priority, keeps_six_texts_of_either_kind)
{
    std::set<const std::string*> strings;
    std::set<const QString*> qstrings;
    for (int value = 0; value <= 255; ++value) {
        strings.insert(&string(priority(value)));
        qstrings.insert(&qstring(priority(value)));
    }
    EXPECT_EQ(6U, strings.size());
    EXPECT_EQ(6U, qstrings.size());
}

TEST(Log_item_priority, keeps_the_two_kinds_of_text_apart)
{
    std::set<const void*> texts;
    for (int value = 0; value <= 5; ++value) {
        texts.insert(&string(priority(value)));
        texts.insert(&qstring(priority(value)));
    }
    EXPECT_EQ(12U, texts.size());
}
