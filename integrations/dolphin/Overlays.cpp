#include "Overlays.h"

#include <QStringList>

QString overlayFor(const QString &state)
{
    static const QStringList known{
        QStringLiteral("synced"), QStringLiteral("pending"),  QStringLiteral("syncing"), QStringLiteral("error"),
        QStringLiteral("conflict"), QStringLiteral("excluded"), QStringLiteral("paused"),
    };
    if (!known.contains(state))
        return {};
    return QStringLiteral("nimbrell-") + state + QStringLiteral("-symbolic");
}
