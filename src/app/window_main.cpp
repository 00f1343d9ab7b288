#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"
#include "platform/DesktopAppearance.h"
#include "platform/InotifyFileEventService.h"
#include "platform/InstanceChannel.h"
#include "platform/QSettingsStore.h"
#include "platform/StallProbe.h"
#include "platform/PowerAndNetwork.h"
#include "platform/TrayHostWatcher.h"
#include "platform/XdgAutostartLoginItem.h"
#include "sync/ActivityLog.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "platform/DesktopNotifier.h"
#include "sync/SyncService.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"
#include "ui/TrayMenu.h"

#include <QApplication>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <csignal>
#include <cstdio>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

using namespace std::chrono_literals;

int main(int argc, char *argv[])
{
    // A reader of ours that went away must not end the program.
    std::signal(SIGPIPE, SIG_IGN);
    AppLogger::keepLogPrintable();

    // One Nimbrell per user and configuration: a start while another runs
    // hands over to it and leaves, before any window system work.
    static_assert(InstanceChannel::kTakeOverWait > RcloneEngine::kGracefulStopBound);
    InstanceChannel instance;
    switch (instance.claim([](const QString &message) { std::fprintf(stderr, "nimbrell: %s\n", qPrintable(message)); })) {
    case InstanceChannel::Claim::acquired:
        break;
    case InstanceChannel::Claim::handedOver:
        return 0;
    case InstanceChannel::Claim::failed:
        return 1;
    }

    prepareGraphics();
    QApplication app(argc, argv);
    setUpApplication();
    StallProbe::startIfWanted(&app);
    // Closing the last window never ends the program behind the quit path's back.
    QApplication::setQuitOnLastWindowClosed(false);

    RcloneEngine engine; // stops the program when the bundled rclone is missing
    QSettingsStore settings;
    InotifyFileEventService fileEvents;
    XdgAutostartLoginItem loginItem;
    DesktopNotifier notifier;
    TrayHostWatcher trayHost;
    ActivityLog activity;
    DesktopAppearance appearance;
    followDesktopAppearance(appearance);
    MeteredNetworkMonitor network;
    BatteryMonitor battery;
    NimbrellApp nimbrell({settings, engine, fileEvents, loginItem, defaultConcurrentSyncs(), &notifier, &trayHost, &activity,
                          &network, &battery});
    SyncManager &manager = *nimbrell.syncManager();
    qCInfo(lcGeneral, "Nimbrell %s running: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(manager.folders().size()),
           manager.automatic().isGlobalSyncEnabled() ? "on" : "off", static_cast<long long>(manager.automatic().globalSyncIntervalMinutes()));

    nimbrell.service()->serve(instance);
    instance.setHandler(QStringLiteral("raise"), [&nimbrell](const QJsonObject &) {
        if (nimbrell.isQuitting())
            return QJsonObject{{QStringLiteral("error"), QStringLiteral("quitting")}};
        nimbrell.openWindow(QStringLiteral("main"));
        return QJsonObject();
    });
    // `nimbrell open [FOLDER]`: the main window, at that folder.
    instance.setHandler(QStringLiteral("open"), [&nimbrell](const QJsonObject &request) {
        if (nimbrell.isQuitting())
            return QJsonObject{{QStringLiteral("error"), QStringLiteral("quitting")}};
        const QUuid id = QUuid::fromString(request.value(QStringLiteral("folder")).toString());
        if (!id.isNull() && nimbrell.syncManager()->folder(id)) {
            nimbrell.navigation()->setSelection(SidebarSelection::syncFolder(id));
            nimbrell.navigation()->setSheet(request.value(QStringLiteral("sheet")).toString());
        }
        nimbrell.openWindow(QStringLiteral("main"));
        return QJsonObject();
    });
    instance.listen();

    // Signals, logout, shutdown and sleep.
    nimbrell.service()->followSession();

    QObject::connect(&nimbrell, &NimbrellApp::mainWindowShown, &app, [] {
        // For the start-up benchmark: say when the main window has been drawn.
        if (qEnvironmentVariableIsSet("NIMBRELL_REPORT_STARTUP"))
            std::fputs("nimbrell: main window shown\n", stderr);
    });
    nimbrell.start();
    // Without a tray icon, closing the main window ends the program; a tray
    // that turns up later (its panel started after us) keeps it running.
    QObject::connect(&app, &QGuiApplication::lastWindowClosed, &nimbrell, [&nimbrell] {
        if (!nimbrell.trayMenu()->isShown())
            nimbrell.quit();
    });
    return app.exec();
}
