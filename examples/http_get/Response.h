#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// What the head of a response says.
struct Response_head {
    int status = 0;
    std::string reason;                  ///< as the server words it; may be empty
    std::optional<std::uint64_t> length; ///< of the body in bytes, where it is announced
    std::string transfer_encoding;
    std::string location;
};

/// Takes apart an HTTP/1.1 response to GET that is fed in pieces of any size. For one thread.
///
/// The end of the body is where its length, its chunks or, without either, the connection ends. Keeps a line
/// of the head at most.
///
/// @see RFC 9112, 6.3 and 7.1
class Response {
public:
    /// Of the head with its interim responses, and of all that is between two chunks.
    static constexpr std::size_t LONGEST_HEAD = 16384;

    using Head_listener = std::function<void(const Response_head&)>;
    using Body_listener = std::function<void(const char* data, std::size_t count)>;

    /// @param head_listener  is called once, before the body; may throw when it does not want that
    Response(Head_listener head_listener, Body_listener body_listener);

    /// What is behind the end of the response is left alone.
    ///
    /// @throws Failed  when it is no response, or in a transfer coding other than chunked
    void feed(const char* data, std::size_t count);

    /// The connection ends here.
    ///
    /// @throws Failed  when the response does not
    void finish();

    bool is_complete() const { return state == State::complete; }

private:
    enum class State { status, field, body, body_to_end, chunk_size, chunk, chunk_end, trailer, complete };

    std::size_t feed_line(const char* data, std::size_t count);
    std::size_t feed_body(const char* data, std::size_t count);
    void take_line();
    void take_status();
    void take_field();
    void take_length(const std::string& value);
    void take_end_of_head();
    void take_chunk_size();

    Head_listener on_head;
    Body_listener on_body;
    State state = State::status;
    Response_head head;
    std::string line;                     ///< as far as it is there, without its end
    std::size_t line_room = LONGEST_HEAD; ///< for lines, until the next chunk
    unsigned long long left = 0;          ///< of the body or the chunk
    std::uint64_t received = 0;           ///< of the body
};
