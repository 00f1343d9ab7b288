#include "sync/FolderLocation.h"

#include <QDir>
#include <QFileInfo>

namespace {

// The path as given and, where it exists, with its links resolved.
QStringList formsOf(const QString &path)
{
    QStringList forms{QDir::cleanPath(path)};
    if (const QString canonical = QFileInfo(path).canonicalFilePath(); !canonical.isEmpty() && canonical != forms.first())
        forms.append(canonical);
    return forms;
}

} // namespace

std::optional<FolderLocation> FolderLocation::of(const QList<SyncFolder> &folders, const QString &absolutePath)
{
    std::optional<FolderLocation> found;
    qsizetype depth = -1;
    const QStringList paths = formsOf(absolutePath);
    for (const SyncFolder &folder : folders) {
        for (const QString &root : formsOf(folder.localPath)) {
            for (const QString &path : paths) {
                const bool inside = path == root || path.startsWith(root.endsWith(u'/') ? root : root + u'/');
                if (!inside || root.size() <= depth)
                    continue;
                depth = root.size();
                found = FolderLocation{folder, path == root ? QString() : path.mid(root.size() + (root.endsWith(u'/') ? 0 : 1))};
            }
        }
    }
    return found;
}
