#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"
#include "platform/InotifyFileEventService.h"
#include "platform/QSettingsStore.h"
#include "platform/XdgAutostartLoginItem.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QSystemTrayIcon>

#include <cstdio>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)


int main(int argc, char *argv[])
{
    prepareGraphics();
    QApplication app(argc, argv);
    setUpApplication();
    QApplication::setQuitOnLastWindowClosed(false); // the tray keeps it running

    RcloneEngine engine; // stops the program when the bundled rclone is missing
    QSettingsStore settings;
    InotifyFileEventService fileEvents;
    XdgAutostartLoginItem loginItem;
    NimbrellApp nimbrell({settings, engine, fileEvents, loginItem});
    qCInfo(lcGeneral, "Nimbrell %s running: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(nimbrell.syncManager()->folders().size()),
           nimbrell.syncManager()->isGlobalSyncEnabled() ? "on" : "off",
           static_cast<long long>(nimbrell.syncManager()->globalSyncIntervalMinutes()));
    QObject::connect(&nimbrell, &NimbrellApp::mainWindowShown, &app, [&engine, &app] {
        // For the start-up benchmark: say when the main window has been drawn.
        if (qEnvironmentVariableIsSet("NIMBRELL_REPORT_STARTUP"))
            std::fputs("nimbrell: main window shown\n", stderr);
        engine.getVersion(&app, [](const RcloneResult<QString> &version) {
            qCInfo(lcGeneral, "Using %s", qUtf8Printable(version.ok() ? version.value() : version.error().description));
        });
    });
    nimbrell.start();
    // Without a tray, closing the main window ends the program.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        QApplication::setQuitOnLastWindowClosed(true);
    return app.exec();
}
