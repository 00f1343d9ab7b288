#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "model/FolderStore.h"
#include "platform/MemorySettingsStore.h"
#include "support/PrivateMounts.h"
#include "support/TestFiles.h"
#include "sync/ActivityLog.h"
#include "sync/SyncManager.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

SyncFolder makeFolder(const QString &name, int targets = 1)
{
    SyncFolder folder;
    folder.name = name;
    folder.localPath = "/home/user/" + name;
    for (int i = 0; i < targets; ++i)
        folder.remoteTargets.append(RemoteTarget{QUuid::createUuid(), "remote" + QString::number(i), name, false});
    return folder;
}

} // namespace

class TestSyncManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QByteArray m_realHome;
    MemorySettingsStore m_settings;
    FakeFileEventService m_fileEvents;
    RcloneEngine m_engine{QStringLiteral("/nonexistent/rclone")}; // nothing here runs rclone
    bool m_privateMounts = false;

    SyncEnvironment environment() { return {m_settings, m_engine, m_fileEvents}; }

    QString storePath() const { return m_home.filePath(".config/rclone/rclone_sync_folders.json"); }

private Q_SLOTS:
    void initTestCase()
    {
        m_privateMounts = PrivateMounts::enter();
        QVERIFY(m_home.isValid());
        m_realHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_home.path()));
    }
    void cleanupTestCase() { qputenv("HOME", m_realHome); }

    void init()
    {
        QDir(m_home.path()).removeRecursively();
        QDir().mkpath(m_home.path());
        m_settings = MemorySettingsStore();
    }

    void settingsDefaults_data()
    {
        QTest::addColumn<QVariant>("storedEnabled");
        QTest::addColumn<QVariant>("storedInterval");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<qint64>("interval");
        QTest::newRow("first launch") << QVariant() << QVariant() << false << qint64(60);
        QTest::newRow("stored zero interval") << QVariant(true) << QVariant(0) << true << qint64(60);
        QTest::newRow("stored values") << QVariant(true) << QVariant(15) << true << qint64(15);
        QTest::newRow("interval not a number") << QVariant(false) << QVariant("soon") << false << qint64(60);
    }
    void settingsDefaults()
    {
        QFETCH(QVariant, storedEnabled);
        QFETCH(QVariant, storedInterval);
        if (storedEnabled.isValid())
            m_settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, storedEnabled);
        if (storedInterval.isValid())
            m_settings.values.insert(AutomaticSync::kGlobalSyncIntervalKey, storedInterval);

        SyncManager manager(environment());
        QFETCH(bool, enabled);
        QFETCH(qint64, interval);
        QCOMPARE(manager.automatic().isGlobalSyncEnabled(), enabled);
        QCOMPARE(manager.automatic().globalSyncIntervalMinutes(), interval);
        QCOMPARE(m_settings.writes, 0); // construction writes nothing back
        QCOMPARE(manager.repository().path(), storePath());
    }

    void settersStoreAndLog()
    {
        SyncManager manager(environment());
        QSignalSpy enabledSpy(&manager.automatic(), &AutomaticSync::isGlobalSyncEnabledChanged);
        QSignalSpy intervalSpy(&manager.automatic(), &AutomaticSync::globalSyncIntervalMinutesChanged);

        QTest::ignoreMessage(QtInfoMsg, "Global sync enabled changed to: true");
        manager.automatic().setGlobalSyncEnabled(true);
        QCOMPARE(m_settings.values.value(AutomaticSync::kGlobalSyncEnabledKey), QVariant(true));
        QCOMPARE(enabledSpy.count(), 1);

        QTest::ignoreMessage(QtInfoMsg, "Global sync enabled changed to: false");
        manager.automatic().setGlobalSyncEnabled(false);

        QTest::ignoreMessage(QtInfoMsg, "Global sync interval changed to: 15");
        manager.automatic().setGlobalSyncIntervalMinutes(15);
        QCOMPARE(manager.automatic().globalSyncIntervalMinutes(), 15);
        QCOMPARE(intervalSpy.count(), 1);

        SyncManager reread(environment()); // what the setters stored
        QCOMPARE(reread.automatic().globalSyncIntervalMinutes(), 15);
        QVERIFY(!reread.automatic().isGlobalSyncEnabled());
    }

    // Nothing is written before the first folder comes. An edit keeps what the
    // folder's run shows. A new manager loads what was saved, except that a
    // folder saved mid-run by a program that then ended is no longer syncing.
    void savesUpdatesAndLoads()
    {
        QList<SyncFolder> saved;
        for (const char *name : {"A", "B", "C"})
            saved.append(makeFolder(name, 2));
        SyncFolder &running = saved[1];
        running.status = SyncStatus::syncing;
        running.remoteTargets[1].hasResynced = true;
        running.progress = 0.3;
        running.currentTargetIndex = 1;
        running.transferredSize = "1 MiB / 2 MiB";
        running.transferredFiles = "1 / 2";
        running.transferSpeed = "1 MiB/s";
        running.lastSync = QDateTime::currentDateTimeUtc().addDays(-1);
        running.lastError = "kept";
        {
            SyncManager manager(environment());
            QVERIFY(manager.folders().isEmpty());
            QSignalSpy changed(&manager.repository(), &FolderRepository::folderChanged);
            manager.updateFolder(makeFolder("Ghost")); // unknown: nothing changes
            QVERIFY(manager.folders().isEmpty());
            QVERIFY(changed.isEmpty());
            QVERIFY(!QFileInfo::exists(storePath()));

            QSignalSpy inserted(&manager.repository(), &FolderRepository::folderInserted);
            for (const SyncFolder &folder : std::as_const(saved))
                manager.addFolder(folder);
            QCOMPARE(inserted.count(), 3);
            for (int row = 0; row < 3; ++row)
                QCOMPARE(inserted.at(row).at(0).value<qsizetype>(), row);
            QCOMPARE(readFile(storePath()), FolderStore::encode(saved).value());
            // Only the store is left behind: no temporary file, no aside copy.
            QCOMPARE(QDir(QFileInfo(storePath()).path()).entryList(QDir::Files), QStringList{"rclone_sync_folders.json"});

            SyncFolder edited = makeFolder("Renamed", 1); // what the editor held of the run is ignored
            edited.id = running.id;
            edited.remoteTargets.prepend(running.remoteTargets[1]);
            edited.remoteTargets[0].hasResynced = false; // as the editor saw it before the first sync ended
            edited.localPath = "/elsewhere";
            edited.filters = {false, true, false};
            edited.conflictResolution = ConflictResolution::localWins;
            edited.periodicIntervalMinutes = 5;
            edited.localPathBookmarkData = QByteArray("bm");
            manager.updateFolder(edited);
            QCOMPARE(changed.count(), 1);
            QCOMPARE(changed.at(0).at(0).value<qsizetype>(), 1);

            SyncFolder expected = edited;
            expected.status = running.status;
            expected.progress = running.progress;
            expected.currentTargetIndex = running.currentTargetIndex;
            expected.transferredSize = running.transferredSize;
            expected.transferredFiles = running.transferredFiles;
            expected.transferSpeed = running.transferSpeed;
            expected.lastSync = running.lastSync;
            expected.lastError = running.lastError;
            expected.remoteTargets[0].hasResynced = true; // the run's bookkeeping stays; the new target is the editor's
            QCOMPARE(manager.folders().value(1), expected);
            running = expected;
            QCOMPARE(FolderStore::decode(readFile(storePath())), saved);
        }
        running.status = SyncStatus::idle;
        running.progress = 0;
        running.currentTargetIndex.reset();
        running.transferredSize.reset();
        running.transferredFiles.reset();
        running.transferSpeed.reset();
        SyncManager reloaded(environment());
        QCOMPARE(reloaded.folders(), saved);
    }

    // A store that reads but cannot be used (each reason is in
    // tst_folderstore) is left as it is until the user changes something,
    // then set aside under a name never used before: no earlier copy, and no
    // copy a newer version may still read, is ever replaced.
    void undecodableStoreIsSetAside_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray good = FolderStore::encode({makeFolder("A"), makeFolder("B")}).value();
        QTest::newRow("truncated") << good.left(good.size() - 10);
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("written by a newer version") << QByteArray(good).replace("\"keepBoth\"", "\"askMe\"");

        QByteArray garbage(50 * 1024 * 1024, Qt::Uninitialized);
        QRandomGenerator generator(42);
        generator.fillRange(reinterpret_cast<quint32 *>(garbage.data()), garbage.size() / 4);
        QTest::newRow("50 MB of garbage") << garbage;
    }
    void undecodableStoreIsSetAside()
    {
        QFETCH(QByteArray, bytes);
        writeFile(storePath(), bytes);
        writeFile(storePath() + ".unreadable", "an older copy");
        const auto asides = [this] {
            return QDir(QFileInfo(storePath()).path()).entryList({"rclone_sync_folders.json.unreadable*"}, QDir::Files,
                                                                 QDir::Name);
        };

        {
            SyncManager manager(environment());
            QVERIFY(manager.folders().isEmpty());
            QVERIFY(manager.repository().problem().contains("cannot be used"));
            manager.repository().save(); // what quitting does
        }
        QCOMPARE(readFile(storePath()), bytes); // starting and quitting change nothing
        QCOMPARE(asides(), QStringList{"rclone_sync_folders.json.unreadable"});

        for (int start = 0; start < 2; ++start) {
            writeFile(storePath(), bytes);
            SyncManager manager(environment());
            const SyncFolder folder = makeFolder("New");
            manager.addFolder(folder);
            QCOMPARE(manager.repository().problem(), QString());
            QCOMPARE(FolderStore::decode(readFile(storePath())), QList<SyncFolder>{folder});
            manager.addFolder(makeFolder("Second")); // later saves leave the copy alone
        }
        // Two copies of their own, even within one second, and the older one kept.
        const QStringList names = asides();
        QCOMPARE(names.size(), 3);
        QCOMPARE(readFile(storePath() + ".unreadable"), "an older copy");
        QCOMPARE(readFile(QFileInfo(storePath()).path() + "/" + names.at(1)), bytes);
        QCOMPARE(readFile(QFileInfo(storePath()).path() + "/" + names.at(2)), bytes);
    }

    // A store that exists but cannot be read now (here a directory; EACCES,
    // EIO or a network home that hiccups alike) is never written over, also
    // not by quitting: the folders added meanwhile wait, and join the stored
    // ones once the store reads again.
    void storeThatCannotBeReadIsNeverWritten()
    {
        QVERIFY(QDir().mkpath(storePath()));
        SyncEnvironment quickRetry = environment();
        quickRetry.timings.storeRetry = std::chrono::milliseconds(50);
        SyncManager manager(quickRetry);
        QVERIFY(manager.folders().isEmpty());
        QVERIFY(manager.repository().problem().contains("could not be read"));
        const SyncFolder added = makeFolder("Added");
        manager.addFolder(added);
        manager.repository().save();
        QVERIFY(QFileInfo(storePath()).isDir());
        QVERIFY(manager.repository().problem().contains("could not be read"));

        const SyncFolder stored = makeFolder("Stored");
        QVERIFY(QDir(storePath()).removeRecursively());
        writeFile(storePath(), FolderStore::encode({stored}).value());
        QTRY_COMPARE(manager.folders(), (QList<SyncFolder>{stored, added}));
        QCOMPARE(manager.repository().problem(), QString());
        QCOMPARE(FolderStore::decode(readFile(storePath())), (QList<SyncFolder>{stored, added}));
        // Owner, group and others (the "user" bits repeat the owner's).
        QCOMPARE(QFile::permissions(storePath()) & QFileDevice::Permissions(0x7077),
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // On a full disk and in a read-only directory a save fails: said, kept
    // and made again once there is room; a run's activity likewise.
    void failedSavesAreShownAndRetried_data()
    {
        QTest::addColumn<bool>("readOnly");
        QTest::newRow("full disk") << false;
        QTest::newRow("read-only directory") << true;
    }
    void failedSavesAreShownAndRetried()
    {
        QFETCH(bool, readOnly);
        if (!m_privateMounts)
            QSKIP("no mount namespace of our own here");
        const QString directory = QFileInfo(storePath()).path();
        QVERIFY(QDir().mkpath(directory));
        QVERIFY(PrivateMounts::mountTmpfs(directory, 64, readOnly));
        if (!readOnly) // filled up to the last byte
            writeFile(directory + "/filler", QByteArray(64 * 1024, 'x'));
        SyncEnvironment quickRetry = environment();
        quickRetry.timings.storeRetry = std::chrono::milliseconds(50);
        SyncManager manager(quickRetry);
        QSignalSpy problems(&manager.repository(), &FolderRepository::problemChanged);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^The folder list could not be saved to "));
        const SyncFolder folder = makeFolder("New");
        manager.addFolder(folder);
        QCOMPARE(manager.folders(), QList<SyncFolder>{folder}); // nothing in memory is dropped
        QVERIFY2(manager.repository().problem().startsWith("The folder list could not be saved to " + storePath()),
                 qPrintable(manager.repository().problem()));
        QCOMPARE(problems.count(), 1);
        QVERIFY(!QFileInfo::exists(storePath())); // and no empty file in its place

        // Room again: the retry saves it, and the problem is gone.
        QVERIFY(PrivateMounts::unmount(directory));
        QTRY_COMPARE(FolderStore::decode(readFile(storePath())), QList<SyncFolder>{folder});
        QCOMPARE(manager.repository().problem(), QString());
        QCOMPARE(problems.count(), 2);
    }

    // A conflict is settled by its names, never by its place in a list that
    // a finished run may have changed since it was shown: one no longer
    // open is refused, and no other file is touched.
    void conflictsAreSettledByName()
    {
        const QString local = m_home.filePath("Docs");
        for (const char *file : {"a.txt", "a.txt.conflict1", "b.txt", "b.txt.conflict1"})
            writeFile(local + "/" + file, file);
        SyncFolder folder = makeFolder("Docs");
        folder.localPath = local;
        ActivityLog activity(m_home.filePath("activity.jsonl"));
        const auto conflict = [&](const QString &path, int second) {
            return ActivityRecord{folder.id, "remote0:Docs", QDateTime(QDate(2026, 11, 23), QTime(10, 0, second), Qt::UTC),
                                  ActivityRecord::Kind::conflict, path, ChangeParser::Action::added, false,
                                  path + ".conflict1", true};
        };
        QVERIFY(activity.append({conflict("a.txt", 0), conflict("b.txt", 1)}));
        SyncEnvironment withActivity = environment();
        withActivity.activity = &activity;
        // The trash: Qt takes it there only once the directory exists.
        QVERIFY(QDir().mkpath(m_home.filePath(".local/share")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(".local/share")));
        SyncManager manager(withActivity);
        manager.addFolder(folder);
        manager.conflicts().recheck(folder.id);
        QCOMPARE(manager.conflicts().of(folder.id).size(), 2);
        const auto settle = [&](const QString &original, const QString &renamed) {
            QString said = "no answer";
            manager.conflicts().settle(folder.id, {original, renamed}, ConflictCopies::Choice::keepOriginal, &manager,
                                   [&said](const QString &error) { said = error; });
            return said;
        };
        // b is settled outside meanwhile: a click meant for it is refused,
        // and a's copies stay as they are.
        QVERIFY(QFile::remove(local + "/b.txt.conflict1"));
        QCOMPARE(settle("b.txt", "b.txt.conflict1"), "This conflict is no longer open.");
        QCOMPARE(settle("a.txt", "b.txt.conflict1"), "This conflict is no longer open.");
        QVERIFY(QFileInfo::exists(local + "/a.txt.conflict1"));
        QCOMPARE(settle("a.txt", "a.txt.conflict1"), QString());
        QVERIFY(!QFileInfo::exists(local + "/a.txt.conflict1"));
        QCOMPARE(readFile(m_home.filePath(".local/share/Trash/files/a.txt.conflict1")), "a.txt.conflict1");
        QCOMPARE(readFile(local + "/a.txt"), "a.txt");
        QVERIFY(manager.conflicts().of(folder.id).isEmpty());
    }

    void deleteRemovesTheFolderOnly()
    {
        const SyncFolder a = makeFolder("A"), b = makeFolder("B"), c = makeFolder("C");
        SyncFolder twin = makeFolder("A twin");
        twin.id = a.id;
        writeFile(storePath(), FolderStore::encode({a, b, c, twin}).value());
        SyncManager manager(environment());
        QSignalSpy removed(&manager.repository(), &FolderRepository::folderRemoved);

        manager.deleteFolder(b.id);
        QCOMPARE(manager.folders(), (QList<SyncFolder>{a, c, twin}));
        QCOMPARE(removed.count(), 1);
        QCOMPARE(removed.at(0).at(0).value<qsizetype>(), 1);
        QCOMPARE(FolderStore::decode(readFile(storePath())), (QList<SyncFolder>{a, c, twin}));

        manager.deleteFolder(QUuid::createUuid()); // unknown: nothing removed
        QCOMPARE(manager.folders().size(), 3);
        manager.deleteFolder(a.id); // every record with the id
        QCOMPARE(manager.folders(), QList<SyncFolder>{c});

        // A record that cannot be written leaves the store as it was.
        const QByteArray before = readFile(storePath());
        SyncFolder bad = makeFolder("Bad");
        bad.progress = std::numeric_limits<double>::quiet_NaN();
        manager.addFolder(bad);
        QCOMPARE(readFile(storePath()), before);
    }

    // What syncs is kept beside the folder store, whose bytes do not change;
    // a change that leaves files out or lets them back in marks each target
    // for its next run, a change of direction alone does not, and a new
    // direction forgets which targets made a one-way run.
    void selectionIsKeptAndMarksTargets()
    {
        SyncFolder folder = makeFolder("Docs");
        folder.remoteTargets = {{QUuid::createUuid(), "a", "x", true}, {QUuid::createUuid(), "b", "y", true}};
        const QUuid &first = folder.remoteTargets[0].id, &second = folder.remoteTargets[1].id;
        {
            SyncManager manager(environment());
            manager.addFolder(folder);
            const QByteArray store = readFile(storePath());
            manager.setSelection(folder.id, {{}, {}, SyncDirection::upload});
            QVERIFY(!manager.preferences().followsSelectionChange(folder.id, first));
            manager.preferences().setSyncedOneWay(folder.id, first);
            const FolderSelection chosen{{"Videos", "Photos/2019 [raw]"}, {"*.tmp", "a, b = \"c\"", "#x;y"}, SyncDirection::download};
            manager.setSelection(folder.id, chosen);
            QCOMPARE(readFile(storePath()), store);
            QVERIFY(manager.preferences().followsSelectionChange(folder.id, first));
            QVERIFY(manager.preferences().followsSelectionChange(folder.id, second));
            QVERIFY(!manager.preferences().hasSyncedOneWay(folder.id, first));
        }
        SyncManager manager(environment());
        const FolderSelection read = manager.selection(folder.id);
        QCOMPARE(read.skipped, (QStringList{"Videos", "Photos/2019 [raw]"}));
        QCOMPARE(read.ignore, (QStringList{"*.tmp", "a, b = \"c\"", "#x;y"}));
        QCOMPARE(read.direction, SyncDirection::download);
        // A switch turned on or off is as much a change of what syncs.
        manager.preferences().setFollowsSelectionChange(folder.id, {first, second}, false);
        SyncFolder edited = manager.folders().at(0);
        edited.filters.excludeHidden = true;
        manager.updateFolder(edited);
        QVERIFY(manager.preferences().followsSelectionChange(folder.id, second));
        manager.deleteFolder(folder.id);
        QCOMPARE(manager.selection(folder.id), FolderSelection());
    }
};

QTEST_GUILESS_MAIN(TestSyncManager)
#include "tst_syncmanager.moc"
