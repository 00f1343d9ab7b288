// Sync runs, watching and the periodic check, with the fake rclone, file
// events on demand, a settable clock and short delays.
#include "engine/RcloneEngine.h"
#include "engine/BisyncLocks.h"
#include "fakes/FakeFileEventService.h"
#include "fakes/FakeRclone.h"
#include "model/FolderStore.h"
#include "model/UuidString.h"
#include "platform/BookmarkService.h"
#include "platform/MemorySettingsStore.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"
#include "sync/ActivityLog.h"
#include "sync/FolderPreferences.h"
#include "sync/FolderWatcher.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "sync/SyncReview.h"

#include <QScopeGuard>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

using namespace std::chrono_literals;

namespace {

SyncFolder makeFolder(const QString &name, int targets)
{
    SyncFolder folder;
    folder.name = name;
    folder.localPath = QDir::homePath() + "/" + name;
    QDir().mkpath(folder.localPath);
    QFile(folder.localPath + "/file.txt").open(QIODevice::WriteOnly);
    for (int i = 0; i < targets; ++i)
        folder.remoteTargets.append(RemoteTarget{QUuid::createUuid(), "r" + QString::number(i), name, true});
    return folder;
}

// A bisync that reports progress and waits for the test to release it
// (the file "release-<remote>" in the fake's directory), then succeeds. Asked
// to stop, it takes a moment, as rclone does.
const QByteArray kHeldBisync = R"(
remote=${3%%:*}
echo 'Transferred:   	 1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s'
trap 'sleep 0.3; exit 143' TERM
while [ ! -e "$FAKE_RCLONE_DIR/release-$remote" ]; do sleep 0.02; done
)";

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

class TestSyncRuns : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QByteArray m_realHome;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    QDateTime m_now;
    std::unique_ptr<FakeRclone> m_fake;
    std::unique_ptr<RcloneEngine> m_engine;

    SyncEnvironment environment(SyncTimings timings = {1h, 200ms, 100ms}, int concurrentSyncs = 4)
    {
        return {m_settings, *m_engine, m_fileEvents, timings, [this] { return m_now; }, concurrentSyncs};
    }

    void release(const QString &remote) { QFile(m_fake->directory() + "/release-" + remote).open(QIODevice::WriteOnly); }

    // The "remote:path" argument of every bisync call so far.
    QStringList bisyncRemotes() const
    {
        QStringList remotes;
        for (const QStringList &call : m_fake->calls()) {
            if (call.value(0) == "bisync")
                remotes.append(call.value(2));
        }
        return remotes;
    }

    QString storePath() const { return m_home.filePath(".config/rclone/rclone_sync_folders.json"); }
    QList<SyncFolder> storedFolders() const
    {
        return FolderStore::decode(readFile(storePath())).value_or(QList<SyncFolder>{});
    }
    void writeStore(const QList<SyncFolder> &folders) { writeFile(storePath(), FolderStore::encode(folders).value()); }

