#include "engine/RemoteCommands.h"

#include "engine/RcloneOutput.h"
#include "model/RelativePath.h"

#include "platform/AppLogger.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <sys/stat.h>

namespace RemoteCommands {
namespace {
// Runs a command and turns its output into the call's value.
template <typename T, typename Parse>
RcloneJob *runAndParse(RcloneEngine &engine, const QStringList &arguments, const QObject *context,
                       RcloneEngine::Done<T> done, Parse parse)
{
    return engine.run(arguments, context, [done = std::move(done), parse](const RcloneResult<QString> &result) {
        if (!done)
            return;
        if (!result.ok())
            return done(result.error());
        done(parse(result.value()));
    });
}

RcloneStatus succeeded(const QString &)
{
    return std::monostate();
}
} // namespace

RcloneJob *listRemotes(RcloneEngine &engine, const QObject *context, RcloneEngine::Done<QList<CloudRemote>> done)
{
    return runAndParse(engine, {QStringLiteral("listremotes"), QStringLiteral("--long")}, context, std::move(done),
                       [](const QString &output) { return RcloneResult<QList<CloudRemote>>(parseRemoteList(output)); });
}

RcloneJob *createRemote(RcloneEngine &engine, const QString &name, const QString &type, const QObject *context,
                        Status done)
{
    return runAndParse(engine,
                       {QStringLiteral("config"), QStringLiteral("create"), name, type,
                        QStringLiteral("--non-interactive")},
                       context, std::move(done), &succeeded);
}

RcloneJob *reconnectRemote(RcloneEngine &engine, const QString &name, const QObject *context, Status done)
{
    return runAndParse(engine,
                       {QStringLiteral("config"), QStringLiteral("reconnect"), name + u':',
                        QStringLiteral("--auto-confirm")},
                       context, std::move(done), &succeeded);
}

RcloneJob *getSpaceInfo(RcloneEngine &engine, const QString &name, const QObject *context,
                        RcloneEngine::Done<RemoteSpaceInfo> done)
{
    return runAndParse(engine, {QStringLiteral("about"), name + u':', QStringLiteral("--json")}, context,
                       std::move(done), &parseSpaceInfo);
}

namespace {
// What tells one rclone binary from another, for the kept version.
QString binaryKey(const QString &path)
{
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return QStringLiteral("%1\n%2\n%3\n%4.%5")
        .arg(path)
        .arg(info.st_ino)
        .arg(info.st_size)
        .arg(info.st_ctim.tv_sec)
        .arg(info.st_ctim.tv_nsec);
}

QString versionCachePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/nimbrell/rclone-version");
}

QHash<QString, QString> &keptInMemory()
{
    static QHash<QString, QString> kept;
    return kept;
}

// The kept version of the binary `key`, or none.
QString keptVersion(const QString &key)
{
    QHash<QString, QString> &kept = keptInMemory();
    if (const auto it = kept.constFind(key); it != kept.cend())
        return *it;
    QFile file(versionCachePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromUtf8(file.read(64 * 1024));
    const qsizetype split = text.lastIndexOf(u'\n');
    if (split < 0 || text.left(split) != key)
        return {};
    kept.insert(key, text.mid(split + 1));
    return text.mid(split + 1);
}

void keepVersion(const QString &key, const QString &version)
{
    keptInMemory().insert(key, version);
    const QString path = versionCachePath();
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write((key + u'\n' + version).toUtf8());
        file.commit();
    }
}
} // namespace

RcloneJob *getVersion(RcloneEngine &engine, const QObject *context, RcloneEngine::Done<QString> done)
{
    const QString key = binaryKey(engine.rclonePath());
    if (const QString version = key.isEmpty() ? QString() : keptVersion(key); !version.isEmpty()) {
        QMetaObject::invokeMethod(context ? const_cast<QObject *>(context) : QCoreApplication::instance(),
                                  [done = std::move(done), version] {
                                      if (done)
                                          done(version);
                                  }, Qt::QueuedConnection);
        return nullptr;
    }
    return runAndParse(engine, {QStringLiteral("version")}, context, std::move(done), [key](const QString &output) {
        const QString version = parseVersion(output);
        if (!key.isEmpty() && !RcloneOutput::nonEmptyLines(output).isEmpty()) {
            qCInfo(lcEngine, "Using %s", qUtf8Printable(version));
            keepVersion(key, version);
        }
        return RcloneResult<QString>(version);
    });
}

RcloneJob *listDirectories(RcloneEngine &engine, const QString &location, const QObject *context,
                           RcloneEngine::Done<QStringList> done)
{
    return engine.run({QStringLiteral("lsjson"), QStringLiteral("--dirs-only"), QStringLiteral("--no-modtime"),
                       QStringLiteral("--no-mimetype"), location},
                      context, [done = std::move(done)](const RcloneResult<QString> &result) {
                          // rclone's "directory not found"
                          if (!result.ok() && result.error().kind == RcloneError::Kind::exitStatus && result.error().code == 3)
                              return done(QStringList());
                          done(result.ok() ? parseDirectoryNames(result.value()) : RcloneResult<QStringList>(result.error()));
                      });
}

RcloneResult<QStringList> parseDirectoryNames(const QString &output)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return RcloneError{RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's listing could not be read")};
    QStringList names;
    for (const QJsonValue &entry : document.array()) {
        const QString name = entry.toObject().value(QStringLiteral("Name")).toString();
        // A name is one path segment; anything else is not listed.
        if (!name.isEmpty() && !name.contains(u'/') && RelativePath::isSafe(name))
            names.append(name);
    }
    return names;
}

QList<CloudRemote> parseRemoteList(const QString &output)
{
    // "work docs:   alias  Team docs": the name, then the type, then (in newer
    // rclone) a description.
    QList<CloudRemote> remotes;
    for (const QString &line : RcloneOutput::nonEmptyLines(output)) {
        const QList<QStringView> parts = QStringView(line).split(u':', Qt::SkipEmptyParts);
        if (parts.size() < 2)
            continue;
        const QStringView name = RcloneOutput::trimBlanks(parts[0]);
        QStringView type = RcloneOutput::trimBlanks(parts[1]);
        for (qsizetype i = 0; i < type.size(); ++i) {
            if (type[i] == u' ' || type[i] == u'\t') {
                type.truncate(i);
                break;
            }
        }
        if (!name.isEmpty() && !type.isEmpty())
            remotes.append(CloudRemote{name.toString(), type.toString()});
    }
    return remotes;
}

RcloneResult<RemoteSpaceInfo> parseSpaceInfo(const QString &output)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return RcloneError{RcloneError::Kind::badOutput, 0, error.errorString()};
    if (!document.isObject())
        return RcloneError{RcloneError::Kind::badOutput, 0, QStringLiteral("rclone's storage figures are not a JSON object")};
    const QJsonObject object = document.object();
    const auto integer = [&object](const char *key) -> std::optional<qint64> {
        const QJsonValue value = object.value(QLatin1String(key));
        // toInteger() takes integral numbers only; 0 is its fallback.
        const qint64 number = value.toInteger(0);
        if (!value.isDouble() || (number == 0 && value.toDouble() != 0.0))
            return std::nullopt;
        return number;
    };
    return RemoteSpaceInfo{integer("total"), integer("used"), integer("free"), integer("trashed")};
}

QString parseVersion(const QString &output)
{
    const QStringList lines = RcloneOutput::nonEmptyLines(output);
    return lines.isEmpty() ? QStringLiteral("rclone Unknown") : lines.front();
}

} // namespace RemoteCommands
