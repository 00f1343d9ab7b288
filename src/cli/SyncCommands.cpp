#include "cli/SyncCommands.h"

#include "cli/CliSupport.h"
#include "cli/LocalInstance.h"
#include "cli/SyncFollower.h"
#include "model/UuidString.h"
#include "platform/InstanceChannel.h"
#include "sync/FileStates.h"

#include <QCoreApplication>
#include <QJsonArray>

#include <cstdio>

using namespace std::chrono_literals;

namespace SyncCommands {
namespace {

using namespace CliSupport;

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
    // The same subscription a client of the channel gets, without the channel.
    QObject following;
    bool done = false;
    new FileStates::Subscription(local.manager(), {}, [&service] { return service.statusReport(); },
                                 [&](const QJsonObject &message) {
                                     if (!done && message.contains(QStringLiteral("status"))
                                         && follower.update(message.value(QStringLiteral("status")).toObject())) {
                                         done = true;
                                         service.quit();
                                     }
                                 },
                                 &following);
    if (!done)
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
    // The instance tells what changed as it changes: nothing is asked again.
    const bool followed = InstanceChannel::subscribe({{QStringLiteral("status"), true}}, [&](const QJsonObject &message) {
        return message.contains(QStringLiteral("status")) && follower.update(message.value(QStringLiteral("status")).toObject());
    });
    if (!followed)
        follower.abandon(QStringLiteral("Nimbrell quit before the sync ended"));
    return follower.succeeded();
}

} // namespace

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
    const std::optional<QJsonObject> reply = ask(QStringLiteral("sync"), folderArguments(command, *ids));
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

} // namespace SyncCommands
