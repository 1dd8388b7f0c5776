#pragma once

namespace Debug::Print {
void dprint(const char* format, ...) __attribute__((format(printf, 1, 2)));
} // namespace Debug::Print

namespace Debug::Channel {
void print(int category, const char* format, ...) __attribute__((format(printf, 2, 3)));
void critical(const char* format, ...) __attribute__((format(printf, 1, 2)));
} // namespace Debug::Channel

namespace Debug_print {
void perror(const char* text);
} // namespace Debug_print
