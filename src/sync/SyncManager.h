#pragma once

#include "model/SyncFolder.h"
#include "sync/SyncTimings.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUuid>

#include <functional>
#include <map>
#include <memory>

class FileEventService;
class FolderWatcher;
class RcloneEngine;
class SettingsStore;
class SyncRun;

// What the manager works with.
struct SyncEnvironment
{
    SettingsStore &settings;
    RcloneEngine &engine;
    FileEventService &fileEvents;
    SyncTimings timings = {};
    std::function<QDateTime()> clock = &QDateTime::currentDateTimeUtc;
};

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

public:
    static inline const QString kGlobalSyncEnabledKey = QStringLiteral("isGlobalSyncEnabled");
    static inline const QString kGlobalSyncIntervalKey = QStringLiteral("globalSyncIntervalMinutes");
    static constexpr qint64 kDefaultGlobalSyncIntervalMinutes = 60;

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

    // ~/.config/rclone/rclone_sync_folders.json
    const QString &dataFilePath() const { return m_dataFilePath; }

    void addFolder(const SyncFolder &folder);
    // Replaces the folder with the same id but keeps what its run shows.
    void updateFolder(const SyncFolder &folder);
    void deleteFolder(const QUuid &id);
    void saveFolders();

    // Runs bisync for the folder against each of its targets in turn.
    void syncFolder(const QUuid &id);
    // Syncs every folder that is not syncing already.
    void syncAllFolders();
    // Terminates the folder's run; the folder goes back to idle.
    void cancelSync(const QUuid &id);
    void cancelAllSyncs();
    // Watches every folder while automatic sync is on, and nothing otherwise.
    void updateWatchers();

    bool isRunning(const QUuid &id) const { return m_runs.count(id) > 0; }
    const FolderWatcher *watcher(const QUuid &id) const { return findWatcher(id); }

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

private:
    friend class SyncRun;

    void loadFolders();
    bool setAsideUnreadableStore();
    void periodicCheck();
    qsizetype indexOf(const QUuid &id) const;
    void replaceFolder(qsizetype row, const SyncFolder &folder);
    // Applies `change` to the stored folder with this id, if it still exists.
    bool changeFolder(const QUuid &id, const std::function<void(SyncFolder &)> &change);
    FolderWatcher *findWatcher(const QUuid &id) const;
    void runFinished(SyncRun *run, const QStringList &errors);

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
    std::map<QUuid, SyncRun *> m_runs; // the run of each syncing folder (children of the manager)
    std::map<QUuid, std::unique_ptr<FolderWatcher>> m_watchers;
    // The store on disk could not be read; it is set aside before the first
    // save replaces it.
    bool m_hasUnreadableStore = false;
};
