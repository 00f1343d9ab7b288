// The remote screens' logic against a scripted rclone: the add flow, the
// guarded deletion and the usage figures. (What the real rclone answers to
// these commands: tst_rclonereal; the panes with it: tst_folderscreens.)
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "fakes/FakeRclone.h"
#include "platform/MemorySettingsStore.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "sync/FolderCommands.h"
#include "sync/RemovedFiles.h"
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

// The calls of the fake whose argument `index` is `word`.
QList<QStringList> callsWith(const FakeRclone &fake, qsizetype index, const QString &word)
{
    QList<QStringList> calls = fake.calls();
    calls.removeIf([&](const QStringList &call) { return call.value(index) != word; });
    return calls;
}

} // namespace

class TestRemotes : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    // Each test's scripted rclone, and the app that runs it.
    std::unique_ptr<FakeRclone> m_fake;
    RcloneEngine m_engine{FakeRclone::path()};
    std::unique_ptr<NimbrellApp> m_app;

private Q_SLOTS:
    void initTestCase() { qputenv("HOME", QFile::encodeName(m_home.path())); }
    void init()
    {
        QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json"));
        m_fake = std::make_unique<FakeRclone>();
        m_app = std::make_unique<NimbrellApp>(AppServices{m_settings, m_engine, m_fileEvents, m_loginItem});
    }
    void cleanup()
    {
        m_app.reset();
        m_fake.reset();
    }

    // The folders a deletion touches, those that stop it, and what the user
    // is asked (told when refused: deletion() below).
    void dependentAndBlockingFolders()
    {
        const SyncFolder a = folderWith("A", {"gdrive"}), b = folderWith("B", {"gdrive", "nas"}), c = folderWith("C", {"nas"});
        const SyncFolder twice = folderWith("Twice", {"gdrive", "gdrive"});
        using R = RemoteDetailController;
        QVERIFY(FolderCommands::dependentFolders({a, b, c}, "box").isEmpty());
        QCOMPARE(FolderCommands::dependentFolders({a, b, c}, "gdrive"), (QList<SyncFolder>{a, b}));
        QCOMPARE(FolderCommands::blockingFolders({a, b}), QList<SyncFolder>{a}); // only A has no other target
        QVERIFY(FolderCommands::blockingFolders({twice}).isEmpty()); // several targets, all on this remote
        QCOMPARE(R::confirmationMessage("box", {}), "Are you sure you want to delete 'box'? This action cannot be undone.");
        QCOMPARE(R::confirmationMessage("gdrive", {b, twice}),
                 "The following Sync Folders use this remote:\n\n• B\n• Twice\n\n"
                 "If you delete this remote, it will be removed from these sync folders.");
    }

    void usageFraction()
    {
        using R = RemoteStorage;
        QCOMPARE(R::usageFraction({0, 0, 0, std::nullopt}), std::nullopt); // a total of 0 hides the bar
        QCOMPARE(R::usageFraction({std::nullopt, 5, 5, std::nullopt}), std::nullopt);
        QCOMPARE(R::usageFraction({100, std::nullopt, 100, std::nullopt}), 0.0);
        QCOMPARE(R::usageFraction({100, 40, 60, std::nullopt}), 0.4);

        RemoteDetailController pane;
        pane.storage()->setSpaceInfo(RemoteSpaceInfo{100, 95, 5, std::nullopt});
        QVERIFY(pane.storage()->usageCritical()); // 95 % is red
        pane.storage()->setSpaceInfo(RemoteSpaceInfo{100, 90, 10, std::nullopt});
        QVERIFY(!pane.storage()->usageCritical()); // exactly 90 % is not
        QCOMPARE(pane.storage()->usagePercentage(), "90%");
        pane.storage()->setSpaceInfo(RemoteSpaceInfo{100, 150, 0, std::nullopt});
        QCOMPARE(pane.storage()->usagePercentage(), "150%"); // over quota: not capped
    }

    // The pane goes away while `rclone about` still runs: it is stopped.
    void leavingThePaneStopsItsStorageQuery()
    {
        m_fake->script("about", "trap 'exit 143' TERM; while :; do sleep 0.05; done\n");
        auto pane = std::make_unique<RemoteDetailController>();
        pane->setApp(m_app.get());
        pane->setRemoteName("gdrive");
        QTRY_COMPARE(m_fake->calls().size(), 1);
        // (The fake writes its arguments, then its process id.)
        const QString pidFile = m_fake->directory() + "/calls/0001.pid";
        QTRY_VERIFY(readFile(pidFile).trimmed().toLongLong() > 0);
        const qint64 pid = readFile(pidFile).trimmed().toLongLong();
        pane.reset();
        QTRY_VERIFY(::kill(pid_t(pid), 0) != 0);
    }

    // Deleting a folder leaves the files its runs kept here: the
    // confirmation says where, and says nothing more for a folder without.
    void deleteConfirmationSaysWhereKeptFilesStay()
    {
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(".local/share")));
        const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QString plain = "This sync folder and its configuration will be permanently removed.";
        QCOMPARE(m_app->deleteMessage(id), plain);
        const QString kept = RemovedFiles::localDirectory(QUuid::fromString(id));
        writeFile(kept + "/2026-11-23T10-00-00/a.txt", "a");
        QCOMPARE(m_app->deleteMessage(id), plain + "\n\nThe files kept from it stay in " + kept
                                               + "; delete them there when they are no longer needed.");
    }

    void addFlow_data()
    {
        QTest::addColumn<QByteArray>("remotes"); // what listremotes prints
        QTest::addColumn<QByteArray>("createScript");
        QTest::addColumn<QByteArray>("reconnectScript");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QStringList>("commands");
        const QByteArray others = "printf 'gdrive:   drive\\nmy drive:   s3\\n'";
        QTest::newRow("creation refused") << others
            << QByteArray("echo 'Error: config name contains invalid characters' >&2; exit 2")
            << QByteArray() << "Error: config name contains invalid characters\n"
            << QStringList{"create"};
        QTest::newRow("sign-in failed, remote removed again") << others
            << QByteArray("exit 0") << QByteArray("echo 'Error: failed to get token' >&2; exit 1")
            << "Error: failed to get token\n" << QStringList{"create", "reconnect", "delete"};
        QTest::newRow("success") << others << QByteArray("exit 0") << QByteArray("exit 0") << QString()
                                 << QStringList{"create", "reconnect"};
        // rclone would replace it, keys and all, and a failed sign-in would then delete it.
        QTest::newRow("name taken: nothing made, nothing deleted")
            << QByteArray("printf 'My Drive:   s3\\n'") << QByteArray("exit 0") << QByteArray("exit 1")
            << "A remote named “My Drive” already exists." << QStringList();
        QTest::newRow("remotes unreadable: nothing made")
            << QByteArray("echo 'Failed to load config file' >&2; exit 1") << QByteArray("exit 0") << QByteArray("exit 0")
            << "Failed to load config file\n" << QStringList();
    }
    void addFlow()
    {
        QFETCH(QByteArray, remotes);
        QFETCH(QByteArray, createScript);
        QFETCH(QByteArray, reconnectScript);
        QFETCH(QString, error);
        QFETCH(QStringList, commands);
        m_fake->script("listremotes", remotes);
        // "config" is the command of all three calls; the second word tells them apart.
        m_fake->script("config", "case \"$2\" in create) " + createScript + ";; reconnect) " + reconnectScript +
                                     ";; delete) exit 0;; esac\n");
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(m_app.get()));
        QVERIFY(!sheet.canSubmit()); // no name yet
        sheet.setName("  ");         // blanks are a name: rclone decides
        QVERIFY(sheet.canSubmit());
        sheet.setName("My Drive");
        sheet.setType("dropbox");
        QSignalSpy finished(&sheet, &AddRemoteController::finished);

        if (!error.isEmpty() && !error.startsWith("A remote"))
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code"));
        sheet.submit();
        QCOMPARE(sheet.configStep(), AddRemoteController::ConfigStep::Creating);
        QCOMPARE(sheet.buttonText(), "Creating…");
        QVERIFY(!sheet.canSubmit()); // no second press while it runs
        QTRY_VERIFY(!sheet.isConfiguring());
        QCOMPARE(sheet.errorMessage(), error);
        QCOMPARE(finished.count(), error.isEmpty() ? 1 : 0);
        QCOMPARE(sheet.buttonText(), "Add & Authenticate");
        QCOMPARE(m_fake->calls().value(0), (QStringList{"listremotes", "--long"}));

        // The config calls (a reload of the list may follow them).
        QTRY_COMPARE(callsWith(*m_fake, 0, "config").size(), commands.size());
        const QList<QStringList> calls = callsWith(*m_fake, 0, "config");
        for (qsizetype i = 0; i < commands.size(); ++i)
            QCOMPARE(calls.at(i).value(1), commands.at(i));
        if (!commands.isEmpty())
            QCOMPARE(calls.value(0), (QStringList{"config", "create", "My Drive", "dropbox", "--non-interactive"}));
        if (commands.contains("delete"))
            QCOMPARE(calls.value(2), (QStringList{"config", "delete", "My Drive"}));
    }

    // With the real rclone: adding a remote under the name of one that exists
    // leaves that one as it was, keys and all.
    void existingRemoteKeptWithTheRealRclone()
    {
        RcloneSandbox sandbox;
        const QStringList s3{"type = s3", "provider = Other", "access_key_id = AKIDWORK", "secret_access_key = s3cr3t"};
        sandbox.addRemote("work", s3);
        const QByteArray before = readFile(sandbox.configPath());
        RcloneEngine engine(RcloneSandbox::rclone());
        NimbrellApp app(AppServices{m_settings, engine, m_fileEvents, m_loginItem});
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(&app));
        sheet.setName("work");
        sheet.setType("dropbox");
        sheet.submit();
        QTRY_VERIFY_WITH_TIMEOUT(!sheet.isConfiguring(), 30000);
        QCOMPARE(sheet.errorMessage(), "A remote named “work” already exists.");
        QCOMPARE(readFile(sandbox.configPath()), before);
    }

    // Closing the sheet mid sign-in: the half-made remote is removed, and
    // only then is the list read again; the sheet cannot submit meanwhile,
    // and opens afresh afterwards.
    void closingTheSheetWhileWaitingForTheBrowser()
    {
        m_fake->script("config", "case \"$2\" in reconnect) trap 'exit 143' TERM; while :; do sleep 0.05; done;;"
                                 " delete) sleep 0.3;; esac\n");
        AddRemoteController sheet;
        sheet.setProperty("app", QVariant::fromValue(m_app.get()));
        sheet.setName("waiting");
        sheet.setType("onedrive");
        sheet.submit();
        QTRY_COMPARE(sheet.configStep(), AddRemoteController::ConfigStep::Authenticating);
        QCOMPARE(sheet.buttonText(), "Waiting for Browser…");
        QTRY_COMPARE(m_fake->calls().size(), 3); // listremotes, create, reconnect
        const QString pidFile = m_fake->directory() + "/calls/0003.pid";
        QTRY_VERIFY(readFile(pidFile).trimmed().toLongLong() > 0); // written just after the arguments
        const qint64 pid = readFile(pidFile).trimmed().toLongLong();

        sheet.abandon(); // the sheet closes
        QVERIFY(sheet.isCleaningUp());
        QVERIFY(!sheet.canSubmit());
        QTRY_VERIFY(!sheet.isCleaningUp());
        QVERIFY(sheet.canSubmit());
        QTRY_COMPARE(m_fake->calls().size(), 5);
        QCOMPARE(m_fake->calls().value(3), (QStringList{"config", "delete", "waiting"}));
        QCOMPARE(m_fake->calls().value(4).value(0), "listremotes");
        QTRY_VERIFY(::kill(pid_t(pid), 0) != 0); // no child left behind

        sheet.reset(); // opened again
        QCOMPARE(sheet.name(), QString());
        QCOMPARE(sheet.type(), "drive");
        QCOMPARE(sheet.errorMessage(), QString());
    }

    // A remote that a folder has as its only target is not deleted: the user
    // is told which folders. A deletion runs once however often it is asked
    // for, and its failure is shown; once it succeeds, the folders that used
    // the remote beside another keep the other.
    void deletion()
    {
        m_fake->script("config.1", "sleep 0.3; echo 'permission denied' >&2; exit 1\n");
        m_fake->script("about", "echo '{\"total\":100,\"used\":40}'\n");
        const SyncFolder a = folderWith("A", {"gdrive"}), b = folderWith("B", {"gdrive", "nas"});
        m_app->syncManager()->addFolder(a);
        m_app->syncManager()->addFolder(b);
        RemoteDetailController pane;
        pane.setApp(m_app.get());
        pane.setRemoteName("gdrive");
        QTRY_VERIFY(!pane.storage()->isLoading());
        QSignalSpy refusal(&pane, &RemoteDetailController::refusalShown);
        QSignalSpy confirmation(&pane, &RemoteDetailController::confirmationRequested);
        pane.requestDelete();
        QCOMPARE(refusal.count(), 1);
        QCOMPARE(refusal.at(0).at(0).toString(),
                 "The following Sync Folders use this remote as their ONLY target:\n\n• A\n\n"
                 "Please delete these folders or add another remote target to them before deleting this remote.");
        QCOMPARE(confirmation.count(), 0);

        m_app->syncManager()->deleteFolder(a.id);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 1"));
        pane.confirmDelete();
        QVERIFY(pane.isDeleting());
        pane.confirmDelete();
        pane.requestDelete();
        QCOMPARE(confirmation.count(), 0);
        QTRY_COMPARE(pane.storage()->error(), "Failed to delete remote: permission denied\n");
        QVERIFY(!pane.isDeleting());
        QCOMPARE(m_app->syncManager()->folders().first().remoteTargets.size(), 2); // nothing changed
        QCOMPARE(callsWith(*m_fake, 1, "delete").size(), 1);

        QSignalSpy deleted(&pane, &RemoteDetailController::deleted);
        pane.requestDelete();
        QCOMPARE(confirmation.count(), 1);
        QVERIFY(confirmation.at(0).at(0).toString().contains("\n\n• B\n\n"));
        pane.confirmDelete();
        QTRY_COMPARE(deleted.count(), 1);
        QCOMPARE(callsWith(*m_fake, 1, "delete").value(1), (QStringList{"config", "delete", "gdrive"}));
        QCOMPARE(m_app->syncManager()->folders().first().remoteTargets, QList<RemoteTarget>{b.remoteTargets.at(1)});
    }
};

QTEST_MAIN(TestRemotes)
#include "tst_remotes.moc"
