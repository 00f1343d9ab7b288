#include "sync/FileStates.h"

#include "engine/Bisync.h"
#include "model/FilterRules.h"
#include "model/UuidString.h"
#include "platform/StallProbe.h"
#include "sync/FolderWatcher.h"
#include "sync/RemovedFiles.h"
#include "sync/FolderLocation.h"
#include "sync/SyncManager.h"

#include <QFileInfo>
#include <QHash>
#include <QJsonArray>

#include <algorithm>

namespace FileStates {

namespace {

bool holds(const QString &path, bool isDirectory, const QString &candidate)
{
    return candidate == path || (isDirectory && (path.isEmpty() || candidate.startsWith(path + u'/')));
}

State stateOf(const SyncManager &manager, const FolderLocation &location, const FilterRules &exclusions)
{
    const SyncFolder &folder = location.folder;
    const QString &path = location.relative;
    const bool isDirectory = QFileInfo(folder.localPath + (path.isEmpty() ? QString() : u'/' + path)).isDir();
    if (!path.isEmpty() && exclusions.excludes(path, isDirectory))
        return State::excluded;
    if (folder.status == SyncStatus::error)
        return State::error;
    for (const ActivityRecord &conflict : manager.conflicts().of(folder.id)) {
        if (holds(path, isDirectory, conflict.path) || holds(path, isDirectory, conflict.renamed))
            return State::conflict;
    }
    // Before the folder's first run, everything in it waits for one.
    const bool neverSynced = !folder.lastSync;
    const FolderWatcher *watcher = manager.automatic().watcher(folder.id);
    if (manager.runs().isRunning(folder.id) && (neverSynced || (watcher && watcher->isCarried(path, isDirectory))))
        return State::syncing;
    if (manager.automatic().isPaused(folder.id))
        return State::paused;
    if (neverSynced || (watcher && watcher->isPending(path, isDirectory)))
        return State::pending;
    return State::synced;
}

} // namespace

QString name(State state)
{
    switch (state) {
    case State::synced: return QStringLiteral("synced");
    case State::pending: return QStringLiteral("pending");
    case State::syncing: return QStringLiteral("syncing");
    case State::error: return QStringLiteral("error");
    case State::conflict: return QStringLiteral("conflict");
    case State::excluded: return QStringLiteral("excluded");
    case State::paused: return QStringLiteral("paused");
    }
    return {};
}

QList<Answer> of(const SyncManager &manager, const QStringList &paths)
{
    QList<Answer> answers;
    answers.reserve(paths.size());
    QHash<QUuid, FilterRules> exclusions; // read once per folder
    const FolderLocator locator(manager.folders());
    for (const QString &path : paths) {
        const std::optional<FolderLocation> location = locator.locate(path);
        if (!location) {
            answers.append({path, std::nullopt, {}});
            continue;
        }
        const QUuid &id = location->folder.id;
        if (!exclusions.contains(id)) {
            // The kept files' hidden directory is the runs' own, never the folder's.
            exclusions.insert(id, FilterRules::fromArguments(
                                      Bisync::switchArguments(location->folder.filters)
                                      + manager.selection(id).filterArguments()
                                      + QStringList{QStringLiteral("--exclude"), u'/' + RemovedFiles::kDirectoryName + QStringLiteral("/**")}));
        }
        answers.append({path, stateOf(manager, *location, exclusions.value(id)), id});
    }
    return answers;
}

namespace {

QStringList pathsOf(const QJsonObject &request, const QString &key = QStringLiteral("paths"))
{
    QStringList paths;
    for (const QJsonValue &path : request.value(key).toArray())
        paths.append(path.toString());
    return paths;
}

QJsonObject fileOf(const Answer &answer)
{
    return {{QStringLiteral("path"), answer.path},
            {QStringLiteral("state"), answer.state ? QJsonValue(name(*answer.state)) : QJsonValue()},
            {QStringLiteral("folder"), answer.state ? QJsonValue(uuidString(answer.folderId)) : QJsonValue()}};
}

} // namespace

QJsonObject answer(const SyncManager &manager, const QJsonObject &request)
{
    QJsonArray files;
    for (const Answer &answer : of(manager, pathsOf(request)))
        files.append(fileOf(answer));
    return {{QStringLiteral("files"), files}};
}

Subscription::Subscription(const SyncManager &manager, const QJsonObject &request, Status status, Send send,
                           QObject *connection)
    : QObject(connection)
    , m_manager(manager)
    , m_status(std::move(status))
    , m_wantsRoots(request.value(QStringLiteral("roots")).toBool())
    , m_send(std::move(send))
{
    for (const QString &path : pathsOf(request)) {
        if (!m_watched.contains(path)) {
            m_watched.insert(path);
            m_paths.append(path);
        }
    }
    m_coalesce.setSingleShot(true);
    connect(&m_coalesce, &QTimer::timeout, this, &Subscription::look);
    const auto changed = [this] {
        m_anyChanged = true;
        lookSoon();
    };
    const FolderRepository &folders = m_manager.repository();
    for (const auto signal : {&FolderRepository::folderInserted, &FolderRepository::folderChanged, &FolderRepository::folderRemoved}) {
        connect(&folders, signal, this, [this, changed] {
            m_foldersChanged = true;
            changed();
        });
    }
    connect(&m_manager.conflicts(), &OpenConflicts::changed, this, changed);
    connect(&m_manager.automatic(), &AutomaticSync::pendingChanged, this, changed);
    look();
}

void Subscription::read(const QJsonObject &line)
{
    for (const QString &path : pathsOf(line, QStringLiteral("watch"))) {
        if (!m_watched.contains(path)) {
            m_watched.insert(path);
            m_paths.append(path);
            m_added.append(path);
        }
    }
    const QStringList dropped = pathsOf(line, QStringLiteral("unwatch"));
    if (!dropped.isEmpty()) {
        for (const QString &path : dropped) {
            m_watched.remove(path);
            m_sent.remove(path);
        }
        const auto gone = [this](const QString &path) { return !m_watched.contains(path); };
        m_paths.removeIf(gone);
        m_added.removeIf(gone);
    }
    if (!m_added.isEmpty())
        lookSoon();
}

void Subscription::lookSoon()
{
    // At most one message per kMinInterval: the first change of a quiet spell
    // goes out on the next turn (a run's end reaches `sync --wait` at once),
    // the changes after it together, once the interval has passed.
    if (!m_coalesce.isActive())
        m_coalesce.start(std::max<qint64>(0, kMinIntervalMs - m_lastLook.elapsed()));
}

QJsonArray Subscription::roots() const
{
    QJsonArray roots;
    for (const SyncFolder &folder : m_manager.folders()) {
        roots.append(QJsonObject{{QStringLiteral("id"), uuidString(folder.id)},
                                 {QStringLiteral("path"), folder.localPath},
                                 {QStringLiteral("name"), folder.name}});
    }
    return roots;
}

void Subscription::look()
{
    StallProbe::Step step("file states of a subscription");
    m_lastLook.start();
    // Only the paths just added, unless something may have changed the
    // others' states too.
    QJsonArray changed;
    for (const Answer &answer : of(m_manager, std::exchange(m_anyChanged, false) ? m_paths : m_added)) {
        const QString state = answer.state ? name(*answer.state) : QString();
        const auto sent = m_sent.constFind(answer.path);
        if (sent != m_sent.cend() && *sent == state)
            continue;
        m_sent.insert(answer.path, state);
        changed.append(fileOf(answer));
    }
    m_added.clear();
    QJsonObject message{{QStringLiteral("files"), changed}};
    if (std::exchange(m_foldersChanged, false)) {
        if (m_status)
            message.insert(QStringLiteral("status"), m_status());
        if (m_wantsRoots) {
            QJsonArray roots = this->roots();
            if (roots != m_roots) {
                m_roots = roots;
                message.insert(QStringLiteral("roots"), roots);
            }
        }
    }
    // The first message answers with every path, even when there is none.
    if (std::exchange(m_first, false) || message.size() > 1 || !changed.isEmpty())
        m_send(message);
}

} // namespace FileStates
