// Programs are compiled against these declarations and find the functions by their mangled names: the order
// and the types of the parameters, const members, and what goes by value or by reference. What is not const
// here takes no const object; that is meant.

#include "util/Dumper.h"
#include "util/GPS/Coordinate_converter.h"
#include "util/GPS/GPS_types.h"
#include "util/GPS/Point3DMean.h"
#include "util/GPS/Satellites.h"
#include "util/GPS/ellipsoid.h"
#include "util/Random.h"
#include "util/String_builder_base.h"
#include "util/crc.h"
#include "util/guidance/Mini_PP.h"
#include "util/guidance/PID.h"
#include "util/log/Log_item.h"
#include "util/log/Log_item_sender.h"
#include "util/net/Download_predictor.h"
#include "util/net/Header_helper.h"
#include "util/net/Multiread_cbuf_safer.h"
#include "util/net/TCP_client.h"
#include "util/net/TCP_client_task.h"
#include "util/net/TCP_server.h"
#include "util/net/TCP_server_buffered.h"
#include "util/qt/QObject_instance_tracker.h"
#include "util/qt/QWidget_global_instance_tracker.h"
#include "util/qt/Qt_image_utils.h"
#include "util/qt/Signal_sender.h"
#include "util/rtems_compat/compat_cfile.h"
#include "util/rtems_compat/compat_pcfile.h"
#include "util/text.h"

#include <QImage>
#include <QObject>
#include <QSet>
#include <QSize>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <vector>

