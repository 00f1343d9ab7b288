// Reading rclone's failures and dry runs, over outputs recorded from the real
// rclone (tests/data/problems, tests/data/preview).
#include "engine/BisyncPlan.h"
#include "engine/RcloneOutput.h"
#include "engine/RcloneEngine.h"
#include "support/TestFiles.h"
#include "sync/ConnectionFailure.h"
#include "sync/SyncProblem.h"

#include <QTemporaryDir>
#include <QTest>

using Kind = SyncProblem::Kind;
using Side = SyncProblem::Side;
using Group = BisyncPlan::Group;

namespace {

QString recorded(const QString &name)
{
    return QString::fromUtf8(readFile(QStringLiteral(TEST_DATA_DIR "/") + name));
}

// What a failed run leaves: the entry (the last 15 lines, without colour)
// and, while the program runs on, the error lines before them.
struct Stored
{
    QString message, detail;
};

Stored store(const QString &output)
{
    QStringList lines = output.split(u'\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    QStringList notable;
    for (const QString &line : std::as_const(lines)) {
        if (notable.size() < 20
            && (line.contains("ERROR :") || line.contains("CRITICAL:") || line.contains("Fatal error")))
            notable.append(line);
    }
    return {RcloneOutput::stripAnsi(lines.mid(std::max<qsizetype>(0, lines.size() - 15)).join(u'\n')),
            RcloneOutput::stripAnsi(notable.join(u'\n'))};
}

} // namespace

class TestSyncProblem : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString folder() const { return m_dir.filePath("Documents"); }
    QString emptyFolder() const { return m_dir.filePath("Empty"); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(QDir().mkpath(folder()) && QDir().mkpath(emptyFolder()));
        // Two of the files a recorded resync copies to this computer are here already.
        for (const char *name : {"/a.txt", "/ch2.txt", "/ch4.txt"})
            writeFile(folder() + name, {});
    }

