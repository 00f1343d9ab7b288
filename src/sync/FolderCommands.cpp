#include "sync/FolderCommands.h"
#include "engine/FilterCheck.h"
#include "engine/RemoteCommands.h"

#include "engine/RcloneEngine.h"
#include "model/UuidString.h"
#include "platform/BookmarkService.h"
#include "sync/FolderPreferences.h"
#include "sync/SyncManager.h"

#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

namespace {

const QString kError = QStringLiteral("error");

QJsonObject refusal(const QString &why, bool usage = true)
{
    QJsonObject reply{{kError, why}};
    if (usage)
        reply.insert(QStringLiteral("usage"), true);
    return reply;
}

QString quoted(const QString &text)
{
    return QStringLiteral("“%1”").arg(text);
}

// "remote:path" to a target; nothing when it is not one.
std::optional<RemoteTarget> targetOf(const QString &spec)
{
    const qsizetype colon = spec.indexOf(u':');
    if (colon <= 0 || colon + 1 >= spec.size())
        return std::nullopt;
    RemoteTarget target;
    target.remoteName = spec.first(colon);
    target.remotePath = spec.mid(colon + 1);
    return target;
}

QString specOf(const RemoteTarget &target)
{
    return target.remoteName + u':' + target.remotePath;
}

QStringList strings(const QJsonValue &value)
{
    QStringList list;
    for (const QJsonValue &entry : value.toArray())
        list.append(entry.toString());
    return list;
}

QString localFolderProblem(const QString &path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isAbsolute())
        return QStringLiteral("the local folder must be given as an absolute path");
    if (!info.exists())
        return QStringLiteral("%1 does not exist").arg(quoted(path));
    if (!info.isDir())
        return QStringLiteral("%1 is a file, not a folder").arg(quoted(path));
    return {};
}

// The changes a request makes to a folder's settings; a refusal, or "".
QString apply(const QJsonObject &request, SyncFolder &folder)
{
    if (const QJsonValue name = request.value(QStringLiteral("name")); name.isString()) {
        if (name.toString().trimmed().isEmpty())
            return QStringLiteral("a folder needs a name");
        folder.name = name.toString();
    }
    if (const QJsonValue path = request.value(QStringLiteral("localPath")); path.isString()) {
        if (const QString problem = localFolderProblem(path.toString()); !problem.isEmpty())
            return problem;
        folder.localPath = path.toString();
        folder.localPathBookmarkData = BookmarkService::create(folder.localPath);
    }
    if (const QJsonValue conflict = request.value(QStringLiteral("conflict")); conflict.isString()) {
        const std::optional<ConflictResolution> policy = conflictResolutionFromRawValue(conflict.toString());
        if (!policy)
            return QStringLiteral("no conflict policy named %1").arg(quoted(conflict.toString()));
        folder.conflictResolution = *policy;
    }
    const std::pair<const char *, bool SyncFilterOptions::*> switches[] = {
        {"excludeGit", &SyncFilterOptions::excludeGit},
        {"excludeHidden", &SyncFilterOptions::excludeHidden},
        {"excludeNodeModules", &SyncFilterOptions::excludeNodeModules},
    };
    for (const auto &[key, member] : switches) {
        if (const QJsonValue value = request.value(QLatin1String(key)); value.isBool())
            folder.filters.*member = value.toBool();
    }
    for (const QString &spec : strings(request.value(QStringLiteral("removeTargets")))) {
        const qsizetype removed = folder.remoteTargets.removeIf(
            [&spec](const RemoteTarget &target) { return specOf(target) == spec; });
        if (removed == 0)
            return QStringLiteral("%1 does not sync with %2").arg(quoted(folder.name), quoted(spec));
    }
    for (const QString &spec : strings(request.value(QStringLiteral("targets")))
             + strings(request.value(QStringLiteral("addTargets")))) {
        const std::optional<RemoteTarget> target = targetOf(spec);
        if (!target)
            return QStringLiteral("%1 is not a remote location: write it as REMOTE:PATH").arg(quoted(spec));
        const bool present = std::any_of(folder.remoteTargets.begin(), folder.remoteTargets.end(),
                                         [&spec](const RemoteTarget &t) { return specOf(t) == spec; });
        if (present)
            return QStringLiteral("%1 syncs with %2 already").arg(quoted(folder.name), quoted(spec));
        folder.remoteTargets.append(*target);
    }
    return {};
}

