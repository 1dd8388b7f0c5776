// Programs are compiled against these declarations and find the functions by their mangled names: the order and
// the types of the parameters, const members, and what goes by value or by reference. What is not const here
// takes no const object; that is meant.

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
#include "util/text.h"

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

} // namespace

// What is above fails to compile; this only has it counted.
TEST(signatures, are_those_that_programs_were_compiled_against)
{
    SUCCEED();
}
