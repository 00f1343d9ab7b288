#include "cli/ReportCommands.h"
#include "engine/RemoteCommands.h"

#include "cli/CliSupport.h"
#include "cli/LocalInstance.h"
#include "cli/SyncFollower.h"
#include "model/ConflictResolution.h"
#include "model/Formatting.h"
#include "platform/InstanceChannel.h"
#include "sync/FileStates.h"
#include "sync/FolderReport.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>

using namespace std::chrono_literals;

namespace ReportCommands {
namespace {

using namespace CliSupport;
using Kind = CliCommand::Kind;

// The report with only these folders, in the store's order.
QJsonObject onlyFolders(QJsonObject report, const QList<QUuid> &ids)
{
    QJsonArray kept;
    for (const QJsonValue &folder : report.value(QStringLiteral("folders")).toArray()) {
        if (ids.contains(QUuid::fromString(folder.toObject().value(QStringLiteral("id")).toString())))
            kept.append(folder);
    }
    report.insert(QStringLiteral("folders"), kept);
    return report;
}

QString joinedTargets(const QJsonObject &folder)
{
    QStringList targets;
    for (const QJsonValue &target : folder.value(QStringLiteral("targets")).toArray())
        targets.append(target.isObject() ? target.toObject().value(QStringLiteral("location")).toString() : target.toString());
    return targets.isEmpty() ? QStringLiteral("none") : targets.join(QStringLiteral(", "));
}

void printStatus(const QJsonObject &report)
{
    const QJsonObject instance = report.value(QStringLiteral("instance")).toObject();
    const QString mode = instance.value(QStringLiteral("mode")).toString();
    const QString how = mode == u"headless" ? QStringLiteral("as a service")
        : mode == u"once"                   ? QStringLiteral("for `nimbrell sync --wait`")
                                            : QStringLiteral("with its window");
    const QString automatic = report.value(QStringLiteral("automaticSync")).toBool()
        ? QStringLiteral("Automatic sync is on, every %1 minutes.").arg(report.value(QStringLiteral("intervalMinutes")).toInteger())
        : QStringLiteral("Automatic sync is off.");
    out(instance.isEmpty() ? QStringLiteral("Nimbrell is not running. %1\n").arg(automatic)
                           : QStringLiteral("Nimbrell is running %1 (pid %2). %3\n")
                                 .arg(how).arg(instance.value(QStringLiteral("pid")).toInteger()).arg(automatic));
    if (const QString problem = report.value(QStringLiteral("storeProblem")).toString(); !problem.isEmpty())
        out(problem + u'\n');
    const QJsonArray folders = report.value(QStringLiteral("folders")).toArray();
    if (folders.isEmpty())
        out(QStringLiteral("No sync folders.\n"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const QJsonValue &value : folders) {
        const QJsonObject folder = value.toObject();
        const QString status = folder.value(QStringLiteral("status")).toString();
        QString shown = status == u"success" ? QStringLiteral("Synced")
            : status == u"error"             ? QStringLiteral("Failed")
            : status == u"syncing"           ? SyncFollower::progressText(folder)
                                             : QStringLiteral("Idle");
        shown[0] = shown[0].toUpper();
        if (folder.value(QStringLiteral("paused")).toBool())
            shown += QStringLiteral(", paused");
        const QString lastSync = folder.value(QStringLiteral("lastSync")).toString();
        const QDateTime lastSyncDate = QDateTime::fromString(lastSync, Qt::ISODate);
        const QString relative = Formatting::relativeTime(lastSyncDate, now);
        out(u'\n' + folder.value(QStringLiteral("name")).toString() + u'\n');
        out(line(QStringLiteral("Status"), shown));
        out(line(QStringLiteral("Last sync"),
                 lastSync.isEmpty() ? QStringLiteral("never")
                                    : QStringLiteral("%1 (%2)").arg(relative + QStringLiteral(" ago"), lastSync)));
        out(line(QStringLiteral("Targets"), joinedTargets(folder)));
        // What went wrong, in words, with the fix; the raw first line when
        // there is no reading of it.
        const QJsonArray problems = folder.value(QStringLiteral("problems")).toArray();
        for (const QJsonValue &entry : problems) {
            const QJsonObject problem = entry.toObject();
            const QString target = problem.value(QStringLiteral("target")).toString();
            const QString action = problem.value(QStringLiteral("action")).toString();
            out(line(QStringLiteral("Problem"), (target.isEmpty() ? QString() : target + QStringLiteral(": "))
                                                     + problem.value(QStringLiteral("title")).toString()));
            out(line(QString(), problem.value(QStringLiteral("sentence")).toString()));
            if (!action.isEmpty())
                out(line(QString(), QStringLiteral("In the window: ") + action));
        }
        if (const QString error = folder.value(QStringLiteral("error")).toString(); !error.isEmpty() && problems.isEmpty())
            out(line(QStringLiteral("Error"), error));
        if (const int conflicts = folder.value(QStringLiteral("conflicts")).toInt(); conflicts > 0)
            out(line(QStringLiteral("Conflicts"), QString::number(conflicts) + (conflicts == 1 ? QStringLiteral(" file kept in two copies")
                                                                                              : QStringLiteral(" files kept in two copies"))));
    }
}

void printList(const QJsonObject &report)
{
    const QJsonArray folders = report.value(QStringLiteral("folders")).toArray();
    if (folders.isEmpty())
        out(QStringLiteral("No sync folders.\n"));
    for (const QJsonValue &value : folders) {
        const QJsonObject folder = value.toObject();
        const QJsonObject filters = folder.value(QStringLiteral("filters")).toObject();
        QStringList excluded;
        if (filters.value(QStringLiteral("excludeGit")).toBool())
            excluded.append(QStringLiteral(".git"));
        if (filters.value(QStringLiteral("excludeHidden")).toBool())
            excluded.append(QStringLiteral("hidden files"));
        if (filters.value(QStringLiteral("excludeNodeModules")).toBool())
            excluded.append(QStringLiteral("node_modules"));
        const auto policy = conflictResolutionFromRawValue(folder.value(QStringLiteral("conflictResolution")).toString());
        if (value != folders.first())
            out(QStringLiteral("\n"));
        out(folder.value(QStringLiteral("name")).toString() + u'\n');
        out(line(QStringLiteral("Id"), folder.value(QStringLiteral("id")).toString()));
        out(line(QStringLiteral("Local"), folder.value(QStringLiteral("localPath")).toString()));
        out(line(QStringLiteral("Targets"), joinedTargets(folder)));
        out(line(QStringLiteral("Excluding"), excluded.isEmpty() ? QStringLiteral("nothing") : excluded.join(QStringLiteral(", "))));
        out(line(QStringLiteral("Conflicts"), policy ? label(*policy) : QStringLiteral("?")));
        if (folder.value(QStringLiteral("keepRemoved")).toBool())
            out(line(QStringLiteral("Removed"), QStringLiteral("kept %1 days").arg(folder.value(QStringLiteral("keepDays")).toInt())));
        const auto listed = [&folder](const char *key) {
            QStringList entries;
            for (const QJsonValue &entry : folder.value(QLatin1String(key)).toArray())
                entries.append(entry.toString());
            return entries.join(QStringLiteral(", "));
        };
        if (const QString skipped = listed("skipped"); !skipped.isEmpty())
            out(line(QStringLiteral("Skipped"), skipped));
        if (const QString ignore = listed("ignore"); !ignore.isEmpty())
            out(line(QStringLiteral("Ignoring"), ignore));
        if (const QString direction = folder.value(QStringLiteral("direction")).toString(); direction == u"upload")
            out(line(QStringLiteral("Direction"), QStringLiteral("upload only")));
        else if (direction == u"download")
            out(line(QStringLiteral("Direction"), QStringLiteral("download only")));
    }
}

void printRemotes(const QJsonObject &report)
{
    const QJsonArray remotes = report.value(QStringLiteral("remotes")).toArray();
    if (remotes.isEmpty())
        out(QStringLiteral("No remotes. Add one in Nimbrell's window, or with `rclone config`.\n"));
    qsizetype width = 0;
    for (const QJsonValue &remote : remotes)
        width = std::max(width, remote.toObject().value(QStringLiteral("name")).toString().size());
    for (const QJsonValue &value : remotes) {
        const QJsonObject remote = value.toObject();
        out(QStringLiteral("%1  %2\n").arg(remote.value(QStringLiteral("name")).toString(), -int(width))
                .arg(remote.value(QStringLiteral("type")).toString()));
    }
}

// status, list and remotes: from the instance, or from here when none runs.
} // namespace

int report(const CliCommand &command)
{
    std::optional<QJsonObject> reply;
    if (InstanceChannel::isHeld())
        reply = ask(commandName(command.kind), {}, command.kind == Kind::remotes ? 120s : 10s);
    if (!reply) {
        LocalInstance local(SyncService::Mode::offline, false);
        if (command.kind == Kind::status) {
            reply = local.service().statusReport();
        } else if (command.kind == Kind::list) {
            reply = local.service().listReport();
        } else {
            if (!hasRclone())
                return kFailed;
            QEventLoop loop;
            RemoteCommands::listRemotes(local.engine(), &loop, [&](const RcloneResult<QList<CloudRemote>> &result) {
                QJsonArray remotes;
                for (const CloudRemote &remote : result.ok() ? result.value() : QList<CloudRemote>())
                    remotes.append(FolderReport::remote(remote));
                reply = result.ok() ? QJsonObject{{QStringLiteral("remotes"), remotes}}
                                    : QJsonObject{{QStringLiteral("error"), result.error().description}};
                loop.quit();
            });
            loop.exec();
        }
    }
    if (const QString error = errorOf(*reply); !error.isEmpty()) {
        say(error);
        return kFailed;
    }
    QJsonObject document = *reply;
    if (!command.folders.isEmpty()) {
        const std::optional<QList<QUuid>> ids = chosenFolders(command, document);
        if (!ids)
            return kUsage;
        document = onlyFolders(document, *ids);
    }
    if (command.json)
        printJson(document);
    else if (command.kind == Kind::status)
        printStatus(document);
    else if (command.kind == Kind::list)
        printList(document);
    else
        printRemotes(document);
    return kOk;
}

int share(const CliCommand &command)
{
    if (!hasRclone())
        return kFailed;
    const QJsonObject request{{QStringLiteral("path"), QFileInfo(command.words.first()).absoluteFilePath()},
                              {QStringLiteral("expire"), command.expire.value_or(QString())}};
    std::optional<QJsonObject> reply = InstanceChannel::isHeld() ? ask(QStringLiteral("share"), request, 2min) : std::nullopt;
    if (!reply) {
        LocalInstance local(SyncService::Mode::offline, false);
        QEventLoop loop;
        local.service().shareLinks().handle(request, [&](const QJsonObject &answer) {
            reply = answer;
            loop.quit();
        });
        if (!reply)
            loop.exec();
    }
    if (const QString error = errorOf(*reply); !error.isEmpty()) {
        say(error);
        return reply->value(QStringLiteral("usage")).toBool() ? kUsage : kFailed;
    }
    if (command.json)
        printJson(*reply);
    else
        out(reply->value(QStringLiteral("link")).toString() + u'\n');
    return kOk;
}

int fileStatus(const CliCommand &command)
{
    QJsonArray paths;
    for (const QString &path : command.folders)
        paths.append(QFileInfo(path).absoluteFilePath());
    const QJsonObject request{{QStringLiteral("paths"), paths}};
    std::optional<QJsonObject> reply = InstanceChannel::isHeld() ? ask(QStringLiteral("fileStatus"), request) : std::nullopt;
    if (!reply) {
        LocalInstance local(SyncService::Mode::offline, false);
        reply = FileStates::answer(local.manager(), request);
    }
    const QJsonArray files = reply->value(QStringLiteral("files")).toArray();
    bool outside = files.size() != paths.size();
    for (const QJsonValue &value : files)
        outside |= value.toObject().value(QStringLiteral("state")).isNull();
    if (command.json) {
        printJson(*reply);
    } else {
        for (const QJsonValue &value : files) {
            const QJsonObject file = value.toObject();
            const QJsonValue state = file.value(QStringLiteral("state"));
            out(QStringLiteral("%1: %2\n").arg(file.value(QStringLiteral("path")).toString(),
                                               state.isNull() ? QStringLiteral("not in a sync folder") : state.toString()));
        }
    }
    return outside ? kUsage : kOk;
}

} // namespace ReportCommands
