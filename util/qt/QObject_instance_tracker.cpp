#include "util/qt/QObject_instance_tracker.h"

#include <QByteArray>

#include <cstddef>
#include <cstdio>
#include <utility>

namespace {

QByteArray object_piece(const QObject* obj)
{
    if (obj == nullptr)
        return {};
    return QString(" obj=\"%1\"(%2)")
        .arg(obj->metaObject()->className())
        .arg(reinterpret_cast<quintptr>(obj))
        .toLocal8Bit();
}

QByteArray detail_piece(const QString& detail)
{
    return detail.isEmpty() ? QByteArray() : QString(" detail=\"%1\"?").arg(detail).toLocal8Bit();
}

} // namespace

QObject_instance_tracker::QObject_instance_tracker(QString tracker_name) : name(std::move(tracker_name))
{
    // Applications compiled against an earlier build hold trackers by value: the layout stays.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // supported where it matters, and only a static check
    static_assert(offsetof(QObject_instance_tracker, instances) == sizeof(QObject));
    static_assert(offsetof(QObject_instance_tracker, name) == sizeof(QObject) + sizeof(void*));
    static_assert(offsetof(QObject_instance_tracker, next_sequence) == sizeof(QObject) + 2 * sizeof(void*));
    static_assert(sizeof(QObject_instance_tracker) == sizeof(QObject) + 3 * sizeof(void*));
#pragma GCC diagnostic pop
}

QObject_instance_tracker::~QObject_instance_tracker()
{
    print_instances(nullptr, "Quit", {});
}

void QObject_instance_tracker::construct(QObject* obj, QString detail, bool connect_destroyed)
{
    if (connect_destroyed)
        connect(obj, SIGNAL(destroyed(QObject*)), this, SLOT(handle_delete(QObject*)));
    instances[obj] = next_sequence++;
    print_instances(obj, "Construct", detail);
}

void QObject_instance_tracker::destruct(QObject* obj, QString detail)
{
    instances.remove(obj);
    print_instances(obj, "Destruct", detail);
}

// The output is for a developer's eyes: what cannot be written is not missed.
void QObject_instance_tracker::print_instances(QObject* obj, QString action, QString detail)
{
    static_cast<void>(std::printf("%sInstances at %s%s%s\n", name.toLocal8Bit().constData(),
                                  action.toLocal8Bit().constData(), detail_piece(detail).constData(),
                                  object_piece(obj).constData()));
    for (auto instance = instances.cbegin(); instance != instances.cend(); ++instance)
        static_cast<void>(
            std::printf("    Inst %d of %s\n", instance.value(), object_piece(instance.key()).constData()));
}

void QObject_instance_tracker::handle_delete(QObject* obj)
{
    destruct(obj, "QObject_instance_tracker::handle_delete");
}
