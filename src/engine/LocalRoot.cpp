#include "engine/LocalRoot.h"

#include "platform/AppLogger.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <algorithm>

#include <sys/stat.h>

bool LocalRoot::isEmptyDirectory(const QString &path)
{
    return QFileInfo(path).isDir()
        && QDir(path).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

QString LocalRoot::mountPointOf(const QString &path)
{
    if (!QFileInfo(path).isDir())
        return {};
    const QStorageInfo volume(path);
    return volume.isValid() ? volume.rootPath() : QString();
}

LocalRoot::LocalRoot(const QString &path, QObject *parent)
    : QObject(parent)
    , m_path(path)
    , m_began(QDateTime::currentDateTime())
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) == 0) {
        m_device = status.st_dev;
        m_inode = status.st_ino;
        m_known = true;
    }
    // A removal or an unmount is told to a watch on the folder, a rename to
    // one on the folder that holds it; any other change there costs a stat.
    // (What no watch tells, the end of the run finds.)
    m_watcher.addPaths({path, QFileInfo(path).absolutePath()});
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        if (m_gone || isStillThere())
            return;
        m_gone = true;
        qCCritical(lcEngine, "The local folder left %s during the sync", qUtf8Printable(m_path));
        Q_EMIT gone();
    });
}

QString LocalRoot::unavailable(const QString &path, const QString &mountPoint)
{
    if (!QFileInfo(path).isDir())
        return QStringLiteral("Local folder not found: ") + path;
    if (!mountPoint.isEmpty() && mountPointOf(path) != mountPoint)
        return QStringLiteral("Local folder not mounted: %1 (its drive was at %2)").arg(path, mountPoint);
    return {};
}

bool LocalRoot::isStillThere() const
{
    struct stat status = {};
    return m_known
        && (::stat(QFile::encodeName(m_path).constData(), &status) == 0 && S_ISDIR(status.st_mode)
            && status.st_dev == m_device && status.st_ino == m_inode);
}

bool LocalRoot::madeSince(const QFileInfo &entry) const
{
    // Strictly later: what was there a moment before the run began may carry
    // the same millisecond, while rclone starts well after it.
    return entry.birthTime().isValid() && entry.birthTime() > m_began;
}

void LocalRoot::clearStandIn(const QStringList &downloaded) const
{
    const QFileInfo standIn(m_path);
    if (isStillThere() || !standIn.isDir() || standIn.isSymLink())
        return;
    const QDir dir(m_path);
    for (const QString &path : downloaded)
        QFile::remove(dir.filePath(path));
    QStringList directories;
    for (QDirIterator it(m_path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
         it.hasNext();) {
        // Only what was made since the run began: the stand-in may be another
        // folder of the user's, moved into the path.
        const QFileInfo entry = it.nextFileInfo();
        if (entry.isDir() && !entry.isSymLink() && madeSince(entry))
            directories.append(entry.filePath());
        else if (entry.fileName().endsWith(QLatin1String(".partial")) && madeSince(entry))
            QFile::remove(entry.filePath());
    }
    // Deepest first; a directory that still holds something stays.
    std::sort(directories.begin(), directories.end(),
              [](const QString &a, const QString &b) { return a.size() > b.size(); });
    for (const QString &directory : std::as_const(directories))
        QDir().rmdir(directory);
    // A mount point left bare was there before the run and stays, and so
    // does any folder where the filesystem keeps no birth time.
    if (madeSince(standIn) && QDir().rmdir(m_path))
        qCInfo(lcEngine, "Removed the folder the sync made at %s after the local folder left it", qUtf8Printable(m_path));
}
