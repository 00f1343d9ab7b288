// The program runs the rclone bundled beside it, and refuses to run without it.
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TestBundle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runsOnlyWithTheBundledRclone()
    {
        // A copy of the program in <root>/bin, first without <root>/libexec/nimbrell/rclone.
        QTemporaryDir root;
        QDir().mkpath(root.filePath("bin"));
        QDir().mkpath(root.filePath("libexec/nimbrell"));
        const QString executable = root.filePath("bin/nimbrell");
        QVERIFY(QFile::copy(NIMBRELL_EXECUTABLE, executable));
        QVERIFY(QFile::copy(NIMBRELL_WINDOW_EXECUTABLE, root.filePath("libexec/nimbrell/nimbrell")));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", root.filePath("home"));
        env.insert("XDG_CONFIG_HOME", root.filePath("home/.config"));
        env.insert("RCLONE_CONFIG", root.filePath("rclone.conf"));
        QProcess program;
        program.setProcessEnvironment(env);

        program.start(executable);
        QVERIFY(program.waitForFinished(10000));
        QVERIFY(program.exitStatus() == QProcess::CrashExit || program.exitCode() != 0);
        QVERIFY2(program.readAllStandardError().contains("Failed to find rclone binary in bundle"), "no message");

        QVERIFY(QFile::link(RCLONE_PATH, root.filePath("libexec/nimbrell/rclone")));
        program.start(executable);
        QVERIFY(program.waitForStarted());
        QByteArray log;
        // The remote list, read once the window is up, is the bundled rclone's.
        QTRY_VERIFY_WITH_TIMEOUT((log += program.readAllStandardError()).contains("rclone execution successful"), 10000);
        QVERIFY(log.contains("Executing rclone with arguments: [\"listremotes\", \"--long\"]"));
        QVERIFY(log.contains("running: 0 sync folder(s), automatic sync off, every 60 minutes"));
        QCOMPARE(program.state(), QProcess::Running);
        program.terminate();
        QVERIFY(program.waitForFinished(5000));
    }
};

QTEST_GUILESS_MAIN(TestBundle)
#include "tst_bundle.moc"
