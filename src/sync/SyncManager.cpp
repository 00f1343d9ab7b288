#include "sync/SyncManager.h"
#include "engine/LocalRoot.h"

#include "sync/BandwidthLimit.h"
#include "sync/FolderWatcher.h"
#include "sync/RecentlyRemoved.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncRun.h"

#include "engine/RcloneEngine.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/PrivateFiles.h"
#include "platform/SettingsStore.h"
#include "platform/StallProbe.h"

#include <QDir>
#include <QSet>

SyncManager::SyncManager(const SyncEnvironment &environment, QObject *parent)
    : QObject(parent)
    , m_settings(environment.settings)
    , m_engine(environment.engine)
    , m_clock(environment.clock)
    , m_activity(environment.activity)
    , m_repository(QDir::home().filePath(QStringLiteral(".config/rclone/rclone_sync_folders.json")),
                   environment.timings.storeRetry, this)
    , m_runs(m_repository, environment.concurrentSyncs, this)
    , m_automatic({*this, m_repository, m_preferences, environment.settings, environment.fileEvents,
                   environment.timings, environment.clock, environment.automaticRuns},
                  this)
    , m_conflicts(*this, environment.engine, environment.activity, this)
    , m_recentlyRemoved(new RecentlyRemoved(*this, m_engine, m_preferences, m_clock))
{
    // A folder's problems are read as its outcome changes, before anyone
    // looking at its row hears of it.
    for (const SyncFolder &folder : folders())
        m_problems.read(folder);
    const auto readProblems = [this](qsizetype row) { m_problems.read(folders().at(row)); };
    connect(&m_repository, &FolderRepository::folderInserted, this, readProblems);
    connect(&m_repository, &FolderRepository::folderChanged, this, readProblems);
    connect(&m_repository, &FolderRepository::readAgain, &m_automatic, &AutomaticSync::updateWatchers);
    connect(&m_runs, &RunScheduler::finished, this, &SyncManager::runFinished);
    connect(&m_runs, &RunScheduler::stopped, this, &SyncManager::runStopped);

    m_automatic.updateWatchers();
    for (const SyncFolder &folder : folders())
        m_conflicts.recheck(folder.id);
    if (m_automatic.isGlobalSyncEnabled() && environment.automaticRuns)
        syncAllFolders();
}

// Runs still under way leave their rclone children to the engine, which lets
// them stop gracefully; destroying the manager only drops its bookkeeping.
SyncManager::~SyncManager() = default;

void SyncManager::addFolder(const SyncFolder &folder)
{
    rememberMountPoint(folder);
    m_repository.append(folder);
    m_repository.store();
    m_automatic.updateWatchers();
}

void SyncManager::updateFolder(const SyncFolder &folder)
{
    const qsizetype row = m_repository.indexOf(folder.id);
    if (row < 0)
        return;
    // An edit made while a run is under way (or after it) must not reset what
    // the run shows.
    const SyncFolder &stored = folders().at(row);
    SyncFolder updated = folder;
    updated.status = stored.status;
    updated.progress = stored.progress;
    updated.currentTargetIndex = stored.currentTargetIndex;
    updated.transferredSize = stored.transferredSize;
    updated.transferredFiles = stored.transferredFiles;
    updated.transferSpeed = stored.transferSpeed;
    updated.lastSync = stored.lastSync;
    updated.lastError = stored.lastError;
    // Whether a target has had its first sync is the run's bookkeeping, not
    // the editor's: an editor opened before a first sync ended must not undo it.
    for (RemoteTarget &target : updated.remoteTargets) {
        for (const RemoteTarget &before : stored.remoteTargets) {
            if (before.id == target.id)
                target.hasResynced = before.hasResynced;
        }
    }
    // The switches decide what syncs as much as the folder's selection does.
    if (updated.filters != stored.filters)
        m_preferences.setFollowsSelectionChange(updated.id, targetIds(updated), true);
    if (updated.localPath != stored.localPath)
        rememberMountPoint(updated);
    m_repository.replace(row, updated);
    m_repository.store();
    m_automatic.updateWatchers();
}

void SyncManager::rememberMountPoint(const SyncFolder &folder)
{
    m_preferences.setMountPoint(folder.id, LocalRoot::mountPointOf(folder.localPath));
}

void SyncManager::deleteFolder(const QUuid &id)
{
    cancelSync(id);
    m_problems.remove(id);
    m_conflicts.remove(id);
    m_automatic.forget(id);
    m_preferences.remove(id);
    if (m_activity)
        m_activity->removeFolder(id);
    m_repository.remove(id);
    m_repository.store();
    m_automatic.updateWatchers();
}

bool SyncManager::syncFolder(const QUuid &id, SyncTrigger trigger)
{
    return startRun(id, trigger, nullptr);
}

bool SyncManager::syncFolder(const QUuid &id, const TargetOverride &override)
{
    return !m_runs.isRunning(id) && startRun(id, SyncTrigger::user, &override);
}

