#include "platform/PowerAndNetwork.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QNetworkInformation>

namespace {
const QString kUPower = QStringLiteral("org.freedesktop.UPower");
const QString kUPowerPath = QStringLiteral("/org/freedesktop/UPower");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
} // namespace

BatteryMonitor::BatteryMonitor(QObject *parent)
    : BatteryMonitor(QDBusConnection::systemBus(), parent)
{
}

BatteryMonitor::BatteryMonitor(const QDBusConnection &systemBus, QObject *parent)
    : QObject(parent)
    , m_bus(systemBus)
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(kUPower, kUPowerPath, kProperties, QStringLiteral("PropertiesChanged"), this,
                  SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    read();
}

void BatteryMonitor::read()
{
    QDBusMessage get = QDBusMessage::createMethodCall(kUPower, kUPowerPath, kProperties, QStringLiteral("Get"));
    get << kUPower << QStringLiteral("OnBattery");
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answer) {
        answer->deleteLater();
        const QDBusMessage reply = answer->reply();
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return;
        const bool onBattery = reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
        const bool wasAvailable = std::exchange(m_isAvailable, true);
        if (std::exchange(m_onBattery, onBattery) != onBattery || !wasAvailable)
            Q_EMIT changed();
    });
}

void BatteryMonitor::propertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated)
{
    if (interface != kUPower)
        return;
    if (changed.contains(QStringLiteral("OnBattery"))) {
        const bool onBattery = changed.value(QStringLiteral("OnBattery")).toBool();
        const bool wasAvailable = std::exchange(m_isAvailable, true);
        if (std::exchange(m_onBattery, onBattery) != onBattery || !wasAvailable)
            Q_EMIT this->changed();
    } else if (invalidated.contains(QStringLiteral("OnBattery"))) {
        read();
    }
}

MeteredNetworkMonitor::MeteredNetworkMonitor(QObject *parent)
    : QObject(parent)
{
    // Only NetworkManager says whether a connection is metered.
    m_isAvailable = QNetworkInformation::loadBackendByName(QStringLiteral("networkmanager"))
        && QNetworkInformation::instance()->supports(QNetworkInformation::Feature::Metered);
    if (m_isAvailable)
        connect(QNetworkInformation::instance(), &QNetworkInformation::isMeteredChanged, this, &MeteredNetworkMonitor::changed);
}

bool MeteredNetworkMonitor::isMetered() const
{
    return m_isAvailable && QNetworkInformation::instance()->isMetered();
}
