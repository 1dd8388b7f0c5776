#include "util/log/Log_item.h"

#include "util/log/Log_item_private.h"

#include <QString>

#include <charconv>

namespace {

/// What an empty item answers for its source; built while the library loads.
const Util::Log_item_source dummy_source("Dummy", "Dummy", 0, Util::Log_item_source::Target_type::none);

std::shared_ptr<const Util::Log_item_private> make_private(const Util::Log_item_source& source,
                                                           Util::Log_item_priority priority, bool force,
                                                           int display_type, std::string message,
                                                           int line_number, const char* code_file)
{
    return std::make_shared<const Util::Log_item_private>(
        Util::Log_item_private{source, display_type, std::move(message), line_number, priority, force,
                               code_file != nullptr ? code_file : ""});
}

constexpr std::size_t TARGET_DIGITS = 16;

void append_target(std::string& text, std::uint64_t target)
{
    char digits[TARGET_DIGITS];
    for (std::size_t i = TARGET_DIGITS; i-- > 0; target >>= 4U)
        digits[i] = "0123456789ABCDEF"[target & 0xFU];
    text.append(digits, TARGET_DIGITS);
}

} // namespace

Util::Log_item::Log_item() = default;

Util::Log_item::Log_item(const Log_item_source& source, Log_item_priority priority, bool force,
                         int display_type, const QString& message, int line_number, const char* code_file)
    // constData() ends at the first NUL
    : data(make_private(source, priority, force, display_type, message.toUtf8().constData(), line_number,
                        code_file))
{
}

Util::Log_item::Log_item(const Log_item_source& source, Log_item_priority priority, bool force,
                         int display_type, const std::string& message, int line_number, const char* code_file)
    : data(make_private(source, priority, force, display_type, message, line_number, code_file))
{
}

Util::Log_item::Log_item(const Log_item_source& source, Log_item_priority priority, bool force,
                         int display_type, const char* message, int line_number, const char* code_file)
    : data(make_private(source, priority, force, display_type, message, line_number, code_file))
{
}

Util::Log_item_priority Util::Log_item::priority() const
{
    return data ? data->priority : Log_item_priority::Invalid;
}

bool Util::Log_item::force() const
{
    return data && data->force;
}

int Util::Log_item::displayType() const
{
    return data ? data->display_type : -1;
}

int Util::Log_item::line_number() const
{
    return data ? data->line_number : -1;
}

const std::string& Util::Log_item::message_utf8() const
{
    return data ? data->message : empty_text();
}

QString Util::Log_item::message_qs() const
{
    return data ? QString::fromUtf8(data->message.c_str()) : QString();
}

const Util::Log_item_source& Util::Log_item::source() const
{
    return data ? data->source : dummy_source;
}

const std::string& Util::Log_item::code_source() const
{
    if (!data)
        return empty_text();
    return data->code_file.empty() ? data->source.code_source() : data->code_file;
}

std::string Util::Log_item::to_string() const
{
    const std::string& priority_name = string(priority());
    const std::string& code = code_source();
    const std::string& functionality = source().functionality();
    const std::string& message = message_utf8();
    char line[12]; // the longest is -2147483648
    const char* const line_end = std::to_chars(line, line + sizeof line, line_number()).ptr;

    std::string text;
    text.reserve(priority_name.size() + code.size() + functionality.size() + TARGET_DIGITS + sizeof line +
                 message.size() + 5);
    for (const std::string* field : {&priority_name, &code, &functionality})
        text.append(*field).push_back(':');
    append_target(text, source().target());
    text.append(1, ':').append(line, static_cast<std::size_t>(line_end - line)).append(1, ':');
    text.append(message);
    return text;
}
