#include "model/CloudRemote.h"
#include "model/ConflictResolution.h"
#include "model/RemoteSpaceInfo.h"
#include "model/SyncFolder.h"
#include "model/SyncStatus.h"

#include <QSet>
#include <QTest>

class TestSyncModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conflictResolutionCases()
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
        QCOMPARE(SyncFolder().conflictResolution, ConflictResolution::keepBoth);
    }

    void unknownRawValuesFail_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::newRow("empty") << "";
        QTest::newRow("other case") << "KeepBoth";
        QTest::newRow("paused") << "paused";
        QTest::newRow("padded") << " idle";
    }
    void unknownRawValuesFail()
    {
        QFETCH(QString, raw);
        QCOMPARE(conflictResolutionFromRawValue(raw), std::nullopt);
        QCOMPARE(syncStatusFromRawValue(raw), std::nullopt);
    }

    void syncStatusRoundTrip()
    {
        for (SyncStatus s : {SyncStatus::idle, SyncStatus::syncing, SyncStatus::error, SyncStatus::success})
            QCOMPARE(syncStatusFromRawValue(rawValue(s)), s);
        QCOMPARE(rawValue(SyncStatus::success), "success");
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

    void remoteIdentityIsTheName()
    {
        const CloudRemote a{"work", "drive"};
        const CloudRemote b{"work", "dropbox"};
        QCOMPARE(a.id(), b.id());
        QVERIFY(a != b); // equality still looks at the type
    }

    void foldersCompareEveryField()
    {
        SyncFolder a;
        a.name = "Docs";
        a.remoteTargets = {RemoteTarget{QUuid::createUuid(), "gdrive", "Backup", false}};
        SyncFolder b = a;
        QCOMPARE(a, b);
        QCOMPARE(qHash(a), qHash(b));

        b.transferSpeed = "1 MiB/s";
        QVERIFY(a != b);
        QVERIFY(qHash(a) != qHash(b));

        // An absent text is not the same as an empty one.
        b.transferSpeed = QString();
        QVERIFY(a != b);
        QVERIFY(qHash(a) != qHash(b));

        b = a;
        b.remoteTargets[0].hasResynced = true;
        QVERIFY(a != b);
        b = a;
        b.progress = 0.5;
        QVERIFY(a != b);

        QSet<SyncFolder> set{a, a, b};
        QCOMPARE(set.size(), 2);
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
        QCOMPARE(RemoteSpaceInfo(), (RemoteSpaceInfo{std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
    }
};

QTEST_APPLESS_MAIN(TestSyncModel)
#include "tst_syncmodel.moc"
