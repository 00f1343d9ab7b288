// Screen logic that is not layout: formatting, the tray's lines, the settings
// state, the login item, and the folder list model with the dashboard's figures.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "platform/MemorySettingsStore.h"
#include "platform/XdgAutostartLoginItem.h"
#include "support/TestFiles.h"
#include "sync/SyncManager.h"
#include "ui/FolderListModel.h"
#include "ui/Format.h"
#include "ui/IconTable.h"
#include "ui/SettingsController.h"
#include "ui/TrayMenu.h"

#include <QAbstractItemModelTester>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
SyncFolder folderWithTargets(const QString &name, int targets)
{
    SyncFolder folder;
    folder.name = name;
    folder.localPath = "/home/ann/" + name;
    for (int i = 0; i < targets; ++i)
        folder.remoteTargets.append(RemoteTarget{QUuid::createUuid(), "remote" + QString::number(i), "", false});
    return folder;
}
} // namespace

class TestUiLogic : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QByteArray m_realHome;

private Q_SLOTS:
    void initTestCase()
    {
        m_realHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(".config")));
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }
    void init() { QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json")); }

    void remoteCount()
    {
        QCOMPARE(Formatting::remoteCount(0), "0 remotes");
        QCOMPARE(Formatting::remoteCount(1), "1 remote");
        QCOMPARE(Formatting::remoteCount(2), "2 remotes");
    }

    void relativeTime_data()
    {
        QTest::addColumn<qint64>("secondsAgo");
        QTest::addColumn<QString>("text");
        QTest::newRow("in the future") << qint64(-300) << "0 seconds";
        QTest::newRow("a second") << qint64(1) << "1 second";
        QTest::newRow("seconds") << qint64(59) << "59 seconds";
        QTest::newRow("a minute") << qint64(60) << "1 minute";
        QTest::newRow("minutes") << qint64(5 * 60 + 59) << "5 minutes";
        QTest::newRow("an hour") << qint64(3600) << "1 hour";
        QTest::newRow("hours") << qint64(2 * 3600 + 1800) << "2 hours";
        QTest::newRow("days") << qint64(3 * 86400) << "3 days";
        QTest::newRow("weeks") << qint64(15 * 86400) << "2 weeks";
        QTest::newRow("months") << qint64(70 * 86400) << "2 months";
        QTest::newRow("a year") << qint64(400 * 86400) << "1 year";
    }
    void relativeTime()
    {
        QFETCH(qint64, secondsAgo);
        QFETCH(QString, text);
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QCOMPARE(Formatting::relativeTime(now.addSecs(-secondsAgo), now), text);
    }

    // The tray names each syncing folder, with its target when it has a valid
    // one, and its progress; the menu has a section of them while any syncs.
    void trayMenu()
    {
        SyncFolder idle = folderWithTargets("Idle", 1);
        SyncFolder plain = folderWithTargets("Docs", 2);
        plain.status = SyncStatus::syncing;
        plain.progress = 0.4299;
        SyncFolder onTarget = folderWithTargets("Photos", 2);
        onTarget.status = SyncStatus::syncing;
        onTarget.currentTargetIndex = 1;
        onTarget.progress = 0.999;
        SyncFolder badIndex = folderWithTargets("Music", 1);
        badIndex.status = SyncStatus::syncing;
        badIndex.currentTargetIndex = 3;
        badIndex.progress = 1.0;
        QCOMPARE(TrayMenu::syncingLines({idle, plain, onTarget, badIndex}),
                 (QStringList{"Docs — 42%", "Photos → remote1 — 99%", "Music — 100%"}));
        const auto waitsForASlot = [&](const QUuid &id) { return id == plain.id; };
        QCOMPARE(TrayMenu::syncingLines({plain}, waitsForASlot), QStringList{"Docs — Waiting for another sync to finish…"});
        QVERIFY(TrayMenu::syncingLines({idle}).isEmpty());

        FakeFileEventService fileEvents;
        MemorySettingsStore settings;
        RcloneEngine engine(QStringLiteral("/nonexistent"));
        SyncManager manager({settings, engine, fileEvents});
        TrayMenu tray(manager);
        const auto texts = [&tray] {
            QStringList all;
            for (QAction *action : tray.menu()->actions())
                all.append(action->isSeparator() && action->text().isEmpty() ? QStringLiteral("-") : action->text());
            return all;
        };
        QCOMPARE(texts(), (QStringList{"Open Dashboard", "-", "Settings...", "About Nimbrell", "-", "Quit Nimbrell"}));

        SyncFolder folder = folderWithTargets("Docs & Notes", 1);
        folder.status = SyncStatus::syncing;
        folder.currentTargetIndex = 0;
        folder.progress = 0.5;
        manager.addFolder(folder);
        // The heading is a disabled item (a section's text is lost on the
        // tray's D-Bus menu); a name's "&" is not a shortcut mark.
        QCOMPARE(texts(), (QStringList{"Open Dashboard", "-", "Syncing", "Docs && Notes → remote0 — 50%", "-",
                                       "Settings...", "About Nimbrell", "-", "Quit Nimbrell"}));
        QVERIFY(!tray.menu()->actions().at(2)->isSeparator());
        QVERIFY(!tray.menu()->actions().at(2)->isEnabled());
        tray.setFinishing(true);
        QCOMPARE(texts().mid(0, 3), (QStringList{"Finishing syncs…", "-", "Open Dashboard"}));
    }

    void settingsShowTheRealState()
    {
        FakeLoginItem loginItem;
        RcloneEngine engine(QStringLiteral("/nonexistent"));
        MemorySettingsStore store;
        SettingsController settings(loginItem, engine, store);
        QVERIFY(!settings.launchAtLogin());

        settings.setLaunchAtLogin(true);
        QVERIFY(settings.launchAtLogin());
        QVERIFY(loginItem.enabled);

        loginItem.refuse = true;
        QSignalSpy changed(&settings, &SettingsController::launchAtLoginChanged);
        QTest::ignoreMessage(QtCriticalMsg, "Failed to toggle launch at login: Operation not permitted");
        settings.setLaunchAtLogin(false);
        QVERIFY(settings.launchAtLogin()); // snapped back: still registered
        QCOMPARE(changed.count(), 1);      // and the switch is told so

        FakeLoginItem refusing;
        refusing.refuse = true;
        SettingsController fresh(refusing, engine, store);
        QTest::ignoreMessage(QtCriticalMsg, "Failed to toggle launch at login: Operation not permitted");
        fresh.setLaunchAtLogin(true);
        QVERIFY(!fresh.launchAtLogin());

        // The version reads "Loading..." until rclone answers, "Unknown" when it cannot.
        QCOMPARE(fresh.rcloneVersion(), "Loading...");
        fresh.loadVersion();
        QTRY_COMPARE(fresh.rcloneVersion(), "Unknown");
    }

    void xdgAutostartEntry()
    {
        const QString executable = m_home.filePath("bin dir/nimbrell \"$x\"");
        XdgAutostartLoginItem item(executable);
        QCOMPARE(item.entryPath(), m_home.filePath(".config/autostart/org.nimbrell.Nimbrell.desktop"));
        QVERIFY(!item.isEnabled());

        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.isEnabled());
        const QByteArray entry = readFile(item.entryPath());
        QVERIFY(entry.startsWith("[Desktop Entry]\n"));
        QVERIFY2(entry.contains("Exec=\"" + m_home.filePath("bin dir/nimbrell \\\\\"\\\\$x\\\\\"").toUtf8() + "\"\n"), entry);

        // Turned off by the desktop's own settings.
        writeFile(item.entryPath(), entry + "Hidden=true\n");
        QVERIFY(!item.isEnabled());

        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!QFileInfo::exists(item.entryPath()));
        QCOMPARE(item.unregisterItem(), std::nullopt); // nothing to remove is fine

        // A file where the autostart folder should be: registering fails and says why.
        QDir(m_home.filePath(".config/autostart")).removeRecursively();
        writeFile(m_home.filePath(".config/autostart"), "not a folder");
        QVERIFY(item.registerItem().has_value());
        QVERIFY(!item.isEnabled());
        QFile::remove(m_home.filePath(".config/autostart"));
    }

    // The list model and the dashboard's figures follow the manager a row at a
    // time; the summary puts errors before syncing.
    void folderModelFollowsTheManager()
    {
        using S = FolderListModel::Summary;
        QCOMPARE(FolderListModel::summaryFor(1, 1), S::NeedsAttention);
        QCOMPARE(FolderListModel::summaryFor(0, 2), S::Syncing);
        QCOMPARE(FolderListModel::summaryFor(0, 0), S::AllGood);

        FakeFileEventService fileEvents;
        MemorySettingsStore settings;
        RcloneEngine engine(QStringLiteral("/nonexistent"));
        SyncManager manager({settings, engine, fileEvents});
        FolderListModel model(manager);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

        SyncFolder a = folderWithTargets("A", 1), b = folderWithTargets("B", 2), c = folderWithTargets("C", 0);
        a.status = SyncStatus::syncing;
        b.status = SyncStatus::error;
        manager.addFolder(a);
        manager.addFolder(b);
        manager.addFolder(c);
        QCOMPARE(model.rowCount(), 3);
        QCOMPARE(model.data(model.index(1), FolderListModel::NameRole), "B");
        QCOMPARE(model.data(model.index(1), FolderListModel::RemoteCountRole), 2);
        QCOMPARE(model.activeCount(), 1);
        QCOMPARE(model.errorCount(), 1);
        QCOMPARE(model.idleCount(), 1);
        QCOMPARE(model.healthyCount(), 0);
        QCOMPARE(model.summary(), S::NeedsAttention);
        QCOMPARE(model.errorFolders().value(0).toMap().value("name"), "B");

        // A change of one folder is one row; only what the dashboard shows disturbs it.
        QSignalSpy told(&model, &FolderListModel::statusCountsChanged);
        manager.updateFolder(a);
        QCOMPARE(told.count(), 0);
        b.name = "B renamed";
        manager.updateFolder(b);
        QCOMPARE(told.count(), 1);
        QCOMPARE(model.errorFolders().value(0).toMap().value("name"), "B renamed");
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(1).at(0).value<QModelIndex>().row(), 1); // one row, not the list
        QCOMPARE(model.data(model.index(1), FolderListModel::NameRole), "B renamed");

        manager.deleteFolder(a.id);
        QCOMPARE(model.rowCount(), 2);
        QCOMPARE(model.data(model.index(0), FolderListModel::NameRole), "B renamed");
    }

    void everySymbolHasAnIcon()
    {
        for (const QString &symbol : iconSymbols()) {
            QFile file(iconResource(symbol));
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(symbol));
            QVERIFY2(file.readAll().contains("<svg"), qPrintable(symbol));
        }
        QVERIFY(iconResource(u"no.such.symbol").isEmpty());
    }
};

QTEST_MAIN(TestUiLogic)
#include "tst_uilogic.moc"
