#include "util/rtems_compat/compat_cfile.h"

#include "util/rtems_compat/compat_pcfile.h"

#include "tests/support/Fresh_process.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Open_descriptors.h"
#include "tests/support/Recorded_open.h"
#include "tests/support/Temporary_folder.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

const int BAD_SLOTS[] = {-1, 2, 3, INT_MAX, INT_MIN};

using Scratch = Temporary_folder;

/// In a process where no slot was ever used, with the store mounted on an empty folder; nothing may be
/// printed.
template <typename BODY>
void fresh(BODY body)
{
    const Scratch scratch;
    in_a_fresh_process([&] {
        ASSERT_TRUE(pcfIsMounted(scratch.path().c_str()));
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        body(scratch);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ("", testing::internal::GetCapturedStderr());
        if (testing::Test::HasFailure())
            std::cout << out; // which tells of the failures
        else
            EXPECT_EQ("", out);
    });
}

/// The one descriptor that is open on a file; -1 when there is none, -2 when there are more.
int descriptor_on(const std::string& path)
{
    int found = -1;
    for (int fd = 0; fd < 256; ++fd) {
        std::error_code none;
        if (fs::read_symlink("/proc/self/fd/" + std::to_string(fd), none) == path)
            found = found == -1 ? fd : -2;
    }
    return found;
}

} // namespace

TEST(cfCreate, opens_a_file_in_the_store_for_appending)
{
    for (const int slot : {0, 1})
        fresh([slot](const Scratch& scratch) {
            umask(0);
            EXPECT_TRUE(cfCreate(slot, "a.log"));
            EXPECT_STREQ("a.log", cfGetName(slot));
            EXPECT_STREQ("", cfGetName(1 - slot));
            const int fd = descriptor_on(scratch.path("a.log"));
            ASSERT_GE(fd, 0);
            EXPECT_EQ(O_WRONLY | O_APPEND, fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND));
            EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
            struct stat status {};
            EXPECT_EQ(0, fstat(fd, &status));
            EXPECT_EQ(S_IFREG | mode_t{0600}, status.st_mode);
            EXPECT_EQ(3, cfWrite(slot, "abc", 3));
            EXPECT_EQ(0, cfClose(slot, false));
            EXPECT_EQ(-1, descriptor_on(scratch.path("a.log")));
            EXPECT_EQ("abc", scratch.content("a.log"));
        });
}

TEST(cfCreate, keeps_what_a_file_holds)
{
    fresh([](const Scratch& scratch) {
        scratch.file("a.log", "before ");
        EXPECT_TRUE(cfCreate(0, "a.log"));
        EXPECT_EQ(5, cfWrite(0, "after", 5));
        EXPECT_TRUE(cfOpen(1, "a.log"));
        EXPECT_EQ(1, cfWrite(1, ".", 1));
        EXPECT_EQ(1, cfWrite(0, "!", 1));
        EXPECT_EQ("before after.!", scratch.content("a.log"));
    });
}

TEST(cfCreate, asks_the_system_for_an_appending_descriptor)
{
    fresh([](const Scratch& scratch) {
        const Recorded_open calls;
        EXPECT_TRUE(cfCreate(1, "a"));
        EXPECT_EQ(scratch.path("a"), calls.opened);
        EXPECT_EQ(O_WRONLY | O_APPEND | O_CREAT, calls.asked);
        EXPECT_EQ(mode_t{0600}, calls.with_mode);
        EXPECT_TRUE(cfOpen(1, "a"));
        EXPECT_EQ(O_WRONLY | O_APPEND, calls.asked);
    });
}

TEST(cfCreate, cuts_the_path_behind_516_characters)
{
    fresh([](const Scratch& scratch) {
        const Recorded_open calls(ENAMETOOLONG);
        for (const std::size_t length : {515U, 516U, 517U, 2000U}) {
            const std::string name(length - scratch.path().size() - 1, 'n');
            EXPECT_FALSE(cfCreate(0, name.c_str()));
            EXPECT_EQ(ENAMETOOLONG, errno);
            EXPECT_EQ(scratch.path(name).substr(0, 516), calls.opened);
        }
    });
}

