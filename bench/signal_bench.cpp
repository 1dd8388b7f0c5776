#include "bench/Named_slots.h"
#include "util/qt/Signal_sender.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QThread>
#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Receivers = std::vector<Named_slots>;

constexpr int BURST = 256; // calls timed at once

struct Event {
    const char *signal, *slot;
};
constexpr std::array<Event, 8> EVENTS{{{SIGNAL(position_changed(int)), SLOT(on_position_changed(int))},
                                       {SIGNAL(speed_changed(int)), SLOT(on_speed_changed(int))},
                                       {SIGNAL(heading_changed(int)), SLOT(on_heading_changed(int))},
                                       {SIGNAL(height_changed(int)), SLOT(on_height_changed(int))},
                                       {SIGNAL(quality_changed(int)), SLOT(on_quality_changed(int))},
                                       {SIGNAL(satellites_changed(int)), SLOT(on_satellites_changed(int))},
                                       {SIGNAL(corrections_changed(int)), SLOT(on_corrections_changed(int))},
                                       {SIGNAL(line_changed(int)), SLOT(on_line_changed(int))}}};

// ---- emitting: one function a way, which calls a slot of every receiver, later

/// One number to a slot.
struct Number {
    static constexpr const char* SLOT_NAME = "on_height_changed";
    static constexpr const char* SLOT_SIGNATURE = "on_height_changed(int)";
    static constexpr const char* CONNECTED_SLOT = SLOT(on_height_changed(int));
    static constexpr const char* CONNECTED_SIGNAL = SIGNAL(height_changed(int));
    template <typename FUNCTION>
    static bool with_arguments(FUNCTION function)
    {
        return function(Q_ARG(int, 12));
    }
};

/// A number and a text.
struct Message {
    static constexpr const char* SLOT_NAME = "on_message";
    static constexpr const char* SLOT_SIGNATURE = "on_message(int,QString)";
    static constexpr const char* CONNECTED_SLOT = SLOT(on_message(int, QString));
    static constexpr const char* CONNECTED_SIGNAL = SIGNAL(height_changed(int, QString));
    template <typename FUNCTION>
    static bool with_arguments(FUNCTION function)
    {
        static const QString text = "Differential corrections are 12 s old";
        return function(Q_ARG(int, 12), Q_ARG(QString, text));
    }
};

template <typename EVENT>
class Ours {
public:
    explicit Ours(Receivers& receivers)
    {
        // What else a console has connected.
        for (const char* const prefix : {"display", "receiver", "steering"})
            for (const Event& event : EVENTS)
                sender.connect(prefix, event.signal, &others, event.slot);
        sender.disconnect("receiver", EVENT::CONNECTED_SIGNAL, nullptr, nullptr);
        for (Named_slots& receiver : receivers)
            sender.connect("receiver", EVENT::CONNECTED_SIGNAL, &receiver, EVENT::CONNECTED_SLOT);
    }
    bool call() const
    {
        return EVENT::with_arguments([this](auto... arguments) {
            return sender.emit_signal("receiver", "height_changed", arguments...);
        });
    }

private:
    Named_slots others;
    Util::Signal_sender sender;
};

template <typename EVENT>
class By_name {
public:
    explicit By_name(Receivers& them) : receivers(them) {}
    bool call() const
    {
        bool done = true;
        for (Named_slots& receiver : receivers)
            done = EVENT::with_arguments([&receiver](auto... arguments) {
                       return QMetaObject::invokeMethod(&receiver, EVENT::SLOT_NAME, Qt::QueuedConnection,
                                                        arguments...);
                   }) &&
                   done;
        return done;
    }

private:
    Receivers& receivers;
};

template <typename EVENT>
class Bare {
public:
    explicit Bare(Receivers& them) : receivers(them) {}
    bool call() const
    {
        bool done = true;
        for (Named_slots& receiver : receivers)
            done = EVENT::with_arguments([this, &receiver](auto... arguments) {
                       return method.invoke(&receiver, Qt::QueuedConnection, arguments...);
                   }) &&
                   done;
        return done;
    }

private:
    Receivers& receivers;
    const QMetaMethod method = Named_slots::staticMetaObject.method(
        Named_slots::staticMetaObject.indexOfMethod(EVENT::SLOT_SIGNATURE));
};

/// The caller's share of queued calls: the receivers' turn comes after the clock is stopped. Waking up an
/// event loop is most of it, so there is a measurement without: there the receivers' thread has none.
template <typename WAY>
void emission(benchmark::State& state, std::size_t targets, bool woken_up)
{
    Receivers receivers(targets);
    const WAY way(receivers);
    bool done = way.call();
    QThread no_event_loop;
    for (Named_slots& receiver : receivers) {
        QCoreApplication::sendPostedEvents(&receiver);
        done = done && receiver.received == 1;
        if (!woken_up)
            receiver.moveToThread(&no_event_loop);
    }
    for (auto _ : state) {
        const auto start = Clock::now();
        for (std::size_t i = 0; i < BURST / targets; ++i)
            done = way.call() && done;
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        for (Named_slots& receiver : receivers)
            QCoreApplication::removePostedEvents(&receiver);
    }
    state.SetItemsProcessed(state.iterations() * BURST);
    if (!done)
        state.SkipWithError("a call failed");
}

template <typename WAY>
void register_emission(const std::string& who, const std::string& inputs)
{
    struct Input {
        const char* text;
        std::size_t targets;
        bool woken_up;
    };
    for (const Input& each : {Input{"one target", 1, false}, Input{"8 targets", 8, false},
                              Input{"one target, waking up included", 1, true}})
        benchmark::RegisterBenchmark(
            ("emit_signal/" + who + "/" + inputs + " to " + each.text).c_str(),
            [each](benchmark::State& state) { emission<WAY>(state, each.targets, each.woken_up); })
            ->UseManualTime();
}

// ---- connecting: receivers to one signal after the other, each with a slot of its own

constexpr std::size_t RECEIVERS = BURST / EVENTS.size();

void connect_ours(benchmark::State& state)
{
    Receivers receivers(RECEIVERS);
    bool done = true;
    for (auto _ : state) {
        Util::Signal_sender sender;
        const auto start = Clock::now();
        for (const Named_slots& receiver : receivers)
            for (const Event& event : EVENTS)
                done = sender.connect("receiver", event.signal, &receiver, event.slot) && done;
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * BURST);
    if (!done)
        state.SkipWithError("a connection failed");
}

void connect_by_name(benchmark::State& state)
{
    Receivers receivers(RECEIVERS);
    bool done = true;
    for (auto _ : state) {
        Named_signals sender;
        const auto start = Clock::now();
        for (const Named_slots& receiver : receivers)
            for (const Event& event : EVENTS)
                done = QObject::connect(&sender, event.signal, &receiver, event.slot) && done;
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * BURST);
    if (!done)
        state.SkipWithError("a connection failed");
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("Qt", qVersion());

    register_emission<Ours<Number>>("ours", "a number");
    register_emission<By_name<Number>>("invokeMethod by name", "a number");
    register_emission<Bare<Number>>("bare QMetaMethod invoke", "a number");
    register_emission<Ours<Message>>("ours", "a number and a text");
    register_emission<By_name<Message>>("invokeMethod by name", "a number and a text");
    register_emission<Bare<Message>>("bare QMetaMethod invoke", "a number and a text");
    benchmark::RegisterBenchmark("connect/ours/a panel of slots", connect_ours)->UseManualTime();
    benchmark::RegisterBenchmark("connect/QObject connect by name/a panel of slots", connect_by_name)
        ->UseManualTime();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
