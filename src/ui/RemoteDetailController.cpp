#include "ui/RemoteDetailController.h"
#include "engine/RemoteCommands.h"

#include "engine/RcloneEngine.h"
#include "sync/FolderCommands.h"
#include "sync/SyncManager.h"
#include "ui/RemoteListModel.h"

#include <cmath>

RemoteDetailController::RemoteDetailController(QObject *parent)
    : QObject(parent)
{
}

RemoteDetailController::~RemoteDetailController()
{
    if (m_job)
        m_job->cancel();
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

QVariant RemoteDetailController::figure(std::optional<qint64> RemoteSpaceInfo::*field) const
{
    if (!m_spaceInfo || !((*m_spaceInfo).*field))
        return {};
    return *((*m_spaceInfo).*field);
}

std::optional<double> RemoteDetailController::usageFraction(const RemoteSpaceInfo &info)
{
    if (!info.total || *info.total < 1)
        return std::nullopt;
    return double(info.used.value_or(0)) / double(*info.total);
}

std::optional<double> RemoteDetailController::currentFraction() const
{
    return m_spaceInfo ? usageFraction(*m_spaceInfo) : std::nullopt;
}

QVariant RemoteDetailController::usageFractionValue() const
{
    const auto fraction = currentFraction();
    return fraction ? QVariant(*fraction) : QVariant();
}

bool RemoteDetailController::usageCritical() const
{
    const auto fraction = currentFraction();
    return fraction && *fraction > 0.9;
}

QString RemoteDetailController::usagePercentage() const
{
    const auto fraction = currentFraction();
    return fraction ? QString::number(qint64(std::trunc(*fraction * 100.0))) + u'%' : QString();
}

void RemoteDetailController::setSpaceInfo(const std::optional<RemoteSpaceInfo> &info)
{
    m_spaceInfo = info;
    Q_EMIT storageChanged();
}

void RemoteDetailController::loadSpaceInfo()
{
    if (!m_app || m_remoteName.isEmpty())
        return;
    if (m_job)
        m_job->cancel();
    m_isLoading = true;
    m_loadError.clear();
    Q_EMIT storageChanged();
    m_job = RemoteCommands::getSpaceInfo(*m_app->engine(), m_remoteName, this, [this](const RcloneResult<RemoteSpaceInfo> &result) {
        if (result.isCancelled()) // replaced by a newer query
            return;
        if (result.ok())
            m_spaceInfo = result.value();
        else
            m_loadError = result.error().description;
        m_isLoading = false;
        Q_EMIT storageChanged();
    });
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
    Q_EMIT storageChanged();
    m_app->engine()->run({QStringLiteral("config"), QStringLiteral("delete"), name}, this,
                         [this, name](const RcloneResult<QString> &result) {
                             m_isDeleting = false;
                             Q_EMIT storageChanged();
                             if (!result.ok()) {
                                 m_loadError = QStringLiteral("Failed to delete remote: ") + result.error().description;
                                 Q_EMIT storageChanged();
                                 return;
                             }
                             FolderCommands::takeOutOfFolders(*m_app->syncManager(), name);
                             Q_EMIT deleted();
                         });
}
