#include "platform/TrayHostWatcher.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>

namespace {
const QString kService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kPath = QStringLiteral("/StatusNotifierWatcher");
const QString kInterface = QStringLiteral("org.kde.StatusNotifierWatcher");
} // namespace

TrayHostWatcher::TrayHostWatcher(QObject *parent)
    : TrayHostWatcher(QDBusConnection::sessionBus(), parent)
{
}

TrayHostWatcher::TrayHostWatcher(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_watcher(kService, bus, QDBusServiceWatcher::WatchForOwnerChange)
{
    if (!m_bus.isConnected()) {
        m_hasAnswered = true;
        return;
    }
    connect(&m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &TrayHostWatcher::check);
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(check()));
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("StatusNotifierHostUnregistered"), this, SLOT(check()));
    check();
}

void TrayHostWatcher::check()
{
    QDBusMessage get = QDBusMessage::createMethodCall(kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    get << kInterface << QStringLiteral("IsStatusNotifierHostRegistered");
    auto *answer = new QDBusPendingCallWatcher(m_bus.asyncCall(get), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        call->deleteLater();
        const QDBusMessage reply = call->reply();
        const bool registered = reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
            && reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
        m_hasAnswered = true;
        m_isAvailable = registered;
        Q_EMIT checked();
    });
}
