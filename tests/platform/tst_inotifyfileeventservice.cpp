// Watch bookkeeping of the inotify service on real temporary trees.
#include "platform/InotifyFileEventService.h"
#include "support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;

namespace {

void touch(const QString &path, const QByteArray &bytes = "x")
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// Counts the batches a watch delivers.
struct Counter
{
    int batches = 0;
    std::function<void()> callback()
    {
        return [this] { ++batches; };
    }
};

} // namespace

class TestInotifyFileEventService : public QObject
{
    Q_OBJECT

    static constexpr auto kLatency = 100ms;

private Q_SLOTS:
    void reportsChangesAnywhereInTheTree()
    {
        QTemporaryDir root;
        QVERIFY(QDir().mkpath(root.filePath("a/b/c")));
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        QCOMPARE(service.watchCount(), 4);

        touch(root.filePath("a/b/c/deep.txt"));
        QTRY_COMPARE(counter.batches, 1);
        touch(root.filePath("top.txt"));
        QTRY_COMPARE(counter.batches, 2);
        QFile::remove(root.filePath("top.txt"));
        QTRY_COMPARE(counter.batches, 3);
    }

    void aBurstIsOneBatch()
    {
        QTemporaryDir root;
        InotifyFileEventService service(300ms);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        for (int i = 0; i < 50; ++i)
            touch(root.filePath(QStringLiteral("f%1").arg(i)));
        QTest::qWait(150);
        QCOMPARE(counter.batches, 0); // delivered once the latency has passed
        QTRY_COMPARE(counter.batches, 1);
        QTest::qWait(400);
        QCOMPARE(counter.batches, 1);
    }

    void followsDirectoriesThatComeAndGo()
    {
        QTemporaryDir root;
        QTemporaryDir outside;
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(root.path(), {}, counter.callback());
        QCOMPARE(service.watchCount(), 1);

        // Created, with a subdirectory made before the watch could be added.
        QVERIFY(QDir().mkpath(root.filePath("new/inner")));
        QTRY_COMPARE(service.watchCount(), 3);
        QTRY_COMPARE(counter.batches, 1);
        touch(root.filePath("new/inner/file.txt"));
        QTRY_COMPARE(counter.batches, 2);

        // Moved within the tree: still watched.
        QVERIFY(QDir().rename(root.filePath("new"), root.filePath("renamed")));
        QTRY_COMPARE(counter.batches, 3);
        QCOMPARE(service.watchCount(), 3);
        touch(root.filePath("renamed/inner/again.txt"));
        QTRY_COMPARE(counter.batches, 4);

        // Moved out: no longer watched, and no longer reported.
        QVERIFY(QDir().rename(root.filePath("renamed"), outside.filePath("gone")));
        QTRY_COMPARE(counter.batches, 5);
        QTRY_COMPARE(service.watchCount(), 1);
        touch(outside.filePath("gone/inner/elsewhere.txt"));
        QTest::qWait(300);
        QCOMPARE(counter.batches, 5);

        // Moved in, and deleted.
        QVERIFY(QDir().mkpath(outside.filePath("incoming/sub")));
        QVERIFY(QDir().rename(outside.filePath("incoming"), root.filePath("incoming")));
        QTRY_COMPARE(service.watchCount(), 3);
        QVERIFY(QDir(root.filePath("incoming")).removeRecursively());
        QTRY_COMPARE(service.watchCount(), 1);
    }

    void overlappingTreesShareWatches()
    {
        QTemporaryDir root;
        QVERIFY(QDir().mkpath(root.filePath("inner")));
        InotifyFileEventService service(kLatency);
        Counter outer, inner;
        auto outerWatch = service.watch(root.path(), {}, outer.callback());
        auto innerWatch = service.watch(root.filePath("inner"), {}, inner.callback());
        QCOMPARE(service.watchCount(), 2);

        touch(root.filePath("inner/both.txt"));
        QTRY_COMPARE(outer.batches, 1);
        QTRY_COMPARE(inner.batches, 1);

        outerWatch.reset();
        QCOMPARE(service.watchCount(), 1);
        touch(root.filePath("inner/still.txt"));
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

    void missingFolderIsNoProblem()
    {
        InotifyFileEventService service(kLatency);
        Counter counter;
        const auto watch = service.watch(QStringLiteral("/nonexistent/folder"), {}, counter.callback());
        QVERIFY(watch);
        QCOMPARE(service.watchCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestInotifyFileEventService)
#include "tst_inotifyfileeventservice.moc"
