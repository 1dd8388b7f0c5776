#include "examples/rtcm_check/Framer.h"

#include "tests/support/Child_process.h"
#include "tests/support/Table.h"
#include "tests/support/Temporary_folder.h"
#include "tests/support/Terminal.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;

bool operator==(const Stretch& a, const Stretch& b)
{
    return a.kind == b.kind && a.offset == b.offset && a.bytes == b.bytes && a.message == b.message;
}

void PrintTo(const Stretch& stretch, std::ostream* stream)
{
    const std::array<const char*, 4> kinds = {"good", "damaged", "skipped", "cut"};
    *stream << kinds.at(static_cast<std::size_t>(stretch.kind)) << " " << stretch.bytes << " bytes at "
            << stretch.offset << ", message "
            << (stretch.message ? std::to_string(*stretch.message) : "none");
}

namespace {

using Bytes = std::vector<unsigned char>;
using Stretches = std::vector<Stretch>;
using Kind = Stretch::Kind;

// The example of a whole frame in RTCM 10403.1, 4.2: message 1005.
// Its payload holds a head of its own, D3 02 02.
const Bytes PUBLISHED = {0xD3, 0x00, 0x13, 0x3E, 0xD7, 0xD3, 0x02, 0x02, 0x98, 0x0E, 0xDE, 0xEF, 0x34,
                         0xB4, 0xBD, 0x62, 0xAC, 0x09, 0x41, 0x98, 0x6F, 0x33, 0x36, 0x0B, 0x98};

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

Bytes repeated(const Bytes& part, std::size_t count)
{
    Bytes all;
    for (std::size_t i = 0; i < count; ++i)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes part(const Bytes& whole, std::size_t from, std::size_t to)
{
    return {whole.begin() + static_cast<std::ptrdiff_t>(from),
            whole.begin() + static_cast<std::ptrdiff_t>(to)};
}

/// One bit at a time, from the definition.
std::uint32_t crc(const unsigned char* data, std::size_t count)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < count * 8; ++i) {
        const std::uint32_t byte = data[i / 8];
        const std::uint32_t bit = (byte >> (7 - i % 8)) & 1U;
        sum = ((sum << 1) & 0xFFFFFF) ^ ((sum >> 23) != bit ? 0x864CFB : 0);
    }
    return sum;
}

Bytes frame(const Bytes& payload)
{
    Bytes all = Bytes{0xD3, static_cast<unsigned char>(payload.size() >> 8),
                      static_cast<unsigned char>(payload.size() & 0xFF)} +
                payload;
    const std::uint32_t sum = crc(all.data(), all.size());
    for (const int shift : {16, 8, 0})
        all.push_back(static_cast<unsigned char>((sum >> shift) & 0xFF));
    return all;
}

/// Of a message number and as many bytes of payload.
Bytes message(unsigned number, std::size_t payload_bytes)
{
    Bytes payload(payload_bytes, 0x55);
    payload.at(0) = static_cast<unsigned char>(number >> 4);
    payload.at(1) = static_cast<unsigned char>((number & 0xF) << 4);
    return frame(payload);
}

/// What the framer tells of a stream, fed in pieces of a length, all at once with 0.
Stretches framed(const Bytes& stream, std::size_t piece = 0)
{
    Stretches all;
    Framer framer([&all](const Stretch& stretch) { all.push_back(stretch); });
    for (std::size_t i = 0; i < stream.size();) {
        const std::size_t count = piece == 0 ? stream.size() : std::min(piece, stream.size() - i);
        framer.feed(stream.data() + i, count);
        i += count;
    }
    framer.finish();
    return all;
}

Stretches only(Kind kind, const Stretches& stretches)
{
    Stretches some;
    std::copy_if(stretches.begin(), stretches.end(), std::back_inserter(some),
                 [kind](const Stretch& stretch) { return stretch.kind == kind; });
    return some;
}

