#include "sync/AutomaticSync.h"
#include "engine/Bisync.h"
#include "engine/BisyncLocks.h"

#include "engine/RcloneEngine.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/PowerAndNetwork.h"
#include "platform/SettingsStore.h"
#include "sync/FolderPreferences.h"
#include "sync/FolderRepository.h"
#include "sync/FolderWatcher.h"
#include "sync/SyncManager.h"

#include <QPointer>
#include <QStandardPaths>

AutomaticSync::AutomaticSync(const Context &context, QObject *parent)
    : QObject(parent)
    , m_context(context)
    , m_isGlobalSyncEnabled(context.settings.boolValue(kGlobalSyncEnabledKey))
    , m_globalSyncIntervalMinutes(context.settings.integerValue(kGlobalSyncIntervalKey))
{
    // Absent and 0 both mean "never chosen".
    if (m_globalSyncIntervalMinutes == 0)
        m_globalSyncIntervalMinutes = kDefaultGlobalSyncIntervalMinutes;
    m_periodicTimer.setInterval(m_context.timings.periodicCheck);
    connect(&m_periodicTimer, &QTimer::timeout, this, &AutomaticSync::periodicCheck);
    updatePeriodicTimer();
}

void AutomaticSync::updatePeriodicTimer()
{
    // A tick would do nothing: no timer, and an idle program stays asleep.
    const bool wanted = m_isGlobalSyncEnabled && m_context.automaticRuns && !m_suspended;
    if (!wanted)
        m_periodicTimer.stop();
    else if (!m_periodicTimer.isActive())
        m_periodicTimer.start();
}

AutomaticSync::~AutomaticSync() = default;

void AutomaticSync::setGlobalSyncEnabled(bool enabled)
{
    const bool changed = m_isGlobalSyncEnabled != enabled;
    m_isGlobalSyncEnabled = enabled;
    qCInfo(lcSyncManager, "Global sync enabled changed to: %s", AppLogger::boolText(enabled));
    m_context.settings.setBoolValue(kGlobalSyncEnabledKey, enabled);
    if (changed)
        emit isGlobalSyncEnabledChanged(enabled);
    updatePeriodicTimer();
    updateWatchers();
    if (!m_context.automaticRuns)
        return;
    if (enabled)
        m_context.manager.syncAllFolders();
    else
        m_context.manager.cancelAllSyncs();
}

void AutomaticSync::setGlobalSyncIntervalMinutes(qint64 minutes)
{
    const bool changed = m_globalSyncIntervalMinutes != minutes;
    m_globalSyncIntervalMinutes = minutes;
    qCInfo(lcSyncManager, "Global sync interval changed to: %lld", static_cast<long long>(minutes));
    m_context.settings.setIntegerValue(kGlobalSyncIntervalKey, minutes);
    // The periodic check reads the interval on every tick: no timer to rebuild.
    if (changed)
        emit globalSyncIntervalMinutesChanged(minutes);
}

bool AutomaticSync::pauseOnMetered() const
{
    return m_context.settings.boolValue(kPauseOnMeteredKey);
}

bool AutomaticSync::pauseOnBattery() const
{
    return m_context.settings.boolValue(kPauseOnBatteryKey);
}

void AutomaticSync::setPauseOnMetered(bool on)
{
    m_context.settings.setBoolValue(kPauseOnMeteredKey, on);
    updateHold();
}

void AutomaticSync::setPauseOnBattery(bool on)
{
    m_context.settings.setBoolValue(kPauseOnBatteryKey, on);
    updateHold();
}

void AutomaticSync::setConditions(bool metered, bool onBattery)
{
    m_isMetered = metered;
    m_onBattery = onBattery;
    updateHold();
}

void AutomaticSync::followConditions(const MeteredNetworkMonitor *network, const BatteryMonitor *battery)
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

void AutomaticSync::updateHold()
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
    if (!reason.isEmpty() || !m_isGlobalSyncEnabled || !m_context.automaticRuns)
        return;
    // Each folder that changed or came due meanwhile syncs once.
    const QSet<QUuid> missed = std::exchange(m_missed, {});
    for (const SyncFolder &folder : m_context.folders.folders()) {
        if (missed.contains(folder.id) && !isPaused(folder.id))
            m_context.manager.syncFolder(folder.id, SyncTrigger::automatic);
        else if (missed.contains(folder.id))
            m_missed.insert(folder.id);
    }
}

