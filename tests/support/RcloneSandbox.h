#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

// A private world for the real rclone: a temporary HOME and XDG_DATA_HOME
// (so the bisync work directory, the folder store, the activity file and the
// trash live there) and an rclone configuration of
// local, alias and WebDAV remotes. WebDAV servers are rclone's own, on
// 127.0.0.1, and end with this object.
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
        auto *server = new QProcess;
        m_servers.append(server);
        server->setProcessChannelMode(QProcess::MergedChannels);
        server->start(rclone(), {QStringLiteral("serve"), QStringLiteral("webdav"), directory, QStringLiteral("--addr"),
                                 QStringLiteral("127.0.0.1:0"), QStringLiteral("--dir-cache-time"), QStringLiteral("0s")});
        QVERIFY(server->waitForStarted());
        static const QRegularExpression started(QStringLiteral("started on \\[(http://127\\.0\\.0\\.1:\\d+/)\\]"));
        QString log, url;
        while (url.isEmpty() && server->waitForReadyRead(10000)) {
            log += QString::fromUtf8(server->readAll());
            url = started.match(log).captured(1);
        }
        QVERIFY2(!url.isEmpty(), qPrintable(log));
        QStringList settings{QStringLiteral("type = webdav"), QStringLiteral("url = ") + url,
                             QStringLiteral("vendor = rclone")};
        if (!paced)
            settings.append(QStringLiteral("pacer_min_sleep = 0"));
        addRemote(name, settings);
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
