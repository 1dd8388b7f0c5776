#include "examples/guidance_console/Light_bar.h"
#include "examples/guidance_console/Live.h"
#include "examples/guidance_console/Log_panel.h"
#include "examples/guidance_console/Options.h"
#include "examples/guidance_console/Plan_view.h"
#include "examples/guidance_console/Replay.h"
#include "examples/guidance_console/Simulation.h"
#include "examples/guidance_console/Sky_panel.h"
#include "examples/guidance_console/Theme.h"
#include "examples/guidance_console/Touch_button.h"
#include "examples/guidance_console/Window.h"

#include "tests/support/Program_test.h"
#include "tests/support/Reserved_port.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QListView>
#include <QPixmap>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTouchDevice>
#include <QWheelEvent>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QValueAxis>

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// For the leak checker: fontconfig keeps what it has read of the fonts.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\n";
}

namespace {

/// The application of all tests: Qt has one a process. It stays until the process ends, because the offscreen
/// platform never deletes the screen that it makes up, which the leak checker would mind.
class With_application : public testing::Environment {
public:
    void SetUp() override
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        application = new QApplication(argument_count, arguments);
        touch_screen = QTest::createTouchDevice();
    }
    void TearDown() override { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    static inline QTouchDevice* touch_screen = nullptr;

private:
    static inline QApplication* application = nullptr;
    static inline int argument_count = 1;
    static inline char name[5] = "test";
    static inline char* arguments[2] = {name, nullptr};
};
const auto* const environment = testing::AddGlobalTestEnvironment(new With_application);

template <typename CONDITION>
bool run_until(CONDITION condition)
{
    QElapsedTimer timer;
    timer.start();
    bool holds = condition();
    for (; !holds && !timer.hasExpired(60000); holds = condition())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return holds;
}

void run_events()
{
    for (int i = 0; i < 3; ++i) // what is posted may post in turn
        QCoreApplication::processEvents();
}

/// The store is the process's own, and so is its folder.
QString store_folder()
{
    static const QTemporaryDir folder;
    return folder.path();
}

QByteArray stored(const QString& name)
{
    QFile file(QDir(store_folder()).filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray sentence(const QByteArray& body)
{
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    return "$" + body + "*" + QByteArray::number(sum, 16).rightJustified(2, '0').toUpper() + "\r\n";
}

/// So many tenths of a second after noon, so many metres north of 40 degrees 5 minutes.
QByteArray gga(int tenths, double north)
{
    char body[128];
    const double minutes = 5.0 + north / 1852.0;
    std::snprintf(body, sizeof body,
                  "GPGGA,12%02d%02d.%d0,40%010.7f,N,10508.0000000,W,4,12,0.8,1600.0,M,-20.0,M,,",
                  tenths / 600, tenths / 10 % 60, tenths % 10, minutes);
    return sentence(body);
}

/// Fixes as the test wants them.
class Hand_fed : public Source {
public:
    void start() override { set_state(State::receiving); }
    void stop() override {}
    QString kind() const override { return "LIVE"; }
    QString detail() const override { return "by hand"; }
    std::optional<double> interval_s() const override { return 0.1; }

    /// Drives on by so many metres north and east of the start.
    void drive_to(double north, double east)
    {
        Coordinate_converter plane;
        plane.setLocalCenter(PointLLH(0.7, -1.8, 300.0));
        Fix one;
        one.time_s = 0.1 * epochs++;
        one.quality = Quality::rtk_fixed;
        plane.convLocal2PointLLH(north, east, one.position);
        emit fix(one);
    }
    using Source::set_state;

private:
    int epochs = 0;
};

/// Everything but main(), on a store of its own.
class Screen {
public:
    explicit Screen(Source& shown_source, Epoch_server* server = nullptr, Firmware firmware = Firmware())
        : store(store_folder()), source(shown_source), console(source, store, server, actions, firmware),
          window(console, actions)
    {
        window.show();
        window.activateWindow(); // shortcuts belong to the active window
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    template <typename WIDGET>
    WIDGET& find(const char* name = "")
    {
        auto* const found = window.findChild<WIDGET*>(name);
        EXPECT_NE(nullptr, found) << name;
        return *found;
    }

    void press(const char* name)
    {
        QTest::mouseClick(&find<Touch_button>(name), Qt::LeftButton);
        run_events();
    }
    void type(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(&window, key, modifiers);
        run_events();
    }

    /// Runs a source that is as fast as it can be until this time of its drive.
    void drive_until(double seconds)
    {
        const auto connection = QObject::connect(&console, &Console::epoch_done, [this, seconds] {
            if (console.moment().epoch.fix.time_s >= seconds - 1e-9)
                source.stop();
        });
        if (started)
            source.start();
        else
            console.start(true);
        started = true;
        EXPECT_TRUE(run_until([this, seconds] {
            return console.moment().epoch.fix.time_s >= seconds - 1e-9 && console.moment().number > 0;
        }));
        QObject::disconnect(connection);
        run_events();
    }

    std::string log() { return console.log().text(Util::Log_item_priority::Info).toStdString(); }

    Store store;
    Actions actions;
    Source& source;
    Console console;
    Window window;
    bool started = false;
};

Simulation fast_simulation()
{
    return {std::nullopt, 1, Paced_source::AT_ONCE};
}

int pixels_of(const QImage& image, const QColor& colour)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            count += std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) +
                                 std::abs(pixel.blue() - colour.blue()) <
                             12
                         ? 1
                         : 0;
        }
    return count;
}

/// A connection that a viewer opens.
int connect_to(int port)
{
    const int sd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, connect(sd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    fcntl(sd, F_SETFL, O_NONBLOCK);
    return sd;
}

void read_into(QByteArray& all, int sd)
{
    char bytes[4096];
    for (ssize_t count = 1; count > 0;) {
        count = read(sd, bytes, sizeof bytes);
        all.append(bytes, static_cast<int>(std::max<ssize_t>(0, count)));
    }
}

/// A receiver's side: one listening socket on a port of its own, and the one that dialled in.
class Receiver {
public:
    explicit Receiver(int wanted_port = 0)
    {
        listening = socket(AF_INET, SOCK_STREAM, 0);
        const int on = 1;
        setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(wanted_port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        EXPECT_EQ(0, listen(listening, 5));
        socklen_t length = sizeof address;
        getsockname(listening, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        fcntl(listening, F_SETFL, O_NONBLOCK);
    }
    ~Receiver()
    {
        close(connected);
        close(listening);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    bool accept_one()
    {
        connected = accept(listening, nullptr, nullptr);
        return connected >= 0;
    }
    void send(const QByteArray& bytes) const
    {
        EXPECT_EQ(bytes.size(),
                  ::send(connected, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL));
    }

    int port = 0;

private:
    int listening = -1;
    int connected = -1;
};

class In_window : public testing::Test {
protected:
    void SetUp() override
    {
        use_theme(false);
        const QDir store(store_folder());
        for (const QString& name : store.entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
            EXPECT_TRUE(QFile::remove(store.filePath(name)) || store.rmdir(name)) << name.toStdString();
    }
};

} // namespace

// ---- the light bar

TEST(Light_bar, burns_more_lamps_the_farther_off_and_on_the_side_of_the_line)
{
    const struct {
        double off_seen;
        int lamps;
    } cases[] = {{0.0, 0},   {0.019, 0}, {0.021, -1}, {-0.021, 1}, {0.05, -2},   {-0.11, 5},
                 {0.35, -8}, {-0.9, 11}, {3.9, -13},  {4.1, -14},  {-1000.0, 14}};
    for (const auto& one : cases)
        EXPECT_EQ(one.lamps, Light_bar::lamps(one.off_seen)) << one.off_seen;
}

TEST_F(In_window, shows_the_distance_in_the_unit_that_is_read_best)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    const auto& bar = screen.find<Light_bar>();
    EXPECT_EQ("–", bar.figure());
    source.drive_to(0.0, 0.0);
    EXPECT_EQ("–", bar.figure()); // there is no line yet
    screen.console.set_a();
    source.drive_to(50.0, 0.0);
    screen.console.set_b();
    const struct {
        double east;
        const char* figure;
    } cases[] = {{0.0, "0 cm"}, {0.124, "12 cm"}, {-0.99, "99 cm"}, {1.234, "1.23 m"}, {-4.2, "4.20 m"}};
    double north = 60.0;
    for (const auto& one : cases) {
        source.drive_to(north += 1.0, one.east);
        EXPECT_EQ(one.figure, bar.figure().toStdString()) << one.east;
    }
}

TEST(Light_bar, tells_a_distance_in_a_few_digits_however_far)
{
    const struct {
        double metres;
        const char* text;
    } cases[] = {{0.0, "0 cm"},      {-0.994, "99 cm"}, {0.996, "1.00 m"}, {9.994, "9.99 m"},
                 {-9.996, "10.0 m"}, {99.94, "99.9 m"}, {99.96, "100 m"},  {-529.1, "529 m"},
                 {9999.4, "9999 m"}, {9999.6, "10 km"}, {20000.0, "20 km"}};
    for (const auto& one : cases)
        EXPECT_EQ(one.text, Light_bar::distance_text(one.metres).toStdString()) << one.metres;
}

TEST_F(In_window, turns_the_side_around_when_the_driver_comes_back_along_the_line)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    screen.console.set_a();
    source.drive_to(50.0, 0.0);
    screen.console.set_b();
    for (int i = 0; i < 5; ++i)
        source.drive_to(52.0 + i, 0.5); // to the north, east of the line
    EXPECT_NEAR(0.5, screen.console.moment().off_seen, 0.001);
    for (int i = 0; i < 5; ++i)
        source.drive_to(50.0 - i, 0.5); // to the south, still east of it
    EXPECT_NEAR(0.5, screen.console.moment().epoch.xtrack, 0.001);
    EXPECT_NEAR(-0.5, screen.console.moment().off_seen, 0.001);
}

// ---- actions

TEST_F(In_window, steers_the_simulated_vehicle_onto_its_line_and_says_so_in_green)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(25.0);
    const Moment& now = screen.console.moment();
    EXPECT_TRUE(now.engaged);
    EXPECT_EQ(251, now.number);
    EXPECT_LT(std::fabs(now.off_seen), 0.06);
    EXPECT_THAT(screen.find<Light_bar>().figure().toStdString(), testing::EndsWith(" cm"));
    const QImage bar = screen.find<Light_bar>().grab().toImage();
    EXPECT_GT(pixels_of(bar, theme().good), 3000); // the pill and the lamps
    EXPECT_EQ(0, pixels_of(bar, theme().bad));
}

TEST_F(In_window, does_not_claim_to_steer_a_recorded_drive)
{
    const QString path = QDir(store_folder()).filePath("drive.nmea");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i < 100; ++i)
        file.write(gga(i, 0.3 * i));
    file.close();
    Replay source(path, Paced_source::AT_ONCE);
    Screen screen(source);
    screen.drive_until(9.0);
    EXPECT_TRUE(screen.console.moment().engaged);
    EXPECT_LT(pixels_of(screen.find<Light_bar>().grab().toImage(), theme().good), 1500); // the lamp alone
}

TEST_F(In_window, compares_a_recorded_drive_with_the_nearest_parallel)
{
    const QString path = QDir(store_folder()).filePath("drive.nmea");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i < 400; ++i)
        file.write(gga(i, 0.3 * i));
    file.close();
    Settings settings; // the last run's line, some 18 m west of the road north
    const PointLLH start = read_recording(path).fixes.front().position;
    Coordinate_converter plane;
    plane.setLocalCenter(start);
    settings.line.emplace();
    plane.convLocal2PointLLH(0.0, -18.5, settings.line->a);
    plane.convLocal2PointLLH(100.0, -18.5, settings.line->b);
    Store(store_folder()).save(settings);
    Replay source(path, Paced_source::AT_ONCE);
    Screen screen(source);
    screen.drive_until(5.0);
    EXPECT_TRUE(screen.console.moment().engaged);
    EXPECT_EQ(2, screen.console.moment().swath);
    EXPECT_NEAR(0.5, screen.console.moment().epoch.xtrack, 0.01);
}

