#include "platform/SessionInhibitor.h"

#include "platform/AppLogger.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

#include <utility>

namespace {

const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kLogindService = QStringLiteral("org.freedesktop.login1");
const QString kLogindPath = QStringLiteral("/org/freedesktop/login1");
const QString kLogindManager = QStringLiteral("org.freedesktop.login1.Manager");
const QString kReason = QStringLiteral("Finishing a sync");

// The portal's Inhibit flags.
constexpr uint kInhibitLogout = 1;
constexpr uint kInhibitSuspend = 4;

void closePortalRequest(const QDBusConnection &bus, const QString &request)
{
    // No reply wanted: there is nothing to do if the request is already gone.
    bus.send(QDBusMessage::createMethodCall(kPortalService, request, QStringLiteral("org.freedesktop.portal.Request"),
                                            QStringLiteral("Close")));
}

} // namespace

SessionInhibitor::SessionInhibitor(QObject *parent)
    : SessionInhibitor(QDBusConnection::sessionBus(), QDBusConnection::systemBus(), parent)
{
}

SessionInhibitor::SessionInhibitor(const QDBusConnection &sessionBus, const QDBusConnection &systemBus,
                                   QObject *parent)
    : QObject(parent)
    , m_sessionBus(sessionBus)
    , m_systemBus(systemBus)
{
    if (m_systemBus.isConnected()) {
        m_systemBus.connect(kLogindService, kLogindPath, kLogindManager, QStringLiteral("PrepareForShutdown"), this,
                            SIGNAL(prepareForShutdown(bool)));
        m_systemBus.connect(kLogindService, kLogindPath, kLogindManager, QStringLiteral("PrepareForSleep"), this,
                            SIGNAL(prepareForSleep(bool)));
    }
}

SessionInhibitor::~SessionInhibitor()
{
    m_held = false;
    releasePortal();
    m_logindFd = {};
    // A portal request still on its way would outlive us unclosed: let its
    // reply close it. A pending logind descriptor closes with its reply.
    if (m_portalCall) {
        m_portalCall->disconnect(this);
        m_portalCall->setParent(nullptr);
        connect(m_portalCall, &QDBusPendingCallWatcher::finished, m_portalCall,
                [bus = m_sessionBus](QDBusPendingCallWatcher *call) {
                    const QDBusPendingReply<QDBusObjectPath> reply = *call;
                    if (!reply.isError())
                        closePortalRequest(bus, reply.value().path());
                    call->deleteLater();
                });
    }
}

void SessionInhibitor::setHeld(bool held)
{
    if (held == m_held)
        return;
    m_held = held;
    if (held) {
        takePortal();
        takeLogind();
    } else {
        // Pending requests are let go once their replies arrive.
        releasePortal();
        m_logindFd = {};
    }
}

bool SessionInhibitor::isHeld() const
{
    return m_held;
}

void SessionInhibitor::takePortal()
{
    if (m_portalCall || !m_portalRequest.isEmpty() || !m_sessionBus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kPortalService, QStringLiteral("/org/freedesktop/portal/desktop"),
                                                       QStringLiteral("org.freedesktop.portal.Inhibit"),
                                                       QStringLiteral("Inhibit"));
    call << QString() << (kInhibitLogout | kInhibitSuspend) << QVariantMap{{QStringLiteral("reason"), kReason}};
    m_portalCall = new QDBusPendingCallWatcher(m_sessionBus.asyncCall(call), this);
    connect(m_portalCall, &QDBusPendingCallWatcher::finished, this, &SessionInhibitor::portalAnswered);
}

void SessionInhibitor::releasePortal()
{
    if (m_portalRequest.isEmpty())
        return;
    closePortalRequest(m_sessionBus, m_portalRequest);
    m_portalRequest.clear();
}

void SessionInhibitor::portalAnswered(QDBusPendingCallWatcher *call)
{
    m_portalCall = nullptr;
    call->deleteLater();
    const QDBusPendingReply<QDBusObjectPath> reply = *call;
    if (reply.isError()) {
        if (!std::exchange(m_portalFailureLogged, true))
            qCDebug(lcGeneral, "No logout inhibitor from the desktop portal: %s", qUtf8Printable(reply.error().message()));
        return;
    }
    m_portalRequest = reply.value().path();
    if (!m_held)
        releasePortal();
}

void SessionInhibitor::takeLogind()
{
    if (m_logindCall || m_logindFd.isValid() || !m_systemBus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kLogindService, kLogindPath, kLogindManager,
                                                       QStringLiteral("Inhibit"));
    call << QStringLiteral("shutdown:sleep") << QStringLiteral("Nimbrell") << kReason << QStringLiteral("delay");
    m_logindCall = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call), this);
    connect(m_logindCall, &QDBusPendingCallWatcher::finished, this, &SessionInhibitor::logindAnswered);
}

void SessionInhibitor::logindAnswered(QDBusPendingCallWatcher *call)
{
    m_logindCall = nullptr;
    // The reply keeps its own copy of the descriptor until the watcher goes.
    call->deleteLater();
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *call;
    if (reply.isError()) {
        if (!std::exchange(m_logindFailureLogged, true))
            qCDebug(lcGeneral, "No shutdown inhibitor from logind: %s", qUtf8Printable(reply.error().message()));
        return;
    }
    if (m_held)
        m_logindFd = reply.value();
}
