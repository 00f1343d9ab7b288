#pragma once

#include "sync/SyncTimings.h"

#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>

#include <functional>
#include <map>
#include <memory>

class BatteryMonitor;
class FileEventService;
class FolderPreferences;
class FolderRepository;
class FolderWatcher;
class MeteredNetworkMonitor;
class SettingsStore;
class SyncManager;

// What starts runs by itself: the switch of automatic sync and its interval,
// a watcher per folder, the periodic check, and what holds them back (a
// paused folder, a metered connection, battery power). Runs are asked of the
// manager, which decides.
class AutomaticSync final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isGlobalSyncEnabled READ isGlobalSyncEnabled WRITE setGlobalSyncEnabled NOTIFY
                   isGlobalSyncEnabledChanged)
    Q_PROPERTY(qint64 globalSyncIntervalMinutes READ globalSyncIntervalMinutes WRITE setGlobalSyncIntervalMinutes
                   NOTIFY globalSyncIntervalMinutesChanged)
    // Settings › Sync Options: automatic runs wait on a metered connection,
    // on battery power.
    Q_PROPERTY(bool pauseOnMetered READ pauseOnMetered WRITE setPauseOnMetered NOTIFY holdChanged)
    Q_PROPERTY(bool pauseOnBattery READ pauseOnBattery WRITE setPauseOnBattery NOTIFY holdChanged)
    // Why automatic runs wait now: "metered connection", "on battery power",
    // or empty when they do not.
    Q_PROPERTY(QString holdReason READ holdReason NOTIFY holdChanged)

public:
    static inline const QString kGlobalSyncEnabledKey = QStringLiteral("isGlobalSyncEnabled");
    static inline const QString kGlobalSyncIntervalKey = QStringLiteral("globalSyncIntervalMinutes");
    static constexpr qint64 kDefaultGlobalSyncIntervalMinutes = 60;
    static inline const QString kPauseOnMeteredKey = QStringLiteral("pauseOnMetered");
    static inline const QString kPauseOnBatteryKey = QStringLiteral("pauseOnBattery");

    struct Context
    {
        SyncManager &manager;
        const FolderRepository &folders;
        FolderPreferences &preferences;
        SettingsStore &settings;
        FileEventService &fileEvents;
        SyncTimings timings;
        std::function<QDateTime()> clock;
        // Off for a one-off `nimbrell sync --wait`: no watchers, no periodic
        // check and no sync of every folder at start, whatever the setting says.
        bool automaticRuns;
    };
    // Reads the settings and starts the periodic check.
    explicit AutomaticSync(const Context &context, QObject *parent = nullptr);
    ~AutomaticSync() override;

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
    const QString &holdReason() const { return m_holdReason; }

    // A paused folder is left out of automatic runs (its watcher, the
    // periodic check, syncing all); a user's "Sync Now" still runs it. A run
    // under way when it is paused finishes. Resuming runs it once if a change
    // was left waiting meanwhile.
    bool isPaused(const QUuid &id) const;
    void setPaused(const QUuid &id, bool paused);
    // Whether an automatic run of the folder may start now; one turned away
    // runs once the pause or the condition ends.
    bool admits(const QUuid &id);
    void forget(const QUuid &id) { m_missed.remove(id); }

    // Watches every folder while automatic sync is on, and nothing otherwise.
    void updateWatchers();
    FolderWatcher *watcher(const QUuid &id) const;
    // Where the program itself writes; changes there never start a run.
    QStringList ownPaths() const;
    // No periodic check while runs are suspended (sleep, shutdown, quitting).
    void setSuspended(bool suspended);

signals:
    void isGlobalSyncEnabledChanged(bool enabled);
    void globalSyncIntervalMinutesChanged(qint64 minutes);
    void holdChanged();
    // What a folder's watcher holds as pending changed (see FolderWatcher).
    void pendingChanged(const QUuid &id);

private:
    void periodicCheck();
    void updatePeriodicTimer();
    void updateHold();

    Context m_context;
    bool m_isGlobalSyncEnabled = false;
    qint64 m_globalSyncIntervalMinutes = kDefaultGlobalSyncIntervalMinutes;
    QTimer m_periodicTimer;
    bool m_suspended = false; // asleep: nothing runs until the machine wakes
    std::map<QUuid, std::unique_ptr<FolderWatcher>> m_watchers;
    // Automatic runs a pause or a condition turned away: run once it ends.
    QSet<QUuid> m_missed;
    bool m_isMetered = false;
    bool m_onBattery = false;
    QString m_holdReason;
};