namespace {

/// Holds when one of a function's overloads has just this type.
template <typename TYPE>
constexpr bool is_overload(TYPE)
{
    return true;
}

// ---- strings

static_assert(std::is_same_v<decltype(&stzncpy), char* (*)(char*, const char*, unsigned)>);
static_assert(std::is_constructible_v<String_base, char*, int>);
static_assert(std::is_constructible_v<String_base, char*, int, const char*>);
static_assert(std::is_constructible_v<String_base, char*, int, const String_base&>);
static_assert(std::is_same_v<decltype(&String_base::init), void (String_base::*)(char*, int)>);
static_assert(std::is_same_v<decltype(&String_base::zero), void (String_base::*)()>);
static_assert(std::is_same_v<decltype(&String_base::buf), char* (String_base::*)()>);
static_assert(std::is_same_v<decltype(&String_base::cbuf), const char* (String_base::*)() const>);
static_assert(is_overload<const char* (String_base::*)() const>(&String_base::get));
static_assert(is_overload<char* (String_base::*)(int)>(&String_base::get));
static_assert(is_overload<int (String_base::*)(char*, int) const>(&String_base::get));
static_assert(std::is_same_v<decltype(&String_base::_set), void (String_base::*)(const char*)>);
static_assert(is_overload<void (String_base::*)(const char*)>(&String_base::set));
static_assert(is_overload<void (String_base::*)(const char*, int)>(&String_base::set));
static_assert(is_overload<String_base& (String_base::*)(const char*)>(&String_base::operator=));
static_assert(is_overload<String_base& (String_base::*)(const String_base&)>(&String_base::operator=));
static_assert(std::is_same_v<decltype(&String_base::_append), void (String_base::*)(const char*)>);
static_assert(std::is_same_v<decltype(&String_base::append), void (String_base::*)(const char*)>);
static_assert(is_overload<String_base& (String_base::*)(const char*)>(&String_base::operator+=));
static_assert(is_overload<String_base& (String_base::*)(String_base&)>(&String_base::operator+=));
static_assert(std::is_same_v<decltype(&String_base::len), unsigned (String_base::*)() const>);
static_assert(std::is_same_v<decltype(&String_base::max_len), int (String_base::*)() const>);
static_assert(std::is_same_v<decltype(&String_base::max_string_len), int (String_base::*)() const>);
static_assert(is_overload<int (String_base::*)(const char*) const>(&String_base::compare));
static_assert(is_overload<int (String_base::*)(const char*, int) const>(&String_base::compare));
static_assert(is_overload<int (String_base::*)(const char*) const>(&String_base::case_compare));
static_assert(is_overload<int (String_base::*)(const char*, int) const>(&String_base::case_compare));
static_assert(
    std::is_same_v<decltype(&String_base::print), void (String_base::*)(const char*, const char*) const>);
static_assert(is_overload<int (String_base::*)(const char*, ...)>(&String_base::printf));
static_assert(is_overload<int (String_base::*)(const char*, ...)>(&String_base::appendf));

static_assert(std::is_constructible_v<String_builder_base, String_base&>);
static_assert(std::is_constructible_v<String_builder_base, String_base*>);
static_assert(is_overload<int (String_builder_base::*)(const char*)>(&String_builder_base::append));
static_assert(is_overload<int (String_builder_base::*)(char)>(&String_builder_base::append));
static_assert(is_overload<int (String_builder_base::*)(const char*, ...)>(&String_builder_base::appendf));
static_assert(std::is_same_v<decltype(&String_builder_base::truncate), bool (String_builder_base::*)(int)>);
static_assert(std::is_same_v<decltype(&String_builder_base::reset), void (String_builder_base::*)()>);
static_assert(
    std::is_same_v<decltype(&String_builder_base::begin), const char* (String_builder_base::*)() const>);
static_assert(
    std::is_same_v<decltype(&String_builder_base::end), const char* (String_builder_base::*)() const>);

// ---- dumper, text, checksums, random numbers

static_assert(std::is_abstract_v<Debug::Dumper> && std::is_base_of_v<Debug::Dumper, Debug::Debug_dumper>);
static_assert(std::is_constructible_v<Debug::Debug_dumper, bool, const char*>);
static_assert(std::is_same_v<decltype(&Debug::Dumper::child_start), bool (Debug::Dumper::*)(const char*)>);
static_assert(std::is_same_v<decltype(&Debug::Dumper::child_end), void (Debug::Dumper::*)(const char*)>);
static_assert(
    std::is_same_v<decltype(&Debug::Dumper::print_item), void (Debug::Dumper::*)(const char*, const char*)>);

static_assert(std::is_same_v<decltype(&Util::String::trim_trailing),
                             std::string (*)(const std::string&, const std::string&)>);
static_assert(
    std::is_same_v<decltype(&Util::String::expand_shell), std::vector<std::string> (*)(const std::string&)>);

static_assert(
    std::is_same_v<decltype(&crc16), unsigned short (*)(unsigned short, const unsigned char*, unsigned)>);
static_assert(
    std::is_same_v<decltype(&calculate_crc16_byte), unsigned short (*)(unsigned short, unsigned char)>);
static_assert(std::is_same_v<decltype(&calculate_crc16),
                             unsigned short (*)(const unsigned char*, unsigned, unsigned short)>);
static_assert(std::is_same_v<decltype(&crc24q), unsigned (*)(unsigned, const unsigned char*, int)>);
static_assert(std::is_same_v<decltype(&crc16table), const unsigned short* (*)()>);
static_assert(std::is_same_v<decltype(&crc24q_table), const unsigned* (*)()>);

static_assert(std::is_same_v<decltype(Random::seed), std::uint32_t>);
static_assert(std::is_same_v<decltype(&Random::srand), void (*)(unsigned long)>);
static_assert(std::is_same_v<decltype(&Random::rand), std::uint32_t (*)()>);
static_assert(std::is_same_v<decltype(&Random::init), void (*)()>);

// ---- ellipsoid

static_assert(
    std::is_same_v<decltype(&Geo2Decart), void (*)(double, double, double, double&, double&, double&)>);
static_assert(is_overload<void (*)(double, double, double, double&, double&, double&)>(&Decart2Geo));
static_assert(is_overload<void (*)(double const*, double&, double&, double&)>(&Decart2Geo));
static_assert(std::is_same_v<decltype(&Geo2Local), void (*)(double, double, double&, double&)>);
static_assert(std::is_same_v<decltype(&getLocalGravity), double (*)(double, double)>);

// ---- points

static_assert(std::is_same_v<decltype(Point3D::ZERO_TOL), const double>);
static_assert(std::is_constructible_v<Point3D, double, double, double>);
static_assert(std::is_same_v<decltype(&Point3D::print), void (Point3D::*)(char const*, char const*) const>);
static_assert(std::is_same_v<decltype(&Point3D::equals), bool (Point3D::*)(Point3D const&, double) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator==), bool (Point3D::*)(Point3D const&) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator!=), bool (Point3D::*)(Point3D const&) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator+), Point3D (Point3D::*)(Point3D const&) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator-), Point3D (Point3D::*)(Point3D const&) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator*), Point3D (Point3D::*)(double) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator/), Point3D (Point3D::*)(double) const>);
static_assert(std::is_same_v<decltype(&Point3D::operator=), Point3D (Point3D::*)(Point3D const&)>, "a copy");
static_assert(std::is_same_v<decltype(&Point3D::distance_to), double (Point3D::*)(Point3D const&) const>);
static_assert(std::is_same_v<decltype(&Point3D::as_llh), PointLLH (Point3D::*)() const>);

static_assert(std::is_same_v<decltype(PointLLH::ZERO_TOLD), const double>);
static_assert(std::is_same_v<decltype(PointLLH::ZERO_TOL), const double>);
static_assert(std::is_constructible_v<PointLLH, double, double, double>);
static_assert(
    std::is_same_v<decltype(&PointLLH::print), void (PointLLH::*)(char const*, char const*, bool) const>);
