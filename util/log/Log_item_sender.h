#pragma once

#include "util/export.h"
#include "util/log/Log_item.h"

#include <QObject>

namespace Util {

/// Carries log items to whoever connects to logged(), always in the thread that the sender lives in.
///
/// Every valid Log_item_source owns one. An application builds one more, forwards the sources' senders to it
/// and connects its logged() to a view or a file. Parameters are registered with Qt as "Log_item".
///
/// Any thread: submit(), forward_to().
class QUARVEL_EXPORT Log_item_sender : public QObject {
    Q_OBJECT

public:
    Log_item_sender();

    /// Emits logged(item): at once when called in the sender's own thread, else later, from the event loop
    /// of that thread.
    void submit(Util::Log_item item);

    /// From now on the target submits every item that this sender logs: at once when both live in the same
    /// thread, else from the target's event loop. It cannot be undone but by destroying one of the two; a
    /// second call forwards every item twice; a circle forwards for ever.
    void forward_to(Util::Log_item_sender& target);

signals:
    void logged(Log_item item); ///< once for each submit(), in the sender's thread

public slots:
    /// Submits the item: the receiving end of forward_to().
    void proxy(Log_item item);
};

} // namespace Util
