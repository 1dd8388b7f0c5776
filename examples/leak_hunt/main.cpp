// A window whose settings leave widgets behind, and two trackers that find them. Read this file first, then
// Main_window.cpp; README.md explains what is printed.

#include "Main_window.h"

#include <QAbstractButton>
#include <QApplication>

#include <cstdio>
#include <string_view>

namespace {

constexpr const char* USAGE =
    R"(usage: leak_hunt [--demo] [--mended]

Open the settings and close them: standard output tells what they leave behind.

  --demo     do so once and end
  --mended   settings that leave nothing behind
  --help     this text
)";

struct Options {
    bool demo = false;
    bool mended = false;
    bool help = false;
    bool wrong = false;
};

Options read_options(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--demo")
            options.demo = true;
        else if (word == "--mended")
            options.mended = true;
        else if (word == "--help")
            options.help = true;
        else
            options.wrong = true;
    }
    return options;
}

void click(const QWidget& window, const char* button)
{
    window.findChild<QAbstractButton*>(button)->click();
}

/// What a user would do; the dialog is deleted when the event loop runs.
void run_demo(Main_window& window)
{
    click(window, "open");
    click(window, "close");
    QObject::connect(&window, &Main_window::counted, &window, &QWidget::close);
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = read_options(argc, argv);
    if (options.wrong || options.help) {
        const bool written = std::fputs(USAGE, options.wrong ? stderr : stdout) >= 0;
        return options.wrong ? 2 : !written;
    }
    const QApplication application(argc, argv);
    Main_window window(options.mended);
    window.show();
    if (options.demo)
        run_demo(window);
    return QApplication::exec();
}