    // Each kind, from a real output where one can be made here. `restarted`:
    // the kind from the stored last lines alone, as after a restart.
    void classifiesRecordedFailures_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("localPath"); // "" the folder, "-" missing, "0" empty
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<Kind>("restarted");
        QTest::addColumn<QString>("sentence");
        auto row = [](const char *file, const char *local, Kind kind, Kind restarted, const char *sentence = "") {
            QTest::newRow(file) << QString(file) << QString(local) << kind << restarted << QString(sentence);
        };
        row("lockHeld.log", "", Kind::lockHeld, Kind::lockHeld);
        row("needsResync.log", "", Kind::needsResync, Kind::needsResync);
        row("needsResync-midsync.log", "", Kind::needsResync, Kind::other);
        row("tooManyDeletes-local.log", "", Kind::tooManyDeletes, Kind::tooManyDeletes,
            "Stopped before deleting 6 of 10 files on dav:Projects.");
        row("tooManyDeletes-remote.log", "", Kind::tooManyDeletes, Kind::tooManyDeletes,
            "Stopped before deleting 6 of 10 files on this computer.");
        row("allFilesChanged.log", "", Kind::allFilesChanged, Kind::allFilesChanged, "Every file on this computer");
        row("emptySide-local.log", "0", Kind::emptySide, Kind::emptySide);
        row("emptySide-remote.log", "", Kind::emptySide, Kind::needsResync, "dav:Projects lists no files.");
        row("remoteUnreachable-webdav.log", "", Kind::remoteUnreachable, Kind::remoteUnreachable);
        row("remoteUnreachable-sftp.log", "", Kind::remoteUnreachable, Kind::remoteUnreachable);
        row("remoteUnreachable-dns.log", "", Kind::remoteUnreachable, Kind::remoteUnreachable);
        row("remoteUnreachable-tls.log", "", Kind::remoteUnreachable, Kind::remoteUnreachable);
        row("remoteUnreachable-tls-plainhttp.log", "", Kind::remoteUnreachable, Kind::remoteUnreachable);
        row("remoteMissing.log", "", Kind::remoteMissing, Kind::remoteMissing);
        row("conflictPolicyRejected.log", "", Kind::conflictPolicyRejected, Kind::conflictPolicyRejected);
        row("rcloneTooOld.log", "", Kind::rcloneTooOld, Kind::rcloneTooOld, "does not know --conflict-resolvx");
        row("localFolderMissing.log", "-", Kind::localFolderMissing, Kind::localFolderMissing);
        // The last lines of these no longer name the cause.
        row("diskFull.log", "", Kind::diskFull, Kind::other);
        row("diskFull-preallocate.log", "", Kind::diskFull, Kind::other);
        row("diskFull-remote.log", "", Kind::diskFull, Kind::needsResync);
        row("other.log", "", Kind::other, Kind::other);
        row("other-notPermitted.log", "", Kind::other, Kind::needsResync);
    }

    void classifiesRecordedFailures()
    {
        QFETCH(QString, file);
        QFETCH(QString, localPath);
        QFETCH(Kind, kind);
        QFETCH(Kind, restarted);
        QFETCH(QString, sentence);
        const QString local = localPath == "-" ? m_dir.filePath("Gone") : localPath == "0" ? emptyFolder() : folder();
        const Stored stored = store(recorded("problems/" + file));
        SyncFolder synced;
        synced.localPath = local;
        synced.status = SyncStatus::error;
        synced.remoteTargets = {{QUuid::createUuid(), "dav", "Projects", true}};
        synced.lastError = "dav:Projects — " + stored.message;

        const QList<SyncProblem> problems = SyncProblem::forFolder(synced, {stored.detail});
        QCOMPARE(problems.size(), 1);
        QCOMPARE(problems.first().kind, kind);
        QCOMPARE(problems.first().message, stored.message);
        QVERIFY2(problems.first().sentence().contains(sentence), qPrintable(problems.first().sentence()));
        QCOMPARE(SyncProblem::forFolder(synced).first().kind, restarted);
    }

    // Where a failure cannot be made here, rclone's message as its source
    // prints it (lib/oauthutil, the Google and WebDAV error formats).
    void classifiesMessagesFromRcloneSource_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<Kind>("kind");
        // The engine's own, for a folder whose drive is no longer mounted.
        QTest::newRow("folder off its drive") << "Local folder not mounted: /home/user/Drive (its drive was at "
                                                 "/media/user/Drive)" << Kind::localFolderMissing;
        QTest::newRow("folder left during a run") << "Local folder left its place during the sync: /home/user/Drive"
                                                  << Kind::localFolderMissing;
        QTest::newRow("oauth expired") << "CRITICAL: Failed to create file system for destination \"gdrive:Docs\": "
                                          "couldn't find root directory ID: couldn't fetch token: invalid_grant: maybe "
                                          "token expired? - try refreshing with \"rclone config reconnect gdrive:\""
                                       << Kind::signInExpired;
        QTest::newRow("no refresh token") << "token expired and there's no refresh token - manually refresh with "
                                             "\"rclone config reconnect box:\""
                                          << Kind::signInExpired;
        QTest::newRow("drive quota") << "ERROR : Test.mkv: Failed to copy: googleapi: Error 403: The user's Drive "
                                        "storage quota has been exceeded., storageQuotaExceeded"
                                     << Kind::quotaExceeded;
        QTest::newRow("webdav 507") << "ERROR : a.bin: Failed to copy: unchunked simple update failed: Insufficient "
                                       "Storage: 507 Insufficient Storage"
                                    << Kind::quotaExceeded;
        // A one-way run's own stops, with the side they name.
        QTest::newRow("one-way source empty") << "One-way sync withheld: the source holds no files (dav:Docs). Syncing "
                                                 "would delete all 12 files on this computer (/home/user/Docs)."
                                              << Kind::sourceEmpty;
        QTest::newRow("one-way source missing") << "One-way sync withheld: the source is missing (dav:Docs). Syncing "
                                                   "would delete every file on this computer (/home/user/Docs)."
                                                << Kind::sourceEmpty;
        QTest::newRow("one-way too many deletes") << "Safety abort: one-way sync would delete 6 of 10 files on the "
                                                     "remote (dav:Docs)."
                                                  << Kind::tooManyDeletes;
        QTest::newRow("first one-way run") << "Review first: the first upload-only sync would delete 3 and replace 1 of "
                                              "10 files on the remote (dav:Docs)."
                                           << Kind::firstOneWay;
        QTest::newRow("rate limit is no sign-in") << "ERROR : a: Failed to copy: googleapi: Error 403: User Rate Limit "
                                                     "Exceeded, userRateLimitExceeded"
                                                  << Kind::other;
    }

    void classifiesMessagesFromRcloneSource()
    {
        QFETCH(QString, message);
        QFETCH(Kind, kind);
        QCOMPARE(SyncProblem::classify(message, folder()).kind, kind);
    }

    // A new remote's listing that failed, as the real rclone words it
    // (recorded against local WebDAV, SFTP and S3 servers): the reading,
    // and rclone's line that says why.
    void readsConnectionFailures_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("cause");
        const QString lsf = "Failed to lsf with 2 errors: last error was: error in ListJSON: ";
        QTest::newRow("WebDAV password") << "NOTICE: " + lsf + "couldn't list files: 401 Unauthorized: 401 Unauthorized"
                                         << "credentialsRefused" << "401 Unauthorized";
        QTest::newRow("SFTP password") << "ERROR : error listing: NewFs: couldn't connect SSH: ssh: handshake failed: ssh: "
                                          "unable to authenticate, attempted methods [none password], no supported methods remain"
                                       << "credentialsRefused" << "unable to authenticate";
        QTest::newRow("S3 secret") << "2026/11/23 23:49:14 NOTICE: " + lsf + "operation error S3: ListBuckets, https response "
                                      "error StatusCode: 403, RequestID: , HostID: , api error SignatureDoesNotMatch: The "
                                      "request signature we calculated does not match the signature you provided."
                                   << "credentialsRefused" << "SignatureDoesNotMatch";
        QTest::newRow("S3 key") << "api error InvalidAccessKeyId: The AWS Access Key Id you provided does not exist in our records."
                                << "credentialsRefused" << "InvalidAccessKeyId";
        QTest::newRow("port") << lsf + "couldn't list files: Propfind \"http://127.0.0.1:9/\": dial tcp 127.0.0.1:9: "
                                       "connect: connection refused"
                              << "unreachable" << "connection refused";
        QTest::newRow("HTTPS to HTTP") << "request send failed, Get \"https://127.0.0.1:43117/?x-id=ListBuckets\": http: "
                                          "server gave HTTP response to HTTPS client"
                                       << "unreachable" << "HTTPS client";
        QTest::newRow("certificate") << lsf + "couldn't list files: Propfind \"https://127.0.0.1:4443/\": tls: failed to "
                                              "verify certificate: x509: certificate signed by unknown authority"
                                     << "certificateRejected" << "x509";
        QTest::newRow("no bucket") << "2026/11/23 23:50:00 ERROR : error listing: directory not found\n" << "notFound"
                                   << "error listing: directory not found";
        QTest::newRow("timed out") << "No answer within 30 seconds" << "unreachable" << "No answer";
        QTest::newRow("anything else") << "Failed to create file system: didn't find section in config file" << "other"
                                       << "didn't find section";
    }
    void readsConnectionFailures()
    {
        QFETCH(QString, message);
        QFETCH(QString, kind);
        QFETCH(QString, cause);
        const ConnectionFailure failure = ConnectionFailure::read("nas", message);
        QCOMPARE(failure.kindName(), kind);
        QCOMPARE(failure.sentence().isEmpty(), kind == "other");
        const QStringList lines = failure.text().split('\n');
        QCOMPARE(lines.size(), kind == "other" ? 1 : 2);
        QVERIFY2(lines.last().contains(cause) && !lines.last().startsWith("20"), qPrintable(lines.last()));
    }

    // Each failing target gets its own reading of its own lines.
    void readsOneProblemPerFailingTarget()
    {
        SyncFolder synced;
        synced.localPath = folder();
        synced.status = SyncStatus::error;
        const RemoteTarget a{QUuid::createUuid(), "a b", "x", true}, c{QUuid::createUuid(), "c", "", true};
        synced.remoteTargets = {a, {QUuid::createUuid(), "ok", "", true}, c};
        synced.lastError = "a b:x — ERROR : x\ndial tcp: connect: connection refused\n\nc: — CRITICAL: Failed to create "
                           "file system for destination \"c:\": didn't find section in config file (\"c\")";
        const QList<SyncProblem> problems = SyncProblem::forFolder(synced);
        QCOMPARE(problems.size(), 2);
        QCOMPARE(problems.at(0).targetId, a.id);
        QCOMPARE(problems.at(0).kind, Kind::remoteUnreachable);
        QCOMPARE(problems.at(1).targetId, c.id);
        QCOMPARE(problems.at(1).kind, Kind::remoteMissing);
        QCOMPARE(problems.at(1).title(), "Remote not found");
    }

    // A dry run's plan, against what the recorded runs really did.
    void readsDryRunPlans_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QList<int>>("counts"); // toRemote, toLocal, deletedRemote, deletedLocal, replaced
        QTest::addColumn<QString>("somePath");
        QTest::addColumn<Group>("itsGroup");
        // Uploads in a resync show as copies: nothing in its output tells a
        // new file from a replaced one on the remote.
        QTest::newRow("resync, newer wins") << "resync-newer.log" << QList<int>{3, 1, 0, 0, 2} << "abstract.txt" << Group::toLocal;
        QTest::newRow("deletions") << "deletes-dry.log" << QList<int>{0, 0, 6, 0, 0} << "file04.txt" << Group::deletedRemote;
        QTest::newRow("all changed") << "allchanged-dry.log" << QList<int>{0, 0, 0, 0, 5} << "" << Group::replaced;
        QTest::newRow("both sides") << "normal-changes-dry.log" << QList<int>{2, 2, 1, 2, 2}
                                    << "Trips/Été 2026/plan 🏖.txt" << Group::toRemote;
    }

    void readsDryRunPlans()
    {
        QFETCH(QString, file);
        QFETCH(QList<int>, counts);
        QFETCH(QString, somePath);
        QFETCH(Group, itsGroup);
        BisyncPlan plan;
        for (const QString &line : recorded("preview/" + file).split(u'\n'))
            plan.addLine(line);
        const QList<BisyncPlan::Change> changes = plan.changes(folder());
        QList<int> found(5, 0);
        for (const BisyncPlan::Change &change : changes)
            ++found[int(change.group)];
        QCOMPARE(found, counts);
        if (!somePath.isEmpty())
            QVERIFY(changes.contains(BisyncPlan::Change{itsGroup, somePath, itsGroup != Group::toLocal && itsGroup != Group::deletedLocal}));
    }
};

QTEST_GUILESS_MAIN(TestSyncProblem)
#include "tst_syncproblem.moc"