Bytes content(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The counts stand in the data's own description.
struct Recorded {
    const char* name;
    std::size_t bytes;
    std::size_t frames;
    std::size_t frame_bytes;
    std::size_t damaged_bytes; ///< of the one frame, message 1005, whose trailer the source has spoilt
};
const Recorded RECORDED[] = {{"legacy-gps-glonass.rtcm3", 57931, 429, 57873, 0},
                             {"legacy-with-text-head.rtcm3", 30514, 199, 30062, 0},
                             {"ssr-1300.rtcm3", 21921, 72, 21921, 0},
                             {"msm-over-http.bin", 63380, 292, 62960, 0},
                             {"mixed-nmea-ubx-rtcm3.bin", 1227, 7, 1005, 0},
                             {"mixed-one-bad-crc.bin", 1227, 6, 980, 25}};

void PrintTo(const Recorded& recorded, std::ostream* stream)
{
    *stream << recorded.name;
}

std::string path_of(const std::string& recording)
{
    return std::string(QUARVEL_DATA_DIR) + "/rtcm3/" + recording;
}

Stretches listed_frames(const std::string& recording)
{
    Stretches all;
    const Table table("rtcm3/" + recording + ".frames.csv");
    for (const Table::Row& row : table.rows())
        all.push_back({Kind::good, std::stoull(row.at(0)), std::stoull(row.at(1)),
                       static_cast<unsigned>(std::stoul(row.at(3)))});
    return all;
}

// The framer.

TEST(Framer, takes_the_published_frame)
{
    ASSERT_EQ(0U, crc(PUBLISHED.data(), PUBLISHED.size()));
    EXPECT_THAT(framed(PUBLISHED), ElementsAre(Stretch{Kind::good, 0, 25, 1005}));
}

TEST(Framer, takes_frames_of_every_length)
{
    for (std::size_t payload = 0; payload <= 1023; ++payload) {
        const Bytes one = payload < 2 ? frame(Bytes(payload, 0x55)) : message(4095, payload);
        const std::optional<unsigned> number = payload < 2 ? std::nullopt : std::optional<unsigned>(4095);
        ASSERT_THAT(framed(one + PUBLISHED), ElementsAre(Stretch{Kind::good, 0, payload + 6, number},
                                                         Stretch{Kind::good, payload + 6, 25, 1005}));
    }
}

TEST(Framer, tells_of_nothing_in_an_empty_stream)
{
    EXPECT_THAT(framed({}), ElementsAre());
}

TEST(Framer, tells_of_a_frame_as_soon_as_it_is_whole)
{
    Stretches told;
    Framer framer([&told](const Stretch& stretch) { told.push_back(stretch); });
    framer.feed(PUBLISHED.data(), 24);
    EXPECT_THAT(told, ElementsAre());
    framer.feed(PUBLISHED.data() + 24, 1);
    EXPECT_THAT(told, ElementsAre(Stretch{Kind::good, 0, 25, 1005}));
}

TEST(Framer, joins_frames_wherever_the_pieces_are_cut)
{
    const Bytes stream =
        bytes("$GP") + PUBLISHED + message(1077, 40) + bytes("text") + PUBLISHED + Bytes{0xD3, 0};
    const Stretches whole = framed(stream);
    ASSERT_THAT(whole, ElementsAre(Stretch{Kind::skipped, 0, 3, {}}, Stretch{Kind::good, 3, 25, 1005},
                                   Stretch{Kind::good, 28, 46, 1077}, Stretch{Kind::skipped, 74, 4, {}},
                                   Stretch{Kind::good, 78, 25, 1005}, Stretch{Kind::cut, 103, 2, {}}));
    for (std::size_t first = 0; first <= stream.size(); ++first)
        for (std::size_t second = first; second <= stream.size(); ++second) {
            Stretches told;
            Framer framer([&told](const Stretch& stretch) { told.push_back(stretch); });
            framer.feed(stream.data(), first);
            framer.feed(stream.data() + first, second - first);
            framer.feed(stream.data() + second, stream.size() - second);
            framer.finish();
            ASSERT_EQ(whole, told) << "cut at " << first << " and " << second;
        }
}

TEST(Framer, finds_the_frames_after_a_start_within_one)
{
    for (std::size_t start = 1; start < PUBLISHED.size(); ++start) {
        const Stretches told = framed(part(PUBLISHED, start, 25) + PUBLISHED + message(1004, 20));
        ASSERT_THAT(told, ElementsAre(Stretch{Kind::skipped, 0, 25 - start, {}},
                                      Stretch{Kind::good, 25 - start, 25, 1005},
                                      Stretch{Kind::good, 50 - start, 26, 1004}));
    }
}

TEST(Framer, loses_one_frame_to_each_damaged_byte_and_says_so_once)
{
    const Bytes stream = repeated(PUBLISHED, 4);
    for (std::size_t i = 0; i < stream.size(); ++i)
        for (unsigned change = 1; change < 256; ++change) {
            Bytes damaged = stream;
            damaged[i] = static_cast<unsigned char>(damaged[i] ^ change);
            Stretches others;
            for (std::size_t k = 0; k < 4; ++k)
                if (k != i / 25)
                    others.push_back({Kind::good, 25 * k, 25, 1005});
            const Stretches told = framed(damaged);
            ASSERT_EQ(others, only(Kind::good, told)) << "byte " << i << " ^ " << change;
            ASSERT_EQ(1U, only(Kind::damaged, told).size() + only(Kind::cut, told).size())
                << "byte " << i << " ^ " << change;
        }
}

TEST(Framer, counts_a_whole_frame_with_a_wrong_crc_wherever_it_stands)
{
    Bytes bad = message(1087, 30);
    bad.back() ^= 1U;
    const Stretch damaged{Kind::damaged, 4, 36, 1087};
    const Stretch skipped{Kind::skipped, 0, 4, {}};
    EXPECT_THAT(framed(bytes("text") + bad), ElementsAre(skipped, damaged));
    EXPECT_THAT(framed(bytes("text") + bad + bytes("text")),
                ElementsAre(skipped, damaged, Stretch{Kind::skipped, 40, 4, {}}));
    EXPECT_THAT(framed(bytes("text") + bad + PUBLISHED),
                ElementsAre(skipped, damaged, Stretch{Kind::good, 40, 25, 1005}));
}

TEST(Framer, counts_no_head_whose_frame_would_hold_the_start_of_a_good_one)
{
    // With seven bytes of payload it ends just where the good frame starts, with eight it holds a byte of it.
    const Bytes up_to = Bytes{'x', 0xD3, 0, 7} + Bytes(10, 0x20);
    const Bytes into = Bytes{'x', 0xD3, 0, 8} + Bytes(10, 0x20);
    EXPECT_THAT(framed(up_to + PUBLISHED),
                ElementsAre(Stretch{Kind::skipped, 0, 1, {}}, Stretch{Kind::damaged, 1, 13, 0x202},
                            Stretch{Kind::good, 14, 25, 1005}));
    EXPECT_THAT(framed(into + PUBLISHED),
                ElementsAre(Stretch{Kind::skipped, 0, 14, {}}, Stretch{Kind::good, 14, 25, 1005}));
}

TEST(Framer, counts_the_damaged_frame_after_a_head_that_was_none)
{
    Bytes bad = message(1087, 30);
    bad.back() ^= 1U;
    EXPECT_THAT(framed(Bytes{'x', 0xD3, 3, 0xFF} + bad + PUBLISHED),
                ElementsAre(Stretch{Kind::skipped, 0, 4, {}}, Stretch{Kind::damaged, 4, 36, 1087},
                            Stretch{Kind::good, 40, 25, 1005}));
}

TEST(Framer, counts_a_gap_of_just_one_frame_with_one_wrong_byte_in_its_head)
{
    for (std::size_t payload : {0U, 19U, 300U, 1023U}) {
        const Bytes one = payload == 0 ? frame({}) : message(1019, payload);
        for (std::size_t i = 0; i < 2; ++i) {
            Bytes bad = one;
            bad[i] ^= 0x40U;
            const Stretches told = framed(PUBLISHED + bad + PUBLISHED);
            ASSERT_EQ(3U, told.size());
            EXPECT_EQ(Kind::damaged, told[1].kind);
            bad[2] ^= 0x40U; // two bytes wrong
            EXPECT_EQ(Kind::skipped, framed(PUBLISHED + bad + PUBLISHED).at(1).kind);
        }
    }
}

TEST(Framer, remembers_a_gap_of_one_frame_while_heads_behind_it_wait)
{
    Bytes lost_head = message(1019, 494);
    lost_head[0] = 0;
    Bytes bad = message(1087, 1023);
    const Bytes head_within = {0xD3, 0x03, 0xFF};
    std::copy(head_within.begin(), head_within.end(), bad.begin() + 900);
    for (const std::size_t piece : {1U, 100U, 600U})
        EXPECT_THAT(framed(lost_head + bad + PUBLISHED, piece),
                    ElementsAre(Stretch{Kind::damaged, 0, 500, 1019}, Stretch{Kind::damaged, 500, 1029, 1087},
                                Stretch{Kind::good, 1529, 25, 1005}));
}

TEST(Framer, passes_over_a_preamble_with_reserved_bits_set)
{
    for (unsigned bit = 4; bit <= 0x80; bit *= 2)
        EXPECT_THAT(
            framed(bytes("ab") + Bytes{0xD3, static_cast<unsigned char>(bit), 0, 1, 2, 3, 4, 5} + PUBLISHED),
            ElementsAre(Stretch{Kind::skipped, 0, 10, {}}, Stretch{Kind::good, 10, 25, 1005}));
}

TEST(Framer, says_of_every_cut_that_the_last_frame_is_cut)
{
    for (std::size_t there = 1; there < 25; ++there)
        ASSERT_THAT(framed(PUBLISHED + part(PUBLISHED, 0, there)),
                    ElementsAre(Stretch{Kind::good, 0, 25, 1005}, Stretch{Kind::cut, 25, there, {}}));
}

TEST(Framer, finds_good_frames_within_what_the_end_cuts_off)
{
    EXPECT_THAT(framed(Bytes{0xD3, 3, 0xFF} + PUBLISHED),
                ElementsAre(Stretch{Kind::skipped, 0, 3, {}}, Stretch{Kind::good, 3, 25, 1005}));
}

/// The same rules over a stream that lies there whole.
class Model {
public:
    explicit Model(const Bytes& whole) : stream(whole)
    {
        std::size_t gap = 0;
        for (std::size_t i = 0; i < stream.size();) {
            const std::size_t length = head(i);
            if (length == 0 || i + length > stream.size() || crc(&stream[i], length) != 0) {
                ++i;
                continue;
            }
            split_gap(gap, i, false);
            told.push_back({Kind::good, i, length, number(i, length)});
            gap = i += length;
        }
        split_gap(gap, stream.size(), true);
    }

    Stretches told;

private:
    std::size_t head(std::size_t i) const
    {
        const auto byte = [this](std::size_t at) -> unsigned { return at < stream.size() ? stream[at] : 0; };
        return byte(i) == 0xD3 && byte(i + 1) < 4 ? 6 + byte(i + 1) * 256 + byte(i + 2) : 0;
    }

    std::optional<unsigned> number(std::size_t i, std::size_t length) const
    {
        if (length < 8)
            return std::nullopt;
        return stream[i + 3] * 16U + stream[i + 4] / 16U;
    }

    void split_gap(std::size_t from, std::size_t to, bool last)
    {
        for (std::size_t i = from; i < to;) {
            const std::size_t length = head(i);
            if (length == 0 || (i + length > to && !last)) {
                ++i;
                continue;
            }
            tell_gap(from, i);
            from = std::min(to, i + length);
            if (i + length > to)
                told.push_back({Kind::cut, i, to - i, {}});
            else
                told.push_back({Kind::damaged, i, length, number(i, length)});
            i = from;
        }
        tell_gap(from, to);
    }

    void tell_gap(std::size_t from, std::size_t to)
    {
        const std::size_t length = to - from;
        bool lost_head = false;
        if (length >= 6 && length <= 1029) {
            const std::array<std::size_t, 3> right = {0xD3, (length - 6) / 256, (length - 6) % 256};
            lost_head = std::inner_product(right.begin(), right.end(), &stream[from], 0, std::plus<>(),
                                           std::equal_to<>()) == 2;
        }
        if (length > 0)
            told.push_back({lost_head ? Kind::damaged : Kind::skipped, from, length,
                            lost_head ? number(from, length) : std::nullopt});
    }

    const Bytes& stream;
};

class Random_stream {
public:
    explicit Random_stream(std::uint32_t seed) : random(seed) {}

    std::size_t number(std::size_t below) { return random() % below; }

    /// Frames that are whole, damaged or cut, between bytes that look like heads.
    Bytes make()
    {
        Bytes all;
        for (std::size_t pieces = number(8); pieces > 0; --pieces) {
            Bytes piece = number(3) == 0 ? noise(number(10)) : frame(noise(payload()));
            if (!piece.empty() && number(3) == 0)
                piece[number(number(2) == 0 ? std::min<std::size_t>(3, piece.size()) : piece.size())] ^=
                    static_cast<unsigned char>(1U << number(8));
            if (number(6) == 0)
                piece.resize(number(piece.size() + 1));
            all = all + piece;
        }
        return all;
    }

private:
    std::size_t payload() { return number(25) == 0 ? number(1024) : number(16); }

    Bytes noise(std::size_t count)
    {
        const std::array<unsigned char, 6> often = {0xD3, 0, 0, 1, 3, 6};
        Bytes all(count);
        for (unsigned char& byte : all)
            byte = number(count > 100 ? 20 : 2) == 0 ? often.at(number(6))
                                                     : static_cast<unsigned char>(number(256));
        return all;
    }

    std::mt19937 random;
};

TEST(Framer, agrees_with_a_model_that_has_the_whole_stream_however_it_is_fed)
{
    for (std::uint32_t seed = 0; seed < 10000; ++seed) {
        Random_stream random(seed);
        const Bytes stream = random.make();
        const Model model(stream);
        const std::size_t piece = random.number(2) == 0 ? 0 : 1 + random.number(40);
        ASSERT_EQ(model.told, framed(stream, piece)) << "seed " << seed << ", pieces of " << piece;
        std::uint64_t end = 0;
        for (const Stretch& stretch : model.told) {
            ASSERT_EQ(end, stretch.offset) << "seed " << seed;
            end += stretch.bytes;
        }
        ASSERT_EQ(stream.size(), end) << "seed " << seed;
    }
}

class Recording : public testing::TestWithParam<Recorded> {
protected:
    void SetUp() override
    {
        if (!std::filesystem::exists(path_of(GetParam().name)))
            GTEST_SKIP() << "recorded streams are not at hand in " QUARVEL_DATA_DIR;
    }
};

TEST_P(Recording, holds_the_listed_frames_at_their_places)
{
    const Bytes stream = content(path_of(GetParam().name));
    ASSERT_EQ(GetParam().bytes, stream.size());
    const Stretches listed = listed_frames(GetParam().name);
    ASSERT_EQ(GetParam().frames, listed.size());
    for (const std::size_t piece : {0U, 1U, 100U, 1029U}) {
        const Stretches told = framed(stream, piece);
        EXPECT_EQ(listed, only(Kind::good, told)) << "pieces of " << piece;
        EXPECT_EQ(GetParam().damaged_bytes > 0 ? 1U : 0U, only(Kind::damaged, told).size());
        EXPECT_THAT(only(Kind::cut, told), ElementsAre());
    }
}

// The program.

struct Pipe {
    Pipe() { EXPECT_EQ(0, pipe2(ends.data(), O_CLOEXEC)); }
    std::array<int, 2> ends{};
};

void write_all(int fd, const Bytes& content, std::size_t piece)
{
    for (std::size_t i = 0; i < content.size(); i += piece) {
        const std::size_t count = std::min(piece, content.size() - i);
        ASSERT_EQ(static_cast<ssize_t>(count), ::write(fd, content.data() + i, count));
    }
}

/// Runs the program, under the emulator where there is one.
class Program : public testing::Test {
protected:
    Program()
    {
        EXPECT_NE(SIG_ERR,
                  std::signal(SIGPIPE, SIG_IGN)); // a program that ends early fails its own test only
    }

    static Child_process start(const std::vector<std::string>& arguments, const Surroundings& streams = {})
    {
        return {RTCM_CHECK_EMULATOR, RTCM_CHECK, arguments, streams};
    }
    static Outcome run(const std::vector<std::string>& arguments, const Surroundings& streams = {})
    {
        return start(arguments, streams).finish();
    }

    Outcome run_on(const Bytes& stream) const { return run({write("stream", stream)}); }

    std::string path(const std::string& name) const { return folder.path(name); }

    std::string write(const std::string& name, const Bytes& content) const
    {
        std::ofstream file(path(name), std::ios::binary);
        for (const unsigned char byte : content)
            file.put(static_cast<char>(byte));
        EXPECT_TRUE(file.flush());
        return path(name);
    }

private:
    const Temporary_folder folder;
};

/// Frames, bytes and errors by the name of the row.
using Counts = std::map<std::string, std::array<std::uint64_t, 3>>;

Counts table_of(const std::string& out)
{
    Counts counts;
    std::istringstream lines(out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ("message      frames          bytes   errors", line);
    while (std::getline(lines, line) && !line.empty()) {
        std::istringstream cells(line);
        std::string name;
        std::array<std::uint64_t, 3> row{};
        EXPECT_TRUE(cells >> name >> row[0] >> row[1] >> row[2]) << line;
        EXPECT_TRUE(counts.emplace(name, row).second) << line;
    }
    return counts;
}

Counts listed_counts(const Recorded& recorded)
{
    Counts counts;
    for (const Stretch& one : listed_frames(recorded.name)) {
        auto& row = counts[std::to_string(one.message.value())];
        ++row[0];
        row[1] += one.bytes;
    }
    counts["total"] = {recorded.frames, recorded.frame_bytes, 0};
    if (recorded.damaged_bytes > 0) {
        ++counts["1005"][2];
        ++counts["total"][2];
    }
    return counts;
}

class Checking : public Program, public testing::WithParamInterface<Recorded> {
protected:
    void SetUp() override
    {
        if (!std::filesystem::exists(path_of(GetParam().name)))
            GTEST_SKIP() << "recorded streams are not at hand in " QUARVEL_DATA_DIR;
    }
};

TEST_P(Checking, counts_the_listed_frames_of_each_message)
{
    const Recorded& recorded = GetParam();
    const Outcome outcome = run({path_of(recorded.name)});
    EXPECT_EQ(listed_counts(recorded), table_of(outcome.out));
    std::ostringstream account;
    account << "\n\n"
            << recorded.bytes << " bytes: " << recorded.frame_bytes << " in good frames, "
            << recorded.damaged_bytes << " in damaged ones, 0 in a cut one, "
            << recorded.bytes - recorded.frame_bytes - recorded.damaged_bytes << " skipped\n";
    EXPECT_THAT(outcome.out, HasSubstr(account.str()));
    const bool good = recorded.damaged_bytes == 0;
    EXPECT_EQ(good ? 0 : 1, outcome.status);
    EXPECT_EQ(good ? "" : "rtcm_check: '" + path_of(recorded.name) + "': 1 damaged frame.\n", outcome.err);
}

INSTANTIATE_TEST_SUITE_P(recorded, Recording, testing::ValuesIn(RECORDED));
INSTANTIATE_TEST_SUITE_P(recorded, Checking, testing::ValuesIn(RECORDED));

TEST_F(Program, says_what_it_skipped_and_where)
{
    Bytes bad = message(1087, 30);
    bad.back() ^= 1U;
    const Outcome outcome =
        run_on(bytes("text") + PUBLISHED + bad + PUBLISHED + bytes("$GPGGA\r\n") + part(PUBLISHED, 0, 10));
    EXPECT_EQ("message      frames          bytes   errors\n"
              "   1005           2             50        0\n"
              "   1087           0              0        1\n"
              "  total           2             50        1\n"
              "\n"
              "108 bytes: 50 in good frames, 36 in damaged ones, 10 in a cut one, 12 skipped\n"
              "  at 0: skipped, 4 bytes\n"
              "  at 29: damaged frame, 36 bytes, message 1087\n"
              "  at 90: skipped, 8 bytes\n"
              "  at 98: cut frame, 10 bytes\n",
              outcome.out);
    EXPECT_EQ("rtcm_check: '" + path("stream") + "': 1 damaged frame, a frame cut off by the end.\n",
              outcome.err);
    EXPECT_EQ(1, outcome.status);
}

TEST_F(Program, names_the_first_twenty_places)
{
    const Outcome twenty = run_on(repeated(bytes("x") + PUBLISHED, 20));
    EXPECT_THAT(twenty.out, testing::EndsWith("\n  at 494: skipped, 1 byte\n"));
    const Outcome more = run_on(repeated(bytes("x") + PUBLISHED, 22));
    EXPECT_THAT(more.out, testing::EndsWith("\n  at 494: skipped, 1 byte\n  and 2 more places\n"));
    EXPECT_EQ(0, more.status);
}

TEST_F(Program, counts_frames_without_a_message_number)
{
    const Outcome outcome = run_on(frame({}) + frame({0x55}) + PUBLISHED);
    EXPECT_EQ((Counts{{"none", {2, 13, 0}}, {"1005", {1, 25, 0}}, {"total", {3, 38, 0}}}),
              table_of(outcome.out));
    EXPECT_EQ(0, outcome.status);
}

TEST_F(Program, shows_the_table_only_when_quiet)
{
    const std::string file = write("stream", bytes("text") + PUBLISHED);
    const Outcome outcome = run({"--quiet", file});
    EXPECT_EQ("message      frames          bytes   errors\n"
              "   1005           1             25        0\n"
              "  total           1             25        0\n",
              outcome.out);
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ(outcome.out, run({file, "--quiet"}).out);
}

TEST_F(Program, joins_the_frames_that_its_own_blocks_cut)
{
    for (const std::size_t before : {0U, 1U, 2U, 3U, 12U, 24U, 25U}) {
        const Outcome outcome = run_on(Bytes(65536 - before, ' ') + PUBLISHED);
        EXPECT_EQ((Counts{{"1005", {1, 25, 0}}, {"total", {1, 25, 0}}}), table_of(outcome.out)) << before;
    }
}

TEST_F(Program, reads_standard_input_byte_by_byte)
{
    const Bytes stream = bytes("text") + repeated(PUBLISHED, 20) + message(1077, 500);
    const Pipe pipe;
    Child_process program = start({"-"}, {pipe.ends[0]});
    close(pipe.ends[0]);
    write_all(pipe.ends[1], stream, 1);
    close(pipe.ends[1]);
    const Outcome outcome = program.finish();
    EXPECT_EQ(run_on(stream).out, outcome.out);
    EXPECT_EQ(21U, table_of(outcome.out)["total"][0]);
    EXPECT_EQ(0, outcome.status);
}

TEST_F(Program, needs_no_more_memory_for_a_long_stream)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers keep freed memory and records of their own";
#endif
    // One gap from end to end, and nothing but damaged frames.
    for (const Bytes& eight : {Bytes{0xD3, 0x20, 0xD3, 0x20, 0x20, 0x20, 0x20, 0x20},
                               Bytes{0xD3, 0x20, 0xD3, 0x03, 0xFF, 0x20, 0x20, 0x20}}) {
        const Bytes noise = repeated(eight, 256);
        const Outcome small = run_on(noise + PUBLISHED);
        // Never whole in here: the most memory of a child counts what it had before its exec.
        std::ofstream file(path("large"), std::ios::binary);
        for (int i = 0; i < 1024; ++i)
            std::copy(noise.begin(), noise.end(), std::ostreambuf_iterator<char>(file));
        ASSERT_TRUE(file.flush());
        const Outcome large = run({path("large")});
        EXPECT_THAT(large.err, HasSubstr("no good RTCM 3 frame in 2097152 bytes"));
        EXPECT_LT(large.most_kilobytes, small.most_kilobytes + 1024);
    }
}

TEST_F(Program, redraws_its_progress_on_a_terminal_and_wipes_it)
{
    const Terminal terminal;
    const std::string file = write("stream", PUBLISHED);
    const Outcome outcome = run({file}, {-1, -1, terminal.fd});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("\r[####################] 100 %  0.0 MB, 1 good frame\x1b[K\r\x1b[K", terminal.shown());
}

TEST_F(Program, draws_nothing_on_a_terminal_when_quiet)
{
    const Terminal terminal;
    EXPECT_EQ(0, run({"--quiet", write("stream", PUBLISHED)}, {-1, -1, terminal.fd}).status);
    EXPECT_EQ("", terminal.shown());
}

TEST_F(Program, ends_with_one_message_and_status_1_on_what_holds_no_frame)
{
    Bytes bad = PUBLISHED;
    bad.back() ^= 1U;
    const struct {
        Bytes content;
        const char* message;
        bool table;
    } streams[] = {{{}, "empty", false},
                   {bytes("To whom it may concern\n"), "no good RTCM 3 frame in 23 bytes", false},
                   {bad, "no good RTCM 3 frame in 25 bytes, 1 damaged frame", true},
                   {part(bad, 0, 9), "no good RTCM 3 frame in 9 bytes, a frame cut off by the end", true}};
    for (const auto& stream : streams) {
        SCOPED_TRACE(stream.message);
        const Outcome outcome = run_on(stream.content);
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ("rtcm_check: '" + path("stream") + "': " + stream.message + ".\n", outcome.err);
        EXPECT_EQ(stream.table, !outcome.out.empty());
    }
}

TEST_F(Program, ends_with_one_message_and_status_1_on_what_cannot_be_read)
{
    const std::pair<std::string, const char*> files[] = {
        {path("missing"), "' cannot be opened: No such file or directory.\n"},
        {path(""), "' cannot be read: Is a directory.\n"}};
    for (const auto& [file, message] : files) {
        const Outcome outcome = run({file});
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ("rtcm_check: '" + file + message, outcome.err);
        EXPECT_EQ("", outcome.out);
    }
}

TEST_F(Program, reports_what_it_read_before_the_reading_failed)
{
    // The end of a terminal that goes on is told of an error when the other is closed.
    Terminal terminal;
    write_all(terminal.fd, PUBLISHED, PUBLISHED.size());
    terminal.hang_up();
    const Outcome outcome = run({"-"}, {terminal.other_end});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("rtcm_check: standard input cannot be read: Input/output error.\n", outcome.err);
    EXPECT_EQ(1U, table_of(outcome.out)["1005"][0]);
}

TEST_F(Program, ends_with_status_1_when_standard_output_cannot_be_written)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    const std::string file = write("stream", PUBLISHED);
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{file}, {"--help"}}) {
        const Outcome outcome = run(arguments, {-1, full});
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ("rtcm_check: standard output cannot be written: No space left on device.\n", outcome.err);
    }
    close(full);
}

TEST_F(Program, ends_with_status_2_on_wrong_usage)
{
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{}, "it takes the name of a file, or - for standard input."},
        {{"--quiet"}, "it takes the name of a file, or - for standard input."},
        {{"a", "b"}, "it takes the name of one file."},
        {{"-", "-"}, "it takes the name of one file."},
        {{""}, "it takes the name of one file."},
        {{"--colour", "a"}, "there is no option '--colour'."},
        {{"-q", "a"}, "there is no option '-q'."}};
    for (const auto& [arguments, message] : wrong) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ(std::string("rtcm_check: ") + message + " See rtcm_check --help.\n", outcome.err);
        EXPECT_EQ("", outcome.out);
    }
}

TEST_F(Program, tells_its_usage)
{
    const Outcome outcome = run({"--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    for (const char* word : {"FILE", "--quiet", "--help"})
        EXPECT_THAT(outcome.out, HasSubstr(word));
}

} // namespace
