#pragma once

#include "Console.h"

#include <QSortFilterProxyModel>
#include <QWidget>

class QListView;
class Touch_button;

/// The log: from which priority on, following its end or not, and a copy into the store.
class Log_panel : public QWidget {
    Q_OBJECT

public:
    Log_panel(Console& console, const Actions& raised);

    Util::Log_item_priority least() const { return shown_from; }
    void apply_theme();

protected:
    void paintEvent(QPaintEvent* event) override;

    /// A finger or the mouse drags the list, which ends following.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    class Filter : public QSortFilterProxyModel {
    public:
        int least = static_cast<int>(Util::Log_item_priority::Info);
        using QSortFilterProxyModel::invalidateFilter;

    protected:
        bool filterAcceptsRow(int row, const QModelIndex& parent) const override;
    };

    void show_from(Util::Log_item_priority priority);
    void follow_end();

    const Actions& actions;
    Util::Log_item_priority shown_from = Util::Log_item_priority::Info;
    Filter filter;
    QListView* list;
    Touch_button* follow;
    int dragged_from = 0; ///< pixels from the viewport's top
};
