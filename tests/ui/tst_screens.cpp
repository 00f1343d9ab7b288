// The windows as a user sees them: which texts they show in which state.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "fakes/FakeRclone.h"
#include "model/FolderStore.h"
#include "model/UuidString.h"
#include "platform/MemorySettingsStore.h"
#include "support/QuickInspection.h"
#include "support/TestFiles.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"
#include "ui/RemoteListModel.h"
#include "ui/SettingsController.h"

#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>


class TestScreens : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    std::unique_ptr<FakeRclone> m_fake;
    std::unique_ptr<RcloneEngine> m_engine;
    std::unique_ptr<NimbrellApp> m_app;

    void writeStore(const QList<SyncFolder> &folders)
    {
        writeFile(m_home.filePath(".config/rclone/rclone_sync_folders.json"), FolderStore::encode(folders).value());
    }

    QQuickWindow *startApp()
    {
        m_engine = std::make_unique<RcloneEngine>(FakeRclone::path());
        m_app = std::make_unique<NimbrellApp>(AppServices{m_settings, *m_engine, m_fileEvents, m_loginItem});
        m_app->start();
        QQuickWindow *main = m_app->window("main");
        if (main && QTest::qWaitForWindowExposed(main))
            QTest::qWait(50);
        return main;
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(".config")));
        setUpApplication();
    }

    void init()
    {
        // Any QML warning is a failure.
        QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support).*"));
        QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json"));
        m_fake = std::make_unique<FakeRclone>();
        m_fake->script("version", "echo 'rclone v1.75.2'; echo '- os/version: debian'\n");
    }
    void cleanup()
    {
        m_app.reset();
        m_engine.reset();
        m_fake.reset();
    }

    void emptyMainWindow()
    {
        m_fake->script("listremotes", "exit 0\n");
        QQuickWindow *main = startApp();
        QVERIFY(main);
        QCOMPARE(main->title(), "Nimbrell");
        QTRY_VERIFY(!m_app->remotes()->isLoading());
        const QStringList texts = visibleTexts(main);
        for (const char *expected : {"Dashboard", "Sync Folders", "No sync folders", "Remotes", "No remotes"})
            QVERIFY2(texts.contains(expected), expected);
        // At start the dashboard row is the highlighted one.
        QVERIFY(main->findChild<QQuickItem *>("dashboardRow")->property("highlighted").toBool());
    }

    void foldersAndRemotesInTheSidebar()
    {
        SyncFolder docs;
        docs.name = "Docs";
        docs.remoteTargets = {RemoteTarget{QUuid::createUuid(), "gdrive", "", true}};
        docs.status = SyncStatus::success;
        docs.lastSync = QDateTime::currentDateTimeUtc().addSecs(-5 * 60 - 10);
        SyncFolder none;
        none.name = "Nothing yet";
        writeStore({docs, none});
        m_fake->script("listremotes", "printf 'gdrive:   drive\\nwork docs:   alias  Team docs\\n'\n");

        QQuickWindow *main = startApp();
        QTRY_COMPARE(m_app->remotes()->count(), 2);
        QTest::qWait(50);
        const QStringList texts = visibleTexts(main);
        for (const char *expected : {"Sync Folders", "Docs", "1 remote · 5 minutes", "Nothing yet", "0 remotes", "Remotes",
                                     "gdrive", "Google Drive", "work docs", "Alias"})
            QVERIFY2(texts.contains(expected), expected);
        QVERIFY(!texts.contains("No sync folders"));
        QVERIFY(!texts.contains("No remotes"));
    }

    void deletingTheOpenFolderEmptiesTheDetail()
    {
        SyncFolder a, b;
        a.name = "A";
        b.name = "B";
        writeStore({a, b});
        QQuickWindow *main = startApp();
        m_app->navigation()->showFolder(uuidString(b.id));
        m_app->deleteFolder(uuidString(a.id));
        QTest::qWait(20);
        QVERIFY(!visibleTexts(main).contains("Select a sync folder or remote from the sidebar,\nor create a new one to get started."));

        m_app->deleteFolder(uuidString(b.id));
        QTRY_VERIFY(visibleTexts(main).contains("Select a sync folder or remote from the sidebar,\nor create a new one to get started."));
        QVERIFY(visibleTexts(main).contains("Nimbrell"));
        QTRY_VERIFY(visibleTexts(main).contains("No sync folders"));
    }

    // The sidebar from the keyboard: one Tab stop; Up and Down move the
    // selection through the dashboard, the folders and the remotes, and stop
    // at the ends; Delete and the menu key act on the selected folder; Return
    // goes on into the detail. A palette change recolours its status colours.
    void sidebarFromTheKeyboard()
    {
        SyncFolder a, b;
        a.name = "A";
        b.name = "B";
        b.status = SyncStatus::error;
        writeStore({a, b});
        m_fake->script("listremotes", "printf 'gdrive:   drive\\n'\n");
        QQuickWindow *main = startApp();
        QTRY_COMPARE(m_app->remotes()->count(), 1);
        QQuickItem *sidebar = item(main, "sidebar");
        for (int i = 0; i < 6 && !sidebar->hasActiveFocus(); ++i)
            QTest::keyClick(main, Qt::Key_Tab);
        QVERIFY(sidebar->hasActiveFocus());
        QTRY_VERIFY(main->findChild<QQuickItem *>("dashboardRow")->property("showsFocus").toBool());

        const auto press = [&](Qt::Key key, const SidebarSelection &expected) {
            QTest::keyClick(main, key);
            QCOMPARE(m_app->navigation()->selection(), expected);
        };
        press(Qt::Key_Up, SidebarSelection::dashboard());
        press(Qt::Key_Down, SidebarSelection::syncFolder(a.id));
        press(Qt::Key_Down, SidebarSelection::syncFolder(b.id));
        press(Qt::Key_Down, SidebarSelection::remote("gdrive"));
        press(Qt::Key_Down, SidebarSelection::remote("gdrive"));
        press(Qt::Key_Up, SidebarSelection::syncFolder(b.id));

        QTest::keyClick(main, Qt::Key_Delete);
        QTRY_VERIFY(visibleTexts(main).contains("Delete Sync Folder"));
        for (const char *expected : {"This sync folder and its configuration will be permanently removed.", "Delete", "Cancel"})
            QVERIFY2(visibleTexts(main).contains(expected), expected);
        QTest::keyClick(main, Qt::Key_Escape);
        QTRY_VERIFY(!visibleTexts(main).contains("Delete Sync Folder"));
        QCOMPARE(m_app->syncManager()->folders().size(), 2);
        QTRY_VERIFY(sidebar->hasActiveFocus());

        QTest::keyClick(main, Qt::Key_F10, Qt::ShiftModifier);
        QTRY_VERIFY(visibleTexts(main).contains("Delete"));
        QTest::keyClick(main, Qt::Key_Escape);
        QTRY_VERIFY(!visibleTexts(main).contains("Delete"));

        QQuickItem *detail = item(main, "detail");
        QTest::keyClick(main, Qt::Key_Return); // the pane may still be loading
        QTRY_COMPARE(detail->property("status").toInt(), 1); // Loader.Ready
        QTRY_VERIFY(!sidebar->hasActiveFocus());
        QQuickItem *focused = main->activeFocusItem();
        while (focused && focused != detail)
            focused = focused->parentItem();
        QVERIFY(focused);

        QQuickItem *row = findItem(main, [](QQuickItem *candidate) {
            return candidate->inherits("QQuickItemDelegate") && candidate->property("name").toString() == "B";
        });
        QVERIFY(row);
        const QColor red = row->property("statusColor").value<QColor>();
        applyAppearance(red.lightness() < 140);
        QTRY_VERIFY(row->property("statusColor").value<QColor>() != red);
        QGuiApplication::setPalette(QPalette());
    }

    void oddNamesShowLiterallyAndElided()
    {
        SyncFolder odd;
        odd.name = "<b>bold?</b> &amp; \u05E9\u05DC\u05D5\u05DD \U0001F600 " + QString(500, u'x');
        writeStore({odd});
        m_fake->script("listremotes", "exit 1\n"); // a listing that fails
        QQuickWindow *main = startApp();
        QQuickItem *name = textItem(main, "<b>bold?</b>");
        QVERIFY(name);
        QCOMPARE(name->property("text").toString(), odd.name);
        QCOMPARE(name->property("textFormat").toInt(), int(Qt::PlainText));
        QTRY_VERIFY(name->property("truncated").toBool());
        QTRY_VERIFY(!m_app->remotes()->isLoading());
        QVERIFY(visibleTexts(main).contains("No remotes"));
    }

    void aboutOpensOnce()
    {
        startApp();
        QQuickWindow *about = m_app->openWindow("about");
        QVERIFY(about);
        QCOMPARE(m_app->openWindow("about"), about);
        int aboutWindows = 0;
        for (QWindow *window : QGuiApplication::topLevelWindows())
            aboutWindows += window->title() == "About Nimbrell" && window->isVisible();
        QCOMPARE(aboutWindows, 1);
        QVERIFY(QTest::qWaitForWindowExposed(about));
        const QStringList texts = visibleTexts(about);
        for (const char *expected :
             {"Nimbrell", "Version 1.0", "A beautiful and modern native client for multi-cloud synchronization on Linux.",
              "Acknowledgments"})
            QVERIFY2(texts.contains(expected), expected);
        QVERIFY(textItem(about, "This app utilizes [rclone](https://rclone.org) under the hood"));

        // Brought back as it was left: a maximised window stays maximised.
        QQuickWindow *main = m_app->window("main");
        main->setWindowStates(Qt::WindowMaximized);
        m_app->openDashboard();
        QCOMPARE(main->windowStates(), Qt::WindowMaximized);
    }

    void settingsWindow()
    {
        m_fake->script("version", "sleep 0.3; echo 'rclone v1.75.2'\n");
        startApp();
        QQuickWindow *settings = m_app->openWindow("settings");
        QVERIFY(QTest::qWaitForWindowExposed(settings));
        QStringList texts = visibleTexts(settings);
        for (const char *expected :
             {"General", "Launch Nimbrell at Login", "Automatically start Nimbrell when you log in.", "Sync Options",
              "Enable Global Sync", "When disabled, all sync operations are paused and file watching is stopped.",
              "Sync Interval", "How often to periodically sync with the cloud when Global Sync is enabled.",
              "Engine Information", "Rclone Version:", "Loading..."})
            QVERIFY2(texts.contains(expected), expected);
        QTRY_VERIFY(visibleTexts(settings).contains("rclone v1.75.2"));
        QCOMPARE(settings->findChild<QQuickItem *>("syncInterval")->property("displayText").toString(), "60 Minutes");

        // The switch drives the manager.
        QQuickItem *globalSync = settings->findChild<QQuickItem *>("globalSync");
        QVERIFY(globalSync);
        QMetaObject::invokeMethod(globalSync, "toggle");
        QMetaObject::invokeMethod(globalSync, "toggled");
        QVERIFY(m_app->syncManager()->isGlobalSyncEnabled());
        QVERIFY(m_settings.values.value(SyncManager::kGlobalSyncEnabledKey).toBool());
        m_app->syncManager()->setGlobalSyncEnabled(false);
        QTRY_VERIFY(!globalSync->property("checked").toBool());
    }
};

QTEST_MAIN(TestScreens)
#include "tst_screens.moc"
