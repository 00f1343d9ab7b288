// The engine against the real rclone: local, alias and WebDAV remotes in a
// private HOME and rclone configuration.
#include "engine/BackendCatalog.h"
#include "engine/RemoteCommands.h"
#include "engine/BisyncLocks.h"
#include "engine/Bisync.h"
#include "engine/RcloneEngine.h"
#include "sync/BandwidthLimit.h"
#include "engine/RcloneJob.h"
#include "support/Outcome.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"

#include <QDirIterator>
#include <QPointer>
#include <QSignalSpy>

#include <csignal>

namespace {

// Relative paths of the files under a directory, sorted.
QStringList filesUnder(const QString &root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(root).relativeFilePath(it.next()));
    files.sort();
    return files;
}

// Another bisync of the pair: none, one killed hard, one still running.
enum class Other { none, killed, running };

QStringList lockFiles()
{
    return QDir(BisyncLocks::workDirectory()).entryList({QStringLiteral("*.lck")}, QDir::Files);
}

} // namespace

class TestRcloneReal : public QObject
{
    Q_OBJECT

    static BisyncRequest request(const QString &local, const QString &remote, bool initial)
    {
        return BisyncRequest{local, remote, SyncFilterOptions(), ConflictResolution::keepBoth, initial, {}};
    }

    static RcloneStatus bisync(RcloneEngine &engine, const QString &local, const QString &remote, bool initial)
    {
        return resultOf<std::monostate>(
            [&](auto done) { engine.bisync(request(local, remote, initial), nullptr, {}, done); });
    }

    // A local folder and the alias remote "backup:" for a directory beside it.
    struct Pair { QString local, backup; };
    static Pair makePair(RcloneSandbox &sandbox)
    {
        const Pair pair{sandbox.makeDirectory(QStringLiteral("local")), sandbox.makeDirectory(QStringLiteral("backup"))};
        sandbox.addAlias(QStringLiteral("backup"), pair.backup);
        return pair;
    }

