#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// A piece of the stream, as the Framer tells it.
struct Stretch {
    enum class Kind {
        good,    ///< a frame whose CRC is right
        damaged, ///< a frame whose CRC or head is wrong
        skipped, ///< no frame: other protocols, text, the rest of a frame whose start is missing
        cut      ///< a frame that the end of the stream cuts off
    };
    Kind kind = Kind::skipped;
    std::uint64_t offset = 0; ///< of its first byte in the stream
    std::uint64_t bytes = 0;
    /// The message number of a good or a damaged frame, of which the latter may be damaged itself. None in a
    /// frame of less than two bytes of payload.
    std::optional<unsigned> message;
};

/// Finds the RTCM 3 frames of a stream that is fed in pieces of any size. For one thread.
///
/// The stretches that it tells of follow one another without a gap or an overlap, from the first byte fed to
/// the last. No two skipped ones follow each other.
///
/// A good frame is never lost to what stands before it: whatever does not check is searched again from its
/// second byte on. A frame counts as damaged under one of two conditions:
///  - its head is right (preamble and reserved bits), the CRC is wrong, and the length given in the head ends
///    before or where the next good frame starts. Heads inside a frame that was counted are not looked at.
///  - what would be skipped is just as long as a frame whose head differs in one of the three bytes.
///
/// Keeps at most three frames and the piece just fed.
///
/// @see RTCM 10403.3, transport layer: 0xD3, six reserved bits (zero), ten bits of length, payload, CRC-24Q
class Framer {
public:
    static constexpr std::size_t HEAD = 3;
    static constexpr std::size_t TRAILER = 3;
    static constexpr std::size_t LONGEST_FRAME = HEAD + 1023 + TRAILER;

    using Listener = std::function<void(const Stretch&)>;
    explicit Framer(Listener listener);

    /// Tells of all that is decided; a frame as soon as its last byte is in, unless a head before it waits
    /// for more bytes than that.
    void feed(const unsigned char* data, std::size_t count);

    /// The stream ends here: tells of the rest. Nothing is fed afterwards.
    void finish();

private:
    const unsigned char* at(std::uint64_t offset) const { return window.data() + (offset - window_start); }
    std::uint64_t window_end() const { return window_start + window.size(); }
    std::size_t frame_length(std::uint64_t offset) const;
    bool has_lost_its_head(std::uint64_t start, std::uint64_t end) const;
    void search(bool ended);
    void judge(bool up_to_good_frame);
    void end_gap(std::uint64_t end);
    void tell(Stretch::Kind kind, std::uint64_t end);
    void forget();

    Listener on_stretch;
    std::vector<unsigned char> window; ///< the latest bytes of the stream
    std::uint64_t window_start = 0;

    // Offsets in the stream, in this order.
    std::uint64_t told = 0;     ///< everything before it has been told of
    std::uint64_t judged = 0;   ///< from `told` to here there is no damaged frame with a right head
    std::uint64_t searched = 0; ///< from `told` to here no good frame starts
};
