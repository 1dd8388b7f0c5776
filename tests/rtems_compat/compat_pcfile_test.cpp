#include "util/rtems_compat/compat_pcfile.h"

#include "tests/support/Fake_clock.h"
#include "tests/support/Fresh_process.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Open_descriptors.h"
#include "tests/support/Recorded_open.h"
#include "tests/support/Temporary_folder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sched.h>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

// The two that old callers may know by name.
extern int pcf_rfd;
extern int pcf_wfd;

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

static_assert(PCF_SUCCESS == 0 && PCF_REFUSED == 1 && PCF_BAD_DESCRIPTOR == 2 && PCF_FAILURE == 4);
static_assert(sizeof(PcfResult) == sizeof(int) && std::is_convertible_v<PcfResult, int>);

using Scratch = Temporary_folder;

/// In a process where the store was never used: a body that takes an empty folder.
template <typename BODY>
void unmounted(BODY body)
{
    const Scratch scratch;
    in_a_fresh_process([&] { body(scratch); });
}

/// The same with the store mounted on the folder.
template <typename BODY>
void mounted(BODY body)
{
    const Scratch scratch;
    in_a_fresh_process([&] {
        ASSERT_TRUE(pcfIsMounted(scratch.path().c_str()));
        body(scratch);
    });
}

template <typename CALL>
std::string error_output(CALL call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

template <typename CALL>
std::string output(CALL call)
{
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

std::string text_of(int error)
{
    return std::strerror(error);
}

bool write_file(const char* name, const std::string& bytes)
{
    return pcfCreateWrite(name) && pcfWrite(bytes.data(), static_cast<int>(bytes.size())) >= 0 &&
           pcfCloseWrite();
}

std::string read_file(const char* name, unsigned long offset = 0)
{
    std::string bytes;
    if (pcfOpenRead(name, offset, nullptr) != PCF_SUCCESS)
        return "(not opened)";
    char block[100];
    PcfResult result = PCF_FAILURE;
    for (int count = 0; (count = pcfRead(block, sizeof block, result, 0)) > 0;)
        bytes.append(block, static_cast<std::size_t>(count));
    EXPECT_EQ(PCF_SUCCESS, result);
    EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
    return bytes;
}

Names listed()
{
    Names names;
    for (const char* name = pcfFirst(nullptr); name != nullptr; name = pcfNext(nullptr))
        names.emplace_back(name);
    return names;
}

/// The same by a walk of the test's own.
Names walked(const std::string& folder)
{
    Names names;
    DIR* const stream = opendir(folder.c_str());
    if (stream == nullptr)
        return names;
    while (const dirent* entry = readdir(stream))
        if (entry->d_type != DT_DIR)
            names.emplace_back(entry->d_name);
    closedir(stream);
    return names;
}

Names sorted(Names names)
{
    std::sort(names.begin(), names.end());
    return names;
}

/// A directory of exactly that many characters below a folder, made when asked for.
std::string long_path(const std::string& below, std::size_t length)
{
    std::string path = below;
    while (path.size() < length) {
        const std::size_t left = length - path.size() - 1;
        // No part longer than a name may be, and no room of one character left behind it.
        path += "/" + std::string(left <= 200 ? left : left - 200 == 1 ? 199 : 200, 'd');
    }
    return path;
}

} // namespace

// ---- mounting

TEST(pcf, is_not_mounted_at_load)
{
    unmounted([](const Scratch&) {
        EXPECT_STREQ("", pcfDirectory());
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ(-1, pcf_wfd);
        int fd = -2;
        char name[256] = "as before";
        PcfFileInfo info{-2, -3};
        PcfResult result = PCF_SUCCESS;
        const struct {
            std::function<void()> call;
            const char* message;
        } calls[] = {
            {[] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 0, nullptr)); },
             "ERROR: pcfOpenRead 'f' failed: pcf not mounted\n"},
            {[&] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 0, &fd)); },
             "ERROR: pcfOpenRead 'f' failed: pcf not mounted\n"},
            {[&] { EXPECT_EQ(-1, pcfRead(name, 1, result, 0)); }, "ERROR: pcfRead failed: pcf not mounted\n"},
            {[&] { EXPECT_EQ(-1, pcfRead(name, 1, result, -1)); },
             "ERROR: pcfRead failed: pcf not mounted\n"},
            {[] { EXPECT_EQ(PCF_FAILURE, pcfCloseRead(0)); },
             "WARNING: pcfCloseRead attempted while pcf not mounted\n"
             "ERROR: pcfCloseRead failed: global read fd not open\n"},
            {[] { EXPECT_EQ(PCF_FAILURE, pcfCloseRead(-1)); },
             "WARNING: pcfCloseRead attempted while pcf not mounted\n"
             "ERROR: pcfCloseRead failed: invalid file descriptor\n"},
            {[] { EXPECT_FALSE(pcfCreateWrite("f")); },
             "ERROR: pcfCreateWrite 'f' failed; pcf not mounted\n"},
            {[&] { EXPECT_FALSE(pcfCreateWrite("f", &fd)); },
             "ERROR: pcfCreateWrite 'f' failed; pcf not mounted\n"},
            {[] { EXPECT_FALSE(pcfOpenWrite("f")); }, "ERROR: pcfWriteWrite 'f' failed; pcf not mounted\n"},
            {[&] { EXPECT_FALSE(pcfOpenWrite("f", &fd)); },
             "ERROR: pcfWriteWrite 'f' failed; pcf not mounted\n"},
            {[] { EXPECT_FALSE(pcfCreateWrite("a b")); },
             "ERROR: pcfCreateWrite 'a b' failed: pcfCheckName rejects name\n"},
            {[] { EXPECT_EQ(-1, pcfWrite("x", 1)); }, "ERROR: pcfWrite failed: invalid file descriptor\n"},
            {[] { EXPECT_TRUE(pcfCloseWrite()); },
             "WARNING: pcfCloseWrite attempted while pcf not mounted\n"},
            {[&] { EXPECT_EQ(-1, pcfSize("f", &fd)); }, "ERROR: pcfSize 'f' failed: pcf not mounted\n"},
            {[&] { EXPECT_EQ(-1, pcfSizeImpl("f", &fd, true)); },
             "ERROR: pcfSize 'f' failed: pcf not mounted\n"},
            {[&] { EXPECT_EQ(-1, pcfSizeImpl("f", &fd, false)); }, ""},
            {[] { EXPECT_FALSE(pcfExists("f")); }, ""},
            {[] { EXPECT_EQ(0, pcfGetNumFiles()); }, ""},
            {[&] { EXPECT_FALSE(pcfGetFileName(0, name)); }, ""},
            {[&] { EXPECT_EQ(nullptr, pcfFirst(&info)); }, ""},
            {[&] { EXPECT_EQ(nullptr, pcfNext(&info)); }, ""},
        };
        for (const auto& one : calls)
            EXPECT_EQ(one.message, error_output(one.call));
        EXPECT_EQ(PCF_FAILURE, result);
        EXPECT_EQ(-2, fd);
        EXPECT_STREQ("as before", name);
        EXPECT_EQ(-2, info.size);
        EXPECT_EQ(-3, info.mtime);
        EXPECT_STREQ("", pcfDirectory());
    });
}

TEST(pcf, writes_and_closes_descriptors_of_the_callers_own_before_it_is_mounted)
{
    unmounted([](const Scratch& scratch) {
        const int fd = open(scratch.path("f").c_str(), O_CREAT | O_WRONLY, 0600);
        EXPECT_EQ("", error_output([fd] { EXPECT_EQ(3, pcfWrite("abc", 3, fd)); }));
        EXPECT_EQ("WARNING: pcfCloseWrite attempted while pcf not mounted\n",
                  error_output([fd] { EXPECT_TRUE(pcfCloseWrite(fd)); }));
        EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        EXPECT_EQ("abc", scratch.content("f"));
        const int other = open(scratch.path("f").c_str(), O_RDONLY);
        EXPECT_EQ("WARNING: pcfCloseRead attempted while pcf not mounted\n",
                  error_output([other] { EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(other)); }));
        EXPECT_EQ(-1, fcntl(other, F_GETFD));
    });
}

TEST(pcfIsMounted, mounts_a_directory_that_is_there)
{
    unmounted([](const Scratch& scratch) {
        scratch.file("kept");
        EXPECT_EQ("", error_output([&] { EXPECT_TRUE(pcfIsMounted(scratch.path().c_str())); }));
        EXPECT_EQ(scratch.path(), pcfDirectory());
        EXPECT_EQ(Names{"kept"}, listed());
    });
}

TEST(pcfIsMounted, makes_a_missing_directory_with_mode_0755_less_the_umask)
{
    for (const mode_t mask : {0U, 022U, 027U})
        unmounted([mask](const Scratch& scratch) {
            umask(mask);
            EXPECT_EQ("", error_output([&] { EXPECT_TRUE(pcfIsMounted(scratch.path("new").c_str())); }));
            struct stat status {};
            EXPECT_EQ(0, stat(scratch.path("new").c_str(), &status));
            EXPECT_EQ(S_IFDIR | (mode_t{0755} & ~mask), status.st_mode);
        });
}

TEST(pcfIsMounted, makes_no_parents)
{
    unmounted([](const Scratch& scratch) {
        const std::string dir = scratch.path("missing/new");
        EXPECT_EQ("PCF: Could not create dir " + dir + ": " + std::to_string(ENOENT) + "\n",
                  error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); }));
        EXPECT_EQ(dir, pcfDirectory());
        EXPECT_EQ(Names{}, scratch.entries());
    });
}

TEST(pcfIsMounted, ignores_what_it_is_asked_once_mounted)
{
    mounted([](const Scratch& scratch) {
        for (const std::string& dir : {scratch.path("other"), std::string(1000, 'd'), std::string()})
            EXPECT_EQ("", error_output([&] { EXPECT_TRUE(pcfIsMounted(dir.c_str())); }));
        EXPECT_TRUE(pcfIsMounted(nullptr));
        EXPECT_EQ(scratch.path(), pcfDirectory());
        EXPECT_EQ(Names{}, scratch.entries());
    });
}

TEST(pcfIsMounted, takes_255_characters_and_refuses_256)
{
    unmounted([](const Scratch& scratch) {
        const std::string longest = long_path(scratch.path(), 255);
        ASSERT_EQ(255U, longest.size());
        fs::create_directories(longest);
        for (const std::size_t more : {1U, 2U, 1000U}) {
            const std::string dir = longest + std::string(more, 'x');
            EXPECT_EQ("PCF: Directory name too long (" + dir + ")",
                      error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); }));
            EXPECT_EQ(longest, pcfDirectory());
        }
        EXPECT_EQ("ERROR: pcfSize 'f' failed: pcf not mounted\n",
                  error_output([] { pcfSize("f", nullptr); }));
        EXPECT_EQ("", error_output([&] { EXPECT_TRUE(pcfIsMounted(longest.c_str())); }));
        EXPECT_EQ(longest, pcfDirectory());
        const std::string name(255, 'n');
        EXPECT_TRUE(write_file(name.c_str(), "the longest path of all"));
        EXPECT_EQ("the longest path of all", read_file(name.c_str()));
    });
}

TEST(pcfIsMounted, takes_pcf_in_the_platforms_base_directory_for_null)
{
    unmounted([](const Scratch& scratch) {
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        EXPECT_TRUE(pcfIsMounted(nullptr));
        EXPECT_EQ(scratch.path("pcf"), pcfDirectory());
        EXPECT_TRUE(fs::is_directory(scratch.path("pcf")));
    });
}

TEST(pcfIsMounted, refuses_a_base_directory_by_the_cut_text)
{
    for (const std::size_t base : {252U, 253U, 254U, 255U, 300U})
        unmounted([base](const Scratch& scratch) {
            const std::string dir = long_path(scratch.path(), base - 1) + "/"; // where Platform adds none
            fs::create_directories(dir);
            setenv("QUARVEL_BASE_DIR", dir.c_str(), 1);
            if (base == 252) {
                EXPECT_EQ("", error_output([] { EXPECT_TRUE(pcfIsMounted(nullptr)); }));
                EXPECT_EQ(dir + "pcf", pcfDirectory());
            } else {
                EXPECT_EQ("PCF: Directory name too long (" + (dir + "pcf").substr(0, 255) + ")",
                          error_output([] { EXPECT_FALSE(pcfIsMounted(nullptr)); }));
                EXPECT_EQ((dir + "pcf").substr(0, 255), pcfDirectory());
            }
        });
}

TEST(pcfIsMounted, refuses_what_is_no_directory)
{
    unmounted([](const Scratch& scratch) {
        scratch.file("file", "kept");
        for (const std::string& dir : {scratch.path("file"), std::string("/dev/null")}) {
            EXPECT_EQ("PCF: IS NOT DIRECTORY\n",
                      error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); }));
            EXPECT_EQ(dir, pcfDirectory());
        }
        EXPECT_EQ("kept", scratch.content("file"));
        EXPECT_FALSE(pcfExists("file"));
    });
}

