#pragma once

#include <QAbstractListModel>
#include <QByteArray>
#include <QList>
#include <QVariant>

namespace nimbrel {

// One row of a record list: a key that names the row across updates, and one value per role.
struct ListRecord {
    QString key;
    QVariantList values;
    bool operator==(const ListRecord&) const = default;
};

// A list the window repeats, updated row by row: a new list is compared with the shown one by key,
// and only rows that went, came, moved or changed are announced. Views built from it keep the
// delegates of rows that stay.
class RecordListModel : public QAbstractListModel {
    Q_OBJECT

public:
    // Role names in the order of each record's values.
    explicit RecordListModel(QList<QByteArray> roles, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Keys must be unique within the list.
    void setRecords(const QList<ListRecord>& records);
    const QList<ListRecord>& records() const { return m_records; }
    // The row of a key, or -1.
    int rowOf(const QString& key) const;
    // The value of the named role in a row, for tests and actions.
    QVariant value(int row, const QByteArray& role) const;

private:
    QList<QByteArray> m_roles;
    QList<ListRecord> m_records;
};

} // namespace nimbrel
