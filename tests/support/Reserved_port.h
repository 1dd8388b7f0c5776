#pragma once

#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// A TCP port of 127.0.0.1 that the system gives to nobody who asks for any. Connections to it are refused as
/// long as nobody listens there, which whoever sets SO_REUSEADDR can.
class Reserved_port {
public:
    Reserved_port()
    {
        const int on = 1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
            ::bind(fd, generic, size) != 0 || ::getsockname(fd, generic, &size) != 0)
            std::abort();
        port = ntohs(address.sin_port);
    }
    ~Reserved_port() { ::close(fd); }
    Reserved_port(const Reserved_port&) = delete;
    Reserved_port& operator=(const Reserved_port&) = delete;

    int number() const { return port; }

private:
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
};
