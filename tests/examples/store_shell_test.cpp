#include "tests/support/Child_process.h"
#include "tests/support/Temporary_folder.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

/// Runs the program on a store of the test's own, under the emulator where there is one.
class store_shell : public testing::Test {
protected:
    /// @param out  standard output where it is not to be collected; the caller closes it
    Outcome run_words(const Words& arguments, const std::string& input = "", int out = -1) const
    {
        const std::string file = input_from.empty() ? folder.file("in", input) : input_from;
        const int in = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        const Outcome outcome =
            Child_process(STORE_SHELL_EMULATOR, STORE_SHELL, arguments, {in, out}).finish();
        close(in);
        return outcome;
    }

    Outcome run(const Words& command, const std::string& input = "", int out = -1) const
    {
        Words words = {store()};
        words.insert(words.end(), command.begin(), command.end());
        return run_words(words, input, out);
    }

    std::string path(const std::string& name) const { return folder.path(name); }
    std::string store(const std::string& name = "") const
    {
        return path("store") + (name.empty() ? "" : "/" + name);
    }

    static std::string content(const std::string& file)
    {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }
    void write(const std::string& name, const std::string& bytes) const
    {
        fs::create_directory(store());
        std::ofstream(store(name), std::ios::binary) << bytes;
    }

    std::string input_from; ///< instead of what run() is given

private:
    const Temporary_folder folder;
};

void expect_silent_success(const Outcome& outcome)
{
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ("", outcome.err);
}

std::string all_bytes()
{
    std::string bytes;
    for (int round = 0; round < 40; ++round)
        for (int byte = 0; byte < 256; ++byte)
            bytes.push_back(static_cast<char>(byte));
    return bytes;
}

TEST_F(store_shell, makes_the_store_and_lists_nothing_in_it)
{
    expect_silent_success(run({"list"}));
    EXPECT_TRUE(fs::is_directory(store()));
}

