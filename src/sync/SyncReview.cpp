#include "sync/SyncReview.h"
#include "engine/Bisync.h"
#include "engine/OneWaySync.h"

#include "sync/RemovedFiles.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "platform/Background.h"
#include "sync/SyncManager.h"
#include "sync/SyncRun.h"

SyncReview::SyncReview(SyncManager &manager, RcloneEngine &engine, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_engine(engine)
{
}

SyncReview::~SyncReview()
{
    if (m_job)
        m_job->cancel(); // its rclone stops by itself; nothing waits for it here
    if (m_state == State::previewing)
        m_manager.runs().release(m_folderId);
}

QStringList SyncReview::extraArguments(Kind kind, bool dryRun)
{
    QStringList arguments;
    if (kind == Kind::resync)
        arguments << QStringLiteral("--resync-mode") << QStringLiteral("newer");
    else
        arguments << QStringLiteral("--force");
    if (dryRun)
        arguments << QStringLiteral("--dry-run");
    return arguments;
}

std::optional<SyncReview::Kind> SyncReview::kindFor(SyncProblem::Action action)
{
    switch (action) {
    case SyncProblem::Action::reviewResync: return Kind::resync;
    case SyncProblem::Action::reviewDeletions: return Kind::deletions;
    case SyncProblem::Action::reviewChanges: return Kind::changes;
    default: return std::nullopt;
    }
}

bool SyncReview::preview(const QUuid &folderId, const QUuid &targetId, Kind kind)
{
    if (m_state == State::previewing)
        return false;
    const std::optional<SyncFolder> folder = m_manager.folder(folderId);
    if (!folder || m_manager.runs().isRunning(folderId))
        return false;
    const auto target = std::find_if(folder->remoteTargets.begin(), folder->remoteTargets.end(),
                                     [&targetId](const RemoteTarget &t) { return t.id == targetId; });
    if (target == folder->remoteTargets.end())
        return false;
    m_folderId = folderId;
    m_targetId = targetId;
    m_kind = kind;
    m_output.clear();
    m_reportToRemote.reset();
    m_changes.clear();
    m_error.clear();
    m_state = State::previewing;
    m_manager.runs().hold(folderId);
    // The same view of the pair as the run that applies it.
    SyncRun probe(m_engine, folderId);
    m_manager.configureRun(probe);
    probe.setFolder(*folder);
    const FolderSelection selection = m_manager.selection(folderId);
    const auto planned = [this, localPath = folder->localPath](const RcloneStatus &result) {
        m_job = nullptr;
        if (result.isCancelled())
            return finish(State::idle);
        if (!result.ok()) {
            m_error = result.error().description;
            return finish(State::failed);
        }
        // Reading the plan takes a pattern match per line and a look on disk
        // per copy to this computer: off the main thread, for one of any size.
        const int reading = ++m_reading;
        Background::run(
            this,
            [output = std::exchange(m_output, {}), toRemote = m_reportToRemote, localPath] {
                BisyncPlan plan;
                for (const QString &line : output)
                    toRemote ? plan.addReportLine(line, *toRemote) : plan.addLine(line);
                return plan.changes(localPath);
            },
            [this, reading](QList<BisyncPlan::Change> changes) {
                if (reading != m_reading || m_state != State::previewing)
                    return; // cancelled meanwhile, maybe previewed anew
                m_changes = std::move(changes);
                finish(State::ready);
            });
    };
    if (selection.direction != SyncDirection::twoWay) {
        OneWayRequest request = probe.oneWayRequest(folder->localPath, *target);
        request.planOnly = true;
        m_reportToRemote = request.toRemote;
        m_job = m_engine.oneWaySync(request, this, {}, planned);
        connect(m_job, &RcloneJob::lineRead, this, [this](const QString &line) { m_output.append(line); });
    } else {
        BisyncRequest request{folder->localPath, target->remoteName + u':' + target->remotePath, folder->filters,
                              folder->conflictResolution, kind == Kind::resync || !target->hasResynced,
                              extraArguments(kind, true), {},
                              RemovedFiles::arguments(folderId, *target, m_manager.preferences().keepsRemoved(folderId),
                                                      m_manager.preferences().hasKept(folderId), QDateTime::currentDateTimeUtc())};
        request.selectionArguments = selection.filterArguments();
        request.followsSelectionChange = m_manager.preferences().followsSelectionChange(folderId, targetId);
        m_job = m_engine.bisync(request, this, {}, planned);
        connect(m_job, &RcloneJob::lineRead, this, [this](const QString &line) { m_output.append(line); });
    }
    Q_EMIT stateChanged();
    return true;
}

void SyncReview::cancel()
{
    if (m_job)
        return m_job->cancel();
    finish(State::idle); // a plan still being read is dropped
}

bool SyncReview::apply()
{
    if (m_state != State::ready)
        return false;
    // A resync replaces the older of two differing copies: the replaced one is kept.
    // A resync keeps what it replaces, whatever the folder's switch says.
    const TargetOverride override{m_targetId, m_kind == Kind::resync, extraArguments(m_kind, false)};
    if (!m_manager.syncFolder(m_folderId, override))
        return false;
    finish(State::applied);
    return true;
}

void SyncReview::finish(State state)
{
    if (m_state == State::previewing)
        m_manager.runs().release(m_folderId);
    m_state = state;
    Q_EMIT stateChanged();
}
