#pragma once

#include "engine/BisyncPlan.h"
#include "sync/SyncProblem.h"

#include <QObject>
#include <QPointer>
#include <QUuid>

class RcloneEngine;
class RcloneJob;
class SyncManager;
struct TargetOverride;

// Look before you leap: the bisync that would recover a target is first run
// with --dry-run, its plan is shown, and only an explicit apply runs it for
// real, through the manager like any run of the folder.
//
//   resync     --resync --resync-mode newer: the newer copy of each file
//              wins, rather than this computer's blindly
//   deletions  --force, past bisync's too-many-deletes stop
//   changes    --force, past its all-files-changed stop
//
// The folder's automatic runs wait while the dry run reads the pair.
class SyncReview final : public QObject
{
    Q_OBJECT

public:
    enum class Kind { resync, deletions, changes };
    enum class State { idle, previewing, ready, failed, applied };

    SyncReview(SyncManager &manager, RcloneEngine &engine, QObject *parent = nullptr);
    ~SyncReview() override;

    // Starts the dry run of one target; false when the folder or target is
    // gone or the folder's run is under way.
    bool preview(const QUuid &folderId, const QUuid &targetId, Kind kind);
    // Stops a dry run under way; its rclone stops gracefully.
    void cancel();
    // Runs the previewed bisync for real; false unless a plan is ready.
    bool apply();

    State state() const { return m_state; }
    Kind kind() const { return m_kind; }
    const QUuid &folderId() const { return m_folderId; }
    const QUuid &targetId() const { return m_targetId; }
    const QList<BisyncPlan::Change> &changes() const { return m_changes; }
    // Why the dry run failed.
    const QString &error() const { return m_error; }

    // The arguments added to the target's bisync, for the dry run and for
    // the real one.
    static QStringList extraArguments(Kind kind, bool dryRun);
    // The review a problem's action asks for, if any.
    static std::optional<Kind> kindFor(SyncProblem::Action action);

Q_SIGNALS:
    void stateChanged();

private:
    void finish(State state);

    SyncManager &m_manager;
    RcloneEngine &m_engine;
    State m_state = State::idle;
    Kind m_kind = Kind::resync;
    QUuid m_folderId;
    QUuid m_targetId;
    QPointer<RcloneJob> m_job;
    // What the dry run printed, read into a plan once it has ended: a one-way
    // run's report, with the side it changes, or bisync's output.
    QStringList m_output;
    std::optional<bool> m_reportToRemote;
    int m_reading = 0; // the plan being read; an older one is dropped
    QList<BisyncPlan::Change> m_changes;
    QString m_error;
};
