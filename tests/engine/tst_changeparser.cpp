// What a real bisync run changed, read from its recorded output.
#include "engine/Bisync.h"
#include "engine/ChangeParser.h"
#include "support/TestFiles.h"

#include <QTest>

using Change = ChangeParser::Change;
using Conflict = ChangeParser::Conflict;
using Skipped = ChangeParser::SkippedCopy;
using A = ChangeParser::Action;
Q_DECLARE_METATYPE(QList<Skipped>)
Q_DECLARE_METATYPE(QList<Change>)
Q_DECLARE_METATYPE(QList<Conflict>)

namespace {
ChangeParser parsed(const QString &file, std::optional<bool> oneWayToRemote = std::nullopt)
{
    ChangeParser parser;
    if (oneWayToRemote)
        parser.readOneWay(*oneWayToRemote);
    const QString text = QString::fromUtf8(readFile(QStringLiteral(TEST_DATA_DIR "/") + file));
    for (QStringView line : QStringView(text).split(u'\n'))
        parser.addLine(line);
    return parser;
}
} // namespace

class TestChangeParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordedRuns_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QList<Change>>("changes");
        QTest::addColumn<QList<Conflict>>("conflicts");
        // What rclone's copy skipped of what bisync queued: nothing, but on
        // a remote that keeps times to the second.
        QTest::addColumn<QList<Skipped>>("skipped");
        // Both sides changed: names with blanks, accents and emoji; deletions
        // on either side come from the queue, not the section they print in.
        QTest::newRow("changes on both sides") << "preview/normal-changes.log"
            << QList<Change>{{"Remote new 📷.txt", A::added, false}, {"Recipes/soupe à l'oignon.txt", A::added, false},
                             {"Trips/budget.txt", A::updated, false}, {"to remove.txt", A::deleted, false},
                             {"Trips/photo 🌅.jpg", A::deleted, false}, {"Café menu.txt", A::updated, true},
                             {"Local new.txt", A::added, true}, {"Trips/Été 2026/plan 🏖.txt", A::added, true},
                             {"old notes.txt", A::deleted, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        // A first sync copies both ways; directories are made, not counted.
        QTest::newRow("first sync") << "changes/first-sync.log"
            << QList<Change>{{"Shared/Équipe/agenda d'avril.txt", A::added, false}, {"Shared/café ☕.png", A::added, false},
                             {"from remote.txt", A::added, false}, {"notes.md", A::added, true},
                             {"l'été.txt", A::added, true}, {"photo 🌅.jpg", A::added, true},
                             {"Résumé à jour.pdf", A::added, true}, {"Projects/overview.md", A::added, true},
                             {"readme.txt", A::added, true}, {"Projects/2025/summary.txt", A::added, true},
                             {"Projects/2025/Q1/budget.csv", A::added, true},
                             {"Projects/2025/Q1/plan de travail.txt", A::added, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        QTest::newRow("both sides, a directory deleted") << "changes/both-sides.log"
            << QList<Change>{{"new-remote.txt", A::added, false}, {"Reports 2025/q1 résumé.txt", A::added, false},
                             {"notes.md", A::updated, false}, {"budget.csv", A::deleted, false},
                             {"new-local.txt", A::added, true}, {"readme.txt", A::updated, true},
                             {"archive/2024/mar.txt", A::deleted, true}, {"todo.txt", A::deleted, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        QTest::newRow("deletions only") << "changes/deletions.log"
            << QList<Change>{{"letter.txt", A::deleted, false}, {"archive/2023/feb.txt", A::deleted, false},
                             {"plan.txt", A::deleted, true}, {"projects/beta/old.c", A::deleted, true},
                             {"todo.txt", A::deleted, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        // Keep both: each loser renamed on its side and copied over; the
        // winner replaces the file that was renamed away.
        QTest::newRow("conflicts, keep both") << "changes/conflict-keepboth.log"
            << QList<Change>{{"report.txt", A::updated, false}, {"letter.txt.conflict1", A::added, false},
                             {"letter.txt", A::updated, true}, {"report.txt.conflict1", A::added, true}}
            << QList<Conflict>{{"letter.txt", "letter.txt.conflict1", true, false},
                               {"report.txt", "report.txt.conflict1", false, true}}
            << QList<Skipped>{};
        // Newer wins: the loser is deleted and the winner copied over it.
        // Keeping removed files: what is replaced or deleted is moved into a
        // backup directory first, so no "Deleted" or "replaced existing".
        QTest::newRow("keeping removed files") << "changes/keep-removed.log"
            << QList<Change>{{"new-remote.txt", A::added, false}, {"sub/é e.txt", A::updated, false},
                             {"d.txt", A::deleted, false}, {"new-local.txt", A::added, true},
                             {"c.txt", A::updated, true}, {"a.txt", A::deleted, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        QTest::newRow("conflicts, newer wins") << "changes/conflict-newerwins.log"
            << QList<Change>{{"report.txt", A::updated, false}, {"letter.txt", A::updated, true}}
            << QList<Conflict>{}
            << QList<Skipped>{};
        QTest::newRow("an edit within the remote's second") << "changes/same-second.log"
            << QList<Change>{{"sub/y é.txt", A::updated, false}} << QList<Conflict>{}
            << QList<Skipped>{{"x.bin", 2}};
        // A file downloaded from such a remote is found older here on the
        // next run, and its copy skipped: the same contents.
        QTest::newRow("a download found older") << "changes/time-older.log" << QList<Change>{} << QList<Conflict>{}
            << QList<Skipped>{};
    }
    // An upload-only run's `rclone sync` output: every change lands on the
    // remote; a file moved into the backup directory and copied again was
    // replaced, one moved there alone deleted.
    void oneWayRun()
    {
        QCOMPARE(parsed("changes/oneway-upload-keep.log", true).changes(), (QList<Change>{{"c.txt", A::added, true}, {"a.txt", A::updated, true},
                                                  {"gone.txt", A::deleted, true}}));
    }

    // Files newly left out of the sync look deleted on both sides; only a
    // file deleted on one side is a deletion bisync would carry out.
    void deletionsFoundOnEachSide()
    {
        const ChangeParser parser = parsed("changes/left-out.log");
        QCOMPARE(parser.foundDeleted(1), 8);
        QCOMPARE(parser.foundDeleted(2), 7);
        QCOMPARE(parser.foundDeletedOnlyOn(1), 1);
        QCOMPARE(parser.foundDeletedOnlyOn(2), 0);
        // Against the 10 entries of the listing before: 1 deletion to carry out.
        QCOMPARE(Bisync::listedBeforeTooManyDeletes(QString::fromUtf8(readFile(TEST_DATA_DIR "/changes/left-out.log"))), 10);
        QCOMPARE(Bisync::listedBeforeTooManyDeletes("NOTICE: Failed to bisync: too many deletes"), 0);
    }

    void recordedRuns()
    {
        QFETCH(QString, file);
        QFETCH(QList<Change>, changes);
        QFETCH(QList<Conflict>, conflicts);
        QFETCH(QList<Skipped>, skipped);
        const ChangeParser parser = parsed(file);
        QCOMPARE(parser.changes(), changes);
        QCOMPARE(parser.conflicts(), conflicts);
        QCOMPARE(parser.skippedCopies(), skipped);
        QCOMPARE(parser.droppedChanges(), 0);
    }

    // rclone prints raw file names: a name holding a line break can forge a
    // log line. What such a line names outside the folder is never taken.
    void forgedLinesLeadNowhere()
    {
        ChangeParser parser;
        QTest::ignoreMessage(QtWarningMsg, "Ignoring a path in rclone's output that is not inside the folder: /home/user/.ssh/id_rsa");
        for (const char *line : {
                 "2026/11/22 23:53:01 INFO  : Synching Path1 \"/home/user/Docs/\" with Path2 \"backup:Docs/\"",
                 "2026/11/22 23:53:01 NOTICE: - WARNING  New or changed in both paths       - x.txt",
                 "2026/11/22 23:53:01 NOTICE: - Path1    Renaming Path1 copy                - /home/user/.ssh/id_rsa",
                 "2026/11/22 23:53:01 NOTICE: - WARNING  New or changed in both paths       - ../.ssh/id_rsa",
                 "2026/11/22 23:53:01 NOTICE: - Path1    Renaming Path1 copy                - /home/user/Docs/a.conflict1",
                 "2026/11/22 23:53:01 NOTICE: - Path1    Queue delete                       - /home/user/Docs/../x",
                 "2026/11/22 23:53:01 INFO  : - Path1    Queue copy to Path2                - backup:Docs/../../x",
                 "2026/11/22 23:53:01 INFO  : - Path2    Queue copy to Path1                - /etc/passwd",
                 "2026/11/22 23:53:01 INFO  : - Path1    Do queued copies to                - Path2",
                 "2026/11/22 23:53:01 INFO  : ../../.bashrc: Copied (new)",
                 "2026/11/22 23:53:01 INFO  : /etc/passwd: Deleted",
                 "2026/11/22 23:53:01 INFO  : fine.txt: Copied (new)",
             })
            parser.addLine(QString::fromUtf8(line));
        QCOMPARE(parser.conflicts(), QList<Conflict>());
        QCOMPARE(parser.changes(), (QList<Change>{{"fine.txt", A::added, true}}));
        QCOMPARE(parser.skippedCopies(), QList<Skipped>());
    }

    // A 2,000-file first sync: every file rclone counts, each once.
    void largeFirstSync()
    {
        const ChangeParser parser = parsed("changes/first-sync-2000.log");
        const qsizetype counted = readFile(TEST_DATA_DIR "/changes/first-sync-2000.count").trimmed().toLongLong();
        QCOMPARE(counted, 2000);
        QCOMPARE(parser.changes().size(), counted);
        QVERIFY(std::all_of(parser.changes().begin(), parser.changes().end(),
                            [](const Change &change) { return change.action == A::added && change.toRemote; }));
    }
};

QTEST_GUILESS_MAIN(TestChangeParser)
#include "tst_changeparser.moc"
