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
#include "sync/BandwidthLimit.h"

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

    QQuickWindow *startApp(const QList<SyncFolder> &folders)
    {
        const QString store = m_home.filePath(".config/rclone/rclone_sync_folders.json");
        QFile::remove(store);
        if (!folders.isEmpty())
            writeFile(store, FolderStore::encode(folders).value());
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
        m_fake = std::make_unique<FakeRclone>();
    }
    void cleanup()
    {
        m_app.reset();
        m_engine.reset();
        m_fake.reset();
    }

    // A first start, with no folders and no remotes: the main window on the
    // dashboard, Settings, then About.
    void firstStart()
    {
        m_fake->script("version", "sleep 0.3; echo 'rclone v1.75.2'; echo '- os/version: debian'\n");
        QQuickWindow *main = startApp({});
        QVERIFY(main);
        QCOMPARE(main->title(), "Nimbrell");
        QTRY_VERIFY(!m_app->remotes()->isLoading());
        // (The dashboard is loaded in the background, after the window shows.)
        QTRY_COMPARE(missing(main, {"Dashboard", "Sync Folders", "No sync folders", "Remotes", "No remotes",
                                "Welcome to Nimbrell", "Manage and monitor all your cloud synchronizations in one place.",
                                "Global Sync", "Paused", "Configured Remotes", "Active Syncs", "No Sync Folders Configured",
                                "Get started by adding a cloud remote and creating your first sync folder.",
                                "Create Sync Folder", "Sync All Now", "System Status", "All systems go. Your files are up to date."}),
                 QStringList());
        QCOMPARE(visibleTexts(main).count("0"), 6); // the three cards and the three pills
        QVERIFY(main->findChild<QQuickItem *>("dashboardRow")->property("highlighted").toBool());
        click(main, main->findChild<QQuickItem *>("syncAllNow")); // reaches the manager: no warning

        QQuickWindow *settings = m_app->openWindow("settings");
        QVERIFY(QTest::qWaitForWindowExposed(settings));
        QCOMPARE(missing(settings, {"General", "Launch Nimbrell at Login", "Automatically start Nimbrell when you log in.",
                                    "Sync Options", "Enable Global Sync",
                                    "When disabled, all sync operations are paused and file watching is stopped.",
                                    "Sync Interval", "How often to periodically sync with the cloud when Global Sync is enabled.",
                                    "Engine Information", "Rclone Version:", "Loading..."}),
                 QStringList());
        QTRY_VERIFY(visibleTexts(settings).contains("rclone v1.75.2"));
        QCOMPARE(settings->findChild<QQuickItem *>("syncInterval")->property("displayText").toString(), "60 Minutes");
        // The switch drives the manager, and follows it.
        QQuickItem *globalSync = settings->findChild<QQuickItem *>("globalSync");
        QVERIFY(globalSync);
        QMetaObject::invokeMethod(globalSync, "toggle");
        QMetaObject::invokeMethod(globalSync, "toggled");
        QVERIFY(m_app->syncManager()->automatic().isGlobalSyncEnabled());
        QVERIFY(m_settings.values.value(AutomaticSync::kGlobalSyncEnabledKey).toBool());
        m_app->syncManager()->automatic().setGlobalSyncEnabled(false);
        QTRY_VERIFY(!globalSync->property("checked").toBool());
        // Limit Bandwidth: the rates as typed, in KiB/s or MiB/s; a timetable
        // rclone would refuse is said so and not saved.
        QVERIFY(!settings->findChild<QQuickItem *>("uploadRate")->isVisible());
        click(settings, settings->findChild<QQuickItem *>("limitBandwidth"));
        QTRY_VERIFY(settings->findChild<QQuickItem *>("uploadRate")->isVisible());
        SettingsController *controller = m_app->settings();
        controller->setUploadKiB(2048);
        QTRY_VERIFY(visibleTexts(settings).contains("MiB/s"));
        QVERIFY(!controller->setBandwidthSchedule("8:00,512k"));
        QTRY_VERIFY(textItem(settings, "“8:00,512k” is not a time and a rate"));
        QVERIFY(controller->setBandwidthSchedule(" 08:00,512k   19:00,off "));
        QCOMPARE(m_settings.values.value("bandwidthSchedule").toString(), "08:00,512k 19:00,off");
        QCOMPARE(BandwidthLimit::read(m_settings).argument(), "08:00,512k 19:00,off");
        QVERIFY(controller->setBandwidthSchedule(""));
        QCOMPARE(BandwidthLimit::read(m_settings).argument(), "2048k:off");

        QQuickWindow *about = m_app->openWindow("about");
        QVERIFY(about);
        QCOMPARE(m_app->openWindow("about"), about); // once
        int aboutWindows = 0;
        for (QWindow *window : QGuiApplication::topLevelWindows())
            aboutWindows += window->title() == "About Nimbrell" && window->isVisible();
        QCOMPARE(aboutWindows, 1);
        QVERIFY(QTest::qWaitForWindowExposed(about));
        QCOMPARE(missing(about, {"Nimbrell", "Version 1.0", "Acknowledgments",
                                 "A beautiful and modern native client for multi-cloud synchronization on Linux."}),
                 QStringList());
        QVERIFY(textItem(about, "This app utilizes [rclone](https://rclone.org) under the hood"));

        // Brought back as it was left: a maximised window stays maximised.
        main->setWindowStates(Qt::WindowMaximized);
        m_app->openDashboard();
        QCOMPARE(main->windowStates(), Qt::WindowMaximized);
    }

    // The sidebar lists the folders and the remotes, and works from the
    // keyboard: one Tab stop; Up and Down move the selection through the
    // dashboard, the folders and the remotes, and stop at the ends; Delete and
    // the menu key act on the selected folder; Return goes on into the detail.
    // A palette change recolours its status colours.
    void sidebar()
    {
        SyncFolder docs, none;
        docs.name = "Docs";
        docs.remoteTargets = {RemoteTarget{QUuid::createUuid(), "gdrive", "", true}};
        docs.status = SyncStatus::success;
        docs.lastSync = QDateTime::currentDateTimeUtc().addSecs(-5 * 60 - 10);
        none.name = "Nothing yet";
        none.status = SyncStatus::error;
        m_fake->script("listremotes", "printf 'gdrive:   drive\\nwork docs:   alias  Team docs\\n'\n");
        QQuickWindow *main = startApp({docs, none});
        QTRY_COMPARE(m_app->remotes()->count(), 2);
        // Everything but the two placeholders.
        QTRY_COMPARE(missing(main, {"Sync Folders", "Docs", "1 remote · 5 minutes", "Nothing yet", "0 remotes", "Remotes",
                                "gdrive", "Google Drive", "work docs", "Alias", "No sync folders", "No remotes"}),
                 (QStringList{"No sync folders", "No remotes"}));

        QQuickItem *sidebar = item(main, "sidebar");
        for (int i = 0; i < 6 && !sidebar->hasActiveFocus(); ++i)
            QTest::keyClick(main, Qt::Key_Tab);
        QVERIFY(sidebar->hasActiveFocus());
        QTRY_VERIFY(main->findChild<QQuickItem *>("dashboardRow")->property("showsFocus").toBool());
        using S = SidebarSelection;
        const QList<std::pair<Qt::Key, SidebarSelection>> steps{
            {Qt::Key_Up, S::dashboard()},          {Qt::Key_Down, S::syncFolder(docs.id)},
            {Qt::Key_Down, S::syncFolder(none.id)}, {Qt::Key_Down, S::remote("gdrive")},
            {Qt::Key_Down, S::remote("work docs")}, {Qt::Key_Down, S::remote("work docs")},
            {Qt::Key_Up, S::remote("gdrive")},      {Qt::Key_Up, S::syncFolder(none.id)}};
        for (const auto &[key, expected] : steps) {
            QTest::keyClick(main, key);
            QCOMPARE(m_app->navigation()->selection(), expected);
        }

        QTest::keyClick(main, Qt::Key_Delete);
        QTRY_COMPARE(missing(main, {"Delete Sync Folder", "Delete", "Cancel",
                                    "This sync folder and its configuration will be permanently removed."}),
                     QStringList());
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
            return candidate->inherits("QQuickItemDelegate") && candidate->property("name").toString() == "Nothing yet";
        });
        QVERIFY(row);
        const QColor red = row->property("statusColor").value<QColor>();
        applyAppearance(red.lightness() < 140);
        QTRY_VERIFY(row->property("statusColor").value<QColor>() != red);
        QGuiApplication::setPalette(QPalette());
    }

    // A name shows as typed, never as markup, and elided; a remote listing
    // that fails shows no remotes. Deleting a folder empties the detail only
    // when it is the open one.
    void oddNamesAndDeletingTheOpenFolder()
    {
        SyncFolder odd, other;
        odd.name = "<b>bold?</b> &amp; \u05E9\u05DC\u05D5\u05DD \U0001F600 " + QString(500, u'x');
        other.name = "B";
        m_fake->script("listremotes", "exit 1\n");
        QQuickWindow *main = startApp({odd, other});
        QQuickItem *name = textItem(main, "<b>bold?</b>");
        QVERIFY(name);
        QCOMPARE(name->property("text").toString(), odd.name);
        QCOMPARE(name->property("textFormat").toInt(), int(Qt::PlainText));
        QTRY_VERIFY(name->property("truncated").toBool());
        QTRY_VERIFY(!m_app->remotes()->isLoading());
        QVERIFY(visibleTexts(main).contains("No remotes"));

        const QString placeholder = "Select a sync folder or remote from the sidebar,\nor create a new one to get started.";
        m_app->navigation()->showFolder(uuidString(other.id));
        m_app->deleteFolder(uuidString(odd.id));
        QTest::qWait(20);
        QVERIFY(!visibleTexts(main).contains(placeholder));
        m_app->deleteFolder(uuidString(other.id));
        QTRY_COMPARE(missing(main, {placeholder, "Nimbrell", "No sync folders"}), QStringList());
    }
};

QTEST_MAIN(TestScreens)
#include "tst_screens.moc"