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

    // The rclone bundled beside the program (../libexec/nimbrell/rclone); the
    // program stops when it is missing.
    explicit RcloneEngine(QObject *parent = nullptr);
    explicit RcloneEngine(const QString &rclonePath, QObject *parent = nullptr);

    const QString &rclonePath() const { return m_rclonePath; }

    // Runs rclone with exactly these arguments; the result is its standard output.
    RcloneJob *run(const QStringList &arguments, const QObject *context, Done<QString> done);

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

    // ~/.config/rclone/bisync_workdir, absolute.
    static QString workDirectory();
    static QStringList bisyncArguments(const BisyncRequest &request, const QString &workDirectory);
    // Removes ANSI colour and cursor sequences (ESC [ digits/semicolons letter).
    static QString stripAnsi(QString text);

    static QList<CloudRemote> parseRemoteList(const QString &output);
    static RcloneResult<RemoteSpaceInfo> parseSpaceInfo(const QString &output);
    static QString parseVersion(const QString &output);

private:
    QString m_rclonePath;
};