bool SyncManager::startRun(const QUuid &id, SyncTrigger trigger, const TargetOverride *override)
{
    const qsizetype row = m_repository.indexOf(id);
    if (row < 0 || folders().at(row).remoteTargets.isEmpty() || m_runsSuspended)
        return false;
    if (trigger == SyncTrigger::automatic && !m_automatic.admits(id))
        return false;
    if (m_runs.isRunning(id)) {
        m_runs.again(id, trigger);
        return true;
    }
    SyncFolder folder = folders().at(row);
    qCInfo(lcSyncManager, "Starting sync for folder: %s to %lld target(s)", qUtf8Printable(folder.name),
           static_cast<long long>(folder.remoteTargets.size()));
    resetRunState(folder, SyncStatus::syncing);
    folder.lastError.reset();
    // Changes made during any run, not only a watcher's, make the watcher dirty.
    if (FolderWatcher *watcher = m_automatic.watcher(id))
        watcher->setSyncing(true);
    SyncRun *run = makeRun(id);
    if (override)
        run->setOverride(*override);
    m_runs.add(run, trigger);
    m_repository.replace(row, folder);
    m_runs.startQueued();
    return true;
}

void SyncManager::setSelection(const QUuid &id, const FolderSelection &selection)
{
    const std::optional<SyncFolder> folder = this->folder(id);
    if (!folder)
        return;
    const FolderSelection before = m_preferences.selection(id);
    if (selection == before)
        return;
    m_preferences.setSelection(id, selection);
    if (selection.reveals(before) || selection.hides(before))
        m_preferences.setFollowsSelectionChange(id, targetIds(*folder), true);
    m_automatic.updateWatchers(); // what they watch, and what they let pass
    m_repository.touch(id);
}

QList<QUuid> SyncManager::targetIds(const SyncFolder &folder)
{
    QList<QUuid> ids;
    for (const RemoteTarget &target : folder.remoteTargets)
        ids.append(target.id);
    return ids;
}

void SyncManager::configureRun(SyncRun &run) const
{
    const QUuid &id = run.folderId();
    run.setBandwidthLimit(BandwidthLimit::read(m_settings).argument());
    run.setLocalMountPoint(m_preferences.mountPoint(id));
    run.setKeepRemoved(m_preferences.keepsRemoved(id), m_preferences.hasKept(id), m_recentlyRemoved->nextRunStart(id));
    run.setSelection(m_preferences.selection(id));
    if (const std::optional<SyncFolder> folder = this->folder(id)) {
        QSet<QUuid> synced, changed, oneWay;
        for (const RemoteTarget &target : folder->remoteTargets) {
            if (m_preferences.hasSynced(id, target.id))
                synced.insert(target.id);
            if (m_preferences.followsSelectionChange(id, target.id))
                changed.insert(target.id);
            if (m_preferences.hasSyncedOneWay(id, target.id))
                oneWay.insert(target.id);
        }
        run.setSyncedTargets(synced);
        run.setSelectionChangedTargets(changed);
        run.setOneWayTargets(oneWay);
    }
}

SyncRun *SyncManager::makeRun(const QUuid &id)
{
    auto *run = new SyncRun(m_engine, id);
    configureRun(*run);
    // rclone makes the run directories of kept files with the umask's
    // modes: the folder's own directory above them keeps others out.
    if (m_preferences.keepsRemoved(id))
        makePrivateDirectory(RemovedFiles::localDirectory(id));
    connect(run, &SyncRun::syncedOneWay, this, [this, id](const QUuid &targetId) {
        m_preferences.setSyncedOneWay(id, targetId);
        m_preferences.setFollowsSelectionChange(id, {targetId}, false);
    });
    connect(run, &SyncRun::keepsAnyway, this, [this, id] {
        m_preferences.markKept(id);
        makePrivateDirectory(RemovedFiles::localDirectory(id));
    });
    connect(run, &SyncRun::targetStarted, this, [this, id](qsizetype index) {
        m_repository.change(id, [index](SyncFolder &folder) {
            folder.currentTargetIndex = index;
            folder.transferredSize.reset();
            folder.transferredFiles.reset();
            folder.transferSpeed.reset();
        });
    });
    connect(run, &SyncRun::progressed, this, [this, id](const SyncProgress &progress) {
        m_repository.change(id, [&progress](SyncFolder &folder) {
            if (progress.percentage)
                folder.progress = *progress.percentage;
            if (progress.sizeString)
                folder.transferredSize = progress.sizeString;
            if (progress.fileString)
                folder.transferredFiles = progress.fileString;
            if (progress.speedAndETA)
                folder.transferSpeed = progress.speedAndETA;
        });
    });
    connect(run, &SyncRun::resyncStateChanged, this, [this, id](const QUuid &targetId, bool hasResynced) {
        if (hasResynced) {
            m_preferences.setSynced(id, targetId);
            m_preferences.setFollowsSelectionChange(id, {targetId}, false);
        }
        m_repository.change(id, [&](SyncFolder &folder) {
            for (RemoteTarget &target : folder.remoteTargets) {
                if (target.id == targetId)
                    target.hasResynced = hasResynced;
            }
        });
    });
    connect(run, &SyncRun::waitingChanged, this, [this, id] { m_repository.touch(id); });
    return run;
}

