#pragma once

#include "model/SyncFolder.h"
#include "sync/ActivityLog.h"
#include "sync/ConflictCopies.h"
#include "sync/FolderPreferences.h"
#include "sync/SyncProblem.h"
#include "sync/SyncTimings.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUuid>

#include <QSet>

#include <functional>
#include <map>
#include <memory>

class BatteryMonitor;
class FileEventService;
class MeteredNetworkMonitor;
class RecentlyRemoved;
class FolderWatcher;
class RcloneEngine;
class SettingsStore;
class SyncRun;
struct TargetOverride;

// How many folders sync at once: each rclone takes about 55 MB and a core's
// share, so hundreds at once would exhaust a machine. The number of cores,
// within these bounds.
constexpr int kMinConcurrentSyncs = 2;
constexpr int kMaxConcurrentSyncs = 4;
int defaultConcurrentSyncs();

// What the manager works with.
struct SyncEnvironment
{
    SettingsStore &settings;
    RcloneEngine &engine;
    FileEventService &fileEvents;
    SyncTimings timings = {};
    std::function<QDateTime()> clock = &QDateTime::currentDateTimeUtc;
    int concurrentSyncs = defaultConcurrentSyncs();
    // Off for a one-off `nimbrell sync --wait`: no watchers, no periodic
    // check and no sync of every folder at start, whatever the setting says.
    bool automaticRuns = true;
    // Where each run's changes are written; none when null.
    ActivityLog *activity = nullptr;
};

// Who asked for a run: a user's runs start before automatic ones that wait.
enum class SyncTrigger { user, automatic };

// Owns the sync folders, the two automatic-sync settings, the folder store on
// disk and (as they land) the runs and watchers of every folder. Lives on the
// main thread; screens observe it and call its operations.
class SyncManager final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isGlobalSyncEnabled READ isGlobalSyncEnabled WRITE setGlobalSyncEnabled NOTIFY
                   isGlobalSyncEnabledChanged)
    Q_PROPERTY(qint64 globalSyncIntervalMinutes READ globalSyncIntervalMinutes WRITE setGlobalSyncIntervalMinutes
                   NOTIFY globalSyncIntervalMinutesChanged)
    Q_PROPERTY(bool isSyncActive READ isSyncActive NOTIFY syncActivityChanged)
    // Settings › Sync Options: automatic runs wait on a metered connection,
    // on battery power.
    Q_PROPERTY(bool pauseOnMetered READ pauseOnMetered WRITE setPauseOnMetered NOTIFY holdChanged)
    Q_PROPERTY(bool pauseOnBattery READ pauseOnBattery WRITE setPauseOnBattery NOTIFY holdChanged)
    // Why automatic runs wait now: "metered connection", "on battery power",
    // or empty when they do not.
    Q_PROPERTY(QString holdReason READ holdReason NOTIFY holdChanged)
    Q_PROPERTY(QString storeProblem READ storeProblem NOTIFY storeProblemChanged)