TEST(pcfIsMounted, decides_and_not_whether_there_is_a_directory)
{
    unmounted([](const Scratch& scratch) {
        scratch.file("store");
        error_output([&] { EXPECT_FALSE(pcfIsMounted(scratch.path("store").c_str())); });
        fs::remove(scratch.path("store"));
        scratch.folder("store");
        scratch.file("store/a");
        scratch.file("store/b");
        char name[256];
        EXPECT_EQ(0, pcfGetNumFiles());
        EXPECT_FALSE(pcfGetFileName(0, name));
        EXPECT_FALSE(pcfGetFileName(1, name));
        EXPECT_EQ(nullptr, pcfFirst(nullptr));
        EXPECT_FALSE(pcfExists("a"));
        error_output([] {
            EXPECT_EQ(PCF_FAILURE, pcfOpenRead("a", 0, nullptr));
            EXPECT_FALSE(pcfOpenWrite("a"));
        });
        EXPECT_TRUE(pcfIsMounted(scratch.path("store").c_str()));
        EXPECT_EQ(2, pcfGetNumFiles());
    });
}

TEST(pcfIsMounted, refuses_the_empty_text)
{
    unmounted([](const Scratch&) {
        EXPECT_EQ("PCF: Could not create dir : " + std::to_string(ENOENT) + "\n",
                  error_output([] { EXPECT_FALSE(pcfIsMounted("")); }));
    });
}

TEST(pcfIsMounted, goes_through_a_link_to_a_directory)
{
    unmounted([](const Scratch& scratch) {
        scratch.folder("real");
        fs::create_symlink("real", scratch.path("link"));
        EXPECT_TRUE(pcfIsMounted(scratch.path("link").c_str()));
        EXPECT_TRUE(write_file("f", "x"));
        EXPECT_EQ("x", scratch.content("real/f"));
    });
}

TEST(pcfIsMounted, may_be_tried_again_with_its_own_directory)
{
    unmounted([](const Scratch& scratch) {
        const std::string dir = scratch.path("parent/store");
        error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); });
        scratch.folder("parent");
        EXPECT_TRUE(pcfIsMounted(pcfDirectory()));
        EXPECT_EQ(dir, pcfDirectory());
        EXPECT_TRUE(fs::is_directory(dir));
    });
}

TEST(pcfIsMounted, prints_the_error_of_the_second_look_and_not_that_of_making)
{
    unmounted([](const Scratch& scratch) {
        struct : Interposed_calls {
            int stat(const char*, struct stat*) override { return fail_with(++looks == 1 ? ENOENT : ELOOP); }
            int mkdir(const char* path, mode_t mode) override
            {
                made = path + std::string(" ") + std::to_string(mode);
                return fail_with(EROFS);
            }
            int looks = 0;
            std::string made;
        } calls;
        const std::string dir = scratch.path("new");
        EXPECT_EQ("PCF: Could not create dir " + dir + ": " + std::to_string(ELOOP) + "\n",
                  error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); }));
        EXPECT_EQ(dir + " " + std::to_string(0755), calls.made);
        EXPECT_EQ(2, calls.looks);
    });
}

TEST(pcfIsMounted, mounts_when_only_the_first_look_fails)
{
    unmounted([](const Scratch& scratch) {
        struct : Interposed_calls {
            int stat(const char* path, struct stat* status) override
            {
                return ++looks == 1 ? fail_with(EIO) : Interposed_calls::stat(path, status);
            }
            int looks = 0;
        } calls;
        EXPECT_EQ("", error_output([&] { EXPECT_TRUE(pcfIsMounted(scratch.path().c_str())); }));
        EXPECT_EQ(2, calls.looks);
    });
}

TEST(pcfFormat, mounts_the_default_directory_and_removes_no_file)
{
    mounted([](const Scratch& scratch) {
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        scratch.file("kept");
        EXPECT_EQ("", error_output([] { EXPECT_EQ(1, pcfFormat()); }));
        EXPECT_EQ(scratch.path("pcf"), pcfDirectory());
        EXPECT_EQ((Names{"kept", "pcf"}), scratch.entries());
        scratch.file("pcf/kept");
        EXPECT_EQ(1, pcfFormat());
        EXPECT_EQ(PCF_SUCCESS, pcfRemoveAll());
        EXPECT_EQ(scratch.path("pcf"), pcfDirectory());
        EXPECT_EQ(Names{"kept"}, listed());
    });
}

TEST(pcfFormat, removes_the_link_by_which_the_store_was_reached)
{
    for (const bool format : {true, false})
        unmounted([format](const Scratch& scratch) {
            setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
            scratch.folder("real");
            scratch.file("real/kept");
            fs::create_symlink("real", scratch.path("link"));
            EXPECT_TRUE(pcfIsMounted(scratch.path("link").c_str()));
            EXPECT_EQ(format ? 1 : PCF_SUCCESS, format ? pcfFormat() : pcfRemoveAll());
            EXPECT_EQ((Names{"pcf", "real", "real/kept"}), scratch.entries());
            EXPECT_EQ("x", scratch.content("real/kept"));
        });
}

TEST(pcfFormat, leaves_the_store_unmounted_when_the_default_directory_cannot_be)
{
    for (const bool format : {true, false})
        mounted([format](const Scratch& scratch) {
            setenv("QUARVEL_BASE_DIR", scratch.path("missing").c_str(), 1);
            const std::string dir = scratch.path("missing/pcf");
            EXPECT_EQ("PCF: Could not create dir " + dir + ": " + std::to_string(ENOENT) + "\n",
                      error_output([&] {
                          if (format)
                              EXPECT_EQ(0, pcfFormat());
                          else
                              EXPECT_EQ(PCF_FAILURE, pcfRemoveAll());
                      }));
            EXPECT_EQ(dir, pcfDirectory());
            EXPECT_EQ("ERROR: pcfCreateWrite 'f' failed; pcf not mounted\n",
                      error_output([] { EXPECT_FALSE(pcfCreateWrite("f")); }));
            scratch.folder("missing");
            EXPECT_EQ(1, pcfFormat());
            EXPECT_TRUE(pcfCreateWrite("f"));
        });
}

TEST(pcfFormat, leaves_open_files_open)
{
    mounted([](const Scratch& scratch) {
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        scratch.file("read", "abc");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("read", 0, nullptr));
        EXPECT_TRUE(pcfCreateWrite("written"));
        EXPECT_EQ(1, pcfFormat());
        char bytes[3];
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(3, pcfRead(bytes, 3, result, 0));
        EXPECT_EQ(3, pcfWrite("def", 3));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
        EXPECT_EQ("def", scratch.content("written"));
    });
}

TEST(pcfFormat, unlinks_the_directory_by_its_path_and_nothing_else)
{
    mounted([](const Scratch& scratch) {
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        struct : Interposed_calls {
            int unlink(const char* path) override
            {
                asked.emplace_back(path);
                return fail_with(EISDIR);
            }
            Names asked;
        } calls;
        EXPECT_EQ(1, pcfFormat());
        EXPECT_EQ(PCF_SUCCESS, pcfRemoveAll());
        EXPECT_EQ((Names{scratch.path(), scratch.path("pcf")}), calls.asked);
    });
}

TEST(pcfInfo, tells_the_fixed_values)
{
    for (const bool is_mounted : {false, true})
        unmounted([is_mounted](const Scratch& scratch) {
            EXPECT_EQ(is_mounted, is_mounted && pcfIsMounted(scratch.path().c_str()));
            PcfInfo info;
            std::memset(&info, 0xA5, sizeof info);
            EXPECT_TRUE(pcfInfo(info));
            std::array<std::int32_t, 8> numbers{};
            std::memcpy(numbers.data(), &info, sizeof numbers);
            EXPECT_EQ((std::array<std::int32_t, 8>{1000000, 500000, 1024, 976, 0, 0, 1, 100}), numbers);
            EXPECT_EQ(0, reinterpret_cast<const char*>(&info)[32]);
            std::int32_t last = 0;
            std::memcpy(&last, reinterpret_cast<const char*>(&info) + 36, sizeof last);
            EXPECT_EQ(1, last);
        });
}

TEST(pcf, prints_a_line_for_what_was_never_written)
{
    unmounted([](const Scratch&) {
        EXPECT_EQ("TODO: pcfRemoveOldest\n", output([] { EXPECT_EQ(4, pcfRemoveOldest()); }));
        EXPECT_EQ("TODO: pcfRemount\nTODO: pcfRemount\n", output([] {
                      EXPECT_EQ(0, pcfRemount(false));
                      EXPECT_EQ(0, pcfRemount(true));
                  }));
        EXPECT_EQ("TODO: pcfSetRmOld\n", output([] { pcfSetRmOld(7); }));
        EXPECT_EQ("", error_output([] {
                      output([] {
                          pcfRemoveOldest();
                          pcfRemount(true);
                          pcfSetRmOld(0);
                      });
                  }));
        EXPECT_EQ(0, pcfMountInProgress());
    });
}

// ---- names

TEST(pcfCheckName, refuses_eleven_characters_and_nothing_else)
{
    const std::string refused = " ,{}()@&\"/\\";
    ASSERT_EQ(11U, refused.size());
    for (int code = 1; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const bool passes = refused.find(c) == std::string::npos;
        for (const std::string& name :
             {std::string{c}, "log" + std::string{c}, c + std::string("log"), "log" + std::string{c} + "1"})
            EXPECT_EQ(passes, pcfCheckName(name.c_str())) << name;
    }
    EXPECT_FALSE(pcfCheckName(nullptr));
    EXPECT_FALSE(pcfCheckName(""));
    EXPECT_FALSE(pcfCheckName("log 1"));
    EXPECT_FALSE(pcfCheckName("a/b"));
    EXPECT_TRUE(pcfCheckName("log_1.txt"));
    EXPECT_TRUE(pcfCheckName(".."));
    EXPECT_TRUE(pcfCheckName(std::string(1000, 'n').c_str()));
}

// ---- reading

TEST(pcfOpenRead, opens_at_an_offset)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "0123456789");
        EXPECT_EQ("", error_output([] {
                      EXPECT_EQ("0123456789", read_file("f"));
                      EXPECT_EQ("789", read_file("f", 7));
                      EXPECT_EQ("", read_file("f", 10));
                      EXPECT_EQ("", read_file("f", 1000));
                  }));
    });
}

TEST(pcfOpenRead, opens_read_only_and_not_for_children_to_come)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        ASSERT_GE(pcf_rfd, 0);
        EXPECT_EQ(O_RDONLY, fcntl(pcf_rfd, F_GETFL) & O_ACCMODE);
        EXPECT_EQ(FD_CLOEXEC, fcntl(pcf_rfd, F_GETFD));
        EXPECT_TRUE(pcfCreateWrite("g"));
        EXPECT_EQ(FD_CLOEXEC, fcntl(pcf_wfd, F_GETFD));
    });
}

TEST(pcfOpenRead, refuses_a_descriptor_of_ones_own)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        int fd = -7;
        EXPECT_EQ("ERROR: pcfOpenRead with specific file descriptor disallowed!\n",
                  error_output([&] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 0, &fd)); }));
        EXPECT_EQ(-7, fd);
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        EXPECT_EQ("ERROR: pcfOpenRead with specific file descriptor disallowed!\n",
                  error_output([&] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 0, &fd)); }));
    });
}

TEST(pcfOpenRead, refuses_a_second_file_and_keeps_the_first)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "first");
        scratch.file("g", "second");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        const int fd = pcf_rfd;
        const long before = open_descriptors();
        for (const char* name : {"g", "f", "missing"})
            EXPECT_EQ("WARNING: pcfOpenRead '" + std::string(name) +
                          "' failed: global read fd already open\n",
                      error_output([name] { EXPECT_EQ(PCF_REFUSED, pcfOpenRead(name, 0, nullptr)); }));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ(fd, pcf_rfd);
        char bytes[10];
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(5, pcfRead(bytes, 10, result, 0));
        EXPECT_EQ(0, std::memcmp("first", bytes, 5));
        EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
        EXPECT_EQ("second", read_file("g"));
    });
}

TEST(pcfOpenRead, names_the_whole_path_of_what_cannot_be_opened)
{
    mounted([](const Scratch& scratch) {
        const long before = open_descriptors();
        const std::string longest(255, 'n');
        const std::pair<std::string, int> names[] = {
            {"missing", ENOENT}, {longest, ENOENT}, {longest + "n", ENAMETOOLONG}, {"a/b", ENOENT}};
        for (const auto& [name, error] : names)
            EXPECT_EQ("ERROR: pcfOpenRead '" + scratch.path(name) + "' failed: " + text_of(error) + "\n",
                      error_output(
                          [&name = name] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead(name.c_str(), 0, nullptr)); }));
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ(before, open_descriptors());
    });
}

TEST(pcfOpenRead, cuts_the_path_behind_516_characters)
{
    mounted([](const Scratch& scratch) {
        const Recorded_open calls(ENAMETOOLONG);
        for (const std::size_t length : {515U, 516U, 517U, 2000U}) {
            const std::string path = scratch.path(std::string(length - scratch.path().size() - 1, 'n'));
            ASSERT_EQ(length, path.size());
            const std::string name = path.substr(scratch.path().size() + 1);
            const std::string cut = path.substr(0, 516);
            EXPECT_EQ("ERROR: pcfOpenRead '" + cut + "' failed: " + text_of(ENAMETOOLONG) + "\n",
                      error_output([&] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead(name.c_str(), 0, nullptr)); }));
            EXPECT_EQ(cut, calls.opened);
        }
    });
}

