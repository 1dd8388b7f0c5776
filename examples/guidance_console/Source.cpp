#include "Source.h"

#include <algorithm>

namespace {

// At full speed the event loop gets its turn this often: buttons work and the screen moves.
constexpr qint64 TURN_MS = 20;

} // namespace

std::optional<Line_ends> Source::own_line(std::string& /*reason*/)
{
    return std::nullopt;
}

void Source::steered(const Epoch& /*epoch*/, bool /*engaged*/)
{
}

void Source::set_state(State state)
{
    if (state == current)
        return;
    current = state;
    emit state_changed();
}

Paced_source::Paced_source(double speed) : times(speed)
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &Paced_source::go_on);
}

void Paced_source::start()
{
    going = true;
    clock.start();
    timer.start(0);
}

void Paced_source::stop()
{
    going = false;
    timer.stop();
}

void Paced_source::go_on()
{
    const qint64 turn_began = clock.elapsed();
    while (const std::optional<double> next = next_s()) {
        const double now_s = static_cast<double>(clock.elapsed()) / 1000.0;
        if (times > AT_ONCE && *next > now_s * times)
            break;
        set_state(State::receiving);
        deliver();
        if (!going || clock.elapsed() - turn_began >= TURN_MS)
            break;
    }
    if (going)
        schedule();
}

void Paced_source::schedule()
{
    const std::optional<double> next = next_s();
    if (!next) {
        set_state(State::finished);
        return;
    }
    const double wait_ms =
        times > AT_ONCE ? 1000.0 * *next / times - static_cast<double>(clock.elapsed()) : 0.0;
    timer.start(std::max(0, static_cast<int>(wait_ms)));
}