public:
    static inline const QString kGlobalSyncEnabledKey = QStringLiteral("isGlobalSyncEnabled");
    static inline const QString kGlobalSyncIntervalKey = QStringLiteral("globalSyncIntervalMinutes");
    static constexpr qint64 kDefaultGlobalSyncIntervalMinutes = 60;
    static inline const QString kPauseOnMeteredKey = QStringLiteral("pauseOnMetered");
    static inline const QString kPauseOnBatteryKey = QStringLiteral("pauseOnBattery");

    // Reads the settings, loads the folder store under the home directory and
    // starts automatic syncing when it is on.
    explicit SyncManager(const SyncEnvironment &environment, QObject *parent = nullptr);
    ~SyncManager() override;

    const QList<SyncFolder> &folders() const { return m_folders; }
    std::optional<SyncFolder> folder(const QUuid &id) const;

    bool isGlobalSyncEnabled() const { return m_isGlobalSyncEnabled; }
    void setGlobalSyncEnabled(bool enabled);
    qint64 globalSyncIntervalMinutes() const { return m_globalSyncIntervalMinutes; }
    void setGlobalSyncIntervalMinutes(qint64 minutes);

    bool pauseOnMetered() const;
    void setPauseOnMetered(bool on);
    bool pauseOnBattery() const;
    void setPauseOnBattery(bool on);
    // What the network and the power source are now.
    void setConditions(bool metered, bool onBattery);
    // Follows the monitors' readings; either may be null (none here).
    void followConditions(const MeteredNetworkMonitor *network, const BatteryMonitor *battery);
    QString holdReason() const;

    // ~/.config/rclone/rclone_sync_folders.json
    const QString &dataFilePath() const { return m_dataFilePath; }

    void addFolder(const SyncFolder &folder);
    // Replaces the folder with the same id but keeps what its run shows.
    void updateFolder(const SyncFolder &folder);
    void deleteFolder(const QUuid &id);
    // Writes a change that could not be saved yet, if any (on quitting).
    void saveFolders();
    // Why the folder list is not on disk as shown: it could not be read, or
    // a save failed (and is retried). Empty when all is well.
    const QString &storeProblem() const { return m_storeProblem; }

    // Runs bisync for the folder against each of its targets in turn, once a
    // slot is free and any earlier run of the folder has stopped. A request
    // while the folder's run is under way adds one run after it. False when
    // nothing will run (no such folder, no targets, runs suspended).
    bool syncFolder(const QUuid &id, SyncTrigger trigger = SyncTrigger::user);
    // A run the user started from a review, with its one target's own
    // arguments. False when nothing will run, or the folder's run is under way.
    bool syncFolder(const QUuid &id, const TargetOverride &override);
    // Syncs every folder that is not syncing already.
    void syncAllFolders();
    // Stops the folder's run; the folder goes back to idle at once, while its
    // rclone finishes stopping in the background.
    void cancelSync(const QUuid &id);
    void cancelAllSyncs();
    // Watches every folder while automatic sync is on, and nothing otherwise.
    void updateWatchers();

    // Stops every run and starts none until resumeRuns(), which syncs again
    // the folders that were stopped (for sleep, shutdown and quitting).
    void suspendRuns();
    void resumeRuns();

    // What went wrong with each failing target of the folder's last run.
    QList<SyncProblem> problems(const QUuid &id) const { return m_problems.value(id); }

    // While a folder is held (a review's dry run reads it), its runs wait.
    void holdRuns(const QUuid &id);
    void releaseRuns(const QUuid &id);
    bool isHeld(const QUuid &id) const { return m_held.contains(id); }

    // A paused folder is left out of automatic runs (its watcher, the
    // periodic check, syncing all); a user's "Sync Now" still runs it. A run
    // under way when it is paused finishes. Resuming runs it once if a change
    // was left waiting meanwhile.
    bool isPaused(const QUuid &id) const { return m_preferences.isPaused(id); }
    void setPaused(const QUuid &id, bool paused);
    // "Keep removed and replaced files" (RemovedFiles), from the next run on.
    bool keepsRemoved(const QUuid &id) const { return m_preferences.keepsRemoved(id); }
    bool hasKeptRemoved(const QUuid &id) const { return m_preferences.hasKept(id); }
    void setKeepsRemoved(const QUuid &id, bool keep) { m_preferences.setKeepsRemoved(id, keep); }
    // How many days kept files stay.
    int keepDays(const QUuid &id) const { return m_preferences.keepDays(id); }
    void setKeepDays(const QUuid &id, int days) { m_preferences.setKeepDays(id, days); }
    // What the folder's runs kept: listed, restored, deleted, pruned.
    RecentlyRemoved &recentlyRemoved() { return *m_recentlyRemoved; }

    // A run of the folder is queued or under way.
    bool isRunning(const QUuid &id) const { return m_runs.count(id) > 0; }
    // Where runs write what they changed; null when nowhere.
    ActivityLog *activityLog() const { return m_activity; }
    // The conflicts of the folder's runs whose two copies are both still on
    // this computer, newest first.
    QList<ActivityRecord> openConflicts(const QUuid &id) const { return m_openConflicts.value(id); }
    // Looks again whether the folder's conflicts are open: after one was
    // settled, here or in a file manager.
    void recheckConflicts(const QUuid &id);
    // A conflict by its two names: the original, and the renamed copy.
    struct ConflictPaths
    {
        QString original;
        QString renamed;
    };
    // Settles the folder's open conflict of these names as `choice` says: on
    // this computer, then on the remote where the next run cannot do it (its
    // runs wait meanwhile). A conflict that is no longer open is refused.
    // `done` gets an error sentence, or an empty one.
    void settleConflict(const QUuid &id, const ConflictPaths &conflict, ConflictCopies::Choice choice,
                        const QObject *context, const std::function<void(const QString &error)> &done);
    // The folder's run waits for a slot or for an earlier run of its pair.
    bool isWaiting(const QUuid &id) const;
    // Some run is queued, under way or still stopping.
    bool isSyncActive() const { return !m_runs.empty() || !m_stopping.empty(); }
    const FolderWatcher *watcher(const QUuid &id) const { return findWatcher(id); }
    // Where the program itself writes; changes there never start a run.
    QStringList ownPaths() const;

