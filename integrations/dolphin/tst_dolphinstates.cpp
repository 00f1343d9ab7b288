// Nimbrell in Dolphin: the emblem of each state; the client against a
// stand-in instance (what goes over the connection, line by line) and
// against the real program (nimbrell --headless); and the two plugins loaded
// the way Dolphin and KIO load them.
#include "NimbrellClient.h"
#include "NimbrellFiles.h"
#include "Overlays.h"

#include <KFileItem>
#include <KFileItemActions>
#include <KFileItemListProperties>
#include <KOverlayIconPlugin>
#include <KPluginMetaData>

#include <QAction>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMenu>
#include <QPluginLoader>
#include <QProcess>
#include <QSaveFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

namespace {

constexpr int kTimeout = 20000;

bool eventually(const std::function<bool()> &condition, int timeout = kTimeout)
{
    const QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(10);
    }
    return true;
}

bool writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

// The paths a stateChanged() spy heard of.
QStringList told(const QSignalSpy &spy)
{
    QStringList paths;
    for (const QList<QVariant> &arguments : spy)
        paths.append(arguments.at(0).toString());
    return paths;
}

QSet<QString> setOf(const QJsonValue &array)
{
    QSet<QString> set;
    for (const QJsonValue &value : array.toArray())
        set.insert(value.toString());
    return set;
}

// HOME and the XDG directories in a directory of their own, for this process
// (the client finds the instance from them) and for the programs it starts;
// the previous ones come back when it goes.
class Home
{
public:
    Home()
    {
        for (const char *directory : {"home/.config", "home/.local/share", "home/.cache", "run"})
            QDir().mkpath(path(QString::fromLatin1(directory)));
        QFile::setPermissions(path(QStringLiteral("run")), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        const std::pair<const char *, QString> variables[] = {
            {"HOME", path(QStringLiteral("home"))},
            {"XDG_CONFIG_HOME", path(QStringLiteral("home/.config"))},
            {"XDG_DATA_HOME", path(QStringLiteral("home/.local/share"))},
            {"XDG_CACHE_HOME", path(QStringLiteral("home/.cache"))},
            {"XDG_RUNTIME_DIR", path(QStringLiteral("run"))},
        };
        m_environment = QProcessEnvironment::systemEnvironment();
        for (const auto &[name, value] : variables) {
            m_previous.append({name, qEnvironmentVariableIsSet(name), qgetenv(name)});
            qputenv(name, QFile::encodeName(value));
            m_environment.insert(QString::fromLatin1(name), value);
        }
        m_environment.remove(QStringLiteral("RCLONE_CONFIG"));
        m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    }
    ~Home()
    {
        for (const Previous &variable : std::as_const(m_previous)) {
            if (variable.set)
                qputenv(variable.name, variable.value);
            else
                qunsetenv(variable.name);
        }
    }
    Home(const Home &) = delete;
    Home &operator=(const Home &) = delete;

    QString path(const QString &relative) const { return QDir::cleanPath(m_directory.filePath(relative)); }
    QProcessEnvironment environment() const { return m_environment; }

private:
    struct Previous
    {
        const char *name;
        bool set;
        QByteArray value;
    };
    QTemporaryDir m_directory;
    QProcessEnvironment m_environment;
    QList<Previous> m_previous;
};

// The program, in a home.
struct Result
{
    int exitCode = -1;
    QByteArray out;
    QJsonObject json() const { return QJsonDocument::fromJson(out).object(); }
};

Result nimbrell(const Home &home, const QStringList &arguments, int timeout = 60000)
{
    QProcess process;
    process.setProcessEnvironment(home.environment());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QStringLiteral(NIMBRELL_EXECUTABLE), arguments);
    if (!process.waitForFinished(timeout) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput()};
}

// What the instance itself says of a path; empty in no sync folder.
QString stateFromInstance(const Home &home, const QString &path)
{
    const QJsonObject answer = nimbrell(home, {QStringLiteral("file-status"), QStringLiteral("--json"), path}).json();
    return answer.value(QStringLiteral("files")).toArray().first()[QStringLiteral("state")].toString();
}

// A sync folder "Docs" of a few files, whose target is a directory of this
// computer (an rclone remote of type local); its id, or empty.
QString addFolder(const Home &home)
{
    const QString docs = home.path(QStringLiteral("Docs"));
    if (!writeFile(home.path(QStringLiteral("home/.config/rclone/rclone.conf")), "[loc]\ntype = local\n")
        || !writeFile(docs + QStringLiteral("/report.txt"), "report") || !writeFile(docs + QStringLiteral("/notes.txt"), "notes")
        || !writeFile(docs + QStringLiteral("/sub/deep.txt"), "deep") || !QDir().mkpath(home.path(QStringLiteral("remote"))))
        return {};
    const Result added = nimbrell(home, {QStringLiteral("folders"), QStringLiteral("add"), QStringLiteral("Docs"), docs,
                                         QStringLiteral("loc:") + home.path(QStringLiteral("remote"))});
    return added.exitCode == 0 ? QString::fromUtf8(added.out.trimmed()) : QString();
}

