#include "examples/common/Guidance.h"
#include "examples/common/Recording.h"
#include "examples/common/Straight.h"
#include "examples/common/Vehicle.h"

#include "tests/support/Program_test.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <random>

using testing::HasSubstr;

namespace {

class Program : public Program_test {
protected:
    // Qt's offscreen platform never deletes the screen that it makes up.
    Program() : Program_test(GUIDANCE_ROAD_EMULATOR, GUIDANCE_ROAD, {"libqoffscreen.so"}) {}

    QStringList lines(const QString& name) const
    {
        return QString::fromUtf8(content(name)).split('\n', Qt::SkipEmptyParts);
    }
};

QString recordings()
{
    return QStringLiteral(QUARVEL_DATA_DIR "/nmea/");
}

/// What stands in the summary behind a name.
QString row(const Outcome& outcome, const QString& name)
{
    const QRegularExpression pattern("^ *" + name + " +(.*)$", QRegularExpression::MultilineOption);
    return pattern.match(QString::fromStdString(outcome.out)).captured(1);
}

/// "$...*hh" with the checksum worked out.
QByteArray sentence(const QByteArray& body)
{
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    return "$" + body + "*" + QByteArray::number(sum, 16).rightJustified(2, '0').toUpper() + "\r\n";
}

QByteArray gga(const QByteArray& time, const QByteArray& lat_min, int quality)
{
    return sentence("GPGGA," + time + ",27" + lat_min + ",S,15305.44310,E," + QByteArray::number(quality) +
                    ",07,1.3,50.6,M,39.2,M,,");
}

QByteArray rmc(const QByteArray& time, const QByteArray& lat_min, char status)
{
    return sentence("GPRMC," + time + "," + status + ",27" + lat_min +
                    ",S,15305.44310,E,33.9,157.8,030308,,,A");
}

const char* const TRACE_LINE = R"(^PID:xtrack:(\d+),((-?\d+\.\d{3}),(-?\d+\.\d{3})(,-?\d+\.\d{3}){9})\r$)";
const char* const LOG_LINE = R"(^(Info|Caution|Warning|Error|Critical):[^:]+:[^:]+:[0-9A-F]{16}:\d+:.+$)";

QStringList without_time(const QStringList& trace)
{
    QStringList rest;
    for (const QString& line : trace)
        rest << QRegularExpression(TRACE_LINE).match(line).captured(2);
    return rest;
}

bool is_near(QRgb pixel, QRgb colour)
{
    return std::abs(qRed(pixel) - qRed(colour)) + std::abs(qGreen(pixel) - qGreen(colour)) +
               std::abs(qBlue(pixel) - qBlue(colour)) <
           30;
}

/// How many pixels in the upper rows are of a colour, and their bounds.
std::pair<int, QRect> pixels(const QImage& image, QRgb colour, int rows)
{
    int count = 0;
    QRect bounds;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < image.width(); ++x)
            if (is_near(image.pixel(x, y), colour)) {
                ++count;
                bounds |= QRect(x, y, 1, 1);
            }
    return {count, bounds};
}

constexpr QRgb DRIVE = 0xFF2F6DB5;
constexpr QRgb COUNTED = 0xFFE07B1A;
constexpr int BELOW_HEAD = 84; // the key above the charts shows the colours, too

} // namespace

using Simulation = Program;

TEST_F(Simulation, ends_on_its_line_with_a_trace_line_an_epoch_and_its_events_in_the_log)
{
    const Outcome outcome = run({"--out", "run"});
    ASSERT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ("600", row(outcome, "Fixes used").toStdString());
    EXPECT_LT(std::fabs(row(outcome, "At the end").section(' ', 0, 0).toDouble()), 0.05);
    EXPECT_NEAR(180.0, row(outcome, "Distance driven").section(' ', 0, 0).toDouble(), 2.0); // 3 m/s for 60 s

    const QStringList trace = lines("run/pid_trace.csv");
    ASSERT_EQ(600, trace.size());
    for (int i = 0; i < trace.size(); ++i) {
        const auto match = QRegularExpression(TRACE_LINE).match(trace[i]);
        ASSERT_TRUE(match.hasMatch()) << trace[i].toStdString();
        if (i >= 300) {
            EXPECT_LT(std::fabs(match.captured(4).toDouble()), 0.08); // the receiver's own noise on top
        }
    }
    const QStringList log = lines("run/log.txt");
    for (const QString& line : log)
        EXPECT_TRUE(QRegularExpression(LOG_LINE).match(line).hasMatch()) << line.toStdString();
    for (const char* event :
         {"^Info:receiver:fix:.*first fix, RTK fixed", "^Caution:steering:limit:.*at its limit",
          "^Info:guidance:line:.* on the line", "^Info:guidance_road:drive:.*end of the drive"})
        EXPECT_EQ(1, log.filter(QRegularExpression(event)).size()) << event;
    EXPECT_EQ(3, QDir(path("run")).entryList(QDir::Files | QDir::Hidden).size());
}

