#pragma once

#include "model/FilterRules.h"

#include "sync/SyncTimings.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>

#include <functional>
#include <memory>

class FileEventService;
class FileWatch;

// Watches one sync folder and asks for a run once changes have settled:
// `debounce` after the last batch of changes, or, for changes made while a
// run was under way, once more `followUp` after that run.
class FolderWatcher final : public QObject
{
    Q_OBJECT

public:
    FolderWatcher(const QUuid &folderId, const QString &localPath, FileEventService &fileEvents,
                  const SyncTimings &timings, QObject *parent = nullptr);
    ~FolderWatcher() override;

    const QUuid &folderId() const { return m_folderId; }
    const QString &localPath() const { return m_localPath; }

    // Starts a run for the folder, false when none will run; set by the manager.
    std::function<bool()> onTriggerSync;

    // Changes under `ignoredPaths` (the program's own files, the folder's
    // skipped directories) are not changes.
    void start(const QStringList &ignoredPaths = {});
    const QStringList &ignoredPaths() const { return m_ignoredPaths; }
    void stop();

    bool isSyncing() const { return m_isSyncing; }
    void setSyncing(bool syncing) { m_isSyncing = syncing; }
    bool isDirty() const { return m_isDirty; }

    // A run of the folder ended.
    void syncDidFinish();
    // The folder's run was cancelled: changes seen so far start nothing.
    void syncWasCancelled();

    // Files the folder's runs leave out (its switches and ignore rules):
    // changes to them alone start no run.
    void setExclusions(const FilterRules &rules) { m_exclusions = rules; }

    // A batch of changes arrived (the file-event service calls this): the
    // paths, or none when they are not known.
    void changesArrived(const QStringList &paths = {});

private:
    void trigger();

    QUuid m_folderId;
    QString m_localPath;
    QStringList m_ignoredPaths;
    FileEventService &m_fileEvents;
    SyncTimings m_timings;
    std::unique_ptr<FileWatch> m_stream;
    QTimer m_debounceTimer;
    QTimer m_followUpTimer;
    bool m_isSyncing = false;
    bool m_isDirty = false;
    FilterRules m_exclusions;
};
