#pragma once

#include <cstdint>
#include <string>

/// The console's own side: what the library printed, and the time that it is told.
namespace console {
extern std::string printed;
extern std::int64_t now_ms; ///< since 1970, also what the monotonic clock shows
} // namespace console
