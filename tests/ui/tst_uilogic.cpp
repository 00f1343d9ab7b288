// Screen logic that is not layout: the shared formatter, the tray's lines, the
// settings state, the login item, the folder list model with the dashboard's
// figures, and the icons.
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

SyncFolder syncing(const QString &name, int targets, double progress, std::optional<qint64> target = {})
{
    SyncFolder folder = folderWithTargets(name, targets);
    folder.status = SyncStatus::syncing;
    folder.progress = progress;
    folder.currentTargetIndex = target;
    return folder;
}
} // namespace

class TestUiLogic : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QByteArray m_realHome;
    FakeFileEventService m_fileEvents;
    MemorySettingsStore m_settings;
    RcloneEngine m_engine{QStringLiteral("/nonexistent")};

private Q_SLOTS:
    void initTestCase()
    {
        m_realHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(".config")));
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }
    void init() { QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json")); }

    // The texts of the formatter that the screens and the command line share.
    void formatting_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &text, const char *expected) {
            QTest::newRow(name) << text << QString::fromUtf8(expected);
        };
        row("2 remotes", Formatting::remoteCount(2), "2 remotes"); // 0 and 1: in the sidebar's test

        const QDateTime now = QDateTime::currentDateTimeUtc();
        const auto ago = [now](qint64 seconds) { return Formatting::relativeTime(now.addSecs(-seconds), now); };
        row("in the future", ago(-300), "0 seconds");
        row("a second", ago(1), "1 second");
        row("seconds", ago(59), "59 seconds");
        row("a minute", ago(60), "1 minute");
        row("minutes", ago(5 * 60 + 59), "5 minutes");
        row("an hour", ago(3600), "1 hour");
        row("hours", ago(2 * 3600 + 1800), "2 hours");
        row("days", ago(3 * 86400), "3 days");
        row("weeks", ago(15 * 86400), "2 weeks");
        row("months", ago(70 * 86400), "2 months");
        row("a year", ago(400 * 86400), "1 year");
        // When the text changes next, in ms: every second under a minute, then
        // at the next whole unit or where the next larger one begins.
        const auto next = [now](qint64 ms) { return QString::number(Formatting::msecsUntilRelativeTimeChanges(now.addMSecs(-ms), now)); };
        row("next: 0.4 s", next(400), "600");
        row("next: 59.5 s", next(59500), "500");
        row("next: 5 minutes 20 s", next(320000), "40000");
        row("next: 3 hours", next(3 * 3600000), "3600000");
        row("next: 4 weeks turn into 1 month", next(29 * 86400000LL), "86400000");
        row("next: in the future", next(-2000), "3000");

        using Formatting::formatByteCount;
        row("zero bytes", formatByteCount(0), "0 B");
        row("1023 bytes", formatByteCount(1023), "1023 B");
        row("1 KiB", formatByteCount(1024), "1 KiB");
        row("1.50 KiB", formatByteCount(1536), "1.50 KiB");
        row("just below 1 MiB", formatByteCount(1048575), "1024.00 KiB");
        row("1 MiB", formatByteCount(1048576), "1 MiB");
        row("GiB", formatByteCount(qint64(5) << 30), "5 GiB");
        row("TiB", formatByteCount((qint64(3) << 40) + (qint64(1) << 39)), "3.50 TiB");
        row("PiB", formatByteCount(qint64(2) << 50), "2 PiB");
        row("many PiB", formatByteCount(qint64(4096) << 50), "4096 PiB");

        using Formatting::errorSummary;
        row("first line", errorSummary("r:x — failed\nmore"), "r:x — failed");
        row("leading blank lines, blanks kept", errorSummary("\n  \t\n   first real line  \nsecond"), "   first real line  ");
        row("carriage returns", errorSummary("\r\n\rline\r\n"), "line");
        row("empty log", errorSummary(""), "Unknown error");
        row("only blanks", errorSummary(" \n\t\n  "), "Unknown error");

        using Formatting::percentage;
        row("42%", percentage(0.425), "42%");
        row("0%", percentage(0.0), "0%");
        row("99%, not rounded up", percentage(0.999), "99%");
        row("100%", percentage(1.0), "100%");
        row("not a number", percentage(std::numeric_limits<double>::quiet_NaN()), "0%");
    }
    void formatting()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(text, expected);
    }

    // The screens' clock ticks when a relative time on screen reads
    // differently next, never more often, and not at all while no window shows.
    void clockTicksOnlyForTextsOnScreen()
    {
        Format format;
        QSignalSpy ticks(&format, &Format::nowChanged);
        QCOMPARE(format.msecsToTick(), -1);
        const QDateTime now = format.now();
        QCOMPARE(format.relativeTime(now.addSecs(-320), format.now()), "5 minutes");
        QVERIFY(format.msecsToTick() > 30000 && format.msecsToTick() <= 40005);
        format.relativeTime(now.addMSecs(-10300), format.now());
        QVERIFY(format.msecsToTick() <= 705);

        format.setShown(false);
        QCOMPARE(format.msecsToTick(), -1);
        format.relativeTime(now.addSecs(-5), format.now());
        QCOMPARE(format.msecsToTick(), -1);
        format.setShown(true); // the texts catch up at once; none is on screen now
        QCOMPARE(ticks.size(), 1);
        QCOMPARE(format.msecsToTick(), -1);

        // A text under a minute: a tick a second, each one read again.
        connect(&format, &Format::nowChanged, &format, [&] { format.relativeTime(now, format.now()); });
        Q_EMIT format.nowChanged();
        QTRY_COMPARE_WITH_TIMEOUT(ticks.size(), 4, 2500);
        QVERIFY(format.msecsToTick() >= 0 && format.msecsToTick() <= 1005);
    }

    // The tray names each syncing folder, with its target when it has a valid
    // one, and its progress; the menu has a section of them while any syncs.
    void trayMenu()
    {
        const SyncFolder idle = folderWithTargets("Idle", 1), plain = syncing("Docs", 2, 0.4299),
                         onTarget = syncing("Photos", 2, 0.999, 1), badIndex = syncing("Music", 1, 1.0, 3);
        QCOMPARE(TrayMenu::syncingLines({idle, plain, onTarget, badIndex}),
                 (QStringList{"Docs — 42%", "Photos → remote1 — 99%", "Music — 100%"}));
        const auto waitsForASlot = [&](const QUuid &id) { return id == plain.id; };
        QCOMPARE(TrayMenu::syncingLines({plain}, waitsForASlot), QStringList{"Docs — Waiting for another sync to finish…"});
        QVERIFY(TrayMenu::syncingLines({idle}).isEmpty());

        SyncManager manager({m_settings, m_engine, m_fileEvents});
        TrayMenu tray(manager);
        const auto texts = [&tray] {
            QStringList all;
            for (QAction *action : tray.menu()->actions())
                all.append(action->isSeparator() && action->text().isEmpty() ? QStringLiteral("-") : action->text());
            return all;
        };
        QCOMPARE(texts(), (QStringList{"Open Dashboard", "-", "Settings...", "About Nimbrell", "-", "Quit Nimbrell"}));

        manager.addFolder(syncing("Docs & Notes", 1, 0.5, 0));
        // The heading is a disabled item (a section's text is lost on the
        // tray's D-Bus menu); a name's "&" is not a shortcut mark.
        QCOMPARE(texts(), (QStringList{"Open Dashboard", "-", "Syncing", "Docs && Notes → remote0 — 50%", "-",
                                       "Pause Folders", "-", "Settings...", "About Nimbrell", "-", "Quit Nimbrell"}));
        QVERIFY(!tray.menu()->actions().at(2)->isSeparator());
        QVERIFY(!tray.menu()->actions().at(2)->isEnabled());
        // Each folder's pause is a check mark there, and follows the folder.
        const auto pauseEntry = [&tray] {
            const QList<QAction *> actions = tray.menu()->actions();
            const auto submenu = std::find_if(actions.begin(), actions.end(), [](QAction *action) { return action->menu(); });
            return submenu == actions.end() ? nullptr : (*submenu)->menu()->actions().value(0);
        };
        QCOMPARE(pauseEntry()->text(), "Docs && Notes");
        QVERIFY(pauseEntry()->isCheckable() && !pauseEntry()->isChecked());
        pauseEntry()->trigger();
        QTRY_VERIFY(manager.automatic().isPaused(manager.folders().first().id));
        QVERIFY(pauseEntry()->isChecked());
        tray.setFinishing(true);
        QCOMPARE(texts().mid(0, 3), (QStringList{"Finishing syncs…", "-", "Open Dashboard"}));

        // A rebuild on every change of a line (each percent of a run) leaves
        // one submenu, not one more each time.
        for (int i = 0; i < 200; ++i) {
            SyncFolder renamed = manager.folders().first();
            renamed.name = QString::number(i);
            manager.updateFolder(renamed);
        }
        QCOMPARE(pauseEntry()->text(), "199");
        QCOMPARE(tray.menu()->findChildren<QMenu *>().size(), 1);
    }

    void settingsShowTheRealState()
    {
        FakeLoginItem loginItem;
        SettingsController settings(loginItem, m_engine, m_settings);
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
        SettingsController fresh(refusing, m_engine, m_settings);
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
        // Errors and syncs, and neither: the dashboard's window tests.
        QCOMPARE(FolderListModel::summaryFor(0, 2), FolderListModel::Summary::Syncing);

        SyncManager manager({m_settings, m_engine, m_fileEvents});
        FolderListModel model(manager);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

        SyncFolder a = folderWithTargets("A", 1), b = folderWithTargets("B", 2), c = folderWithTargets("C", 0);
        a.status = SyncStatus::syncing;
        b.status = SyncStatus::error;
        manager.addFolder(a);
        manager.addFolder(b);
        manager.addFolder(c);
        QCOMPARE(model.rowCount(), 3); // its rows' names and remote counts: in the sidebar's test
        QCOMPARE(model.activeCount(), 1);
        QCOMPARE(model.errorCount(), 1);
        QCOMPARE(model.idleCount(), 1);
        QCOMPARE(model.healthyCount(), 0);
        QCOMPARE(model.summary(), FolderListModel::Summary::NeedsAttention);
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