TEST_F(store_shell, shows_what_it_appended_byte_for_byte)
{
    expect_silent_success(run({"append", "log"}, all_bytes()));
    expect_silent_success(run({"append", "log"}, "and more"));
    expect_silent_success(run({"append", "log"}, ""));
    EXPECT_EQ(all_bytes() + "and more", content(store("log")));
    const Outcome outcome = run({"show", "log"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(all_bytes() + "and more", outcome.out);
    EXPECT_EQ("", outcome.err);
}

TEST_F(store_shell, appends_what_comes_through_a_pipe_in_pieces)
{
    input_from = path("pipe");
    ASSERT_EQ(0, mkfifo(input_from.c_str(), 0600));
    const pid_t feeder = fork();
    if (feeder == 0) {
        const int pipe = open(input_from.c_str(), O_WRONLY);
        for (int i = 0; i < 100; ++i)
            if (::write(pipe, "piece ", 6) != 6)
                _exit(1);
        _exit(0);
    }
    expect_silent_success(run({"append", "log"}));
    EXPECT_EQ(feeder, waitpid(feeder, nullptr, 0));
    EXPECT_EQ(600U, content(store("log")).size());
}

TEST_F(store_shell, lists_size_time_and_name)
{
    write("a.log", "abc");
    write("b", std::string(123456, 'b'));
    fs::create_directory(store("folder"));
    for (const auto& [name, seconds] : {std::pair("a.log", 1775023964), {"b", 0}}) {
        const timespec both[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, store(name).c_str(), both, 0));
    }
    const Outcome outcome = run({"list"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    const std::string a = "         3  2026-04-01 06:12:44  a.log\n";
    const std::string b = "    123456  1970-01-01 00:00:00  b\n";
    EXPECT_TRUE(outcome.out == a + b || outcome.out == b + a) << outcome.out; // in the directory's order
}

TEST_F(store_shell, removes_a_file)
{
    write("a", "abc");
    write("b", "def");
    expect_silent_success(run({"remove", "a"}));
    EXPECT_FALSE(fs::exists(store("a")));
    EXPECT_EQ("def", content(store("b")));
}

TEST_F(store_shell, ends_with_status_1_where_there_is_no_such_file)
{
    const Outcome shown = run({"show", "a"});
    EXPECT_EQ(1, shown.status);
    EXPECT_EQ("ERROR: pcfOpenRead '" + store("a") +
                  "' failed: No such file or directory\nstore_shell: 'a' cannot be opened.\n",
              shown.err);
    EXPECT_EQ("", shown.out);
    const Outcome removed = run({"remove", "a"});
    EXPECT_EQ(1, removed.status);
    EXPECT_EQ("store_shell: there is no file 'a'.\n", removed.err);
}

TEST_F(store_shell, ends_with_status_1_on_what_is_no_file)
{
    write("a", "abc");
    fs::create_directory(store("folder"));
    const std::pair<Words, const char*> cases[] = {
        {{"show", "folder"},
         "ERROR: pcfRead failed: Is a directory\nstore_shell: 'folder' cannot be read.\n"},
        {{"append", "folder"},
         "ERROR: pcfCreateWrite 'folder' failed: Is a directory\nstore_shell: 'folder' cannot be opened.\n"},
        {{"remove", "folder"}, "store_shell: 'folder' cannot be removed.\n"},
        {{"remove", ".."}, "store_shell: '..' cannot be removed.\n"}};
    for (const auto& [command, message] : cases) {
        const Outcome outcome = run(command);
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ(message, outcome.err);
        EXPECT_EQ("", outcome.out);
    }
    EXPECT_EQ("abc", content(store("a")));
}

TEST_F(store_shell, ends_with_status_1_when_the_disk_is_full)
{
    write("a", "abc");
    fs::create_symlink("/dev/full", store("full"));
    const Outcome outcome = run({"append", "full"}, "more");
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(outcome.err, HasSubstr("ERROR: pcfWrite failed :No space left on device\n"));
    EXPECT_THAT(outcome.err,
                HasSubstr("store_shell: 'full' cannot be written to the end; what was written stays.\n"));
}

TEST_F(store_shell, ends_with_status_1_where_there_can_be_no_store)
{
    write("a", "abc");
    const std::pair<std::string, std::string> cases[] = {
        {store("a"), "PCF: IS NOT DIRECTORY\n"},
        {path("missing/store"), "PCF: Could not create dir " + path("missing/store") + ": 2\n"}};
    for (const auto& [dir, reason] : cases)
        for (const Words& command : {Words{"list"}, {"show", "a"}, {"append", "a"}, {"remove", "a"}}) {
            Words words = {dir};
            words.insert(words.end(), command.begin(), command.end());
            const Outcome outcome = run_words(words, "more");
            EXPECT_EQ(1, outcome.status);
            EXPECT_EQ(reason + "store_shell: '" + dir + "' cannot be used as a store.\n", outcome.err);
        }
    EXPECT_EQ("abc", content(store("a")));
}

TEST_F(store_shell, ends_with_status_1_when_a_stream_cannot_be_used)
{
    write("a", "abc");
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    for (const Words& command : {Words{"list"}, {"show", "a"}}) {
        const Outcome outcome = run(command, "", full);
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ("store_shell: standard output cannot be written: No space left on device.\n", outcome.err);
    }
    EXPECT_EQ(1, run_words({"--help"}, "", full).status);
    close(full);
    input_from = store(); // a directory
    const Outcome outcome = run({"append", "a"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("store_shell: standard input cannot be read: Is a directory.\n", outcome.err);
    EXPECT_EQ("abc", content(store("a")));
}

TEST_F(store_shell, ends_with_status_2_on_wrong_usage_and_makes_no_store)
{
    const std::pair<Words, const char*> wrong[] = {
        {{}, "it takes a directory and a command."},
        {{store()}, "it takes a directory and a command."},
        {{store(), "copy"}, "there is no command 'copy'."},
        {{store(), "--help"}, "there is no command '--help'."},
        {{store(), "list", "a"}, "list takes no name."},
        {{store(), "show"}, "show takes the name of one file."},
        {{store(), "append"}, "append takes the name of one file."},
        {{store(), "remove", "a", "b"}, "remove takes the name of one file."},
        {{store(), "show", ""}, "'' is no name of a file."},
        {{store(), "show", "../out"}, "'../out' is no name of a file."},
        {{store(), "append", "a b"}, "'a b' is no name of a file."},
        {{store(), "remove", "a(1)"}, "'a(1)' is no name of a file."}};
    for (const auto& [arguments, message] : wrong) {
        const Outcome outcome = run_words(arguments);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ(std::string("store_shell: ") + message + " See store_shell --help.\n", outcome.err);
        EXPECT_EQ("", outcome.out);
    }
    EXPECT_FALSE(fs::exists(store()));
}

TEST_F(store_shell, tells_its_usage)
{
    const Outcome outcome = run_words({"--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    for (const char* word : {"DIR", "NAME", "list", "show", "append", "remove", "--help"})
        EXPECT_THAT(outcome.out, HasSubstr(word));
}

TEST_F(store_shell, keeps_a_store_as_a_map_of_names_to_contents)
{
    std::map<std::string, std::string> files;
    std::mt19937 random(86);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(testing::Message() << "seed 86, round " << round);
        const std::string name = "n" + std::to_string(random() % 3);
        switch (random() % 4) {
        case 0: {
            const std::string bytes(random() % 10000, static_cast<char>('a' + random() % 26));
            expect_silent_success(run({"append", name}, bytes));
            files[name] += bytes;
            break;
        }
        case 1:
            EXPECT_EQ(files.erase(name) != 0 ? 0 : 1, run({"remove", name}).status);
            break;
        case 2: {
            const Outcome outcome = run({"show", name});
            EXPECT_EQ(files.count(name) != 0 ? 0 : 1, outcome.status);
            EXPECT_EQ(files.count(name) != 0 ? files[name] : "", outcome.out);
            break;
        }
        default: {
            std::istringstream lines(run({"list"}).out);
            std::map<std::string, std::size_t> listed;
            std::size_t size = 0;
            for (std::string day, time, file; lines >> size >> day >> time >> file;)
                listed[file] = size;
            std::map<std::string, std::size_t> expected;
            for (const auto& [file, bytes] : files)
                expected[file] = bytes.size();
            EXPECT_EQ(expected, listed);
        }
        }
    }
}

} // namespace