TEST_F(In_window, stops_and_starts_at_a_press_and_the_vehicle_goes_straight_on_meanwhile)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(3.0); // still turning towards the line
    EXPECT_EQ("STOP", screen.find<Touch_button>("engage").text());
    screen.press("engage");
    EXPECT_FALSE(screen.console.moment().engaged);
    EXPECT_EQ("START", screen.find<Touch_button>("engage").text());
    screen.drive_until(6.0);
    const double heading_deg = screen.console.moment().epoch.heading_deg;
    screen.drive_until(9.0);
    // The wheel sensor's zero is 0.7 degrees off: 9 m make a turn of 2.3 degrees.
    EXPECT_NEAR(heading_deg, screen.console.moment().epoch.heading_deg, 4.0);
    screen.type(Qt::Key_Space);
    EXPECT_TRUE(screen.console.moment().engaged);
    screen.drive_until(35.0);
    EXPECT_LT(std::fabs(screen.console.moment().off_seen), 0.08);
    EXPECT_THAT(screen.log(), HasSubstr(":stopped\n"));
    EXPECT_THAT(screen.log(), HasSubstr(":engaged on parallel "));
}

TEST_F(In_window, moves_the_vehicle_over_by_what_the_line_is_nudged)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(15.0);
    for (int i = 0; i < 5; ++i)
        screen.press("nudge_right");
    screen.press("nudge_left");
    screen.type(Qt::Key_Right);
    screen.type(Qt::Key_Left);
    EXPECT_NEAR(0.20, screen.console.moment().nudge, 1e-9);

    std::string reason;
    const Line_ends ends = *source.own_line(reason);
    Mini_PP line(ends.a, ends.b);
    double sum = 0.0;
    for (int i = 0; i < 20; ++i) {
        screen.drive_until(30.0 + 0.1 * i);
        Math2D::Point place;
        const PointLLH& at = screen.console.moment().epoch.fix.position;
        line.convPointLLH2Local(at, place.first, place.second);
        sum += line.ab_xtrack(place);
    }
    EXPECT_NEAR(0.20, sum / 20.0, 0.04);
}

TEST_F(In_window, takes_the_line_between_the_places_where_a_and_b_were_pressed)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    screen.press("set_a"); // no position yet
    EXPECT_THAT(screen.log(), HasSubstr("A not set: no position"));
    source.drive_to(0.0, 0.0);
    screen.press("engage"); // no line yet
    EXPECT_FALSE(screen.console.moment().engaged);
    screen.type(Qt::Key_B); // no A yet
    EXPECT_THAT(screen.log(), HasSubstr("B not set: set A first"));
    screen.press("set_a");
    ASSERT_TRUE(screen.console.line().new_a);
    source.drive_to(0.0, 0.9);
    screen.press("set_b");
    EXPECT_THAT(screen.log(), HasSubstr("is too near"));
    EXPECT_FALSE(screen.console.moment().has_line);
    source.drive_to(0.0, 40.0);
    screen.type(Qt::Key_B);
    ASSERT_TRUE(screen.console.line().a && screen.console.line().b);
    EXPECT_FALSE(screen.console.line().new_a);
    EXPECT_NEAR(0.0, screen.console.line().a->second, 1e-4);
    EXPECT_NEAR(40.0, screen.console.line().b->second, 1e-3);
    EXPECT_THAT(screen.log(), HasSubstr("line set, 40.0 m at 90.0 degrees"));

    source.drive_to(-2.0, 41.0); // right of a line to the east is south
    EXPECT_NEAR(2.0, screen.console.moment().epoch.xtrack, 1e-3);
    source.drive_to(17.0, 42.0); // nearest to the second parallel on the left, 18 m away
    source.drive_to(17.0, 43.0);
    EXPECT_EQ(-2, screen.console.moment().swath);
    EXPECT_NEAR(1.0, screen.console.moment().epoch.xtrack, 1e-3);
}

TEST_F(In_window, tunes_the_controller_at_a_press_from_the_next_epoch_on)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(2.0);
    screen.type(Qt::Key_3);
    EXPECT_EQ(Window::TUNE, screen.window.page());
    screen.press("kp_up");
    EXPECT_DOUBLE_EQ(18.5, screen.console.gains().kp_deg); // 17.8 and 0.5, on the grid of 0.5
    screen.type(Qt::Key_1);                                // keys work whatever page is open
    screen.type(Qt::Key_P, Qt::ShiftModifier);
    screen.type(Qt::Key_D);
    screen.type(Qt::Key_3);
    screen.press("ki_down");
    screen.press("maxi_up");
    screen.press("maxout_down");
    const Gains& gains = screen.console.gains();
    EXPECT_DOUBLE_EQ(18.0, gains.kp_deg);
    EXPECT_DOUBLE_EQ(36.0, gains.kd_deg);
    EXPECT_NEAR(1.9, gains.ki_deg, 1e-9);
    EXPECT_DOUBLE_EQ(5.5, gains.max_integral_deg);
    EXPECT_DOUBLE_EQ(34.0, gains.max_steering_deg);
    screen.drive_until(3.0);
    // target, actual, their rates, then kp, ki (of a step of 0.1 s) and kd
    EXPECT_THAT(stored(Store::TRACE_FILE).split('\n').at(29).toStdString(),
                HasSubstr(",18.000,0.190,36.000,"));
    EXPECT_THAT(stored(Store::TRACE_FILE).split('\n').at(9).toStdString(),
                HasSubstr(",17.800,0.200,35.700,"));
}

