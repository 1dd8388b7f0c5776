#pragma once

#include "util/export.h"

#include <cstdint>

/// Writes an HTTP/1.1 request head into a caller's buffer, and tells received header lines apart by the same
/// table of names.
///
/// Nothing is allocated and nothing is ever written outside the buffer. What did not fit sets `overflowed`,
/// and from then on every add_*() is refused:
///
///     enum { CONTENT_LENGTH, HOST };
///     const char* names[] = {"Content-Length", "Host"};
///     const Header_helper::type_t types[] = {Header_helper::TYPE_HEADER, Header_helper::TYPE_HEADER};
///     Header_helper head(names, types, 2);
///     char buf[512];
///     head.set_buf(buf, sizeof buf);
///     head.add_http_start("GET", "status", nullptr, 0);
///     head.add_header(HOST, "console");
///     head.add_http_finish();
///     if (!head.overflowed)
///         send(sd, buf, static_cast<std::size_t>(head.index), 0);
///
/// A head that is longer than the buffer comes piece by piece, each from a builder of its own that may
/// truncate and starts at minus the length of the pieces before it (see set_index()): as long as a builder
/// has overflowed, its buffer holds the next `size` - 1 bytes and there may be more. An addition that was cut
/// because `allow_truncation` is set answers true.
///
/// Texts are never null except for the host, never lie in the buffer, and are written as they are: line ends
/// or blanks in them are not looked for. One thread at a time.
class QUARVEL_EXPORT Header_helper {
public:
    /// The kind of a table entry. An entry of any other kind matches no line.
    enum type_t : std::uint32_t {
        TYPE_HEADER = 0, ///< a header field: the name, exactly, and at once ":"
        TYPE_LINE = 1    ///< a line that is the name exactly
    };

    char* buf;           ///< the caller's, as set_buf() got it; null before
    std::int32_t size;   ///< of the buffer, in bytes
    const char** names;  ///< `count` entries, the caller's
    const type_t* types; ///< `count` entries, the caller's
    std::int32_t count;  ///< of table entries
    std::int32_t index; ///< bytes produced so far, stored or not; negative: that many are still to be skipped
    bool allow_truncation; ///< cut what has no room instead of refusing it; the caller's
    bool overflowed;       ///< something did not fit; only a new builder starts without it

    /// Starts without a buffer.
    ///
    /// @param names, types  `count` entries each; both stay the caller's and are not copied
    Header_helper(const char** names, const type_t* types, int count);

    /// Starts at the beginning of another buffer, which stays the caller's. Deliberate: `overflowed` stays.
    ///
    /// @param size  nothing is stored in a buffer of less than 2 bytes, not even a terminator
    void set_buf(char* buf, int size);

    /// Sets how many bytes count as produced. With a negative number that many of the bytes to come are
    /// skipped, and the one behind them goes to the start of the buffer.
    void set_index(int index);

    /// @param line  without its line end
    /// @return the first entry of the table that matches, case and all; -1 when none does
    int get_line_type(const char* line) const;

    /// Appends, whatever `overflowed` says, as far as there is room, and counts all of `len` in `index`.
    ///
    /// A byte more than `len` is copied, which is the terminator when `len` is the length of the text, and a
    /// terminator is put behind it. That takes two bytes of room: a text that leaves only one in the buffer
    /// is stored whole and terminated, yet sets `overflowed`.
    ///
    /// @param text  `len` + 1 bytes that can be read
    void write(const char* text, int len);

    /// Appends "METHOD http://HOST:PORT/PATH HTTP/1.1", or without a host "METHOD /PATH HTTP/1.1", and a line
    /// end.
    ///
    /// @param path  without its leading "/": deliberately, one that has it comes out with two
    /// @param host  null or empty for the form without a host, where the port does not matter
    /// @return false with nothing written when there is no room or `overflowed` was set. A line that takes
    ///         the buffer up to its last byte or the one before is not refused, but cut or stored as write()
    ///         does, which sets `overflowed`.
    bool add_http_start(const char* method, const char* path, const char* host, int port);

    /// Appends "NAME: VALUE" and a line end.
    ///
    /// @param name_index  of the table entry
    /// @return false with nothing written when there is no such entry (`overflowed` stays as it is), no room,
    ///         or `overflowed` was set
    bool add_header(int name_index, const char* value);

    /// Appends the blank line that ends the head.
    ///
    /// @return false with nothing written when there is no room or `overflowed` was set. Three bytes of room
    ///         are enough, but they set `overflowed`, as write() says.
    bool add_http_finish();
};
