#include "cli/CliRunner.h"

#include "cli/CliSupport.h"
#include "cli/CommandLine.h"
#include "cli/ConfigCommands.h"
#include "cli/LocalInstance.h"
#include "platform/DesktopNotifier.h"
#include "sync/ProblemNotifier.h"
#include "cli/SyncFollower.h"
#include "model/ConflictResolution.h"
#include "model/Formatting.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/InstallLayout.h"
#include "platform/InstanceChannel.h"
#include "platform/UnixSignalNotifier.h"
#include "sync/FolderReport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <cstdio>

using namespace std::chrono_literals;

namespace CliRunner {
namespace {

using namespace CliSupport;
using Kind = CliCommand::Kind;

constexpr auto kPollInterval = 250ms;

QString commandName(Kind kind)
{
    switch (kind) {
    case Kind::status: return QStringLiteral("status");
    case Kind::list: return QStringLiteral("list");
    case Kind::remotes: return QStringLiteral("remotes");
    case Kind::sync: return QStringLiteral("sync");
    case Kind::cancel: return QStringLiteral("cancel");
    case Kind::pause: return QStringLiteral("pause");
    case Kind::resume: return QStringLiteral("resume");
    case Kind::open: return QStringLiteral("open");
    case Kind::quit: return QStringLiteral("quit");
    default: return {};
    }
}

QJsonArray idArray(const QList<QUuid> &ids)
{
    QJsonArray array;
    for (const QUuid &id : ids)
        array.append(uuidString(id));
    return array;
}

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

QString line(const QString &label, const QString &value)
{
    return QStringLiteral("  %1 %2\n").arg(label.isEmpty() ? label : label + u':', -11).arg(value);
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
            local.engine().listRemotes(&loop, [&](const RcloneResult<QList<CloudRemote>> &result) {
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

// Says which folders did not start, and why.
bool reportNotStarted(const QJsonObject &reply, const QJsonObject &status)
{
    const QJsonArray notStarted = reply.value(QStringLiteral("notStarted")).toArray();
    for (const QJsonValue &value : notStarted) {
        const QJsonObject entry = value.toObject();
        const QUuid id = QUuid::fromString(entry.value(QStringLiteral("id")).toString());
        QString name = uuidString(id);
        for (const CommandLine::NamedFolder &folder : namedFolders(status)) {
            if (folder.id == id)
                name = folder.name;
        }
        say(QStringLiteral("%1 was not synced: %2").arg(name, entry.value(QStringLiteral("reason")).toString()));
    }
    return notStarted.isEmpty();
}

QList<QUuid> startedFolders(const QJsonObject &reply)
{
    QList<QUuid> ids;
    for (const QJsonValue &id : reply.value(QStringLiteral("started")).toArray())
        ids.append(QUuid::fromString(id.toString()));
    return ids;
}

QJsonObject syncRequest(const CliCommand &command, const QList<QUuid> &ids)
{
    return command.folders.isEmpty() ? QJsonObject{{QStringLiteral("all"), true}}
                                     : QJsonObject{{QStringLiteral("folders"), idArray(ids)}};
}

// `sync --wait` with no instance: this process becomes the instance for as
// long as the runs take, headless and without automatic runs.
int syncHere(const CliCommand &command, InstanceChannel &channel)
{
    if (!hasRclone())
        return kFailed;
    LocalInstance local(SyncService::Mode::once, false);
    SyncService &service = local.service();
    local.serve(channel);

    const QJsonObject before = service.statusReport();
    const std::optional<QList<QUuid>> ids = chosenFolders(command, before);
    if (!ids)
        return kUsage;
    QJsonArray started;
    QJsonArray notStarted;
    for (const QUuid &id : *ids) {
        const bool hasTargets = !local.manager().folder(id)->remoteTargets.isEmpty();
        if (command.folders.isEmpty() && !hasTargets)
            continue; // as "sync all" does
        if (local.manager().syncFolder(id, SyncTrigger::user))
            started.append(uuidString(id));
        else
            notStarted.append(QJsonObject{{QStringLiteral("id"), uuidString(id)},
                                          {QStringLiteral("reason"), QStringLiteral("it has no remote targets")}});
    }
    const bool allStarted = reportNotStarted({{QStringLiteral("notStarted"), notStarted}}, before);
    SyncFollower follower(startedFolders({{QStringLiteral("started"), started}}), stdout);
    QTimer poll;
    poll.setInterval(kPollInterval);
    QObject::connect(&poll, &QTimer::timeout, &service, [&] {
        if (follower.update(service.statusReport())) {
            poll.stop();
            service.quit();
        }
    });
    if (follower.update(service.statusReport()))
        service.quit();
    else
        poll.start();
    QCoreApplication::exec();
    // Stopped by a signal: the runs were cancelled and say so.
    follower.update(service.statusReport());
    return follower.succeeded() && allStarted ? kOk : kFailed;
}

// Follows the running instance's runs of these folders to their end; true
// when all succeeded.
bool follow(const QList<QUuid> &folders, std::FILE *out)
{
    SyncFollower follower(folders, out);
    for (;;) {
        const std::optional<QJsonObject> now = ask(QStringLiteral("status"));
        if (!now) {
            follower.abandon(QStringLiteral("Nimbrell quit before the sync ended"));
            break;
        }
        if (follower.update(*now))
            break;
        QThread::msleep(std::chrono::milliseconds(kPollInterval).count());
    }
    return follower.succeeded();
}

int sync(const CliCommand &command)
{
    if (!InstanceChannel::isHeld()) {
        if (!command.wait) {
            say(QStringLiteral("not running"));
            return kNotRunning;
        }
        InstanceChannel channel;
        if (channel.tryLock())
            return syncHere(command, channel);
        // Another start got there first: it is the instance now.
    }
    const std::optional<QJsonObject> status = ask(QStringLiteral("status"));
    if (!status) {
        say(QStringLiteral("not running"));
        return kNotRunning;
    }
    const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
    if (!ids)
        return kUsage;
    const std::optional<QJsonObject> reply = ask(QStringLiteral("sync"), syncRequest(command, *ids));
    if (!reply || !errorOf(*reply).isEmpty()) {
        say(reply ? errorOf(*reply) : QStringLiteral("the running instance did not answer"));
        return kFailed;
    }
    const bool allStarted = reportNotStarted(*reply, *status);
    const QList<QUuid> started = startedFolders(*reply);
    if (!command.wait) {
        QStringList names;
        for (const CommandLine::NamedFolder &folder : namedFolders(*status)) {
            if (started.contains(folder.id))
                names.append(folder.name);
        }
        if (!names.isEmpty())
            out(QStringLiteral("Syncing %1\n").arg(names.join(QStringLiteral(", "))));
        return allStarted ? kOk : kFailed;
    }
    return follow(started, stdout) && allStarted ? kOk : kFailed;
}

// The running instance's status, or nothing (said so) when none runs.
std::optional<QJsonObject> runningStatus()
{
    std::optional<QJsonObject> status = InstanceChannel::isHeld() ? ask(QStringLiteral("status")) : std::nullopt;
    if (!status)
        say(QStringLiteral("not running"));
    return status;
}

// The review of a failed run's recovery, and with --apply the run itself.
int review(const CliCommand &command)
{
    const std::optional<QJsonObject> status = runningStatus();
    if (!status)
        return kNotRunning;
    const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
    if (!ids)
        return kUsage;
    // A dry run reads both sides whole: as long as a listing of the pair takes.
    const std::optional<QJsonObject> reply =
        ask(QStringLiteral("review"), {{QStringLiteral("folder"), uuidString(ids->first())}, {QStringLiteral("apply"), command.apply}},
            std::chrono::hours(1));
    if (!reply || !errorOf(*reply).isEmpty()) {
        say(reply ? errorOf(*reply) : QStringLiteral("the running instance did not answer"));
        return kFailed;
    }
    if (command.json) {
        printJson(*reply);
    } else {
        const QJsonArray changes = reply->value(QStringLiteral("changes")).toArray();
        const QString kind = reply->value(QStringLiteral("kind")).toString();
        out(QStringLiteral("%1 with %2: %3\n")
                .arg(kind == u"resync" ? QStringLiteral("Resync") : kind == u"deletions" ? QStringLiteral("Deletions")
                                                                                         : QStringLiteral("Changes"),
                     reply->value(QStringLiteral("target")).toString(),
                     changes.isEmpty() ? QStringLiteral("nothing to change")
                                       : changes.size() == 1 ? QStringLiteral("1 change")
                                                             : QStringLiteral("%1 changes").arg(changes.size())));
        static const QHash<QString, QString> verbs{
            {QStringLiteral("toRemote"), QStringLiteral("upload")},
            {QStringLiteral("toLocal"), QStringLiteral("download")},
            {QStringLiteral("deletedRemote"), QStringLiteral("delete on the remote")},
            {QStringLiteral("deletedLocal"), QStringLiteral("delete here")},
        };
        for (const QJsonValue &value : changes) {
            const QJsonObject change = value.toObject();
            const QString group = change.value(QStringLiteral("group")).toString();
            const QString verb = group != u"replaced" ? verbs.value(group)
                : change.value(QStringLiteral("toRemote")).toBool() ? QStringLiteral("replace on the remote")
                                                                     : QStringLiteral("replace here");
            out(QStringLiteral("  %1  %2\n").arg(verb, -20).arg(change.value(QStringLiteral("path")).toString()));
        }
        if (!command.apply)
            out(QStringLiteral("Nothing was changed; `nimbrell review %1 --apply` does it.\n").arg(command.folders.first()));
    }
    if (!command.apply)
        return kOk;
    return follow(*ids, command.json ? stderr : stdout) ? kOk : kFailed;
}

// cancel, pause, resume, open and quit: only a running instance can.
int control(const CliCommand &command)
{
    const std::optional<QJsonObject> status = runningStatus();
    if (!status)
        return kNotRunning;
    QJsonObject arguments;
    const bool perFolder = (command.kind == Kind::pause || command.kind == Kind::resume) && !command.folders.isEmpty();
    if (perFolder) {
        const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
        if (!ids)
            return kUsage;
        arguments = syncRequest(command, *ids);
    }
    if (command.kind == Kind::cancel || command.kind == Kind::open) {
        const std::optional<QList<QUuid>> ids = chosenFolders(command, *status);
        if (!ids)
            return kUsage;
        if (command.kind == Kind::cancel)
            arguments = syncRequest(command, *ids);
        else if (!command.folders.isEmpty())
            arguments.insert(QStringLiteral("folder"), uuidString(ids->first()));
    }
    const std::optional<QJsonObject> reply = ask(commandName(command.kind), arguments);
    if (!reply) {
        say(QStringLiteral("the running instance did not answer"));
        return kFailed;
    }
    if (const QString error = errorOf(*reply); !error.isEmpty()) {
        say(error == u"no window" ? QStringLiteral("Nimbrell runs here without a window (nimbrell --headless)")
            : error == u"busy"    ? QStringLiteral("Nimbrell runs here only for `nimbrell sync --wait`, without a window")
                                  : error);
        return kFailed;
    }
    switch (command.kind) {
    case Kind::cancel: {
        const QJsonArray cancelled = reply->value(QStringLiteral("cancelled")).toArray();
        for (const CommandLine::NamedFolder &folder : namedFolders(*status)) {
            if (cancelled.contains(uuidString(folder.id)))
                out(QStringLiteral("Stopped %1\n").arg(folder.name));
        }
        if (cancelled.isEmpty())
            out(QStringLiteral("Nothing was syncing.\n"));
        break;
    }
    case Kind::pause:
    case Kind::resume:
        if (perFolder) {
            const QJsonArray changed = reply->value(QStringLiteral("folders")).toArray();
            for (const CommandLine::NamedFolder &folder : namedFolders(*status)) {
                if (changed.contains(uuidString(folder.id)))
                    out((command.kind == Kind::pause ? QStringLiteral("Paused %1\n") : QStringLiteral("Resumed %1\n")).arg(folder.name));
            }
            break;
        }
        out(reply->value(QStringLiteral("automaticSync")).toBool() ? QStringLiteral("Automatic sync is on.\n")
                                                                   : QStringLiteral("Automatic sync is off.\n"));
        break;
    case Kind::quit: {
        // Returns once the instance has gone, its syncs stopped.
        const qint64 pid = status->value(QStringLiteral("instance")).toObject().value(QStringLiteral("pid")).toInteger();
        // A zombie has gone too: the one who started it has yet to reap it.
        const auto gone = [pid] {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
            return pid <= 0 || !stat.open(QIODevice::ReadOnly) || stat.readAll().contains(") Z ");
        };
        QDeadlineTimer deadline(InstanceChannel::kTakeOverWait);
        for (int tries = 0; !gone() && !deadline.hasExpired(); ++tries) {
            if (tries == 10)
                say(QStringLiteral("waiting for the running syncs to stop…"));
            QThread::msleep(100);
        }
        if (!gone()) {
            say(QStringLiteral("Nimbrell is still quitting"));
            return kFailed;
        }
        break;
    }
    default:
        break;
    }
    return kOk;
}

} // namespace

int run(const CliCommand &command)
{
    switch (command.kind) {
    case Kind::status:
    case Kind::list:
    case Kind::remotes:
        return report(command);
    case Kind::sync:
        return sync(command);
    case Kind::review:
        return review(command);
    case Kind::remoteAdd:
    case Kind::remoteTest:
    case Kind::remoteRemove:
    case Kind::remoteTypes:
        return ConfigCommands::remotes(command);
    case Kind::folderAdd:
    case Kind::folderEdit:
    case Kind::folderRemove:
        return ConfigCommands::folders(command);
    case Kind::complete:
        return ConfigCommands::complete(command);
    default:
        return control(command);
    }
}

int runHeadless()
{
    InstanceChannel channel;
    if (!channel.tryLock()) {
        // Started (by systemd, say) while the window runs: take over when it quits.
        qCInfo(lcGeneral, "Another Nimbrell runs for this configuration; waiting for it to quit");
        UnixSignalNotifier quitSignals({SIGTERM, SIGINT, SIGHUP});
        QEventLoop waiting;
        QObject::connect(&quitSignals, &UnixSignalNotifier::received, &waiting, [&waiting] { waiting.exit(1); });
        QTimer retry;
        QObject::connect(&retry, &QTimer::timeout, &waiting, [&] {
            if (channel.tryLock())
                waiting.exit(0);
        });
        retry.start(1s);
        if (waiting.exec() != 0)
            return kOk;
    }
    if (!hasRclone())
        return kFailed;
    LocalInstance local(SyncService::Mode::headless, true);
    SyncService &service = local.service();
    local.serve(channel);
    const SyncManager &manager = local.manager();
    qCInfo(lcGeneral, "Nimbrell %s running headless: %lld sync folder(s), automatic sync %s, every %lld minutes",
           NIMBRELL_VERSION, static_cast<long long>(manager.folders().size()),
           manager.isGlobalSyncEnabled() ? "on" : "off", static_cast<long long>(manager.globalSyncIntervalMinutes()));
    // Failures, recoveries and conflicts reach the desktop; a click opens the
    // window, which takes over from this service.
    DesktopNotifier notifier;
    QObject::connect(&notifier, &DesktopNotifier::activated, &service,
                     [] { QProcess::startDetached(InstallLayout::launcherPath(), {}); });
    ProblemNotifier problems(local.manager(), local.settings(), notifier);
    local.engine().getVersion(&service, [](const RcloneResult<QString> &version) {
        qCInfo(lcGeneral, "Using %s", qUtf8Printable(version.ok() ? version.value() : version.error().description));
    });
    return QCoreApplication::exec();
}

} // namespace CliRunner
