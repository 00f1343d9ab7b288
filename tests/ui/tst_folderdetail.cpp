// The folder pane's logic: the statistics walk, the editor's target rows and
// save rules, and what cancelling and deleting leave.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeLoginItem.h"
#include "model/UuidString.h"
#include "platform/MemorySettingsStore.h"
#include "support/TestFiles.h"
#include "sync/SyncManager.h"
#include "ui/FolderDetailController.h"
#include "ui/FolderStatistics.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"

#include <QTemporaryDir>
#include <QTest>

class TestFolderDetail : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    FakeLoginItem m_loginItem;
    RcloneEngine m_engine{QStringLiteral("/nonexistent/rclone")};

private Q_SLOTS:
    void initTestCase() { qputenv("HOME", QFile::encodeName(m_home.path())); }
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
