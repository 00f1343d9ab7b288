#include "sync/SyncService.h"
#include "sync/FileStates.h"
#include "engine/RemoteCommands.h"

#include "engine/RcloneEngine.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/InstanceChannel.h"
#include "platform/SessionInhibitor.h"
#include "platform/UnixSignalNotifier.h"
#include "sync/FolderLocation.h"
#include "sync/FolderReport.h"
#include "sync/OpenConflicts.h"
#include "sync/SyncManager.h"
#include "sync/SyncProblem.h"
#include "sync/SyncReview.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QPointer>
#include <QTimer>

#include <csignal>

namespace {

const QString kFolders = QStringLiteral("folders");
const QString kError = QStringLiteral("error");

// The folders a request names: every folder with targets for "all",
// otherwise the ids listed (unknown ones are kept, so the reply can say so).
QList<QUuid> requestedFolders(const QJsonObject &request, const SyncManager &manager)
{
    QList<QUuid> ids;
    if (request.value(QStringLiteral("all")).toBool()) {
        // As "sync all" does: a folder with nothing to sync to, or paused,
        // is no failure.
        for (const SyncFolder &folder : manager.folders()) {
            if (!folder.remoteTargets.isEmpty() && !manager.automatic().isPaused(folder.id))
                ids.append(folder.id);
        }
        return ids;
    }
    for (const QJsonValue &id : request.value(kFolders).toArray())
        ids.append(QUuid::fromString(id.toString()));
    return ids;
}

QString groupName(BisyncPlan::Group group)
{
    switch (group) {
    case BisyncPlan::Group::toRemote: return QStringLiteral("toRemote");
    case BisyncPlan::Group::toLocal: return QStringLiteral("toLocal");
    case BisyncPlan::Group::deletedRemote: return QStringLiteral("deletedRemote");
    case BisyncPlan::Group::deletedLocal: return QStringLiteral("deletedLocal");
    case BisyncPlan::Group::replaced: return QStringLiteral("replaced");
    }
    return {};
}

QString modeName(SyncService::Mode mode)
{
    switch (mode) {
    case SyncService::Mode::window:
        return QStringLiteral("window");
    case SyncService::Mode::headless:
        return QStringLiteral("headless");
    case SyncService::Mode::once:
        return QStringLiteral("once");
    case SyncService::Mode::offline:
        break;
    }
    return {};
}

} // namespace

