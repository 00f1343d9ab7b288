#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <sys/prctl.h>

// A private world for the real rclone: a temporary HOME and XDG_DATA_HOME
// (so the bisync work directory, the folder store, the activity file and the
// trash live there) and an rclone configuration of
// local, alias and WebDAV remotes. Its servers (rclone's own WebDAV and
// SFTP, and an S3 server) listen on 127.0.0.1 and end with this object.
class RcloneSandbox
{
public:
    RcloneSandbox()
        : m_savedHome(qgetenv("HOME"))
        , m_savedConfig(qgetenv("RCLONE_CONFIG"))
        , m_savedData(qgetenv("XDG_DATA_HOME"))
    {
        QVERIFY(m_root.isValid());
        QVERIFY(QDir().mkpath(home()));
        qputenv("HOME", QFile::encodeName(home()));
        qputenv("RCLONE_CONFIG", QFile::encodeName(configPath()));
        qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome()));
        QFile(configPath()).open(QIODevice::WriteOnly);
    }

    ~RcloneSandbox()
    {
        for (QProcess *server : std::as_const(m_servers)) {
            server->kill();
            server->waitForFinished();
            delete server;
        }
        restore("HOME", m_savedHome);
        restore("RCLONE_CONFIG", m_savedConfig);
        restore("XDG_DATA_HOME", m_savedData);
    }

    static QString rclone() { return QStringLiteral(RCLONE_PATH); }
    QString root() const { return m_root.path(); }
    QString home() const { return m_root.filePath(QStringLiteral("home")); }
    QString dataHome() const { return m_root.filePath(QStringLiteral("home/.local/share")); }
    QString configPath() const { return m_root.filePath(QStringLiteral("rclone.conf")); }

    // A directory under the sandbox, created.
    QString makeDirectory(const QString &relative) const
    {
        const QString path = m_root.filePath(relative);
        QDir().mkpath(path);
        return path;
    }

    void addRemote(const QString &name, const QStringList &settings)
    {
        QFile config(configPath());
        QVERIFY(config.open(QIODevice::Append));
        config.write("[" + name.toUtf8() + "]\n" + settings.join(u'\n').toUtf8() + "\n\n");
    }

    void addAlias(const QString &name, const QString &directory)
    {
        addRemote(name, {QStringLiteral("type = alias"), QStringLiteral("remote = ") + directory});
    }

    // Serves `directory` over WebDAV and adds a remote for it. Unpaced, the
    // remote runs at full speed; paced, rclone limits it to about 100 requests
    // a second, which makes a sync of a few hundred files take seconds.
    void addWebDav(const QString &name, const QString &directory, bool paced = false)
    {
        const QString url = serveWebDav(directory);
        QStringList settings{QStringLiteral("type = webdav"), QStringLiteral("url = ") + url,
                             QStringLiteral("vendor = rclone")};
        // Paced: 30 ms between calls, so that a few hundred
        // files take long enough to stop a run in the middle on any machine.
        settings.append(paced ? QStringLiteral("pacer_min_sleep = 30ms") : QStringLiteral("pacer_min_sleep = 0"));
        addRemote(name, settings);
    }

    // rclone's WebDAV server for `directory`, with a user and a password
    // when given, over TLS with a certificate no one trusts when asked: its
    // address ("http://127.0.0.1:PORT/"), or "" when it did not start. Its
    // listings are fresh after 10 ms (not 0: with 0 its cache cleaner spins
    // a core after each upload).
    QString serveWebDav(const QString &directory, const QString &user = {}, const QString &pass = {}, bool tls = false)
    {
        QStringList arguments{QStringLiteral("serve"), QStringLiteral("webdav"), directory, QStringLiteral("--addr"),
                              QStringLiteral("127.0.0.1:0"), QStringLiteral("--dir-cache-time"), QStringLiteral("10ms")};
        if (!user.isEmpty())
            arguments << QStringLiteral("--user") << user << QStringLiteral("--pass") << pass;
        if (tls) {
            const QString key = m_root.filePath(QStringLiteral("tls.key"));
            const QString certificate = m_root.filePath(QStringLiteral("tls.crt"));
            const int made = QProcess::execute(QStringLiteral("openssl"),
                                               {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"),
                                                QStringLiteral("rsa:2048"), QStringLiteral("-nodes"), QStringLiteral("-keyout"), key,
                                                QStringLiteral("-out"), certificate, QStringLiteral("-days"), QStringLiteral("2"),
                                                QStringLiteral("-subj"), QStringLiteral("/CN=localhost")});
            if (made != 0)
                return {};
            arguments << QStringLiteral("--cert") << certificate << QStringLiteral("--key") << key;
        }
        return serve(rclone(), arguments, QStringLiteral("started on \\[(https?://127\\.0\\.0\\.1:\\d+/)\\]"));
    }

    // rclone's SFTP server for `directory`: its port, or 0.
    int serveSftp(const QString &directory, const QString &user, const QString &pass)
    {
        return serve(rclone(),
                     {QStringLiteral("serve"), QStringLiteral("sftp"), directory, QStringLiteral("--addr"),
                      QStringLiteral("127.0.0.1:0"), QStringLiteral("--user"), user, QStringLiteral("--pass"), pass},
                     QStringLiteral("listening on 127\\.0\\.0\\.1:(\\d+)"))
            .toInt();
    }

    // An S3 server (s3rver, from the project's set-up) for `directory`: its
    // endpoint ("http://127.0.0.1:PORT"), or "" when it is not installed.
    // It takes the access key S3RVER with the secret S3RVER.
    QString serveS3(const QString &directory)
    {
        const QString launcher = QStringLiteral(S3_SERVER_LAUNCHER);
        if (!QFileInfo::exists(launcher))
            return {};
        return serve(launcher, {directory}, QStringLiteral("listening (http://127\\.0\\.0\\.1:\\d+)"));
    }

    // Runs a server until the sandbox ends; what `started` captures from its
    // output once it listens, or "".
    QString serve(const QString &program, const QStringList &arguments, const QString &started)
    {
        auto *server = new QProcess;
        m_servers.append(server);
        server->setProcessChannelMode(QProcess::MergedChannels);
        // A test that crashes takes its servers with it.
        server->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        server->start(program, arguments);
        if (!server->waitForStarted())
            return {};
        const QRegularExpression expression(started);
        QString log, captured;
        while (captured.isEmpty() && server->waitForReadyRead(20000)) {
            log += QString::fromUtf8(server->readAll());
            captured = expression.match(log).captured(1);
        }
        if (captured.isEmpty())
            qWarning("%s did not start: %s", qPrintable(program), qPrintable(log));
        return captured;
    }

private:
    static void restore(const char *name, const QByteArray &value)
    {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }

    QTemporaryDir m_root;
    QByteArray m_savedHome;
    QByteArray m_savedConfig;
    QByteArray m_savedData;
    QList<QProcess *> m_servers;
};
