#include "Console.h"

#include "util/CP_MD5.h"

#include <algorithm>
#include <cmath>

namespace {

using Priority = Util::Log_item_priority;

constexpr double TRACK_STEP = 0.5;           // metres from one kept place to the next
constexpr std::size_t LONGEST_TRACK = 20000; // some 10 km; then the older half goes
constexpr double SHORTEST_LINE = 1.0;
constexpr double FARTHEST_LINE = 20000.0; // a line that is farther away is of another field
constexpr double SWATH_HOLD = 0.6;        // of the width: nearer to the middle of two, the old one stays
constexpr std::size_t INTERVALS = 5;
constexpr int WATCH_MS = 250;
constexpr const char* EXPORT_FILE = "exported_log.txt";

double distance_between(PointLLH from, PointLLH to)
{
    double distance = 0.0;
    double bearing_from = 0.0;
    double bearing_to = 0.0;
    return from.path_along_surface(to, distance, bearing_from, bearing_to) ? distance : 0.0;
}

Gains within_limits(const Gains& gains)
{
    Gains limited;
    limited.kp_deg = std::clamp(gains.kp_deg, 0.0, 100.0);
    limited.ki_deg = std::clamp(gains.ki_deg, 0.0, 20.0);
    limited.kd_deg = std::clamp(gains.kd_deg, 0.0, 200.0);
    limited.max_integral_deg = std::clamp(gains.max_integral_deg, 0.0, 20.0);
    limited.max_steering_deg = std::clamp(gains.max_steering_deg, 1.0, Guidance::MAX_STEERING_DEG);
    return limited;
}

std::string md5_of(const QByteArray& bytes)
{
    CP_MD5::TMD5 digest(bytes.constData(), static_cast<unsigned>(bytes.size()));
    CP_MD5::TSignature signature;
    digest.Final(signature);
    char text[33];
    signature.WriteToBuf(text);
    return text;
}

} // namespace

QString swath_name(int swath)
{
    return swath == 0 ? QStringLiteral("A–B")
                      : QStringLiteral("%1 %2").arg(std::abs(swath)).arg(swath > 0 ? 'R' : 'L');
}

Console::Console(Source& source, Store& store, Epoch_server* server, Actions& actions, Firmware firmware)
    : fixes(source), records(store), viewers(server),
      program_log("console", "operation", 0, Util::Log_item_source::Target_type::none),
      version(std::move(firmware))
{
    program_log.sender()->forward_to(central);
    connect(&central, &Util::Log_item_sender::logged, this, [this](const Util::Log_item& item) {
        const auto drive_ms = static_cast<int>(1000.0 * std::fmod(now.epoch.fix.time_s, 86400.0));
        const QTime time = drive_began ? drive_began->addMSecs(drive_ms) : QTime::currentTime();
        items.append(item, time);
        records.log(time.toString("HH:mm:ss.zzz ").toStdString() + item.to_string());
    });
    connect(&source, &Source::fix, this, &Console::take_fix);
    connect(&source, &Source::sentence, this, &Console::take_sentence);
    connect(&source, &Source::state_changed, this, &Console::source_changed);
    connect(&watchdog, &QTimer::timeout, this, &Console::watch);
    records.on_problem([this] { say_store_problem(); });
    if (!actions.connect_all(*this))
        note(Priority::Error, "an action of the operator leads nowhere", __LINE__);
}

Console::~Console()
{
    records.on_problem({});
}

void Console::start(bool engaged)
{
    note(Priority::Info, (fixes.kind() + " " + fixes.detail()).trimmed().toStdString(), __LINE__);
    if (records.problem().isEmpty())
        note(Priority::Info, "records go to " + records.folder().toStdString(), __LINE__);
    else
        say_store_problem();
    if (viewers != nullptr)
        note(Priority::Info, text("viewers are served on port %d", viewers->bound_port()), __LINE__);
    settings = records.load();
    engage_first = engaged;
    watchdog.start(WATCH_MS);
    fixes.start();
}

