#pragma once

#include <string>
#include <string_view>

/// A host as it is dialled.
struct Host {
    std::string name;
    int port = 80;

    /// As the header field Host has it: the port only where it is not the usual one.
    std::string field() const;

    /// @param text  a name or an IPv4 address, and perhaps ":PORT"
    /// @throws Failed  when it is none, or cannot be dialled
    static Host parse(std::string_view text);
};

/// A web address without user and fragment.
struct Url {
    Host host;
    std::string
        path; ///< with the query; without the leading "/", as Header_helper::add_http_start() takes it

    /// @throws Failed  when it is none, or no http one
    static Url parse(std::string_view text);
};
