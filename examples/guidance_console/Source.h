#pragma once

#include "examples/common/Guidance.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <optional>

/// The two ends of a line.
struct Line_ends {
    PointLLH a;
    PointLLH b;
};

/// Where fixes come from. Lives in the console's thread, and tells there of what comes.
class Source : public QObject {
    Q_OBJECT

public:
    enum class State {
        waiting,   ///< nothing came yet
        receiving, ///< the latest epoch is new
        lost,      ///< a connection that is being made anew
        finished   ///< a recording is at its end
    };

    virtual void start() = 0;

    /// Nothing comes any more, from within a fix's signal on.
    virtual void stop() = 0;

    /// "SIMULATION", "REPLAY" or "LIVE".
    virtual QString kind() const = 0;

    /// What stands beside the kind: a file, an address, a speed.
    virtual QString detail() const = 0;

    /// Whether fixes come from a receiver at this moment, so that silence means something is wrong.
    virtual bool is_live() const { return false; }

    /// Whether the vehicle can go where it is steered to. A recorded one went where it went.
    virtual bool can_steer() const { return true; }

    /// The time from fix to fix, where it is known beforehand.
    virtual std::optional<double> interval_s() const { return std::nullopt; }

    /// A line for who has set none. @param[out] reason  for the log
    virtual std::optional<Line_ends> own_line(std::string& reason);

    /// What the console makes of the fix that was just told of; a simulated vehicle goes by it.
    virtual void steered(const Epoch& epoch, bool engaged);

    /// Whether the (simulated) driver has the wheel, to turn at the end of the field.
    virtual bool driver_turns() const { return false; }

    State state() const { return current; }

signals:
    void fix(const Fix& fix);

    /// A sentence whose checksum is right, before the fix that may come of it.
    void sentence(const QByteArray& sentence);

    void state_changed();

protected:
    void set_state(State state);

private:
    State current = State::waiting;
};

/// A source that could give everything at once, and is held to the time that its data have.
class Paced_source : public Source {
    Q_OBJECT

public:
    static constexpr double AT_ONCE = 0.0; ///< a speed: as fast as possible

    /// @param speed  1 for real time, 10 for ten times as fast, or AT_ONCE
    explicit Paced_source(double speed);

    void start() override;
    void stop() override;

protected:
    /// The time of the next fix since the first; nothing at the end.
    virtual std::optional<double> next_s() const = 0;

    /// Tells of the next fix and what belongs to it.
    virtual void deliver() = 0;

    double speed() const { return times; }

private:
    void go_on();
    void schedule();

    double times;
    bool going = false;
    QElapsedTimer clock;
    QTimer timer;
};
