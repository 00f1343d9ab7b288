#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "fakes/FakeRclone.h"
#include "support/Outcome.h"

#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

Q_DECLARE_METATYPE(std::optional<SyncFilterOptions>)
Q_DECLARE_METATYPE(ConflictResolution)

namespace {

bool processIsGone(qint64 pid)
{
    return pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0;
}

const QByteArray kLockTips = "NOTICE: Tip: this indicates that another bisync run (of these same paths) either is still running or was interrupted before completion.\n"
                             "NOTICE: Tip: If you're SURE you want to override this safety feature, you can delete the lock file with the following command, then run bisync again:\n";

} // namespace

class TestRcloneEngine : public QObject
{
    Q_OBJECT

    QTemporaryDir m_tmp;
    QByteArray m_realHome;
    QString m_home;

    QString lockPath() const
    {
        return RcloneEngine::workDirectory() + QStringLiteral("/_home_ann_Docs..remote_Docs.lck");
    }

    // A lock file of our work directory, written by the process `pid`.
    void writeLock(const QString &path, qint64 pid)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile lock(path);
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write(R"({"Session":"_home_ann_Docs..remote_Docs","PID":")" + QByteArray::number(pid) +
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

    BisyncRequest request() const
    {
        return BisyncRequest{QStringLiteral("/home/ann/Docs"), QStringLiteral("remote:Docs"), SyncFilterOptions(),
                             ConflictResolution::keepBoth, false};
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
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }
    void init() { QDir(RcloneEngine::workDirectory()).removeRecursively(); }

    // ---- run(arguments:) ------------------------------------------------

