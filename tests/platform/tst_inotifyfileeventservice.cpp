// Watch bookkeeping of the inotify service on real temporary trees.
#include "platform/InotifyFileEventService.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;

namespace {

// Counts the batches a watch delivers.
struct Counter
{
    int batches = 0;
    QStringList paths; // of the last batch
    FileEventService::Changes callback()
    {
        return [this](const QStringList &changed) {
            ++batches;
            paths = changed;
            paths.sort();
        };
    }
};

} // namespace

class TestInotifyFileEventService : public QObject
{
    Q_OBJECT

    static constexpr auto kLatency = 100ms;

private Q_SLOTS:
    void aBurstIsOneBatch()
    {
        QTemporaryDir root;
        InotifyFileEventService service(300ms);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        for (int i = 0; i < 50; ++i)
            writeFile(root.filePath(QStringLiteral("f%1").arg(i)), "x");
        QTest::qWait(150);
        QCOMPARE(counter.batches, 0); // delivered once the latency has passed
        QTRY_COMPARE(counter.batches, 1);
        QTest::qWait(400);
        QCOMPARE(counter.batches, 1);
    }

    // Changes anywhere in the tree are reported, in directories there from the
    // start and in ones that come and go.
    void followsDirectoriesThatComeAndGo()
    {
        QTemporaryDir root;
        QTemporaryDir outside;
        QVERIFY(QDir().mkpath(root.filePath("a/b/c")));
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        QCOMPARE(service.watchCount(), 4);
        writeFile(root.filePath("a/b/c/deep.txt"), "x");
        QTRY_COMPARE(counter.batches, 1);
        QVERIFY(QFile::remove(root.filePath("a/b/c/deep.txt")));
        QTRY_COMPARE(counter.batches, 2);

        // Created, with a subdirectory made before the watch could be added.
        QVERIFY(QDir().mkpath(root.filePath("new/inner")));
        QTRY_COMPARE(service.watchCount(), 6);
        QTRY_COMPARE(counter.batches, 3);
        writeFile(root.filePath("new/inner/file.txt"), "x");
        QTRY_COMPARE(counter.batches, 4);

        // Moved within the tree: still watched.
        QVERIFY(QDir().rename(root.filePath("new"), root.filePath("renamed")));
        QTRY_COMPARE(counter.batches, 5);
        QCOMPARE(service.watchCount(), 6);
        writeFile(root.filePath("renamed/inner/again.txt"), "x");
        QTRY_COMPARE(counter.batches, 6);

        // Moved out: no longer watched, and no longer reported.
        QVERIFY(QDir().rename(root.filePath("renamed"), outside.filePath("gone")));
        QTRY_COMPARE(counter.batches, 7);
        QTRY_COMPARE(service.watchCount(), 4);
        writeFile(outside.filePath("gone/inner/elsewhere.txt"), "x");
        QTest::qWait(300);
        QCOMPARE(counter.batches, 7);

        // Moved in, and deleted.
        QVERIFY(QDir().mkpath(outside.filePath("incoming/sub")));
        QVERIFY(QDir().rename(outside.filePath("incoming"), root.filePath("incoming")));
        QTRY_COMPARE(service.watchCount(), 6);
        QVERIFY(QDir(root.filePath("incoming")).removeRecursively());
        QTRY_COMPARE(service.watchCount(), 4);
    }

    // A big tree is walked a slice at a time, between other events; what is
    // made meanwhile is watched too, and reported.
    void walksABigTreeInSlices()
    {
        QTemporaryDir root;
        for (int i = 0; i < 4000; ++i)
            QVERIFY(QDir().mkpath(root.filePath(QStringLiteral("a/d%1").arg(i))));
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        QVERIFY(service.isWalking());
        QVERIFY(service.watchCount() < 4002);
        QVERIFY(QDir().mkpath(root.filePath("late/x/y")));
        writeFile(root.filePath("late/x/y/early.txt"), "x");
        QTRY_VERIFY(!service.isWalking());
        QCOMPARE(service.watchCount(), 4002 + 3);
        QTRY_COMPARE(counter.batches, 1);
        QVERIFY(counter.paths.contains(root.filePath("late")));
        writeFile(root.filePath("a/d0/last.txt"), "x");
        writeFile(root.filePath("late/x/y/after.txt"), "x");
        QTRY_COMPARE(counter.batches, 2);
        QCOMPARE(counter.paths, QStringList({root.filePath("a/d0/last.txt"), root.filePath("late/x/y/after.txt")}));
    }

    // A directory ignored as "dir/" is neither watched nor reported, nor is
    // anything below it; a sibling whose name starts the same still is.
    void ignoredDirectoriesAreNotWatched()
    {
        QTemporaryDir root;
        QVERIFY(QDir().mkpath(root.filePath("Videos/raw")));
        QVERIFY(QDir().mkpath(root.filePath("Videos.old")));
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(root.path(), {root.filePath("Videos") + "/"}, counter.callback());
        QCOMPARE(service.watchCount(), 2); // the root and Videos.old
        writeFile(root.filePath("Videos/raw/take 1.mkv"), "x");
        QVERIFY(QDir().mkpath(root.filePath("Videos/new")));
        QTest::qWait(300);
        QCOMPARE(counter.batches, 0);
        QCOMPARE(service.watchCount(), 2);
        writeFile(root.filePath("Videos.old/a.mkv"), "x");
        QTRY_COMPARE(counter.batches, 1);
        QCOMPARE(counter.paths, QStringList{root.filePath("Videos.old/a.mkv")}); // what changed, named
        writeFile(root.filePath("notes.txt"), "x");
        QTRY_COMPARE(counter.batches, 2);
    }

    void overlappingTreesShareWatches()
    {
        QTemporaryDir root;
        QVERIFY(QDir().mkpath(root.filePath("inner")));
        InotifyFileEventService service(kLatency);
        Counter outer, inner;
        auto outerWatch = service.watch(root.path(), {}, outer.callback());
        auto innerWatch = service.watch(root.filePath("inner"), {}, inner.callback());
        const auto missing = service.watch(QStringLiteral("/nonexistent/folder"), {}, outer.callback());
        QVERIFY(missing); // no problem, and nothing watched
        QCOMPARE(service.watchCount(), 2);

        writeFile(root.filePath("inner/both.txt"), "x");
        QTRY_COMPARE(outer.batches, 1);
        QTRY_COMPARE(inner.batches, 1);

        outerWatch.reset();
        QCOMPARE(service.watchCount(), 1);
        writeFile(root.filePath("inner/still.txt"), "x");
        QTRY_COMPARE(inner.batches, 2);
        QCOMPARE(outer.batches, 1);
        innerWatch.reset();
        QCOMPARE(service.watchCount(), 0);
    }

    void keepsWhatItHasAtTheWatchLimit()
    {
        QTemporaryDir root;
        for (int i = 0; i < 10; ++i)
            QVERIFY(QDir().mkpath(root.filePath(QStringLiteral("d%1").arg(i))));
        InotifyFileEventService service(kLatency, 5);
        LogCapture log;
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        QCOMPARE(service.watchCount(), 5);
        QCOMPARE(log.count("Cannot watch all of " + root.path()), 1);

        // A new directory cannot be watched either; the limit is not logged again.
        QVERIFY(QDir().mkpath(root.filePath("more")));
        QTRY_COMPARE(counter.batches, 1);
        QCOMPARE(service.watchCount(), 5);
        QCOMPARE(log.count("Cannot watch all of"), 1);
    }
};

QTEST_GUILESS_MAIN(TestInotifyFileEventService)
#include "tst_inotifyfileeventservice.moc"
