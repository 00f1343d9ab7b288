// What syncs, chosen and changed, with the real rclone against a local
// (alias) remote and rclone's own WebDAV server: skipped directories, ignore
// rules and the switches, and one-way folders. A changed choice never costs
// a file on either side.
#include "engine/RcloneEngine.h"
#include "sync/ActivityLog.h"
#include "model/FilterRules.h"
#include "platform/InotifyFileEventService.h"
#include "platform/MemorySettingsStore.h"
#include "support/RcloneSandbox.h"
#include "support/TestFiles.h"
#include "sync/FileStates.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "sync/SyncReview.h"

#include <QDirIterator>
#include <QProcess>
#include <QSignalSpy>

namespace {

void setAge(const QString &path, int seconds)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(-seconds), QFileDevice::FileModificationTime));
}

// Every file under `root` with its contents, the kept files' directory left out.
QMap<QString, QByteArray> tree(const QString &root)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = QDir(root).relativeFilePath(it.next());
        if (!path.startsWith(RemovedFiles::kDirectoryName))
            files.insert(path, readFile(it.filePath()));
    }
    return files;
}

// One folder with one target, and what it takes to run it.
struct World
{
    RcloneSandbox sandbox;
    QString remote; // the target's directory on disk
    QString local;
    MemorySettingsStore settings;
    RcloneEngine engine{RcloneSandbox::rclone()};
    InotifyFileEventService fileEvents;
    std::unique_ptr<SyncManager> manager;
    SyncFolder folder;

    explicit World(const QString &kind)
    {
        const QString served = sandbox.makeDirectory("remote");
        if (kind == u"webdav")
            sandbox.addWebDav("backup", served);
        else
            sandbox.addAlias("backup", served);
        remote = served + "/Docs";
        QDir().mkpath(remote);
        local = sandbox.makeDirectory("Docs");
        manager = std::make_unique<SyncManager>(
            SyncEnvironment{settings, engine, fileEvents, {}, &QDateTime::currentDateTimeUtc, 2, false});
        folder.name = "Docs";
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false}};
    }

    void add() { manager->addFolder(folder); }

    // Runs the folder once; its problems afterwards (none: it succeeded).
    QList<SyncProblem> sync()
    {
        QSignalSpy completed(manager.get(), &SyncManager::runCompleted);
        if (!manager->syncFolder(folder.id) || !completed.wait(60000))
            qWarning("the run did not complete");
        return manager->problems(folder.id);
    }

    void select(const std::function<void(FolderSelection &)> &change)
    {
        FolderSelection selection = manager->selection(folder.id);
        change(selection);
        manager->setSelection(folder.id, selection);
    }
};

} // namespace

