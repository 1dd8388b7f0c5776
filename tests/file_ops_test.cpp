#include "util/file_ops.h"

#include "tests/support/Fresh_process.h"
#include "tests/support/Interposed_calls.h"
#include "tests/support/Open_descriptors.h"
#include "tests/support/Temporary_folder.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

static_assert(std::is_same_v<int (*)(const char*), decltype(&file_ops_mkdir_recursive)>);
static_assert(std::is_same_v<int (*)(const char*), decltype(&file_ops_rmdir_recursive)>);
static_assert(std::is_same_v<int (*)(QString), decltype(&file_ops_rmdir_recursive_qt)>);
static_assert(
    std::is_same_v<size_t (*)(const void*, size_t, size_t, FILE*), decltype(&file_ops_stream_write)>);
static_assert(std::is_same_v<bool (*)(const char*, const char*), decltype(&copy_file)>);

/// A folder of the test's own, which is the working directory meanwhile.
class Scratch : public Temporary_folder {
public:
    Scratch() { fs::current_path(path()); }
    ~Scratch() { fs::current_path(before); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string file(const std::string& name, const std::string& bytes = "x", mode_t mode = 0644) const
    {
        if (chmod(Temporary_folder::file(name, bytes).c_str(), mode) != 0)
            std::abort();
        return path(name);
    }

private:
    const fs::path before = fs::current_path();
};

using Names = std::vector<std::string>;

std::string content(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

mode_t mode_of(const std::string& path)
{
    struct stat status {};
    EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
    return status.st_mode & 07777;
}

std::string random_bytes(std::size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random() & 0xFF); });
    return bytes;
}

