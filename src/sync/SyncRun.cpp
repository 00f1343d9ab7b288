#include "sync/SyncRun.h"
#include "engine/Bisync.h"
#include "engine/OneWaySync.h"

#include "sync/RemovedFiles.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "platform/AppLogger.h"
#include "platform/BookmarkService.h"

#include <QProcess>

SyncRun::SyncRun(RcloneEngine &engine, const QUuid &folderId, QObject *parent)
    : QObject(parent)
    , m_engine(engine)
    , m_folderId(folderId)
{
}

void SyncRun::start(const SyncFolder &folder)
{
    m_folder = folder;
    // The bookmark finds the folder again after a rename in place.
    m_localPath = BookmarkService::currentPath(folder.localPath, folder.localPathBookmarkData);
    m_state = State::running;
    Q_EMIT waitingChanged();
    nextTarget();
}

bool SyncRun::cancel()
{
    m_state = State::stopping;
    if (!m_job)
        return false;
    m_job->cancel();
    return true;
}

void SyncRun::nextTarget()
{
    if (++m_index >= m_folder.remoteTargets.size()) {
        Q_EMIT finished(m_errors, m_details);
        return;
    }
    const RemoteTarget &target = m_folder.remoteTargets.at(m_index);
    Q_EMIT targetStarted(m_index);
    m_keepsOnTarget = m_keepingRemoved;
    m_mayKeepAnyway = false;
    m_job = m_selection.direction == SyncDirection::twoWay ? startBisync(target) : startOneWay(target);
    m_changes = ChangeParser();
    if (m_selection.direction != SyncDirection::twoWay)
        m_changes.readOneWay(m_selection.direction == SyncDirection::upload);
    connect(m_job, &RcloneJob::lineRead, this, [this](const QString &line) {
        m_changes.addLine(line);
        // A replaced copy is moved into the backup directory first: from
        // then on the remote's hidden directory must stay out of the runs.
        if (m_mayKeepAnyway && line.contains(QLatin1String(": Moved (server-side)"))) {
            m_mayKeepAnyway = false;
            m_keepsOnTarget = true;
            Q_EMIT keepsAnyway();
        }
    });
    connect(m_job, &RcloneJob::processStarted, this, [this](QProcess *process) {
        m_mayKeepAnyway = !m_keepsOnTarget && process->arguments().contains(QStringLiteral("--backup-dir1"));
    });
    connect(m_job, &RcloneJob::waitingChanged, this, [this](bool waiting) {
        m_isWaitingForEarlier = waiting;
        Q_EMIT waitingChanged();
    });
}

RcloneJob *SyncRun::startBisync(const RemoteTarget &target)
{
    BisyncRequest request{m_localPath, target.remoteName + u':' + target.remotePath, m_folder.filters,
                          m_folder.conflictResolution, !target.hasResynced, {}, m_bandwidthLimit,
                          RemovedFiles::arguments(m_folderId, target, m_keepingRemoved, m_everKeptRemoved, m_started)};
    request.hasSyncedBefore = target.hasResynced || m_syncedTargets.contains(target.id);
    request.resyncKeepArguments = RemovedFiles::arguments(m_folderId, target, true, true, m_started);
    request.localMountPoint = m_localMountPoint;
    request.selectionArguments = m_selection.filterArguments();
    request.followsSelectionChange = m_selectionChanged.contains(target.id);
    // A resync the user chose in a review is made as asked.
    if (m_override && m_override->targetId == target.id) {
        request.isInitialSync = request.isInitialSync || m_override->initial;
        request.extraArguments = m_override->extraArguments;
        request.hasSyncedBefore = false;
    }
    return m_engine.bisync(
        request, this, [this](const SyncProgress &progress) { targetProgressed(progress); },
        [this](const RcloneStatus &result) { targetFinished(result); });
}

RcloneJob *SyncRun::startOneWay(const RemoteTarget &target)
{
    const OneWayRequest request = oneWayRequest(m_localPath, target);
    return m_engine.oneWaySync(
        request, this, [this](const SyncProgress &progress) { targetProgressed(progress); },
        [this](const RcloneStatus &result) { targetFinished(result); });
}

OneWayRequest SyncRun::oneWayRequest(const QString &localPath, const RemoteTarget &target) const
{
    const bool toRemote = m_selection.direction == SyncDirection::upload;
    OneWayRequest request{localPath, target.remoteName + u':' + target.remotePath, toRemote};
    // The kept files' directory stays out, as in a two-way run.
    request.filterArguments = Bisync::switchArguments(m_folder.filters) + m_selection.filterArguments()
        + RemovedFiles::arguments(m_folderId, target, false, m_keepingRemoved || m_everKeptRemoved, m_started);
    if (m_keepingRemoved)
        request.backupArguments = RemovedFiles::oneWayArguments(m_folderId, target, toRemote, m_started);
    request.bandwidthLimit = m_bandwidthLimit;
    request.localMountPoint = m_localMountPoint;
    request.reviewFirst = !m_oneWayTargets.contains(target.id);
    request.force = m_override && m_override->targetId == target.id && m_override->extraArguments.contains(QStringLiteral("--force"));
    return request;
}

void SyncRun::targetProgressed(const SyncProgress &progress)
{
    if (m_state != State::running)
        return;
    SyncProgress overall = progress;
    if (progress.percentage) {
        const double share = 1.0 / double(m_folder.remoteTargets.size());
        overall.percentage = double(m_index) * share + *progress.percentage * share;
    }
    Q_EMIT progressed(overall);
}

void SyncRun::targetFinished(const RcloneStatus &result)
{
    m_job = nullptr;
    // What happened happened, also in a run that failed or was stopped.
    const RemoteTarget &finished = m_folder.remoteTargets.at(m_index);
    m_activity += ActivityRecord::fromRun(m_folderId, finished.remoteName + u':' + finished.remotePath,
                                          QDateTime::currentDateTimeUtc(), m_changes);
    m_conflicts += int(m_changes.conflicts().size());
    const QList<ChangeParser::Change> &changes = m_changes.changes();
    if (m_keepsOnTarget
        && (m_changes.droppedChanges() > 0 || !m_changes.conflicts().isEmpty()
            || std::any_of(changes.begin(), changes.end(), [](const ChangeParser::Change &change) {
                   return change.toRemote && change.action != ChangeParser::Action::added;
               })))
        m_keptOn.append(finished.id);
    if (m_state == State::stopping) {
        Q_EMIT stopped();
        return;
    }
    const RemoteTarget &target = m_folder.remoteTargets.at(m_index);
    if (result.ok() && m_selection.direction != SyncDirection::twoWay) {
        Q_EMIT syncedOneWay(target.id);
    } else if (result.ok()) {
        Q_EMIT resyncStateChanged(target.id, true);
    } else {
        const RcloneError &error = result.error();
        qCCritical(lcSyncManager, "Sync error for target %s:%s - %s", qUtf8Printable(target.remoteName),
                   qUtf8Printable(target.remotePath), qUtf8Printable(error.description));
        m_errors.append(target.remoteName + u':' + target.remotePath + QStringLiteral(" — ") + error.description);
        m_details.append(error.detail);
        // rclone lost the pair's listings: the next run starts afresh, unless
        // that would fill an empty side from the other.
        if (error.demandsResync())
            Q_EMIT resyncStateChanged(target.id, false);
    }
    nextTarget();
}
