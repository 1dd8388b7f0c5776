#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// Takes an input apart from the front. Behind its end everything is 0 or empty.
///
/// Numbers are written from '0' on ("0" is 0, "A" is 17) and texts end with their line, so that a person can
/// read an input and write one.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next(data), end(data + size) {}

    bool empty() const { return next == end; }
    char letter() { return empty() ? '0' : static_cast<char>(*next++); }
    int below(int limit) { return static_cast<unsigned char>(letter() - '0') % limit; }
    std::string line()
    {
        std::string text;
        while (!empty()) {
            const char c = letter();
            if (c == '\n')
                break;
            text += c;
        }
        return text;
    }
    std::string rest() { return {next, end}; }

private:
    const std::uint8_t* next;
    const std::uint8_t* end;
};

/// With everything that is not plain ASCII as \xNN.
inline std::string show(const std::string& text)
{
    std::string shown = "\"";
    for (const char c : text) {
        char escaped[5];
        if (c < ' ' || c > '~' || c == '"' || c == '\\')
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(c) & 0xFF);
        else
            std::snprintf(escaped, sizeof escaped, "%c", c);
        shown += escaped;
    }
    return shown + '"';
}

inline std::string show(const Bytes& bytes)
{
    return show(std::string(bytes.begin(), bytes.end()));
}

template <typename NUMBER, typename = std::enable_if_t<std::is_arithmetic_v<NUMBER>>>
std::string show(NUMBER number)
{
    return std::to_string(number);
}

/// Ends the program, which is what the fuzzer takes for a finding, where the library differs from the model.
///
/// @param what  is compared; beside it the input, which the fuzzer keeps, says how it came to it
template <typename T>
void expect_equal(const char* what, const T& of_model, const T& of_library)
{
    if (of_model == of_library)
        return;
    std::fprintf(stderr, "\n%s differs\n  model:   %s\n  library: %s\n", what, show(of_model).c_str(),
                 show(of_library).c_str());
    std::abort();
}
