#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"
#include "platform/InotifyFileEventService.h"
#include "platform/QSettingsStore.h"
#include "sync/SyncManager.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBRELL_VERSION));

    RcloneEngine engine; // stops the program when the bundled rclone is missing
    QSettingsStore settings;
    InotifyFileEventService fileEvents;
    SyncManager syncManager({settings, engine, fileEvents});
    qCInfo(lcGeneral, "Nimbrell %s running: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(syncManager.folders().size()),
           syncManager.isGlobalSyncEnabled() ? "on" : "off",
           static_cast<long long>(syncManager.globalSyncIntervalMinutes()));
    engine.getVersion(&app, [](const RcloneResult<QString> &version) {
        qCInfo(lcGeneral, "Using %s", qUtf8Printable(version.ok() ? version.value() : version.error().description));
    });
    return app.exec();
}
