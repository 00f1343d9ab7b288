#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QString>

class QDBusPendingCallWatcher;

// Holds off logout, shutdown and sleep while syncs run, and says when the
// system is about to shut down or sleep.
class SessionInhibitor final : public QObject
{
    Q_OBJECT

public:
    // The user's session bus and the system bus.
    explicit SessionInhibitor(QObject *parent = nullptr);
    SessionInhibitor(const QDBusConnection &sessionBus, const QDBusConnection &systemBus, QObject *parent = nullptr);
    ~SessionInhibitor() override; // releases what it holds

    // Takes (true) or releases (false) both inhibitors; asking again for what is already so does nothing.
    void setHeld(bool held);
    bool isHeld() const;

Q_SIGNALS:
    void prepareForShutdown(bool starting); // logind's PrepareForShutdown
    void prepareForSleep(bool starting);    // logind's PrepareForSleep

private:
    void takePortal();
    void releasePortal();
    void portalAnswered(QDBusPendingCallWatcher *call);
    void takeLogind();
    void logindAnswered(QDBusPendingCallWatcher *call);

    QDBusConnection m_sessionBus;
    QDBusConnection m_systemBus;
    bool m_held = false;

    // The portal's request handle while its inhibitor is held.
    QString m_portalRequest;
    QDBusPendingCallWatcher *m_portalCall = nullptr;
    bool m_portalFailureLogged = false;

    // logind keeps its inhibitor for as long as this descriptor stays open.
    QDBusUnixFileDescriptor m_logindFd;
    QDBusPendingCallWatcher *m_logindCall = nullptr;
    bool m_logindFailureLogged = false;
};
