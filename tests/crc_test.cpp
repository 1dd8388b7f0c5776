#include "util/crc.h"

#include "tests/support/Guarded_page.h"
#include "tests/support/Table.h"
#include "util/crc_private.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

const unsigned char DIGITS[] = "123456789";

/// The three checks one bit at a time, from the definition: no table, no word, no multiplication.
struct Model {
    const char* name;
    unsigned width;
    std::uint32_t polynomial;
    bool lowest_bit_first;

    std::uint32_t mask() const { return (1U << width) - 1; }

    std::uint32_t add_bit(std::uint32_t crc, std::uint32_t bit) const
    {
        if (lowest_bit_first)
            return (crc & 1U) != bit ? (crc >> 1) ^ polynomial : crc >> 1;
        const bool differs = (crc >> (width - 1)) != bit;
        return ((crc << 1) & mask()) ^ (differs ? polynomial : 0);
    }

    std::uint32_t add_byte(std::uint32_t crc, std::uint32_t byte) const
    {
        for (unsigned i = 0; i < 8; ++i)
            crc = add_bit(crc, (byte >> (lowest_bit_first ? i : 7 - i)) & 1U);
        return crc;
    }
};

const Model CRC16{"crc16", 16, 0x1021, false};
const Model REFLECTED_CRC16{"calculate_crc16", 16, 0xA001, true};
const Model CRC24Q{"crc24q", 24, 0x864CFB, false};

std::uint32_t call_crc16(std::uint32_t crc, const unsigned char* data, unsigned length)
{
    return crc16(static_cast<unsigned short>(crc), data, length);
}

std::uint32_t call_calculate_crc16(std::uint32_t crc, const unsigned char* data, unsigned length)
{
    return calculate_crc16(data, length, static_cast<unsigned short>(crc));
}

std::uint32_t call_crc24q(std::uint32_t crc, const unsigned char* data, unsigned length)
{
    return crc24q(crc, data, static_cast<int>(length * 8));
}

/// Every way to one check: the exported function, and each by itself.
struct Ways {
    using Function = std::uint32_t (*)(std::uint32_t crc, const unsigned char* data, unsigned length);
    using Way = std::uint32_t (*)(std::uint32_t crc, const unsigned char* data, std::size_t length);

    Model model;
    Function function;
    Way by_four, by_tables, by_folding, by_wide_folding;

    void expect_all(std::uint32_t expected, std::uint32_t start, const unsigned char* data,
                    unsigned length) const
    {
        ASSERT_EQ(expected, function(start, data, length)) << model.name;
        ASSERT_EQ(expected, by_four(start, data, length)) << model.name << " by four";
        ASSERT_EQ(expected, by_tables(start, data, length)) << model.name << " by tables";
        ASSERT_EQ(expected, by_folding(start, data, length)) << model.name << " by folding";
        ASSERT_EQ(expected, by_wide_folding(start, data, length)) << model.name << " by wide folding";
    }
};

template <typename Sum>
Ways ways(const Model& model, Ways::Function function)
{
    return {model,
            function,
            Crc::by_four<Sum>,
            Crc::by_tables<Sum>,
            Crc::by_folding<Sum>,
            Crc::by_wide_folding<Sum>};
}

const Ways ALL_CHECKS[] = {ways<Crc::Ccitt>(CRC16, call_crc16),
                           ways<Crc::Arc>(REFLECTED_CRC16, call_calculate_crc16),
                           ways<Crc::Crc24q>(CRC24Q, call_crc24q)};

std::uint32_t random_number(std::mt19937& random, std::uint32_t highest)
{
    return std::uniform_int_distribution<std::uint32_t>(0, highest)(random);
}

Bytes random_bytes(std::mt19937& random, unsigned count)
{
    Bytes bytes(count);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random_number(random, 0xFF));
    return bytes;
}

/// What the model gives for every length from 0 to `length`.
std::vector<std::uint32_t> modelled(const Model& model, std::uint32_t start, const unsigned char* data,
                                    unsigned length)
{
    std::vector<std::uint32_t> sums{start};
    for (unsigned i = 0; i < length; ++i)
        sums.push_back(model.add_byte(sums.back(), data[i]));
    return sums;
}

