#include "ui/ReviewChangesModel.h"

#include "platform/Background.h"

ReviewChangesModel::ReviewChangesModel(QObject *parent)
    : QAbstractListModel(parent)
    , m_counts(int(BisyncPlan::Group::replaced) + 1, 0)
{
}

void ReviewChangesModel::setChanges(const QList<BisyncPlan::Change> &changes)
{
    if (changes.isEmpty() && m_changes.isEmpty())
        return;
    beginResetModel();
    m_changes = changes;
    m_counts.fill(0);
    for (const BisyncPlan::Change &change : m_changes)
        ++m_counts[int(change.group)];
    m_isFiltered = false;
    m_shown.clear();
    endResetModel();
    Q_EMIT countChanged();
    applyFilter();
}

void ReviewChangesModel::setFilter(const QString &filter)
{
    if (filter == m_filter)
        return;
    m_filter = filter;
    Q_EMIT filterChanged();
    applyFilter();
}

void ReviewChangesModel::applyFilter()
{
    const int filtering = ++*m_filtering;
    if (m_filter.isEmpty()) {
        setFiltering(false);
        if (!m_isFiltered)
            return;
        beginResetModel();
        m_isFiltered = false;
        m_shown.clear();
        endResetModel();
        Q_EMIT countChanged();
        return;
    }
    setFiltering(true);
    // Both sides in lower case, as the sheet has always matched them. A run
    // that another has replaced stops early.
    const auto matching = [changes = m_changes, needle = m_filter.toLower(), latest = m_filtering, filtering] {
        QList<int> rows;
        for (int row = 0; row < changes.size(); ++row) {
            if (row % 4096 == 0 && latest->load(std::memory_order_relaxed) != filtering)
                return QList<int>();
            if (changes.at(row).path.toLower().contains(needle))
                rows.append(row);
        }
        return rows;
    };
    Background::run(this, matching, [this, filtering](QList<int> rows) {
        if (filtering != *m_filtering)
            return; // the filter or the changes changed meanwhile
        beginResetModel();
        m_isFiltered = true;
        m_shown = std::move(rows);
        endResetModel();
        setFiltering(false);
        Q_EMIT countChanged();
    });
}

void ReviewChangesModel::setFiltering(bool filtering)
{
    if (filtering == m_isFiltering)
        return;
    m_isFiltering = filtering;
    Q_EMIT isFilteringChanged();
}

int ReviewChangesModel::rowCount(const QModelIndex &parent) const
{
    if (parent.isValid())
        return 0;
    return int(m_isFiltered ? m_shown.size() : m_changes.size());
}

QVariant ReviewChangesModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const BisyncPlan::Change &change = m_changes.at(m_isFiltered ? m_shown.at(index.row()) : index.row());
    switch (role) {
    case PathRole: return change.path;
    case GroupRole: return int(change.group);
    case ToRemoteRole: return change.toRemote;
    default: return {};
    }
}

QHash<int, QByteArray> ReviewChangesModel::roleNames() const
{
    return {{PathRole, "path"}, {GroupRole, "group"}, {ToRemoteRole, "toRemote"}};
}