TEST_F(Simulation, draws_the_drive_with_the_same_scale_north_and_east)
{
    ASSERT_EQ(0, run({"--out", "run"}).status);
    const QImage image(path("run/guidance.png"));
    ASSERT_EQ(QSize(1200, 900), image.size());
    const QImage charts = image.copy(0, BELOW_HEAD, 1200, 900 - BELOW_HEAD);
    EXPECT_GT(pixels(charts, DRIVE, charts.height()).first, 500);
    EXPECT_GT(pixels(charts, COUNTED, charts.height()).first, 3000);

    // The line runs at a heading of 72 degrees: its drawn slope tells the ratio of the scales.
    const QRect on_plan = pixels(charts, COUNTED, 330).second;
    EXPECT_NEAR(std::tan(72.0 * RADIANS_PER_DEGREE), 1.0 * on_plan.width() / on_plan.height(), 0.1);
}

TEST_F(Simulation, repeats_byte_for_byte_but_for_the_clock_with_the_same_seed_only)
{
    const auto drive = [this](const char* seed) {
        const Outcome outcome = run({"--seconds", "15", "--seed", seed, "--out", "run"});
        EXPECT_EQ(0, outcome.status);
        return QList<QByteArray>{QByteArray::fromStdString(outcome.out), content("run/log.txt"),
                                 content("run/guidance.png"),
                                 without_time(lines("run/pid_trace.csv")).join('\n').toUtf8()};
    };
    const QList<QByteArray> first = drive("7");
    EXPECT_EQ(150, first[3].count('\n') + 1);
    EXPECT_EQ(first, drive("7"));
    EXPECT_NE(first[3], drive("8")[3]);
}

TEST_F(Simulation, takes_the_receivers_time_when_told_to)
{
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(0, run({"--seconds", "1", "--realtime"}).status);
    EXPECT_GE(timer.elapsed(), 900); // ten fixes, nine tenths of a second from the first to the last
    EXPECT_EQ(10, lines("out/guidance_road/pid_trace.csv").size());
}

TEST_F(Simulation, steers_onto_a_line_that_the_options_give)
{
    const Outcome outcome = run({"--a", "52.1,-0.5", "--b", "52.099,-0.5", "--out", "run"}); // due south
    ASSERT_EQ(0, outcome.status) << outcome.err;
    EXPECT_LT(std::fabs(row(outcome, "At the end").section(' ', 0, 0).toDouble()), 0.05);
    EXPECT_TRUE(
        QString::fromStdString(outcome.out).contains(QRegularExpression(R"(59\.9 s .*hdg (179|180)\.\d )")));
}

TEST(Closed_loop, stays_within_5_cm_of_the_line_after_25_seconds_with_any_seed)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        const PointLLH a(0.9, -0.2, 50.0);
        const PointLLH b(0.9001, -0.2003, 50.0);
        Vehicle vehicle(a, b, seed);
        Guidance guidance(a, b, Vehicle::INTERVAL_S, nullptr);
        for (int i = 0; i < 600; ++i) {
            if (i >= 250) {
                ASSERT_LT(std::fabs(vehicle.true_xtrack()), 0.05) << "seed " << seed << ", epoch " << i;
            }
            vehicle.drive(guidance.step(vehicle.measure()).steering_deg);
        }
    }
}

