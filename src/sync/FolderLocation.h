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

// The same for many paths: the folders' directories are resolved once.
class FolderLocator
{
public:
    explicit FolderLocator(const QList<SyncFolder> &folders);
    std::optional<FolderLocation> locate(const QString &absolutePath) const;

private:
    struct Root
    {
        qsizetype folder;
        QString path; // with a trailing "/"
    };
    const QList<SyncFolder> &m_folders;
    QList<Root> m_roots;
};
