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

constexpr int BUTTON = 48;
constexpr int SIDE = 60;

QColor colour_of(Priority priority)
{
    switch (priority) {
    case Priority::Info:
        return theme().accent;
    case Priority::Caution:
    case Priority::Warning:
        return theme().warning;
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
        const QFontMetrics metrics(ui_font(13));
        const int wide = width_of(option);
        const QRect text = metrics.boundingRect(QRect(0, 0, wide, 400), Qt::TextWordWrap,
                                                index.data(Qt::DisplayRole).toString());
        return {wide, text.height() + 27};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const auto priority = static_cast<Priority>(index.data(Log_model::PRIORITY).toInt());
        const QRectF box = QRectF(option.rect).adjusted(0, 2, -6, -4);
        painter->setPen(Qt::NoPen);
        painter->setBrush(colour_of(priority));
        painter->drawRoundedRect(QRectF(box.left(), box.top(), 4, box.height()), 2, 2);
        painter->setPen(colour_of(priority));
        painter->setFont(ui_font(11, true));
        const QRectF head = box.adjusted(12, 0, -4, 4);
        painter->drawText(head, Qt::AlignLeft | Qt::AlignTop, Util::qstring(priority).toUpper());
        painter->setPen(theme().faint);
        painter->setFont(ui_font(11));
        painter->drawText(head, Qt::AlignRight | Qt::AlignTop,
                          index.data(Log_model::SOURCE).toString() + "  " +
                              index.data(Log_model::TIME).toTime().toString("HH:mm:ss"));
        painter->setPen(theme().ink);
        painter->setFont(ui_font(13));
        painter->drawText(head.adjusted(0, 17, 0, 0), Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                          index.data(Qt::DisplayRole).toString());
        painter->restore();
    }

private:
    static int width_of(const QStyleOptionViewItem& option)
    {
        const auto* view = qobject_cast<const QListView*>(option.widget);
        return (view != nullptr ? view->viewport()->width() : 280) - 22;
    }
};

/// Says so when there is nothing to show.
class List : public QListView {
protected:
    void paintEvent(QPaintEvent* event) override
    {
        QListView::paintEvent(event);
        if (model()->rowCount() > 0)
            return;
        QPainter painter(viewport());
        painter.setPen(theme().faint);
        painter.setFont(ui_font(14));
        painter.drawText(viewport()->rect(), Qt::AlignCenter, "nothing so far");
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
    list = new List;
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
    filters->setSpacing(6);
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
        button->setFixedHeight(BUTTON);
        const Priority chosen = priority;
        connect(button, &Touch_button::clicked, this, [this, chosen] { show_from(chosen); });
        group->addButton(button);
        filters->addWidget(button);
    }

    auto* beside = new QVBoxLayout;
    beside->setSpacing(6);
    follow = new Touch_button("Follow", Touch_button::Glyph::end);
    follow->setObjectName("log_follow");
    follow->setCheckable(true);
    follow->setChecked(true);
    follow->set_keys("E", "stay at the end");
    auto* copy = new Touch_button("Export", Touch_button::Glyph::out);
    copy->setObjectName("log_export");
    copy->set_keys("X", "copy what is shown into the store");
    for (Touch_button* button : {follow, copy}) {
        button->setFixedWidth(SIDE);
        button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
        beside->addWidget(button);
    }
    connect(follow, &Touch_button::toggled, this, &Log_panel::follow_end);
    connect(copy, &Touch_button::clicked, this, [this] { actions.export_log(static_cast<int>(shown_from)); });
    connect(list->verticalScrollBar(), &QScrollBar::rangeChanged, this, &Log_panel::follow_end);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(8, 8, 8, 8);
    column->setSpacing(6);
    column->addLayout(filters);
    auto* middle = new QHBoxLayout;
    middle->setSpacing(6);
    middle->addWidget(list, 1);
    middle->addLayout(beside);
    column->addLayout(middle, 1);
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