private Q_SLOTS:
    void initTestCase()
    {
        m_realHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(".config")));
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }

    void init()
    {
        QDir(m_home.path()).removeRecursively();
        QDir().mkpath(m_home.path());
        m_settings = MemorySettingsStore();
        m_now = QDateTime(QDate(2026, 11, 21), QTime(12, 0), Qt::UTC);
        m_fake = std::make_unique<FakeRclone>();
        m_engine = std::make_unique<RcloneEngine>(FakeRclone::path());
    }
    void cleanup()
    {
        m_engine.reset();
        m_fake.reset();
    }

    // ---- runs -----------------------------------------------------------

    // The folder was renamed in place since it was added: its bookmark finds it.
    void successfulRunOverAllTargets()
    {
        m_fake->script("bisync", "echo 'Transferred:   	 2 MiB / 4 MiB, 50%, 1 MiB/s, ETA 2s'\n"
                                 "echo 'Transferred:            1 / 2, 50%'\n");
        SyncManager manager(environment());
        SyncFolder folder = makeFolder("Docs", 2);
        folder.remoteTargets[1].hasResynced = false;
        folder.remoteTargets[1].remotePath = "";
        folder.localPathBookmarkData = BookmarkService::create(folder.localPath);
        QVERIFY(QDir().rename(folder.localPath, folder.localPath + " 2026"));
        manager.addFolder(folder);

        LogCapture log;
        QList<double> progress;
        connect(&manager.repository(), &FolderRepository::folderChanged, this,
                [&](qsizetype row) { progress.append(manager.folders().at(row).progress); });
        m_now = m_now.addSecs(30);
        manager.syncFolder(folder.id);
        QCOMPARE(manager.folders()[0].status, SyncStatus::syncing);
        SyncFolder edited = manager.folders()[0]; // an editor opened during the first sync of r1
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);

        const SyncFolder done = manager.folders()[0];
        QCOMPARE(done.progress, 1.0);
        QCOMPARE(done.lastSync, m_now);
        QCOMPARE(done.lastError, std::nullopt);
        QCOMPARE(done.currentTargetIndex, std::nullopt);
        QVERIFY(done.remoteTargets[1].hasResynced);
        QCOMPARE(done.transferredFiles, "1 / 2"); // the last texts stay
        QCOMPARE(storedFolders(), QList<SyncFolder>{done});
        // Each target has half of the bar.
        QVERIFY(progress.contains(0.25));
        QVERIFY(progress.contains(0.75));
        QCOMPARE(bisyncRemotes(), (QStringList{"r0:Docs", "r1:"}));
        const QList<QStringList> calls = m_fake->calls();
        QVERIFY(!calls[1].contains("--resync"));
        QVERIFY(calls[3].contains("--resync")); // the second target had never been synced
        QCOMPARE(calls[3].value(1), folder.localPath + " 2026");
        QCOMPARE(log.count("Starting sync for folder: Docs to 2 target(s)"), 1);
        QCOMPARE(log.count("Sync completed successfully for folder ID: " + uuidString(folder.id)), 1);

        // Saving that editor after the run must not make the next run of r1 a --resync.
        edited.name = "Renamed";
        manager.updateFolder(edited);
        QCOMPARE(manager.folders()[0].name, "Renamed");
        QVERIFY(manager.folders()[0].remoteTargets[1].hasResynced);
    }

    // A failing target does not stop the others. When rclone keeps demanding
    // --resync (even after the engine's own retry), the target's next run is a
    // first sync, unless that would fill an empty side from the other: that is
    // left to the user.
    void failingTargetsDoNotStopTheOthers()
    {
        const QByteArray resync = "echo 'ERROR : Bisync aborted. Must run --resync to recover.'; exit 7";
        m_fake->script("bisync", "case \"$3\" in r1:*) ;;\n"
                                 "r2:*) " + resync + ";;\n"
                                 "r3:*) echo 'ERROR : Empty current Path2 listing. Cannot sync to an empty directory: x'; " + resync + ";;\n"
                                 "*) echo \"ERROR : failed for $3\"; exit 1;; esac\n");
        m_fake->script("lsf", "echo file.txt\n"); // every remote holds something
        SyncManager manager(environment());
        SyncFolder folder = makeFolder("Docs", 4);
        folder.remoteTargets[1].hasResynced = false;
        manager.addFolder(folder);
        LogCapture log;
        manager.syncFolder(folder.id);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::error);

        const SyncFolder done = manager.folders()[0];
        QCOMPARE(done.lastError, "r0:Docs — ERROR : failed for r0:Docs\n"
                                 "r2:Docs — ERROR : Bisync aborted. Must run --resync to recover.\n"
                                 "r3:Docs — ERROR : Empty current Path2 listing. Cannot sync to an empty directory: x\n"
                                 "ERROR : Bisync aborted. Must run --resync to recover.");
        QCOMPARE(done.lastSync, m_now);
        QCOMPARE(bisyncRemotes(), (QStringList{"r0:Docs", "r1:Docs", "r2:Docs", "r2:Docs", "r3:Docs"}));
        const QList<bool> resynced{true, true, false, true};
        for (const QList<RemoteTarget> &targets : {done.remoteTargets, storedFolders().value(0).remoteTargets}) {
            for (int i = 0; i < 4; ++i)
                QCOMPARE(targets.value(i).hasResynced, resynced[i]);
        }
        QCOMPARE(log.count("Sync error for target r0:Docs - ERROR : failed for r0:Docs"), 1);
        QCOMPARE(log.count("Sync completed with errors for folder ID: " + uuidString(folder.id)), 1);
        QCOMPARE(storedFolders().value(0).status, SyncStatus::error);

        m_fake->script("bisync", "exit 0\n");
        const qsizetype before = m_fake->calls().size();
        manager.syncFolder(folder.id);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QStringList initial;
        for (const QStringList &call : m_fake->calls().mid(before)) {
            if (call.contains("--resync"))
                initial.append(call.value(2));
        }
        QCOMPARE(initial, QStringList{"r2:Docs"});
        for (const RemoteTarget &target : manager.folders()[0].remoteTargets)
            QVERIFY(target.hasResynced);
    }

    // A pair that synced once, whose history rclone then lost (the store
    // says it never synced), is not resynced into a folder emptied since: an
    // unmounted drive's mount point looks like that.
    void historyLostThenLocalFolderEmptied()
    {
        const QByteArray resync = "echo 'ERROR : Bisync aborted. Must run --resync to recover.'; exit 7\n";
        m_fake->script("lsf", "echo file.txt\n");
        SyncManager manager(environment());
        const SyncFolder folder = makeFolder("Docs", 1);
        manager.addFolder(folder);
        manager.syncFolder(folder.id);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        m_fake->script("bisync", resync); // and again with --resync
        manager.syncFolder(folder.id);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::error);
        QVERIFY(!manager.folders()[0].remoteTargets[0].hasResynced);

        QVERIFY(QFile::remove(folder.localPath + "/file.txt"));
        const qsizetype before = m_fake->calls().size();
        manager.syncFolder(folder.id);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::error);
        QCOMPARE(m_fake->calls().size(), before); // not even a listing
        QVERIFY(manager.folders()[0].lastError->contains("empty current Path1 listing"));
        QCOMPARE(manager.problems(folder.id).value(0).kind, SyncProblem::Kind::emptySide);
    }

    // A review's plan is read on a worker: cancelled meanwhile, it is
    // dropped, also once the next review is under way, and the folder's runs
    // wait for it no longer.
    void reviewCancelledWhileItsPlanIsRead()
    {
        for (const char *call : {"bisync.1", "bisync.2"})
            m_fake->script(call, "echo 'NOTICE: " + QByteArray(call) + ".txt: Skipped copy as --dry-run is set'\n");
        SyncManager manager(environment());
        const SyncFolder folder = makeFolder("Docs", 1);
        manager.addFolder(folder);
        // Every worker busy: the plans wait to be read.
        QThreadPool *pool = QThreadPool::globalInstance();
        QSemaphore busy;
        for (int i = 0; i < pool->maxThreadCount(); ++i)
            pool->start([&busy] { busy.acquire(); });
        bool freed = false;
        const auto free = [&] {
            if (std::exchange(freed, true))
                return;
            busy.release(pool->maxThreadCount());
            pool->waitForDone();
            QCoreApplication::sendPostedEvents();
        };
        const auto freeOnFailure = qScopeGuard(free);
        SyncReview review(manager, *m_engine);
        const auto previewed = [&] {
            QVERIFY(review.preview(folder.id, folder.remoteTargets[0].id, SyncReview::Kind::changes));
            QTRY_COMPARE(m_engine->activeJobCount(), 0);
            QCOMPARE(review.state(), SyncReview::State::previewing);
            QVERIFY(manager.runs().isHeld(folder.id));
        };
        previewed();
        review.cancel();
        QCOMPARE(review.state(), SyncReview::State::idle);
        QVERIFY(!manager.runs().isHeld(folder.id));
        previewed();
        free();
        QCOMPARE(review.state(), SyncReview::State::ready);
        QCOMPARE(review.changes().size(), 1);
        QCOMPARE(review.changes().first().path, "bisync.2.txt");
    }

    // A cancelled run shows idle at once and runs no further target; the run
    // of a deleted folder, ending later, does not bring the folder back.
    void cancelOrDeleteDuringARun()
    {
        // The first target deletes a file on the remote, which the folder keeps.
        m_fake->script("bisync", "case \"$3\" in r0:*)\n"
                                 "echo \"2026/11/23 04:26:21 INFO  : Synching Path1 \\\"$2/\\\" with Path2 \\\"$3/\\\"\"\n"
                                 "echo \"2026/11/23 04:26:21 INFO  : - Path2    Queue delete                       - $3/old.txt\"\n"
                                 "echo '2026/11/23 04:26:21 INFO  : old.txt: Deleted';; esac\n" + kHeldBisync);
        release("r0");
        ActivityLog activity(m_home.filePath("activity.jsonl"));
        SyncEnvironment withActivity = environment();
        withActivity.activity = &activity;
        SyncManager manager(withActivity);
        const SyncFolder folder = makeFolder("Docs", 3);
        SyncFolder gone = makeFolder("Gone", 1);
        gone.remoteTargets[0].remoteName = "g";
        manager.addFolder(folder);
        manager.addFolder(gone);
        manager.preferences().setKeepsRemoved(folder.id, true);
        LogCapture log;
        manager.syncFolder(folder.id);
        manager.syncFolder(gone.id);
        QTRY_COMPARE(manager.folders()[0].currentTargetIndex, 1);
        QTRY_COMPARE(manager.folders()[0].progress, 0.5); // half of the second third
        QTRY_VERIFY(bisyncRemotes().contains("g:Gone"));

        manager.cancelSync(folder.id);
        manager.deleteFolder(gone.id);
        QCOMPARE(manager.folders(), QList<SyncFolder>{folder}); // idle, no progress, no target, no texts
        QCOMPARE(storedFolders(), QList<SyncFolder>{folder});
        QVERIFY(!manager.runs().isRunning(folder.id));

        release("r1");
        release("r2");
        release("g");
        QTest::qWait(300);
        QCOMPARE(sorted(bisyncRemotes()), (QStringList{"g:Gone", "r0:Docs", "r1:Docs"}));
        QCOMPARE(manager.folders(), QList<SyncFolder>{folder});
        QCOMPARE(storedFolders(), QList<SyncFolder>{folder});
        QCOMPARE(log.count("Sync completed"), 0);
        QCOMPARE(log.count("Canceling sync for folder ID: " + uuidString(folder.id)), 1);
        // What the stopped run did before it stopped is in its activity, and
        // what it kept on the remote is pruned in time.
        QTRY_COMPARE(activity.read().size(), 1);
        QCOMPARE(activity.read().first().path, "old.txt");
        QCOMPARE(activity.read().first().target, "r0:Docs");
        QCOMPARE(FolderPreferences().keptRuns(folder.id, folder.remoteTargets[0].id).size(), 1);

        // What the program writes about the user's files is theirs alone.
        const auto mode = [](const QString &path) { return int(QFile::permissions(path) & QFileDevice::Permissions(0x7077)); };
        const int privateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        const int privateDirectory = privateFile | QFileDevice::ExeOwner;
        QCOMPARE(mode(activity.path()), privateFile);
        QCOMPARE(mode(storePath()), privateFile);
        QCOMPARE(mode(FolderPreferences::defaultPath()), privateFile);
        QCOMPARE(mode(QFileInfo(FolderPreferences::defaultPath()).path()), privateDirectory);
        QCOMPARE(mode(BisyncLocks::workDirectory()), privateDirectory);
        QCOMPARE(mode(RemovedFiles::localDirectory(folder.id)), privateDirectory);
    }

    // ---- one run per folder, a few folders at once ---------------------

    // A run waits for a slot, a user's ahead of automatic ones; sync-all skips
    // a folder that syncs already. Sleep, shutdown and quitting stop every run
    // and start none until resumed.
    void runsWaitForASlotThenSuspendAndResume()
    {
        m_fake->script("bisync", kHeldBisync);
        SyncManager manager(environment({1h, 1h, 1h}, 2));
        QList<SyncFolder> folders;
        for (const char *name : {"A", "B", "C", "D"}) {
            folders.append(makeFolder(name, 1));
            folders.last().remoteTargets[0].remoteName = name;
            manager.addFolder(folders.last());
        }
        QSignalSpy activity(&manager.runs(), &RunScheduler::activeChanged);
        manager.syncFolder(folders[0].id);
        manager.syncAllFolders();          // automatic: B, C, D
        manager.syncFolder(folders[3].id); // the user's goes ahead of C
        QTRY_COMPARE(sorted(bisyncRemotes()), (QStringList{"A:A", "B:B"}));
        QCOMPARE(activity.count(), 1);
        for (const SyncFolder &folder : manager.folders())
            QCOMPARE(folder.status, SyncStatus::syncing);
        QVERIFY(!manager.runs().isWaiting(folders[0].id) && manager.runs().isWaiting(folders[2].id) && manager.runs().isWaiting(folders[3].id));

        manager.cancelSync(folders[2].id); // leaves the queue
        QCOMPARE(manager.folders()[2].status, SyncStatus::idle);
        release("A");
        QTRY_COMPARE(sorted(bisyncRemotes()), (QStringList{"A:A", "B:B", "D:D"}));

        manager.suspendRuns();
        QCOMPARE(manager.folders()[1].status, SyncStatus::idle);
        QCOMPARE(storedFolders().value(3).status, SyncStatus::idle);
        QVERIFY(!manager.syncFolder(folders[2].id));
        QTRY_VERIFY(!manager.runs().isActive());
        QCOMPARE(activity.count(), 2);
        QCOMPARE(bisyncRemotes().size(), 3);

        manager.resumeRuns(); // the stopped runs start again, the cancelled one not
        release("B");
        release("D");
        QTRY_VERIFY(manager.folders()[1].status == SyncStatus::success && manager.folders()[3].status == SyncStatus::success);
        QCOMPARE(sorted(bisyncRemotes()), (QStringList{"A:A", "B:B", "B:B", "D:D", "D:D"}));
        QCOMPARE(manager.folders()[2].status, SyncStatus::idle);
    }

    // The folder shows idle at once, but its next run starts only once the
    // stopping rclone has exited, and only one.
    void abortThenSyncNowAtOnce()
    {
        m_fake->script("bisync.1", kHeldBisync);
        m_fake->script("bisync.2", R"sh(kill -0 "$(cat "$FAKE_RCLONE_DIR/calls/0002.pid")" 2>/dev/null && touch "$FAKE_RCLONE_DIR/overlap"; exit 0)sh");
        SyncManager manager(environment());
        const SyncFolder folder = makeFolder("Docs", 1);
        manager.addFolder(folder);
        manager.syncFolder(folder.id);
        QTRY_COMPARE(bisyncRemotes().size(), 1);
        manager.cancelSync(folder.id);
        QCOMPARE(manager.folders()[0].status, SyncStatus::idle);
        QVERIFY(manager.runs().isActive()); // its child is still stopping
        manager.syncFolder(folder.id);
        manager.syncFolder(folder.id);
        QVERIFY(manager.runs().isWaiting(folder.id));
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QCOMPARE(bisyncRemotes().size(), 2);
        QVERIFY(!QFile::exists(m_fake->directory() + "/overlap"));
    }

    // ---- watching -------------------------------------------------------

    // Changes to files the runs leave out (the switches' .git, an ignore
    // rule's *.tmp) start no run; one other file among them, or a batch
    // whose paths are not known, does. A changed rule applies at once.
    void changesToExcludedFilesStartNoRun()
    {
        const SyncFolder folder = makeFolder("Docs", 1);
        SyncManager manager(environment({1h, 100ms, 100ms}));
        manager.addFolder(folder);
        manager.setSelection(folder.id, {{"Videos"}, {"*.tmp"}, {}});
        manager.automatic().setGlobalSyncEnabled(true);
        QTRY_COMPARE(bisyncRemotes().size(), 1); // turning automatic sync on syncs all
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        const QString root = folder.localPath + "/";
        QVERIFY(m_fileEvents.lastIgnored.contains(root + "Videos/"));
        m_fileEvents.change(folder.localPath, {root + "draft.tmp", root + "sub/x.tmp", root + ".git/index"});
        QStringList inGit, unpacked; // bursts too big to look at path by path
        for (int i = 0; i < 1500; ++i) {
            inGit << root + ".git/objects/" + QString::number(i);
            unpacked << root + "unpacked/" + QString::number(i);
        }
        m_fileEvents.change(folder.localPath, inGit);
        QTest::qWait(400);
        QCOMPARE(bisyncRemotes().size(), 1);
        m_fileEvents.change(folder.localPath, {root + "draft.tmp", root + "notes.txt"});
        QTRY_COMPARE(bisyncRemotes().size(), 2);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        m_fileEvents.change(folder.localPath);
        QTRY_COMPARE(bisyncRemotes().size(), 3);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        manager.setSelection(folder.id, {{"Videos"}, {}, {}});
        m_fileEvents.change(folder.localPath, {root + "draft.tmp"});
        QTRY_COMPARE(bisyncRemotes().size(), 4);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        m_fileEvents.change(folder.localPath, unpacked);
        QTRY_COMPARE(bisyncRemotes().size(), 5);
    }

    // A watcher made during a run knows of it: its changes wait for the run,
    // and an abort drops them. A burst of changes gives one run once it has
    // settled; changes during a run, however many, give exactly one more run
    // after it.
    void changesGiveOneRunAndOneFollowUp()
    {
        m_fake->script("bisync.1", kHeldBisync);
        m_fake->script("bisync.3", kHeldBisync);
        const SyncFolder folder = makeFolder("Docs", 1);
        SyncManager manager(environment({1h, 300ms, 200ms}));
        manager.addFolder(folder);
        manager.syncFolder(folder.id); // the user's run, automatic sync off
        QTRY_COMPARE(bisyncRemotes().size(), 1);
        manager.automatic().setGlobalSyncEnabled(true);
        QCOMPARE(m_fileEvents.watchedPaths(), QStringList{folder.localPath});
        QVERIFY(manager.automatic().watcher(folder.id)->isSyncing());
        m_fileEvents.change(folder.localPath);
        QTRY_VERIFY(manager.automatic().watcher(folder.id)->isDirty());
        manager.cancelSync(folder.id);
        QVERIFY(!manager.automatic().watcher(folder.id)->isDirty() && !manager.automatic().watcher(folder.id)->isSyncing());
        QTest::qWait(600);
        QCOMPARE(bisyncRemotes().size(), 1);
        QCOMPARE(manager.folders()[0].status, SyncStatus::idle);

        for (int i = 0; i < 10; ++i) { // ten batches within about 0.3 s
            m_fileEvents.change(folder.localPath);
            QTest::qWait(30);
        }
        QCOMPARE(bisyncRemotes().size(), 1); // still settling
        QTRY_COMPARE(bisyncRemotes().size(), 2);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QTest::qWait(500);
        QCOMPARE(bisyncRemotes().size(), 2);

        manager.syncFolder(folder.id); // a run the user started
        QTRY_COMPARE(bisyncRemotes().size(), 3);
        QVERIFY(manager.automatic().watcher(folder.id)->isSyncing());
        for (int i = 0; i < 3; ++i) {
            m_fileEvents.change(folder.localPath);
            QTest::qWait(400); // each debounce ends during the run
        }
        QVERIFY(manager.automatic().watcher(folder.id)->isDirty());
        QCOMPARE(bisyncRemotes().size(), 3);

        release("r0");
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QCOMPARE(bisyncRemotes().size(), 3); // the follow-up waits 200 ms
        QTRY_COMPARE(bisyncRemotes().size(), 4);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QTest::qWait(400);
        QCOMPARE(bisyncRemotes().size(), 4);
        QVERIFY(!manager.automatic().watcher(folder.id)->isSyncing());
    }

    // Switched on, automatic sync watches and syncs every folder, and the
    // watchers follow the folder list; switched off, it stops them all.
    // Nothing runs for a folder without targets (nor for an unknown id), and
    // its watcher is not left waiting for a run that never comes.
    void switchingAutomaticSync()
    {
        m_fake->script("bisync", kHeldBisync);
        SyncManager manager(environment());
        SyncFolder a = makeFolder("A", 1), b = makeFolder("B", 1);
        const SyncFolder c = makeFolder("C", 0);
        manager.addFolder(a);
        manager.addFolder(b);
        manager.addFolder(c);
        QVERIFY(m_fileEvents.watchedPaths().isEmpty()); // off at first launch

        manager.automatic().setGlobalSyncEnabled(true);
        QCOMPARE(m_fileEvents.watchedPaths(), (QStringList{a.localPath, b.localPath, c.localPath}));
        QCOMPARE(manager.folders()[0].status, SyncStatus::syncing);
        QCOMPARE(manager.folders()[1].status, SyncStatus::syncing);
        QTRY_COMPARE(bisyncRemotes().size(), 2);
        QVERIFY(!manager.syncFolder(c.id) && !manager.syncFolder(QUuid::createUuid()));
        m_fileEvents.change(c.localPath);
        QTest::qWait(400);
        QVERIFY(!manager.automatic().watcher(c.id)->isSyncing() && !manager.runs().isRunning(c.id));
        QCOMPARE(manager.folders()[2], c);
        QCOMPARE(bisyncRemotes().size(), 2);

        const int created = m_fileEvents.createdCount();
        a.name = "Renamed";
        manager.updateFolder(a);
        QCOMPARE(m_fileEvents.createdCount(), created); // the same watcher
        b.localPath = "/elsewhere";
        manager.updateFolder(b);
        QCOMPARE(m_fileEvents.createdCount(), created + 1);
        manager.deleteFolder(c.id);
        QCOMPARE(m_fileEvents.watchedPaths(), (QStringList{a.localPath, "/elsewhere"}));

        manager.automatic().setGlobalSyncEnabled(false);
        QVERIFY(m_fileEvents.watchedPaths().isEmpty());
        QCOMPARE(manager.folders()[0].status, SyncStatus::idle);
        QCOMPARE(manager.folders()[1].status, SyncStatus::idle);
        QVERIFY(!manager.runs().isRunning(a.id) && !manager.runs().isRunning(b.id));
    }

    // ---- periodic check -------------------------------------------------

    // Automatic sync on at start watches every folder and syncs them all,
    // also one saved mid-run before a crash; then the ticks sync what is due.
    void periodicCheck()
    {
        m_fake->script("bisync", kHeldBisync);
        m_settings.values.insert(AutomaticSync::kGlobalSyncIntervalKey, 30);
        SyncFolder crashed = makeFolder("Crashed", 1);
        crashed.status = SyncStatus::syncing;
        writeStore({crashed, makeFolder("Never", 1), makeFolder("Other", 1)});
        SyncManager manager(environment({100ms, 1h, 1h}));

        QTest::qWait(300); // automatic sync is off: ticks do nothing
        QVERIFY(bisyncRemotes().isEmpty());

        m_settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
        SyncManager enabled(environment({100ms, 1h, 1h}));
        QCOMPARE(m_fileEvents.watchedPaths().size(), 3);
        QCOMPARE(m_fileEvents.lastIgnored, enabled.automatic().ownPaths()); // the program's own writes start nothing
        QVERIFY(enabled.automatic().ownPaths().contains(BisyncLocks::workDirectory()));
        QVERIFY(enabled.automatic().ownPaths().contains(enabled.repository().path()));
        QTRY_COMPARE(sorted(bisyncRemotes()), (QStringList{"r0:Crashed", "r0:Never", "r0:Other"}));
        release("r0");
        QTRY_VERIFY(std::all_of(enabled.folders().begin(), enabled.folders().end(),
                                [](const SyncFolder &f) { return f.status == SyncStatus::success; }));
        QFile::remove(m_fake->directory() + "/release-r0");

        // Now all were synced "now": nothing is due until the interval has passed.
        QTest::qWait(300);
        QCOMPARE(bisyncRemotes().size(), 3);
        m_now = m_now.addSecs(30 * 60); // exactly the interval: not yet
        QTest::qWait(300);
        QCOMPARE(bisyncRemotes().size(), 3);
        m_now = m_now.addSecs(1);
        QTRY_COMPARE(bisyncRemotes().size(), 6);
        // Every tick while they run skips them.
        QTest::qWait(300);
        QCOMPARE(bisyncRemotes().size(), 6);
        release("r0");
    }

    // A paused folder (kept across starts, outside the folder store) is left
    // out of sync-all, its watcher and the periodic check; a user's run still
    // runs it, and pausing a run under way lets it finish. Resumed, it syncs
    // once for what it missed. Its setting goes with the folder.
    void pausedFolderRunsOnlyWhenAsked()
    {
        release("r0"); // every run ends at once
        m_fake->script("bisync", kHeldBisync);
        m_settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
        m_settings.values.insert(AutomaticSync::kGlobalSyncIntervalKey, 30);
        const SyncFolder a = makeFolder("A", 1), b = makeFolder("B", 1);
        writeStore({a, b});
        FolderPreferences().setPaused(b.id, true);
        SyncManager manager(environment({100ms, 200ms, 100ms}));
        QVERIFY(manager.automatic().isPaused(b.id) && !manager.automatic().isPaused(a.id));
        QTRY_COMPARE(bisyncRemotes(), QStringList{"r0:A"});
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);

        m_fileEvents.change(b.localPath);
        m_now = m_now.addSecs(31 * 60);
        QTRY_COMPARE(bisyncRemotes(), (QStringList{"r0:A", "r0:A"}));
        QTRY_VERIFY(!manager.runs().isRunning(a.id)); // sync-all passes over a folder that syncs
        manager.syncAllFolders();
        QTRY_COMPARE(bisyncRemotes().count("r0:A"), 3);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);
        QTest::qWait(300);
        QCOMPARE(bisyncRemotes().count("r0:B"), 0);

        QVERIFY(manager.syncFolder(b.id, SyncTrigger::user));
        QTRY_COMPARE(bisyncRemotes().count("r0:B"), 1);
        QTRY_COMPARE(manager.folders()[1].status, SyncStatus::success);
        QVERIFY(manager.syncFolder(a.id, SyncTrigger::user));
        manager.automatic().setPaused(a.id, true);
        QTRY_COMPARE(bisyncRemotes().count("r0:A"), 4);
        QTRY_COMPARE(manager.folders()[0].status, SyncStatus::success);

        manager.automatic().setPaused(b.id, false);
        QTRY_COMPARE(bisyncRemotes().count("r0:B"), 2);
        QTRY_COMPARE(manager.folders()[1].status, SyncStatus::success);
        QCOMPARE(FolderPreferences().isPaused(a.id), true);
        manager.deleteFolder(a.id);
        QVERIFY(!readFile(FolderPreferences::defaultPath()).contains(uuidString(a.id).toUtf8()));
        QCOMPARE(bisyncRemotes().size(), 6);

        // On battery, with "Pause on Battery Power": automatic runs wait, a
        // user's does not; on mains again, what changed meanwhile syncs once.
        // A metered connection holds nothing while its setting is off.
        QSignalSpy held(&manager.automatic(), &AutomaticSync::holdChanged);
        manager.automatic().setConditions(true, true);
        QCOMPARE(manager.automatic().holdReason(), QString());
        manager.automatic().setPauseOnBattery(true);
        QCOMPARE(manager.automatic().holdReason(), "on battery power");
        QVERIFY(m_settings.values.value(AutomaticSync::kPauseOnBatteryKey).toBool());
        m_fileEvents.change(b.localPath);
        QTest::qWait(400);
        QCOMPARE(bisyncRemotes().size(), 6);
        QVERIFY(manager.syncFolder(b.id, SyncTrigger::user));
        QTRY_COMPARE(bisyncRemotes().size(), 7);
        QTRY_VERIFY(!manager.runs().isRunning(b.id));
        m_fileEvents.change(b.localPath);
        QTest::qWait(400);
        manager.automatic().setConditions(true, false);
        QCOMPARE(manager.automatic().holdReason(), QString());
        QTRY_COMPARE(bisyncRemotes().size(), 8);
        QTest::qWait(300);
        QCOMPARE(bisyncRemotes().size(), 8);
        QVERIFY(held.size() >= 3);
    }
};

QTEST_GUILESS_MAIN(TestSyncRuns)
#include "tst_syncruns.moc"
