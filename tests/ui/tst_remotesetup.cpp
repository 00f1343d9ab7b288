// Remotes of real servers, made as users make them: from the add sheet (its
// controller, and the window by clicking) and from the command line, then a
// folder synced with each. rclone serves WebDAV and SFTP itself; S3 is
// s3rver from the project's set-up; crypt wraps a local directory.
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "model/FolderStore.h"
#include "platform/MemorySettingsStore.h"
#include "support/LogCapture.h"
#include "support/QuickInspection.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "ui/AddRemoteController.h"
#include "ui/AppSetup.h"
#include "ui/EditRemoteController.h"
#include "ui/FolderDetailController.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteListModel.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

namespace {

struct Result
{
    int exitCode = -1;
    QString out;
    QString err;
};

} // namespace

class TestRemoteSetup : public QObject
{
    Q_OBJECT

    std::unique_ptr<RcloneSandbox> m_sandbox;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    std::unique_ptr<RcloneEngine> m_engine;
    std::unique_ptr<NimbrellApp> m_app;

    NimbrellApp *app()
    {
        if (!m_app) {
            m_engine = std::make_unique<RcloneEngine>(RcloneSandbox::rclone());
            m_app = std::make_unique<NimbrellApp>(AppServices{m_settings, *m_engine, m_fileEvents, m_loginItem});
        }
        return m_app.get();
    }

