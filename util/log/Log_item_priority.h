#pragma once

#include "util/export.h"

#include <cstdint>
#include <string>

class QString;

namespace Util {

/// How much a log item matters; every value not named here is Invalid too.
enum class Log_item_priority : std::uint8_t {
    Invalid = 0, ///< of an empty item
    Info = 1,    ///< matters least
    Caution = 2, ///< more than Info
    Warning = 3, ///< more than Caution
    Error = 4,   ///< more than Warning
    Critical = 5 ///< matters most
};

/// The name of a priority in English: "Info" to "Critical", or "Invalid". Any thread; the references stay
/// good until the program's statics are destroyed.
/// @{
QUARVEL_EXPORT const QString& qstring(Util::Log_item_priority priority);
QUARVEL_EXPORT const std::string& string(Util::Log_item_priority priority);
/// @}

} // namespace Util