TEST(Guidance, steers_towards_the_line_from_either_side_and_in_either_direction)
{
    const PointLLH a(0.5, 0.5, 0.0);
    Coordinate_converter plane;
    plane.setLocalCenter(a);
    PointLLH b;
    plane.convLocal2PointLLH(100.0, 0.0, b); // the line runs north
    for (const double east : {-2.0, 2.0})
        for (const double speed : {-3.0, 3.0}) { // metres a second along the line: south, north
            Guidance guidance(a, b, 1.0, nullptr);
            Epoch epoch;
            for (int i = 0; i < 5; ++i) {
                Fix fix;
                fix.time_s = i;
                plane.convLocal2PointLLH(50.0 + speed * i, east, fix.position);
                epoch = guidance.step(fix);
            }
            SCOPED_TRACE(testing::Message() << east << " m east, " << speed << " m/s");
            // To and from geodetic coordinates is good to 0.1 mm.
            EXPECT_NEAR(east, epoch.xtrack, 1e-4); // right of a line to the north is east
            EXPECT_NEAR(50.0 + 4.0 * speed, epoch.atrack, 1e-4);
            EXPECT_NEAR(3.0, epoch.speed, 1e-4);
            EXPECT_NEAR(speed > 0.0 ? 0.0 : 180.0, std::fmod(epoch.heading_deg + 1e-3, 360.0), 0.01);
            EXPECT_GT(-east * speed * epoch.steering_deg,
                      0.0); // to the left when east of it and driving north
        }
}

TEST(Vehicle, comes_back_after_a_circle_of_wheelbase_over_the_tangent_of_the_wheel_angle)
{
    // A circle in 15 s at 3 m/s has the radius 45 / (2 pi) = 7.162 m, and atan(2.8 / 7.162) is 21.353
    // degrees, of which the sensor's zero adds 0.7.
    Vehicle vehicle({0.5, 0.5, 0.0}, {0.5001, 0.5, 0.0}, 1);
    std::vector<double> off;
    for (int i = 0; i < 250; ++i) {
        vehicle.drive(20.653);
        off.push_back(vehicle.true_xtrack());
    }
    for (std::size_t i = 20; i < 100; ++i)
        EXPECT_NEAR(off[i], off[i + 150], 0.01);
    const auto [low, high] = std::minmax_element(off.begin() + 20, off.begin() + 170);
    EXPECT_NEAR(2.0 * 7.162, *high - *low, 0.02);
}

TEST(Vehicle, has_the_noise_of_an_rtk_receiver)
{
    const PointLLH a(0.5, 0.5, 0.0);
    const PointLLH b(0.5001, 0.5, 0.0);
    Vehicle vehicle(a, b, 3);
    Mini_PP line(a, b);
    double squares = 0.0;
    double mean_height = 0.0;
    constexpr int COUNT = 5000;
    for (int i = 0; i < COUNT; ++i) {
        const Fix fix = vehicle.measure();
        Math2D::Point place;
        line.convPointLLH2Local(fix.position, place.first, place.second);
        // On a straight way at 25 degrees to the line the antenna, 1.2 m ahead, is 1.2 * sin(-25) off.
        const double error =
            line.ab_xtrack(place) - vehicle.true_xtrack() + 1.2 * std::sin(25.0 * RADIANS_PER_DEGREE);
        squares += error * error;
        mean_height += fix.position.height / COUNT;
        vehicle.drive(-0.7); // straight on: the sensor's zero is 0.7 degrees off
    }
    EXPECT_NEAR(0.008, std::sqrt(squares / COUNT), 0.004); // root of 7 mm and 4 mm squared
    EXPECT_NEAR(2.9, mean_height, 0.2); // the plane rises above the ellipsoid by d * d / 2 R
}

TEST(longest_straight, agrees_with_trying_every_pair_of_ends)
{
    std::mt19937 random(11);
    const auto uniform = [&random](double low, double high) {
        return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
    };
    for (int round = 0; round < 10000; ++round) {
        SCOPED_TRACE(testing::Message() << "seed 11, round " << round);
        std::vector<Math2D::Point> places(10);
        for (std::size_t i = 1; i < places.size(); ++i)
            places[i] = {places[i - 1].first + uniform(-0.3, 1.0), places[i - 1].second + uniform(-0.4, 0.4)};
        const double tolerance = uniform(0.05, 0.6);

        double longest = 0.0;
        for (std::size_t i = 0; i < places.size(); ++i)
            for (std::size_t j = i + 1; j < places.size(); ++j) {
                const double length = places[i].get_distance(places[j]);
                const Math2D::Line line{places[i], places[j]};
                bool straight = length > tolerance;
                for (std::size_t k = i + 1; k < j; ++k)
                    straight = straight && (places[i].get_distance(places[k]) <= tolerance ||
                                            (std::fabs(line.get_distance_across(places[k])) <= tolerance &&
                                             line.get_distance_along(places[k]) > 0.0));
                if (straight)
                    longest = std::max(longest, length);
            }
        ASSERT_EQ(longest, longest_straight(places, tolerance).length);
    }
}