TEST_F(In_window, keeps_gains_within_their_limits)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    screen.console.tune({-1.0, 1000.0, -5.0, 1000.0, 1000.0});
    const Gains& gains = screen.console.gains();
    EXPECT_EQ(0.0, gains.kp_deg);
    EXPECT_EQ(20.0, gains.ki_deg);
    EXPECT_EQ(0.0, gains.kd_deg);
    EXPECT_EQ(20.0, gains.max_integral_deg);
    EXPECT_EQ(Guidance::MAX_STEERING_DEG, gains.max_steering_deg);
}

TEST_F(In_window, never_steers_beyond_the_limit_that_was_tuned)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    Gains gains;
    gains.max_steering_deg = 12.0;
    screen.console.start(true);
    screen.started = true;
    screen.console.tune(gains);
    double largest = 0.0;
    QObject::connect(&screen.console, &Console::epoch_done, &screen.window, [&screen, &largest] {
        largest = std::max(largest, std::fabs(screen.console.moment().epoch.steering_deg));
    });
    screen.drive_until(5.0);
    EXPECT_EQ(12.0, largest);
}

TEST_F(In_window, resets_gains_nudge_and_track)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(5.0);
    screen.console.tune({1.0, 1.0, 1.0, 1.0, 10.0});
    screen.press("nudge_left");
    EXPECT_GT(screen.console.track().size(), 20U);
    screen.type(Qt::Key_R);
    EXPECT_EQ(Gains().kp_deg, screen.console.gains().kp_deg);
    EXPECT_EQ(Gains().max_steering_deg, screen.console.gains().max_steering_deg);
    EXPECT_EQ(0.0, screen.console.moment().nudge);
    EXPECT_TRUE(screen.console.track().empty());
    EXPECT_TRUE(screen.console.samples().empty());
}

TEST_F(In_window, answers_every_press_on_the_plan_for_a_while)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    const auto& answer = screen.find<QLabel>("answer");
    const auto& plan = screen.find<Plan_view>();
    EXPECT_FALSE(answer.isVisible());
    const auto expect_answer = [&](const char* button, const char* text) {
        screen.press(button);
        EXPECT_TRUE(answer.isVisible());
        EXPECT_THAT(answer.text().toStdString(), StartsWith(text));
        EXPECT_TRUE(plan.rect().contains(answer.geometry()));
    };
    expect_answer("set_a", "A not set: no position");
    source.drive_to(0.0, 0.0);
    expect_answer("set_b", "B not set: set A first");
    expect_answer("nudge_left", "No line to nudge");
    expect_answer("engage", "Not engaged: set A and B first");
    expect_answer("set_a", "A set: drive on and set B");
    source.drive_to(30.0, 0.0);
    expect_answer("set_b", "Line set, 30.0 m");
    expect_answer("nudge_right", "Line nudged by 5 cm, now +5 cm");
    expect_answer("engage", "Engaged on parallel 0");
    expect_answer("reset", "Reset");
    screen.type(Qt::Key_X);
    EXPECT_THAT(answer.text().toStdString(), testing::EndsWith(" items exported to exported_log.txt"));
    screen.type(Qt::Key_P);
    EXPECT_THAT(answer.text().toStdString(), StartsWith("Gains: kp 18.5"));
    EXPECT_TRUE(plan.rect().contains(answer.geometry()));
    EXPECT_TRUE(run_until([&answer] { return !answer.isVisible(); }));
}

TEST_F(In_window, offers_to_start_in_green_only_when_it_could)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    auto& button = screen.find<Touch_button>("engage");
    const auto green = [&button] { return pixels_of(button.grab().toImage(), theme().fill_good); };
    EXPECT_EQ(0, green());
    source.drive_to(0.0, 0.0);
    screen.press("set_a");
    EXPECT_EQ(0, green());
    source.drive_to(30.0, 0.0);
    screen.press("set_b");
    EXPECT_GT(green(), 5000);
}

TEST_F(In_window, tells_every_action_its_key_in_the_tooltip)
{
    Hand_fed source;
    Screen screen(source);
    const struct {
        const char* button;
        const char* key;
    } cases[] = {{"set_a", "[A]"},           {"set_b", "[B]"},         {"nudge_left", "[Left]"},
                 {"nudge_right", "[Right]"}, {"engage", "[Space]"},    {"reset", "[R]"},
                 {"kp_up", "[P]"},           {"kp_down", "[Shift+P]"}, {"zoom_in", "[+]"},
                 {"follow", "[F]"},          {"north", "[U]"},         {"night", "[N]"},
                 {"page_2", "[2]"},          {"log_export", "[X]"}};
    for (const auto& one : cases)
        EXPECT_THAT(screen.find<Touch_button>(one.button).toolTip().toStdString(), HasSubstr(one.key));
    auto& help = screen.find<QLabel>("help");
    EXPECT_FALSE(help.isVisible());
    screen.type(Qt::Key_H);
    EXPECT_TRUE(help.isVisible());
    EXPECT_TRUE(screen.window.rect().contains(help.geometry()));
}

TEST_F(In_window, makes_every_target_large_enough_for_a_finger)
{
    Hand_fed source;
    Screen screen(source);
    const auto buttons = screen.window.findChildren<Touch_button*>();
    EXPECT_GT(buttons.size(), 25);
    for (int page = Window::TRENDS; page <= Window::LOG; ++page) {
        screen.window.show_page(page);
        run_events();
        for (const Touch_button* button : buttons) {
            if (!button->isVisible())
                continue;
            EXPECT_GE(button->width(), 48) << button->objectName().toStdString();
            EXPECT_GE(button->height(), 48) << button->objectName().toStdString();
            const QRect place(button->mapTo(&screen.window, QPoint(0, 0)), button->size());
            EXPECT_TRUE(screen.window.rect().contains(place)) << button->objectName().toStdString();
            for (const Touch_button* other : buttons) {
                if (other == button || !other->isVisible())
                    continue;
                const QRect beside(other->mapTo(&screen.window, QPoint(0, 0)), other->size());
                EXPECT_FALSE(beside.intersects(place))
                    << button->objectName().toStdString() << " and " << other->objectName().toStdString();
            }
        }
    }
}

// ---- the view of the field

TEST_F(In_window, follows_the_vehicle_until_the_plan_is_dragged)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    auto& plan = screen.find<Plan_view>();
    screen.drive_until(10.0);
    const QPointF home = plan.on_screen(screen.console.moment().place);
    EXPECT_NEAR(plan.width() / 2.0, home.x(), 1.0);
    screen.drive_until(12.0);
    EXPECT_NEAR(home.x(), plan.on_screen(screen.console.moment().place).x(), 1e-6);
    EXPECT_NEAR(home.y(), plan.on_screen(screen.console.moment().place).y(), 1e-6);

    const QPoint from(100, 100);
    QTest::mousePress(&plan, Qt::LeftButton, Qt::NoModifier, from);
    QTest::mouseMove(&plan, from + QPoint(30, 20));
    QMouseEvent moved(QEvent::MouseMove, from + QPoint(60, 40), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&plan, &moved);
    QTest::mouseRelease(&plan, Qt::LeftButton, Qt::NoModifier, from + QPoint(60, 40));
    EXPECT_FALSE(plan.follows());
    EXPECT_FALSE(screen.find<Touch_button>("follow").isChecked());
    const QPointF dragged = plan.on_screen(screen.console.moment().place);
    EXPECT_NEAR(home.x() + 60.0, dragged.x(), 1e-6);
    EXPECT_NEAR(home.y() + 40.0, dragged.y(), 1e-6);
    screen.drive_until(14.0); // the plan stays, the vehicle moves in it: 6 m
    EXPECT_GT(std::hypot(plan.on_screen(screen.console.moment().place).x() - dragged.x(),
                         plan.on_screen(screen.console.moment().place).y() - dragged.y()),
              20.0);
    screen.press("follow");
    EXPECT_NEAR(home.x(), plan.on_screen(screen.console.moment().place).x(), 1e-6);
}

TEST_F(In_window, does_not_take_a_resting_finger_for_a_drag)
{
    Hand_fed source;
    Screen screen(source);
    auto& plan = screen.find<Plan_view>();
    QTest::mousePress(&plan, Qt::LeftButton, Qt::NoModifier, {100, 100});
    QMouseEvent moved(QEvent::MouseMove, QPoint(103, 102), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&plan, &moved);
    EXPECT_TRUE(plan.follows());
}

TEST_F(In_window, is_dragged_by_one_finger)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    auto& plan = screen.find<Plan_view>();
    const QPointF home = plan.on_screen(screen.console.moment().place);
    const QPoint from(100, 100);
    QTest::touchEvent(&plan, With_application::touch_screen).press(0, from, &plan);
    for (int i = 1; i <= 5; ++i)
        QTest::touchEvent(&plan, With_application::touch_screen).move(0, from + QPoint(10 * i, 6 * i), &plan);
    QTest::touchEvent(&plan, With_application::touch_screen).release(0, from + QPoint(50, 30), &plan);
    run_events();
    EXPECT_FALSE(plan.follows());
    EXPECT_NEAR(home.x() + 50.0, plan.on_screen(screen.console.moment().place).x(), 1e-6);
    EXPECT_NEAR(home.y() + 30.0, plan.on_screen(screen.console.moment().place).y(), 1e-6);
}

