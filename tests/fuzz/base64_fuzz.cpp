// The input is decoded as a text; it is encoded as bytes, and decoded again.

#include "util/base64.h"

#include "tests/fuzz/fuzz.h"
#include "tests/support/Base64_model.h"

#include <algorithm>

namespace {

using Function = int(unsigned char*, int*, const unsigned char*, int);

constexpr unsigned char UNTOUCHED = 0xA5;

struct Outcome {
    int code;
    int length;
    Bytes buffer; // as large as the room, so that the address checks see a byte too much

    bool touched() const
    {
        return std::any_of(buffer.begin(), buffer.end(), [](unsigned char c) { return c != UNTOUCHED; });
    }
    std::string written() const { return {buffer.begin(), buffer.begin() + length}; }
};

Outcome call(Function* function, const Bytes& src, int room)
{
    Outcome outcome{0, room, Bytes(static_cast<std::size_t>(room), UNTOUCHED)};
    outcome.code = function(outcome.buffer.data(), &outcome.length, src.data(), static_cast<int>(src.size()));
    return outcome;
}

void compare_decoding(const Bytes& text, const Base64_model& model, int room)
{
    const bool writes = model.code == 0 && model.count > 0;
    const bool fits = room >= model.room();
    const auto written = static_cast<int>(model.bytes.size());
    const Outcome outcome = call(base64_decode, text, room);
    expect_equal("the code of decoding", writes && !fits ? -16 : model.code, outcome.code);
    expect_equal("the length of decoding", !writes ? room : fits ? written : model.room(), outcome.length);
    if (writes && fits)
        expect_equal("what is decoded", model.bytes, outcome.written());
    else
        expect_equal("whether a refusal touches the buffer", false, outcome.touched());
}

void compare_decoding_in_place(Bytes text, const Base64_model& model)
{
    auto length = static_cast<int>(text.size());
    const int code = base64_decode(text.data(), &length, text.data(), length);
    expect_equal("the code of decoding in place", model.code, code);
    if (code == 0 && model.count > 0)
        expect_equal("what is decoded in place", model.bytes,
                     std::string(text.begin(), text.begin() + length));
}

void compare_encoding(const Bytes& bytes)
{
    const std::string model = Base64_model::encoded(std::string(bytes.begin(), bytes.end()));
    const auto needed = static_cast<int>(model.size()) + 1;
    Outcome outcome = call(base64_encode, bytes, needed - 1);
    expect_equal("the code without room for the NUL", bytes.empty() ? 0 : -16, outcome.code);
    expect_equal("the room asked for", bytes.empty() ? needed - 1 : needed, outcome.length);
    expect_equal("whether a refusal touches the buffer", false, outcome.touched());
    if (bytes.empty())
        return;
    outcome = call(base64_encode, bytes, needed);
    expect_equal("the code of encoding", 0, outcome.code);
    expect_equal("the length of encoding", needed - 1, outcome.length);
    expect_equal("the text", model, outcome.written());
    expect_equal("the character behind the text", 0, int{outcome.buffer.back()});

    const Outcome back =
        call(base64_decode, Bytes(model.begin(), model.end()), static_cast<int>(model.size() / 4 * 3));
    expect_equal("the code of the way back", 0, back.code);
    expect_equal("the way back", std::string(bytes.begin(), bytes.end()), back.written());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Bytes input(data, data + size);
    const Base64_model model(std::string(input.begin(), input.end()));
    for (const int room : {model.room() + 5, model.room(), model.room() - 1})
        if (room >= 0)
            compare_decoding(input, model, room);
    compare_decoding_in_place(input, model);
    compare_encoding(input);
    return 0;
}
