#pragma once

#include "Source.h"
#include "examples/common/Nmea.h"
#include "util/net/TCP_client_task.h"

#include <QElapsedTimer>
#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

/// The connection to a receiver, kept up on a thread of its own.
class Receiver_link : public TCP_client_task {
public:
    /// Both are called on the comms thread, not after the destructor.
    struct Listener {
        std::function<void(const QByteArray& bytes)> received;
        std::function<void()> lost;
    };

    Receiver_link(const QString& host, int host_port, Listener told);
    ~Receiver_link() override;

    int handle_read(int socket) override;
    void handle_write(int socket) override;

private:
    Listener listener;
};

/// NMEA 0183 over TCP. A server that goes away is dialled again every second until it is back.
class Live : public Source {
    Q_OBJECT

public:
    /// @throw std::runtime_error  when the system has no pipe left
    Live(const QString& host, int port);
    ~Live() override;

    void start() override;
    void stop() override;
    QString kind() const override { return "LIVE"; }
    QString detail() const override { return address; }
    bool is_live() const override { return true; }

private:
    void tell(const QByteArray& bytes);
    void take_news();
    void take(const QByteArray& bytes);
    void lose();

    QString address;
    std::unique_ptr<Nmea_stream> stream; ///< of this connection
    double began_s = 0.0;                ///< when this connection's first fix came, since the first of all
    double latest_s = 0.0;
    QElapsedTimer since_latest;

    // From the comms thread to this one: what came, an empty piece when the connection was lost, and a byte
    // in the pipe that wakes this thread's event loop.
    std::mutex lock;
    std::vector<QByteArray> news; ///< under the lock
    int wake_pipe[2] = {-1, -1};  ///< read end, write end
    std::unique_ptr<QSocketNotifier> notifier;

    Receiver_link link; ///< the last member: its thread ends before the others go
};