using Reading = Program;

TEST_F(Reading, takes_the_height_above_the_ellipsoid_and_the_quality_from_gga)
{
    const Recording read = read_recording(write("x.nmea", gga("222437.000", "34.33926", 4)));
    ASSERT_EQ(1U, read.fixes.size());
    const Fix& fix = read.fixes[0];
    EXPECT_NEAR(-(27.0 + 34.33926 / 60.0), fix.position.lat / RADIANS_PER_DEGREE, 1e-12);
    EXPECT_NEAR(153.0 + 5.44310 / 60.0, fix.position.lon / RADIANS_PER_DEGREE, 1e-12);
    EXPECT_NEAR(50.6 + 39.2, fix.position.height, 1e-9);
    EXPECT_EQ(Quality::rtk_fixed, fix.quality);
    EXPECT_EQ(0.0, fix.time_s);
}

TEST_F(Reading, counts_no_epoch_twice)
{
    const Recording read =
        read_recording(write("x.nmea", gga("100000.00", "34.1", 1) + rmc("100000.00", "34.1", 'A') +
                                           gga("100000.00", "34.1", 1) + gga("100000.20", "34.2", 1) +
                                           rmc("100000.20", "34.2", 'A') + gga("095959.00", "34.0", 1)));
    ASSERT_EQ(2U, read.fixes.size());
    EXPECT_NEAR(0.2, read.fixes[1].time_s, 1e-9);
    EXPECT_EQ(2, read.repeated);
    EXPECT_NEAR(0.2, read.interval_s(), 1e-9);
}

TEST_F(Reading, takes_rmc_where_there_is_no_gga_and_rejects_what_is_void)
{
    const Recording read =
        read_recording(write("x.nmea", rmc("100000.00", "34.1", 'A') + rmc("100001.00", "34.1", 'V') +
                                           rmc("100002.00", "34.2", 'A')));
    EXPECT_EQ(2U, read.fixes.size());
    EXPECT_EQ(1, read.without_fix);
}

TEST_F(Reading, counts_quality_0_and_wrong_checksums_as_rejected)
{
    QByteArray wrong = gga("100001.00", "34.1", 1);
    wrong[20] = wrong[20] == '3' ? '4' : '3';
    const Recording read =
        read_recording(write("x.nmea", gga("100000.00", "34.1", 1) + wrong + gga("100002.00", "34.1", 0) +
                                           "$GPGSV,3,1\r\n" + gga("100003.00", "34.1", 1)));
    EXPECT_EQ(2U, read.fixes.size());
    EXPECT_EQ(1, read.without_fix);
    EXPECT_EQ(2, read.damaged);
    EXPECT_EQ(3, read.rejected());
}

TEST_F(Reading, passes_over_what_stands_before_a_sentence_and_over_comments)
{
    const Recording read = read_recording(write(
        "x.nmea", "# a $GPGGA here means nothing\n2014-08-01T00:00:00.285000Z " +
                      gga("100000.00", "34.1", 1) + "\x01\xFF" + gga("100001.00", "34.2", 1) + "text\n"));
    EXPECT_EQ(2U, read.fixes.size());
    EXPECT_EQ(0, read.rejected());
}

TEST_F(Reading, goes_on_past_midnight)
{
    const Recording read =
        read_recording(write("x.nmea", gga("235959.50", "34.1", 1) + gga("000000.50", "34.2", 1)));
    ASSERT_EQ(2U, read.fixes.size());
    EXPECT_NEAR(1.0, read.fixes[1].time_s, 1e-9);
}

TEST_F(Reading, takes_a_last_sentence_that_is_whole_but_for_its_line_end)
{
    EXPECT_EQ(2U,
              read_recording(write("x.nmea", gga("100000", "34.1", 1) + gga("100001", "34.2", 1).trimmed()))
                  .fixes.size());
}

