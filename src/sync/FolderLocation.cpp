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
    return FolderLocator(folders).locate(absolutePath);
}

FolderLocator::FolderLocator(const QList<SyncFolder> &folders)
    : m_folders(folders)
{
    for (qsizetype i = 0; i < folders.size(); ++i) {
        for (const QString &root : formsOf(folders.at(i).localPath))
            m_roots.append({i, root.endsWith(u'/') ? root : root + u'/'});
    }
}

std::optional<FolderLocation> FolderLocator::locate(const QString &absolutePath) const
{
    // The innermost folder wins, when folders nest.
    const Root *best = nullptr;
    QString bestPath;
    for (const QString &path : formsOf(absolutePath)) {
        const QString asDirectory = path.endsWith(u'/') ? path : path + u'/';
        for (const Root &root : m_roots) {
            if (asDirectory.startsWith(root.path) && (!best || root.path.size() > best->path.size())) {
                best = &root;
                bestPath = asDirectory;
            }
        }
    }
    if (!best)
        return std::nullopt;
    QString relative = bestPath.mid(best->path.size());
    relative.chop(relative.endsWith(u'/') ? 1 : 0);
    return FolderLocation{m_folders.at(best->folder), relative};
}