bool startInstance(const Home &home, QProcess &service)
{
    service.setProcessEnvironment(home.environment());
    service.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    service.start(QStringLiteral(NIMBRELL_EXECUTABLE), {QStringLiteral("--headless")});
    return service.waitForStarted() && eventually([&home] {
        const QJsonObject status = nimbrell(home, {QStringLiteral("status"), QStringLiteral("--json")}).json();
        return status.value(QStringLiteral("instance"))[QStringLiteral("mode")].toString() == u"headless";
    });
}

bool stopInstance(const Home &home, QProcess &service)
{
    return service.state() == QProcess::NotRunning
        || (nimbrell(home, {QStringLiteral("quit")}).exitCode == 0 && service.waitForFinished(30000));
}

// A stand-in for the running instance: listens where its address file says,
// and lets the test speak for it. Takes its address away when it goes, as a
// quitting instance does.
class FakeInstance
{
public:
    explicit FakeInstance(const QString &socketPath)
        : m_address(NimbrellClient::addressPath())
    {
        QLocalServer::removeServer(socketPath);
        m_server.listen(socketPath);
        QDir().mkpath(QFileInfo(m_address).absolutePath());
        QSaveFile address(m_address);
        if (address.open(QIODevice::WriteOnly) && address.write(QFile::encodeName(socketPath) + '\n') > 0)
            address.commit();
    }
    ~FakeInstance() { QFile::remove(m_address); }

    bool isListening() const { return m_server.isListening(); }

    // The next client's connection.
    QLocalSocket *accept()
    {
        if (!eventually([this] { return m_server.hasPendingConnections(); }))
            return nullptr;
        return m_server.nextPendingConnection();
    }

    // The next line from the client; {} when none comes.
    static QJsonObject next(QLocalSocket *connection)
    {
        if (!eventually([connection] { return connection->canReadLine(); }, 5000))
            return {};
        return QJsonDocument::fromJson(connection->readLine()).object();
    }

    // Nothing more from the client meanwhile.
    static bool quiet(QLocalSocket *connection)
    {
        QTest::qWait(100);
        return connection->bytesAvailable() == 0;
    }

    // A message in the channel's form.
    static void send(QLocalSocket *connection, const QJsonObject &fields)
    {
        QJsonObject message = fields;
        message.insert(QStringLiteral("nimbrell"), 1);
        message.insert(QStringLiteral("ok"), true);
        connection->write(QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n');
    }

    // The next client, once it has asked to subscribe; answered with these folders.
    QLocalSocket *subscriber(const QJsonArray &roots)
    {
        QLocalSocket *connection = accept();
        if (!connection || next(connection).value(QStringLiteral("command")).toString() != u"subscribe")
            return nullptr;
        send(connection, {{QStringLiteral("files"), QJsonArray()}, {QStringLiteral("roots"), roots}});
        return connection;
    }

private:
    QString m_address;
    QLocalServer m_server;
};

QJsonObject root(const QString &id, const QString &path, const QString &name)
{
    return {{QStringLiteral("id"), id}, {QStringLiteral("path"), path}, {QStringLiteral("name"), name}};
}

QJsonObject files(const QList<std::pair<QString, QJsonValue>> &states)
{
    QJsonArray files;
    for (const auto &[path, state] : states)
        files.append(QJsonObject{{QStringLiteral("path"), path}, {QStringLiteral("state"), state}});
    return {{QStringLiteral("files"), files}};
}

// A context menu of these items as Dolphin builds it, through KIO's
// KFileItemActions, and its "Nimbrell" submenu.
class ContextMenu
{
public:
    explicit ContextMenu(const QStringList &paths)
    {
        KFileItemList items;
        for (const QString &path : paths)
            items.append(KFileItem(QUrl::fromLocalFile(path)));
        m_actions.setItemListProperties(KFileItemListProperties(items));
        m_actions.addActionsTo(&m_menu);
        for (QAction *action : m_menu.actions()) {
            if (action->menu() && action->text() == u"Nimbrell")
                m_nimbrell = action->menu();
        }
    }

    // Its entries; none without the submenu.
    QStringList entries() const
    {
        QStringList texts;
        for (QAction *action : m_nimbrell ? m_nimbrell->actions() : QList<QAction *>()) {
            if (!action->isSeparator())
                texts.append(action->text());
        }
        return texts;
    }

