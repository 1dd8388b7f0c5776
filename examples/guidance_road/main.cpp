// The guidance cycle, from a receiver's position to a steering angle, on a simulated vehicle or a recorded
// drive. Read this file first, then ../common/Guidance.cpp.

#include "Picture.h"
#include "Report.h"
#include "examples/common/Guidance.h"
#include "examples/common/Recording.h"
#include "examples/common/Straight.h"
#include "examples/common/Vehicle.h"

#include "util/log/Log_item.h"
#include "util/log/Log_item_sender.h"

#include <QApplication>
#include <QBuffer>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <chrono>
#include <cmath>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>

namespace {

struct Options {
    bool help = false;
    QString replay; ///< empty: simulate
    std::optional<PointLLH> a;
    std::optional<PointLLH> b;
    QString out = "out/guidance_road";
    double seconds = 60.0;
    std::uint32_t seed = 1;
    bool realtime = false;
};

constexpr const char* USAGE =
    R"(usage: guidance_road [--replay FILE] [--a LAT,LON --b LAT,LON] [--out DIR] [--seconds N] [--seed N]
                     [--fast | --realtime]

Steers a simulated vehicle onto a line, or replays a recorded drive beside one, and draws what happened.

  --replay FILE   a recording: NMEA text, or the .pos solution text of a post-processing program
  --a, --b        the ends of the line, degrees, north and east positive; without them a recording's own
                  longest straight stretch is the line
  --out DIR       where the trace, the log and the picture go (default: out/guidance_road)
  --seconds N     length of the simulation, 1 to 3600 (default: 60)
  --seed N        another number is another drive of the simulation (default: 1)
  --fast          as fast as it goes (default)
  --realtime      as slowly as a receiver sends
)";

[[noreturn]] void wrong_usage(const QString& what)
{
    throw std::runtime_error(what.toStdString() + " See guidance_road --help.");
}

double number_of(const QString& name, const QString& value, double low, double high)
{
    bool is_number = false;
    const double number = value.toDouble(&is_number);
    if (!is_number || !(number >= low && number <= high))
        wrong_usage(QStringLiteral("--%1 takes a number from %2 to %3, not '%4'.")
                        .arg(name, QString::number(low, 'f', 0), QString::number(high, 'f', 0), value));
    return number;
}

std::optional<PointLLH> place_of(const QCommandLineParser& parser, const QString& name)
{
    if (!parser.isSet(name))
        return std::nullopt;
    const QStringList parts = parser.value(name).split(',');
    if (parts.size() != 2)
        wrong_usage(QStringLiteral("--%1 takes LAT,LON in degrees, such as -27.5,151.5, not '%2'.")
                        .arg(name, parser.value(name)));
    return PointLLH(number_of(name, parts[0], -90.0, 90.0) * RADIANS_PER_DEGREE,
                    number_of(name, parts[1], -180.0, 180.0) * RADIANS_PER_DEGREE, 0.0);
}

void check_together(const QCommandLineParser& parser, const Options& options)
{
    if (!parser.positionalArguments().isEmpty())
        wrong_usage(QStringLiteral("'%1' belongs to no option.").arg(parser.positionalArguments().first()));
    if (parser.isSet("fast") && options.realtime)
        wrong_usage("--fast and --realtime exclude each other.");
    if (parser.isSet("replay") && (parser.isSet("seconds") || parser.isSet("seed")))
        wrong_usage("--seconds and --seed are for the simulation, not for --replay.");
    if (options.out.isEmpty())
        wrong_usage("--out takes the name of a folder.");
    if (options.a.has_value() != options.b.has_value())
        wrong_usage("A line takes both ends: give --a and --b together.");
    if (!options.a)
        return;
    PointLLH a = *options.a;
    PointLLH b = *options.b;
    double distance = 0.0;
    double bearing_from = 0.0;
    double bearing_to = 0.0;
    if (!a.path_along_surface(b, distance, bearing_from, bearing_to) || distance < 0.1)
        wrong_usage("--a and --b are the same place, which makes no line.");
    if (distance > 100000.0)
        wrong_usage(
            "--a and --b are more than 100 km apart: guidance is for lines that a flat plane can hold.");
}