bool AutomaticSync::isPaused(const QUuid &id) const
{
    return m_context.preferences.isPaused(id);
}

void AutomaticSync::setPaused(const QUuid &id, bool paused)
{
    if (!m_context.folders.folder(id) || paused == isPaused(id))
        return;
    qCInfo(lcSyncManager, "Folder %s %s", qPrintable(uuidString(id)), paused ? "paused" : "resumed");
    m_context.preferences.setPaused(id, paused);
    m_context.manager.repository().touch(id);
    if (!paused && m_holdReason.isEmpty() && m_missed.remove(id) && m_isGlobalSyncEnabled && m_context.automaticRuns)
        m_context.manager.syncFolder(id, SyncTrigger::automatic);
}

bool AutomaticSync::admits(const QUuid &id)
{
    if (!isPaused(id) && m_holdReason.isEmpty())
        return true;
    m_missed.insert(id);
    return false;
}

void AutomaticSync::updateWatchers()
{
    if (!m_isGlobalSyncEnabled || !m_context.automaticRuns) {
        m_watchers.clear();
        return;
    }
    const QList<SyncFolder> &folders = m_context.folders.folders();
    QSet<QUuid> ids;
    for (const SyncFolder &folder : folders)
        ids.insert(folder.id);
    std::erase_if(m_watchers, [&ids](const auto &entry) { return !ids.contains(entry.first); });

    for (const SyncFolder &folder : folders) {
        // Skipped directories are not watched: a change there starts no run.
        QStringList ignored = ownPaths();
        for (const QString &skipped : m_context.manager.selection(folder.id).skipped)
            ignored.append(folder.localPath + u'/' + skipped + u'/');
        const FolderSelection selection = m_context.manager.selection(folder.id);
        const FilterRules exclusions =
            FilterRules::fromArguments(Bisync::switchArguments(folder.filters) + selection.filterArguments());
        const auto it = m_watchers.find(folder.id);
        if (it != m_watchers.end() && it->second->localPath() == folder.localPath && it->second->ignoredPaths() == ignored) {
            it->second->setExclusions(exclusions);
            continue;
        }
        auto watcher =
            std::make_unique<FolderWatcher>(folder.id, folder.localPath, m_context.fileEvents, m_context.timings);
        watcher->onTriggerSync = [this, id = folder.id] {
            return m_context.manager.syncFolder(id, SyncTrigger::automatic);
        };
        // rclone's own writes during a run under way must not start another.
        watcher->setSyncing(m_context.manager.runs().isRunning(folder.id));
        watcher->setExclusions(exclusions);
        connect(watcher.get(), &FolderWatcher::pendingChanged, this, [this, id = folder.id] { Q_EMIT pendingChanged(id); });
        watcher->start(ignored);
        m_watchers[folder.id] = std::move(watcher);
    }
}

FolderWatcher *AutomaticSync::watcher(const QUuid &id) const
{
    const auto it = m_watchers.find(id);
    return it == m_watchers.end() ? nullptr : it->second.get();
}

QStringList AutomaticSync::ownPaths() const
{
    const QString nimbrell = QStringLiteral("/nimbrell");
    return {BisyncLocks::workDirectory(), m_context.folders.path(),
            QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + nimbrell,
            QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + nimbrell,
            QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + nimbrell};
}

void AutomaticSync::setSuspended(bool suspended)
{
    m_suspended = suspended;
    if (suspended)
        m_periodicTimer.stop();
    else
        updatePeriodicTimer();
}

void AutomaticSync::periodicCheck()
{
    if (!m_isGlobalSyncEnabled || !m_context.automaticRuns)
        return;
    const QDateTime now = m_context.clock();
    QList<QUuid> due;
    for (const SyncFolder &folder : m_context.folders.folders()) {
        // Only the global interval counts here; a folder's own interval is kept but not used.
        const double intervalSeconds = double(m_globalSyncIntervalMinutes) * 60.0;
        const bool intervalPassed =
            !folder.lastSync || double(folder.lastSync->msecsTo(now)) / 1000.0 > intervalSeconds;
        if (intervalPassed && folder.status != SyncStatus::syncing)
            due.append(folder.id);
    }
    for (const QUuid &id : std::as_const(due))
        m_context.manager.syncFolder(id, SyncTrigger::automatic);
}
