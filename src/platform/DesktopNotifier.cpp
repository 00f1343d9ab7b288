#include "platform/DesktopNotifier.h"

#include "platform/AppLogger.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
const QString kAppId = QStringLiteral("org.nimbrell.Nimbrell");
} // namespace

DesktopNotifier::DesktopNotifier(QObject *parent)
    : DesktopNotifier(QDBusConnection::sessionBus(), parent)
{
}

DesktopNotifier::DesktopNotifier(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this, SLOT(closed(uint)));
}

void DesktopNotifier::notify(const QString &summary, const QString &body, const QString &key)
{
    if (!m_bus.isConnected())
        return logOnce(QStringLiteral("no session bus"));
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    // The body is markup to most servers: a file or folder name such as
    // "<b>" or "a & b" is shown as it is, not read as a tag.
    call << QStringLiteral("Nimbrell") << 0u << kAppId << summary << body.toHtmlEscaped()
         << QStringList{QStringLiteral("default"), QStringLiteral("Open")}
         << QVariantMap{{QStringLiteral("desktop-entry"), kAppId}} << -1;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, key](QDBusPendingCallWatcher *answer) {
        answer->deleteLater();
        const QDBusPendingReply<uint> reply = *answer;
        if (reply.isError())
            return logOnce(reply.error().message());
        m_keys.insert(reply.value(), key);
    });
}

void DesktopNotifier::actionInvoked(uint id, const QString &action)
{
    if (action == u"default" && m_keys.contains(id))
        Q_EMIT activated(m_keys.value(id));
}

void DesktopNotifier::closed(uint id)
{
    m_keys.remove(id);
}

void DesktopNotifier::logOnce(const QString &why)
{
    if (!std::exchange(m_failureLogged, true))
        qCInfo(lcGeneral, "Desktop notifications are not available: %s", qUtf8Printable(why));
}
