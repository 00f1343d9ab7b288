#pragma once

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>

// A dbus-daemon of the test's own, on a socket in a temporary directory: the
// machine's buses are never touched. Ended with this object.
class PrivateBus
{
public:
    // Call from initTestCase(); QVERIFY fails it there.
    void start()
    {
        QFile config(m_dir.filePath("bus.conf"));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("<busconfig><listen>unix:path=" + m_dir.filePath("bus").toUtf8() +
                     "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
                     "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>");
        config.close();
        m_daemon.start("dbus-daemon", {"--config-file=" + config.fileName(), "--print-address=1", "--nofork"});
        QVERIFY(m_daemon.waitForStarted());
        QTRY_VERIFY(m_daemon.canReadLine());
        m_address = QString::fromUtf8(m_daemon.readLine().trimmed());
    }

    ~PrivateBus()
    {
        if (m_daemon.processId() > 0)
            ::kill(m_daemon.processId(), SIGTERM);
        m_daemon.waitForFinished();
    }

    const QString &address() const { return m_address; }

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
};
