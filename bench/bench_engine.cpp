// Prints the progress parser's throughput on real bisync output, and the wall
// time of a no-change bisync through the engine next to rclone run directly.
#include "engine/ChangeParser.h"
#include "engine/BisyncLocks.h"
#include "engine/Bisync.h"
#include "engine/ProgressParser.h"
#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "sync/RemovedFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void makeTree(const QString &root, int files)
{
    for (int i = 0; i < files; ++i) {
        const QString dir = QStringLiteral("%1/d%2").arg(root).arg(i / 100);
        QDir().mkpath(dir);
        QFile file(QStringLiteral("%1/file %2.txt").arg(dir).arg(i));
        if (file.open(QIODevice::WriteOnly))
            file.write(QByteArray(512 + i % 1024, 'a' + char(i % 26)));
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Runs rclone directly, output merged and discarded; seconds.
double rawBisync(const QString &rclone, const QStringList &arguments)
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(rclone, arguments);
    process.waitForFinished(-1);
    if (process.exitCode() != 0)
        std::fprintf(stderr, "raw bisync failed with %d\n", process.exitCode());
    return double(timer.nsecsElapsed()) / 1e9;
}

// Runs a bisync directly and keeps its merged output, as the engine reads it.
struct Recorded
{
    qsizetype bytes = 0;
    QStringList lines;
};
Recorded recordBisync(const QString &rclone, const BisyncRequest &request)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(rclone, Bisync::arguments(request, BisyncLocks::workDirectory()));
    process.waitForFinished(-1);
    const QByteArray output = process.readAll();
    Recorded recorded{output.size(), {}};
    for (const QByteArray &line : output.split('\n'))
        recorded.lines.append(QString::fromUtf8(line));
    return recorded;
}

