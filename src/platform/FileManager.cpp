#include "platform/FileManager.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QUrl>

void showInFileManager(const QDBusConnection &bus, const QString &path, QObject *context,
                       const std::function<void(bool shown)> &done)
{
    if (!bus.isConnected()) {
        done(false);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded)} << QString();
    // A file manager started by the bus for this call takes a moment; a
    // missing one is answered at once.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 10000), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [done](QDBusPendingCallWatcher *answer) {
        answer->deleteLater();
        done(!answer->isError());
    });
}
