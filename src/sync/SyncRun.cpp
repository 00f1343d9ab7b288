#include "sync/SyncRun.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "platform/AppLogger.h"
#include "platform/BookmarkService.h"
#include "sync/SyncManager.h"

SyncRun::SyncRun(SyncManager &manager, RcloneEngine &engine, const SyncFolder &folder)
    : QObject(&manager)
    , m_manager(manager)
    , m_engine(engine)
    , m_folder(folder)
    , m_localPath(folder.localPath)
{
}

void SyncRun::start()
{
    // The bookmark finds the folder again after a rename in place; when it
    // cannot, the path as stored is used.
    if (m_folder.localPathBookmarkData) {
        if (const auto resolved = BookmarkService::resolve(*m_folder.localPathBookmarkData))
            m_localPath = resolved->path;
    }
    nextTarget();
}

void SyncRun::cancel()
{
    m_cancelled = true;
    if (m_job)
        m_job->cancel();
    deleteLater();
}

void SyncRun::nextTarget()
{
    if (m_cancelled)
        return;
    if (++m_index >= m_folder.remoteTargets.size()) {
        m_manager.runFinished(this, m_errors);
        return;
    }
    const RemoteTarget &target = m_folder.remoteTargets.at(m_index);
    const qsizetype index = m_index;
    m_manager.changeFolder(m_folder.id, [index](SyncFolder &folder) {
        folder.currentTargetIndex = index;
        folder.transferredSize.reset();
        folder.transferredFiles.reset();
        folder.transferSpeed.reset();
    });
    const BisyncRequest request{m_localPath, target.remoteName + u':' + target.remotePath, m_folder.filters,
                                m_folder.conflictResolution, !target.hasResynced};
    m_job = m_engine.bisync(
        request, this, [this](const SyncProgress &progress) { progressed(progress); },
        [this](const RcloneStatus &result) { targetFinished(result); });
}

void SyncRun::progressed(const SyncProgress &progress)
{
    // Each target has an equal share of the bar.
    const double share = 1.0 / double(m_folder.remoteTargets.size());
    const double start = double(m_index) * share;
    m_manager.changeFolder(m_folder.id, [&](SyncFolder &folder) {
        if (progress.percentage)
            folder.progress = start + *progress.percentage * share;
        if (progress.sizeString)
            folder.transferredSize = progress.sizeString;
        if (progress.fileString)
            folder.transferredFiles = progress.fileString;
        if (progress.speedAndETA)
            folder.transferSpeed = progress.speedAndETA;
    });
}

void SyncRun::targetFinished(const RcloneStatus &result)
{
    m_job = nullptr;
    if (m_cancelled || result.isCancelled())
        return;
    const RemoteTarget &target = m_folder.remoteTargets.at(m_index);
    const auto setResynced = [&](bool resynced) {
        m_manager.changeFolder(m_folder.id, [&](SyncFolder &folder) {
            for (RemoteTarget &stored : folder.remoteTargets) {
                if (stored.id == target.id)
                    stored.hasResynced = resynced;
            }
        });
    };
    if (result.ok()) {
        setResynced(true);
    } else {
        const QString message = result.error().description;
        qCCritical(lcSyncManager, "Sync error for target %s:%s - %s", qUtf8Printable(target.remoteName),
                   qUtf8Printable(target.remotePath), qUtf8Printable(message));
        m_errors.append(target.remoteName + u':' + target.remotePath + QStringLiteral(" — ") + message);
        // rclone lost the pair's listings: the next run starts afresh.
        if (message.contains(QLatin1String("--resync")))
            setResynced(false);
    }
    nextTarget();
}
