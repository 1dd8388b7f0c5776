#include "util/qt/QWidget_global_instance_tracker.h"

#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <cstddef>
#include <cstdio>

namespace {

constexpr int DELAY_MS = 100;
constexpr int SPACES_A_LEVEL = 4;

QSet<QWidget*> all_widgets()
{
    const QWidgetList all = QApplication::allWidgets();
    return {all.begin(), all.end()};
}

/// Through a signed number, so that the sign of a 32-bit pointer extends. Deliberate.
QString address(const QObject* object)
{
    return QString::number(static_cast<quint64>(reinterpret_cast<qintptr>(object)));
}

} // namespace

QWidget_global_instance_tracker::QWidget_global_instance_tracker(QObject* object)
    : watched(object), watched_class(object->metaObject()->className())
{
    // Applications compiled against an earlier build make room for trackers: the layout stays.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // supported where it matters, and only a static check
    static_assert(offsetof(QWidget_global_instance_tracker, baseline) == sizeof(QObject));
    static_assert(offsetof(QWidget_global_instance_tracker, watched) == sizeof(QObject) + sizeof(void*));
    static_assert(offsetof(QWidget_global_instance_tracker, watched_class) ==
                  sizeof(QObject) + 2 * sizeof(void*));
    static_assert(sizeof(QWidget_global_instance_tracker) == sizeof(QObject) + 3 * sizeof(void*));
#pragma GCC diagnostic pop

    connect(watched, SIGNAL(destroyed(QObject*)), this, SLOT(do_wait_before_print_and_delete()),
            Qt::QueuedConnection);
    reset();
}

void QWidget_global_instance_tracker::reset()
{
    baseline = all_widgets();
}

QString QWidget_global_instance_tracker::to_string(const QSet<QWidget*>& widgets)
{
    QString text = QString("Widget track %1 %2 total=%3 objs={\n")
                       .arg(address(watched), watched_class, QString::number(widgets.size()));
    QSet<QWidget*> left = widgets;
    print_tree(nullptr, text, 1, left);
    return text + "}\n";
}

void QWidget_global_instance_tracker::print(const QSet<QWidget*>& widgets)
{
    // For a developer's eyes: what cannot be written is not missed.
    static_cast<void>(std::printf("%s", to_string(widgets).toLocal8Bit().constData()));
}

void QWidget_global_instance_tracker::print_diff()
{
    print(all_widgets().subtract(baseline));
}

void QWidget_global_instance_tracker::do_print_and_delete()
{
    print_diff();
    deleteLater();
}

void QWidget_global_instance_tracker::do_wait_before_print_and_delete()
{
    // Neither stopped nor deleted: it goes on without effect once the tracker is gone. Deliberate.
    auto* const timer = new QTimer;
    connect(timer, SIGNAL(timeout()), this, SLOT(do_print_and_delete()), Qt::QueuedConnection);
    timer->start(DELAY_MS);
}

// It ends: every line takes its widget out of the set, and the way up leads through widgets of the set only.
// NOLINTNEXTLINE(misc-no-recursion)
void print_tree(QWidget* widget, QString& out, int depth, QSet<QWidget*>& widgets)
{
    if (widget == nullptr) {
        while (!widgets.isEmpty())
            print_tree(*widgets.cbegin(), out, 0, widgets);
        return;
    }
    QWidget* const parent = widget->parentWidget();
    if (widgets.contains(parent)) {
        print_tree(parent, out, 0, widgets);
        return;
    }
    if (widgets.remove(widget))
        out += QString("%1%2:%3:%4\n")
                   .arg(QString(), depth * SPACES_A_LEVEL)
                   .arg(widget->metaObject()->className(), address(widget),
                        parent != nullptr ? parent->metaObject()->className() : "Null");
    for (QObject* const child : widget->children())
        if (auto* const child_widget = qobject_cast<QWidget*>(child))
            print_tree(child_widget, out, depth + 1, widgets);
}
