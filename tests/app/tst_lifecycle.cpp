// The program as a user and the desktop treat it: quit or killed in the
// middle of a slow upload, its display gone, started twice. Each time no
// sync may be cut short: rclone stops gracefully, leaves no lock, and the
// next start brings the folder to success by itself.
#include "model/FolderStore.h"
#include "support/TestFiles.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

class TestLifecycle : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_root;

    QString home() const { return m_root->filePath("home"); }
    QString local() const { return m_root->filePath("Documents"); }
    QString remote() const { return m_root->filePath("backup/Docs"); }
    QString workDirectory() const { return home() + "/.config/rclone/bisync_workdir"; }
    QString storePath() const { return home() + "/.config/rclone/rclone_sync_folders.json"; }

    QProcessEnvironment environment(const QString &platform = "offscreen") const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home());
        env.insert("XDG_CONFIG_HOME", home() + "/.config");
        env.insert("XDG_RUNTIME_DIR", m_root->filePath("run"));
        env.insert("RCLONE_CONFIG", m_root->filePath("rclone.conf"));
        env.insert("RCLONE_BWLIMIT", "4M"); // a 20 MB upload takes about 5 s
        env.insert("QT_QPA_PLATFORM", platform);
        return env;
    }

    // One folder, never synced, with automatic sync on: the program syncs it
    // as soon as it starts.
    void prepare()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QDir().mkpath(m_root->filePath("run"));
        QFile::setPermissions(m_root->filePath("run"), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        writeFile(local() + "/big.bin", QByteArray(20 * 1024 * 1024, 'b'));
        writeFile(local() + "/notes/ünïcode note.txt", "note");
        writeFile(m_root->filePath("rclone.conf"), "[backup]\ntype = alias\nremote = " + QFile::encodeName(m_root->filePath("backup")) + "\n");
        writeFile(home() + "/.config/nimbrell/nimbrell.conf", "[General]\nisGlobalSyncEnabled=true\n");
        SyncFolder folder;
        folder.name = "Documents";
        folder.localPath = local();
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false}};
        writeFile(storePath(), FolderStore::encode({folder}).value());
    }

    void start(QProcess &program, const QProcessEnvironment &env, const QString &executable = NIMBRELL_EXECUTABLE)
    {
        program.setProcessEnvironment(env);
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(executable, {});
        QVERIFY(program.waitForStarted());
    }
    void start(QProcess &program) { start(program, environment()); }

    QList<qint64> rclonesOfThisHome() const
    {
        QList<qint64> pids;
        for (const QString &entry : QDir("/proc").entryList(QDir::Dirs)) {
            const QByteArray cmdline = readFile("/proc/" + entry + "/cmdline");
            const QByteArray stat = readFile("/proc/" + entry + "/stat");
            if (cmdline.contains(QFile::encodeName(workDirectory())) && !stat.contains(") Z "))
                pids.append(entry.toLongLong());
        }
        return pids;
    }

    // The instance channel's socket, once the program listens.
    QString instanceSocket() const
    {
        const QString dir = m_root->filePath("run/nimbrell");
        const QStringList sockets = QDir(dir).entryList({"instance-*"}, QDir::System).filter(QRegularExpression("^[^.]*$"));
        return sockets.isEmpty() ? QString() : dir + "/" + sockets.first();
    }

    QStringList locks() const { return QDir(workDirectory()).entryList({"*.lck"}, QDir::Files); }

    SyncStatus storedStatus() const
    {
        return FolderStore::decode(readFile(storePath())).value_or(QList<SyncFolder>{}).value(0).status;
    }

    // Waits until rclone is in the middle of the upload.
    void waitForTransfer()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!locks().isEmpty() && QFileInfo::exists(remote()), 20000);
        QTest::qWait(1000);
        QVERIFY(QFileInfo(local() + "/big.bin").size() > QFileInfo(remote() + "/big.bin").size());
    }

    // The next start syncs the folder to success with no help; a start beside
    // it hands over and leaves; it quits cleanly.
    void nextStartSucceeds()
    {
        QProcess program, second;
        start(program);
        QTRY_COMPARE_WITH_TIMEOUT(storedStatus(), SyncStatus::success, 60000);
        QCOMPARE(readFile(remote() + "/big.bin"), readFile(local() + "/big.bin"));
        QCOMPARE(readFile(remote() + "/notes/ünïcode note.txt"), QByteArray("note"));
        start(second);
        QVERIFY(second.waitForFinished(5000));
        QCOMPARE(second.exitCode(), 0);
        program.terminate(); // still running: not handed over to the second
        QVERIFY(program.waitForFinished(30000));
        QCOMPARE(program.exitCode(), 0);
    }

