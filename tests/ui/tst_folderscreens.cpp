// The dashboard and the folder pane as a user meets them: their texts in each
// state, and a folder created, synced with the real rclone, edited, aborted
// and deleted by clicking and typing.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "model/FolderStore.h"
#include "model/UuidString.h"
#include "platform/MemorySettingsStore.h"
#include "support/LogCapture.h"
#include "support/QuickInspection.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "sync/ActivityLog.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/FolderListModel.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"
#include "ui/FolderTreeModel.h"
#include "ui/RemoteListModel.h"
#include "ui/TrayMenu.h"

#include <QClipboard>
#include <QMenu>
#include <QGuiApplication>
#include <QStyleHints>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>


namespace {
// A folder syncing with these targets, each "remote:path".
SyncFolder folder(const QString &name, const QString &localPath, const QStringList &targets = {})
{
    SyncFolder folder;
    folder.name = name;
    folder.localPath = localPath;
    for (const QString &target : targets)
        folder.remoteTargets.append({QUuid::createUuid(), target.section(':', 0, 0), target.section(':', 1), false});
    return folder;
}
} // namespace

class TestFolderScreens : public QObject
{
    Q_OBJECT

    std::unique_ptr<RcloneSandbox> m_sandbox;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    std::unique_ptr<RcloneEngine> m_engine;
    std::unique_ptr<ActivityLog> m_activity;
    std::unique_ptr<NimbrellApp> m_app;

