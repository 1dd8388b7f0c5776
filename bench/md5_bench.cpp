// The functions that go straight to the digest, without EVP, are deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "util/CP_MD5.h"

#include <QCryptographicHash>
#include <benchmark/benchmark.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/md5.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

struct Digest {
    unsigned char bytes[16];
};
static_assert(sizeof(Digest) == sizeof(CP_MD5::TSignature));

using Function = void (*)(const std::string& message, Digest& digest);

void ours(const std::string& message, Digest& digest)
{
    CP_MD5::TSignature signature;
    const std::uint64_t length = message.size();
    CP_MD5::TMD5(message.data(), static_cast<unsigned>(length)).Final(signature);
    std::memcpy(digest.bytes, &signature, sizeof digest.bytes);
}

void by_openssl(const std::string& message, Digest& digest)
{
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, message.data(), message.size());
    MD5_Final(digest.bytes, &context);
}

/// The context is kept, as a program does that digests one message after another.
void by_openssl_evp(const std::string& message, Digest& digest)
{
    static EVP_MD_CTX* const context = EVP_MD_CTX_new();
    static EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
    if (EVP_DigestInit_ex(context, md5, nullptr) != 1 ||
        EVP_DigestUpdate(context, message.data(), message.size()) != 1 ||
        EVP_DigestFinal_ex(context, digest.bytes, nullptr) != 1)
        std::abort();
}

void by_qt(const std::string& message, Digest& digest)
{
    QCryptographicHash hash(QCryptographicHash::Md5);
    hash.addData(message.data(), static_cast<int>(message.size()));
    std::memcpy(digest.bytes, hash.result().constData(), sizeof digest.bytes);
}

void measure(benchmark::State& state, Function function, const std::string& message)
{
    Digest expected;
    Digest digest;
    by_openssl(message, expected);
    function(message, digest);
    if (std::memcmp(expected.bytes, digest.bytes, sizeof expected.bytes) != 0)
        state.SkipWithError("not OpenSSL's digest");
    for (auto _ : state) {
        benchmark::DoNotOptimize(message.data());
        function(message, digest);
        benchmark::DoNotOptimize(digest);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(message.size()));
}

std::string random_bytes(std::size_t length)
{
    std::mt19937 random(20190611);
    std::string bytes(length, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));
    benchmark::AddCustomContext("Qt", qVersion());
    const struct {
        const char* name;
        std::size_t bytes;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1024}, {"1 MiB", 1048576}};
    const struct {
        const char* name;
        Function function;
    } peers[] = {{"ours", ours},
                 {"OpenSSL MD5", by_openssl},
                 {"OpenSSL EVP", by_openssl_evp},
                 {"QCryptographicHash", by_qt}};
    for (const auto& size : sizes)
        for (const auto& peer : peers)
            benchmark::RegisterBenchmark((std::string("md5/") + peer.name + '/' + size.name).c_str(), measure,
                                         peer.function, random_bytes(size.bytes));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