    // A throttled bisync started outside the engine, once it holds the pair's lock.
    static void startHoldingTheLock(QProcess &process, const BisyncRequest &r, const QString &bwlimit)
    {
        QDir().mkpath(BisyncLocks::workDirectory());
        process.start(RcloneSandbox::rclone(), Bisync::arguments(r, BisyncLocks::workDirectory())
                                                   << QStringLiteral("--bwlimit") << bwlimit);
        QVERIFY(process.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(!lockFiles().isEmpty(), 20000);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<QProcess *>();
        QVERIFY2(QFileInfo(RcloneSandbox::rclone()).isExecutable(), "run scripts/setup to provide rclone");
    }

    // The timetable check agrees with rclone's own reading of --bwlimit.
    void bandwidthSchedules_data()
    {
        QTest::addColumn<QString>("text");
        for (const char *text : {"08:00,512k", "8:00,512k", "mOn-08:00,1M", "tuesday-08:00,1.5M", "Mo-08:00,1M",
                                 "Mon-8:00,1M", "24:00,1M", "08:60,1M", "08:00,512k:1M", "08:00,off:1M", "08:00,OFF",
                                 "08:00,1Mi", "08:00,1KiB", "08:00,1MB", "08:00,1Bi", "08:00,1b", "08:00,0", "08:00,-1",
                                 "08:00,.5M", "08:00,1 M", "08:00,1M:", "08:00;512", "08:00,512k,3",
                                 "08:00,512 19:00,off", "512", "1M:off", "off", "fast"})
            QTest::newRow(text) << QString::fromUtf8(text);
    }
    void bandwidthSchedules()
    {
        QFETCH(QString, text);
        QProcess rclone;
        rclone.start(RcloneSandbox::rclone(), {"version", "--bwlimit", text});
        QVERIFY(rclone.waitForFinished());
        QCOMPARE(BandwidthLimit::scheduleError(text).isEmpty(), rclone.exitCode() == 0);
    }

    // What the installed rclone says each backend takes, read as a form:
    // required settings first, advanced ones last, passwords as such, and
    // S3's options and examples only those of the chosen provider.
    void backendsFromRcloneItself()
    {
        RcloneSandbox sandbox;
        RcloneEngine engine(RcloneSandbox::rclone());
        const auto json = resultOf<QString>([&](auto done) { engine.run({"config", "providers"}, nullptr, done); });
        const auto backends = BackendCatalog::parse(json.value().toUtf8());
        QVERIFY(backends && backends->size() >= 50);
        const auto backend = [&](const QString &name) {
            const auto found = std::find_if(backends->begin(), backends->end(),
                                            [&](const BackendCatalog::Backend &b) { return b.name == name; });
            return found == backends->end() ? BackendCatalog::Backend() : *found;
        };
        const auto names = [](const QList<BackendCatalog::Option> &options) {
            QStringList names;
            for (const BackendCatalog::Option &option : options)
                names.append(option.name);
            return names;
        };

        const BackendCatalog::Backend webdav = backend("webdav");
        const QList<BackendCatalog::Option> form = BackendCatalog::formOptions(webdav, {});
        QCOMPARE(form.value(0).name, "url");
        QVERIFY(form.value(0).required);
        const qsizetype firstAdvanced = std::find_if(form.begin(), form.end(), [](const auto &o) { return o.advanced; }) - form.begin();
        QVERIFY(firstAdvanced > 1 && std::all_of(form.begin() + firstAdvanced, form.end(), [](const auto &o) { return o.advanced; }));
        const auto pass = std::find_if(form.begin(), form.end(), [](const auto &o) { return o.name == "pass"; });
        QVERIFY(pass != form.end() && pass->isPassword && !pass->advanced);
        QCOMPARE(names(BackendCatalog::missing(webdav, {}, {})), QStringList{"url"});
        QVERIFY(BackendCatalog::missing(webdav, {}, {{"url", "http://127.0.0.1:8080/"}}).isEmpty());
        QCOMPARE(names(BackendCatalog::missing(backend("crypt"), {}, {{"remote", "local:/x"}})), QStringList{"password"});

        const BackendCatalog::Backend s3 = backend("s3");
        QVERIFY(names(BackendCatalog::formOptions(s3, "AWS")).contains("requester_pays"));
        QVERIFY(!names(BackendCatalog::formOptions(s3, "Minio")).contains("requester_pays"));
        const auto regions = [&](const QString &provider) {
            const QList<BackendCatalog::Option> options = BackendCatalog::formOptions(s3, provider);
            const auto region = std::find_if(options.begin(), options.end(), [](const auto &o) { return o.name == "region"; });
            QStringList values;
            for (const BackendCatalog::Example &example : region == options.end() ? QList<BackendCatalog::Example>() : region->examples)
                values.append(example.value);
            return values;
        };
        QVERIFY(regions("AWS").contains("us-east-2"));
        QVERIFY(!regions("Minio").contains("us-east-2"));
        QVERIFY(BackendCatalog::appliesTo("!AWS", "Minio") && !BackendCatalog::appliesTo("!AWS", "AWS"));
    }

    void remoteCommands()
    {
        RcloneSandbox sandbox;
        sandbox.addAlias(QStringLiteral("work docs"), sandbox.makeDirectory(QStringLiteral("docs")));
        sandbox.addWebDav(QStringLiteral("dav"), sandbox.makeDirectory(QStringLiteral("dav")));
        RcloneEngine engine(RcloneSandbox::rclone());

        const auto version = resultOf<QString>([&](auto done) { RemoteCommands::getVersion(engine, nullptr, done); });
        QVERIFY2(version.value().startsWith("rclone v1."), qPrintable(version.value()));

        // rclone refuses names it cannot keep, and says why.
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 2: .*config name contains invalid characters"));
        const auto refused = resultOf<std::monostate>(
            [&](auto done) { RemoteCommands::createRemote(engine, QStringLiteral("my \"local\" $x"), QStringLiteral("local"), nullptr, done); });
        QVERIFY(refused.error().description.contains("config name contains invalid characters"));
        const auto created = resultOf<std::monostate>(
            [&](auto done) { RemoteCommands::createRemote(engine, QStringLiteral("my local"), QStringLiteral("local"), nullptr, done); });
        QVERIFY2(created.ok(), qPrintable(created.errorDescription()));

        // In the order of rclone's configuration file.
        const auto listRemotes = [&] {
            return resultOf<QList<CloudRemote>>([&](auto done) { RemoteCommands::listRemotes(engine, nullptr, done); }).value();
        };
        QCOMPARE(listRemotes(), (QList<CloudRemote>{{"work docs", "alias"}, {"dav", "webdav"}, {"my local", "local"}}));

        // Storage figures: real ones for a local disk, none from rclone's WebDAV server.
        const auto space = [&](const QString &name) {
            return resultOf<RemoteSpaceInfo>([&](auto done) { RemoteCommands::getSpaceInfo(engine, name, nullptr, done); }).value();
        };
        QVERIFY(space(QStringLiteral("my local")).total.value_or(0) > 0);
        QVERIFY(space(QStringLiteral("my local")).free.value_or(0) > 0);
        QCOMPARE(space(QStringLiteral("dav")), RemoteSpaceInfo());

        // A local remote has no sign-in: rclone refuses, and says why.
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 2: "));
        const auto reconnected = resultOf<std::monostate>(
            [&](auto done) { RemoteCommands::reconnectRemote(engine, QStringLiteral("my local"), nullptr, done); });
        QCOMPARE(reconnected.error().code, 2);
        QVERIFY(!reconnected.error().description.isEmpty());

        QVERIFY(resultOf<QString>([&](auto done) { engine.run({"config", "delete", "my local"}, nullptr, done); }).ok());
        QCOMPARE(listRemotes().size(), 2);
    }

    void syncToWebDavAndBack()
    {
        RcloneSandbox sandbox;
        const QString served = sandbox.makeDirectory(QStringLiteral("served"));
        sandbox.addWebDav(QStringLiteral("dav"), served);
        const QString local = sandbox.makeDirectory(QStringLiteral("My \"Docs\" $HOME; 1"));
        writeFile(local + "/a b/ç ü.txt", "accents");
        writeFile(local + "/日本/データ.bin", QByteArray(300000, 'x'));
        writeFile(local + "/top level.txt", "top");
        writeFile(local + "/.git/config", "excluded");
        QDir().mkpath(local + "/empty dir");
        RcloneEngine engine(RcloneSandbox::rclone());

        QList<SyncProgress> progress;
        const auto first = resultOf<std::monostate>([&](auto done) {
            engine.bisync(request(local, QStringLiteral("dav:Back up"), true), nullptr,
                          [&](const SyncProgress &p) { progress.append(p); }, done);
        });
        QVERIFY2(first.ok(), qPrintable(first.errorDescription()));
        QCOMPARE(filesUnder(served + "/Back up"),
                 (QStringList{"a b/ç ü.txt", "top level.txt", "日本/データ.bin"}));
        QVERIFY(QFileInfo(served + "/Back up/empty dir").isDir());
        QCOMPARE(readFile(served + "/Back up/日本/データ.bin"), QByteArray(300000, 'x'));
        QVERIFY(!progress.isEmpty());
        QVERIFY(std::any_of(progress.begin(), progress.end(), [](const SyncProgress &p) {
            return p.percentage == 1.0;
        }));

        // A change on the remote side comes back.
        writeFile(served + "/Back up/from the server.txt", "remote");
        const auto second = bisync(engine, local, QStringLiteral("dav:Back up"), false);
        QVERIFY2(second.ok(), qPrintable(second.errorDescription()));
        QCOMPARE(readFile(local + "/from the server.txt"), QByteArray("remote"));
        QVERIFY(lockFiles().isEmpty());

        // A side that lists no files (an unmounted drive, a folder emptied) is
        // never filled from the other by an automatic resync, on the run that
        // finds it nor on later ones.
        const QStringList remote = filesUnder(served + "/Back up");
        QVERIFY(QDir(local).removeRecursively() && QDir().mkpath(local));
        for (int run = 0; run < 2; ++run) {
            QCOMPARE(bisync(engine, local, QStringLiteral("dav:Back up"), false).error().kind,
                     RcloneError::Kind::resyncWithheld);
            QVERIFY(filesUnder(local).isEmpty());
            QCOMPARE(filesUnder(served + "/Back up"), remote);
        }
    }

    // The engine's one retry, with rclone's own messages. Never synced and not
    // asked for an initial sync: rclone demands --resync, and gets it. Another
    // bisync of the pair holds its lock: one killed hard in the middle left it
    // behind, and it is deleted; one left running by an earlier run of the
    // program is waited for, not failed on.
    void recoveries_data()
    {
        QTest::addColumn<int>("other"); // Other: the other bisync of the pair
        QTest::addColumn<bool>("initial");
        QTest::addColumn<int>("children"); // bisync processes the call started
        QTest::addColumn<int>("waits");
        QTest::newRow("resync demanded") << int(Other::none) << false << 2 << 0;
        QTest::newRow("lock of a killed bisync") << int(Other::killed) << true << 2 << 0;
        QTest::newRow("bisync still running") << int(Other::running) << true << 1 << 2;
    }
    void recoveries()
    {
        QFETCH(int, other);
        QFETCH(bool, initial);
        RcloneSandbox sandbox;
        const auto [local, backup] = makePair(sandbox);
        const QByteArray content((other == int(Other::running) ? 8 : 2) * 1024 * 1024, 'b');
        writeFile(local + "/big.bin", content);
        QProcess earlier;
        if (other != int(Other::none))
            startHoldingTheLock(earlier, request(local, QStringLiteral("backup:"), true),
                                other == int(Other::killed) ? QStringLiteral("100k") : QStringLiteral("2M"));
        if (other == int(Other::killed)) {
            ::kill(static_cast<pid_t>(earlier.processId()), SIGKILL);
            QVERIFY(earlier.waitForFinished());
            const QString lock = BisyncLocks::workDirectory() + u'/' + lockFiles().value(0);
            QTest::ignoreMessage(QtCriticalMsg, qPrintable("Found bisync lock file at " + lock + ". Deleting and retrying..."));
        } else if (other == int(Other::none)) {
            QTest::ignoreMessage(QtCriticalMsg, "Bisync requires --resync. Retrying with isInitialSync=true...");
        }

        RcloneEngine engine(RcloneSandbox::rclone());
        Outcome<std::monostate> outcome;
        QPointer<RcloneJob> job = engine.bisync(request(local, QStringLiteral("backup:"), initial), nullptr, {},
                                                outcome.callback());
        QSignalSpy started(job.data(), &RcloneJob::processStarted);
        QSignalSpy waiting(job.data(), &RcloneJob::waitingChanged);
        if (other == int(Other::running)) {
            QTRY_COMPARE(waiting.count(), 1);
            QCOMPARE(waiting.at(0).at(0).toBool(), true);
            earlier.terminate(); // it stops gracefully; then ours runs
        }
        QVERIFY(outcome.wait(150000));
        QVERIFY2(outcome.result->ok(), qPrintable(outcome.result->errorDescription()));
        QFETCH(int, children);
        QFETCH(int, waits);
        QCOMPARE(started.count(), children);
        QCOMPARE(waiting.count(), waits);
        QCOMPARE(readFile(backup + "/big.bin"), content);
        QVERIFY(lockFiles().isEmpty());
    }

    // An abort in the middle of an upload: rclone stops by itself (it is not
    // killed), leaves no lock, and the next run brings both sides level.
    void abortDuringAnUpload()
    {
        RcloneSandbox sandbox;
        const auto [local, backup] = makePair(sandbox);
        writeFile(local + "/big.bin", QByteArray(20 * 1024 * 1024, 'b'));
        writeFile(local + "/small.txt", "small");
        qputenv("RCLONE_BWLIMIT", "4M");
        RcloneEngine engine(RcloneSandbox::rclone());

        Outcome<std::monostate> outcome;
        QPointer<QProcess> process;
        QPointer<RcloneJob> job = engine.bisync(request(local, QStringLiteral("backup:"), true), nullptr, {},
                                                outcome.callback());
        connect(job.data(), &RcloneJob::processStarted, this, [&](QProcess *p) {
            if (p->arguments().value(0) == "bisync")
                process = p;
        });
        QTRY_VERIFY_WITH_TIMEOUT(!lockFiles().isEmpty(), 20000);
        QTest::qWait(1500); // well into the upload
        QSignalSpy finished(process.data(), &QProcess::finished);
        job->cancel();
        QVERIFY(outcome.wait(150000));
        qunsetenv("RCLONE_BWLIMIT");
        QVERIFY(outcome.result->isCancelled());
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(1).value<QProcess::ExitStatus>(), QProcess::NormalExit); // not killed
        QVERIFY(lockFiles().isEmpty());

        const auto next = bisync(engine, local, QStringLiteral("backup:"), false);
        QVERIFY2(next.ok(), qPrintable(next.errorDescription()));
        QCOMPARE(filesUnder(backup), filesUnder(local));
        QCOMPARE(readFile(backup + "/big.bin"), readFile(local + "/big.bin"));
    }
};

QTEST_GUILESS_MAIN(TestRcloneReal)
#include "tst_rclonereal.moc"