    QQuickWindow *startApp(const QList<SyncFolder> &folders = {})
    {
        writeFile(m_sandbox->home() + "/.config/rclone/rclone_sync_folders.json", FolderStore::encode(folders).value());
        m_engine = std::make_unique<RcloneEngine>(RcloneSandbox::rclone());
        m_activity = std::make_unique<ActivityLog>(); // in the sandbox's XDG_DATA_HOME
        m_app = std::make_unique<NimbrellApp>(AppServices{.settings = m_settings, .engine = *m_engine,
                                                          .fileEvents = m_fileEvents, .loginItem = m_loginItem,
                                                          .activity = m_activity.get()});
        m_app->start();
        QQuickWindow *main = m_app->window("main");
        if (main && !QTest::qWaitForWindowExposed(main))
            return nullptr;
        return main;
    }

private Q_SLOTS:
    void initTestCase() { setUpApplication(); }
    void init()
    {
        QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support).*"));
        m_sandbox = std::make_unique<RcloneSandbox>();
        m_settings = MemorySettingsStore();
    }
    void cleanup()
    {
        m_app.reset();
        m_activity.reset();
        m_engine.reset();
        m_sandbox.reset();
    }

    // The dashboard puts errors first and turns its active-syncs icon while a
    // sync runs. A failed folder shows its error and its log, which a run
    // takes away; a folder without targets is idle, and one that does not
    // exist holds nothing.
    void dashboardAndFolderStates()
    {
        SyncFolder busy = folder("Busy", m_sandbox->makeDirectory("Busy"), {"slow:busy"});
        for (int i = 0; i < 300; ++i)
            writeFile(busy.localPath + QStringLiteral("/f%1.txt").arg(i), "x");
        m_sandbox->addWebDav("slow", m_sandbox->makeDirectory("served"), true);
        m_sandbox->addAlias("backup", m_sandbox->makeDirectory("backup"));
        SyncFolder broken = folder("Broken", m_sandbox->makeDirectory("home/Broken"), {"backup:y"});
        broken.status = SyncStatus::error;
        broken.lastError = "\n   \nbackup:x — first line\nsecond line";
        const SyncFolder quiet = folder("Quiet", "/nonexistent/folder");
        QQuickWindow *main = startApp({busy, broken, quiet});
        m_app->syncManager()->syncFolder(busy.id);
        const QString allGood = "All systems go. Your files are up to date.";
        // (The dashboard is loaded in the background, after the window shows.)
        QTRY_COMPARE(missing(main, {"Needs Attention", "View Details", "Sync in progress...", allGood}),
                     (QStringList{"Sync in progress...", allGood}));
        QQuickItem *activeCard = item(main, "activeSyncsCard");
        QTRY_VERIFY(activeCard->property("iconRotation").toDouble() > 0);
        m_app->syncManager()->cancelSync(busy.id); // upright at once, and it stays so
        QCOMPARE(activeCard->property("iconRotation").toDouble(), 0.0);
        QTest::qWait(100);
        QCOMPARE(activeCard->property("iconRotation").toDouble(), 0.0);

        m_app->navigation()->showFolder(uuidString(broken.id));
        QTRY_COMPARE(missing(main, {"Last sync failed", "Sync Error", "backup:x — first line", "Never synced"}), QStringList());
        QGuiApplication::clipboard()->setText("something else");
        QObject *sheet = main->findChild<QObject *>("errorLogSheet");
        QMetaObject::invokeMethod(sheet, "open");
        QTRY_COMPARE(missing(main, {"Error Log", "Select text above to copy a portion of the log."}), QStringList());
        QQuickItem *copy = item(main, "copyButton");
        QCOMPARE(copy->property("text").toString(), "Copy Full Log");
        click(main, copy);
        QCOMPARE(QGuiApplication::clipboard()->text(), *broken.lastError);
        QCOMPARE(copy->property("text").toString(), "Copied!");
        QTest::qWait(1700);
        QCOMPARE(copy->property("text").toString(), "Copied!");
        QTRY_COMPARE_WITH_TIMEOUT(copy->property("text").toString(), "Copy Full Log", 1000);
        // A run clears the error under the open sheet: the sheet goes with it.
        QVERIFY(m_app->syncManager()->syncFolder(broken.id));
        QTRY_VERIFY_WITH_TIMEOUT(!sheet->property("visible").toBool(), 30000);
        QCOMPARE(m_app->syncManager()->folder(broken.id)->lastError, std::nullopt);

        m_app->navigation()->showFolder(uuidString(quiet.id));
        QTRY_COMPARE(missing(main, {"Idle — ready to sync", "No remote targets configured"}), QStringList());
        QTRY_COMPARE(item(main, "filesCard")->property("value").toString(), "0");
        QCOMPARE(item(main, "sizeCard")->property("value").toString(), "0 B");

        // Nothing failed any more: nothing needs attention.
        m_app->navigation()->showDashboard();
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains(allGood), 30000);
        QTRY_VERIFY(!visibleTexts(main).contains("Needs Attention")); // (the pane before it may still be going)
    }

    // Each problem's button does what it says, with the real rclone: the
    // reviews preview without changing anything and apply what they showed.
    void problemActions()
    {
        const QString local = m_sandbox->makeDirectory("home/Book"), remote = m_sandbox->makeDirectory("backup");
        m_sandbox->addAlias("backup", remote);
        const QDateTime old = QDateTime::currentDateTimeUtc().addDays(-2), newer = old.addDays(1);
        const auto put = [](const QString &path, const QByteArray &content, const QDateTime &time) {
            writeFile(path, content);
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(time, QFileDevice::FileModificationTime));
        };
        put(local + "/ch1.txt", "ch1 edited here", newer);
        put(remote + "/ch1.txt", "ch1", old);
        put(local + "/ch2.txt", "ch2", old);
        put(remote + "/ch2.txt", "ch2 edited there", newer);
        put(local + "/only here.txt", "here", old);
        put(remote + "/only there.txt", "there", old);
        SyncFolder book = folder("Book", local, {"backup:"}), mail = folder("Mail", local, {"backup:"}),
                   inbox = folder("Inbox", m_sandbox->makeDirectory("home/Inbox"), {"backup:inbox"});
        book.remoteTargets[0].hasResynced = mail.remoteTargets[0].hasResynced = true;
        book.lastError = "backup: — ERROR : Bisync aborted. Must run --resync to recover.";
        mail.lastError = "backup: — CRITICAL: couldn't fetch token: invalid_grant: maybe token expired?";
        inbox.lastError = "backup:inbox — dial tcp 127.0.0.1:9: connect: connection refused";
        book.status = mail.status = inbox.status = SyncStatus::error;
        QQuickWindow *main = startApp({book, mail, inbox});
        m_app->navigation()->showFolder(uuidString(book.id));
        QTRY_VERIFY(item(main, "problem_needsResync"));
        QVERIFY(visibleTexts(main).contains("Sync history lost"));

        // The resync preview: the newer copy of each file, nothing changed yet.
        QQuickItem *action = item(main, "problemAction");
        QCOMPARE(action->property("text").toString(), "Review and Resync…");
        click(main, action);
        QTRY_VERIFY_WITH_TIMEOUT(item(main, "applyReview") && item(main, "applyReview")->isEnabled(), 30000);
        const auto counted = [main](int group) { return item(main, qPrintable("reviewCount" + QString::number(group)))->property("count").toInt(); };
        QCOMPARE(counted(0), 2); // ch1 and "only here" up
        QCOMPARE(counted(1), 1); // "only there" down
        QCOMPARE(counted(4), 1); // ch2 replaced here
        QCOMPARE(readFile(remote + "/ch1.txt"), "ch1");
        QVERIFY(!QFile::exists(local + "/only there.txt"));
        click(main, item(main, "applyReview"));
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("Sync completed successfully"), 30000);
        for (const QString &side : {local, remote}) {
            QCOMPARE(readFile(side + "/ch1.txt"), "ch1 edited here");
            QCOMPARE(readFile(side + "/ch2.txt"), "ch2 edited there");
            QVERIFY(QFile::exists(side + "/only here.txt") && QFile::exists(side + "/only there.txt"));
        }

        // Too many deletes: reviewed, then applied past the safety stop.
        for (int i = 0; i < 6; ++i)
            writeFile(local + QStringLiteral("/n%1.txt").arg(i), "n");
        m_app->syncManager()->syncFolder(book.id);
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("Sync completed successfully"), 30000);
        for (int i = 0; i < 6; ++i)
            QFile::remove(local + QStringLiteral("/n%1.txt").arg(i));
        QFile::remove(local + "/ch1.txt");
        m_app->syncManager()->syncFolder(book.id);
        QTRY_VERIFY_WITH_TIMEOUT(item(main, "problem_tooManyDeletes"), 30000);
        QVERIFY(textItem(main, "Stopped before deleting 7 of 10 files on backup:"));
        click(main, item(main, "problemAction"));
        QTRY_VERIFY_WITH_TIMEOUT(item(main, "applyReview") && item(main, "applyReview")->isEnabled(), 30000);
        QCOMPARE(counted(2), 7);
        QVERIFY(QFile::exists(remote + "/n0.txt"));
        click(main, item(main, "applyReview"));
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("Sync completed successfully"), 30000);
        QVERIFY(!QFile::exists(remote + "/n0.txt") && !QFile::exists(remote + "/ch1.txt"));

        // Sign In Again asks rclone to reconnect this target's remote.
        m_app->navigation()->showFolder(uuidString(mail.id));
        QTRY_VERIFY(item(main, "problem_signInExpired"));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code 2"));
        LogCapture log;
        click(main, item(main, "problemAction"));
        QTRY_VERIFY_WITH_TIMEOUT(textItem(main, "Sign-in failed: "), 20000); // an alias has no sign-in
        QVERIFY(log.messages.contains(R"(Executing rclone with arguments: ["config", "reconnect", "backup:", "--auto-confirm"])"));

        // Retry runs the folder again.
        m_app->navigation()->showFolder(uuidString(inbox.id));
        QTRY_VERIFY(item(main, "problem_remoteUnreachable"));
        click(main, item(main, "problemAction"));
        QTRY_VERIFY_WITH_TIMEOUT(m_app->syncManager()->folder(inbox.id)->status == SyncStatus::success, 30000);
    }

    // The remotes with the real rclone. A remote's pane: its storage figures,
    // none from a WebDAV server, an error for a remote no longer configured.
    // The sheet that adds one, from the keyboard too, starts afresh each time
    // it opens. The editor's target rows: named buttons that keep the focus
    // through a move, and remote choosers that follow the row's remote when
    // the remote list is read again under them.
    void remotesAndTargetRows()
    {
        m_sandbox->addRemote("a", {"type = local"});
        m_sandbox->addRemote("b", {"type = local"});
        m_sandbox->addWebDav("dav", m_sandbox->makeDirectory("served"));
        const SyncFolder pair = folder("Pair", m_sandbox->makeDirectory("home/Pair"), {"b:one", "a:two"});
        QQuickWindow *main = startApp({pair});
        QTRY_COMPARE(m_app->remotes()->count(), 3);

        m_app->navigation()->showRemote("a");
        QTRY_COMPARE_WITH_TIMEOUT(missing(main, {"Local", "Name", "Type", "Backend", "local", "Storage", "Total",
                                                 "Used", "Free", "Delete Remote"}),
                                  QStringList(), 20000);
        QVERIFY(item(main, "usagePercentage"));
        m_app->navigation()->showRemote("dav");
        QTRY_COMPARE_WITH_TIMEOUT(missing(main, {"Storage info not available for this remote type", "WebDAV"}), QStringList(), 20000);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^rclone exited with code"));
        m_app->navigation()->showRemote("gone");
        QTRY_COMPARE_WITH_TIMEOUT(missing(main, {"Could not load storage info", "Unknown"}), QStringList(), 20000);

        QObject *contentView = main->findChild<QObject *>("contentView");
        QMetaObject::invokeMethod(contentView, "openAddRemote");
        QTRY_COMPARE(missing(main, {"Add Remote", "Connect a cloud storage provider to sync.", "Remote Name", "Provider",
                                    "Google Drive", "Dropbox", "OneDrive", "Amazon S3", "WebDAV", "Cancel"}),
                     QStringList());
        QQuickItem *button = item(main, "addAndAuthenticate");
        QCOMPARE(button->property("text").toString(), "Add & Authenticate");
        QVERIFY(!button->isEnabled());
        type(main, item(main, "remoteName"), "My Drive");
        QTRY_VERIFY(button->isEnabled());
        click(main, item(main, "provider-webdav"));
        QVERIFY(item(main, "provider-webdav")->property("isSelected").toBool());
        QVERIFY(!item(main, "provider-drive")->property("isSelected").toBool());
        // The arrow keys move the choice between the cards, the focus with it.
        QTest::keyClick(main, Qt::Key_Left);
        QVERIFY(item(main, "provider-s3")->property("isSelected").toBool());
        QVERIFY(item(main, "provider-s3")->hasActiveFocus());
        QTest::keyClick(main, Qt::Key_Up);
        QVERIFY(item(main, "provider-drive")->property("isSelected").toBool());
        QTest::keyClick(main, Qt::Key_Escape);
        QTRY_VERIFY(!visibleTexts(main).contains("Connect a cloud storage provider to sync."));
        QMetaObject::invokeMethod(contentView, "openAddRemote");
        QTRY_VERIFY(visibleTexts(main).contains("Connect a cloud storage provider to sync."));
        QCOMPARE(item(main, "remoteName")->property("text").toString(), QString());
        QVERIFY(!item(main, "addAndAuthenticate")->isEnabled());
        QTest::keyClick(main, Qt::Key_Escape);

        m_app->navigation()->showFolder(uuidString(pair.id));
        QTRY_COMPARE(main->findChild<QObject *>("detail")->property("status").toInt(), 1); // Loader.Ready
        QTRY_VERIFY(item(main, "editFolder"));
        click(main, item(main, "editFolder"));
        QTRY_VERIFY(item(main, "moveTargetDown"));
        const auto all = [&](const char *name, const char *property) {
            QStringList values;
            findItem(main, [&](QQuickItem *candidate) {
                if (candidate->objectName() == QLatin1String(name))
                    values.append(candidate->property(property).toString());
                return false;
            });
            return values;
        };
        QCOMPARE(all("moveTargetUp", "toolTip"), (QStringList{"Move Up", "Move Up"}));
        QCOMPARE(all("removeTarget", "text"), (QStringList{"Remove Target", "Remove Target"}));
        QCOMPARE(all("targetRemote", "displayText"), (QStringList{"b", "a"}));

        findItem(main, [](QQuickItem *candidate) { return candidate->objectName() == "moveTargetDown"; })
            ->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(main, Qt::Key_Space);
        QTRY_COMPARE(all("targetRemote", "displayText"), (QStringList{"a", "b"}));
        // The moved row is the last one: its Up button has the focus.
        QTRY_COMPARE(main->activeFocusItem()->objectName(), "moveTargetUp");
        QCOMPARE(all("targetPath", "text"), (QStringList{"two", "one"}));

        // "a" is deleted meanwhile: "b" moves up in the list.
        QSignalSpy removed(m_app->engine()->run({"config", "delete", "a"}, nullptr, {}), &QObject::destroyed);
        QVERIFY(removed.wait());
        m_app->remotes()->reload();
        QTRY_COMPARE(m_app->remotes()->count(), 2);
        QCOMPARE(all("targetRemote", "displayText"), (QStringList{"a", "b"}));
        QTRY_COMPARE(all("targetRemote", "currentIndex"), (QStringList{"-1", "0"}));
        click(main, item(main, "confirmEdit"));
        QTRY_COMPARE(m_app->syncManager()->folders().first().remoteTargets.value(1).remoteName, "b");
        QCOMPARE(m_app->syncManager()->folders().first().remoteTargets.value(0).remoteName, "a");
    }

    // A file changed on both sides with the real rclone: the pane shows both
    // copies, the sidebar and the dashboard count the conflict. "Keep This" on
    // the renamed copy keeps it under the name and trashes the other; the
    // next run makes both sides agree. Each run's changes are listed.
    void conflictSettledFromThePane()
    {
        const QString local = m_sandbox->makeDirectory("home/Letters"), remote = m_sandbox->makeDirectory("backup");
        m_sandbox->addAlias("backup", remote);
        writeFile(local + "/letter.txt", "first");
        writeFile(local + "/notes/plan.txt", "plan");
        const SyncFolder letters = folder("Letters", local, {"backup:"});
        QQuickWindow *main = startApp({letters});
        SyncManager *manager = m_app->syncManager();
        const auto synced = [&] {
            QSignalSpy completed(manager, &SyncManager::runCompleted);
            QVERIFY(manager->syncFolder(letters.id));
            QVERIFY(completed.wait(30000));
            QCOMPARE(manager->folder(letters.id)->status, SyncStatus::success);
        };
        synced();
        const auto put = [](const QString &path, const QByteArray &content, qint64 secondsAgo) {
            writeFile(path, content);
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite)
                    && file.setFileTime(QDateTime::currentDateTime().addSecs(-secondsAgo), QFileDevice::FileModificationTime));
        };
        put(local + "/letter.txt", "mine", 60);
        put(remote + "/letter.txt", "theirs, newer", 10);
        synced();
        QCOMPARE(readFile(local + "/letter.txt.conflict1"), "mine"); // the older copy lost the name

        m_app->navigation()->showFolder(uuidString(letters.id));
        QTRY_VERIFY(item(main, "conflict_letter.txt"));
        QTRY_COMPARE(missing(main, {"1 Conflict", "letter.txt", "letter.txt.conflict1", "Recent Changes", "plan.txt",
                                    "Letters/notes"}),
                     QStringList());
        const auto copy = [main](int index, const char *name) {
            return findItem(main, [&](QQuickItem *candidate) {
                if (candidate->objectName() != QLatin1String(name))
                    return false;
                for (QQuickItem *above = candidate->parentItem(); above; above = above->parentItem()) {
                    if (above->objectName().startsWith("conflictCopy"))
                        return above->objectName() == QStringLiteral("conflictCopy%1").arg(index);
                }
                return false;
            });
        };
        QVERIFY(copy(0, "copyDetails")->property("text").toString().startsWith("From backup: · 13 B · modified"));
        QVERIFY(copy(1, "copyDetails")->property("text").toString().startsWith("From this computer · 4 B · modified"));
        QVERIFY(item(main, "conflictBadge"));
        QCOMPARE(m_app->folders()->conflictCount(), 1);
        const auto trayLines = [this] {
            QStringList lines;
            for (const QAction *action : m_app->trayMenu()->menu()->actions())
                lines.append(action->text());
            return lines;
        };
        QVERIFY(trayLines().contains("1 conflict"));

        click(main, copy(1, "keepThis"));
        QTRY_VERIFY(!item(main, "conflict_letter.txt"));
        QCOMPARE(readFile(local + "/letter.txt"), "mine");
        QVERIFY(!QFile::exists(local + "/letter.txt.conflict1"));
        QCOMPARE(readFile(m_sandbox->dataHome() + "/Trash/files/letter.txt"), "theirs, newer");
        QCOMPARE(m_app->folders()->conflictCount(), 0);
        QVERIFY(!trayLines().contains("1 conflict"));
        QVERIFY(!item(main, "conflictBadge"));

        synced();
        for (const QString &side : {local, remote}) {
            QCOMPARE(readFile(side + "/letter.txt"), "mine");
            QCOMPARE(QDir(side).entryList({"letter*"}, QDir::Files), QStringList{"letter.txt"});
        }
        m_app->navigation()->showDashboard();
        QTRY_COMPARE(missing(main, {"Recent Activity", "letter.txt", "letter.txt.conflict1"}), QStringList());
    }

    // At the window's smallest width the pane's toolbar keeps to the window
    // (icons only), also from one folder to the next.
    void narrowWindow()
    {
        const QList<SyncFolder> folders{folder("Documents", m_sandbox->makeDirectory("home/Documents"), {"backup:Docs"}),
                                        folder("Projects", m_sandbox->makeDirectory("home/Projects"), {"backup:P"})};
        QQuickWindow *main = startApp(folders);
        main->resize(main->minimumWidth(), main->height());
        for (const SyncFolder &shown : folders) {
            m_app->navigation()->showFolder(uuidString(shown.id));
            QTRY_VERIFY(item(main, "deleteSync") && item(main, "deleteSync")->width() > 0);
            QVERIFY(QQuickTest::qWaitForPolish(main));
            const QQuickItem *last = item(main, "deleteSync");
            QCOMPARE_LE(last->mapToScene({last->width(), 0}).x(), main->width());
        }
    }

    // A file overwritten from the remote comes back from Recently Removed
    // (opened as a file manager asks for it, and from its card): the sheet
    // asks before it replaces the copy that holds the name, which then is
    // among the removed files itself.
    void removedFileRestoredFromTheSheet()
    {
        const QString local = m_sandbox->makeDirectory("home/Notes"), remote = m_sandbox->makeDirectory("backup");
        m_sandbox->addAlias("backup", remote);
        writeFile(local + "/plan.txt", "mine");
        writeFile(local + "/todo.txt", "todo"); // bisync stops when every file changed
        const SyncFolder notes = folder("Notes", local, {"backup:"});
        QQuickWindow *main = startApp({notes});
        SyncManager *manager = m_app->syncManager();
        manager->preferences().setKeepsRemoved(notes.id, true);
        for (const char *step : {"first", "overwritten there"}) {
            if (QByteArray(step) != "first")
                writeFile(remote + "/plan.txt", "theirs");
            QSignalSpy completed(manager, &SyncManager::runCompleted);
            QVERIFY(manager->syncFolder(notes.id));
            QVERIFY(completed.wait(30000));
        }
        QCOMPARE(readFile(local + "/plan.txt"), "theirs");

        main->resize(main->width(), 1400); // the card is below Recent Changes
        // As a file manager's "Recently Removed…" asks for it: the folder's
        // pane, still loading, opens the sheet once it has its folder.
        m_app->navigation()->setSelection(SidebarSelection::syncFolder(notes.id));
        m_app->navigation()->setSheet("removed");
        const auto restorable = [&] {
            QQuickItem *restore = item(main, "restore_plan.txt");
            return restore && restore->isVisible() && restore->isEnabled();
        };
        QTRY_VERIFY(restorable());
        QCOMPARE(m_app->navigation()->sheet(), QString());
        click(main, item(main, "closeRemoved"));
        QTRY_VERIFY(!item(main, "restore_plan.txt") || !item(main, "restore_plan.txt")->isVisible());
        // Recent Changes above the card fills in first, moving the card down.
        QTRY_VERIFY(item(main, "change_plan.txt") && item(main, "recentlyRemoved"));
        click(main, item(main, "recentlyRemoved"));
        QTRY_VERIFY(restorable());
        QCOMPARE(missing(main, {"Recently Removed from Notes", "Notes · This computer · 4 B"}), QStringList());
        click(main, item(main, "restore_plan.txt"));
        QTRY_VERIFY(item(main, "confirmReplace") && item(main, "confirmReplace")->isVisible());
        QCOMPARE(readFile(local + "/plan.txt"), "theirs"); // nothing moved before the answer
        click(main, item(main, "confirmReplace"));
        QTRY_COMPARE(readFile(local + "/plan.txt"), "mine");
        QTRY_VERIFY(item(main, "restore_plan.txt")); // the copy set aside
        QTRY_COMPARE(missing(main, {"Notes · This computer · 6 B"}), QStringList());
    }

    // What syncs, chosen in the editor: the folder tree of both sides with a
    // directory unchecked, an ignore rule rclone refuses (which keeps Save
    // off, with rclone's reason) and then one it takes, and a direction.
    // Saved, the pane lists the skipped directory and the sidebar marks the
    // folder one-way.
    void choosingWhatSyncs()
    {
        const QString local = m_sandbox->makeDirectory("home/Docs");
        const QString remote = m_sandbox->makeDirectory("backup/Docs");
        m_sandbox->addAlias("backup", m_sandbox->root() + "/backup");
        for (const char *directory : {"Videos/raw", "Notes", "Here only"})
            QDir().mkpath(local + "/" + directory);
        for (const char *directory : {"Videos", "Notes", "There only"})
            QDir().mkpath(remote + "/" + directory);
        const SyncFolder docs = folder("Docs", local, {"backup:Docs"});
        QQuickWindow *main = startApp({docs});
        m_app->navigation()->showFolder(uuidString(docs.id));
        QTRY_COMPARE(main->findChild<QObject *>("detail")->property("status").toInt(), 1); // Loader.Ready
        QTRY_VERIFY(visibleTexts(main).contains("Never synced"));
        click(main, item(main, "editFolder"));
        QTRY_VERIFY(item(main, "chooseFolders"));
        click(main, item(main, "chooseFolders"));
        auto *tree = main->findChild<QObject *>("folderChoices")->property("tree").value<FolderTreeModel *>();
        QVERIFY(tree);
        QTRY_VERIFY(!tree->isLoading() && tree->rowCount() == 4);
        QStringList rows;
        for (int row = 0; row < tree->rowCount(); ++row) {
            const QModelIndex index = tree->index(row, 0);
            rows.append(index.data(FolderTreeModel::NameRole).toString() + "|" + index.data(FolderTreeModel::WhereRole).toString());
        }
        QCOMPARE(rows, (QStringList{"Here only|This computer only", "Notes|", "There only|Remote only", "Videos|"}));
        // A level is read when it is opened: Videos' own, then its check box.
        QVERIFY(tree->canFetchMore(tree->index(3, 0)));
        tree->fetchMore(tree->index(3, 0));
        QTRY_COMPARE(tree->rowCount(tree->index(3, 0)), 1);
        tree->toggle("Videos/raw");
        QCOMPARE(tree->index(3, 0).data(FolderTreeModel::CheckStateRole).toInt(), int(Qt::PartiallyChecked));
        tree->toggle("Videos");
        QCOMPARE(tree->skipped(), QStringList{"Videos"});
        QCOMPARE(tree->index(0, 0, tree->index(3, 0)).data(FolderTreeModel::CheckableRole).toBool(), false);
        click(main, item(main, "doneFolders"));
        QTRY_VERIFY(visibleTexts(main).contains("1 folder not synced"));

        QQuickItem *rules = item(main, "ignoreRules");
        QVERIFY(rules);
        rules->setProperty("text", "*.tmp\n[draft");
        QTRY_VERIFY_WITH_TIMEOUT(textItem(main, "“[draft” is not saved: mismatched '[' and ']'"), 20000);
        QVERIFY(!item(main, "confirmEdit")->isEnabled());
        rules->setProperty("text", "*.tmp\n[d]raft");
        QTRY_VERIFY_WITH_TIMEOUT(item(main, "confirmEdit")->isEnabled(), 20000);
        QVERIFY(!textItem(main, "“[draft”"));
        item(main, "direction")->setProperty("currentIndex", 1);
        QMetaObject::invokeMethod(item(main, "direction"), "activated", Q_ARG(int, 1));
        QTRY_VERIFY(textItem(main, "The remote follows this computer"));
        click(main, item(main, "confirmEdit"));

        QTRY_COMPARE(m_app->syncManager()->selection(docs.id),
                     (FolderSelection{{"Videos"}, {"*.tmp", "[d]raft"}, SyncDirection::upload}));
        QTRY_COMPARE(missing(main, {"1 folder not synced", "Videos"}), QStringList());
        QTRY_VERIFY(item(main, "directionMark"));
        QVERIFY(item(main, "paneDirectionMark"));
        // Changed from the command line meanwhile: the pane follows.
        m_app->syncManager()->setSelection(docs.id, {{"Videos", "Notes"}, {}, SyncDirection::twoWay});
        QTRY_COMPARE(missing(main, {"2 folders not synced", "Videos", "Notes"}), QStringList());
        QTRY_VERIFY(!item(main, "directionMark"));
    }

    void createSyncEditAbortDelete()
    {
        // A user's real folder, an alias remote and a paced WebDAV remote.
        const QString local = m_sandbox->makeDirectory("home/My Documents");
        writeFile(local + "/notes.txt", "hello");
        const QString backup = m_sandbox->makeDirectory("backup");
        m_sandbox->addAlias("backup", backup);
        QQuickWindow *main = startApp();
        QTRY_COMPARE(m_app->remotes()->count(), 1);

        // Create: the plus menu's entry, then the editor.
        m_app->navigation()->showNewSyncFolder();
        QTRY_VERIFY(item(main, "editName"));
        QTRY_COMPARE(main->findChild<QObject *>("detail")->property("status").toInt(), 1); // Loader.Ready
        QVERIFY(!item(main, "confirmEdit")->isEnabled());
        type(main, item(main, "editName"), "Documents");
        type(main, item(main, "editLocalPath"), local);
        QVERIFY(!item(main, "pathWarning"));
        click(main, item(main, "addTarget"));
        QTRY_VERIFY(item(main, "confirmEdit")->isEnabled());
        click(main, item(main, "confirmEdit"));
        QTRY_COMPARE(m_app->syncManager()->folders().size(), 1);
        const SyncFolder created = m_app->syncManager()->folders().first();
        QCOMPARE(created.name, "Documents");
        QCOMPARE(created.remoteTargets.value(0).remoteName, "backup");
        QCOMPARE(m_app->navigation()->selection(), SidebarSelection::syncFolder(created.id));
        QTRY_VERIFY(visibleTexts(main).contains("Never synced"));
        QTRY_COMPARE(item(main, "filesCard")->property("value").toString(), "1");

        // Sync with the real rclone.
        click(main, item(main, "syncNow"));
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("Sync completed successfully"), 30000);
        QCOMPARE(readFile(backup + "/notes.txt"), QByteArray("hello"));
        // In the shared formatter's words, in the header and the sidebar.
        QTRY_VERIFY(textItem(main, "Last synced "));
        QVERIFY(QRegularExpression("^Last synced \\d+ seconds? ago$").match(textItem(main, "Last synced ")->property("text").toString()).hasMatch());
        QVERIFY(QRegularExpression("^1 remote · \\d+ seconds?$").match(textItem(main, "1 remote")->property("text").toString()).hasMatch());

        // Paused from its pane: said so there, in the sidebar and on the dashboard's count.
        click(main, item(main, "pauseFolder"));
        QTRY_COMPARE(missing(main, {"Paused", "1 remote · Paused", "Resume"}), QStringList());
        QVERIFY(m_app->syncManager()->automatic().isPaused(created.id));
        QCOMPARE(m_app->folders()->pausedCount(), 1);
        QTest::qWait(450); // not the second click of a double-click, which would undo the first
        click(main, item(main, "pauseFolder"));
        QTRY_VERIFY(!m_app->syncManager()->automatic().isPaused(created.id));
        QTRY_VERIFY(visibleTexts(main).contains("Pause"));

        // Edit the name.
        click(main, item(main, "editFolder"));
        QTRY_VERIFY(item(main, "editName"));
        QTest::qWait(50);
        type(main, item(main, "editName"), QString()); // focus
        QTest::keyClick(main, Qt::Key_End);
        for (const char c : QByteArray(" 2026"))
            QTest::keyClick(main, c);
        click(main, item(main, "editPaused")); // Safety & Control, saved with the rest
        QVERIFY(!m_app->syncManager()->automatic().isPaused(created.id));
        click(main, item(main, "confirmEdit"));
        QTRY_COMPARE(m_app->syncManager()->folders().first().name, "Documents 2026");
        QVERIFY(m_app->syncManager()->automatic().isPaused(created.id));
        QTRY_VERIFY(visibleTexts(main).contains("Documents 2026"));

        // Abort a sync that runs long enough to be aborted.
        for (int i = 0; i < 300; ++i)
            writeFile(local + QStringLiteral("/many/f%1.txt").arg(i), QByteArray::number(i));
        m_sandbox->addWebDav("slow", m_sandbox->makeDirectory("served"), true);
        SyncFolder slow = m_app->syncManager()->folders().first();
        slow.remoteTargets.append(RemoteTarget{QUuid::createUuid(), "slow", "docs", false});
        m_app->syncManager()->updateFolder(slow);
        // A double-click on Sync Now starts the run; its second click does
        // not land on Abort Sync, which took the button's place.
        QQuickItem *syncNow = item(main, "syncNow");
        QTest::mouseDClick(main, Qt::LeftButton, {}, syncNow->mapToScene(QPointF(syncNow->width() / 2, syncNow->height() / 2)).toPoint());
        QTRY_VERIFY_WITH_TIMEOUT(item(main, "abortSync"), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("2 of 2"), 30000);
        // Abort Sync sits where Sync Now was: a click there within the
        // double-click interval would be the third click of that double-click.
        QTest::qWait(qGuiApp->styleHints()->mouseDoubleClickInterval() + 50);
        click(main, item(main, "abortSync"));
        // Idle at once, whatever rclone still has to do to stop.
        QCOMPARE(m_app->syncManager()->folders().first().status, SyncStatus::idle);
        // rclone stops gracefully, which under a full machine took 14 s.
        QTRY_VERIFY_WITH_TIMEOUT(visibleTexts(main).contains("Paused"), 60000); // (it is: Sync Now ran it all the same)
        QCOMPARE(m_app->syncManager()->folders().first().status, SyncStatus::idle);

        // Delete, after the confirmation.
        click(main, item(main, "deleteSync"));
        QTRY_VERIFY(visibleTexts(main).contains("This sync folder and its configuration will be permanently removed."));
        click(main, findItem(main, [](QQuickItem *candidate) {
                  return candidate->inherits("QQuickAbstractButton") && candidate->property("text").toString() == "Delete";
              }));
        QTRY_VERIFY(m_app->syncManager()->folders().isEmpty());
        QCOMPARE(m_app->navigation()->selection(), std::nullopt);
        QTRY_VERIFY(visibleTexts(main).contains("No sync folders"));
    }
};

QTEST_MAIN(TestFolderScreens)
#include "tst_folderscreens.moc"