void Console::take_sentence(const QByteArray& sentence)
{
    if (version.take(sentence))
        note(version.verdict() == Firmware::Verdict::too_old ? Priority::Warning : Priority::Info,
             "receiver firmware " + version.version_text().toStdString() + ", " +
                 version.verdict_text().toStdString(),
             __LINE__);
    if (heaven.take(sentence))
        emit sky_changed();
}

void Console::take_fix(const Fix& fix)
{
    const bool was_silent = !now.has_fix;
    if (!guidance)
        begin(fix);
    observe_interval(fix);
    step(fix);
    remember();
    serve();
    fixes.steered(now.epoch, now.engaged);
    if (now.engaged && now.driver_turns && !fixes.driver_turns())
        guidance->reset(); // what the integral gathered in the turn says nothing of the line
    if (was_silent)
        emit changed();
    emit epoch_done();
}

/// The first fix decides where the field's plane lies and which line is taken up.
void Console::begin(const Fix& fix)
{
    std::string reason;
    if (settings.line && distance_between(settings.line->a, fix.position) > FARTHEST_LINE) {
        note(Priority::Warning, "the last run's line is of another place and is left out", __LINE__);
        settings.line.reset();
        settings.nudge = 0.0;
    }
    if (settings.line) {
        reason = "line of the last run";
    } else {
        settings.line = fixes.own_line(reason);
    }
    field.setLocalCenter(fix.position);
    PointLLH ahead; // without a line, guidance only observes how the vehicle moves
    field.convLocal2PointLLH(100.0, 0.0, ahead);
    guidance = std::make_unique<Guidance>(fix.position, ahead, fixes.interval_s().value_or(1.0), nullptr);
    guidance->set_gains(settings.gains);
    if (!settings.line) {
        note(Priority::Caution, "no line yet: set A, drive on, set B", __LINE__);
        return;
    }
    note(Priority::Info, reason, __LINE__);
    use_line(*settings.line);
    now.engaged = engage_first;
    draw_line();
}

void Console::use_line(const Line_ends& ends)
{
    guidance->set_line(ends.a, ends.b);
    if (!now.has_line) { // before, what guidance says of a line would be nonsense
        guidance->forward_logs_to(central);
        guidance->set_trace(records.trace());
    }
    straight = Mini_PP(ends.a, ends.b);
    now.has_line = true;
    now.swath = 0;
    now.nudge = settings.nudge;
    guidance->set_offset(now.nudge);
}

/// A receiver's rate shows in its first fixes; the middle one counts, in case one was late.
void Console::observe_interval(const Fix& fix)
{
    if (fixes.interval_s() || now.number == 0 || intervals.size() == INTERVALS)
        return;
    intervals.push_back(fix.time_s - now.epoch.fix.time_s);
    if (intervals.size() < INTERVALS)
        return;
    std::vector<double> sorted = intervals;
    std::sort(sorted.begin(), sorted.end());
    guidance->set_interval_s(sorted[INTERVALS / 2]);
}

void Console::step(const Fix& fix)
{
    guidance->set_offset(now.swath * SWATH_WIDTH + now.nudge);
    now.epoch = guidance->step(fix);
    now.place = in_field(fix.position);
    now.has_fix = true;
    now.driver_turns = now.engaged && fixes.driver_turns();
    ++now.number;
    since_fix.start();
    const bool from_b_to_a =
        now.has_line &&
        std::fabs(std::remainder(now.epoch.heading_deg - straight.ab_heading(), 360.0)) > 90.0;
    now.off_seen = from_b_to_a ? -now.epoch.xtrack : now.epoch.xtrack;
    if (now.has_line && (!now.engaged || now.driver_turns || !fixes.can_steer()))
        choose_swath();
}

/// While nobody follows one, or can be made to, the nearest parallel is the one to be followed.
void Console::choose_swath()
{
    const double from_line = now.epoch.xtrack + now.swath * SWATH_WIDTH;
    if (std::fabs(now.epoch.xtrack) > SWATH_HOLD * SWATH_WIDTH)
        now.swath = static_cast<int>(std::lround(std::clamp(from_line / SWATH_WIDTH, -1e6, 1e6)));
}

