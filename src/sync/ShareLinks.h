#pragma once

#include "sync/FolderLocation.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class RcloneEngine;
class SyncManager;

// "Copy Share Link": a link to a file or directory of a sync folder, made
// by `rclone link` on the folder's first target whose remote makes links.
//   share {"path": absolute path, "expire"?: rclone duration ("1d", "2h")}
//     -> {"path", "target": "remote:path", "link"}, or {"error", "usage"?}
class ShareLinks final : public QObject
{
    Q_OBJECT

public:
    using Reply = std::function<void(const QJsonObject &reply)>;

    // What the answer says when no target's remote makes links.
    static inline const QString kNoLinks = QStringLiteral("This remote cannot make share links");

    ShareLinks(const SyncManager &manager, RcloneEngine &engine, QObject *parent = nullptr);

    void handle(const QJsonObject &request, const Reply &reply);
    // rclone's answer when a backend makes no links at all.
    static bool refusesLinks(const QString &rcloneError);

private:
    void tryTarget(const FolderLocation &location, qsizetype index, const QString &expire, const Reply &reply);

    const SyncManager &m_manager;
    RcloneEngine &m_engine;
};
