#include "sync/SyncManager.h"

#include "sync/ActivityLog.h"
#include "sync/BandwidthLimit.h"
#include "sync/RecentlyRemoved.h"
#include "sync/RemovedFiles.h"

#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/PowerAndNetwork.h"
#include "platform/PrivateFiles.h"
#include "platform/SettingsStore.h"
#include "sync/FolderWatcher.h"
#include "sync/SyncRun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSaveFile>
#include <QSet>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {
// What a run shows, cleared for a run that starts or is cancelled.
void resetRunState(SyncFolder &folder, SyncStatus status)
{
    folder.status = status;
    folder.progress = 0.0;
    folder.currentTargetIndex.reset();
    folder.transferredSize.reset();
    folder.transferredFiles.reset();
    folder.transferSpeed.reset();
}
} // namespace

int defaultConcurrentSyncs()
{
    return std::clamp(QThread::idealThreadCount(), kMinConcurrentSyncs, kMaxConcurrentSyncs);
}

SyncManager::SyncManager(const SyncEnvironment &environment, QObject *parent)
    : QObject(parent)
    , m_isGlobalSyncEnabled(environment.settings.boolValue(kGlobalSyncEnabledKey))
    , m_globalSyncIntervalMinutes(environment.settings.integerValue(kGlobalSyncIntervalKey))
    , m_dataFilePath(QDir::home().filePath(QStringLiteral(".config/rclone/rclone_sync_folders.json")))
    , m_settings(environment.settings)
    , m_engine(environment.engine)
    , m_fileEvents(environment.fileEvents)
    , m_timings(environment.timings)
    , m_clock(environment.clock)
    , m_concurrentSyncs(std::max(1, environment.concurrentSyncs))
    , m_automaticRuns(environment.automaticRuns)
    , m_activity(environment.activity)
    , m_recentlyRemoved(new RecentlyRemoved(*this, m_engine, m_preferences, m_clock))
{
    // Absent and 0 both mean "never chosen".
    if (m_globalSyncIntervalMinutes == 0)
        m_globalSyncIntervalMinutes = kDefaultGlobalSyncIntervalMinutes;

    // The store that could not be read is read again, and a save that
    // failed made again, until they work.
    m_storeRetry.setSingleShot(true);
    m_storeRetry.setInterval(m_timings.storeRetry);
    connect(&m_storeRetry, &QTimer::timeout, this, [this] { m_storeUnread ? readStoreAgain() : saveFolders(); });
    readStoreAgain();
    updateWatchers();
    for (const SyncFolder &folder : std::as_const(m_folders))
        recheckConflicts(folder.id);

    m_periodicTimer.setInterval(m_timings.periodicCheck);
    connect(&m_periodicTimer, &QTimer::timeout, this, &SyncManager::periodicCheck);
    m_periodicTimer.start();

    if (m_isGlobalSyncEnabled && m_automaticRuns)
        syncAllFolders();
}

// Runs still under way leave their rclone children to the engine, which lets
// them stop gracefully; destroying the manager only drops its bookkeeping.
SyncManager::~SyncManager() = default;

std::optional<SyncFolder> SyncManager::folder(const QUuid &id) const
{
    const qsizetype row = indexOf(id);
    return row < 0 ? std::nullopt : std::optional(m_folders.at(row));
}

void SyncManager::setGlobalSyncEnabled(bool enabled)
{
    const bool changed = m_isGlobalSyncEnabled != enabled;
    m_isGlobalSyncEnabled = enabled;
    qCInfo(lcSyncManager, "Global sync enabled changed to: %s", AppLogger::boolText(enabled));
    m_settings.setBoolValue(kGlobalSyncEnabledKey, enabled);
    if (changed)
        emit isGlobalSyncEnabledChanged(enabled);
    updateWatchers();
    if (!m_automaticRuns)
        return;
    if (enabled)
        syncAllFolders();
    else
        cancelAllSyncs();
}

void SyncManager::setGlobalSyncIntervalMinutes(qint64 minutes)
{
    const bool changed = m_globalSyncIntervalMinutes != minutes;
    m_globalSyncIntervalMinutes = minutes;
    qCInfo(lcSyncManager, "Global sync interval changed to: %lld", static_cast<long long>(minutes));
    m_settings.setIntegerValue(kGlobalSyncIntervalKey, minutes);
    // The periodic check reads the interval on every tick: no timer to rebuild.
    if (changed)
        emit globalSyncIntervalMinutesChanged(minutes);
}

