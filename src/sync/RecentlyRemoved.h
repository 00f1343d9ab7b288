#pragma once

#include "sync/RemovedFiles.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <QUuid>

#include <functional>

class FolderPreferences;
class RcloneEngine;
class SyncManager;
struct SyncFolder;

// What a folder's runs kept of the files they deleted or replaced, on this
// computer and on each target ("Recently Removed"), and what can be done
// with it: put a file back where it was (the next run carries it over),
// delete it for good, empty it all. Kept files older than the folder's
// retention go after each of its runs.
//
// A file is restored on the side it was removed from, and the next run
// carries it over (started at once for a remote, while automatic sync is
// on). Whatever holds its name there now is first set aside among the
// removed files, never lost.
// While this computer's files are being moved, or a remote's, the folder's
// runs wait; while a run is under way, nothing is moved.
class RecentlyRemoved final : public QObject
{
    Q_OBJECT

public:
    RecentlyRemoved(SyncManager &manager, RcloneEngine &engine, FolderPreferences &preferences,
                    std::function<QDateTime()> clock);

    struct Listing
    {
        QList<RemovedFiles::File> files; // newest first
        QStringList errors;              // one sentence per target that could not be read
    };
    void list(const QUuid &folderId, const QObject *context, std::function<void(const Listing &)> done);

    enum class Outcome { restored, nameTaken, failed };
    // Without `replace`, a name in use is reported (nameTaken) and nothing moves.
    void restore(const QUuid &folderId, const RemovedFiles::File &file, bool replace, const QObject *context,
                 std::function<void(Outcome, const QString &error)> done);
    // `done` gets an error sentence, or an empty one.
    void deletePermanently(const QUuid &folderId, const RemovedFiles::File &file, const QObject *context,
                           std::function<void(const QString &error)> done);
    void empty(const QUuid &folderId, const QObject *context, std::function<void(const QString &error)> done);

    // The start of the folder's next run. Its directories of kept files are
    // named by the second, and a run moving a file into a directory an
    // earlier run used would replace what that one kept there: the start is
    // a second no earlier run of the folder had.
    QDateTime nextRunStart(const QUuid &folderId);

    // After a run of the folder that started at `runStart`: remembers the
    // targets it kept something on, and removes what is older than the
    // folder's retention. An rclone starts only for a target that has such
    // old runs.
    void runFinished(const SyncFolder &folder, const QDateTime &runStart, const QList<QUuid> &keptOnTargets);
    // After a run that was stopped: only remembers, so that what it kept is
    // pruned in time; nothing starts while the program may be quitting.
    void runStopped(const SyncFolder &folder, const QDateTime &runStart, const QList<QUuid> &keptOnTargets);

private:
    // Why nothing may be moved now (or `file` not at all), or empty.
    QString refusal(const QUuid &folderId, const std::optional<RemovedFiles::File> &file = std::nullopt) const;
    void rememberRuns(const QUuid &folderId, const QUuid &targetId, const QStringList &runs);
    void restoreHere(const SyncFolder &folder, const RemovedFiles::File &file, bool replace,
                     const std::function<void(Outcome, const QString &)> &done);
    void restoreThere(const SyncFolder &folder, const RemovedFiles::File &file, bool replace,
                      const std::function<void(Outcome, const QString &)> &done);
    void emptyTargets(const QUuid &folderId, const QList<RemoteTarget> &targets, const QPointer<const QObject> &context,
                      const std::function<void(const QString &error)> &done);

    SyncManager &m_manager;
    RcloneEngine &m_engine;
    FolderPreferences &m_preferences;
    std::function<QDateTime()> m_clock;
    QHash<QUuid, QDateTime> m_lastRunStart; // of the runs started here
    // This computer's kept files are walked, pruned and emptied on a worker,
    // one at a time: a listing never sees half an emptying.
    QThreadPool m_localFiles;
};
