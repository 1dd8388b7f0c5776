#include "Options.h"

#include <QCommandLineParser>
#include <QFileInfo>

#include <stdexcept>

namespace {

constexpr const char* USAGE =
    R"(usage: guidance_console [--replay FILE | --connect HOST:PORT] [--speed 1|10|max] [--serve PORT]
                        [--store DIR] [--night] [--stopped] [--seconds N]
                        [--headless | --snapshot FILE.png [--at SECONDS] [--page N]]

The screen of a guidance console. Without a receiver it steers a simulated vehicle. H shows its keys.

  --replay FILE        a recorded drive: NMEA text, or .pos solution text
  --connect HOST:PORT  a live receiver: NMEA over TCP, dialled again whenever it goes away
  --speed 1|10|max     of the simulation or a recording (default: 1)
  --seed N             another number is another drive of the simulation (default: 1)
  --serve PORT         serve each epoch as a line of text; 0 takes a free port, which is printed
  --store DIR          where the trace, the log and the settings are kept (default: the platform's own)
  --night              begin with the colours for the dark
  --stopped            begin without steering; a live receiver always does
  --seconds N          end after so many seconds: of the drive, or of the clock with --connect
  --headless           without a screen; at its end the picture goes into the store
  --snapshot FILE.png  draw the window without a screen, write it and end; its log begins at 12:00, so that
                       the same drive gives the same picture
  --at SECONDS         when to (default: 20): of the drive, as fast as it goes, or of the clock
  --page N             1 trends, 2 satellites, 3 tuning, 4 log (default: 1)
)";

[[noreturn]] void wrong_usage(const QString& what)
{
    throw std::runtime_error(what.toStdString() + " See guidance_console --help.");
}

double number_of(const QCommandLineParser& parser, const char* name, double low, double high)
{
    bool is_number = false;
    const double number = parser.value(name).toDouble(&is_number);
    if (!is_number || !(number >= low && number <= high))
        wrong_usage(
            QStringLiteral("--%1 takes a number from %2 to %3, not '%4'.")
                .arg(name, QString::number(low, 'f', 0), QString::number(high, 'f', 0), parser.value(name)));
    return number;
}

int whole_number_of(const QCommandLineParser& parser, const char* name, int low, int high)
{
    const double number = number_of(parser, name, low, high);
    if (number != static_cast<int>(number))
        wrong_usage(QStringLiteral("--%1 takes a whole number, not '%2'.").arg(name, parser.value(name)));
    return static_cast<int>(number);
}

double speed_of(const QString& value)
{
    if (value == "1" || value == "10")
        return value.toDouble();
    if (value != "max")
        wrong_usage(QStringLiteral("--speed takes 1, 10 or max, not '%1'.").arg(value));
    return 0.0;
}

void read_address(const QString& value, Options& options)
{
    const int colon = value.lastIndexOf(':');
    bool is_number = false;
    options.host = value.left(colon);
    options.port = value.mid(colon + 1).toInt(&is_number);
    if (colon < 1 || !is_number || options.port < 1 || options.port > 65535)
        wrong_usage(
            QStringLiteral("--connect takes HOST:PORT, such as 192.168.1.20:9000, not '%1'.").arg(value));
    if (options.host.toLocal8Bit().size() > 255)
        wrong_usage("--connect: the name of the host is too long.");
}

void check_together(const QCommandLineParser& parser, const Options& options)
{
    if (!parser.positionalArguments().isEmpty())
        wrong_usage(QStringLiteral("'%1' belongs to no option.").arg(parser.positionalArguments().first()));
    if (parser.isSet("replay") && parser.isSet("connect"))
        wrong_usage("--replay and --connect exclude each other.");
    if (parser.isSet("connect") && parser.isSet("speed"))
        wrong_usage("--speed is not for a live receiver.");
    if (parser.isSet("seed") && (parser.isSet("connect") || parser.isSet("replay")))
        wrong_usage("--seed is for the simulation.");
    if (options.headless && parser.isSet("snapshot"))
        wrong_usage("--headless and --snapshot exclude each other.");
    if (parser.isSet("at") && !parser.isSet("snapshot"))
        wrong_usage("--at is for --snapshot.");
    if (parser.isSet("page") && options.headless)
        wrong_usage("--page is for a window.");
    for (const char* named : {"replay", "snapshot", "store"})
        if (parser.isSet(named) && parser.value(named).isEmpty())
            wrong_usage(QStringLiteral("--%1 takes a name.").arg(named));
    if (parser.isSet("snapshot") && !QFileInfo(QFileInfo(options.snapshot).absolutePath()).isDir())
        wrong_usage(QStringLiteral("--snapshot: there is no folder for '%1'.").arg(options.snapshot));
}

} // namespace

const char* Options::usage()
{
    return USAGE;
}

Options read_options(const QStringList& arguments)
{
    QCommandLineParser parser;
    for (const char* flag : {"help", "headless", "night", "stopped"})
        parser.addOption(QCommandLineOption(flag));
    for (const char* valued :
         {"replay", "connect", "speed", "seed", "serve", "store", "seconds", "snapshot", "at", "page"})
        parser.addOption(QCommandLineOption(valued, {}, "value"));
    if (!parser.parse(arguments))
        wrong_usage(parser.errorText() + ".");

    Options options;
    options.help = parser.isSet("help");
    options.headless = parser.isSet("headless");
    options.night = parser.isSet("night");
    options.stopped = parser.isSet("stopped");
    options.replay = parser.value("replay");
    options.snapshot = parser.value("snapshot");
    options.store = parser.value("store");
    if (parser.isSet("connect"))
        read_address(parser.value("connect"), options);
    if (parser.isSet("speed"))
        options.speed = speed_of(parser.value("speed"));
    if (parser.isSet("seed"))
        options.seed = static_cast<std::uint32_t>(whole_number_of(parser, "seed", 0, 2147483647));
    if (parser.isSet("serve"))
        options.serve = whole_number_of(parser, "serve", 0, 65535);
    if (parser.isSet("seconds"))
        options.seconds = number_of(parser, "seconds", 0.0, 1e6);
    if (parser.isSet("at"))
        options.at_s = number_of(parser, "at", 0.0, 1e6);
    if (parser.isSet("page"))
        options.page = whole_number_of(parser, "page", 1, 4) - 1;
    check_together(parser, options);
    if (parser.isSet("snapshot") && options.host.isEmpty())
        options.speed = 0.0;
    return options;
}
