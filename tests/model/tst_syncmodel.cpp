#include "model/CloudRemote.h"
#include "model/ConflictResolution.h"
#include "model/FolderSelection.h"
#include "model/SyncFolder.h"
#include "model/SyncStatus.h"

#include <QSet>
#include <QTest>

class TestSyncModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A directory as typed, in its one form, or refused.
    void directoriesToSkip_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("normalized"); // "-": refused
        QTest::newRow("plain") << "Videos" << "Videos";
        QTest::newRow("dots and slashes") << "./Photos//2019/" << "Photos/2019";
        QTest::newRow("blanks and accents") << "Été 2026/ raw " << "Été 2026/ raw ";
        QTest::newRow("the folder itself") << "./" << "-";
        QTest::newRow("climbing out") << "a/../../etc" << "-";
        QTest::newRow("absolute") << "/home/ann" << "-";
        QTest::newRow("a line break") << "a\nb" << "-";
    }
    void directoriesToSkip()
    {
        QFETCH(QString, typed);
        QFETCH(QString, normalized);
        QCOMPARE(FolderSelection::normalizedDirectory(typed).value_or("-"), normalized);
    }

    // Skipped names are taken literally by rclone's globs, anchored at the
    // folder's root; the rules follow as typed.
    void selectionArguments()
    {
        const FolderSelection selection{{"Videos", "a[1]/b{c}*?\\"}, {"*.tmp", "/build/**"}, SyncDirection::twoWay};
        QCOMPARE(selection.filterArguments(),
                 (QStringList{"--exclude", "/Videos/**", "--exclude", "/a\\[1\\]/b\\{c\\}\\*\\?\\\\/**",
                              "--exclude", "*.tmp", "--exclude", "/build/**"}));
        const FolderSelection many{{}, {"*.tmp", "/build/**", "**/.cache/**", "/out", "{a,b}.log", "logs/", "x\\*"}, {}};
        QCOMPARE(many.filterArguments(),
                 (QStringList{"--exclude", "{a,b}.log", "--exclude", "logs/", "--exclude", "x\\*", "--exclude",
                              "{*.tmp,**/.cache/**}", "--exclude", "/{build/**,out}"}));
        QCOMPARE(FolderSelection().filterArguments(), QStringList());
        QVERIFY(selection.isSkipped("Videos") && selection.isSkipped("Videos/2019/x"));
        QVERIFY(!selection.isSkipped("Videos2") && !selection.isSkipped(""));
        const FolderSelection deeper{{"a/b"}, {}, {}}, similar{{"ab"}, {}, {}};
        QVERIFY(deeper.holdsSkipped("a") && !deeper.holdsSkipped("a/b") && !similar.holdsSkipped("a"));
        // What a change lets back in, or leaves out.
        const FolderSelection fewer{{"Videos"}, {"/build/**"}, SyncDirection::upload};
        QVERIFY(fewer.reveals(selection) && !fewer.hides(selection));
        QVERIFY(selection.hides(fewer) && !selection.reveals(fewer));
        const FolderSelection upload{{}, {}, SyncDirection::upload};
        QVERIFY(!upload.reveals(FolderSelection()) && !upload.hides(FolderSelection()));
        for (const SyncDirection direction : {SyncDirection::twoWay, SyncDirection::upload, SyncDirection::download})
            QCOMPARE(FolderSelection::directionFromName(FolderSelection::directionName(direction)), direction);
        QCOMPARE(FolderSelection::directionFromName("Upload"), std::nullopt);
    }

    // Raw values as the store writes them; unknown ones are refused, not guessed.
    void rawValuesAndLabels()
    {
        QStringList raw, labels;
        for (ConflictResolution c : allConflictResolutions) {
            raw << rawValue(c);
            labels << label(c);
            QCOMPARE(conflictResolutionFromRawValue(rawValue(c)), c);
        }
        QCOMPARE(raw, (QStringList{"keepBoth", "newerWins", "localWins", "remoteWins"}));
        QCOMPARE(labels,
                 (QStringList{"Keep Both (Rename older)", "Newer Wins", "Local Wins", "Primary Remote Wins"}));
        for (SyncStatus s : {SyncStatus::idle, SyncStatus::syncing, SyncStatus::error, SyncStatus::success})
            QCOMPARE(syncStatusFromRawValue(rawValue(s)), s);
        for (const QString unknown : {"", "KeepBoth", "paused", " idle"}) {
            QCOMPARE(conflictResolutionFromRawValue(unknown), std::nullopt);
            QCOMPARE(syncStatusFromRawValue(unknown), std::nullopt);
        }
    }

    void remotePresentation_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("displayName");
        QTest::addColumn<bool>("isAsset");
        QTest::addColumn<QString>("icon");
        QTest::newRow("drive") << "drive" << "Google Drive" << true << "drive";
        QTest::newRow("upper-case Drive") << "Drive" << "Google Drive" << true << "drive";
        QTest::newRow("dropbox") << "DROPBOX" << "Dropbox" << true << "dropbox";
        QTest::newRow("onedrive") << "onedrive" << "OneDrive" << true << "onedrive";
        QTest::newRow("s3") << "s3" << "Amazon S3" << true << "s3";
        QTest::newRow("webdav") << "webdav" << "WebDAV" << false << "network";
        QTest::newRow("b2") << "b2" << "Backblaze B2" << false << "internaldrive.fill";
        QTest::newRow("sftp") << "sftp" << "SFTP" << false << "terminal.fill";
        QTest::newRow("ftp") << "ftp" << "Ftp" << false << "cloud.fill";
        QTest::newRow("words") << "google cloud STORAGE" << "Google Cloud Storage" << false << "cloud.fill";
        QTest::newRow("no alias") << "gdrive" << "Gdrive" << false << "cloud.fill";
        QTest::newRow("empty") << "" << "" << false << "cloud.fill";
    }
    void remotePresentation()
    {
        QFETCH(QString, type);
        QFETCH(QString, displayName);
        QFETCH(bool, isAsset);
        QFETCH(QString, icon);
        const CloudRemote remote{"r", type};
        QCOMPARE(remote.displayTypeName(), displayName);
        QCOMPARE(remote.providerIcon(),
                 (ProviderIcon{isAsset ? ProviderIcon::Kind::asset : ProviderIcon::Kind::symbol, icon}));
    }

    // Equality is member-wise; the hash, written out by hand, must follow it,
    // and tell an absent text from an empty one.
    void foldersHashLikeTheyCompare()
    {
        SyncFolder a;
        a.name = "Docs";
        a.remoteTargets = {RemoteTarget{QUuid::createUuid(), "gdrive", "Backup", false}};
        SyncFolder b = a;
        QCOMPARE(qHash(a), qHash(b));
        b.transferSpeed = QString();
        QVERIFY(a != b);
        QVERIFY(qHash(a) != qHash(b));
        QCOMPARE((QSet<SyncFolder>{a, a, b}).size(), 2);
    }

    void newRecordsGetFreshIdsAndDefaults()
    {
        const SyncFolder a, b;
        QVERIFY(a.id != b.id);
        QCOMPARE(a.id.version(), QUuid::Random);
        QVERIFY(RemoteTarget().id != RemoteTarget().id);
        QCOMPARE(a.filters, (SyncFilterOptions{true, false, true}));
        QCOMPARE(a.status, SyncStatus::idle);
        QCOMPARE(a.progress, 0.0);
        QCOMPARE(a.conflictResolution, ConflictResolution::keepBoth);
    }
};

QTEST_APPLESS_MAIN(TestSyncModel)
#include "tst_syncmodel.moc"
