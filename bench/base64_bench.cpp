#include "util/base64.h"

#include <QByteArray>
#include <absl/base/config.h>
#include <absl/strings/escaping.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

struct Input {
    std::string bytes;
    std::string text;
};

std::string encoded(const std::string& bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                    reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    return text;
}

/// @param line_length  characters, a line end behind every so many; 0 for a single line without an end
Input random_input(std::size_t length, std::size_t line_length, const char* line_end)
{
    std::mt19937 random(20180405);
    Input input;
    for (std::size_t i = 0; i < length; ++i)
        input.bytes += static_cast<char>(random());
    const std::string text = encoded(input.bytes);
    if (line_length == 0)
        input.text = text;
    else
        for (std::size_t at = 0; at < text.size(); at += line_length)
            input.text += text.substr(at, line_length) + line_end;
    return input;
}

// Where the functions that take a buffer write, long enough for every input.
constexpr int ROOM = 100000;
unsigned char buffer[ROOM];

const unsigned char* data(const std::string& from)
{
    return reinterpret_cast<const unsigned char*>(from.data());
}

struct Written {
    const void* data;
    std::size_t length;
};

Written our_encode(const Input& input)
{
    int length = ROOM;
    base64_encode(buffer, &length, data(input.bytes), static_cast<int>(input.bytes.size()));
    return {buffer, static_cast<std::size_t>(length)};
}

Written openssl_encode(const Input& input)
{
    const int length = EVP_EncodeBlock(buffer, data(input.bytes), static_cast<int>(input.bytes.size()));
    return {buffer, static_cast<std::size_t>(length)};
}

Written qt_encode(const Input& input)
{
    static QByteArray text;
    text = QByteArray::fromRawData(input.bytes.data(), static_cast<int>(input.bytes.size())).toBase64();
    return {text.constData(), static_cast<std::size_t>(text.size())};
}

Written our_decode(const Input& input)
{
    int length = ROOM;
    base64_decode(buffer, &length, data(input.text), static_cast<int>(input.text.size()));
    return {buffer, static_cast<std::size_t>(length)};
}

Written openssl_decode(const Input& input)
{
    EVP_DecodeBlock(buffer, data(input.text), static_cast<int>(input.text.size()));
    return {buffer, input.bytes.size()}; // it returns the length with the padding as zero bytes
}

Written abseil_decode(const Input& input)
{
    static std::string bytes; // keeps its memory
    absl::Base64Unescape(input.text, &bytes);
    return {bytes.data(), bytes.size()};
}

Written qt_decode(const Input& input)
{
    static QByteArray bytes;
    bytes = QByteArray::fromBase64(
        QByteArray::fromRawData(input.text.data(), static_cast<int>(input.text.size())));
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

Written glib_decode_step(const Input& input)
{
    int state = 0;
    unsigned save = 0;
    const std::size_t length =
        g_base64_decode_step(input.text.data(), input.text.size(), buffer, &state, &save);
    return {buffer, length};
}

Written glib_decode(const Input& input)
{
    static unsigned char* bytes = nullptr;
    g_free(bytes);
    std::size_t length = 0;
    bytes = g_base64_decode(input.text.c_str(), &length);
    return {bytes, length};
}

using Function = Written (*)(const Input& input);

/// @param expected  what it must give, so that nothing is measured that is wrong
void measure(benchmark::State& state, Function function, const Input& input, const std::string& expected)
{
    const Written written = function(input);
    if (expected != std::string(static_cast<const char*>(written.data), written.length))
        state.SkipWithError("wrong result");
    for (auto _ : state) {
        benchmark::DoNotOptimize(function(input));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.bytes.size()));
}

struct Candidate {
    const char* who;
    Function function;
};

void add(const std::string& what, const std::string& inputs, const Input& input, const std::string& expected,
         std::initializer_list<Candidate> candidates)
{
    for (const Candidate& candidate : candidates)
        benchmark::RegisterBenchmark((what + "/" + candidate.who + "/" + inputs).c_str(), measure,
                                     candidate.function, input, expected);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));
    benchmark::AddCustomContext("Abseil", std::to_string(ABSL_LTS_RELEASE_VERSION));
    benchmark::AddCustomContext("Qt", qVersion());
    benchmark::AddCustomContext("GLib", std::to_string(glib_major_version) + "." +
                                            std::to_string(glib_minor_version) + "." +
                                            std::to_string(glib_micro_version));
    const struct {
        const char* name;
        std::size_t bytes;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1024}, {"64 KiB", 65536}};
    const struct {
        const char* name;
        std::size_t characters;
        const char* end;
    } lines[] = {{"64 LF", 64, "\n"}, {"64 CRLF", 64, "\r\n"}, {"76 LF", 76, "\n"}, {"76 CRLF", 76, "\r\n"}};
    for (const auto& size : sizes) {
        const Input input = random_input(size.bytes, 0, "");
        add("base64_encode", size.name, input, input.text,
            {{"ours", our_encode},
             {"OpenSSL EVP_EncodeBlock", openssl_encode},
             {"QByteArray toBase64", qt_encode}});
        add("base64_decode", size.name, input, input.bytes,
            {{"ours", our_decode},
             {"OpenSSL EVP_DecodeBlock", openssl_decode},
             {"Abseil Base64Unescape", abseil_decode},
             {"QByteArray fromBase64", qt_decode}});
        for (const auto& line : lines) {
            const Input broken = random_input(size.bytes, line.characters, line.end);
            add("base64_decode of lines", std::string(size.name) + " in lines of " + line.name, broken,
                broken.bytes,
                {{"ours", our_decode},
                 {"GLib g_base64_decode_step", glib_decode_step},
                 {"GLib g_base64_decode", glib_decode}});
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
