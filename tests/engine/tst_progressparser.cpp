#include "engine/ProgressParser.h"
#include "support/TestFiles.h"

#include <QTest>

Q_DECLARE_METATYPE(SyncProgress)
Q_DECLARE_METATYPE(std::optional<SyncProgress>)

namespace {
SyncProgress sizeLine(std::optional<double> percentage, const QString &size, const QString &speed)
{
    return SyncProgress{percentage, size, std::nullopt, speed};
}
} // namespace

class TestProgressParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<std::optional<SyncProgress>>("expected");
        using P = std::optional<SyncProgress>;

        QTest::newRow("size line") << "Transferred:   1.500 MiB / 10 MiB, 15%, 2 MiB/s, ETA 4s"
                                   << P(sizeLine(0.15, "1.500 MiB / 10 MiB", "2 MiB/s, ETA 4s"));
        QTest::newRow("size line as rclone pads it")
            << "Transferred:   \t   80.828 KiB / 10.014 MiB, 1%, 0 B/s, ETA -"
            << P(sizeLine(0.01, "80.828 KiB / 10.014 MiB", "0 B/s, ETA -"));
        QTest::newRow("fractional percent") << "Transferred:   1 GiB / 2 GiB, 42.5%, 1.2 MiB/s, ETA 7s"
                                            << P(sizeLine(0.425, "1 GiB / 2 GiB", "1.2 MiB/s, ETA 7s"));
        QTest::newRow("nothing known yet") << "Transferred:   0 B / 0 B, -, 0 B/s, ETA -"
                                           << P(sizeLine(std::nullopt, "0 B / 0 B", "0 B/s, ETA -"));
        QTest::newRow("Bytes unit") << "Transferred:   10 Bytes / 20 Bytes, 50%, 1 Bytes/s, ETA 1s"
                                    << P(sizeLine(0.5, "10 Bytes / 20 Bytes", "1 Bytes/s, ETA 1s"));
        QTest::newRow("percent with a space is not a number")
            << "Transferred:   1 MiB / 2 MiB, 50 %, 1 MiB/s, ETA 1s"
            << P(sizeLine(std::nullopt, "1 MiB / 2 MiB", "1 MiB/s, ETA 1s"));
        QTest::newRow("speed keeps its inner commas") << "Transferred:   1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s, x"
                                                      << P(sizeLine(0.5, "1 MiB / 2 MiB", "1 MiB/s, ETA 1s, x"));
        QTest::newRow("size line with two parts") << "Transferred:   1 MiB / 2 MiB, 50%" << P(SyncProgress());
        QTest::newRow("count line") << "Transferred:            3 / 10, 30%"
                                    << P(SyncProgress{std::nullopt, std::nullopt, "3 / 10", std::nullopt});
        QTest::newRow("count line, nothing else") << "Transferred:           20 / 20"
                                                  << P(SyncProgress{std::nullopt, std::nullopt, "20 / 20", std::nullopt});
        QTest::newRow("no slash") << "Transferred: nothing" << P(SyncProgress());
        QTest::newRow("checks") << "Checks:                 0 / 0, -, Listed 40" << P();
        QTest::newRow("errors") << "Errors:                 1 (retrying may help)" << P();
        QTest::newRow("indented") << "  Transferred:   1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s" << P();
        QTest::newRow("lower case") << "transferred:   1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s" << P();
        QTest::newRow("log line") << "2026/11/21 10:41:34 INFO  : file 1.bin: Copied (new)" << P();
        QTest::newRow("empty") << "" << P();
    }
    void lines()
    {
        QFETCH(QString, line);
        QFETCH(std::optional<SyncProgress>, expected);
        QCOMPARE(ProgressParser::parseLine(line), expected);
    }

    void splitsGluedStatistics_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("pieces");
        QTest::newRow("plain") << "Transferred:   1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s"
                               << QStringList{"Transferred:   1 MiB / 2 MiB, 50%, 1 MiB/s, ETA 1s"};
        QTest::newRow("glued to a speed")
            << "Transferred:   \t 11 MiB / 34 MiB, 33%, 11.444 MiB/sTransferred:   \t 34.332 MiB / 34.332 MiB, 100%, 0 B/s, ETA -"
            << QStringList{"Transferred:   \t 11 MiB / 34 MiB, 33%, 11.444 MiB/s",
                           "Transferred:   \t 34.332 MiB / 34.332 MiB, 100%, 0 B/s, ETA -"};
        QTest::newRow("glued to elapsed time") << "Elapsed time:         0.0sTransferred:           20 / 20, 100%"
                                               << QStringList{"Elapsed time:         0.0s",
                                                              "Transferred:           20 / 20, 100%"};
        QTest::newRow("after a blank stays") << "note: Transferred: 1 / 2"
                                             << QStringList{"note: Transferred: 1 / 2"};
        QTest::newRow("twice") << "aTransferred: 1 / 2bTransferred: 2 / 2"
                               << QStringList{"a", "Transferred: 1 / 2b", "Transferred: 2 / 2"};
    }
    void splitsGluedStatistics()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, pieces);
        QStringList actual;
        for (const QStringView piece : ProgressParser::splitStatistics(line))
            actual.append(piece.toString());
        QCOMPARE(actual, pieces);
    }

    // A whole first sync of 20 files (10 MiB) as rclone printed it.
    void realOutput()
    {
        QList<SyncProgress> values;
        for (const QByteArray &line : readFile(QStringLiteral(TEST_DATA_DIR "/bisync-resync-output.txt")).split('\n')) {
            const QString text = QString::fromUtf8(line);
            for (const QStringView piece : ProgressParser::splitStatistics(text)) {
                if (const auto progress = ProgressParser::parseLine(piece))
                    values.append(*progress);
            }
        }
        QCOMPARE(values.size(), 57); // one of the 57 lines with "Transferred:" begins with "Elapsed time:"

        QList<double> percentages;
        QStringList files;
        for (const SyncProgress &value : values) {
            if (value.percentage)
                percentages.append(*value.percentage);
            if (value.fileString)
                files.append(*value.fileString);
        }
        QVERIFY(std::is_sorted(percentages.begin(), percentages.end()));
        QCOMPARE(percentages.front(), 0.01);
        QCOMPARE(percentages.back(), 1.0);
        QCOMPARE(files.front(), "0 / 20");
        QCOMPARE(files.back(), "20 / 20");
        QCOMPARE(values.back().fileString, "20 / 20");
        // The statistics block glued to "Elapsed time:" is read too.
        const auto complete = std::count_if(values.begin(), values.end(), [](const SyncProgress &value) {
            return value.sizeString == QStringLiteral("10.014 MiB / 10.014 MiB");
        });
        QCOMPARE(complete, 6);
    }
};

QTEST_APPLESS_MAIN(TestProgressParser)
#include "tst_progressparser.moc"
