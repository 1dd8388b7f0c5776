#include "Recording.h"

#include <QFile>
#include <QFileInfo>
#include <QGeoPositionInfo>
#include <QNmeaPositionInfoSource>
#include <QTime>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

constexpr double DAY_S = 86400.0;

[[noreturn]] void fail(const QString& path, const QString& what)
{
    throw std::runtime_error(QStringLiteral("'%1' %2").arg(path, what).toStdString());
}

QByteArray read_file(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        fail(path, "does not exist: give the path of a recording after --replay.");
    if (!info.isFile())
        fail(path, "is not a file: give the path of a recording after --replay.");
    QFile file(path);
    QByteArray content;
    if (file.open(QIODevice::ReadOnly))
        content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        fail(path, QStringLiteral("cannot be read (%1): check its permissions.").arg(file.errorString()));
    return content;
}

/// A recorded line may have picked up a few bad bytes; binary receiver messages are full of them.
bool is_binary(const QByteArray& content)
{
    const auto odd = std::count_if(content.begin(), content.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x7F || (byte < 0x20 && c != '\t' && c != '\r' && c != '\n');
    });
    return odd * 10 > content.size();
}

/// Puts fixes, which know the time of day only, in a row.
class Epochs {
public:
    explicit Epochs(Recording& target) : recording(target) {}

    void add(const QTime& time_of_day, const PointLLH& position, Quality quality)
    {
        double time_s = day_s + time_of_day.msecsSinceStartOfDay() / 1000.0;
        if (recording.fixes.empty())
            start_s = last_s = time_s;
        else if (time_s < last_s - DAY_S / 2) { // midnight
            day_s += DAY_S;
            time_s += DAY_S;
        }
        if (!recording.fixes.empty() && time_s <= last_s) {
            ++recording.repeated;
            return;
        }
        last_s = time_s;
        recording.fixes.push_back({time_s - start_s, position, quality});
    }

private:
    Recording& recording;
    double day_s = 0.0;
    double start_s = 0.0;
    double last_s = 0.0;
};

/// Qt's parser for one sentence; its timers and its device stay unused.
class Parser : public QNmeaPositionInfoSource {
public:
    Parser() : QNmeaPositionInfoSource(SimulationMode) {}

    bool parse(const QByteArray& sentence, QGeoPositionInfo& info, bool& has_fix)
    {
        return parsePosInfoFromNmeaData(sentence.constData(), sentence.size(), &info, &has_fix);
    }
};

/// The sentence in a line, from '$' on: loggers put times before it. Empty when there is none.
QByteArray sentence_in(const QByteArray& line)
{
    const int start = line.lastIndexOf('$');
    return start < 0 || line.startsWith('#') ? QByteArray() : line.mid(start).trimmed();
}

/// Whether a sentence ends in '*' and two hexadecimal digits.
bool is_whole(const QByteArray& sentence)
{
    bool is_number = false;
    sentence.right(2).toUInt(&is_number, 16);
    return is_number && sentence.size() > 3 && sentence.at(sentence.size() - 3) == '*';
}

bool checksum_right(const QByteArray& sentence)
{
    if (!is_whole(sentence))
        return false;
    unsigned sum = 0;
    for (int i = 1; i < sentence.size() - 3; ++i)
        sum ^= static_cast<unsigned char>(sentence.at(i));
    return sum == sentence.right(2).toUInt(nullptr, 16);
}

/// "GGA" of "$GPGGA,...", whoever talks.
QByteArray kind(const QByteArray& sentence)
{
    return sentence.mid(3, 3);
}

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

Quality pos_quality(int number)
{
    switch (number) {
    case 1:
        return Quality::rtk_fixed;
    case 2:
        return Quality::rtk_float;
    case 3:
    case 4:
        return Quality::differential;
    default:
        return Quality::plain;
    }
}

