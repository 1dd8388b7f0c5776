#include "Progress.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int REDRAW_MS = 200; // 20 samples of the predictor are the last 4 s
constexpr int WARMUP_S = 1;
constexpr double LONGEST_SHOWN_S = 360000.0;

std::string megabytes(std::uint64_t bytes)
{
    char shown[32];
    const int length = std::snprintf(shown, sizeof shown, "%.1f", static_cast<double>(bytes) / 1e6);
    return {shown, static_cast<std::size_t>(length)};
}

std::string minutes(double seconds)
{
    const auto whole = static_cast<int>(std::lround(seconds));
    const std::string rest = std::to_string(whole % 60);
    return std::to_string(whole / 60) + (rest.size() < 2 ? ":0" : ":") + rest;
}

void draw(const std::string& line)
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    const std::string fitting =
        line.substr(0, (known ? size.ws_col : 80U) - 1U); // a wrapped line cannot be redrawn
    static_cast<void>(std::fprintf(stderr, "\r%s\x1b[K", fitting.c_str())); // the transfer goes on without it
}

} // namespace

Progress::Progress() : wanted(isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (drawn)
        draw("");
}

void Progress::start(const std::optional<std::uint64_t>& length)
{
    total = length;
    predictor.start_time = predictor.last_time = last_drawn = Atime::now();
    predictor.warmup_seconds = WARMUP_S;
}

void Progress::add(std::uint64_t bytes)
{
    done += bytes;
    const Atime now = Atime::now();
    if (!wanted || now - last_drawn < REDRAW_MS)
        return;
    last_drawn = now;
    drawn = true;
    draw(line());
}

void Progress::finish()
{
    if (!drawn)
        return;
    drawn = false;
    draw(megabytes(done) + " MB in " + minutes(predictor.end() * 60.0));
    static_cast<void>(std::fputs("\n", stderr)); // as above
}

std::string Progress::line()
{
    if (!total)
        return megabytes(done) + " MB";
    constexpr std::size_t BAR = 20;
    const auto part = static_cast<double>(done) / static_cast<double>(*total);
    const auto marks = static_cast<std::size_t>(part * BAR);
    return "[" + std::string(marks, '#') + std::string(BAR - marks, '.') + "] " +
           std::to_string(static_cast<int>(part * 100.0)) + " %  " + megabytes(done) + " of " +
           megabytes(*total) + " MB" + remaining();
}

/// One report to the predictor.
std::string Progress::remaining()
{
    // It counts 32 bits, and any unit will do.
    std::uint64_t unit = 1;
    while (*total / unit > std::numeric_limits<unsigned>::max())
        unit *= 1024;
    const double seconds = predictor.get_estimate_seconds(static_cast<unsigned>(done / unit),
                                                          static_cast<unsigned>(*total / unit));
    const bool known = seconds >= 0.0 && seconds < LONGEST_SHOWN_S; // it may be infinite, or none yet
    return known ? ", " + minutes(seconds) + " left" : "";
}
