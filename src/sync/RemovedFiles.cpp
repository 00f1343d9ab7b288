#include "sync/RemovedFiles.h"

#include "model/UuidString.h"

#include <QStandardPaths>

namespace RemovedFiles {

QString localDirectory(const QUuid &folderId)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/nimbrell/removed/")
        + uuidString(folderId);
}

QString remoteDirectory(const RemoteTarget &target)
{
    const QString &path = target.remotePath;
    const bool atRoot = path.isEmpty() || path.endsWith(u'/');
    return target.remoteName + u':' + path + (atRoot ? QString() : QStringLiteral("/")) + kDirectoryName;
}

QString runDirectory(const QDateTime &runStart)
{
    return runStart.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH-mm-ss"));
}

QStringList arguments(const QUuid &folderId, const RemoteTarget &target, bool keeping, bool everKept,
                      const QDateTime &runStart)
{
    if (!keeping && !everKept)
        return {};
    QStringList arguments{QStringLiteral("--exclude"), u'/' + kDirectoryName + QStringLiteral("/**")};
    if (keeping)
        arguments << QStringLiteral("--backup-dir1") << localDirectory(folderId) + u'/' + runDirectory(runStart)
                  << QStringLiteral("--backup-dir2") << remoteDirectory(target) + u'/' + runDirectory(runStart);
    return arguments;
}

} // namespace RemovedFiles
