// The command line as a user and a script use it: the real bin/nimbrell,
// against a headless instance (with a scripted rclone) and by itself (with
// the real rclone).
#include "cli/CommandLine.h"
#include "model/FolderStore.h"
#include "platform/InstanceChannel.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QLocalSocket>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSysInfo>

using Kind = CliCommand::Kind;

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

class TestCommandLine : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_program;
    SyncFolder m_documents, m_photos, m_noTargets;

    QString path(const QString &relative) const { return m_root->filePath(relative); }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", path("home"));
        env.insert("XDG_CONFIG_HOME", path("home/.config"));
        env.insert("XDG_RUNTIME_DIR", path("run"));
        env.insert("RCLONE_CONFIG", path("rclone.conf"));
        env.insert("FAKE_RCLONE_DIR", path("fake"));
        env.insert("QT_QPA_PLATFORM", "offscreen");
        return env;
    }

    // A home with three folders: two with targets on an alias remote, one
    // without any; and the program installed in <root> beside `rclone`.
    void prepare(const QString &rclone)
    {
        m_root = std::make_unique<QTemporaryDir>();
        QDir().mkpath(path("run"));
        QFile::setPermissions(path("run"), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QDir().mkpath(path("bin"));
        QDir().mkpath(path("libexec/nimbrell"));
        m_program = path("bin/nimbrell");
        QVERIFY(QFile::copy(NIMBRELL_EXECUTABLE, m_program));
        QVERIFY(QFile::copy(NIMBRELL_WINDOW_EXECUTABLE, path("libexec/nimbrell/nimbrell")));
        QVERIFY(QFile::link(rclone, path("libexec/nimbrell/rclone")));
        writeFile(path("rclone.conf"), "[backup]\ntype = alias\nremote = " + QFile::encodeName(path("backup")) + "\n");
        writeFile(path("Documents/report.txt"), "report");
        writeFile(path("Photos/-cat ü.jpg"), "meow");
        m_documents.name = "Documents";
        m_documents.localPath = path("Documents");
        m_documents.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false}};
        m_photos.name = "-Fotos \"2026\" ü";
        m_photos.localPath = path("Photos");
        m_photos.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Photos", false}};
        m_noTargets.name = "documents";
        m_noTargets.localPath = path("Documents");
        writeFile(path("home/.config/rclone/rclone_sync_folders.json"),
                  FolderStore::encode({m_documents, m_photos, m_noTargets}).value());
    }

    Result nimbrell(const QStringList &arguments, int timeout = 30000) const
    {
        return nimbrell(arguments, environment(), timeout);
    }
    Result nimbrell(const QStringList &arguments, const QProcessEnvironment &env, int timeout = 30000) const
    {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(m_program, arguments);
        [&] { QVERIFY2(process.waitForFinished(timeout), qPrintable(arguments.join(' '))); }();
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QList<SyncFolder> stored() const
    {
        return FolderStore::decode(readFile(path("home/.config/rclone/rclone_sync_folders.json"))).value_or(QList<SyncFolder>{});
    }

    void startHeadless(QProcess &service)
    {
        service.setProcessEnvironment(environment());
        service.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        service.start(m_program, {"--headless"});
        QVERIFY(service.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(nimbrell({"status", "--json"}).json().value("instance")["mode"].toString(),
                                  QString("headless"), 10000);
    }

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("kind"); // -1: a usage error
        QTest::addColumn<QStringList>("folders");
        QTest::addColumn<QString>("flags"); // j(son) a(ll) w(ait)
        // No arguments, --headless, sync --wait of all, cancel --all: run by the tests below.
        QTest::newRow("Qt's options go to the window") << QStringList{"-platform", "offscreen"} << int(Kind::window) << QStringList{} << "";
        QTest::newRow("help anywhere") << QStringList{"sync", "Docs", "--help"} << int(Kind::help) << QStringList{} << "";
        QTest::newRow("--help after -- is a name") << QStringList{"status", "--", "--help"} << int(Kind::status) << QStringList{"--help"} << "";
        QTest::newRow("version") << QStringList{"--version"} << int(Kind::version) << QStringList{} << "";
        QTest::newRow("status of two") << QStringList{"status", "--json", "a b", "c"} << int(Kind::status) << QStringList{"a b", "c"} << "j";
        QTest::newRow("dash names after --") << QStringList{"sync", "--wait", "--", "-x", "--all"} << int(Kind::sync) << QStringList{"-x", "--all"} << "w";
        QTest::newRow("open one") << QStringList{"open", "Docs"} << int(Kind::open) << QStringList{"Docs"} << "";
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << -1 << QStringList{} << "unknown command 'frobnicate'";
        QTest::newRow("unknown long option") << QStringList{"--frobnicate"} << -1 << QStringList{} << "unknown option";
        QTest::newRow("option of another command") << QStringList{"list", "--wait"} << -1 << QStringList{} << "list does not take '--wait'";
        QTest::newRow("names and --all") << QStringList{"sync", "--all", "Docs"} << -1 << QStringList{} << "not both";
        QTest::newRow("open two") << QStringList{"open", "a", "b"} << -1 << QStringList{} << "open takes one folder";
        QTest::newRow("review needs its folder") << QStringList{"review", "--apply"} << -1 << QStringList{} << "usage: nimbrell review FOLDER";
        QTest::newRow("review one") << QStringList{"review", "Docs", "--apply"} << int(Kind::review) << QStringList{"Docs"} << "";
        QTest::newRow("pause folders") << QStringList{"pause", "Docs", "a b"} << int(Kind::pause) << QStringList{"Docs", "a b"} << "";
    }
    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, kind);
        QFETCH(QStringList, folders);
        QFETCH(QString, flags);
        const auto parsed = CommandLine::parse(arguments);
        if (kind < 0) {
            QVERIFY(std::holds_alternative<QString>(parsed));
            QVERIFY2(std::get<QString>(parsed).contains(flags), qPrintable(std::get<QString>(parsed)));
            return;
        }
        if (const QString *error = std::get_if<QString>(&parsed))
            QFAIL(qPrintable(*error));
        const CliCommand &command = std::get<CliCommand>(parsed);
        QCOMPARE(int(command.kind), kind);
        QCOMPARE(command.folders, folders);
        QCOMPARE(QString(command.json ? "j" : "") + (command.all ? "a" : "") + (command.wait ? "w" : ""), flags);
    }

    // The remotes and folders actions: their words and options.
    void parseActions_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("kind"); // -1: a usage error
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("options"); // as `shown` below prints them, or the error
        using L = QStringList;
        QTest::newRow("remote with settings") << L{"remotes", "add", "nas", "webdav", "url=http://x", "--keep"}
                                              << int(Kind::remoteAdd) << L{"nas", "webdav", "url=http://x"} << "keep";
        QTest::newRow("interactive needs no type") << L{"remotes", "add", "nas", "--interactive"} << int(Kind::remoteAdd)
                                                   << L{"nas"} << "interactive";
        QTest::newRow("a type is needed") << L{"remotes", "add", "nas"} << -1 << L{} << "NAME TYPE";
        QTest::newRow("a dash name after --") << L{"remotes", "remove", "--force", "--", "-odd"} << int(Kind::remoteRemove)
                                              << L{"-odd"} << "force";
        QTest::newRow("test one") << L{"remotes", "test", "a", "b"} << -1 << L{} << "usage: nimbrell remotes test NAME";
        QTest::newRow("folder with switches") << L{"folders", "add", "Docs", "~/Docs", "a:x", "b:y", "--conflict=newerWins",
                                                  "--no-exclude-git", "--exclude-hidden"}
                                              << int(Kind::folderAdd) << L{"Docs", "~/Docs", "a:x", "b:y"}
                                              << "conflict=newerWins git=0 hidden=1";
        QTest::newRow("folder needs a target") << L{"folders", "add", "Docs", "/d"} << -1 << L{} << "REMOTE:PATH";
        QTest::newRow("no such policy") << L{"folders", "add", "D", "/d", "a:x", "--conflict", "askMe"} << -1 << L{}
                                        << "--conflict takes";
        QTest::newRow("edit") << L{"folders", "edit", "Docs", "--add-target", "a:x", "--add-target", "b:y", "--remove-target",
                                   "c:z", "--rename", "Papers", "--local-path", "/p", "--exclude-node-modules"}
                              << int(Kind::folderEdit) << L{"Docs"}
                              << "add=a:x,b:y remove=c:z rename=Papers local=/p modules=1";
        QTest::newRow("what syncs") << L{"folders", "edit", "Docs", "--skip", "./Videos/", "--unskip=Photos//2019", "--ignore",
                                         " *.tmp ", "--unignore", "/build/**", "--direction", "upload"}
                                    << int(Kind::folderEdit) << L{"Docs"}
                                    << "skip=Videos unskip=Photos/2019 ignore=*.tmp unignore=/build/** direction=upload";
        QTest::newRow("a skip out of the folder") << L{"folders", "edit", "Docs", "--skip", "../etc"} << -1 << L{}
                                                  << "--skip takes a directory inside the folder";
        QTest::newRow("a skip of the folder itself") << L{"folders", "edit", "Docs", "--skip", "."} << -1 << L{}
                                                     << "--skip takes a directory inside the folder";
        QTest::newRow("an absolute skip") << L{"folders", "edit", "Docs", "--unskip", "/home/x"} << -1 << L{}
                                          << "--unskip takes a directory inside the folder";
        QTest::newRow("a blank pattern") << L{"folders", "edit", "Docs", "--ignore", " "} << -1 << L{} << "--ignore needs a pattern";
        QTest::newRow("no such direction") << L{"folders", "edit", "Docs", "--direction", "sideways"} << -1 << L{}
                                           << "--direction takes two-way, upload or download, not 'sideways'";
        QTest::newRow("not an option of add either") << L{"folders", "add", "D", "/d", "a:x", "--skip", "x"} << -1 << L{}
                                                     << "folders add does not take '--skip'";
        QTest::newRow("a value is needed") << L{"folders", "edit", "Docs", "--rename"} << -1 << L{} << "--rename needs a value";
        QTest::newRow("not an option of add") << L{"folders", "add", "D", "/d", "a:x", "--rename", "x"} << -1 << L{}
                                              << "folders add does not take '--rename'";
        QTest::newRow("folders alone lists") << L{"folders"} << int(Kind::list) << L{} << "";
        QTest::newRow("unknown action") << L{"remotes", "rename"} << -1 << L{} << "unknown command 'remotes rename'";
        QTest::newRow("completion") << L{"--complete", "remotes"} << int(Kind::complete) << L{"remotes"} << "";
    }
    void parseActions()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, kind);
        QFETCH(QStringList, words);
        QFETCH(QString, options);
        const auto parsed = CommandLine::parse(arguments);
        if (kind < 0) {
            QVERIFY(std::holds_alternative<QString>(parsed));
            QVERIFY2(std::get<QString>(parsed).contains(options), qPrintable(std::get<QString>(parsed)));
            return;
        }
        if (const QString *error = std::get_if<QString>(&parsed))
            QFAIL(qPrintable(*error));
        const CliCommand &command = std::get<CliCommand>(parsed);
        QCOMPARE(int(command.kind), kind);
        QCOMPARE(command.words, words);
        QStringList shown;
        const auto flag = [&](const char *name, bool on) { if (on) shown.append(name); };
        flag("keep", command.keep);
        flag("interactive", command.interactive);
        flag("force", command.force);
        if (command.conflict)
            shown.append("conflict=" + *command.conflict);
        for (const auto &[name, value] : {std::pair{"git", command.excludeGit}, {"hidden", command.excludeHidden},
                                          {"modules", command.excludeNodeModules}}) {
            if (value)
                shown.append(QString("%1=%2").arg(name).arg(int(*value)));
        }
        if (!command.addTargets.isEmpty())
            shown.append("add=" + command.addTargets.join(','));
        if (!command.removeTargets.isEmpty())
            shown.append("remove=" + command.removeTargets.join(','));
        if (command.rename)
            shown.append("rename=" + *command.rename);
        if (command.localPath)
            shown.append("local=" + *command.localPath);
        for (const auto &[name, list] : {std::pair{"skip", &command.skip}, {"unskip", &command.unskip},
                                         {"ignore", &command.ignore}, {"unignore", &command.unignore}}) {
            if (!list->isEmpty())
                shown.append(QString(name) + '=' + list->join(','));
        }
        if (command.direction)
            shown.append("direction=" + *command.direction);
        std::sort(shown.begin(), shown.end(), [](const QString &a, const QString &b) {
            static const QStringList order{"keep", "interactive", "force", "conflict", "add", "remove", "rename", "local",
                                           "git", "hidden", "modules", "skip", "unskip", "ignore", "unignore", "direction"};
            return order.indexOf(a.section('=', 0, 0)) < order.indexOf(b.section('=', 0, 0));
        });
        QCOMPARE(shown.join(' '), options);
    }

    void resolve_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QList<int>>("expected"); // indexes into the folders below
        QTest::addColumn<QString>("error"); // an unknown name: against the instance below
        QTest::newRow("exact beats any case") << QStringList{"Docs"} << QList<int>{0} << "";
        QTest::newRow("any case") << QStringList{"PHOTOS"} << QList<int>{2} << "";
        QTest::newRow("by id, once") << QStringList{"00000000-0000-0000-0000-000000000003", "photos"} << QList<int>{2} << "";
        QTest::newRow("ambiguous in any case") << QStringList{"DOCS"} << QList<int>{}
                                               << "more than one sync folder is named 'DOCS'; name one by its id:\n"
                                                  "  00000000-0000-0000-0000-000000000001  Docs\n"
                                                  "  00000000-0000-0000-0000-000000000002  docs";
    }
    void resolve()
    {
        QFETCH(QStringList, names);
        QFETCH(QList<int>, expected);
        QFETCH(QString, error);
        const QList<CommandLine::NamedFolder> folders{{QUuid("00000000-0000-0000-0000-000000000001"), "Docs"},
                                                      {QUuid("00000000-0000-0000-0000-000000000002"), "docs"},
                                                      {QUuid("00000000-0000-0000-0000-000000000003"), "Photos"}};
        const auto resolved = CommandLine::resolve(names, folders);
        if (!error.isEmpty()) {
            QCOMPARE(std::get<QString>(resolved), error);
            return;
        }
        QList<QUuid> ids;
        for (const int index : expected)
            ids.append(folders.at(index).id);
        QCOMPARE(std::get<QList<QUuid>>(resolved), ids);
    }

    // Every subcommand against a running headless instance whose rclone is scripted.
    // A share link from the folder's first target whose remote makes links
    // (an alias makes none; S3 signs one), by itself and through a running
    // instance; the link serves the file.
    void shareLinks()
    {
        prepare(RCLONE_PATH);
        RcloneSandbox servers; // only its S3 server
        const QString endpoint = servers.serveS3(servers.makeDirectory("s3"));
        if (endpoint.isEmpty())
            QSKIP("no S3 server (scripts/setup installs it)");
        QDir().mkpath(servers.root() + "/s3/bucket");
        QFile config(path("rclone.conf"));
        QVERIFY(config.open(QIODevice::Append));
        config.write("\n[s3]\ntype = s3\nprovider = Other\nendpoint = " + endpoint.toUtf8()
                     + "\naccess_key_id = S3RVER\nsecret_access_key = S3RVER\nforce_path_style = true\n");
        config.close();
        QCOMPARE(nimbrell({"folders", "edit", "Documents", "--add-target", "s3:bucket/docs"}).exitCode, 0);
        QCOMPARE(nimbrell({"sync", "--wait", "Documents"}, 60000).exitCode, 0);

        const Result shared = nimbrell({"share", path("Documents/report.txt"), "--expire", "1h", "--json"});
        QCOMPARE(shared.exitCode, 0);
        QCOMPARE(shared.json().value("target").toString(), "s3:bucket/docs/report.txt");
        const QString link = shared.json().value("link").toString();
        QVERIFY2(link.startsWith(endpoint + "/bucket/docs/report.txt?") && link.contains("X-Amz-Expires=3600"), qPrintable(link));
        QNetworkAccessManager network;
        QNetworkReply *fetched = network.get(QNetworkRequest(QUrl(link)));
        QTRY_VERIFY(fetched->isFinished());
        QCOMPARE(fetched->readAll(), "report");
        delete fetched;

        const Result outside = nimbrell({"share", path("rclone.conf")});
        QCOMPARE(outside.exitCode, 2);
        QCOMPARE(outside.err, "nimbrell: " + path("rclone.conf") + " is not in a sync folder\n");
        QProcess service;
        startHeadless(service);
        const Result noLinks = nimbrell({"share", path("Photos/-cat ü.jpg")});
        QCOMPARE(noLinks.exitCode, 1);
        QCOMPARE(noLinks.err, "nimbrell: This remote cannot make share links\n");
        const Result plain = nimbrell({"share", path("Documents/report.txt")});
        QCOMPARE(plain.exitCode, 0);
        QVERIFY(plain.out.startsWith(endpoint + "/bucket/docs/report.txt?") && plain.out.endsWith("\n"));
        QCOMPARE(nimbrell({"quit"}).exitCode, 0);
        QVERIFY(service.waitForFinished(20000));
    }

    // Each path's state, by itself and through a running instance; a path
    // in no sync folder is said so, with exit 2.
    void fileStates()
    {
        prepare(RCLONE_PATH);
        writeFile(path("Documents/.git/HEAD"), "ref");
        const QStringList paths{path("Documents/report.txt"), path("Documents/.git/HEAD"), path("rclone.conf")};
        const Result offline = nimbrell(QStringList{"file-status"} + paths);
        QCOMPARE(offline.exitCode, 2);
        QCOMPARE(offline.out, paths[0] + ": pending\n" + paths[1] + ": excluded\n" + paths[2] + ": not in a sync folder\n");
        QProcess service;
        startHeadless(service);
        QCOMPARE(nimbrell({"pause", "Documents"}).exitCode, 0);
        const Result paused = nimbrell({"file-status", "--json", paths[0]});
        QCOMPARE(paused.exitCode, 0);
        const QJsonObject file = paused.json().value("files").toArray().first().toObject();
        QCOMPARE(file.value("state").toString(), "paused");
        QCOMPARE(file.value("folder").toString(), m_documents.id.toString(QUuid::WithoutBraces).toUpper());
        QCOMPARE(nimbrell({"file-status"}).exitCode, 2);
        QCOMPARE(nimbrell({"quit"}).exitCode, 0);
        QVERIFY(service.waitForFinished(20000));
    }

    // A subscription to a file's state against the running instance, as a
    // file manager holds one: its first answer, then one line per change,
    // in order: pending after an edit here, syncing while a run carries it,
    // synced after; then paths added and dropped on the same connection. A
    // client of another version gets an error, not a hang.
    void subscription()
    {
        prepare(RCLONE_PATH);
        for (const char *other : {"a.txt", "b.txt", "c.txt"}) // one edit is not every file changed
            writeFile(path("Documents/") + other, other);
        QProcess service;
        startHeadless(service);
        QCOMPARE(nimbrell({"sync", "--wait", "Documents"}, 60000).exitCode, 0);
        QCOMPARE(nimbrell({"resume"}).exitCode, 0); // automatic sync, and so the watchers
        const QProcessEnvironment env = environment();
        for (const char *name : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
            qputenv(name, env.value(name).toUtf8());
        QLocalSocket socket;
        socket.connectToServer(InstanceChannel::socketPath());
        QVERIFY(socket.waitForConnected(5000));
        const QString report = path("Documents/report.txt");
        socket.write(QJsonDocument(QJsonObject{{"nimbrell", 1}, {"command", "subscribe"}, {"paths", QJsonArray{report}}})
                         .toJson(QJsonDocument::Compact) + "\n");
        // The next line, within 30 s; {} without one.
        const auto next = [&socket] {
            QDeadlineTimer deadline(30000);
            while (!socket.canReadLine() && !deadline.hasExpired())
                socket.waitForReadyRead(100);
            return QJsonDocument::fromJson(socket.readLine()).object();
        };
        const auto stateIn = [&report](const QJsonObject &message) {
            const QJsonArray files = message.value("files").toArray();
            return files.size() == 1 && files[0]["path"].toString() == report ? files[0]["state"].toString() : QString("?");
        };
        const QJsonObject first = next();
        QVERIFY(first.value("ok").toBool());
        QCOMPARE(stateIn(first), "synced");
        writeFile(report, "edited");
        QCOMPARE(stateIn(next()), "pending");
        QCOMPARE(nimbrell({"sync", "Documents"}).exitCode, 0);
        QCOMPARE(stateIn(next()), "syncing");
        QCOMPARE(stateIn(next()), "synced");
        QVERIFY(!socket.waitForReadyRead(500)); // nothing while nothing changes

        // More paths and fewer on the same connection: the added one's state
        // comes, the dropped one's changes no longer do.
        const QString other = path("Documents/a.txt");
        socket.write(QJsonDocument(QJsonObject{{"watch", QJsonArray{other}}, {"unwatch", QJsonArray{report}}})
                         .toJson(QJsonDocument::Compact) + "\n");
        QCOMPARE(next().value("files").toArray(), (QJsonArray{QJsonObject{{"path", other}, {"state", "synced"}, {"folder", first["files"][0]["folder"]}}}));
        writeFile(report, "edited again");
        QVERIFY(!socket.waitForReadyRead(1500));
        socket.disconnectFromServer();

        QLocalSocket older;
        older.connectToServer(InstanceChannel::socketPath());
        QVERIFY(older.waitForConnected(5000));
        older.write("{\"nimbrell\": 2, \"command\": \"subscribe\", \"paths\": []}\n");
        QVERIFY(older.waitForReadyRead(5000));
        QVERIFY(QJsonDocument::fromJson(older.readLine()).object().value("error").toString().startsWith("unsupported version 2"));
        QTRY_COMPARE(older.state(), QLocalSocket::UnconnectedState);
        QCOMPARE(nimbrell({"quit"}).exitCode, 0);
        QVERIFY(service.waitForFinished(20000));
    }

    void againstHeadlessInstance()
    {
        prepare(FAKE_RCLONE_PATH);
        const Result notRunning = nimbrell({"cancel"});
        QCOMPARE(notRunning.exitCode, 3);
        QCOMPARE(notRunning.err, QString("nimbrell: not running\n"));

        QProcess service;
        startHeadless(service);
        // No Qt Gui or Quick in the service.
        const QByteArray maps = readFile(QStringLiteral("/proc/%1/maps").arg(service.processId()));
        QVERIFY(maps.contains("libQt6Core"));
        QVERIFY2(!maps.contains("libQt6Gui") && !maps.contains("libQt6Quick") && !maps.contains("libQt6Qml"), "GUI libraries mapped");

        // cron, su and services start commands without XDG_RUNTIME_DIR: they
        // find the same instance, and never run as a second one.
        QProcessEnvironment bare = environment();
        bare.remove("XDG_RUNTIME_DIR");
        QCOMPARE(nimbrell({"status", "--json"}, bare).json().value("instance")["pid"].toInteger(), service.processId());
        const QJsonArray folders = nimbrell({"status", "--json"}).json().value("folders").toArray();
        QCOMPARE(folders.size(), 3);
        QCOMPARE(folders.at(1)["name"].toString(), m_photos.name);
        QCOMPARE(folders.at(1)["targets"].toArray(), QJsonArray{"backup:Photos"});
        QCOMPARE(folders.at(1)["status"].toString(), QString("idle"));
        QVERIFY(folders.at(1)["lastSync"].isNull());

        // A name that matches none (an ambiguous one: resolve() above).
        const Result unknown = nimbrell({"sync", "Music"});
        QCOMPARE(unknown.exitCode, 2);
        QCOMPARE(unknown.err, QString("nimbrell: no sync folder named 'Music'\n"));

        // A bisync that succeeds, one that fails (its name odd, after "--"),
        // and one without targets.
        writeFile(path("fake/bisync.1.sh"), "echo 'Transferred: 1 / 1, 100%'\nexit 0\n");
        writeFile(path("fake/bisync.2.sh"), "echo 'ERROR : backup:Photos: directory not found' >&2\nexit 1\n");
        Result sync = nimbrell({"sync", "--wait", "Documents"}, bare);
        QCOMPARE(sync.exitCode, 0);
        QVERIFY2(sync.out.endsWith("Documents: synced\n"), qPrintable(sync.out));
        sync = nimbrell({"sync", "--wait", "--", m_photos.name, "documents"});
        QCOMPARE(sync.exitCode, 1);
        QVERIFY2(sync.out.contains(m_photos.name + ": failed: backup:Photos"), qPrintable(sync.out));
        QCOMPARE(sync.err, QString("nimbrell: documents was not synced: it has no remote targets\n"));
        const QJsonArray after = nimbrell({"status", "--json"}).json().value("folders").toArray();
        QCOMPARE(after.at(0)["status"].toString(), QString("success"));
        QVERIFY(QDateTime::fromString(after.at(0)["lastSync"].toString(), Qt::ISODate).isValid());
        QVERIFY(after.at(1)["error"].toString().startsWith("backup:Photos"));
        QCOMPARE(stored().at(0).status, SyncStatus::success); // saved by the instance

        // Cancel a run that would go on for ever.
        writeFile(path("fake/bisync.sh"), "while :; do sleep 0.05; done\n");
        QCOMPARE(nimbrell({"sync", "Documents"}).out, QString("Syncing Documents\n"));
        const Result cancel = nimbrell({"cancel", "--all"});
        QCOMPARE(cancel.exitCode, 0);
        QCOMPARE(cancel.out, QString("Stopped Documents\n"));
        QCOMPARE(nimbrell({"status", "--json", "Documents"}).json().value("folders")[0]["status"].toString(), QString("idle"));

        // Automatic sync off and on: the setting the switch shows.
        QCOMPARE(nimbrell({"resume"}).out, QString("Automatic sync is on.\n"));
        QVERIFY(readFile(path("home/.config/nimbrell/nimbrell.conf")).contains("isGlobalSyncEnabled=true"));
        QCOMPARE(nimbrell({"pause"}).out, QString("Automatic sync is off.\n"));
        QVERIFY(readFile(path("home/.config/nimbrell/nimbrell.conf")).contains("isGlobalSyncEnabled=false"));
        // One folder paused: shown so, kept outside the folder store, and resumed.
        QCOMPARE(nimbrell({"pause", "Documents"}).out, QString("Paused Documents\n"));
        QCOMPARE(nimbrell({"status", "--json", "Documents"}).json().value("folders")[0]["paused"].toBool(), true);
        QVERIFY(nimbrell({"status", "Documents"}).out.contains("Status:     Idle, paused\n"));
        QVERIFY(readFile(path("home/.config/nimbrell/folders.conf")).contains("paused=true"));
        QCOMPARE(nimbrell({"resume", "Documents"}).out, QString("Resumed Documents\n"));
        QCOMPARE(nimbrell({"status", "--json", "Documents"}).json().value("folders")[0]["paused"].toBool(), false);

        // No window here: `open` says so, a start of the window hands over and leaves.
        QCOMPARE(nimbrell({"open"}).exitCode, 1);
        const Result window = nimbrell({});
        QCOMPARE(window.exitCode, 0);
        QVERIFY(window.err.contains("without a window"));
        QCOMPARE(service.state(), QProcess::Running);

        const Result quit = nimbrell({"quit"});
        QCOMPARE(quit.exitCode, 0);
        QVERIFY(service.waitForFinished(10000));
        QCOMPARE(service.exitCode(), 0);
        QCOMPARE(nimbrell({"pause"}).exitCode, 3);
    }

    // The lock and the channel trust only what is the user's own: a lock
    // whose process id went to another program after a crash is no
    // instance, a runtime directory that is a link is not used, and a
    // client that never finishes its request is dropped.
    void instanceChannelGuards()
    {
        prepare(FAKE_RCLONE_PATH);
        qputenv("HOME", QFile::encodeName(path("home")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(path("home/.config")));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(path("run")));
        QVERIFY(QDir().mkpath(InstanceChannel::lockDirectory()));
        // This test's own process id, written as a crashed Nimbrell's lock.
        writeFile(InstanceChannel::lockPath(), QByteArray::number(QCoreApplication::applicationPid()) + "\nnimbrell\n"
                      + QSysInfo::machineHostName().toUtf8() + "\n" + QSysInfo::machineUniqueId() + "\n"
                      + QSysInfo::bootUniqueId() + "\n");
        QVERIFY(!InstanceChannel::isHeld());
        QVERIFY2(nimbrell({"status"}).out.contains("Nimbrell is not running."), "a reused process id taken for an instance");

        InstanceChannel channel;
        QVERIFY(channel.tryLock()); // taken over
        QVERIFY(InstanceChannel::isHeld());
        QVERIFY(QDir().mkpath(path("elsewhere")));
        QVERIFY(QFile::link(path("elsewhere"), path("run/nimbrell")));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Cannot listen in .*: it is not a directory of this user's alone"));
        QVERIFY(!channel.listen());
        QVERIFY(QFile::remove(path("run/nimbrell")));
        channel.setRequestTimeout(std::chrono::milliseconds(200));
        QVERIFY(channel.listen());

        QLocalSocket client;
        client.connectToServer(InstanceChannel::socketPath());
        QVERIFY(client.waitForConnected(5000));
        client.write("{\"nimbrell\": 1, \"comm"); // and nothing more
        QTest::ignoreMessage(QtWarningMsg, "Dropping a client of the instance channel that sent no complete request");
        QTRY_COMPARE(client.state(), QLocalSocket::UnconnectedState);
        channel.release();
        QVERIFY(!InstanceChannel::isHeld());
    }

    // No instance: status and list read the store, sync --wait runs the
    // syncs itself with the real rclone and saves them as the program would.
    void withoutInstance()
    {
        prepare(RCLONE_PATH);
        const Result list = nimbrell({"list", "--json"});
        QCOMPARE(list.exitCode, 0);
        const QJsonObject photos = list.json().value("folders")[1].toObject();
        QCOMPARE(photos["localPath"].toString(), path("Photos"));
        QCOMPARE(photos["conflictResolution"].toString(), QString("keepBoth"));
        QCOMPARE(photos["targets"][0]["remote"].toString(), QString("backup"));

        Result sync = nimbrell({"sync", "--wait", "Documents", m_photos.id.toString()});
        QCOMPARE(sync.exitCode, 0);
        QCOMPARE(readFile(path("backup/Photos/-cat ü.jpg")), QByteArray("meow"));
        QCOMPARE(readFile(path("backup/Docs/report.txt")), QByteArray("report"));
        QCOMPARE(stored().at(0).status, SyncStatus::success);
        QVERIFY(stored().at(0).remoteTargets.at(0).hasResynced);

        // A target whose remote is not configured fails the run, and the exit.
        SyncFolder broken = m_documents;
        broken.remoteTargets.append(RemoteTarget{QUuid::createUuid(), "nosuch", "x", false});
        writeFile(path("home/.config/rclone/rclone_sync_folders.json"), FolderStore::encode({broken}).value());
        sync = nimbrell({"sync", "--wait"});
        QCOMPARE(sync.exitCode, 1);
        QVERIFY2(sync.out.contains("Documents: failed: nosuch:x"), qPrintable(sync.out));
        const Result status = nimbrell({"status"});
        QVERIFY2(status.out.contains("Nimbrell is not running.") && status.out.contains("Failed"), qPrintable(status.out));
        QCOMPARE(stored().at(0).status, SyncStatus::error);

        // A name with a terminal's escape sequences (a title change, OSC) is
        // shown, never obeyed; --json keeps it as it is.
        broken.name = "Evil\x1b]0;owned\x07\x1b[2J\u009b31m";
        writeFile(path("home/.config/rclone/rclone_sync_folders.json"), FolderStore::encode({broken}).value());
        for (const QStringList &arguments : {QStringList{"status"}, QStringList{"list"}, QStringList{"sync", "--wait"}}) {
            const Result shown = nimbrell(arguments);
            QVERIFY2(shown.out.contains("Evil\uFFFD]0;owned\uFFFD"), qPrintable(arguments.join(' ') + ": " + shown.out));
            for (const QString &text : {shown.out, shown.err}) {
                QVERIFY2(!text.contains(QChar(0x1b)) && !text.contains(QChar(0x07)) && !text.contains(QChar(0x9b)),
                         qPrintable(arguments.join(' ')));
            }
        }
        QCOMPARE(nimbrell({"list", "--json"}).json().value("folders")[0]["name"].toString(), broken.name);

        // A store this version cannot use is said to be so, and left as it is.
        const QByteArray newer = FolderStore::encode({broken}).value().replace("\"keepBoth\"", "\"askMe\"");
        writeFile(path("home/.config/rclone/rclone_sync_folders.json"), newer);
        const QJsonValue problem = nimbrell({"status", "--json"}).json().value("storeProblem");
        QVERIFY2(problem.toString().contains("cannot be used"), qPrintable(problem.toString()));
        QVERIFY(nimbrell({"status"}).out.contains("cannot be used"));
        QCOMPARE(readFile(path("home/.config/rclone/rclone_sync_folders.json")), newer);
    }

    // A pair first synced while both sides were empty, whose history a crash
    // lost once files came in here, then emptied here: no run fills an empty
    // side by itself, and the user reviews and applies the resync from the
    // command line.
    void reviewFromTheCommandLine()
    {
        prepare(RCLONE_PATH);
        QProcess service;
        startHeadless(service);
        QDir().mkpath(path("Empty"));
        QCOMPARE(nimbrell({"folders", "add", "Empty", path("Empty"), "backup:Empty", "--keep-removed"}).exitCode, 0);
        QCOMPARE(nimbrell({"list", "--json"}).json().value("folders")[3]["keepRemoved"].toBool(), true);
        QCOMPARE(nimbrell({"folders", "edit", "Empty", "--no-keep-removed"}).exitCode, 0);
        QCOMPARE(nimbrell({"list", "--json"}).json().value("folders")[3]["keepRemoved"].toBool(), false);
        QCOMPARE(nimbrell({"review", "Empty"}).exitCode, 1); // nothing to review yet
        QCOMPARE(nimbrell({"sync", "--wait", "Empty"}).exitCode, 0);
        writeFile(path("Empty/a b.txt"), "new");
        QDir work(path("home/.config/rclone/bisync_workdir"));
        for (const QString &name : work.entryList({"*.lst*"}, QDir::Files))
            QVERIFY(work.remove(name));

        QCOMPARE(nimbrell({"sync", "--wait", "Empty"}).exitCode, 1);
        const QJsonValue problem = nimbrell({"status", "--json", "Empty"}).json().value("folders")[0]["problems"][0];
        QCOMPARE(problem["kind"].toString(), QString("emptySide"));
        QCOMPARE(problem["action"].toString(), QString("Review and Resync…"));
        const Result review = nimbrell({"review", "Empty"});
        QCOMPARE(review.exitCode, 0);
        QVERIFY2(review.out.contains("Resync with backup:Empty: 1 change") && review.out.contains("upload") && review.out.contains("a b.txt"),
                 qPrintable(review.out));
        QVERIFY(!QFileInfo::exists(path("backup/Empty/a b.txt")));
        QCOMPARE(nimbrell({"review", "Empty", "--apply"}).exitCode, 0);
        QCOMPARE(readFile(path("backup/Empty/a b.txt")), QByteArray("new"));
        QCOMPARE(nimbrell({"sync", "--wait", "Empty"}).exitCode, 0);

        // Emptied here: rclone drops the history, and the files come back
        // only once the user has seen where they go.
        QVERIFY(QFile::remove(path("Empty/a b.txt")));
        for (int run = 0; run < 2; ++run) {
            QCOMPARE(nimbrell({"sync", "--wait", "Empty"}).exitCode, 1);
            const QJsonValue empty = nimbrell({"status", "--json", "Empty"}).json().value("folders")[0]["problems"][0];
            QCOMPARE(empty["kind"].toString(), QString("emptySide"));
            QCOMPARE(empty["action"].toString(), QString("Review and Resync…"));
            QVERIFY(!QFileInfo::exists(path("Empty/a b.txt")));
        }
        const Result back = nimbrell({"review", "Empty", "--apply"});
        QVERIFY2(back.exitCode == 0 && back.out.contains("download") && back.out.contains("a b.txt"), qPrintable(back.out));
        QCOMPARE(readFile(path("Empty/a b.txt")), QByteArray("new"));
        QCOMPARE(nimbrell({"sync", "--wait", "Empty"}).exitCode, 0);
        QCOMPARE(nimbrell({"quit"}).exitCode, 0);
        QVERIFY(service.waitForFinished(30000));
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
