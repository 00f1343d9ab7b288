#include "NimbrellOverlayPlugin.h"

#include "NimbrellClient.h"
#include "Overlays.h"

#include <QUrl>

NimbrellOverlayPlugin::NimbrellOverlayPlugin(QObject *parent)
    : KOverlayIconPlugin(parent)
    , m_client(new NimbrellClient(this))
{
    // Dolphin asks again (getOverlays) for the item of that URL.
    connect(m_client, &NimbrellClient::stateChanged, this, [this](const QString &path) {
        Q_EMIT overlaysChanged(QUrl::fromLocalFile(path), overlays(path));
    });
}

QStringList NimbrellOverlayPlugin::getOverlays(const QUrl &item)
{
    if (!item.isLocalFile())
        return {};
    return overlays(item.toLocalFile());
}

QStringList NimbrellOverlayPlugin::overlays(const QString &path)
{
    const QString icon = overlayFor(m_client->state(path));
    return icon.isEmpty() ? QStringList() : QStringList{icon};
}

std::optional<NimbrellFolder> NimbrellOverlayPlugin::folderOf(const QString &path) const
{
    return m_client->folderOf(path);
}

QString NimbrellOverlayPlugin::stateOf(const QString &path)
{
    return m_client->state(path);
}

void NimbrellOverlayPlugin::request(const QString &command, const QJsonObject &fields, Reply reply)
{
    m_client->request(command, fields, std::move(reply));
}