TEST(cfCreate, does_not_ask_whether_the_store_is_mounted_nor_what_the_name_is)
{
    in_a_fresh_process([] {
        const Recorded_open calls(EACCES);
        EXPECT_FALSE(cfCreate(0, "a (1).log"));
        EXPECT_EQ("/a (1).log", calls.opened);
    });
}

TEST(cfOpen, needs_the_file)
{
    fresh([](const Scratch& scratch) {
        EXPECT_FALSE(cfOpen(0, "a.log"));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_STREQ("", cfGetName(0));
        EXPECT_EQ(-1, cfWrite(0, "x", 1));
        EXPECT_TRUE(fs::is_empty(scratch.path()));
    });
}

TEST(cfOpen, leaves_a_slot_closed_that_keeps_its_name_when_it_fails)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(cfCreate(0, "a.log"));
        const long before = open_descriptors();
        EXPECT_FALSE(cfOpen(0, "missing"));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_EQ(-1, cfWrite(0, "x", 1));
        EXPECT_STREQ("a.log", cfGetName(0));
        EXPECT_EQ(0, cfFindLog("a.log"));
        EXPECT_EQ(before, open_descriptors()); // what was open, is
        EXPECT_EQ(0, cfClose(0, true));
        EXPECT_STREQ("a.log", cfGetName(0));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ("", scratch.content("a.log"));
    });
}

TEST(cfOpen, replaces_what_is_open_without_closing_it)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(cfCreate(0, "a"));
        const int first = descriptor_on(scratch.path("a"));
        EXPECT_TRUE(cfCreate(0, "b"));
        EXPECT_STREQ("b", cfGetName(0));
        EXPECT_EQ(-1, cfFindLog("a"));
        EXPECT_EQ(first, descriptor_on(scratch.path("a")));
        EXPECT_EQ(1, cfWrite(0, "x", 1));
        EXPECT_EQ(0, cfClose(0, false));
        EXPECT_EQ(first, descriptor_on(scratch.path("a")));
        EXPECT_EQ(-1, descriptor_on(scratch.path("b")));
        EXPECT_EQ("x", scratch.content("b"));
        EXPECT_EQ("", scratch.content("a"));
    });
}

TEST(cfOpen, takes_the_slots_own_name)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(cfCreate(0, "a.log"));
        EXPECT_TRUE(cfOpen(0, cfGetName(0)));
        EXPECT_STREQ("a.log", cfGetName(0));
        scratch.file("log", "");
        EXPECT_TRUE(cfOpen(0, cfGetName(0) + 2));
        EXPECT_STREQ("log", cfGetName(0));
    });
}

TEST(cfGetName, holds_255_characters_and_their_end)
{
    fresh([](const Scratch& scratch) {
        const std::string longest(255, 'n');
        std::memset(cf_file_name_1, 'x', sizeof cf_file_name_1 - 1);
        EXPECT_TRUE(cfCreate(0, longest.c_str()));
        EXPECT_EQ(longest, cfGetName(0));
        EXPECT_EQ(0, cfFindLog(longest.c_str()));
        EXPECT_EQ(std::string(255, 'x'), cf_file_name_1);
        EXPECT_FALSE(cfCreate(1, (longest + "n").c_str()));
        EXPECT_EQ(ENAMETOOLONG, errno);

        // A path of more characters can be opened, through folders; its name is cut.
        const std::string folder(200, 'd');
        fs::create_directory(scratch.path(folder));
        for (const std::size_t length : {254U, 255U, 256U, 300U}) {
            const std::string name = folder + "/" + std::string(length - 201, 'n');
            EXPECT_TRUE(cfCreate(0, name.c_str()));
            EXPECT_EQ(name.substr(0, 255), cfGetName(0));
            EXPECT_EQ(length <= 255 ? 0 : -1, cfFindLog(name.c_str()));
            EXPECT_EQ(std::string(255, 'x'), cf_file_name_1);
        }
    });
}

TEST(cfGetName, is_the_exported_text_of_the_slot)
{
    fresh([](const Scratch&) {
        EXPECT_TRUE(cfCreate(0, "a"));
        EXPECT_TRUE(cfCreate(1, "b"));
        EXPECT_EQ(cf_file_name_0, cf_file_name[0]);
        EXPECT_EQ(cf_file_name_1, cf_file_name[1]);
        EXPECT_EQ(cf_file_name_0, cfGetName(0));
        EXPECT_EQ(cf_file_name_1, cfGetName(1));
        EXPECT_STREQ("a", cf_file_name_0);
        EXPECT_STREQ("b", cf_file_name_1);
        EXPECT_EQ(0, cfClose(0, false));
        EXPECT_STREQ("", cf_file_name_0);
        EXPECT_STREQ("b", cf_file_name_1);
    });
}

