#include "engine/BisyncLocks.h"

#include "engine/RcloneOutput.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cerrno>
#include <csignal>
#include <limits>

namespace BisyncLocks {

QString workDirectory()
{
    return QDir::home().absoluteFilePath(QStringLiteral(".config/rclone/bisync_workdir"));
}

QString pairFile(const QString &what, const QString &localPath, const QString &remoteSpec)
{
    const QByteArray pair = QFile::encodeName(localPath) + '\0' + remoteSpec.toUtf8();
    return workDirectory() + QStringLiteral("/nimbrell-") + what + u'-'
        + QString::fromLatin1(QCryptographicHash::hash(pair, QCryptographicHash::Sha1).toHex().left(20));
}

QString lockFileIn(const QString &output)
{
    static const QRegularExpression lock(QStringLiteral("prior lock file found:\\s*([^\\n\\r]+?\\.lck)"));
    const QRegularExpressionMatch match = lock.match(output);
    return match.hasMatch() ? RcloneOutput::trimBlanks(match.capturedView(1)).toString() : QString();
}

bool isRunningRclone(qint64 pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno != EPERM)
        return false;
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return true;
    if (!comm.readAll().startsWith("rclone"))
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    // "pid (comm) S ...": the state follows the last parenthesis.
    const QByteArray line = stat.readAll();
    const qsizetype close = line.lastIndexOf(')');
    const char state = close >= 0 && close + 2 < line.size() ? line.at(close + 2) : '?';
    return state != 'Z' && state != 'X';
}

// A path outside the work directory (the output of a hostile remote could
// have put one into rclone's message) reads as held: it is never touched.
qint64 lockHolder(const QString &lockPath)
{
    const QFileInfo lock(lockPath);
    if (!lock.isAbsolute() || lock.isSymLink())
        return -1;
    const QString work = QDir(workDirectory()).canonicalPath();
    if (!lock.exists())
        return 0;
    if (!lock.isFile() || work.isEmpty() || lock.absoluteDir().canonicalPath() != work)
        return -1;
    QFile file(lockPath);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    // {"Session": ..., "PID": "13481", ...}
    const QJsonValue pid = QJsonDocument::fromJson(file.read(64 * 1024)).object().value(QLatin1String("PID"));
    const qint64 id = pid.isString() ? pid.toString().toLongLong() : pid.toInteger();
    return isRunningRclone(id) ? id : 0;
}

bool isStale(const QString &lockPath)
{
    return QFileInfo(lockPath).isFile() && lockHolder(lockPath) == 0;
}

} // namespace BisyncLocks

EarlierBisyncs EarlierBisyncs::scan()
{
    EarlierBisyncs earlier;
    const QString workDirectory = BisyncLocks::workDirectory();
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isPid = false;
        const qint64 pid = entry.toLongLong(&isPid);
        if (!isPid || pid == QCoreApplication::applicationPid() || !BisyncLocks::isRunningRclone(pid))
            continue;
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> arguments = file.readAll().split('\0');
        const qsizetype workdir = arguments.indexOf("--workdir");
        if (arguments.size() > 3 && arguments.at(1) == "bisync" && workdir > 0 && workdir + 1 < arguments.size()
            && QFile::decodeName(arguments.at(workdir + 1)) == workDirectory) {
            earlier.m_bisyncs.append({pid, QFile::decodeName(arguments.at(2)), QString::fromUtf8(arguments.at(3))});
        }
    }
    return earlier;
}

qint64 EarlierBisyncs::of(const QString &localPath, const QString &remoteSpec) const
{
    for (const Bisync &bisync : m_bisyncs) {
        if (bisync.localPath == localPath && bisync.remoteSpec == remoteSpec
            && BisyncLocks::isRunningRclone(bisync.pid))
            return bisync.pid;
    }
    return 0;
}
