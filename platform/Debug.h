#pragma once

#include "platform/export.h"

namespace Debug::Print {

/// Writes one printf-style text to the debug output: here standard error, unbuffered.
///
/// Any thread; the text of one call is not torn apart by another.
/// @param format  as printf takes it; no newline is added
QUARVEL_PLATFORM_EXPORT void dprint(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Debug::Print
