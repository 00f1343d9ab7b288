// The folder pane's logic: the statistics walk, the editor's target rows and
// save rules, what cancelling and deleting leave, and the pane's long lists
// (a review's files, the conflicts, Recently Removed).
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "model/UuidString.h"
#include "platform/MemorySettingsStore.h"
#include "support/TestFiles.h"
#include "sync/ActivityLog.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "ui/FolderDetailController.h"
#include "ui/FolderStatistics.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"
#include "ui/RemovedFilesModel.h"
#include "ui/ReviewChangesModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

namespace {
QStringList column(const QAbstractItemModel &model, int role)
{
    QStringList values;
    for (int row = 0; row < model.rowCount(); ++row)
        values.append(model.index(row, 0).data(role).toString());
    return values;
}

// Every worker's result handed over: none can still come.
void settleWorkers()
{
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::sendPostedEvents();
}
} // namespace

class TestFolderDetail : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    RcloneEngine m_engine{QStringLiteral("/nonexistent/rclone")};

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(".local/share")));
    }
    void init() { QFile::remove(m_home.filePath(".config/rclone/rclone_sync_folders.json")); }

    // Every entry that is not a directory counts, hidden ones too, and a link
    // as itself; the pane has the tree walked on a worker.
    void statistics()
    {
        QTemporaryDir tree;
        QCOMPARE(FolderStatistics::of(tree.path()), (FolderStatistics{0, 0})); // empty (missing: in the window's test)

        writeFile(tree.filePath("a.txt"), "12345");
        writeFile(tree.filePath(".hidden"), "12");
        writeFile(tree.filePath("sub/deeper/nested.bin"), QByteArray(1000, 'x'));
        writeFile(tree.filePath("sub/.git/config"), "abc");
        QVERIFY(QDir().mkpath(tree.filePath("empty/dirs/only")));
        QVERIFY(QFile::link(tree.filePath("sub"), tree.filePath("link-to-sub"))); // a link, not followed
        const qint64 linkSize = QFileInfo(tree.filePath("sub")).absoluteFilePath().toUtf8().size();
        const FolderStatistics expected{5, 5 + 2 + 1000 + 3 + linkSize};
        QCOMPARE(FolderStatistics::of(tree.path()), expected);

        NimbrellApp app({m_settings, m_engine, m_fileEvents, m_loginItem});
        SyncFolder folder;
        folder.name = "T";
        folder.localPath = tree.path();
        app.syncManager()->addFolder(folder);
        FolderDetailController pane;
        pane.setApp(&app);
        pane.setFolderId(uuidString(folder.id));
        QVERIFY(pane.isLoadingStats());
        QCOMPARE(pane.fileCount(), QVariant());
        QTRY_VERIFY(!pane.isLoadingStats());
        QCOMPARE(pane.fileCount().toLongLong(), expected.fileCount);
        QCOMPARE(pane.totalSize().toLongLong(), expected.totalBytes);

        // The pane moves on while the walk runs: its figures never show.
        SyncFolder other = folder;
        other.id = QUuid::createUuid();
        other.localPath = tree.filePath("sub");
        app.syncManager()->addFolder(other);
        pane.loadFolderStats();
        pane.setFolderId(QString()); // a new folder
        settleWorkers();
        QCOMPARE(pane.fileCount(), QVariant());
        QVERIFY(!pane.isLoadingStats());
        pane.setFolderId(uuidString(folder.id));
        pane.setFolderId(uuidString(other.id));
        settleWorkers();
        QCOMPARE(pane.fileCount().toLongLong(), 2);
        std::atomic_bool stop{true}; // a walk told to stop counts nothing more
        QCOMPARE(FolderStatistics::of(tree.path(), &stop), FolderStatistics());
    }

    // A review's files as its sheet lists them, filtered on a worker with
    // both sides in lower case, as the sheet always did.
    void reviewChanges_data()
    {
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QStringList>("shown");
        QTest::newRow("none") << "" << QStringList{"Docs/Été.txt", "docs/b.TXT", "music/a.mp3"};
        QTest::newRow("any case") << "DOCS/B" << QStringList{"docs/b.TXT"};
        QTest::newRow("beyond ASCII") << "ÉTÉ" << QStringList{"Docs/Été.txt"};
        QTest::newRow("nothing") << "video" << QStringList();
    }
    void reviewChanges()
    {
        QFETCH(QString, filter);
        QFETCH(QStringList, shown);
        using Group = BisyncPlan::Group;
        ReviewChangesModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setChanges({{Group::toRemote, "Docs/Été.txt", true},
                          {Group::deletedLocal, "docs/b.TXT", false},
                          {Group::replaced, "music/a.mp3", false}});
        QCOMPARE(model.counts(), (QList<int>{1, 0, 0, 1, 1}));
        QCOMPARE(model.index(1, 0).data(ReviewChangesModel::GroupRole).toInt(), int(Group::deletedLocal));
        QCOMPARE(model.index(0, 0).data(ReviewChangesModel::ToRemoteRole).toBool(), true);
        model.setFilter(filter);
        QTRY_VERIFY(!model.isFiltering());
        QCOMPARE(column(model, ReviewChangesModel::PathRole), shown);
        QCOMPARE(model.total(), 3);
    }

    // A filter changed while the last one still runs: the stale result is
    // dropped, not shown first; new changes are filtered as the sheet says.
    void reviewFilteredWhileFiltering()
    {
        QList<BisyncPlan::Change> changes;
        for (int i = 0; i < 2000; ++i)
            changes.append({BisyncPlan::Group::toLocal, QStringLiteral("d%1/f%2.txt").arg(i % 100).arg(i), false});
        ReviewChangesModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setChanges(changes);
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        model.setFilter("f1");
        model.setFilter("F1234.");
        QVERIFY(model.isFiltering());
        QCOMPARE(model.rowCount(), 2000); // until the filter is done
        QTRY_VERIFY(!model.isFiltering());
        settleWorkers();
        QCOMPARE(resets.count(), 1);
        QCOMPARE(column(model, ReviewChangesModel::PathRole), QStringList{"d34/f1234.txt"});

        changes.append({BisyncPlan::Group::toLocal, "new/f1234.txt", false});
        model.setChanges(changes);
        QTRY_COMPARE(column(model, ReviewChangesModel::PathRole), (QStringList{"d34/f1234.txt", "new/f1234.txt"}));
        model.setFilter("");
        QCOMPARE(model.rowCount(), 2001); // at once
    }

    // The pane's conflicts: their copies looked at on a worker; a conflict
    // settled in a file manager goes as its row alone, a copy changed changes
    // its row alone, and another folder's never show.
    void conflictList()
    {
        QTemporaryDir local;
        ActivityLog activity(m_home.filePath("activity.jsonl"));
        NimbrellApp app({.settings = m_settings, .engine = m_engine, .fileEvents = m_fileEvents,
                         .loginItem = m_loginItem, .activity = &activity});
        SyncFolder folder, other;
        folder.name = "Letters";
        folder.localPath = local.path();
        app.syncManager()->addFolder(folder);
        app.syncManager()->addFolder(other);
        QList<ActivityRecord> records;
        const QDateTime time = QDateTime::currentDateTimeUtc().addSecs(-60);
        for (const QString name : {"a.txt", "sub/b.txt", "c.txt"}) {
            writeFile(local.filePath(name), "mine");
            writeFile(local.filePath(name + ".conflict1"), "theirs, longer");
            records.append({folder.id, "backup:", time.addSecs(records.size()), ActivityRecord::Kind::conflict, name,
                            ChangeParser::Action::added, true, name + ".conflict1", true});
        }
        QVERIFY(activity.append(records));
        app.syncManager()->conflicts().recheck(folder.id);
        FolderDetailController pane;
        pane.setApp(&app);
        pane.setFolderId(uuidString(folder.id));
        ConflictListModel *list = pane.conflicts()->list();
        QAbstractItemModelTester tester(list, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QTRY_COMPARE(column(*list, ConflictListModel::NameRole), (QStringList{"c.txt", "sub/b.txt", "a.txt"}));
        const QVariantList copies = list->index(1, 0).data(ConflictListModel::CopiesRole).toList();
        QCOMPARE(copies.size(), 2);
        const QVariantMap renamed = copies.at(1).toMap();
        QCOMPARE(renamed.value("fileName").toString(), "b.txt.conflict1");
        QCOMPARE(renamed.value("filePath").toString(), local.filePath("sub/b.txt.conflict1"));
        QCOMPARE(renamed.value("size").toLongLong(), 14);
        QCOMPARE(renamed.value("side").toString(), "backup:");
        QCOMPARE(copies.at(0).toMap().value("keepsName").toBool(), true);

        QSignalSpy removed(list, &QAbstractItemModel::rowsRemoved);
        QSignalSpy changed(list, &QAbstractItemModel::dataChanged);
        QSignalSpy resets(list, &QAbstractItemModel::modelReset);
        QVERIFY(QFile::remove(local.filePath("sub/b.txt.conflict1")));
        writeFile(local.filePath("a.txt"), "mine, edited");
        pane.conflicts()->recheck();
        QTRY_COMPARE(column(*list, ConflictListModel::NameRole), (QStringList{"c.txt", "a.txt"}));
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.first().at(1).toInt(), 1);
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(changed.first().at(0).toModelIndex().row(), 1);
        QCOMPARE(resets.count(), 0);
        QCOMPARE(app.syncManager()->conflicts().of(folder.id).size(), 2); // counted so everywhere

        pane.setFolderId(uuidString(other.id));
        QCOMPARE(list->rowCount(), 0);
        settleWorkers();
        QCOMPARE(list->rowCount(), 0);
    }

    // Recently Removed lists this computer's kept files on a worker, newest
    // first; a listing that comes back for a folder no longer shown, or for a
    // model that went, is dropped.
    void keptFilesListed()
    {
        NimbrellApp app({m_settings, m_engine, m_fileEvents, m_loginItem});
        SyncFolder one, two;
        app.syncManager()->addFolder(one);
        app.syncManager()->addFolder(two);
        const auto keep = [](const SyncFolder &folder, const char *run, const QString &path) {
            writeFile(RemovedFiles::localFile(folder.id, {{}, run, path, 0, {}}), "kept");
        };
        keep(one, "2026-11-20T10-00-00", "x/older.txt");
        keep(one, "2026-11-23T10-00-00", "newer.txt");
        keep(two, "2026-11-21T10-00-00", "other.txt");
        RemovedFilesModel model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setApp(&app);
        model.setFolderId(uuidString(one.id));
        model.reload();
        QTRY_VERIFY(model.isLoaded() && !model.isBusy());
        QCOMPARE(column(model, RemovedFilesModel::FileNameRole), (QStringList{"newer.txt", "older.txt"}));

        model.setFolderId(uuidString(two.id));
        model.reload();
        model.setFolderId(uuidString(one.id));
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        model.reload();
        {
            auto *gone = new RemovedFilesModel;
            gone->setApp(&app);
            gone->setFolderId(uuidString(two.id));
            gone->reload();
            delete gone;
        }
        // Listings come back in the order asked for: two's came first.
        QTRY_VERIFY(model.isLoaded() && !model.isBusy());
        QCOMPARE(resets.count(), 1);
        QCOMPARE(column(model, RemovedFilesModel::FileNameRole), (QStringList{"newer.txt", "older.txt"}));
    }

    void creatingAFolder()
    {
        QTemporaryDir local;
        writeFile(local.filePath("file.txt"), "x");
        NimbrellApp app({m_settings, m_engine, m_fileEvents, m_loginItem});
        FolderDetailController pane;
        pane.setApp(&app); // a new folder: in the editor, not confirmable (both: in the window's test)

        // The target rows.
        pane.editor()->addTarget(); // no remotes listed: an empty name
        QCOMPARE(pane.editor()->targetList()[0].remoteName, QString());
        pane.editor()->setTargetRemote(0, "gone");
        pane.editor()->addTarget();
        pane.editor()->setTargetRemote(1, "box");
        pane.editor()->setTargetPath(1, ""); // an empty path: dropped on save
        pane.editor()->addTarget();
        pane.editor()->setTargetRemote(2, "gdrive");
        pane.editor()->removeTarget(0);
        QCOMPARE(pane.editor()->targetList().size(), 2);
        pane.editor()->moveTarget(0, 1);
        QCOMPARE(pane.editor()->targetList()[0].remoteName, "gdrive");
        pane.editor()->moveTarget(0, -1); // nothing above the first row
        QCOMPARE(pane.editor()->targetList()[0].remoteName, "gdrive");
        pane.editor()->addTarget(); // no remote name: dropped on save

        // The path's warning, which never decides the button.
        const QList<std::pair<QString, QString>> warnings{
            {"relative/path", "Use a full path that starts with \"/\"."},
            {local.filePath("missing"), "This folder does not exist."},
            {local.filePath("file.txt"), "This is a file, not a folder."},
            {local.path(), QString()}};
        for (const auto &[path, warning] : warnings) {
            pane.editor()->setLocalPath(path);
            QCOMPARE(pane.editor()->pathWarning(), warning);
        }
        QVERIFY(!pane.editor()->canConfirm()); // no name yet
        pane.editor()->setName("Docs");
        QVERIFY(pane.editor()->canConfirm());
        pane.editor()->setLocalPath(local.filePath("file.txt"));
        QVERIFY(pane.editor()->canConfirm());
        pane.editor()->setLocalPath(local.path());
        pane.editor()->setName("");
        pane.editor()->options()->setExcludeHidden(true);
        pane.editor()->options()->setExcludeGit(false);
        pane.editor()->options()->setConflictResolution(2);

        // With an empty name the button is off; the model still names an
        // unnamed folder "Untitled" when asked to save.
        pane.editor()->save();
        QCOMPARE(app.syncManager()->folders().size(), 1);
        const SyncFolder created = app.syncManager()->folders().first();
        QCOMPARE(created.name, "Untitled");
        QCOMPARE(created.localPath, local.path());
        QCOMPARE(created.remoteTargets.size(), 1);
        QCOMPARE(created.remoteTargets[0].remoteName, "gdrive");
        QCOMPARE(created.remoteTargets[0].remotePath, "/");
        QCOMPARE(created.filters, SyncFilterOptions()); // the switches do not carry over on create
        QCOMPARE(created.conflictResolution, ConflictResolution::localWins);
        QVERIFY(created.localPathBookmarkData.has_value());
    }

    // An edit keeps the folder's run and takes the switches; a cancelled one
    // changes nothing, and cancelling a new folder closes its pane; a folder
    // deleted under the editor is not saved back.
    void editingAFolder()
    {
        NimbrellApp app({m_settings, m_engine, m_fileEvents, m_loginItem});
        SyncFolder folder, other;
        folder.name = "Docs";
        folder.localPath = "/nowhere";
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "gdrive", "Docs", true}};
        folder.status = SyncStatus::syncing;
        folder.progress = 0.5;
        folder.periodicIntervalMinutes = 30;
        app.syncManager()->addFolder(folder);
        app.syncManager()->addFolder(other);
        FolderDetailController pane;
        pane.setApp(&app);
        app.navigation()->showNewSyncFolder();
        pane.editor()->cancel(); // a new folder's pane goes away
        QCOMPARE(app.navigation()->selection(), std::nullopt);

        pane.setFolderId(uuidString(folder.id));
        QVERIFY(!pane.editor()->isEditing());

        pane.editor()->start();
        pane.editor()->setName("Changed");
        pane.editor()->cancel();
        QVERIFY(!pane.editor()->isEditing());
        QCOMPARE(pane.editor()->name(), "Docs");
        QCOMPARE(app.syncManager()->folders().first().name, "Docs");

        pane.editor()->start();
        pane.editor()->setName("Documents");
        pane.editor()->options()->setExcludeHidden(true);
        pane.editor()->save();
        QVERIFY(!pane.editor()->isEditing());
        // All else kept: the run, the targets' history, no bookmark of a folder that does not exist.
        SyncFolder expected = folder;
        expected.name = "Documents";
        expected.filters.excludeHidden = true;
        QCOMPARE(app.syncManager()->folders().first(), expected);

        pane.deleteFolder(); // only its own
        QCOMPARE(app.syncManager()->folders(), QList<SyncFolder>{other});

        pane.setFolderId(uuidString(other.id));
        pane.editor()->start();
        pane.editor()->setName("Gone");
        app.syncManager()->deleteFolder(other.id);
        pane.editor()->save();
        QVERIFY(pane.editor()->isEditing());
        QVERIFY(app.syncManager()->folders().isEmpty());
    }
};

QTEST_MAIN(TestFolderDetail)
#include "tst_folderdetail.moc"