TEST(pcfOpenRead, tells_of_a_seek_that_fails_and_closes)
{
    mounted([](const Scratch& scratch) {
        ASSERT_EQ(0, mkfifo(scratch.path("pipe").c_str(), 0600));
        const int kept = open(scratch.path("pipe").c_str(), O_RDWR); // or opening it would wait
        const long before = open_descriptors();
        EXPECT_EQ("ERROR: pcfOpenRead 'pipe' seek to 3 failed: " + text_of(ESPIPE) + "\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("pipe", 3, nullptr)); }));
        EXPECT_EQ("ERROR: pcfOpenRead 'pipe' seek to 0 failed: " + text_of(ESPIPE) + "\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("pipe", 0, nullptr)); }));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ(-1, pcf_rfd);
        close(kept);
    });
}

TEST(pcfOpenRead, tells_of_a_seek_to_another_position_and_closes)
{
    mounted([](const Scratch& scratch) {
        fs::create_symlink("/dev/null", scratch.path("null")); // which stands at 0 wherever it is sent
        const long before = open_descriptors();
        EXPECT_EQ("ERROR: pcfOpenRead 'null' seek to 5 failed: incorrect offset\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("null", 5, nullptr)); }));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ("", read_file("null"));
    });
}

TEST(pcfOpenRead, seeks_from_the_start)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "0123456789");
        struct : Interposed_calls {
            off_t lseek(int, off_t offset, int whence) override
            {
                asked = offset;
                from = whence;
                return answer;
            }
            off_t asked = -1;
            int from = -1;
            off_t answer = 0;
        } calls;
        for (const off_t wrong : {3, 5, 0}) {
            calls.answer = wrong;
            EXPECT_EQ("ERROR: pcfOpenRead 'f' seek to 4 failed: incorrect offset\n",
                      error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 4, nullptr)); }));
        }
        EXPECT_EQ(4, calls.asked);
        EXPECT_EQ(SEEK_SET, calls.from);
        calls.answer = 4;
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 4, nullptr));
    });
}

TEST(pcfOpenRead, takes_the_largest_offsets_for_what_the_system_says_of_them)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "0123456789");
        constexpr unsigned long LARGEST = std::numeric_limits<unsigned long>::max();
        if (sizeof LARGEST == 4) // positions have 64 bits there too
            EXPECT_EQ("", read_file("f", LARGEST));
        else
            EXPECT_EQ("ERROR: pcfOpenRead 'f' seek to " + std::to_string(LARGEST) +
                          " failed: " + text_of(EINVAL) + "\n",
                      error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", LARGEST, nullptr)); }));
    });
}

TEST(pcfOpenRead, reads_beyond_two_gigabytes)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "");
        constexpr unsigned long FAR = 3UL << 30;
        const int fd = open(scratch.path("f").c_str(), O_WRONLY);
        ASSERT_EQ(3, pwrite(fd, "end", 3, FAR));
        close(fd);
        EXPECT_EQ("end", read_file("f", FAR));
        EXPECT_EQ(std::numeric_limits<int>::max(), pcfSize("f", nullptr));
        EXPECT_TRUE(pcfExists("f"));
        EXPECT_TRUE(write_file("f", "!"));
        EXPECT_EQ("nd!", read_file("f", FAR + 1));
    });
}

TEST(pcfOpenRead, warns_of_a_descriptor_that_came_up_meanwhile)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        struct : Interposed_calls {
            int open(const char* path, int flags, mode_t mode) override
            {
                pcf_rfd = 77; // somebody who knows it by name
                pcf_wfd = 78;
                return Interposed_calls::open(path, flags, mode);
            }
        } calls;
        EXPECT_EQ("WARNING: pcfOpenRead global call overwrote global read fd 77!\n",
                  error_output([] { EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr)); }));
        EXPECT_NE(77, pcf_rfd);
        for (const bool create : {true, false}) {
            pcf_wfd = -1;
            EXPECT_EQ(
                "WARNING: pcf" + std::string(create ? "Create" : "Write") +
                    "Write global call overwrote global write fd 78!\n",
                error_output([create] { EXPECT_TRUE(create ? pcfCreateWrite("f") : pcfOpenWrite("f")); }));
            EXPECT_NE(78, pcf_wfd);
        }
    });
}

TEST(pcfOpenWrite, takes_descriptor_0_for_an_open_one)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        pcf_wfd = 0;
        EXPECT_EQ("ERROR: pcfWriteWrite 'f' failed: global write fd already open\n",
                  error_output([] { EXPECT_FALSE(pcfOpenWrite("f")); }));
        EXPECT_EQ(0, pcf_wfd);
        pcf_wfd = -1;
    });
}

TEST(pcfRead, needs_an_open_file_for_descriptor_0)
{
    mounted([](const Scratch&) {
        char byte = 'x';
        PcfResult result = PCF_SUCCESS;
        EXPECT_EQ("ERROR: pcfRead failed: global read fd not open\n",
                  error_output([&] { EXPECT_EQ(-1, pcfRead(&byte, 1, result, 0)); }));
        EXPECT_EQ(PCF_BAD_DESCRIPTOR, result);
        EXPECT_EQ('x', byte);
    });
}

TEST(pcfRead, refuses_negative_descriptors)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        for (const int fd : {-1, -2, std::numeric_limits<int>::min()}) {
            char byte = 'x';
            PcfResult result = PCF_SUCCESS;
            EXPECT_EQ("WARNING: pcfRead from non-global fd " + std::to_string(fd) +
                          "\nERROR: pcfRead failed: bad file descriptor\n",
                      error_output([&] { EXPECT_EQ(-1, pcfRead(&byte, 1, result, fd)); }));
            EXPECT_EQ(PCF_BAD_DESCRIPTOR, result);
        }
    });
}

TEST(pcfRead, reads_another_descriptor_with_a_warning)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        const int fd = open(scratch.path("f").c_str(), O_RDONLY);
        char bytes[10];
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ("WARNING: pcfRead from non-global fd " + std::to_string(fd) + "\n",
                  error_output([&] { EXPECT_EQ(3, pcfRead(bytes, 10, result, fd)); }));
        EXPECT_EQ(PCF_SUCCESS, result);
        EXPECT_EQ(0, std::memcmp("abc", bytes, 3));
        close(fd);
        EXPECT_EQ("WARNING: pcfRead from non-global fd " + std::to_string(fd) +
                      "\nERROR: pcfRead failed: " + text_of(EBADF) + "\n",
                  error_output([&] { EXPECT_EQ(-1, pcfRead(bytes, 10, result, fd)); }));
        EXPECT_EQ(PCF_FAILURE, result);
    });
}

TEST(pcfRead, answers_0_at_the_end_and_for_no_length)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        char bytes[10];
        for (const int count : {0, 2, 1, 0}) {
            PcfResult result = PCF_FAILURE;
            EXPECT_EQ(count, pcfRead(bytes, count == 0 ? 0 : 2, result, 0));
            EXPECT_EQ(PCF_SUCCESS, result);
        }
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(0, pcfRead(bytes, 10, result, 0));
        EXPECT_EQ(PCF_SUCCESS, result);
    });
}

TEST(pcfRead, tells_what_the_system_refuses)
{
    mounted([](const Scratch& scratch) {
        scratch.folder("folder");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("folder", 0, nullptr));
        char bytes[10];
        PcfResult result = PCF_SUCCESS;
        EXPECT_EQ("ERROR: pcfRead failed: " + text_of(EISDIR) + "\n",
                  error_output([&] { EXPECT_EQ(-1, pcfRead(bytes, 10, result, 0)); }));
        EXPECT_EQ(PCF_FAILURE, result);
        EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
    });
}

TEST(pcfRead, refuses_a_negative_length)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        char bytes[10];
        PcfResult result = PCF_SUCCESS;
        error_output([&] { EXPECT_EQ(-1, pcfRead(bytes, -1, result, 0)); });
        EXPECT_EQ(PCF_FAILURE, result);
    });
}

TEST(pcfRead, reads_once_however_little_comes)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        struct : Interposed_calls {
            ssize_t read(int fd, void* data, std::size_t size) override
            {
                ++reads;
                return error != 0 ? fail_with(error)
                                  : Interposed_calls::read(fd, data, std::min<std::size_t>(size, 2));
            }
            int reads = 0;
            int error = 0;
        } calls;
        char bytes[10];
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(2, pcfRead(bytes, 10, result, 0));
        EXPECT_EQ(PCF_SUCCESS, result);
        EXPECT_EQ(1, calls.reads);
        for (const int error : {EINTR, EAGAIN, EIO}) {
            calls.error = error;
            calls.reads = 0;
            std::string message; // kept apart: reading the captured text takes reads as well
            testing::internal::CaptureStderr();
            EXPECT_EQ(-1, pcfRead(bytes, 10, result, 0));
            EXPECT_EQ(1, calls.reads);
            calls.error = 0;
            EXPECT_EQ("ERROR: pcfRead failed: " + text_of(error) + "\n",
                      testing::internal::GetCapturedStderr());
            EXPECT_EQ(PCF_FAILURE, result);
        }
    });
}

TEST(pcfCloseRead, means_the_common_file_when_no_descriptor_is_named)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        ASSERT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        char bytes[3] = {};
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(3, pcfRead(bytes, 3, result));
        EXPECT_EQ(PCF_SUCCESS, result);
        EXPECT_EQ("abc", std::string(bytes, sizeof bytes));
        EXPECT_EQ(PCF_SUCCESS, pcfCloseRead());
        EXPECT_EQ(-1, pcf_rfd);
    });
}

TEST(pcfCloseRead, closes_what_is_open_once)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        const long before = open_descriptors();
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        EXPECT_EQ("", error_output([] { EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0)); }));
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ("ERROR: pcfCloseRead failed: global read fd not open\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfCloseRead(0)); }));
    });
}

TEST(pcfCloseRead, takes_minus_1_for_no_descriptor_and_asks_the_system_about_others)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        EXPECT_EQ("ERROR: pcfCloseRead failed: invalid file descriptor\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfCloseRead(-1)); }));
        for (const int fd : {-2, 1000})
            EXPECT_EQ("ERROR: pcfCloseRead close failed: " + text_of(EBADF) + "\n",
                      error_output([fd] { EXPECT_EQ(PCF_FAILURE, pcfCloseRead(fd)); }));
        EXPECT_GE(fcntl(pcf_rfd, F_GETFD), 0);
    });
}

TEST(pcfCloseRead, takes_a_file_for_closed_whatever_close_reports)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        EXPECT_EQ("ERROR: pcfCloseRead close failed: " + text_of(EBADF) + "\n", error_output([] {
                      close(pcf_rfd);
                      EXPECT_EQ(PCF_FAILURE, pcfCloseRead(0));
                  }));
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ("x", read_file("f"));
    });
}

TEST(pcfCloseRead, takes_the_file_for_open_still_when_it_is_closed_by_its_descriptor)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("f", 0, nullptr));
        const int fd = pcf_rfd;
        EXPECT_EQ("", error_output([fd] { EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(fd)); }));
        EXPECT_EQ(fd, pcf_rfd);
        EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        EXPECT_EQ("WARNING: pcfOpenRead 'f' failed: global read fd already open\n",
                  error_output([] { EXPECT_EQ(PCF_REFUSED, pcfOpenRead("f", 0, nullptr)); }));
    });
}

// ---- writing

TEST(pcfCreateWrite, makes_a_file_with_mode_0600)
{
    mounted([](const Scratch& scratch) {
        umask(0);
        EXPECT_EQ("", error_output([] { EXPECT_TRUE(pcfCreateWrite("f")); }));
        EXPECT_EQ(O_WRONLY | O_APPEND, fcntl(pcf_wfd, F_GETFL) & (O_ACCMODE | O_APPEND));
        EXPECT_TRUE(pcfCloseWrite());
        struct stat status {};
        EXPECT_EQ(0, stat(scratch.path("f").c_str(), &status));
        EXPECT_EQ(S_IFREG | mode_t{0600}, status.st_mode);
    });
}

TEST(pcfCreateWrite, keeps_what_a_file_holds_and_appends)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f", "before ");
        EXPECT_TRUE(write_file("f", "after"));
        EXPECT_EQ("before after", scratch.content("f"));
        EXPECT_TRUE(pcfOpenWrite("f"));
        EXPECT_EQ(1, pcfWrite(".", 1));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ("before after.", scratch.content("f"));
    });
}

TEST(pcfCreateWrite, appends_behind_what_others_write_meanwhile)
{
    mounted([](const Scratch& scratch) {
        EXPECT_TRUE(pcfCreateWrite("f"));
        EXPECT_EQ(1, pcfWrite("1", 1));
        std::ofstream(scratch.path("f"), std::ios::app) << "2";
        EXPECT_EQ(1, pcfWrite("3", 1));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ("123", scratch.content("f"));
    });
}

