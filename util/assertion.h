#pragma once

#include "util/export.h"

namespace Util {

/// Stops the program with the C library's assertion message. For what headers promise: it works whether or
/// not the program that includes them is built with NDEBUG.
///
/// Any thread.
///
/// @param line  the line that field reports are matched against; it does not follow edits
[[noreturn]] QUARVEL_EXPORT void assertion_failed(const char* condition, const char* file, unsigned int line,
                                                  const char* function);

} // namespace Util
