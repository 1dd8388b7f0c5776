#include "util/net/Multiread_cbuf_safer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <type_traits>
#include <vector>

using Reader = Multiread_cbuf_safer::Reader<unsigned char>;
using Bytes = std::vector<unsigned char>;

static_assert(Multiread_cbuf_safer::SIZE == 4096);
static_assert(sizeof(Multiread_cbuf_safer) == 4096 + 3 * 4, "storage, head, total_written, capacity");
static_assert(sizeof(Reader) == 3 * sizeof(void*), "two pointers and a position");
static_assert(!std::is_copy_constructible_v<Multiread_cbuf_safer>, "readers point into it");

namespace {

constexpr int MOST = Multiread_cbuf_safer::SIZE - 1;

/// Bytes of an endless stream, 0 to 250 over and over, in which a byte tells where it belongs.
Bytes stretch(std::int64_t position, int count)
{
    static const Bytes stream = [] {
        Bytes bytes(251 + 2 * 4096);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>(i % 251);
        return bytes;
    }();
    const auto first = stream.begin() + static_cast<int>(position % 251);
    return {first, first + count};
}

void write(Multiread_cbuf_safer& buffer, const Bytes& bytes)
{
    buffer.write(bytes.data(), static_cast<int>(bytes.size()));
}

Bytes copied(const Reader& reader, int most)
{
    Bytes bytes(static_cast<std::size_t>(most) + 2, 0xEE); // with a fence of two
    const int count = reader.copy(bytes.data(), most);
    EXPECT_LE(count, most);
    EXPECT_TRUE(std::all_of(bytes.begin() + count, bytes.end(), [](int byte) { return byte == 0xEE; }))
        << "written beyond what was copied";
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

} // namespace

TEST(Multiread_cbuf_safer, starts_empty)
{
    const Multiread_cbuf_safer buffer;
    EXPECT_EQ(0, buffer.total());
    const Reader reader(buffer);
    EXPECT_EQ(0, reader.unread());
    EXPECT_EQ(MOST, reader.free_space());
    EXPECT_EQ(Bytes(), copied(reader, 10));
}

TEST(Multiread_cbuf_safer, gives_a_reader_what_is_written_after_it_came)
{
    Multiread_cbuf_safer buffer;
    write(buffer, {1, 2, 3});
    const Reader reader(buffer);
    EXPECT_EQ(0, reader.unread());
    write(buffer, {4, 5});
    EXPECT_EQ(2, reader.unread());
    EXPECT_EQ(MOST - 2, reader.free_space());
    EXPECT_EQ((Bytes{4, 5}), copied(reader, 10));
    EXPECT_EQ(5, buffer.total());
}

TEST(Multiread_cbuf_safer, copies_the_oldest_bytes_and_leaves_them_unread)
{
    Multiread_cbuf_safer buffer;
    const Reader reader(buffer);
    write(buffer, {1, 2, 3, 4});
    EXPECT_EQ((Bytes{1, 2, 3}), copied(reader, 3));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), copied(reader, 4));
    EXPECT_EQ(Bytes(), copied(reader, 0));
    EXPECT_EQ(4, reader.unread());
}

TEST(Multiread_cbuf_safer, lets_each_reader_go_at_its_own_pace)
{
    Multiread_cbuf_safer buffer;
    Reader quick(buffer);
    Reader slow(buffer);
    write(buffer, {1, 2, 3, 4});
    quick.advance(3);
    slow.advance(1);
    EXPECT_EQ((Bytes{4}), copied(quick, 10));
    EXPECT_EQ((Bytes{2, 3, 4}), copied(slow, 10));
}

TEST(Multiread_cbuf_safer, advances_no_further_than_the_last_byte_written)
{
    Multiread_cbuf_safer buffer;
    Reader reader(buffer);
    reader.advance(1);
    EXPECT_EQ(0, reader.unread());
    write(buffer, {1, 2, 3});
    reader.advance(0);
    EXPECT_EQ(3, reader.unread());
    reader.advance(4096 + 4);
    EXPECT_EQ(0, reader.unread());
    write(buffer, {4});
    EXPECT_EQ((Bytes{4}), copied(reader, 10));
}