TEST(pcfCreateWrite, asks_the_system_for_an_appending_descriptor_and_never_truncates)
{
    mounted([](const Scratch& scratch) {
        const Recorded_open calls;
        EXPECT_TRUE(pcfCreateWrite("f"));
        EXPECT_EQ(scratch.path("f"), calls.opened);
        EXPECT_EQ(O_WRONLY | O_APPEND | O_CREAT, calls.asked);
        EXPECT_EQ(mode_t{0600}, calls.with_mode);
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_TRUE(pcfOpenWrite("f"));
        EXPECT_EQ(O_WRONLY | O_APPEND, calls.asked);
    });
}

TEST(pcfOpenWrite, needs_the_file_and_calls_itself_by_an_odd_name)
{
    mounted([](const Scratch& scratch) {
        EXPECT_EQ("ERROR: pcfWriteWrite 'f' failed: " + text_of(ENOENT) + "\n",
                  error_output([] { EXPECT_FALSE(pcfOpenWrite("f")); }));
        int fd = -7;
        EXPECT_EQ("WARNING: pcfWriteWrite call with specific write fd may break on ORX\n"
                  "ERROR: pcfWriteWrite 'f' failed: " +
                      text_of(ENOENT) + "\n",
                  error_output([&] { EXPECT_FALSE(pcfOpenWrite("f", &fd)); }));
        EXPECT_EQ(-7, fd);
        EXPECT_EQ(-1, pcf_wfd);
        EXPECT_EQ(Names{}, scratch.entries());
    });
}

TEST(pcfOpenWrite, refuses_the_names_that_are_refused)
{
    mounted([](const Scratch& scratch) {
        EXPECT_EQ("ERROR: pcfCreateWrite 'a/b' failed: pcfCheckName rejects name\n",
                  error_output([] { EXPECT_FALSE(pcfCreateWrite("a/b")); }));
        EXPECT_EQ("ERROR: pcfWriteWrite '' failed: pcfCheckName rejects name\n",
                  error_output([] { EXPECT_FALSE(pcfOpenWrite("")); }));
        int fd = -7;
        EXPECT_EQ("ERROR: pcfCreateWrite '(null)' failed: pcfCheckName rejects name\n",
                  error_output([&] { EXPECT_FALSE(pcfCreateWrite(nullptr, &fd)); }));
        EXPECT_EQ("ERROR: pcfWriteWrite 'log 1' failed: pcfCheckName rejects name\n",
                  error_output([&] { EXPECT_FALSE(pcfOpenWrite("log 1", &fd)); }));
        EXPECT_EQ(-7, fd);
        EXPECT_EQ(Names{}, scratch.entries());
    });
}

TEST(pcfCreateWrite, tells_why_a_file_cannot_be_opened)
{
    mounted([](const Scratch& scratch) {
        scratch.folder("folder");
        const std::string too_long(256, 'n');
        const std::pair<std::string, int> names[] = {
            {"folder", EISDIR}, {"..", EISDIR}, {too_long, ENAMETOOLONG}};
        for (const auto& [name, error] : names)
            EXPECT_EQ("ERROR: pcfCreateWrite '" + name + "' failed: " + text_of(error) + "\n",
                      error_output([&name = name] { EXPECT_FALSE(pcfCreateWrite(name.c_str())); }));
        EXPECT_EQ(-1, pcf_wfd);
    });
}

TEST(pcfCreateWrite, refuses_a_second_file_and_keeps_the_first)
{
    mounted([](const Scratch& scratch) {
        EXPECT_TRUE(pcfCreateWrite("f"));
        const int fd = pcf_wfd;
        EXPECT_EQ("ERROR: pcfCreateWrite 'g' failed: global write fd already open\n",
                  error_output([] { EXPECT_FALSE(pcfCreateWrite("g")); }));
        EXPECT_EQ("ERROR: pcfWriteWrite 'f' failed: global write fd already open\n",
                  error_output([] { EXPECT_FALSE(pcfOpenWrite("f")); }));
        EXPECT_EQ(fd, pcf_wfd);
        EXPECT_EQ(1, pcfWrite("1", 1));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ("1", scratch.content("f"));
        EXPECT_EQ(Names{"f"}, scratch.entries());
    });
}

TEST(pcfCreateWrite, opens_a_descriptor_of_the_callers_own_beside_the_common_one)
{
    mounted([](const Scratch& scratch) {
        EXPECT_TRUE(pcfCreateWrite("common"));
        const int common = pcf_wfd;
        int fd = -1;
        EXPECT_EQ("WARNING: pcfCreateWrite call with specific write fd may break on ORX\n",
                  error_output([&] { EXPECT_TRUE(pcfCreateWrite("own", &fd)); }));
        int second = -1;
        EXPECT_EQ("WARNING: pcfWriteWrite call with specific write fd may break on ORX\n",
                  error_output([&] { EXPECT_TRUE(pcfOpenWrite("own", &second)); }));
        EXPECT_EQ(common, pcf_wfd);
        EXPECT_EQ(3, (std::set<int>{fd, second, common}.size()));
        EXPECT_EQ(1, pcfWrite("a", 1, fd));
        EXPECT_EQ(1, pcfWrite("b", 1, second));
        EXPECT_EQ(1, pcfWrite("c", 1));
        EXPECT_TRUE(pcfCloseWrite(fd));
        EXPECT_TRUE(pcfCloseWrite(second));
        EXPECT_EQ(common, pcf_wfd);
        EXPECT_EQ(1, pcfWrite("d", 1));
        EXPECT_TRUE(pcfCloseWrite());
        EXPECT_EQ("ab", scratch.content("own"));
        EXPECT_EQ("cd", scratch.content("common"));
    });
}

TEST(pcfCreateWrite, stops_the_program_that_passes_the_stores_own_descriptor)
{
    const Scratch scratch;
    const auto open_into_the_stores_own = [&](bool create) {
        if (pcfIsMounted(scratch.path().c_str()))
            create ? pcfCreateWrite("f", &pcf_wfd) : pcfOpenWrite("f", &pcf_wfd);
        std::exit(0);
    };
    for (const bool create : {true, false})
        EXPECT_EXIT(open_into_the_stores_own(create), testing::KilledBySignal(SIGABRT),
                    "specific write fd may break on ORX\n.*util/rtems_compat/compat_pcfile.cpp:[0-9]+: .*"
                    "Assertion `fh != &pcf_wfd' failed");
    EXPECT_EQ(Names{}, scratch.entries());
}

TEST(pcfWrite, needs_an_open_file)
{
    mounted([](const Scratch&) {
        for (const int len : {1, 0, -1})
            for (const int fd : {-1, -2})
                EXPECT_EQ("ERROR: pcfWrite failed: invalid file descriptor\n",
                          error_output([=] { EXPECT_EQ(-1, pcfWrite("x", len, fd)); }));
        EXPECT_EQ("ERROR: pcfWrite failed: invalid file descriptor\n",
                  error_output([] { EXPECT_EQ(-1, pcfWrite("x", 1)); }));
    });
}

TEST(pcfWrite, writes_nothing_for_a_length_of_0_or_less)
{
    mounted([](const Scratch& scratch) {
        EXPECT_TRUE(pcfCreateWrite("f"));
        for (const int len : {0, -1, std::numeric_limits<int>::min()})
            EXPECT_EQ("", error_output([len] { EXPECT_EQ(0, pcfWrite("x", len)); }));
        EXPECT_EQ("", error_output([] { EXPECT_EQ(0, pcfWrite("x", 0, 1000)); }));
        EXPECT_EQ("", scratch.content("f"));
    });
}

TEST(pcfWrite, takes_0_for_descriptor_0)
{
    mounted([](const Scratch& scratch) {
        scratch.file("input", "");
        ASSERT_EQ(0, dup2(open(scratch.path("input").c_str(), O_WRONLY), 0));
        EXPECT_TRUE(pcfCreateWrite("f"));
        EXPECT_EQ(2, pcfWrite("in", 2, 0));
        EXPECT_EQ("in", scratch.content("input"));
        EXPECT_TRUE(pcfCloseWrite(0));
        EXPECT_EQ(-1, fcntl(0, F_GETFD));
        EXPECT_GE(pcf_wfd, 0);
        EXPECT_EQ("", scratch.content("f"));
    });
}

TEST(pcfWrite, tells_what_the_system_refuses)
{
    mounted([](const Scratch& scratch) {
        EXPECT_EQ("ERROR: pcfWrite failed :" + text_of(EBADF) + "\n",
                  error_output([] { EXPECT_EQ(-1, pcfWrite("x", 1, 1000)); }));
        fs::create_symlink("/dev/full", scratch.path("full"));
        EXPECT_TRUE(pcfOpenWrite("full"));
        EXPECT_EQ("ERROR: pcfWrite failed :" + text_of(ENOSPC) + "\n",
                  error_output([] { EXPECT_EQ(-1, pcfWrite("x", 1)); }));
        EXPECT_GE(pcf_wfd, 0);
        EXPECT_EQ("ERROR: pcfCloseWriteImpl fdatasync failed: " + text_of(EINVAL) + "\n", error_output([] {
                      EXPECT_TRUE(pcfCloseWrite());
                  })); // a device has no data to bring anywhere
    });
}

namespace {

/// Takes each write as a script has it: a number of bytes, or an error below 0.
class Scripted_writes : public Interposed_calls {
public:
    ssize_t write(int fd, const void* data, std::size_t size) override
    {
        if (fd != written_to)
            return Interposed_calls::write(fd, data, size);
        const long step = next < script.size() ? script[next] : static_cast<long>(size);
        ++next;
        if (step < 0)
            return fail_with(static_cast<int>(-step));
        const std::size_t count = std::min(size, static_cast<std::size_t>(step));
        taken.append(static_cast<const char*>(data), count);
        return static_cast<ssize_t>(count);
    }

    static constexpr int written_to = 500;
    std::vector<long> script;
    std::size_t next = 0;
    std::string taken;
};

} // namespace

TEST(pcfWrite, goes_on_until_all_is_written)
{
    unmounted([](const Scratch&) {
        const struct {
            std::vector<long> script;
            int result;
            const char* taken;
            std::size_t writes;
            int error;
        } cases[] = {
            {{}, 10, "0123456789", 1, 0},
            {{3, 3, 3, 3}, 10, "0123456789", 4, 0},
            {{-EINTR, -EAGAIN, -EINTR, 4, -EAGAIN, 6}, 10, "0123456789", 6, 0},
            {{4, 0, 6}, 4, "0123", 2, 0},
            {{0}, 0, "", 1, 0},
            {{4, -ENOSPC, 6}, -1, "0123", 2, ENOSPC},
            {{-EINTR, -EIO}, -1, "", 2, EIO},
        };
        for (const auto& one : cases) {
            Scripted_writes calls;
            calls.script = one.script;
            EXPECT_EQ(
                one.error == 0 ? "" : "ERROR: pcfWrite failed :" + text_of(one.error) + "\n",
                error_output([&] { EXPECT_EQ(one.result, pcfWrite("0123456789", 10, calls.written_to)); }));
            EXPECT_EQ(one.taken, calls.taken);
            EXPECT_EQ(one.writes, calls.next);
        }
    });
}

TEST(pcfWrite, loses_and_doubles_nothing_however_writes_go)
{
    unmounted([](const Scratch&) {
        std::mt19937 random(82);
        testing::internal::CaptureStderr();
        for (int round = 0; round < 20000; ++round) {
            std::string bytes(random() % 300, '\0');
            std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
            Scripted_writes calls;
            long sum = 0;
            int expected = static_cast<int>(bytes.size());
            while (sum < static_cast<long>(bytes.size())) {
                const auto kind = random() % 40;
                const long step = kind < 10    ? -EINTR
                                  : kind < 20  ? -EAGAIN
                                  : kind == 20 ? 0
                                  : kind == 21 ? -EIO
                                               : static_cast<long>(1 + random() % 100);
                calls.script.push_back(step);
                if (kind == 20 || kind == 21) {
                    expected = kind == 20 ? static_cast<int>(sum) : -1;
                    break;
                }
                sum += std::max(0L, step);
            }
            ASSERT_EQ(expected, pcfWrite(bytes.data(), static_cast<int>(bytes.size()), calls.written_to))
                << "seed 82, round " << round;
            ASSERT_EQ(bytes.substr(0, static_cast<std::size_t>(sum)), calls.taken)
                << "seed 82, round " << round;
            ASSERT_EQ(calls.script.size(), calls.next) << "seed 82, round " << round;
        }
        testing::internal::GetCapturedStderr();
    });
}

TEST(pcfCloseWrite, does_nothing_when_nothing_is_open)
{
    mounted([](const Scratch&) {
        const long before = open_descriptors();
        EXPECT_EQ("", error_output([] {
                      EXPECT_TRUE(pcfCloseWrite());
                      EXPECT_TRUE(pcfCloseWrite(-1));
                      EXPECT_TRUE(pcfCloseWrite(-2));
                  }));
        EXPECT_EQ(before, open_descriptors());
    });
}

