#include "ui/AppTheme.h"

#include <QEvent>
#include <QGuiApplication>

AppTheme::AppTheme(QObject *parent)
    : QObject(parent)
{
    // The desktop switching between light and dark changes the palette.
    qApp->installEventFilter(this);
}

bool AppTheme::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange)
        Q_EMIT changed();
    return QObject::eventFilter(watched, event);
}

QPalette AppTheme::palette() const
{
    return QGuiApplication::palette();
}

bool AppTheme::isDark() const
{
    return palette().color(QPalette::Window).lightness() < 128;
}

QColor AppTheme::secondary() const
{
    QColor text = palette().color(QPalette::WindowText);
    text.setAlphaF(0.6);
    return text;
}

QColor AppTheme::card() const
{
    const QColor window = palette().color(QPalette::Window);
    return isDark() ? window.lighter(125) : window.lighter(104);
}

QColor AppTheme::separator() const
{
    QColor text = palette().color(QPalette::WindowText);
    text.setAlphaF(0.12);
    return text;
}

QVariantMap AppTheme::statusColors() const
{
    return {{QStringLiteral("idle"), secondary()},
            {QStringLiteral("syncing"), blue()},
            {QStringLiteral("error"), red()},
            {QStringLiteral("success"), green()}};
}
