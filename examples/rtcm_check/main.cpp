// Checks a recorded RTCM 3 stream: frames it, checks each frame's CRC-24Q with the library, and says what was
// in it and what was not. Read this file first, then Framer.h.

#include "Framer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* USAGE =
    R"(usage: rtcm_check [--quiet] FILE

Checks a recorded RTCM 3 stream and counts its messages.

  FILE      the recording; - is standard input
  --quiet   the table only
  --help    this text

The status is 0 when every frame is good, 1 when one is damaged or cut off, when there is none, or when the
recording cannot be read, and 2 when the command line is wrong.
)";

struct Options {
    bool help = false;
    bool quiet = false;
    std::string file;
};

struct Wrong_usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Unreadable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A line of at most 255 characters.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text(const char* format, ...)
{
    std::array<char, 256> line{};
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    return length < 0 ? std::string() : std::string(line.data());
}

std::string counted(std::uint64_t count, const char* what)
{
    return text("%" PRIu64 " %s%s", count, what, count == 1 ? "" : "s");
}

void put(const std::string& shown)
{
    if (std::fputs(shown.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
        throw std::runtime_error(std::string("standard output cannot be written: ") + std::strerror(errno) +
                                 ".");
}

void complain(const std::string& message)
{
    static_cast<void>(std::fprintf(stderr, "rtcm_check: %s\n", message.c_str())); // nowhere left to say so
}

Options read_options(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--help")
            options.help = true;
        else if (word == "--quiet")
            options.quiet = true;
        else if (word.size() > 1 && word.front() == '-')
            throw Wrong_usage("there is no option '" + std::string(word) + "'.");
        else if (word.empty() || !options.file.empty())
            throw Wrong_usage("it takes the name of one file.");
        else
            options.file = word;
    }
    if (options.file.empty() && !options.help)
        throw Wrong_usage("it takes the name of a file, or - for standard input.");
    return options;
}

/// The recording, open for reading: a file, a pipe or a device.
class Input {
public:
    explicit Input(const std::string& file)
        : shown_name(file == "-" ? "standard input" : "'" + file + "'"),
          fd(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (fd < 0)
            throw Unreadable(name() + " cannot be opened: " + std::strerror(errno) + ".");
    }
    ~Input()
    {
        if (fd != STDIN_FILENO)
            close(fd); // only read from: nothing can be lost
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    const std::string& name() const { return shown_name; }

    /// In bytes; 0 where that is not known beforehand.
    std::uint64_t length() const
    {
        struct stat status {};
        const bool known = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
        return known ? static_cast<std::uint64_t>(status.st_size) : 0;
    }

    /// What is there, without waiting for more than one byte of it; 0 at the end.
    std::size_t read(unsigned char* block, std::size_t room)
    {
        for (;;) {
            const ssize_t count = ::read(fd, block, room);
            if (count >= 0)
                return static_cast<std::size_t>(count);
            if (errno != EINTR)
                throw Unreadable(name() + " cannot be read: " + std::strerror(errno) + ".");
        }
    }

private:
    std::string shown_name;
    int fd;
};

/// A line on standard error, redrawn in place; nothing where that is not a terminal.
class Progress {
public:
    Progress(bool quiet, std::uint64_t all_bytes)
        : wanted(!quiet && isatty(STDERR_FILENO) == 1), length(all_bytes)
    {
    }
    ~Progress()
    {
        if (drawn)
            draw("");
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(std::uint64_t bytes, std::uint64_t frames)
    {
        const auto now = std::chrono::steady_clock::now();
        if (!wanted || (drawn && now < next))
            return;
        next = now + std::chrono::milliseconds(100);
        drawn = true;

        constexpr std::size_t BAR = 20;
        std::string line;
        if (length > 0) {
            // A file that grows is longer in the end than it was at first.
            const double done = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(length));
            const auto marks = static_cast<std::size_t>(done * BAR);
            line = "[" + std::string(marks, '#') + std::string(BAR - marks, '.') +
                   text("] %3.0f %%  ", done * 100.0);
        }
        line += text("%.1f MB, ", static_cast<double>(bytes) / 1e6) + counted(frames, "good frame");
        winsize size{};
        const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
        draw(line.substr(0, (known ? size.ws_col : 80U) - 1U)); // what wraps could not be redrawn in place
    }

private:
    static void draw(const std::string& line)
    {
        static_cast<void>(std::fprintf(stderr, "\r%s\x1b[K", line.c_str())); // the check goes on without it
    }

    bool wanted;
    std::uint64_t length;
    bool drawn = false;
    std::chrono::steady_clock::time_point next;
};

/// What was found.
class Report {
public:
    void add(const Stretch& stretch)
    {
        switch (stretch.kind) {
        case Stretch::Kind::good:
            add_to(rows[stretch.message], stretch);
            add_to(good, stretch);
            return;
        case Stretch::Kind::damaged:
            ++rows[stretch.message].errors;
            ++good.errors;
            add_to(damaged, stretch);
            break;
        case Stretch::Kind::skipped:
            add_to(skipped, stretch);
            break;
        case Stretch::Kind::cut:
            add_to(cut, stretch);
            break;
        }
        if (places++ < SHOWN_PLACES)
            first_places += place(stretch);
    }

    std::uint64_t good_frames() const { return good.count; }
    bool has_frames() const { return !rows.empty() || cut.count > 0; }

    std::string table() const
    {
        std::string all = "message      frames          bytes   errors\n";
        for (const auto& [message, row] : rows)
            all += line(message ? text("%u", *message) : "none", row);
        return all + line("total", good);
    }

    /// Where every byte went, and the first places that are not good frames.
    std::string account() const
    {
        std::string all = "\n" + counted(bytes(), "byte") +
                          text(": %" PRIu64 " in good frames, %" PRIu64 " in damaged ones, %" PRIu64
                               " in a cut one, %" PRIu64 " skipped\n",
                               good.bytes, damaged.bytes, cut.bytes, skipped.bytes) +
                          first_places;
        if (places > SHOWN_PLACES)
            all += "  and " + counted(places - SHOWN_PLACES, "more place") + "\n";
        return all;
    }

    /// Why the stream is not good; empty when it is.
    std::string fault() const
    {
        if (bytes() == 0)
            return "empty";
        std::string all;
        if (good.count == 0)
            all += ", no good RTCM 3 frame in " + counted(bytes(), "byte");
        if (damaged.count > 0)
            all += ", " + counted(damaged.count, "damaged frame");
        if (cut.count > 0)
            all += ", a frame cut off by the end";
        return all.empty() ? all : all.substr(2);
    }

private:
    struct Row {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;
        std::uint64_t errors = 0;
    };
    static constexpr std::uint64_t SHOWN_PLACES = 20;

    std::uint64_t bytes() const { return good.bytes + damaged.bytes + cut.bytes + skipped.bytes; }

    static void add_to(Row& row, const Stretch& stretch)
    {
        ++row.count;
        row.bytes += stretch.bytes;
    }

    static std::string line(const std::string& name, const Row& row)
    {
        return text("%7s %11" PRIu64 " %14" PRIu64 " %8" PRIu64 "\n", name.c_str(), row.count, row.bytes,
                    row.errors);
    }

    static std::string place(const Stretch& stretch)
    {
        const char* const what = stretch.kind == Stretch::Kind::damaged ? "damaged frame"
                                 : stretch.kind == Stretch::Kind::cut   ? "cut frame"
                                                                        : "skipped";
        return text("  at %" PRIu64 ": %s, ", stretch.offset, what) + counted(stretch.bytes, "byte") +
               (stretch.message ? text(", message %u\n", *stretch.message) : "\n");
    }

    std::map<std::optional<unsigned>, Row> rows; ///< by message number
    Row good, damaged, skipped, cut;
    std::uint64_t places = 0;
    std::string first_places;
};

/// Reads to the end in blocks, so that neither a long stream nor a slow one matters.
///
/// @return what ended the reading before the end; empty when nothing did
std::string check(Input& input, bool quiet, Report& report)
{
    Progress progress(quiet, input.length());
    Framer framer([&report](const Stretch& stretch) { report.add(stretch); });
    std::array<unsigned char, 65536> block{};
    std::uint64_t bytes = 0;
    std::string trouble;
    try {
        while (const std::size_t count = input.read(block.data(), block.size())) {
            framer.feed(block.data(), count);
            bytes += count;
            progress.show(bytes, report.good_frames());
        }
    } catch (const Unreadable& unreadable) {
        trouble = unreadable.what();
    }
    framer.finish();
    return trouble;
}

/// A recording that cannot be read to its end is reported as far as it was read.
int run(const Options& options)
{
    Input input(options.file);
    Report report;
    std::string trouble = check(input, options.quiet, report);
    if (trouble.empty() && !report.fault().empty())
        trouble = input.name() + ": " + report.fault() + ".";
    if (report.has_frames())
        put(report.table() + (options.quiet ? "" : report.account()));
    if (!trouble.empty())
        complain(trouble);
    return trouble.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = read_options(argc, argv);
        if (!options.help)
            return run(options);
        put(USAGE);
        return 0;
    } catch (const Wrong_usage& wrong) {
        complain(wrong.what() + std::string(" See rtcm_check --help."));
        return 2;
    } catch (const std::exception& error) {
        complain(error.what());
        return 1;
    }
}
