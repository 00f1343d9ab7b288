#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"
#include "platform/InotifyFileEventService.h"
#include "platform/InstanceChannel.h"
#include "platform/QSettingsStore.h"
#include "platform/SessionInhibitor.h"
#include "platform/UnixSignalNotifier.h"
#include "platform/XdgAutostartLoginItem.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QSystemTrayIcon>
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

    // One Nimbrell per user and configuration: a second start brings the
    // running one's window forward and leaves, before any window system work.
    InstanceChannel instance;
    if (!instance.tryLock()) {
        const std::optional<QJsonObject> reply = InstanceChannel::send(QStringLiteral("raise"), {}, 3s);
        if (reply && reply->value(QStringLiteral("ok")).toBool())
            return 0;
        // One that is quitting finishes its syncs first; this start then takes over.
        const bool quitting = reply && reply->value(QStringLiteral("error")).toString() == u"quitting";
        if (!quitting || !instance.tryLock(RcloneEngine::kGracefulStopBound + 10s)) {
            std::fputs("nimbrell: another instance is running but does not answer\n", stderr);
            return 1;
        }
    }

    prepareGraphics();
    QApplication app(argc, argv);
    setUpApplication();
    // Closing the last window never ends the program behind the quit path's back.
    QApplication::setQuitOnLastWindowClosed(false);

    RcloneEngine engine; // stops the program when the bundled rclone is missing
    QSettingsStore settings;
    InotifyFileEventService fileEvents;
    XdgAutostartLoginItem loginItem;
    NimbrellApp nimbrell({settings, engine, fileEvents, loginItem});
    SyncManager &manager = *nimbrell.syncManager();
    qCInfo(lcGeneral, "Nimbrell %s running: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(manager.folders().size()),
           manager.isGlobalSyncEnabled() ? "on" : "off", static_cast<long long>(manager.globalSyncIntervalMinutes()));

    instance.setHandler(QStringLiteral("raise"), [&nimbrell](const QJsonObject &) {
        if (nimbrell.isQuitting())
            return QJsonObject{{QStringLiteral("error"), QStringLiteral("quitting")}};
        nimbrell.openWindow(QStringLiteral("main"));
        return QJsonObject();
    });
    instance.setHandler(QStringLiteral("quit"), [&nimbrell](const QJsonObject &) {
        QTimer::singleShot(0, &nimbrell, &NimbrellApp::quit);
        return QJsonObject();
    });
    instance.listen();

    // Logout, `kill` and Ctrl+C take the same way out as "Quit Nimbrell".
    UnixSignalNotifier quitSignals({SIGTERM, SIGINT, SIGHUP});
    QObject::connect(&quitSignals, &UnixSignalNotifier::received, &nimbrell, [&nimbrell](int signal) {
        qCInfo(lcGeneral, "Received signal %d: quitting", signal);
        nimbrell.quit();
    });

    // While a sync runs, logout, shutdown and sleep wait for it; when they
    // come anyway, the syncs stop gracefully first and run again on waking.
    SessionInhibitor inhibitor;
    QObject::connect(&manager, &SyncManager::syncActivityChanged, &inhibitor, &SessionInhibitor::setHeld);
    const auto systemGoesDown = [&nimbrell, &manager](bool starting) {
        if (nimbrell.isQuitting())
            return;
        qCInfo(lcGeneral, "The system %s", starting ? "is about to sleep or shut down: stopping syncs" : "is back");
        if (starting)
            manager.suspendRuns();
        else
            manager.resumeRuns();
    };
    QObject::connect(&inhibitor, &SessionInhibitor::prepareForSleep, &nimbrell, systemGoesDown);
    QObject::connect(&inhibitor, &SessionInhibitor::prepareForShutdown, &nimbrell, systemGoesDown);

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
        QObject::connect(&app, &QGuiApplication::lastWindowClosed, &nimbrell, &NimbrellApp::quit);
    return app.exec();
}
