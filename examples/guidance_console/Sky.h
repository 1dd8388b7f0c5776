#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <map>
#include <vector>

/// Which service a satellite belongs to, by the lists in util/GPS/Satellites.h.
enum class Constellation { gps, glonass, waas, egnos, msas, ausbas, omnistar, other };
constexpr std::size_t CONSTELLATIONS = 8;

QString name(Constellation constellation);

/// The constellation of an identifier as those lists number it.
Constellation constellation_of(int id);

/// What the lists call a satellite that an NMEA sentence numbers.
///
/// @param talker  the two letters behind '$'
/// @return the lists' identifier; 0 for a satellite of a constellation that they do not have
int list_id(const QByteArray& talker, int nmea_number);

struct Satellite {
    int id = 0;     ///< as the lists number it, or 0
    int number = 0; ///< as the receiver does
    Constellation constellation = Constellation::other;
    int elevation_deg = 0;
    int azimuth_deg = 0;
    int signal_db = 0; ///< dB Hz; 0 while not tracked
    bool used = false;
};

/// The satellites in view, from GSV and GSA sentences.
class Sky {
public:
    /// Sentences of other kinds change nothing.
    ///
    /// @return whether a picture of the sky became whole
    bool take(const QByteArray& sentence);

    /// Forgets all, when the receiver is silent.
    void clear();

    const std::vector<Satellite>& satellites() const { return shown; }

    struct Count {
        int in_view = 0;
        int used = 0;
    };
    std::array<Count, CONSTELLATIONS> counts() const;
    Count total() const;

private:
    bool take_view(const QByteArray& talker, const QList<QByteArray>& fields);
    void take_used(const QByteArray& talker, const QList<QByteArray>& fields);
    void show();

    std::map<QByteArray, std::vector<Satellite>> growing; ///< by talker, while its sentences come
    std::map<QByteArray, std::vector<Satellite>> whole;
    std::vector<int> used;      ///< the numbers in the latest GSA sentences
    bool used_complete = false; ///< a GSV came since: the next GSA begins anew
    std::vector<Satellite> shown;
};
