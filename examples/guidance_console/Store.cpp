#include "Store.h"

#include "platform/Platform.h"
#include "util/crc.h"
#include "util/file_ops.h"
#include "util/rtems_compat/compat_cfile.h"
#include "util/rtems_compat/compat_pcfile.h"

#include <QList>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::int64_t LONGEST_RECORD = 16 << 20; // a trace grows by 4 MB an hour; then it starts afresh
constexpr int LONGEST_SETTINGS = 64 << 10;        // then the latest replace all before

QByteArray crc_of(const QByteArray& text)
{
    const unsigned short crc = crc16(0, reinterpret_cast<const unsigned char*>(text.constData()),
                                     static_cast<unsigned>(text.size()));
    return QByteArray::number(crc, 16).rightJustified(4, '0');
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 17);
}

/// "console nudge kp ki kd imax smax [a.lat a.lon a.h b.lat b.lon b.h] *crc": radians, metres, degrees.
QByteArray line_of(const Settings& settings)
{
    const Gains& gains = settings.gains;
    QList<QByteArray> words = {"console"};
    for (const double value : {settings.nudge, gains.kp_deg, gains.ki_deg, gains.kd_deg,
                               gains.max_integral_deg, gains.max_steering_deg})
        words << number(value);
    if (settings.line)
        for (const PointLLH& end : {settings.line->a, settings.line->b})
            words << number(end.lat) << number(end.lon) << number(end.height);
    const QByteArray text = words.join(' ') + ' ';
    return text + '*' + crc_of(text) + '\n';
}

std::optional<Settings> settings_in(const QByteArray& line)
{
    const int star = line.lastIndexOf('*');
    if (star < 0 || line.mid(star + 1) != crc_of(line.left(star)))
        return std::nullopt;
    const QList<QByteArray> words = line.left(star).trimmed().split(' ');
    if (words[0] != "console" || (words.size() != 7 && words.size() != 13))
        return std::nullopt;
    const auto value = [&words](int i) { return words[i].toDouble(); };
    Settings settings;
    settings.nudge = value(1);
    settings.gains = {value(2), value(3), value(4), value(5), value(6)};
    if (words.size() == 13)
        settings.line = Line_ends{{value(7), value(8), value(9)}, {value(10), value(11), value(12)}};
    return settings;
}

QByteArray content(const char* name)
{
    QByteArray all;
    if (!pcfExists(name) || pcfOpenRead(name, 0) != PCF_SUCCESS)
        return all;
    char piece[4096];
    PcfResult result = PCF_FAILURE;
    for (int count = 1; count > 0 && all.size() <= 2 * LONGEST_SETTINGS;) {
        count = pcfRead(piece, sizeof piece, result);
        all.append(piece, std::max(0, count));
    }
    static_cast<void>(pcfCloseRead()); // nothing was written to it
    return all;
}

bool append(const char* name, const QByteArray& bytes)
{
    if (!pcfCreateWrite(name))
        return false;
    const bool written = pcfWrite(bytes.constData(), bytes.size()) == bytes.size();
    return pcfCloseWrite() && written;
}

} // namespace

Store::Store(const QString& folder)
{
    const QByteArray chosen = folder.toLocal8Bit();
    errno = 0;
    // The store makes its own folder, not the ones above it.
    if (chosen.isEmpty())
        static_cast<void>(file_ops_mkdir_recursive(Platform::instance().base_directory().c_str()));
    mounted = pcfIsMounted(chosen.isEmpty() ? nullptr : chosen.constData());
    if (mounted) {
        open(trace_slot);
        open(log_slot);
    } else {
        say(QString("no store at %1").arg(chosen.isEmpty() ? this->folder() : folder));
    }

    cookie_io_functions_t functions{};
    functions.write = &Store::write_trace;
    trace_stream = fopencookie(this, "w", functions);
    if (trace_stream != nullptr)
        static_cast<void>(
            std::setvbuf(trace_stream, nullptr, _IOLBF, 1024)); // else it comes in larger pieces
}

Store::~Store()
{
    if (trace_stream != nullptr)
        static_cast<void>(std::fclose(trace_stream)); // a failure was said when it came up
    for (const Slot* slot : {&trace_slot, &log_slot})
        cfClose(slot->number, false);
}

QString Store::folder() const
{
    return QString::fromLocal8Bit(pcfDirectory());
}

void Store::open(Slot& slot)
{
    const int size = pcfSizeImpl(slot.file, nullptr, false);
    slot.size = size;
    if (slot.size > LONGEST_RECORD) {
        pcfRemove(slot.file);
        slot.size = 0;
    }
    if (!cfCreate(slot.number, slot.file))
        say(QString("%1 cannot be written: %2").arg(slot.file, std::strerror(errno)));
}

ssize_t Store::write_trace(void* store, const char* bytes, std::size_t size)
{
    auto* const self = static_cast<Store*>(store);
    self->write(self->trace_slot, bytes, size);
    return static_cast<ssize_t>(size); // a lost line is said; the stream goes on with the next
}

void Store::write(Slot& slot, const char* bytes, std::size_t size)
{
    if (!mounted)
        return;
    if (slot.size > LONGEST_RECORD) {
        cfClose(slot.number, false);
        open(slot);
    }
    errno = 0;
    const int written = cfWrite(slot.number, bytes, static_cast<int>(size));
    if (written != static_cast<int>(size))
        say(QString("%1 cannot be written: %2")
                .arg(slot.file, written >= 0 ? "no room is left"
                                : errno != 0 ? std::strerror(errno)
                                             : "it is not open"));
    else
        slot.size += written;
}

void Store::log(const std::string& line)
{
    const std::string whole = line + '\n';
    write(log_slot, whole.data(), whole.size());
}

Settings Store::load()
{
    Settings settings;
    if (!mounted)
        return settings;
    for (const QByteArray& line : content(SETTINGS_FILE).split('\n'))
        if (const auto kept = settings_in(line)) // the last whole one counts
            settings = *kept;
    return settings;
}

void Store::save(const Settings& settings)
{
    if (!mounted)
        return;
    // A line is added, never one changed: whatever cuts this short leaves the lines before it whole.
    const QByteArray line = line_of(settings);
    if (pcfSizeImpl(SETTINGS_FILE, nullptr, false) > LONGEST_SETTINGS)
        pcfRemove(SETTINGS_FILE);
    if (!append(SETTINGS_FILE, line))
        say(QString("%1 cannot be written").arg(SETTINGS_FILE));
}

bool Store::put(const char* name, const QByteArray& content)
{
    if (!mounted)
        return false;
    pcfRemove(name);
    if (append(name, content))
        return true;
    say(QString("%1 cannot be written").arg(name));
    return false;
}

void Store::say(const QString& what)
{
    if (!trouble.isEmpty()) // the first is what the others come of
        return;
    trouble = what;
    if (problem_listener)
        problem_listener();
}
