#include "ui/AppSetup.h"

#include "platform/DesktopAppearance.h"
#include "ui/IconImageProvider.h"

#include <QGuiApplication>
#include <QIcon>
#include <QPalette>
#include <QPixmap>
#include <QQuickStyle>
#include <QQuickWindow>

void prepareGraphics()
{
    // Software rendering: the window shows sooner and holds far less memory
    // than with the OpenGL scene graph, and this interface needs no GPU.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    // Qt waits 5 ms after a window asks to be repainted, to gather more
    // requests; that wait is one more wake-up of an idle program for every
    // repaint. What repaints this interface (the clock, a run's progress at
    // most ten times a second) comes already gathered.
    if (qEnvironmentVariableIsEmpty("QT_QPA_UPDATE_IDLE_TIME"))
        qputenv("QT_QPA_UPDATE_IDLE_TIME", "0");
}

void setUpApplication()
{
    QCoreApplication::setOrganizationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationName(QStringLiteral("nimbrell"));
    QCoreApplication::setApplicationVersion(QStringLiteral(NIMBRELL_VERSION));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Nimbrell"));
    QGuiApplication::setDesktopFileName(QStringLiteral("org.nimbrell.Nimbrell"));
    QGuiApplication::setWindowIcon(QIcon(QPixmap::fromImage(IconImageProvider::render(
        QStringLiteral("arrow.triangle.2.circlepath.icloud.fill"), Qt::white, {64, 64}, true))));
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    applyAppearanceOverride();
}

void applyAppearanceOverride()
{
    const QByteArray appearance = qgetenv("NIMBRELL_APPEARANCE");
    if (appearance == "dark" || appearance == "light")
        applyAppearance(appearance == "dark");
}

void applyAppearance(bool dark)
{
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
    QGuiApplication::setPalette(palette);
}

void followDesktopAppearance(DesktopAppearance &appearance)
{
    if (qEnvironmentVariableIsSet("NIMBRELL_APPEARANCE"))
        return;
    QObject::connect(&appearance, &DesktopAppearance::colorSchemeChanged, qApp, [](DesktopAppearance::ColorScheme scheme) {
        QGuiApplication::setPalette(QPalette()); // the platform's, back again
        const bool platformIsDark = QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
        if (scheme == DesktopAppearance::ColorScheme::dark && !platformIsDark)
            applyAppearance(true);
        else if (scheme == DesktopAppearance::ColorScheme::light && platformIsDark)
            applyAppearance(false);
    });
}