Recording read_positions(const std::vector<QByteArray>& sentences)
{
    Recording recording;
    Epochs epochs(recording);
    Parser parser;
    for (const QByteArray& sentence : sentences) {
        QGeoPositionInfo info;
        bool has_fix = false;
        const bool parsed = parser.parse(sentence, info, has_fix);
        const QGeoCoordinate place = info.coordinate();
        if (!parsed || !has_fix || !place.isValid() || !info.timestamp().time().isValid()) {
            ++recording.without_fix;
            continue;
        }
        PointLLH position(place.latitude() * RADIANS_PER_DEGREE, place.longitude() * RADIANS_PER_DEGREE, 0.0);
        Quality quality = Quality::plain;
        if (kind(sentence) == "GGA") {
            // GGA's height is above the geoid and the field after next tells the geoid's own. A receiver that
            // leaves it empty is some 30 m wrong here, which is 5 millionths of any distance.
            const QList<QByteArray> fields = sentence.split(',');
            quality = gga_quality(fields.value(6).toInt());
            position.height = fields.value(9).toDouble() + fields.value(11).toDouble();
        }
        epochs.add(info.timestamp().time(), position, quality);
    }
    return recording;
}

Recording read_nmea(const QString& path, const QByteArray& content)
{
    std::vector<QByteArray> sentences;
    int damaged = 0;
    QByteArray last_line;
    for (const QByteArray& line : content.split('\n')) {
        if (line.trimmed().isEmpty())
            continue;
        last_line = line;
        const QByteArray sentence = sentence_in(line);
        if (checksum_right(sentence))
            sentences.push_back(sentence);
        else if (!sentence.isEmpty())
            ++damaged;
    }
    // A whole checksum proves that only the line's end is missing.
    const QByteArray last = sentence_in(last_line);
    if (last.isEmpty() ? !sentences.empty() && !content.endsWith('\n') : !is_whole(last))
        fail(path, "is cut off within its last line: copy the recording again, whole, or delete that line.");

    const auto is_gga = [](const QByteArray& sentence) { return kind(sentence) == "GGA"; };
    const QByteArray wanted = std::any_of(sentences.begin(), sentences.end(), is_gga) ? "GGA" : "RMC";
    sentences.erase(
        std::remove_if(sentences.begin(), sentences.end(),
                       [&wanted](const QByteArray& sentence) { return kind(sentence) != wanted; }),
        sentences.end());
    Recording recording = read_positions(sentences);
    recording.damaged = damaged;
    return recording;
}

/// Date, time, latitude and longitude in degrees, height above the ellipsoid, quality, and more.
Recording read_pos(const QString& path, const QByteArray& content)
{
    if (!content.endsWith('\n'))
        fail(path, "is cut off within its last line: copy the recording again, whole, or delete that line.");
    Recording recording;
    Epochs epochs(recording);
    for (const QByteArray& line : content.split('\n')) {
        if (line.startsWith('%') || line.trimmed().isEmpty())
            continue;
        const QList<QByteArray> cells = line.simplified().split(' ');
        const QTime time = QTime::fromString(QString::fromLatin1(cells.value(1)), "HH:mm:ss.zzz");
        std::array<double, 4> numbers{}; // latitude, longitude, height, quality
        bool all_numbers = time.isValid();
        for (std::size_t i = 0; i < numbers.size() && all_numbers; ++i)
            numbers[i] = cells.value(static_cast<int>(i) + 2).toDouble(&all_numbers);
        const auto quality = static_cast<int>(numbers[3]);
        if (!all_numbers)
            ++recording.damaged;
        else if (quality <= 0 || std::fabs(numbers[0]) > 90.0 || std::fabs(numbers[1]) > 180.0)
            ++recording.without_fix;
        else
            epochs.add(time, {numbers[0] * RADIANS_PER_DEGREE, numbers[1] * RADIANS_PER_DEGREE, numbers[2]},
                       pos_quality(quality));
    }
    return recording;
}

} // namespace

double Recording::interval_s() const
{
    std::vector<double> steps;
    for (std::size_t i = 1; i < fixes.size(); ++i)
        steps.push_back(fixes[i].time_s - fixes[i - 1].time_s);
    if (steps.empty())
        return 1.0;
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle;
}

Recording read_recording(const QString& path)
{
    const QByteArray content = read_file(path);
    if (is_binary(content))
        fail(path, "is a binary file: give a recording in NMEA text (or .pos solution text).");
    Recording recording = content.startsWith('%') ? read_pos(path, content) : read_nmea(path, content);
    if (recording.fixes.empty())
        fail(path, QStringLiteral("holds no position fix (%1 sentences without one, %2 damaged): give a "
                                  "recording with GGA or RMC sentences of a receiver that sees the sky.")
                       .arg(recording.without_fix)
                       .arg(recording.damaged));
    return recording;
}
