#include "platform/Platform.h"

#include <cstdlib>

namespace {

/// Empty where the variable is not set.
std::string environment(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody sets it meanwhile
    return value != nullptr ? value : "";
}

std::string base_directory_of_environment()
{
    if (std::string chosen = environment("QUARVEL_BASE_DIR"); !chosen.empty())
        return chosen;
    // A relative data home is invalid, and ignored.
    if (const std::string data_home = environment("XDG_DATA_HOME"); data_home.rfind('/', 0) == 0)
        return data_home + "/quarvelutil";
    if (const std::string home = environment("HOME"); !home.empty())
        return home + "/.local/share/quarvelutil";
    return ".";
}

} // namespace

Platform& Platform::instance()
{
    static Platform platform;
    return platform;
}

Platform::Platform() : base(base_directory_of_environment())
{
    if (base.back() != '/')
        base += '/';
}

const std::string& Platform::base_directory() const
{
    return base;
}
