#include "util/rtems_compat/compat_pcfile.h"

#include "tests/support/Temporary_folder.h"

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <gnu/libc-version.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;

constexpr int RECORD = 64;

/// The file system that it lies on is measured as well.
class Scratch : public Temporary_folder {
public:
    using Temporary_folder::Temporary_folder;

    /// A folder in it that holds so many files, made when first asked for.
    fs::path filled(int files) const
    {
        const fs::path filled = path(std::to_string(files));
        if (fs::create_directory(filled))
            for (int i = 0; i < files; ++i)
                std::ofstream(filled / ("20260401_" + std::to_string(i) + ".log")) << i;
        return filled;
    }
};

/// The store is mounted once in a process, so it is mounted on a link, which leads to one folder or another.
class Store {
public:
    explicit Store(const Scratch& scratch) : link(scratch.path("store")), next(scratch.path("next"))
    {
        lead_to(scratch.path());
        if (!pcfIsMounted(link.c_str()))
            std::abort();
    }
    void lead_to(const fs::path& folder) const
    {
        fs::create_symlink(folder, next);
        fs::rename(next, link);
    }

private:
    fs::path link;
    fs::path next;
};

void write_ours(benchmark::State& state, const Store& store, const fs::path& folder)
{
    const char record[RECORD] = "a record of a log";
    store.lead_to(folder);
    if (!pcfCreateWrite("log"))
        state.SkipWithError("the log cannot be opened");
    for (auto _ : state)
        if (pcfWrite(record, RECORD) != RECORD)
            state.SkipWithError("a write failed");
    pcfCloseWrite();
    pcfRemove("log");
    state.SetItemsProcessed(state.iterations());
}

void write_bare(benchmark::State& state, const fs::path& folder)
{
    const char record[RECORD] = "a record of a log";
    const std::string log = (folder / "log").string();
    const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    for (auto _ : state)
        if (::write(fd, record, RECORD) != RECORD)
            state.SkipWithError("a write failed");
    ::fdatasync(fd);
    ::close(fd);
    fs::remove(log);
    state.SetItemsProcessed(state.iterations());
}

int list_by_first_and_next()
{
    int files = 0;
    for (const char* name = pcfFirst(nullptr); name != nullptr; name = pcfNext(nullptr))
        ++files;
    return files;
}

int list_by_number()
{
    int files = 0;
    char name[256];
    while (pcfGetFileName(files, name))
        ++files;
    return files;
}

/// The entry at a position, as a call finds it that keeps nothing.
bool walk_to(const char* folder, int index, char* name)
{
    DIR* const stream = ::opendir(folder);
    bool found = false;
    while (const dirent* const entry = ::readdir(stream))
        if (entry->d_type != DT_DIR && index-- == 0) {
            std::strcpy(name, entry->d_name);
            found = true;
            break;
        }
    ::closedir(stream);
    return found;
}

int list_by_walks()
{
    int files = 0;
    char name[256];
    while (walk_to(pcfDirectory(), files, name))
        ++files;
    return files;
}

/// @param just_changed  a file comes and goes before each listing, outside the time that counts
void list(benchmark::State& state, const Store& store, const fs::path& folder, int files, int (*list_all)(),
          bool just_changed)
{
    store.lead_to(folder);
    if (!just_changed)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (auto _ : state) {
        if (just_changed) {
            state.PauseTiming();
            std::ofstream(folder / "passing") << "x";
            fs::remove(folder / "passing");
            state.ResumeTiming();
        }
        if (list_all() != files)
            state.SkipWithError("the listing is not complete");
    }
    state.SetItemsProcessed(state.iterations() * files);
}

void register_write(const Store& store, const Scratch& scratch, const std::string& place)
{
    const fs::path folder = scratch.path();
    benchmark::RegisterBenchmark(
        ("pcfWrite/ours/64 B, " + place).c_str(),
        [&store, folder](benchmark::State& state) { write_ours(state, store, folder); });
    benchmark::RegisterBenchmark(("pcfWrite/bare write/64 B, " + place).c_str(),
                                 [folder](benchmark::State& state) { write_bare(state, folder); });
}

void register_list(const Store& store, const Scratch& scratch, const std::string& place)
{
    for (const auto& [files, inputs] :
         {std::pair(100, "100 files, "), {1000, "1,000 files, "}, {10000, "10,000 files, "}}) {
        const auto add = [&store, &place, files = files, inputs = inputs, folder = scratch.filled(files)](
                             const std::string& name, int (*list_all)(), bool just_changed) {
            benchmark::RegisterBenchmark((name + "/" + inputs + place).c_str(), [=, &store](
                                                                                    benchmark::State& state) {
                list(state, store, folder, files, list_all, just_changed);
            })->Iterations(1);
        };
        add("pcfNext/ours", list_by_first_and_next, false);
        if (files <= 1000) // ten times as many take a hundred times as long
            add("pcfNext/walk to each name", list_by_walks, false);
        add("pcfGetFileName/ours", list_by_number, false);
        add("pcfNext just after a change/ours", list_by_first_and_next, true);
    }
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
    const Store store(memory);
    register_write(store, memory, "in memory");
    register_write(store, disk, "on disk");
    register_list(store, memory, "in memory");
    register_list(store, disk, "on disk");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
