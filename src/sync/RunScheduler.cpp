#include "sync/RunScheduler.h"

#include "sync/FolderRepository.h"
#include "sync/SyncRun.h"

#include <QThread>

#include <algorithm>

int defaultConcurrentSyncs()
{
    return std::clamp(QThread::idealThreadCount(), kMinConcurrentSyncs, kMaxConcurrentSyncs);
}

RunScheduler::RunScheduler(const FolderRepository &folders, int concurrent, QObject *parent)
    : QObject(parent)
    , m_folders(folders)
    , m_slots(std::max(1, concurrent))
{
}

bool RunScheduler::isWaiting(const QUuid &id) const
{
    const auto it = m_runs.find(id);
    return it != m_runs.end() && it->second->isWaiting();
}

QList<QUuid> RunScheduler::running() const
{
    QList<QUuid> ids;
    for (const auto &[id, run] : m_runs)
        ids.append(id);
    return ids;
}

void RunScheduler::add(SyncRun *run, SyncTrigger trigger)
{
    run->setParent(this);
    const QUuid id = run->folderId();
    m_runs[id] = run;
    connect(run, &SyncRun::finished, this, [this, run](const QStringList &errors, const QStringList &details) {
        if (const auto it = m_runs.find(run->folderId()); it != m_runs.end() && it->second == run)
            m_runs.erase(it);
        run->deleteLater();
        emit finished(run, errors, details);
        startQueued();
    });
    connect(run, &SyncRun::stopped, this, [this, run] {
        if (const auto it = m_stopping.find(run->folderId()); it != m_stopping.end() && it->second == run)
            m_stopping.erase(it);
        run->deleteLater();
        emit stopped(run);
        startQueued();
    });
    enqueue(id, trigger);
}

void RunScheduler::again(const QUuid &id, SyncTrigger trigger)
{
    const auto it = m_runs.find(id);
    if (it == m_runs.end())
        return;
    if (it->second->state() == SyncRun::State::running)
        m_followUps.insert(id);
    else if (trigger == SyncTrigger::user)
        enqueue(id, trigger); // already queued: now ahead of automatic runs
}

void RunScheduler::enqueue(const QUuid &id, SyncTrigger trigger)
{
    m_queue.removeIf([&id](const auto &entry) { return entry.first == id; });
    // A user's run goes ahead of the automatic ones that wait.
    const auto at = trigger == SyncTrigger::automatic
        ? m_queue.end()
        : std::find_if(m_queue.begin(), m_queue.end(),
                       [](const auto &entry) { return entry.second == SyncTrigger::automatic; });
    m_queue.insert(at, {id, trigger});
}

SyncRun *RunScheduler::cancel(const QUuid &id)
{
    m_followUps.remove(id);
    const auto it = m_runs.find(id);
    if (it == m_runs.end())
        return nullptr;
    SyncRun *run = it->second;
    m_runs.erase(it);
    m_queue.removeIf([&id](const auto &entry) { return entry.first == id; });
    if (run->cancel()) {
        m_stopping[id] = run;
        return nullptr;
    }
    run->deleteLater();
    return run;
}

void RunScheduler::startQueued()
{
    const auto busy = [this] {
        return std::count_if(m_runs.begin(), m_runs.end(),
                             [](const auto &entry) { return entry.second->state() == SyncRun::State::running; })
            + qsizetype(m_stopping.size());
    };
    for (qsizetype i = 0; i < m_queue.size() && busy() < m_slots;) {
        const QUuid id = m_queue.at(i).first;
        // A folder whose previous rclone is still stopping waits for it, and
        // one that a review reads waits for the review.
        if (m_stopping.count(id) || m_held.contains(id)) {
            ++i;
            continue;
        }
        m_queue.removeAt(i);
        const std::optional<SyncFolder> folder = m_folders.folder(id);
        if (const auto it = m_runs.find(id); it != m_runs.end() && folder)
            it->second->start(*folder);
    }
    updateActive();
}

void RunScheduler::release(const QUuid &id)
{
    if (m_held.remove(id))
        startQueued();
}

void RunScheduler::updateActive()
{
    const bool active = isActive();
    if (std::exchange(m_wasActive, active) != active)
        emit activeChanged(active);
}
