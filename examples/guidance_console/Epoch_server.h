#pragma once

#include "util/net/TCP_server_buffered.h"

#include <string>
#include <thread>

/// Serves lines of text to any number of viewers, on a thread of its own.
class Epoch_server : public TCP_server_buffered {
public:
    /// @param wanted  0: any that is free
    /// @throw std::runtime_error  when the port cannot be had
    explicit Epoch_server(int wanted);
    ~Epoch_server() override;
    Epoch_server(const Epoch_server&) = delete;
    Epoch_server& operator=(const Epoch_server&) = delete;

    int bound_port() const { return port; }
    bool has_viewers() const { return has_connections; }

    /// Bytes that viewers lost because they did not read.
    int lost_bytes() const { return dropped_bytes; }

    /// A line to every viewer, without its end. Never waits.
    void send(const std::string& line);

    void handle_data(int sd, unsigned char* data, int len) override;

private:
    std::thread loop;
};
