#include "examples/common/Recording.h"

#include "examples/common/Nmea.h"

#include <QFile>
#include <QFileInfo>
#include <QTime>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

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
    Epochs epochs;
    Nmea_parser parser;
    for (const QByteArray& sentence : sentences) {
        const std::optional<Nmea_position> position = parser.position(sentence);
        if (!position)
            ++recording.without_fix;
        else if (const auto fix = epochs.next(position->time_of_day, position->place, position->quality))
            recording.fixes.push_back(*fix);
        else
            ++recording.repeated;
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
        const QByteArray sentence = nmea_sentence_in(line);
        if (nmea_checksum_right(sentence))
            sentences.push_back(sentence);
        else if (!sentence.isEmpty())
            ++damaged;
    }
    // A whole checksum proves that only the line's end is missing.
    const QByteArray last = nmea_sentence_in(last_line);
    if (last.isEmpty() ? !sentences.empty() && !content.endsWith('\n') : !nmea_is_whole(last))
        fail(path, "is cut off within its last line: copy the recording again, whole, or delete that line.");

    const auto is_gga = [](const QByteArray& sentence) { return nmea_kind(sentence) == "GGA"; };
    const QByteArray wanted = std::any_of(sentences.begin(), sentences.end(), is_gga) ? "GGA" : "RMC";
    sentences.erase(
        std::remove_if(sentences.begin(), sentences.end(),
                       [&wanted](const QByteArray& sentence) { return nmea_kind(sentence) != wanted; }),
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
    Epochs epochs;
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
        if (!all_numbers) {
            ++recording.damaged;
            continue;
        }
        if (quality <= 0 || std::fabs(numbers[0]) > 90.0 || std::fabs(numbers[1]) > 180.0) {
            ++recording.without_fix;
            continue;
        }
        const PointLLH place(numbers[0] * RADIANS_PER_DEGREE, numbers[1] * RADIANS_PER_DEGREE, numbers[2]);
        if (const auto fix = epochs.next(time, place, pos_quality(quality)))
            recording.fixes.push_back(*fix);
        else
            ++recording.repeated;
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