    void runPassesArgumentsUntouched()
    {
        FakeRclone fake;
        fake.script("about", "printf 'out \\e[31mred\\e[0m\\n'\n");
        RcloneEngine engine(fake.path());
        const QStringList arguments{"about", "my remote:", "a \"quoted\" 'one'", "$HOME;rm -rf /", "line\nbreak",
                                    "-leading", "Ünïcødé ✓ 日本", "", "*"};
        Outcome<QString> outcome;
        engine.run(arguments, nullptr, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QCOMPARE(outcome.result->value(), "out \x1b[31mred\x1b[0m\n"); // success output is not stripped
        QCOMPARE(fake.calls(), QList<QStringList>{arguments});
    }

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
        FakeRclone fake;
        fake.script("config", script);
        RcloneEngine engine(fake.path());
        Outcome<QString> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code "));
        engine.run({"config", "delete", "x"}, nullptr, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(!outcome.result->ok());
        QCOMPARE(outcome.result->error(), (RcloneError{RcloneError::Kind::exitStatus, code, message}));
    }

    void runSucceedsWhateverStandardErrorSays()
    {
        FakeRclone fake;
        fake.script("version", "echo 'NOTICE: Config file not found - using defaults' >&2\n");
        RcloneEngine engine(fake.path());
        Outcome<QString> outcome;
        engine.run({"version"}, nullptr, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QCOMPARE(outcome.result->value(), QString());
    }

    void runLaunchFailure()
    {
        RcloneEngine engine(m_tmp.filePath("no-such-rclone"));
        Outcome<QString> outcome;
        engine.run({"version"}, nullptr, outcome.callback());
        QVERIFY(outcome.wait());
        QCOMPARE(outcome.result->error().kind, RcloneError::Kind::launchFailed);
        QVERIFY(!outcome.result->error().description.isEmpty());
    }

    void cancelTerminatesTheChild()
    {
        FakeRclone fake;
        fake.script("config", "trap 'exit 143' TERM\nwhile :; do sleep 0.05; done\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QPointer<RcloneJob> job = engine.reconnectRemote("gdrive", nullptr, outcome.callback());
        QSignalSpy started(job.data(), &RcloneJob::processStarted);
        QTRY_VERIFY(!fake.calls().isEmpty());
        QCOMPARE(started.count(), 1);
        const qint64 pid = started.at(0).at(0).value<QProcess *>()->processId();
        job->cancel();
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->isCancelled());
        QVERIFY(processIsGone(pid));
        QTRY_VERIFY(job.isNull()); // the job cleans itself up
    }

    void cancelKillsAChildThatIgnoresTerminate()
    {
        FakeRclone fake;
        fake.script("config", "trap '' TERM\nwhile :; do sleep 0.05; done\n");
        RcloneEngine engine(fake.path());
        Outcome<QString> outcome;
        RcloneJob *job = engine.run({"config", "reconnect", "x:"}, nullptr, outcome.callback());
        QSignalSpy started(job, &RcloneJob::processStarted);
        QTRY_VERIFY(!fake.calls().isEmpty());
        const qint64 pid = started.at(0).at(0).value<QProcess *>()->processId();
        job->cancel();
        QVERIFY(outcome.wait(15000));
        QVERIFY(outcome.result->isCancelled());
        QVERIFY(processIsGone(pid));
    }

    void cancelBeforeTheChildStarts()
    {
        FakeRclone fake;
        RcloneEngine engine(fake.path());
        Outcome<QString> outcome;
        engine.run({"version"}, nullptr, outcome.callback())->cancel();
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->isCancelled());
        QVERIFY(fake.calls().isEmpty());
    }

    void noCallbackOnceTheContextIsGone()
    {
        FakeRclone fake;
        fake.script("version", "sleep 0.2; echo 'rclone v1.75.2'\n");
        RcloneEngine engine(fake.path());
        auto *context = new QObject;
        bool called = false;
        QPointer<RcloneJob> job = engine.getVersion(context, [&](const RcloneResult<QString> &) { called = true; });
        QTRY_VERIFY(!fake.calls().isEmpty());
        delete context;
        QTRY_VERIFY(job.isNull());
        QVERIFY(!called);
    }

    void runawayOutputStaysBounded()
    {
        FakeRclone fake;
        // 100 MB on standard output, then a failure.
        fake.script("listremotes", "head -c 100000000 /dev/zero | tr '\\0' 'x'; echo 'bad' >&2; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<QString> outcome;
        QTest::ignoreMessage(QtCriticalMsg, "rclone exited with code 1: bad\n");
        engine.run({"listremotes"}, nullptr, outcome.callback());
        QVERIFY(outcome.wait(60000));
        QCOMPARE(outcome.result->error().description, "bad\n");
    }

    // ---- bisync ---------------------------------------------------------

    void bisyncArguments_data()
    {
        QTest::addColumn<std::optional<SyncFilterOptions>>("filters");
        QTest::addColumn<ConflictResolution>("resolution");
        QTest::addColumn<bool>("initial");
        QTest::addColumn<QStringList>("tail");

        QTest::newRow("initial, all filters, local wins")
            << std::optional(SyncFilterOptions{true, true, true}) << ConflictResolution::localWins << true
            << QStringList{"--resync", "--exclude", ".git/**", "--exclude", ".*/**", "--exclude", "**/.*",
                           "--exclude", "node_modules/**", "--conflict-resolve", "local", "--conflict-loser", "delete"};
        QTest::newRow("no filters, keep both") << std::optional<SyncFilterOptions>() << ConflictResolution::keepBoth
                                               << false
                                               << QStringList{"--conflict-resolve", "newer", "--conflict-loser", "num"};
        QTest::newRow("default filters, newer wins")
            << std::optional(SyncFilterOptions()) << ConflictResolution::newerWins << false
            << QStringList{"--exclude", ".git/**", "--exclude", "node_modules/**", "--conflict-resolve", "newer",
                           "--conflict-loser", "delete"};
        QTest::newRow("filters all off, primary remote wins")
            << std::optional(SyncFilterOptions{false, false, false}) << ConflictResolution::remoteWins << true
            << QStringList{"--resync", "--conflict-resolve", "remote", "--conflict-loser", "delete"};
        QTest::newRow("hidden only") << std::optional(SyncFilterOptions{false, true, false})
                                     << ConflictResolution::keepBoth << false
                                     << QStringList{"--exclude", ".*/**", "--exclude", "**/.*", "--conflict-resolve",
                                                    "newer", "--conflict-loser", "num"};
    }
    void bisyncArguments()
    {
        QFETCH(std::optional<SyncFilterOptions>, filters);
        QFETCH(ConflictResolution, resolution);
        QFETCH(bool, initial);
        QFETCH(QStringList, tail);
        const BisyncRequest r{"/home/ann/My Docs", "work docs:Back up", filters, resolution, initial};
        const QStringList base{"bisync", "/home/ann/My Docs", "work docs:Back up", "--workdir", "/w",
                               "--create-empty-src-dirs", "-v", "-P"};
        QCOMPARE(RcloneEngine::bisyncArguments(r, "/w"), base + tail);
    }

    void bisyncRunsMkdirThenBisyncWithProgress()
    {
        FakeRclone fake;
        fake.script("bisync", "printf 'INFO  : Copying\\nTransferred:   \\t 1 MiB / 4 MiB, 25%%, 1 MiB/s, ETA 3s\\n'\n"
                              "printf 'Transferred:            1 / 4, 25%%\\nElapsed time:  1.0s'\n"
                              "printf 'Transferred:   \\t 4 MiB / 4 MiB, 100%%, 2 MiB/s, ETA 0s\\nChecks: 1 / 1\\n'\n"
                              "printf 'Transferred:            4 / 4, 100%%'\n"); // the last line has no line break
        RcloneEngine engine(fake.path());
        QList<SyncProgress> progress;
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtInfoMsg, "Starting bisync. Local: /home/ann/Docs, Remote: remote:Docs, Initial: true, Retry: false");
        BisyncRequest r = request();
        r.isInitialSync = true;
        engine.bisync(r, nullptr, [&](const SyncProgress &p) { progress.append(p); }, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());

        const QString workDirectory = m_home + "/.config/rclone/bisync_workdir";
        QVERIFY(QFileInfo(workDirectory).isDir());
        QCOMPARE(fake.calls(), (QList<QStringList>{
                                   {"mkdir", "remote:Docs"},
                                   RcloneEngine::bisyncArguments(r, workDirectory),
                               }));
        QCOMPARE(progress, (QList<SyncProgress>{
                               {0.25, "1 MiB / 4 MiB", std::nullopt, "1 MiB/s, ETA 3s"},
                               {std::nullopt, std::nullopt, "1 / 4", std::nullopt},
                               {1.0, "4 MiB / 4 MiB", std::nullopt, "2 MiB/s, ETA 0s"},
                               {std::nullopt, std::nullopt, "4 / 4", std::nullopt},
                           }));
    }

    void bisyncIgnoresAFailedMkdir()
    {
        FakeRclone fake;
        fake.script("mkdir", "echo 'directory exists' >&2; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, "rclone exited with code 1: directory exists\n");
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));
    }

