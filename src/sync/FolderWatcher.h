#pragma once

#include "model/FilterRules.h"

#include <QSet>

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
    // A run starts (true): what was pending until now is what it carries.
    void setSyncing(bool syncing);
    bool isDirty() const { return m_isDirty; }

    // A run of the folder ended; one that succeeded carried what was pending
    // when it started.
    void syncDidFinish(bool succeeded = false);
    // The folder's run was cancelled: changes seen so far start nothing.
    void syncWasCancelled();

    // Files the folder's runs leave out (its switches and ignore rules):
    // changes to them alone start no run.
    void setExclusions(const FilterRules &rules) { m_exclusions = rules; }

    // A batch of changes arrived (the file-event service calls this): the
    // paths, or none when they are not known.
    void changesArrived(const QStringList &paths = {});

    // What changed here since the last run that succeeded (relative paths),
    // and of it what the run under way carries. More than kMaxPending paths,
    // or a batch that named none, make everything pending.
    static constexpr qsizetype kMaxPending = 10000;
    // A batch of more paths than this makes everything pending at once.
    static constexpr qsizetype kClassified = 1000;
    bool isPending(const QString &relativePath, bool isDirectory) const;
    bool isCarried(const QString &relativePath, bool isDirectory) const;

Q_SIGNALS:
    // What is pending, or carried by the run under way, changed.
    void pendingChanged();

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
    struct Changed
    {
        QSet<QString> paths;
        bool everything = false;
        bool holds(const QString &path, bool isDirectory) const;
    };
    Changed m_pending;
    Changed m_carried; // by the run under way
};