TEST(cfile, refuses_every_slot_but_0_and_1_and_touches_nothing)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(cfCreate(0, "a"));
        EXPECT_TRUE(cfCreate(1, "b"));
        cfSetImplicitBits(2);
        const long before = open_descriptors();
        for (const int slot : BAD_SLOTS) {
            SCOPED_TRACE(slot);
            EXPECT_FALSE(cfCreate(slot, "x"));
            EXPECT_FALSE(cfOpen(slot, "a"));
            EXPECT_EQ(0, cfWrite(slot, "x", 1));
            EXPECT_EQ(0, cfClose(slot, true));
            EXPECT_STREQ("", cfGetName(slot));
            EXPECT_FALSE(cfGetImplicit(slot));
            cfSetImplicit(slot, true);
            EXPECT_EQ(2U, cfGetImplicitBits());
            cfSetImplicit(slot, false);
            EXPECT_EQ(2U, cfGetImplicitBits());
        }
        EXPECT_EQ(before, open_descriptors());
        EXPECT_STREQ("a", cfGetName(0));
        EXPECT_STREQ("b", cfGetName(1));
        EXPECT_EQ("", scratch.content("a") + scratch.content("b"));
        EXPECT_FALSE(fs::exists(scratch.path("x")));
    });
}

TEST(cfile, takes_a_slot_that_was_never_used_for_open_on_descriptor_0)
{
    for (const int slot : {0, 1})
        fresh([slot](const Scratch& scratch) {
            scratch.file("input", "");
            ASSERT_EQ(0, dup2(open(scratch.path("input").c_str(), O_WRONLY), 0));
            EXPECT_STREQ("", cfGetName(slot));
            EXPECT_FALSE(cfExists());
            cfSetImplicit(slot, true);
            EXPECT_TRUE(cfExists());
            EXPECT_EQ(3, cfWrite(slot, "abc", 3));
            EXPECT_EQ("abc", scratch.content("input"));
            EXPECT_EQ(0, cfClose(slot, false));
            EXPECT_EQ(-1, fcntl(0, F_GETFD)); // deliberate: standard input is gone
            EXPECT_FALSE(cfExists());
            EXPECT_EQ(-1, cfWrite(slot, "abc", 3));
        });
}

TEST(cfWrite, writes_once_and_tells_what_the_system_told)
{
    fresh([](const Scratch&) {
        struct : Interposed_calls {
            ssize_t write(int fd, const void* data, std::size_t size) override
            {
                ++writes;
                asked = size;
                return error != 0 ? fail_with(error) : Interposed_calls::write(fd, data, size > 2 ? 2 : size);
            }
            int writes = 0;
            std::size_t asked = 0;
            int error = 0;
        } calls;
        EXPECT_TRUE(cfCreate(0, "a"));
        EXPECT_EQ(2, cfWrite(0, "abcd", 4));
        EXPECT_EQ(4U, calls.asked);
        EXPECT_EQ(0, cfWrite(0, "abcd", 0));
        EXPECT_EQ(2, calls.writes);
        for (const int error : {EINTR, EAGAIN, ENOSPC}) {
            calls.error = error;
            calls.writes = 0;
            EXPECT_EQ(-1, cfWrite(0, "abcd", 4));
            EXPECT_EQ(error, errno);
            EXPECT_EQ(1, calls.writes);
        }
        calls.error = 0;
        EXPECT_EQ(1, cfWrite(0, "e", 1)); // a failed write closes nothing
        EXPECT_EQ(0, cfClose(0, false));
        calls.writes = 0;
        EXPECT_EQ(-1, cfWrite(0, "abcd", 4));
        EXPECT_EQ(0, calls.writes);
    });
}

TEST(cfWrite, fails_on_a_full_disk_and_for_a_negative_length)
{
    fresh([](const Scratch& scratch) {
        fs::create_symlink("/dev/full", scratch.path("full"));
        EXPECT_TRUE(cfOpen(1, "full"));
        EXPECT_EQ(-1, cfWrite(1, "x", 1));
        EXPECT_EQ(ENOSPC, errno);
        EXPECT_TRUE(cfCreate(0, "a"));
        EXPECT_EQ(-1, cfWrite(0, "x", -1));
        EXPECT_EQ("", scratch.content("a"));
    });
}

