#include "engine/Bisync.h"

#include "engine/BisyncLocks.h"
#include "engine/ChangeParser.h"
#include "engine/LocalRoot.h"
#include "engine/PairJob.h"
#include "engine/RcloneJob.h"
#include "engine/RcloneOutput.h"
#include "engine/RcloneProcess.h"
#include "engine/SkippedCopies.h"
#include "platform/AppLogger.h"
#include "platform/PrivateFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>

using namespace std::chrono_literals;

namespace {

// How often a wait for an earlier bisync looks whether it has ended.
constexpr auto kEarlierBisyncPollInterval = 500ms;
// The error text of a failed bisync is built from its last lines only.
constexpr qsizetype kTailLines = 15;
// What is kept of a failed bisync's error lines besides its last lines.
constexpr qsizetype kNotableLines = 20;

// rclone reports that one side of the pair lists no files at all. A resync
// would then fill that side from the other: an unmounted drive or a folder
// the user emptied would get everything back.
bool reportsEmptySide(const QString &output)
{
    return output.contains(QLatin1String("empty current Path1 listing"), Qt::CaseInsensitive)
        || output.contains(QLatin1String("empty current Path2 listing"), Qt::CaseInsensitive);
}

// bisync: remote mkdir, then the sync itself, then at most one retry.
class BisyncJob final : public PairJob
{
public:
    BisyncJob(RcloneEngine &engine, const BisyncRequest &request, const QObject *context,
              RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done)
        : PairJob(engine, context, std::move(onProgress), std::move(done))
        , m_request(request)
    {
        QTimer::singleShot(0, this, [this] { attempt(m_request.isInitialSync, false); });
    }

private:
    void attempt(bool isInitialSync, bool isRetry)
    {
        if (m_cancelled)
            return deliverCancelled();
        // The folder left its place during this pair's last run: what that
        // run noted of it cannot be trusted, and only a resync reads both
        // sides afresh (never deleting on either).
        if (!isInitialSync && !isDryRun() && QFile::exists(resyncMark())) {
            qCWarning(lcEngine, "The local folder left its place during the last sync of %s: resyncing",
                      qUtf8Printable(m_request.remoteSpec));
            isInitialSync = true;
        }
        m_isInitialSync = isInitialSync;
        m_isRetry = isRetry;
        qCInfo(lcEngine, "Starting bisync. Local: %s, Remote: %s, Initial: %s, Retry: %s",
               qUtf8Printable(m_request.localPath), qUtf8Printable(m_request.remoteSpec),
               AppLogger::boolText(isInitialSync), AppLogger::boolText(isRetry));
        // bisync would create a missing local folder and fill it from the
        // remote: an unplugged drive would fill the system disk, a folder the
        // user removed would come back.
        if (const QString message = LocalRoot::unavailable(m_request.localPath, m_request.localMountPoint);
            !message.isEmpty()) {
            qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        // The folder as it is now, told apart from whatever may take its path
        // before rclone ends.
        delete m_root;
        m_root = new LocalRoot(m_request.localPath, this);
        connect(m_root, &LocalRoot::gone, this, [this] {
            if (m_child)
                m_child->cancel(); // stops gracefully: what is in flight may still land
        });
        // A bisync of this pair left running by an earlier run of the
        // program holds the pair's lock until it has stopped.
        if (const qint64 pid = m_engine.earlierBisync(m_request.localPath, m_request.remoteSpec))
            return waitFor(pid);
        // A resync of a pair that synced before is made only while both
        // sides hold something: after a crash lost its history, an unmounted
        // drive or a wiped remote must not be filled from the other side.
        if (isInitialSync && m_request.hasSyncedBefore && !isDryRun())
            return checkSidesBeforeResync();
        prepare();
    }

    void checkSidesBeforeResync()
    {
        if (LocalRoot::isEmptyDirectory(m_request.localPath))
            return withholdResync(1, m_request.localPath);
        m_command = m_engine.run(
            {QStringLiteral("lsf"), QStringLiteral("--max-depth"), QStringLiteral("1"), m_request.remoteSpec}, this,
            [this](const RcloneResult<QString> &listed) {
                m_command = nullptr;
                if (m_cancelled || listed.isCancelled())
                    return deliverCancelled();
                // rclone's "directory not found"
                if (!listed.ok() && listed.error().kind == RcloneError::Kind::exitStatus && listed.error().code == 3)
                    return withholdResync(2, m_request.remoteSpec);
                if (!listed.ok())
                    return deliver(listed.error());
                // What the folder's runs kept there is not the folder's.
                QStringList entries = RcloneOutput::nonEmptyLines(listed.value());
                entries.removeAll(QStringLiteral(".nimbrell-removed/"));
                if (entries.isEmpty())
                    return withholdResync(2, m_request.remoteSpec);
                prepare();
            });
    }

    void withholdResync(int side, const QString &location)
    {
        const QString message = QStringLiteral("Resync withheld: empty current Path%1 listing (%2). A resync would "
                                               "fill it from the other side.")
                                    .arg(side)
                                    .arg(location);
        qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
        deliver(RcloneError{RcloneError::Kind::resyncWithheld, 0, message});
    }

    void prepare()
    {
        makePrivateDirectory(BisyncLocks::workDirectory()); // rclone reports the failure, if any
        // A dry run changes nothing on the remote, not even by a mkdir.
        if (isDryRun())
            return launch();
        // The remote directory may already exist: the outcome is ignored.
        m_command = m_engine.run({QStringLiteral("mkdir"), m_request.remoteSpec}, this,
                                  [this](const RcloneResult<QString> &) {
                                      m_command = nullptr;
                                      launch();
                                  });
    }

    void waitFor(qint64 pid)
    {
        qCInfo(lcEngine, "Waiting for the earlier bisync %lld of %s", static_cast<long long>(pid),
               qUtf8Printable(m_request.remoteSpec));
        Q_EMIT waitingChanged(true);
        auto *poll = new QTimer(this);
        poll->setInterval(kEarlierBisyncPollInterval);
        connect(poll, &QTimer::timeout, this, [this, poll, pid] {
            if (BisyncLocks::isRunningRclone(pid) && !m_cancelled)
                return;
            poll->deleteLater();
            Q_EMIT waitingChanged(false);
            attempt(m_isInitialSync, m_isRetry);
        });
        poll->start();
    }

    void launch()
    {
        if (m_cancelled)
            return deliverCancelled();
        if (!m_root->isStillThere()) { // it left while the remote was prepared
            const QString message = QStringLiteral("Local folder not found: ") + m_request.localPath;
            qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        BisyncRequest request = m_request;
        request.isInitialSync = m_isInitialSync;
        if (m_isInitialSync && !isDryRun() && !m_request.resyncKeepArguments.isEmpty())
            request.keepArguments = m_request.resyncKeepArguments;
        m_keepArguments = request.keepArguments;
        m_copies = ChangeParser();
        // Skipped copies this attempt makes itself need no copy after it.
        m_noted.reset();
        if (!isDryRun()) {
            m_noted.emplace(m_request.localPath, m_request.remoteSpec);
            m_copies.watch(m_noted->paths());
        }
        m_tail.clear();
        m_notable.clear();
        QStringList arguments = Bisync::arguments(request, BisyncLocks::workDirectory());
        if (!m_maxDelete.isEmpty())
            arguments << QStringLiteral("--max-delete") << m_maxDelete;
        m_child = new RcloneProcess(m_engine.rclonePath(), arguments, RcloneProcess::Output::merged, this);
        m_child->onLine = [this](const QByteArray &line) { readLine(QString::fromUtf8(line)); };
        m_child->onExit = [this](const RcloneProcess::Exit &exit) { exited(exit); };
        Q_EMIT processStarted(m_child->process());
        m_child->start();
    }

    void readLine(const QString &line)
    {
        if (m_cancelled)
            return; // a cancelled run shows no more progress
        m_copies.addLine(line);
        m_tail.append(line);
        if (m_tail.size() > kTailLines)
            m_tail.removeFirst();
        if (m_notable.size() < kNotableLines
            && (line.contains(QLatin1String("ERROR :")) || line.contains(QLatin1String("CRITICAL:"))
                || line.contains(QLatin1String("Fatal error"))))
            m_notable.append(line.left(1024));
        Q_EMIT lineRead(line);
        readProgress(line);
    }

    void exited(const RcloneProcess::Exit &exit)
    {
        m_child->deleteLater();
        m_child = nullptr;
        using How = RcloneProcess::Exit::How;
        // Whatever the outcome, copies the attempt skipped wait for a bisync that succeeds.
        std::optional<SkippedCopies> skipped = std::exchange(m_noted, std::nullopt);
        if (skipped && exit.how == How::launchFailed)
            skipped.reset();
        if (skipped) {
            if (const QList<ChangeParser::SkippedCopy> found = m_copies.skippedCopies(); !found.isEmpty()) {
                qCWarning(lcEngine, "rclone skipped %lld queued copies as unchanged, as %s",
                          static_cast<long long>(found.size()), qUtf8Printable(found.first().path));
                skipped->add(found);
            }
            // What the attempt copied or deleted, whether or not it ended well.
            skipped->settle(m_copies.settled());
        }
        if (!m_root->isStillThere() && exit.how != How::launchFailed)
            return leftDuringTheRun();
        if (exit.how == How::cancelled || m_cancelled)
            return deliverCancelled();
        if (exit.how == How::launchFailed)
            return deliver(RcloneError{RcloneError::Kind::launchFailed, 0, exit.launchError});
        if (exit.code == 0) {
            if (m_isInitialSync && !isDryRun())
                QFile::remove(resyncMark());
            if (skipped)
                m_skipped.emplace(std::move(*skipped));
            return copySkipped();
        }

        const QString output = RcloneOutput::stripAnsi(m_tail.join(u'\n'));
        const auto fail = [&](RcloneError::Kind kind) {
            qCCritical(lcEngine, "Bisync failed with status %d: %s", exit.code, qUtf8Printable(output));
            deliver(RcloneError{kind, exit.code, output.isEmpty() ? QStringLiteral("Unknown Error") : output,
                                RcloneOutput::stripAnsi(m_notable.join(u'\n'))});
        };
        // Whichever attempt it is, a demanded resync that would fill an empty
        // side is left to the user, and said so: a plain failure that asks
        // for --resync would make the next run one.
        const bool demandsResync = output.contains(QLatin1String("Must run --resync to recover")) && !isDryRun();
        const bool wouldFillEmptySide = reportsEmptySide(output) || LocalRoot::isEmptyDirectory(m_request.localPath);
        if (demandsResync && wouldFillEmptySide) {
            qCCritical(lcEngine, "Bisync requires --resync, which would fill an empty side; not retrying");
            return fail(RcloneError::Kind::resyncWithheld);
        }
        if (m_isRetry)
            return fail(RcloneError::Kind::exitStatus);
        if (const QString allowed = deletionsLeftOut(output); !allowed.isEmpty()) {
            qCWarning(lcEngine, "Too many deletes only counting files newly left out of the sync of %s: "
                      "retrying with --max-delete %s", qUtf8Printable(m_request.remoteSpec), qUtf8Printable(allowed));
            m_maxDelete = allowed;
            return attempt(m_isInitialSync, true);
        }
        if (output.contains(QLatin1String("prior lock file found:"))) {
            const QString lockPath = BisyncLocks::lockFileIn(output);
            // A lock of a live bisync ends the attempt: no resync is made against it.
            if (lockPath.isEmpty() || !BisyncLocks::isStale(lockPath))
                return fail(RcloneError::Kind::exitStatus);
            qCCritical(lcEngine, "Found bisync lock file at %s. Deleting and retrying...", qUtf8Printable(lockPath));
            QFile::remove(lockPath);
            return attempt(m_isInitialSync, true);
        }
        // A dry run shows what its own arguments would do, never a resync instead.
        if (demandsResync) {
            qCCritical(lcEngine, "Bisync requires --resync. Retrying with isInitialSync=true...");
            return attempt(true, true);
        }
        fail(RcloneError::Kind::exitStatus);
    }

    // After a change of what syncs, bisync's too-many-deletes stop counts
    // files it found gone from both sides: newly left out, they are deleted
    // nowhere. When the files deleted on one side only (the ones whose
    // deletion would be carried out) stay within the usual half, the
    // percentage that lets exactly this run through, and no file more;
    // otherwise "".
    QString deletionsLeftOut(const QString &output) const
    {
        // (With -P the stop's own line may lie before the last lines.)
        const int listed = Bisync::listedBeforeTooManyDeletes(RcloneOutput::stripAnsi(m_notable.join(u'\n')) + u'\n' + output);
        if (!m_request.followsSelectionChange || isDryRun() || listed <= 0)
            return {};
        for (const int side : {1, 2}) {
            if (m_copies.foundDeletedOnlyOn(side) * 2 > listed)
                return {};
        }
        const qsizetype found = std::max(m_copies.foundDeleted(1), m_copies.foundDeleted(2));
        const qsizetype percent = std::min<qsizetype>(100, (found * 100 + listed - 1) / listed);
        return QString::number(std::max<qsizetype>(percent, 50));
    }

    bool isDryRun() const { return m_request.extraArguments.contains(QStringLiteral("--dry-run")); }
    QString resyncMark() const { return BisyncLocks::pairFile(QStringLiteral("resync"), m_request.localPath, m_request.remoteSpec); }

    // The folder was renamed, removed or unmounted while rclone ran. What
    // rclone downloaded since went by path into a new folder (or the bare
    // mount point): that goes again, and the pair's next run is a resync.
    void leftDuringTheRun()
    {
        QStringList downloaded;
        for (const ChangeParser::Change &change : m_copies.changes()) {
            if (!change.toRemote && change.action != ChangeParser::Action::deleted)
                downloaded.append(change.path);
        }
        m_root->clearStandIn(downloaded);
        if (!isDryRun())
            QFile(resyncMark()).open(QIODevice::WriteOnly);
        const QString message = QStringLiteral("Local folder left its place during the sync: ") + m_request.localPath;
        qCCritical(lcEngine, "Bisync failed: %s", qUtf8Printable(message));
        deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
    }

    // Both sides now agree but on what rclone's copy skipped as unchanged
    // (see SkippedCopies): each side's list is copied, comparing nothing.
    void copySkipped()
    {
        const QStringList command = m_skipped ? m_skipped->nextCommand(m_keepArguments) : QStringList();
        if (command.isEmpty())
            return deliver(std::monostate());
        // A copy here never makes the folder: it was there a moment ago.
        if (command.at(2) == m_request.localPath && !QFileInfo(m_request.localPath).isDir()) {
            const QString message = QStringLiteral("Local folder not found: ") + m_request.localPath;
            return deliver(RcloneError{RcloneError::Kind::localFolderMissing, 0, message});
        }
        qCInfo(lcEngine, "Copying again what bisync skipped as unchanged: %s to %s", qUtf8Printable(command.at(1)),
               qUtf8Printable(command.at(2)));
        m_command = m_engine.run(command, this, [this](const RcloneResult<QString> &copied) {
            m_command = nullptr;
            if (m_cancelled || copied.isCancelled())
                return deliverCancelled();
            if (!copied.ok())
                return deliver(copied.error());
            m_skipped->madeNext();
            copySkipped();
        });
    }

    BisyncRequest m_request;
    ChangeParser m_copies;         // of the attempt: what it queued and copied
    QStringList m_keepArguments;   // of the attempt
    std::optional<SkippedCopies> m_noted;   // the lists as the attempt began (none for a dry run)
    std::optional<SkippedCopies> m_skipped;
    LocalRoot *m_root = nullptr;   // the folder the attempt began with
    QStringList m_tail;
    QStringList m_notable; // the first error lines of the attempt
    QString m_maxDelete;   // bisync's --max-delete percentage for a retry past files left out
    bool m_isInitialSync = false;
    bool m_isRetry = false;
};

} // namespace

namespace Bisync {

RcloneJob *start(RcloneEngine &engine, const BisyncRequest &request, const QObject *context,
                 RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done)
{
    return new BisyncJob(engine, request, context, std::move(onProgress), std::move(done));
}

QStringList arguments(const BisyncRequest &request, const QString &workDirectory)
{
    QStringList arguments{QStringLiteral("bisync"),   request.localPath,
                          request.remoteSpec,         QStringLiteral("--workdir"),
                          workDirectory,              QStringLiteral("--create-empty-src-dirs"),
                          QStringLiteral("-v"),       QStringLiteral("-P")};
    if (request.isInitialSync)
        arguments << QStringLiteral("--resync");
    arguments << switchArguments(request.filters) << request.selectionArguments;
    // "local" and "remote" are what this program has always passed for these
    // two policies; they stay as they are.
    QString resolve, loser;
    switch (request.conflictResolution) {
    case ConflictResolution::keepBoth:
        resolve = QStringLiteral("newer"), loser = QStringLiteral("num");
        break;
    case ConflictResolution::newerWins:
        resolve = QStringLiteral("newer"), loser = QStringLiteral("delete");
        break;
    case ConflictResolution::localWins:
        resolve = QStringLiteral("local"), loser = QStringLiteral("delete");
        break;
    case ConflictResolution::remoteWins:
        resolve = QStringLiteral("remote"), loser = QStringLiteral("delete");
        break;
    }
    // Files back in the sync after a change may differ on the two sides:
    // neither is lost.
    if (request.followsSelectionChange)
        loser = QStringLiteral("num");
    arguments << QStringLiteral("--conflict-resolve") << resolve << QStringLiteral("--conflict-loser") << loser;
    if (!request.bandwidthLimit.isEmpty())
        arguments << QStringLiteral("--bwlimit") << request.bandwidthLimit;
    return arguments + request.keepArguments + request.extraArguments;
}

QStringList switchArguments(const std::optional<SyncFilterOptions> &filters)
{
    QStringList arguments;
    if (!filters)
        return arguments;
    const QString exclude = QStringLiteral("--exclude");
    if (filters->excludeGit)
        arguments << exclude << QStringLiteral(".git/**");
    if (filters->excludeHidden)
        arguments << exclude << QStringLiteral(".*/**") << exclude << QStringLiteral("**/.*");
    if (filters->excludeNodeModules)
        arguments << exclude << QStringLiteral("node_modules/**");
    return arguments;
}

int listedBeforeTooManyDeletes(const QString &output)
{
    static const QRegularExpression expression(QStringLiteral("too many deletes \\(>\\d+%, \\d+ of (\\d+)\\)"));
    return expression.match(output).captured(1).toInt();
}

} // namespace Bisync