Bytes recording(const std::string& path)
{
    std::ifstream file(std::string(QUARVEL_DATA_DIR) + "/" + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Stream {
    const char* name;
    std::size_t frames; // as the data's own description counts them
};
const Stream STREAMS[] = {
    {"legacy-gps-glonass.rtcm3", 429}, {"legacy-with-text-head.rtcm3", 199}, {"ssr-1300.rtcm3", 72},
    {"msm-over-http.bin", 292},        {"mixed-nmea-ubx-rtcm3.bin", 7},      {"mixed-one-bad-crc.bin", 6}};

struct Frame {
    unsigned offset, length, trailer;
};

unsigned number(const std::string& text, int base)
{
    return static_cast<unsigned>(std::stoul(text, nullptr, base));
}

std::vector<Frame> frames_of(const std::string& name)
{
    std::vector<Frame> frames;
    const Table table("rtcm3/" + name + ".frames.csv");
    for (const Table::Row& row : table.rows())
        frames.push_back({number(row.at(0), 10), number(row.at(1), 10), number(row.at(4), 16)});
    return frames;
}

Bytes from_hex(const std::string& text)
{
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(number(text.substr(i, 2), 16)));
    return bytes;
}

/// The length of the whole frame of the receiver's binary protocol that starts here,
/// with a right CRC; else 0.
unsigned good_frame(const unsigned char* data, std::size_t available)
{
    constexpr unsigned HEAD = 6;
    if (available < HEAD + 2 || data[0] != 0x55 || available < HEAD + data[5] + 2U)
        return 0;
    const unsigned covered = HEAD - 1U + data[5];
    const unsigned carried = data[1 + covered] + 256U * data[2 + covered];
    return crc16(0, data + 1, covered) == carried ? covered + 3 : 0;
}

} // namespace

TEST(crc, gives_the_published_check_values)
{
    // G. Cook, Catalogue of parametrised CRC algorithms; CRC-24Q is LTE-A there.
    EXPECT_EQ(0x31C3, crc16(0, DIGITS, 9));                // XMODEM
    EXPECT_EQ(0x29B1, crc16(0xFFFF, DIGITS, 9));           // IBM-3740
    EXPECT_EQ(0xBB3D, calculate_crc16(DIGITS, 9, 0));      // ARC
    EXPECT_EQ(0x4B37, calculate_crc16(DIGITS, 9, 0xFFFF)); // MODBUS
    EXPECT_EQ(0xCDE703U, crc24q(0, DIGITS, 72));
    EXPECT_EQ(0x21CF02U, crc24q(0xB704CE, DIGITS, 72)); // OPENPGP: the same polynomial from another start
}

TEST(crc, tables_hold_the_register_after_each_single_byte)
{
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<unsigned char>(i);
        EXPECT_EQ(CRC16.add_byte(0, byte), crc16table()[i]) << i;
        EXPECT_EQ(CRC24Q.add_byte(0, byte), crc24q_table()[i]) << i;
        EXPECT_EQ(REFLECTED_CRC16.add_byte(0, byte), calculate_crc16_byte(0, byte)) << i;
    }
    EXPECT_EQ(0x1021, crc16table()[1]);
    EXPECT_EQ(0x864CFBU, crc24q_table()[1]);
    EXPECT_EQ(0xA001, calculate_crc16_byte(0, 128));
}

TEST(crc, tables_stay_where_they_are)
{
    EXPECT_EQ(crc16table(), crc16table());
    EXPECT_EQ(crc24q_table(), crc24q_table());
}

TEST(crc, nothing_returns_the_start_value_and_reads_nothing)
{
    EXPECT_EQ(0x1234, crc16(0x1234, nullptr, 0));
    EXPECT_EQ(0x1234, calculate_crc16(nullptr, 0, 0x1234));
    EXPECT_EQ(0x123456U, crc24q(0x123456, nullptr, 0));
}

TEST(crc, calculate_crc16_byte_is_one_byte_of_calculate_crc16)
{
    std::mt19937 random(20180408);
    for (int i = 0; i < 10000; ++i) {
        const auto crc = static_cast<unsigned short>(random_number(random, 0xFFFF));
        const auto byte = static_cast<unsigned char>(random_number(random, 0xFF));
        ASSERT_EQ(REFLECTED_CRC16.add_byte(crc, byte), calculate_crc16_byte(crc, byte));
        ASSERT_EQ(calculate_crc16(&byte, 1, crc), calculate_crc16_byte(crc, byte));
    }
}

