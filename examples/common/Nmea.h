#pragma once

#include "examples/common/Fix.h"

#include <QByteArray>
#include <QGeoPositionInfo>
#include <QNmeaPositionInfoSource>
#include <QTime>

#include <functional>
#include <optional>
#include <vector>

/// The sentence in a line, from '$' on: loggers put times before it. Empty when there is none.
QByteArray nmea_sentence_in(const QByteArray& line);

/// Whether a sentence ends in '*' and two hexadecimal digits.
bool nmea_is_whole(const QByteArray& sentence);

bool nmea_checksum_right(const QByteArray& sentence);

/// "GGA" of "$GPGGA,...", whoever talks.
QByteArray nmea_kind(const QByteArray& sentence);

/// Puts fixes, which know the time of day only, in a row.
class Epochs {
public:
    /// @return the fix with its time, or nothing when it is of an epoch that was there before
    std::optional<Fix> next(const QTime& time_of_day, const PointLLH& position, Quality quality);

private:
    bool started = false;
    double day_s = 0.0;
    double start_s = 0.0;
    double last_s = 0.0;
};

struct Nmea_position {
    QTime time_of_day;
    PointLLH place;
    Quality quality = Quality::plain;
};

/// Qt's parser for one sentence; its timers and its device stay unused.
class Nmea_parser : private QNmeaPositionInfoSource {
public:
    Nmea_parser();

    /// @return nothing when the sentence says that it holds no position, or cannot be read
    std::optional<Nmea_position> position(const QByteArray& sentence);
};

/// Fixes out of a live NMEA stream, in pieces of any size. Positions come from GGA once there has been one,
/// until then from RMC.
class Nmea_stream {
public:
    using Listener = std::function<void(const QByteArray& sentence)>;

    /// @param on_sentence  told of every sentence whose checksum is right; may be empty
    explicit Nmea_stream(Listener on_sentence = {});

    /// @return the fixes that became whole with these bytes
    std::vector<Fix> take(const char* data, int size);

    int sentences = 0;   ///< whose checksum is right
    int damaged = 0;     ///< sentences whose checksum is wrong or missing, and lines without end
    int without_fix = 0; ///< position sentences that say that they hold none

private:
    std::optional<Fix> line(const QByteArray& line);

    Listener listener;
    Nmea_parser parser;
    Epochs epochs;
    QByteArray pending; ///< the line that is not whole yet
    bool gga_seen = false;
};
