#include "examples/guidance_console/Simulation.h"
#include "examples/guidance_console/Window.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QTemporaryDir>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

// What the console takes of the tenth of a second that it has for an epoch, and of the second until the first
// picture. No other program does the same, so these stand without a peer.

namespace {

/// A simulation that gives one epoch when it is told to.
class Stepped : public Simulation {
public:
    Stepped() : Simulation(std::nullopt, 1, AT_ONCE) {}
    void start() override { set_state(State::receiving); }
    void step() { deliver(); }
};

/// The whole console, driven for so many epochs before anything is measured.
struct Driven {
    explicit Driven(int epochs, int page)
        : store(folder()), console(source, store, nullptr, actions, Firmware()), window(console, actions)
    {
        window.show_page(page);
        window.show();
        console.start(true);
        for (int i = 0; i < epochs; ++i)
            source.step();
        QCoreApplication::processEvents();
    }

    /// One for all: the store is the process's own.
    static QString folder()
    {
        static const QTemporaryDir only;
        return only.path();
    }

    Store store;
    Actions actions;
    Stepped source;
    Console console;
    Window window;
};

/// Position, guidance, trace, log and state, without the picture.
void core(benchmark::State& state)
{
    Driven driven(600, Window::TRENDS);
    driven.window.hide();
    for (auto _ : state)
        driven.source.step();
    state.SetItemsProcessed(state.iterations());
}

/// All of it and every pixel of the window, charts included.
void with_picture(benchmark::State& state, int epochs, int page)
{
    Driven driven(epochs, page);
    for (auto _ : state) {
        driven.source.step();
        driven.window.draw_now();
        driven.window.update();
        QCoreApplication::processEvents(); // paints the whole window, as the platform shows it
    }
    state.SetItemsProcessed(state.iterations());
}

/// A process from its start to the picture on disk, the program's end included.
void start_to_picture(benchmark::State& state)
{
    const QTemporaryDir folder;
    const QByteArray picture = folder.filePath("x.png").toLocal8Bit();
    const QByteArray store = folder.filePath("store").toLocal8Bit();
    for (auto _ : state) {
        const pid_t child = fork();
        if (child == 0) {
            if (std::freopen("/dev/null", "w", stdout) == nullptr) // this program's own lines are the results
                _exit(127);
            execl(GUIDANCE_CONSOLE, GUIDANCE_CONSOLE, "--snapshot", picture.constData(), "--at", "0",
                  "--store", store.constData(), static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        if (waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("guidance_console failed");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::RegisterBenchmark("console epoch/ours/without its picture", core);
    benchmark::RegisterBenchmark("console epoch/ours/picture with trends, after a minute", with_picture, 600,
                                 Window::TRENDS);
    benchmark::RegisterBenchmark("console epoch/ours/picture with trends, after an hour", with_picture, 36000,
                                 Window::TRENDS);
    benchmark::RegisterBenchmark("console epoch/ours/picture with satellites, after a minute", with_picture,
                                 600, Window::SKY);
    benchmark::RegisterBenchmark("console epoch/ours/picture with the log, after a minute", with_picture, 600,
                                 Window::LOG);
    benchmark::RegisterBenchmark("console start to first picture/ours/800 x 480 offscreen", start_to_picture)
        ->UseRealTime();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
