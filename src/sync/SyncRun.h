#pragma once

#include "engine/ChangeParser.h"
#include "engine/RcloneResult.h"
#include "engine/SyncProgress.h"
#include "model/FolderSelection.h"
#include "model/SyncFolder.h"
#include "sync/ActivityLog.h"

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QStringList>

class RcloneEngine;
struct OneWayRequest;
class RcloneJob;

// A run the user started from a review: one target's bisync gets these
// arguments (and --resync when `initial`). Automatic runs never have one.
struct TargetOverride
{
    QUuid targetId;
    bool initial = false;
    QStringList extraArguments;
};

// One run of a folder: bisync against each of its targets in turn, with the
// folder as it stood when the run started. It only reports; the manager
// writes what it reports onto the folder.
//
// A run is made queued, runs once started, and after a cancel goes on
// stopping until its rclone child has exited: only then may another run of
// the same folder start.
class SyncRun final : public QObject
{
    Q_OBJECT

public:
    enum class State { queued, running, stopping };

    SyncRun(RcloneEngine &engine, const QUuid &folderId, QObject *parent = nullptr);

    const QUuid &folderId() const { return m_folderId; }
    State state() const { return m_state; }
    // Queued, or waiting for a bisync of the same pair that the program did
    // not start to end.
    bool isWaiting() const { return m_state == State::queued || m_isWaitingForEarlier; }

    void setOverride(const TargetOverride &override) { m_override = override; }
    // Targets known to have synced with the folder, whatever the store says now.
    void setSyncedTargets(const QSet<QUuid> &targets) { m_syncedTargets = targets; }
    // Skipped directories, ignore rules and direction.
    void setSelection(const FolderSelection &selection) { m_selection = selection; }
    // Targets whose next run follows a change of what syncs.
    void setSelectionChangedTargets(const QSet<QUuid> &targets) { m_selectionChanged = targets; }
    // Targets that made a one-way run in the folder's direction already.
    void setOneWayTargets(const QSet<QUuid> &targets) { m_oneWayTargets = targets; }
    // "--bwlimit" for each target's bisync; empty: none.
    void setBandwidthLimit(const QString &limit) { m_bandwidthLimit = limit; }
    // Where the local folder's drive was mounted when it was chosen; "": not known.
    void setLocalMountPoint(const QString &mountPoint) { m_localMountPoint = mountPoint; }
    // Whether the folder keeps what its runs delete or replace, or once did.
    // `start` names the directory of what this run keeps.
    void setKeepRemoved(bool keeping, bool everKept, const QDateTime &start)
    {
        m_keepingRemoved = keeping;
        m_everKeptRemoved = everKept;
        m_started = start;
    }
    const QDateTime &startTime() const { return m_started; }
    // The targets whose remote may now keep files of this run: some file
    // there was deleted or replaced (or more changed than could be told).
    const QList<QUuid> &keptOnTargets() const { return m_keptOn; }
    void start(const SyncFolder &folder);
    // The one-way run of a target as this run would make it (a review's
    // dry run reads the pair the same way).
    OneWayRequest oneWayRequest(const QString &localPath, const RemoteTarget &target) const;
    void setFolder(const SyncFolder &folder) { m_folder = folder; }
    // Conflicting copies that bisync renamed during this run.
    int conflictCount() const { return m_conflicts; }
    // What the run changed, target by target, as bisync reported it.
    const QList<ActivityRecord> &activity() const { return m_activity; }
    // Nothing of the run happens after this. True while its child is still
    // stopping (stopped() follows), false when nothing is left to wait for.
    bool cancel();

Q_SIGNALS:
    void targetStarted(qsizetype index);
    // The progress of the whole run: the percentage is the share of the run
    // done, each target having an equal part.
    void progressed(const SyncProgress &progress);
    void resyncStateChanged(const QUuid &targetId, bool hasResynced);
    // A target's one-way run succeeded.
    void syncedOneWay(const QUuid &targetId);
    // A resync of the run kept what it replaced although the folder keeps
    // nothing: the folder has kept files from now on.
    void keepsAnyway();
    // Every target was tried: one error entry per failed target, and beside
    // each the error lines rclone printed before its last ones.
    void finished(const QStringList &errors, const QStringList &details);
    void stopped();
    void waitingChanged();

private:
    void nextTarget();
    void targetProgressed(const SyncProgress &progress);
    void targetFinished(const RcloneStatus &result);
    RcloneJob *startBisync(const RemoteTarget &target);
    RcloneJob *startOneWay(const RemoteTarget &target);

    RcloneEngine &m_engine;
    QUuid m_folderId;
    State m_state = State::queued;
    SyncFolder m_folder;
    QString m_localPath;
    qsizetype m_index = -1;
    QStringList m_errors;
    QStringList m_details;
    QPointer<RcloneJob> m_job;
    ChangeParser m_changes; // of the current target
    QString m_bandwidthLimit;
    bool m_keepingRemoved = false;
    bool m_everKeptRemoved = false;
    QDateTime m_started = QDateTime::currentDateTimeUtc();
    QString m_localMountPoint;
    QList<QUuid> m_keptOn;
    bool m_keepsOnTarget = false; // the current target's bisync keeps what it removes
    bool m_mayKeepAnyway = false; // its resync has backup directories all the same
    QList<ActivityRecord> m_activity;
    bool m_isWaitingForEarlier = false;
    std::optional<TargetOverride> m_override;
    QSet<QUuid> m_syncedTargets;
    FolderSelection m_selection;
    QSet<QUuid> m_selectionChanged;
    QSet<QUuid> m_oneWayTargets;
    int m_conflicts = 0;
};