TEST_F(In_window, zooms_by_button_key_wheel_and_two_fingers)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    auto& plan = screen.find<Plan_view>();
    const double start = plan.scale();
    screen.press("zoom_in");
    EXPECT_NEAR(1.5 * start, plan.scale(), 1e-9);
    screen.press("zoom_out");
    screen.type(Qt::Key_Minus);
    EXPECT_NEAR(start / 1.5, plan.scale(), 1e-9);
    QWheelEvent wheel(QPointF(50, 50), plan.mapToGlobal(QPoint(50, 50)), QPoint(), QPoint(0, 120),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&plan, &wheel);
    EXPECT_NEAR(start, plan.scale(), 1e-9);

    const QPoint left(120, 130);
    const QPoint right(180, 130);
    QTest::touchEvent(&plan, With_application::touch_screen).press(0, left, &plan).press(1, right, &plan);
    for (int i = 1; i <= 6; ++i)
        QTest::touchEvent(&plan, With_application::touch_screen)
            .move(0, left - QPoint(10 * i, 0), &plan)
            .move(1, right + QPoint(10 * i, 0), &plan);
    QTest::touchEvent(&plan, With_application::touch_screen)
        .release(0, left - QPoint(60, 0), &plan)
        .release(1, right + QPoint(60, 0), &plan);
    run_events();
    EXPECT_GT(plan.scale(), 1.5 * start); // the fingers are three times as far apart
    EXPECT_LT(plan.scale(), 5.0 * start);

    for (int i = 0; i < 40; ++i)
        plan.zoom_in();
    EXPECT_EQ(Plan_view::CLOSEST, plan.scale());
    for (int i = 0; i < 60; ++i)
        plan.zoom_out();
    EXPECT_EQ(Plan_view::FARTHEST, plan.scale());
}

TEST_F(In_window, puts_north_or_the_heading_up)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    for (int i = 0; i < 60; ++i)
        source.drive_to(0.0, 1.0 * i); // to the east
    auto& plan = screen.find<Plan_view>();
    Math2D::Point ahead = screen.console.moment().place;
    const QPointF here = plan.on_screen(ahead);
    ahead.second += 10.0;
    EXPECT_NEAR(here.x(), plan.on_screen(ahead).x(), 1.0); // ahead is up
    EXPECT_LT(plan.on_screen(ahead).y(), here.y());
    screen.type(Qt::Key_U);
    EXPECT_FALSE(plan.heading_up());
    EXPECT_NEAR(plan.on_screen(screen.console.moment().place).y(), plan.on_screen(ahead).y(), 1e-6);
    EXPECT_GT(plan.on_screen(ahead).x(), plan.on_screen(screen.console.moment().place).x()); // east is right
}

TEST_F(In_window, draws_the_line_the_worked_ground_and_the_vehicle)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(20.0);
    const QImage plan = screen.find<Plan_view>().grab().toImage();
    EXPECT_GT(pixels_of(plan, theme().line), 400);   // A to B
    EXPECT_GT(pixels_of(plan, theme().accent), 200); // the vehicle
    EXPECT_GT(pixels_of(plan, theme().map), 10000);
    screen.console.reset();
    run_events();
    EXPECT_NE(plan, screen.find<Plan_view>().grab().toImage());
}

TEST_F(In_window, names_the_parallels_at_the_upper_edge_as_far_as_there_is_room)
{
    EXPECT_EQ("A–B", swath_name(0).toStdString());
    EXPECT_EQ("2 R", swath_name(2).toStdString());
    EXPECT_EQ("13 L", swath_name(-13).toStdString());

    Simulation source = fast_simulation();
    Screen screen(source);
    auto& plan = screen.find<Plan_view>();
    const auto named = [&plan](const QColor& ground) {
        return pixels_of(plan.grab().toImage().copy(60, 8, plan.width() - 130, 20), ground);
    };
    screen.drive_until(25.0);
    EXPECT_GT(named(theme().line), 300); // the box of the one that is followed
    EXPECT_GT(named(theme().ink), 60);   // the names of the others
    for (int i = 0; i < 4; ++i)
        screen.press("zoom_out");
    EXPECT_GT(named(theme().line), 300);
    EXPECT_LT(named(theme().ink), 10);
}

TEST_F(In_window, says_what_to_do_while_there_is_no_line)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    auto& plan = screen.find<Plan_view>();
    const auto advice = [&plan] {
        return pixels_of(plan.grab().toImage().copy(16, 70, plan.width() - 100, 50), theme().ink);
    };
    const int no_position = advice();
    EXPECT_GT(no_position, 200);
    source.drive_to(0.0, 0.0);
    EXPECT_GT(advice(), no_position); // more words
    screen.press("set_a");
    source.drive_to(30.0, 0.0);
    screen.press("set_b");
    EXPECT_LT(advice(), 20);
}

TEST_F(In_window, changes_all_its_colours_for_the_night)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(5.0);
    const QImage day = screen.window.grab().toImage();
    EXPECT_GT(pixels_of(day, Theme::bright().panel), 20000);
    screen.type(Qt::Key_N);
    const QImage night = screen.window.grab().toImage();
    EXPECT_GT(pixels_of(night, Theme::dark().panel), 20000);
    EXPECT_LT(pixels_of(night, Theme::bright().panel), 1500);  // white stays in the glyphs of what is pressed
    EXPECT_GT(pixels_of(night, Theme::dark().fill_bad), 8000); // the button to stop does not dazzle
    EXPECT_LT(Theme::dark().fill_bad.lightness(), Theme::dark().bad.lightness());
    EXPECT_EQ(0, pixels_of(night.copy(0, 410, 800, 70), Theme::dark().bad));
    screen.press("night");
    EXPECT_EQ(day, screen.window.grab().toImage());
}

// ---- pages

TEST_F(In_window, counts_the_satellites_by_constellation_and_says_that_they_are_made_up)
{
    Simulation source = fast_simulation();
    Screen screen(source, nullptr, Firmware(version_in("4.1")));
    screen.drive_until(1.0);
    const auto counts = screen.console.sky().counts();
    const std::pair<Constellation, std::pair<int, int>> expected[] = {
        {Constellation::gps, {8, 9}},      {Constellation::glonass, {6, 7}}, {Constellation::waas, {0, 1}},
        {Constellation::egnos, {0, 1}},    {Constellation::msas, {1, 2}},    {Constellation::ausbas, {1, 1}},
        {Constellation::omnistar, {1, 1}}, {Constellation::other, {0, 0}}};
    for (const auto& [constellation, count] : expected) {
        SCOPED_TRACE(name(constellation).toStdString());
        EXPECT_EQ(count.first, counts.at(static_cast<std::size_t>(constellation)).used);
        EXPECT_EQ(count.second, counts.at(static_cast<std::size_t>(constellation)).in_view);
    }
    EXPECT_EQ(Firmware::Verdict::good, screen.console.firmware().verdict());
    EXPECT_THAT(screen.log(), HasSubstr("receiver firmware 4.2 p3 b7, good: 4.1 or later"));
}

TEST_F(In_window, draws_each_constellation_and_says_when_there_are_no_satellites)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    screen.window.show_page(Window::SKY);
    auto& sky = screen.find<Sky_panel>();
    const auto has = [&sky](const QColor& colour) { return pixels_of(sky.grab().toImage(), colour) > 100; };
    const auto words = [&sky] {
        return pixels_of(sky.grab().toImage().copy(146, 40, 160, 80), theme().faint);
    };
    EXPECT_GT(words(), 100); // where the counts will stand
    EXPECT_FALSE(has(theme().accent));
    emit source.sentence("$GPGSV,1,1,02,02,71,034,49,05,48,121,47*00");
    emit source.sentence("$GNGSA,A,3,02,05,,,,,,,,,,,1.2,0.7,1.0*00");
    EXPECT_TRUE(has(theme().accent));
    EXPECT_EQ(0, words());
    EXPECT_FALSE(has(theme().second));
    emit source.sentence("$GLGSV,1,1,01,65,55,300,46*00");
    emit source.sentence("$GNGSA,A,3,02,05,65,,,,,,,,,,1.2,0.7,1.0*00");
    EXPECT_TRUE(has(theme().second));
}

