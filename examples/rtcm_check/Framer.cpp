#include "Framer.h"

#include "util/crc.h"

#include <utility>

namespace {

constexpr unsigned char PREAMBLE = 0xD3;
constexpr unsigned char RESERVED_BITS = 0xFC; // of the second byte

std::optional<unsigned> message_number(const unsigned char* frame, std::uint64_t bytes)
{
    if (bytes < Framer::HEAD + 2 + Framer::TRAILER)
        return std::nullopt;
    return static_cast<unsigned>(frame[3] << 4 | frame[4] >> 4);
}

} // namespace

Framer::Framer(Listener listener) : on_stretch(std::move(listener))
{
}

void Framer::feed(const unsigned char* data, std::size_t count)
{
    window.insert(window.end(), data, data + count);
    search(false);
    forget();
}

void Framer::finish()
{
    search(true);
    if (judged < window_end()) {
        end_gap(judged);
        tell(Stretch::Kind::cut, window_end());
    } else
        end_gap(window_end());
}

/// Of the whole frame whose head stands there; 0 if none does. A head that is not all there yet is taken for
/// a right one, with a length of more than is there.
std::size_t Framer::frame_length(std::uint64_t offset) const
{
    const unsigned char* const head = at(offset);
    const std::uint64_t there = window_end() - offset;
    if (head[0] != PREAMBLE || (there > 1 && (head[1] & RESERVED_BITS) != 0))
        return 0;
    const std::size_t payload = there < HEAD ? 0 : head[1] * std::size_t{256} + head[2];
    return HEAD + payload + TRAILER;
}

/// Whether a frame may have stood there of whose head one byte is wrong.
bool Framer::has_lost_its_head(std::uint64_t start, std::uint64_t end) const
{
    const std::uint64_t bytes = end - start;
    if (bytes < HEAD + TRAILER || bytes > LONGEST_FRAME)
        return false;
    const std::uint64_t payload = bytes - HEAD - TRAILER;
    const unsigned char* const head = at(start);
    const int right = (head[0] == PREAMBLE) + (head[1] == payload >> 8U) + (head[2] == (payload & 0xFFU));
    return right == 2;
}

void Framer::search(bool ended)
{
    while (searched < window_end()) {
        const std::size_t length = frame_length(searched);
        const bool whole = length <= window_end() - searched;
        if (!whole && !ended)
            break;
        if (length == 0 || !whole || crc24q(0, at(searched), static_cast<int>(length * 8)) != 0) {
            ++searched;
            continue;
        }
        judge(true);
        end_gap(searched);
        searched += length;
        tell(Stretch::Kind::good, searched);
    }
    judge(false);
}

/// Looks for damaged frames in what has been searched. Stops at one that reaches beyond, unless a good frame
/// starts there: then it was none.
void Framer::judge(bool up_to_good_frame)
{
    while (judged < searched) {
        const std::size_t length = frame_length(judged);
        const bool beyond = length > searched - judged;
        if (beyond && !up_to_good_frame)
            return;
        if (length == 0 || beyond) {
            ++judged;
            continue;
        }
        end_gap(judged);
        tell(Stretch::Kind::damaged, judged + length);
    }
}

void Framer::end_gap(std::uint64_t end)
{
    if (end > told)
        tell(has_lost_its_head(told, end) ? Stretch::Kind::damaged : Stretch::Kind::skipped, end);
}

void Framer::tell(Stretch::Kind kind, std::uint64_t end)
{
    Stretch stretch{kind, told, end - told, std::nullopt};
    if (kind == Stretch::Kind::good || kind == Stretch::Kind::damaged)
        stretch.message = message_number(at(told), stretch.bytes);
    told = judged = end;
    on_stretch(stretch);
}

/// A gap is kept for has_lost_its_head() as long as it may be one frame.
void Framer::forget()
{
    const std::uint64_t needed = judged - told <= LONGEST_FRAME ? told : judged;
    window.erase(window.begin(), window.begin() + static_cast<std::ptrdiff_t>(needed - window_start));
    window_start = needed;
}
