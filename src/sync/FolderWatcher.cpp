#include "sync/FolderWatcher.h"

#include <QFileInfo>

#include <algorithm>

#include "platform/FileEventService.h"
#include "platform/StallProbe.h"

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
    StallProbe::Step step("changes of a watched folder");
    const QString root = m_localPath.endsWith(u'/') ? m_localPath : m_localPath + u'/';
    bool everything = paths.isEmpty();
    if (paths.size() > kClassified) {
        // A burst this big (an archive unpacked, a build) is not looked at
        // path by path: everything is pending, unless one directory the runs
        // leave out holds all of it.
        QString common = paths.front();
        for (const QString &path : paths) {
            while (!common.isEmpty() && !(path == common || path.startsWith(common + u'/')))
                common.truncate(std::max<qsizetype>(0, common.lastIndexOf(u'/')));
        }
        if (common.startsWith(root) && m_exclusions.excludes(common.mid(root.size()), true))
            return;
        everything = true;
    }
    // Otherwise, only files the runs leave out changed (an editor's swap
    // files): nothing to sync.
    QList<QString> included;
    if (!everything) {
        bool any = false; // the folder itself counts, though it is no path inside
        for (const QString &path : paths) {
            if (!path.startsWith(root))
                any = true;
            else if (!m_exclusions.excludes(path.mid(root.size()), QFileInfo(path).isDir()))
                included.append(path.mid(root.size()));
        }
        if (!any && included.isEmpty())
            return;
    }
    if (everything || m_pending.paths.size() + included.size() > kMaxPending)
        m_pending.everything = true;
    if (!m_pending.everything) {
        for (const QString &path : std::as_const(included))
            m_pending.paths.insert(path);
    }
    Q_EMIT pendingChanged();
    // A burst of changes gives one run, `debounce` after its last batch.
    m_debounceTimer.start();
}

bool FolderWatcher::Changed::holds(const QString &path, bool isDirectory) const
{
    if (everything || paths.contains(path))
        return true;
    if (!isDirectory)
        return false;
    const QString inside = path.isEmpty() ? QString() : path + u'/';
    return std::any_of(paths.begin(), paths.end(), [&inside](const QString &changed) { return changed.startsWith(inside); });
}

bool FolderWatcher::isPending(const QString &relativePath, bool isDirectory) const
{
    return m_pending.holds(relativePath, isDirectory);
}

bool FolderWatcher::isCarried(const QString &relativePath, bool isDirectory) const
{
    return m_isSyncing && m_carried.holds(relativePath, isDirectory);
}

void FolderWatcher::trigger()
{
    if (m_isSyncing) {
        m_isDirty = true;
        return;
    }
    setSyncing(true);
    m_isDirty = false;
    if (onTriggerSync && !onTriggerSync())
        m_isSyncing = false;
}

void FolderWatcher::setSyncing(bool syncing)
{
    const bool starts = syncing && !m_isSyncing;
    if (starts)
        m_carried = m_pending;
    m_isSyncing = syncing;
    if (starts)
        Q_EMIT pendingChanged();
}

void FolderWatcher::syncDidFinish(bool succeeded)
{
    // What changed during the run stays pending: the run may have missed it.
    // (After a run that carried everything, what came meanwhile is not told
    // apart.)
    if (succeeded && m_carried.everything)
        m_pending = {};
    else if (succeeded)
        m_pending.paths -= m_carried.paths;
    m_carried = {};
    m_isSyncing = false;
    Q_EMIT pendingChanged();
    if (!m_isDirty)
        return;
    // However many changes came during the run, they give one more run.
    m_isDirty = false;
    m_followUpTimer.start();
}

void FolderWatcher::syncWasCancelled()
{
    m_isSyncing = false;
    m_carried = {};
    Q_EMIT pendingChanged();
    m_isDirty = false;
    m_debounceTimer.stop();
    m_followUpTimer.stop();
}
