#include "ui/IconImageProvider.h"

#include "ui/IconTable.h"

#include <QFile>
#include <QLinearGradient>
#include <QPainter>
#include <QSvgRenderer>
#include <QUrlQuery>

IconImageProvider::IconImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Image)
{
}

QImage IconImageProvider::render(const QString &symbol, const QColor &color, const QSize &size, bool gradient)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QFile file(iconResource(symbol));
    if (!file.open(QIODevice::ReadOnly))
        return image;
    // The icons draw in "currentColor"; the provider logos bring their own colours.
    QByteArray svg = file.readAll();
    svg.replace("currentColor", color.name(QColor::HexRgb).toLatin1());
    QSvgRenderer renderer(svg);
    QPainter painter(&image);
    painter.setOpacity(color.alphaF()); // SVG colours carry no alpha
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
    if (gradient) {
        QLinearGradient fill(0, 0, size.width(), size.height());
        fill.setColorAt(0, QColor(0x2F, 0x7B, 0xF5));
        fill.setColorAt(1, QColor(0x8A, 0x4F, 0xFF));
        painter.setOpacity(1.0);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), fill);
    }
    return image;
}

QImage IconImageProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    const qsizetype query = id.indexOf(u'?');
    const QString symbol = id.left(query);
    const QUrlQuery options(query < 0 ? QString() : id.mid(query + 1));
    const QColor color(options.queryItemValue(QStringLiteral("color")));
    const QSize target = requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(16, 16);
    const QImage image = render(symbol, color.isValid() ? color : QColor(Qt::black), target,
                                options.hasQueryItem(QStringLiteral("gradient")));
    if (size)
        *size = image.size();
    return image;
}
