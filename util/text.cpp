#include "util/text.h"

#include <cstddef>
#include <wordexp.h>

namespace {

/// The words of one expansion. They are freed in every case: running out of memory leaves some behind, any
/// other failure leaves the zeros that they start with.
class Words {
public:
    explicit Words(const char* text)
    {
        // What it reports counts, not the result: a text that cannot be expanded has no words.
        static_cast<void>(wordexp(text, &expansion, 0));
    }
    ~Words() { wordfree(&expansion); }
    Words(const Words&) = delete;
    Words& operator=(const Words&) = delete;

    std::vector<std::string> copy() const
    {
        return {expansion.we_wordv, expansion.we_wordv + expansion.we_wordc};
    }

private:
    wordexp_t expansion{};
};

} // namespace

std::string Util::String::trim_trailing(const std::string& text, const std::string& chars)
{
    const std::size_t last = text.find_last_not_of(chars);
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

std::vector<std::string> Util::String::expand_shell(const std::string& text)
{
    return Words(text.c_str()).copy();
}
