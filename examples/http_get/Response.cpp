#include "Response.h"

#include "Failed.h"
#include "Fields.h"

#include "util/text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <system_error>
#include <utility>

namespace {

constexpr const char* BLANKS = " \t";

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// Servers write names as they like; the table has them with a capital letter after each hyphen.
std::string with_usual_case(std::string line, std::size_t name_length)
{
    for (std::size_t i = 0; i < name_length; ++i) {
        const auto c = static_cast<unsigned char>(line[i]);
        const bool first = i == 0 || line[i - 1] == '-';
        line[i] = static_cast<char>(first ? std::toupper(c) : std::tolower(c));
    }
    return line;
}

std::string trimmed(const std::string& value)
{
    const std::size_t start = value.find_first_not_of(BLANKS);
    return start == std::string::npos ? "" : Util::String::trim_trailing(value.substr(start), BLANKS);
}

/// A whole number that is all of the text; none for any other text.
std::optional<std::uint64_t> number(const std::string& text, int base)
{
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || rest != end)
        return std::nullopt;
    return value;
}

} // namespace

Response::Response(Head_listener head_listener, Body_listener body_listener)
    : on_head(std::move(head_listener)), on_body(std::move(body_listener))
{
}

void Response::feed(const char* data, std::size_t count)
{
    while (count > 0 && !is_complete()) {
        const bool in_body = state == State::body || state == State::body_to_end || state == State::chunk;
        const std::size_t taken = in_body ? feed_body(data, count) : feed_line(data, count);
        data += taken;
        count -= taken;
    }
}

void Response::finish()
{
    switch (state) {
    case State::complete:
        return;
    case State::body_to_end:
        state = State::complete;
        return;
    case State::status:
    case State::field:
        throw Failed("the connection ended before the head of the answer did.");
    default:
        throw Failed("the connection ended early, after " + std::to_string(received) +
                     (head.length ? " of " + std::to_string(*head.length) : "") + " bytes.");
    }
}

std::size_t Response::feed_line(const char* data, std::size_t count)
{
    const char* const end = std::find(data, data + count, '\n');
    const bool whole = end != data + count;
    const std::size_t taken = static_cast<std::size_t>(end - data) + (whole ? 1 : 0);
    if (taken > line_room)
        throw Failed("the head of the answer is longer than " + std::to_string(LONGEST_HEAD) + " bytes.");
    line_room -= taken;
    line.append(data, end);
    if (whole) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        take_line();
        line.clear();
    }
    return taken;
}

std::size_t Response::feed_body(const char* data, std::size_t count)
{
    const bool limited = state != State::body_to_end;
    if (limited && left < count)
        count = static_cast<std::size_t>(left);
    on_body(data, count);
    received += count;
    if (limited && (left -= count) == 0)
        state = state == State::body ? State::complete : State::chunk_end;
    return count;
}

void Response::take_line()
{
    switch (state) {
    case State::status:
        return take_status();
    case State::field:
        return take_field();
    case State::chunk_size:
        return take_chunk_size();
    case State::chunk_end:
        if (!line.empty())
            throw Failed("a chunk of the answer is longer than its length.");
        state = State::chunk_size;
        return;
    default: // the trailer, which says nothing that is needed
        if (line.empty())
            state = State::complete;
    }
}

void Response::take_status()
{
    const std::string text = line + " "; // some leave out the blank before an empty reason
    const bool right = text.size() > 12 && text.compare(0, 7, "HTTP/1.") == 0 && is_digit(text[7]) &&
                       text[8] == ' ' && std::all_of(&text[9], &text[12], is_digit) && text[12] == ' ' &&
                       text[9] != '0';
    if (!right)
        throw Failed("the answer is no HTTP/1 response.");
    head = {};
    head.status = std::stoi(text.substr(9, 3));
    head.reason = trimmed(text.substr(12));
    state = State::field;
}

void Response::take_field()
{
    const std::size_t colon = std::min(line.find(':'), line.size());
    const bool is_named = colon > 0 && colon < line.size() &&
                          std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon),
                                      [](char c) { return c > ' ' && c < '\x7F'; });
    if (!is_named && !line.empty())
        throw Failed("the head of the answer holds a line that is no header field.");
    const std::string value = is_named ? trimmed(line.substr(colon + 1)) : "";
    switch (Fields::helper().get_line_type(with_usual_case(line, colon).c_str())) {
    case Fields::CONTENT_LENGTH:
        return take_length(value);
    case Fields::TRANSFER_ENCODING:
        head.transfer_encoding += (head.transfer_encoding.empty() ? "" : ", ") + lower(value);
        return;
    case Fields::LOCATION:
        head.location = value;
        return;
    case Fields::END_OF_HEAD:
        return take_end_of_head();
    default:
        return;
    }
}

void Response::take_length(const std::string& value)
{
    const std::optional<std::uint64_t> length = number(value, 10);
    if (!length || head.length.value_or(*length) != *length)
        throw Failed("the answer's Content-Length is not one number.");
    head.length = length;
}

void Response::take_end_of_head()
{
    if (head.status < 200) { // the response proper is still to come
        state = State::status;
        return;
    }
    const bool is_chunked = head.transfer_encoding == "chunked";
    if (is_chunked)
        head.length.reset(); // a length beside chunks does not count
    on_head(head);
    if (head.status == 204 || head.status == 304)
        state = State::complete; // never a body, whatever the head says
    else if (is_chunked)
        state = State::chunk_size;
    else if (!head.transfer_encoding.empty())
        throw Failed("the answer's transfer coding '" + head.transfer_encoding + "' is not supported.");
    else if (!head.length)
        state = State::body_to_end;
    else
        state = *head.length == 0 ? State::complete : State::body;
    left = head.length.value_or(0);
}

void Response::take_chunk_size()
{
    const std::optional<std::uint64_t> size =
        number(trimmed(line.substr(0, line.find(';'))), 16); // what follows are extensions
    if (!size)
        throw Failed("a chunk of the answer has no length.");
    left = *size;
    line_room = LONGEST_HEAD;
    state = left == 0 ? State::trailer : State::chunk;
}