private Q_SLOTS:
    // Quit (by SIGTERM, or by Quit in the menus and the tray, which ask through
    // the instance channel), killed outright, or its display gone (the X
    // server ends, and with it the program). A program that quits waits for
    // rclone; a dead one leaves it orphaned, to stop by itself.
    void stoppedDuringAnUpload_data()
    {
        QTest::addColumn<QByteArray>("how");
        for (const char *how : {"SIGTERM", "Quit", "kill -9", "display gone"})
            QTest::newRow(how) << QByteArray(how);
    }
    void stoppedDuringAnUpload()
    {
        QFETCH(QByteArray, how);
        prepare();
        QProcess xserver, program;
        if (how == "display gone") {
            int display = 90;
            while (QFileInfo::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(display)))
                ++display;
            xserver.start("Xvfb", {QStringLiteral(":%1").arg(display), "-nolisten", "tcp", "-screen", "0", "1024x768x24"});
            QVERIFY(xserver.waitForStarted());
            QTRY_VERIFY(QFileInfo::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(display)));
            QProcessEnvironment env = environment("xcb");
            env.insert("DISPLAY", QStringLiteral(":%1").arg(display));
            start(program, env);
        } else {
            start(program);
        }
        waitForTransfer();
        QCOMPARE(rclonesOfThisHome().size(), 1);
        const bool quits = how == "SIGTERM" || how == "Quit";
        if (how == "SIGTERM") {
            program.terminate();
        } else if (how == "Quit") {
            QLocalSocket socket;
            socket.connectToServer(instanceSocket());
            QVERIFY(socket.waitForConnected(5000));
            socket.write("{\"nimbrell\":1,\"command\":\"quit\"}\n");
            QVERIFY(socket.waitForReadyRead(5000));
            QCOMPARE(QJsonDocument::fromJson(socket.readLine()).object().value("ok").toBool(), true);
        } else if (how == "kill -9") {
            ::kill(pid_t(program.processId()), SIGKILL);
        } else {
            xserver.kill();
        }
        QVERIFY(program.waitForFinished(quits ? 150000 : how == "kill -9" ? 10000 : 30000));
        if (quits) {
            QCOMPARE(program.exitStatus(), QProcess::NormalExit);
            QCOMPARE(program.exitCode(), 0);
            QVERIFY(rclonesOfThisHome().isEmpty());
            QCOMPARE(storedStatus(), SyncStatus::idle);
        }
        QTRY_VERIFY_WITH_TIMEOUT(rclonesOfThisHome().isEmpty(), 120000);
        // An exiting rclone can vanish from the process list (its command
        // line empties) a moment before it has removed its lock.
        QTRY_VERIFY_WITH_TIMEOUT(locks().isEmpty(), 10000);
        nextStartSucceeds();
        xserver.waitForFinished();
    }

    // Started again while the running one finishes its syncs: the new start
    // waits for it to end, then runs, rather than handing over to a program
    // that is leaving.
    void startWhileQuittingTakesOver()
    {
        prepare();
        // A copy of the program beside an rclone whose bisync takes 2 s to stop.
        QDir().mkpath(m_root->filePath("bin"));
        QDir().mkpath(m_root->filePath("libexec/nimbrell"));
        const QString program = m_root->filePath("bin/nimbrell");
        QVERIFY(QFile::copy(NIMBRELL_EXECUTABLE, program));
        QVERIFY(QFile::copy(NIMBRELL_WINDOW_EXECUTABLE, m_root->filePath("libexec/nimbrell/nimbrell")));
        QVERIFY(QFile::link(FAKE_RCLONE_PATH, m_root->filePath("libexec/nimbrell/rclone")));
        QDir().mkpath(m_root->filePath("fake"));
        writeFile(m_root->filePath("fake/bisync.sh"), "trap 'sleep 2; exit 143' TERM\nwhile :; do sleep 0.05; done\n");
        QProcessEnvironment env = environment();
        env.insert("FAKE_RCLONE_DIR", m_root->filePath("fake"));
        QProcess first, second;
        start(first, env, program);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(m_root->filePath("fake/.count.bisync")), 20000);
        first.terminate();
        QTest::qWait(300);
        start(second, env, program);
        QVERIFY(first.waitForFinished(30000));
        QCOMPARE(first.exitCode(), 0);
        QTest::qWait(1000);
        QCOMPARE(second.state(), QProcess::Running);
        second.terminate();
        QVERIFY(second.waitForFinished(30000));
        QCOMPARE(second.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestLifecycle)
#include "tst_lifecycle.moc"
