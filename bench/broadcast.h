#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// A server that sends what it is given to all its clients, on a thread of its own.
class Broadcast {
public:
    Broadcast() = default;
    virtual ~Broadcast() = default;
    Broadcast(const Broadcast&) = delete;
    Broadcast& operator=(const Broadcast&) = delete;

    virtual int port() const = 0;

    /// Bytes that clients have sent by now: each sends one, so that it is known to be served.
    virtual int received() const = 0;

    /// From the producer's thread; does not wait until the bytes are sent.
    virtual void publish(const unsigned char* data, std::size_t size) = 0;
};

std::unique_ptr<Broadcast> broadcast_by_us();
std::unique_ptr<Broadcast> broadcast_by_asio();
std::unique_ptr<Broadcast> broadcast_by_libevent();
std::unique_ptr<Broadcast> broadcast_by_libuv();
std::unique_ptr<Broadcast> broadcast_bare();