TEST(Multiread_cbuf_safer, keeps_one_place_empty)
{
    for (const int start : {0, 1, 2048, 4095}) {
        SCOPED_TRACE(start);
        Multiread_cbuf_safer buffer;
        write(buffer, stretch(0, start));
        const Reader reader(buffer);
        write(buffer, stretch(start, MOST));
        EXPECT_EQ(MOST, reader.unread());
        EXPECT_EQ(0, reader.free_space());
        EXPECT_EQ(stretch(start, MOST), copied(reader, MOST));
    }
}

TEST(Multiread_cbuf_safer, makes_room_by_giving_up_just_the_oldest_bytes_in_the_way)
{
    struct Case {
        int unread, wanted, lost;
    };
    const Case cases[] = {{0, 0, 0},    {0, MOST, 0}, {1, MOST, 1},       {95, 4000, 0},    {96, 4000, 1},
                          {MOST, 0, 0}, {MOST, 1, 1}, {MOST, MOST, MOST}, {4000, 1000, 905}};
    for (const Case& c : cases)
        for (const int start : {0, 95, 96, 97, 4000, 4095}) {
            SCOPED_TRACE(testing::Message()
                         << c.unread << " unread, " << c.wanted << " wanted, from " << start);
            Multiread_cbuf_safer buffer;
            write(buffer, stretch(0, start));
            Reader reader(buffer);
            write(buffer, stretch(start, c.unread));
            EXPECT_EQ(c.lost, reader.make_room(c.wanted));
            EXPECT_EQ(c.unread - c.lost, reader.unread());
            EXPECT_EQ(stretch(start + c.lost, c.unread - c.lost), copied(reader, MOST));
            write(buffer, stretch(start + c.unread, c.wanted));
            EXPECT_EQ(stretch(start + c.lost, c.unread - c.lost + c.wanted), copied(reader, MOST));
        }
}

TEST(Multiread_cbuf_safer, takes_a_null_pointer_to_no_bytes)
{
    Multiread_cbuf_safer buffer;
    const Reader reader(buffer);
    buffer.write(nullptr, 0);
    EXPECT_EQ(0, reader.unread());
    EXPECT_EQ(0, buffer.total());
}

TEST(Multiread_cbuf_safer, counts_what_was_written_round_to_negative)
{
    Multiread_cbuf_safer buffer;
    const Bytes bytes(static_cast<std::size_t>(MOST));
    std::int64_t total = 0;
    while (total <= std::numeric_limits<std::int32_t>::max()) {
        write(buffer, bytes);
        total += MOST;
    }
    EXPECT_EQ(total - (std::int64_t{1} << 32), buffer.total());
}

