// Lists, shows, appends to and removes the files of a store directory, through the library's file store. One
// function a command, from the bottom of the file up: run() picks it.

#include "util/rtems_compat/compat_pcfile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* USAGE =
    R"(usage: store_shell DIR list
       store_shell DIR show NAME
       store_shell DIR append NAME
       store_shell DIR remove NAME

Works on the files of a store directory, which is made when it is not there.

  list     size in bytes, time of the last change (UTC) and name of each file, in the directory's order
  show     a file, to standard output
  append   standard input, to the end of a file, which is made when it is not there
  remove   a file, for good
  --help   this text

The status is 0 when it is done, 1 when it could not be, and 2 when the command line is wrong.
)";

constexpr std::size_t BLOCK = 4096;
using Block = std::array<char, BLOCK>;

struct Wrong_usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string quoted(const std::string& name)
{
    return "'" + name + "'";
}

void complain(const std::string& message)
{
    static_cast<void>(std::fprintf(stderr, "store_shell: %s\n", message.c_str())); // nowhere left to say so
}

void put(const char* bytes, std::size_t count)
{
    if (std::fwrite(bytes, 1, count, stdout) != count || std::fflush(stdout) != 0)
        throw Failure(std::string("standard output cannot be written: ") + std::strerror(errno) + ".");
}

void put(const std::string& text)
{
    put(text.data(), text.size());
}

/// What standard input has, without waiting for a whole block; 0 at the end.
int read_input(Block& block)
{
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
        if (count >= 0)
            return static_cast<int>(count);
        if (errno != EINTR)
            throw Failure(std::string("standard input cannot be read: ") + std::strerror(errno) + ".");
    }
}

std::string utc(std::time_t seconds)
{
    std::array<char, 32> text{};
    std::tm parts{};
    if (::gmtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0)
        return "unknown";
    return text.data();
}

void list()
{
    PcfFileInfo info{};
    for (const char* name = pcfFirst(&info); name != nullptr; name = pcfNext(&info)) {
        std::array<char, 16> size{};
        static_cast<void>(std::snprintf(size.data(), size.size(), "%10d", int{info.size})); // it fits
        put(size.data() + ("  " + utc(info.mtime)) + "  " + name + "\n");
    }
}

void show(const std::string& name)
{
    if (pcfOpenRead(name.c_str(), 0, nullptr) != PCF_SUCCESS)
        throw Failure(quoted(name) + " cannot be opened.");
    Block block{};
    PcfResult result = PCF_FAILURE;
    for (int count = 0; (count = pcfRead(block.data(), BLOCK, result, 0)) > 0;)
        put(block.data(), static_cast<std::size_t>(count));
    pcfCloseRead(0); // only read from: nothing can be lost
    if (result != PCF_SUCCESS)
        throw Failure(quoted(name) + " cannot be read.");
}

void append(const std::string& name)
{
    if (!pcfCreateWrite(name.c_str()))
        throw Failure(quoted(name) + " cannot be opened.");
    Block block{};
    int count = 0;
    int written = 0;
    while (written == count && (count = read_input(block)) > 0)
        written = pcfWrite(block.data(), count);
    pcfCloseWrite(); // says on standard error what it could not bring to the disc, and is true in any case
    if (count > 0)
        throw Failure(quoted(name) + " cannot be written to the end; what was written stays.");
}

void remove(const std::string& name)
{
    if (!pcfExists(name.c_str()))
        throw Failure("there is no file " + quoted(name) + ".");
    pcfRemove(name.c_str()); // which tells of no failure
    if (pcfExists(name.c_str()))
        throw Failure(quoted(name) + " cannot be removed.");
}

/// @param words  what was given on the command line
void run(const std::vector<std::string>& words)
{
    if (words.size() < 2)
        throw Wrong_usage("it takes a directory and a command.");
    const std::string& command = words[1];
    const bool lists = command == "list";
    if (!lists && command != "show" && command != "append" && command != "remove")
        throw Wrong_usage("there is no command " + quoted(command) + ".");
    if (words.size() != (lists ? 2U : 3U))
        throw Wrong_usage(command + (lists ? " takes no name." : " takes the name of one file."));
    if (!lists && !pcfCheckName(words[2].c_str())) // the store itself looks only where it makes a file
        throw Wrong_usage(quoted(words[2]) + " is no name of a file.");

    if (!pcfIsMounted(words[0].c_str()))
        throw Failure(quoted(words[0]) + " cannot be used as a store.");
    if (lists)
        list();
    else if (command == "show")
        show(words[2]);
    else if (command == "append")
        append(words[2]);
    else
        remove(words[2]);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const std::vector<std::string> words(argv + 1, argv + argc);
        if (words == std::vector<std::string>{"--help"})
            put(USAGE);
        else
            run(words);
        return 0;
    } catch (const Wrong_usage& wrong) {
        complain(wrong.what() + std::string(" See store_shell --help."));
        return 2;
    } catch (const std::exception& error) {
        complain(error.what());
        return 1;
    }
}