TEST_F(In_window, shows_the_latest_minute_in_the_unit_and_range_of_its_latest_part)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    const auto reach = [&screen](const char* name) {
        QtCharts::QChart* const chart = screen.find<QtCharts::QChartView>(name).chart();
        return static_cast<QtCharts::QValueAxis*>(chart->axes(Qt::Vertical).first())->max();
    };
    const auto last_point = [&screen](const char* name) {
        QtCharts::QChart* const chart = screen.find<QtCharts::QChartView>(name).chart();
        return static_cast<QtCharts::QLineSeries*>(chart->series().last())->points().last();
    };
    EXPECT_EQ(10.0, reach("off_line")); // before anything is known
    screen.window.draw_now();
    EXPECT_EQ("–", screen.find<QLabel>("off_line_latest").text());
    screen.drive_until(3.0); // metres off, the wheel at its limit
    screen.window.draw_now();
    EXPECT_EQ(10.0, reach("off_line"));
    EXPECT_EQ(40.0, reach("steering"));
    EXPECT_NEAR(screen.console.moment().off_seen, last_point("off_line").y(), 1e-9);
    EXPECT_THAT(screen.find<QLabel>("off_line_latest").text().toStdString(), testing::EndsWith(" m"));
    screen.drive_until(30.0); // centimetres
    screen.window.draw_now();
    EXPECT_LE(reach("off_line"), 20.0);
    EXPECT_LE(reach("steering"), 10.0);
    EXPECT_NEAR(100.0 * screen.console.moment().off_seen, last_point("off_line").y(), 1e-9);
    EXPECT_NEAR(screen.console.moment().epoch.steering_deg, last_point("steering").y(), 1e-9);
    EXPECT_EQ(0.0, last_point("steering").x());
    const std::string latest = screen.find<QLabel>("off_line_latest").text().toStdString();
    EXPECT_THAT(latest, testing::EndsWith(" cm"));
    const double off_seen = screen.console.moment().off_seen;
    EXPECT_THAT(latest, StartsWith(std::fabs(off_seen) < 0.005 ? "0" : off_seen < 0.0 ? "−" : "+"));
}

TEST_F(In_window, filters_the_log_by_priority_and_exports_what_it_shows)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    screen.press("set_b"); // a warning
    screen.type(Qt::Key_4);
    auto& list = screen.find<QListView>("log_list");
    const int all = list.model()->rowCount();
    EXPECT_EQ(screen.console.log().rowCount(), all);
    screen.press("log_warning");
    EXPECT_EQ(1, list.model()->rowCount());
    EXPECT_THAT(list.model()->index(0, 0).data().toString().toStdString(), HasSubstr("B not set"));
    screen.press("log_caution");
    EXPECT_EQ(2, list.model()->rowCount()); // that there is no line yet, too
    screen.press("log_export");
    const QByteArray exported = stored("exported_log.txt");
    EXPECT_EQ(2, exported.count('\n'));
    EXPECT_THAT(exported.toStdString(), HasSubstr("Caution:console:operation:"));
    const QByteArray md5 = QCryptographicHash::hash(exported, QCryptographicHash::Md5).toHex().toUpper();
    EXPECT_THAT(screen.log(), HasSubstr("2 items exported to exported_log.txt, MD5 " + md5.toStdString()));
    screen.press("log_error");
    EXPECT_EQ(0, list.model()->rowCount());
    EXPECT_GT(pixels_of(list.viewport()->grab().toImage(), theme().faint),
              20); // it says that there is nothing
    screen.press("log_all");
    EXPECT_EQ(screen.console.log().rowCount(), list.model()->rowCount());
}

TEST_F(In_window, stays_at_the_end_of_the_log_only_when_asked)
{
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    screen.window.show_page(Window::LOG);
    auto& list = screen.find<QListView>("log_list");
    const auto fill = [&screen] {
        for (int i = 0; i < 15; ++i)
            screen.console.set_a(); // a warning each, without a position
        run_events();
    };
    fill();
    EXPECT_TRUE(list.visualRect(list.model()->index(list.model()->rowCount() - 1, 0)).bottom() <=
                list.viewport()->height() + 2);
    screen.press("log_follow");
    const int before = list.visualRect(list.model()->index(0, 0)).top();
    fill();
    EXPECT_EQ(before, list.visualRect(list.model()->index(0, 0)).top());
    screen.press("log_follow");
    EXPECT_NE(before, list.visualRect(list.model()->index(0, 0)).top());

    // A finger drags the list back, and following ends.
    const int end = list.visualRect(list.model()->index(0, 0)).top();
    QTest::mousePress(list.viewport(), Qt::LeftButton, Qt::NoModifier, {60, 20});
    QMouseEvent moved(QEvent::MouseMove, QPoint(60, 60), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(list.viewport(), &moved);
    EXPECT_EQ(end + 40, list.visualRect(list.model()->index(0, 0)).top());
    EXPECT_FALSE(screen.find<Touch_button>("log_follow").isChecked());
}

TEST(Log_model, holds_the_latest_items_only)
{
    Log_model model;
    const Util::Log_item_source source("test", "log", 0, Util::Log_item_source::Target_type::none);
    for (int i = 0; i < Log_model::LONGEST + 10; ++i)
        model.append(
            Util::Log_item(source, Util::Log_item_priority::Info, false, 0, std::to_string(i), 1, nullptr),
            QTime(12, 0));
    EXPECT_EQ(Log_model::LONGEST, model.rowCount());
    EXPECT_EQ("10", model.index(0, 0).data().toString());
}

// ---- satellites and firmware

TEST(Sky, calls_satellites_what_the_lists_call_them)
{
    const struct {
        const char* talker;
        int number;
        int id;
        Constellation constellation;
    } cases[] = {{"GP", 1, 1, Constellation::gps},       {"GP", 32, 32, Constellation::gps},
                 {"GP", 33, 120, Constellation::egnos},  {"GP", 35, 122, Constellation::ausbas},
                 {"GP", 42, 129, Constellation::msas},   {"GP", 46, 133, Constellation::waas},
                 {"GP", 51, 138, Constellation::waas},   {"GP", 34, 121, Constellation::other},
                 {"GL", 65, 38, Constellation::glonass}, {"GL", 96, 69, Constellation::glonass},
                 {"GL", 1, 38, Constellation::glonass},  {"GN", 70, 43, Constellation::glonass},
                 {"GP", 120, 120, Constellation::egnos}, {"GP", 200, 200, Constellation::omnistar},
                 {"GA", 5, 0, Constellation::other},     {"GB", 12, 0, Constellation::other},
                 {"GP", 193, 193, Constellation::other}};
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::Message() << one.talker << one.number);
        EXPECT_EQ(one.id, list_id(one.talker, one.number));
        EXPECT_EQ(one.constellation, constellation_of(one.id));
    }
}

TEST(Sky, is_whole_with_the_last_sentence_of_a_row)
{
    Sky sky;
    EXPECT_FALSE(sky.take("$GPGSV,2,1,05,02,71,034,49,05,48,121,,12,33,287,44,15,22,201,41*00"));
    EXPECT_EQ(0U, sky.satellites().size());
    EXPECT_TRUE(sky.take("$GPGSV,2,2,05,46,30,048,39*00"));
    ASSERT_EQ(5U, sky.satellites().size());
    EXPECT_EQ(0, sky.satellites()[1].signal_db); // left out: not tracked
    EXPECT_EQ(34, sky.satellites()[0].azimuth_deg);
    EXPECT_EQ(71, sky.satellites()[0].elevation_deg);
    sky.take("$GPGSA,A,3,02,12,,,,,,,,,,,1.2,0.7,1.0*00");
    EXPECT_EQ(2, sky.total().used);
    sky.take("$GPGSV,1,1,01,02,71,034,49*00");
    EXPECT_EQ(1, sky.total().in_view); // a new row in place of the old
    sky.take("$GPGSA,A,3,05,,,,,,,,,,,,1.2,0.7,1.0*00");
    EXPECT_EQ(0, sky.total().used);
    for (const char* broken : {"$GPGSV*00", "$GPGSV,,,*00", "$GPGSV,1,1,01,xx*00", "$GPGSA*00", "$*00", ""})
        sky.take(broken);
}

TEST(Firmware, compares_only_what_can_be_compared)
{
    Util::Version revision;
    revision.major = 4;
    revision.minor = 1;
    revision.revision = 2;
    const struct {
        const char* text;
        std::optional<Util::Version> needed;
        Firmware::Verdict verdict;
        const char* version;
    } cases[] = {{"Version: 4.2p3b7", version_in("4.1"), Firmware::Verdict::good, "4.2 p3 b7"},
                 {"FWVER=HPG 4.10", version_in("4.10"), Firmware::Verdict::good, "4.10"},
                 {"FWVER=HPG 1.13", version_in("4.1"), Firmware::Verdict::too_old, "1.13"},
                 {"FWVER=HPG 1.13", std::nullopt, Firmware::Verdict::any, "1.13"},
                 {"Version: 4.2", revision, Firmware::Verdict::not_comparable, "4.2"},
                 {"FWVER=none", version_in("4.1"), Firmware::Verdict::unreadable, "-"},
                 {"PROTVER=18.00", version_in("4.1"), Firmware::Verdict::unknown, "-"},
                 {"ANTSTATUS=OK", version_in("4.1"), Firmware::Verdict::unknown, "-"}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.text);
        Firmware firmware(one.needed);
        firmware.take(QByteArray("$GNTXT,01,01,02,") + one.text + "*00");
        EXPECT_EQ(one.verdict, firmware.verdict());
        EXPECT_EQ(one.version, firmware.version_text().toStdString());
    }
}

