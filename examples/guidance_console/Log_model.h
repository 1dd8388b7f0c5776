#pragma once

#include "util/log/Log_item.h"

#include <QAbstractListModel>
#include <QTime>

#include <deque>

/// The latest log items, oldest first.
class Log_model : public QAbstractListModel {
    Q_OBJECT

public:
    static constexpr int LONGEST = 2000;

    enum Role { PRIORITY = Qt::UserRole, TIME, SOURCE };

    void append(const Util::Log_item& item, const QTime& time);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;

    /// The message, or what the role asks for.
    QVariant data(const QModelIndex& index, int role) const override;

    /// Items of this priority and above, a line each: the time and the item's own text form.
    QByteArray text(Util::Log_item_priority least) const;

private:
    struct Row {
        QTime time;
        Util::Log_item item;
    };
    std::deque<Row> rows;
};
