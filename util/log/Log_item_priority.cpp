#include "util/log/Log_item_priority.h"

#include <QString>

namespace {

/// One static a name, each built when it is first asked for.
template <typename TEXT>
const TEXT& name_of(Util::Log_item_priority priority)
{
    switch (priority) {
    case Util::Log_item_priority::Info: {
        static const TEXT info("Info");
        return info;
    }
    case Util::Log_item_priority::Caution: {
        static const TEXT caution("Caution");
        return caution;
    }
    case Util::Log_item_priority::Warning: {
        static const TEXT warning("Warning");
        return warning;
    }
    case Util::Log_item_priority::Error: {
        static const TEXT error("Error");
        return error;
    }
    case Util::Log_item_priority::Critical: {
        static const TEXT critical("Critical");
        return critical;
    }
    case Util::Log_item_priority::Invalid:
        break;
    }
    static const TEXT invalid("Invalid"); // any value may come in, not only the named ones
    return invalid;
}

} // namespace

const QString& Util::qstring(Util::Log_item_priority priority)
{
    return name_of<QString>(priority);
}

const std::string& Util::string(Util::Log_item_priority priority)
{
    return name_of<std::string>(priority);
}
