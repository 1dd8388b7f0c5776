#include "util/CP_MD5.h"
#include "util/GPS/GPS_types.h"
#include "util/GPS/Point3D.h"
#include "util/GPS/PointLLH.h"
#include "util/String_builder_base.h"
#include "util/Version.h"
#include "util/log/Log_item.h"
#include "util/log/Log_item_source.h"

#include <cstring>
#include <memory>

// What tests/gdb/check looks at, from within stop_here().

namespace {

__attribute__((noinline)) void stop_here(const void* values)
{
    asm volatile("" : : "r"(values) : "memory");
}

struct Values {
    PointLLH field{0.7, -1.8, 1600.25};
    Point3D point{1.0, -2.5, 6378137.0};
    GPS::Global_point global{1.0, 2.0, 3.0};
    GPS::Local_point local{-1.0, 0.5, 0.25};
    GPS::Heading heading{1.5707963267948966};
    GPS::Elevation elevation{-0.5235987755982989};
    GPS::Time time{2390, 345678};
    Util::Version version;
    Util::Version no_version;
    CP_MD5::TSignature signature;
    char buffer[16]{};
    String_base near_text{buffer, 16, "headland \xC3\xA9"};
    std::unique_ptr<char[]> heap{new char[8]};
    String_base far_text{heap.get(), 8, "elsewhere"};
    String_base no_text{buffer, 0};
    String_builder_base builder{near_text};
    Util::Log_item_source source{"PID.cpp", "steering", 7, Util::Log_item_source::Target_type::none};
    Util::Log_item_source no_source;
    Util::Log_item item{source, Util::Log_item_priority::Warning, false, 0, "off \"the\" line", 12, nullptr};
    Util::Log_item no_item;
};

} // namespace

int main()
{
    static Values values;
    values.version.decode_velmar_version_number("4.2p3b7");
    values.version.test = true;
    CP_MD5::TMD5 md5("abc", 3);
    md5.Final(values.signature);
    stop_here(&values);
    return 0;
}
