#include "examples/common/Nmea.h"

#include <utility>

namespace {

constexpr double DAY_S = 86400.0;
constexpr int LONGEST_LINE =
    4096; // a receiver's own sentences included; without an end by then it is no line

Quality gga_quality(int number)
{
    switch (number) {
    case 2:
        return Quality::differential;
    case 4:
        return Quality::rtk_fixed;
    case 5:
        return Quality::rtk_float;
    default:
        return Quality::plain;
    }
}

} // namespace

QByteArray nmea_sentence_in(const QByteArray& line)
{
    const int start = line.lastIndexOf('$');
    return start < 0 || line.startsWith('#') ? QByteArray() : line.mid(start).trimmed();
}

bool nmea_is_whole(const QByteArray& sentence)
{
    bool is_number = false;
    sentence.right(2).toUInt(&is_number, 16);
    return is_number && sentence.size() > 3 && sentence.at(sentence.size() - 3) == '*';
}

bool nmea_checksum_right(const QByteArray& sentence)
{
    if (!nmea_is_whole(sentence))
        return false;
    unsigned sum = 0;
    for (int i = 1; i < sentence.size() - 3; ++i)
        sum ^= static_cast<unsigned char>(sentence.at(i));
    return sum == sentence.right(2).toUInt(nullptr, 16);
}

QByteArray nmea_kind(const QByteArray& sentence)
{
    return sentence.mid(3, 3);
}

std::optional<Fix> Epochs::next(const QTime& time_of_day, const PointLLH& position, Quality quality)
{
    double time_s = day_s + time_of_day.msecsSinceStartOfDay() / 1000.0;
    if (!started) {
        start_s = time_s;
    } else {
        if (time_s < last_s - DAY_S / 2) { // midnight
            day_s += DAY_S;
            time_s += DAY_S;
        }
        if (time_s <= last_s)
            return std::nullopt;
    }
    started = true;
    last_s = time_s;
    Fix fix;
    fix.time_s = time_s - start_s;
    fix.position = position;
    fix.quality = quality;
    return fix;
}

Nmea_parser::Nmea_parser() : QNmeaPositionInfoSource(SimulationMode)
{
}

std::optional<Nmea_position> Nmea_parser::position(const QByteArray& sentence)
{
    QGeoPositionInfo info;
    bool has_fix = false;
    const bool parsed = parsePosInfoFromNmeaData(sentence.constData(), sentence.size(), &info, &has_fix);
    const QGeoCoordinate where = info.coordinate();
    if (!parsed || !has_fix || !where.isValid() || !info.timestamp().time().isValid())
        return std::nullopt;

    Nmea_position position;
    position.time_of_day = info.timestamp().time();
    position.place =
        PointLLH(where.latitude() * RADIANS_PER_DEGREE, where.longitude() * RADIANS_PER_DEGREE, 0.0);
    if (nmea_kind(sentence) == "GGA") {
        // GGA's height is above the geoid and the field after next tells the geoid's own. A receiver that
        // leaves it empty is some 30 m wrong here, which is 5 millionths of any distance.
        const QList<QByteArray> fields = sentence.split(',');
        position.quality = gga_quality(fields.value(6).toInt());
        position.place.height = fields.value(9).toDouble() + fields.value(11).toDouble();
    }
    return position;
}

Nmea_stream::Nmea_stream(Listener on_sentence) : listener(std::move(on_sentence))
{
}

std::vector<Fix> Nmea_stream::take(const char* data, int size)
{
    std::vector<Fix> fixes;
    pending.append(data, size);
    int start = 0;
    for (int end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n', start)) {
        if (const auto fix = line(pending.mid(start, end - start)))
            fixes.push_back(*fix);
        start = end + 1;
    }
    pending.remove(0, start);
    if (pending.size() > LONGEST_LINE) {
        pending.clear();
        ++damaged;
    }
    return fixes;
}

std::optional<Fix> Nmea_stream::line(const QByteArray& line)
{
    const QByteArray sentence = nmea_sentence_in(line);
    if (sentence.isEmpty())
        return std::nullopt;
    if (!nmea_checksum_right(sentence)) {
        ++damaged;
        return std::nullopt;
    }
    ++sentences;
    if (listener)
        listener(sentence);
    const QByteArray kind = nmea_kind(sentence);
    gga_seen = gga_seen || kind == "GGA";
    if (kind != "GGA" && (kind != "RMC" || gga_seen))
        return std::nullopt;
    const std::optional<Nmea_position> position = parser.position(sentence);
    if (!position) {
        ++without_fix;
        return std::nullopt;
    }
    return epochs.next(position->time_of_day, position->place, position->quality);
}