double engineBisync(RcloneEngine &engine, const BisyncRequest &request, ChangeParser *changes = nullptr)
{
    QElapsedTimer timer;
    timer.start();
    QEventLoop loop;
    bool ok = false;
    RcloneJob *job = engine.bisync(request, nullptr, [](const SyncProgress &) {}, [&](const RcloneStatus &result) {
        ok = result.ok();
        loop.quit();
    });
    // As a sync run does it.
    if (changes)
        QObject::connect(job, &RcloneJob::lineRead, job, [changes](const QString &line) { changes->addLine(line); });
    loop.exec();
    if (!ok)
        std::fprintf(stderr, "engine bisync failed\n");
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show up as they come
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));
    const QString rclone = QStringLiteral(RCLONE_PATH);
    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.filePath(QStringLiteral("home/.local/share"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));
    {
        QFile config(root.filePath(QStringLiteral("rclone.conf")));
        if (!config.open(QIODevice::WriteOnly))
            return 1;
        config.write("[backup]\ntype = alias\nremote = " + QFile::encodeName(root.filePath(QStringLiteral("remote"))) + "\n");
    }
    QDir().mkpath(BisyncLocks::workDirectory());

    // 1. Parser throughput on the output of a first sync of 2,000 files.
    const QString big = root.filePath(QStringLiteral("big"));
    makeTree(big, 2000);
    BisyncRequest first{big, QStringLiteral("backup:big"), std::nullopt, ConflictResolution::keepBoth, true};
    QDir().mkpath(root.filePath(QStringLiteral("remote/big")));
    const Recorded output = recordBisync(rclone, first);
    const QStringList &lines = output.lines;

    constexpr int kParseRounds = 20;
    qsizetype values = 0;
    QElapsedTimer timer;
    timer.start();
    for (int round = 0; round < kParseRounds; ++round) {
        for (const QString &line : std::as_const(lines)) {
            for (const QStringView piece : ProgressParser::splitStatistics(line))
                values += ProgressParser::parseLine(piece).has_value();
        }
    }
    const double parseSeconds = double(timer.nsecsElapsed()) / 1e9;
    std::printf("progress parser, real output of a first sync of 2,000 files\n");
    std::printf("  output:     %lld lines, %.2f MB, %lld progress values\n", static_cast<long long>(lines.size()),
                double(output.bytes) / 1e6, static_cast<long long>(values / kParseRounds));
    std::printf("  throughput: %.2f million lines/s\n", double(lines.size()) * kParseRounds / parseSeconds / 1e6);

    // 2. A no-change bisync of 1,000 files, through the engine and directly.
    const QString tree = root.filePath(QStringLiteral("tree"));
    makeTree(tree, 1000);
    RcloneEngine engine(rclone);
    BisyncRequest request{tree, QStringLiteral("backup:tree"), SyncFilterOptions(), ConflictResolution::keepBoth, true};
    engineBisync(engine, request); // the initial sync
    request.isInitialSync = false;
    const QStringList raw = Bisync::arguments(request, BisyncLocks::workDirectory());
    const QStringList mkdir{QStringLiteral("mkdir"), request.remoteSpec};
    constexpr int kRuns = 11;
    std::vector<double> viaEngine, direct, directWithMkdir;
    for (int i = 0; i < kRuns; ++i) {
        direct.push_back(rawBisync(rclone, raw));
        directWithMkdir.push_back(rawBisync(rclone, mkdir) + rawBisync(rclone, raw));
        viaEngine.push_back(engineBisync(engine, request));
    }
    const double e = median(viaEngine), d = median(direct), dm = median(directWithMkdir);
    std::printf("no-change bisync of 1,000 files (median of %d runs)\n", kRuns);
    std::printf("  rclone bisync directly:           %.3f s\n", d);
    std::printf("  rclone mkdir + bisync directly:   %.3f s\n", dm);
    std::printf("  engine (mkdir + bisync, parsed):  %.3f s\n", e);
    std::printf("  ratio engine / bisync alone:      %.3f\n", e / d);
    std::printf("  ratio engine / same two commands: %.3f\n", e / dm);

    // 3. The change parser: its throughput on the real output of a first sync
    // of 10,000 files, and what it costs such a sync, in runs that take turns.
    const QString tenThousand = root.filePath(QStringLiteral("ten"));
    makeTree(tenThousand, 10000);
    const auto firstSync = [&](int run) {
        const QString remote = QStringLiteral("ten%1").arg(run);
        QDir().mkpath(root.filePath(QStringLiteral("remote/") + remote));
        return BisyncRequest{tenThousand, QStringLiteral("backup:") + remote, std::nullopt, ConflictResolution::keepBoth, true};
    };
    const Recorded tenOutput = recordBisync(rclone, firstSync(0));
    const QStringList &tenLines = tenOutput.lines;
    constexpr int kChangeRounds = 5;
    ChangeParser parsed;
    timer.restart();
    for (int round = 0; round < kChangeRounds; ++round) {
        parsed = ChangeParser();
        for (const QString &line : std::as_const(tenLines))
            parsed.addLine(line);
    }
    const double changeSeconds = double(timer.nsecsElapsed()) / 1e9;
    std::printf("change parser, real output of a first sync of 10,000 files\n");
    std::printf("  output:     %lld lines, %.2f MB\n", static_cast<long long>(tenLines.size()), double(tenOutput.bytes) / 1e6);
    std::printf("  changes:    %lld kept, %lld counted beyond the bound\n", static_cast<long long>(parsed.changes().size()),
                static_cast<long long>(parsed.droppedChanges()));
    std::printf("  throughput: %.2f million lines/s\n", double(tenLines.size()) * kChangeRounds / changeSeconds / 1e6);

    constexpr int kPairs = 3;
    std::vector<double> withParser, withoutParser;
    for (int pair = 0; pair < kPairs; ++pair) {
        ChangeParser changes;
        withParser.push_back(engineBisync(engine, firstSync(2 * pair + 1), &changes));
        withoutParser.push_back(engineBisync(engine, firstSync(2 * pair + 2)));
    }
    const double w = median(withParser), wo = median(withoutParser);
    std::printf("first sync of 10,000 files through the engine (median of %d each, taking turns)\n", kPairs);
    std::printf("  without the change parser: %.3f s\n", wo);
    std::printf("  with the change parser:    %.3f s\n", w);
    std::printf("  ratio with / without:      %.3f\n", w / wo);

    // 4. What "Keep removed and replaced files" costs a run of a 10,000-file
    // folder with 1 % of its files changed here: two pairs of the same tree,
    // one keeping, taking turns on the same changes.
    const RemoteTarget keeping{QUuid::createUuid(), QStringLiteral("backup"), QStringLiteral("ten1"), true};
    const QUuid keepingFolder = QUuid::createUuid();
    std::vector<double> plain, kept;
    for (int round = 0; round < 5; ++round) {
        for (int i = round; i < 10000; i += 100) {
            QFile file(QStringLiteral("%1/d%2/file %3.txt").arg(tenThousand).arg(i / 100).arg(i));
            if (file.open(QIODevice::WriteOnly))
                file.write(QByteArray(600 + round, 'x'));
        }
        BisyncRequest without = firstSync(2), with = firstSync(1);
        without.isInitialSync = with.isInitialSync = false;
        with.keepArguments = RemovedFiles::arguments(keepingFolder, keeping, true, true, QDateTime::currentDateTimeUtc());
        if (round % 2 == 0) {
            plain.push_back(engineBisync(engine, without));
            kept.push_back(engineBisync(engine, with));
        } else {
            kept.push_back(engineBisync(engine, with));
            plain.push_back(engineBisync(engine, without));
        }
    }
    const double k = median(kept), p = median(plain);
    std::printf("bisync of 10,000 files with 100 changed here (median of 5 each, taking turns)\n");
    std::printf("  without keeping: %.3f s\n", p);
    std::printf("  keeping removed and replaced files: %.3f s\n", k);
    std::printf("  ratio keeping / without: %.3f\n", k / p);
    return 0;
}
