#include "sync/OpenConflicts.h"

#include "engine/RcloneEngine.h"
#include "sync/SyncManager.h"

#include <QPointer>

OpenConflicts::OpenConflicts(SyncManager &manager, RcloneEngine &engine, ActivityLog *activity, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_engine(engine)
    , m_activity(activity)
{
}

void OpenConflicts::recheck(const QUuid &id)
{
    const std::optional<SyncFolder> checked = m_manager.folder(id);
    if (!m_activity || !checked)
        return;
    QList<ActivityRecord> open = FolderActivity::of(m_activity->read(), id, checked->localPath).openConflicts;
    if (open == m_open.value(id))
        return;
    if (open.isEmpty())
        m_open.remove(id);
    else
        m_open.insert(id, open);
    emit changed(id);
    m_manager.repository().touch(id);
}

void OpenConflicts::settle(const QUuid &id, const Paths &conflict, ConflictCopies::Choice choice,
                           const QObject *context, const std::function<void(const QString &error)> &done)
{
    const std::optional<SyncFolder> settled = m_manager.folder(id);
    // A run may have ended since the list was shown: the copies are named,
    // never counted, so a click cannot land on another file's conflict.
    recheck(id);
    const QList<ActivityRecord> open = of(id);
    const auto found = std::find_if(open.begin(), open.end(), [&conflict](const ActivityRecord &record) {
        return record.path == conflict.original && record.renamed == conflict.renamed;
    });
    if (!settled || found == open.end())
        return done(QStringLiteral("This conflict is no longer open."));
    // A run reads the folder now: what it reads must not change under it.
    RunScheduler &runs = m_manager.runs();
    if (runs.isRunning(id) || runs.isHeld(id))
        return done(QStringLiteral("Wait for the sync to finish, then try again."));
    const ActivityRecord record = *found;
    ConflictCopies copies(settled->localPath, record);
    const QStringList remoteCopy = copies.remoteCopy(choice);
    const QString error = copies.settle(choice);
    recheck(id);
    if (!error.isEmpty() || remoteCopy.isEmpty())
        return done(error);
    runs.hold(id);
    m_engine.run(remoteCopy, this, [&runs, id, done, context = QPointer<const QObject>(context), target = record.target](
                                       const RcloneResult<QString> &result) {
        runs.release(id);
        if (context)
            done(result.ok() ? QString()
                             : QStringLiteral("Kept on this computer, but %1 could not be updated: %2")
                                   .arg(target, result.errorDescription()));
    });
}