// The changes a request makes to what of a folder syncs; a refusal, or "".
QString applySelection(const QJsonObject &request, const QString &folderName, FolderSelection &selection)
{
    for (const QString &directory : strings(request.value(QStringLiteral("skip")))) {
        if (selection.isSkipped(directory))
            continue;
        // What it holds goes with it.
        selection.skipped.removeIf([&](const QString &inside) { return inside.startsWith(directory + u'/'); });
        selection.skipped.append(directory);
    }
    for (const QString &directory : strings(request.value(QStringLiteral("unskip")))) {
        if (selection.skipped.removeAll(directory) > 0)
            continue;
        const auto outer = std::find_if(selection.skipped.begin(), selection.skipped.end(),
                                        [&](const QString &skipped) { return directory.startsWith(skipped + u'/'); });
        if (outer != selection.skipped.end())
            return QStringLiteral("%1 lies in the skipped %2: unskip that instead").arg(quoted(directory), quoted(*outer));
        return QStringLiteral("%1 skips no directory %2").arg(quoted(folderName), quoted(directory));
    }
    for (const QString &pattern : strings(request.value(QStringLiteral("ignore")))) {
        if (!selection.ignore.contains(pattern))
            selection.ignore.append(pattern);
    }
    for (const QString &pattern : strings(request.value(QStringLiteral("unignore")))) {
        if (selection.ignore.removeAll(pattern) == 0)
            return QStringLiteral("%1 has no ignore rule %2").arg(quoted(folderName), quoted(pattern));
    }
    if (const QJsonValue direction = request.value(QStringLiteral("direction")); direction.isString()) {
        const std::optional<SyncDirection> chosen = FolderSelection::directionFromName(direction.toString());
        if (!chosen)
            return QStringLiteral("no direction named %1").arg(quoted(direction.toString()));
        selection.direction = *chosen;
    }
    return {};
}

} // namespace

