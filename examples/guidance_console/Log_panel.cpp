#include "Log_panel.h"

#include "Theme.h"
#include "Touch_button.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QListView>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

namespace {

using Priority = Util::Log_item_priority;

QColor colour_of(Priority priority)
{
    switch (priority) {
    case Priority::Info:
        return theme().accent;
    case Priority::Caution:
    case Priority::Warning:
        return theme().caution;
    default:
        return theme().bad;
    }
}

/// A coloured edge for the priority, who says it and when, and the message below.
class Item_delegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const QFontMetrics metrics(ui_font(12));
        const int wide = width_of(option);
        const QRect text = metrics.boundingRect(QRect(0, 0, wide, 400), Qt::TextWordWrap,
                                                index.data(Qt::DisplayRole).toString());
        return {wide, text.height() + 24};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const auto priority = static_cast<Priority>(index.data(Log_model::PRIORITY).toInt());
        const QRectF box = QRectF(option.rect).adjusted(6, 2, -4, -2);
        painter->setPen(Qt::NoPen);
        painter->setBrush(colour_of(priority));
        painter->drawRoundedRect(QRectF(box.left(), box.top(), 4, box.height()), 2, 2);
        painter->setPen(colour_of(priority));
        painter->setFont(ui_font(10, true));
        const QRectF head = box.adjusted(12, 0, -4, 0);
        painter->drawText(head, Qt::AlignLeft | Qt::AlignTop, Util::qstring(priority).toUpper());
        painter->setPen(theme().faint);
        painter->setFont(ui_font(10));
        painter->drawText(head, Qt::AlignRight | Qt::AlignTop,
                          index.data(Log_model::SOURCE).toString() + "   " +
                              index.data(Log_model::TIME).toTime().toString("HH:mm:ss"));
        painter->setPen(theme().ink);
        painter->setFont(ui_font(12));
        painter->drawText(head.adjusted(0, 15, 0, 0), Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                          index.data(Qt::DisplayRole).toString());
        painter->restore();
    }

private:
    static int width_of(const QStyleOptionViewItem& option)
    {
        const auto* view = qobject_cast<const QListView*>(option.widget);
        return (view != nullptr ? view->viewport()->width() : 280) - 26;
    }
};

} // namespace

bool Log_panel::Filter::filterAcceptsRow(int row, const QModelIndex& parent) const
{
    return sourceModel()->index(row, 0, parent).data(Log_model::PRIORITY).toInt() >= least;
}

Log_panel::Log_panel(Console& console, const Actions& raised) : actions(raised)
{
    filter.setSourceModel(&console.log());
    list = new QListView;
    list->setObjectName("log_list");
    list->setModel(&filter);
    list->setItemDelegate(new Item_delegate(list));
    list->setSelectionMode(QAbstractItemView::NoSelection);
    list->setFocusPolicy(Qt::NoFocus);
    list->setFrameShape(QFrame::NoFrame);
    list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list->setResizeMode(QListView::Adjust);
    list->viewport()->installEventFilter(this);

    auto* filters = new QHBoxLayout;
    filters->setSpacing(4);
    auto* group = new QButtonGroup(this);
    const std::pair<const char*, Priority> levels[] = {{"All", Priority::Info},
                                                       {"Caution", Priority::Caution},
                                                       {"Warning", Priority::Warning},
                                                       {"Error", Priority::Error}};
    for (const auto& [label, priority] : levels) {
        auto* button = new Touch_button(label);
        button->setObjectName(QString("log_%1").arg(label).toLower());
        button->setCheckable(true);
        button->setChecked(priority == shown_from);
        button->set_quiet(true);
        button->setToolTip(QString("show from %1 on").arg(Util::qstring(priority)));
        button->setFixedHeight(44);
        const Priority chosen = priority;
        connect(button, &Touch_button::clicked, this, [this, chosen] { show_from(chosen); });
        group->addButton(button);
        filters->addWidget(button);
    }

    auto* below = new QHBoxLayout;
    below->setSpacing(4);
    follow = new Touch_button("Follow");
    follow->setObjectName("log_follow");
    follow->setCheckable(true);
    follow->setChecked(true);
    follow->set_quiet(true);
    follow->set_keys("E", "stay at the end");
    auto* copy = new Touch_button("Export");
    copy->setObjectName("log_export");
    copy->set_quiet(true);
    copy->set_keys("X", "copy what is shown into the store");
    for (Touch_button* button : {follow, copy}) {
        button->setFixedHeight(44);
        below->addWidget(button);
    }
    connect(follow, &Touch_button::toggled, this, &Log_panel::follow_end);
    connect(copy, &Touch_button::clicked, this, [this] { actions.export_log(static_cast<int>(shown_from)); });
    connect(list->verticalScrollBar(), &QScrollBar::rangeChanged, this, &Log_panel::follow_end);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 8, 8, 8);
    column->setSpacing(6);
    column->addLayout(filters);
    column->addWidget(list);
    column->addLayout(below);
    apply_theme();
}

void Log_panel::show_from(Priority priority)
{
    shown_from = priority;
    filter.least = static_cast<int>(priority);
    filter.invalidateFilter();
    follow_end();
}

void Log_panel::follow_end()
{
    if (follow->isChecked())
        list->scrollToBottom();
}

bool Log_panel::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::MouseButtonPress)
        dragged_from = static_cast<QMouseEvent*>(event)->pos().y();
    if (event->type() == QEvent::MouseMove) {
        const int y = static_cast<QMouseEvent*>(event)->pos().y();
        follow->setChecked(false);
        list->verticalScrollBar()->setValue(list->verticalScrollBar()->value() + dragged_from - y);
        dragged_from = y;
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void Log_panel::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    painter.fillRect(rect(), theme().panel);
    round_corners(painter, rect());
}

void Log_panel::apply_theme()
{
    QPalette colours = palette();
    colours.setColor(QPalette::Base, theme().panel);
    colours.setColor(QPalette::Window, theme().panel);
    list->setPalette(colours);
    list->verticalScrollBar()->setStyleSheet(
        QString("QScrollBar{background:%1;width:10px;margin:0}"
                "QScrollBar::handle{background:%2;border-radius:4px;min-height:40px;margin:1px}"
                "QScrollBar::add-line,QScrollBar::sub-line{height:0}"
                "QScrollBar::add-page,QScrollBar::sub-page{background:none}")
            .arg(theme().panel.name(), theme().edge.name()));
}
