// What the kept files of a folder ("Recently Removed") may touch: only what
// lies inside the folder or inside its kept-files directory, whatever a
// remote's listing names, and never through a symbolic link.
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "model/RelativePath.h"
#include "platform/MemorySettingsStore.h"
#include "support/TestFiles.h"
#include "sync/RecentlyRemoved.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"

#include <QTemporaryDir>
#include <QTest>

class TestKeptFiles : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(".local/share")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(".config")));
    }

    // Relative paths from outside: the segments and characters that lead
    // out of a folder, or forge a line, are refused.
    void relativePaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("safe");
        QTest::newRow("plain") << "a/b c/é 🏖.txt" << true;
        QTest::newRow("dots in names") << "..hidden/a..b/.x" << true;
        QTest::newRow("absolute") << "/home/ann/.ssh/id_rsa" << false;
        QTest::newRow("climbing") << "a/../../b" << false;
        QTest::newRow("a dot segment") << "a/./b" << false;
        QTest::newRow("empty segment") << "a//b" << false;
        QTest::newRow("trailing slash") << "a/" << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("line break") << "a\n2026/11/22 NOTICE: x" << false;
        QTest::newRow("terminal escape") << "a\x1b]0;title\x07" << false;
        QTest::newRow("C1 control") << QString("a") + QChar(0x9b) + "31m" << false;
    }
    void relativePaths()
    {
        QFETCH(QString, path);
        QFETCH(bool, safe);
        QCOMPARE(RelativePath::isSafe(path), safe);
        const QString root = m_home.filePath("root");
        QDir().mkpath(root);
        QCOMPARE(RelativePath::inside(root, path).has_value(), safe);
    }

    void linksLeadOut()
    {
        const QString root = m_home.filePath("linked");
        QDir().mkpath(root + "/real");
        QVERIFY(QFile::link(m_home.path(), root + "/out"));
        QCOMPARE(RelativePath::inside(root, "real/new/deeper.txt"), root + "/real/new/deeper.txt");
        QCOMPARE(RelativePath::inside(root, "out/x.txt"), std::nullopt);
        QCOMPARE(RelativePath::inside(root, "out/new/x.txt"), std::nullopt);
        QCOMPARE(RelativePath::inside(m_home.filePath("missing"), "x.txt"), std::nullopt);
    }

    // A remote's listing of kept files: a name that leads out of its run's
    // directory is no kept file (and restoring it would write elsewhere).
    void remoteListing()
    {
        const RemoteTarget target{QUuid::createUuid(), "backup", "Docs", true};
        // As rclone prints it: a line each.
        const QByteArrayList lines{"[",
                                   "{\"Path\":\"2026-11-23T10-00-00/a.txt\",\"Size\":3},",
                                   "{\"Path\":\"2026-11-23T10-00-00/../../../.bashrc\",\"Size\":1},",
                                   "{\"Path\":\"2026-11-23T10-00-00//etc/passwd\",\"Size\":1},",
                                   "{\"Path\":\"2026-11-23T10-00-00/x\\n2026/11/22 y\",\"Size\":1},",
                                   "{\"Path\":\"not-a-run/b.txt\",\"Size\":1}",
                                   "]"};
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Ignoring a kept file whose path leads elsewhere"));
        RemovedFiles::ListingReader reader(target);
        for (const QByteArray &line : lines)
            reader.addLine(line);
        const auto files = reader.files();
        QVERIFY(files);
        QCOMPARE(files->size(), 1);
        QCOMPARE(files->first().path, "a.txt");
    }

    // A listing cut short (a killed rclone, a dropped line) is no listing.
    void listingNotWhole_data()
    {
        QTest::addColumn<QByteArrayList>("lines");
        const QByteArray entry = "{\"Path\":\"2026-11-23T10-00-00/a.txt\",\"Size\":3}";
        QTest::newRow("no end") << QByteArrayList{"[", entry + ","};
        QTest::newRow("a torn line") << QByteArrayList{"[", entry.left(20), "]"};
        QTest::newRow("no start") << QByteArrayList{entry, "]"};
        QTest::newRow("something after the end") << QByteArrayList{"[", "]", "["};
    }
    void listingNotWhole()
    {
        QFETCH(QByteArrayList, lines);
        RemovedFiles::ListingReader reader({QUuid::createUuid(), "backup", "", true});
        for (const QByteArray &line : lines)
            reader.addLine(line);
        QCOMPARE(reader.files(), std::nullopt);
    }

    // Pruning and emptying remove links as links, never what they point to.
    void pruningNeverFollowsALink()
    {
        const QUuid id = QUuid::createUuid();
        const QString kept = RemovedFiles::localDirectory(id);
        const QString precious = m_home.filePath("precious");
        writeFile(precious + "/keep.txt", "mine");
        writeFile(kept + "/2026-01-01T00-00-00/old.txt", "old");
        QVERIFY(QFile::link(precious, kept + "/2026-01-02T00-00-00"));
        QVERIFY(QFile::link(precious, kept + "/2026-01-01T00-00-00/inner"));
        RemovedFiles::pruneLocal(id, QDateTime(QDate(2026, 6, 1), QTime(0, 0), Qt::UTC));
        QVERIFY(!QFileInfo::exists(kept + "/2026-01-01T00-00-00"));
        QCOMPARE(readFile(precious + "/keep.txt"), "mine");
        QVERIFY(RemovedFiles::listLocal(id).isEmpty()); // a linked run is not listed either

        // The folder's whole kept-files directory as a link.
        QVERIFY(QDir(kept).removeRecursively());
        QVERIFY(QFile::link(precious, kept));
        QVERIFY(RemovedFiles::removeTree(kept));
        QVERIFY(!QFileInfo(kept).isSymLink());
        QCOMPARE(readFile(precious + "/keep.txt"), "mine");
    }

    // A file is put back only into the folder as it is: a folder that is
    // gone (an unmounted drive's mount point) is not made anew for it.
    void restoringIntoAMissingFolder()
    {
        MemorySettingsStore settings;
        FakeFileEventService fileEvents;
        RcloneEngine engine(QStringLiteral("/nonexistent/rclone")); // nothing here runs rclone
        SyncManager manager({settings, engine, fileEvents, {}, &QDateTime::currentDateTimeUtc, 2, false});
        SyncFolder folder;
        folder.name = "Drive";
        folder.localPath = m_home.filePath("mnt/drive/Docs");
        manager.addFolder(folder);
        const RemovedFiles::File file{QUuid(), "2026-11-23T10-00-00", "sub/a.txt", 1, QDateTime::currentDateTimeUtc()};
        writeFile(RemovedFiles::localFile(folder.id, file), "a");
        const RemovedFiles::File climbing{QUuid(), "2026-11-23T10-00-00", "../../a.txt", 1, file.removed};

        for (const auto &[restored, error] : {std::pair{file, "Local folder not found: " + folder.localPath},
                                              std::pair{climbing, QString("“a.txt” is not among the removed files.")}}) {
            QString said;
            manager.recentlyRemoved().restore(folder.id, restored, true, &manager,
                                              [&said](RecentlyRemoved::Outcome, const QString &e) { said = e; });
            QCOMPARE(said, error);
        }
        QVERIFY(!QFileInfo::exists(m_home.filePath("mnt/drive")));
        QCOMPARE(readFile(RemovedFiles::localFile(folder.id, file)), "a");
    }

    // Runs of a folder are kept apart by the second their directories are
    // named by: a failed resync and its retry within one second once shared
    // one, and the retry's move replaced what the first had kept there.
    void runsOfOneSecondKeepApart()
    {
        MemorySettingsStore settings;
        FakeFileEventService fileEvents;
        RcloneEngine engine(QStringLiteral("/nonexistent/rclone"));
        const QDateTime now = QDateTime::fromString("2026-11-24T09:44:02.400Z", Qt::ISODateWithMs);
        SyncManager manager({settings, engine, fileEvents, {}, [now] { return now; }, 2, false});
        SyncFolder one, other;
        one.name = "One", other.name = "Other";
        manager.addFolder(one);
        manager.addFolder(other);
        QStringList runs;
        for (const QUuid &id : {one.id, one.id, other.id, one.id})
            runs << RemovedFiles::runDirectory(manager.recentlyRemoved().nextRunStart(id));
        QCOMPARE(runs, (QStringList{"2026-11-24T09-44-02", "2026-11-24T09-44-03", "2026-11-24T09-44-02",
                                    "2026-11-24T09-44-04"}));
    }
};

QTEST_GUILESS_MAIN(TestKeptFiles)
#include "tst_keptfiles.moc"