void SyncManager::syncAllFolders()
{
    // Collect first: starting a run changes the folder records.
    QList<QUuid> due;
    for (const SyncFolder &folder : folders()) {
        if (folder.status != SyncStatus::syncing)
            due.append(folder.id);
    }
    for (const QUuid &id : std::as_const(due))
        syncFolder(id, SyncTrigger::automatic);
}

void SyncManager::cancelSync(const QUuid &id)
{
    qCInfo(lcSyncManager, "Canceling sync for folder ID: %s", qPrintable(uuidString(id)));
    if (SyncRun *stopped = m_runs.cancel(id))
        appendActivity(stopped->activity());
    if (m_repository.change(id, [](SyncFolder &folder) { resetRunState(folder, SyncStatus::idle); }))
        m_repository.store();
    // Nothing restarts by itself after a cancel until the next change.
    if (FolderWatcher *watcher = m_automatic.watcher(id))
        watcher->syncWasCancelled();
    m_runs.startQueued();
}

void SyncManager::cancelAllSyncs()
{
    QList<QUuid> ids;
    ids.reserve(folders().size());
    for (const SyncFolder &folder : folders())
        ids.append(folder.id);
    for (const QUuid &id : std::as_const(ids))
        cancelSync(id);
}

void SyncManager::suspendRuns()
{
    if (std::exchange(m_runsSuspended, true))
        return;
    m_suspendedRuns = m_runs.running();
    m_automatic.setSuspended(true);
    for (const QUuid &id : std::as_const(m_suspendedRuns))
        cancelSync(id);
}

void SyncManager::resumeRuns()
{
    if (!std::exchange(m_runsSuspended, false))
        return;
    m_automatic.setSuspended(false);
    for (const QUuid &id : std::exchange(m_suspendedRuns, {}))
        syncFolder(id, SyncTrigger::automatic);
}

void SyncManager::runFinished(SyncRun *run, const QStringList &errors, const QStringList &details)
{
    StallProbe::Step step("the end of a run");
    const QUuid id = run->folderId();
    const qsizetype row = m_repository.indexOf(id);
    if (row >= 0) {
        SyncFolder folder = folders().at(row);
        folder.lastSync = m_clock();
        folder.currentTargetIndex.reset();
        if (errors.isEmpty()) {
            folder.status = SyncStatus::success;
            folder.progress = 1.0;
            folder.lastError.reset();
            m_problems.setDetails(id, {});
        } else {
            folder.status = SyncStatus::error;
            folder.lastError = errors.join(u'\n');
            m_problems.setDetails(id, details);
        }
        m_repository.replace(row, folder);
        m_repository.store();
        if (errors.isEmpty())
            qCInfo(lcSyncManager, "Sync completed successfully for folder ID: %s", qPrintable(uuidString(id)));
        else
            qCCritical(lcSyncManager, "Sync completed with errors for folder ID: %s", qPrintable(uuidString(id)));
    }
    appendActivity(run->activity());
    if (row >= 0 && m_preferences.hasKept(id))
        m_recentlyRemoved->runFinished(folders().at(row), run->startTime(), run->keptOnTargets());
    if (row >= 0) {
        m_conflicts.recheck(id);
        emit runCompleted(id, run->conflictCount());
    }
    if (FolderWatcher *watcher = m_automatic.watcher(id))
        watcher->syncDidFinish(errors.isEmpty());
    if (m_runs.takeFollowUp(id))
        syncFolder(id, SyncTrigger::automatic);
}

void SyncManager::runStopped(SyncRun *run)
{
    // What it did before it stopped happened all the same.
    appendActivity(run->activity());
    const QUuid id = run->folderId();
    if (const std::optional<SyncFolder> stopped = folder(id)) {
        if (m_preferences.hasKept(id))
            m_recentlyRemoved->runStopped(*stopped, run->startTime(), run->keptOnTargets());
        m_conflicts.recheck(id);
    }
}

void SyncManager::appendActivity(const QList<ActivityRecord> &records)
{
    if (!m_activity)
        return;
    // Kept until it can be written (a full disk), with what comes next.
    m_unwrittenActivity += records;
    if (m_unwrittenActivity.isEmpty())
        return;
    if (m_activity->append(m_unwrittenActivity)) {
        m_unwrittenActivity.clear();
        return;
    }
    qCCritical(lcSyncManager, "Could not write the activity of a run to %s; written with the next run",
               qUtf8Printable(m_activity->path()));
    // Bounded as the file is.
    if (m_unwrittenActivity.size() > ActivityLog::kMaxRecords)
        m_unwrittenActivity = m_unwrittenActivity.mid(m_unwrittenActivity.size() - ActivityLog::kMaxRecords);
}
