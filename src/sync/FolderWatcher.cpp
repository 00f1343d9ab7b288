#include "sync/FolderWatcher.h"

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
}

FolderWatcher::~FolderWatcher()
{
    stop();
}

void FolderWatcher::start()
{
    m_stream = m_fileEvents.watch(m_localPath, [this] { changesArrived(); });
}

void FolderWatcher::stop()
{
    m_stream.reset();
    m_debounceTimer.stop();
}

void FolderWatcher::changesArrived()
{
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
    if (onTriggerSync)
        onTriggerSync();
}

void FolderWatcher::syncDidFinish()
{
    m_isSyncing = false;
    if (!m_isDirty)
        return;
    // However many changes came during the run, they give one more run.
    m_isDirty = false;
    QTimer::singleShot(m_timings.followUp, this, &FolderWatcher::trigger);
}
