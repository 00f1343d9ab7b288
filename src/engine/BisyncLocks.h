#pragma once

#include <QList>
#include <QString>

// bisync's work directory, its lock files, and the files of the program's
// own about a pair. A lock is removed only when it is ours and the rclone
// that wrote it is gone; a lock of a live bisync is never touched.
namespace BisyncLocks {
// ~/.config/rclone/bisync_workdir, absolute.
QString workDirectory();
// A file of the program's own about a pair, in the work directory:
// "nimbrell-<what>-<hash of the pair>".
QString pairFile(const QString &what, const QString &localPath, const QString &remoteSpec);
// The lock file named by bisync's "prior lock file found:" message, or "".
QString lockFileIn(const QString &output);
// The rclone holding a bisync lock file: its process id, 0 when no rclone
// holds it (or the file is gone), -1 when it is no lock of ours.
qint64 lockHolder(const QString &lockPath);
// A lock file of our work directory whose writer is gone.
bool isStale(const QString &lockPath);
// A process that is alive and is rclone. A process id of a dead bisync may
// since have gone to another program, and a dead rclone that is not yet
// reaped (a zombie) still has its name.
bool isRunningRclone(qint64 pid);
} // namespace BisyncLocks

// The bisyncs of our work directory that were already running when the
// program started: children of an earlier run of it that died, still
// stopping or finishing. A run of the same pair waits for them.
class EarlierBisyncs final
{
public:
    // Looks through /proc once.
    static EarlierBisyncs scan();
    // The process id of the one of this pair that still runs, or 0.
    qint64 of(const QString &localPath, const QString &remoteSpec) const;

private:
    struct Bisync
    {
        qint64 pid;
        QString localPath;
        QString remoteSpec;
    };
    QList<Bisync> m_bisyncs;
};