TEST_F(Reading, takes_solution_text)
{
    const Recording read =
        read_recording(write("x.pos", "%  GPST latitude(deg) longitude(deg) height(m) Q\n"
                                      "2025/07/08 19:35:08.499 40.5 -105.25 1599.5 1 22\n"
                                      "2025/07/08 19:35:08.749 40.6 -105.25 1599.5 2.000 22\n"
                                      "2025/07/08 19:35:08.999 40.6 -105.25 1599.5 0 22\n"
                                      "2025/07/08 19:35:09.249 40.6 -105.25 oops 1 22\n"));
    ASSERT_EQ(2U, read.fixes.size());
    EXPECT_NEAR(40.5, read.fixes[0].position.lat / RADIANS_PER_DEGREE, 1e-12);
    EXPECT_EQ(1599.5, read.fixes[0].position.height);
    EXPECT_NEAR(0.25, read.fixes[1].time_s, 1e-9);
    EXPECT_EQ(Quality::rtk_float, read.fixes[1].quality);
    EXPECT_EQ(1, read.without_fix);
    EXPECT_EQ(1, read.damaged);
}

/// Counts as the data's own description has them; the lines as a separate script found them by trying every
/// pair of fixes (0: none of 100 m within 3 m).
struct Recorded {
    const char* file;
    int fixes;
    int rejected;
    double tolerance;
    double length;
};

void PrintTo(const Recorded& recorded, std::ostream* stream)
{
    *stream << recorded.file;
}

class Replay : public Program, public testing::WithParamInterface<Recorded> {
protected:
    QString recording() const { return recordings() + GetParam().file; }
    void SetUp() override
    {
        if (!QFile::exists(recording()))
            GTEST_SKIP() << "recorded drives are not at hand in " QUARVEL_DATA_DIR;
    }
};

TEST_P(Replay, uses_every_fix_and_writes_all_files)
{
    const Outcome outcome = run({"--replay", recording(), "--out", "run"});
    ASSERT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ(GetParam().fixes, row(outcome, "Fixes used").toInt());
    EXPECT_EQ(GetParam().rejected, row(outcome, "Fixes rejected").section(' ', 0, 0).toInt());
    EXPECT_EQ(GetParam().fixes, lines("run/pid_trace.csv").size());
    EXPECT_EQ(QSize(1200, 900), QImage(path("run/guidance.png")).size());
    const std::string line = lines("run/log.txt").value(0).toStdString();
    EXPECT_THAT(line, HasSubstr(GetParam().length > 0.0 ? "line along" : "the two fixes farthest apart"));
}

TEST_P(Replay, takes_a_line_whose_own_stretch_lies_within_the_tolerance)
{
    const Recording read = read_recording(recording());
    const Line_choice choice = choose_line(read.fixes);
    ASSERT_EQ(GetParam().length > 0.0, choice.straight);
    if (!choice.straight)
        return;
    const std::vector<Math2D::Point> places = in_plane(read.fixes);
    const Stretch stretch = longest_straight(places, GetParam().tolerance);
    EXPECT_NEAR(GetParam().length, stretch.length, 0.01);
    Mini_PP line(choice.a, choice.b);
    for (std::size_t i = stretch.first; i <= stretch.last; ++i) {
        Math2D::Point place;
        line.convPointLLH2Local(read.fixes[i].position, place.first, place.second);
        EXPECT_LE(std::fabs(line.ab_xtrack(place)), GetParam().tolerance + 0.001);
        EXPECT_GE(line.ab_atrack(place), -0.001);
    }
}

const Recorded RECORDED[] = {{"brisbane-car-1hz.nmea", 156, 0, 0.1, 124.469},
                             {"atlantic-ship-1hz.log", 545, 0, 1.0, 611.097},
                             {"california-car-dgps-1hz.nmea", 327, 0, 0.1, 131.057},
                             {"colorado-car-rtk-4hz-part1.pos", 1100, 0, 0.1, 269.241},
                             {"colorado-walk-rtk-4hz.nmea", 536, 0, 0.0, 0.0},
                             {"illinois-car-dgps-10hz.log", 40, 0, 0.0, 0.0},
                             {"auckland-still-1hz.log", 34, 8, 0.0, 0.0}};
INSTANTIATE_TEST_SUITE_P(recorded, Replay, testing::ValuesIn(RECORDED));

using Failing = Program;

