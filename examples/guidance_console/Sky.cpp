#include "Sky.h"

#include "util/GPS/Satellites.h"

#include <QList>

#include <algorithm>

namespace {

constexpr int SBAS_FIRST = 33; // NMEA 0183 moves the PRNs 120 to 151 down to 33 to 64
constexpr int SBAS_LAST = 64;
constexpr int SBAS_TO_PRN = 87;
constexpr int GLONASS_FIRST = 65; // and the GLONASS slots from 1 up to here
constexpr int GLONASS_LAST = 96;
constexpr int GPS_LAST = 32;

struct Service {
    const char* name;
    bool (*has)(int id);
};

// In the order of Constellation.
const std::array<Service, CONSTELLATIONS> SERVICES = {{
    {"GPS", [](int id) { return Satellites::GPS_SATS.is_sat(id); }},
    {"GLONASS", [](int id) { return Satellites::GLONASS_SATS.is_sat(id); }},
    {"WAAS", [](int id) { return Satellites::WAAS_SATS.is_sat(id); }},
    {"EGNOS", [](int id) { return Satellites::EGNOS_SATS.is_sat(id); }},
    {"MSAS", [](int id) { return Satellites::MSAS_SATS.is_sat(id); }},
    {"AUSBAS", [](int id) { return Satellites::AUSBAS_SATS.is_sat(id); }},
    {"OmniSTAR", [](int id) { return Satellites::OMNISTAR_SATS.is_sat(id); }},
    {"other", [](int) { return true; }},
}};

int glonass_id(int slot)
{
    return Satellites::GLONASS_SATS.min_sat() + slot - 1;
}

} // namespace

QString name(Constellation constellation)
{
    return SERVICES.at(static_cast<std::size_t>(constellation)).name;
}

Constellation constellation_of(int id)
{
    const auto* const found = std::find_if(SERVICES.begin(), SERVICES.end(),
                                           [id](const Service& service) { return service.has(id); });
    return static_cast<Constellation>(found - SERVICES.begin());
}

int list_id(const QByteArray& talker, int number)
{
    if (talker == "GL" && number >= 1 && number <= GPS_LAST) // receivers that do not move the slots
        return glonass_id(number);
    if (number >= GLONASS_FIRST && number <= GLONASS_LAST && talker != "GA" && talker != "GB")
        return glonass_id(number - GLONASS_FIRST + 1);
    if (talker != "GP" && talker != "GN")
        return 0;
    if (number >= SBAS_FIRST && number <= SBAS_LAST)
        return number + SBAS_TO_PRN;
    return number;
}

bool Sky::take(const QByteArray& sentence)
{
    const QList<QByteArray> fields = sentence.left(sentence.indexOf('*')).split(',');
    const QByteArray talker = fields[0].mid(1, 2);
    const QByteArray kind = fields[0].mid(3);
    if (kind == "GSA")
        take_used(talker, fields);
    return kind == "GSV" && take_view(talker, fields);
}

void Sky::clear()
{
    *this = Sky();
}

/// $--GSV, sentences in all, this one, satellites in all, then number, elevation, azimuth, signal of each.
bool Sky::take_view(const QByteArray& talker, const QList<QByteArray>& fields)
{
    used_complete = true;
    if (fields.size() < 4)
        return false;
    const int last = fields[1].toInt();
    const int current = fields[2].toInt();
    std::vector<Satellite>& satellites = growing[talker];
    if (current == 1)
        satellites.clear();
    for (int i = 4; i + 3 < fields.size(); i += 4) {
        Satellite satellite;
        satellite.number = fields[i].toInt();
        if (satellite.number <= 0)
            continue;
        satellite.id = list_id(talker, satellite.number);
        satellite.constellation = constellation_of(satellite.id);
        satellite.elevation_deg = fields[i + 1].toInt();
        satellite.azimuth_deg = fields[i + 2].toInt();
        satellite.signal_db = fields[i + 3].toInt();
        satellites.push_back(satellite);
    }
    if (current != last)
        return false;
    whole[talker] = satellites;
    show();
    return true;
}

/// $--GSA, mode, dimensions, twelve numbers.
void Sky::take_used(const QByteArray& talker, const QList<QByteArray>& fields)
{
    if (used_complete)
        used.clear();
    used_complete = false;
    for (int i = 3; i < 15 && i < fields.size(); ++i)
        if (const int number = fields[i].toInt(); number > 0)
            used.push_back(list_id(talker == "GN" ? QByteArray("GP") : talker, number));
    show();
}

void Sky::show()
{
    shown.clear();
    for (const auto& [talker, satellites] : whole)
        shown.insert(shown.end(), satellites.begin(), satellites.end());
    for (Satellite& satellite : shown)
        satellite.used = satellite.id != 0 && std::find(used.begin(), used.end(), satellite.id) != used.end();
    std::sort(shown.begin(), shown.end(), [](const Satellite& left, const Satellite& right) {
        return left.constellation != right.constellation ? left.constellation < right.constellation
                                                         : left.number < right.number;
    });
}

std::array<Sky::Count, CONSTELLATIONS> Sky::counts() const
{
    std::array<Count, CONSTELLATIONS> all{};
    for (const Satellite& satellite : shown) {
        Count& count = all.at(static_cast<std::size_t>(satellite.constellation));
        ++count.in_view;
        count.used += satellite.used ? 1 : 0;
    }
    return all;
}

Sky::Count Sky::total() const
{
    Count total;
    for (const Count& count : counts()) {
        total.in_view += count.in_view;
        total.used += count.used;
    }
    return total;
}