TEST(pcfCloseWrite, closes_the_common_file_by_its_descriptor_too)
{
    mounted([](const Scratch&) {
        for (const bool by_descriptor : {false, true}) {
            EXPECT_TRUE(pcfCreateWrite("f"));
            const int fd = pcf_wfd;
            EXPECT_EQ(
                "", error_output([=] { EXPECT_TRUE(by_descriptor ? pcfCloseWrite(fd) : pcfCloseWrite()); }));
            EXPECT_EQ(-1, pcf_wfd);
            EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        }
    });
}

TEST(pcfCloseWrite, tells_what_fails_and_takes_the_file_for_closed)
{
    mounted([](const Scratch&) {
        for (const bool by_descriptor : {false, true}) {
            EXPECT_TRUE(pcfCreateWrite("f"));
            EXPECT_EQ("ERROR: pcfCloseWriteImpl fdatasync failed: " + text_of(EBADF) +
                          "\nERROR: pcfCloseWriteImpl failed: " + text_of(EBADF) + "\n",
                      error_output([by_descriptor] {
                          close(pcf_wfd);
                          EXPECT_TRUE(by_descriptor ? pcfCloseWrite(pcf_wfd) : pcfCloseWrite());
                      }));
            EXPECT_EQ(-1, pcf_wfd);
        }
    });
}

TEST(pcfCloseWrite, brings_the_file_to_the_disc_before_it_closes_it)
{
    mounted([](const Scratch&) {
        struct : Interposed_calls {
            int fdatasync(int fd) override
            {
                done.push_back("sync " + std::to_string(fd));
                return sync_error != 0 ? fail_with(sync_error) : Interposed_calls::fdatasync(fd);
            }
            int close(int fd) override
            {
                if (fd == watched)
                    done.push_back("close " + std::to_string(fd));
                const int result = Interposed_calls::close(fd);
                return close_error != 0 && fd == watched ? fail_with(close_error) : result;
            }
            Names done;
            int watched = -1;
            int sync_error = 0;
            int close_error = 0;
        } calls;
        const struct {
            int sync_error;
            int close_error;
        } cases[] = {{0, 0}, {EIO, 0}, {0, ENOSPC}, {EIO, EDQUOT}};
        for (const auto& one : cases) {
            calls.sync_error = one.sync_error;
            calls.close_error = one.close_error;
            EXPECT_TRUE(pcfCreateWrite("f"));
            calls.watched = pcf_wfd;
            calls.done.clear();
            const std::string expected =
                (one.sync_error != 0
                     ? "ERROR: pcfCloseWriteImpl fdatasync failed: " + text_of(one.sync_error) + "\n"
                     : "") +
                (one.close_error != 0 ? "ERROR: pcfCloseWriteImpl failed: " + text_of(one.close_error) + "\n"
                                      : "");
            const std::string fd = std::to_string(pcf_wfd);
            EXPECT_EQ(expected, error_output([] { EXPECT_TRUE(pcfCloseWrite()); }));
            EXPECT_EQ((Names{"sync " + fd, "close " + fd}),
                      Names(calls.done.begin(), calls.done.begin() + 2));
            EXPECT_EQ(-1, pcf_wfd);
        }
    });
}

// ---- files

TEST(pcfSize, tells_size_and_time)
{
    mounted([](const Scratch& scratch) {
        for (const std::size_t size : {0U, 1U, 4096U, 100000U}) {
            scratch.file("f", std::string(size, 'x'));
            EXPECT_EQ(static_cast<int>(size), pcfSize("f", nullptr));
            EXPECT_EQ(static_cast<int>(size), pcfSizeImpl("f", nullptr, false));
        }
        const std::pair<std::int64_t, int> times[] = {
            {1000000000, 1000000000}, {0, 0}, {-5, -5}, {2147483647, 2147483647}, {2147483648, 2147483647},
            {4000000000, 2147483647}};
        for (const auto& [seconds, expected] : times) {
            const timespec time{seconds, 999999999};
            const timespec both[] = {time, time};
            ASSERT_EQ(0, utimensat(AT_FDCWD, scratch.path("f").c_str(), both, 0));
            int mtime = -7;
            EXPECT_EQ(100000, pcfSize("f", &mtime));
            EXPECT_EQ(expected, mtime);
        }
    });
}

TEST(pcfSize, takes_a_status_as_large_as_a_disk)
{
    mounted([](const Scratch&) {
        struct : Interposed_calls {
            int stat(const char*, struct stat* status) override
            {
                *status = {};
                status->st_size = size;
                status->st_mtime = mtime;
                return 0;
            }
            off_t size = 0;
            std::int64_t mtime = 0;
        } calls;
        const std::tuple<std::int64_t, std::int64_t, int, int> cases[] = {
            {0, 0, 0, 0},
            {INT_MAX, INT_MIN, INT_MAX, INT_MIN},
            {std::int64_t{INT_MAX} + 1, std::int64_t{INT_MIN} - 1, INT_MAX, INT_MIN},
            {std::int64_t{1} << 32, -(std::int64_t{1} << 32), INT_MAX, INT_MIN},
            {INT64_MAX, INT64_MAX, INT_MAX, INT_MAX}};
        for (const auto& [size, time, expected_size, expected_time] : cases) {
            calls.size = size;
            calls.mtime = time;
            int mtime = -7;
            EXPECT_EQ(expected_size, pcfSize("f", &mtime));
            EXPECT_EQ(expected_time, mtime);
            EXPECT_TRUE(pcfExists("f"));
        }
    });
}

TEST(pcfSize, tells_of_a_missing_file_where_pcfExists_is_silent)
{
    mounted([](const Scratch& scratch) {
        int mtime = -7;
        EXPECT_EQ("ERROR: pcfSize 'missing' failed: " + text_of(ENOENT) + "\n",
                  error_output([&] { EXPECT_EQ(-1, pcfSize("missing", &mtime)); }));
        EXPECT_EQ("", error_output([&] { EXPECT_EQ(-1, pcfSizeImpl("missing", &mtime, false)); }));
        EXPECT_EQ("", error_output([] { EXPECT_FALSE(pcfExists("missing")); }));
        EXPECT_EQ(-7, mtime);
        scratch.file("f", "");
        scratch.folder("folder");
        fs::create_symlink("nowhere", scratch.path("link"));
        EXPECT_TRUE(pcfExists("f"));
        EXPECT_TRUE(pcfExists("folder"));
        EXPECT_FALSE(pcfExists("link"));
        scratch.file("nowhere", "abc");
        EXPECT_EQ(3, pcfSize("link", nullptr));
    });
}

TEST(pcfRemove, removes_a_file_and_answers_0_whatever_happened)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        scratch.folder("folder");
        EXPECT_EQ("", error_output([] {
                      EXPECT_EQ(0, pcfRemove("f"));
                      EXPECT_EQ(0, pcfRemove("f"));
                      EXPECT_EQ(0, pcfRemove("folder"));
                      EXPECT_EQ(0, pcfRemove(""));
                  }));
        EXPECT_EQ(Names{"folder"}, scratch.entries());
    });
}

TEST(pcfRemove, does_not_ask_whether_the_store_is_mounted)
{
    unmounted([](const Scratch& scratch) {
        struct : Interposed_calls {
            int unlink(const char* path) override
            {
                asked.emplace_back(path);
                return 0;
            }
            Names asked;
        } calls;
        EXPECT_EQ(0, pcfRemove("f"));
        error_output([&] { EXPECT_FALSE(pcfIsMounted(scratch.path("a/b").c_str())); });
        EXPECT_EQ(0, pcfRemove("f"));
        EXPECT_EQ((Names{"/f", scratch.path("a/b/f")}), calls.asked);
    });
}

// ---- listing

TEST(pcfGetNumFiles, counts_what_is_no_directory)
{
    mounted([](const Scratch& scratch) {
        EXPECT_EQ(0, pcfGetNumFiles());
        scratch.file("a");
        scratch.file("b");
        scratch.folder("folder");
        EXPECT_EQ(2, pcfGetNumFiles());
        scratch.file("folder/below");
        fs::create_symlink("folder", scratch.path("link"));
        ASSERT_EQ(0, mkfifo(scratch.path("pipe").c_str(), 0600));
        scratch.file(".hidden");
        EXPECT_EQ(5, pcfGetNumFiles());
        EXPECT_EQ((Names{".hidden", "a", "b", "link", "pipe"}), sorted(listed()));
    });
}

TEST(pcfGetFileName, tells_the_names_in_the_order_of_the_directory)
{
    mounted([](const Scratch& scratch) {
        for (int i = 0; i < 100; ++i) {
            scratch.file("file" + std::to_string(i));
            if (i % 10 == 0)
                scratch.folder("folder" + std::to_string(i));
        }
        const Names names = walked(scratch.path());
        ASSERT_EQ(100U, names.size());
        char name[256];
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(pcfGetFileName(i, name));
            EXPECT_EQ(names[static_cast<std::size_t>(i)], name);
        }
        std::strcpy(name, "as before");
        for (const int index : {100, 101, INT_MAX, -1, INT_MIN})
            EXPECT_FALSE(pcfGetFileName(index, name)) << index;
        EXPECT_STREQ("as before", name);
        EXPECT_EQ(names, listed());
    });
}

TEST(pcfGetFileName, counts_entries_of_unknown_type_whatever_they_are)
{
    mounted([](const Scratch& scratch) {
        scratch.file("a");
        scratch.folder("folder");
        struct : Interposed_calls {
            dirent* readdir(DIR* stream) override
            {
                dirent* const entry = Interposed_calls::readdir(stream);
                if (entry != nullptr)
                    entry->d_type = DT_UNKNOWN;
                return entry;
            }
        } calls;
        EXPECT_EQ(4, pcfGetNumFiles());
        EXPECT_EQ((Names{".", "..", "a", "folder"}), sorted(listed()));
        EXPECT_EQ(walked(scratch.path()), listed());
    });
}

TEST(pcfGetFileName, takes_names_of_255_characters)
{
    mounted([](const Scratch& scratch) {
        const std::string longest(255, 'n');
        EXPECT_TRUE(write_file(longest.c_str(), "abc"));
        EXPECT_EQ(Names{longest}, scratch.entries());
        char room[258];
        std::memset(room, 'x', sizeof room);
        EXPECT_TRUE(pcfGetFileName(0, room + 1));
        EXPECT_EQ(longest, room + 1);
        EXPECT_EQ('x', room[0]);
        EXPECT_EQ('x', room[257]);
        PcfFileInfo info{};
        EXPECT_EQ(longest, pcfFirst(&info));
        EXPECT_EQ(3, info.size);
        EXPECT_EQ("abc", read_file(longest.c_str()));
        EXPECT_TRUE(pcfExists(longest.c_str()));
        EXPECT_EQ(0, pcfRemove(longest.c_str()));
        EXPECT_EQ(Names{}, scratch.entries());
    });
}

TEST(pcfGetFileName, cuts_a_name_that_no_file_system_should_tell)
{
    mounted([](const Scratch& scratch) {
        scratch.file("a");
        struct : Interposed_calls {
            dirent* readdir(DIR* stream) override
            {
                const dirent* const entry = Interposed_calls::readdir(stream);
                if (entry == nullptr)
                    return nullptr;
                changed = *entry;
                if (changed.d_type != DT_DIR)
                    std::memset(changed.d_name, 'n', sizeof changed.d_name); // no end
                return &changed;
            }
            dirent changed{};
        } calls;
        char room[257];
        std::memset(room, 'x', sizeof room);
        EXPECT_TRUE(pcfGetFileName(0, room));
        EXPECT_EQ(std::string(255, 'n'), room);
        EXPECT_EQ('x', room[256]);
    });
}

TEST(pcfFirst, tells_size_and_time_of_each_file)
{
    mounted([](const Scratch& scratch) {
        for (const char* name : {"a", "bb", "ccc"}) {
            scratch.file(name, name);
            const timespec time{1000000000 + static_cast<int>(std::strlen(name)), 0};
            const timespec both[] = {time, time};
            ASSERT_EQ(0, utimensat(AT_FDCWD, scratch.path(name).c_str(), both, 0));
        }
        Names names;
        PcfFileInfo info{};
        for (const char* name = pcfFirst(&info); name != nullptr; name = pcfNext(&info)) {
            names.emplace_back(name);
            EXPECT_EQ(static_cast<int>(std::strlen(name)), info.size);
            EXPECT_EQ(1000000000 + static_cast<int>(std::strlen(name)), info.mtime);
        }
        EXPECT_EQ(walked(scratch.path()), names);
        info = {-7, -8};
        EXPECT_EQ(nullptr, pcfNext(&info));
        EXPECT_EQ(-7, info.size);
        EXPECT_EQ(-8, info.mtime);
    });
}

TEST(pcfFirst, tells_minus_1_of_a_file_without_a_status)
{
    mounted([](const Scratch& scratch) {
        fs::create_symlink("nowhere", scratch.path("link"));
        PcfFileInfo info{-7, -8};
        EXPECT_EQ("ERROR: pcfSize 'link' failed: " + text_of(ENOENT) + "\n",
                  error_output([&] { EXPECT_STREQ("link", pcfFirst(&info)); }));
        EXPECT_EQ(-1, info.size);
        EXPECT_EQ(0, info.mtime);
        EXPECT_EQ("", error_output([] { EXPECT_STREQ("link", pcfFirst(nullptr)); }));
    });
}

