// The input is a script: the capacity, then operations, each a letter and what it takes (see Player::step()).
// Upper-case letters are for the builder. A text of "@" and an offset is a part of the string's own.

#include "util/String_base.h"
#include "util/String_builder_base.h"

#include "tests/fuzz/fuzz.h"
#include "tests/support/String_model.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>

namespace {

constexpr int MAX_CAPACITY = 48;

int sign(int number)
{
    return (number > 0 ? 1 : 0) - (number < 0 ? 1 : 0);
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

class Player {
public:
    explicit Player(Input script)
        : input(script), model(input.below(MAX_CAPACITY)), buffer(std::make_unique<Fenced>(model.capacity())),
          string(buffer->data(), model.capacity()), builder(string), builder_model(model, 0)
    {
        check();
        while (!input.empty()) {
            step();
            check();
        }
    }

private:
    /// A text beside the string, or in it, and what it is before the call that takes it.
    struct Source {
        std::string before;
        std::string foreign;
        const char* own;

        const char* get() const { return own != nullptr ? own : foreign.c_str(); }
    };

    Source source()
    {
        const std::string line = input.line();
        const std::string text = line.substr(0, line.find('\0'));
        if (text.size() < 2 || text[0] != '@' || model.capacity() == 0)
            return {text, text, nullptr};
        const int offset = static_cast<unsigned char>(text[1] - '0') % model.capacity();
        return {model.from(static_cast<std::size_t>(offset)), "", string.get() + offset};
    }

    void step()
    {
        switch (input.letter()) {
        case 'i':
            init(input.below(MAX_CAPACITY));
            break;
        case 'z':
            string.zero();
            model.set("");
            break;
        case 's': {
            const Source s = source();
            string = s.get();
            model.set(s.before);
            break;
        }
        case 'n': {
            const int n = input.below(60);
            const Source s = source();
            string.set(s.get(), n);
            model.set(s.before, n);
            break;
        }
        case 'a': {
            const Source s = source();
            string += s.get();
            model.append(s.before);
            break;
        }
        case 'd':
            string += string;
            model.append(model.text());
            break;
        case 'o':
            take_another(input.below(MAX_CAPACITY));
            break;
        case 'p': {
            const std::string text = source().foreign;
            expect_equal("printf()", static_cast<int>(text.size()) + 3,
                         string.printf("%s %02d", text.c_str(), 7));
            model.put(text + " 07");
            break;
        }
        case 'f': {
            const std::string text = source().foreign;
            expect_equal("appendf()", static_cast<int>(text.size()) + 3,
                         string.appendf("%s %02d", text.c_str(), 7));
            model.put(model.text() + text + " 07");
            break;
        }
        case 'w': {
            const int i = input.below(60) - 5;
            *string.get(i) = 'X';
            *string.get(model.capacity() - 1) = 0;
            model.write(i, 'X');
            model.write(model.capacity() - 1, '\0');
            break;
        }
        case 'g':
            get(input.below(60));
            break;
        case 'c': {
            const int n = input.below(60);
            compare(source().before, n);
            break;
        }
        case 'b': {
            const int n = input.below(60);
            bounded_copy(source().foreign, static_cast<unsigned>(n));
            break;
        }
        case 'R':
            builder = String_builder_base(string);
            builder_model = String_builder_model(model, model.text().size());
            break;
        case 'P':
            builder = String_builder_base(&string);
            builder_model = String_builder_model(model, 0);
            break;
        case 'A': {
            const Source s = source();
            expect_equal("append()", 0, builder.append(s.get()));
            builder_model.append(s.before);
            break;
        }
        case 'L':
            expect_equal("append()", 0, builder.append("literal"));
            builder_model.append("literal");
            break;
        case 'C': {
            const char c = input.letter();
            expect_equal("append()", 0, builder.append(c));
            builder_model.append(c);
            break;
        }
        case 'F': {
            const std::string text = source().foreign;
            expect_equal("appendf()", static_cast<int>(text.size()) + 3,
                         builder.appendf("%s %02d", text.c_str(), 7));
            builder_model.append(text + " 07");
            break;
        }
        case 'T': {
            const int n = input.below(60) - 1;
            const bool truncates = n >= 0 && builder_model.truncate(static_cast<std::size_t>(n));
            expect_equal("truncate()", truncates, builder.truncate(n));
            break;
        }
        case 'Z':
            builder.reset();
            builder_model.reset();
            break;
        default:
            break;
        }
    }

    void init(int capacity)
    {
        const std::unique_ptr<Fenced> former = std::exchange(buffer, std::make_unique<Fenced>(capacity));
        string.init(buffer->data(), capacity);
        expect_equal("the former buffer", model.contents(), former->contents());
        expect_equal("whether the former buffer's fences stand", true, former->fences_stand());
        model = String_model(capacity);
    }

    /// A bare copy, and the text to and from another string.
    void take_another(int capacity)
    {
        String_base copy(string);
        expect_equal("a bare copy", std::string(), std::string(copy.get()));
        expect_equal("a bare copy's capacity", 1, copy.max_len());

        Fenced other_buffer(capacity);
        String_base other(other_buffer.data(), capacity, string);
        String_model other_model(capacity);
        other_model.set(model.text());
        expect_equal("a text taken at the start", other_model.contents(), other_buffer.contents());
        const std::string text = source().foreign;
        other += text.c_str();
        other_model.append(text);
        expect_equal("another string", other_model.contents(), other_buffer.contents());
        string += other;
        model.append(other_model.text());
        check();
        string = other;
        model.set(other_model.text());
        expect_equal("whether the other's fences stand", true, other_buffer.fences_stand());
    }

    void get(int n)
    {
        std::vector<char> out(static_cast<std::size_t>(n), '#');
        const int length = string.get(out.data(), n);
        String_model cut(std::min(std::max(model.capacity(), 1), n));
        cut.set(model.text());
        const auto rest = out.size() - cut.contents().size();
        expect_equal("get()", cut.contents() + std::string(rest, '#'), std::string(out.begin(), out.end()));
        expect_equal("what get() answers", static_cast<int>(cut.text().size()), length);
    }

    void compare(const std::string& with, int n) const
    {
        const std::string text = model.text();
        const auto count = static_cast<std::size_t>(n);
        expect_equal("compare()", sign(text.compare(with)), sign(string.compare(with.c_str())));
        expect_equal("compare() of a part", sign(text.substr(0, count).compare(with.substr(0, count))),
                     sign(string.compare(with.c_str(), n)));
        expect_equal("case_compare()", sign(lower(text).compare(lower(with))),
                     sign(string.case_compare(with.c_str())));
        expect_equal("case_compare() of a part",
                     sign(lower(text.substr(0, count)).compare(lower(with.substr(0, count)))),
                     sign(string.case_compare(with.c_str(), n)));
    }

    /// Both buffers as large as stzncpy() may go, for the address checks.
    static void bounded_copy(const std::string& text, unsigned n)
    {
        std::vector<char> src(text.c_str(), text.c_str() + std::min<std::size_t>(text.size() + 1, n));
        src.reserve(1); // not null where nothing is copied
        std::vector<char> dest(n + 1, '#');
        const char* const end = stzncpy(dest.data(), src.data(), n);
        const std::string cut = text.substr(0, n);
        expect_equal("where stzncpy() ends", static_cast<long>(cut.size()),
                     static_cast<long>(end - dest.data()));
        expect_equal("stzncpy()", cut + '\0' + std::string(n - cut.size(), '#'),
                     std::string(dest.begin(), dest.end()));
    }

    void check() const
    {
        expect_equal("the buffer", model.contents(), buffer->contents());
        expect_equal("whether the fences stand", true, buffer->fences_stand());
        expect_equal("the text", model.text(), std::string(string.get()));
        expect_equal("len()", static_cast<unsigned>(model.text().size()), string.len());
        expect_equal("max_len()", model.capacity(), string.max_len());
        expect_equal("the builder's text", model.text(), std::string(builder.begin()));
        expect_equal("the cursor", static_cast<long>(builder_model.cursor()),
                     static_cast<long>(builder.end() - builder.begin()));
    }

    Input input;
    String_model model;
    std::unique_ptr<Fenced> buffer;
    String_base string;
    String_builder_base builder;
    String_builder_model builder_model;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Player(Input(data, size));
    return 0;
}
