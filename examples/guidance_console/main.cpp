// The guidance console. Read Console.h first: the core, from a source's fixes to records, viewers and the
// log. Then Window.h, which shows it.

#include "Console.h"
#include "Live.h"
#include "Options.h"
#include "Replay.h"
#include "Simulation.h"
#include "Theme.h"
#include "Window.h"

#include <QApplication>
#include <QBuffer>
#include <QFile>
#include <QPixmap>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr const char* PICTURE_FILE = "guidance_console.png";
constexpr int SMALLEST_PNG = 0; // Qt's word for a picture that takes its time to be packed; no pixel is lost

void put(const std::string& shown)
{
    if (std::fputs(shown.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error("Standard output cannot be written.");
}

void complain(const std::string& message)
{
    static_cast<void>(
        std::fprintf(stderr, "guidance_console: %s\n", message.c_str())); // nowhere left to say so
}

int quit_pipe[2] = {-1, -1};

void on_signal(int /*number*/)
{
    const char any = 0;
    static_cast<void>(!::write(quit_pipe[1], &any, 1)); // full: the wish to quit is there already
}

/// The wish to end, from the terminal or the system, comes by the event loop.
class Quit_on_signal {
public:
    Quit_on_signal()
    {
        if (::pipe(quit_pipe) != 0)
            throw std::runtime_error("No pipe is left for the program.");
        notifier = std::make_unique<QSocketNotifier>(quit_pipe[0], QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, qApp, &QCoreApplication::quit);
        for (const int number : {SIGINT, SIGTERM})
            static_cast<void>(std::signal(number, on_signal));
        static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); // who goes away is dealt with where it is noticed
    }

private:
    std::unique_ptr<QSocketNotifier> notifier;
};

std::unique_ptr<Source> make_source(const Options& options, const std::optional<Line_ends>& last_line)
{
    if (!options.host.isEmpty())
        return std::make_unique<Live>(options.host, options.port);
    if (!options.replay.isEmpty())
        return std::make_unique<Replay>(options.replay, options.speed);
    return std::make_unique<Simulation>(last_line, options.seed, options.speed);
}

/// The same pixels give the same bytes.
QByteArray png(const QPixmap& picture)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly); // in memory: cannot fail
    if (!picture.toImage().convertToFormat(QImage::Format_RGB888).save(&buffer, "PNG", SMALLEST_PNG))
        throw std::runtime_error("The picture cannot be made: Qt lacks its PNG writer.");
    return bytes;
}

/// Quits at a time of the drive, or, for a live receiver, of the clock.
void quit_at(double seconds, const Console& console, Source& source)
{
    if (source.is_live()) {
        auto* const end = new QTimer(qApp);
        QObject::connect(end, &QTimer::timeout, qApp, &QCoreApplication::quit);
        end->start(static_cast<int>(1000.0 * seconds));
        return;
    }
    QObject::connect(&console, &Console::epoch_done, qApp, [seconds, &console, &source] {
        if (console.moment().epoch.fix.time_s < seconds - 1e-9)
            return;
        source.stop();
        QCoreApplication::quit();
    });
}

void quit_at_end(const Console& console)
{
    QObject::connect(&console, &Console::changed, qApp, [&console] {
        if (console.source().state() == Source::State::finished)
            QCoreApplication::quit();
    });
}

QPixmap picture_of(Console& console, const Actions& actions)
{
    Window window(console, actions);
    window.show();
    window.draw_now();
    QCoreApplication::processEvents(); // charts lay themselves out in events
    return window.grab();
}

void run_headless(Console& console, const Actions& actions, Store& store)
{
    quit_at_end(console);
    QCoreApplication::exec();
    const Moment& now = console.moment();
    put(text("%lld epochs, ", static_cast<long long>(now.number)) +
        (now.has_line ? text("%+.3f m off the line\n", now.epoch.xtrack) : std::string("no line\n")));
    if (store.put(PICTURE_FILE, png(picture_of(console, actions))))
        put("picture: " + store.folder().toStdString() + "/" + PICTURE_FILE + "\n");
    else
        complain("there is no picture, for " + store.problem().toStdString());
}

void run_window(Console& console, const Actions& actions, Source& source, const Options& options)
{
    Window window(console, actions);
    window.show_page(options.page);
    window.show();
    if (!options.snapshot.isEmpty()) {
        if (!source.is_live())
            console.set_drive_began(QTime(12, 0));
        quit_at(options.at_s, console, source);
        quit_at_end(console);
    }
    QCoreApplication::exec();
    if (options.snapshot.isEmpty())
        return;
    window.draw_now();
    QCoreApplication::processEvents();
    const QByteArray bytes = png(window.grab());
    QFile file(options.snapshot);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush())
        throw std::runtime_error("'" + options.snapshot.toStdString() + "' cannot be written.");
    put("picture: " + options.snapshot.toStdString() + "\n");
}

void run(const Options& options)
{
    const Quit_on_signal quit_on_signal;
    use_theme(options.night);
    Actions actions;
    Store store(options.store);
    const std::unique_ptr<Source> source = make_source(options, store.load().line);
    std::unique_ptr<Epoch_server> server;
    if (options.serve) {
        server = std::make_unique<Epoch_server>(*options.serve);
        put(text("serving on port %d\n", server->bound_port()));
    }
    // The simulated receiver's version is known, and so what to ask of it.
    const bool simulated = options.host.isEmpty() && options.replay.isEmpty();
    Console console(*source, store, server.get(), actions,
                    simulated ? Firmware(version_in("4.1")) : Firmware());
    if (options.seconds)
        quit_at(*options.seconds, console, *source);
    QTimer start;
    start.setSingleShot(true);
    QObject::connect(&start, &QTimer::timeout, &console, [&console, &options, &source] {
        console.start(!options.stopped && !source->is_live());
    });
    start.start(0);
    if (options.headless)
        run_headless(console, actions, store);
    else
        run_window(console, actions, *source, options);
}

/// Neither a headless run nor a picture needs a display, whatever the environment says.
bool needs_display(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const QString argument(argv[i]);
        if (argument == "--headless" || argument == "--help" || argument.startsWith("--snapshot"))
            return false;
    }
    return true;
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
    if (!needs_display(argc, argv))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const QtMessageHandler usual = qInstallMessageHandler(without_warnings);
    const QApplication application(argc, argv);
    qInstallMessageHandler(usual);
    int status = 0;
    try {
        const Options options = read_options(QApplication::arguments());
        if (options.help)
            put(Options::usage());
        else
            run(options);
    } catch (const std::exception& error) {
        complain(error.what());
        status = 1;
    }
    // The senders of the log sources wait for an event loop to delete them, which has ended.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return status;
}