void SyncManager::addFolder(const SyncFolder &folder)
{
    emit folderAboutToBeInserted(m_folders.size());
    rememberMountPoint(folder);
    readProblems(folder);
    m_folders.append(folder);
    emit folderInserted(m_folders.size() - 1);
    storeFolders();
    updateWatchers();
}

void SyncManager::updateFolder(const SyncFolder &folder)
{
    const qsizetype row = indexOf(folder.id);
    if (row < 0)
        return;
    // An edit made while a run is under way (or after it) must not reset what
    // the run shows.
    const SyncFolder &stored = m_folders.at(row);
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
    if (updated.localPath != stored.localPath)
        rememberMountPoint(updated);
    replaceFolder(row, updated);
    storeFolders();
    updateWatchers();
}

// The drive the folder is on when it is chosen: a run while it is unmounted
// would fill the empty directory left in its place.
void SyncManager::rememberMountPoint(const SyncFolder &folder)
{
    m_preferences.setMountPoint(folder.id, RcloneEngine::mountPointOf(folder.localPath));
}

void SyncManager::deleteFolder(const QUuid &id)
{
    cancelSync(id);
    m_errorDetails.remove(id);
    m_problems.remove(id);
    m_openConflicts.remove(id);
    m_missed.remove(id);
    m_preferences.remove(id);
    if (m_activity)
        m_activity->removeFolder(id);
    for (qsizetype row = m_folders.size() - 1; row >= 0; --row) {
        if (m_folders.at(row).id == id) {
            emit folderAboutToBeRemoved(row);
            m_folders.removeAt(row);
            emit folderRemoved(row);
        }
    }
    storeFolders();
    updateWatchers();
}

void SyncManager::saveFolders()
{
    if (m_storePending)
        writeStore();
}

void SyncManager::storeFolders()
{
    m_storePending = true;
    writeStore();
}

void SyncManager::writeStore()
{
    // A store that could not be read is never written over: it may hold the
    // only copy of the list. It is read again first, and once it reads, what
    // is pending is written with what was read.
    if (m_storeUnread)
        return readStoreAgain();
    const std::optional<QByteArray> bytes = FolderStore::encode(m_folders);
    if (!bytes)
        return;
    QString failure;
    if (m_hasUndecodableStore && !setAsideUndecodableStore(&failure))
        return storeFailed(failure);
    QDir().mkpath(QFileInfo(m_dataFilePath).path());
    // Written beside the store and renamed over it, so a crash or a full disk
    // never leaves a half-written store.
    // (commit() alone does not see a write that fails as the buffer is
    // flushed, and would put an empty file in the store's place: flush first.)
    QSaveFile file(m_dataFilePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.flush()
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || !file.commit()) {
        const QString why = file.errorString();
        file.cancelWriting();
        return storeFailed(why);
    }
    m_storePending = false;
    setStoreProblem({});
}

void SyncManager::readStoreAgain()
{
    if (!loadFolders())
        scheduleStoreRetry();
}

void SyncManager::storeFailed(const QString &why)
{
    const QString problem = QStringLiteral("The folder list could not be saved to %1: %2. Your changes are kept and "
                                           "saved again shortly.")
                                .arg(m_dataFilePath, why);
    if (problem != m_storeProblem)
        qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
    setStoreProblem(problem);
    scheduleStoreRetry();
}

void SyncManager::scheduleStoreRetry()
{
    if (!m_storeRetry.isActive())
        m_storeRetry.start();
}

void SyncManager::setStoreProblem(const QString &problem)
{
    if (std::exchange(m_storeProblem, problem) != problem)
        emit storeProblemChanged(problem);
}

bool SyncManager::syncFolder(const QUuid &id, SyncTrigger trigger)
{
    return startRun(id, trigger, nullptr);
}

bool SyncManager::syncFolder(const QUuid &id, const TargetOverride &override)
{
    return !isRunning(id) && startRun(id, SyncTrigger::user, &override);
}