void Console::remember()
{
    const double time_s = now.epoch.fix.time_s;
    if (now.has_line)
        latest.push_back({time_s, now.off_seen, now.epoch.steering_deg});
    while (!latest.empty() && time_s - latest.front().time_s > CHART_S)
        latest.pop_front();

    const bool works = now.engaged && !now.driver_turns;
    if (!way.empty() && way.back().worked == works && way.back().place.get_distance(now.place) < TRACK_STEP)
        return;
    if (way.size() == LONGEST_TRACK)
        way.erase(way.begin(), way.begin() + LONGEST_TRACK / 2);
    way.push_back({now.place, works});
}

void Console::serve()
{
    if (viewers == nullptr)
        return;
    const Epoch& epoch = now.epoch;
    std::string quality = name(epoch.fix.quality);
    std::replace(quality.begin(), quality.end(), ' ', '_');
    std::string line =
        text("t=%.3f lat=%.9f lon=%.9f height=%.3f quality=%s heading=%.2f speed=%.3f", epoch.fix.time_s,
             epoch.fix.position.lat / RADIANS_PER_DEGREE, epoch.fix.position.lon / RADIANS_PER_DEGREE,
             epoch.fix.position.height, quality.c_str(), epoch.heading_deg, epoch.speed);
    if (now.has_line)
        line += text(" xtrack=%.3f atrack=%.3f swath=%d nudge=%.2f steering=%.2f engaged=%d", epoch.xtrack,
                     epoch.atrack, now.swath, now.nudge, epoch.steering_deg,
                     now.engaged && !now.driver_turns ? 1 : 0);
    viewers->send(line);
}

void Console::watch()
{
    if (viewers != nullptr && viewers->lost_bytes() != lost_bytes) {
        lost_bytes = viewers->lost_bytes();
        note(Priority::Caution, text("viewers too slow to read have lost %d bytes", lost_bytes), __LINE__);
    }
    if (!fixes.is_live() || !now.has_fix || since_fix.elapsed() < static_cast<qint64>(1000.0 * SILENCE_S))
        return;
    now.has_fix = false;
    heaven.clear();
    if (now.engaged)
        note(Priority::Error, "steering stopped: the receiver is silent", __LINE__);
    else
        note(Priority::Warning, "the receiver is silent", __LINE__);
    now.engaged = false;
    now.driver_turns = false;
    emit sky_changed();
    emit changed();
}

void Console::source_changed()
{
    switch (fixes.state()) {
    case Source::State::receiving:
        note(Priority::Info, "receiving", __LINE__);
        break;
    case Source::State::lost:
        note(Priority::Error, "connection to " + fixes.detail().toStdString() + " lost", __LINE__);
        break;
    case Source::State::finished:
        note(Priority::Info, "end of the recording", __LINE__);
        break;
    case Source::State::waiting:
        break;
    }
    emit changed();
}

QString Console::alarm() const
{
    if (fixes.state() == Source::State::lost)
        return QString("Connection to %1 lost – trying again").arg(fixes.detail());
    if (fixes.is_live() && now.number > 0 && !now.has_fix)
        return QStringLiteral("The receiver is silent – steering stopped");
    if (!records.problem().isEmpty())
        return QString("Nothing is recorded: %1").arg(records.problem());
    if (version.verdict() == Firmware::Verdict::too_old)
        return QString("Receiver firmware %1 is %2").arg(version.version_text(), version.verdict_text());
    return {};
}

void Console::set_a()
{
    if (!now.has_fix) {
        answer(Priority::Warning, "A not set: no position", __LINE__);
        return;
    }
    new_a = now.epoch.fix.position;
    answer(Priority::Info, "A set: drive on and set B", __LINE__);
    draw_line();
}

