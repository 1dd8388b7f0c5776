#include "Log_model.h"

void Log_model::append(const Util::Log_item& item, const QTime& time)
{
    if (rows.size() == LONGEST) {
        beginRemoveRows(QModelIndex(), 0, 0);
        rows.pop_front();
        endRemoveRows();
    }
    const int row = rowCount();
    beginInsertRows(QModelIndex(), row, row);
    rows.push_back({time, item});
    endInsertRows();
}

int Log_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(rows.size());
}

QVariant Log_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Row& row = rows[static_cast<std::size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return row.item.message_qs();
    case PRIORITY:
        return static_cast<int>(row.item.priority());
    case TIME:
        return row.time;
    case SOURCE:
        return QString::fromStdString(row.item.source().code_source());
    default:
        return {};
    }
}

QByteArray Log_model::text(Util::Log_item_priority least) const
{
    QByteArray all;
    for (const Row& row : rows)
        if (row.item.priority() >= least)
            all += row.time.toString("HH:mm:ss.zzz ").toLatin1() +
                   QByteArray::fromStdString(row.item.to_string()) + '\n';
    return all;
}
