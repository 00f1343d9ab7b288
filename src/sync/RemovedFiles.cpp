#include "sync/RemovedFiles.h"

#include "model/Formatting.h"
#include "model/RelativePath.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

namespace RemovedFiles {

namespace {
const QString kRunFormat = QStringLiteral("yyyy-MM-ddTHH-mm-ss");

QString joined(const QString &directory, const QString &relative)
{
    const bool atRoot = directory.endsWith(u':') || directory.endsWith(u'/');
    return directory + (atRoot ? QString() : QStringLiteral("/")) + relative;
}
} // namespace

QString localDirectory(const QUuid &folderId)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/nimbrell/removed/")
        + uuidString(folderId);
}

QString remotePath(const RemoteTarget &target, const QString &relative)
{
    return joined(target.remoteName + u':' + target.remotePath, relative);
}

QString remoteDirectory(const RemoteTarget &target)
{
    return remotePath(target, kDirectoryName);
}

QString runDirectory(const QDateTime &runStart)
{
    return runStart.toUTC().toString(kRunFormat);
}

std::optional<QDateTime> runTime(const QString &directory)
{
    QDateTime time = QDateTime::fromString(directory, kRunFormat);
    if (!time.isValid())
        return std::nullopt;
    time.setTimeSpec(Qt::UTC);
    return time;
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

QStringList oneWayArguments(const QUuid &folderId, const RemoteTarget &target, bool toRemote, const QDateTime &runStart)
{
    return {QStringLiteral("--backup-dir"),
            (toRemote ? remoteDirectory(target) : localDirectory(folderId)) + u'/' + runDirectory(runStart)};
}

QList<File> listLocal(const QUuid &folderId)
{
    QList<File> files;
    const QDir root(localDirectory(folderId));
    if (QFileInfo(root.path()).isSymLink())
        return files;
    for (const QString &run : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks)) {
        const std::optional<QDateTime> removed = runTime(run);
        if (!removed)
            continue;
        const QDir runDirectory(root.filePath(run));
        QDirIterator it(runDirectory.path(), QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo info = it.nextFileInfo();
            files.append({QUuid(), run, runDirectory.relativeFilePath(info.filePath()), info.size(), *removed});
        }
    }
    return files;
}

QString localFile(const QUuid &folderId, const File &file)
{
    return localDirectory(folderId) + u'/' + file.run + u'/' + file.path;
}

QStringList listArguments(const RemoteTarget &target)
{
    return {QStringLiteral("lsjson"), QStringLiteral("-R"), QStringLiteral("--files-only"), QStringLiteral("--no-mimetype"),
            remoteDirectory(target)};
}

void ListingReader::addLine(QByteArrayView line)
{
    line = line.trimmed();
    if (m_bad || line.isEmpty())
        return;
    if (!m_started) {
        m_started = line == "[";
        m_bad = !m_started;
        return;
    }
    if (line == "]" || m_ended) {
        m_bad = m_ended; // nothing may follow the end
        m_ended = true;
        return;
    }
    if (line.endsWith(','))
        line.chop(1);
    const QJsonDocument entry = QJsonDocument::fromJson(line.toByteArray());
    if (!entry.isObject()) {
        m_bad = true;
        return;
    }
    const QString path = entry[QLatin1String("Path")].toString();
    const qsizetype slash = path.indexOf(u'/');
    const std::optional<QDateTime> removed = runTime(path.left(slash));
    if (slash <= 0 || !removed)
        return; // not a run's: left alone
    // A name that leads out of the run's directory is no kept file.
    if (!RelativePath::isSafe(path.mid(slash + 1))) {
        if (!std::exchange(m_refused, true))
            qCWarning(lcSyncManager, "Ignoring a kept file whose path leads elsewhere: %s",
                      qUtf8Printable(Formatting::printable(path)));
        return;
    }
    m_files.append({m_target.id, path.left(slash), path.mid(slash + 1), entry[QLatin1String("Size")].toInteger(),
                    *removed});
}

std::optional<QList<File>> ListingReader::files() const
{
    if (m_bad || !m_ended)
        return std::nullopt;
    return m_files;
}

bool removeTree(const QString &path)
{
    // A link is removed as a link: what it points to is not ours. Below the
    // top, removeRecursively() does the same.
    const QFileInfo top(path);
    if (top.isSymLink() || (top.exists() && !top.isDir()))
        return QFile::remove(path);
    return QDir(path).removeRecursively();
}

void pruneLocal(const QUuid &folderId, const QDateTime &cutoff)
{
    const QString root = localDirectory(folderId);
    if (QFileInfo(root).isSymLink())
        return;
    const QStringList runs = QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks);
    for (const QString &run : runsBefore(runs, cutoff))
        removeTree(root + u'/' + run);
}

QStringList runsBefore(const QStringList &runs, const QDateTime &cutoff)
{
    QStringList old;
    for (const QString &run : runs) {
        if (const std::optional<QDateTime> time = runTime(run); time && *time < cutoff)
            old.append(run);
    }
    return old;
}

QStringList pruneArguments(const RemoteTarget &target, const QStringList &runs)
{
    // Run names hold digits, "T" and "-" only: nothing a filter reads as a pattern.
    QStringList arguments{QStringLiteral("delete"), remoteDirectory(target), QStringLiteral("--rmdirs")};
    for (const QString &run : runs)
        arguments << QStringLiteral("--include") << u'/' + run + QStringLiteral("/**");
    return arguments;
}

void removeEmptyParents(const QUuid &folderId, const QString &filePath)
{
    const QString root = QDir::cleanPath(localDirectory(folderId));
    QDir dir = QFileInfo(filePath).absoluteDir();
    while (QDir::cleanPath(dir.path()).startsWith(root + u'/') && dir.isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)) {
        const QString name = dir.dirName();
        if (!dir.cdUp() || !dir.rmdir(name))
            break;
    }
}

} // namespace RemovedFiles