    Result nimbrell(const QStringList &arguments)
    {
        QProcess process;
        process.start(QStringLiteral(NIMBRELL_EXECUTABLE), arguments);
        [&] { QVERIFY2(process.waitForFinished(120000), qPrintable(arguments.join(' '))); }();
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    // What rclone has configured: "[name]" sections.
    bool configured(const QString &name) const
    {
        return readFile(m_sandbox->configPath()).contains("[" + name.toUtf8() + "]");
    }

    // `rclone lsf REMOTE:PATH`, as rclone reads the remote.
    static QStringList listed(const QString &location)
    {
        QProcess lsf;
        lsf.start(RcloneSandbox::rclone(), {"lsf", location});
        lsf.waitForFinished(60000);
        return QString::fromUtf8(lsf.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }

    // The settings of a row's server: started here, its address put in
    // place of URL, PORT and DIR. Empty when the server could not start.
    QStringList serverSettings(const QString &server, const QStringList &settings)
    {
        const QString served = m_sandbox->makeDirectory("served");
        QString url, port;
        if (server == "webdav" || server == "webdav-tls")
            url = m_sandbox->serveWebDav(served, "ann", "s3cret", server == "webdav-tls");
        else if (server == "sftp")
            port = QString::number(m_sandbox->serveSftp(served, "ann", "s3cret"));
        else if (server == "s3")
            url = m_sandbox->serveS3(served);
        if ((server.startsWith("webdav") || server == "s3") && url.isEmpty())
            return {};
        if (server == "sftp" && port == "0")
            return {};
        QStringList filled;
        for (QString setting : settings)
            filled.append(setting.replace("URL", url).replace("PORT", port).replace("DIR", served));
        return filled;
    }

    static void servers()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QStringList>("settings");
        QTest::addColumn<QString>("problem"); // empty: it answers; else what is said of it
        QTest::addColumn<QString>("path");    // where a folder syncs to
        const QStringList dav{"url=URL", "vendor=rclone", "user=ann"};
        const QStringList s3{"provider=Other", "endpoint=URL", "access_key_id=S3RVER", "force_path_style=true"};
        QTest::newRow("WebDAV") << "webdav" << "webdav" << dav + QStringList{"pass=s3cret"} << "" << "Docs";
        QTest::newRow("WebDAV, wrong password") << "webdav" << "webdav" << dav + QStringList{"pass=wrong"}
                                                << "refused the sign-in" << "";
        QTest::newRow("WebDAV, wrong port") << "webdav" << "webdav"
                                            << QStringList{"url=http://127.0.0.1:9/", "user=ann", "pass=s3cret"}
                                            << "Can't reach" << "";
        QTest::newRow("WebDAV, certificate no one trusts") << "webdav-tls" << "webdav" << dav + QStringList{"pass=s3cret"}
                                                           << "certificate is not trusted" << "";
        QTest::newRow("SFTP") << "sftp" << "sftp"
                              << QStringList{"host=127.0.0.1", "port=PORT", "user=ann", "pass=s3cret"} << "" << "Docs";
        QTest::newRow("SFTP, wrong password") << "sftp" << "sftp"
                                              << QStringList{"host=127.0.0.1", "port=PORT", "user=ann", "pass=nope"}
                                              << "refused the sign-in" << "";
        QTest::newRow("S3") << "s3" << "s3" << s3 + QStringList{"secret_access_key=S3RVER"} << "" << "bucket/docs";
        QTest::newRow("S3, wrong secret") << "s3" << "s3" << s3 + QStringList{"secret_access_key=wrong"}
                                          << "refused the sign-in" << "";
        QTest::newRow("crypt over local") << "local" << "crypt" << QStringList{"remote=DIR", "password=pa55 word"} << ""
                                          << "Docs";
    }

private Q_SLOTS:
    void initTestCase() { setUpApplication(); }
    void init()
    {
        m_sandbox = std::make_unique<RcloneSandbox>();
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_sandbox->home() + "/.config"));
        const QString runtime = m_sandbox->makeDirectory("run");
        QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    }
    void cleanup()
    {
        m_app.reset();
        m_engine.reset();
        m_sandbox.reset();
    }

    // The form of rclone's own S3 and WebDAV: what it asks, for which
    // provider, and what it hands on, for a new remote and for one edited.
    void formFromRcloneItself()
    {
        std::optional<QList<BackendCatalog::Backend>> catalog;
        app()->remoteConfig()->catalog(this, [&](const RcloneResult<QList<BackendCatalog::Backend>> &result) {
            catalog = result.value();
        });
        QTRY_VERIFY_WITH_TIMEOUT(catalog, 30000);
        const auto backend = [&](const QString &name) {
            return *std::find_if(catalog->begin(), catalog->end(), [&](const auto &b) { return b.name == name; });
        };
        RemoteSettingsForm form;
        const auto names = [&form] {
            QStringList shown;
            for (int row = 0; row < form.rowCount(); ++row)
                shown.append(form.index(row).data(RemoteSettingsForm::NameRole).toString());
            return shown;
        };
        form.setBackend(backend("s3"));
        QVERIFY(names().contains("sse_kms_key_id")); // no provider yet: everything
        QCOMPARE(names().first(), "provider");
        QCOMPARE(form.index(0).data(RemoteSettingsForm::KindRole), "choice");
        QVERIFY(form.index(0).data(RemoteSettingsForm::DecidesFormRole).toBool());
        form.setValue("provider", "Minio");
        QVERIFY(names().contains("sse_kms_key_id"));
        form.setValue("provider", "Other");
        QVERIFY(!names().contains("sse_kms_key_id")); // AWS, Ceph and Minio only
        QVERIFY(names().contains("endpoint"));
        QCOMPARE(form.value("provider"), "Other");
        // Advanced last, each with its own default as a placeholder.
        const int pathStyle = int(names().indexOf("force_path_style"));
        QVERIFY(form.index(pathStyle).data(RemoteSettingsForm::AdvancedRole).toBool());
        QVERIFY(pathStyle > names().indexOf("endpoint"));
        QCOMPARE(form.index(pathStyle).data(RemoteSettingsForm::KindRole), "bool");
        QCOMPARE(form.index(pathStyle).data(RemoteSettingsForm::PlaceholderRole), "true");
        QCOMPARE(RemoteSettingsForm::labelOf("access_key_id"), "Access key ID");

        form.setBackend(backend("webdav"));
        QCOMPARE(form.missingNames(), QStringList{"url"});
        form.setValue("url", "http://nas/dav");
        form.setValue("pass", "pw");
        form.setValue("user", "");
        QCOMPARE(form.settings(), (RemoteConfig::Settings{{"url", "http://nas/dav"}, {"pass", "pw"}}));
        const int pass = int(names().indexOf("pass"));
        QCOMPARE(form.index(pass).data(RemoteSettingsForm::KindRole), "password");

        // Editing: what the remote has, a password only as set; only changes go.
        form.setBackend(backend("webdav"), {{"type", "webdav"}, {"url", "http://nas/dav"}, {"user", "ann"}, {"pass", "0bscured"}});
        QCOMPARE(form.value("url"), "http://nas/dav");
        QCOMPARE(form.index(pass).data(RemoteSettingsForm::ValueRole), "");
        QVERIFY(form.index(pass).data(RemoteSettingsForm::IsSetRole).toBool());
        QVERIFY(form.settings().isEmpty());
        form.setValue("user", "");
        form.setValue("url", "http://nas/dav");
        QCOMPARE(form.settings(), (RemoteConfig::Settings{{"user", ""}}));
    }

    // The settings given to rclone never reach the log.
    void passwordsStayOutOfTheLog()
    {
        QLoggingCategory::setFilterRules("org.nimbrell.*.debug=true");
        LogCapture log;
        bool done = false;
        app()->remoteConfig()->create("dav", "webdav", {{"url", "http://127.0.0.1:9/"}, {"pass", "hunter2"}}, this,
                                      [&](const auto &) { done = true; });
        QTRY_VERIFY_WITH_TIMEOUT(done, 30000);
        const QString all = log.messages.join('\n');
        QVERIFY2(all.contains("\"pass=…\"") && !all.contains("hunter2"), qPrintable(all));
        QVERIFY(!readFile(m_sandbox->configPath()).contains("hunter2"));
    }

    // From the command line: the remote is made and answers, and a folder
    // synced with it carries its file there; or it does not answer, is
    // said why, and is gone again.
    void commandLine_data() { servers(); }
    void commandLine()
    {
        QFETCH(QString, server);
        QFETCH(QString, type);
        QFETCH(QStringList, settings);
        QFETCH(QString, problem);
        QFETCH(QString, path);
        settings = serverSettings(server, settings);
        if (settings.isEmpty() && server == "s3")
            QSKIP("no S3 server: run scripts/setup");
        QVERIFY(!settings.isEmpty());

        const Result added = nimbrell(QStringList{"remotes", "add", "far", type} + settings);
        QCOMPARE(added.exitCode, problem.isEmpty() ? 0 : 1);
        QVERIFY2(added.err.contains(problem), qPrintable(added.err));
        QCOMPARE(configured("far"), problem.isEmpty());
        if (!problem.isEmpty()) {
            // --keep keeps it, for a server that is down for now.
            QCOMPARE(nimbrell(QStringList{"remotes", "add", "far", type, "--keep"} + settings).exitCode, 1);
            QVERIFY(configured("far"));
            const Result tested = nimbrell({"remotes", "test", "far", "--json"});
            QCOMPARE(tested.exitCode, 1);
            QCOMPARE(QJsonDocument::fromJson(tested.out.toUtf8())["reachable"].toBool(), false);
            return;
        }
        QVERIFY(!readFile(m_sandbox->configPath()).contains("s3cret")); // rclone obscured it
        QCOMPARE(nimbrell({"remotes", "test", "far"}).exitCode, 0);

        const QString local = m_sandbox->makeDirectory("Documents");
        writeFile(local + "/report.txt", "report");
        const Result folder = nimbrell({"folders", "add", "Documents", local, "far:" + path});
        QCOMPARE(folder.exitCode, 0);
        QVERIFY(!QUuid::fromString(folder.out.trimmed()).isNull());
        QCOMPARE(nimbrell({"sync", "--wait", "Documents"}).exitCode, 0);
        QCOMPARE(listed("far:" + path), QStringList{"report.txt"});
    }

    // What the command line refuses changes nothing.
    void commandLineRefusals()
    {
        const QString local = m_sandbox->makeDirectory("Documents");
        m_sandbox->addAlias("there", m_sandbox->makeDirectory("there"));
        const QByteArray config = readFile(m_sandbox->configPath());
        struct Refusal
        {
            QStringList arguments;
            int exitCode;
            QString said;
        };
        const Refusal refusals[] = {
            {{"remotes", "add", "dav", "webdav"}, 2, "url (required)"},
            {{"remotes", "add", "there", "webdav", "url=http://127.0.0.1:9/"}, 2, "a remote named “there” exists already"},
            {{"remotes", "add", "x", "nosuchkind"}, 2, "rclone knows no storage kind"},
            {{"remotes", "add", "x", "webdav", "url"}, 2, "is not KEY=VALUE"},
            {{"folders", "add", "Docs", local + "/missing", "there:Docs"}, 2, "does not exist"},
            {{"folders", "add", "Docs", local, "nowhere:Docs"}, 2, "no remote named “nowhere”"},
            {{"folders", "add", "Docs", local, "there:"}, 2, "REMOTE:PATH"},
            {{"folders", "add", "Docs", local, "there:Docs", "--conflict", "askMe"}, 2, "--conflict takes"},
            {{"folders", "edit", "Nothing", "--rename", "x"}, 2, "no sync folder named"},
            {{"remotes", "remove", "nowhere"}, 2, "no remote named"},
        };
        for (const Refusal &refusal : refusals) {
            const Result result = nimbrell(refusal.arguments);
            QCOMPARE(result.exitCode, refusal.exitCode);
            QVERIFY2(result.err.contains(refusal.said), qPrintable(refusal.arguments.join(' ') + ": " + result.err));
        }
        QCOMPARE(readFile(m_sandbox->configPath()), config);
        QVERIFY(!QFile::exists(m_sandbox->home() + "/.config/rclone/rclone_sync_folders.json"));

        // A folder made, changed, and the guard of its only remote.
        const QString id = nimbrell({"folders", "add", "Docs", local, "there:Docs", "--no-exclude-git",
                                     "--exclude-hidden", "--conflict", "newerWins"}).out.trimmed();
        QCOMPARE(nimbrell({"folders", "edit", "Docs", "--add-target", "there:Second", "--rename", "Papers"}).exitCode, 0);
        QList<SyncFolder> stored = FolderStore::decode(readFile(m_sandbox->home() + "/.config/rclone/rclone_sync_folders.json")).value();
        QCOMPARE(stored.size(), 1);
        QCOMPARE(stored[0].id, QUuid::fromString(id));
        QCOMPARE(stored[0].name, "Papers");
        QCOMPARE(stored[0].conflictResolution, ConflictResolution::newerWins);
        QCOMPARE(stored[0].filters, (SyncFilterOptions{false, true, true}));
        QCOMPARE(stored[0].remoteTargets.size(), 2);
        QVERIFY(stored[0].localPathBookmarkData);
        QCOMPARE(nimbrell({"folders", "edit", "Papers", "--remove-target", "there:Second"}).exitCode, 0);
        const Result guarded = nimbrell({"remotes", "remove", "there", "--force"});
        QCOMPARE(guarded.exitCode, 1);
        QVERIFY2(guarded.err.contains("only target of “Papers”"), qPrintable(guarded.err));
        QVERIFY(configured("there"));
        QCOMPARE(nimbrell({"folders", "remove", "Papers"}).exitCode, 0);
        QCOMPARE(nimbrell({"remotes", "remove", "there"}).exitCode, 0);
        QVERIFY(!configured("there"));
    }

    // `folders add` makes the folder the editor makes: the same store, but
    // for its ids.
    void folderAddedAsTheEditorAddsIt()
    {
        const QString local = m_sandbox->makeDirectory("Documents");
        m_sandbox->addAlias("there", m_sandbox->makeDirectory("there"));
        const QString store = m_sandbox->home() + "/.config/rclone/rclone_sync_folders.json";
        const QString preferences = m_sandbox->home() + "/.config/nimbrell/folders.conf";
        const auto withoutIds = [](QByteArray bytes) {
            static const QRegularExpression id("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
            return QString::fromUtf8(bytes).replace(id, "ID");
        };
        {
            FolderDetailController editor;
            editor.setApp(app());
            app()->remotes()->reload();
            QTRY_COMPARE(app()->remotes()->count(), 1);
            editor.editor()->setName("Docs");
            editor.editor()->setLocalPath(local);
            editor.editor()->addTarget();
            editor.editor()->setTargetRemote(0, "there");
            editor.editor()->setTargetPath(0, "Docs");
            editor.editor()->save();
            QCOMPARE(app()->syncManager()->folders().size(), 1);
        }
        m_app.reset(); // saved as it goes
        const QString fromEditor = withoutIds(readFile(store));
        QVERIFY(fromEditor.contains("\"Docs\""));
        QFile::remove(store);
        QCOMPARE(nimbrell({"folders", "add", "Docs", local, "there:Docs"}).exitCode, 0);
        QCOMPARE(withoutIds(readFile(store)), fromEditor);
        QVERIFY(!QFile::exists(preferences) || !readFile(preferences).contains("paused"));
    }

    // From the sheet: the same servers, the form filled as a user fills it.
    void sheet_data() { servers(); }
    void sheet()
    {
        QFETCH(QString, server);
        QFETCH(QString, type);
        QFETCH(QStringList, settings);
        QFETCH(QString, problem);
        settings = serverSettings(server, settings);
        if (settings.isEmpty() && server == "s3")
            QSKIP("no S3 server: run scripts/setup");
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(app()));
        sheet.setName("far");
        if (type == "crypt") {
            sheet.chooseOther();
            QTRY_VERIFY(!sheet.backends().isEmpty());
            sheet.setBackendSearch("encrypt");
            QVERIFY(sheet.backends().contains(QVariantMap{{"type", "crypt"}, {"description", "Encrypt/Decrypt a remote"}}));
            sheet.chooseBackend("crypt");
        } else {
            sheet.setType(type);
        }
        QTRY_COMPARE(sheet.form()->backend(), type);
        QVERIFY(!sheet.form()->missing().isEmpty() || type == "s3" || type == "sftp");
        for (const QString &setting : settings)
            sheet.form()->setValue(setting.section('=', 0, 0), setting.section('=', 1));
        QVERIFY(sheet.canSubmit());
        QCOMPARE(sheet.buttonText(), "Add");
        QSignalSpy finished(&sheet, &AddRemoteController::finished);
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(!sheet.isConfiguring(), 60000);
        QVERIFY2(sheet.errorMessage().contains(problem), qPrintable(sheet.errorMessage()));
        QCOMPARE(finished.count(), problem.isEmpty() ? 1 : 0);
        QCOMPARE(sheet.testFailed(), !problem.isEmpty());
        QVERIFY(configured("far"));
        if (problem.isEmpty())
            return;
        // It waits for the user; closing the sheet removes it.
        QCOMPARE(sheet.buttonText(), "Try Again");
        sheet.abandon();
        QTRY_VERIFY(!sheet.isCleaningUp());
        QVERIFY(!configured("far"));
    }

    // A wrong setting corrected after the test: the remote is made afresh.
    // rclone's own questions are asked and answered, and an answer it
    // refuses leaves nothing behind.
    void sheetCorrectionsAndQuestions()
    {
        const QString url = m_sandbox->serveWebDav(m_sandbox->makeDirectory("served"), "ann", "s3cret");
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(app()));
        sheet.setName("dav");
        sheet.setType("webdav");
        QTRY_COMPARE(sheet.form()->backend(), "webdav");
        QCOMPARE(sheet.form()->missingNames(), QStringList{"url"});
        QVERIFY(!sheet.canSubmit());
        QSignalSpy changed(&sheet, &AddRemoteController::stateChanged); // the Add button follows the form
        for (const auto &[key, value] : {std::pair{"url", url}, {"user", "ann"}, {"pass", "wrong"}})
            sheet.form()->setValue(key, value);
        QVERIFY(sheet.canSubmit() && !changed.isEmpty());
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(sheet.testFailed(), 30000);
        sheet.form()->setValue("pass", "s3cret");
        QSignalSpy finished(&sheet, &AddRemoteController::finished);
        sheet.submit(); // Try Again
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 30000);
        QCOMPARE(readFile(m_sandbox->configPath()).count("[dav]"), 1);

        // Removing it from the failed test's choices.
        sheet.reset();
        sheet.setName("down");
        sheet.setType("webdav");
        QTRY_COMPARE(sheet.form()->backend(), "webdav");
        sheet.form()->setValue("url", "http://127.0.0.1:9/");
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(sheet.testFailed(), 30000);
        QVERIFY(configured("down"));
        sheet.removeMadeRemote();
        QTRY_VERIFY(!sheet.isCleaningUp());
        QVERIFY(!configured("down"));
        QVERIFY(!sheet.testFailed());

        // jottacloud asks how to sign in, then for a token; a token it cannot
        // use (no network here) ends the attempt, and the remote goes.
        sheet.reset();
        sheet.setName("jotta");
        sheet.chooseOther();
        sheet.chooseBackend("jottacloud");
        QTRY_COMPARE(sheet.form()->backend(), "jottacloud");
        sheet.submit();
        QTRY_COMPARE_WITH_TIMEOUT(sheet.configStep(), AddRemoteController::ConfigStep::Answering, 30000);
        QCOMPARE(sheet.question().value("name"), "config_type");
        QCOMPARE(sheet.property("answer").toString(), "standard"); // rclone's default
        QCOMPARE(sheet.buttonText(), "Continue");
        QVERIFY(configured("jotta"));
        sheet.submit();
        QTRY_COMPARE_WITH_TIMEOUT(sheet.question().value("name"), "config_login_token", 30000);
        QCOMPARE(sheet.configStep(), AddRemoteController::ConfigStep::Answering);
        sheet.setProperty("answer", "not-a-token");
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(!sheet.isConfiguring() && !sheet.isCleaningUp(), 60000);
        QVERIFY(!sheet.errorMessage().isEmpty());
        QVERIFY(!configured("jotta"));
    }

    // Edit Settings: the form starts from the remote's values (its password
    // only as set), saves what changed, and leaves the folders be.
    void editSettings()
    {
        const QString url = m_sandbox->serveWebDav(m_sandbox->makeDirectory("served"), "ann", "s3cret");
        m_sandbox->addRemote("dav", {"type = webdav", "url = " + url, "vendor = rclone", "user = ann",
                                     "pass = " + QString::fromLatin1(obscured("old"))});
        SyncFolder folder;
        folder.name = "Docs";
        folder.localPath = m_sandbox->makeDirectory("Docs");
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "dav", "Docs", true}};
        const QString store = m_sandbox->home() + "/.config/rclone/rclone_sync_folders.json";
        writeFile(store, FolderStore::encode({folder}).value());
        const QByteArray stored = readFile(store);

        EditRemoteController edit;
        edit.setProperty("app", QVariant::fromValue(app()));
        edit.setProperty("remoteName", "dav");
        edit.load();
        QTRY_COMPARE_WITH_TIMEOUT(edit.state(), EditRemoteController::State::Editing, 30000);
        QCOMPARE(edit.form()->value("url"), url);
        QCOMPARE(edit.form()->value("pass"), QString()); // never shown
        const int passRow = [&] {
            for (int row = 0; row < edit.form()->rowCount(); ++row) {
                if (edit.form()->index(row).data(RemoteSettingsForm::NameRole) == "pass")
                    return row;
            }
            return -1;
        }();
        QVERIFY(edit.form()->index(passRow).data(RemoteSettingsForm::IsSetRole).toBool());
        QVERIFY(edit.form()->settings().isEmpty()); // nothing changed yet
        edit.form()->setValue("pass", "s3cret");
        QCOMPARE(edit.form()->settings(), (RemoteConfig::Settings{{"pass", "s3cret"}}));
        QSignalSpy finished(&edit, &EditRemoteController::finished);
        edit.save();
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 30000);
        const QByteArray config = readFile(m_sandbox->configPath());
        QVERIFY(config.contains("url = " + url.toUtf8()) && config.contains("user = ann"));
        QVERIFY(!config.contains("s3cret") && !config.contains(obscured("old")));
        QCOMPARE(readFile(store), stored);
    }

    // The window: S3 chosen, its provider picked and its fields typed, by
    // mouse and keyboard; Add makes a remote that answers.
    void windowAddsAnS3Remote()
    {
        const QString endpoint = m_sandbox->serveS3(m_sandbox->makeDirectory("served"));
        if (endpoint.isEmpty())
            QSKIP("no S3 server: run scripts/setup");
        app()->start();
        QQuickWindow *main = app()->window("main");
        QVERIFY(QTest::qWaitForWindowExposed(main));
        QMetaObject::invokeMethod(main->findChild<QObject *>("contentView"), "openAddRemote");
        QTRY_VERIFY(item(main, "remoteName"));
        type(main, item(main, "remoteName"), "minio");
        click(main, item(main, "provider-s3"));
        // Each setting as the keyboard reaches it: focused, it scrolls into sight.
        const auto fill = [main](const char *name, const QString &text) {
            QQuickItem *field = item(main, name);
            QVERIFY(field);
            field->forceActiveFocus(Qt::TabFocusReason);
            type(main, field, text);
        };
        const auto press = [main](const char *name) {
            QQuickItem *control = item(main, name);
            QVERIFY(control);
            control->forceActiveFocus(Qt::TabFocusReason);
            QTest::keyClick(main, Qt::Key_Space);
        };
        QTRY_VERIFY(item(main, "field-provider"));
        // The provider's list allows one's own: "Other" is typed.
        fill("field-provider", "Other");
        QTest::keyClick(main, Qt::Key_Tab);
        QTRY_VERIFY(!item(main, "field-sse_kms_key_id")); // AWS's own, no longer asked
        QTRY_VERIFY(item(main, "field-endpoint"));
        fill("field-access_key_id", "S3RVER");
        fill("field-secret_access_key", "S3RVER");
        fill("field-endpoint", endpoint);
        press("advancedToggle");
        QTRY_VERIFY(item(main, "field-force_path_style"));
        press("field-force_path_style");
        QQuickItem *add = item(main, "addAndAuthenticate");
        QCOMPARE(add->property("text").toString(), "Add");
        click(main, add);
        QObject *sheet = main->findChild<QObject *>("addRemoteSheet");
        QVERIFY(sheet);
        QTRY_VERIFY_WITH_TIMEOUT(!sheet->property("visible").toBool(), 60000); // made, answered, closed
        const QByteArray config = readFile(m_sandbox->configPath());
        // (rclone writes the keys in an order of its own.)
        for (const char *line : {"[minio]\ntype = s3\n", "\nprovider = Other\n", "\naccess_key_id = S3RVER\n"})
            QVERIFY2(config.contains(line), config.constData());
        QVERIFY(config.contains("force_path_style = false")); // on by default: the press turned it off
        QTRY_VERIFY(app()->remotes()->count() == 1);
    }

private:
    static QByteArray obscured(const QString &password)
    {
        QProcess obscure;
        obscure.start(RcloneSandbox::rclone(), {"obscure", password});
        obscure.waitForFinished();
        return obscure.readAllStandardOutput().trimmed();
    }
};

QTEST_MAIN(TestRemoteSetup)
#include "tst_remotesetup.moc"
