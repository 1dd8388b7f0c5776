#include "util/crc.h"
#include "util/crc_private.h"

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>
#include <boost/version.hpp>
#include <gcrypt.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/// The usual loop, one look-up a byte, inlined into this program; ours is called in the shared library.
template <typename Sum>
unsigned by_bytes(const Bytes& message)
{
    static const auto TABLE = Crc::TABLES<Sum>[0];
    std::uint32_t crc = 0;
    for (const unsigned char byte : message)
        crc = Sum::add_byte(TABLE, crc, byte);
    return crc;
}

template <typename Sum>
unsigned by_tables(const Bytes& message)
{
    return Crc::by_tables<Sum>(0, message.data(), message.size());
}

template <typename Boost_crc>
unsigned by_boost(const Bytes& message)
{
    Boost_crc crc;
    crc.process_bytes(message.data(), message.size());
    return crc.checksum();
}

unsigned length_of(const Bytes& message)
{
    const std::uint64_t length = message.size();
    return static_cast<unsigned>(length);
}

unsigned our_crc16(const Bytes& message)
{
    return crc16(0, message.data(), length_of(message));
}

unsigned our_calculate_crc16(const Bytes& message)
{
    return calculate_crc16(message.data(), length_of(message), 0);
}

unsigned our_crc24q(const Bytes& message)
{
    return crc24q(0, message.data(), static_cast<int>(length_of(message) * 8));
}

/// The same polynomial with a start value of its own, so that the value differs; the work does not. The
/// handle is kept open, as a program does that checks one frame after another.
unsigned by_libgcrypt(const Bytes& message)
{
    static gcry_md_hd_t digest = [] {
        gcry_md_hd_t opened = nullptr;
        if (gcry_check_version(nullptr) == nullptr || gcry_md_open(&opened, GCRY_MD_CRC24_RFC2440, 0) != 0)
            std::abort();
        return opened;
    }();
    gcry_md_reset(digest);
    gcry_md_write(digest, message.data(), message.size());
    const unsigned char* crc = gcry_md_read(digest, 0);
    return static_cast<unsigned>(crc[0] << 16 | crc[1] << 8 | crc[2]);
}

using Function = unsigned (*)(const Bytes& message);

/// @param expected  what it must give, so that nothing is measured that is wrong
void measure(benchmark::State& state, Function function, const Bytes& message, unsigned expected)
{
    if (function(message) != expected)
        state.SkipWithError("wrong checksum");
    for (auto _ : state) {
        benchmark::DoNotOptimize(message.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(function(message));
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(message.size()));
}

void add(const std::string& name, Function function, const Bytes& message, unsigned expected)
{
    benchmark::RegisterBenchmark(name.c_str(), measure, function, message, expected);
}

template <typename Sum, typename Boost_crc>
void add_all(const std::string& what, const std::string& inputs, Function ours, const Bytes& message)
{
    const unsigned expected = by_bytes<Sum>(message);
    add(what + "/ours/" + inputs, ours, message, expected);
    add(what + "/ours by tables/" + inputs, by_tables<Sum>, message, expected);
    add(what + "/byte loop/" + inputs, by_bytes<Sum>, message, expected);
    add(what + "/Boost.CRC/" + inputs, by_boost<Boost_crc>, message, expected);
}

Bytes random_bytes(std::size_t length)
{
    std::mt19937 random(20180405);
    Bytes bytes(length);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("Boost", BOOST_LIB_VERSION);
    benchmark::AddCustomContext("libgcrypt", gcry_check_version(nullptr));
    const struct {
        const char* name;
        std::size_t bytes;
    } sizes[] = {{"4 B", 4}, {"32 B", 32}, {"1 KiB", 1024}, {"1 MiB", 1048576}};
    for (const auto& size : sizes) {
        const Bytes message = random_bytes(size.bytes);
        add_all<Crc::Ccitt, boost::crc_optimal<16, 0x1021>>("crc16", size.name, our_crc16, message);
        add_all<Crc::Arc, boost::crc_optimal<16, 0x8005, 0, 0, true, true>>("calculate_crc16", size.name,
                                                                            our_calculate_crc16, message);
        add_all<Crc::Crc24q, boost::crc_optimal<24, 0x864CFB>>("crc24q", size.name, our_crc24q, message);
        const unsigned other_start =
            crc24q(0xB704CE, message.data(), static_cast<int>(length_of(message) * 8));
        add("crc24q/libgcrypt CRC24 RFC2440/" + std::string(size.name), by_libgcrypt, message, other_start);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