    void bisyncSucceedsOnExitZeroWhateverItPrinted()
    {
        FakeRclone fake;
        fake.script("bisync", "echo 'ERROR : something odd'; echo 'Must run --resync to recover'\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));
    }

    void bisyncErrorIsTheLastFifteenLines()
    {
        FakeRclone fake;
        fake.script("bisync", "for i in $(seq 1 40); do printf 'line %d \\e[31mred\\e[0m\\n' $i; done; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: line 26 red\n"));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QStringList expected;
        for (int i = 26; i <= 40; ++i)
            expected.append(QStringLiteral("line %1 red").arg(i));
        QCOMPARE(outcome.result->error(), (RcloneError{RcloneError::Kind::exitStatus, 1, expected.join('\n')}));
    }

    void bisyncWithoutOutputFailsWithUnknownError()
    {
        FakeRclone fake;
        fake.script("bisync", "exit 2\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, "Bisync failed with status 2: ");
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QCOMPARE(outcome.result->error(), (RcloneError{RcloneError::Kind::exitStatus, 2, "Unknown Error"}));
    }

    void staleLockIsDeletedAndRetriedOnce()
    {
        FakeRclone fake;
        writeLock(lockPath(), 999999999); // no such process
        fake.script("bisync.1", lockFailure(lockPath()));
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, qPrintable("Found bisync lock file at " + lockPath() + ". Deleting and retrying..."));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("Retry: false$"));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("Initial: false, Retry: true$"));
        RcloneJob *job = engine.bisync(request(), nullptr, {}, outcome.callback());
        QSignalSpy started(job, &RcloneJob::processStarted);
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QVERIFY(!QFileInfo::exists(lockPath()));
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync", "mkdir", "bisync"}));
        QCOMPARE(fake.calls()[1], fake.calls()[3]); // the same arguments again
        QCOMPARE(started.count(), 2);
    }

    void lockOfALiveBisyncIsKept()
    {
        // A running program named rclone holds the lock.
        const QString liveRclone = m_tmp.filePath("rclone");
        QFile::remove(liveRclone);
        QVERIFY(QFile::copy("/bin/sleep", liveRclone));
        QProcess holder;
        holder.start(liveRclone, {"30"});
        QVERIFY(holder.waitForStarted());
        writeLock(lockPath(), holder.processId());

        FakeRclone fake;
        fake.script("bisync", lockFailure(lockPath()));
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(!outcome.result->ok());
        QVERIFY(outcome.result->error().description.contains("prior lock file found: " + lockPath() + " \n"));
        QVERIFY(QFileInfo::exists(lockPath()));
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));
        holder.kill();
        holder.waitForFinished();
    }

    void lockOutsideTheWorkDirectoryIsKept()
    {
        const QString elsewhere = m_tmp.filePath("precious.lck");
        writeLock(elsewhere, 999999999);
        FakeRclone fake;
        fake.script("bisync", lockFailure(elsewhere));
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(!outcome.result->ok());
        QVERIFY(QFileInfo::exists(elsewhere));
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));

        // Nor through a path that climbs out of it.
        const QString climbing = RcloneEngine::workDirectory() + "/../../precious.lck";
        writeLock(m_home + "/.config/precious.lck", 999999999);
        fake.script("bisync", lockFailure(climbing));
        Outcome<std::monostate> second;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        engine.bisync(request(), nullptr, {}, second.callback());
        QVERIFY(second.wait());
        QVERIFY(QFileInfo::exists(m_home + "/.config/precious.lck"));
    }

    void lockMessageBeyondTheTailIsNotSeen()
    {
        writeLock(lockPath(), 999999999);
        FakeRclone fake;
        fake.script("bisync", lockFailure(lockPath()) .replace("exit 1\n", "") + "for i in $(seq 1 15); do echo \"later $i\"; done; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: later 1\n"));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(!outcome.result->ok());
        QVERIFY(QFileInfo::exists(lockPath()));
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));
    }

    void resyncDemandRetriesWithResync()
    {
        FakeRclone fake;
        fake.script("bisync.1", resyncFailure());
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, "Bisync requires --resync. Retrying with isInitialSync=true...");
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        const QList<QStringList> calls = fake.calls();
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync", "mkdir", "bisync"}));
        QVERIFY(!calls[1].contains("--resync"));
        QVERIFY(calls[3].contains("--resync"));
    }

    void retryFailsWithoutLooping_data()
    {
        QTest::addColumn<bool>("lock");
        QTest::newRow("resync demanded again") << false;
        QTest::newRow("lock found again") << true;
    }
    void retryFailsWithoutLooping()
    {
        QFETCH(bool, lock);
        FakeRclone fake;
        if (lock) {
            writeLock(lockPath(), 999999999);
            fake.script("bisync", "touch '" + lockPath().toUtf8() + "'\n" + lockFailure(lockPath()));
        } else {
            fake.script("bisync", resyncFailure());
        }
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status [17]: "));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QCOMPARE(outcome.result->error().code, lock ? 1 : 7);
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync", "mkdir", "bisync"}));
    }

    void lockComesBeforeResync()
    {
        writeLock(lockPath(), 999999999);
        FakeRclone fake;
        fake.script("bisync.1", resyncFailure().replace("exit 7\n", "") + lockFailure(lockPath()));
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->ok());
        QVERIFY(!fake.calls()[3].contains("--resync")); // retried as a lock problem
    }

    void cancelStopsBisyncWithoutRetry()
    {
        FakeRclone fake;
        fake.script("bisync", "trap 'echo \"Must run --resync to recover\"; exit 143' TERM\n"
                              "echo 'Transferred:   \t 1 B / 2 B, 50%, 1 B/s, ETA 1s'\nwhile :; do sleep 0.05; done\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        int progress = 0;
        QPointer<RcloneJob> job = engine.bisync(request(), nullptr, [&](const SyncProgress &) { ++progress; },
                                                outcome.callback());
        QTRY_COMPARE(progress, 1);
        job->cancel();
        QVERIFY(outcome.wait());
        QVERIFY(outcome.result->isCancelled());
        QCOMPARE(fake.commands(), (QStringList{"mkdir", "bisync"}));
        QTRY_VERIFY(job.isNull());
    }

    void bisyncSurvivesGarbageOutput()
    {
        FakeRclone fake;
        // 100 MB of binary garbage with hardly a line break, then a failure.
        fake.script("bisync", "head -c 100000000 /dev/urandom; printf '\\nfailed at last\\n'; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> outcome;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Bisync failed with status 1: "));
        engine.bisync(request(), nullptr, {}, outcome.callback());
        QVERIFY(outcome.wait(120000));
        const QString description = outcome.result->error().description;
        QVERIFY(description.endsWith("\nfailed at last"));
        QVERIFY(description.size() < 16 * 64 * 1024); // the tail, not the output
    }

    // ---- remote commands ------------------------------------------------

    void remoteCommandArguments()
    {
        FakeRclone fake;
        fake.script("about", "echo '{\"total\":100,\"used\":40,\"free\":60}'\n");
        fake.script("version", "printf 'rclone v1.75.2\\n- os/version: debian 12\\n'\n");
        fake.script("listremotes", "printf 'gdrive:   drive\\nwork docs:   alias  Team docs\\n'\n");
        RcloneEngine engine(fake.path());

        Outcome<std::monostate> created, reconnected;
        Outcome<RemoteSpaceInfo> space;
        Outcome<QString> version;
        Outcome<QList<CloudRemote>> remotes;
        engine.createRemote("-my \"drive\"", "drive", nullptr, created.callback());
        QVERIFY(created.wait());
        engine.reconnectRemote("-my \"drive\"", nullptr, reconnected.callback());
        QVERIFY(reconnected.wait());
        engine.getSpaceInfo("work docs", nullptr, space.callback());
        QVERIFY(space.wait());
        engine.getVersion(nullptr, version.callback());
        QVERIFY(version.wait());
        engine.listRemotes(nullptr, remotes.callback());
        QVERIFY(remotes.wait());

        QCOMPARE(fake.calls(), (QList<QStringList>{
                                   {"config", "create", "-my \"drive\"", "drive", "--non-interactive"},
                                   {"config", "reconnect", "-my \"drive\":", "--auto-confirm"},
                                   {"about", "work docs:", "--json"},
                                   {"version"},
                                   {"listremotes", "--long"},
                               }));
        QVERIFY(created.result->ok() && reconnected.result->ok());
        QCOMPARE(space.result->value(), (RemoteSpaceInfo{100, 40, 60, std::nullopt}));
        QCOMPARE(version.result->value(), "rclone v1.75.2");
        QCOMPARE(remotes.result->value(), (QList<CloudRemote>{{"gdrive", "drive"}, {"work docs", "alias"}}));
    }

    void remoteCommandFailureReachesTheCaller()
    {
        FakeRclone fake;
        fake.script("config", "echo 'Failed to create: remote \"x\" already exists' >&2; exit 1\n");
        RcloneEngine engine(fake.path());
        Outcome<std::monostate> created;
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 1"));
        engine.createRemote("x", "drive", nullptr, created.callback());
        QVERIFY(created.wait());
        QCOMPARE(created.result->error().description, "Failed to create: remote \"x\" already exists\n");
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
        QCOMPARE(RcloneEngine::parseRemoteList(output), remotes);
    }

    void parseSpaceInfo()
    {
        QCOMPARE(RcloneEngine::parseSpaceInfo(R"({"total":100,"used":40,"free":60})").value(),
                 (RemoteSpaceInfo{100, 40, 60, std::nullopt}));
        QCOMPARE(RcloneEngine::parseSpaceInfo(R"({"total":8796093022208,"used":1.5,"free":"60","trashed":0})").value(),
                 (RemoteSpaceInfo{8796093022208, std::nullopt, std::nullopt, 0}));
        QCOMPARE(RcloneEngine::parseSpaceInfo("{}").value(), RemoteSpaceInfo());
        QCOMPARE(RcloneEngine::parseSpaceInfo("[1]").error().kind, RcloneError::Kind::badOutput);
        QCOMPARE(RcloneEngine::parseSpaceInfo("{\"total\":").error().kind, RcloneError::Kind::badOutput);
    }

    void parseVersion()
    {
        QCOMPARE(RcloneEngine::parseVersion("rclone v1.75.2\n- os/version: debian 12.11 (64 bit)\n"), "rclone v1.75.2");
        QCOMPARE(RcloneEngine::parseVersion("  rclone v1 \n"), "  rclone v1 "); // untrimmed
        QCOMPARE(RcloneEngine::parseVersion("\n\nrclone v2"), "rclone v2");
        QCOMPARE(RcloneEngine::parseVersion(""), "rclone Unknown");
    }
};

QTEST_GUILESS_MAIN(TestRcloneEngine)
#include "tst_rcloneengine.moc"