/// What a call writes to standard error.
template <typename CALL>
std::string error_output(CALL call)
{
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

std::string line(const std::string& prefix, int error)
{
    return prefix + ": " + std::strerror(error) + "\n";
}

/// No entry of any file system can be removed while this stands: what is asked to remove the root, does not.
class Removes_nothing : public Interposed_calls {
public:
    int remove(const char* path) override { return refuse(path); }
    int unlink(const char* path) override { return refuse(path); }
    int rmdir(const char* path) override { return refuse(path); }
    int nftw(const char* path, __nftw_func_t, int, int) override { return refuse(path); }
    Names asked;

private:
    int refuse(const char* path)
    {
        asked.emplace_back(path);
        return fail_with(EROFS);
    }
};

/// Puts the umask back.
class Umask {
public:
    explicit Umask(mode_t mask) : before(umask(mask)) {}
    ~Umask() { umask(before); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before;
};

struct Close {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, Close>;

Stream open_stream(const std::string& path, const char* mode)
{
    return Stream(std::fopen(path.c_str(), mode));
}

/// A seekable stream over memory whose writes can be made to fail; stdio itself is the C library's.
class Faulty_medium {
public:
    /// What the next write does: takes at most `takes` bytes, and fails with `error` unless that is 0.
    struct Fault {
        std::size_t takes;
        int error;
    };

    Faulty_medium()
    {
        const cookie_io_functions_t functions{nullptr, write, seek, nullptr};
        medium_stream.reset(fopencookie(this, "w", functions));
        std::setvbuf(medium_stream.get(), nullptr, _IONBF, 0);
    }
    FILE* stream() const { return medium_stream.get(); }

    std::string held;
    std::function<Fault(std::size_t size)> fault = [](std::size_t size) { return Fault{size, 0}; };

private:
    static ssize_t write(void* cookie, const char* data, std::size_t size)
    {
        auto& medium = *static_cast<Faulty_medium*>(cookie);
        const Fault fault = medium.fault(size);
        const std::size_t taken = std::min(size, fault.takes);
        if (medium.held.size() < medium.place + taken)
            medium.held.resize(medium.place + taken);
        medium.held.replace(medium.place, taken, data, taken);
        medium.place += taken;
        errno = fault.error;
        return static_cast<ssize_t>(taken);
    }
    static int seek(void* cookie, off64_t* offset, int whence)
    {
        auto& medium = *static_cast<Faulty_medium*>(cookie);
        const auto from = whence == SEEK_CUR ? medium.place : whence == SEEK_END ? medium.held.size() : 0;
        medium.place = static_cast<std::size_t>(static_cast<off64_t>(from) + *offset);
        *offset = static_cast<off64_t>(medium.place);
        return 0;
    }

    std::size_t place = 0;
    Stream medium_stream;
};

/// Faults in turn, then none.
auto in_turn(std::vector<Faulty_medium::Fault> faults)
{
    return [faults, next = std::size_t{0}](std::size_t size) mutable {
        return next < faults.size() ? faults[next++] : Faulty_medium::Fault{size, 0};
    };
}

} // namespace

// Making directories

TEST(file_ops_mkdir_recursive, refuses_null_and_an_empty_path)
{
    const Scratch scratch;
    EXPECT_EQ(-1, file_ops_mkdir_recursive(nullptr));
    EXPECT_EQ(-1, file_ops_mkdir_recursive(""));
    EXPECT_EQ(Names{}, scratch.entries());
}

TEST(file_ops_mkdir_recursive, makes_all_missing_parents)
{
    const Scratch scratch;
    EXPECT_EQ(0, file_ops_mkdir_recursive(scratch.path("a/b/c/d").c_str()));
    EXPECT_EQ((Names{"a", "a/b", "a/b/c", "a/b/c/d"}), scratch.entries());
}

TEST(file_ops_mkdir_recursive, takes_relative_paths_from_the_working_directory)
{
    for (const char* const path : {"a/b", "./a/b", "a//b/", "a/./b", "a/x/../b"}) {
        SCOPED_TRACE(path);
        const Scratch scratch;
        scratch.folder("a/x");
        EXPECT_EQ(0, file_ops_mkdir_recursive(path));
        EXPECT_EQ((Names{"a", "a/b", "a/x"}), scratch.entries());
    }
}

TEST(file_ops_mkdir_recursive, leaves_an_existing_directory_alone)
{
    const Scratch scratch;
    scratch.file("a/file", "kept");
    EXPECT_EQ(0, file_ops_mkdir_recursive(scratch.path("a").c_str()));
    EXPECT_EQ(0, file_ops_mkdir_recursive("."));
    EXPECT_EQ(0, file_ops_mkdir_recursive("/"));
    EXPECT_EQ((Names{"a", "a/file"}), scratch.entries());
    EXPECT_EQ("kept", content("a/file"));
}

TEST(file_ops_mkdir_recursive, goes_through_links_to_directories)
{
    const Scratch scratch;
    scratch.folder("a");
    scratch.link("l", "a");
    EXPECT_EQ(0, file_ops_mkdir_recursive("l"));
    EXPECT_EQ(0, file_ops_mkdir_recursive("l/b"));
    EXPECT_EQ((Names{"a", "a/b", "l"}), scratch.entries());
}

TEST(file_ops_mkdir_recursive, fails_where_a_file_or_a_dangling_link_is_in_the_way)
{
    const Scratch scratch;
    scratch.file("file", "kept");
    scratch.link("dangling", "nowhere");
    for (const char* const path : {"file", "file/a", "file/a/b", "dangling"})
        EXPECT_EQ(-1, file_ops_mkdir_recursive(path)) << path;
    EXPECT_EQ((Names{"dangling", "file"}), scratch.entries());
    EXPECT_EQ("kept", content("file"));
}

TEST(file_ops_mkdir_recursive, keeps_the_parents_made_before_a_name_that_is_too_long)
{
    const Scratch scratch;
    EXPECT_EQ(0, file_ops_mkdir_recursive(("a/" + std::string(NAME_MAX, 'n')).c_str()));
    EXPECT_EQ(-1, file_ops_mkdir_recursive(("b/" + std::string(NAME_MAX + 1, 'n')).c_str()));
    EXPECT_TRUE(fs::is_directory("b"));
    EXPECT_TRUE(fs::is_empty("b"));
}

TEST(file_ops_mkdir_recursive, takes_every_visible_ascii_character_but_the_separator)
{
    std::string name;
    for (char c = ' '; c < '\x7F'; ++c)
        if (c != '/')
            name += c;
    const Scratch scratch;
    EXPECT_EQ(0, file_ops_mkdir_recursive(name.c_str()));
    EXPECT_EQ(Names{name}, scratch.entries());
}

TEST(file_ops_mkdir_recursive, takes_bytes_beyond_ascii_as_utf_8)
{
    const Scratch scratch;
    EXPECT_EQ(0, file_ops_mkdir_recursive("B\xC3\xB6"
                                          "den"));
    const std::u16string characters = u"B\u00F6den";
    const QString expected = QString::fromUtf16(characters.data(), static_cast<int>(characters.size()));
    EXPECT_EQ(Names{QFile::encodeName(expected).toStdString()}, scratch.entries());
}

// Removing trees with nftw

TEST(file_ops_rmdir_recursive, removes_a_tree_whole_hidden_entries_and_fifos_too)
{
    const Scratch scratch;
    scratch.file("tree/file");
    scratch.file("tree/.hidden/.file");
    scratch.file("tree/a/b/c/file");
    scratch.folder("tree/empty");
    ASSERT_EQ(0, mkfifo("tree/fifo", 0600));
    scratch.file("beside", "kept");
    EXPECT_EQ(0, file_ops_rmdir_recursive(scratch.path("tree").c_str()));
    EXPECT_EQ(Names{"beside"}, scratch.entries());
}

TEST(file_ops_rmdir_recursive, takes_any_path_that_leads_there)
{
    for (const char* const path : {"tree", "./tree", "tree/", "tree//.", "tree/a/..", "beside/../tree"}) {
        SCOPED_TRACE(path);
        const Scratch scratch;
        scratch.file("tree/a/file");
        scratch.folder("beside");
        EXPECT_EQ(0, file_ops_rmdir_recursive(path));
        EXPECT_EQ(Names{"beside"}, scratch.entries());
    }
}

TEST(file_ops_rmdir_recursive, removes_a_single_file)
{
    const Scratch scratch;
    scratch.file("file");
    scratch.file("other");
    EXPECT_EQ(0, file_ops_rmdir_recursive("file"));
    EXPECT_EQ(Names{"other"}, scratch.entries());
}

TEST(file_ops_rmdir_recursive, removes_links_inside_and_leaves_what_they_point_to)
{
    const Scratch scratch;
    scratch.file("outside/file", "kept");
    scratch.folder("tree");
    scratch.link("tree/to_folder", scratch.path("outside"));
    scratch.link("tree/to_file", "../outside/file");
    scratch.link("tree/to_itself", ".");
    scratch.link("tree/to_parent", "..");
    scratch.link("tree/dangling", "nowhere");
    EXPECT_EQ(0, file_ops_rmdir_recursive("tree"));
    EXPECT_EQ((Names{"outside", "outside/file"}), scratch.entries());
    EXPECT_EQ("kept", content("outside/file"));
}

TEST(file_ops_rmdir_recursive, a_link_as_the_path_stands_for_what_it_points_to)
{
    const Scratch scratch;
    scratch.file("tree/file");
    scratch.link("link", "tree");
    EXPECT_EQ(0, file_ops_rmdir_recursive("link"));
    EXPECT_EQ(Names{"link"}, scratch.entries());
    EXPECT_TRUE(fs::is_symlink("link"));
}

TEST(file_ops_rmdir_recursive, refuses_a_null_path_with_the_resolutions_own_errno)
{
    Removes_nothing nothing;
    errno = 0;
    EXPECT_EQ(-1, file_ops_rmdir_recursive(nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_TRUE(nothing.asked.empty());
}

TEST(file_ops_rmdir_recursive, refuses_the_root_by_any_name)
{
    const Scratch scratch;
    const std::string link = scratch.link("link", "/");
    const std::string link_to_link = scratch.link("link_to_link", "link");
    Removes_nothing calls;
    for (const std::string& path :
         {std::string("/"), std::string("//"), std::string("/."), std::string("/.."), std::string("/../.."),
          std::string("/proc/.."), link, link + "/", link_to_link, link + "/proc/.."}) {
        errno = 0;
        EXPECT_EQ(-1, file_ops_rmdir_recursive(path.c_str())) << path;
        EXPECT_EQ(EACCES, errno) << path;
    }
    EXPECT_EQ(Names{}, calls.asked);
}

TEST(file_ops_rmdir_recursive, refuses_no_other_path)
{
    const Scratch scratch;
    scratch.folder("tree");
    Removes_nothing calls;
    EXPECT_EQ(-1, file_ops_rmdir_recursive("tree"));
    EXPECT_EQ(EROFS, errno);
    EXPECT_EQ(Names{scratch.path("tree")}, calls.asked);
}

TEST(file_ops_rmdir_recursive, keeps_the_errno_of_a_path_that_cannot_be_resolved)
{
    const Scratch scratch;
    scratch.file("file");
    scratch.link("loop", "loop");
    scratch.link("dangling", "nowhere");
    const struct {
        std::string path;
        int error;
    } CASES[] = {{"missing", ENOENT},
                 {"missing/..", ENOENT},
                 {"", ENOENT},
                 {"dangling", ENOENT},
                 {"file/below", ENOTDIR},
                 {"loop", ELOOP},
                 {std::string(NAME_MAX + 1, 'n'), ENAMETOOLONG}};
    for (const auto& unresolved : CASES) {
        SCOPED_TRACE(unresolved.path);
        errno = 0;
        const std::string output =
            error_output([&unresolved] { EXPECT_EQ(-1, file_ops_rmdir_recursive(unresolved.path.c_str())); });
        EXPECT_EQ("", output);
        EXPECT_EQ(-1, file_ops_rmdir_recursive(unresolved.path.c_str()));
        EXPECT_EQ(unresolved.error, errno);
    }
    EXPECT_EQ((Names{"dangling", "file", "loop"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive, walks_nothing_when_the_resolution_fails)
{
    const Scratch scratch;
    struct : Removes_nothing {
        char* realpath(const char*, char*) override
        {
            errno = EIO;
            return nullptr;
        }
    } calls;
    EXPECT_EQ(-1, file_ops_rmdir_recursive("."));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(Names{}, calls.asked);
}

TEST(file_ops_rmdir_recursive, walks_the_resolved_path_depth_first_with_64_descriptors)
{
    const Scratch scratch;
    scratch.folder("tree");
    scratch.link("link", "tree");
    struct : Interposed_calls {
        int nftw(const char* path, __nftw_func_t, int max_descriptors, int flags) override
        {
            walked = path;
            EXPECT_EQ(64, max_descriptors);
            EXPECT_EQ(FTW_DEPTH | FTW_PHYS, flags);
            return 7;
        }
        std::string walked;
    } calls;
    EXPECT_EQ(7, file_ops_rmdir_recursive("link")); // whatever nftw answers
    EXPECT_EQ(scratch.path("tree"), calls.walked);
}

TEST(file_ops_rmdir_recursive, removes_children_before_their_directory)
{
    const Scratch scratch;
    for (const char* const name :
         {"tree/a/1", "tree/a/2", "tree/a/b/3", "tree/a/b/c/4", "tree/d/5", "tree/6"})
        scratch.file(name);
    struct : Interposed_calls {
        int remove(const char* path) override
        {
            removed.emplace_back(path);
            return Interposed_calls::remove(path);
        }
        Names removed;
    } calls;
    EXPECT_EQ(0, file_ops_rmdir_recursive("tree"));
    ASSERT_EQ(11U, calls.removed.size()); // six files and a, a/b, a/b/c, d and the tree itself
    EXPECT_EQ(scratch.path("tree"), calls.removed.back());
    for (std::size_t i = 0; i < calls.removed.size(); ++i)
        for (std::size_t later = i + 1; later < calls.removed.size(); ++later)
            EXPECT_NE(0U, calls.removed[later].rfind(calls.removed[i] + "/", 0))
                << calls.removed[later] << " after " << calls.removed[i];
}

TEST(file_ops_rmdir_recursive, names_the_entry_that_stays_and_ends_the_walk)
{
    const Scratch scratch;
    for (const char* const name : {"tree/a/1", "tree/a/2", "tree/a/3"})
        scratch.file(name);
    Names tried;
    struct Second_is_busy : Interposed_calls {
        explicit Second_is_busy(Names& names) : tried(names) {}
        int remove(const char* path) override
        {
            tried.emplace_back(path);
            return tried.size() == 2 ? fail_with(EBUSY) : Interposed_calls::remove(path);
        }
        Names& tried;
    };
    const std::string output = error_output([&tried] {
        const Second_is_busy calls(tried);
        EXPECT_EQ(-1, file_ops_rmdir_recursive("tree"));
        EXPECT_EQ(EBUSY, errno);
    });
    ASSERT_EQ(2U, tried.size());
    EXPECT_EQ(line(tried[1], EBUSY), output);
    EXPECT_FALSE(fs::exists(tried[0]));
    EXPECT_EQ(4U, scratch.entries().size()); // the tree, a, and two of three files
}

TEST(file_ops_rmdir_recursive, removes_a_tree_deeper_than_its_descriptors)
{
    constexpr int LEVELS = 80;
    const Scratch scratch;
    std::string below = "tree";
    for (int level = 0; level < LEVELS; ++level) {
        scratch.file(below + "/before");
        below += "/m";
        scratch.folder(below);
        scratch.file(below + "/../z");
    }
    struct : Interposed_calls {
        int remove(const char* path) override
        {
            if (++removed % 8 == 0) // listing them takes its time
                most = std::max(most, open_descriptors());
            return Interposed_calls::remove(path);
        }
        int removed = 0;
        long most = 0;
    } calls;
    const long before = open_descriptors();
    EXPECT_EQ(0, file_ops_rmdir_recursive("tree"));
    EXPECT_LE(calls.most, before + 64);
    EXPECT_GE(calls.most, before + 60);
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(Names{}, scratch.entries());
}

TEST(file_ops_rmdir_recursive, fails_on_a_tree_whose_paths_are_too_long_to_name)
{
    const Scratch scratch;
    const std::string name(200, 'n');
    scratch.folder("tree");
    fs::current_path("tree");
    for (int length = 0; length <= PATH_MAX; length += 201) {
        ASSERT_EQ(0, mkdir(name.c_str(), 0700));
        ASSERT_EQ(0, chdir(name.c_str()));
    }
    fs::current_path(scratch.path());
    const long before = open_descriptors();
    int error = 0;
    const std::string output = error_output([&error] {
        EXPECT_EQ(-1, file_ops_rmdir_recursive("tree"));
        error = errno;
    });
    EXPECT_EQ(ENAMETOOLONG, error);
    const std::string reason = line("", ENAMETOOLONG);
    EXPECT_EQ(scratch.path("tree/" + name), output.substr(0, scratch.path("tree/" + name).size()));
    EXPECT_EQ(reason, output.substr(output.size() - reason.size()));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_TRUE(fs::is_directory("tree/" + name));
}

// Removing trees with Qt

namespace {

QString qt(const std::string& text)
{
    return QFile::decodeName(text.c_str());
}

} // namespace

TEST(file_ops_rmdir_recursive_qt, is_content_with_a_missing_directory)
{
    const Scratch scratch;
    scratch.file("file");
    scratch.link("dangling", "nowhere");
    for (const char* const path : {"missing", "missing/below", "file", "file/below", "dangling"})
        EXPECT_EQ(0, file_ops_rmdir_recursive_qt(path)) << path;
    EXPECT_EQ((Names{"dangling", "file"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, takes_an_empty_path_for_no_directory_not_for_the_working_one)
{
    const Scratch scratch;
    scratch.file("file");
    EXPECT_EQ(0, file_ops_rmdir_recursive_qt(""));
    EXPECT_EQ(0, file_ops_rmdir_recursive_qt(QString()));
    EXPECT_EQ(Names{"file"}, scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, refuses_a_directory_that_is_gone_before_it_is_resolved)
{
    const Scratch scratch;
    scratch.file("file");
    struct : Removes_nothing {
        char* realpath(const char* /*path*/, char* /*resolved*/) override
        {
            errno = ENOENT;
            return nullptr;
        }
    } gone;
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt("."));
    EXPECT_TRUE(
        gone.asked.empty()); // not even for the working directory, which an empty path would stand for
}

TEST(file_ops_rmdir_recursive_qt, removes_a_tree_by_any_path_that_leads_there)
{
    const Scratch outer;
    for (const std::string& path :
         {outer.path("tree"), outer.path("tree/"), outer.path("tree/a/.."), std::string("tree"),
          std::string("tree/"), std::string("./tree"), std::string("beside/../tree")}) {
        SCOPED_TRACE(path);
        outer.file("tree/a/b/file");
        outer.file("tree/file");
        outer.folder("tree/empty");
        outer.folder("beside");
        const bool named_through_itself = path == outer.path("tree/a/.."); // a is gone when its turn comes
        EXPECT_EQ(named_through_itself ? -1 : 0, file_ops_rmdir_recursive_qt(qt(path)));
        EXPECT_EQ(named_through_itself ? (Names{"beside", "tree"}) : Names{"beside"}, outer.entries());
    }
}

TEST(file_ops_rmdir_recursive_qt, refuses_the_root_by_any_name)
{
    const Scratch scratch;
    const std::string link = scratch.link("link", "/");
    scratch.file("file");
    Removes_nothing calls;
    ASSERT_FALSE(QFile::remove("file")); // or what follows is no test, but a disaster
    calls.asked.clear();
    for (const std::string& path :
         {std::string("/"), std::string("//"), std::string("/."), std::string("/.."), std::string("/proc/.."),
          link, link + "/", link + "/proc/.."})
        EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(path))) << path;
    EXPECT_EQ(Names{}, calls.asked);
}

TEST(file_ops_rmdir_recursive_qt, leaves_hidden_entries_and_so_their_directories)
{
    const Scratch scratch;
    scratch.file("tree/a/.hidden");
    scratch.file("tree/a/file");
    scratch.file("tree/b/file");
    scratch.file("tree/c/.hidden/file");
    scratch.file("tree/file");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ((Names{"tree", "tree/a", "tree/a/.hidden", "tree/c", "tree/c/.hidden", "tree/c/.hidden/file"}),
              scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, removes_a_hidden_directory_that_is_named)
{
    const Scratch scratch;
    scratch.file(".tree/file");
    EXPECT_EQ(0, file_ops_rmdir_recursive_qt(qt(scratch.path(".tree"))));
    EXPECT_EQ(Names{}, scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, passes_over_fifos_and_dangling_links)
{
    const Scratch scratch;
    scratch.file("tree/file");
    scratch.folder("tree/empty");
    ASSERT_EQ(0, mkfifo("tree/fifo", 0600));
    scratch.link("tree/dangling", "nowhere");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ((Names{"tree", "tree/dangling", "tree/fifo"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, follows_links_inside_and_leaves_the_links)
{
    const Scratch scratch;
    scratch.file("outside/a/file");
    scratch.file("file");
    scratch.folder("tree");
    scratch.link("tree/to_folder", "../outside");
    scratch.link("tree/to_file", "../file");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ((Names{"tree", "tree/to_file", "tree/to_folder"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, comes_to_an_end_where_links_lead_back)
{
    const Scratch scratch;
    scratch.file("tree/a/file");
    scratch.link("tree/a/up", "..");
    scratch.link("tree/a/here", ".");
    scratch.file("tree/file");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ((Names{"tree", "tree/a", "tree/a/here", "tree/a/up"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, passes_over_a_link_to_the_root)
{
    const Scratch scratch;
    scratch.folder("tree");
    scratch.link("tree/to_root", "/");
    scratch.file("file");
    Removes_nothing calls;
    ASSERT_FALSE(QFile::remove("file")); // or what follows is no test, but a disaster
    calls.asked.clear();
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ(Names{scratch.path("tree")}, calls.asked);
}

TEST(file_ops_rmdir_recursive_qt, two_links_to_one_directory_do_not_reach_the_working_directory)
{
    const Scratch scratch;
    scratch.file("outside/file");
    scratch.folder("tree");
    scratch.link("tree/first", "../outside");
    scratch.link("tree/second", "../outside");
    scratch.file("working/file");
    fs::current_path("working");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ((Names{"tree", "tree/first", "tree/second", "working", "working/file"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, tries_a_directory_again_when_a_second_link_leads_there)
{
    const Scratch scratch;
    scratch.folder("outside");
    scratch.folder("tree");
    scratch.link("tree/first", "../outside");
    scratch.link("tree/second", "../outside");
    struct Busy_at_first : Interposed_calls {
        int rmdir(const char* path) override
        {
            return calls++ == 0 ? fail_with(EBUSY) : Interposed_calls::rmdir(path);
        }
        int calls = 0;
    };
    {
        const Busy_at_first calls;
        EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    }
    EXPECT_EQ((Names{"tree", "tree/first", "tree/second"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, empties_the_directory_behind_a_link_and_keeps_both)
{
    const Scratch scratch;
    scratch.file("tree/file");
    scratch.link("link", "tree");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("link"))));
    EXPECT_EQ((Names{"link", "tree"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, ends_at_the_first_file_that_stays)
{
    const Scratch scratch;
    for (const char* const name : {"tree/1", "tree/2", "tree/3"})
        scratch.file(name);
    struct : Interposed_calls {
        int unlink(const char* path) override
        {
            tried.emplace_back(path);
            return fail_with(EBUSY);
        }
        int rmdir(const char* path) override
        {
            tried.emplace_back(path);
            return fail_with(ENOTEMPTY);
        }
        Names tried;
    } calls;
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    EXPECT_EQ(1U, calls.tried.size());
    EXPECT_EQ(4U, scratch.entries().size());
}

TEST(file_ops_rmdir_recursive_qt, goes_on_after_a_directory_that_stays)
{
    const Scratch scratch;
    for (const char* const name : {"tree/a/file", "tree/b/file", "tree/c/file", "tree/file"})
        scratch.file(name);
    struct Busy : Interposed_calls {
        int unlink(const char* path) override
        {
            return std::strstr(path, "/tree/b/") != nullptr ? fail_with(EBUSY)
                                                            : Interposed_calls::unlink(path);
        }
    };
    {
        const Busy calls;
        EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(scratch.path("tree"))));
    }
    EXPECT_EQ((Names{"tree", "tree/b", "tree/b/file"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, fails_when_only_the_last_removal_does_and_names_the_path_as_given)
{
    const Scratch scratch;
    scratch.file("tree/file");
    scratch.folder("beside");
    struct : Interposed_calls {
        int rmdir(const char* path) override
        {
            asked.emplace_back(path);
            return fail_with(EBUSY);
        }
        Names asked;
    } calls;
    const std::string path = scratch.path("beside/../tree");
    EXPECT_EQ(-1, file_ops_rmdir_recursive_qt(qt(path)));
    EXPECT_EQ(Names{path}, calls.asked);
    EXPECT_EQ((Names{"beside", "tree"}), scratch.entries());
}

TEST(file_ops_rmdir_recursive_qt, removes_names_beyond_ascii)
{
    const Scratch scratch;
    const std::u16string characters = u"B\u00F6den";
    const QString name = QString::fromUtf16(characters.data(), static_cast<int>(characters.size()));
    ASSERT_TRUE(QDir().mkpath(name + "/" + name));
    EXPECT_EQ(0, file_ops_rmdir_recursive_qt(name));
    EXPECT_EQ(Names{}, scratch.entries());
}

// Writing to a stream

TEST(file_ops_stream_write, hands_over_all_elements)
{
    const Scratch scratch;
    const std::string bytes = random_bytes(30000, 1);
    for (const std::size_t size : {1U, 2U, 3U, 1000U, 30000U}) {
        SCOPED_TRACE(size);
        {
            const Stream stream = open_stream("file", "w");
            EXPECT_EQ(30000 / size, file_ops_stream_write(bytes.data(), size, 30000 / size, stream.get()));
            EXPECT_EQ(30000, std::ftell(stream.get()));
        }
        EXPECT_EQ(bytes, content("file"));
    }
}

TEST(file_ops_stream_write, writes_from_the_streams_position_on)
{
    const Scratch scratch;
    scratch.file("file", "0123456789");
    {
        const Stream stream = open_stream("file", "r+");
        std::fseek(stream.get(), 3, SEEK_SET);
        EXPECT_EQ(2U, file_ops_stream_write("abcd", 2, 2, stream.get()));
        EXPECT_EQ(1U, file_ops_stream_write("ef", 2, 1, stream.get()));
    }
    EXPECT_EQ("012abcdef9", content("file"));
}

TEST(file_ops_stream_write, writes_nothing_to_a_pipe_and_leaves_its_flags)
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    {
        const Stream stream(fdopen(ends[1], "w"));
        EXPECT_EQ(EOF, std::fgetc(stream.get())); // no stream to read from: sets the error flag
        EXPECT_EQ(0U, file_ops_stream_write("abc", 1, 3, stream.get()));
        EXPECT_NE(0, std::ferror(stream.get()));
        EXPECT_EQ(0, std::fflush(stream.get()));
        char byte = 0;
        EXPECT_EQ(-1, ::read(ends[0], &byte, 1));
        EXPECT_EQ(EAGAIN, errno);
    }
    ::close(ends[0]);
}

TEST(file_ops_stream_write, does_not_write_where_the_position_cannot_be_read)
{
    Faulty_medium medium;
    struct : Interposed_calls {
        off_t ftello(FILE*) override { return fail_with(EIO); }
    } calls;
    EXPECT_EQ(0U, file_ops_stream_write("abc", 1, 3, medium.stream()));
    EXPECT_EQ("", medium.held);
}

TEST(file_ops_stream_write, clears_an_old_error_even_for_no_elements)
{
    for (const std::size_t count : {0U, 3U}) {
        Faulty_medium medium;
        EXPECT_EQ(EOF, std::fgetc(medium.stream()));
        ASSERT_NE(0, std::ferror(medium.stream()));
        EXPECT_EQ(count, file_ops_stream_write("abc", 1, count, medium.stream()));
        EXPECT_EQ(0, std::ferror(medium.stream()));
        EXPECT_EQ(std::string("abc", count), medium.held);
    }
}

TEST(file_ops_stream_write, clears_an_old_end_of_file)
{
    const Scratch scratch;
    scratch.file("file", "0");
    {
        const Stream stream = open_stream("file", "r+");
        EXPECT_EQ('0', std::fgetc(stream.get()));
        EXPECT_EQ(EOF, std::fgetc(stream.get()));
        ASSERT_NE(0, std::feof(stream.get()));
        EXPECT_EQ(3U, file_ops_stream_write("abc", 1, 3, stream.get()));
        EXPECT_EQ(0, std::feof(stream.get()));
    }
    EXPECT_EQ("0abc", content("file"));
}

TEST(file_ops_stream_write, takes_no_elements_from_null_and_elements_of_no_size)
{
    Faulty_medium medium;
    errno = EAGAIN; // an old errno must not keep it trying
    EXPECT_EQ(0U, file_ops_stream_write(nullptr, 4, 0, medium.stream()));
    EXPECT_EQ(0U, file_ops_stream_write("abc", 0, 3, medium.stream()));
    EXPECT_EQ("", medium.held);
}

TEST(file_ops_stream_write, tries_again_after_an_interruption_wherever_it_falls)
{
    const std::string bytes = random_bytes(24, 2);
    for (const int error : {EINTR, EAGAIN})
        for (const std::size_t size : {1U, 2U, 8U, 24U})
            for (std::size_t taken = 0; taken < 24; ++taken) {
                SCOPED_TRACE(testing::Message() << std::strerror(error) << ", elements of " << size << ", "
                                                << taken << " bytes taken");
                Faulty_medium medium;
                std::fwrite("head", 1, 4, medium.stream());
                medium.fault = in_turn({{taken, error}, {0, error}, {taken, error}});
                EXPECT_EQ(24 / size, file_ops_stream_write(bytes.data(), size, 24 / size, medium.stream()));
                EXPECT_EQ("head" + bytes, medium.held);
                EXPECT_EQ(0, std::ferror(medium.stream()));
                EXPECT_EQ(28, std::ftell(medium.stream()));
            }
}

TEST(file_ops_stream_write, goes_back_only_when_it_has_moved)
{
    struct : Interposed_calls {
        int fseeko(FILE* stream, off_t offset, int whence) override
        {
            EXPECT_EQ(SEEK_SET, whence);
            seeks.push_back(offset);
            return Interposed_calls::fseeko(stream, offset, whence);
        }
        std::vector<off_t> seeks;
    } calls;
    Faulty_medium medium;
    std::fwrite("head", 1, 4, medium.stream());
    medium.fault = in_turn({{0, EINTR}, {0, EAGAIN}});
    EXPECT_EQ(3U, file_ops_stream_write("abcdef", 2, 3, medium.stream()));
    EXPECT_EQ(std::vector<off_t>{}, calls.seeks);
    medium.fault = in_turn({{3, EAGAIN}});
    EXPECT_EQ(3U, file_ops_stream_write("ghijkl", 2, 3, medium.stream()));
    EXPECT_EQ(std::vector<off_t>{10}, calls.seeks);
    EXPECT_EQ("headabcdefghijkl", medium.held);
}

TEST(file_ops_stream_write, gives_up_on_any_other_error_without_counting_the_attempt)
{
    for (const int error : {ENOSPC, EIO, EPIPE, EBADF, 0}) {
        SCOPED_TRACE(error);
        Faulty_medium medium;
        medium.fault = in_turn({{1, EINTR}, {5, error}});
        EXPECT_EQ(0U, file_ops_stream_write("abcdef", 2, 3, medium.stream()));
        EXPECT_EQ("abcde", medium.held);
        EXPECT_NE(0, std::ferror(medium.stream()));
    }
}

TEST(file_ops_stream_write, reports_a_full_disk)
{
    const Stream stream = open_stream("/dev/full", "w");
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(0U, file_ops_stream_write("abc", 1, 3, stream.get()));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_NE(0, std::ferror(stream.get()));
}

TEST(file_ops_stream_write, gives_up_on_a_stream_that_may_not_be_written)
{
    const Scratch scratch;
    scratch.file("file", "kept");
    {
        const Stream stream = open_stream("file", "r");
        EXPECT_EQ(0U, file_ops_stream_write("abc", 1, 3, stream.get()));
    }
    EXPECT_EQ("kept", content("file"));
}

namespace {

/// Answers fwrite from a list: how many elements are written, and the errno left behind, with the error flag
/// set for any but 0.
class Scripted_fwrite : public Interposed_calls {
public:
    struct Answer {
        std::size_t written;
        int error;
    };
    explicit Scripted_fwrite(std::vector<Answer> list) : answers(std::move(list)) {}

    std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) override
    {
        counts.push_back(count);
        EXPECT_EQ(0, errno);
        const Answer answer = answers.at(counts.size() - 1);
        if (answer.written > count)
            return answer.written;
        if (answer.written > 0)
            Interposed_calls::fwrite(data, size, answer.written, stream);
        if (answer.error != 0)
            std::fgetc(stream); // which a stream for writing refuses, and notes
        errno = answer.error;
        return answer.written;
    }
    int fseeko(FILE* stream, off_t offset, int whence) override
    {
        seeks.push_back(offset);
        return seek_error != 0 ? fail_with(seek_error) : Interposed_calls::fseeko(stream, offset, whence);
    }

    std::vector<Answer> answers;
    int seek_error = 0;
    std::vector<std::size_t> counts;
    std::vector<off_t> seeks;
};

} // namespace

TEST(file_ops_stream_write, goes_on_where_a_write_without_error_ended)
{
    Faulty_medium medium;
    Scripted_fwrite calls({{2, 0}, {1, 0}, {3, 0}});
    errno = EIO;
    EXPECT_EQ(6U, file_ops_stream_write("abcdefghijkl", 2, 6, medium.stream()));
    EXPECT_EQ((std::vector<std::size_t>{6, 4, 3}), calls.counts);
    EXPECT_EQ(std::vector<off_t>{}, calls.seeks);
    EXPECT_EQ("abcdefghijkl", medium.held);
}

TEST(file_ops_stream_write, counts_what_the_attempts_before_a_failure_wrote)
{
    Faulty_medium medium;
    Scripted_fwrite calls({{2, 0}, {1, 0}, {2, EIO}});
    EXPECT_EQ(3U, file_ops_stream_write("abcdefghijkl", 2, 6, medium.stream()));
    EXPECT_EQ("abcdefghij", medium.held);
}

TEST(file_ops_stream_write, stops_when_nothing_is_written_without_a_reason)
{
    Faulty_medium medium;
    Scripted_fwrite calls({{2, 0}, {0, 0}});
    EXPECT_EQ(2U, file_ops_stream_write("abcdefghijkl", 2, 6, medium.stream()));
}

TEST(file_ops_stream_write, goes_back_to_where_the_attempt_began_not_the_call)
{
    Faulty_medium medium;
    std::fwrite("head", 1, 4, medium.stream());
    Scripted_fwrite calls({{2, 0}, {3, EAGAIN}, {4, 0}});
    EXPECT_EQ(6U, file_ops_stream_write("abcdefghijkl", 2, 6, medium.stream()));
    EXPECT_EQ((std::vector<std::size_t>{6, 4, 4}), calls.counts);
    EXPECT_EQ(std::vector<off_t>{4 + 2 * 2}, calls.seeks);
    EXPECT_EQ("headabcdefghijkl", medium.held);
}

TEST(file_ops_stream_write, gives_up_when_it_cannot_go_back)
{
    Faulty_medium medium;
    Scripted_fwrite calls({{2, 0}, {3, EAGAIN}});
    calls.seek_error = EIO;
    EXPECT_EQ(2U, file_ops_stream_write("abcdefghijkl", 2, 6, medium.stream()));
    EXPECT_NE(0, std::ferror(medium.stream()));
    EXPECT_EQ(std::vector<off_t>{4}, calls.seeks);
}

TEST(file_ops_stream_write, an_error_flag_without_errno_counts_as_a_failure)
{
    Faulty_medium medium;
    medium.fault = in_turn({{4, 0}}); // a part, and no reason
    EXPECT_EQ(0U, file_ops_stream_write("abcdef", 2, 3, medium.stream()));
}

TEST(file_ops_stream_write, an_end_of_file_while_writing_counts_as_a_failure)
{
    const Scratch scratch;
    const Stream stream = open_stream("file", "w+");
    struct : Interposed_calls {
        std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* file) override
        {
            const std::size_t written = Interposed_calls::fwrite(data, size, count, file);
            std::rewind(file);
            while (std::fgetc(file) != EOF)
                continue;
            errno = 0;
            return written;
        }
    } calls;
    EXPECT_EQ(0U, file_ops_stream_write("abcdef", 2, 3, stream.get()));
    EXPECT_NE(0, std::feof(stream.get()));
}

TEST(file_ops_stream_write_death, more_elements_than_there_were_break_a_promise)
{
    EXPECT_DEATH(
        {
            Faulty_medium medium;
            Scripted_fwrite calls({{4, 0}});
            file_ops_stream_write("abcdef", 2, 3, medium.stream());
        },
        "util/file_ops\\.cpp:[0-9]+: .*file_ops_stream_write.*Assertion .nmemb_written == nmemb. failed");
}

TEST(file_ops_stream_write, random_faults_lose_and_double_nothing)
{
    std::mt19937 random(83);
    for (int round = 0; round < 10000; ++round) {
        const std::size_t size = random() % 5 + 1;
        const std::size_t count = random() % 20;
        const std::string bytes = random_bytes(size * count, static_cast<unsigned>(round));
        const bool fails_in_the_end = random() % 4 == 0;
        std::size_t faults_left = random() % 5;
        Faulty_medium medium;
        medium.fault = [&](std::size_t wanted) -> Faulty_medium::Fault {
            if (faults_left == 0)
                return {wanted, 0};
            const bool last = --faults_left == 0;
            return {random() % wanted,
                    last && fails_in_the_end ? ENOSPC : (random() % 2 == 0 ? EINTR : EAGAIN)};
        };
        const bool will_fail = fails_in_the_end && faults_left > 0 && count > 0;
        const std::size_t result = file_ops_stream_write(bytes.data(), size, count, medium.stream());
        SCOPED_TRACE(testing::Message() << "seed 83, round " << round);
        ASSERT_EQ(will_fail ? 0 : count, result);
        if (will_fail)
            ASSERT_EQ(bytes.substr(0, medium.held.size()), medium.held);
        else
            ASSERT_EQ(bytes, medium.held);
    }
}

// Copying a file

TEST(copy_file, copies_sizes_around_its_block)
{
    const Scratch scratch;
    const long before = open_descriptors();
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U, 100000U}) {
        SCOPED_TRACE(size);
        const std::string bytes = random_bytes(size, static_cast<unsigned>(size));
        const std::string src = scratch.file("src", bytes);
        fs::remove("dst");
        EXPECT_TRUE(copy_file(src.c_str(), scratch.path("dst").c_str()));
        EXPECT_EQ(bytes, content("dst"));
        EXPECT_EQ(bytes, content("src"));
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST(copy_file, leaves_exactly_the_sources_bytes_in_a_longer_file)
{
    const Scratch scratch;
    scratch.file("src", "short");
    scratch.file("dst", random_bytes(10000, 3));
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ("short", content("dst"));
}

TEST(copy_file, gives_a_new_file_the_sources_mode)
{
    const Umask none(0);
    const Scratch scratch;
    for (const mode_t mode : {0400U, 0444U, 0600U, 0644U, 0666U, 0755U, 0777U, 01644U, 04755U, 06755U}) {
        SCOPED_TRACE(mode);
        scratch.file("src", "", mode); // empty: a write may take the set-user-ID bit away
        fs::remove("dst");
        EXPECT_TRUE(copy_file("src", "dst"));
        EXPECT_EQ(mode, mode_of("dst"));
    }
}

TEST(copy_file, writes_a_copy_that_nobody_may_write)
{
    const Scratch scratch;
    scratch.file("src", "content", 0444);
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ("content", content("dst"));
    EXPECT_EQ(mode_t{0444}, mode_of("dst"));
}

TEST(copy_file, the_umask_takes_bits_away)
{
    const Umask mask(027);
    const Scratch scratch;
    scratch.file("src", "x", 0777);
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ(mode_t{0750}, mode_of("dst"));
}

TEST(copy_file, an_existing_file_keeps_its_own_mode)
{
    const Scratch scratch;
    scratch.file("src", "x", 0755);
    scratch.file("dst", "y", 0600);
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ(mode_t{0600}, mode_of("dst"));
}

TEST(copy_file, follows_links_on_both_sides)
{
    const Scratch scratch;
    scratch.file("src", "content");
    scratch.file("dst", "old");
    scratch.link("from", "src");
    scratch.link("to", "dst");
    EXPECT_TRUE(copy_file("from", "to"));
    EXPECT_EQ("content", content("dst"));
    EXPECT_TRUE(fs::is_symlink("to"));
}

TEST(copy_file, onto_itself_empties_the_file)
{
    for (const char* const name : {"file", "./file", "symbolic", "hard"}) {
        SCOPED_TRACE(name);
        const Scratch scratch;
        scratch.file("file", "content");
        scratch.link("symbolic", "file");
        fs::create_hard_link("file", "hard");
        EXPECT_TRUE(copy_file("file", name));
        EXPECT_EQ("", content("file"));
    }
}

TEST(copy_file, opens_the_source_for_reading_and_the_copy_truncated)
{
    const Scratch scratch;
    scratch.file("src", "x", 0640);
    struct : Interposed_calls {
        int open(const char* path, int flags, mode_t mode) override
        {
            constexpr int COMPARED =
                O_ACCMODE | O_CREAT | O_TRUNC | O_EXCL | O_APPEND | O_NONBLOCK | O_NOFOLLOW;
            opened.push_back(std::string(path) + " " + std::to_string(flags & COMPARED) + " " +
                             std::to_string(mode));
            return Interposed_calls::open(path, flags, mode);
        }
        Names opened;
    } calls;
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ((Names{"src " + std::to_string(O_RDONLY) + " 0",
                     "dst " + std::to_string(O_WRONLY | O_CREAT | O_TRUNC) + " " + std::to_string(0640)}),
              calls.opened);
}

TEST(copy_file, reads_and_writes_blocks_of_4096)
{
    const Scratch scratch;
    scratch.file("src", random_bytes(10000, 4));
    using Sizes = std::vector<std::size_t>;
    struct : Interposed_calls {
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            reads.push_back(size);
            return Interposed_calls::read(fd, data, size);
        }
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            writes.push_back(size);
            return Interposed_calls::write(fd, data, size);
        }
        Sizes reads;
        Sizes writes;
    } calls;
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ((Sizes{4096, 4096, 4096, 4096}), calls.reads); // the last finds the end
    EXPECT_EQ((Sizes{4096, 4096, 1808}), calls.writes);
}

TEST(copy_file, takes_descriptors_0_and_1_like_any_others)
{
    const Scratch scratch;
    scratch.file("src", "content");
    in_a_fresh_process([] {
        close(0);
        close(1);
        EXPECT_TRUE(copy_file("src", "dst"));
    });
    EXPECT_EQ("content", content("dst"));
}

TEST(copy_file, goes_on_after_a_write_of_nothing)
{
    const Scratch scratch;
    scratch.file("src", "content");
    struct : Interposed_calls {
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            errno = 0;
            return ++writes == 1 ? 0 : Interposed_calls::write(fd, data, size);
        }
        int writes = 0;
    } calls;
    EXPECT_TRUE(copy_file("src", "dst"));
    EXPECT_EQ(2, calls.writes);
    EXPECT_EQ("content", content("dst"));
}

TEST(copy_file, says_nothing_when_all_is_well)
{
    const Scratch scratch;
    scratch.file("src");
    EXPECT_EQ("", error_output([] { EXPECT_TRUE(copy_file("src", "dst")); }));
}

TEST(copy_file, reports_a_source_that_cannot_be_opened)
{
    const Scratch scratch;
    scratch.file("dst", "kept");
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): open src:", ENOENT),
              error_output([] { EXPECT_FALSE(copy_file("missing", "dst")); }));
    EXPECT_EQ(line("copy_file(): open src:", ENOTDIR),
              error_output([] { EXPECT_FALSE(copy_file("dst/below", "new")); }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(Names{"dst"}, scratch.entries());
    EXPECT_EQ("kept", content("dst"));
}

TEST(copy_file, takes_an_interrupted_open_for_a_failure)
{
    const Scratch scratch;
    scratch.file("src");
    struct Interrupted : Interposed_calls {
        int open(const char*, int, mode_t) override { return fail_with(EINTR); }
    };
    EXPECT_EQ(line("copy_file(): open src:", EINTR), error_output([] {
                  const Interrupted calls;
                  EXPECT_FALSE(copy_file("src", "dst"));
              }));
    EXPECT_EQ(Names{"src"}, scratch.entries());
}

TEST(copy_file, leaves_the_source_open_when_its_status_cannot_be_read)
{
    const Scratch scratch;
    scratch.file("src");
    struct No_status : Interposed_calls {
        explicit No_status(int& source) : fd(source) {}
        int fstat(int source, struct stat*) override
        {
            fd = source;
            return fail_with(EOVERFLOW);
        }
        int& fd;
    };
    const long before = open_descriptors();
    int fd = -1;
    EXPECT_EQ(line("copy_file(): fstat src:", EOVERFLOW), error_output([&fd] {
                  const No_status calls(fd);
                  EXPECT_FALSE(copy_file("src", "dst"));
              }));
    EXPECT_EQ(before + 1, open_descriptors());
    EXPECT_EQ(0, ::close(fd));
    EXPECT_EQ(Names{"src"}, scratch.entries());
}

TEST(copy_file, reports_a_copy_that_cannot_be_opened_and_closes_the_source)
{
    const Scratch scratch;
    scratch.file("src");
    scratch.folder("folder");
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): open dst:", ENOENT),
              error_output([] { EXPECT_FALSE(copy_file("src", "missing/dst")); }));
    EXPECT_EQ(line("copy_file(): open dst:", EISDIR),
              error_output([] { EXPECT_FALSE(copy_file("src", "folder")); }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ((Names{"folder", "src"}), scratch.entries());
}

TEST(copy_file, tells_of_the_open_even_when_closing_the_source_fails_too)
{
    const Scratch scratch;
    scratch.file("src");
    struct Bad_close : Interposed_calls {
        int close(int fd) override
        {
            Interposed_calls::close(fd);
            return fail_with(EIO);
        }
    };
    EXPECT_EQ(line("copy_file(): open dst:", ENOENT), error_output([] {
                  const Bad_close calls;
                  EXPECT_FALSE(copy_file("src", "missing/dst"));
              }));
}

TEST(copy_file, does_not_look_at_what_close_reports)
{
    const Scratch scratch;
    scratch.file("src", "content");
    struct Bad_close : Interposed_calls {
        int close(int fd) override
        {
            Interposed_calls::close(fd);
            return fail_with(EIO);
        }
    };
    EXPECT_EQ("", error_output([] {
                  const Bad_close calls;
                  EXPECT_TRUE(copy_file("src", "dst"));
              }));
    EXPECT_EQ("content", content("dst"));
}

TEST(copy_file, reports_a_directory_as_a_source_that_cannot_be_read)
{
    const Scratch scratch;
    scratch.folder("src");
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): read src:", EISDIR),
              error_output([] { EXPECT_FALSE(copy_file("src", "dst")); }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ("", content("dst"));
}

TEST(copy_file, keeps_what_was_copied_before_a_read_failed)
{
    const Scratch scratch;
    const std::string bytes = random_bytes(10000, 5);
    scratch.file("src", bytes);
    struct Second_read_fails : Interposed_calls {
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            return ++reads == 2 ? fail_with(EIO) : Interposed_calls::read(fd, data, size);
        }
        int reads = 0;
    };
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): read src:", EIO), error_output([] {
                  Second_read_fails calls;
                  EXPECT_FALSE(copy_file("src", "dst"));
              }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(bytes.substr(0, 4096), content("dst"));
}

TEST(copy_file, reports_a_full_disk_and_closes_both)
{
    const Scratch scratch;
    scratch.file("src", "content");
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): write dst:", ENOSPC),
              error_output([] { EXPECT_FALSE(copy_file("src", "/dev/full")); }));
    EXPECT_EQ(before, open_descriptors());
}

TEST(copy_file, keeps_what_fitted_on_a_disk_that_fills_up)
{
    const Scratch scratch;
    const std::string bytes = random_bytes(10000, 6);
    scratch.file("src", bytes);
    struct Fills_up : Interposed_calls {
        ssize_t write(int fd, const void* data, std::size_t size) override
        {
            const std::size_t fits = std::min(size, room);
            room -= fits;
            return fits == 0 ? fail_with(ENOSPC) : Interposed_calls::write(fd, data, fits);
        }
        std::size_t room = 5000;
    };
    const long before = open_descriptors();
    EXPECT_EQ(line("copy_file(): write dst:", ENOSPC), error_output([] {
                  Fills_up calls;
                  EXPECT_FALSE(copy_file("src", "dst"));
              }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(bytes.substr(0, 5000), content("dst"));
}

TEST(copy_file, takes_only_eintr_for_an_interruption)
{
    const Scratch scratch;
    scratch.file("src");
    struct Would_block : Interposed_calls {
        explicit Would_block(bool reading) : read_fails(reading) {}
        ssize_t read(int fd, void* data, std::size_t size) override
        {
            return read_fails ? fail_with(EAGAIN) : Interposed_calls::read(fd, data, size);
        }
        ssize_t write(int, const void*, std::size_t) override { return fail_with(EAGAIN); }
        bool read_fails;
    };
    for (const bool reading : {true, false})
        EXPECT_EQ(line(reading ? "copy_file(): read src:" : "copy_file(): write dst:", EAGAIN),
                  error_output([reading] {
                      Would_block calls(reading);
                      EXPECT_FALSE(copy_file("src", "dst"));
                  }));
}

namespace {

/// Two files in memory, whose reads and writes are short, interrupted, or fail as a random generator has it.
class Memory_files : public Interposed_calls {
public:
    Memory_files(std::mt19937& generator, std::string bytes) : source(std::move(bytes)), random(generator) {}

    int open(const char*, int, mode_t) override { return FIRST + opened++; }
    int fstat(int, struct stat* status) override
    {
        *status = {};
        return 0;
    }
    ssize_t read(int fd, void* data, std::size_t size) override
    {
        EXPECT_EQ(FIRST, fd);
        if (one_in(4))
            return fail_with(EINTR);
        if (fails == Fails::read && one_in(4)) {
            failed = true;
            return fail_with(EIO);
        }
        const std::size_t length =
            source.copy(static_cast<char*>(data), one_in(2) ? size : random() % size + 1, read_place);
        read_place += length;
        return static_cast<ssize_t>(length);
    }
    ssize_t write(int fd, const void* data, std::size_t size) override
    {
        EXPECT_EQ(FIRST + 1, fd);
        if (one_in(4))
            return fail_with(EINTR);
        if (fails == Fails::write && one_in(4)) {
            failed = true;
            return fail_with(ENOSPC);
        }
        const std::size_t length = one_in(2) ? size : random() % size + 1;
        copy.append(static_cast<const char*>(data), length);
        return static_cast<ssize_t>(length);
    }
    int close(int fd) override
    {
        closed.push_back(fd);
        return 0;
    }

    enum class Fails { nothing, read, write };
    static constexpr int FIRST = 1000;

    Fails fails = Fails::nothing;
    bool failed = false;
    std::string source;
    std::string copy;
    std::vector<int> closed;

private:
    bool one_in(unsigned n) { return random() % n == 0; }

    std::mt19937& random;
    int opened = 0;
    std::size_t read_place = 0;
};

} // namespace

TEST(copy_file, short_and_interrupted_calls_lose_and_double_nothing)
{
    std::mt19937 random(8);
    const std::string bytes = random_bytes(20000, 7);
    testing::internal::CaptureStderr(); // a line for every failure: counted below
    long failures = 0;
    for (int round = 0; round < 10000; ++round) {
        Memory_files files(random, bytes.substr(random() % 1000, random() % 10000));
        files.fails = static_cast<Memory_files::Fails>(random() % 3);
        const bool copied = copy_file("src", "dst");
        ASSERT_EQ(!files.failed, copied) << "seed 8, round " << round;
        ASSERT_EQ(copied ? files.source : files.source.substr(0, files.copy.size()), files.copy)
            << "seed 8, round " << round;
        std::sort(files.closed.begin(), files.closed.end());
        ASSERT_EQ((std::vector<int>{Memory_files::FIRST, Memory_files::FIRST + 1}), files.closed)
            << "seed 8, round " << round;
        failures += copied ? 0 : 1;
    }
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_EQ(failures, std::count(lines.begin(), lines.end(), '\n'));
    EXPECT_GT(failures, 1000);
}
