// The remote screens' logic: the add flow against a scripted rclone, the
// guarded deletion and the usage figures; then the same with the real rclone.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "fakes/FakeRclone.h"
#include "platform/MemorySettingsStore.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "sync/SyncManager.h"
#include "ui/AddRemoteController.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteDetailController.h"
#include "ui/RemoteListModel.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QSignalSpy>
#include <QTest>

#include <csignal>

namespace {

SyncFolder folderWith(const QString &name, const QStringList &remotes)
{
    SyncFolder folder;
    folder.name = name;
    for (const QString &remote : remotes)
        folder.remoteTargets.append(RemoteTarget{QUuid::createUuid(), remote, "p", true});
    return folder;
}

} // namespace

class TestRemotes : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;

private Q_SLOTS:
    void initTestCase() { qputenv("HOME", QFile::encodeName(m_home.path())); }
    void init() { QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json")); }

    void dependentAndBlockingFolders()
    {
        const SyncFolder a = folderWith("A", {"gdrive"});
        const SyncFolder b = folderWith("B", {"gdrive", "nas"});
        const SyncFolder c = folderWith("C", {"nas"});
        const SyncFolder twice = folderWith("Twice", {"gdrive", "gdrive"});
        using R = RemoteDetailController;

        QVERIFY(R::dependentFolders({a, b, c}, "box").isEmpty());
        QCOMPARE(R::confirmationMessage("box", {}), "Are you sure you want to delete 'box'? This action cannot be undone.");

        const QList<SyncFolder> dependent = R::dependentFolders({a, b, c}, "gdrive");
        QCOMPARE(dependent, (QList<SyncFolder>{a, b}));
        QCOMPARE(R::blockingFolders(dependent), QList<SyncFolder>{a}); // only A blocks
        QCOMPARE(R::refusalMessage({a}),
                 "The following Sync Folders use this remote as their ONLY target:\n\n• A\n\n"
                 "Please delete these folders or add another remote target to them before deleting this remote.");

        const QList<SyncFolder> onlyB = R::dependentFolders({b, c}, "gdrive");
        QVERIFY(R::blockingFolders(onlyB).isEmpty());
        QCOMPARE(R::confirmationMessage("gdrive", {b, twice}),
                 "The following Sync Folders use this remote:\n\n• B\n• Twice\n\n"
                 "If you delete this remote, it will be removed from these sync folders.");
        QVERIFY(R::blockingFolders({twice}).isEmpty()); // several targets, all on this remote
    }

    void usageFraction()
    {
        using R = RemoteDetailController;
        QCOMPARE(R::usageFraction({0, 0, 0, std::nullopt}), std::nullopt); // a total of 0 hides the bar
        QCOMPARE(R::usageFraction({std::nullopt, 5, 5, std::nullopt}), std::nullopt);
        QCOMPARE(R::usageFraction({100, std::nullopt, 100, std::nullopt}), 0.0);
        QCOMPARE(R::usageFraction({100, 40, 60, std::nullopt}), 0.4);

        RemoteDetailController pane;
        pane.setSpaceInfo(RemoteSpaceInfo{100, 95, 5, std::nullopt});
        QVERIFY(pane.usageCritical()); // 95 % is red
        pane.setSpaceInfo(RemoteSpaceInfo{100, 90, 10, std::nullopt});
        QVERIFY(!pane.usageCritical()); // exactly 90 % is not
        QCOMPARE(pane.usagePercentage(), "90%");
        pane.setSpaceInfo(RemoteSpaceInfo{100, 150, 0, std::nullopt});
        QCOMPARE(pane.usagePercentage(), "150%"); // over quota: not capped
    }

    // The pane goes away while `rclone about` still runs: it is stopped.
    void leavingThePaneStopsItsStorageQuery()
    {
        FakeRclone fake;
        fake.script("about", "trap 'exit 143' TERM; while :; do sleep 0.05; done\n");
        RcloneEngine engine(FakeRclone::path());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});
        auto pane = std::make_unique<RemoteDetailController>();
        pane->setApp(&app);
        pane->setRemoteName("gdrive");
        QTRY_COMPARE(fake.calls().size(), 1);
        QTRY_VERIFY(QFile::exists(fake.directory() + "/calls/0001.pid"));
        const qint64 pid = readFile(fake.directory() + "/calls/0001.pid").trimmed().toLongLong();
        QVERIFY(pid > 0);
        pane.reset();
        QTRY_VERIFY(::kill(pid_t(pid), 0) != 0);
    }

    void addFlow_data()
    {
        QTest::addColumn<QByteArray>("createScript");
        QTest::addColumn<QByteArray>("reconnectScript");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QStringList>("commands");
        QTest::newRow("creation refused")
            << QByteArray("echo 'Error: config name contains invalid characters' >&2; exit 2")
            << QByteArray() << "Error: config name contains invalid characters\n"
            << QStringList{"create"};
        QTest::newRow("sign-in failed, remote removed again")
            << QByteArray("exit 0") << QByteArray("echo 'Error: failed to get token' >&2; exit 1")
            << "Error: failed to get token\n" << QStringList{"create", "reconnect", "delete"};
        QTest::newRow("success") << QByteArray("exit 0") << QByteArray("exit 0") << QString()
                                 << QStringList{"create", "reconnect"};
    }
    void addFlow()
    {
        QFETCH(QByteArray, createScript);
        QFETCH(QByteArray, reconnectScript);
        QFETCH(QString, error);
        QFETCH(QStringList, commands);
        FakeRclone fake;
        // "config" is the command of all three calls; the second word tells them apart.
        fake.script("config", "case \"$2\" in create) " + createScript + ";; reconnect) " + reconnectScript +
                                  ";; delete) exit 0;; esac\n");
        RcloneEngine engine(FakeRclone::path());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(&app));
        QVERIFY(!sheet.canSubmit()); // no name yet
        sheet.setName("  ");         // blanks are a name: rclone decides
        QVERIFY(sheet.canSubmit());
        sheet.setName("My Drive");
        sheet.setType("dropbox");
        QSignalSpy finished(&sheet, &AddRemoteController::finished);

        if (!error.isEmpty())
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code"));
        sheet.submit();
        QCOMPARE(sheet.configStep(), AddRemoteController::ConfigStep::Creating);
        QCOMPARE(sheet.buttonText(), "Creating…");
        QVERIFY(!sheet.canSubmit()); // no second press while it runs
        QTRY_VERIFY(!sheet.isConfiguring());
        QCOMPARE(sheet.errorMessage(), error);
        QCOMPARE(finished.count(), error.isEmpty() ? 1 : 0);
        QCOMPARE(sheet.buttonText(), "Add & Authenticate");

        QTRY_COMPARE(fake.calls().size(), commands.size());
        QStringList seen;
        for (const QStringList &call : fake.calls())
            seen.append(call.value(1));
        QCOMPARE(seen, commands);
        QCOMPARE(fake.calls().value(0),
                 (QStringList{"config", "create", "My Drive", "dropbox", "--non-interactive"}));
        if (commands.contains("delete"))
            QCOMPARE(fake.calls().value(2), (QStringList{"config", "delete", "My Drive"}));
    }

    // Closing the sheet mid sign-in: the half-made remote is removed, and
    // only then is the list read again; the sheet cannot submit meanwhile,
    // and opens afresh afterwards.
    void closingTheSheetWhileWaitingForTheBrowser()
    {
        FakeRclone fake;
        fake.script("config", "case \"$2\" in reconnect) trap 'exit 143' TERM; while :; do sleep 0.05; done;;"
                              " delete) sleep 0.3;; esac\n");
        fake.script("listremotes", "exit 0\n");
        RcloneEngine engine(FakeRclone::path());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(&app));
        sheet.setName("waiting");
        sheet.setType("webdav");
        sheet.submit();
        QTRY_COMPARE(sheet.configStep(), AddRemoteController::ConfigStep::Authenticating);
        QCOMPARE(sheet.buttonText(), "Waiting for Browser…");
        QTRY_COMPARE(fake.calls().size(), 2);
        const qint64 pid = readFile(fake.directory() + "/calls/0002.pid").trimmed().toLongLong();
        QVERIFY(pid > 0);

        sheet.abandon(); // the sheet closes
        QVERIFY(sheet.isCleaningUp());
        QVERIFY(!sheet.canSubmit());
        QTRY_VERIFY(!sheet.isCleaningUp());
        QVERIFY(sheet.canSubmit());
        QTRY_COMPARE(fake.calls().size(), 4);
        QCOMPARE(fake.calls().value(2), (QStringList{"config", "delete", "waiting"}));
        QCOMPARE(fake.calls().value(3).value(0), "listremotes");
        QTRY_VERIFY(::kill(pid_t(pid), 0) != 0); // no child left behind

        sheet.reset(); // opened again
        QCOMPARE(sheet.name(), QString());
        QCOMPARE(sheet.type(), "drive");
        QCOMPARE(sheet.errorMessage(), QString());
    }

    // With the real rclone: WebDAV has no sign-in, so the new remote goes
    // away again; remotes made outside show after a reload; deleting one that
    // a folder uses beside another leaves the folder its other target.
    void realRclone()
    {
        RcloneSandbox sandbox;
        RcloneEngine engine(RcloneSandbox::rclone());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});

        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(&app));
        sheet.setName("team dav");
        sheet.setType("webdav");
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code"));
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(!sheet.isConfiguring(), 20000);
        QVERIFY(!sheet.errorMessage().isEmpty());
        QTRY_VERIFY(!readFile(sandbox.configPath()).contains("[team dav]"));

        // Made outside the program.
        sandbox.addAlias("backup", sandbox.makeDirectory("backup"));
        writeFile(sandbox.configPath(), readFile(sandbox.configPath()) + "[scratch]\ntype = local\n\n");
        app.remotes()->reload();
        QTRY_COMPARE(app.remotes()->count(), 2);

        RemoteDetailController pane;
        pane.setApp(&app);
        pane.setRemoteName("scratch");
        QCOMPARE(pane.typeName(), "Local");
        QTRY_VERIFY_WITH_TIMEOUT(!pane.isLoading(), 20000);
        QVERIFY(pane.hasSpaceInfo());
        QVERIFY(pane.total().toLongLong() > 0);
        QVERIFY(pane.usageFractionValue().isValid());

        SyncFolder both = folderWith("Both", {"backup", "scratch"});
        app.syncManager()->addFolder(both);
        QSignalSpy confirmation(&pane, &RemoteDetailController::confirmationRequested);
        QSignalSpy deleted(&pane, &RemoteDetailController::deleted);
        pane.requestDelete();
        QCOMPARE(confirmation.count(), 1);
        QVERIFY(confirmation.at(0).at(0).toString().contains("• Both"));
        pane.confirmDelete();
        QTRY_COMPARE(deleted.count(), 1);
        QCOMPARE(app.syncManager()->folders().first().remoteTargets.size(), 1);
        QCOMPARE(app.syncManager()->folders().first().remoteTargets.first().remoteName, "backup");
        QVERIFY(!readFile(sandbox.configPath()).contains("[scratch]"));
    }

    void refusalWhenAFolderHasOnlyThisRemote()
    {
        FakeRclone fake;
        RcloneEngine engine(FakeRclone::path());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});
        app.syncManager()->addFolder(folderWith("A", {"gdrive"}));
        app.syncManager()->addFolder(folderWith("B", {"gdrive", "nas"}));
        RemoteDetailController pane;
        pane.setApp(&app);
        pane.setRemoteName("gdrive");
        QSignalSpy refusal(&pane, &RemoteDetailController::refusalShown);
        QSignalSpy confirmation(&pane, &RemoteDetailController::confirmationRequested);
        pane.requestDelete();
        QCOMPARE(refusal.count(), 1);
        QCOMPARE(confirmation.count(), 0);
        QVERIFY(refusal.at(0).at(0).toString().contains("\n\n• A\n\n"));
        QVERIFY(!refusal.at(0).at(0).toString().contains("• B"));
    }

    // A deletion runs once however often it is asked for, and its failure is shown.
    void deletionRunsOnceAndShowsItsFailure()
    {
        FakeRclone fake;
        fake.script("config", "sleep 0.3; echo 'permission denied' >&2; exit 1\n");
        fake.script("about", "echo '{\"total\":100,\"used\":40}'\n");
        RcloneEngine engine(FakeRclone::path());
        NimbrellApp app({m_settings, engine, m_fileEvents, m_loginItem});
        app.syncManager()->addFolder(folderWith("B", {"gdrive", "nas"}));
        RemoteDetailController pane;
        pane.setApp(&app);
        pane.setRemoteName("gdrive");
        QTRY_VERIFY(!pane.isLoading());
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 1"));
        QSignalSpy confirmation(&pane, &RemoteDetailController::confirmationRequested);
        pane.confirmDelete();
        QVERIFY(pane.isDeleting());
        pane.confirmDelete();
        pane.requestDelete();
        QCOMPARE(confirmation.count(), 0);
        QTRY_COMPARE(pane.loadError(), "Failed to delete remote: permission denied\n");
        QVERIFY(!pane.isDeleting());
        QCOMPARE(app.syncManager()->folders().first().remoteTargets.size(), 2); // nothing changed
        int deletions = 0;
        for (const QStringList &call : fake.calls())
            deletions += call.value(1) == "delete";
        QCOMPARE(deletions, 1);
    }
};

QTEST_MAIN(TestRemotes)
#include "tst_remotes.moc"
