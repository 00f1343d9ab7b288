#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

// Whether the desktop has a tray for status icons: a StatusNotifierWatcher on
// the session bus with a host registered. A panel that starts after us (a
// login where we come first) is noticed when it arrives.
class TrayHostWatcher final : public QObject
{
    Q_OBJECT

public:
    explicit TrayHostWatcher(QObject *parent = nullptr); // the user's session bus
    explicit TrayHostWatcher(const QDBusConnection &bus, QObject *parent = nullptr);

    bool isAvailable() const { return m_isAvailable; }
    // The first look at the bus has come back.
    bool hasAnswered() const { return m_hasAnswered; }

Q_SIGNALS:
    // After each look at the bus, the first one included.
    void checked();

private Q_SLOTS:
    void check();

private:
    QDBusConnection m_bus;
    QDBusServiceWatcher m_watcher;
    bool m_isAvailable = false;
    bool m_hasAnswered = false;
};