void Console::set_b()
{
    if (!now.has_fix || (!new_a && !settings.line)) {
        answer(Priority::Warning, now.has_fix ? "B not set: set A first" : "B not set: no position",
               __LINE__);
        return;
    }
    const Line_ends ends{new_a ? *new_a : settings.line->a, now.epoch.fix.position};
    const double length = distance_between(ends.a, ends.b);
    if (length < SHORTEST_LINE) {
        answer(Priority::Warning, text("B not set: %.2f m from A is too near", length), __LINE__);
        return;
    }
    new_a.reset();
    settings.line = ends;
    settings.nudge = 0.0;
    use_line(ends);
    answer(Priority::Info, text("line set, %.1f m at %.1f degrees", length, straight.ab_heading()), __LINE__);
    save();
    draw_line();
}

void Console::nudge(double metres)
{
    if (!now.has_line) {
        answer(Priority::Warning, "no line to nudge", __LINE__);
        return;
    }
    now.nudge = settings.nudge = std::clamp(now.nudge + metres, -SWATH_WIDTH, SWATH_WIDTH);
    answer(Priority::Info,
           text("line nudged by %.0f cm, now %+.0f cm", 100.0 * metres, 100.0 * now.nudge + 0.0), __LINE__);
    save();
    draw_line();
}

void Console::engage(bool on)
{
    if (on && (!now.has_line || !now.has_fix)) {
        answer(Priority::Warning,
               now.has_line ? "not engaged: no position" : "not engaged: set A and B first", __LINE__);
        return;
    }
    if (on == now.engaged)
        return;
    now.engaged = on;
    now.driver_turns = false;
    if (on)
        guidance->reset();
    answer(Priority::Info, on ? text("engaged on parallel %d", now.swath) : "stopped", __LINE__);
    emit changed();
}

void Console::tune(Gains gains)
{
    settings.gains = within_limits(gains);
    if (guidance)
        guidance->set_gains(settings.gains);
    answer(Priority::Info,
           text("gains: kp %.1f, ki %.1f, kd %.1f, integral to %.1f, steering to %.0f degrees",
                settings.gains.kp_deg, settings.gains.ki_deg, settings.gains.kd_deg,
                settings.gains.max_integral_deg, settings.gains.max_steering_deg),
           __LINE__);
    save();
    emit changed();
}

void Console::reset()
{
    settings.gains = Gains();
    now.nudge = settings.nudge = 0.0;
    way.clear();
    latest.clear();
    if (guidance) {
        guidance->set_gains(settings.gains);
        guidance->reset();
    }
    answer(Priority::Info, "reset: gains as built, line not nudged, track cleared", __LINE__);
    save();
    draw_line();
}

void Console::export_log(int least_priority)
{
    const QByteArray all = items.text(static_cast<Priority>(least_priority));
    if (!records.put(EXPORT_FILE, all)) {
        answer(Priority::Error, "the log could not be exported", __LINE__);
        return;
    }
    const std::string done = text("%d items exported to %s", all.count('\n'), EXPORT_FILE);
    note(Priority::Info, done + ", MD5 " + md5_of(all), __LINE__);
    emit answered(QString::fromStdString(done));
}

void Console::say_store_problem()
{
    note(Priority::Error, "nothing is recorded: " + records.problem().toStdString(), __LINE__);
    emit changed();
}

void Console::save()
{
    records.save(settings);
}

void Console::draw_line()
{
    drawn_line = Field_line();
    if (new_a)
        drawn_line.new_a = in_field(*new_a);
    if (settings.line && guidance) {
        drawn_line.a = in_field(settings.line->a);
        drawn_line.b = in_field(settings.line->b);
    }
    emit changed();
}

Math2D::Point Console::in_field(const PointLLH& point)
{
    Math2D::Point place;
    field.convPointLLH2Local(point, place.first, place.second);
    return place;
}

void Console::answer(Priority priority, const std::string& message, int code_line)
{
    note(priority, message, code_line);
    emit answered(QString::fromStdString(message));
}

void Console::note(Priority priority, const std::string& message, int code_line) const
{
    submit(program_log, priority, message, code_line);
}
