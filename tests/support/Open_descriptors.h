#pragma once

#include <filesystem>
#include <iterator>

/// How many descriptors this process has open, with the one that is used to count them.
inline long open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}
