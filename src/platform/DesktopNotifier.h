#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QString>

class QDBusPendingCallWatcher;

// Desktop notifications through the notification server on the session bus
// (org.freedesktop.Notifications). Without a bus or a server nothing is
// shown, and that is logged once.
class DesktopNotifier final : public QObject
{
    Q_OBJECT

public:
    explicit DesktopNotifier(QObject *parent = nullptr); // the user's session bus
    explicit DesktopNotifier(const QDBusConnection &bus, QObject *parent = nullptr);

    // Shows a notification whose default action (a click on it) reports `key`
    // through activated().
    void notify(const QString &summary, const QString &body, const QString &key);

Q_SIGNALS:
    void activated(const QString &key);

private Q_SLOTS:
    void actionInvoked(uint id, const QString &action);
    void closed(uint id);

private:
    void logOnce(const QString &why);

    QDBusConnection m_bus;
    QHash<uint, QString> m_keys; // of the notifications shown and not yet closed
    bool m_failureLogged = false;
};