static_assert(std::is_same_v<decltype(&PointLLH::operator==), bool (PointLLH::*)(PointLLH const&) const>);
static_assert(std::is_same_v<decltype(&PointLLH::operator!=), bool (PointLLH::*)(PointLLH const&) const>);
static_assert(std::is_same_v<decltype(&PointLLH::operator+), PointLLH (PointLLH::*)(PointLLH const&)>);
static_assert(std::is_same_v<decltype(&PointLLH::operator-), PointLLH (PointLLH::*)(PointLLH const&)>);
static_assert(is_overload<PointLLH& (PointLLH::*)(PointLLH const&)>(&PointLLH::operator=));
static_assert(is_overload<PointLLH& (PointLLH::*)(Point3D const&)>(&PointLLH::operator=));
static_assert(std::is_same_v<decltype(&PointLLH::as_3D), Point3D (PointLLH::*)() const>);
static_assert(std::is_same_v<decltype(&PointLLH::path_along_surface),
                             bool (PointLLH::*)(PointLLH&, double&, double&, double&)>);

static_assert(std::is_default_constructible_v<Point3DMean>);
static_assert(std::is_same_v<decltype(&Point3DMean::add_point), void (Point3DMean::*)(Point3D const&)>);
static_assert(std::is_same_v<decltype(&Point3DMean::get_mean), Point3D (Point3DMean::*)()>);
static_assert(std::is_same_v<decltype(&Point3DMean::reset), void (Point3DMean::*)()>);

// ---- converters

using Set_three = void (CoordConv::*)(double, double, double);
using Get_three = bool (CoordConv::*)(double*, double*, double*) const;
using Three_to_three = bool (CoordConv::*)(double, double, double, double*, double*, double*);
using Two_to_three = bool (CoordConv::*)(double, double, double*, double*, double*);
static_assert(std::is_same_v<decltype(&CoordConv::setLocalCenterLLH), Set_three>);
static_assert(std::is_same_v<decltype(&CoordConv::setLocalCenterECEF), Set_three>);
static_assert(std::is_same_v<decltype(&CoordConv::getLocalCenterLLH), Get_three>);
static_assert(std::is_same_v<decltype(&CoordConv::getLocalCenterECEF), Get_three>);
static_assert(std::is_same_v<decltype(&CoordConv::convECEF2Local), Three_to_three>);
static_assert(std::is_same_v<decltype(&CoordConv::convLLH2Local), Three_to_three>);
static_assert(is_overload<Three_to_three>(&CoordConv::convLocal2ECEF));
static_assert(is_overload<Two_to_three>(&CoordConv::convLocal2ECEF));
static_assert(is_overload<Three_to_three>(&CoordConv::convLocal2LLH));
static_assert(is_overload<Two_to_three>(&CoordConv::convLocal2LLH));

using Set_three_plus = void (CConv_plus::*)(double, double, double);
using Named_frame = bool (CConv_plus::*)(double const&, double const&, double const&, double&, double&,
                                         double&, bool);
static_assert(std::is_same_v<decltype(&CConv_plus::setLocalCenterLLH), Set_three_plus>);
static_assert(std::is_same_v<decltype(&CConv_plus::setLocalCenterECEF), Set_three_plus>);
static_assert(std::is_same_v<decltype(&CConv_plus::convECEF2NED), Named_frame>);
static_assert(std::is_same_v<decltype(&CConv_plus::convNED2ECEF), Named_frame>);
static_assert(std::is_same_v<decltype(&CConv_plus::convECEF2NEU), Named_frame>);
static_assert(std::is_same_v<decltype(&CConv_plus::convNEU2ECEF), Named_frame>);
static_assert(std::is_same_v<decltype(&CConv_plus::convECEF2ENU), Named_frame>);
static_assert(std::is_same_v<decltype(&CConv_plus::convENU2ECEF), Named_frame>);

using Converter = Coordinate_converter;
static_assert(is_overload<void (Converter::*)(PointLLH const&)>(&Converter::setLocalCenter));
static_assert(is_overload<void (Converter::*)(Point3D const&)>(&Converter::setLocalCenter));
static_assert(std::is_same_v<decltype(&Converter::convLocal2PointLLH),
                             bool (Converter::*)(double const&, double const&, PointLLH&)>);
static_assert(std::is_same_v<decltype(&Converter::convPointLLH2Local),
                             bool (Converter::*)(PointLLH const&, double&, double&)>);
static_assert(std::is_same_v<decltype(&Converter::convLocal2PointXYZ),
                             bool (Converter::*)(double const&, double const&, Point3D&)>);
