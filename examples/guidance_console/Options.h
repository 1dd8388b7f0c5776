#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

/// What the command line asks for.
struct Options {
    bool help = false;
    QString replay; ///< a recording; empty: none
    QString host;   ///< of a live receiver; empty: none
    int port = 0;
    double speed = 1.0; ///< as Paced_source takes it
    std::uint32_t seed = 1;
    bool headless = false;
    bool night = false;
    bool stopped = false;
    QString snapshot;              ///< a picture to write; empty: none
    double at_s = 20.0;            ///< when to draw it
    std::optional<double> seconds; ///< how long to run
    QString store;                 ///< a folder; empty: the platform's own
    std::optional<int> serve;      ///< a port
    int page = 0;

    static const char* usage();
};

/// @throw std::runtime_error  says what is wrong with the arguments
Options read_options(const QStringList& arguments);
