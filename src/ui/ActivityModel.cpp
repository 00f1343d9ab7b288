#include "ui/ActivityModel.h"

#include "model/UuidString.h"
#include "sync/SyncManager.h"

#include <QDir>
#include <QFileInfo>

ActivityModel::ActivityModel(QObject *parent)
    : QAbstractListModel(parent)
{
}

void ActivityModel::setApp(NimbrellApp *app)
{
    if (m_app == app)
        return;
    if (m_app)
        disconnect(m_app->syncManager(), nullptr, this, nullptr);
    m_app = app;
    if (app) {
        SyncManager *manager = app->syncManager();
        connect(manager, &SyncManager::runCompleted, this, [this](const QUuid &id) {
            if (m_folderId.isNull() || m_folderId == id)
                reload();
        });
        // A deleted folder's records went with it.
        connect(&manager->repository(), &FolderRepository::folderRemoved, this, &ActivityModel::reload);
    }
    Q_EMIT appChanged();
    reload();
}

QString ActivityModel::folderId() const
{
    return m_folderId.isNull() ? QString() : uuidString(m_folderId);
}

void ActivityModel::setFolderId(const QString &id)
{
    const QUuid folderId = QUuid::fromString(id);
    if (folderId == m_folderId)
        return;
    m_folderId = folderId;
    Q_EMIT folderIdChanged();
    reload();
}

void ActivityModel::setLimit(int limit)
{
    if (limit == m_limit)
        return;
    m_limit = limit;
    Q_EMIT limitChanged();
    reload();
}

void ActivityModel::componentComplete()
{
    m_isComplete = true;
    reload();
}

void ActivityModel::reload()
{
    if (!m_isComplete)
        return;
    QList<Row> rows;
    const SyncManager *manager = m_app ? m_app->syncManager() : nullptr;
    if (const ActivityLog *log = manager ? manager->activityLog() : nullptr) {
        const QList<ActivityRecord> records = log->read();
        QHash<QUuid, std::optional<SyncFolder>> folders;
        for (auto record = records.crbegin(); record != records.crend(); ++record) {
            if (m_limit > 0 && rows.size() >= m_limit)
                break;
            if (record->kind != ActivityRecord::Kind::change || (!m_folderId.isNull() && record->folderId != m_folderId))
                continue;
            auto folder = folders.find(record->folderId);
            if (folder == folders.end())
                folder = folders.insert(record->folderId, manager->folder(record->folderId));
            if (*folder)
                rows.append({*record, (*folder)->name, (*folder)->localPath});
        }
    }
    // A run that changed nothing (of these folders) changes nothing here.
    if (rows == m_rows)
        return;
    const bool counted = rows.size() != m_rows.size();
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
    if (counted)
        Q_EMIT countChanged();
}

int ActivityModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QString ActivityModel::actionText(ChangeParser::Action action)
{
    switch (action) {
    case ChangeParser::Action::added: return QStringLiteral("New");
    case ChangeParser::Action::updated: return QStringLiteral("Updated");
    case ChangeParser::Action::deleted: return QStringLiteral("Deleted");
    }
    return {};
}

QVariant ActivityModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row &row = m_rows.at(index.row());
    const QString &path = row.record.path;
    const qsizetype slash = path.lastIndexOf(u'/');
    switch (role) {
    case Qt::DisplayRole:
    case FileNameRole:
        return path.mid(slash + 1);
    case LocationRole:
        return slash < 0 ? row.folderName : row.folderName + u'/' + path.left(slash);
    case ActionRole:
        return actionText(row.record.action);
    case ToRemoteRole:
        return row.record.onRemote;
    case TargetRole:
        return row.record.target;
    case TimeRole:
        return row.record.time;
    case FilePathRole:
        return QDir(row.localPath).filePath(path);
    case ExistsRole:
        return QFileInfo::exists(QDir(row.localPath).filePath(path));
    case FolderIdRole:
        return uuidString(row.record.folderId);
    default:
        return {};
    }
}

QHash<int, QByteArray> ActivityModel::roleNames() const
{
    return {{FileNameRole, "fileName"}, {LocationRole, "location"}, {ActionRole, "action"},
            {ToRemoteRole, "toRemote"}, {TargetRole, "target"},     {TimeRole, "time"},
            {FilePathRole, "filePath"}, {ExistsRole, "exists"},     {FolderIdRole, "folderId"}};
}
