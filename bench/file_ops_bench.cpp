#include "util/file_ops.h"

#include "tests/support/Temporary_folder.h"

#include <benchmark/benchmark.h>
#include <gnu/libc-version.h>

#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t COPIED = std::size_t{64} << 20;
constexpr int REMOVED_FILES = 10000;
constexpr int FILES_IN_A_FOLDER = 100;

// The file system that a folder lies on is measured as well.
using Scratch = Temporary_folder;

void write_source(const fs::path& path)
{
    std::mt19937_64 random(64);
    std::ofstream file(path, std::ios::binary);
    for (std::size_t written = 0; written < COPIED; written += sizeof(std::uint64_t)) {
        const std::uint64_t bits = random();
        file.write(reinterpret_cast<const char*>(&bits), sizeof bits);
    }
}

bool copy_ours(const fs::path& from, const fs::path& to)
{
    return copy_file(from.c_str(), to.c_str());
}

bool copy_std(const fs::path& from, const fs::path& to)
{
    return fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

/// What blocks of 4096 bytes cost in system calls alone: no answer is looked at beyond its end.
bool copy_bare(const fs::path& from, const fs::path& to)
{
    const int in = ::open(from.c_str(), O_RDONLY);
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    char block[4096];
    ssize_t size = 0;
    while ((size = ::read(in, block, sizeof block)) > 0)
        if (::write(out, block, static_cast<std::size_t>(size)) != size)
            break;
    ::close(in);
    ::close(out);
    return size == 0;
}

bool same_content(const fs::path& one, const fs::path& other)
{
    return std::system(("cmp -s '" + one.string() + "' '" + other.string() + "'").c_str()) == 0;
}

/// Into a new file each time: the one before is removed outside the time that counts.
void copy(benchmark::State& state, const Scratch& scratch, bool (*copy_one)(const fs::path&, const fs::path&))
{
    const fs::path from = scratch.path("from");
    const fs::path to = scratch.path("to");
    if (!fs::exists(from))
        write_source(from);
    for (auto _ : state) {
        fs::remove(to);
        const auto start = std::chrono::steady_clock::now();
        const bool copied = copy_one(from, to);
        const auto end = std::chrono::steady_clock::now();
        if (!copied)
            state.SkipWithError("the copy failed");
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    if (!same_content(from, to))
        state.SkipWithError("the copy differs");
    state.SetItemsProcessed(state.iterations());
}

bool remove_ours(const fs::path& tree)
{
    return file_ops_rmdir_recursive(tree.c_str()) == 0;
}

bool remove_std(const fs::path& tree)
{
    return fs::remove_all(tree) > static_cast<std::uintmax_t>(REMOVED_FILES);
}

void make_tree(const fs::path& tree)
{
    for (int i = 0; i < REMOVED_FILES; ++i) {
        const fs::path folder = tree / std::to_string(i / FILES_IN_A_FOLDER);
        if (i % FILES_IN_A_FOLDER == 0)
            fs::create_directories(folder);
        std::ofstream(folder / std::to_string(i)) << "a file of a few bytes";
    }
}

void remove(benchmark::State& state, const Scratch& scratch, bool (*remove_tree)(const fs::path&))
{
    const fs::path tree = scratch.path("tree");
    for (auto _ : state) {
        make_tree(tree);
        const auto start = std::chrono::steady_clock::now();
        const bool removed = remove_tree(tree);
        const auto end = std::chrono::steady_clock::now();
        if (!removed || fs::exists(tree))
            state.SkipWithError("the tree is still there");
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.SetItemsProcessed(state.iterations() * REMOVED_FILES);
}

void register_copy(const Scratch& scratch, const std::string& inputs)
{
    const auto add = [&scratch, &inputs](const std::string& who, auto copy_one) {
        benchmark::RegisterBenchmark(
            ("copy_file/" + who + "/" + inputs).c_str(),
            [&scratch, copy_one](benchmark::State& state) { copy(state, scratch, copy_one); })
            ->UseManualTime()
            ->Iterations(1);
    };
    add("ours", copy_ours);
    add("std::filesystem copy_file", copy_std);
    add("bare read and write", copy_bare);
}

void register_remove(const Scratch& scratch, const std::string& inputs)
{
    const auto add = [&scratch, &inputs](const std::string& who, auto remove_tree) {
        benchmark::RegisterBenchmark(
            ("file_ops_rmdir_recursive/" + who + "/" + inputs).c_str(),
            [&scratch, remove_tree](benchmark::State& state) { remove(state, scratch, remove_tree); })
            ->UseManualTime()
            ->Iterations(1);
    };
    add("ours", remove_ours);
    add("std::filesystem remove_all", remove_std);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("C library", gnu_get_libc_version());

    const Scratch disk(fs::temp_directory_path());
    const Scratch memory(fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path());
    register_copy(memory, "64 MiB, in memory");
    register_copy(disk, "64 MiB, on disk");
    register_remove(memory, "10,000 files, in memory");
    register_remove(disk, "10,000 files, on disk");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