TEST(pcfNext, hands_out_one_buffer)
{
    mounted([](const Scratch& scratch) {
        scratch.file("a");
        scratch.file("b");
        const char* const first = pcfFirst(nullptr);
        const std::string first_name = first;
        EXPECT_EQ(first, pcfNext(nullptr));
        EXPECT_NE(first_name, first);
        EXPECT_EQ(nullptr, pcfNext(nullptr));
        char name[256];
        EXPECT_TRUE(pcfGetFileName(0, name));
        EXPECT_NE(first_name, first);
    });
}

TEST(pcfNext, counts_calls_behind_the_end)
{
    mounted([](const Scratch& scratch) {
        EXPECT_EQ(nullptr, pcfFirst(nullptr));
        EXPECT_EQ(nullptr, pcfNext(nullptr));
        for (const char* name : {"a", "b", "c"})
            scratch.file(name);
        EXPECT_EQ(walked(scratch.path())[2], pcfNext(nullptr));
        EXPECT_EQ(nullptr, pcfNext(nullptr));
        EXPECT_EQ(walked(scratch.path())[0], pcfFirst(nullptr));
    });
}

TEST(pcfNext, begins_at_the_first_file_without_pcfFirst)
{
    mounted([](const Scratch& scratch) {
        scratch.file("a");
        EXPECT_STREQ("a", pcfNext(nullptr));
        EXPECT_EQ(nullptr, pcfNext(nullptr));
    });
}

TEST(pcfNext, finds_nothing_where_the_directory_cannot_be_opened)
{
    mounted([](const Scratch& scratch) {
        scratch.file("a");
        scratch.file("b");
        struct : Interposed_calls {
            DIR* opendir(const char* path) override
            {
                opened = path;
                errno = EMFILE;
                return nullptr;
            }
            std::string opened;
        } calls;
        char name[256] = "as before";
        EXPECT_EQ("", error_output([&] {
                      EXPECT_EQ(0, pcfGetNumFiles());
                      EXPECT_FALSE(pcfGetFileName(0, name));
                      EXPECT_FALSE(pcfGetFileName(1, name));
                      EXPECT_EQ(nullptr, pcfFirst(nullptr));
                      EXPECT_EQ(nullptr, pcfNext(nullptr));
                  }));
        EXPECT_STREQ("as before", name);
        EXPECT_EQ(scratch.path(), calls.opened);
    });
}

TEST(pcfNext, leaves_no_descriptor_open)
{
    mounted([](const Scratch& scratch) {
        for (const char* name : {"a", "b", "c"})
            scratch.file(name);
        const long before = open_descriptors();
        listed();
        char name[256];
        EXPECT_EQ(3, pcfGetNumFiles());
        EXPECT_TRUE(pcfGetFileName(1, name));
        pcfFirst(nullptr);
        pcfNext(nullptr);
        EXPECT_EQ(before, open_descriptors());
    });
}

namespace {

/// Keeps the clock of the process, and gives a directory the times of change that a file system would: that
/// of the last tick, cut to a multiple of what the system can store.
class Stamping_file_system : public Interposed_calls {
public:
    Stamping_file_system(std::int64_t tick, std::int64_t granularity)
        : tick_ns(tick), granularity_ns(granularity)
    {
        touch();
    }

    int fstat(int fd, struct stat* status) override
    {
        const int result = Interposed_calls::fstat(fd, status);
        if (result == 0 && S_ISDIR(status->st_mode)) {
            status->st_ctim.tv_sec = changed_ns / SECOND; // 64 bits on every machine
            status->st_ctim.tv_nsec = static_cast<int>(changed_ns % SECOND);
            status->st_mtim = status->st_ctim;
        }
        return result;
    }
    dirent* readdir(DIR* stream) override
    {
        ++entries_read;
        return Interposed_calls::readdir(stream);
    }

    void advance(std::int64_t ns)
    {
        now_ns += ns;
        clock.reset();
        clock.emplace(now_ns / SECOND, static_cast<int>(now_ns % SECOND / 1000000));
    }
    /// The directory changes now.
    void touch()
    {
        const std::int64_t last_tick =
            now_ns - now_ns % tick_ns + (granularity_ns == 1 ? ODD_NS - tick_ns : 0);
        changed_ns = last_tick - last_tick % granularity_ns;
        advance(0);
    }

    static constexpr std::int64_t SECOND = 1000000000;
    long entries_read = 0;

private:
    static constexpr std::int64_t ODD_NS = 541916; // ticks are not at whole milliseconds

    std::int64_t tick_ns;
    std::int64_t granularity_ns;
    std::int64_t now_ns = 1700000000 * SECOND;
    std::int64_t changed_ns = 0;
    std::optional<Fake_clock> clock;
};

constexpr std::int64_t MILLISECOND = 1000000;

/// Ticks and what a file system stores, from the finest to the coarsest.
const std::pair<std::int64_t, std::int64_t> STAMPS[] = {{MILLISECOND, 1},
                                                        {4 * MILLISECOND, 1},
                                                        {10 * MILLISECOND, 1},
                                                        {4 * MILLISECOND, 10 * MILLISECOND},
                                                        {10 * MILLISECOND, 1000 * MILLISECOND},
                                                        {10 * MILLISECOND, 2000 * MILLISECOND}};

} // namespace

TEST(pcfNext, sees_the_directory_as_it_is_while_files_come_and_go)
{
    for (const auto& [tick, granularity] : STAMPS)
        mounted([tick = tick, granularity = granularity](const Scratch& scratch) {
            Stamping_file_system system(tick, granularity);
            std::mt19937 random(81);
            std::set<std::string> files;
            std::set<std::string> folders;
            unsigned next = 0;
            int found = 0;
            for (int round = 0; round < 4000; ++round) {
                const std::int64_t steps[] = {MILLISECOND / 10,   MILLISECOND,       5 * MILLISECOND,
                                              20 * MILLISECOND,   60 * MILLISECOND,  700 * MILLISECOND,
                                              2100 * MILLISECOND, 3500 * MILLISECOND};
                system.advance(steps[random() % std::size(steps)]);
                if (random() % 4 == 0) {
                    const std::string name = "n" + std::to_string(random() % 30);
                    if (files.erase(name) != 0)
                        fs::remove(scratch.path(name));
                    else if (folders.erase(name) != 0)
                        fs::remove(scratch.path(name));
                    else if (random() % 4 == 0) {
                        scratch.folder(name);
                        folders.insert(name);
                    } else {
                        scratch.file(name);
                        files.insert(name);
                    }
                    system.touch();
                }
                const Names now = walked(scratch.path());
                SCOPED_TRACE(testing::Message() << "seed 81, round " << round << ", tick " << tick
                                                << ", granularity " << granularity);
                const auto kind = random() % 20;
                if (kind == 0)
                    ASSERT_EQ(static_cast<int>(now.size()), pcfGetNumFiles());
                else if (kind < 4) {
                    const std::size_t index = random() % 30;
                    char name[256] = "";
                    ASSERT_EQ(index < now.size(), pcfGetFileName(static_cast<int>(index), name));
                    ASSERT_EQ(index < now.size() ? now[index] : "", name);
                } else {
                    if (kind == 4)
                        next = 0;
                    const char* const name = kind == 4 ? pcfFirst(nullptr) : pcfNext(nullptr);
                    ASSERT_EQ(next < now.size() ? now[next] : "(end)", name != nullptr ? name : "(end)");
                    found += name != nullptr ? 1 : 0;
                    ++next;
                }
            }
            EXPECT_GT(found, 500);
        });
}

TEST(pcfNext, reads_a_directory_at_rest_once_and_not_to_each_name_anew)
{
    for (const auto& [tick, granularity] : STAMPS)
        mounted([tick = tick, granularity = granularity](const Scratch& scratch) {
            constexpr int FILES = 300;
            for (int i = 0; i < FILES; ++i)
                scratch.file("file" + std::to_string(i));
            Stamping_file_system system(tick, granularity);
            EXPECT_EQ(static_cast<std::size_t>(FILES), listed().size());
            EXPECT_GT(system.entries_read, FILES * FILES / 2); // just changed: each call looks for itself
            system.advance(granularity >= 10 * MILLISECOND ? 6000 * MILLISECOND : 100 * MILLISECOND);
            const Names names = walked(scratch.path());
            system.entries_read = 0;
            EXPECT_EQ(names, listed());
            EXPECT_EQ(FILES, pcfGetNumFiles());
            char name[256];
            for (int i = 1; i < FILES; ++i) {
                EXPECT_TRUE(pcfGetFileName(i, name));
                EXPECT_EQ(names[static_cast<std::size_t>(i)], name);
            }
            EXPECT_FALSE(pcfGetFileName(FILES, name));
            EXPECT_LT(system.entries_read, 2 * FILES);
        });
}

TEST(pcfNext, looks_for_itself_when_the_clock_was_set_back)
{
    mounted([](const Scratch& scratch) {
        Stamping_file_system system(4 * MILLISECOND, 1);
        for (const char* name : {"a", "b", "c"})
            scratch.file(name);
        system.touch();
        system.advance(-3600 * Stamping_file_system::SECOND); // the directory has changed in an hour's time
        EXPECT_EQ(walked(scratch.path()), listed());
        scratch.file("d");
        EXPECT_EQ(4U, listed().size()); // at the same time of change
    });
}

TEST(pcfNext, looks_for_itself_when_a_time_of_change_comes_again)
{
    mounted([](const Scratch& scratch) {
        Stamping_file_system system(MILLISECOND, 1);
        for (const char* name : {"a", "b", "c"})
            scratch.file(name);
        system.touch();
        system.advance(1000 * MILLISECOND);
        EXPECT_EQ(walked(scratch.path()), listed());
        scratch.file("d");
        system.touch();
        EXPECT_EQ(walked(scratch.path()), listed());
        system.advance(-1000 * MILLISECOND);
        scratch.file("e");
        system.touch();
        EXPECT_EQ(walked(scratch.path()), listed());
    });
}

TEST(pcfNext, sees_another_directory_that_takes_the_place_of_the_first)
{
    unmounted([](const Scratch& scratch) {
        for (const char* name : {"one", "other"}) {
            scratch.folder(name);
            for (const char* file : {"/a", "/b", "/c"})
                scratch.file(name + std::string(file) + "-" + name);
        }
        Stamping_file_system system(4 * MILLISECOND, 1); // the same time of change for both
        system.advance(1000 * MILLISECOND);
        EXPECT_TRUE(pcfIsMounted(scratch.path("one").c_str()));
        EXPECT_EQ(walked(scratch.path("one")), listed());
        fs::rename(scratch.path("one"), scratch.path("away"));
        fs::rename(scratch.path("other"), scratch.path("one"));
        EXPECT_EQ(walked(scratch.path("one")), listed());
        EXPECT_EQ(3, pcfGetNumFiles());
    });
}

TEST(pcfNext, goes_by_walking_where_the_status_cannot_be_read_or_reading_fails)
{
    mounted([](const Scratch& scratch) {
        for (const char* name : {"a", "b", "c"})
            scratch.file(name);
        struct : Stamping_file_system {
            using Stamping_file_system::Stamping_file_system;
            int fstat(int fd, struct stat* status) override
            {
                return no_status ? fail_with(EIO) : Stamping_file_system::fstat(fd, status);
            }
            dirent* readdir(DIR* stream) override
            {
                dirent* const entry = Stamping_file_system::readdir(stream);
                if (entry == nullptr && bad_end)
                    errno = EIO;
                return entry;
            }
            bool no_status = false;
            bool bad_end = false;
        } system(4 * MILLISECOND, 1);
        const Names names = walked(scratch.path());
        system.advance(1000 * MILLISECOND);
        system.no_status = true;
        EXPECT_EQ(names, listed());
        EXPECT_EQ(3, pcfGetNumFiles());
        system.no_status = false;
        system.bad_end = true;
        EXPECT_EQ(names, listed());
        EXPECT_EQ(3, pcfGetNumFiles());
        scratch.file("d"); // at the same time of change: nothing must have been kept
        EXPECT_EQ(walked(scratch.path()), listed());
        system.bad_end = false;
        EXPECT_EQ(4U, listed().size());
        scratch.file("e"); // kept by now, and of no use without the status
        system.no_status = true;
        EXPECT_EQ(walked(scratch.path()), listed());
        EXPECT_EQ(5, pcfGetNumFiles());
    });
}

namespace {

/// Tells of more files than there are.
class Crowded_file_system : public Stamping_file_system {
public:
    explicit Crowded_file_system(std::size_t files) : Stamping_file_system(MILLISECOND, 1), count(files) {}

    dirent* readdir(DIR* stream) override
    {
        if (telldir(stream) == 0) { // at the start, also once more
            next = 0;
            Stamping_file_system::readdir(stream);
        }
        if (next == count)
            return nullptr;
        ++entries_read;
        entry.d_type = DT_REG;
        std::strcpy(entry.d_name, name(next++).c_str());
        return &entry;
    }
    static std::string name(std::size_t index)
    {
        const std::string number = std::to_string(index);
        return std::string(255 - number.size(), 'n') + number;
    }

private:
    std::size_t count;
    std::size_t next = 0;
    dirent entry{};
};

} // namespace

