#include "engine/RcloneEngine.h"
#include "engine/RemoteCommands.h"
#include "engine/LocalRoot.h"
#include "engine/BisyncLocks.h"
#include "engine/Bisync.h"
#include "sync/BandwidthLimit.h"
#include "engine/RcloneJob.h"
#include "fakes/FakeRclone.h"
#include "support/Outcome.h"
#include "support/TestFiles.h"

#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

Q_DECLARE_METATYPE(std::optional<SyncFilterOptions>)
Q_DECLARE_METATYPE(ConflictResolution)
Q_DECLARE_METATYPE(BandwidthLimit)

namespace {

bool processIsGone(qint64 pid)
{
    return pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0;
}

const QByteArray kLockTips = "NOTICE: Tip: this indicates that another bisync run (of these same paths) either is still running or was interrupted before completion.\n"
                             "NOTICE: Tip: If you're SURE you want to override this safety feature, you can delete the lock file with the following command, then run bisync again:\n";

// Who wrote the lock file, and what the local folder holds. An outside lock
// (a dead rclone's) is named by rclone outside our work directory, directly
// or through "..".
enum class Lock { none, dead, live, zombie, outside, climbing };
enum class Local { files, empty, missing };

} // namespace

// bisync's output where rclone's copy skipped what it queued to the remote:
// two files newer here and a directory, and a file found older (a download
// from a remote that keeps seconds: nothing to copy again).
const QByteArray kSkipped =
    "line() { echo \"2026/11/24 07:59:54 INFO  : $1\"; }\n"
    "line \"Synching Path1 \\\"$2/\\\" with Path2 \\\"$3/\\\"\"\n"
    "line \"- Path1    File changed: time (newer) - x.bin\"\n"
    "line \"- Path1    File changed: time (newer) - a b/x é.txt\"\n"
    "line \"- Path1    File changed: time (newer) - empty dir\"\n"
    "line \"- Path1    File changed: time (older) - older.txt\"\n"
    "line \"- Path1    Queue copy to Path2       - $3/x.bin\"\n"
    "line \"- Path1    Queue copy to Path2       - $3/older.txt\"\n"
    "line \"- Path1    Queue copy to Path2       - $3/a b/x é.txt\"\n"
    "line \"- Path1    Queue copy to Path2       - $3/empty dir\"\n"
    "line \"- Path1    Do queued copies to                - Path2\"\n"
    "line \"There was nothing to transfer\"\n";

class TestRcloneEngine : public QObject
{
    Q_OBJECT

    QTemporaryDir m_tmp;
    QByteArray m_realHome;
    QString m_home;
    std::unique_ptr<FakeRclone> m_fake;
    std::unique_ptr<RcloneEngine> m_engine;

    QString lockPath() const
    {
        return BisyncLocks::workDirectory() + QStringLiteral("/_home_ann_Docs..remote_Docs.lck");
    }

    // The lock file rclone names.
    QString namedLock(Lock lock) const
    {
        if (lock == Lock::outside)
            return m_tmp.filePath(QStringLiteral("precious.lck"));
        if (lock == Lock::climbing)
            return BisyncLocks::workDirectory() + QStringLiteral("/../../precious.lck");
        return lockPath();
    }

