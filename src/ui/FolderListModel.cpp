#include "ui/FolderListModel.h"

#include "model/UuidString.h"
#include "sync/SyncManager.h"

FolderListModel::FolderListModel(SyncManager &manager, QObject *parent)
    : QAbstractListModel(parent)
    , m_manager(manager)
{
    connect(&manager.repository(), &FolderRepository::folderAboutToBeInserted, this,
            [this](qsizetype row) { beginInsertRows({}, int(row), int(row)); });
    connect(&manager.repository(), &FolderRepository::folderInserted, this, [this] {
        endInsertRows();
        Q_EMIT countChanged();
        statusesMayHaveChanged();
    });
    connect(&manager.repository(), &FolderRepository::folderAboutToBeRemoved, this,
            [this](qsizetype row) { beginRemoveRows({}, int(row), int(row)); });
    connect(&manager.repository(), &FolderRepository::folderRemoved, this, [this] {
        endRemoveRows();
        Q_EMIT countChanged();
        statusesMayHaveChanged();
    });
    connect(&manager.repository(), &FolderRepository::folderChanged, this, [this](qsizetype row) {
        const QModelIndex changed = index(int(row));
        Q_EMIT dataChanged(changed, changed);
        statusesMayHaveChanged();
    });
    statusesMayHaveChanged();
}

int FolderListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_manager.folders().size());
}

QVariant FolderListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const SyncFolder &folder = m_manager.folders().at(index.row());
    switch (role) {
    case IdRole:
        return uuidString(folder.id);
    case Qt::DisplayRole:
    case NameRole:
        return folder.name;
    case StatusRole:
        return rawValue(folder.status);
    case RemoteCountRole:
        return int(folder.remoteTargets.size());
    case LastSyncRole:
        return folder.lastSync.value_or(QDateTime());
    case ProgressRole:
        return folder.progress;
    case LocalPathRole:
        return folder.localPath;
    case ConflictsRole:
        return int(m_manager.conflicts().of(folder.id).size());
    case PausedRole:
        return m_manager.automatic().isPaused(folder.id);
    case DirectionRole:
        return FolderSelection::directionName(m_manager.selection(folder.id).direction);
    default:
        return {};
    }
}

QHash<int, QByteArray> FolderListModel::roleNames() const
{
    return {
        {IdRole, "folderId"},   {NameRole, "name"},         {StatusRole, "status"},       {RemoteCountRole, "remoteCount"},
        {LastSyncRole, "lastSync"}, {ProgressRole, "progress"}, {LocalPathRole, "localPath"},
        {ConflictsRole, "conflicts"}, {PausedRole, "paused"},
        {DirectionRole, "direction"},
    };
}

void FolderListModel::statusesMayHaveChanged()
{
    int conflicts = 0, paused = 0;
    for (const SyncFolder &folder : m_manager.folders()) {
        conflicts += int(m_manager.conflicts().of(folder.id).size());
        paused += m_manager.automatic().isPaused(folder.id);
    }
    const bool conflictsChanged = std::exchange(m_conflictCount, conflicts) != conflicts;
    const bool pausedChanged = std::exchange(m_pausedCount, paused) != paused;
    if (conflictsChanged || pausedChanged)
        Q_EMIT conflictCountChanged();

    QList<std::pair<SyncStatus, QString>> statuses;
    statuses.reserve(m_manager.folders().size());
    for (const SyncFolder &folder : m_manager.folders())
        statuses.append({folder.status, folder.status == SyncStatus::error ? folder.name : QString()});
    if (statuses == m_statuses)
        return;
    m_statuses = statuses;
    Q_EMIT statusCountsChanged();
}

FolderListModel::Summary FolderListModel::summaryFor(int errorCount, int activeCount)
{
    if (errorCount > 0)
        return Summary::NeedsAttention;
    return activeCount > 0 ? Summary::Syncing : Summary::AllGood;
}

int FolderListModel::countOf(SyncStatus status) const
{
    return int(std::count_if(m_manager.folders().begin(), m_manager.folders().end(),
                             [status](const SyncFolder &folder) { return folder.status == status; }));
}

int FolderListModel::rowOf(const QString &folderId) const
{
    const QUuid id = QUuid::fromString(folderId);
    const QList<SyncFolder> &folders = m_manager.folders();
    for (qsizetype row = 0; row < folders.size(); ++row) {
        if (folders.at(row).id == id)
            return int(row);
    }
    return -1;
}

QVariantList FolderListModel::errorFolders() const
{
    QVariantList folders;
    for (const SyncFolder &folder : m_manager.folders()) {
        if (folder.status == SyncStatus::error)
            folders.append(QVariantMap{{QStringLiteral("folderId"), uuidString(folder.id)},
                                       {QStringLiteral("name"), folder.name},
                                       {QStringLiteral("problem"), m_manager.problems(folder.id).value(0).title()}});
    }
    return folders;
}