TEST(pcfNext, keeps_four_megabytes_of_names_and_walks_where_there_are_more)
{
    constexpr std::size_t KEPT = (std::size_t{4} << 20) / 256;
    for (const std::size_t files : {KEPT, KEPT + 1})
        mounted([files](const Scratch&) {
            Crowded_file_system system(files);
            system.advance(1000 * MILLISECOND);
            char name[256];
            for (const std::size_t index : {files - 1, std::size_t{1}, files - 2}) {
                EXPECT_TRUE(pcfGetFileName(static_cast<int>(index), name));
                EXPECT_EQ(Crowded_file_system::name(index), name);
            }
            EXPECT_FALSE(pcfGetFileName(static_cast<int>(files), name));
            system.entries_read = 0;
            EXPECT_TRUE(pcfGetFileName(static_cast<int>(files) / 2, name));
            EXPECT_EQ(Crowded_file_system::name(files / 2), name);
            EXPECT_EQ(files == KEPT, system.entries_read == 0);
            EXPECT_EQ(static_cast<int>(files), pcfGetNumFiles());
        });
}

TEST(pcfNext, sees_a_real_directory_as_it_is)
{
    mounted([](const Scratch& scratch) {
        std::mt19937 random(84);
        std::set<std::string> files;
        for (int round = 0; round < 40; ++round) {
            for (int i = 0; i < 50; ++i) {
                const std::string name = "n" + std::to_string(random() % 100);
                if (files.erase(name) != 0)
                    fs::remove(scratch.path(name));
                else {
                    scratch.file(name);
                    files.insert(name);
                }
                const Names now = walked(scratch.path());
                const std::size_t index = random() % 60;
                char found[256] = "";
                ASSERT_EQ(index < now.size(), pcfGetFileName(static_cast<int>(index), found));
                ASSERT_EQ(index < now.size() ? now[index] : "", found);
                ASSERT_EQ(static_cast<int>(now.size()), pcfGetNumFiles());
            }
            if (round % 4 == 0) // long enough for the directory to be at rest
                std::this_thread::sleep_for(std::chrono::milliseconds(70));
            ASSERT_EQ(walked(scratch.path()), listed());
        }
    });
}

// ---- a model: files by name, of which some are open

namespace {

using Contents = std::shared_ptr<std::string>;

/// For tests that close files by the thousand.
struct No_disc : Interposed_calls {
    int fdatasync(int) override { return 0; }
};

struct Model {
    std::map<std::string, Contents> files;
    Contents reading;
    std::size_t place = 0;
    Contents writing;
    std::string messages;

    void say(const std::string& line) { messages += line + "\n"; }
};

} // namespace

TEST(pcf, behaves_as_a_map_of_names_to_contents)
{
    mounted([](const Scratch& scratch) {
        const Names names = {"a", "b.log", "c", "d_1", "e 1"};
        const No_disc no_disc;
        std::mt19937 random(8);
        Model model;
        testing::internal::CaptureStderr();
        for (int round = 0; round < 20000; ++round) {
            SCOPED_TRACE(testing::Message() << "seed 8, round " << round);
            const std::string& name = names[random() % names.size()];
            const bool good_name = name != "e 1";
            const auto found = model.files.find(name);
            const bool exists = found != model.files.end();
            switch (random() % 10) {
            case 0: {
                const unsigned long offset = random() % 50;
                const PcfResult result = pcfOpenRead(name.c_str(), offset, nullptr);
                if (model.reading) {
                    ASSERT_EQ(PCF_REFUSED, result);
                    model.say("WARNING: pcfOpenRead '" + name + "' failed: global read fd already open");
                } else if (!exists) {
                    ASSERT_EQ(PCF_FAILURE, result);
                    model.say("ERROR: pcfOpenRead '" + scratch.path(name) + "' failed: " + text_of(ENOENT));
                } else {
                    ASSERT_EQ(PCF_SUCCESS, result);
                    model.reading = found->second;
                    model.place = offset;
                }
                break;
            }
            case 1: {
                char bytes[64];
                const int length = static_cast<int>(random() % sizeof bytes);
                PcfResult result = PCF_REFUSED;
                const int count = pcfRead(bytes, length, result, 0);
                if (!model.reading) {
                    ASSERT_EQ(-1, count);
                    ASSERT_EQ(PCF_BAD_DESCRIPTOR, result);
                    model.say("ERROR: pcfRead failed: global read fd not open");
                    break;
                }
                const std::string expected =
                    model.place < model.reading->size()
                        ? model.reading->substr(model.place, static_cast<std::size_t>(length))
                        : "";
                ASSERT_EQ(PCF_SUCCESS, result);
                ASSERT_EQ(static_cast<int>(expected.size()), count);
                ASSERT_EQ(expected, std::string(bytes, static_cast<std::size_t>(count)));
                model.place += expected.size();
                break;
            }
            case 2:
                ASSERT_EQ(model.reading ? PCF_SUCCESS : PCF_FAILURE, pcfCloseRead(0));
                if (!model.reading)
                    model.say("ERROR: pcfCloseRead failed: global read fd not open");
                model.reading = nullptr;
                break;
            case 3:
            case 4: {
                const bool create = random() % 2 == 0;
                const std::string label = create ? "pcfCreateWrite" : "pcfWriteWrite";
                const bool opened = create ? pcfCreateWrite(name.c_str()) : pcfOpenWrite(name.c_str());
                const char* refusal = !good_name                 ? "pcfCheckName rejects name"
                                      : model.writing != nullptr ? "global write fd already open"
                                      : !exists && !create       ? "No such file or directory"
                                                                 : nullptr;
                ASSERT_EQ(refusal == nullptr, opened);
                if (refusal != nullptr) {
                    model.say("ERROR: " + label + " '" + name + "' failed: " + refusal);
                    break;
                }
                if (!exists)
                    model.files[name] = std::make_shared<std::string>();
                model.writing = model.files[name];
                break;
            }
            case 5:
            case 6: {
                std::string bytes(random() % 40, '\0');
                std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
                const int written = pcfWrite(bytes.data(), static_cast<int>(bytes.size()));
                ASSERT_EQ(model.writing ? static_cast<int>(bytes.size()) : -1, written);
                if (model.writing)
                    *model.writing += bytes;
                else
                    model.say("ERROR: pcfWrite failed: invalid file descriptor");
                break;
            }
            case 7:
                ASSERT_TRUE(pcfCloseWrite());
                model.writing = nullptr;
                break;
            case 8:
                ASSERT_EQ(exists, pcfExists(name.c_str()));
                ASSERT_EQ(exists ? static_cast<int>(found->second->size()) : -1,
                          pcfSize(name.c_str(), nullptr));
                if (!exists)
                    model.say("ERROR: pcfSize '" + name + "' failed: " + text_of(ENOENT));
                ASSERT_EQ(static_cast<int>(model.files.size()), pcfGetNumFiles());
                break;
            default:
                if (random() % 3 == 0) {
                    ASSERT_EQ(0, pcfRemove(name.c_str()));
                    model.files.erase(name); // open, it lives on
                    break;
                }
                Names expected;
                for (const auto& [file, bytes] : model.files)
                    expected.push_back(file);
                ASSERT_EQ(expected, sorted(listed()));
            }
        }
        EXPECT_EQ(model.messages, testing::internal::GetCapturedStderr());
        EXPECT_GT(model.messages.size(), 100000U);
        for (const auto& [name, bytes] : model.files)
            EXPECT_EQ(*bytes, scratch.content(name));
    });
}

// ---- threads

namespace {

/// A read that does not come back until it is let: whoever reads holds the lock meanwhile.
class Stuck_read : public Interposed_calls {
public:
    ssize_t read(int fd, void* data, std::size_t size) override
    {
        if (fd != STUCK)
            return Interposed_calls::read(fd, data, size);
        std::unique_lock<std::mutex> lock(mutex);
        reading = true;
        changed.notify_all();
        changed.wait(lock, [this] { return released; });
        return 0;
    }
    void wait_until_reading()
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return reading; });
    }
    void release()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        released = true;
        changed.notify_all();
    }

    static constexpr int STUCK = 500;

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool reading = false;
    bool released = false;
};

void silence(int stream)
{
    dup2(open("/dev/null", O_WRONLY), stream);
}

} // namespace

TEST(pcf, calls_wait_for_the_one_that_holds_the_lock)
{
    mounted([](const Scratch& scratch) {
        silence(STDERR_FILENO);
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        const std::string dir = scratch.path();
        char name[256];
        char byte = 0;
        PcfResult result = PCF_FAILURE;
        PcfInfo info{};
        int fd = -1;
        const std::function<void()> calls[] = {[&] { pcfIsMounted(dir.c_str()); },
                                               [] { pcfOpenRead("f", 0, nullptr); },
                                               [&] { pcfRead(&byte, 1, result, 0); },
                                               [] { pcfCloseRead(-1); },
                                               [] { pcfCreateWrite(""); },
                                               [&] { pcfCreateWrite("", &fd); },
                                               [] { pcfOpenWrite(""); },
                                               [&] { pcfOpenWrite("", &fd); },
                                               [] { pcfOpenWriteImpl("", nullptr, true); },
                                               [] { pcfWrite("x", 0); },
                                               [] { pcfWrite("x", 0, 1); },
                                               [] { pcfWriteImpl("x", 0, 1); },
                                               [] { pcfCloseWrite(); },
                                               [] { pcfCloseWrite(-1); },
                                               [] { pcfCloseWriteImpl(-1); },
                                               [] { pcfSize("f", nullptr); },
                                               [] { pcfSizeImpl("f", nullptr, false); },
                                               [] { pcfExists("f"); },
                                               [] { pcfRemove("f"); },
                                               [] { pcfGetNumFiles(); },
                                               [&] { pcfGetFileName(-1, name); },
                                               [] { pcfFirst(nullptr); },
                                               [] { pcfNext(nullptr); },
                                               [] { pcfFormat(); },
                                               [] { pcfRemoveAll(); },
                                               [&] { pcfInfo(info); },
                                               [] { pcfMountInProgress(); },
                                               [] { pcfRemoveOldest(); },
                                               [] { pcfRemount(true); }};
        Stuck_read stuck;
        std::thread holder([] {
            char read_byte = 0;
            PcfResult read_result = PCF_FAILURE;
            pcfRead(&read_byte, 1, read_result, Stuck_read::STUCK);
        });
        stuck.wait_until_reading();

        // Without the lock:
        EXPECT_EQ(dir, pcfDirectory());
        EXPECT_FALSE(pcfCheckName(""));
        EXPECT_EQ("TODO: pcfSetRmOld\n", output([] { pcfSetRmOld(1); }));

        std::array<std::atomic<bool>, std::size(calls)> done{};
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < std::size(calls); ++i)
            threads.emplace_back([&, i] {
                calls[i]();
                done[i] = true;
            });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (std::size_t i = 0; i < std::size(calls); ++i)
            EXPECT_FALSE(done[i]) << "call " << i;
        output([&] { // two of them print a line
            stuck.release();
            holder.join();
            for (std::thread& thread : threads)
                thread.join();
        });
    });
}

TEST(pcf, asks_for_the_number_of_a_thread_once_and_anew_in_a_child)
{
    mounted([](const Scratch&) {
        struct : Interposed_calls {
            pid_t gettid() override
            {
                ++asked;
                return Interposed_calls::gettid();
            }
            std::atomic<int> asked{0};
        } calls;
        const auto use = [] {
            for (int i = 0; i < 10; ++i)
                pcfExists("f");
        };
        use();
        EXPECT_EQ(0, calls.asked); // it mounted the store
        std::thread(use).join();
        EXPECT_EQ(1, calls.asked);
        in_a_fresh_process([&] {
            use();
            EXPECT_EQ(2, calls.asked);
        });
        EXPECT_EQ(1, calls.asked);
    });
}

