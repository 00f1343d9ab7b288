#include "sync/FolderWatcher.h"

#include <QFileInfo>

#include <algorithm>

#include "platform/FileEventService.h"

FolderWatcher::FolderWatcher(const QUuid &folderId, const QString &localPath, FileEventService &fileEvents,
                             const SyncTimings &timings, QObject *parent)
    : QObject(parent)
    , m_folderId(folderId)
    , m_localPath(localPath)
    , m_fileEvents(fileEvents)
    , m_timings(timings)
{
    m_debounceTimer.setSingleShot(true);
    m_debounceTimer.setInterval(m_timings.debounce);
    connect(&m_debounceTimer, &QTimer::timeout, this, &FolderWatcher::trigger);
    m_followUpTimer.setSingleShot(true);
    m_followUpTimer.setInterval(m_timings.followUp);
    connect(&m_followUpTimer, &QTimer::timeout, this, &FolderWatcher::trigger);
}

FolderWatcher::~FolderWatcher()
{
    stop();
}

void FolderWatcher::start(const QStringList &ignoredPaths)
{
    m_ignoredPaths = ignoredPaths;
    m_stream = m_fileEvents.watch(m_localPath, ignoredPaths, [this](const QStringList &paths) { changesArrived(paths); });
}

void FolderWatcher::stop()
{
    m_stream.reset();
    m_debounceTimer.stop();
    m_followUpTimer.stop();
}

void FolderWatcher::changesArrived(const QStringList &paths)
{
    // Only files the runs leave out changed (an editor's swap files, a build):
    // nothing to sync.
    const QString root = m_localPath.endsWith(u'/') ? m_localPath : m_localPath + u'/';
    const bool onlyExcluded = !paths.isEmpty() && std::all_of(paths.begin(), paths.end(), [&](const QString &path) {
        return path.startsWith(root) && m_exclusions.excludes(path.mid(root.size()), QFileInfo(path).isDir());
    });
    if (onlyExcluded)
        return;
    // A burst of changes gives one run, `debounce` after its last batch.
    m_debounceTimer.start();
}

void FolderWatcher::trigger()
{
    if (m_isSyncing) {
        m_isDirty = true;
        return;
    }
    m_isSyncing = true;
    m_isDirty = false;
    if (onTriggerSync && !onTriggerSync())
        m_isSyncing = false;
}

void FolderWatcher::syncDidFinish()
{
    m_isSyncing = false;
    if (!m_isDirty)
        return;
    // However many changes came during the run, they give one more run.
    m_isDirty = false;
    m_followUpTimer.start();
}

void FolderWatcher::syncWasCancelled()
{
    m_isSyncing = false;
    m_isDirty = false;
    m_debounceTimer.stop();
    m_followUpTimer.stop();
}