static_assert(std::is_same_v<decltype(&Converter::convPointXYZ2Local),
                             bool (Converter::*)(Point3D const&, double&, double&)>);

// ---- GPS values

using GPS::Global_point;
using GPS::Local_point;
static_assert(std::is_constructible_v<Global_point, double, double, double>);
static_assert(
    std::is_same_v<decltype(&Global_point::operator-), Local_point (Global_point::*)(Global_point)>);
static_assert(std::is_constructible_v<Local_point, double, double, double>);
static_assert(std::is_constructible_v<Local_point, double, GPS::Heading, GPS::Elevation>);
static_assert(std::is_constructible_v<Local_point, double, GPS::Heading>);
static_assert(std::is_same_v<decltype(&Local_point::distance_2d), double (Local_point::*)()>);
static_assert(std::is_same_v<decltype(&Local_point::distance_3d), double (Local_point::*)()>);
static_assert(std::is_same_v<decltype(&Local_point::operator+), Local_point (Local_point::*)(Local_point)>);
static_assert(std::is_same_v<decltype(&Local_point::operator-), Local_point (Local_point::*)(Local_point)>);
static_assert(std::is_same_v<decltype(&GPS::Time::standardify), void (GPS::Time::*)(unsigned int)>);
static_assert(std::is_same_v<decltype(&GPS::Time::get_current_gps_week), int (*)()>);
static_assert(std::is_same_v<decltype(&GPS::Heading::standardify), void (GPS::Heading::*)(unsigned short)>);

// ---- satellites

using Satellite_list = Satellites::Satellites_list<2>;
static_assert(std::is_constructible_v<Satellite_list, Satellite_list::type_t, int, int>);
static_assert(!std::is_constructible_v<Satellite_list, int, int, int>, "the type is one of the two named");
static_assert(std::is_same_v<decltype(&Satellite_list::min_sat), int (Satellite_list::*)() const>);
static_assert(std::is_same_v<decltype(&Satellite_list::max_sat), int (Satellite_list::*)() const>);
static_assert(std::is_same_v<decltype(&Satellite_list::num_sats), int (Satellite_list::*)() const>);
static_assert(std::is_same_v<decltype(&Satellite_list::is_sat), bool (Satellite_list::*)(int) const>);
static_assert(
    std::is_same_v<decltype(&Satellite_list::get_sat), int (Satellite_list::*)(unsigned int) const>);
static_assert(std::is_same_v<decltype(Satellites::GPS_SATS), Satellites::Satellites_list<37>>);
static_assert(std::is_same_v<decltype(Satellites::GLONASS_SATS), Satellites::Satellites_list<33>>);
static_assert(std::is_same_v<decltype(Satellites::WAAS_SATS), Satellites::Satellites_list<3>>);
static_assert(std::is_same_v<decltype(Satellites::EGNOS_SATS), Satellites::Satellites_list<5>>);
static_assert(std::is_same_v<decltype(Satellites::MSAS_SATS), Satellites::Satellites_list<2>>);
static_assert(std::is_same_v<decltype(Satellites::AUSBAS_SATS), Satellites::Satellites_list<1>>);
static_assert(std::is_same_v<decltype(Satellites::OMNISTAR_SATS), Satellites::Satellites_list<1>>);

// ---- guidance

static_assert(std::is_default_constructible_v<Mini_PP>);
static_assert(std::is_constructible_v<Mini_PP, PointLLH> && std::is_constructible_v<Mini_PP, Point3D>);
static_assert(std::is_constructible_v<Mini_PP, PointLLH, PointLLH>);
static_assert(std::is_constructible_v<Mini_PP, Point3D, Point3D>);
static_assert(!std::is_constructible_v<Mini_PP, PointLLH, Point3D>, "both of a kind");
static_assert(is_overload<void (Mini_PP::*)(PointLLH)>(&Mini_PP::set_start));
static_assert(is_overload<void (Mini_PP::*)(Point3D)>(&Mini_PP::set_start));
static_assert(is_overload<bool (Mini_PP::*)(PointLLH)>(&Mini_PP::set_finish));
static_assert(is_overload<bool (Mini_PP::*)(Point3D)>(&Mini_PP::set_finish));
static_assert(std::is_same_v<decltype(&Mini_PP::reset), void (Mini_PP::*)()>);
static_assert(std::is_same_v<decltype(&Mini_PP::ab_heading), double (Mini_PP::*)()>);
static_assert(std::is_same_v<decltype(&Mini_PP::ab_atrack), double (Mini_PP::*)(Math2D::Point)>);
static_assert(std::is_same_v<decltype(&Mini_PP::ab_xtrack), double (Mini_PP::*)(Math2D::Point)>);
static_assert(std::is_same_v<decltype(&Mini_PP::dist_from_start), double (Mini_PP::*)(Math2D::Point)>);
static_assert(std::is_same_v<decltype(&Mini_PP::dist_from_finish), double (Mini_PP::*)(Math2D::Point)>);
static_assert(std::is_same_v<decltype(&Mini_PP::unit_test), int (*)()>);

