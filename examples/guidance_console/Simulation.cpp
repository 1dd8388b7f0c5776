#include "Simulation.h"

#include <array>
#include <cmath>

namespace {

constexpr double FIELD_LENGTH = 120.0;
constexpr double FIELD_HEADING = 72.0 * RADIANS_PER_DEGREE;
constexpr double HEADLAND = 8.0;  // metres beyond the line's ends
constexpr double TURN_DEG = 30.0; // at this angle the vehicle comes back some 9 m beside
constexpr double TURNED_WITHIN_DEG = 25.0;
constexpr int EPOCHS_PER_SKY = 10; // receivers report satellites once a second

Line_ends field_across()
{
    Line_ends field;
    field.a = PointLLH(-27.5 * RADIANS_PER_DEGREE, 151.5 * RADIANS_PER_DEGREE, 400.0);
    Coordinate_converter plane;
    plane.setLocalCenter(field.a);
    plane.convLocal2PointLLH(FIELD_LENGTH * std::cos(FIELD_HEADING), FIELD_LENGTH * std::sin(FIELD_HEADING),
                             field.b);
    return field;
}

double between(double heading_deg, double other_deg)
{
    return std::remainder(heading_deg - other_deg, 360.0);
}

struct Made_up {
    const char* talker;
    int number; ///< as NMEA numbers it
    int elevation;
    int azimuth;
    int signal;
    bool used;
};

constexpr std::array<Made_up, 22> MADE_UP = {{
    {"GP", 2, 71, 34, 49, true},    {"GP", 5, 48, 121, 47, true},  {"GP", 12, 33, 287, 44, true},
    {"GP", 15, 22, 201, 41, true},  {"GP", 18, 61, 245, 48, true}, {"GP", 24, 17, 76, 38, true},
    {"GP", 25, 39, 335, 45, true},  {"GP", 29, 11, 160, 35, true}, {"GP", 31, 6, 18, 29, false},
    {"GL", 65, 55, 300, 46, true},  {"GL", 66, 28, 12, 42, true},  {"GL", 72, 43, 188, 44, true},
    {"GL", 73, 19, 98, 37, true},   {"GL", 81, 66, 143, 47, true}, {"GL", 82, 9, 222, 31, false},
    {"GL", 88, 36, 63, 43, true},   {"GP", 35, 41, 5, 40, true},   {"GP", 42, 52, 352, 43, true},
    {"GP", 50, 24, 330, 37, false}, {"GP", 200, 47, 15, 44, true}, {"GP", 49, 13, 275, 34, false},
    {"GP", 46, 30, 48, 39, false},
}};

} // namespace

Simulation::Simulation(const std::optional<Line_ends>& given, std::uint32_t seed, double speed)
    : Paced_source(speed), field(given.value_or(field_across())), field_given(given.has_value()),
      vehicle(field.a, field.b, seed), line(field.a, field.b)
{
    Math2D::Point b;
    line.convPointLLH2Local(field.b, b.first, b.second);
    length = line.dist_from_start(b);
}

QString Simulation::detail() const
{
    return speed() == 1.0       ? QString()
           : speed() == AT_ONCE ? QString("full pace")
                                : QString("%1×").arg(speed());
}

std::optional<Line_ends> Simulation::own_line(std::string& reason)
{
    reason = field_given ? "line as given" : "line of the simulation";
    return field;
}

std::optional<double> Simulation::next_s() const
{
    return epochs * Vehicle::INTERVAL_S;
}

void Simulation::deliver()
{
    if (epochs == 0)
        tell("GNTXT,01,01,02,Version: 4.2p3b7");
    if (epochs % EPOCHS_PER_SKY == 0)
        make_up_satellites();
    ++epochs;
    emit fix(vehicle.measure());
}

void Simulation::steered(const Epoch& epoch, bool engaged)
{
    Math2D::Point here;
    line.convPointLLH2Local(epoch.fix.position, here.first, here.second);
    const double along = line.ab_atrack(here);
    const bool out = std::fabs(between(epoch.heading_deg, line.ab_heading())) < 90.0;
    const bool beyond = out ? along > length + HEADLAND : along < -HEADLAND;
    if (engaged && !turning && beyond) {
        turning = true;
        turn_side = out ? 1.0 : -1.0; // both ways the next parallel lies to the right of A to B
        turn_to_deg = std::fmod(line.ab_heading() + (out ? 180.0 : 0.0), 360.0);
    }
    vehicle.drive(turning ? turn(epoch.heading_deg) : engaged ? epoch.steering_deg : 0.0);
}

double Simulation::turn(double heading_deg)
{
    turning = std::fabs(between(heading_deg, turn_to_deg)) > TURNED_WITHIN_DEG;
    return turn_side * TURN_DEG;
}

void Simulation::make_up_satellites()
{
    const double minutes = epochs * Vehicle::INTERVAL_S / 60.0;
    QList<QByteArray> used;
    for (const char* talker : {"GP", "GL"}) {
        QList<QByteArray> views;
        for (const Made_up& one : MADE_UP) {
            if (qstrcmp(one.talker, talker) != 0)
                continue;
            const bool fixed = one.number > 32 && one.number < 65; // above the equator, always in one place
            const int azimuth = (one.azimuth + (fixed ? 0 : static_cast<int>(minutes))) % 360;
            const int signal = one.signal + (epochs / EPOCHS_PER_SKY + one.number) % 3 - 1;
            views << QByteArray::number(one.number) + ',' + QByteArray::number(one.elevation) + ',' +
                         QByteArray::number(azimuth) + ',' + QByteArray::number(signal);
            if (one.used)
                used << QByteArray::number(one.number);
        }
        const int sentences = (views.size() + 3) / 4;
        for (int i = 0; i < sentences; ++i)
            tell(QByteArray(talker) + "GSV," + QByteArray::number(sentences) + ',' +
                 QByteArray::number(i + 1) + ',' + QByteArray::number(views.size()) + ',' +
                 views.mid(4 * i, 4).join(','));
    }
    for (int first = 0; first < used.size(); first += 12) {
        QList<QByteArray> twelve = used.mid(first, 12);
        while (twelve.size() < 12)
            twelve << QByteArray();
        tell("GNGSA,A,3," + twelve.join(',') + ",1.2,0.7,1.0");
    }
}

void Simulation::tell(const QByteArray& body)
{
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    emit sentence('$' + body + '*' + QByteArray::number(sum, 16).rightJustified(2, '0').toUpper());
}
