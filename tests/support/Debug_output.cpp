#include "tests/support/Debug_output.h"

#include "platform/Debug.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

namespace {

std::mutex mutex;
std::condition_variable changed;
std::vector<Debug_output::Line> caught;
bool catching = false;
std::string held; // empty: none
std::string held_until;

constexpr std::chrono::seconds LONGEST_HOLD(30); // what is awaited is sure to come

bool has_been_said(const std::string& text)
{
    return std::any_of(caught.begin(), caught.end(),
                       [&text](const Debug_output::Line& line) { return line.text == text; });
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    return {text.data(), static_cast<std::size_t>(length)};
}

void say(Debug_output::Line line)
{
    const int error = errno;
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!catching) {
            const bool with_error =
                line.way == Debug_output::DEBUG_PERROR || line.way == Debug_output::PERROR;
            const std::string end = with_error ? std::string(": ") + std::strerror(line.error) + "\n" : "";
            std::fputs((line.text + end).c_str(), stderr);
        } else {
            const bool hold = !held.empty() && line.text == held;
            caught.push_back(std::move(line));
            changed.notify_all();
            if (hold)
                changed.wait_for(lock, LONGEST_HOLD, [] { return has_been_said(held_until); });
        }
    }
    errno = error;
}

int count_caught(Debug_output::Way way, const std::string& text)
{
    int count = 0;
    for (const Debug_output::Line& line : caught)
        count += line.way == way && line.text == text ? 1 : 0;
    return count;
}

} // namespace

// The program's own definitions come before the libraries'.
void Debug::Print::dprint(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    say({Debug_output::DPRINT, 0, formatted(format, arguments), 0});
    va_end(arguments);
}

void Debug::Channel::print(int category, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    say({Debug_output::PRINT, category, formatted(format, arguments), 0});
    va_end(arguments);
}

void Debug::Channel::critical(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    say({Debug_output::CRITICAL, 0, formatted(format, arguments), 0});
    va_end(arguments);
}

void Debug_print::perror(const char* text)
{
    say({Debug_output::DEBUG_PERROR, 0, text, errno});
}

extern "C" __attribute__((visibility("default"))) void perror(const char* text)
{
    say({Debug_output::PERROR, 0, text, errno});
}

Debug_output::Debug_output()
{
    const std::lock_guard<std::mutex> lock(mutex);
    caught.clear();
    held.clear();
    catching = true;
}

Debug_output::~Debug_output()
{
    const std::lock_guard<std::mutex> lock(mutex);
    catching = false;
}

std::vector<Debug_output::Line> Debug_output::lines() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return caught;
}

std::string Debug_output::text() const
{
    std::string all;
    for (const Line& line : lines())
        all += line.text;
    return all;
}

void Debug_output::clear()
{
    const std::lock_guard<std::mutex> lock(mutex);
    caught.clear();
}

int Debug_output::count(Way way, const std::string& text) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return count_caught(way, text);
}

void Debug_output::hold(const std::string& text, const std::string& until)
{
    const std::lock_guard<std::mutex> lock(mutex);
    held = text;
    held_until = until;
}

bool Debug_output::wait_for(Way way, const std::string& text, int times,
                            std::chrono::milliseconds limit) const
{
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [&] { return count_caught(way, text) >= times; });
}