    bool trigger(const QString &entry) const
    {
        for (QAction *action : m_nimbrell ? m_nimbrell->actions() : QList<QAction *>()) {
            if (action->text() == entry) {
                action->trigger();
                return true;
            }
        }
        return false;
    }

private:
    KFileItemActions m_actions;
    QMenu m_menu;
    QMenu *m_nimbrell = nullptr;
};

const QStringList kEntries{QStringLiteral("Sync Now"), QStringLiteral("Show in Nimbrell"), QStringLiteral("Copy Share Link"),
                           QStringLiteral("Recently Removed…")};

} // namespace

class TestDolphinStates : public QObject
{
    Q_OBJECT

    // A home with the folder Docs and its running instance, whose emblems and
    // menus the plugins show.
    std::unique_ptr<Home> m_home;
    QProcess m_service;
    QString m_folderId;
    KOverlayIconPlugin *m_overlay = nullptr;

    QString docs(const QString &relative = QString()) const
    {
        return m_home->path(QStringLiteral("Docs/") + relative);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFileInfo(QStringLiteral(NIMBRELL_EXECUTABLE)).isExecutable(), NIMBRELL_EXECUTABLE " is not built");
        QCoreApplication::addLibraryPath(QStringLiteral(NIMBRELL_DOLPHIN_PLUGIN_DIR));
        m_home = std::make_unique<Home>();
        m_folderId = addFolder(*m_home);
        QVERIFY(!m_folderId.isEmpty());
        QVERIFY(startInstance(*m_home, m_service));
        // As Dolphin loads overlay plugins: each one of kf5/overlayicon with
        // metadata, instantiated by QPluginLoader.
        const QVector<KPluginMetaData> overlays = KPluginMetaData::findPlugins(QStringLiteral("kf5/overlayicon"));
        const auto ours = std::find_if(overlays.cbegin(), overlays.cend(),
                                       [](const KPluginMetaData &data) { return data.pluginId() == u"nimbrelloverlay"; });
        QVERIFY(ours != overlays.cend());
        QPluginLoader loader(ours->fileName());
        m_overlay = qobject_cast<KOverlayIconPlugin *>(loader.instance());
        QVERIFY2(m_overlay, qPrintable(loader.errorString()));
        NimbrellFiles *files = qobject_cast<NimbrellFiles *>(m_overlay);
        QVERIFY(files);
        QTRY_VERIFY_WITH_TIMEOUT(files->folderOf(docs()).has_value(), kTimeout);
    }

    void cleanupTestCase()
    {
        if (m_home)
            QVERIFY(stopInstance(*m_home, m_service));
    }

    void emblemOfEachState_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("overlay");
        for (const char *state : {"synced", "pending", "syncing", "error", "conflict", "excluded", "paused"})
            QTest::newRow(state) << QString::fromLatin1(state) << QStringLiteral("nimbrell-%1-symbolic").arg(QLatin1String(state));
        QTest::newRow("in no sync folder") << QString() << QString();
        QTest::newRow("empty") << QStringLiteral("") << QString();
        QTest::newRow("a state of a later version") << QStringLiteral("frozen") << QString();
        QTest::newRow("not in that case") << QStringLiteral("Synced") << QString();
        QTest::newRow("with a space") << QStringLiteral("synced ") << QString();
        QTest::newRow("not an icon name's part") << QStringLiteral("synced-symbolic") << QString();
    }
    void emblemOfEachState()
    {
        QFETCH(QString, state);
        QFETCH(QString, overlay);
        QCOMPARE(overlayFor(state), overlay);
    }

    // What the client asks for, and how the paths a file manager shows
    // become one "watch" once the folders are known.
    void subscription()
    {
        Home home;
        const QString docs = home.path(QStringLiteral("Docs"));
        FakeInstance instance(home.path(QStringLiteral("run/instance")));
        QVERIFY(instance.isListening());
        NimbrellClient client;
        QLocalSocket *connection = instance.accept();
        QVERIFY(connection);
        const QJsonObject request = FakeInstance::next(connection);
        QCOMPARE(request.value(QStringLiteral("nimbrell")).toInt(), 1);
        QCOMPARE(request.value(QStringLiteral("command")).toString(), QStringLiteral("subscribe"));
        QCOMPARE(request.value(QStringLiteral("roots")).toBool(), true);
        QVERIFY(request.value(QStringLiteral("paths")).isArray());

        // Asked before the folders are known: remembered, then watched if in one.
        QCOMPARE(client.state(docs + QStringLiteral("/early.txt")), QString());
        QCOMPARE(client.state(home.path(QStringLiteral("early-outside.txt"))), QString());
        QVERIFY(!client.isConnected());
        FakeInstance::send(connection, {{QStringLiteral("files"), QJsonArray()},
                                        {QStringLiteral("roots"), QJsonArray{root(QStringLiteral("F1"), docs, QStringLiteral("Docs")),
                                                                             root(QStringLiteral("F2"), docs + QStringLiteral("/inner"), QStringLiteral("Inner"))}}});
        QTRY_VERIFY(client.isConnected());
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), QSet<QString>{docs + QStringLiteral("/early.txt")});

        const QList<std::pair<QString, QString>> folderOf{
            {docs, QStringLiteral("F1")},
            {docs + QStringLiteral("/a/b.txt"), QStringLiteral("F1")},
            {docs + QStringLiteral("/./a//b.txt"), QStringLiteral("F1")},
            {docs + QStringLiteral("/inner/c.txt"), QStringLiteral("F2")}, // the nearer of two
            {docs + QStringLiteral("/innermost.txt"), QStringLiteral("F1")},
            {docs + QStringLiteral("x/a.txt"), QString()}, // beside, not in
            {docs + QStringLiteral("/../outside.txt"), QString()},
            {home.path(QString()), QString()},
        };
        for (const auto &[path, id] : folderOf)
            QVERIFY2(client.folderOf(path).value_or(NimbrellFolder()).id == id, qPrintable(path));

        // A directory of 10,000 files shown at once is one line, without the
        // paths in no folder.
        QSet<QString> shown;
        for (int i = 0; i < 10'000; ++i) {
            const QString path = docs + QStringLiteral("/big/file-%1.txt").arg(i, 5, 10, QLatin1Char('0'));
            shown.insert(path);
            QCOMPARE(client.state(path), QString());
            client.state(home.path(QStringLiteral("elsewhere/file-%1.txt").arg(i)));
        }
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), shown);
        QVERIFY(FakeInstance::quiet(connection));
        // Asked again: known, nothing more to ask.
        client.state(docs + QStringLiteral("/big/file-00000.txt"));
        QVERIFY(FakeInstance::quiet(connection));
    }

    // What each message from the instance does to a watched path P (in
    // folder F1) and what the client says about it. Another folder F2 holds
    // the path whose state closes each case.
    void messages_data()
    {
        QTest::addColumn<QList<QJsonObject>>("messages"); // "P" and "Q" stand for the paths, "F1"... for folders
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("changes"); // how often P was told to have changed
        QTest::addColumn<QList<QJsonObject>>("sent"); // what the client sends then
        const QString P = QStringLiteral("P");
        const QString Q = QStringLiteral("Q");
        const auto roots = [](const QStringList &names) { return QJsonObject{{QStringLiteral("roots"), QJsonArray::fromStringList(names)}}; };
        const QJsonObject unwatch{{QStringLiteral("unwatch"), QJsonArray{P}}};
        const QJsonObject watch{{QStringLiteral("watch"), QJsonArray{P}}};
        using Lines = QList<QJsonObject>;
        QTest::newRow("a state") << Lines{files({{P, QStringLiteral("syncing")}})} << "syncing" << 1 << Lines{};
        QTest::newRow("null: in no sync folder") << Lines{files({{P, QJsonValue()}})} << "" << 1 << Lines{};
        QTest::newRow("the same state again")
            << Lines{files({{P, QStringLiteral("syncing")}}), files({{P, QStringLiteral("syncing")}})} << "syncing" << 1 << Lines{};
        QTest::newRow("one change after another")
            << Lines{files({{P, QStringLiteral("pending")}}), files({{P, QStringLiteral("syncing")}, {P, QStringLiteral("synced")}})}
            << "synced" << 3 << Lines{};
        QTest::newRow("a path never asked for") << Lines{files({{Q, QStringLiteral("error")}})} << "" << 0 << Lines{};
        QTest::newRow("a line that is not JSON")
            << Lines{QJsonObject{{QStringLiteral("raw"), QStringLiteral("{\"files\": [")}}, files({{P, QStringLiteral("conflict")}})}
            << "conflict" << 1 << Lines{};
        QTest::newRow("its folder goes") << Lines{files({{P, QStringLiteral("synced")}}), roots({QStringLiteral("F2")})} << "" << 2
                                         << Lines{unwatch};
        QTest::newRow("its folder moves elsewhere")
            << Lines{files({{P, QStringLiteral("paused")}}), roots({QStringLiteral("F1 moved"), QStringLiteral("F2")})} << "" << 2
            << Lines{unwatch};
        QTest::newRow("its folder goes and comes back")
            << Lines{roots({QStringLiteral("F2")}), roots({QStringLiteral("F1"), QStringLiteral("F2")}), files({{P, QStringLiteral("pending")}})}
            << "pending" << 1 << Lines{unwatch, watch};
    }
    void messages()
    {
        QFETCH(QList<QJsonObject>, messages);
        QFETCH(QString, state);
        QFETCH(int, changes);
        QFETCH(QList<QJsonObject>, sent);

        Home home;
        const QString docs = home.path(QStringLiteral("Docs"));
        const QString other = home.path(QStringLiteral("Other"));
        const QString p = docs + QStringLiteral("/report.txt");
        const QString q = docs + QStringLiteral("/unasked.txt");
        const QString last = other + QStringLiteral("/last.txt");
        const QHash<QString, QJsonObject> roots{{QStringLiteral("F1"), root(QStringLiteral("F1"), docs, QStringLiteral("Docs"))},
                                                {QStringLiteral("F1 moved"), root(QStringLiteral("F1"), home.path(QStringLiteral("Moved")), QStringLiteral("Docs"))},
                                                {QStringLiteral("F2"), root(QStringLiteral("F2"), other, QStringLiteral("Other"))}};
        FakeInstance instance(home.path(QStringLiteral("run/instance")));
        NimbrellClient client;
        QLocalSocket *connection = instance.subscriber(QJsonArray{roots[QStringLiteral("F1")], roots[QStringLiteral("F2")]});
        QVERIFY(connection);
        QTRY_VERIFY(client.isConnected());
        client.state(p);
        client.state(last);
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), (QSet<QString>{p, last}));

        // The placeholders of the table, made real.
        const auto real = [&](const QJsonValue &value) -> QJsonValue {
            const QString text = value.toString();
            return text == u"P" ? p : text == u"Q" ? q : roots.contains(text) ? QJsonValue(roots.value(text)) : value;
        };
        const auto realLine = [&](const QJsonObject &line) {
            QJsonObject concrete = line;
            for (auto item = line.begin(); item != line.end(); ++item) {
                if (!item.value().isArray())
                    continue;
                QJsonArray values;
                for (const QJsonValue &value : item.value().toArray()) {
                    QJsonObject file = value.toObject();
                    if (file.contains(QStringLiteral("path")))
                        file.insert(QStringLiteral("path"), real(file.value(QStringLiteral("path"))));
                    values.append(file.isEmpty() ? real(value) : QJsonValue(file));
                }
                concrete.insert(item.key(), values);
            }
            return concrete;
        };
        QSignalSpy changed(&client, &NimbrellClient::stateChanged);
        for (const QJsonObject &message : std::as_const(messages)) {
            if (message.contains(QStringLiteral("raw")))
                connection->write(message.value(QStringLiteral("raw")).toString().toUtf8() + '\n');
            else
                FakeInstance::send(connection, realLine(message));
        }
        // Messages are read in order: once this one is in, all are.
        FakeInstance::send(connection, files({{last, QStringLiteral("synced")}}));
        QTRY_VERIFY(told(changed).contains(last));

        QCOMPARE(told(changed).count(p), changes);
        QVERIFY(!told(changed).contains(q));
        QCOMPARE(client.state(p), state);
        for (const QJsonObject &line : std::as_const(sent))
            QCOMPARE(FakeInstance::next(connection), realLine(line));
        QVERIFY(FakeInstance::quiet(connection));
    }

    // No more paths than the client may keep: the least recently asked go,
    // unwatched.
    void capacity()
    {
        Home home;
        const QString docs = home.path(QStringLiteral("Docs"));
        FakeInstance instance(home.path(QStringLiteral("run/instance")));
        NimbrellClient client(nullptr, 100);
        QLocalSocket *connection = instance.subscriber(QJsonArray{root(QStringLiteral("F1"), docs, QStringLiteral("Docs"))});
        QVERIFY(connection);
        QTRY_VERIFY(client.isConnected());
        const auto file = [&docs](int i) { return docs + QStringLiteral("/f%1").arg(i); };
        const auto files = [&file](int from, int to) {
            QSet<QString> set;
            for (int i = from; i < to; ++i)
                set.insert(file(i));
            return set;
        };

        // 150 at once: the first 50 are gone before any was asked for.
        for (int i = 0; i < 150; ++i)
            client.state(file(i));
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), files(50, 150));
        QVERIFY(FakeInstance::quiet(connection));

        // f50, asked again, is the most recent now: f51..f60 make room for ten more.
        client.state(file(50));
        for (int i = 150; i < 160; ++i)
            client.state(file(i));
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("unwatch"))), files(51, 61));
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), files(150, 160));

        // A state for one that went is not taken; for one that stayed it is.
        QSignalSpy changed(&client, &NimbrellClient::stateChanged);
        FakeInstance::send(connection, ::files({{file(51), QStringLiteral("synced")}, {file(50), QStringLiteral("synced")}}));
        QTRY_COMPARE(told(changed), QStringList{file(50)});
        QCOMPARE(client.state(file(50)), QStringLiteral("synced"));

        // One that went and is asked again is watched again, after the older ones' unwatch.
        client.state(file(51));
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("unwatch"))), QSet<QString>{file(61)});
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), QSet<QString>{file(51)});
    }

    // When the instance goes its states go too, and when one comes back the
    // client finds it and asks again for the paths it knew.
    void reconnection()
    {
        Home home;
        const QString docs = home.path(QStringLiteral("Docs"));
        const QString report = docs + QStringLiteral("/report.txt");
        const QJsonArray roots{root(QStringLiteral("F1"), docs, QStringLiteral("Docs"))};
        auto instance = std::make_unique<FakeInstance>(home.path(QStringLiteral("run/first")));
        NimbrellClient client;
        QSignalSpy changed(&client, &NimbrellClient::stateChanged);
        QSignalSpy folders(&client, &NimbrellClient::foldersChanged);
        QLocalSocket *connection = instance->subscriber(roots);
        QVERIFY(connection);
        QTRY_VERIFY(client.isConnected());
        client.state(report);
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), QSet<QString>{report});
        FakeInstance::send(connection, files({{report, QStringLiteral("syncing")}}));
        QTRY_COMPARE(client.state(report), QStringLiteral("syncing"));

        // The connection closes while the instance still listens (it
        // restarted in place): forgotten at once, and subscribed again.
        changed.clear();
        connection->disconnectFromServer();
        QTRY_VERIFY(told(changed).contains(report));
        QCOMPARE(client.state(report), QString());
        connection = instance->subscriber(roots);
        QVERIFY(connection);
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), QSet<QString>{report});
        FakeInstance::send(connection, files({{report, QStringLiteral("synced")}}));
        QTRY_COMPARE(client.state(report), QStringLiteral("synced"));

        // It quits: no folders, no states.
        changed.clear();
        folders.clear();
        instance.reset();
        QTRY_VERIFY(!client.isConnected());
        QCOMPARE(told(changed), QStringList{report});
        QVERIFY(folders.count() > 0);
        QCOMPARE(client.folders(), QList<NimbrellFolder>());
        QCOMPARE(client.state(report), QString());

        // Another one starts, elsewhere: the client comes by itself.
        instance = std::make_unique<FakeInstance>(home.path(QStringLiteral("run/second")));
        connection = instance->subscriber(roots);
        QVERIFY(connection);
        QCOMPARE(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))), QSet<QString>{report});
        changed.clear();
        FakeInstance::send(connection, files({{report, QStringLiteral("pending")}}));
        QTRY_COMPARE(told(changed), QStringList{report});
        QCOMPARE(client.state(report), QStringLiteral("pending"));
    }

    // One command on a connection of its own, and what comes back.
    void requests_data()
    {
        QTest::addColumn<QString>("instance"); // what the stand-in does
        QTest::addColumn<QJsonObject>("reply");
        QTest::newRow("not running") << "none"
                                     << QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("ok"), false},
                                                    {QStringLiteral("error"), QStringLiteral("Nimbrell is not running")}};
        QTest::newRow("answers") << "answers"
                                 << QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("ok"), true},
                                                {QStringLiteral("link"), QStringLiteral("https://example.org/s/1?a=b&c")}};
        QTest::newRow("answers in pieces") << "pieces"
                                           << QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("ok"), true},
                                                          {QStringLiteral("link"), QStringLiteral("https://example.org/s/2")}};
        QTest::newRow("closes without an answer") << "closes"
                                                  << QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("ok"), false},
                                                                 {QStringLiteral("error"), QStringLiteral("Nimbrell did not answer")}};
    }
    void requests()
    {
        QFETCH(QString, instance);
        QFETCH(QJsonObject, reply);
        Home home;
        const QString path = home.path(QStringLiteral("Docs/report.txt"));
        std::unique_ptr<FakeInstance> fake;
        if (instance != u"none")
            fake = std::make_unique<FakeInstance>(home.path(QStringLiteral("run/instance")));
        NimbrellClient client;
        QLocalSocket *subscription = fake ? fake->subscriber({}) : nullptr;
        QVERIFY(!fake || subscription);

        QList<QJsonObject> replies;
        client.request(QStringLiteral("share"), {{QStringLiteral("path"), path}, {QStringLiteral("expire"), QStringLiteral("1d")}},
                       [&replies](const QJsonObject &reply) { replies.append(reply); });
        if (fake) {
            QLocalSocket *connection = fake->accept();
            QVERIFY(connection);
            QCOMPARE(FakeInstance::next(connection),
                     (QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("command"), QStringLiteral("share")},
                                  {QStringLiteral("path"), path}, {QStringLiteral("expire"), QStringLiteral("1d")}}));
            const QByteArray line = QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n';
            if (instance == u"answers") {
                connection->write(line);
            } else if (instance == u"pieces") {
                connection->write(line.left(10));
                connection->flush();
                QTest::qWait(50);
                QVERIFY(replies.isEmpty());
                connection->write(line.mid(10));
            }
            connection->flush();
            connection->disconnectFromServer();
        }
        QTRY_COMPARE(replies.size(), 1);
        QCOMPARE(replies.first(), reply);
        QTest::qWait(50);
        QCOMPARE(replies.size(), 1); // once only
    }

    // The client and the real program: its states, a change it makes, its
    // going and its coming back.
    void followsTheInstance()
    {
        Home home;
        const QString id = addFolder(home);
        QVERIFY(!id.isEmpty());
        QProcess service;
        QVERIFY(startInstance(home, service));
        const QString docs = home.path(QStringLiteral("Docs"));
        const QString report = docs + QStringLiteral("/report.txt");
        const QString sub = docs + QStringLiteral("/sub");
        const QString outside = home.path(QStringLiteral("elsewhere.txt"));
        QVERIFY(writeFile(outside, "elsewhere"));

        NimbrellClient client;
        QSignalSpy changed(&client, &NimbrellClient::stateChanged);
        for (const QString &path : {report, sub, docs, outside})
            client.state(path);
        QTRY_VERIFY_WITH_TIMEOUT(told(changed).contains(report) && told(changed).contains(sub) && told(changed).contains(docs), kTimeout);
        for (const QString &path : {report, sub, docs}) {
            const QString state = stateFromInstance(home, path);
            QVERIFY2(!state.isEmpty(), qPrintable(path));
            QCOMPARE(client.state(path), state);
        }
        QCOMPARE(client.folderOf(report).value_or(NimbrellFolder()).id, id);
        QCOMPARE(client.folderOf(report).value_or(NimbrellFolder()).name, QStringLiteral("Docs"));
        QVERIFY(!client.isInFolder(outside));
        QCOMPARE(client.state(outside), QString());
        QVERIFY(!told(changed).contains(outside));

        // The instance leaves the text files out of the folder's runs from now on.
        const QString before = client.state(report);
        QCOMPARE(nimbrell(home, {QStringLiteral("folders"), QStringLiteral("edit"), QStringLiteral("Docs"), QStringLiteral("--ignore"),
                                 QStringLiteral("*.txt")})
                     .exitCode,
                 0);
        const QString after = stateFromInstance(home, report);
        QVERIFY2(after != before, qPrintable(after));
        QTRY_COMPARE_WITH_TIMEOUT(client.state(report), after, kTimeout);

        // It quits (SIGTERM): every emblem goes.
        changed.clear();
        service.terminate();
        QVERIFY(service.waitForFinished(30000));
        QTRY_VERIFY_WITH_TIMEOUT(!client.isConnected(), kTimeout);
        for (const QString &path : {report, sub, docs})
            QVERIFY2(told(changed).contains(path), qPrintable(path));
        QCOMPARE(client.state(report), QString());
        QVERIFY(!client.isInFolder(report));

        // It starts again: the states come back with nothing asked.
        changed.clear();
        QVERIFY(startInstance(home, service));
        QTRY_VERIFY_WITH_TIMEOUT(told(changed).contains(report) && told(changed).contains(docs), kTimeout);
        QCOMPARE(client.state(report), stateFromInstance(home, report));
        QCOMPARE(client.state(docs), stateFromInstance(home, docs));
        QVERIFY(client.isInFolder(report));
        QVERIFY(stopInstance(home, service));
    }

    // The overlay plugin as Dolphin uses it: asked for each item shown, it
    // says later (overlaysChanged) what it did not know yet.
    void emblems()
    {
        QSignalSpy overlaysChanged(m_overlay, &KOverlayIconPlugin::overlaysChanged);
        const QList<QUrl> shown{QUrl::fromLocalFile(docs(QStringLiteral("notes.txt"))), QUrl::fromLocalFile(docs(QStringLiteral("sub")))};
        for (const QUrl &url : shown)
            m_overlay->getOverlays(url);
        for (const QUrl &url : shown) {
            QTRY_VERIFY_WITH_TIMEOUT(std::any_of(overlaysChanged.cbegin(), overlaysChanged.cend(),
                                                 [&url](const QList<QVariant> &arguments) { return arguments.at(0).toUrl() == url; }),
                                     kTimeout);
            const QString state = stateFromInstance(*m_home, url.toLocalFile());
            QVERIFY(!state.isEmpty());
            QCOMPARE(m_overlay->getOverlays(url), QStringList{overlayFor(state)});
        }
        QVERIFY(writeFile(m_home->path(QStringLiteral("elsewhere.txt")), "elsewhere"));
        QCOMPARE(m_overlay->getOverlays(QUrl::fromLocalFile(m_home->path(QStringLiteral("elsewhere.txt")))), QStringList());
        QCOMPARE(m_overlay->getOverlays(QUrl(QStringLiteral("sftp://example.org") + docs(QStringLiteral("notes.txt")))), QStringList());
    }

    // The context menu plugin as KIO loads it for Dolphin's menus.
    void contextMenu_data()
    {
        QTest::addColumn<QStringList>("items"); // relative to the home
        QTest::addColumn<QStringList>("entries");
        QTest::newRow("a file") << QStringList{QStringLiteral("Docs/report.txt")} << kEntries;
        QTest::newRow("a directory") << QStringList{QStringLiteral("Docs/sub")} << kEntries;
        QTest::newRow("the folder itself") << QStringList{QStringLiteral("Docs")} << kEntries;
        QTest::newRow("a file elsewhere") << QStringList{QStringLiteral("elsewhere.txt")} << QStringList();
        QTest::newRow("the directory above") << QStringList{QString()} << QStringList();
        QTest::newRow("two files") << QStringList{QStringLiteral("Docs/report.txt"), QStringLiteral("Docs/notes.txt")} << QStringList();
    }
    void contextMenu()
    {
        QFETCH(QStringList, items);
        QFETCH(QStringList, entries);
        QVERIFY(writeFile(m_home->path(QStringLiteral("elsewhere.txt")), "elsewhere"));
        QStringList paths;
        for (const QString &item : std::as_const(items))
            paths.append(m_home->path(item));
        QCOMPARE(ContextMenu(paths).entries(), entries);
    }

    // Sync Now runs the folder.
    void syncNow()
    {
        const auto lastSync = [this] {
            const QJsonObject status = nimbrell(*m_home, {QStringLiteral("status"), QStringLiteral("--json"), QStringLiteral("Docs")}).json();
            return status.value(QStringLiteral("folders")).toArray().first()[QStringLiteral("lastSync")];
        };
        QVERIFY(lastSync().isNull());
        const ContextMenu menu({docs(QStringLiteral("report.txt"))});
        QVERIFY(menu.trigger(QStringLiteral("Sync Now")));
        QTRY_VERIFY_WITH_TIMEOUT(lastSync().isString(), 60000);
    }

    // A copy of an open conflict has Keep This and Keep Both, which settle it
    // through the instance. The headless program keeps no conflicts open, so
    // a stand-in takes its place in the same home; the plugin's subscription
    // follows it there.
    void conflictCopies_data()
    {
        QTest::addColumn<QString>("item");
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QString>("entry"); // to choose
        QTest::addColumn<QString>("choice"); // that the instance is asked for
        const QStringList keep = kEntries + QStringList{QStringLiteral("Keep This"), QStringLiteral("Keep Both")};
        QTest::newRow("keep this") << "report.txt.conflict1" << keep << "Keep This" << "keepThis";
        QTest::newRow("keep both") << "report.txt.conflict2" << keep << "Keep Both" << "keepBoth";
        QTest::newRow("a directory that holds one") << "sub" << kEntries << "" << "";
    }
    void conflictCopies()
    {
        QFETCH(QString, item);
        QFETCH(QStringList, entries);
        QFETCH(QString, entry);
        QFETCH(QString, choice);
        QVERIFY(stopInstance(*m_home, m_service));
        const QString path = docs(item);
        QVERIFY(QFileInfo(path).isDir() || writeFile(path, "one copy"));
        const QUrl url = QUrl::fromLocalFile(path);

        FakeInstance instance(m_home->path(QStringLiteral("run/stand-in")));
        QLocalSocket *connection = instance.accept();
        QVERIFY(connection);
        QCOMPARE(FakeInstance::next(connection).value(QStringLiteral("command")).toString(), QStringLiteral("subscribe"));
        m_overlay->getOverlays(url); // shown meanwhile
        FakeInstance::send(connection, {{QStringLiteral("files"), QJsonArray()},
                                        {QStringLiteral("roots"), QJsonArray{root(m_folderId, docs(), QStringLiteral("Docs"))}}});
        QVERIFY(setOf(FakeInstance::next(connection).value(QStringLiteral("watch"))).contains(path));
        FakeInstance::send(connection, files({{path, QStringLiteral("conflict")}}));
        QTRY_COMPARE(m_overlay->getOverlays(url), QStringList{QStringLiteral("nimbrell-conflict-symbolic")});

        const ContextMenu menu({path});
        QCOMPARE(menu.entries(), entries);
        if (entry.isEmpty())
            return;
        QVERIFY(menu.trigger(entry));
        QLocalSocket *command = instance.accept();
        QVERIFY(command);
        QCOMPARE(FakeInstance::next(command),
                 (QJsonObject{{QStringLiteral("nimbrell"), 1}, {QStringLiteral("command"), QStringLiteral("resolve")},
                              {QStringLiteral("path"), path}, {QStringLiteral("choice"), choice}}));
    }
};

QTEST_MAIN(TestDolphinStates)
#include "tst_dolphinstates.moc"