bool SyncManager::startRun(const QUuid &id, SyncTrigger trigger, const TargetOverride *override)
{
    const qsizetype row = indexOf(id);
    if (row < 0 || m_folders.at(row).remoteTargets.isEmpty() || m_runsSuspended)
        return false;
    if (trigger == SyncTrigger::automatic && (isPaused(id) || !m_holdReason.isEmpty())) {
        m_missed.insert(id);
        return false;
    }
    if (const auto it = m_runs.find(id); it != m_runs.end()) {
        if (it->second->state() == SyncRun::State::running)
            m_followUps.insert(id);
        else if (trigger == SyncTrigger::user)
            enqueue(id, trigger); // already queued: now ahead of automatic runs
        return true;
    }
    SyncFolder folder = m_folders.at(row);
    qCInfo(lcSyncManager, "Starting sync for folder: %s to %lld target(s)", qUtf8Printable(folder.name),
           static_cast<long long>(folder.remoteTargets.size()));
    resetRunState(folder, SyncStatus::syncing);
    folder.lastError.reset();
    // Changes made during any run, not only a watcher's, make the watcher dirty.
    if (FolderWatcher *watcher = findWatcher(id))
        watcher->setSyncing(true);
    m_runs[id] = makeRun(id);
    if (override)
        m_runs[id]->setOverride(*override);
    enqueue(id, trigger);
    replaceFolder(row, folder);
    updateActivity();
    startQueuedRuns();
    return true;
}

void SyncManager::enqueue(const QUuid &id, SyncTrigger trigger)
{
    m_queue.removeIf([&id](const auto &entry) { return entry.first == id; });
    // A user's run goes ahead of the automatic ones that wait.
    const auto at = trigger == SyncTrigger::automatic
        ? m_queue.end()
        : std::find_if(m_queue.begin(), m_queue.end(),
                       [](const auto &entry) { return entry.second == SyncTrigger::automatic; });
    m_queue.insert(at, {id, trigger});
}