TEST_F(In_window, warns_of_a_receiver_whose_firmware_is_too_old)
{
    Hand_fed source;
    Screen screen(source, nullptr, Firmware(version_in("4.1")));
    screen.console.start(false);
    emit source.sentence("$GNTXT,01,01,02,Version: 3.9*00");
    source.start();
    run_events();
    EXPECT_THAT(screen.console.alarm().toStdString(), HasSubstr("3.9"));
    EXPECT_THAT(screen.log(), HasSubstr("Warning:console:operation"));
}

// ---- records

TEST_F(In_window, keeps_a_trace_line_an_epoch_and_every_log_item)
{
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(9.9);
    const QList<QByteArray> trace = stored(Store::TRACE_FILE).trimmed().split('\n');
    ASSERT_EQ(100, trace.size());
    for (const QByteArray& line : trace)
        EXPECT_THAT(line.toStdString(), StartsWith("PID:xtrack:"));
    EXPECT_EQ(screen.console.log().rowCount(), stored(Store::LOG_FILE).count('\n'));
    EXPECT_THAT(stored(Store::LOG_FILE).toStdString(), HasSubstr("first fix, RTK fixed"));
}

TEST_F(In_window, brings_the_last_line_nudge_and_gains_back)
{
    std::optional<Math2D::Point> b;
    {
        Hand_fed source;
        Screen screen(source);
        screen.console.start(false);
        source.drive_to(0.0, 0.0);
        screen.press("set_a");
        source.drive_to(30.0, 40.0);
        screen.press("set_b");
        screen.press("nudge_right");
        screen.console.tune({12.5, 1.5, 30.0, 4.0, 30.0});
        b = screen.console.line().b;
    }
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    EXPECT_EQ(12.5, screen.console.gains().kp_deg);
    EXPECT_EQ(30.0, screen.console.gains().max_steering_deg);
    source.drive_to(0.0, 0.0);
    EXPECT_TRUE(screen.console.moment().has_line);
    EXPECT_NEAR(0.05, screen.console.moment().nudge, 1e-12);
    EXPECT_NEAR(b->first, screen.console.line().b->first, 1e-6);
    EXPECT_NEAR(b->second, screen.console.line().b->second, 1e-6);
    EXPECT_THAT(screen.log(), HasSubstr("line of the last run"));
}

TEST_F(In_window, keeps_a_line_as_soon_as_it_is_set)
{
    {
        Hand_fed source;
        Screen screen(source);
        screen.console.start(false);
        source.drive_to(0.0, 0.0);
        screen.press("set_a");
        source.drive_to(30.0, 40.0);
        screen.press("set_b");
    }
    const std::optional<Line_ends> line = Store(store_folder()).load().line;
    ASSERT_TRUE(line);
    PointLLH a = line->a;
    PointLLH b = line->b;
    double distance = 0.0;
    double from = 0.0;
    double to = 0.0;
    ASSERT_TRUE(a.path_along_surface(b, distance, from, to));
    EXPECT_NEAR(50.0, distance, 0.01);
}

TEST_F(In_window, falls_back_on_the_settings_before_those_that_were_cut_short)
{
    Settings settings;
    settings.gains.kp_deg = 11.0;
    {
        Store store(store_folder());
        store.save(settings);
        settings.gains.kp_deg = 12.0;
        store.save(settings);
        EXPECT_EQ(12.0, store.load().gains.kp_deg);
    }
    const QByteArray whole = stored(Store::SETTINGS_FILE);
    const int second = whole.indexOf('\n') + 1;
    for (int length = second; length < whole.size() - 1; ++length) { // the last byte is the line's end
        QFile file(QDir(store_folder()).filePath(Store::SETTINGS_FILE));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(whole.left(length));
        file.close();
        EXPECT_EQ(11.0, Store(store_folder()).load().gains.kp_deg) << length;
    }
    for (int i = second; i < whole.size() - 1; ++i) { // a byte that was changed on the way
        QByteArray damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 1);
        QFile file(QDir(store_folder()).filePath(Store::SETTINGS_FILE));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(damaged);
        file.close();
        EXPECT_EQ(11.0, Store(store_folder()).load().gains.kp_deg) << i;
    }
}

TEST_F(In_window, keeps_the_settings_file_small_however_often_it_is_written)
{
    Store store(store_folder());
    Settings settings;
    for (int i = 0; i < 3000; ++i) {
        settings.nudge = 0.001 * i;
        store.save(settings);
    }
    EXPECT_LT(stored(Store::SETTINGS_FILE).size(), 70000);
    EXPECT_DOUBLE_EQ(2.999, store.load().nudge);
}

TEST_F(In_window, leaves_a_line_of_another_country_out)
{
    Settings settings;
    settings.line = Line_ends{{0.1, 0.1, 0.0}, {0.1001, 0.1, 0.0}};
    Store(store_folder()).save(settings);
    Hand_fed source;
    Screen screen(source);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    EXPECT_FALSE(screen.console.moment().has_line);
    EXPECT_THAT(screen.log(), HasSubstr("of another place"));
}

TEST_F(In_window, says_that_a_record_cannot_be_written_and_steers_on)
{
    ASSERT_TRUE(QDir(store_folder()).mkdir(Store::TRACE_FILE)); // a folder in the way, also for root
    Simulation source = fast_simulation();
    Screen screen(source);
    screen.drive_until(25.0);
    EXPECT_LT(std::fabs(screen.console.moment().off_seen), 0.06);
    const auto& alarm = screen.find<QLabel>("alarm");
    EXPECT_TRUE(alarm.isVisible());
    EXPECT_THAT(alarm.text().toStdString(), HasSubstr("Nothing is recorded"));
    EXPECT_THAT(alarm.text().toStdString(), HasSubstr("pid_trace.csv cannot be written: Is a directory"));
    EXPECT_THAT(screen.log(), HasSubstr("Error:console:operation"));
    EXPECT_GT(pixels_of(screen.find<Plan_view>().grab().toImage(), theme().bad), 3000);
}

// ---- viewers

TEST_F(In_window, serves_each_epoch_to_every_viewer)
{
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): as main() does
    Epoch_server server(0);
    Hand_fed source;
    Screen screen(source, &server);
    screen.console.start(false);
    source.drive_to(0.0, 0.0);
    screen.console.set_a();
    source.drive_to(50.0, 0.0);
    screen.console.set_b();
    const int viewers[] = {connect_to(server.bound_port()), connect_to(server.bound_port())};
    QByteArray seen[2];
    // A viewer gets what is said once it is accepted, so the epochs go on until both have seen one.
    double north = 60.0;
    ASSERT_TRUE(run_until([&] {
        source.drive_to(north += 1.0, 0.25);
        for (int i = 0; i < 2; ++i)
            read_into(seen[i], viewers[i]);
        return seen[0].contains('\n') && seen[1].contains('\n');
    }));
    source.drive_to(north + 1.0, 0.125);
    ASSERT_TRUE(run_until([&] {
        for (int i = 0; i < 2; ++i)
            read_into(seen[i], viewers[i]);
        return std::all_of(std::begin(seen), std::end(seen), [](const QByteArray& all) {
            return all.contains("xtrack=0.125 ") && all.endsWith('\n');
        });
    }));
    EXPECT_TRUE(server.has_viewers());
    for (const QByteArray& all : seen) {
        const QString last = QString::fromLatin1(all.trimmed().split('\n').last());
        const QRegularExpression form(R"(^t=\d+\.\d{3} lat=40\.\d{9} lon=-103\.\d{9} height=-?\d+\.\d{3} )"
                                      R"(quality=RTK_fixed heading=\d+\.\d\d speed=\d+\.\d{3} )"
                                      R"(xtrack=0\.125 atrack=\d+\.\d{3} swath=0 nudge=0\.00 )"
                                      R"(steering=-?\d+\.\d\d engaged=0$)");
        EXPECT_TRUE(form.match(last).hasMatch()) << last.toStdString();
    }
    close(viewers[0]);
    close(viewers[1]);
    ASSERT_TRUE(run_until([&] {
        source.drive_to(north += 1.0, 0.0);
        return !server.has_viewers();
    }));
}

TEST(Epoch_server, refuses_a_port_that_is_taken)
{
    const Receiver taken;
    EXPECT_THROW(Epoch_server server(taken.port), std::runtime_error);
}

// ---- a live receiver

