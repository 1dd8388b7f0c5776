#pragma once

#include "platform/export.h"

/// The debug output: texts for whoever watches the console.
namespace Debug::Print {

/// Writes one printf-style text to the debug output: here standard error, unbuffered.
///
/// Any thread; the text of one call is not torn apart by another.
/// @param format  as printf takes it; no newline is added
QUARVEL_PLATFORM_EXPORT void dprint(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Debug::Print

/// The debug channel: texts by category.
namespace Debug::Channel {

/// Writes one printf-style text to the debug channel: here to standard error, as dprint() does, whatever the
/// category.
///
/// Any thread.
/// @param category  what the text is about, for a console that sorts or filters; networking is 107
QUARVEL_PLATFORM_EXPORT void print(int category, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/// Reports a broken precondition. Any thread.
///
/// Here it is written like any other text, and the process goes on.
QUARVEL_PLATFORM_EXPORT void critical(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Debug::Channel

/// System errors on the debug output.
namespace Debug_print {

/// Writes `text`, ": ", what errno says and a line end to the debug output. errno stays as it is. Any
/// thread.
QUARVEL_PLATFORM_EXPORT void perror(const char* text);

} // namespace Debug_print