Options read_options(const QStringList& arguments)
{
    QCommandLineParser parser;
    for (const char* flag : {"help", "fast", "realtime"})
        parser.addOption(QCommandLineOption(flag));
    for (const char* valued : {"replay", "a", "b", "out", "seconds", "seed"})
        parser.addOption(QCommandLineOption(valued, {}, "value"));
    if (!parser.parse(arguments))
        wrong_usage(parser.errorText());

    Options options;
    options.help = parser.isSet("help");
    options.replay = parser.value("replay");
    options.a = place_of(parser, "a");
    options.b = place_of(parser, "b");
    if (parser.isSet("out"))
        options.out = parser.value("out");
    if (parser.isSet("seconds"))
        options.seconds = number_of("seconds", parser.value("seconds"), 1.0, 3600.0);
    if (parser.isSet("seed"))
        options.seed = static_cast<std::uint32_t>(number_of("seed", parser.value("seed"), 0.0, 4294967295.0));
    options.realtime = parser.isSet("realtime");
    if (parser.isSet("replay") && options.replay.isEmpty())
        wrong_usage("--replay takes the name of a file.");
    check_together(parser, options);
    return options;
}

/// The line of the options, at the height of the drive: a plane far below it would be a smaller one.
void set_line(Drive& drive, const Options& options, double height)
{
    drive.a = PointLLH(options.a->lat, options.a->lon, height);
    drive.b = PointLLH(options.b->lat, options.b->lon, height);
}

/// A line of 200 m across a field, unless the options give one.
void set_simulated_line(Drive& drive, const Options& options)
{
    constexpr double HEIGHT = 400.0;
    constexpr double LENGTH = 200.0;
    constexpr double HEADING = 72.0 * RADIANS_PER_DEGREE;
    if (options.a) {
        set_line(drive, options, HEIGHT);
        return;
    }
    drive.a = PointLLH(-27.5 * RADIANS_PER_DEGREE, 151.5 * RADIANS_PER_DEGREE, HEIGHT);
    Coordinate_converter plane;
    plane.setLocalCenter(drive.a);
    plane.convLocal2PointLLH(LENGTH * std::cos(HEADING), LENGTH * std::sin(HEADING), drive.b);
}

std::string set_recorded_line(Drive& drive, const Options& options, const Recording& recording)
{
    if (!options.a) {
        const Line_choice choice = choose_line(recording.fixes);
        drive.a = choice.a;
        drive.b = choice.b;
        return choice.reason;
    }
    PointLLH here = recording.fixes.front().position;
    set_line(drive, options, here.height);
    double distance = 0.0;
    double bearing_from = 0.0;
    double bearing_to = 0.0;
    drive.a.path_along_surface(here, distance, bearing_from, bearing_to);
    if (distance > 100000.0)
        wrong_usage("The recording begins more than 100 km from --a: are latitude and longitude in order?");
    return "line as given";
}

/// One turn of the cycle; the true distance off the line is known in the simulation only.
using Cycle = std::function<Epoch(const Fix& fix, std::optional<double> true_xtrack)>;

/// The simulated vehicle goes where it is steered to: the loop is closed.
void simulate(const Drive& drive, const Options& options, const Cycle& cycle)
{
    Vehicle vehicle(drive.a, drive.b, options.seed);
    const long count = std::lround(options.seconds / Vehicle::INTERVAL_S);
    for (long i = 0; i < count; ++i) {
        const double true_xtrack = vehicle.true_xtrack();
        const Epoch epoch = cycle(vehicle.measure(), true_xtrack);
        vehicle.drive(epoch.steering_deg);
    }
}

/// A recorded drive went where it went: the steering is what the controller would have asked for.
void replay(const Recording& recording, const Cycle& cycle)
{
    for (const Fix& fix : recording.fixes)
        cycle(fix, std::nullopt);
}

QByteArray png(const QImage& image)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly); // in memory: cannot fail
    if (!image.save(&buffer, "PNG"))
        throw std::runtime_error("The picture cannot be made: Qt lacks its PNG writer.");
    return buffer.data();
}

QByteArray joined(const std::vector<std::string>& lines)
{
    QByteArray all;
    for (const std::string& line : lines)
        all += QByteArray::fromStdString(line) + '\n';
    return all;
}

