#pragma once

#include <QQuickImageProvider>

// Serves the bundled icons to QML as "image://icon/<symbol>?color=#rrggbb",
// tinted in the given colour (or, with "gradient", in the about window's
// blue-to-purple gradient), drawn from SVG at the size asked for.
class IconImageProvider final : public QQuickImageProvider
{
public:
    IconImageProvider();

    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;

    // The same icon for C++ users (the tray, window icons).
    static QImage render(const QString &symbol, const QColor &color, const QSize &size, bool gradient = false);
};
