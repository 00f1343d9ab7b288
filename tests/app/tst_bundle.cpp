// The program runs the rclone bundled beside it, and refuses to run without it.
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TestBundle : public QObject
{
    Q_OBJECT

    // A copy of the program in <root>/bin, with or without <root>/libexec/nimbrell/rclone.
    static QString install(const QTemporaryDir &root, bool withRclone)
    {
        QDir().mkpath(root.filePath("bin"));
        const QString program = root.filePath("bin/nimbrell");
        QFile::copy(NIMBRELL_EXECUTABLE, program);
        QDir().mkpath(root.filePath("libexec/nimbrell"));
        QFile::copy(NIMBRELL_WINDOW_EXECUTABLE, root.filePath("libexec/nimbrell/nimbrell"));
        if (withRclone) {
            QFile::link(RCLONE_PATH, root.filePath("libexec/nimbrell/rclone"));
        }
        return program;
    }

    static QProcessEnvironment environment(const QTemporaryDir &root)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", root.filePath("home"));
        env.insert("XDG_CONFIG_HOME", root.filePath("home/.config"));
        env.insert("RCLONE_CONFIG", root.filePath("rclone.conf"));
        return env;
    }

private Q_SLOTS:
    void stopsWithoutBundledRclone()
    {
        QTemporaryDir root;
        QProcess program;
        program.setProcessEnvironment(environment(root));
        program.start(install(root, false));
        QVERIFY(program.waitForFinished(10000));
        QVERIFY(program.exitStatus() == QProcess::CrashExit || program.exitCode() != 0);
        QVERIFY2(program.readAllStandardError().contains("Failed to find rclone binary in bundle"), "no message");
    }

    void runsWithBundledRclone()
    {
        QTemporaryDir root;
        QProcess program;
        program.setProcessEnvironment(environment(root));
        program.start(install(root, true));
        QVERIFY(program.waitForStarted());
        QByteArray log;
        QTRY_VERIFY_WITH_TIMEOUT((log += program.readAllStandardError()).contains("Using rclone v1."), 10000);
        QVERIFY(log.contains("running: 0 sync folder(s), automatic sync off, every 60 minutes"));
        QCOMPARE(program.state(), QProcess::Running);
        program.terminate();
        QVERIFY(program.waitForFinished(5000));
    }
};

QTEST_GUILESS_MAIN(TestBundle)
#include "tst_bundle.moc"
