#include "engine/RemoteCommands.h"

#include "engine/RcloneOutput.h"
#include "model/RelativePath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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

RcloneJob *getVersion(RcloneEngine &engine, const QObject *context, RcloneEngine::Done<QString> done)
{
    return runAndParse(engine, {QStringLiteral("version")}, context, std::move(done),
                       [](const QString &output) { return RcloneResult<QString>(parseVersion(output)); });
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
