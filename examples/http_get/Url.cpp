#include "Url.h"

#include "Failed.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace {

constexpr std::string_view SCHEME = "http://";
constexpr std::size_t LONGEST_NAME = 255; // that TCP_client takes
constexpr int USUAL_PORT = 80;

/// A blank or a line end would end the request line early, and what follows would count as a header field.
bool is_plain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

int parse_port(std::string_view text)
{
    int port = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || rest != end || port < 1 || port > 65535)
        throw Failed("'" + std::string(text) + "' is no port.");
    return port;
}

} // namespace

std::string Host::field() const
{
    return port == USUAL_PORT ? name : name + ":" + std::to_string(port);
}

Host Host::parse(std::string_view text)
{
    const std::size_t colon = text.find(':');
    Host host;
    host.name = text.substr(0, colon);
    if (text.find_first_of("[]@") != std::string_view::npos)
        throw Failed("'" + std::string(text) + "': users and IPv6 addresses are not supported.");
    if (host.name.empty() || host.name.size() > LONGEST_NAME || !is_plain(host.name))
        throw Failed("'" + std::string(text) + "' is no host.");
    if (colon != std::string_view::npos)
        host.port = parse_port(text.substr(colon + 1));
    return host;
}

Url Url::parse(std::string_view text)
{
    if (text.substr(0, SCHEME.size()) != SCHEME)
        throw Failed("'" + std::string(text) + "' does not start with http://.");
    if (!is_plain(text))
        throw Failed("the URL holds a blank or another character that has to be written as %XX.");
    text = text.substr(SCHEME.size());
    text = text.substr(0, text.find('#'));
    const std::size_t end = std::min(text.find_first_of("/?"), text.size());
    Url url;
    url.host = Host::parse(text.substr(0, end));
    url.path = text.substr(end);
    if (!url.path.empty() && url.path.front() == '/')
        url.path.erase(0, 1);
    return url;
}