void write_report(Drive& drive, Memory_stream& trace, const QString& folder)
{
    const Figures figures = sum_up(drive);
    put("\n" + drive.title + "\n" + summary(drive, figures));
    write_files(folder, {{"pid_trace.csv", trace.content()},
                         {"log.txt", joined(drive.log)},
                         {"guidance.png", png(draw_picture(drive, figures))}});
    put("\nIn " + QFileInfo(folder).absoluteFilePath().toStdString() +
        ":\n  pid_trace.csv  the controller, a line a fix\n  log.txt        what happened\n"
        "  guidance.png   the picture\n");
}

/// The drive from its first fix to its last, with all that listens to it.
void go(Drive& drive, const Recording& recording, const Options& options, const std::string& line_reason,
        FILE* trace)
{
    const double interval_s = drive.simulated ? Vehicle::INTERVAL_S : recording.interval_s();
    Progress progress(drive.simulated ? options.seconds - interval_s : recording.fixes.back().time_s);

    // Every source of events forwards to the one central sender, which is all that the rest listens to.
    Util::Log_item_sender central;
    QObject::connect(&central, &Util::Log_item_sender::logged,
                     [&drive, &progress](const Util::Log_item& item) {
                         drive.log.push_back(item.to_string());
                         progress.note(Util::string(item.priority()) + ": " + item.message_utf8());
                     });
    const Util::Log_item_source program("guidance_road", "drive", 0,
                                        Util::Log_item_source::Target_type::none);
    program.sender()->forward_to(central);
    Guidance guidance(drive.a, drive.b, interval_s, trace);
    guidance.forward_logs_to(central);

    submit(program, Util::Log_item_priority::Info, line_reason, __LINE__);
    const auto started = std::chrono::steady_clock::now();
    const Cycle cycle = [&](const Fix& fix, std::optional<double> true_xtrack) {
        if (options.realtime)
            std::this_thread::sleep_until(started + std::chrono::duration<double>(fix.time_s));
        Epoch epoch = guidance.step(fix);
        epoch.judged_xtrack = true_xtrack.value_or(epoch.xtrack);
        drive.epochs.push_back(epoch);
        progress.show(epoch);
        return epoch;
    };
    if (drive.simulated)
        simulate(drive, options, cycle);
    else
        replay(recording, cycle);
    progress.finish();
    submit(program, Util::Log_item_priority::Info, "end of the drive", __LINE__);
}

/// Whatever can be wrong with the input or the folder is found before the drive begins.
void run(const Options& options)
{
    Drive drive;
    Recording recording;
    std::string line_reason = "line of the simulation";
    if (options.replay.isEmpty()) {
        drive.simulated = true;
        drive.title = "Simulated drive";
        set_simulated_line(drive, options);
    } else {
        drive.title = "Recorded drive " + QFileInfo(options.replay).fileName().toStdString();
        recording = read_recording(options.replay);
        drive.rejected = text("%d (%d without a fix, %d damaged, %d repeated)", recording.rejected(),
                              recording.without_fix, recording.damaged, recording.repeated);
        line_reason = set_recorded_line(drive, options, recording);
    }
    prepare_folder(options.out);

    Memory_stream trace;
    go(drive, recording, options, line_reason, trace.get());
    write_report(drive, trace, options.out);
}

void complain(const std::string& message)
{
    static_cast<void>(std::fprintf(stderr, "guidance_road: %s\n", message.c_str())); // nowhere left to say so
}

/// Qt warns at its start of a missing XDG_RUNTIME_DIR, which nothing here has a use for.
void without_warnings(QtMsgType type, const QMessageLogContext& /*context*/, const QString& message)
{
    if (type != QtWarningMsg)
        complain(message.toStdString());
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen"); // it draws into a file and never opens a window
    const QtMessageHandler usual = qInstallMessageHandler(without_warnings);
    const QApplication application(argc, argv);
    qInstallMessageHandler(usual);
    int status = 0;
    try {
        const Options options = read_options(QApplication::arguments());
        if (options.help)
            put(USAGE);
        else
            run(options);
    } catch (const std::exception& error) {
        complain(error.what());
        status = 1;
    }
    // The senders of the log sources wait for an event loop to delete them, and this program runs none.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return status;
}