signals:
    void isGlobalSyncEnabledChanged(bool enabled);
    void globalSyncIntervalMinutesChanged(qint64 minutes);
    // The folder list changes one row at a time: announced before an insert or
    // a removal (for list models), reported after every change.
    void folderAboutToBeInserted(qsizetype row);
    void folderInserted(qsizetype row);
    void folderChanged(qsizetype row);
    void folderAboutToBeRemoved(qsizetype row);
    void folderRemoved(qsizetype row);
    void syncActivityChanged(bool active);
    void holdChanged();
    void storeProblemChanged(const QString &problem);
    // A run went over all targets; the folder has its outcome. `conflicts`:
    // files found changed on both sides.
    void runCompleted(const QUuid &id, int conflicts);
    // The folder's open conflicts are not what they were (also reported as a
    // change of the folder's row).
    void openConflictsChanged(const QUuid &id);

private:

    // Reads the store; false while it cannot be read.
    bool loadFolders();
    // Reads it again, and once more later while it cannot be read.
    void readStoreAgain();
    bool storeRead(const QList<SyncFolder> &stored);
    bool setAsideUndecodableStore(QString *failure);
    // A change to save: written now, or as soon as the store can be written.
    void storeFolders();
    void writeStore();
    void storeFailed(const QString &why);
    void scheduleStoreRetry();
    void setStoreProblem(const QString &problem);
    void periodicCheck();
    qsizetype indexOf(const QUuid &id) const;
    void replaceFolder(qsizetype row, const SyncFolder &folder);
    void readProblems(const SyncFolder &folder);
    void rememberMountPoint(const SyncFolder &folder);
    // Applies `change` to the stored folder with this id, if it still exists.
    bool changeFolder(const QUuid &id, const std::function<void(SyncFolder &)> &change);
    FolderWatcher *findWatcher(const QUuid &id) const;
    SyncRun *makeRun(const QUuid &id);
    bool startRun(const QUuid &id, SyncTrigger trigger, const TargetOverride *override);
    void enqueue(const QUuid &id, SyncTrigger trigger);
    void startQueuedRuns();
    void runFinished(SyncRun *run, const QStringList &errors, const QStringList &details);
    void runStopped(SyncRun *run);
    void appendActivity(const QList<ActivityRecord> &records);
    void notifyFolder(const QUuid &id);
    void updateActivity();
    void updateHold();

    QList<SyncFolder> m_folders;
    bool m_isGlobalSyncEnabled = false;
    qint64 m_globalSyncIntervalMinutes = kDefaultGlobalSyncIntervalMinutes;
    QString m_dataFilePath;
    SettingsStore &m_settings;
    RcloneEngine &m_engine;
    FileEventService &m_fileEvents;
    SyncTimings m_timings;
    std::function<QDateTime()> m_clock;
    QTimer m_periodicTimer;
    int m_concurrentSyncs;
    bool m_automaticRuns;
    ActivityLog *m_activity;
    std::map<QUuid, SyncRun *> m_runs;     // the queued or running run of a folder
    std::map<QUuid, SyncRun *> m_stopping; // cancelled runs whose child has not yet exited
    // Queued runs in the order they start: a user's first, then automatic ones.
    QList<std::pair<QUuid, SyncTrigger>> m_queue;
    QSet<QUuid> m_followUps; // one more run asked for while the folder's run was under way
    QSet<QUuid> m_held;
    // The error lines of each failed target's whole output, from runs since
    // the program started (the folder store keeps only the last lines).
    QHash<QUuid, QStringList> m_errorDetails;
    // The reading of each failed folder's error, made once per outcome (not
    // on every progress report).
    QHash<QUuid, QList<SyncProblem>> m_problems;
    QHash<QUuid, QList<ActivityRecord>> m_openConflicts;
    FolderPreferences m_preferences;
    QList<ActivityRecord> m_unwrittenActivity; // what a full disk kept out of the activity file
    RecentlyRemoved *m_recentlyRemoved; // a child
    // Automatic runs a pause or a condition turned away: run once it ends.
    QSet<QUuid> m_missed;
    bool m_isMetered = false;
    bool m_onBattery = false;
    QString m_holdReason;
    bool m_runsSuspended = false;
    QList<QUuid> m_suspendedRuns;
    bool m_wasSyncActive = false;
    std::map<QUuid, std::unique_ptr<FolderWatcher>> m_watchers;
    // The store on disk could not be decoded; it is set aside before the
    // first save replaces it.
    bool m_hasUndecodableStore = false;
    // The store could not be read: until it is, it is never written.
    bool m_storeUnread = false;
    bool m_storePending = false; // a change not yet on disk
    QString m_storeProblem;
    QTimer m_storeRetry;
};
