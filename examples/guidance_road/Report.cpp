#include "Report.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr double ON_LINE = 0.10;    // metres; a simulated vehicle is on its line from here on
constexpr double BESIDE_LINE = 5.0; // metres; farther out a recorded drive has nothing to do with its line

/// The first moment from which on the vehicle is within ON_LINE to the end.
std::optional<double> time_to_line_s(const std::vector<Epoch>& epochs)
{
    const auto last_off = std::find_if(epochs.rbegin(), epochs.rend(), [](const Epoch& epoch) {
        return std::fabs(epoch.judged_xtrack) > ON_LINE;
    });
    if (last_off == epochs.rbegin())
        return std::nullopt;
    return last_off.base()->fix.time_s;
}

/// A metre at a time: a receiver at rest wanders by centimetres, which must not add up.
double distance_driven(const std::vector<Epoch>& epochs)
{
    double sum = 0.0;
    Math2D::Point from = epochs.front().local;
    for (const Epoch& epoch : epochs) {
        const double step = from.get_distance(epoch.local);
        if (step < 1.0)
            continue;
        sum += step;
        from = epoch.local;
    }
    return sum;
}

void take_errors(const std::vector<Epoch>& epochs, Figures& figures)
{
    std::vector<double> off;
    double squares = 0.0;
    for (const Epoch& epoch : epochs)
        if (epoch.counted) {
            off.push_back(std::fabs(epoch.judged_xtrack));
            squares += epoch.judged_xtrack * epoch.judged_xtrack;
        }
    figures.counted = off.size();
    if (off.empty())
        return;
    std::sort(off.begin(), off.end());
    figures.rms = std::sqrt(squares / static_cast<double>(off.size()));
    figures.percentile95 = off[(off.size() * 95 + 99) / 100 - 1]; // nearest rank
}

[[noreturn]] void fail(const QString& path, const QString& why)
{
    throw std::runtime_error(QStringLiteral("'%1' cannot be written (%2): name another folder with --out.")
                                 .arg(path, why)
                                 .toStdString());
}

std::size_t terminal_columns()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

} // namespace

void put(const std::string& shown)
{
    if (std::fputs(shown.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error("Standard output cannot be written: is the disk full?");
}

Figures sum_up(Drive& drive)
{
    Figures figures;
    figures.distance = distance_driven(drive.epochs);
    Mini_PP line(drive.a, drive.b);
    Math2D::Point b;
    line.convPointLLH2Local(drive.b, b.first, b.second);
    const double length = line.dist_from_start(b);
    if (drive.simulated) {
        figures.to_line_s = time_to_line_s(drive.epochs);
        figures.window = "true distance of the rear axle, from the time to line on";
    } else
        figures.window = text("fixes between A and B, at most %.0f m off the line", BESIDE_LINE);
    for (Epoch& epoch : drive.epochs)
        epoch.counted = drive.simulated ? figures.to_line_s && epoch.fix.time_s >= *figures.to_line_s
                                        : epoch.atrack >= 0.0 && epoch.atrack <= length &&
                                              std::fabs(epoch.xtrack) <= BESIDE_LINE;
    take_errors(drive.epochs, figures);
    return figures;
}

std::string summary(const Drive& drive, const Figures& figures)
{
    const auto row = [](const char* name, const std::string& value) {
        return text("  %-18s %s\n", name, value.c_str());
    };
    std::string all = row("Fixes used", std::to_string(drive.epochs.size())) +
                      row("Fixes rejected", drive.rejected) +
                      row("Distance driven", text("%.1f m", figures.distance));
    if (drive.simulated)
        all += row("Time to line", figures.to_line_s ? text("%.1f s (within %.2f m from then on)",
                                                            *figures.to_line_s, ON_LINE)
                                                     : "never: it does not stay within 0.10 m");
    else
        all += row("Time to line", "none: a recorded drive is not steered");
    if (figures.counted > 0)
        all +=
            row("Cross-track error", text("%.3f m RMS, %.3f m at 95 %%", figures.rms, figures.percentile95));
    else
        all += row("Cross-track error", "none: no fix lies in the window");
    all += row("", text("over %zu fixes: %s", figures.counted, figures.window.c_str()));
    all += row("At the end", text("%+.3f m off the line", drive.epochs.back().judged_xtrack));
    return all;
}

Progress::Progress(double drive_length_s) : length_s(drive_length_s), terminal(isatty(STDOUT_FILENO) == 1)
{
}

void Progress::show(const Epoch& epoch)
{
    const bool last = epoch.fix.time_s >= length_s;
    if (epoch.fix.time_s < next_s && !last)
        return;
    next_s = std::floor(epoch.fix.time_s) + 1.0;

    constexpr std::size_t BAR = 20;
    const double done = length_s > 0.0 ? std::min(1.0, epoch.fix.time_s / length_s) : 1.0;
    const auto marks = static_cast<std::size_t>(done * BAR);
    const std::string bar = text("[%s%s] %3.0f %%", std::string(marks, '#').c_str(),
                                 std::string(BAR - marks, '.').c_str(), done * 100.0);
    const std::string values =
        text("%.6f %.6f  hdg %05.1f  across %+.3f m  along %.1f m  steer %+.1f",
             epoch.fix.position.lat / RADIANS_PER_DEGREE, epoch.fix.position.lon / RADIANS_PER_DEGREE,
             epoch.heading_deg, epoch.xtrack, epoch.atrack, epoch.steering_deg);
    const std::string time = text("%7.1f s  ", epoch.fix.time_s);
    if (!terminal) {
        put(bar + time + values + "  | " + last_log + "\n");
        return;
    }
    // Two lines, so that both fit; what wraps could not be redrawn in place.
    const std::size_t columns = terminal_columns() - 1;
    put((drawn ? "\r\x1b[1A" : "") + (bar + time + last_log).substr(0, columns) + "\x1b[K\n" +
        values.substr(0, columns) + "\x1b[K");
    drawn = true;
}

void Progress::finish() const
{
    if (terminal)
        put("\n");
}

Memory_stream::Memory_stream() : stream(open_memstream(&buffer, &size))
{
    if (stream == nullptr)
        throw std::bad_alloc();
}

Memory_stream::~Memory_stream()
{
    static_cast<void>(std::fclose(stream)); // closed in memory: nothing is lost
    std::free(buffer);                      // open_memstream leaves it to the caller
}

QByteArray Memory_stream::content()
{
    if (std::fflush(stream) != 0 || std::ferror(stream) != 0)
        throw std::bad_alloc();
    return {buffer, static_cast<int>(size)};
}

void prepare_folder(const QString& folder)
{
    if (!QDir().mkpath(folder))
        fail(folder, "the folder cannot be made");
    if (!QFileInfo(folder).isWritable())
        fail(folder, "no permission");
}

void write_files(const QString& folder, const std::vector<std::pair<QString, QByteArray>>& files)
{
    // A QSaveFile is a temporary file until it is committed, and is gone if it never is.
    std::vector<std::unique_ptr<QSaveFile>> saves;
    for (const auto& [name, content] : files) {
        saves.push_back(std::make_unique<QSaveFile>(QDir(folder).filePath(name)));
        QSaveFile& save = *saves.back();
        if (!save.open(QIODevice::WriteOnly) || save.write(content) != content.size() || !save.flush())
            fail(save.fileName(), save.errorString());
    }
    for (const auto& save : saves)
        if (!save->commit())
            fail(save->fileName(), save->errorString());
}