TEST_F(In_window, dials_again_when_the_receiver_goes_away_and_comes_back)
{
    const Reserved_port reserved;
    const int port = reserved.number();
    auto receiver = std::make_unique<Receiver>(port);
    Live source("127.0.0.1", port);
    Screen screen(source);
    screen.console.start(false);
    const auto& alarm = screen.find<QLabel>("alarm");
    ASSERT_TRUE(run_until([&] { return receiver->accept_one(); }));
    EXPECT_EQ(Source::State::waiting, source.state());
    for (int i = 0; i < 10; ++i)
        receiver->send(gga(i, 0.3 * i));
    ASSERT_TRUE(run_until([&] { return screen.console.moment().number == 10; }));
    EXPECT_EQ(Source::State::receiving, source.state());
    EXPECT_FALSE(alarm.isVisible());
    EXPECT_NEAR(3.0, screen.console.moment().epoch.speed, 0.1);
    screen.console.set_a();
    receiver->send(gga(20, 10.0));
    ASSERT_TRUE(run_until([&] { return screen.console.moment().number == 11; }));
    screen.console.set_b();
    screen.console.engage(true);
    EXPECT_TRUE(screen.console.moment().engaged);

    receiver.reset();
    ASSERT_TRUE(run_until([&] { return source.state() == Source::State::lost; }));
    EXPECT_TRUE(alarm.isVisible());
    EXPECT_THAT(alarm.text().toStdString(), HasSubstr("Connection to 127.0.0.1:"));
    ASSERT_TRUE(run_until([&] { return !screen.console.moment().engaged; })); // two seconds of silence
    EXPECT_FALSE(screen.console.moment().has_fix);
    EXPECT_EQ("–", screen.find<Light_bar>().figure());
    EXPECT_THAT(screen.log(), HasSubstr("steering stopped: the receiver is silent"));

    receiver = std::make_unique<Receiver>(port);
    ASSERT_TRUE(run_until([&] { return receiver->accept_one(); }));
    receiver->send(gga(5, 12.0)); // by its clock before the fixes that came already
    ASSERT_TRUE(run_until([&] { return screen.console.moment().number == 12; }));
    EXPECT_EQ(Source::State::receiving, source.state());
    EXPECT_GT(screen.console.moment().epoch.fix.time_s, 3.9); // 2 s and the silence
    EXPECT_TRUE(screen.console.moment().has_fix);
    EXPECT_FALSE(screen.console.moment().engaged); // only the operator starts
    EXPECT_FALSE(alarm.isVisible());
}

TEST_F(In_window, shows_that_a_connected_receiver_is_silent)
{
    Receiver receiver;
    Live source("127.0.0.1", receiver.port);
    Screen screen(source);
    screen.console.start(false);
    ASSERT_TRUE(run_until([&] { return receiver.accept_one(); }));
    receiver.send(gga(0, 0.0) + gga(1, 0.3));
    ASSERT_TRUE(run_until([&] { return screen.console.moment().number == 2; }));
    ASSERT_TRUE(run_until([&] { return !screen.console.moment().has_fix; }));
    EXPECT_TRUE(screen.find<QLabel>("alarm").isVisible());
    EXPECT_THAT(screen.console.alarm().toStdString(), HasSubstr("silent"));
}

TEST(Live, dials_a_port_that_nobody_serves_about_once_a_second)
{
    int port = 0;
    {
        const Receiver gone;
        port = gone.port;
    }
    Live source("127.0.0.1", port);
    source.start();
    QTest::qWait(300);
    EXPECT_EQ(Source::State::waiting, source.state());
    QElapsedTimer timer;
    timer.start();
    source.stop();
    EXPECT_LT(timer.elapsed(), 20000); // and it can be ended meanwhile
}

// ---- recordings

TEST(Replay, gives_every_fix_with_the_sentences_before_it)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath("drive.nmea");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(sentence("GPGSV,1,1,01,02,71,034,49") + gga(0, 0.0) + gga(1, 1.0) +
               sentence("GPGSA,A,3,02,,,,,,,,,,,,1.2,0.7,1.0") + gga(2, 2.0));
    file.close();
    Replay replay(path, Paced_source::AT_ONCE);
    std::string order;
    QObject::connect(&replay, &Source::fix, [&order] { order += 'f'; });
    QObject::connect(&replay, &Source::sentence,
                     [&order](const QByteArray& bytes) { order += bytes.mid(5, 1).toStdString(); });
    replay.start();
    ASSERT_TRUE(run_until([&replay] { return replay.state() == Source::State::finished; }));
    EXPECT_EQ("VffAf", order); // of GSV and GSA the last letters
    EXPECT_NEAR(0.1, *replay.interval_s(), 1e-9);
    EXPECT_THROW(Replay(folder.filePath("none"), 1.0), std::runtime_error);
}

TEST(Replay, keeps_the_pace_that_is_asked_for)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath("drive.nmea");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i <= 50; ++i)
        file.write(gga(i, 0.3 * i));
    file.close();
    for (const auto& [speed, least_ms] : {std::pair(10.0, 450), std::pair(Paced_source::AT_ONCE, 0)}) {
        Replay replay(path, speed);
        int fixes = 0;
        QObject::connect(&replay, &Source::fix, [&fixes] { ++fixes; });
        QElapsedTimer timer;
        timer.start();
        replay.start();
        ASSERT_TRUE(run_until([&replay] { return replay.state() == Source::State::finished; }));
        EXPECT_EQ(51, fixes);
        EXPECT_GE(timer.elapsed(), least_ms);
    }
}

// ---- the program

namespace {

class Program : public Program_test {
protected:
    Program()
        : Program_test(GUIDANCE_CONSOLE_EMULATOR, GUIDANCE_CONSOLE,
                       {"libqoffscreen.so", "libqxcb", "libQt5XcbQpa", "libfontconfig"})
    {
        surroundings.variables["QUARVEL_BASE_DIR"] = "base/of/all";
    }
};

} // namespace

TEST_F(Program, tells_its_usage)
{
    const Outcome outcome = run({"--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    for (const char* option : {"--replay", "--connect", "--speed", "--seed", "--serve", "--store", "--night",
                               "--stopped", "--seconds", "--headless", "--snapshot", "--at", "--page"})
        EXPECT_THAT(outcome.out, HasSubstr(option));
}

TEST_F(Program, draws_its_window_by_day_and_by_night)
{
    ASSERT_EQ(0, run({"--snapshot", "day.png", "--at", "30", "--store", "store"}).status);
    ASSERT_EQ(
        0,
        run({"--snapshot", "night.png", "--at", "30", "--night", "--page", "2", "--store", "other"}).status);
    const QImage day(path("day.png"));
    const QImage night(path("night.png"));
    ASSERT_EQ(QSize(800, 480), day.size());
    ASSERT_EQ(QSize(800, 480), night.size());
    EXPECT_GT(pixels_of(day, Theme::bright().bad), 10000); // the button to stop
    EXPECT_GT(pixels_of(day, Theme::bright().good), 3000); // steering, on the line
    EXPECT_GT(pixels_of(night, Theme::dark().panel), 50000);
    // 30 s and the epoch at 0
    EXPECT_EQ(301, content("store/pid_trace.csv").count('\n'));
}

TEST_F(Program, draws_the_same_drive_to_the_byte_whenever_it_is_asked)
{
    for (const char* page : {"1", "4"}) { // the ones that time could show in
        QByteArray pictures[2];
        for (QByteArray& picture : pictures) {
            QDir(path("store")).removeRecursively();
            const Outcome outcome =
                run({"--snapshot", "x.png", "--at", "12", "--page", page, "--store", "store"});
            ASSERT_EQ(0, outcome.status) << outcome.err;
            EXPECT_EQ("picture: x.png\n", outcome.out);
            picture = content("x.png");
        }
        EXPECT_TRUE(pictures[0] == pictures[1]) << "page " << page;
    }
    EXPECT_THAT(content("store/console_log.txt").toStdString(), StartsWith("12:00:00.000 "));
}

