#pragma once

#include "model/SyncFolder.h"
#include "sync/SyncProblem.h"

#include <QHash>
#include <QStringList>
#include <QUuid>

// What went wrong with each failing target of a folder's last run, read once
// per outcome as it comes (not on every progress report, and not later, when
// the folder may look otherwise), with the error lines of each failed run's
// whole output since the program started (the folder store keeps only the
// last lines).
class FolderProblems final
{
public:
    // Reads the folder's problems again if its outcome is not the one read.
    void read(const SyncFolder &folder);
    QList<SyncProblem> of(const QUuid &id) const { return m_readings.value(id).problems; }
    // The whole output's error lines of the folder's run that just failed,
    // or none for one that succeeded.
    void setDetails(const QUuid &id, const QStringList &details);
    void remove(const QUuid &id);

private:
    // What the problems were read from, and what they are.
    struct Reading
    {
        SyncStatus status;
        std::optional<QString> lastError;
        QList<RemoteTarget> targets;
        QString localPath;
        QList<SyncProblem> problems;
        bool isOf(const SyncFolder &folder) const;
    };

    QHash<QUuid, QStringList> m_details;
    QHash<QUuid, Reading> m_readings;
};
