#pragma once

#include "model/SyncFolder.h"

#include <QList>
#include <QString>

#include <optional>

// Where a local path lies among the sync folders: the folder whose local
// directory holds it (the innermost, when folders nest), and the path
// relative to that directory ("" for the directory itself). Symbolic links
// in either are followed where the path exists.
struct FolderLocation
{
    SyncFolder folder;
    QString relative;

    static std::optional<FolderLocation> of(const QList<SyncFolder> &folders, const QString &absolutePath);
};
