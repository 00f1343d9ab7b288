#include "ui/SettingsController.h"
#include "engine/RemoteCommands.h"

#include "sync/BandwidthLimit.h"

#include "platform/SettingsStore.h"
#include "sync/ProblemNotifier.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "platform/AppLogger.h"
#include "platform/LoginItemService.h"

#include <QVariantMap>

SettingsController::SettingsController(LoginItemService &loginItem, RcloneEngine &engine, SettingsStore &store,
                                       QObject *parent)
    : QObject(parent)
    , m_loginItem(loginItem)
    , m_engine(engine)
    , m_store(store)
    , m_launchAtLogin(loginItem.isEnabled())
    , m_rcloneVersion(QStringLiteral("Loading..."))
{
}

bool SettingsController::showNotifications() const
{
    return ProblemNotifier::isEnabled(m_store);
}

void SettingsController::setShowNotifications(bool show)
{
    if (show == showNotifications())
        return;
    m_store.setBoolValue(ProblemNotifier::kShowNotificationsKey, show);
    Q_EMIT showNotificationsChanged();
}

void SettingsController::setLaunchAtLogin(bool enabled)
{
    const std::optional<QString> error = enabled ? m_loginItem.registerItem() : m_loginItem.unregisterItem();
    if (error)
        qCCritical(lcGeneral, "Failed to toggle launch at login: %s", qUtf8Printable(*error));
    // Whatever happened, the switch shows the real state.
    const bool actual = error ? m_loginItem.isEnabled() : enabled;
    // The switch moved on its own: tell it even when the stored value is the same.
    m_launchAtLogin = actual;
    Q_EMIT launchAtLoginChanged();
}

void SettingsController::loadVersion()
{
    if (m_versionJob)
        return;
    m_versionJob = RemoteCommands::getVersion(m_engine, this, [this](const RcloneResult<QString> &result) {
        setRcloneVersion(result.ok() ? result.value() : QStringLiteral("Unknown"));
    });
}

void SettingsController::setRcloneVersion(const QString &version)
{
    if (version == m_rcloneVersion)
        return;
    m_rcloneVersion = version;
    Q_EMIT rcloneVersionChanged();
}

QVariantList SettingsController::intervalChoices()
{
    QVariantList choices;
    for (const int minutes : {5, 10, 60})
        choices.append(QVariantMap{{QStringLiteral("label"), QStringLiteral("%1 Minutes").arg(minutes)},
                                   {QStringLiteral("minutes"), minutes}});
    return choices;
}

bool SettingsController::limitBandwidth() const
{
    return m_store.boolValue(BandwidthLimit::kEnabledKey);
}

void SettingsController::setLimitBandwidth(bool on)
{
    m_store.setBoolValue(BandwidthLimit::kEnabledKey, on);
    Q_EMIT bandwidthChanged();
}

qint64 SettingsController::uploadKiB() const
{
    return m_store.integerValue(BandwidthLimit::kUploadKey);
}

void SettingsController::setUploadKiB(qint64 kib)
{
    m_store.setIntegerValue(BandwidthLimit::kUploadKey, qMax<qint64>(0, kib));
    Q_EMIT bandwidthChanged();
}

qint64 SettingsController::downloadKiB() const
{
    return m_store.integerValue(BandwidthLimit::kDownloadKey);
}

void SettingsController::setDownloadKiB(qint64 kib)
{
    m_store.setIntegerValue(BandwidthLimit::kDownloadKey, qMax<qint64>(0, kib));
    Q_EMIT bandwidthChanged();
}

QString SettingsController::bandwidthSchedule() const
{
    return m_store.stringValue(BandwidthLimit::kScheduleKey);
}

bool SettingsController::setBandwidthSchedule(const QString &text)
{
    const QString schedule = text.simplified();
    m_scheduleError = schedule.isEmpty() ? QString() : BandwidthLimit::scheduleError(schedule);
    if (m_scheduleError.isEmpty())
        m_store.setStringValue(BandwidthLimit::kScheduleKey, schedule);
    Q_EMIT bandwidthChanged();
    return m_scheduleError.isEmpty();
}
