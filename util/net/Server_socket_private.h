#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>

/// Sets an option of a socket to 1.
inline bool enable(int sd, int level, int option)
{
    const int on = 1;
    return ::setsockopt(sd, level, option, &on, sizeof on) == 0;
}

/// Binds a socket to a port of every address that the machine has.
///
/// @param wanted_port  host order, of which 16 bits count; 0 lets the system choose
/// @return the port that was bound, host order; -1 when none was, with errno set
inline int bind_to_port(int sd, int wanted_port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(wanted_port));
    auto* const any_address = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (::bind(sd, any_address, size) < 0)
        return -1;
    ::getsockname(sd, any_address, &size); // where it fails, the port asked for stands
    return ntohs(address.sin_port);
}
