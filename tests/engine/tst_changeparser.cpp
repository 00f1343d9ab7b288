// What a real bisync run changed, read from its recorded output.
#include "engine/ChangeParser.h"
#include "support/TestFiles.h"

#include <QTest>

using Change = ChangeParser::Change;
using Conflict = ChangeParser::Conflict;
using A = ChangeParser::Action;
Q_DECLARE_METATYPE(QList<Change>)
Q_DECLARE_METATYPE(QList<Conflict>)

namespace {
ChangeParser parsed(const QString &file)
{
    ChangeParser parser;
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
        // Both sides changed: names with blanks, accents and emoji; deletions
        // on either side come from the queue, not the section they print in.
        QTest::newRow("changes on both sides") << "preview/normal-changes.log"
            << QList<Change>{{"Remote new 📷.txt", A::added, false}, {"Recipes/soupe à l'oignon.txt", A::added, false},
                             {"Trips/budget.txt", A::updated, false}, {"to remove.txt", A::deleted, false},
                             {"Trips/photo 🌅.jpg", A::deleted, false}, {"Café menu.txt", A::updated, true},
                             {"Local new.txt", A::added, true}, {"Trips/Été 2026/plan 🏖.txt", A::added, true},
                             {"old notes.txt", A::deleted, true}}
            << QList<Conflict>{};
        // Keep both: each loser renamed on its side and copied over; the
        // winner replaces the file that was renamed away.
        QTest::newRow("conflicts, keep both") << "preview/conflict-keepboth.log"
            << QList<Change>{{"plan.txt.conflict1", A::added, false}, {"minutes.txt", A::updated, false},
                             {"plan.txt", A::updated, true}, {"minutes.txt.conflict1", A::added, true}}
            << QList<Conflict>{{"minutes.txt", "minutes.txt.conflict1", false, true, true},
                               {"plan.txt", "plan.txt.conflict1", true, false, true}};
        // Newer wins: the loser is deleted and the winner copied over it.
        QTest::newRow("conflicts, newer wins") << "preview/conflict-newerwins.log"
            << QList<Change>{{"minutes.txt", A::updated, false}, {"plan.txt", A::updated, true}}
            << QList<Conflict>{};
    }
    void recordedRuns()
    {
        QFETCH(QString, file);
        QFETCH(QList<Change>, changes);
        QFETCH(QList<Conflict>, conflicts);
        const ChangeParser parser = parsed(file);
        QCOMPARE(parser.changes(), changes);
        QCOMPARE(parser.conflicts(), conflicts);
        QCOMPARE(parser.droppedChanges(), 0);
    }
};

QTEST_GUILESS_MAIN(TestChangeParser)
#include "tst_changeparser.moc"
