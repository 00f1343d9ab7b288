// The activity file: its records, its bound, and what it does with lines it
// cannot read; and the ways a conflict it recorded is settled.
#include "sync/ActivityLog.h"
#include "sync/ConflictCopies.h"
#include "support/TestFiles.h"

#include <QTemporaryDir>
#include <QTest>

using A = ChangeParser::Action;

class TestActivityLog : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    const QUuid m_docs = QUuid::createUuid(), m_photos = QUuid::createUuid();
    const QDateTime m_time = QDateTime(QDate(2026, 11, 22), QTime(10, 30, 0, 250), Qt::UTC);

    ActivityRecord change(const QUuid &folder, const QString &path, A action = A::added, bool onRemote = true) const
    {
        return {folder, "gdrive:Docs", m_time, ActivityRecord::Kind::change, path, action, onRemote, {}, {}};
    }

private Q_SLOTS:
    void initTestCase()
    {
        // The trash is the one under XDG_DATA_HOME, on the same file system.
        QVERIFY(QDir().mkpath(m_dir.filePath("home/share")));
        qputenv("HOME", QFile::encodeName(m_dir.filePath("home")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_dir.filePath("home/share")));
    }

    void recordsReadBackAndBadLinesAreSkipped()
    {
        ActivityLog log(m_dir.filePath("share/nimbrell/activity.jsonl"));
        const ActivityRecord conflict{m_docs, "gdrive:Docs", m_time, ActivityRecord::Kind::conflict, "plan 🏖.txt",
                                      A::added, false, "plan 🏖.txt.conflict1", true};
        const ActivityRecord undecided{m_docs, "gdrive:Docs", m_time, ActivityRecord::Kind::conflict, "a.txt",
                                       A::added, true, "a.txt.conflict2", std::nullopt};
        const QList<ActivityRecord> records{change(m_docs, "Été/notes \"1\".txt", A::updated, false),
                                            change(m_photos, "b.jpg", A::deleted), conflict, undecided};
        QVERIFY(log.append(records));
        QCOMPARE(log.read(), records);

        // Garbage, records missing what they need, and a line torn by a crash.
        QFile file(log.path());
        QVERIFY(file.open(QIODevice::Append));
        file.write("not json\n{}\n{\"folder\":\"x\",\"time\":\"2026-11-22T10:00:00Z\",\"path\":\"a\"}\n"
                   + ActivityLog::encode(change(m_docs, "c")).replace("\"new\"", "\"moved\"") + "\n"
                   // paths that lead out of the folder, or hold a line break
                   + ActivityLog::encode(change(m_docs, "../../.ssh/id_rsa")) + "\n"
                   + ActivityLog::encode(change(m_docs, "a\nb")) + "\n"
                   + ActivityLog::encode({m_docs, "gdrive:Docs", m_time, ActivityRecord::Kind::conflict, "a.txt",
                                          A::added, true, "/home/ann/.ssh/id_rsa", true}) + "\n"
                   + ActivityLog::encode(change(m_docs, "torn")).left(30));
        file.close();
        QVERIFY(ActivityLog(log.path()).append({change(m_docs, "after")}));
        QCOMPARE(log.read(), records + QList<ActivityRecord>{change(m_docs, "after")});

        QVERIFY(log.removeFolder(m_docs));
        QCOMPARE(log.read(), QList<ActivityRecord>{change(m_photos, "b.jpg", A::deleted)});
        QVERIFY(ActivityLog(m_dir.filePath("none/activity.jsonl")).read().isEmpty());
    }

    // Open conflicts are the ones whose two copies are both still here,
    // newest first and each once; the last change is the newest change.
    void whatAFolderComesTo()
    {
        const QString local = m_dir.filePath("Docs");
        for (const char *file : {"a.txt", "a.txt.conflict1", "b.txt", "c.txt", "c.txt.conflict1"})
            writeFile(local + "/" + file, "x");
        const auto conflict = [&](const QString &path, int minutes) {
            return ActivityRecord{m_docs, "gdrive:Docs", m_time.addSecs(60 * minutes), ActivityRecord::Kind::conflict,
                                  path, A::added, false, path + ".conflict1", true};
        };
        ActivityRecord later = change(m_docs, "d.txt");
        later.time = m_time.addSecs(600);
        const QList<ActivityRecord> records{change(m_docs, "x"), conflict("a.txt", 1), conflict("b.txt", 2),
                                            later, conflict("c.txt", 3), conflict("a.txt", 4),
                                            change(m_photos, "newer elsewhere")};
        const FolderActivity docs = FolderActivity::of(records, m_docs, local);
        QCOMPARE(docs.openConflicts, (QList<ActivityRecord>{conflict("a.txt", 4), conflict("c.txt", 3)}));
        QCOMPARE(docs.lastChange, later.time);
        QCOMPARE(FolderActivity::of(records, QUuid::createUuid(), local).lastChange, std::nullopt);
    }

    // Each choice leaves one file under the name, or both under readable
    // names; the copy not kept is in the trash, never deleted.
    void conflictSettled_data()
    {
        QTest::addColumn<int>("choice");
        QTest::addColumn<QStringList>("present"); // beside the two copies before
        QTest::addColumn<QStringList>("after");   // the folder's files, "name=content"
        QTest::addColumn<QString>("trashed");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QStringList>("remoteCopy");
        QTest::addColumn<QString>("renamed"); // as the record names it
        using C = ConflictCopies::Choice;
        const QString renamed = "d/r.txt.conflict1";
        const QString secret = m_dir.filePath("secret");
        const QString date = m_time.toLocalTime().date().toString(Qt::ISODate);
        QTest::newRow("keep the one under the name") << int(C::keepOriginal) << QStringList()
            << QStringList{"d/r.txt=theirs"} << "mine" << "" << QStringList() << renamed;
        QTest::newRow("keep the renamed one") << int(C::keepRenamed) << QStringList()
            << QStringList{"d/r.txt=mine"} << "theirs" << ""
            << QStringList{"copyto", m_dir.filePath("Settle/d/r.txt"), "gdrive:Docs/d/r.txt"} << renamed;
        QTest::newRow("keep both") << int(C::keepBoth) << QStringList()
            << QStringList{"d/r (conflict " + date + ").txt=mine", "d/r.txt=theirs"} << "" << "" << QStringList() << renamed;
        QTest::newRow("keep both, the readable name taken")
            << int(C::keepBoth) << QStringList{"d/r (conflict " + date + ").txt"}
            << QStringList{"d/r (conflict " + date + " 2).txt=mine", "d/r (conflict " + date + ").txt=x", "d/r.txt=theirs"}
            << "" << "" << QStringList() << renamed;
        QTest::newRow("a copy gone meanwhile") << int(C::keepRenamed) << QStringList{"-d/r.txt.conflict1"}
            << QStringList{"d/r.txt=theirs"} << "" << "“r.txt.conflict1” is no longer there."
            << QStringList{"copyto", m_dir.filePath("Settle/d/r.txt"), "gdrive:Docs/d/r.txt"} << renamed;
        // A name forged into rclone's log: nothing outside the folder moves.
        QTest::newRow("renamed copy named outside") << int(C::keepRenamed) << QStringList()
            << QStringList{"d/r.txt=theirs", "d/r.txt.conflict1=mine"} << "" << "“secret” is not in this folder."
            << QStringList{"copyto", m_dir.filePath("Settle/d/r.txt"), "gdrive:Docs/d/r.txt"} << secret;
        QTest::newRow("renamed copy climbing out") << int(C::keepBoth) << QStringList()
            << QStringList{"d/r.txt=theirs", "d/r.txt.conflict1=mine"} << "" << "“secret” is not in this folder."
            << QStringList() << "../secret";
        QTest::newRow("renamed copy behind a link") << int(C::keepOriginal) << QStringList{"@d/out"}
            << QStringList{"d/r.txt=theirs", "d/r.txt.conflict1=mine"} << "" << "“secret” is not in this folder."
            << QStringList() << "d/out/secret";
    }
    void conflictSettled()
    {
        QFETCH(int, choice);
        QFETCH(QStringList, present);
        QFETCH(QStringList, after);
        QFETCH(QString, trashed);
        QFETCH(QString, error);
        QFETCH(QStringList, remoteCopy);
        QFETCH(QString, renamed);
        const QString local = m_dir.filePath("Settle"), trash = m_dir.filePath("home/share/Trash");
        writeFile(m_dir.filePath("secret"), "private key");
        QDir(local).removeRecursively();
        QDir(trash).removeRecursively();
        writeFile(local + "/d/r.txt", "theirs");
        writeFile(local + "/d/r.txt.conflict1", "mine");
        for (const QString &path : present) {
            if (path.startsWith('-'))
                QVERIFY(QFile::remove(local + "/" + path.mid(1)));
            else if (path.startsWith('@'))
                QVERIFY(QFile::link(m_dir.path(), local + "/" + path.mid(1)));
            else
                writeFile(local + "/" + path, "x");
        }
        // This computer's copy lost and was renamed; the remote's kept the name.
        const ActivityRecord record{m_docs, "gdrive:Docs", m_time, ActivityRecord::Kind::conflict, "d/r.txt",
                                    A::added, false, renamed, true};
        ConflictCopies copies(local, record);
        QCOMPARE(copies.original().fromRemote, true);
        QCOMPARE(copies.renamed().fromRemote, false);
        QCOMPARE(copies.remoteCopy(ConflictCopies::Choice(choice)), remoteCopy);
        QCOMPARE(copies.settle(ConflictCopies::Choice(choice)), error);

        QCOMPARE(readFile(m_dir.filePath("secret")), "private key");
        QStringList files;
        for (const QString &name : QDir(local + "/d").entryList(QDir::Files | QDir::NoSymLinks, QDir::Name))
            files.append("d/" + name + "=" + readFile(local + "/d/" + name));
        QCOMPARE(files, after);
        const QStringList inTrash = QDir(trash + "/files").entryList(QDir::Files);
        QCOMPARE(inTrash.size(), trashed.isEmpty() ? 0 : 1);
        if (!trashed.isEmpty())
            QCOMPARE(readFile(trash + "/files/" + inTrash.first()), trashed.toUtf8());
    }

    void readableNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("readable");
        QTest::newRow("extension") << "report.txt" << "report (conflict 2026-11-22).txt";
        QTest::newRow("directories, last extension") << "a/b c/x.tar.gz" << "a/b c/x.tar (conflict 2026-11-22).gz";
        QTest::newRow("hidden file") << ".bashrc" << ".bashrc (conflict 2026-11-22)";
        QTest::newRow("no extension, dotted directory") << "v1.2/Makefile" << "v1.2/Makefile (conflict 2026-11-22)";
        QTest::newRow("taken twice") << "plan 🏖.md" << "plan 🏖 (conflict 2026-11-22 3).md";
    }
    void readableNames()
    {
        QFETCH(QString, path);
        QFETCH(QString, readable);
        const QStringList taken{"plan 🏖 (conflict 2026-11-22).md", "plan 🏖 (conflict 2026-11-22 2).md"};
        QCOMPARE(ConflictCopies::readableName(path, QDate(2026, 11, 22), [&](const QString &name) { return taken.contains(name); }),
                 readable);
    }

    // The newest kMaxRecords stay, the file rewritten whole.
    void keepsTheNewest()
    {
        ActivityLog log(m_dir.filePath("bounded.jsonl"));
        QList<ActivityRecord> first;
        for (int i = 0; i < ActivityLog::kMaxRecords - 10; ++i)
            first.append(change(m_docs, QString::number(i)));
        QVERIFY(log.append(first));
        QList<ActivityRecord> next;
        for (int i = 0; i < 25; ++i)
            next.append(change(m_docs, "next " + QString::number(i)));
        QVERIFY(log.append(next));
        const QList<ActivityRecord> kept = ActivityLog(log.path()).read();
        QCOMPARE(kept.size(), ActivityLog::kMaxRecords);
        QCOMPARE(kept.first().path, "15");
        QCOMPARE(kept.last().path, "next 24");
        QCOMPARE(readFile(log.path()).count('\n'), ActivityLog::kMaxRecords);
    }
};

QTEST_GUILESS_MAIN(TestActivityLog)
#include "tst_activitylog.moc"
