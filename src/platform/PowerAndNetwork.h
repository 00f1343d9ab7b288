#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QVariantMap>

// Whether the computer runs on battery, as UPower says (its OnBattery on
// the system bus). Unavailable without UPower.
class BatteryMonitor final : public QObject
{
    Q_OBJECT

public:
    explicit BatteryMonitor(QObject *parent = nullptr);
    BatteryMonitor(const QDBusConnection &systemBus, QObject *parent = nullptr);

    bool isAvailable() const { return m_isAvailable; }
    bool onBattery() const { return m_onBattery; }

Q_SIGNALS:
    void changed();

private Q_SLOTS:
    void propertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    void read();

    QDBusConnection m_bus;
    bool m_isAvailable = false;
    bool m_onBattery = false;
};

// Whether the network in use is metered, as NetworkManager says, through
// QNetworkInformation. Unavailable without NetworkManager.
class MeteredNetworkMonitor final : public QObject
{
    Q_OBJECT

public:
    explicit MeteredNetworkMonitor(QObject *parent = nullptr);

    bool isAvailable() const { return m_isAvailable; }
    bool isMetered() const;

Q_SIGNALS:
    void changed();

private:
    bool m_isAvailable = false;
};