TEST_F(Failing, input_ends_with_one_message_status_1_and_no_output)
{
    const QByteArray good = gga("100000", "34.1", 1) + gga("100001", "34.2", 1);
    QByteArray binary("\xD3\x00\x13\x3E", 4);
    for (int i = 0; i < 500; ++i)
        binary += static_cast<char>(i * 37);
    const struct {
        const char* name;
        QByteArray content;
        const char* message;
    } inputs[] = {
        {"no fix", gga("100000", "34.1", 0) + rmc("100000", "34.1", 'V'), "holds no position fix"},
        {"empty", "", "holds no position fix"},
        {"other text", "To whom it may concern\n", "holds no position fix"},
        {"header only", "%  GPST latitude(deg)\n", "holds no position fix"},
        {"cut within a sentence", good + gga("100002", "34.3", 1).left(40), "cut off"},
        {"cut within the checksum", good + gga("100002", "34.3", 1).trimmed().chopped(1), "cut off"},
        {"cut before a sentence", good + "2014-08-01T00:0", "cut off"},
        {"cut solution", "%\n2025/07/08 19:35:08.499 40.5 -105.25 1599.5 1 22\n2025/07/08 19:3", "cut off"},
        {"binary", good + binary, "binary"},
        {"one place", good.left(good.indexOf('\n') + 1), "one place"},
    };
    for (const auto& input : inputs) {
        SCOPED_TRACE(input.name);
        const Outcome outcome = run({"--replay", write("input", input.content), "--out", "run"});
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err, HasSubstr(input.message));
        EXPECT_EQ(1, std::count(outcome.err.begin(), outcome.err.end(), '\n'));
        EXPECT_EQ("", outcome.out);
        EXPECT_FALSE(QFile::exists(path("run")));
    }
}

TEST_F(Failing, options_end_with_one_message_status_1_and_no_output)
{
    const QString good = write("good", gga("100000", "34.1", 1) + gga("100001", "34.2", 1));
    const struct {
        QStringList arguments;
        const char* message;
    } wrong[] = {
        {{"--replay", path("missing")}, "does not exist"},
        {{"--replay", folder.path()}, "is not a file"},
        {{"--replay", "/dev/zero"}, "is not a file"},
        {{"--replay"}, "Missing value"},
        {{"--replay", ""}, "name of a file"},
        {{"--seconds", "soon"}, "--seconds takes a number from 1 to 3600, not 'soon'"},
        {{"--seconds", "0"}, "--seconds takes"},
        {{"--seconds", "3601"}, "--seconds takes"},
        {{"--seconds", "nan"}, "--seconds takes"},
        {{"--seed", "-1"}, "--seed takes"},
        {{"--a", "1,2"}, "both ends"},
        {{"--b", "1,2"}, "both ends"},
        {{"--a", "-27.5,151.5", "--b", "-27.5,151.5"}, "same place"},
        {{"--a", "1", "--b", "1,2"}, "LAT,LON"},
        {{"--a", "1,x", "--b", "1,2"}, "--a takes a number"},
        {{"--a", "91,0", "--b", "1,2"}, "from -90 to 90"},
        {{"--a", "1,2", "--b", "3,4"}, "100 km apart"},
        {{"--replay", good, "--a", "40,-105", "--b", "40,-105.001"}, "100 km from --a"},
        {{"--replay", good, "--seed", "1"}, "for the simulation"},
        {{"--fast", "--realtime"}, "exclude each other"},
        {{"--colour"}, "colour"},
        {{"good"}, "belongs to no option"},
    };
    for (const auto& one : wrong) {
        SCOPED_TRACE(one.arguments.join(' ').toStdString());
        const Outcome outcome = run(one.arguments);
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err, HasSubstr(one.message));
        EXPECT_EQ(1, std::count(outcome.err.begin(), outcome.err.end(), '\n'));
        EXPECT_EQ("", outcome.out);
        EXPECT_FALSE(QFile::exists(path("out")));
    }
}

TEST_F(Failing, output_ends_with_one_message_and_status_1_and_leaves_nothing_half_written)
{
    write("file", "in the way");
    ASSERT_TRUE(QDir(folder.path()).mkpath("taken/guidance.png"));
    for (const char* out : {"file", "file/below", "taken", ""}) {
        SCOPED_TRACE(out);
        const Outcome outcome = run({"--seconds", "1", "--out", out});
        EXPECT_EQ(1, outcome.status);
        EXPECT_THAT(outcome.err, HasSubstr("--out"));
        EXPECT_EQ(1, std::count(outcome.err.begin(), outcome.err.end(), '\n'));
    }
    EXPECT_EQ("in the way", content("file").toStdString());
    EXPECT_EQ(QStringList("guidance.png"),
              QDir(path("taken")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries));
}

TEST_F(Program, tells_its_usage)
{
    const Outcome outcome = run({"--help"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    for (const char* option :
         {"--replay", "--a", "--b", "--out", "--seconds", "--seed", "--fast", "--realtime"})
        EXPECT_THAT(outcome.out, HasSubstr(option));
}