class TestSelection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The rules as the runs pass them (merged) leave out exactly what each
    // rule alone would, files and directories, as the real rclone lists them.
    // The program's own reading of the exclusions leaves out exactly the
    // files the real rclone leaves out.
    void rulesReadAsRcloneReadsThem_data()
    {
        QTest::addColumn<QStringList>("rules");
        QTest::newRow("the switches") << QStringList{".git/**", ".*/**", "**/.*", "node_modules/**"};
        QTest::newRow("skipped, escaped") << QStringList{"/space dir/**", "/a\\[1\\]/**", "/notes/deep/**"};
        QTest::newRow("ignore rules") << QStringList{"*.tmp", "/build/**", "**/.cache/**", "/out", "logs/", "?.log",
                                                     "[ab]*.md", "sub/*.txt", "**/er/**", "Été/*"};
        QTest::newRow("merged") << QStringList{"{*.tmp,**/.cache/**,?.log}", "/{build/**,out}"};
    }

    void rulesReadAsRcloneReadsThem()
    {
        QFETCH(QStringList, rules);
        RcloneSandbox sandbox;
        const QString root = sandbox.makeDirectory("tree");
        const QStringList files{"a.tmp", "b.txt", "sub/c.tmp", "sub/.cache/x", ".cache/y", "build/z", "sub/build/keep",
                                "out", "sub/out", "Été/ü.tmp", "Été/deeper/v", "logs/l.txt", "sub/logs/m.txt", "a.log",
                                "cc.log", "a.md", "b.md", "c.md", "sub/a.md", "sub/t.txt", "sub/deep/t.txt",
                                "notes/deep/er/file.md", "notes/file.md", "space dir/f g.txt", "a[1]/x", "a1/x",
                                ".git/config", "src/.git/HEAD", ".hidden", "src/.env", "node_modules/p/i.js",
                                "web/node_modules/q.js", "x.tmp/inside"};
        for (const QString &file : files)
            writeFile(root + "/" + file, "x");
        QStringList arguments;
        for (const QString &rule : rules)
            arguments << "--exclude" << rule;
        QProcess rclone;
        rclone.start(RcloneSandbox::rclone(), QStringList{"lsf", "-R", "--files-only", root} + arguments);
        rclone.waitForFinished();
        QStringList listed = QString::fromUtf8(rclone.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        listed.sort();
        const FilterRules read = FilterRules::fromArguments(arguments);
        QStringList kept;
        for (const QString &file : files) {
            if (!read.excludes(file))
                kept.append(file);
        }
        kept.sort();
        QVERIFY(listed.size() < files.size());
        QCOMPARE(kept, listed);
    }

    void mergedRulesMatchTheSameFiles_data()
    {
        QTest::addColumn<QStringList>("rules");
        QTest::newRow("of every kind") << QStringList{"*.tmp", "/build/**", "**/.cache/**", "/out", "{a,b}.log", "logs/",
                                                      "x\\*", "/notes/*/er/**", "?.log"};
        // Without a "**" among them, a merged rule would be no directory rule.
        QTest::newRow("a directory rule among file rules") << QStringList{"*.tmp", "logs/", "?.log", "/out", "/build/"};
    }

    void mergedRulesMatchTheSameFiles()
    {
        QFETCH(QStringList, rules);
        RcloneSandbox sandbox;
        const QString root = sandbox.makeDirectory("tree");
        for (const char *path : {"a.tmp", "b.txt", "sub/c.tmp", "sub/.cache/x", ".cache/y", "build/z", "sub/build/keep",
                                 "out", "sub/out", "Été/ü.tmp", "logs/l.txt", "sub/logs/m.txt", "a.log", "c.log",
                                 "x*", "x1", "notes/deep/er/file.md", "notes/file.md", "space dir/f g.txt"})
            writeFile(root + "/" + path, "x");
        const FolderSelection selection{{"space dir"}, rules, {}};
        const auto listing = [&](const QStringList &filters) {
            QProcess rclone;
            rclone.start(RcloneSandbox::rclone(), QStringList{"lsf", "-R", root} + filters);
            rclone.waitForFinished();
            QStringList lines = QString::fromUtf8(rclone.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
            lines.sort();
            return lines;
        };
        QStringList separate;
        for (const QString &directory : selection.skipped)
            separate << "--exclude" << "/" + directory + "/**";
        for (const QString &rule : selection.ignore)
            separate << "--exclude" << rule;
        QVERIFY(selection.filterArguments() != separate);
        const QStringList expected = listing(separate);
        QVERIFY(expected.contains("b.txt") && !expected.contains("a.tmp") && expected.contains("sub/build/keep")
                && !expected.contains("logs/l.txt"));
        QCOMPARE(listing(selection.filterArguments()), expected);
    }

    // Most of the folder's files lie in what is left out, so bisync finds
    // most of its listing gone: nothing is deleted anywhere all the same.
    // While left out, files change on either side; taken back in, the newer
    // copy of each arrives, and two that differ are both kept, even under a
    // policy that would delete the loser.
    void changedChoiceLosesNothing_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("change");
        QTest::newRow("skipped directory") << "local" << "skip";
        QTest::newRow("skipped directory, WebDAV") << "webdav" << "skip";
        QTest::newRow("ignore rule") << "local" << "ignore";
        QTest::newRow("hidden files switch, WebDAV") << "webdav" << "hidden";
    }

    void changedChoiceLosesNothing()
    {
        QFETCH(QString, kind);
        QFETCH(QString, change);
        World world(kind);
        const QString dir = change == u"hidden" ? ".cache" : "Videos";
        for (const char *name : {"a.txt", "b.txt", "c.txt"})
            writeFile(world.local + "/" + name, name);
        for (const char *name : {"s1", "s2", "s3", "s4", "s5", "s6"}) {
            writeFile(world.local + "/" + dir + "/" + name, name);
            setAge(world.local + "/" + dir + "/" + name, 7200); // edits below are newer, also to the second
        }
        world.folder.conflictResolution = ConflictResolution::newerWins;
        world.folder.filters.excludeHidden = false;
        world.add();
        QCOMPARE(world.sync(), {});
        const auto leaveOut = [&](bool out) {
            if (change == u"hidden") {
                SyncFolder edited = *world.manager->folder(world.folder.id);
                edited.filters.excludeHidden = out;
                world.manager->updateFolder(edited);
            } else {
                world.select([&](FolderSelection &selection) {
                    (change == u"skip" ? selection.skipped : selection.ignore) =
                        out ? QStringList{change == u"skip" ? dir : "/" + dir + "/**"} : QStringList();
                });
            }
        };

        leaveOut(true);
        QCOMPARE(world.sync(), {});
        const QMap<QString, QByteArray> everything = tree(world.local);
        QCOMPARE(everything.size(), 9);
        QCOMPARE(tree(world.remote), everything);

        // Changed while left out: newer there, newer here, and one on both sides.
        writeFile(world.remote + "/" + dir + "/s1", "edited there");
        writeFile(world.local + "/" + dir + "/s2", "edited here");
        setAge(world.local + "/" + dir + "/s3", 3600);
        writeFile(world.local + "/" + dir + "/s3", "older edit here");
        setAge(world.local + "/" + dir + "/s3", 3600);
        writeFile(world.remote + "/" + dir + "/s3", "newer edit there");
        writeFile(world.local + "/a.txt", "still syncs");
        QCOMPARE(world.sync(), {});
        QCOMPARE(readFile(world.remote + "/a.txt"), "still syncs");
        QCOMPARE(readFile(world.remote + "/" + dir + "/s2"), "s2");

        leaveOut(false);
        QCOMPARE(world.sync(), {});
        const QMap<QString, QByteArray> local = tree(world.local);
        QCOMPARE(tree(world.remote), local);
        QCOMPARE(local.value(dir + "/s1"), "edited there");
        QCOMPARE(local.value(dir + "/s2"), "edited here");
        QCOMPARE(local.value(dir + "/s3"), "newer edit there");
        // The older copies of the differing files are kept beside them.
        const QList<QByteArray> contents = local.values();
        QVERIFY(contents.contains("older edit here"));
        QVERIFY(contents.contains("s1"));
        QVERIFY(contents.contains("s2"));
        QCOMPARE(local.value(dir + "/s4"), "s4");
        // The next change of what syncs is again the only one that gets this care.
        QVERIFY(!world.manager->preferences().followsSelectionChange(world.folder.id, world.folder.remoteTargets[0].id));
    }

    // What a file manager shows, through runs with the real rclone and real
    // file events: pending before the first run and syncing during it;
    // pending after an edit here, syncing while a run carries
    // it, synced after; excluded in a skipped directory; conflict for both
    // copies of a conflict (and the directory that holds them); error after
    // a failed run; paused.
    void fileStatesThroughRuns()
    {
        RcloneSandbox sandbox;
        sandbox.addAlias("backup", sandbox.makeDirectory("remote"));
        const QString remote = sandbox.root() + "/remote/Docs";
        const QString local = sandbox.makeDirectory("Docs");
        writeFile(local + "/a.txt", "a");
        writeFile(local + "/sub/b.txt", "b");
        writeFile(local + "/Videos/v.mkv", "v");
        MemorySettingsStore settings;
        settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
        RcloneEngine engine(RcloneSandbox::rclone());
        InotifyFileEventService fileEvents;
        ActivityLog activity(sandbox.makeDirectory("share") + "/activity.jsonl");
        // Changes wait for the test: the watcher starts no run by itself.
        SyncManager manager({settings, engine, fileEvents, {std::chrono::hours(1), std::chrono::hours(1), std::chrono::hours(1)},
                             &QDateTime::currentDateTimeUtc, 2, true, &activity});
        SyncFolder folder;
        folder.name = "Docs";
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), "backup", "Docs", false}};
        manager.addFolder(folder);
        manager.setSelection(folder.id, {{"Videos"}, {}, {}});
        const auto state = [&](const QString &path) {
            const FileStates::Answer answer = FileStates::of(manager, {local + (path.isEmpty() ? "" : "/" + path)}).first();
            return answer.state ? FileStates::name(*answer.state) : QString("none");
        };
        const auto run = [&] {
            QSignalSpy completed(&manager, &SyncManager::runCompleted);
            QVERIFY(manager.syncFolder(folder.id));
            QVERIFY(completed.wait(60000));
        };
        // Before the folder's first run all of it waits; during it, all of it syncs.
        QCOMPARE(state("sub/b.txt"), "pending");
        QCOMPARE(state("Videos"), "excluded");
        {
            QSignalSpy first(&manager, &SyncManager::runCompleted);
            QVERIFY(manager.syncFolder(folder.id));
            QCOMPARE(state("sub/b.txt"), "syncing");
            QVERIFY(first.wait(60000));
        }
        QCOMPARE(state("a.txt"), "synced");
        QCOMPARE(state("Videos/v.mkv"), "excluded");
        QCOMPARE(state("Videos"), "excluded");
        QCOMPARE(FileStates::of(manager, {sandbox.root() + "/elsewhere"}).first().state, std::nullopt);

        writeFile(local + "/a.txt", "edited");
        QTRY_COMPARE(state("a.txt"), "pending");
        QCOMPARE(state(""), "pending");
        QCOMPARE(state("sub"), "synced");
        QSignalSpy completed(&manager, &SyncManager::runCompleted);
        QVERIFY(manager.syncFolder(folder.id));
        QCOMPARE(state("a.txt"), "syncing");
        QCOMPARE(state("sub/b.txt"), "synced");
        QVERIFY(completed.wait(60000));
        QCOMPARE(state("a.txt"), "synced");

        writeFile(local + "/sub/b.txt", "here");
        setAge(local + "/sub/b.txt", 60);
        writeFile(remote + "/sub/b.txt", "there");
        run();
        QVERIFY(QFile::exists(local + "/sub/b.txt.conflict1"));
        QCOMPARE(state("sub/b.txt"), "conflict");
        QCOMPARE(state("sub/b.txt.conflict1"), "conflict");
        QCOMPARE(state("sub"), "conflict");
        QCOMPARE(state("a.txt"), "synced");

        manager.automatic().setPaused(folder.id, true);
        QCOMPARE(state("a.txt"), "paused");
        SyncFolder broken = *manager.folder(folder.id);
        broken.remoteTargets[0].remoteName = "gone";
        manager.updateFolder(broken);
        run();
        QCOMPARE(state("a.txt"), "error");
        QCOMPARE(state("Videos"), "excluded");
    }

    // *.tmp files stay on the side they were made on, both ways.
    void ignoreRuleKeepsFilesOnTheirSide_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("local") << "local";
        QTest::newRow("WebDAV") << "webdav";
    }

    void ignoreRuleKeepsFilesOnTheirSide()
    {
        QFETCH(QString, kind);
        World world(kind);
        writeFile(world.local + "/report.txt", "report");
        writeFile(world.local + "/draft.tmp", "here");
        writeFile(world.local + "/build/cache.tmp", "here");
        writeFile(world.remote + "/upload.tmp", "there");
        world.add();
        world.select([](FolderSelection &selection) { selection.ignore = {"*.tmp"}; });
        QCOMPARE(world.sync(), {});
        writeFile(world.local + "/later.tmp", "here");
        QCOMPARE(world.sync(), {});
        QCOMPARE(tree(world.remote), (QMap<QString, QByteArray>{{"report.txt", "report"}, {"upload.tmp", "there"}}));
        QCOMPARE(tree(world.local).keys(), (QStringList{"build/cache.tmp", "draft.tmp", "later.tmp", "report.txt"}));
    }

    // Upload only: the remote follows this computer, also where it was
    // changed itself; what a run removes or replaces there is kept.
    void uploadOnlyMakesTheRemoteEqual_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("local") << "local";
        QTest::newRow("WebDAV") << "webdav";
    }

    void uploadOnlyMakesTheRemoteEqual()
    {
        QFETCH(QString, kind);
        World world(kind);
        for (const char *name : {"a.txt", "b.txt", "c.txt", "d/e.txt"})
            writeFile(world.local + "/" + name, name);
        world.add();
        world.manager->preferences().setKeepsRemoved(world.folder.id, true);
        world.select([](FolderSelection &selection) { selection.direction = SyncDirection::upload; });
        QCOMPARE(world.sync(), {});
        QCOMPARE(tree(world.remote), tree(world.local));

        writeFile(world.remote + "/a.txt", "changed there");
        writeFile(world.remote + "/only there.txt", "there");
        QFile::remove(world.local + "/b.txt");
        writeFile(world.local + "/new.txt", "new here");
        QCOMPARE(world.sync(), {});
        QCOMPARE(tree(world.remote), tree(world.local));
        QCOMPARE(readFile(world.remote + "/a.txt"), "a.txt");
        QStringList kept;
        QDirIterator it(world.remote + "/" + RemovedFiles::kDirectoryName, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            kept.append(readFile(it.next()));
        kept.sort();
        QCOMPARE(kept, (QStringList{"b.txt", "changed there", "there"}));
        QCOMPARE(tree(world.local).value("a.txt"), "a.txt"); // nothing came down
    }

    // Download only from an empty or missing remote deletes nothing here.
    // A one-way run that would delete most of its destination stops before
    // deleting, and the review carries it out.
    void oneWayStopsBeforeLosingFiles_data()
    {
        QTest::addColumn<QString>("case_");
        QTest::newRow("empty remote") << "empty";
        QTest::newRow("missing remote") << "missing";
        QTest::newRow("most deleted, then reviewed") << "most";
    }

    void oneWayStopsBeforeLosingFiles()
    {
        QFETCH(QString, case_);
        World world("local");
        for (const char *name : {"a.txt", "b.txt", "c.txt", "d.txt"})
            writeFile(world.local + "/" + name, name);
        if (case_ == u"missing")
            QDir(world.remote).removeRecursively();
        world.add();
        const QMap<QString, QByteArray> before = tree(world.local);
        if (case_ != u"most") {
            world.select([](FolderSelection &selection) { selection.direction = SyncDirection::download; });
            const QList<SyncProblem> problems = world.sync();
            QCOMPARE(problems.size(), 1);
            QCOMPARE(problems[0].kind, SyncProblem::Kind::sourceEmpty);
            QCOMPARE(problems[0].side, SyncProblem::Side::remote);
            QCOMPARE(tree(world.local), before);
            return;
        }
        world.select([](FolderSelection &selection) { selection.direction = SyncDirection::upload; });
        QCOMPARE(world.sync(), {});
        for (const char *name : {"a.txt", "b.txt", "c.txt"})
            QFile::remove(world.local + "/" + name);
        const QList<SyncProblem> problems = world.sync();
        QCOMPARE(problems.size(), 1);
        QCOMPARE(problems[0].kind, SyncProblem::Kind::tooManyDeletes);
        QCOMPARE(problems[0].sentence(), "Stopped before deleting 3 of 4 files on backup:Docs. Review them before "
                                         "anything is deleted.");
        QCOMPARE(tree(world.remote), before);

        SyncReview review(*world.manager, world.engine);
        QVERIFY(review.preview(world.folder.id, world.folder.remoteTargets[0].id, SyncReview::Kind::deletions));
        QTRY_COMPARE_WITH_TIMEOUT(review.state(), SyncReview::State::ready, 60000);
        QCOMPARE(review.changes().size(), 3);
        QCOMPARE(review.changes()[0].group, BisyncPlan::Group::deletedRemote);
        QSignalSpy completed(world.manager.get(), &SyncManager::runCompleted);
        QVERIFY(review.apply());
        QVERIFY(completed.wait(60000));
        QCOMPARE(world.manager->problems(world.folder.id), {});
        QCOMPARE(tree(world.remote), tree(world.local));
    }

    // A folder that synced two ways, turned download only: the first run
    // that would delete or replace anything here waits for a review.
    void changedDirectionWaitsForAReview()
    {
        World world("webdav");
        for (const char *name : {"a.txt", "b.txt", "c.txt"})
            writeFile(world.local + "/" + name, name);
        world.add();
        QCOMPARE(world.sync(), {});
        writeFile(world.local + "/mine.txt", "only here");
        writeFile(world.remote + "/theirs.txt", "only there");
        world.select([](FolderSelection &selection) { selection.direction = SyncDirection::download; });
        const QList<SyncProblem> problems = world.sync();
        QCOMPARE(problems.size(), 1);
        QCOMPARE(problems[0].kind, SyncProblem::Kind::firstOneWay);
        QCOMPARE(problems[0].sentence(), "Download only makes this computer follow backup:Docs: its first sync "
                                         "would delete 1 file here and replace 0. Review them before anything changes.");
        QCOMPARE(readFile(world.local + "/mine.txt"), "only here");
        QCOMPARE(readFile(world.local + "/theirs.txt"), "<missing>");

        SyncReview review(*world.manager, world.engine);
        QVERIFY(review.preview(world.folder.id, world.folder.remoteTargets[0].id, SyncReview::Kind::deletions));
        QTRY_COMPARE_WITH_TIMEOUT(review.state(), SyncReview::State::ready, 60000);
        QSignalSpy completed(world.manager.get(), &SyncManager::runCompleted);
        QVERIFY(review.apply());
        QVERIFY(completed.wait(60000));
        QCOMPARE(world.manager->problems(world.folder.id), {});
        QCOMPARE(tree(world.local), tree(world.remote));
        // From then on it runs by itself.
        writeFile(world.remote + "/more.txt", "more");
        QCOMPARE(world.sync(), {});
        QCOMPARE(readFile(world.local + "/more.txt"), "more");

        // Two ways again, against listings from before the one-way runs:
        // what changed since on either side arrives, and nothing is lost.
        world.select([](FolderSelection &selection) { selection.direction = SyncDirection::twoWay; });
        writeFile(world.local + "/a.txt", "edited here");
        writeFile(world.remote + "/b.txt", "edited there");
        QFile::remove(world.remote + "/c.txt");
        QCOMPARE(world.sync(), {});
        const QMap<QString, QByteArray> local = tree(world.local);
        QCOMPARE(tree(world.remote), local);
        QCOMPARE(local.value("a.txt"), "edited here");
        QCOMPARE(local.value("b.txt"), "edited there");
        QCOMPARE(local.value("theirs.txt"), "only there");
        QVERIFY(!local.contains("c.txt"));
    }
};

QTEST_GUILESS_MAIN(TestSelection)
#include "tst_selection.moc"
