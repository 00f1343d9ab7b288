// What syncs, at size: the first level of "Choose Folders…" over a tree of
// 100,000 directories (this computer alone, and with a remote target read by
// rclone), a level of 1,000 opened below it, and what 50 ignore rules cost a
// no-change bisync of 10,000 files. Prints figures.
#include "BenchSupport.h"
#include "engine/Bisync.h"
#include "engine/BisyncLocks.h"
#include "engine/RcloneEngine.h"
#include "model/FolderSelection.h"
#include "ui/FolderTreeModel.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

namespace {


// Milliseconds until the tree's pending listings are all in.
double timeToLoad(FolderTreeModel &tree, const std::function<void()> &open)
{
    QElapsedTimer timer;
    timer.start();
    open();
    while (tree.isLoading())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return double(timer.nsecsElapsed()) / 1e6;
}

double runOnce(const QString &rclone, const QStringList &arguments)
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(rclone, arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        qFatal("rclone failed: %s", qPrintable(arguments.join(u' ')));
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.Nimbrell.*=false"));
    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));

    // 100 directories of 1,000 each.
    const QString tree = root.filePath(QStringLiteral("tree"));
    for (int top = 0; top < 100; ++top) {
        for (int below = 0; below < 1000; ++below)
            QDir().mkpath(tree + QStringLiteral("/d%1/e%2").arg(top).arg(below));
    }
    write(root.filePath(QStringLiteral("rclone.conf")),
          "[bench]\ntype = alias\nremote = " + root.path().toUtf8() + "\n");
    std::vector<double> localFirst, remoteFirst, localSecond, remoteSecond;
    for (int round = 0; round < 5; ++round) {
        FolderTreeModel model;
        localFirst.push_back(timeToLoad(model, [&] { model.load(&engine, tree, {}, {}); }));
        localSecond.push_back(timeToLoad(model, [&] { model.fetchMore(model.index(0, 0)); }));
        remoteFirst.push_back(timeToLoad(model, [&] { model.load(&engine, tree, {QStringLiteral("bench:tree")}, {}); }));
        remoteSecond.push_back(timeToLoad(model, [&] { model.fetchMore(model.index(0, 0)); }));
        if (model.rowCount() != 100 || model.rowCount(model.index(0, 0)) != 1000)
            qFatal("the tree read %d and %d rows", model.rowCount(), model.rowCount(model.index(0, 0)));
    }
    std::printf("Choose Folders over 100,000 directories (100 of 1,000), medians of 5\n");
    std::printf("  first level, this computer only:        %7.1f ms\n", median(localFirst));
    std::printf("  first level, with a remote (rclone):    %7.1f ms\n", median(remoteFirst));
    std::printf("  a level of 1,000, this computer only:   %7.1f ms\n", median(localSecond));
    std::printf("  a level of 1,000, with a remote:        %7.1f ms\n", median(remoteSecond));

    // 10,000 files in 100 directories, synced once; then no-change runs.
    const QString local = root.filePath(QStringLiteral("local")), remote = root.filePath(QStringLiteral("remote"));
    for (int d = 0; d < 100; ++d) {
        QDir().mkpath(local + QStringLiteral("/d%1").arg(d));
        for (int f = 0; f < 100; ++f)
            write(local + QStringLiteral("/d%1/f%2.txt").arg(d).arg(f), QByteArray::number(f));
    }
    QDir().mkpath(remote);
    QDir().mkpath(BisyncLocks::workDirectory());
    const QString target = QStringLiteral("bench:remote");
    runOnce(engine.rclonePath(), Bisync::arguments({local, target, SyncFilterOptions(), ConflictResolution::keepBoth, true},
                                                   BisyncLocks::workDirectory()));
    FolderSelection rules;
    for (int i = 0; i < 17; ++i)
        rules.ignore << QStringLiteral("*.tmp%1").arg(i) << QStringLiteral("/build%1/**").arg(i)
                     << QStringLiteral("**/.cache%1/**").arg(i);
    rules.ignore.removeLast();
    BisyncRequest plain{local, target, SyncFilterOptions(), ConflictResolution::keepBoth, false};
    BisyncRequest ruled = plain;
    ruled.selectionArguments = rules.filterArguments();
    std::vector<double> without, with;
    for (int round = 0; round < 5; ++round) {
        without.push_back(runOnce(engine.rclonePath(), Bisync::arguments(plain, BisyncLocks::workDirectory())));
        with.push_back(runOnce(engine.rclonePath(), Bisync::arguments(ruled, BisyncLocks::workDirectory())));
    }
    std::printf("no-change bisync of 10,000 files, medians of 5 (alternating)\n");
    std::printf("  no ignore rules:  %7.0f ms\n", median(without));
    std::printf("  %lld ignore rules: %7.0f ms (%.2fx)\n", static_cast<long long>(rules.ignore.size()), median(with),
                median(with) / median(without));
    return 0;
}
