#pragma once

#include "util/export.h"
#include "util/log/Log_item_priority.h"
#include "util/log/Log_item_source.h"

#include <memory>
#include <string>

class QString;

namespace Util {

class Log_item_private;

/// One log record.
///
/// A handle: copies share one immutable private part, so any thread may copy, read and destroy them. An item
/// keeps its source alive. A default-built item is empty, and every accessor has an answer for it.
class QUARVEL_EXPORT Log_item {
public:
    /// An empty item.
    Log_item();

    /// @param force         asks the displaying side to show the item even if it would filter it
    /// @param display_type  a hint to the displaying side; the library only carries it and `force`
    /// @param message       kept as UTF-8, up to its first NUL; a std::string is taken as it is, whole
    /// @param line_number   where in the code
    /// @param code_file     the file that logs, in place of the source's code_source(); may be null or empty
    /// @throw std::logic_error when `message` is a null pointer; no item is made
    /// @{
    Log_item(const Log_item_source& source, Log_item_priority priority, bool force, int display_type,
             const QString& message, int line_number, const char* code_file);
    Log_item(const Log_item_source& source, Log_item_priority priority, bool force, int display_type,
             const std::string& message, int line_number, const char* code_file);
    Log_item(const Log_item_source& source, Log_item_priority priority, bool force, int display_type,
             const char* message, int line_number, const char* code_file);
    /// @}

    Log_item_priority priority() const;      ///< Invalid on an empty item
    bool force() const;                      ///< false on an empty item
    int displayType() const;                 ///< -1 on an empty item
    int line_number() const;                 ///< -1 on an empty item
    const std::string& message_utf8() const; ///< empty on an empty item
    QString message_qs() const;              ///< up to the first NUL; null on an empty item

    /// The source, or a dummy ("Dummy", "Dummy", target 0) on an empty item.
    const Log_item_source& source() const;

    /// The code file when the item has one, else the source's code_source(); empty on an empty item.
    const std::string& code_source() const;

    /// "priority:code source:functionality:target:line:message": the target as 16 upper-case hexadecimal
    /// digits, the message unchanged, no newline added.
    std::string to_string() const;

private:
    std::shared_ptr<const Log_item_private> data;
};

} // namespace Util
