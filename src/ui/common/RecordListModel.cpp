#include "RecordListModel.h"

#include <QSet>

namespace nimbrel {

RecordListModel::RecordListModel(QList<QByteArray> roles, QObject* parent)
    : QAbstractListModel(parent)
    , m_roles(std::move(roles))
{
}

int RecordListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_records.size());
}

QVariant RecordListModel::data(const QModelIndex& index, int role) const
{
    const int column = role - Qt::UserRole;
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid) ||
        column < 0 || column >= m_roles.size())
        return {};
    return m_records.at(index.row()).values.value(column);
}

QHash<int, QByteArray> RecordListModel::roleNames() const
{
    QHash<int, QByteArray> names;
    for (int i = 0; i < m_roles.size(); ++i)
        names.insert(Qt::UserRole + i, m_roles.at(i));
    return names;
}

int RecordListModel::rowOf(const QString& key) const
{
    for (qsizetype row = 0; row < m_records.size(); ++row)
        if (m_records.at(row).key == key)
            return static_cast<int>(row);
    return -1;
}

QVariant RecordListModel::value(int row, const QByteArray& role) const
{
    const qsizetype column = m_roles.indexOf(role);
    if (row < 0 || row >= m_records.size() || column < 0)
        return {};
    return m_records.at(row).values.value(column);
}

void RecordListModel::setRecords(const QList<ListRecord>& records)
{
    QSet<QString> keys;
    for (const ListRecord& record : records)
        keys.insert(record.key);
    for (qsizetype row = m_records.size() - 1; row >= 0; --row) {
        if (keys.contains(m_records.at(row).key))
            continue;
        beginRemoveRows({}, row, row);
        m_records.removeAt(row);
        endRemoveRows();
    }
    for (qsizetype row = 0; row < records.size(); ++row) {
        const ListRecord& wanted = records.at(row);
        if (row < m_records.size() && m_records.at(row).key == wanted.key) {
            if (m_records.at(row).values != wanted.values) {
                m_records[row].values = wanted.values;
                emit dataChanged(index(row), index(row));
            }
            continue;
        }
        qsizetype from = row + 1;
        while (from < m_records.size() && m_records.at(from).key != wanted.key)
            ++from;
        if (from < m_records.size()) {
            beginMoveRows({}, from, from, {}, row);
            m_records.move(from, row);
            endMoveRows();
            if (m_records.at(row).values != wanted.values) {
                m_records[row].values = wanted.values;
                emit dataChanged(index(row), index(row));
            }
        } else {
            beginInsertRows({}, row, row);
            m_records.insert(row, wanted);
            endInsertRows();
        }
    }
}

} // namespace nimbrel