static_assert(std::is_same_v<decltype(PID::KP_DEFAULT), const float>);
static_assert(std::is_same_v<decltype(PID::KI_DEFAULT), const float>);
static_assert(std::is_same_v<decltype(PID::KD_DEFAULT), const float>);
static_assert(std::is_same_v<decltype(PID::I_MAX_DEFAULT), const float>);
static_assert(std::is_same_v<decltype(PID::OUT_MIN_DEFAULT), const float>);
static_assert(std::is_same_v<decltype(PID::OUT_MAX_DEFAULT), const float>);
static_assert(std::is_default_constructible_v<PID>);
static_assert(std::is_constructible_v<PID, float, float, float, float, float, float>);
static_assert(std::is_same_v<decltype(&PID::init), void (PID::*)(float, float, float, float, float, float)>);
static_assert(std::is_same_v<decltype(&PID::reset), void (PID::*)()>);
static_assert(std::is_same_v<decltype(&PID::set_kp), void (PID::*)(float)>);
static_assert(std::is_same_v<decltype(&PID::set_logger), void (PID::*)(FILE*, char const*)>);
static_assert(
    std::is_same_v<decltype(&PID::control), float (PID::*)(float, float, float, float, PID::Result*)>);

// ---- log

using Util::Log_item;
using Util::Log_item_priority;
using Util::Log_item_sender;
using Util::Log_item_source;
static_assert(std::is_same_v<std::underlying_type_t<Log_item_priority>, unsigned char>);
static_assert(std::is_same_v<decltype(&Util::qstring), const QString& (*)(Log_item_priority)>);
static_assert(std::is_same_v<decltype(&Util::string), const std::string& (*)(Log_item_priority)>);

static_assert(std::is_same_v<std::underlying_type_t<Log_item_source::Target_type>, unsigned char>);
static_assert(std::is_default_constructible_v<Log_item_source>);
static_assert(std::is_constructible_v<Log_item_source, const char*, const char*, unsigned long long,
                                      Log_item_source::Target_type>);
static_assert(
    std::is_same_v<decltype(&Log_item_source::submit), void (Log_item_source::*)(Log_item&&) const>);

template <typename MESSAGE>
constexpr bool IS_MESSAGE = std::is_constructible_v<Log_item, const Log_item_source&, Log_item_priority, bool,
                                                    int, MESSAGE, int, const char*>;
static_assert(std::is_default_constructible_v<Log_item>);
static_assert(IS_MESSAGE<const QString&> && IS_MESSAGE<const std::string&> && IS_MESSAGE<const char*>);
static_assert(!IS_MESSAGE<int>);

static_assert(std::is_default_constructible_v<Log_item_sender>);
static_assert(std::is_same_v<decltype(&Log_item_sender::logged), void (Log_item_sender::*)(Log_item)>);
static_assert(std::is_same_v<decltype(&Log_item_sender::submit), void (Log_item_sender::*)(Log_item)>);
static_assert(std::is_same_v<decltype(&Log_item_sender::proxy), void (Log_item_sender::*)(Log_item)>);
static_assert(
    std::is_same_v<decltype(&Log_item_sender::forward_to), void (Log_item_sender::*)(Log_item_sender&)>);

// ---- net

static_assert(std::is_same_v<decltype(&wait_shutdown_close), bool (*)(const int*, unsigned, int)>);
static_assert(std::is_default_constructible_v<TCP_client>);
static_assert(std::is_constructible_v<TCP_client, const char*, int>);
static_assert(std::is_same_v<decltype(&TCP_client::set_address), bool (TCP_client::*)(const char*, int)>);
static_assert(std::is_same_v<decltype(&TCP_client::set_port), bool (TCP_client::*)(int)>);
static_assert(std::is_same_v<decltype(&TCP_client::open_connection), int (TCP_client::*)(int) const>);
static_assert(std::is_same_v<decltype(&TCP_client::open), bool (TCP_client::*)()>);
static_assert(std::is_same_v<decltype(&TCP_client::close), void (TCP_client::*)()>);
static_assert(std::is_same_v<decltype(&TCP_client::read), int (TCP_client::*)(unsigned char*, unsigned)>);
static_assert(
    std::is_same_v<decltype(&TCP_client::write), int (TCP_client::*)(const unsigned char*, unsigned)>);

