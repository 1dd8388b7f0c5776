#include "Output.h"

#include "Failed.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

Output::Output(const std::string& file) : name(file), stream(stdout)
{
    if (name.empty())
        return;
    std::error_code error; // what cannot be looked at cannot be opened either
    if (fs::exists(name, error)) {
        name = fs::canonical(name, error); // not the link, but what it points to
        if (error)
            name = file;
    }
    const bool is_direct = fs::exists(name, error) && !fs::is_regular_file(name, error);
    if (!is_direct)
        part_name = name + ".part-" + std::to_string(getpid());
    stream = std::fopen(is_direct ? name.c_str() : part_name.c_str(), "wbe");
    if (stream == nullptr) {
        part_name.clear();
        fail("opened");
    }
}

Output::~Output()
{
    if (stream != nullptr && stream != stdout)
        static_cast<void>(std::fclose(stream)); // what is lost was not whole
    if (!part_name.empty())
        unlink(part_name.c_str());
}

void Output::write(const char* data, std::size_t count)
{
    if (std::fwrite(data, 1, count, stream) != count)
        fail("written");
}

void Output::finish()
{
    std::FILE* const closing = std::exchange(stream, nullptr);
    if (closing == stdout ? std::fflush(closing) != 0 : std::fclose(closing) != 0)
        fail("written");
    if (!part_name.empty() && std::rename(part_name.c_str(), name.c_str()) != 0)
        fail("renamed");
    part_name.clear();
}

void Output::fail(const char* what) const
{
    const std::string shown = name.empty() ? "standard output" : "'" + name + "'";
    throw Failed(shown + " cannot be " + what + ": " + std::strerror(errno) + ".");
}