TEST(cfClose, closes_whatever_close_reports)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(cfCreate(0, "a"));
        EXPECT_EQ(0, close(descriptor_on(scratch.path("a"))));
        EXPECT_EQ(0, cfClose(0, false));
        EXPECT_EQ(EBADF, errno);
        EXPECT_STREQ("", cfGetName(0));
        EXPECT_EQ(-1, cfWrite(0, "x", 1));
    });
}

TEST(cfClose, does_nothing_to_a_closed_slot)
{
    fresh([](const Scratch&) {
        struct : Interposed_calls {
            int close(int fd) override
            {
                ++closes;
                return Interposed_calls::close(fd);
            }
            int closes = 0;
        } calls;
        EXPECT_TRUE(cfCreate(0, "a"));
        for (const bool flag : {false, true, false})
            EXPECT_EQ(0, cfClose(0, flag));
        EXPECT_EQ(1, calls.closes);
    });
}

TEST(cfFindLog, finds_the_first_slot_of_a_name)
{
    fresh([](const Scratch&) {
        EXPECT_EQ(0, cfFindLog(""));
        EXPECT_EQ(-1, cfFindLog("a.log"));
        EXPECT_TRUE(cfCreate(0, "a.log"));
        EXPECT_EQ(0, cfFindLog("a.log"));
        EXPECT_EQ(1, cfFindLog(""));
        EXPECT_TRUE(cfCreate(1, "b.log"));
        EXPECT_EQ(1, cfFindLog("b.log"));
        EXPECT_EQ(-1, cfFindLog(""));
        for (const char* name : {"a.lo", "a.log1", "A.log", "c"})
            EXPECT_EQ(-1, cfFindLog(name));
        EXPECT_TRUE(cfOpen(1, "a.log"));
        EXPECT_EQ(0, cfFindLog("a.log"));
        EXPECT_EQ(0, cfClose(0, false));
        EXPECT_EQ(1, cfFindLog("a.log"));
        EXPECT_EQ(0, cfFindLog(""));
    });
}

TEST(cfSetImplicitBits, takes_the_two_lowest_bits_and_ignores_the_others)
{
    fresh([](const Scratch&) {
        EXPECT_EQ(0U, cfGetImplicitBits());
        for (const unsigned long bits :
             {3UL, 4UL, 1UL, 2UL, 0UL, 7UL, 0x80000001UL, ~0UL, ~3UL, ~1UL, ~2UL, 0x100UL}) {
            cfSetImplicitBits(bits);
            EXPECT_EQ(bits & 3, cfGetImplicitBits());
            EXPECT_EQ((bits & 1) != 0, cfGetImplicit(0));
            EXPECT_EQ((bits & 2) != 0, cfGetImplicit(1));
        }
    });
}

TEST(cfSetImplicit, sets_one_flag)
{
    fresh([](const Scratch&) {
        unsigned long bits = 0;
        for (const auto& [slot, on] : {std::pair(0, true), {1, true}, {0, false}, {0, false}, {1, false}}) {
            cfSetImplicit(slot, on);
            const unsigned long bit = slot == 0 ? 1 : 2;
            bits = on ? bits | bit : bits & ~bit;
            EXPECT_EQ(bits, cfGetImplicitBits());
        }
    });
}

TEST(cfExists, asks_for_a_flag_and_an_open_slot_of_the_same_number)
{
    fresh([](const Scratch&) {
        cfClose(0, false);
        cfClose(1, false);
        for (unsigned opened = 0; opened < 4; ++opened) {
            for (const int slot : {0, 1})
                (opened >> slot & 1U) != 0 ? cfCreate(slot, "a") : cfOpen(slot, "missing");
            for (unsigned flags = 0; flags < 4; ++flags) {
                cfSetImplicitBits(flags);
                EXPECT_EQ((opened & flags) != 0, cfExists()) << opened << " open, flags " << flags;
                EXPECT_EQ(flags, cfGetImplicitBits());
            }
        }
    });
}

