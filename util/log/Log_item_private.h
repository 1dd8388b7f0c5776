#pragma once

#include "util/log/Log_item.h"
#include "util/log/Log_item_sender.h"

#include <QPointer>

#include <cstdint>
#include <string>

namespace Util {

/// What the copies of a source share.
class Log_item_source_private {
public:
    Log_item_source_private(const char* code_source_text, const char* functionality_text,
                            std::uint64_t target_id, Log_item_source::Target_type type);
    Log_item_source_private(const Log_item_source_private&) = delete;
    Log_item_source_private& operator=(const Log_item_source_private&) = delete;
    ~Log_item_source_private();

    QPointer<Log_item_sender> sender;
    std::string code_source;
    std::string functionality;
    std::uint64_t target;
    Log_item_source::Target_type target_type;
};

/// What the copies of an item share.
class Log_item_private {
public:
    Log_item_source source;
    std::int32_t display_type;
    std::string message;
    std::int32_t line_number;
    Log_item_priority priority;
    bool force;
    std::string code_file;
};

/// The text of every accessor that has none to give.
const std::string& empty_text();

} // namespace Util
