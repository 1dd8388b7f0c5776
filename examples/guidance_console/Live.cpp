#include "Live.h"

#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace {

constexpr int PERIOD_MS = 1000;
constexpr int CONNECT_TIMEOUT_MS = 3000;
constexpr unsigned SLICE_MS = 20;

} // namespace

Receiver_link::Receiver_link(const QString& host, int host_port, Listener told)
    : TCP_client_task(host.toLocal8Bit().constData(), host_port), listener(std::move(told))
{
    set_reconnect_period(PERIOD_MS);
    set_connect_timeout(CONNECT_TIMEOUT_MS); // close() waits for an attempt to end
}

Receiver_link::~Receiver_link()
{
    close();
}

int Receiver_link::handle_read(int socket)
{
    char bytes[4096];
    const ssize_t count = ::read(socket, bytes, sizeof bytes);
    if (count > 0) {
        listener.received(QByteArray(bytes, static_cast<int>(count)));
        return 0;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    listener.lost();
    // The task dials again at once. A server that refuses or hangs up each time is not to be dialled without
    // end, so the pause is made here.
    for (unsigned waited = 0; running && waited < static_cast<unsigned>(PERIOD_MS); waited += SLICE_MS)
        QThread::msleep(SLICE_MS);
    return -1;
}

void Receiver_link::handle_write(int /*socket*/)
{
    // Nothing is ever sent: is_write_data_avail() says no.
}

Live::Live(const QString& host, int port)
    : address(QString("%1:%2").arg(host).arg(port)),
      link(host, port, {[this](const QByteArray& bytes) { tell(bytes); }, [this] { tell({}); }})
{
    if (::pipe2(wake_pipe, O_NONBLOCK | O_CLOEXEC) != 0)
        throw std::runtime_error("The system has no pipe left for the connection.");
    notifier = std::make_unique<QSocketNotifier>(wake_pipe[0], QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, &Live::take_news);
    lose();
}

Live::~Live()
{
    link.close();
    notifier.reset();
    for (const int end : wake_pipe)
        ::close(end);
}

void Live::start()
{
    link.open();
}

void Live::stop()
{
    link.close();
}

/// On the comms thread.
void Live::tell(const QByteArray& bytes)
{
    {
        const std::lock_guard<std::mutex> held(lock);
        news.push_back(bytes);
    }
    const char any = 0;
    static_cast<void>(!::write(wake_pipe[1], &any, 1)); // full: it is awake already
}

void Live::take_news()
{
    char bytes[64];
    while (::read(wake_pipe[0], bytes, sizeof bytes) > 0) {
        // Only the waking counts.
    }
    std::vector<QByteArray> taken;
    {
        const std::lock_guard<std::mutex> held(lock);
        taken.swap(news);
    }
    for (const QByteArray& piece : taken) {
        if (!piece.isEmpty())
            take(piece);
        else if (state() == State::receiving)
            lose();
    }
}

void Live::take(const QByteArray& bytes)
{
    set_state(State::receiving);
    for (Fix& one : stream->take(bytes.constData(), bytes.size())) {
        if (since_latest.isValid() && one.time_s == 0.0)
            began_s = latest_s + static_cast<double>(since_latest.elapsed() + 1) / 1000.0;
        one.time_s += began_s;
        latest_s = one.time_s;
        since_latest.start();
        emit fix(one);
    }
}

/// A receiver that was started anew may tell other times than before, so its sentences are another stream.
void Live::lose()
{
    stream = std::make_unique<Nmea_stream>([this](const QByteArray& bytes) { emit sentence(bytes); });
    if (state() == State::receiving)
        set_state(State::lost);
}
