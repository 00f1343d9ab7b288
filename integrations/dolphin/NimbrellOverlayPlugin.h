#pragma once

#include "NimbrellFiles.h"

#include <KOverlayIconPlugin>

class NimbrellClient;

// Dolphin's emblems on the files and directories of sync folders: the state
// Nimbrell tells for each one as it is shown, and again as it changes.
//
// Dolphin loads this plugin once per process (QPluginLoader, from
// kf5/overlayicon) and asks it for every item it shows; the context menu
// plugin shares its subscription through NimbrellFiles.
class NimbrellOverlayPlugin final : public KOverlayIconPlugin, public NimbrellFiles
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.nimbrell.Nimbrell.OverlayIconPlugin" FILE "nimbrelloverlay.json")
    Q_INTERFACES(NimbrellFiles)

public:
    explicit NimbrellOverlayPlugin(QObject *parent = nullptr);

    // Empty while the state is not known: overlaysChanged() follows when it is.
    QStringList getOverlays(const QUrl &item) override;

    std::optional<NimbrellFolder> folderOf(const QString &path) const override;
    QString stateOf(const QString &path) override;
    void request(const QString &command, const QJsonObject &fields, Reply reply) override;

private:
    QStringList overlays(const QString &path);

    NimbrellClient *m_client;
};