TEST(crc, every_way_follows_the_model_at_every_short_length)
{
    std::mt19937 random(20180409);
    for (const Ways& check : ALL_CHECKS) {
        const Bytes data = random_bytes(random, 700);
        const std::uint32_t start = random_number(random, check.model.mask());
        const auto expected = modelled(check.model, start, data.data(), 700);
        for (unsigned length = 0; length <= 700; ++length)
            ASSERT_NO_FATAL_FAILURE(check.expect_all(expected[length], start, data.data(), length))
                << "length " << length;
    }
}

TEST(crc, every_way_follows_the_model_for_random_lengths_starts_and_alignments)
{
    constexpr unsigned LONGEST = 4096;
    for (unsigned seed = 0; seed < 32; ++seed) { // twice every place in a block of 16
        std::mt19937 random(seed);
        const Bytes buffer = random_bytes(random, LONGEST + 16);
        const unsigned char* data = buffer.data() + seed % 16;
        for (const Ways& check : ALL_CHECKS) {
            const std::uint32_t start = random_number(random, check.model.mask());
            const auto expected = modelled(check.model, start, data, LONGEST);
            for (int i = 0; i < 110; ++i) {
                const unsigned length = random_number(random, LONGEST);
                ASSERT_NO_FATAL_FAILURE(check.expect_all(expected[length], start, data, length))
                    << "seed " << seed << ", length " << length << ", start " << start;
            }
        }
    }
}

TEST(crc, a_message_may_be_cut_anywhere)
{
    constexpr unsigned LENGTH = 1029; // the longest frame of RTCM 3
    std::mt19937 random(20180410);
    const Bytes data = random_bytes(random, LENGTH);
    for (const Ways& check : ALL_CHECKS) {
        const std::uint32_t whole = check.function(1, data.data(), LENGTH);
        for (unsigned cut = 0; cut <= LENGTH; ++cut) {
            const std::uint32_t head = check.function(1, data.data(), cut);
            ASSERT_EQ(whole, check.function(head, data.data() + cut, LENGTH - cut))
                << check.model.name << ", cut at " << cut;
        }
    }
}

TEST(crc, reads_no_byte_before_or_behind_the_message)
{
    const Guarded_page page;
    std::fill(page.begin(), page.end(), static_cast<unsigned char>(0xA5));
    for (const Ways& check : ALL_CHECKS)
        for (unsigned length = 0; length <= 700; ++length) {
            const std::uint32_t expected = check.by_four(0, page.begin(), length);
            ASSERT_NO_FATAL_FAILURE(check.expect_all(expected, 0, page.begin(), length));
            ASSERT_NO_FATAL_FAILURE(check.expect_all(expected, 0, page.end() - length, length));
        }
    EXPECT_EQ(crc24q(0, page.begin(), 8), crc24q(0, page.end() - 1, 8));
    EXPECT_EQ(crc24q(0, page.begin(), 15), crc24q(0, page.end() - 2, 15));
}

TEST(crc24q, takes_the_first_bits_of_a_last_byte_that_is_not_whole)
{
    std::mt19937 random(20180411);
    for (int message = 0; message < 20; ++message) {
        const Bytes data = random_bytes(random, 80);
        const std::uint32_t start = random_number(random, 0xFFFFFF);
        std::uint32_t expected = start;
        for (unsigned bit = 0; bit < 640; ++bit) {
            ASSERT_EQ(expected, crc24q(start, data.data(), static_cast<int>(bit))) << bit << " bits";
            const std::uint32_t byte = data[bit / 8];
            expected = CRC24Q.add_bit(expected, (byte >> (7 - bit % 8)) & 1U);
        }
    }
}

TEST(crc24q, ignores_the_bits_behind_the_last)
{
    const unsigned char zeros_behind[] = {0x12, 0xA0};
    const unsigned char ones_behind[] = {0x12, 0xBF};
    EXPECT_EQ(crc24q(0, zeros_behind, 11), crc24q(0, ones_behind, 11));
    EXPECT_NE(crc24q(0, zeros_behind, 12), crc24q(0, ones_behind, 12));
}