// A reader as a stretch of an endless stream, of which no more than the last 4095 bytes can be had.
TEST(Multiread_cbuf_safer, agrees_with_a_model_on_random_sequences)
{
    struct Modelled_reader {
        explicit Modelled_reader(const Multiread_cbuf_safer& buffer) : reader(buffer) {}
        Reader reader;
        std::int64_t position = 0;
    };
    constexpr unsigned SEQUENCES = 2500;
    for (unsigned seed = 1; seed <= SEQUENCES && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const auto below = [&random](int limit) {
            return static_cast<int>(random() % static_cast<std::uint32_t>(limit));
        };
        Multiread_cbuf_safer buffer;
        std::int64_t written = 0;
        std::vector<std::unique_ptr<Modelled_reader>> readers;
        const int longest = seed % 2 == 0 ? 4096 : 700;
        for (int step = 0; step < 40; ++step) {
            const int what = below(8);
            if (what == 0 && readers.size() < 5) {
                readers.push_back(std::make_unique<Modelled_reader>(buffer));
                readers.back()->position = written;
            } else if (what == 1 && !readers.empty())
                readers.erase(readers.begin() + below(static_cast<int>(readers.size())));
            else if (what < 5) {
                const int count = below(longest);
                for (auto& modelled : readers) {
                    const std::int64_t first = std::max(modelled->position, written + count - MOST);
                    ASSERT_EQ(first - modelled->position, modelled->reader.make_room(count));
                    modelled->position = first;
                }
                write(buffer, stretch(written, count));
                written += count;
            } else if (!readers.empty()) {
                Modelled_reader& modelled =
                    *readers[static_cast<std::size_t>(below(static_cast<int>(readers.size())))];
                const int count = below(longest);
                modelled.reader.advance(count);
                modelled.position = std::min(modelled.position + count, written);
            }
            ASSERT_EQ(written, buffer.total());
            for (const auto& modelled : readers) {
                const int unread = static_cast<int>(written - modelled->position);
                ASSERT_EQ(unread, modelled->reader.unread());
                ASSERT_EQ(MOST - unread, modelled->reader.free_space());
                const int most = below(4096);
                ASSERT_EQ(stretch(modelled->position, std::min(most, unread)),
                          copied(modelled->reader, most));
            }
        }
    }
}

// The reader's thread advances without the lock while another makes room under it.
TEST(Multiread_cbuf_safer, keeps_positions_sane_when_both_sides_move_them)
{
    constexpr int MESSAGES = 20000;
    Multiread_cbuf_safer buffer;
    Reader reader(buffer);
    std::mutex lock;
    std::int64_t lost = 0;
    std::int64_t written = 0;
    std::atomic<bool> done{false};

    std::thread writer([&] {
        std::mt19937 random(1);
        for (int i = 0; i < MESSAGES; ++i) {
            const int count = static_cast<int>(random() % 600);
            const Bytes bytes = stretch(written, count);
            const std::lock_guard<std::mutex> guard(lock);
            lost += reader.make_room(count);
            write(buffer, bytes);
            written += count;
        }
        done = true;
    });

    std::int64_t read = 0;
    unsigned char bytes[1024];
    for (;;) {
        const bool last = done;
        int count = 0;
        {
            const std::lock_guard<std::mutex> guard(lock);
            count = reader.copy(bytes, sizeof bytes);
        }
        if (last && count == 0)
            break;
        for (int i = 1; i < count; ++i)
            ASSERT_EQ((bytes[i - 1] + 1) % 251, bytes[i]) << "a copy is torn";
        const int unread = reader.unread();
        ASSERT_TRUE(unread >= 0 && unread <= MOST) << unread;
        reader.advance(count);
        read += count;
    }
    writer.join();
    EXPECT_EQ(0, reader.unread());
    // Bytes that were given up while they were being read are made up for by as many others, as long as a
    // message leaves room in the buffer for what is being read.
    EXPECT_EQ(written, read + lost);
}

// The reader goes on between make_room()'s look at the position and its own step: many times in a fifth of a
// second.
TEST(Multiread_cbuf_safer, makes_room_also_while_the_reader_advances)
{
    using Clock = std::chrono::steady_clock;
    constexpr int COUNT = 600;
    Multiread_cbuf_safer buffer;
    Reader reader(buffer);
    std::atomic<bool> advances{false};
    std::atomic<bool> done{false};
    std::thread reading([&] {
        while (!done) {
            reader.advance(1);
            advances = true;
        }
    });
    while (!advances)
        std::this_thread::yield();
    const Bytes bytes = stretch(0, COUNT);
    int too_little = 0;
    for (const auto end = Clock::now() + std::chrono::milliseconds(200); Clock::now() < end;) {
        reader.make_room(COUNT);
        too_little += reader.free_space() < COUNT ? 1 : 0;
        write(buffer, bytes);
    }
    done = true;
    reading.join();
    EXPECT_EQ(0, too_little);
}
