#include "util/log/Log_item_sender.h"

#include <QMetaMethod>
#include <QMetaType>
#include <QThread>

#include <atomic>
#include <utility>

namespace {

constexpr int NOT_REGISTERED = -1;
std::atomic<int> meta_type_id{NOT_REGISTERED};

} // namespace

Util::Log_item_sender::Log_item_sender()
{
    // Two threads that both find it unregistered are given the same id by Qt.
    if (meta_type_id == NOT_REGISTERED)
        meta_type_id = qRegisterMetaType<Util::Log_item>("Log_item");
}

void Util::Log_item_sender::submit(Util::Log_item item)
{
    if (QThread::currentThread() == thread()) {
        emit logged(std::move(item));
        return;
    }
    // Looked up once, not by name for every item. The call cannot fail: the signal and its parameter type are
    // known from construction on.
    static const QMetaMethod signal = QMetaMethod::fromSignal(&Log_item_sender::logged);
    signal.invoke(this, Qt::QueuedConnection, QArgument<Util::Log_item>("Log_item", item));
}

void Util::Log_item_sender::forward_to(Util::Log_item_sender& target)
{
    connect(this, &Log_item_sender::logged, &target, &Log_item_sender::proxy, Qt::AutoConnection);
}

void Util::Log_item_sender::proxy(Log_item item)
{
    submit(std::move(item));
}
