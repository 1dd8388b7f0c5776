// Uses something of every family through the installed headers, and says so.
#include "util/GPS/GPS_types.h"
#include "util/GPS/Satellites.h"
#include "util/String_base.h"
#include "util/crc.h"
#include "util/guidance/Mini_PP.h"
#include "util/guidance/PID.h"
#include "util/log/Log_item_sender.h"

#include <QObject>

#include <cstdio>

int main()
{
    Mini_PP line(PointLLH(0.9, 0.2, 100.0), PointLLH(0.9001, 0.2, 100.0));
    Math2D::Point local;
    if (!line.convPointLLH2Local(PointLLH(0.90005, 0.200001, 100.0), local.first, local.second))
        return 1;
    PID pid(1.0F, 0.0F, 0.0F, 0.0F, -0.5F, 0.5F);
    const float steering = pid.control(0.0F, static_cast<float>(line.ab_xtrack(local)), 0.0F, 0.0F, nullptr);

    const Util::Log_item_source source("consumer", "check", 1, Util::Log_item_source::Target_type::none);
    int logged = 0;
    QObject::connect(source.sender(), &Util::Log_item_sender::logged, [&logged] { ++logged; });
    source.submit({source, Util::Log_item_priority::Info, false, 0, "steering", 1, nullptr});

    char buffer[8];
    const String_base text(buffer, sizeof buffer, "123456789"); // cut to the seven that fit
    const auto* const digits = reinterpret_cast<const unsigned char*>("123456789");

    const bool right = text.len() == 7 && crc16(0, digits, 9) == 0x31C3 && steering == -0.5F && logged == 1 &&
                       Satellites::GPS_SATS.get_sat(36) == 37 && Satellites::GPS_SATS.min_sat() == 1 &&
                       GPS::Time::get_current_gps_week() < 1024;
    std::puts(right ? "consumer: all right" : "consumer: WRONG");
    return right ? 0 : 1;
}