// Of a class that others derive from the constructors are seen in one that does.
struct Client_task : TCP_client_task {
    using TCP_client_task::TCP_client_task;
    int handle_read(int) override { return -1; }
    void handle_write(int) override {}
};
static_assert(std::is_default_constructible_v<Client_task>);
static_assert(std::is_constructible_v<Client_task, const char*, int>);
static_assert(std::is_same_v<decltype(&TCP_client_task::handle_read), int (TCP_client_task::*)(int)>);
static_assert(std::is_same_v<decltype(&TCP_client_task::handle_write), void (TCP_client_task::*)(int)>);
static_assert(std::is_same_v<decltype(&TCP_client_task::is_write_data_avail), bool (TCP_client_task::*)()>);
static_assert(std::is_same_v<decltype(&TCP_client_task::init), void (TCP_client_task::*)()>);
static_assert(std::is_same_v<decltype(&TCP_client_task::open), bool (TCP_client_task::*)()>);
static_assert(std::is_same_v<decltype(&TCP_client_task::close), bool (TCP_client_task::*)()>);
static_assert(
    std::is_same_v<decltype(&TCP_client_task::notify_write_data_avail), void (TCP_client_task::*)()>);
static_assert(
    std::is_same_v<decltype(&TCP_client_task::set_reconnect_period), void (TCP_client_task::*)(int)>);
static_assert(
    std::is_same_v<decltype(&TCP_client_task::set_connect_timeout), void (TCP_client_task::*)(int)>);

static_assert(std::is_same_v<decltype(&TCP_server::open), bool (TCP_server::*)(int)>);
static_assert(std::is_same_v<decltype(&TCP_server::run), void (TCP_server::*)()>);
static_assert(std::is_same_v<decltype(&TCP_server::quit), void (TCP_server::*)()>);
static_assert(std::is_same_v<decltype(&TCP_server::num_connections), int (TCP_server::*)() const>);
static_assert(std::is_same_v<decltype(&TCP_server::write_to_all_connections),
                             bool (TCP_server::*)(const unsigned char*, unsigned, int)>);
static_assert(std::is_same_v<decltype(&TCP_server::_write_to_all_connections),
                             bool (TCP_server::*)(const unsigned char*, unsigned, int)>);
static_assert(
    std::is_same_v<decltype(&TCP_server::handle_data), int (TCP_server::*)(int, unsigned char*, int)>);
static_assert(std::is_same_v<decltype(&TCP_server::handle_disconnected), void (TCP_server::*)(int)>);

struct Buffered_server : TCP_server_buffered {
    using TCP_server_buffered::TCP_server_buffered;
    void handle_data(int, unsigned char*, int) override {}
};
static_assert(std::is_constructible_v<Buffered_server, int> && std::is_convertible_v<int, Buffered_server>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::handle_data),
                             void (TCP_server_buffered::*)(int, unsigned char*, int)>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::write_to_all_connections),
                             int (TCP_server_buffered::*)(const unsigned char*, unsigned)>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::run_blocking), bool (TCP_server_buffered::*)()>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::run_poll), bool (TCP_server_buffered::*)()>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::_run), bool (TCP_server_buffered::*)(bool)>);
static_assert(std::is_same_v<decltype(&TCP_server_buffered::wait_quit), void (TCP_server_buffered::*)()>);
static_assert(
    std::is_same_v<decltype(&TCP_server_buffered::close_connection), int (TCP_server_buffered::*)(int)>);

using Reader = Multiread_cbuf_safer::Reader<unsigned char>;
static_assert(std::is_default_constructible_v<Multiread_cbuf_safer>);
static_assert(std::is_same_v<decltype(&Multiread_cbuf_safer::write),
                             void (Multiread_cbuf_safer::*)(const unsigned char*, int)>);
static_assert(
    std::is_same_v<decltype(&Multiread_cbuf_safer::total), std::int32_t (Multiread_cbuf_safer::*)() const>);
static_assert(std::is_constructible_v<Reader, const Multiread_cbuf_safer&>);
static_assert(std::is_same_v<decltype(&Reader::unread), int (Reader::*)() const>);
static_assert(std::is_same_v<decltype(&Reader::free_space), int (Reader::*)() const>);
static_assert(std::is_same_v<decltype(&Reader::make_room), int (Reader::*)(int)>);
static_assert(std::is_same_v<decltype(&Reader::copy), int (Reader::*)(unsigned char*, int) const>);
static_assert(std::is_same_v<decltype(&Reader::advance), void (Reader::*)(int)>);

static_assert(std::is_same_v<std::underlying_type_t<Header_helper::type_t>, std::uint32_t>);
static_assert(std::is_constructible_v<Header_helper, const char**, const Header_helper::type_t*, int>);
static_assert(std::is_same_v<decltype(&Header_helper::set_buf), void (Header_helper::*)(char*, int)>);
static_assert(std::is_same_v<decltype(&Header_helper::set_index), void (Header_helper::*)(int)>);
static_assert(
    std::is_same_v<decltype(&Header_helper::get_line_type), int (Header_helper::*)(const char*) const>);
