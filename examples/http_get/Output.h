#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

/// Where the body goes. A file gets its name only once all of it is written: before that, what was there
/// under the name stays, and after a failure it is still there.
class Output {
public:
    /// @param file  empty for standard output. What is no regular file, such as a device,
    ///              is written directly.
    /// @throws Failed  when it cannot be opened; so do the others when it cannot be written
    explicit Output(const std::string& file);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(const char* data, std::size_t count);

    /// All was written.
    void finish();

private:
    [[noreturn]] void fail(const char* what) const;

    std::string name;      ///< empty for standard output
    std::string part_name; ///< of the file until it is finished; empty when there is none
    std::FILE* stream;
};
