#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

/// Base64 as RFC 4648 explains it, a character and a bit at a time: what util/base64.h is compared with.
struct Base64_model {
    int code = 0;
    int count = 0; ///< of the characters that are not skipped
    std::string bytes;

    /// Decodes; for a text that is refused, `code` alone counts.
    explicit Base64_model(const std::string& text)
    {
        std::string kept;
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            const bool last = i + 1 == text.size();
            const bool padded = !kept.empty() && kept.back() == '=';
            if (c == '\n' || (c == '\r' && !last && text[i + 1] == '\n'))
                continue;
            if (c != '=' && (digit(c) < 0 || padded))
                code = -18;
            kept += c;
        }
        if (std::count(kept.begin(), kept.end(), '=') > 2)
            code = -18;
        count = static_cast<int>(kept.size());
        for (std::size_t i = 0; code == 0 && i + 4 <= kept.size(); i += 4)
            add_group(kept.substr(i, 4));
    }

    int room() const { return (count * 6 + 7) / 8; }

    static std::string encoded(const std::string& bytes)
    {
        const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string text;
        std::size_t value = 0;
        for (std::size_t bit = 0; bit < bytes.size() * 8 || bit % 6 != 0; ++bit) {
            const bool is_set = bit / 8 < bytes.size() && (bytes[bit / 8] >> (7 - bit % 8) & 1) != 0;
            value = value * 2 + (is_set ? 1 : 0);
            if (bit % 6 == 5) {
                text += digits[value];
                value = 0;
            }
        }
        text.resize((text.size() + 3) / 4 * 4, '=');
        return text;
    }

    /// The value of a digit; -1 for any other character.
    static int digit(char c)
    {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        return c == '+' ? 62 : c == '/' ? 63 : -1;
    }

private:
    void add_group(const std::string& group)
    {
        std::string bits;
        for (const char c : group)
            for (int bit = 5; bit >= 0; --bit)
                bits += c != '=' && (digit(c) >> bit & 1) != 0 ? '1' : '0';
        const auto padding = std::count(group.begin(), group.end(), '=');
        for (std::size_t i = 0; i < static_cast<std::size_t>(3 - padding); ++i)
            bytes += static_cast<char>(std::stoi(bits.substr(8 * i, 8), nullptr, 2));
    }
};
