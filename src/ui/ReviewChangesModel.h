#pragma once

#include "engine/BisyncPlan.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

#include <atomic>
#include <memory>

// The files of a review, as its sheet lists them: all of them, or those
// whose path holds the filter text, whatever the case. A review may list
// hundreds of thousands: rows are made as they are shown, and the filter
// runs on a worker (the rows shown until then stay).
class ReviewChangesModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the review's")
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    // Every change, whatever the filter.
    Q_PROPERTY(int total READ total NOTIFY countChanged)
    Q_PROPERTY(QString filter READ filter WRITE setFilter NOTIFY filterChanged)
    Q_PROPERTY(bool isFiltering READ isFiltering NOTIFY isFilteringChanged)

public:
    enum Role { PathRole = Qt::UserRole + 1, GroupRole, ToRemoteRole };

    explicit ReviewChangesModel(QObject *parent = nullptr);

    void setChanges(const QList<BisyncPlan::Change> &changes);
    int total() const { return int(m_changes.size()); }
    // The changes of each group, counted once per review.
    const QList<int> &counts() const { return m_counts; }

    const QString &filter() const { return m_filter; }
    void setFilter(const QString &filter);
    bool isFiltering() const { return m_isFiltering; }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void countChanged();
    void filterChanged();
    void isFilteringChanged();

private:
    void applyFilter();
    void setFiltering(bool filtering);

    QList<BisyncPlan::Change> m_changes;
    QList<int> m_counts;
    QString m_filter;
    // With a filter, the rows shown as indexes into m_changes.
    bool m_isFiltered = false;
    QList<int> m_shown;
    bool m_isFiltering = false;
    // The filter run under way; an older one stops, and its result is dropped.
    std::shared_ptr<std::atomic_int> m_filtering = std::make_shared<std::atomic_int>(0);
};