TEST(crc24q, leaves_out_the_bits_of_the_start_value_above_the_24th)
{
    EXPECT_EQ(0x345678U, crc24q(0x12345678, nullptr, 0));
    EXPECT_EQ(0xFFFFFFU, crc24q(0xFFFFFFFF, nullptr, 0));
    for (const int bits : {1, 7, 8, 9, 64, 72})
        EXPECT_EQ(crc24q(0x345678, DIGITS, bits), crc24q(0xFF345678, DIGITS, bits)) << bits << " bits";
}

TEST(crc24q, of_a_negative_length_returns_the_start_value_and_reads_nothing)
{
    for (const int bits : {-1, -7, -8, -9, -2147483647, -2147483647 - 1}) {
        EXPECT_EQ(0x345678U, crc24q(0x345678, nullptr, bits)) << bits << " bits";
        EXPECT_EQ(0x345678U, crc24q(0x12345678, nullptr, bits)) << bits << " bits";
    }
}

TEST(crc24q, finds_every_recorded_frame_right)
{
    for (const Stream& stream : STREAMS) {
        SCOPED_TRACE(stream.name);
        const Bytes data = recording("rtcm3/" + std::string(stream.name));
        if (data.empty())
            GTEST_SKIP() << "the recordings of correction messages are not at hand";
        const std::vector<Frame> frames = frames_of(stream.name);
        EXPECT_EQ(stream.frames, frames.size());
        for (const Frame& frame : frames) {
            ASSERT_LE(frame.offset + frame.length, data.size());
            const unsigned char* start = data.data() + frame.offset;
            EXPECT_EQ(frame.trailer, call_crc24q(0, start, frame.length - 3)) << "at " << frame.offset;
            EXPECT_EQ(0U, call_crc24q(0, start, frame.length)) << "at " << frame.offset;
        }
    }
}

TEST(crc24q, finds_the_recorded_frame_with_a_spoilt_trailer)
{
    const Bytes data = recording("rtcm3/mixed-one-bad-crc.bin");
    if (data.empty())
        GTEST_SKIP() << "the recordings of correction messages are not at hand";
    EXPECT_NE(
        0U, crc24q(0, data.data() + 52, 25 * 8)); // the unspoilt recording has this frame, right, in its list
}

TEST(crc24q, finds_every_single_wrong_bit_of_a_frame)
{
    Bytes data = recording("rtcm3/ssr-1300.rtcm3");
    if (data.empty())
        GTEST_SKIP() << "the recordings of correction messages are not at hand";
    for (const Frame& frame : frames_of("ssr-1300.rtcm3")) {
        unsigned char* start = data.data() + frame.offset;
        for (unsigned bit = 0; bit < frame.length * 8; ++bit) {
            const auto flip = static_cast<unsigned char>(1U << bit % 8);
            start[bit / 8] ^= flip;
            ASSERT_NE(0U, call_crc24q(0, start, frame.length))
                << "frame at " << frame.offset << ", bit " << bit;
            start[bit / 8] ^= flip;
        }
    }
}

TEST(crc16, finds_every_good_frame_of_a_recorded_receiver)
{
    const Bytes data = recording("crc16/sbp-stream-a.bin");
    if (data.empty())
        GTEST_SKIP() << "the recordings with a CRC of 16 bits are not at hand";
    std::size_t frames = 0;
    std::size_t bytes = 0;
    for (std::size_t at = 0; at < data.size();) {
        const unsigned length = good_frame(data.data() + at, data.size() - at);
        frames += length > 0 ? 1 : 0;
        bytes += length;
        at += std::max(length, 1U);
    }
    EXPECT_EQ(2395U, frames); // as the data's own description counts them
    EXPECT_EQ(81615U, bytes);
}

TEST(calculate_crc16, gives_what_recorded_frames_carry)
{
    const Table frames("crc16/reflected-crc16-frames.csv");
    if (!frames.found())
        GTEST_SKIP() << "the recordings with a CRC of 16 bits are not at hand";
    EXPECT_EQ(34U, frames.rows().size());
    for (const Table::Row& row : frames.rows()) {
        const unsigned start = number(row.at(1), 16);
        const Bytes data = from_hex(row.at(2));
        const std::uint64_t length = data.size();
        EXPECT_EQ(number(row.at(3), 16),
                  call_calculate_crc16(start, data.data(), static_cast<unsigned>(length)))
            << row.at(0) << ", " << row.at(4);
    }
}
