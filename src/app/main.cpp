#include "engine/RcloneEngine.h"
#include "platform/AppLogger.h"
#include "platform/InotifyFileEventService.h"
#include "platform/QSettingsStore.h"
#include "platform/XdgAutostartLoginItem.h"
#include "sync/SyncManager.h"
#include "ui/IconImageProvider.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QPalette>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSystemTrayIcon>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

namespace {
// NIMBRELL_APPEARANCE=dark or light overrides the desktop's choice.
void applyAppearance(QApplication &app)
{
    const QByteArray appearance = qgetenv("NIMBRELL_APPEARANCE");
    if (appearance != "dark" && appearance != "light")
        return;
    const bool dark = appearance == "dark";
    QPalette palette;
    const QColor window = dark ? QColor(0x1E, 0x1F, 0x22) : QColor(0xF5, 0xF5, 0xF7);
    const QColor base = dark ? QColor(0x2A, 0x2B, 0x2F) : QColor(0xFF, 0xFF, 0xFF);
    const QColor text = dark ? QColor(0xEC, 0xEC, 0xEE) : QColor(0x1C, 0x1C, 0x1E);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, dark ? QColor(0x34, 0x35, 0x3A) : QColor(0xEC, 0xEC, 0xEE));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Highlight, dark ? QColor(0x0A, 0x84, 0xFF) : QColor(0x00, 0x7A, 0xFF));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, dark ? QColor(0x8E, 0x8E, 0x93) : QColor(0x8A, 0x8A, 0x8E));
    palette.setColor(QPalette::Mid, dark ? QColor(0x48, 0x48, 0x4A) : QColor(0xC7, 0xC7, 0xCC));
    palette.setColor(QPalette::Dark, dark ? QColor(0x10, 0x10, 0x12) : QColor(0xA0, 0xA0, 0xA5));
    palette.setColor(QPalette::Light, dark ? QColor(0x3A, 0x3A, 0x3C) : QColor(0xFF, 0xFF, 0xFF));
    app.setPalette(palette);
}
} // namespace

int main(int argc, char *argv[])
{
    // Software rendering: the window shows sooner and holds far less memory
    // than with the OpenGL scene graph, and this interface needs no GPU.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("nimbrell"));
    QApplication::setApplicationName(QStringLiteral("nimbrell"));
    QApplication::setApplicationDisplayName(QStringLiteral("Nimbrell"));
    QApplication::setApplicationVersion(QStringLiteral(NIMBRELL_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("org.nimbrell.Nimbrell"));
    QApplication::setQuitOnLastWindowClosed(false); // the tray keeps it running
    QApplication::setWindowIcon(QIcon(QPixmap::fromImage(
        IconImageProvider::render(QStringLiteral("arrow.triangle.2.circlepath.icloud.fill"), Qt::white, {64, 64}, true))));
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    applyAppearance(app);

    RcloneEngine engine; // stops the program when the bundled rclone is missing
    QSettingsStore settings;
    InotifyFileEventService fileEvents;
    XdgAutostartLoginItem loginItem;
    NimbrellApp nimbrell({settings, engine, fileEvents, loginItem});
    qCInfo(lcGeneral, "Nimbrell %s running: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(nimbrell.syncManager()->folders().size()),
           nimbrell.syncManager()->isGlobalSyncEnabled() ? "on" : "off",
           static_cast<long long>(nimbrell.syncManager()->globalSyncIntervalMinutes()));
    engine.getVersion(&app, [](const RcloneResult<QString> &version) {
        qCInfo(lcGeneral, "Using %s", qUtf8Printable(version.ok() ? version.value() : version.error().description));
    });
    nimbrell.start();
    // Without a tray, closing the main window ends the program.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        QApplication::setQuitOnLastWindowClosed(true);
    return app.exec();
}
