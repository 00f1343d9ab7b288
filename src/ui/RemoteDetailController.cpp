#include "ui/RemoteDetailController.h"

#include "engine/RcloneEngine.h"
#include "sync/FolderCommands.h"
#include "sync/SyncManager.h"
#include "ui/RemoteListModel.h"


RemoteDetailController::RemoteDetailController(QObject *parent)
    : QObject(parent)
{
}

void RemoteDetailController::setApp(NimbrellApp *app)
{
    if (app == m_app)
        return;
    if (m_app)
        m_app->remotes()->disconnect(this);
    m_app = app;
    if (m_app) {
        connect(m_app->remotes(), &QAbstractItemModel::modelReset, this, &RemoteDetailController::remoteChanged);
        loadSpaceInfo();
    }
    Q_EMIT appChanged();
    Q_EMIT remoteChanged();
}

void RemoteDetailController::setRemoteName(const QString &name)
{
    if (name == m_remoteName)
        return;
    m_remoteName = name;
    Q_EMIT remoteChanged();
    if (m_app)
        loadSpaceInfo();
}

std::optional<CloudRemote> RemoteDetailController::remote() const
{
    if (!m_app)
        return std::nullopt;
    for (const CloudRemote &remote : m_app->remotes()->remotes()) {
        if (remote.name == m_remoteName)
            return remote;
    }
    return std::nullopt;
}

QString RemoteDetailController::typeName() const
{
    const auto r = remote();
    return r ? r->displayTypeName() : QStringLiteral("Unknown");
}

QString RemoteDetailController::backend() const
{
    const auto r = remote();
    return r ? r->type : QStringLiteral("Unknown");
}

QString RemoteDetailController::iconName() const
{
    const auto r = remote();
    return r ? r->providerIcon().name : QStringLiteral("cloud.fill");
}

void RemoteDetailController::loadSpaceInfo()
{
    if (m_app && !m_remoteName.isEmpty())
        m_storage.load(*m_app->engine(), m_remoteName);
}

QString RemoteDetailController::folderList(const QList<SyncFolder> &folders)
{
    QStringList lines;
    for (const SyncFolder &folder : folders)
        lines.append(QStringLiteral("• ") + folder.name);
    return lines.join(u'\n');
}

QString RemoteDetailController::confirmationMessage(const QString &remoteName, const QList<SyncFolder> &dependent)
{
    if (dependent.isEmpty())
        return QStringLiteral("Are you sure you want to delete '") + remoteName +
               QStringLiteral("'? This action cannot be undone.");
    return QStringLiteral("The following Sync Folders use this remote:\n\n") + folderList(dependent) +
           QStringLiteral("\n\nIf you delete this remote, it will be removed from these sync folders.");
}

QString RemoteDetailController::refusalMessage(const QList<SyncFolder> &blocking)
{
    return QStringLiteral("The following Sync Folders use this remote as their ONLY target:\n\n") +
           folderList(blocking) +
           QStringLiteral("\n\nPlease delete these folders or add another remote target to them before deleting this remote.");
}

void RemoteDetailController::requestDelete()
{
    if (!m_app || m_isDeleting)
        return;
    const QList<SyncFolder> dependent = FolderCommands::dependentFolders(m_app->syncManager()->folders(), m_remoteName);
    const QList<SyncFolder> blocking = FolderCommands::blockingFolders(dependent);
    if (blocking.isEmpty())
        Q_EMIT confirmationRequested(confirmationMessage(m_remoteName, dependent));
    else
        Q_EMIT refusalShown(refusalMessage(blocking));
}

void RemoteDetailController::confirmDelete()
{
    if (!m_app || m_isDeleting)
        return;
    const QString name = m_remoteName;
    m_isDeleting = true;
    Q_EMIT isDeletingChanged();
    m_app->engine()->run({QStringLiteral("config"), QStringLiteral("delete"), name}, this,
                         [this, name](const RcloneResult<QString> &result) {
                             m_isDeleting = false;
                             Q_EMIT isDeletingChanged();
                             if (!result.ok()) {
                                 m_storage.setError(QStringLiteral("Failed to delete remote: ") + result.error().description);
                                 return;
                             }
                             FolderCommands::takeOutOfFolders(*m_app->syncManager(), name);
                             Q_EMIT deleted();
                         });
}
