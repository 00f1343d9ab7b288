#include "model/FolderStore.h"
#include "model/UuidString.h"

#include <QTest>

#include <cmath>
#include <limits>

using FolderStore::DecodeError;
Q_DECLARE_METATYPE(DecodeError::Kind)

namespace {

// The documented example, written as the store writes it.
const QByteArray kExample =
    R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"Documents",)"
    R"("localPath":"\/Users\/ann\/Documents",)"
    R"("remoteTargets":[{"id":"0B1C4D2E-7F30-4A51-9B62-1C3D4E5F6A7B","remoteName":"gdrive","remotePath":"Backup\/Documents","hasResynced":true}],)"
    R"("lastSync":784111523.52,"status":"success","progress":1,)"
    R"("filters":{"excludeGit":true,"excludeHidden":false,"excludeNodeModules":true},)"
    R"("conflictResolution":"keepBoth","periodicIntervalMinutes":30,)"
    R"("localPathBookmarkData":"Ym9va21hcmsgYnl0ZXM="},)"
    R"({"id":"9D8C7B6A-5F4E-4D3C-8B2A-190817161514","name":"Photos",)"
    R"("localPath":"\/Users\/ann\/Pictures",)"
    R"("remoteTargets":[],"status":"idle","progress":0,)"
    R"("filters":{"excludeGit":true,"excludeHidden":true,"excludeNodeModules":true},)"
    R"("conflictResolution":"newerWins"}])";

const QByteArray kTarget = R"({"id":"0B1C4D2E-7F30-4A51-9B62-1C3D4E5F6A7B","remoteName":"r","remotePath":"","hasResynced":false})";

// One folder object with the required keys, followed by `extra` members.
QByteArray folderDocument(const QByteArray &extra = {}, const QByteArray &targets = "[]")
{
    return R"([{"name":"N","localPath":"/p","remoteTargets":)" + targets + R"(,"status":"idle")" + extra + "}]";
}

QList<SyncFolder> decodeOrFail(const QByteArray &document)
{
    DecodeError error;
    const auto folders = FolderStore::decode(document, &error);
    if (!folders)
        qWarning() << "decode failed:" << error.toString();
    return folders.value_or(QList<SyncFolder>{});
}

} // namespace

class TestFolderStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Every field's encoding is pinned by writesEveryFieldInOrder: the example
    // read and written again byte for byte has each field read right.
    void exampleRoundTripsByteForByte()
    {
        DecodeError error;
        const auto folders = FolderStore::decode(kExample, &error);
        QVERIFY2(folders, qPrintable(error.toString()));
        QCOMPARE(folders->size(), 2);
        QCOMPARE(folders->at(0).lastSync->toUTC(), QDateTime::fromString("2025-11-06T08:45:23.520Z", Qt::ISODateWithMs));
        // Photos has none of the optional keys: they are left out, never written as null.
        QCOMPARE(FolderStore::encode(*folders), kExample);
        QCOMPARE(FolderStore::encode({}), QByteArray("[]"));
    }

    // Dates keep their milliseconds, seconds since 2001-01-01 UTC.
    void writesEveryFieldInOrder()
    {
        SyncFolder folder;
        folder.id = QUuid::fromString(QStringLiteral("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
        folder.name = "Ann’s \"notes\"\n✓";
        folder.localPath = "/home/ann/a b";
        folder.remoteTargets = {RemoteTarget{QUuid::fromString(QStringLiteral("0b1c4d2e-7f30-4a51-9b62-1c3d4e5f6a7b")),
                                             "work docs", "x/y", false}};
        folder.lastSync = QDateTime::fromMSecsSinceEpoch(1700000000123LL, Qt::UTC);
        folder.status = SyncStatus::syncing;
        folder.currentTargetIndex = 0;
        folder.progress = 0.425;
        folder.transferredSize = "1 MiB / 2 MiB";
        folder.transferredFiles = "1 / 3";
        folder.transferSpeed = "1 MiB/s, ETA 1s";
        folder.lastError = "r: — failed";
        folder.filters = {false, true, false};
        folder.conflictResolution = ConflictResolution::remoteWins;
        folder.periodicIntervalMinutes = 15;
        folder.localPathBookmarkData = QByteArray("ab");

        const QByteArray expected =
            "[{\"id\":\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\",\"name\":\"Ann’s \\\"notes\\\"\\n✓\","
            R"("localPath":"\/home\/ann\/a b",)"
            R"("remoteTargets":[{"id":"0B1C4D2E-7F30-4A51-9B62-1C3D4E5F6A7B","remoteName":"work docs","remotePath":"x\/y","hasResynced":false}],)"
            R"("lastSync":721692800.123,"status":"syncing","currentTargetIndex":0,"progress":0.425,)"
            R"("transferredSize":"1 MiB \/ 2 MiB","transferredFiles":"1 \/ 3","transferSpeed":"1 MiB\/s, ETA 1s",)"
            R"("lastError":"r: — failed","filters":{"excludeGit":false,"excludeHidden":true,"excludeNodeModules":false},)"
            R"("conflictResolution":"remoteWins","periodicIntervalMinutes":15,"localPathBookmarkData":"YWI="}])";
        const auto encoded = FolderStore::encode({folder});
        QCOMPARE(encoded, expected);
        QCOMPARE(decodeOrFail(*encoded), QList<SyncFolder>{folder});

        folder.lastSync = QDateTime::fromSecsSinceEpoch(978307200 - 1, Qt::UTC); // before the reference date
        QVERIFY(FolderStore::encode({folder}).value().contains(R"("lastSync":-1,)"));
        // A progress that JSON cannot hold makes the whole store unwritable.
        for (const double progress : {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN()}) {
            folder.progress = progress;
            QCOMPARE(FolderStore::encode({SyncFolder(), folder}), std::nullopt);
        }
    }

    void readingRules()
    {
        // No id: a new random one on every read. Missing keys take their defaults.
        const SyncFolder bare = decodeOrFail(folderDocument()).value(0);
        QVERIFY(!bare.id.isNull());
        QVERIFY(decodeOrFail(folderDocument()).value(0).id != bare.id);
        QCOMPARE(bare.filters, (SyncFilterOptions{true, false, true}));
        QCOMPARE(bare.progress, 0.0);
        QCOMPARE(bare.conflictResolution, ConflictResolution::keepBoth);

        // Null counts as missing for the optional keys.
        const QByteArray nulls = folderDocument(
            R"(,"id":null,"lastSync":null,"currentTargetIndex":null,"progress":null,"transferredSize":null,)"
            R"("transferredFiles":null,"transferSpeed":null,"lastError":null,"filters":null,)"
            R"("conflictResolution":null,"periodicIntervalMinutes":null,"localPathBookmarkData":null)");
        const SyncFolder fromNulls = decodeOrFail(nulls).value(0);
        QVERIFY(!fromNulls.id.isNull());
        QCOMPARE(fromNulls.name, "N");
        QCOMPARE(fromNulls.lastSync, std::nullopt);
        QCOMPARE(fromNulls.filters, SyncFilterOptions());

        // Lower-case ids, plain slashes, unknown keys, any key order.
        const QByteArray relaxed =
            R"([{"extra":{"deep":[1,2]},"status":"error","remoteTargets":[{"hasResynced":true,"remotePath":"a/b",)"
            R"("remoteName":"r","id":"0b1c4d2e-7f30-4a51-9b62-1c3d4e5f6a7b","x":1}],"localPath":"/p","name":"N",)"
            R"("id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","currentTargetIndex":2.0,"progress":0.5}])";
        const SyncFolder folder = decodeOrFail(relaxed).value(0);
        QCOMPARE(uuidString(folder.id), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
        QCOMPARE(folder.status, SyncStatus::error);
        QCOMPARE(folder.remoteTargets.value(0).remotePath, "a/b");
        QCOMPARE(folder.currentTargetIndex, 2);
        QCOMPARE(folder.progress, 0.5);

        QCOMPARE(FolderStore::decode("[]"), QList<SyncFolder>{});
        QCOMPARE(FolderStore::decode(" [ ] \n"), QList<SyncFolder>{});
    }

    void unreadableDocuments_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<DecodeError::Kind>("kind");
        QTest::addColumn<QString>("keyPath");
        using K = DecodeError::Kind;

        QTest::newRow("empty file") << QByteArray() << K::dataCorrupted << "";
        QTest::newRow("not JSON") << QByteArray("folders: none") << K::dataCorrupted << "";
        QTest::newRow("truncated") << kExample.left(kExample.size() / 2) << K::dataCorrupted << "";
        QTest::newRow("trailing garbage") << QByteArray("[]x") << K::dataCorrupted << "";
        QTest::newRow("object at top") << QByteArray("{}") << K::typeMismatch << "";
        QTest::newRow("folder not an object") << QByteArray("[1]") << K::typeMismatch << "[0]";
        QTest::newRow("unknown status") << folderDocument().replace("idle", "paused") << K::dataCorrupted
                                        << "[0].status";
        QTest::newRow("status missing") << QByteArray(R"([{"name":"N","localPath":"/p","remoteTargets":[]}])")
                                        << K::keyNotFound << "[0].status";
        QTest::newRow("name null") << folderDocument().replace(R"("N")", "null") << K::valueNotFound << "[0].name";
        QTest::newRow("name a number") << folderDocument().replace(R"("N")", "7") << K::typeMismatch << "[0].name";
        QTest::newRow("targets not a list") << folderDocument({}, "{}") << K::typeMismatch << "[0].remoteTargets";
        QTest::newRow("target without id")
            << folderDocument({}, "[" + kTarget + "," + QByteArray(kTarget).replace(R"("id":)", R"("x":)") + "]")
            << K::keyNotFound << "[0].remoteTargets[1].id";
        QTest::newRow("target id braced")
            << folderDocument({}, "[" + QByteArray(kTarget).replace(R"("0B1C4D2E-7F30-4A51-9B62-1C3D4E5F6A7B")",
                                                                    R"("{0B1C4D2E-7F30-4A51-9B62-1C3D4E5F6A7B}")") + "]")
            << K::dataCorrupted << "[0].remoteTargets[0].id";
        QTest::newRow("hasResynced a string")
            << folderDocument({}, "[" + QByteArray(kTarget).replace("false", R"("false")") + "]") << K::typeMismatch
            << "[0].remoteTargets[0].hasResynced";
        QTest::newRow("filters lacking excludeHidden")
            << folderDocument(R"(,"filters":{"excludeGit":true,"excludeNodeModules":true})") << K::keyNotFound
            << "[0].filters.excludeHidden";
        QTest::newRow("unknown conflict policy") << folderDocument(R"(,"conflictResolution":"mine")")
                                                 << K::dataCorrupted << "[0].conflictResolution";
        QTest::newRow("progress a string") << folderDocument(R"(,"progress":"1")") << K::typeMismatch
                                           << "[0].progress";
        QTest::newRow("index with a fraction") << folderDocument(R"(,"currentTargetIndex":1.5)") << K::dataCorrupted
                                               << "[0].currentTargetIndex";
        QTest::newRow("index beyond 64 bits") << folderDocument(R"(,"periodicIntervalMinutes":9223372036854775808)")
                                              << K::dataCorrupted << "[0].periodicIntervalMinutes";
        QTest::newRow("date out of range") << folderDocument(R"(,"lastSync":1e300)") << K::dataCorrupted
                                           << "[0].lastSync";
        QTest::newRow("bookmark not base64") << folderDocument(R"(,"localPathBookmarkData":"a*b=")")
                                             << K::dataCorrupted << "[0].localPathBookmarkData";
        // Standard base64 with padding only ("YWI=" reads as "ab": writesEveryFieldInOrder).
        QTest::newRow("bookmark without padding") << folderDocument(R"(,"localPathBookmarkData":"YWI")")
                                                  << K::dataCorrupted << "[0].localPathBookmarkData";
        QTest::newRow("bad id") << folderDocument(R"(,"id":"E621E1F8")") << K::dataCorrupted << "[0].id";
        QTest::newRow("second folder bad") << QByteArray(kExample).replace(R"("newerWins")", "true")
                                           << K::typeMismatch << "[1].conflictResolution";
        QTest::newRow("deep nesting") << QByteArray(100000, '[') << K::dataCorrupted << "";
        QTest::newRow("invalid UTF-8") << folderDocument().replace(R"("N")", "\"\xff\xfe\"") << K::dataCorrupted
                                       << "";
    }
    void unreadableDocuments()
    {
        QFETCH(QByteArray, document);
        QFETCH(DecodeError::Kind, kind);
        QFETCH(QString, keyPath);
        DecodeError error;
        QCOMPARE(FolderStore::decode(document, &error), std::nullopt);
        QCOMPARE(error.kind, kind);
        QCOMPARE(error.keyPath, keyPath);
        QVERIFY(!error.message.isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestFolderStore)
#include "tst_folderstore.moc"
