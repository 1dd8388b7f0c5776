#include "tests/support/Child_process.h"
#include "tests/support/Temporary_folder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using testing::HasSubstr;

namespace {

using Lines = std::vector<std::string>;

Lines lines_of(const std::string& text)
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// A report with its addresses replaced by A, B ... as they come, and the instances, which come in no
/// particular order, sorted.
Lines normal(Lines lines)
{
    const auto is_instance = [](const std::string& line) { return line.rfind("    Inst ", 0) == 0; };
    std::map<std::uintptr_t, std::string> names;
    for (auto line = lines.begin(); line != lines.end(); ++line) {
        const auto end = std::find_if_not(line, lines.end(), is_instance);
        std::sort(line, end);
        std::smatch found;
        while (std::regex_search(*line, found, std::regex("[0-9]{5,}"))) {
            // The two trackers write the same address in two ways where it has 32 bits.
            const auto address = static_cast<std::uintptr_t>(std::stoull(found.str()));
            const std::string next(1, static_cast<char>('A' + names.size()));
            const std::string name = names.emplace(address, next).first->second;
            line->replace(static_cast<std::size_t>(found.position()),
                          static_cast<std::size_t>(found.length()), name);
        }
    }
    return lines;
}

/// Runs the program on the offscreen platform, under the emulator where there is one.
class Leak_hunt : public testing::Test {
protected:
    Child_process start(const Lines& arguments) const
    {
        // For the leak checker: Qt's offscreen platform never deletes the screen that it makes up, and the
        // tracker means to leave its timer.
        const std::string leaks =
            folder.file("leaks", "leak:libqoffscreen.so\nleak:do_wait_before_print_and_delete\n");
        Surroundings surroundings;
        surroundings.variables = {{"LSAN_OPTIONS", "suppressions=" + leaks + ":print_suppressions=0"},
                                  {"QT_QPA_PLATFORM", "offscreen"}};
        return {LEAK_HUNT_EMULATOR, LEAK_HUNT, arguments, surroundings};
    }
    Outcome run(const Lines& arguments) const { return start(arguments).finish(); }

private:
    const Temporary_folder folder;
};

} // namespace

TEST_F(Leak_hunt, finds_what_the_settings_leave_behind)
{
    const Outcome outcome = run({"--demo"});
    EXPECT_EQ(0, outcome.status) << outcome.err;
    const Lines expected = {
        R"(Dialogs: Instances at Construct detail="the button was clicked"? obj="Settings_dialog"(A))",
        R"(    Inst 0 of  obj="Settings_dialog"(A))",
        R"(Dialogs: Instances at Construct detail="for the settings"? obj="Hint"(B))",
        R"(    Inst 0 of  obj="Settings_dialog"(A))",
        R"(    Inst 1 of  obj="Hint"(B))",
        R"(Dialogs: Instances at Destruct detail="QObject_instance_tracker::handle_delete"? obj="QWidget"(A))",
        R"(    Inst 1 of  obj="Hint"(B))",
        R"(Widget track A Settings_dialog total=2 objs={)",
        R"(Hint:B:QWidget)",
        R"(    QLabel:C:Hint)",
        R"(})",
        R"(Dialogs: Instances at Quit)",
        R"(    Inst 1 of  obj="Hint"(B))"};
    EXPECT_EQ(expected, normal(lines_of(outcome.out)));
}

TEST_F(Leak_hunt, prints_what_its_description_shows)
{
    std::ostringstream description;
    description << std::ifstream(QUARVEL_TESTS_DIR "/../examples/leak_hunt/README.md").rdbuf();
    Lines shown;
    for (const std::string& line : lines_of(description.str()))
        if (line.rfind("    ", 0) == 0 && line.rfind("    leak_hunt", 0) != 0)
            shown.push_back(line.substr(4));
    ASSERT_EQ(13U, shown.size());
    EXPECT_EQ(normal(shown), normal(lines_of(run({"--demo"}).out)));
}

TEST_F(Leak_hunt, finds_nothing_when_it_is_mended)
{
    const Outcome outcome = run({"--mended", "--demo"});
    EXPECT_EQ(0, outcome.status) << outcome.err;
    const Lines lines = normal(lines_of(outcome.out));
    ASSERT_EQ(11U, lines.size()) << outcome.out;
    EXPECT_EQ(Lines({"Widget track A Settings_dialog total=0 objs={", "}", "Dialogs: Instances at Quit"}),
              Lines(lines.end() - 3, lines.end()));
}

TEST_F(Leak_hunt, waits_for_its_user_without_the_demo)
{
    const Child_process program = start({});
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(program.runs()) << "it ended by itself";
    EXPECT_EQ("", program.out());
}

TEST_F(Leak_hunt, tells_its_usage)
{
    const Outcome outcome = run({"--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    for (const char* word : {"--demo", "--mended", "--help"})
        EXPECT_THAT(outcome.out, HasSubstr(word));
}

TEST_F(Leak_hunt, ends_with_status_2_on_wrong_usage)
{
    for (const Lines& arguments : {Lines{"--dmeo"}, {"file"}, {"--demo", "-x"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ("", outcome.out);
        EXPECT_THAT(outcome.err, HasSubstr("usage: leak_hunt"));
    }
}
