#pragma once

#include "util/log/Log_item.h"

#include <QObject>
#include <benchmark/benchmark.h>

#include <atomic>

using Util::Log_item; // Qt compares the spelling, and this is the one that the type is registered under

/// The plain Qt way: a signal and nothing else.
class Bare_signal : public QObject {
    Q_OBJECT
signals:
    void logged(Log_item item);
};

class Receiver : public QObject {
    Q_OBJECT
public:
    std::atomic<int> received{0};
public slots:
    void receive(Log_item item)
    {
        benchmark::DoNotOptimize(item);
        received.fetch_add(1, std::memory_order_release);
    }
};
