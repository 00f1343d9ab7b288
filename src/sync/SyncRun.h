#pragma once

#include "engine/RcloneResult.h"
#include "model/SyncFolder.h"

#include <QObject>
#include <QPointer>
#include <QStringList>

class RcloneEngine;
class RcloneJob;
class SyncManager;
struct SyncProgress;

// One run of a folder: bisync against each of its targets in turn, with the
// folder as it stood when the run started. A child of the manager, so it
// ends with it; it writes progress and outcome onto the manager's folder.
class SyncRun final : public QObject
{
    Q_OBJECT

public:
    SyncRun(SyncManager &manager, RcloneEngine &engine, const SyncFolder &folder);

    const QUuid &folderId() const { return m_folder.id; }

    void start();
    // Terminates the running bisync; nothing of the run happens after this.
    void cancel();

private:
    void nextTarget();
    void progressed(const SyncProgress &progress);
    void targetFinished(const RcloneStatus &result);

    SyncManager &m_manager;
    RcloneEngine &m_engine;
    SyncFolder m_folder;
    QString m_localPath;
    qsizetype m_index = -1;
    QStringList m_errors; // one entry per failed target
    QPointer<RcloneJob> m_job;
    bool m_cancelled = false;
};
