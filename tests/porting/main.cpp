// The library on another console: its clock, its output, its matrices.

#include "platform/Atime.h"
#include "platform/console.h"
#include "util/GPS/CoordConv.h"
#include "util/GPS/GPS_types.h"
#include "util/String_base.h"
#include "util/guidance/Mini_PP.h"

#include <cmath>
#include <cstdio>

namespace {

int failures = 0;

void expect(bool holds, const char* what)
{
    if (!holds) {
        std::printf("does not hold: %s\n", what);
        ++failures;
    }
}

} // namespace

int main()
{
    char buffer[16];
    const String_base text(buffer, sizeof buffer, "headland");
    text.print("<", ">");
    expect(console::printed == "<headland>", "debug texts go to the console's own output");

    console::now_ms = 1774000000123;
    expect(GPS::Time::get_current_gps_week() == (1774000000 - 315964800) / 604800 % 1024,
           "the clock is the console's");

    CoordConv converter;
    converter.setLocalCenterLLH(0.7, -1.8, 100.0);
    double n = 0.0;
    double e = 0.0;
    double d = 0.0;
    converter.convLLH2Local(0.7, -1.8, 90.0, &n, &e, &d);
    expect(std::fabs(n) < 1e-8 && std::fabs(e) < 1e-8 && std::fabs(d - 10.0) < 1e-8, "10 m below the centre");

    Mini_PP line(PointLLH(0.7, -1.8, 100.0), PointLLH(0.7001, -1.8, 100.0));
    expect(std::fabs(line.ab_xtrack({5.0, 2.0}) - 2.0) < 1e-6, "2 m right of a line to the north");
    return failures == 0 ? 0 : 1;
}
