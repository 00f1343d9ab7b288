// The whole road of a sync with the real rclone, real file events and the
// program's own timings: a change in a local folder reaches both of its remotes
// without anyone asking, and the activity file says so.
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "platform/InotifyFileEventService.h"
#include "platform/MemorySettingsStore.h"
#include "support/LogCapture.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "sync/ActivityLog.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"

#include <QSignalSpy>

using namespace std::chrono_literals;

class TestSyncEndToEnd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changeReachesBothRemotesByItself()
    {
        RcloneSandbox sandbox;
        const QString aliased = sandbox.makeDirectory("aliased");
        const QString served = sandbox.makeDirectory("served");
        sandbox.addAlias("backup", aliased);
        sandbox.addWebDav("dav", served);
        const QString local = sandbox.makeDirectory("Documents");
        writeFile(local + "/report.txt", "first");

        MemorySettingsStore settings;
        settings.values.insert(SyncManager::kGlobalSyncEnabledKey, true);
        RcloneEngine engine(RcloneSandbox::rclone());
        InotifyFileEventService fileEvents; // 1 s batches
        ActivityLog activity(sandbox.makeDirectory("share") + "/activity.jsonl");
        // 5 s debounce, 2 s follow-up
        SyncManager manager({settings, engine, fileEvents, {}, &QDateTime::currentDateTimeUtc, 2, true, &activity});

        SyncFolder folder;
        folder.name = "Documents";
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false},
                                RemoteTarget{QUuid::createUuid(), "dav", "Team Docs", false}};
        manager.addFolder(folder);
        manager.syncFolder(folder.id);
        QTRY_COMPARE_WITH_TIMEOUT(manager.folders()[0].status, SyncStatus::success, 30000);
        QCOMPARE(readFile(aliased + "/Docs/report.txt"), QByteArray("first"));
        QCOMPARE(readFile(served + "/Team Docs/report.txt"), QByteArray("first"));

        // Nobody calls the manager from here on.
        QTest::qWait(200);
        const QDateTime changedAt = QDateTime::currentDateTimeUtc();
        writeFile(local + "/notes/new note.txt", "second");
        QTRY_COMPARE_WITH_TIMEOUT(readFile(aliased + "/Docs/notes/new note.txt"), QByteArray("second"), 30000);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(served + "/Team Docs/notes/new note.txt"), QByteArray("second"), 30000);
        QTRY_COMPARE_WITH_TIMEOUT(manager.folders()[0].status, SyncStatus::success, 30000);

        const SyncFolder stored = FolderStore::decode(readFile(manager.dataFilePath())).value().value(0);
        QCOMPARE(stored.status, SyncStatus::success);
        QVERIFY(stored.lastSync.value() > changedAt.addSecs(5)); // the run came after the quiet time
        QVERIFY(stored.remoteTargets[0].hasResynced);
        QVERIFY(stored.remoteTargets[1].hasResynced);
        QCOMPARE(stored.lastError, std::nullopt);

        // Each run's changes, target by target; gone with the folder.
        QStringList seen;
        for (const ActivityRecord &record : activity.read()) {
            QCOMPARE(record.action, ChangeParser::Action::added);
            QVERIFY(record.onRemote);
            seen.append(record.target + " " + record.path);
        }
        QCOMPARE(seen, (QStringList{"backup:Docs report.txt", "dav:Team Docs report.txt",
                                    "backup:Docs notes/new note.txt", "dav:Team Docs notes/new note.txt"}));
        manager.deleteFolder(folder.id);
        QVERIFY(activity.read().isEmpty());
    }

    // Keeping what runs delete or replace, for a target inside a remote and
    // one at a remote's root: a file deleted here and one overwritten there
    // are both kept, on the side they were removed from. The hidden directory
    // never syncs to the other side, also once keeping stops.
    void removedFilesAreKept()
    {
        RcloneSandbox sandbox;
        const QString inner = sandbox.makeDirectory("inner"), whole = sandbox.makeDirectory("whole");
        sandbox.addAlias("backup", inner);
        sandbox.addAlias("whole", whole);
        const QString local = sandbox.makeDirectory("Documents");
        for (const char *name : {"a.txt", "b.txt", "c.txt", "d.txt"})
            writeFile(local + "/" + name, QByteArray("first ") + name);

        MemorySettingsStore settings;
        RcloneEngine engine(RcloneSandbox::rclone());
        InotifyFileEventService fileEvents;
        SyncManager manager({settings, engine, fileEvents, {}, &QDateTime::currentDateTimeUtc, 2, false});
        SyncFolder folder;
        folder.name = "Documents";
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false},
                                RemoteTarget{QUuid::createUuid(), "whole", "", false}};
        manager.addFolder(folder);
        manager.setKeepsRemoved(folder.id, true);
        const auto synced = [&] {
            QSignalSpy completed(&manager, &SyncManager::runCompleted);
            QVERIFY(manager.syncFolder(folder.id));
            QVERIFY(completed.wait(60000));
            QCOMPARE(manager.folders()[0].lastError, std::nullopt);
        };
        synced();

        QVERIFY(QFile::remove(local + "/a.txt"));
        writeFile(inner + "/Docs/b.txt", "theirs");
        synced();
        // Each side's kept files are in one directory named for the run.
        const auto keptIn = [](const QString &directory) {
            const QStringList runs = QDir(directory).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            return runs.size() == 1 ? directory + "/" + runs.first() : QString();
        };
        const QString kept = keptIn(RemovedFiles::localDirectory(folder.id));
        QVERIFY(kept.startsWith(sandbox.dataHome() + "/nimbrell/removed/"));
        QVERIFY(QRegularExpression("/\\d{4}-\\d\\d-\\d\\dT\\d\\d-\\d\\d-\\d\\d$").match(kept).hasMatch());
        QCOMPARE(readFile(keptIn(inner + "/Docs/.nimbrell-removed") + "/a.txt"), "first a.txt");
        QCOMPARE(readFile(kept + "/b.txt"), "first b.txt");
        QCOMPARE(readFile(local + "/b.txt"), "theirs");
        QCOMPARE(readFile(keptIn(whole + "/.nimbrell-removed") + "/a.txt"), "first a.txt");
        QCOMPARE(readFile(keptIn(whole + "/.nimbrell-removed") + "/b.txt"), "first b.txt");
        QCOMPARE(readFile(whole + "/b.txt"), "theirs");

        manager.setKeepsRemoved(folder.id, false);
        QVERIFY(QFile::remove(local + "/c.txt"));
        synced();
        QVERIFY(!QFile::exists(inner + "/Docs/c.txt")); // deleted, as before the option
        QCOMPARE(QDir(inner + "/Docs/.nimbrell-removed").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 1);
        QVERIFY(QFile::exists(keptIn(inner + "/Docs/.nimbrell-removed") + "/a.txt"));
        QVERIFY(!QFileInfo::exists(local + "/.nimbrell-removed"));
    }

    // More directories than watches: the folder syncs, the limit is logged
    // once, and the periodic check picks up what no watch can see.
    void largeFolderBeyondTheWatchLimit()
    {
        RcloneSandbox sandbox;
        const QString aliased = sandbox.makeDirectory("aliased");
        sandbox.addAlias("backup", aliased);
        const QString local = sandbox.makeDirectory("Large");
        constexpr int kDirectories = 1000, kFilesEach = 100;
        for (int d = 0; d < kDirectories; ++d) {
            const QString dir = local + QStringLiteral("/d%1").arg(d);
            QDir().mkpath(dir);
            for (int f = 0; f < kFilesEach; ++f)
                writeFile(dir + QStringLiteral("/f%1").arg(f), QByteArray::number(f));
        }

        MemorySettingsStore settings;
        settings.values.insert(SyncManager::kGlobalSyncEnabledKey, true);
        settings.values.insert(SyncManager::kGlobalSyncIntervalKey, 60);
        RcloneEngine engine(RcloneSandbox::rclone());
        InotifyFileEventService fileEvents(1000ms, 200); // fewer watches than directories
        QDateTime now = QDateTime::currentDateTimeUtc();
        LogCapture log;
        SyncManager manager({settings, engine, fileEvents, SyncTimings{500ms, 5s, 2s}, [&now] { return now; }});

        SyncFolder folder;
        folder.name = "Large";
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Large", false}};
        manager.addFolder(folder);
        QCOMPARE(fileEvents.watchCount(), 200);
        QCOMPARE(log.count("Cannot watch all of " + local), 1);

        // The first periodic tick syncs a folder that was never synced.
        QTRY_COMPARE_WITH_TIMEOUT(manager.folders()[0].status, SyncStatus::success, 600000);
        QCOMPARE(readFile(aliased + "/Large/d999/f99"), QByteArray("99"));

        // A change where no watch is: only the periodic check sees it.
        writeFile(local + "/d998/late.txt", "late");
        now = now.addSecs(61 * 60);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(aliased + "/Large/d998/late.txt"), QByteArray("late"), 600000);
        QTRY_COMPARE_WITH_TIMEOUT(manager.folders()[0].status, SyncStatus::success, 600000);
        QCOMPARE(log.count("Cannot watch all of"), 1);
    }
};

QTEST_GUILESS_MAIN(TestSyncEndToEnd)
#include "tst_syncendtoend.moc"