TEST_F(Program, says_when_its_picture_cannot_be_written)
{
    QDir(folder.path()).mkdir("x.png");
    const Outcome outcome = run({"--snapshot", "x.png", "--at", "1", "--store", "store"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(outcome.err, HasSubstr("'x.png' cannot be written"));
}

TEST_F(Program, runs_without_a_screen_and_leaves_records_and_a_picture)
{
    const Outcome outcome = run({"--headless", "--speed", "max", "--seconds", "30", "--store", "store"});
    ASSERT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_THAT(outcome.out, HasSubstr("301 epochs, "));
    EXPECT_EQ(QSize(800, 480), QImage(path("store/guidance_console.png")).size());
    EXPECT_EQ(301, content("store/pid_trace.csv").count('\n'));
    EXPECT_THAT(content("store/console_log.txt").toStdString(), HasSubstr("on the line"));
}

TEST_F(Program, keeps_its_records_where_the_platform_says_unless_told)
{
    ASSERT_EQ(0, run({"--headless", "--speed", "max", "--seconds", "1"}).status);
    EXPECT_EQ(11, content("base/of/all/pcf/pid_trace.csv").count('\n'));
}

TEST_F(Program, replays_a_recording_to_its_end)
{
    QByteArray drive;
    for (int i = 0; i < 600; ++i)
        drive += gga(i, 0.3 * i);
    const Outcome outcome =
        run({"--headless", "--replay", write("drive.nmea", drive), "--speed", "max", "--store", "store"});
    ASSERT_EQ(0, outcome.status) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("600 epochs, +0.000 m off the line"));
    EXPECT_THAT(content("store/console_log.txt").toStdString(), HasSubstr("end of the recording"));
    EXPECT_EQ(600, content("store/pid_trace.csv").count('\n'));
}

TEST_F(Program, replays_every_recorded_drive)
{
    const QDir drives(QStringLiteral(QUARVEL_DATA_DIR "/nmea"));
    if (!drives.exists())
        GTEST_SKIP() << "recorded drives are not at hand in " QUARVEL_DATA_DIR;
    const std::pair<const char*, const char*> cases[] = {{"brisbane-car-1hz.nmea", "156 epochs, "},
                                                         {"colorado-car-rtk-4hz-part1.pos", "1100 epochs, "},
                                                         {"auckland-still-1hz.log", "34 epochs, "}};
    for (const auto& [file, expected] : cases) {
        const Outcome outcome = run({"--headless", "--replay", drives.filePath(file), "--speed", "max",
                                     "--store", QString(file) + ".store"});
        EXPECT_EQ(0, outcome.status) << outcome.err;
        EXPECT_THAT(outcome.out, StartsWith(expected)) << file;
    }
}

TEST_F(Program, goes_on_without_a_store_and_says_so)
{
    write("file", "in the way");
    const Outcome headless =
        run({"--headless", "--speed", "max", "--seconds", "30", "--store", "file/below"});
    EXPECT_EQ(0, headless.status);
    EXPECT_THAT(headless.out, HasSubstr("301 epochs, "));
    EXPECT_THAT(headless.err, HasSubstr("no store at file/below"));
    ASSERT_EQ(0, run({"--snapshot", "x.png", "--at", "30", "--stopped", "--store", "file/below"}).status);
    EXPECT_GT(pixels_of(QImage(path("x.png")), Theme::bright().bad), 5000); // the alarm; the button is green
    EXPECT_EQ("in the way", content("file").toStdString());
}

TEST_F(Program, goes_on_with_a_store_that_is_full_and_says_so)
{
    surroundings.largest_file = 100 << 10; // the trace of two minutes is longer
    ASSERT_EQ(0, run({"--snapshot", "x.png", "--at", "140", "--store", "store"}).status);
    EXPECT_EQ(100 << 10, content("store/pid_trace.csv").size());
    EXPECT_THAT(content("store/console_log.txt").toStdString(),
                HasSubstr("nothing is recorded: pid_trace.csv cannot be written: no room is left"));
    EXPECT_EQ(1, content("store/console_log.txt").count("nothing is recorded"));
    const QImage plan = QImage(path("x.png")).copy(0, 140, 420, 260);
    EXPECT_GT(pixels_of(plan, Theme::bright().bad), 3000);
}

TEST_F(Program, draws_what_a_live_receiver_sends)
{
    Receiver receiver;
    Child_process program = start({"--connect", QString("127.0.0.1:%1").arg(receiver.port), "--snapshot",
                                   "x.png", "--at", "3", "--store", "store"});
    ASSERT_TRUE(run_until([&] { return receiver.accept_one(); }));
    receiver.send(gga(0, 0.0) + gga(1, 0.3) + gga(2, 0.6));
    EXPECT_EQ(0, program.finish().status);
    EXPECT_EQ(QSize(800, 480), QImage(path("x.png")).size());
    EXPECT_THAT(content("store/console_log.txt").toStdString(), HasSubstr(":receiving\n"));
    EXPECT_THAT(content("store/console_log.txt").toStdString(), HasSubstr("no line yet"));
}

TEST_F(Program, prints_the_port_that_it_serves_and_ends_when_told_by_a_signal)
{
    Child_process program = start({"--headless", "--serve", "0", "--store", "store"});
    const std::string served = program.line();
    ASSERT_THAT(served, StartsWith("serving on port "));
    const int viewer = connect_to(std::stoi(served.substr(served.rfind(' '))));
    QByteArray seen;
    EXPECT_TRUE(run_until([&] {
        read_into(seen, viewer);
        return seen.count('\n') >= 3;
    }));
    EXPECT_THAT(seen.toStdString(), StartsWith("t="));
    program.signal(SIGTERM);
    // The server waits a moment for its viewers to leave.
    close(viewer);
    const Outcome outcome = program.finish();
    EXPECT_EQ(0, outcome.status);
    EXPECT_THAT(outcome.out, HasSubstr("picture: "));
}

TEST_F(Program, ends_with_one_message_and_status_1_for_what_it_cannot_do)
{
    const QString good = write("good", gga(0, 0.0) + gga(1, 1.0));
    const Receiver taken;
    const struct {
        QStringList arguments;
        const char* message;
    } wrong[] = {
        {{"--replay", "missing"}, "does not exist"},
        {{"--replay", folder.path()}, "is not a file"},
        {{"--replay", write("other", "To whom it may concern\n")}, "holds no position fix"},
        {{"--replay"}, "Missing value"},
        {{"--replay", ""}, "--replay takes a name"},
        {{"--connect", "here"}, "--connect takes HOST:PORT"},
        {{"--connect", ":99"}, "--connect takes HOST:PORT"},
        {{"--connect", "here:0"}, "--connect takes HOST:PORT"},
        {{"--connect", "here:65536"}, "--connect takes HOST:PORT"},
        {{"--connect", QString(256, 'x') + ":9"}, "too long"},
        {{"--connect", "h:1", "--replay", good}, "exclude each other"},
        {{"--connect", "h:1", "--speed", "10"}, "not for a live receiver"},
        {{"--connect", "h:1", "--seed", "1"}, "for the simulation"},
        {{"--speed", "2"}, "--speed takes 1, 10 or max, not '2'"},
        {{"--seed", "-1"}, "--seed takes"},
        {{"--seed", "1.5"}, "--seed takes a whole number"},
        {{"--serve", "65536"}, "--serve takes a number from 0 to 65535"},
        {{"--serve", QString::number(taken.port), "--store", "store"}, "cannot be served"},
        {{"--seconds", "soon"}, "--seconds takes"},
        {{"--at", "1"}, "--at is for --snapshot"},
        {{"--snapshot", "none/x.png"}, "there is no folder"},
        {{"--snapshot", "x.png", "--at", "nan"}, "--at takes"},
        {{"--snapshot", "x.png", "--headless"}, "exclude each other"},
        {{"--snapshot", "x.png", "--page", "5"}, "--page takes"},
        {{"--headless", "--page", "1"}, "--page is for a window"},
        {{"--store", ""}, "--store takes a name"},
        {{"--colour"}, "colour"},
        {{"good"}, "belongs to no option"},
    };
    for (const auto& one : wrong) {
        SCOPED_TRACE(one.arguments.join(' ').toStdString());
        const Outcome outcome = run(one.arguments);
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err, HasSubstr(one.message));
        EXPECT_THAT(outcome.err, HasSubstr("guidance_console: "));
    }
}

TEST_F(Program, opens_its_window_on_a_screen)
{
    if (QStandardPaths::findExecutable("Xvfb").isEmpty())
        GTEST_SKIP() << "Xvfb is not installed: no screen to open a window on";
    if (!QString(GUIDANCE_CONSOLE_EMULATOR).isEmpty())
        GTEST_SKIP() << "under an emulator the program runs without a screen";
    // Xvfb picks a free display, says which on its standard output, and keeps its screen in a file.
    Child_process xvfb("", "Xvfb",
                       {"-displayfd", "1", "-screen", "0", "800x480x24", "-fbdir",
                        folder.path().toStdString(), "-nolisten", "tcp"});
    const std::string display = xvfb.line();
    EXPECT_NE("", display);
    qputenv("DISPLAY", QByteArray::fromStdString(":" + display));
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("ASAN_OPTIONS", "detect_leaks=0"); // X11's own; ours are looked for in the runs without a screen
    Child_process program = start({"--store", "store"});
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // The button to stop, in the order of the bytes of a pixel.
    const QColor stop = Theme::bright().bad;
    QByteArray pixel;
    for (const int part : {stop.blue(), stop.green(), stop.red()})
        pixel.append(static_cast<char>(part));
    EXPECT_TRUE(run_until([&] { return content("Xvfb_screen0").count(pixel) > 5000; }));
    program.signal(SIGTERM);
    EXPECT_EQ(0, program.finish().status);
    xvfb.signal(SIGTERM);
    xvfb.status();
}
