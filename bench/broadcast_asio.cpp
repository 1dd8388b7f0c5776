#include "bench/broadcast.h"

#include <asio.hpp>

#include <array>
#include <atomic>
#include <deque>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Message = std::shared_ptr<const std::vector<unsigned char>>;
using asio::ip::tcp;

class Session : public std::enable_shared_from_this<Session> {
public:
    Session(tcp::socket connected, std::atomic<int>& counter) : socket(std::move(connected)), bytes(counter)
    {
    }

    void read()
    {
        socket.async_read_some(asio::buffer(in),
                               [self = shared_from_this()](const asio::error_code& error, std::size_t size) {
                                   self->bytes += static_cast<int>(size);
                                   if (!error)
                                       self->read();
                               });
    }

    void send(const Message& message)
    {
        queue.push_back(message);
        if (queue.size() == 1)
            write();
    }

private:
    void write()
    {
        asio::async_write(socket, asio::buffer(*queue.front()),
                          [self = shared_from_this()](const asio::error_code& error, std::size_t /*size*/) {
                              self->queue.pop_front();
                              if (!error && !self->queue.empty())
                                  self->write();
                          });
    }

    tcp::socket socket;
    std::atomic<int>& bytes;
    std::array<unsigned char, 256> in{};
    std::deque<Message> queue;
};

class Asio : public Broadcast {
public:
    Asio() : acceptor(io, tcp::endpoint(tcp::v4(), 0))
    {
        accept();
        loop = std::thread([this] { io.run(); });
    }
    ~Asio() override
    {
        io.stop();
        loop.join();
    }
    Asio(const Asio&) = delete;
    Asio& operator=(const Asio&) = delete;

    int port() const override { return acceptor.local_endpoint().port(); }
    int received() const override { return bytes; }
    void publish(const unsigned char* data, std::size_t size) override
    {
        asio::post(io,
                   [this, message = std::make_shared<const std::vector<unsigned char>>(data, data + size)] {
                       for (const auto& session : sessions)
                           session->send(message);
                   });
    }

private:
    void accept()
    {
        acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
            if (error)
                return;
            socket.set_option(tcp::no_delay(true));
            sessions.push_back(std::make_shared<Session>(std::move(socket), bytes));
            sessions.back()->read();
            accept();
        });
    }

    asio::io_context io{1};
    tcp::acceptor acceptor;
    std::atomic<int> bytes{0};
    std::vector<std::shared_ptr<Session>> sessions;
    std::thread loop;
};

} // namespace

std::unique_ptr<Broadcast> broadcast_by_asio()
{
    return std::make_unique<Asio>();
}