TEST(pcf, keeps_its_books_while_threads_hammer_it)
{
    mounted([](const Scratch& scratch) {
        silence(STDERR_FILENO);
        setenv("QUARVEL_BASE_DIR", scratch.path().c_str(), 1);
        scratch.folder("pcf");
        EXPECT_EQ(1, pcfFormat()); // so that mounting anew in the middle stays at the same directory
        const No_disc no_disc;
        const long before = open_descriptors();
        constexpr int ROUNDS = 3000;
        constexpr int THREADS = 3;
        std::atomic<int> readers{0};
        std::atomic<int> writers{0};
        std::atomic<long> records{0};
        std::vector<std::thread> threads;
        for (int number = 0; number < THREADS; ++number)
            threads.emplace_back([&, number] {
                std::mt19937 random(static_cast<unsigned>(number));
                const std::string own = "own" + std::to_string(number);
                const std::string record(32, static_cast<char>('A' + number));
                for (int round = 0; round < ROUNDS; ++round) {
                    switch (random() % 8) {
                    case 0:
                    case 1: // whoever opens the common file has it alone until he closes it
                        if (pcfCreateWrite("common")) {
                            EXPECT_EQ(1, ++writers);
                            EXPECT_EQ(32, pcfWrite(record.data(), 32));
                            ++records;
                            --writers;
                            EXPECT_TRUE(pcfCloseWrite());
                        }
                        break;
                    case 2:
                    case 3: {
                        const PcfResult opened = pcfOpenRead("common", 0, nullptr);
                        EXPECT_NE(PCF_BAD_DESCRIPTOR, opened);
                        if (opened == PCF_SUCCESS) {
                            EXPECT_EQ(1, ++readers);
                            char bytes[64];
                            PcfResult result = PCF_FAILURE;
                            const int count = pcfRead(bytes, sizeof bytes, result, 0);
                            EXPECT_EQ(PCF_SUCCESS, result);
                            EXPECT_EQ(0, count % 32);
                            for (int i = 0; i < count; ++i)
                                EXPECT_EQ(bytes[i / 32 * 32], bytes[i]);
                            --readers;
                            EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
                        }
                        break;
                    }
                    case 4: {
                        int fd = -1;
                        EXPECT_TRUE(pcfCreateWrite(own.c_str(), &fd));
                        EXPECT_EQ(32, pcfWrite(record.data(), 32, fd));
                        EXPECT_TRUE(pcfCloseWrite(fd));
                        EXPECT_EQ(0, pcfSize(own.c_str(), nullptr) % 32);
                        break;
                    }
                    case 5:
                        EXPECT_EQ(0, pcfRemove(own.c_str()));
                        EXPECT_FALSE(pcfExists(own.c_str()));
                        break;
                    case 6: {
                        char name[256] = "own";
                        pcfGetFileName(static_cast<int>(random() % 5), name);
                        EXPECT_TRUE(std::strcmp("common", name) == 0 || std::strncmp("own", name, 3) == 0);
                        EXPECT_LE(pcfGetNumFiles(), 1 + THREADS);
                        PcfFileInfo info{};
                        pcfFirst(&info);
                        pcfNext(nullptr);
                        break;
                    }
                    default:
                        EXPECT_EQ(1, pcfFormat());
                        EXPECT_TRUE(pcfIsMounted("elsewhere"));
                        EXPECT_EQ(scratch.path("pcf"), pcfDirectory());
                    }
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(before, open_descriptors());
        EXPECT_EQ(-1, pcf_rfd);
        EXPECT_EQ(-1, pcf_wfd);
        EXPECT_EQ(records * 32, pcfSize("common", nullptr));
        EXPECT_GT(records, 100);
    });
}

// ---- disks and directories that fail

TEST(pcf, goes_on_where_a_full_disk_stopped_it_once_there_is_room)
{
    mounted([](const Scratch& scratch) {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", scratch.path().c_str(), "tmpfs", 0, "size=64k") != 0) {
            std::cout << "a file system cannot be mounted here: " << text_of(errno) << "\n";
            return;
        }
        EXPECT_TRUE(write_file("old", std::string(16384, 'o')));
        EXPECT_TRUE(pcfCreateWrite("new"));
        const std::string bytes(4000, 'n');
        int written = 0;
        const std::string message = error_output([&] {
            while (pcfWrite(bytes.data(), 4000) == 4000)
                ++written;
        });
        EXPECT_EQ("ERROR: pcfWrite failed :" + text_of(ENOSPC) + "\n", message);
        EXPECT_GT(written, 5);
        EXPECT_LT(written, 13);
        EXPECT_EQ("ERROR: pcfCreateWrite 'more' failed: global write fd already open\n",
                  error_output([] { EXPECT_FALSE(pcfCreateWrite("more")); }));
        EXPECT_EQ("", error_output([] { EXPECT_TRUE(pcfCloseWrite()); }));
        const int size = pcfSize("new", nullptr); // the part that fitted is there
        EXPECT_GE(size, written * 4000);
        EXPECT_EQ(std::string(static_cast<std::size_t>(size), 'n'), read_file("new"));
        EXPECT_EQ(0, pcfRemove("old"));
        EXPECT_TRUE(write_file("new", "end"));
        EXPECT_EQ("end", read_file("new", static_cast<unsigned long>(size)));

        ASSERT_EQ(0, mount("none", scratch.path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr));
        EXPECT_EQ("ERROR: pcfWriteWrite 'new' failed: " + text_of(EROFS) + "\n",
                  error_output([] { EXPECT_FALSE(pcfOpenWrite("new")); }));
        EXPECT_EQ("end", read_file("new", static_cast<unsigned long>(size)));
        EXPECT_EQ(0, pcfRemove("new"));
        EXPECT_TRUE(pcfExists("new"));
        EXPECT_EQ(0, umount2(scratch.path().c_str(), MNT_DETACH));
    });
}

namespace {

void become_nobody()
{
    EXPECT_TRUE(getuid() != 0 || setuid(65534) == 0); // root may write everywhere
}

} // namespace

TEST(pcf, reads_a_directory_that_nobody_may_write)
{
    unmounted([](const Scratch& scratch) {
        scratch.file("f", "abc");
        ASSERT_EQ(0, chmod(scratch.path("f").c_str(), 0644));
        ASSERT_EQ(0, chmod(scratch.path().c_str(), 0555));
        become_nobody();
        EXPECT_TRUE(pcfIsMounted(scratch.path().c_str()));
        EXPECT_EQ("ERROR: pcfCreateWrite 'new' failed: " + text_of(EACCES) + "\n",
                  error_output([] { EXPECT_FALSE(pcfCreateWrite("new")); }));
        EXPECT_EQ("abc", read_file("f"));
        EXPECT_EQ(Names{"f"}, listed());
        EXPECT_EQ(0, pcfRemove("f"));
        EXPECT_TRUE(pcfExists("f"));
    });
}

TEST(pcfIsMounted, tells_of_a_directory_that_may_not_be_made)
{
    unmounted([](const Scratch& scratch) {
        ASSERT_EQ(0, chmod(scratch.path().c_str(), 0555));
        become_nobody();
        const std::string dir = scratch.path("new");
        // It is missing: that is what the second look finds.
        EXPECT_EQ("PCF: Could not create dir " + dir + ": " + std::to_string(ENOENT) + "\n",
                  error_output([&] { EXPECT_FALSE(pcfIsMounted(dir.c_str())); }));
    });
}

TEST(pcf, lives_on_when_its_directory_is_deleted)
{
    unmounted([](const Scratch& scratch) {
        const std::string dir = scratch.path("store");
        EXPECT_TRUE(pcfIsMounted(dir.c_str()));
        for (const char* name : {"a", "b"})
            EXPECT_TRUE(write_file(name, "abc"));
        EXPECT_EQ(2U, listed().size());
        EXPECT_EQ(PCF_SUCCESS, pcfOpenRead("a", 0, nullptr));
        EXPECT_TRUE(pcfOpenWrite("b"));
        fs::remove_all(dir);

        EXPECT_TRUE(pcfIsMounted(nullptr));
        EXPECT_EQ(dir, pcfDirectory());
        char bytes[3];
        PcfResult result = PCF_FAILURE;
        EXPECT_EQ(3, pcfRead(bytes, 3, result, 0));
        EXPECT_EQ(3, pcfWrite("def", 3));
        EXPECT_EQ("", error_output([] {
                      EXPECT_TRUE(pcfCloseWrite());
                      EXPECT_EQ(PCF_SUCCESS, pcfCloseRead(0));
                      EXPECT_EQ(0, pcfGetNumFiles());
                      EXPECT_EQ(nullptr, pcfFirst(nullptr));
                      EXPECT_EQ(nullptr, pcfNext(nullptr));
                      EXPECT_FALSE(pcfExists("a"));
                      EXPECT_EQ(0, pcfRemove("a"));
                  }));
        EXPECT_EQ("ERROR: pcfCreateWrite 'a' failed: " + text_of(ENOENT) + "\n",
                  error_output([] { EXPECT_FALSE(pcfCreateWrite("a")); }));
        EXPECT_EQ("ERROR: pcfOpenRead '" + dir + "/a' failed: " + text_of(ENOENT) + "\n",
                  error_output([] { EXPECT_EQ(PCF_FAILURE, pcfOpenRead("a", 0, nullptr)); }));
        fs::create_directory(dir);
        EXPECT_TRUE(write_file("a", "again"));
        EXPECT_EQ(Names{"a"}, listed());
    });
}

TEST(pcf, tells_when_descriptors_run_out)
{
    mounted([](const Scratch& scratch) {
        scratch.file("f");
        scratch.file("g");
        EXPECT_EQ(2U, listed().size());
        rlimit limit{};
        ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
        limit.rlim_cur = 64;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        testing::internal::CaptureStderr();
        std::vector<int> all;
        for (int fd = 0; (fd = open("/dev/null", O_RDONLY)) >= 0;)
            all.push_back(fd);
        EXPECT_EQ(PCF_FAILURE, pcfOpenRead("f", 0, nullptr));
        EXPECT_FALSE(pcfCreateWrite("f"));
        EXPECT_EQ(0, pcfGetNumFiles());
        EXPECT_EQ(nullptr, pcfFirst(nullptr));
        EXPECT_EQ(nullptr, pcfNext(nullptr));
        EXPECT_EQ(1, pcfSize("f", nullptr));
        for (const int fd : all)
            close(fd);
        EXPECT_EQ("ERROR: pcfOpenRead '" + scratch.path("f") + "' failed: " + text_of(EMFILE) +
                      "\nERROR: pcfCreateWrite 'f' failed: " + text_of(EMFILE) + "\n",
                  testing::internal::GetCapturedStderr());
        EXPECT_EQ(2U, listed().size());
    });
}

// ---- processes that are killed

namespace {

/// The byte that stands at each place of the log that is written.
char byte_at(std::size_t place)
{
    return static_cast<char>((place * 31 + place / 251) & 0xFF);
}

std::string bytes_from(std::size_t place, std::size_t count)
{
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.push_back(byte_at(place + i));
    return bytes;
}

/// What the process that is going to be killed tells.
struct Told {
    std::size_t size;
    std::size_t is_closed; ///< 1 when confirmed by pcfCloseWrite, 0 when only written; so wide for no padding
};

/// Goes on with the log until it is killed.
[[noreturn]] void log_until_killed(const std::string& dir, unsigned seed, bool stop_before_close, int told)
{
    std::mt19937 random(seed);
    if (!pcfIsMounted(dir.c_str()))
        _exit(2);
    auto place = static_cast<std::size_t>(std::max(0, pcfSizeImpl("log", nullptr, false)));
    const auto tell = [told](Told what) {
        if (write(told, &what, sizeof what) != sizeof what)
            _exit(3);
    };
    const auto stop_at = random() % 3;
    for (std::size_t round = 0;; ++round) {
        if (!pcfCreateWrite("log"))
            _exit(4);
        const std::string bytes = bytes_from(place, 1 + random() % 6000);
        if (pcfWrite(bytes.data(), static_cast<int>(bytes.size())) != static_cast<int>(bytes.size()))
            _exit(5);
        place += bytes.size();
        if (stop_before_close && round == stop_at) {
            tell({place, 0});
            for (;;)
                pause();
        }
        if (!pcfCloseWrite())
            _exit(6);
        tell({place, 1});
    }
}

} // namespace

TEST(pcf, keeps_what_close_confirmed_when_the_process_is_killed)
{
    const Scratch scratch;
    std::size_t kept = 0;
    for (unsigned kill_number = 0; kill_number < 200; ++kill_number) {
        SCOPED_TRACE(kill_number);
        const bool stop_before_close = kill_number % 2 == 0; // the others are killed wherever they are
        int ends[2];
        ASSERT_EQ(0, pipe(ends));
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            close(ends[0]);
            log_until_killed(scratch.path("store"), kill_number, stop_before_close, ends[1]);
        }
        close(ends[1]);
        Told told{};
        std::size_t confirmed = 0;
        std::size_t written = 0;
        const auto take = [&] {
            if (read(ends[0], &told, sizeof told) != sizeof told)
                return false;
            (told.is_closed != 0 ? confirmed : written) = told.size;
            return true;
        };
        while (take() && stop_before_close && told.is_closed != 0)
            continue;
        if (!stop_before_close)
            std::this_thread::sleep_for(std::chrono::microseconds(kill_number * 20));
        ASSERT_EQ(0, kill(child, SIGKILL));
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
        while (take())
            continue;
        close(ends[0]);
        ASSERT_NE(stop_before_close, written == 0);

        const std::string held = scratch.content("store/log");
        ASSERT_GE(held.size(), std::max({kept, confirmed, written}));
        ASSERT_EQ(bytes_from(0, held.size()), held);
        kept = held.size();
    }
    in_a_fresh_process([&] {
        EXPECT_TRUE(pcfIsMounted(scratch.path("store").c_str()));
        EXPECT_EQ(Names{"log"}, listed());
        EXPECT_EQ(static_cast<int>(kept), pcfSize("log", nullptr));
        EXPECT_TRUE(write_file("log", "!"));
        EXPECT_EQ(bytes_from(0, kept) + "!", read_file("log"));
    });
}
