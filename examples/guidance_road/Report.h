#pragma once

#include "examples/common/Guidance.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A whole drive, as it is told afterwards.
struct Drive {
    std::string title;
    bool simulated = false;
    std::string rejected = "0"; ///< how many fixes and sentences of a recording were not used, and why
    PointLLH a;
    PointLLH b;
    std::vector<Epoch> epochs;
    std::vector<std::string> log; ///< each item's own text form
};

/// What a drive comes to. Distances in metres.
struct Figures {
    double distance = 0.0;           ///< driven
    std::optional<double> to_line_s; ///< when the simulated vehicle came within 10 cm and stayed there
    std::string window;              ///< which fixes the two errors are taken over
    std::size_t counted = 0;         ///< how many these are; without any, the errors are 0
    double rms = 0.0;                ///< of the distance off the line
    double percentile95 = 0.0;       ///< 95 % of the distances off the line are not larger
};

/// Marks the epochs that count (Epoch::counted) and sums up.
Figures sum_up(Drive& drive);

std::string summary(const Drive& drive, const Figures& figures);

/// Writes to standard output at once.
///
/// @throw std::runtime_error  when that fails
void put(const std::string& shown);

/// What shows a drive while it goes on: two lines that are redrawn on a terminal,
/// else a line a second of data.
class Progress {
public:
    explicit Progress(double length_s);

    void note(const std::string& log_text) { last_log = log_text; }
    void show(const Epoch& epoch);
    void finish() const;

private:
    double length_s;
    double next_s = 0.0;
    bool terminal;
    bool drawn = false; ///< there is something to draw over
    std::string last_log;
};

/// A C stream that keeps in memory what is written to it.
class Memory_stream {
public:
    Memory_stream();
    Memory_stream(const Memory_stream&) = delete;
    Memory_stream& operator=(const Memory_stream&) = delete;
    ~Memory_stream();

    FILE* get() { return stream; }
    QByteArray content();

private:
    char* buffer = nullptr;
    std::size_t size = 0;
    FILE* stream;
};

/// Makes a folder and sees whether files can be made in it, before any time goes into what to write.
///
/// @throw std::runtime_error  says what is in the way
void prepare_folder(const QString& folder);

/// Writes all files or none.
///
/// @throw std::runtime_error  as prepare_folder()
void write_files(const QString& folder, const std::vector<std::pair<QString, QByteArray>>& files);
