#include "sync/ShareLinks.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneOutput.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"

#include <QDir>
#include <QFileInfo>

namespace {

// rclone's reason, without its log line's date and level: "object not found".
QString reasonIn(const QString &error)
{
    const QStringList lines = RcloneOutput::nonEmptyLines(RcloneOutput::stripAnsi(error));
    if (lines.isEmpty())
        return QStringLiteral("rclone failed");
    static const QLatin1String failed("Failed to link: ");
    for (const QString &line : lines) {
        if (const qsizetype at = line.indexOf(failed); at >= 0)
            return line.mid(at + failed.size()).trimmed();
    }
    const QString &last = lines.last();
    const qsizetype colon = last.indexOf(QLatin1String(" : "));
    return (colon >= 0 ? last.mid(colon + 3) : last).trimmed();
}

} // namespace

ShareLinks::ShareLinks(const SyncManager &manager, RcloneEngine &engine, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_engine(engine)
{
}

bool ShareLinks::refusesLinks(const QString &rcloneError)
{
    return rcloneError.contains(QLatin1String("doesn't support public links"), Qt::CaseInsensitive)
        || rcloneError.contains(QLatin1String("can't share directories"), Qt::CaseInsensitive);
}

void ShareLinks::handle(const QJsonObject &request, const Reply &reply)
{
    const QString path = request.value(QStringLiteral("path")).toString();
    if (path.isEmpty() || !QDir::isAbsolutePath(path))
        return reply({{QStringLiteral("error"), QStringLiteral("a share needs an absolute path")}, {QStringLiteral("usage"), true}});
    const std::optional<FolderLocation> location = FolderLocation::of(m_manager.folders(), path);
    if (!location)
        return reply({{QStringLiteral("error"), QStringLiteral("%1 is not in a sync folder").arg(path)},
                      {QStringLiteral("usage"), true}});
    if (location->folder.remoteTargets.isEmpty())
        return reply({{QStringLiteral("error"), QStringLiteral("%1 syncs with no remote").arg(location->folder.name)}});
    tryTarget(*location, 0, request.value(QStringLiteral("expire")).toString(), reply);
}

void ShareLinks::tryTarget(const FolderLocation &location, qsizetype index, const QString &expire, const Reply &reply)
{
    if (index >= location.folder.remoteTargets.size())
        return reply({{QStringLiteral("error"), kNoLinks}});
    const RemoteTarget &target = location.folder.remoteTargets.at(index);
    const QString remotePath = location.relative.isEmpty() ? target.remoteName + u':' + target.remotePath
                                                           : RemovedFiles::remotePath(target, location.relative);
    QStringList arguments{QStringLiteral("link")};
    if (!expire.isEmpty())
        arguments << QStringLiteral("--expire") << expire;
    arguments << remotePath;
    m_engine.run(arguments, this, [this, location, index, expire, remotePath, reply](const RcloneResult<QString> &result) {
        if (result.ok()) {
            const QString link = result.value().trimmed();
            return reply({{QStringLiteral("path"), location.folder.localPath
                                                       + (location.relative.isEmpty() ? QString() : u'/' + location.relative)},
                          {QStringLiteral("target"), remotePath},
                          {QStringLiteral("link"), link}});
        }
        // The first target whose remote makes links is the one asked.
        if (refusesLinks(result.error().description))
            return tryTarget(location, index + 1, expire, reply);
        reply({{QStringLiteral("error"), QStringLiteral("Could not make a link to %1: %2")
                                             .arg(remotePath, reasonIn(result.error().description))}});
    });
}
