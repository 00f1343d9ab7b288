#include "DesktopNotification.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

void notify(const QString &summary, const QString &body)
{
    QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.Notifications"),
                                                          QStringLiteral("/org/freedesktop/Notifications"),
                                                          QStringLiteral("org.freedesktop.Notifications"),
                                                          QStringLiteral("Notify"));
    // The body may be read as markup: a link's & and the like stay text.
    message << QStringLiteral("Nimbrell") << uint(0) << QStringLiteral("org.nimbrell.Nimbrell") << summary
            << body.toHtmlEscaped() << QStringList()
            << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("org.nimbrell.Nimbrell")}} << int(-1);
    QDBusConnection::sessionBus().send(message);
}
