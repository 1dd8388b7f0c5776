#pragma once

#include "Source.h"

#include <QByteArray>
#include <QString>

#include <cstdio>
#include <functional>
#include <optional>

/// What the console remembers from one run to the next.
struct Settings {
    std::optional<Line_ends> line;
    double nudge = 0.0; ///< of the line, metres to the right
    Gains gains;
};

/// The console's records in the file store: the controller's trace and the log in the two slots, and settings
/// that come back. The store is the process's own: one Store at a time.
///
/// Without a store, or with one that cannot be written, everything here goes on and keeps nothing.
class Store {
public:
    static constexpr const char* TRACE_FILE = "pid_trace.csv";
    static constexpr const char* LOG_FILE = "console_log.txt";
    static constexpr const char* SETTINGS_FILE = "settings.txt";

    /// @param folder  empty: the platform's own
    explicit Store(const QString& folder);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// What is wrong with the store; empty when nothing is.
    const QString& problem() const { return trouble; }

    /// Called when that changes. May be empty.
    void on_problem(std::function<void()> listener) { problem_listener = std::move(listener); }

    QString folder() const;

    /// Takes what is written to slot 0, a line at a time. Null when the system has no memory for it.
    FILE* trace() { return trace_stream; }

    /// One line to slot 1.
    void log(const std::string& line);

    /// The settings of the last run; those as built where none were kept.
    Settings load();

    /// Keeps settings, so that a run that is cut short at any moment leaves these or the ones before.
    void save(const Settings& settings);

    /// A whole file, in place of one of that name. @return false when it could not be written
    bool put(const char* name, const QByteArray& content);

private:
    struct Slot {
        int number;
        const char* file;
        std::int64_t size = 0;
    };

    static ssize_t write_trace(void* store, const char* bytes, std::size_t size);
    void open(Slot& slot);
    void write(Slot& slot, const char* bytes, std::size_t size);
    void say(const QString& what);

    bool mounted = false;
    QString trouble;
    std::function<void()> problem_listener;
    FILE* trace_stream = nullptr;
    Slot trace_slot{0, TRACE_FILE};
    Slot log_slot{1, LOG_FILE};
};