FolderCommands::FolderCommands(SyncManager &manager, RcloneEngine &engine, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_engine(engine)
{
}

const QStringList &FolderCommands::commands()
{
    static const QStringList names{QStringLiteral("addFolder"), QStringLiteral("editFolder"),
                                   QStringLiteral("removeFolder"), QStringLiteral("removeRemote")};
    return names;
}

void FolderCommands::handle(const QString &command, const QJsonObject &request, const Reply &reply)
{
    if (command == u"removeRemote")
        return removeRemote(request, reply);
    if (command == u"removeFolder") {
        const QUuid id = QUuid::fromString(request.value(QStringLiteral("folder")).toString());
        if (!m_manager.folder(id))
            return reply(refusal(QStringLiteral("no such folder")));
        m_manager.deleteFolder(id);
        return reply({});
    }
    if (command == u"addFolder" || command == u"editFolder")
        return changeFolder(request, reply);
    reply(refusal(QStringLiteral("unknown command %1").arg(quoted(command))));
}

void FolderCommands::changeFolder(const QJsonObject &request, const Reply &reply)
{
    const bool adding = !request.contains(QStringLiteral("folder"));
    std::optional<SyncFolder> folder;
    if (adding) {
        if (!request.value(QStringLiteral("localPath")).isString())
            return reply(refusal(QStringLiteral("a folder needs a local folder")));
        folder = SyncFolder(); // a fresh id, idle, nothing run yet, the default exclusions
    } else {
        folder = m_manager.folder(QUuid::fromString(request.value(QStringLiteral("folder")).toString()));
        if (!folder)
            return reply(refusal(QStringLiteral("no such folder")));
    }
    if (const QString problem = apply(request, *folder); !problem.isEmpty())
        return reply(refusal(problem));
    FolderSelection selection = adding ? FolderSelection() : m_manager.selection(folder->id);
    if (const QString problem = applySelection(request, folder->name, selection); !problem.isEmpty())
        return reply(refusal(problem));
    // New ignore rules are rclone's to judge before they are kept.
    const QStringList patterns = strings(request.value(QStringLiteral("ignore")));
    if (patterns.isEmpty())
        return saveFolder(request, adding, *folder, selection, reply);
    FilterCheck::check(m_engine, patterns, this,
                       [this, request, adding, folder = *folder, selection, reply](const RcloneResult<QList<FilterCheck::Refused>> &checked) {
                           if (!checked.ok())
                               return reply(refusal(checked.error().description, false));
                           if (!checked.value().isEmpty()) {
                               const FilterCheck::Refused &refused = checked.value().first();
                               return reply(refusal(QStringLiteral("rclone refuses the pattern %1: %2")
                                                        .arg(quoted(refused.pattern), refused.reason)));
                           }
                           saveFolder(request, adding, folder, selection, reply);
                       });
}

void FolderCommands::saveFolder(const QJsonObject &request, bool adding, const SyncFolder &folder,
                                const FolderSelection &selection, const Reply &reply)
{
    // Every remote a new target names must be one of rclone's.
    QStringList named;
    for (const QString &spec : strings(request.value(QStringLiteral("targets")))
             + strings(request.value(QStringLiteral("addTargets"))))
        named.append(targetOf(spec)->remoteName);
    const QJsonValue keepRemoved = request.value(QStringLiteral("keepRemoved"));
    RemoteCommands::listRemotes(m_engine, this, [this, adding, folder, named, keepRemoved, selection, reply](const RcloneResult<QList<CloudRemote>> &remotes) {
        if (!remotes.ok())
            return reply(refusal(remotes.error().description, false));
        for (const QString &name : named) {
            const bool known = std::any_of(remotes.value().begin(), remotes.value().end(),
                                           [&name](const CloudRemote &remote) { return remote.name == name; });
            if (!known)
                return reply(refusal(QStringLiteral("there is no remote named %1 (see `nimbrell remotes`)").arg(quoted(name))));
        }
        if (adding) {
            m_manager.addFolder(folder);
            // As the editor leaves a new folder: not paused, keeping nothing.
            m_manager.automatic().setPaused(folder.id, false);
            m_manager.preferences().setKeepsRemoved(folder.id, false);
            m_manager.preferences().setKeepDays(folder.id, FolderPreferences::kDefaultKeepDays);
        } else if (!m_manager.folder(folder.id)) {
            return reply(refusal(QStringLiteral("the folder was removed meanwhile"), false));
        } else {
            m_manager.updateFolder(folder);
        }
        if (keepRemoved.isBool())
            m_manager.preferences().setKeepsRemoved(folder.id, keepRemoved.toBool());
        m_manager.setSelection(folder.id, selection);
        QJsonObject answer{{QStringLiteral("id"), uuidString(folder.id)}};
        if (!m_manager.repository().problem().isEmpty())
            answer.insert(kError, m_manager.repository().problem());
        reply(answer);
    });
}

void FolderCommands::removeRemote(const QJsonObject &request, const Reply &reply)
{
    const QString name = request.value(QStringLiteral("name")).toString();
    const bool force = request.value(QStringLiteral("force")).toBool();
    RemoteCommands::listRemotes(m_engine, this, [this, name, force, reply](const RcloneResult<QList<CloudRemote>> &remotes) {
        if (!remotes.ok())
            return reply(refusal(remotes.error().description, false));
        const bool known = std::any_of(remotes.value().begin(), remotes.value().end(),
                                       [&name](const CloudRemote &remote) { return remote.name == name; });
        if (!known)
            return reply(refusal(QStringLiteral("there is no remote named %1").arg(quoted(name))));
        const QList<SyncFolder> dependent = dependentFolders(m_manager.folders(), name);
        const QList<SyncFolder> blocking = blockingFolders(dependent);
        QStringList names;
        for (const SyncFolder &folder : blocking.isEmpty() ? dependent : blocking)
            names.append(quoted(folder.name));
        if (!blocking.isEmpty())
            return reply(refusal(QStringLiteral("%1 is the only target of %2: remove those folders or give them "
                                                "another target first")
                                     .arg(quoted(name), names.join(QStringLiteral(", "))),
                                 false));
        if (!dependent.isEmpty() && !force)
            return reply(refusal(QStringLiteral("%1 is a target of %2; --force takes it out of them")
                                     .arg(quoted(name), names.join(QStringLiteral(", "))),
                                 false));
        m_engine.run({QStringLiteral("config"), QStringLiteral("delete"), name}, this,
                     [this, name, reply](const RcloneResult<QString> &deleted) {
                         if (!deleted.ok())
                             return reply(refusal(QStringLiteral("Failed to delete remote: ") + deleted.error().description, false));
                         QJsonArray left;
                         for (const SyncFolder &folder : dependentFolders(m_manager.folders(), name))
                             left.append(folder.name);
                         takeOutOfFolders(m_manager, name);
                         reply({{QStringLiteral("folders"), left}});
                     });
    });
}

QList<SyncFolder> FolderCommands::dependentFolders(const QList<SyncFolder> &folders, const QString &remoteName)
{
    QList<SyncFolder> dependent;
    for (const SyncFolder &folder : folders) {
        if (std::any_of(folder.remoteTargets.begin(), folder.remoteTargets.end(),
                        [&](const RemoteTarget &target) { return target.remoteName == remoteName; }))
            dependent.append(folder);
    }
    return dependent;
}

QList<SyncFolder> FolderCommands::blockingFolders(const QList<SyncFolder> &dependent)
{
    QList<SyncFolder> blocking;
    for (const SyncFolder &folder : dependent) {
        if (folder.remoteTargets.size() == 1)
            blocking.append(folder);
    }
    return blocking;
}

void FolderCommands::takeOutOfFolders(SyncManager &manager, const QString &remoteName)
{
    for (SyncFolder folder : dependentFolders(manager.folders(), remoteName)) {
        folder.remoteTargets.removeIf([&](const RemoteTarget &target) { return target.remoteName == remoteName; });
        manager.updateFolder(folder);
    }
}
