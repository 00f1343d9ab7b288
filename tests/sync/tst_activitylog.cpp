// The activity file: its records, its bound, and what it does with lines it
// cannot read.
#include "sync/ActivityLog.h"
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