    // A lock file, written by the process `pid`.
    static void writeLock(const QString &path, qint64 pid)
    {
        writeFile(path, R"({"Session":"_home_ann_Docs..remote_Docs","PID":")" + QByteArray::number(pid) +
                            R"(","TimeRenewed":"2026-11-21T10:00:00Z","TimeExpires":"0001-01-01T00:00:00Z"})");
    }

    // A bisync call whose output ends like rclone's when it finds a lock.
    static QByteArray lockFailure(const QString &path)
    {
        const QByteArray p = path.toUtf8();
        return "printf '%s\\n' 'INFO  : Bisyncing' 'Transferred:   \t 0 B / 0 B, -, 0 B/s, ETA -'\n"
               "printf 'NOTICE: Failed to bisync: \\e[31mprior lock file found: \\e[93m%s\\e[0m \\n' '" + p + "'\n"
               "printf '%s' \"" + kLockTips + "\"\n"
               "printf 'NOTICE: Tip: rclone deletefile \"%s\"\\n' '" + p + "'\nexit 1\n";
    }

    static QByteArray resyncFailure()
    {
        return "echo 'ERROR : Bisync critical error: cannot find prior Path1 or Path2 listings, likely due to critical error on prior run'\n"
               "echo 'ERROR : Bisync aborted. Must run --resync to recover.'\n"
               "echo 'Transferred:   \t 0 B / 0 B, -, 0 B/s, ETA -'\n"
               "echo 'NOTICE: Failed to bisync: bisync aborted'\nexit 7\n";
    }

    QString localPath() const { return m_home + QStringLiteral("/Docs"); }

    BisyncRequest request() const
    {
        BisyncRequest request{localPath(), QStringLiteral("remote:Docs"), SyncFilterOptions(), ConflictResolution::keepBoth,
                              false, {}};
        request.hasSyncedBefore = true;
        request.resyncKeepArguments = {"--backup-dir1", "/kept"};
        return request;
    }

    RcloneStatus bisync(int timeoutMs = 60000) const { return bisync(request(), timeoutMs); }
    RcloneStatus bisync(const BisyncRequest &request, int timeoutMs = 60000) const
    {
        return resultOf<std::monostate>([&](auto done) { m_engine->bisync(request, nullptr, {}, done); }, timeoutMs);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<QProcess *>();
        QVERIFY(m_tmp.isValid());
        m_realHome = qgetenv("HOME");
        // A blank in the home directory puts blanks into every lock path.
        m_home = m_tmp.filePath(QStringLiteral("home dir"));
        QVERIFY(QDir().mkpath(m_home));
        qputenv("HOME", QFile::encodeName(m_home));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(m_home + "/.cache")); // the kept rclone version
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }
    void init()
    {
        QDir(BisyncLocks::workDirectory()).removeRecursively();
        QDir().mkpath(localPath());
        writeFile(localPath() + "/note.txt", "note");
        m_fake = std::make_unique<FakeRclone>();
        m_engine = std::make_unique<RcloneEngine>(FakeRclone::path());
    }
    void cleanup()
    {
        m_engine.reset();
        m_fake.reset();
    }

    // ---- run(arguments:) ------------------------------------------------

    void runFailureMessages_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("standard error, colours stripped")
            << QByteArray("printf 'ignored' ; printf '\\e[31mFailed\\e[0m to create: \\e[1;93mdenied\\e[0m\\n' >&2; exit 1")
            << 1 << "Failed to create: denied\n";
        QTest::newRow("nothing printed") << QByteArray("exit 2") << 2 << "rclone exited with code 2";
        QTest::newRow("only colours on standard error")
            << QByteArray("printf '\\e[0m\\e[31m' >&2; printf 'from stdout'; exit 3") << 3 << "from stdout";
        QTest::newRow("standard error not UTF-8") << QByteArray("printf '\\xff\\xfe' >&2; printf 'from stdout'; exit 4")
                                                  << 4 << "from stdout";
        QTest::newRow("both unreadable") << QByteArray("printf '\\xff' >&2; printf '\\xfe'; exit 5") << 5
                                         << "rclone exited with code 5";
        QTest::newRow("killed by a signal") << QByteArray("kill -KILL $$") << 9 << "rclone exited with code 9";
    }
    void runFailureMessages()
    {
        QFETCH(QByteArray, script);
        QFETCH(int, code);
        QFETCH(QString, message);
        m_fake->script("config", script);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code "));
        const auto result = resultOf<QString>([&](auto done) { m_engine->run({"config", "delete", "x"}, nullptr, done); });
        QCOMPARE(result.error(), (RcloneError{RcloneError::Kind::exitStatus, code, message}));
    }

    // One SIGTERM, then the child is given the time it takes to stop: the
    // result comes once it has exited, and it is never killed. A bisync is not
    // retried, whatever rclone prints while it stops.
    void cancelWaitsForAGracefulStop()
    {
        const QByteArray trap = "trap 'echo term >> \"$FAKE_RCLONE_DIR/terms\"; sleep 1; "
                                "echo \"Transferred:   \t 2 B / 2 B, 100%, 1 B/s, ETA 0s\"; "
                                "echo \"Must run --resync to recover\"; exit 143' TERM\n"
                                "echo ready >> \"$FAKE_RCLONE_DIR/ready\"\n"
                                "echo 'Transferred:   \t 1 B / 2 B, 50%, 1 B/s, ETA 1s'\nwhile :; do sleep 0.05; done\n";
        m_fake->script("config", trap);
        m_fake->script("bisync", trap);
        Outcome<std::monostate> reconnect, sync;
        int progress = 0;
        QPointer<RcloneJob> job = RemoteCommands::reconnectRemote(*m_engine, "gdrive", nullptr, reconnect.callback());
        QPointer<RcloneJob> syncJob = m_engine->bisync(request(), nullptr, [&](const SyncProgress &) { ++progress; },
                                                       sync.callback());
        QSignalSpy started(job.data(), &RcloneJob::processStarted);
        QSignalSpy allFinished(m_engine.get(), &RcloneEngine::allJobsFinished);
        QTRY_COMPARE(progress, 1);
        QTRY_COMPARE(started.count(), 1);
        const qint64 pid = started.at(0).at(0).value<QProcess *>()->processId();
        // Both have set their trap (a loaded machine may start them slowly).
        QTRY_COMPARE(readFile(m_fake->directory() + "/ready"), QByteArray("ready\nready\n"));
        job->cancel();
        job->cancel();
        m_engine->cancelAll();
        QVERIFY(!reconnect.result && !sync.result); // not before the children have exited
        QCOMPARE(m_engine->activeJobCount(), 2);
        QVERIFY(reconnect.wait() && sync.wait());
        QVERIFY(reconnect.result->isCancelled() && sync.result->isCancelled());
        QVERIFY(processIsGone(pid));
        QCOMPARE(readFile(m_fake->directory() + "/terms"), QByteArray("term\nterm\n"));
        QCOMPARE(m_fake->commands().count("bisync"), 1);
        QCOMPARE(progress, 1);
        QTRY_COMPARE(allFinished.count(), 1);
        QCOMPARE(m_engine->activeJobCount(), 0);
        QVERIFY(job.isNull() && syncJob.isNull());
    }

    // No child: a call cancelled before it starts, an rclone that cannot start.
    // No callback once the call's context is gone.
    void callsWithoutAChildOrContext()
    {
        m_fake->script("version", "sleep 0.2; echo 'rclone v1.75.2'\n");
        Outcome<QString> run;
        Outcome<std::monostate> sync;
        m_engine->run({"version"}, nullptr, run.callback())->cancel();
        m_engine->bisync(request(), nullptr, {}, sync.callback())->cancel();
        QVERIFY(run.wait() && sync.wait());
        QVERIFY(run.result->isCancelled() && sync.result->isCancelled());
        QVERIFY(m_fake->calls().isEmpty());

        RcloneEngine missing(m_tmp.filePath("no-such-rclone"));
        const auto launch = resultOf<QString>([&](auto done) { missing.run({"version"}, nullptr, done); });
        QCOMPARE(launch.error().kind, RcloneError::Kind::launchFailed);
        QVERIFY(!launch.error().description.isEmpty());

        auto *context = new QObject;
        bool called = false;
        QPointer<RcloneJob> job = RemoteCommands::getVersion(*m_engine, context, [&](const RcloneResult<QString> &) { called = true; });
        QTRY_VERIFY(!m_fake->calls().isEmpty());
        delete context;
        QTRY_VERIFY(job.isNull());
        QVERIFY(!called);
    }

    // ---- bisync ---------------------------------------------------------

    void bisyncArguments_data()
    {
        QTest::addColumn<std::optional<SyncFilterOptions>>("filters");
        QTest::addColumn<ConflictResolution>("resolution");
        QTest::addColumn<bool>("initial");
        QTest::addColumn<BandwidthLimit>("limit");
        QTest::addColumn<QStringList>("tail");
        const BandwidthLimit off{false, 512, 1024, "08:00,1M"};

        QTest::newRow("initial, all filters, local wins")
            << std::optional(SyncFilterOptions{true, true, true}) << ConflictResolution::localWins << true << off
            << QStringList{"--resync", "--exclude", ".git/**", "--exclude", ".*/**", "--exclude", "**/.*",
                           "--exclude", "node_modules/**", "--conflict-resolve", "local", "--conflict-loser", "delete"};
        QTest::newRow("no filters, keep both") << std::optional<SyncFilterOptions>() << ConflictResolution::keepBoth
                                               << false << BandwidthLimit{true, 0, 0, ""}
                                               << QStringList{"--conflict-resolve", "newer", "--conflict-loser", "num"};
        QTest::newRow("default filters, newer wins")
            << std::optional(SyncFilterOptions()) << ConflictResolution::newerWins << false
            << BandwidthLimit{true, 512, 0, ""}
            << QStringList{"--exclude", ".git/**", "--exclude", "node_modules/**", "--conflict-resolve", "newer",
                           "--conflict-loser", "delete", "--bwlimit", "512k:off"};
        QTest::newRow("filters all off, primary remote wins")
            << std::optional(SyncFilterOptions{false, false, false}) << ConflictResolution::remoteWins << true
            << BandwidthLimit{true, 512, 2048, "08:00,512k  19:00,off"}
            << QStringList{"--resync", "--conflict-resolve", "remote", "--conflict-loser", "delete", "--bwlimit",
                           "08:00,512k 19:00,off"};
        QTest::newRow("hidden only") << std::optional(SyncFilterOptions{false, true, false})
                                     << ConflictResolution::keepBoth << false << BandwidthLimit{true, 0, 2048, ""}
                                     << QStringList{"--exclude", ".*/**", "--exclude", "**/.*", "--conflict-resolve",
                                                    "newer", "--conflict-loser", "num", "--bwlimit",
                                                    "off:2048k"};
    }
    void bisyncArguments()
    {
        QFETCH(std::optional<SyncFilterOptions>, filters);
        QFETCH(ConflictResolution, resolution);
        QFETCH(bool, initial);
        QFETCH(BandwidthLimit, limit);
        QFETCH(QStringList, tail);
        // (The settings read it as stored: blanks made single.)
        limit.schedule = limit.schedule.simplified();
        const BisyncRequest r{"/home/ann/My Docs", "work docs:Back up", filters, resolution, initial, {}, limit.argument()};
        const QStringList base{"bisync", "/home/ann/My Docs", "work docs:Back up", "--workdir", "/w",
                               "--create-empty-src-dirs", "-v", "-P"};
        QCOMPARE(Bisync::arguments(r, "/w"), base + tail);
    }

    void bisyncRunsMkdirThenBisyncWithProgress()
    {
        m_fake->script("bisync", "printf 'INFO  : Copying\\nTransferred:   \\t 1 MiB / 4 MiB, 25%%, 1 MiB/s, ETA 3s\\n'\n"
                              "printf 'Transferred:            1 / 4, 25%%\\nElapsed time:  1.0s'\n"
                              "printf 'Transferred:   \\t 4 MiB / 4 MiB, 100%%, 2 MiB/s, ETA 0s\\nChecks: 1 / 1\\n'\n"
                              "printf 'Transferred:            4 / 4, 100%%'\n"); // the last line has no line break
        QList<SyncProgress> progress;
        QTest::ignoreMessage(QtInfoMsg, qPrintable("Starting bisync. Local: " + localPath() + ", Remote: remote:Docs, Initial: true, Retry: false"));
        BisyncRequest r = request();
        r.isInitialSync = true;
        r.hasSyncedBefore = false; // a first sync
        QVERIFY(resultOf<std::monostate>([&](auto done) {
                    m_engine->bisync(r, nullptr, [&](const SyncProgress &p) { progress.append(p); }, done);
                }).ok());

        const QString workDirectory = m_home + "/.config/rclone/bisync_workdir";
        QVERIFY(QFileInfo(workDirectory).isDir());
        r.keepArguments = r.resyncKeepArguments; // a first sync keeps what it replaces
        QCOMPARE(m_fake->calls(), (QList<QStringList>{
                                   {"mkdir", "remote:Docs"},
                                   Bisync::arguments(r, workDirectory),
                               }));
        QCOMPARE(progress, (QList<SyncProgress>{
                               {0.25, "1 MiB / 4 MiB", std::nullopt, "1 MiB/s, ETA 3s"},
                               {std::nullopt, std::nullopt, "1 / 4", std::nullopt},
                               {1.0, "4 MiB / 4 MiB", std::nullopt, "2 MiB/s, ETA 0s"},
                               {std::nullopt, std::nullopt, "4 / 4", std::nullopt},
                           }));
    }

    // A failed bisync's error is its last 15 lines, colours stripped, however
    // much it printed before, and whatever.
    void bisyncErrorIsTheLastFifteenLines()
    {
        m_fake->script("bisync.1", "for i in $(seq 1 40); do printf 'line %d \\e[31mred\\e[0m\\n' $i; done; exit 1\n");
        // 20 MB of binary garbage with hardly a line break, then a failure.
        m_fake->script("bisync.2", "head -c 20000000 /dev/urandom; printf '\\nfailed at last\\n'; exit 1\n");
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: line 26 red\n"));
        QStringList expected;
        for (int i = 26; i <= 40; ++i)
            expected.append(QStringLiteral("line %1 red").arg(i));
        QCOMPARE(bisync().error(), (RcloneError{RcloneError::Kind::exitStatus, 1, expected.join('\n')}));

        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        const QString description = bisync(120000).error().description;
        QVERIFY(description.endsWith("\nfailed at last"));
        QVERIFY(description.size() < 16 * 64 * 1024); // the tail, not the output
    }

    // A big output is read a slice at a time, other events handled between
    // its lines (here all of it is there before the first read), and the call
    // ends after its last line.
    void bigOutputIsReadInSlices()
    {
        m_fake->script("bisync.1", "seq 1 300000; sleep 0.3; exit 1\n");
        int lines = 0, linesWhenOthersRan = -1;
        Outcome<std::monostate> outcome;
        RcloneJob *job = m_engine->bisync(request(), nullptr, {}, outcome.callback());
        connect(job, &RcloneJob::lineRead, this, [&](const QString &) {
            if (++lines == 1)
                QTimer::singleShot(0, this, [&] { linesWhenOthersRan = lines; });
        });
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        QVERIFY(outcome.wait());
        QCOMPARE(lines, 300000);
        QVERIFY2(linesWhenOthersRan > 0 && linesWhenOthersRan < lines, qPrintable(QString::number(linesWhenOthersRan)));
        QVERIFY(outcome.result->error().description.endsWith("\n300000"));
    }

    // What a bisync call makes of rclone's outcome: its recovery from a lock
    // or a resync demand, at most once, and the cases where it must not.
    void bisyncOutcomes_data()
    {
        QTest::addColumn<QByteArray>("first");  // the first bisync
        QTest::addColumn<QByteArray>("later");  // every later one
        QTest::addColumn<int>("lock");          // Lock: who wrote the lock file
        QTest::addColumn<int>("local");         // Local: the local folder
        QTest::addColumn<QStringList>("commands");
        QTest::addColumn<int>("kind");          // RcloneError::Kind, or -1 for success
        QTest::addColumn<bool>("lockKept");
        QTest::addColumn<bool>("retryResyncs");
        QTest::addColumn<bool>("nextResyncs"); // the folder's next run (the pair synced before)
        QTest::addColumn<bool>("initial");     // the call is a resync: the pair lost its history
        QTest::addColumn<QByteArray>("listing"); // what the remote holds (rclone lsf)
        const QByteArray lock = lockFailure(lockPath()), resync = resyncFailure();
        const QByteArray empty = "echo 'ERROR : Empty current Path1 listing. Cannot sync to an empty directory: x'\n" + resync;
        const QStringList once{"mkdir", "bisync"}, twice{"mkdir", "bisync", "mkdir", "bisync"};
        // A resync of a pair that synced before looks at the remote first.
        const QStringList resynced{"mkdir", "bisync", "lsf", "mkdir", "bisync"};
        const QByteArray holds = "echo note.txt", holdsNothing = "echo .nimbrell-removed/";
        const int ok = -1, failed = int(RcloneError::Kind::exitStatus);
        const int withheld = int(RcloneError::Kind::resyncWithheld);
        const int none = int(Lock::none), files = int(Local::files);
        // Every row's mkdir fails: its outcome is ignored.
        QTest::newRow("exit 0 whatever it printed") << QByteArray("echo 'ERROR : odd'; echo 'Must run --resync to recover'")
            << QByteArray() << none << files << once << ok << false << false << false << false << holds;
        QTest::newRow("no output") << QByteArray("exit 2") << QByteArray() << none << files << once << failed << false << false << false << false << holds;
        QTest::newRow("stale lock: deleted, same call again") << lock << QByteArray() << int(Lock::dead) << files << twice
            << ok << false << false << false << false << holds;
        QTest::newRow("lock of a dead, unreaped rclone") << lock << QByteArray() << int(Lock::zombie) << files << twice
            << ok << false << false << false << false << holds;
        QTest::newRow("lock of a live bisync: no retry, no resync") << resync.left(resync.size() - 7) + lock
            << QByteArray() << int(Lock::live) << files << once << failed << true << false << true << false << holds;
        QTest::newRow("lock beyond the last 15 lines") << lock.left(lock.size() - 7)
            + "for i in $(seq 1 15); do echo \"later $i\"; done; exit 1\n" << QByteArray() << int(Lock::dead) << files
            << once << failed << true << false << false << false << holds;
        QTest::newRow("resync demanded: retried with --resync") << resync << QByteArray() << none << files << resynced << ok
            << false << true << false << false << holds;
        QTest::newRow("lock before resync") << resync.left(resync.size() - 7) + lock << QByteArray() << int(Lock::dead)
            << files << twice << ok << false << false << false << false << holds;
        QTest::newRow("resync demanded again") << resync << resync << none << files << resynced << failed << false << true << true << false << holds;
        QTest::newRow("lock found again") << lock << "touch '" + lockPath().toUtf8() + "'\n" + lock << int(Lock::dead)
            << files << twice << failed << true << false << false << false << holds;
        QTest::newRow("lock outside the work directory is kept") << lockFailure(namedLock(Lock::outside))
            << QByteArray() << int(Lock::outside) << files << once << failed << true << false << false << false << holds;
        QTest::newRow("lock climbing out of it is kept") << lockFailure(namedLock(Lock::climbing)) << QByteArray()
            << int(Lock::climbing) << files << once << failed << true << false << false << false << holds;
        QTest::newRow("empty side: no resync") << empty << QByteArray() << none << files << once << withheld << false << false << false << false << holds;
        QTest::newRow("empty local folder: no resync") << resync << QByteArray() << none << int(Local::empty) << once
            << withheld << false << false << false << false << holds;
        QTest::newRow("missing local folder: no rclone") << QByteArray() << QByteArray() << none << int(Local::missing)
            << QStringList() << int(RcloneError::Kind::localFolderMissing) << false << false << false << false << holds;
        // A crash leaves a stale lock and lost listings; an unmounted drive
        // leaves its mount point empty. No path leads to a resync into it.
        QTest::newRow("dead lock, then a resync demanded, local folder empty") << lock << resync << int(Lock::dead)
            << int(Local::empty) << twice << withheld << false << false << false << false << holds;
        QTest::newRow("history lost, local folder empty: nothing runs") << QByteArray() << QByteArray() << none
            << int(Local::empty) << QStringList() << withheld << false << false << false << true << holds;
        QTest::newRow("history lost, remote empty: no resync") << QByteArray() << QByteArray() << none << files
            << QStringList{"lsf"} << withheld << false << false << false << true << holdsNothing;
        QTest::newRow("history lost, remote missing: no resync") << QByteArray() << QByteArray() << none << files
            << QStringList{"lsf"} << withheld << false << false << false << true
            << QByteArray("echo 'directory not found' >&2; exit 3");
        QTest::newRow("history lost, both sides hold files: resync") << QByteArray() << QByteArray() << none << files
            << QStringList{"lsf", "mkdir", "bisync"} << ok << false << true << false << true << holds;
    }

    void bisyncOutcomes()
    {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, later);
        QFETCH(int, lock);
        QFETCH(int, local);
        QFETCH(bool, initial);
        QFETCH(QByteArray, listing);
        m_fake->script("mkdir", "echo 'directory exists' >&2; exit 1\n");
        m_fake->script("lsf", listing);
        m_fake->script("bisync.1", first);
        m_fake->script("bisync", later);
        if (local == int(Local::empty))
            QFile::remove(localPath() + "/note.txt");
        else if (local == int(Local::missing))
            QDir(localPath()).removeRecursively();

        QProcess holder;
        pid_t zombie = 0;
        const QString fakeRclone = m_tmp.filePath("rclone"); // a program named rclone
        QFile::remove(fakeRclone);
        QVERIFY(QFile::copy("/bin/sleep", fakeRclone));
        const QString lockFile = QDir::cleanPath(namedLock(Lock(lock)));
        if (lock == int(Lock::dead) || lock == int(Lock::outside) || lock == int(Lock::climbing)) {
            writeLock(lockFile, 999999999);
        } else if (lock == int(Lock::live)) {
            holder.start(fakeRclone, {"30"});
            QVERIFY(holder.waitForStarted());
            writeLock(lockFile, holder.processId());
        } else if (lock == int(Lock::zombie)) {
            zombie = ::fork();
            if (zombie == 0) {
                ::execl(QFile::encodeName(fakeRclone).constData(), "rclone", "0", nullptr);
                ::_exit(127);
            }
            QTRY_VERIFY(readFile(QStringLiteral("/proc/%1/stat").arg(zombie)).contains(") Z "));
            writeLock(lockFile, zombie);
        }

        BisyncRequest request = this->request();
        request.isInitialSync = initial;
        const RcloneStatus result = bisync(request);
        QFETCH(QStringList, commands);
        QFETCH(int, kind);
        QFETCH(bool, lockKept);
        QFETCH(bool, retryResyncs);
        QCOMPARE(m_fake->commands(), commands);
        QCOMPARE(result.ok() ? -1 : int(result.error().kind), kind);
        if (lock != int(Lock::none))
            QCOMPARE(QFileInfo::exists(lockFile), lockKept);
        QList<QStringList> bisyncs = m_fake->calls();
        bisyncs.removeIf([](const QStringList &call) { return call.value(0) != "bisync"; });
        // Each resync keeps what it replaces.
        for (const QStringList &call : bisyncs)
            QCOMPARE(call.contains("--backup-dir1"), call.contains("--resync"));
        if (bisyncs.size() == 2)
            QCOMPARE(bisyncs[1].contains("--resync"), retryResyncs);
        else if (bisyncs.size() == 1)
            QCOMPARE(bisyncs[0].contains("--resync"), retryResyncs);
        if (!result.ok() && result.error().kind != RcloneError::Kind::localFolderMissing)
            QVERIFY(!result.error().description.isEmpty());
        if (local == int(Local::missing))
            QCOMPARE(result.error().description, "Local folder not found: " + localPath());
        // The next run is a resync only where rclone lost the history and
        // both sides hold files.
        QFETCH(bool, nextResyncs);
        const qsizetype before = m_fake->calls().size();
        request.isInitialSync = !result.ok() && result.error().demandsResync();
        bisync(request);
        const QList<QStringList> next = m_fake->calls().mid(before);
        QCOMPARE(std::any_of(next.begin(), next.end(), [](const QStringList &call) { return call.contains("--resync"); }),
                 nextResyncs);
        holder.kill();
        holder.waitForFinished();
        if (zombie > 0)
            ::waitpid(zombie, nullptr, 0);
    }

    // What rclone's copy skipped as unchanged (the same size, times within a
    // WebDAV second) is copied again once a bisync of the pair succeeds; it
    // waits in the work directory through failed bisyncs and failed copies.
    void skippedCopiesAreMadeOnceABisyncSucceeds_data()
    {
        QTest::addColumn<QByteArray>("first");  // the first bisync, then the first copy
        QTest::addColumn<QByteArray>("copy");
        QTest::addColumn<QByteArray>("next");   // the second bisync
        QTest::addColumn<QStringList>("extra"); // of the request
        QTest::addColumn<QStringList>("commands");  // of the first call, then of the second
        QTest::addColumn<QStringList>("commandsNext");
        QTest::addColumn<bool>("firstOk");
        const QStringList copied{"mkdir", "bisync", "copy"}, plain{"mkdir", "bisync"};
        const QByteArray none;
        QTest::newRow("skipped, then copied") << kSkipped << none << none << QStringList() << copied << plain << true;
        QTest::newRow("the copy fails: the next run makes it") << kSkipped << QByteArray("exit 1") << none << QStringList()
            << copied << copied << false;
        QTest::newRow("the bisync fails: the copy waits") << kSkipped + "exit 7\n" << none << none << QStringList()
            << plain << copied << false;
        QTest::newRow("the copy stopped by a signal") << kSkipped << QByteArray("kill -TERM $$") << none << QStringList()
            << copied << copied << false;
        QTest::newRow("a dry run copies nothing, later") << kSkipped << none << none << QStringList{"--dry-run"}
            << QStringList{"bisync"} << QStringList{"bisync"} << true;
        QTest::newRow("all copied") << kSkipped + "line 'x.bin: Copied (replaced existing)'; line 'a b/x é.txt: Copied (new)'\n"
            << none << none << QStringList() << plain << plain << true;
        // Copying again what a later bisync (a resync, say) replaced would
        // put its copy in the backup directory over the one it kept there.
        const QByteArray later = "line() { echo \"2026/11/24 08:00:00 INFO  : $1\"; }\n"
                                 "line '- Path1    Resync is copying files to         - Path2'\n";
        QTest::newRow("the bisync fails, the next copies one and deletes the other") << kSkipped + "exit 7\n" << none
            << later + "line 'x.bin: Copied (replaced existing)'; line 'a b/x é.txt: Deleted'\n" << QStringList()
            << plain << plain << false;
        QTest::newRow("the bisync fails, the next one settles one") << kSkipped + "exit 7\n"
            << QByteArray("[ \"$(cat \"$5\")\" = 'a b/x é.txt' ] || exit 3")
            << later + "line 'x.bin: Copied (new)'\n" << QStringList() << plain << copied << false;
    }
    void skippedCopiesAreMadeOnceABisyncSucceeds()
    {
        QFETCH(QByteArray, first);
        QFETCH(QByteArray, copy);
        QFETCH(QStringList, extra);
        QVERIFY(QDir().mkpath(localPath() + "/empty dir")); // made by the bisync: never copied
        m_fake->script("bisync.1", first);
        m_fake->script("copy.1", copy);
        QFETCH(QByteArray, next);
        m_fake->script("bisync.2", next);
        BisyncRequest request = this->request();
        request.extraArguments = extra;
        request.keepArguments = {"--exclude", "/.nimbrell-removed/**", "--backup-dir1", "/kept", "--backup-dir2", "remote:Docs/.kept"};
        QFETCH(bool, firstOk);
        QCOMPARE(bisync(request).ok(), firstOk);
        QFETCH(QStringList, commands);
        QCOMPARE(m_fake->commands(), commands);
        const QList<QStringList> calls = m_fake->calls();
        if (commands.contains("copy")) {
            const QStringList &copyCall = calls.last();
            QCOMPARE(copyCall.mid(0, 4), (QStringList{"copy", localPath(), "remote:Docs", "--files-from-raw"}));
            QCOMPARE(copyCall.mid(5), (QStringList{"--ignore-times", "--no-traverse", "-v", "--backup-dir", "remote:Docs/.kept"}));
        }
        const QDir work(BisyncLocks::workDirectory());
        const QStringList lists = work.entryList({"nimbrell-skipped-*"}, QDir::Files);
        QCOMPARE(lists.isEmpty(), firstOk);
        if (!lists.isEmpty())
            QCOMPARE(readFile(work.filePath(lists[0])), "a b/x é.txt\nx.bin\n");
        const qsizetype before = calls.size();
        QVERIFY(bisync(request).ok());
        QFETCH(QStringList, commandsNext);
        QCOMPARE(m_fake->commands().mid(before), commandsNext);
        QVERIFY(work.entryList({"nimbrell-skipped-*"}, QDir::Files).isEmpty());
    }

    // The folder renamed away or its drive pulled while rclone runs: rclone
    // goes on by path and makes a new folder there (or fills the bare mount
    // point) with what it downloads. That goes again, the folder itself is
    // untouched, and the pair's next run is a resync.
    void folderLeavingDuringARun_data()
    {
        QTest::addColumn<bool>("mountPoint"); // what takes the path: a bare mount point, or nothing
        QTest::newRow("renamed away") << false;
        QTest::newRow("drive pulled, mount point left") << true;
    }
    void folderLeavingDuringARun()
    {
        QFETCH(bool, mountPoint);
        const QString away = localPath() + ".away";
        QVERIFY(!mountPoint || QDir().mkpath(localPath() + ".mount"));
        // (The stop asked for on the way waits until the stand-in is there.)
        m_fake->script("bisync.1", QByteArray("trap 'stop=1' TERM\n")
                           + (mountPoint ? "mv \"$2\" \"$2.away\" && mv \"$2.mount\" \"$2\"\n" : "mv \"$2\" \"$2.away\"\n")
                           + "mkdir -p \"$2/sub\" && echo x > \"$2/sub/x.txt\" && echo y > \"$2/y.txt.1a2b3c4d.partial\"\n"
                             "line() { echo \"2026/11/24 11:00:00 INFO  : $1\"; }\n"
                             "line '- Path2    Do queued copies to                - Path1'; line 'sub/x.txt: Copied (new)'\n"
                             "[ -n \"$stop\" ] || { sleep 5 & wait $!; }\n");
        m_fake->script("lsf", "echo note.txt\n");
        const RcloneStatus result = bisync();
        QCOMPARE(int(result.error().kind), int(RcloneError::Kind::localFolderMissing));
        QCOMPARE(result.error().description, "Local folder left its place during the sync: " + localPath());
        // The bare mount point stays, emptied. (Without birth times only the downloads go.)
        const bool births = QFileInfo(away).birthTime().isValid();
        QCOMPARE(QFileInfo::exists(localPath()), mountPoint || !births);
        QVERIFY(!QFileInfo::exists(localPath() + "/sub/x.txt"));
        QVERIFY(!mountPoint || !births || QDir(localPath()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
        QCOMPARE(readFile(away + "/note.txt"), "note");
        // The folder back: its next run reads both sides afresh, the one after is as ever.
        QVERIFY(!QFileInfo::exists(localPath()) || QDir(localPath()).removeRecursively());
        QVERIFY(QDir().rename(away, localPath()));
        QVERIFY(bisync().ok());
        QVERIFY(bisync().ok());
        const QList<QStringList> calls = m_fake->calls();
        QCOMPARE(m_fake->commands().mid(m_fake->commands().size() - 5),
                 (QStringList{"lsf", "mkdir", "bisync", "mkdir", "bisync"}));
        QVERIFY(calls.at(calls.size() - 3).contains("--resync"));
        QVERIFY(!calls.last().contains("--resync"));
    }

    // A folder whose drive was unmounted is an empty directory on another
    // volume: no rclone runs, whatever the pair's history.
    void noRunOffTheFoldersDrive()
    {
        for (const bool initial : {false, true}) {
            BisyncRequest request = this->request();
            request.isInitialSync = initial; // a first sync, of a pair that never synced
            request.hasSyncedBefore = !initial;
            request.localMountPoint = "/media/user/Drive";
            const qsizetype before = m_fake->calls().size();
            const RcloneStatus result = bisync(request);
            QCOMPARE(m_fake->calls().size(), before);
            QCOMPARE(int(result.error().kind), int(RcloneError::Kind::localFolderMissing));
            QCOMPARE(result.error().description, "Local folder not mounted: " + localPath() + " (its drive was at /media/user/Drive)");
            request.localMountPoint = LocalRoot::mountPointOf(localPath());
            QVERIFY(!request.localMountPoint.isEmpty());
            QVERIFY(bisync(request).ok());
        }
    }

    // ---- remote commands ------------------------------------------------

    // Each call's arguments, exactly as given (never through a shell), and its
    // value. run()'s result is standard output, as it came; standard error
    // (rclone's notices) does not make a success a failure.
    void remoteCommandArguments()
    {
        m_fake->script("lsf", "printf 'out \\e[31mred\\e[0m\\n'\n"
                           "echo 'NOTICE: Config file not found - using defaults' >&2\n");
        m_fake->script("about", "echo '{\"total\":100,\"used\":40,\"free\":60}'\n");
        m_fake->script("version", "printf 'rclone v1.75.2\\n- os/version: debian 12\\n'\n");
        m_fake->script("listremotes", "printf 'gdrive:   drive\\nwork docs:   alias  Team docs\\n'\n");

        const QStringList arguments{"lsf", "my remote:", "a \"quoted\" 'one'", "$HOME;rm -rf /", "line\nbreak",
                                    "-leading", "Ünïcødé ✓ 日本", "", "*"};
        const auto run = resultOf<QString>([&](auto done) { m_engine->run(arguments, nullptr, done); });
        const auto created = resultOf<std::monostate>([&](auto done) { RemoteCommands::createRemote(*m_engine, "-my \"drive\"", "drive", nullptr, done); });
        const auto reconnected = resultOf<std::monostate>([&](auto done) { RemoteCommands::reconnectRemote(*m_engine, "-my \"drive\"", nullptr, done); });
        const auto space = resultOf<RemoteSpaceInfo>([&](auto done) { RemoteCommands::getSpaceInfo(*m_engine, "work docs", nullptr, done); });
        const auto version = resultOf<QString>([&](auto done) { RemoteCommands::getVersion(*m_engine, nullptr, done); });
        const auto remotes = resultOf<QList<CloudRemote>>([&](auto done) { RemoteCommands::listRemotes(*m_engine, nullptr, done); });

        QCOMPARE(m_fake->calls(), (QList<QStringList>{
                                   arguments,
                                   {"config", "create", "-my \"drive\"", "drive", "--non-interactive"},
                                   {"config", "reconnect", "-my \"drive\":", "--auto-confirm"},
                                   {"about", "work docs:", "--json"},
                                   {"version"},
                                   {"listremotes", "--long"},
                               }));
        QCOMPARE(run.value(), "out \x1b[31mred\x1b[0m\n"); // success output is not stripped
        QVERIFY(created.ok() && reconnected.ok());
        QCOMPARE(space.value(), (RemoteSpaceInfo{100, 40, 60, std::nullopt}));
        QCOMPARE(version.value(), "rclone v1.75.2");
        QCOMPARE(remotes.value(), (QList<CloudRemote>{{"gdrive", "drive"}, {"work docs", "alias"}}));

        // The version is kept while the binary is the same file, on disk too.
        QPointer<RcloneJob> job;
        const auto kept = resultOf<QString>([&](auto done) { job = RemoteCommands::getVersion(*m_engine, nullptr, done); });
        QVERIFY(job.isNull());
        QCOMPARE(kept.value(), "rclone v1.75.2");
        QCOMPARE(m_fake->calls().size(), 6);
        QVERIFY(QFile::exists(m_home + "/.cache/nimbrell/rclone-version"));
        const QString other = m_tmp.filePath("other rclone");
        QVERIFY(QFile::copy(FakeRclone::path(), other));
        RcloneEngine otherEngine(other);
        QCOMPARE(resultOf<QString>([&](auto done) { RemoteCommands::getVersion(otherEngine, nullptr, done); }).value(), "rclone v1.75.2");
        QCOMPARE(m_fake->calls().size(), 7);
    }

    // An answer larger than what is kept is an error, never its first part
    // passed off as all of it; read line by line, any size comes whole.
    void largeAnswers()
    {
        m_fake->script("lsjson", "for i in $(seq 1 300000); do echo \"{\\\"Path\\\":\\\"dir/file number $i.txt\\\"},\"; done\n");
        QTest::ignoreMessage(QtCriticalMsg, "rclone's answer was larger than the 8 MiB read of it");
        const auto whole = resultOf<QString>([&](auto done) { m_engine->run({"lsjson"}, nullptr, done); });
        QVERIFY(!whole.ok());
        QCOMPARE(whole.error().kind, RcloneError::Kind::badOutput);

        qsizetype lines = 0;
        QByteArray last;
        const auto streamed = resultOf<QString>([&](auto done) {
            m_engine->runLines({"lsjson"}, nullptr, [&](const QByteArray &line) { ++lines, last = line; }, done);
        });
        QVERIFY(streamed.ok());
        QCOMPARE(lines, 300000);
        QCOMPARE(last, "{\"Path\":\"dir/file number 300000.txt\"},");
    }

    void parseRemoteList_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QList<CloudRemote>>("remotes");
        QTest::newRow("two and an empty line") << "gdrive:   drive\nbox: box\n\n"
                                               << QList<CloudRemote>{{"gdrive", "drive"}, {"box", "box"}};
        QTest::newRow("name with blanks, description")
            << "work docs:              alias  Team docs\nlocal:                  local\n"
            << QList<CloudRemote>{{"work docs", "alias"}, {"local", "local"}};
        QTest::newRow("tab after the type") << "dav:\twebdav\tshared\n" << QList<CloudRemote>{{"dav", "webdav"}};
        QTest::newRow("CRLF") << "a: s3\r\nb: b2\r\n" << QList<CloudRemote>{{"a", "s3"}, {"b", "b2"}};
        QTest::newRow("lines without a type") << "noise\nonly:\n: x\n" << QList<CloudRemote>{};
        QTest::newRow("nothing") << "" << QList<CloudRemote>{};
    }
    void parseRemoteList()
    {
        QFETCH(QString, output);
        QFETCH(QList<CloudRemote>, remotes);
        QCOMPARE(RemoteCommands::parseRemoteList(output), remotes);
    }

    void parseSpaceInfo()
    {
        QCOMPARE(RemoteCommands::parseSpaceInfo(R"({"total":8796093022208,"used":1.5,"free":"60","trashed":0})").value(),
                 (RemoteSpaceInfo{8796093022208, std::nullopt, std::nullopt, 0}));
        QCOMPARE(RemoteCommands::parseSpaceInfo("{}").value(), RemoteSpaceInfo());
        QCOMPARE(RemoteCommands::parseSpaceInfo("[1]").error().kind, RcloneError::Kind::badOutput);
        QCOMPARE(RemoteCommands::parseSpaceInfo("{\"total\":").error().kind, RcloneError::Kind::badOutput);
    }

    void parseVersion()
    {
        QCOMPARE(RemoteCommands::parseVersion("rclone v1.75.2\n- os/version: debian 12.11 (64 bit)\n"), "rclone v1.75.2");
        QCOMPARE(RemoteCommands::parseVersion("  rclone v1 \n"), "  rclone v1 "); // untrimmed
        QCOMPARE(RemoteCommands::parseVersion("\n\nrclone v2"), "rclone v2");
        QCOMPARE(RemoteCommands::parseVersion(""), "rclone Unknown");
    }
};

QTEST_GUILESS_MAIN(TestRcloneEngine)
#include "tst_rcloneengine.moc"
