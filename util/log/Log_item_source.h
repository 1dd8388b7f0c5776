#pragma once

#include "util/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Util {

class Log_item;
class Log_item_sender;
class Log_item_source_private;

/// Who logs: the code and its function, what the messages are about, and the sender that they travel through.
///
/// A handle: copies share one immutable private part, so any thread may copy, read and destroy them. A
/// default-built source is invalid: it names nothing and has no sender.
class QUARVEL_EXPORT Log_item_source {
public:
    /// The kind of a target. Applications number their kinds themselves; the library knows only this one.
    enum class Target_type : std::uint8_t {
        none = 4 ///< no target
    };

    /// An invalid source.
    Log_item_source();

    /// A source with a sender of its own, which lives in the calling thread and is deleted by that thread's
    /// event loop (deleteLater) once the last copy of the source, and of every item that names it, is gone.
    /// A thread that runs no loop calls QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete)
    /// before it ends, or the sender is never freed.
    ///
    /// @param code_source    the module or file that logs, UTF-8
    /// @param functionality  the function or feature that logs, UTF-8
    /// @param target         identifier of the object concerned
    /// @param type           what kind of object that is, in the application's own numbers
    /// @throw std::logic_error when a text is null; no source is made
    Log_item_source(const char* code_source, const char* functionality, unsigned long long target,
                    Target_type type);

    const std::string& code_source() const;   ///< empty on an invalid source
    const std::string& functionality() const; ///< empty on an invalid source
    unsigned long long target() const;        ///< 0 on an invalid source
    Target_type target_type() const;          ///< none on an invalid source

    /// The sender, to connect its logged() signal or to chain it with forward_to(). Null on an invalid
    /// source, and when the application deleted the sender, which it must not do.
    Log_item_sender* sender() const;

    /// Sends an item through this source's sender; any thread. See Log_item_sender::submit().
    ///
    /// The item of an invalid source reaches no one: its text goes to the debug output instead.
    void submit(Log_item&& item) const;

private:
    std::shared_ptr<const Log_item_source_private> data;
};

} // namespace Util
