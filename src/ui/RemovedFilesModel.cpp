#include "ui/RemovedFilesModel.h"

#include "model/Formatting.h"
#include "model/UuidString.h"
#include "platform/StallProbe.h"
#include "sync/SyncManager.h"

RemovedFilesModel::RemovedFilesModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

void RemovedFilesModel::setApp(NimbrellApp *app)
{
    if (m_app == app)
        return;
    m_app = app;
    Q_EMIT appChanged();
}

QString RemovedFilesModel::folderId() const
{
    return m_folderId.isNull() ? QString() : uuidString(m_folderId);
}

void RemovedFilesModel::setFolderId(const QString &id)
{
    const QUuid folderId = QUuid::fromString(id);
    if (folderId == m_folderId)
        return;
    m_folderId = folderId;
    ++m_generation;
    beginResetModel();
    m_files.clear();
    endResetModel();
    m_isBusy = m_isLoaded = false;
    m_error.clear();
    Q_EMIT folderIdChanged();
    Q_EMIT countChanged();
    Q_EMIT stateChanged();
}

QString RemovedFilesModel::sideName(const RemovedFiles::File &file) const
{
    if (file.targetId.isNull())
        return QStringLiteral("This computer");
    return m_targetNames.value(file.targetId, QStringLiteral("A remote no longer synced"));
}

int RemovedFilesModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_files.size());
}

QVariant RemovedFilesModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const RemovedFiles::File &file = m_files.at(index.row());
    switch (role) {
    case FileNameRole:
        return file.path.section(u'/', -1);
    case LocationRole: {
        const qsizetype slash = file.path.lastIndexOf(u'/');
        return slash < 0 ? m_folderName : m_folderName + u'/' + file.path.left(slash);
    }
    case SideRole:
        return sideName(file);
    case FromRemoteRole:
        return !file.targetId.isNull();
    case SizeRole:
        return Formatting::formatByteCount(file.size);
    case RemovedRole:
        return file.removed;
    default:
        return {};
    }
}

QHash<int, QByteArray> RemovedFilesModel::roleNames() const
{
    return {{FileNameRole, "fileName"}, {LocationRole, "location"}, {SideRole, "side"},
            {FromRemoteRole, "fromRemote"}, {SizeRole, "size"}, {RemovedRole, "removed"}};
}

bool RemovedFilesModel::begin()
{
    if (m_isBusy || !m_app || m_folderId.isNull())
        return false;
    m_isBusy = true;
    m_error.clear();
    Q_EMIT stateChanged();
    return true;
}

void RemovedFilesModel::reload()
{
    if (!begin())
        return;
    const int generation = m_generation;
    m_app->syncManager()->recentlyRemoved().list(m_folderId, this,
                                                 [this, generation](const RecentlyRemoved::Listing &listing) {
        if (generation != m_generation)
            return; // another folder's
        StallProbe::Step step("kept files list");
        // The names rows show, as the folder is now.
        const std::optional<SyncFolder> folder = m_app->syncManager()->folder(m_folderId);
        m_folderName = folder ? folder->name : QString();
        m_targetNames.clear();
        for (const RemoteTarget &target : folder ? folder->remoteTargets : QList<RemoteTarget>())
            m_targetNames.insert(target.id, target.remoteName + u':' + target.remotePath);
        beginResetModel();
        m_files = listing.files;
        endResetModel();
        m_isBusy = false;
        m_isLoaded = true;
        QStringList errors = listing.errors;
        if (!m_actionError.isEmpty())
            errors.prepend(std::exchange(m_actionError, {}));
        m_error = errors.join(u'\n');
        Q_EMIT countChanged();
        Q_EMIT stateChanged();
    });
}

void RemovedFilesModel::ended(const QString &error)
{
    // The listing that follows shows the action's error before its own.
    m_isBusy = false;
    m_actionError = error;
    reload();
}

void RemovedFilesModel::restore(int row, bool replace)
{
    if (row < 0 || row >= m_files.size() || !begin())
        return;
    const RemovedFiles::File file = m_files.at(row);
    m_app->syncManager()->recentlyRemoved().restore(
        m_folderId, file, replace, this, [this, row, file](RecentlyRemoved::Outcome outcome, const QString &error) {
            if (outcome != RecentlyRemoved::Outcome::nameTaken)
                return ended(error);
            m_isBusy = false;
            Q_EMIT stateChanged();
            Q_EMIT nameTaken(row, file.path.section(u'/', -1), sideName(file));
        });
}

void RemovedFilesModel::deletePermanently(int row)
{
    if (row < 0 || row >= m_files.size() || !begin())
        return;
    m_app->syncManager()->recentlyRemoved().deletePermanently(m_folderId, m_files.at(row), this,
                                                              [this](const QString &error) { ended(error); });
}

void RemovedFilesModel::empty()
{
    if (!begin())
        return;
    m_app->syncManager()->recentlyRemoved().empty(m_folderId, this, [this](const QString &error) { ended(error); });
}
