#include "Firmware.h"

#include <QList>
#include <QRegularExpression>

std::optional<Util::Version> version_in(const QByteArray& text)
{
    Util::Version version;
    if (version.parse_velmar_version_string(text.constData()))
        return version;
    static const QRegularExpression number(R"(\d+\.\d+)");
    const QRegularExpressionMatch match = number.match(QString::fromLatin1(text));
    if (match.hasMatch() && version.decode_velmar_version_number(text.constData() + match.capturedStart()))
        return version;
    return std::nullopt;
}

QString to_text(const Util::Version& version)
{
    char buffer[64];
    const char* const text = version.to_string(buffer, sizeof buffer);
    return text != nullptr ? QString::fromLatin1(text) : QString("-");
}

bool Firmware::take(const QByteArray& sentence)
{
    // $--TXT, texts in all, this one, kind, text
    const QList<QByteArray> fields = sentence.left(sentence.lastIndexOf('*')).split(',');
    if (fields[0].mid(3) != "TXT" || fields.size() < 5)
        return false;
    const QByteArray text = fields.mid(4).join(',');
    const QByteArray upper = text.toUpper();
    if (!upper.contains("VER") && !upper.contains("CORE"))
        return false;
    if (upper.contains("PROTVER") || text == reported || (upper.contains("CORE") && version))
        return false; // a protocol's version, or a chip's beside the firmware's own
    reported = text;
    version = version_in(text);
    return true;
}

Firmware::Verdict Firmware::verdict() const
{
    if (reported.isEmpty())
        return Verdict::unknown;
    if (!version)
        return Verdict::unreadable;
    if (!oldest)
        return Verdict::any;
    if (!version->is_compatible_with(*oldest)) // the operators below would stop the program
        return Verdict::not_comparable;
    return *version < *oldest ? Verdict::too_old : Verdict::good;
}

QString Firmware::version_text() const
{
    return version ? to_text(*version) : QString("-");
}

QString Firmware::verdict_text() const
{
    switch (verdict()) {
    case Verdict::unknown:
        return "the receiver has not said";
    case Verdict::any:
        return "as the receiver says";
    case Verdict::good:
        return "good: " + to_text(*oldest) + " or later";
    case Verdict::too_old:
        return "too old: " + to_text(*oldest) + " or later is needed";
    case Verdict::not_comparable:
        return "cannot be compared with " + to_text(*oldest);
    case Verdict::unreadable:
        break;
    }
    return "no version in \"" + QString::fromLatin1(reported) + "\"";
}
