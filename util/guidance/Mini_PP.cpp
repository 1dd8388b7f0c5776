#include "util/guidance/Mini_PP.h"

#include <cmath>
#include <cstdio>

namespace {

// The self-test's points in radians: A at 27 S, 153 E, and the ends of lines of 0.01 degree from there.
constexpr double A_LAT = -0.47123889803846897;
constexpr double A_LON = 2.670353755551324;
constexpr double NORTH_LAT = -0.4710643651132695;
constexpr double SOUTH_LAT = -0.4714134309636684;
constexpr double EAST_LON = 2.670528288476523;
constexpr double WEST_LON = 2.6701792226261247;

// The sweep along the line to the north, 0.0001 degree east of it, in degrees of latitude from A.
constexpr double SWEEP_LON = 2.6703555008805764;
constexpr double SWEEP_FIRST = -0.003;
constexpr double SWEEP_LAST = 0.013;
constexpr double SWEEP_STEP = 0.0005;
constexpr int SWEEP_POINTS = 32;
constexpr double LINE_LENGTH = 0.01;

bool check_heading(const char* name, PointLLH b, double expected)
{
    const double heading = Mini_PP({A_LAT, A_LON, 0.0}, b).ab_heading();
    const double off = std::fabs(heading - expected);
    const bool right = off < 0.01 || std::fabs(off - 360.0) < 0.01;
    std::printf("Heading %s hdg=%.2f test=%.2f %s\n", name, heading, expected, right ? "Okay" : "Fail");
    return right;
}

double ask(Mini_PP& line, const PointLLH& p, double (Mini_PP::*question)(Math2D::Point))
{
    Math2D::Point local;
    return line.convPointLLH2Local(p, local.first, local.second) ? (line.*question)(local) : 0.0;
}

void print_sweep(Mini_PP line)
{
    std::printf("Test for(%.5f, %.5f, %.5f)\n", SWEEP_FIRST, SWEEP_LAST, SWEEP_STEP);
    double d = SWEEP_FIRST;
    for (int i = 0; i < SWEEP_POINTS; ++i) {
        const PointLLH p((d - 27.0) * 3.141592653589793 / 180.0, SWEEP_LON, 0.0);
        std::printf("Test deg=%.5f/%.2f xtrk=%.2f atrk=%.2f dstart=%.2f dfinish=%.2f\n", d, d / LINE_LENGTH,
                    ask(line, p, &Mini_PP::ab_xtrack), ask(line, p, &Mini_PP::ab_atrack),
                    ask(line, p, &Mini_PP::dist_from_start), ask(line, p, &Mini_PP::dist_from_finish));
        d += SWEEP_STEP;
    }
}

} // namespace

Mini_PP::Mini_PP() = default;

Mini_PP::Mini_PP(PointLLH a)
{
    set_start(a);
}

Mini_PP::Mini_PP(Point3D a)
{
    set_start(a);
}

Mini_PP::Mini_PP(PointLLH a, PointLLH b) : Mini_PP(a)
{
    set_finish(b);
}

Mini_PP::Mini_PP(Point3D a, Point3D b) : Mini_PP(a)
{
    set_finish(b);
}

void Mini_PP::set_start(PointLLH a)
{
    start_set = true;
    setLocalCenter(a);
}

void Mini_PP::set_start(Point3D a)
{
    start_set = true;
    setLocalCenter(a);
}

bool Mini_PP::set_finish(PointLLH b)
{
    finish_set = convPointLLH2Local(b, line.finish.first, line.finish.second);
    return finish_set;
}

bool Mini_PP::set_finish(Point3D b)
{
    finish_set = convPointXYZ2Local(b, line.finish.first, line.finish.second);
    return finish_set;
}

void Mini_PP::reset()
{
    line = Math2D::Line();
    start_set = finish_set = false;
}

double Mini_PP::ab_heading()
{
    const double heading = 90.0 - line.get_heading(true); // the line's angle runs from east to north
    return heading < 0.0 ? heading + 360.0 : heading;
}

double Mini_PP::ab_atrack(Math2D::Point p)
{
    return line.get_distance_along(p);
}

double Mini_PP::ab_xtrack(Math2D::Point p)
{
    return line.get_distance_across(p);
}

double Mini_PP::dist_from_start(Math2D::Point p)
{
    return line.start.get_distance(p);
}

double Mini_PP::dist_from_finish(Math2D::Point p)
{
    return line.finish.get_distance(p);
}

int Mini_PP::unit_test()
{
    const struct {
        const char* name;
        PointLLH b;
        double heading;
    } lines[] = {{"North", {NORTH_LAT, A_LON, 0.0}, 0.0},
                 {"South", {SOUTH_LAT, A_LON, 0.0}, 180.0},
                 {"East", {A_LAT, EAST_LON, 0.0}, 90.0},
                 {"West", {A_LAT, WEST_LON, 0.0}, 270.0}};
    bool all_ok = true;
    for (const auto& line : lines)
        all_ok = check_heading(line.name, line.b, line.heading) && all_ok;
    print_sweep(Mini_PP({A_LAT, A_LON, 0.0}, lines[0].b));
    return all_ok ? 0 : -1;
}
