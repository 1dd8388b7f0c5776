#pragma once

#include "util/export.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

/// A circular buffer of bytes that is written at one end and read by any number of readers,
/// each at its own pace.
///
/// The buffer does not know its readers and is never full: a byte that is written goes over the one that was
/// written 4096 before it. Whoever writes has each reader give up what is in the way first, with make_room().
///
/// It takes no lock. One lock of the owner's must be held by whoever calls write(), make_room() or copy(), so
/// that the bytes stand still meanwhile. The rest of a reader is for one thread at a time, without the lock.
class QUARVEL_EXPORT Multiread_cbuf_safer {
public:
    static constexpr std::int32_t SIZE = 4096; ///< bytes; a reader can have one less before it

    template <typename BYTE>
    class Reader;

    /// Appends bytes; hold the lock.
    ///
    /// @param bytes  may be null when `count` is 0
    /// @param count  0 to 4095
    void write(const unsigned char* bytes, int count);

    /// How many bytes were written since construction;
    /// it goes on from 2147483647 to -2147483648. Hold the lock.
    std::int32_t total() const { return control.total_written; }

private:
    struct Control {
        std::atomic<std::int32_t> head{0}; ///< where the next byte is written
        std::int32_t total_written = 0;
        std::int32_t capacity = SIZE;
    };

    unsigned char data[SIZE] = {};
    Control control;
};

/// One reader's position. It starts at the writing end: what was written before is not for it.
/// The buffer must outlive it.
///
/// A reader can have 4095 bytes before it at most, for a full buffer must not look like an empty one.
///
/// While other threads write, what unread() and free_space() answer without the lock may be out of date at
/// once, and even mix the states before and after some of their writes; with the lock it is exact.
template <typename BYTE>
class Multiread_cbuf_safer::Reader {
public:
    /// @param buffer  kept by its address
    explicit Reader(const Multiread_cbuf_safer& buffer)
        : control(&buffer.control), read_index(buffer.control.head.load(std::memory_order_relaxed)),
          storage(buffer.data)
    {
    }

    /// How many bytes are there to read: 0 to 4095.
    int unread() const { return unread_from(read_index.load(std::memory_order_relaxed)); }

    /// How many bytes can be written before this reader loses any: 4095 less what is unread.
    int free_space() const { return free_space_from(read_index.load(std::memory_order_relaxed)); }

    /// Gives up the oldest unread bytes until `count` can be written; hold the lock.
    ///
    /// @param count  0 to 4095
    /// @return how many bytes are lost
    int make_room(int count)
    {
        std::int32_t from = read_index.load(std::memory_order_relaxed);
        for (;;) {
            const int lost = std::min(count - free_space_from(from), unread_from(from));
            if (lost <= 0)
                return 0;
            if (read_index.compare_exchange_weak(from, after(from, lost), std::memory_order_acq_rel))
                return lost;
        }
    }

    /// Copies the oldest unread bytes, which stay unread; hold the lock.
    ///
    /// @param[out] to    room for `most`
    /// @param      most  0 or more
    /// @return how many bytes were copied: all that are unread, `most` at most
    int copy(BYTE* to, int most) const
    {
        const std::int32_t from = read_index.load(std::memory_order_relaxed);
        const int count = std::min(most, unread_from(from));
        const int until_end = std::min(count, control->capacity - from);
        std::copy_n(storage + from, until_end, to);
        std::copy_n(storage, count - until_end, to + until_end);
        return count;
    }

    /// Goes on by `count` bytes, but not beyond the last one that was written; without the lock.
    ///
    /// Deliberate: it goes on from where it is now. When make_room() moved it since copy(), the bytes given
    /// up then are passed over a second time, uncounted.
    ///
    /// @param count  0 or more
    void advance(int count)
    {
        // A position that make_room() gave comes with the head that it was given for.
        std::int32_t from = read_index.load(std::memory_order_acquire);
        while (!read_index.compare_exchange_weak(from, after(from, std::min(count, unread_from(from))),
                                                 std::memory_order_acq_rel)) {
        }
    }

private:
    int unread_from(std::int32_t from) const
    {
        const std::int32_t ahead = control->head.load(std::memory_order_relaxed) - from;
        return ahead < 0 ? ahead + control->capacity : ahead;
    }

    int free_space_from(std::int32_t from) const
    {
        const std::int32_t behind = from - control->head.load(std::memory_order_relaxed);
        return (behind <= 0 ? behind + control->capacity : behind) - 1;
    }

    std::int32_t after(std::int32_t from, int steps) const
    {
        const std::int32_t index = from + steps;
        return index < control->capacity ? index : index - control->capacity;
    }

    const Control* control;
    std::atomic<std::int32_t> read_index; // moved by who writes and by who reads
    const BYTE* storage;
};

inline void Multiread_cbuf_safer::write(const unsigned char* bytes, int count)
{
    if (count <= 0)
        return;
    const std::int32_t head = control.head.load(std::memory_order_relaxed);
    const int until_end = std::min(count, control.capacity - head);
    std::copy_n(bytes, until_end, data + head);
    std::copy_n(bytes + until_end, count - until_end, data);
    const std::int32_t index = head + count;
    control.head.store(index < control.capacity ? index : index - control.capacity,
                       std::memory_order_relaxed);
    control.total_written = static_cast<std::int32_t>(static_cast<std::uint32_t>(control.total_written) +
                                                      static_cast<std::uint32_t>(count));
}
