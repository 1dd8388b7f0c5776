#include "bench/Bare_signal.h"
#include "util/log/Log_item.h"
#include "util/log/Log_item_sender.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QSemaphore>
#include <QThread>
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <gnu/libc-version.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

Log_item make_item()
{
    static const Util::Log_item_source source("receiver", "position", 0x1A2B3C4DULL,
                                              Util::Log_item_source::Target_type(1));
    return {source,
            Util::Log_item_priority::Warning,
            false,
            2,
            "Differential corrections are 12 s old, accuracy falls back to 0.35 m",
            1482,
            nullptr};
}

std::string format_with_fmt(const Log_item& item)
{
    return fmt::format("{}:{}:{}:{:016X}:{}:{}", Util::string(item.priority()), item.code_source(),
                       item.source().functionality(), item.source().target(), item.line_number(),
                       item.message_utf8());
}

void text_ours(benchmark::State& state)
{
    const Log_item item = make_item();
    if (item.to_string() != format_with_fmt(item))
        state.SkipWithError("the two texts differ");
    for (auto _ : state)
        benchmark::DoNotOptimize(item.to_string());
    state.SetItemsProcessed(state.iterations());
}

void text_fmt(benchmark::State& state)
{
    const Log_item item = make_item();
    for (auto _ : state)
        benchmark::DoNotOptimize(format_with_fmt(item));
    state.SetItemsProcessed(state.iterations());
}

void direct_ours(benchmark::State& state)
{
    const Log_item item = make_item();
    Util::Log_item_sender sender;
    Receiver receiver;
    QObject::connect(&sender, &Util::Log_item_sender::logged, &receiver, &Receiver::receive);
    for (auto _ : state)
        sender.submit(item);
    state.SetItemsProcessed(receiver.received);
}

void direct_bare(benchmark::State& state)
{
    const Log_item item = make_item();
    Bare_signal bare;
    Receiver receiver;
    QObject::connect(&bare, &Bare_signal::logged, &receiver, &Receiver::receive);
    for (auto _ : state)
        emit bare.logged(item);
    state.SetItemsProcessed(receiver.received);
}

void submit_ours(Util::Log_item_sender& sender, const Log_item& item)
{
    sender.submit(item);
}

void submit_by_name(Bare_signal& bare, const Log_item& item)
{
    if (!QMetaObject::invokeMethod(&bare, "logged", Qt::QueuedConnection, Q_ARG(Log_item, item)))
        std::abort(); // it would be waited for without end
}

/// A sender and its receiver in a thread with an event loop of its own.
template <typename SENDER>
class Far_end {
public:
    Far_end()
    {
        QObject::connect(&sender, &SENDER::logged, &receiver, &Receiver::receive);
        sender.moveToThread(&thread);
        receiver.moveToThread(&thread);
        thread.start();
    }
    ~Far_end()
    {
        thread.quit();
        thread.wait();
    }
    void wait_for(int count) const
    {
        while (receiver.received.load(std::memory_order_acquire) < count)
            std::this_thread::yield();
    }

    SENDER sender;
    Receiver receiver;

private:
    QThread thread;
};

/// One item and the wait for it: what a single message costs, the other thread's waking up included.
template <typename SENDER>
void hop_one(benchmark::State& state, void (*submit)(SENDER&, const Log_item&))
{
    const Log_item item = make_item();
    Far_end<SENDER> far_end;
    int submitted = 0;
    for (auto _ : state) {
        submit(far_end.sender, item);
        far_end.wait_for(++submitted);
    }
    state.SetItemsProcessed(state.iterations());
}

/// Many items submitted while the receiving event loop is held, then let through at once: the work on both
/// sides with one waking up in 256, which is the operating system's and would drown it.
template <typename SENDER>
void hop_burst(benchmark::State& state, void (*submit)(SENDER&, const Log_item&), bool callers_share)
{
    constexpr int BURST = 256;
    using Clock = std::chrono::steady_clock;
    const Log_item item = make_item();
    Far_end<SENDER> far_end;
    QSemaphore held;
    QSemaphore gate;
    int submitted = 0;
    for (auto _ : state) {
        const auto hold = [&held, &gate] {
            held.release();
            gate.acquire();
        };
        QMetaObject::invokeMethod(&far_end.receiver, hold, Qt::QueuedConnection);
        held.acquire();
        const auto start = Clock::now();
        for (int i = 0; i < BURST; ++i)
            submit(far_end.sender, item);
        const auto all_submitted = Clock::now();
        gate.release();
        far_end.wait_for(submitted += BURST);
        const auto end = callers_share ? all_submitted : Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.SetItemsProcessed(submitted);
}

template <typename SENDER>
void register_hops(const std::string& who, void (*submit)(SENDER&, const Log_item&))
{
    benchmark::RegisterBenchmark(("hop between threads/" + who + "/one item, waking up included").c_str(),
                                 [submit](benchmark::State& state) { hop_one<SENDER>(state, submit); })
        ->UseRealTime();
    benchmark::RegisterBenchmark(
        ("hop between threads/" + who + "/an item of 256, whole").c_str(),
        [submit](benchmark::State& state) { hop_burst<SENDER>(state, submit, false); })
        ->UseManualTime();
    benchmark::RegisterBenchmark(
        ("hop between threads/" + who + "/an item of 256, caller's share").c_str(),
        [submit](benchmark::State& state) { hop_burst<SENDER>(state, submit, true); })
        ->UseManualTime();
}

/// Keeps a second thread alive: a console has several, and while a process has only one, shared_ptr counts
/// without atomic instructions, which would flatter every copy of an item.
class Second_thread {
public:
    Second_thread() { thread.start(); }
    ~Second_thread()
    {
        thread.quit();
        thread.wait();
    }

private:
    QThread thread;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("Qt", qVersion());
    benchmark::AddCustomContext(
        "fmt", fmt::format("{}.{}.{}", FMT_VERSION / 10000, FMT_VERSION / 100 % 100, FMT_VERSION % 100));
    benchmark::AddCustomContext("C library", gnu_get_libc_version());

    const Second_thread second_thread;
    benchmark::RegisterBenchmark("Log_item to_string/ours/a warning", text_ours);
    benchmark::RegisterBenchmark("Log_item to_string/fmt format/a warning", text_fmt);
    benchmark::RegisterBenchmark("direct submit/ours/one receiver", direct_ours);
    benchmark::RegisterBenchmark("direct submit/bare Qt signal/one receiver", direct_bare);
    register_hops("ours", submit_ours);
    register_hops("invokeMethod by name", submit_by_name);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