TEST(cfile, prints_a_line_for_what_was_never_written)
{
    in_a_fresh_process([] {
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        cfStartLogging("a.log", true, false, true);
        cfStartLogging(nullptr, false, true, false);
        cfInit0();
        cfInit();
        EXPECT_EQ("TODO: cfStartLogging\nTODO: cfStartLogging\nTODO: cfInit0\nTODO: cfInit\n",
                  testing::internal::GetCapturedStdout());
        EXPECT_EQ("", testing::internal::GetCapturedStderr());
        EXPECT_STREQ("", cfGetName(0));
        EXPECT_EQ(0U, cfGetImplicitBits());
    });
}

TEST(cfile, does_not_wait_for_the_store_nor_use_its_descriptors)
{
    fresh([](const Scratch& scratch) {
        EXPECT_TRUE(pcfCreateWrite("store"));
        EXPECT_TRUE(cfCreate(0, "slot"));
        EXPECT_EQ(1, cfWrite(0, "s", 1));
        EXPECT_EQ(2, pcfWrite("pc", 2));
        EXPECT_EQ(0, cfClose(0, false));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ("s", scratch.content("slot"));
        EXPECT_EQ("pc", scratch.content("store"));
    });
}

TEST(cfile, behaves_as_two_slots_of_a_model)
{
    fresh([](const Scratch& scratch) {
        struct Slot {
            std::optional<std::string> open; ///< the file
            std::string name;
            bool implicit = false;
        };
        Slot slots[2];
        std::map<std::string, std::string> files;
        const std::vector<std::string> names = {"a", "b", "c"};
        std::mt19937 random(85);
        cfClose(0, false);
        cfClose(1, false);
        for (int round = 0; round < 20000; ++round) {
            const int number = static_cast<int>(random() % 4) - 1;
            Slot* const slot = number == 0 || number == 1 ? &slots[number] : nullptr;
            const std::string& name = names[random() % names.size()];
            SCOPED_TRACE(testing::Message() << "seed 85, round " << round << ", slot " << number);
            switch (random() % 7) {
            case 0:
            case 1: {
                const bool create = random() % 2 == 0;
                if (slot != nullptr && slot->open)
                    break; // of those a process has only so many
                const bool expected = slot != nullptr && (create || files.count(name) != 0);
                ASSERT_EQ(expected, create ? cfCreate(number, name.c_str()) : cfOpen(number, name.c_str()));
                if (expected) {
                    files[name];
                    slot->open = slot->name = name;
                }
                break;
            }
            case 2: {
                const std::string bytes(random() % 20, static_cast<char>('a' + random() % 26));
                const int length = static_cast<int>(bytes.size());
                ASSERT_EQ(slot == nullptr ? 0
                          : slot->open    ? length
                                          : -1,
                          cfWrite(number, bytes.data(), length));
                if (slot != nullptr && slot->open)
                    files[*slot->open] += bytes;
                break;
            }
            case 3:
                ASSERT_EQ(0, cfClose(number, random() % 2 == 0));
                if (slot != nullptr && slot->open)
                    *slot = Slot{{}, "", slot->implicit};
                break;
            case 4: {
                const bool on = random() % 2 == 0;
                cfSetImplicit(number, on);
                if (slot != nullptr)
                    slot->implicit = on;
                break;
            }
            case 5: {
                const unsigned long bits = random();
                cfSetImplicitBits(bits);
                slots[0].implicit = (bits & 1) != 0;
                slots[1].implicit = (bits & 2) != 0;
                break;
            }
            default:
                break;
            }
            ASSERT_EQ(slot != nullptr ? slot->name : "", cfGetName(number));
            ASSERT_EQ(slot != nullptr && slot->implicit, cfGetImplicit(number));
            ASSERT_EQ((slots[0].implicit ? 1U : 0U) + (slots[1].implicit ? 2U : 0U), cfGetImplicitBits());
            ASSERT_EQ((slots[0].implicit && slots[0].open) || (slots[1].implicit && slots[1].open),
                      cfExists());
            ASSERT_EQ(slots[0].name == name ? 0 : slots[1].name == name ? 1 : -1, cfFindLog(name.c_str()));
        }
        for (const auto& [name, bytes] : files)
            EXPECT_EQ(bytes, scratch.content(name));
        EXPECT_EQ(3U, files.size());
    });
}
