// Uses something of every family through the installed headers, and says so.
#include "util/GPS/GPS_types.h"
#include "util/GPS/Satellites.h"
#include "util/String_base.h"
#include "util/crc.h"
#include "util/guidance/Mini_PP.h"
#include "util/guidance/PID.h"
#include "util/log/Log_item_sender.h"
#include "util/net/Header_helper.h"
#include "util/net/TCP_client.h"
#include "util/qt/Signal_sender.h"
#include "util/rtems_compat/compat_pcfile.h"

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

    const char* names[] = {"Host"};
    const Header_helper::type_t types[] = {Header_helper::TYPE_HEADER};
    char head[64];
    Header_helper http(names, types, 1);
    http.set_buf(head, sizeof head);
    const bool request = http.add_http_start("GET", "status", nullptr, 0) && http.add_header(0, "console") &&
                         http.add_http_finish() && http.get_line_type("Host: console") == 0;
    TCP_client client;
    const bool others = request && client.set_address("localhost", -1) && Util::Signal_sender().empty() &&
                        pcfCheckName("drive.log") && !pcfCheckName("a b");

    const bool right = others && text.len() == 7 && crc16(0, digits, 9) == 0x31C3 && steering == -0.5F &&
                       logged == 1 && Satellites::GPS_SATS.get_sat(36) == 37 &&
                       Satellites::GPS_SATS.min_sat() == 1 && GPS::Time::get_current_gps_week() < 1024;
    std::puts(right ? "consumer: all right" : "consumer: WRONG");
    return right ? 0 : 1;
}