SyncService::SyncService(SyncManager &manager, RcloneEngine &engine, Mode mode, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_engine(engine)
    , m_mode(mode)
    , m_folderCommands(manager, engine)
    , m_shareLinks(manager, engine)
{
}

void SyncService::serve(InstanceChannel &channel)
{
    channel.setHandler(QStringLiteral("status"), [this](const QJsonObject &) { return statusReport(); });
    channel.setHandler(QStringLiteral("list"), [this](const QJsonObject &) { return listReport(); });
    channel.setHandler(QStringLiteral("remotes"), [this](const QJsonObject &, const InstanceChannel::Reply &reply) {
        RemoteCommands::listRemotes(m_engine, this, [reply](const RcloneResult<QList<CloudRemote>> &result) {
            if (!result.ok())
                return reply({{kError, result.error().description}});
            QJsonArray remotes;
            for (const CloudRemote &remote : result.value())
                remotes.append(FolderReport::remote(remote));
            reply({{QStringLiteral("remotes"), remotes}});
        });
    });
    channel.setHandler(QStringLiteral("sync"), [this](const QJsonObject &request) {
        QJsonArray started;
        QJsonArray notStarted;
        for (const QUuid &id : requestedFolders(request, m_manager)) {
            const std::optional<SyncFolder> folder = m_manager.folder(id);
            if (m_manager.syncFolder(id, SyncTrigger::user)) {
                started.append(uuidString(id));
                continue;
            }
            const QString reason = !folder                        ? QStringLiteral("no such folder")
                : folder->remoteTargets.isEmpty()                 ? QStringLiteral("it has no remote targets")
                : m_isQuitting                                    ? QStringLiteral("Nimbrell is quitting")
                                                                  : QStringLiteral("syncs are stopped for sleep");
            notStarted.append(QJsonObject{{QStringLiteral("id"), uuidString(id)}, {QStringLiteral("reason"), reason}});
        }
        return QJsonObject{{QStringLiteral("started"), started}, {QStringLiteral("notStarted"), notStarted}};
    });
    channel.setHandler(QStringLiteral("cancel"), [this](const QJsonObject &request) {
        QJsonArray cancelled;
        for (const QUuid &id : requestedFolders(request, m_manager)) {
            if (m_manager.runs().isRunning(id))
                cancelled.append(uuidString(id));
            m_manager.cancelSync(id);
        }
        return QJsonObject{{QStringLiteral("cancelled"), cancelled}};
    });
    // Named folders are paused or resumed each; without any, automatic sync
    // as a whole is turned off or on.
    for (const bool enable : {false, true}) {
        channel.setHandler(enable ? QStringLiteral("resume") : QStringLiteral("pause"), [this, enable](const QJsonObject &request) {
            if (request.contains(kFolders)) {
                QJsonArray changed;
                for (const QUuid &id : requestedFolders(request, m_manager)) {
                    if (m_manager.folder(id)) {
                        m_manager.automatic().setPaused(id, !enable);
                        changed.append(uuidString(id));
                    }
                }
                return QJsonObject{{kFolders, changed}};
            }
            if (m_manager.automatic().isGlobalSyncEnabled() != enable)
                m_manager.automatic().setGlobalSyncEnabled(enable);
            return QJsonObject{{QStringLiteral("automaticSync"), enable}};
        });
    }
    for (const QString &command : FolderCommands::commands()) {
        channel.setHandler(command, [this, command](const QJsonObject &request, const InstanceChannel::Reply &reply) {
            m_folderCommands.handle(command, request, [this, command, reply](const QJsonObject &answer) {
                if (command == u"removeRemote" && !answer.contains(kError))
                    Q_EMIT remotesChanged();
                reply(answer);
            });
        });
    }
    channel.setHandler(QStringLiteral("remotesChanged"), [this](const QJsonObject &) {
        Q_EMIT remotesChanged();
        return QJsonObject();
    });
    channel.setHandler(QStringLiteral("fileStatus"),
                       [this](const QJsonObject &request) { return FileStates::answer(m_manager, request); });
    channel.setStreamHandler(QStringLiteral("subscribe"),
                             [this](const QJsonObject &request, const InstanceChannel::Reply &send, QObject *connection) {
                                 FileStates::Subscription::Status status;
                                 if (request.value(QStringLiteral("status")).toBool())
                                     status = [this] { return statusReport(); };
                                 auto *subscription = new FileStates::Subscription(m_manager, request, status, send, connection);
                                 return [subscription = QPointer(subscription)](const QJsonObject &line) {
                                     if (subscription)
                                         subscription->read(line);
                                 };
                             });
    channel.setHandler(QStringLiteral("share"), [this](const QJsonObject &request, const InstanceChannel::Reply &reply) {
        m_shareLinks.handle(request, reply);
    });
    channel.setHandler(QStringLiteral("review"), [this](const QJsonObject &request, const InstanceChannel::Reply &reply) {
        review(request, reply);
    });
    channel.setHandler(QStringLiteral("resolve"), [this](const QJsonObject &request, const InstanceChannel::Reply &reply) {
        resolve(request, reply);
    });
    channel.setHandler(QStringLiteral("quit"), [this](const QJsonObject &) {
        // After the reply has gone out.
        QTimer::singleShot(0, this, &SyncService::quitRequested);
        return QJsonObject();
    });
    // A sync --wait of the command line that runs by itself: a start waits for it.
    const QString windowless = m_mode == Mode::once ? QStringLiteral("busy") : QStringLiteral("no window");
    for (const QString &command : {QStringLiteral("raise"), QStringLiteral("open")}) {
        channel.setHandler(command, [this, windowless](const QJsonObject &) {
            return QJsonObject{{kError, m_isQuitting ? QStringLiteral("quitting") : windowless}};
        });
    }
}

// {"path": one copy of an open conflict, "choice": "keepThis" | "keepBoth"}:
// keeps that copy under the original name (the other goes to the trash), or
// both, the renamed one under a name a person can read.
void SyncService::resolve(const QJsonObject &request, const std::function<void(const QJsonObject &)> &reply)
{
    const QString path = request.value(QStringLiteral("path")).toString();
    const QString choice = request.value(QStringLiteral("choice")).toString();
    if (choice != u"keepThis" && choice != u"keepBoth")
        return reply({{kError, QStringLiteral("the choice is keepThis or keepBoth")}});
    const std::optional<FolderLocation> location
        = QDir::isAbsolutePath(path) ? FolderLocation::of(m_manager.folders(), path) : std::nullopt;
    if (!location)
        return reply({{kError, QStringLiteral("%1 is not in a sync folder").arg(path)}});
    const QString &relative = location->relative;
    for (const ActivityRecord &conflict : m_manager.conflicts().of(location->folder.id)) {
        if (relative != conflict.path && relative != conflict.renamed)
            continue;
        const ConflictCopies::Choice settled = choice == u"keepBoth" ? ConflictCopies::Choice::keepBoth
            : relative == conflict.path                              ? ConflictCopies::Choice::keepOriginal
                                                                     : ConflictCopies::Choice::keepRenamed;
        m_manager.conflicts().settle(location->folder.id, {conflict.path, conflict.renamed}, settled, this,
                                     [reply](const QString &error) {
                                         reply(error.isEmpty() ? QJsonObject() : QJsonObject{{kError, error}});
                                     });
        return;
    }
    reply({{kError, QStringLiteral("%1 is not a copy of an open conflict").arg(path)}});
}

QJsonObject SyncService::statusReport() const
{
    QJsonArray folders;
    const QList<ActivityRecord> activity = m_manager.activityLog() ? m_manager.activityLog()->read() : QList<ActivityRecord>();
    for (const SyncFolder &folder : m_manager.folders()) {
        QJsonObject report = FolderReport::status(folder, m_manager.runs().isRunning(folder.id), m_manager.runs().isWaiting(folder.id),
                                                  m_manager.problems(folder.id),
                                                  FolderActivity::of(activity, folder.id, folder.localPath));
        report.insert(QStringLiteral("paused"), m_manager.automatic().isPaused(folder.id));
        folders.append(report);
    }
    const QJsonValue instance = m_mode == Mode::offline
        ? QJsonValue()
        : QJsonObject{{QStringLiteral("pid"), QCoreApplication::applicationPid()},
                      {QStringLiteral("mode"), modeName(m_mode)},
                      {QStringLiteral("quitting"), m_isQuitting}};
    return {
        {QStringLiteral("instance"), instance},
        {QStringLiteral("automaticSync"), m_manager.automatic().isGlobalSyncEnabled()},
        {QStringLiteral("intervalMinutes"), m_manager.automatic().globalSyncIntervalMinutes()},
        {kFolders, folders},
        // Why the folder list on disk is not the one shown, or null.
        {QStringLiteral("storeProblem"),
         m_manager.repository().problem().isEmpty() ? QJsonValue() : QJsonValue(m_manager.repository().problem())},
    };
}

void SyncService::review(const QJsonObject &request, const std::function<void(const QJsonObject &)> &reply)
{
    const QUuid id = QUuid::fromString(request.value(QStringLiteral("folder")).toString());
    const std::optional<SyncFolder> folder = m_manager.folder(id);
    if (!folder)
        return reply({{kError, QStringLiteral("no such folder")}});
    const QList<SyncProblem> problems = m_manager.problems(id);
    const auto problem = std::find_if(problems.begin(), problems.end(),
                                      [](const SyncProblem &p) { return SyncReview::kindFor(p.action()).has_value(); });
    if (problem == problems.end())
        return reply({{kError, QStringLiteral("%1's last run asks for no review").arg(folder->name)}});
    if (!m_review)
        m_review = new SyncReview(m_manager, m_engine, this);
    if (m_review->state() == SyncReview::State::previewing)
        return reply({{kError, QStringLiteral("another review is under way")}});
    const SyncReview::Kind kind = *SyncReview::kindFor(problem->action());
    if (!m_review->preview(id, problem->targetId, kind))
        return reply({{kError, QStringLiteral("%1 is syncing; review it when its run has ended").arg(folder->name)}});
    const bool apply = request.value(QStringLiteral("apply")).toBool();
    const QString location = problem->location;
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(m_review, &SyncReview::stateChanged, this, [this, connection, apply, location, reply, kind] {
        if (m_review->state() == SyncReview::State::previewing)
            return;
        disconnect(*connection);
        if (m_review->state() != SyncReview::State::ready)
            return reply({{kError, m_review->error().isEmpty() ? QStringLiteral("the review was stopped") : m_review->error()}});
        QJsonArray changes;
        for (const BisyncPlan::Change &change : m_review->changes())
            changes.append(QJsonObject{{QStringLiteral("group"), groupName(change.group)},
                                       {QStringLiteral("path"), change.path},
                                       {QStringLiteral("toRemote"), change.toRemote}});
        QJsonObject answer{{QStringLiteral("kind"), kind == SyncReview::Kind::resync      ? QStringLiteral("resync")
                                                    : kind == SyncReview::Kind::deletions ? QStringLiteral("deletions")
                                                                                          : QStringLiteral("changes")},
                           {QStringLiteral("target"), location},
                           {QStringLiteral("changes"), changes}};
        if (apply) {
            if (!m_review->apply())
                return reply({{kError, QStringLiteral("the reviewed run could not start")}});
            answer.insert(QStringLiteral("applied"), true);
        } else {
            m_review->cancel();
        }
        reply(answer);
    });
}

QJsonObject SyncService::listReport() const
{
    QJsonArray folders;
    for (const SyncFolder &folder : m_manager.folders()) {
        QJsonObject report = FolderReport::configuration(folder);
        report.insert(QStringLiteral("keepRemoved"), m_manager.preferences().keepsRemoved(folder.id));
        report.insert(QStringLiteral("keepDays"), m_manager.preferences().keepDays(folder.id));
        const FolderSelection selection = m_manager.selection(folder.id);
        report.insert(QStringLiteral("skipped"), QJsonArray::fromStringList(selection.skipped));
        report.insert(QStringLiteral("ignore"), QJsonArray::fromStringList(selection.ignore));
        report.insert(QStringLiteral("direction"), FolderSelection::directionName(selection.direction));
        folders.append(report);
    }
    return {{kFolders, folders}};
}

void SyncService::followSession()
{
    auto *quitSignals = new UnixSignalNotifier({SIGTERM, SIGINT, SIGHUP}, this);
    connect(quitSignals, &UnixSignalNotifier::received, this, [this](int signal) {
        qCInfo(lcGeneral, "Received signal %d: quitting", signal);
        Q_EMIT quitRequested();
    });
    auto *inhibitor = new SessionInhibitor(this);
    connect(&m_manager.runs(), &RunScheduler::activeChanged, inhibitor, &SessionInhibitor::setHeld);
    const auto systemGoesDown = [this](bool starting) {
        if (m_isQuitting)
            return;
        qCInfo(lcGeneral, "The system %s", starting ? "is about to sleep or shut down: stopping syncs" : "is back");
        if (starting)
            m_manager.suspendRuns();
        else
            m_manager.resumeRuns();
    };
    connect(inhibitor, &SessionInhibitor::prepareForSleep, this, systemGoesDown);
    connect(inhibitor, &SessionInhibitor::prepareForShutdown, this, systemGoesDown);
}

void SyncService::quit()
{
    if (std::exchange(m_isQuitting, true))
        return;
    qCInfo(lcGeneral, "Quitting: waiting for %d rclone call(s) to stop", m_engine.activeJobCount());
    // Folders go back to idle and are saved; no new run starts.
    m_manager.suspendRuns();
    m_engine.cancelAll();
    const auto finish = [this] {
        m_manager.repository().save();
        QCoreApplication::exit(0);
    };
    if (m_engine.activeJobCount() == 0)
        return finish();
    connect(&m_engine, &RcloneEngine::allJobsFinished, this, finish, Qt::SingleShotConnection);
}
