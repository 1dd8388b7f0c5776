#include "Replay.h"

#include "examples/common/Nmea.h"
#include "examples/common/Straight.h"

#include <QFile>
#include <QFileInfo>

#include <stdexcept>

Replay::Replay(const QString& path, double speed)
    : Paced_source(speed), name(QFileInfo(path).fileName()), recording(read_recording(path))
{
    read_sentences(path);
}

QString Replay::detail() const
{
    const QString pace = speed() == AT_ONCE ? QString("full pace") : QString("%1×").arg(speed());
    return pace + "  " + name;
}

std::optional<Line_ends> Replay::own_line(std::string& reason)
{
    try {
        const Line_choice choice = choose_line(recording.fixes);
        reason = choice.reason;
        return Line_ends{choice.a, choice.b};
    } catch (const std::runtime_error&) { // all fixes in one place: the operator may still set a line
        return std::nullopt;
    }
}

std::optional<double> Replay::next_s() const
{
    if (next_fix == recording.fixes.size())
        return std::nullopt;
    return recording.fixes[next_fix].time_s;
}

void Replay::deliver()
{
    for (; next_sentence < sentences.size() && sentences[next_sentence].fix <= next_fix; ++next_sentence)
        emit sentence(sentences[next_sentence].bytes);
    emit fix(recording.fixes[next_fix++]);
}

/// A recording was read whole already; this time for what it says beside positions.
void Replay::read_sentences(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    std::size_t fixes = 0;
    Nmea_stream stream([this, &fixes](const QByteArray& bytes) {
        const QByteArray kind = nmea_kind(bytes);
        if (kind == "GSV" || kind == "GSA" || kind == "TXT")
            sentences.push_back({fixes, bytes});
    });
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        fixes += stream.take(line.constData(), line.size()).size();
    }
}