static_assert(std::is_same_v<decltype(&Header_helper::write), void (Header_helper::*)(const char*, int)>);
static_assert(std::is_same_v<decltype(&Header_helper::add_http_start),
                             bool (Header_helper::*)(const char*, const char*, const char*, int)>);
static_assert(
    std::is_same_v<decltype(&Header_helper::add_header), bool (Header_helper::*)(int, const char*)>);
static_assert(std::is_same_v<decltype(&Header_helper::add_http_finish), bool (Header_helper::*)()>);

static_assert(std::is_same_v<decltype(&Download_predictor::get_estimate_seconds),
                             double (Download_predictor::*)(unsigned, unsigned)>);
static_assert(std::is_same_v<decltype(&Download_predictor::get_estimate),
                             int (Download_predictor::*)(unsigned, unsigned)>);
static_assert(std::is_same_v<decltype(&Download_predictor::end), double (Download_predictor::*)()>);

// ---- Qt

using Util::Signal_sender;
static_assert(std::is_default_constructible_v<Signal_sender>);
static_assert(std::is_same_v<decltype(&Signal_sender::_init), void (Signal_sender::*)()>);
static_assert(std::is_same_v<decltype(&Signal_sender::_deinit), void (Signal_sender::*)()>);
static_assert(std::is_same_v<decltype(&Signal_sender::empty), bool (Signal_sender::*)() const>);
static_assert(std::is_same_v<decltype(&Signal_sender::connect),
                             bool (Signal_sender::*)(const char*, const char*, const QObject*, const char*)>);
static_assert(
    std::is_same_v<decltype(&Signal_sender::connected), int (Signal_sender::*)(const char*, const char*)>);
static_assert(std::is_same_v<decltype(&Signal_sender::disconnect),
                             bool (Signal_sender::*)(const char*, const char*, const QObject*, const char*)>);
static_assert(
    std::is_same_v<decltype(&Signal_sender::emit_signal),
                   bool (Signal_sender::*)(const char*, const char*, QGenericArgument, QGenericArgument,
                                           QGenericArgument, QGenericArgument, QGenericArgument,
                                           QGenericArgument, QGenericArgument, QGenericArgument,
                                           QGenericArgument, QGenericArgument) const>);
static_assert(std::is_same_v<decltype(&Signal_sender::print), QString (Signal_sender::*)() const>);

static_assert(std::is_constructible_v<QObject_instance_tracker, QString>);
static_assert(std::is_same_v<decltype(&QObject_instance_tracker::construct),
                             void (QObject_instance_tracker::*)(QObject*, QString, bool)>);
static_assert(std::is_same_v<decltype(&QObject_instance_tracker::destruct),
                             void (QObject_instance_tracker::*)(QObject*, QString)>);
static_assert(std::is_same_v<decltype(&QObject_instance_tracker::handle_delete),
                             void (QObject_instance_tracker::*)(QObject*)>);
static_assert(std::is_same_v<decltype(&QObject_instance_tracker::print_instances),
                             void (QObject_instance_tracker::*)(QObject*, QString, QString)>);

using Widget_tracker = QWidget_global_instance_tracker;
static_assert(std::is_constructible_v<Widget_tracker, QObject*>);
static_assert(std::is_same_v<decltype(&Widget_tracker::reset), void (Widget_tracker::*)()>);
static_assert(
    std::is_same_v<decltype(&Widget_tracker::to_string), QString (Widget_tracker::*)(const QSet<QWidget*>&)>);
static_assert(
    std::is_same_v<decltype(&Widget_tracker::print), void (Widget_tracker::*)(const QSet<QWidget*>&)>);
static_assert(std::is_same_v<decltype(&Widget_tracker::print_diff), void (Widget_tracker::*)()>);
static_assert(std::is_same_v<decltype(&Widget_tracker::do_print_and_delete), void (Widget_tracker::*)()>);
static_assert(
    std::is_same_v<decltype(&Widget_tracker::do_wait_before_print_and_delete), void (Widget_tracker::*)()>);
static_assert(std::is_same_v<decltype(&print_tree), void (*)(QWidget*, QString&, int, QSet<QWidget*>&)>);

static_assert(std::is_same_v<decltype(&Qt_image_utils::trim_blank), QImage (*)(QImage, QSize, int)>);

// ---- the file store

