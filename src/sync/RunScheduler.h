#pragma once

#include <QList>
#include <QObject>
#include <QSet>
#include <QUuid>

#include <map>

class FolderRepository;
class SyncRun;

// Who asked for a run: a user's runs start before automatic ones that wait.
enum class SyncTrigger { user, automatic };

// How many folders sync at once: each rclone takes about 55 MB and a core's
// share, so hundreds at once would exhaust a machine. The number of cores,
// within these bounds.
constexpr int kMinConcurrentSyncs = 2;
constexpr int kMaxConcurrentSyncs = 4;
int defaultConcurrentSyncs();

// Which runs wait, which run and which still stop. At most one run per
// folder, at most `concurrent` at once (a stopping rclone holds its slot), and a
// folder's run starts only once its previous rclone has exited and no one
// holds the folder.
class RunScheduler final : public QObject
{
    Q_OBJECT

public:
    RunScheduler(const FolderRepository &folders, int concurrent, QObject *parent = nullptr);

    // A run of the folder is queued or under way.
    bool isRunning(const QUuid &id) const { return m_runs.count(id) > 0; }
    // The folder's run waits for a slot or for an earlier run of its pair.
    bool isWaiting(const QUuid &id) const;
    // Some run is queued, under way or still stopping.
    bool isActive() const { return !m_runs.empty() || !m_stopping.empty(); }
    // The folders whose run is queued or under way.
    QList<QUuid> running() const;

    // Queues a new run (which the scheduler then owns) of a folder that has none.
    void add(SyncRun *run, SyncTrigger trigger);
    // Asked again while the folder's run is queued or under way: one more
    // run after it (under way), or ahead of automatic runs (a user's).
    void again(const QUuid &id, SyncTrigger trigger);
    // Whether one more run was asked for while the folder's last one ran.
    bool takeFollowUp(const QUuid &id) { return m_followUps.remove(id); }
    // Drops the folder's run. The run that stopped at once is returned, to
    // read what it did (it is deleted later); one whose rclone still stops
    // reports stopped() when it has.
    SyncRun *cancel(const QUuid &id);
    // Starts waiting runs while slots are free.
    void startQueued();

    // While a folder is held (a review's dry run reads it), its runs wait.
    void hold(const QUuid &id) { m_held.insert(id); }
    void release(const QUuid &id);
    bool isHeld(const QUuid &id) const { return m_held.contains(id); }

signals:
    // A run went over all its targets, or stopped after a cancel; the run is
    // deleted later.
    void finished(SyncRun *run, const QStringList &errors, const QStringList &details);
    void stopped(SyncRun *run);
    void activeChanged(bool active);

private:
    void enqueue(const QUuid &id, SyncTrigger trigger);
    void updateActive();

    const FolderRepository &m_folders;
    int m_slots;
    std::map<QUuid, SyncRun *> m_runs;     // the queued or running run of a folder
    std::map<QUuid, SyncRun *> m_stopping; // cancelled runs whose child has not yet exited
    // Queued runs in the order they start: a user's first, then automatic ones.
    QList<std::pair<QUuid, SyncTrigger>> m_queue;
    QSet<QUuid> m_followUps; // one more run asked for while the folder's run was under way
    QSet<QUuid> m_held;
    bool m_wasActive = false;
};
