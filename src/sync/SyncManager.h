#pragma once

#include "model/SyncFolder.h"
#include "sync/ActivityLog.h"
#include "sync/AutomaticSync.h"
#include "sync/FolderPreferences.h"
#include "sync/FolderProblems.h"
#include "sync/FolderRepository.h"
#include "sync/OpenConflicts.h"
#include "sync/RunScheduler.h"
#include "sync/SyncTimings.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QUuid>

#include <functional>

class FileEventService;
class RecentlyRemoved;
class RcloneEngine;
class SettingsStore;
class SyncRun;
struct TargetOverride;

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

// The sync folders and their runs. The folder list and its store, the run
// queue, what starts runs by itself, the open conflicts and the kept files
// are parts of their own; the manager alone writes the folder records and
// turns each run's reports and outcome into them. Lives on the main thread;
// screens observe it and its parts, and call their operations.
class SyncManager final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(FolderRepository *repository READ repositoryObject CONSTANT)
    Q_PROPERTY(AutomaticSync *automatic READ automaticObject CONSTANT)

public:
    // Loads the folder store under the home directory, reads the settings and
    // starts automatic syncing when it is on.
    explicit SyncManager(const SyncEnvironment &environment, QObject *parent = nullptr);
    ~SyncManager() override;

    FolderRepository &repository() { return m_repository; }
    const FolderRepository &repository() const { return m_repository; }
    RunScheduler &runs() { return m_runs; }
    const RunScheduler &runs() const { return m_runs; }
    AutomaticSync &automatic() { return m_automatic; }
    const AutomaticSync &automatic() const { return m_automatic; }
    OpenConflicts &conflicts() { return m_conflicts; }
    const OpenConflicts &conflicts() const { return m_conflicts; }
    // Each folder's own settings: paused, keeping removed files, their days.
    FolderPreferences &preferences() { return m_preferences; }
    const FolderPreferences &preferences() const { return m_preferences; }
    // What the folder's runs kept: listed, restored, deleted, pruned.
    RecentlyRemoved &recentlyRemoved() { return *m_recentlyRemoved; }
    // Where runs write what they changed; null when nowhere.
    ActivityLog *activityLog() const { return m_activity; }

    const QList<SyncFolder> &folders() const { return m_repository.folders(); }
    std::optional<SyncFolder> folder(const QUuid &id) const { return m_repository.folder(id); }
    void addFolder(const SyncFolder &folder);
    // Replaces the folder with the same id but keeps what its run shows.
    void updateFolder(const SyncFolder &folder);
    void deleteFolder(const QUuid &id);
    // What of the folder syncs (skipped directories, ignore rules,
    // direction). A change that leaves files out or lets them back in makes
    // each target's next bisync take care of them (see Bisync).
    FolderSelection selection(const QUuid &id) const { return m_preferences.selection(id); }
    void setSelection(const QUuid &id, const FolderSelection &selection);
    // Gives a run of the folder what it needs besides the folder itself.
    void configureRun(SyncRun &run) const;

    // Runs bisync for the folder against each of its targets in turn, once a
    // slot is free and any earlier run of the folder has stopped. A request
    // while the folder's run is under way adds one run after it. False when
    // nothing will run (no such folder, no targets, runs suspended).
    bool syncFolder(const QUuid &id, SyncTrigger trigger = SyncTrigger::user);
    // A run the user started from a review, with its one target's own
    // arguments. False when nothing will run, or the folder's run is under way.
    bool syncFolder(const QUuid &id, const TargetOverride &override);
    // Syncs every folder that is not syncing already.
    Q_INVOKABLE void syncAllFolders();
    // Stops the folder's run; the folder goes back to idle at once, while its
    // rclone finishes stopping in the background.
    void cancelSync(const QUuid &id);
    void cancelAllSyncs();
    // Stops every run and starts none until resumeRuns(), which syncs again
    // the folders that were stopped (for sleep, shutdown and quitting).
    void suspendRuns();
    void resumeRuns();

    // What went wrong with each failing target of the folder's last run.
    QList<SyncProblem> problems(const QUuid &id) const { return m_problems.of(id); }

signals:
    // A run went over all targets; the folder has its outcome. `conflicts`:
    // files found changed on both sides.
    void runCompleted(const QUuid &id, int conflicts);

private:
    FolderRepository *repositoryObject() { return &m_repository; }
    AutomaticSync *automaticObject() { return &m_automatic; }
    bool startRun(const QUuid &id, SyncTrigger trigger, const TargetOverride *override);
    SyncRun *makeRun(const QUuid &id);
    static QList<QUuid> targetIds(const SyncFolder &folder);
    void runFinished(SyncRun *run, const QStringList &errors, const QStringList &details);
    void runStopped(SyncRun *run);
    void appendActivity(const QList<ActivityRecord> &records);
    // The drive the folder is on when it is chosen: a run while it is
    // unmounted would fill the empty directory left in its place.
    void rememberMountPoint(const SyncFolder &folder);

    SettingsStore &m_settings;
    RcloneEngine &m_engine;
    std::function<QDateTime()> m_clock;
    ActivityLog *m_activity;
    QList<ActivityRecord> m_unwrittenActivity; // what a full disk kept out of the activity file
    FolderRepository m_repository;
    FolderPreferences m_preferences;
    FolderProblems m_problems;
    RunScheduler m_runs;
    AutomaticSync m_automatic;
    OpenConflicts m_conflicts;
    RecentlyRemoved *m_recentlyRemoved; // a child
    bool m_runsSuspended = false;
    QList<QUuid> m_suspendedRuns;
};