static_assert(std::is_same_v<std::underlying_type_t<PcfResult>, int>);
static_assert(std::is_same_v<decltype(&pcfIsMounted), bool (*)(const char*)>);
static_assert(std::is_same_v<decltype(&pcfDirectory), const char* (*)()>);
static_assert(std::is_same_v<decltype(&pcfCheckName), bool (*)(const char*)>);
static_assert(std::is_same_v<decltype(&pcfOpenRead), PcfResult (*)(const char*, unsigned long, int*)>);
static_assert(std::is_same_v<decltype(&pcfRead), int (*)(void*, int, PcfResult&, int)>);
static_assert(std::is_same_v<decltype(&pcfCloseRead), PcfResult (*)(int)>);
static_assert(is_overload<bool (*)(const char*)>(&pcfCreateWrite));
static_assert(is_overload<bool (*)(const char*, int*)>(&pcfCreateWrite));
static_assert(is_overload<bool (*)(const char*)>(&pcfOpenWrite));
static_assert(is_overload<bool (*)(const char*, int*)>(&pcfOpenWrite));
static_assert(std::is_same_v<decltype(&pcfOpenWriteImpl), bool (*)(const char*, int*, bool)>);
static_assert(is_overload<int (*)(const void*, int)>(&pcfWrite));
static_assert(is_overload<int (*)(const void*, int, int)>(&pcfWrite));
static_assert(std::is_same_v<decltype(&pcfWriteImpl), int (*)(const void*, int, int)>);
static_assert(is_overload<bool (*)()>(&pcfCloseWrite));
static_assert(is_overload<bool (*)(int)>(&pcfCloseWrite));
static_assert(std::is_same_v<decltype(&pcfCloseWriteImpl), bool (*)(int)>);
static_assert(std::is_same_v<decltype(&pcfSize), int (*)(const char*, int*)>);
static_assert(std::is_same_v<decltype(&pcfExists), bool (*)(const char*)>);
static_assert(std::is_same_v<decltype(&pcfSizeImpl), int (*)(const char*, int*, bool)>);
static_assert(std::is_same_v<decltype(&pcfRemove), int (*)(const char*)>);
static_assert(std::is_same_v<decltype(&pcfGetNumFiles), int (*)()>);
static_assert(std::is_same_v<decltype(&pcfGetFileName), bool (*)(int, char*)>);
static_assert(std::is_same_v<decltype(&pcfFirst), const char* (*)(PcfFileInfo*)>);
static_assert(std::is_same_v<decltype(&pcfNext), const char* (*)(PcfFileInfo*)>);
static_assert(std::is_same_v<decltype(&pcfFormat), int (*)()>);
static_assert(std::is_same_v<decltype(&pcfRemoveAll), PcfResult (*)()>);
static_assert(std::is_same_v<decltype(&pcfInfo), bool (*)(PcfInfo&)>);
static_assert(std::is_same_v<decltype(&pcfMountInProgress), int (*)()>);
static_assert(std::is_same_v<decltype(&pcfRemoveOldest), PcfResult (*)()>);
static_assert(std::is_same_v<decltype(&pcfRemount), PcfResult (*)(bool)>);
static_assert(std::is_same_v<decltype(&pcfSetRmOld), void (*)(int)>);

static_assert(std::is_same_v<decltype(&cfCreate), bool (*)(int, const char*)>);
static_assert(std::is_same_v<decltype(&cfOpen), bool (*)(int, const char*)>);
static_assert(std::is_same_v<decltype(&cfWrite), int (*)(int, const void*, int)>);
static_assert(std::is_same_v<decltype(&cfClose), int (*)(int, bool)>);
static_assert(std::is_same_v<decltype(&cfGetName), const char* (*)(int)>);
static_assert(std::is_same_v<decltype(&cfExists), bool (*)()>);
static_assert(std::is_same_v<decltype(&cfFindLog), int (*)(const char*)>);
static_assert(std::is_same_v<decltype(&cfGetImplicit), bool (*)(int)>);
static_assert(std::is_same_v<decltype(&cfSetImplicit), void (*)(int, bool)>);
static_assert(std::is_same_v<decltype(&cfGetImplicitBits), unsigned long (*)()>);
static_assert(std::is_same_v<decltype(&cfSetImplicitBits), void (*)(unsigned long)>);
static_assert(std::is_same_v<decltype(&cfStartLogging), void (*)(const char*, bool, bool, bool)>);
static_assert(std::is_same_v<decltype(&cfInit0), void (*)()>);
static_assert(std::is_same_v<decltype(&cfInit), void (*)()>);
static_assert(std::is_same_v<decltype(cf_file_name), char* [2]>);
static_assert(sizeof cf_file_name_0 == 256 && sizeof cf_file_name_1 == 256);

} // namespace

// What is above fails to compile; this only has it counted.
TEST(signatures, are_those_that_programs_were_compiled_against)
{
    SUCCEED();
}