SyncRun *SyncManager::makeRun(const QUuid &id)
{
    auto *run = new SyncRun(m_engine, id, this);
    run->setBandwidthLimit(BandwidthLimit::read(m_settings).argument());
    run->setLocalMountPoint(m_preferences.mountPoint(id));
    run->setKeepRemoved(keepsRemoved(id), hasKeptRemoved(id), m_recentlyRemoved->nextRunStart(id));
    // rclone makes the run directories of kept files with the umask's
    // modes: the folder's own directory above them keeps others out.
    if (keepsRemoved(id))
        makePrivateDirectory(RemovedFiles::localDirectory(id));
    if (const std::optional<SyncFolder> folder = this->folder(id)) {
        QSet<QUuid> synced;
        for (const RemoteTarget &target : folder->remoteTargets) {
            if (m_preferences.hasSynced(id, target.id))
                synced.insert(target.id);
        }
        run->setSyncedTargets(synced);
    }
    connect(run, &SyncRun::keepsAnyway, this, [this, id] {
        m_preferences.markKept(id);
        makePrivateDirectory(RemovedFiles::localDirectory(id));
    });
    connect(run, &SyncRun::targetStarted, this, [this, id](qsizetype index) {
        changeFolder(id, [index](SyncFolder &folder) {
            folder.currentTargetIndex = index;
            folder.transferredSize.reset();
            folder.transferredFiles.reset();
            folder.transferSpeed.reset();
        });
    });
    connect(run, &SyncRun::progressed, this, [this, id](const SyncProgress &progress) {
        changeFolder(id, [&progress](SyncFolder &folder) {
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
        if (hasResynced)
            m_preferences.setSynced(id, targetId);
        changeFolder(id, [&](SyncFolder &folder) {
            for (RemoteTarget &target : folder.remoteTargets) {
                if (target.id == targetId)
                    target.hasResynced = hasResynced;
            }
        });
    });
    connect(run, &SyncRun::finished, this,
            [this, run](const QStringList &errors, const QStringList &details) { runFinished(run, errors, details); });
    connect(run, &SyncRun::stopped, this, [this, run] { runStopped(run); });
    connect(run, &SyncRun::waitingChanged, this, [this, id] { notifyFolder(id); });
    return run;
}

bool SyncManager::isWaiting(const QUuid &id) const
{
    const auto it = m_runs.find(id);
    return it != m_runs.end() && it->second->isWaiting();
}

void SyncManager::startQueuedRuns()
{
    const auto busy = [this] {
        return std::count_if(m_runs.begin(), m_runs.end(),
                             [](const auto &entry) { return entry.second->state() == SyncRun::State::running; })
            + qsizetype(m_stopping.size());
    };
    for (qsizetype i = 0; i < m_queue.size() && busy() < m_concurrentSyncs;) {
        const QUuid id = m_queue.at(i).first;
        // A folder whose previous rclone is still stopping waits for it, and
        // one that a review reads waits for the review.
        if (m_stopping.count(id) || m_held.contains(id)) {
            ++i;
            continue;
        }
        m_queue.removeAt(i);
        const std::optional<SyncFolder> folder = this->folder(id);
        if (const auto it = m_runs.find(id); it != m_runs.end() && folder)
            it->second->start(*folder);
    }
}

void SyncManager::syncAllFolders()
{
    // Collect first: starting a run changes the folder records.
    QList<QUuid> due;
    for (const SyncFolder &folder : std::as_const(m_folders)) {
        if (folder.status != SyncStatus::syncing)
            due.append(folder.id);
    }
    for (const QUuid &id : std::as_const(due))
        syncFolder(id, SyncTrigger::automatic);
}

void SyncManager::cancelSync(const QUuid &id)
{
    qCInfo(lcSyncManager, "Canceling sync for folder ID: %s", qPrintable(uuidString(id)));
    m_followUps.remove(id);
    if (const auto it = m_runs.find(id); it != m_runs.end()) {
        SyncRun *run = it->second;
        m_runs.erase(it);
        m_queue.removeIf([&id](const auto &entry) { return entry.first == id; });
        if (run->cancel()) {
            m_stopping[id] = run;
        } else {
            appendActivity(run->activity());
            run->deleteLater();
        }
    }
    if (changeFolder(id, [](SyncFolder &folder) { resetRunState(folder, SyncStatus::idle); }))
        storeFolders();
    // Nothing restarts by itself after a cancel until the next change.
    if (FolderWatcher *watcher = findWatcher(id))
        watcher->syncWasCancelled();
    updateActivity();
    startQueuedRuns();
}

void SyncManager::holdRuns(const QUuid &id)
{
    m_held.insert(id);
}

void SyncManager::releaseRuns(const QUuid &id)
{
    if (m_held.remove(id))
        startQueuedRuns();
}

void SyncManager::cancelAllSyncs()
{
    QList<QUuid> ids;
    ids.reserve(m_folders.size());
    for (const SyncFolder &folder : std::as_const(m_folders))
        ids.append(folder.id);
    for (const QUuid &id : std::as_const(ids))
        cancelSync(id);
}

void SyncManager::suspendRuns()
{
    if (std::exchange(m_runsSuspended, true))
        return;
    for (const auto &[id, run] : m_runs)
        m_suspendedRuns.append(id);
    m_periodicTimer.stop();
    for (const QUuid &id : std::as_const(m_suspendedRuns))
        cancelSync(id);
}

void SyncManager::resumeRuns()
{
    if (!std::exchange(m_runsSuspended, false))
        return;
    m_periodicTimer.start();
    for (const QUuid &id : std::exchange(m_suspendedRuns, {}))
        syncFolder(id, SyncTrigger::automatic);
}

void SyncManager::updateWatchers()
{
    if (!m_isGlobalSyncEnabled || !m_automaticRuns) {
        m_watchers.clear();
        return;
    }
    QSet<QUuid> ids;
    for (const SyncFolder &folder : std::as_const(m_folders))
        ids.insert(folder.id);
    std::erase_if(m_watchers, [&ids](const auto &entry) { return !ids.contains(entry.first); });

    for (const SyncFolder &folder : std::as_const(m_folders)) {
        const auto it = m_watchers.find(folder.id);
        if (it != m_watchers.end() && it->second->localPath() == folder.localPath)
            continue;
        auto watcher = std::make_unique<FolderWatcher>(folder.id, folder.localPath, m_fileEvents, m_timings);
        watcher->onTriggerSync = [this, id = folder.id] { return syncFolder(id, SyncTrigger::automatic); };
        // rclone's own writes during a run under way must not start another.
        watcher->setSyncing(isRunning(folder.id));
        watcher->start(ownPaths());
        m_watchers[folder.id] = std::move(watcher);
    }
}

FolderWatcher *SyncManager::findWatcher(const QUuid &id) const
{
    const auto it = m_watchers.find(id);
    return it == m_watchers.end() ? nullptr : it->second.get();
}

void SyncManager::periodicCheck()
{
    if (!m_isGlobalSyncEnabled || !m_automaticRuns)
        return;
    const QDateTime now = m_clock();
    QList<QUuid> due;
    for (const SyncFolder &folder : std::as_const(m_folders)) {
        // Only the global interval counts here; a folder's own interval is kept but not used.
        const double intervalSeconds = double(m_globalSyncIntervalMinutes) * 60.0;
        const bool intervalPassed =
            !folder.lastSync || double(folder.lastSync->msecsTo(now)) / 1000.0 > intervalSeconds;
        if (intervalPassed && folder.status != SyncStatus::syncing)
            due.append(folder.id);
    }
    for (const QUuid &id : std::as_const(due))
        syncFolder(id, SyncTrigger::automatic);
}

QStringList SyncManager::ownPaths() const
{
    const QString nimbrell = QStringLiteral("/nimbrell");
    return {RcloneEngine::workDirectory(), m_dataFilePath,
            QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + nimbrell,
            QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + nimbrell,
            QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + nimbrell};
}

void SyncManager::runFinished(SyncRun *run, const QStringList &errors, const QStringList &details)
{
    const QUuid id = run->folderId();
    if (const auto it = m_runs.find(id); it != m_runs.end() && it->second == run)
        m_runs.erase(it);
    run->deleteLater();

    const qsizetype row = indexOf(id);
    if (row >= 0) {
        SyncFolder folder = m_folders.at(row);
        folder.lastSync = m_clock();
        folder.currentTargetIndex.reset();
        if (errors.isEmpty()) {
            folder.status = SyncStatus::success;
            folder.progress = 1.0;
            folder.lastError.reset();
            m_errorDetails.remove(id);
        } else {
            folder.status = SyncStatus::error;
            folder.lastError = errors.join(u'\n');
            m_errorDetails.insert(id, details);
        }
        replaceFolder(row, folder);
        storeFolders();
        if (errors.isEmpty())
            qCInfo(lcSyncManager, "Sync completed successfully for folder ID: %s", qPrintable(uuidString(id)));
        else
            qCCritical(lcSyncManager, "Sync completed with errors for folder ID: %s", qPrintable(uuidString(id)));
    }
    appendActivity(run->activity());
    if (row >= 0 && hasKeptRemoved(id))
        m_recentlyRemoved->runFinished(m_folders.at(row), run->startTime(), run->keptOnTargets());
    if (row >= 0) {
        recheckConflicts(id);
        emit runCompleted(id, run->conflictCount());
    }
    if (FolderWatcher *watcher = findWatcher(id))
        watcher->syncDidFinish();
    if (m_followUps.remove(id))
        syncFolder(id, SyncTrigger::automatic);
    updateActivity();
    startQueuedRuns();
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

void SyncManager::runStopped(SyncRun *run)
{
    const QUuid id = run->folderId();
    if (const auto it = m_stopping.find(id); it != m_stopping.end() && it->second == run)
        m_stopping.erase(it);
    run->deleteLater();
    // What it did before it stopped happened all the same.
    appendActivity(run->activity());
    if (const std::optional<SyncFolder> stopped = folder(id)) {
        if (hasKeptRemoved(id))
            m_recentlyRemoved->runStopped(*stopped, run->startTime(), run->keptOnTargets());
        recheckConflicts(id);
    }
    updateActivity();
    startQueuedRuns();
}

void SyncManager::setPaused(const QUuid &id, bool paused)
{
    if (!folder(id) || paused == isPaused(id))
        return;
    qCInfo(lcSyncManager, "Folder %s %s", qPrintable(uuidString(id)), paused ? "paused" : "resumed");
    m_preferences.setPaused(id, paused);
    notifyFolder(id);
    if (!paused && m_holdReason.isEmpty() && m_missed.remove(id) && m_isGlobalSyncEnabled && m_automaticRuns)
        syncFolder(id, SyncTrigger::automatic);
}

bool SyncManager::pauseOnMetered() const
{
    return m_settings.boolValue(kPauseOnMeteredKey);
}

bool SyncManager::pauseOnBattery() const
{
    return m_settings.boolValue(kPauseOnBatteryKey);
}

void SyncManager::setPauseOnMetered(bool on)
{
    m_settings.setBoolValue(kPauseOnMeteredKey, on);
    updateHold();
}

void SyncManager::setPauseOnBattery(bool on)
{
    m_settings.setBoolValue(kPauseOnBatteryKey, on);
    updateHold();
}

void SyncManager::setConditions(bool metered, bool onBattery)
{
    m_isMetered = metered;
    m_onBattery = onBattery;
    updateHold();
}

void SyncManager::followConditions(const MeteredNetworkMonitor *network, const BatteryMonitor *battery)
{
    const auto read = [this, network = QPointer(network), battery = QPointer(battery)] {
        setConditions(network && network->isMetered(), battery && battery->onBattery());
    };
    if (network)
        connect(network, &MeteredNetworkMonitor::changed, this, read);
    if (battery)
        connect(battery, &BatteryMonitor::changed, this, read);
    read();
}

QString SyncManager::holdReason() const
{
    return m_holdReason;
}

void SyncManager::updateHold()
{
    const QString reason = m_isMetered && pauseOnMetered() ? QStringLiteral("metered connection")
        : m_onBattery && pauseOnBattery()                  ? QStringLiteral("on battery power")
                                                           : QString();
    if (reason == m_holdReason) {
        emit holdChanged(); // a setting changed
        return;
    }
    qCInfo(lcSyncManager, "Automatic syncs %s", reason.isEmpty() ? "go on" : qPrintable(QStringLiteral("wait: ") + reason));
    m_holdReason = reason;
    emit holdChanged();
    if (!reason.isEmpty() || !m_isGlobalSyncEnabled || !m_automaticRuns)
        return;
    // Each folder that changed or came due meanwhile syncs once.
    const QSet<QUuid> missed = std::exchange(m_missed, {});
    for (const SyncFolder &folder : std::as_const(m_folders)) {
        if (missed.contains(folder.id) && !isPaused(folder.id))
            syncFolder(folder.id, SyncTrigger::automatic);
        else if (missed.contains(folder.id))
            m_missed.insert(folder.id);
    }
}

void SyncManager::recheckConflicts(const QUuid &id)
{
    const std::optional<SyncFolder> checked = folder(id);
    if (!m_activity || !checked)
        return;
    QList<ActivityRecord> open = FolderActivity::of(m_activity->read(), id, checked->localPath).openConflicts;
    if (open == m_openConflicts.value(id))
        return;
    if (open.isEmpty())
        m_openConflicts.remove(id);
    else
        m_openConflicts.insert(id, open);
    emit openConflictsChanged(id);
    notifyFolder(id);
}

void SyncManager::settleConflict(const QUuid &id, const ConflictPaths &conflict, ConflictCopies::Choice choice,
                                 const QObject *context, const std::function<void(const QString &error)> &done)
{
    const std::optional<SyncFolder> settled = folder(id);
    // A run may have ended since the list was shown: the copies are named,
    // never counted, so a click cannot land on another file's conflict.
    recheckConflicts(id);
    const QList<ActivityRecord> open = openConflicts(id);
    const auto found = std::find_if(open.begin(), open.end(), [&conflict](const ActivityRecord &record) {
        return record.path == conflict.original && record.renamed == conflict.renamed;
    });
    if (!settled || found == open.end())
        return done(QStringLiteral("This conflict is no longer open."));
    // A run reads the folder now: what it reads must not change under it.
    if (isRunning(id) || isHeld(id))
        return done(QStringLiteral("Wait for the sync to finish, then try again."));
    const ActivityRecord record = *found;
    ConflictCopies copies(settled->localPath, record);
    const QStringList remoteCopy = copies.remoteCopy(choice);
    const QString error = copies.settle(choice);
    recheckConflicts(id);
    if (!error.isEmpty() || remoteCopy.isEmpty())
        return done(error);
    holdRuns(id);
    m_engine.run(remoteCopy, this, [this, id, done, context = QPointer<const QObject>(context), target = record.target](
                                       const RcloneResult<QString> &result) {
        releaseRuns(id);
        if (context)
            done(result.ok() ? QString()
                             : QStringLiteral("Kept on this computer, but %1 could not be updated: %2")
                                   .arg(target, result.errorDescription()));
    });
}

void SyncManager::notifyFolder(const QUuid &id)
{
    if (const qsizetype row = indexOf(id); row >= 0)
        emit folderChanged(row);
}

void SyncManager::updateActivity()
{
    const bool active = isSyncActive();
    if (std::exchange(m_wasSyncActive, active) != active)
        emit syncActivityChanged(active);
}

bool SyncManager::loadFolders()
{
    // A missing store is a first start.
    QFile file(m_dataFilePath);
    if (!file.exists())
        return storeRead({});
    QByteArray bytes;
    if (file.open(QIODevice::ReadOnly))
        bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        // Not the store's fault (no permission, an I/O error, a home on the
        // network that hiccups): nothing is written until it reads.
        const QString problem = QStringLiteral("The folder list could not be read from %1: %2. Nothing is saved until "
                                               "it can be read.")
                                    .arg(m_dataFilePath, file.errorString());
        if (problem != m_storeProblem)
            qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
        m_storeUnread = true;
        setStoreProblem(problem);
        return false;
    }
    FolderStore::DecodeError error;
    std::optional<QList<SyncFolder>> folders = FolderStore::decode(bytes, &error);
    if (!folders) {
        // Corrupt, or written by a newer version: kept as it is until the
        // user changes something, then set aside under a name of its own.
        const QString problem = QStringLiteral("The folder list in %1 cannot be used (%2). It is kept as it is, and "
                                               "set aside under a name of its own when you add a folder.")
                                    .arg(m_dataFilePath, error.toString());
        qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
        m_hasUndecodableStore = true;
        storeRead({});
        setStoreProblem(problem);
        return true;
    }
    // A folder saved mid-run by a program that then ended is not syncing now.
    for (SyncFolder &folder : *folders) {
        if (folder.status == SyncStatus::syncing)
            resetRunState(folder, SyncStatus::idle);
    }
    return storeRead(*folders);
}

bool SyncManager::storeRead(const QList<SyncFolder> &stored)
{
    const bool wasUnread = std::exchange(m_storeUnread, false);
    if (wasUnread) {
        qCInfo(lcSyncManager, "The folder list can be read again");
        setStoreProblem({});
    }
    // The list so far holds only what was added while the store could not
    // be read: the stored folders come first, then those.
    QSet<QUuid> added;
    for (const SyncFolder &folder : std::as_const(m_folders))
        added.insert(folder.id);
    for (qsizetype row = 0; row < stored.size(); ++row) {
        if (added.contains(stored.at(row).id))
            continue;
        emit folderAboutToBeInserted(row);
        readProblems(stored.at(row));
        m_folders.insert(row, stored.at(row));
        emit folderInserted(row);
    }
    if (wasUnread) {
        updateWatchers();
        if (m_storePending)
            writeStore();
    }
    return true;
}

bool SyncManager::setAsideUndecodableStore(QString *failure)
{
    // A name never used before, so no earlier copy is ever replaced.
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    for (int n = 1; n < 1000; ++n) {
        const QString aside = m_dataFilePath + QStringLiteral(".unreadable-") + stamp
            + (n > 1 ? u'-' + QString::number(n) : QString());
        if (QFileInfo::exists(aside))
            continue;
        // link(2) fails when the name exists; the store goes only once it is there.
        if (::link(QFile::encodeName(m_dataFilePath).constData(), QFile::encodeName(aside).constData()) == 0
            || errno == ENOENT) {
            qCInfo(lcSyncManager, "The unusable folder list was set aside as %s", qUtf8Printable(aside));
            m_hasUndecodableStore = false;
            return true;
        }
        if (errno != EEXIST) {
            *failure = QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
    }
    *failure = QStringLiteral("no free name to set the old list aside");
    return false;
}

qsizetype SyncManager::indexOf(const QUuid &id) const
{
    for (qsizetype row = 0; row < m_folders.size(); ++row) {
        if (m_folders.at(row).id == id)
            return row;
    }
    return -1;
}

void SyncManager::replaceFolder(qsizetype row, const SyncFolder &folder)
{
    const SyncFolder &old = m_folders.at(row);
    const bool reread = old.status != folder.status || old.lastError != folder.lastError
        || old.remoteTargets != folder.remoteTargets || old.localPath != folder.localPath;
    m_folders[row] = folder;
    if (reread)
        readProblems(folder);
    emit folderChanged(row);
}

void SyncManager::readProblems(const SyncFolder &folder)
{
    const QList<SyncProblem> problems = SyncProblem::forFolder(folder, m_errorDetails.value(folder.id));
    if (problems.isEmpty())
        m_problems.remove(folder.id);
    else
        m_problems.insert(folder.id, problems);
}

bool SyncManager::changeFolder(const QUuid &id, const std::function<void(SyncFolder &)> &change)
{
    const qsizetype row = indexOf(id);
    if (row < 0)
        return false;
    SyncFolder folder = m_folders.at(row);
    change(folder);
    replaceFolder(row, folder);
    return true;
}
