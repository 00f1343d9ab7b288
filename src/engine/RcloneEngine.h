#pragma once

#include "engine/RcloneResult.h"
#include "engine/SyncProgress.h"
#include "model/CloudRemote.h"
#include "model/ConflictResolution.h"
#include "model/RemoteSpaceInfo.h"
#include "model/SyncFilterOptions.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

class RcloneJob;

// One two-way sync of a local directory with one remote location.
struct BisyncRequest
{
    QString localPath;
    QString remoteSpec; // "remote:path", passed to rclone as one argument
    std::optional<SyncFilterOptions> filters; // none: nothing excluded
    ConflictResolution conflictResolution = ConflictResolution::keepBoth;
    bool isInitialSync = false; // adds "--resync"
    // Only runs a user starts from a review have these ("--dry-run",
    // "--force", "--resync-mode newer"); automatic runs never do.
    QStringList extraArguments = {};
    // The value of "--bwlimit"; empty adds nothing.
    QString bandwidthLimit = {};
    // Where deleted and replaced files are kept ("--backup-dir1", ...); empty adds nothing.
    QStringList keepArguments = {};
    // In place of keepArguments for a resync other than a dry run (a first
    // sync, or the recovery of a lost history): a resync replaces the
    // remote's differing copies with this computer's, and these keep them.
    QStringList resyncKeepArguments = {};
    // Where the local folder's volume was mounted when the folder was
    // chosen; "" when not known. No run is made while it is elsewhere: an
    // unmounted drive leaves an empty directory in its place.
    QString localMountPoint = {};
    // The pair has synced before. Its resync (a first sync, or a retry) is
    // then made only while neither side is empty or missing.
    bool hasSyncedBefore = false;
};

// The only code that starts rclone. Every call runs rclone asynchronously on
// the main thread's event loop with a fixed argument list (never through a
// shell) and ends in one result: a value, an error or "cancelled". A call's
// result and progress go to the callbacks given with it, and only while the
// context object given with it exists. The child starts once control returns
// to the event loop, so signals of the returned job can be connected first.
class RcloneEngine final : public QObject
{
    Q_OBJECT

public:
    template <typename T>
    using Done = std::function<void(const RcloneResult<T> &)>;
    using ProgressHandler = std::function<void(const SyncProgress &)>;

    // How long a child asked to stop may take before it is killed. rclone's
    // graceful stop lets transfers in flight finish (up to 30 s), then takes
    // up to 60 s more to save bisync's listings; a kill before that leaves
    // the lock and can cost the pair a resync.
    static constexpr std::chrono::seconds kGracefulStopBound{120};

    // The rclone bundled beside the program (../libexec/nimbrell/rclone); the
    // program stops when it is missing.
    explicit RcloneEngine(QObject *parent = nullptr);
    explicit RcloneEngine(const QString &rclonePath, QObject *parent = nullptr);

    const QString &rclonePath() const { return m_rclonePath; }

    // Runs rclone with exactly these arguments; the result is its standard
    // output. An output too large to keep (8 MiB) is an error, never a part
    // of it passed off as the whole.
    RcloneJob *run(const QStringList &arguments, const QObject *context, Done<QString> done);
    // The same, with standard output handed over line by line as it comes,
    // whatever its size; the result's value is then empty.
    using LineHandler = std::function<void(const QByteArray &line)>;
    RcloneJob *runLines(const QStringList &arguments, const QObject *context, LineHandler onLine, Done<QString> done);

    // bisync with one recovery, by a single retry, from a stale lock file or
    // from a state in which rclone demands --resync.
    RcloneJob *bisync(const BisyncRequest &request, const QObject *context, ProgressHandler onProgress,
                      Done<std::monostate> done);

    RcloneJob *listRemotes(const QObject *context, Done<QList<CloudRemote>> done);
    RcloneJob *createRemote(const QString &name, const QString &type, const QObject *context,
                            Done<std::monostate> done);
    RcloneJob *reconnectRemote(const QString &name, const QObject *context, Done<std::monostate> done);
    RcloneJob *getSpaceInfo(const QString &name, const QObject *context, Done<RemoteSpaceInfo> done);
    RcloneJob *getVersion(const QObject *context, Done<QString> done);

    // Calls under way; a cancelled one counts until its child has exited.
    int activeJobCount() const { return m_activeJobs; }
    // Cancels every call under way; allJobsFinished() follows once their
    // children have stopped.
    void cancelAll();

    // The process id of a running bisync of this pair that was already
    // running when this engine was made (left behind by an earlier run of the
    // program), or 0.
    qint64 earlierBisync(const QString &localPath, const QString &remoteSpec) const;

    // The lock file named by bisync's "prior lock file found:" message, or "".
    static QString lockFileIn(const QString &output);
    // A directory that holds nothing, not even hidden files.
    static bool isEmptyDirectory(const QString &path);
    // Where the volume holding an existing directory is mounted, or "".
    static QString mountPointOf(const QString &path);
    // The rclone holding a bisync lock file: its process id, 0 when no rclone
    // holds it (or the file is gone), -1 when it is no lock of ours.
    static qint64 lockHolder(const QString &lockPath);
    // ~/.config/rclone/bisync_workdir, absolute.
    static QString workDirectory();
    // A file of the program's own about a pair, in the work directory:
    // "nimbrell-<what>-<hash of the pair>".
    static QString pairFile(const QString &what, const QString &localPath, const QString &remoteSpec);
    static QStringList bisyncArguments(const BisyncRequest &request, const QString &workDirectory);
    // Removes ANSI colour and cursor sequences (ESC [ digits/semicolons letter).
    static QString stripAnsi(QString text);

    static QList<CloudRemote> parseRemoteList(const QString &output);
    static RcloneResult<RemoteSpaceInfo> parseSpaceInfo(const QString &output);
    static QString parseVersion(const QString &output);

Q_SIGNALS:
    void allJobsFinished();

private:
    struct EarlierBisync
    {
        qint64 pid;
        QString localPath;
        QString remoteSpec;
    };
    template <typename Job>
    Job *track(Job *job);

    QString m_rclonePath;
    int m_activeJobs = 0;
    QList<EarlierBisync> m_earlierBisyncs;
};
