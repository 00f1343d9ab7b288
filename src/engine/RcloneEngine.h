#pragma once

#include "engine/BisyncLocks.h"
#include "engine/RcloneResult.h"
#include "engine/SyncProgress.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

class RcloneJob;

struct BisyncRequest;
struct OneWayRequest;

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

    // bisync of one pair, with its recovery (see Bisync).
    RcloneJob *bisync(const BisyncRequest &request, const QObject *context, ProgressHandler onProgress,
                      Done<std::monostate> done);

    // rclone sync of one pair, one way, with its safety checks (see OneWaySync).
    RcloneJob *oneWaySync(const OneWayRequest &request, const QObject *context, ProgressHandler onProgress,
                          Done<std::monostate> done);

    // Calls under way; a cancelled one counts until its child has exited.
    int activeJobCount() const { return m_activeJobs; }
    // Cancels every call under way; allJobsFinished() follows once their
    // children have stopped.
    void cancelAll();

    // The process id of a running bisync of this pair that was already
    // running when this engine was made (left behind by an earlier run of the
    // program), or 0.
    qint64 earlierBisync(const QString &localPath, const QString &remoteSpec) const;

Q_SIGNALS:
    void allJobsFinished();

private:
    template <typename Job>
    Job *track(Job *job);

    QString m_rclonePath;
    int m_activeJobs = 0;
    EarlierBisyncs m_earlierBisyncs;
};
