#include "util/log/Log_item_source.h"

#include "platform/Debug.h"
#include "util/log/Log_item_private.h"

namespace {

const std::string EMPTY;

} // namespace

const std::string& Util::empty_text()
{
    return EMPTY;
}

Util::Log_item_source_private::Log_item_source_private(const char* code_source_text,
                                                       const char* functionality_text,
                                                       std::uint64_t target_id,
                                                       Log_item_source::Target_type type)
    : code_source(code_source_text), functionality(functionality_text), target(target_id), target_type(type)
{
    sender = new Log_item_sender; // last: a text that is refused leaves nothing behind
}

Util::Log_item_source_private::~Log_item_source_private()
{
    if (!sender.isNull())
        sender->deleteLater(); // in its own thread, which need not be this one
    sender.clear();
}

Util::Log_item_source::Log_item_source() = default;

Util::Log_item_source::Log_item_source(const char* code_source, const char* functionality,
                                       unsigned long long target, Target_type type)
    : data(std::make_shared<const Log_item_source_private>(code_source, functionality, target, type))
{
}

const std::string& Util::Log_item_source::code_source() const
{
    return data ? data->code_source : EMPTY;
}

const std::string& Util::Log_item_source::functionality() const
{
    return data ? data->functionality : EMPTY;
}

unsigned long long Util::Log_item_source::target() const
{
    return data ? data->target : 0;
}

Util::Log_item_source::Target_type Util::Log_item_source::target_type() const
{
    return data ? data->target_type : Target_type::none;
}

Util::Log_item_sender* Util::Log_item_source::sender() const
{
    return data ? data->sender.data() : nullptr;
}

void Util::Log_item_source::submit(Log_item&& item) const
{
    if (data)
        sender()->submit(item); // a copy: the caller's handle stays as it is
    else
        Debug::Print::dprint("Could not submitt %s on invalid source\n", item.to_string().c_str());
}
