// The preview of a recovery against the same dry run of rclone alone: 10,000
// files, 100 changed on each side, local remotes. Prints figures.
#include "BenchSupport.h"
#include "engine/BisyncLocks.h"
#include "engine/Bisync.h"
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "sync/SyncManager.h"
#include "sync/SyncReview.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.Nimbrell.*=false"));
    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));
    const QString local = root.filePath(QStringLiteral("local")), remote = root.filePath(QStringLiteral("remote"));
    for (int d = 0; d < 100; ++d) {
        QDir().mkpath(local + QStringLiteral("/d%1").arg(d));
        for (int f = 0; f < 100; ++f)
            write(local + QStringLiteral("/d%1/f%2.txt").arg(d).arg(f), QByteArray::number(f));
    }
    QDir().mkpath(remote);
    write(root.filePath(QStringLiteral("rclone.conf")), "[bench]\ntype = alias\nremote = " + remote.toUtf8() + "\n");
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));
    const QString target = QStringLiteral("bench:");
    const QStringList first = Bisync::arguments({local, target, std::nullopt, ConflictResolution::keepBoth, true, {}},
                                                            BisyncLocks::workDirectory());
    QDir().mkpath(BisyncLocks::workDirectory());
    QProcess initial;
    initial.setStandardOutputFile(QProcess::nullDevice());
    initial.setStandardErrorFile(QProcess::nullDevice());
    initial.start(engine.rclonePath(), first);
    if (!initial.waitForFinished(-1) || initial.exitCode() != 0)
        qFatal("the first sync failed");
    for (int i = 0; i < 100; ++i) {
        write(local + QStringLiteral("/d%1/f1.txt").arg(i), "changed here");
        write(remote + QStringLiteral("/d%1/f2.txt").arg(i), "changed there");
    }

    MemorySettingsStore settings;
    FakeFileEventService events;
    SyncManager manager({settings, engine, events});
    SyncFolder folder;
    folder.name = QStringLiteral("Bench");
    folder.localPath = local;
    folder.remoteTargets = {{QUuid::createUuid(), QStringLiteral("bench"), QString(), true}};
    manager.addFolder(folder);
    const QStringList direct = Bisync::arguments(
        {local, target, folder.filters, folder.conflictResolution, false, SyncReview::extraArguments(SyncReview::Kind::changes, true)},
        BisyncLocks::workDirectory());

    std::vector<double> previews, directs;
    qsizetype changes = 0;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        QProcess rclone;
        rclone.setProcessChannelMode(QProcess::MergedChannels);
        rclone.setStandardOutputFile(QProcess::nullDevice());
        rclone.start(engine.rclonePath(), direct);
        rclone.waitForFinished(-1);
        directs.push_back(double(timer.nsecsElapsed()) / 1e6);

        SyncReview review(manager, engine);
        timer.restart();
        review.preview(folder.id, folder.remoteTargets.first().id, SyncReview::Kind::changes);
        QEventLoop loop;
        QObject::connect(&review, &SyncReview::stateChanged, &loop, [&] {
            if (review.state() != SyncReview::State::previewing)
                loop.quit();
        });
        loop.exec();
        previews.push_back(double(timer.nsecsElapsed()) / 1e6);
        changes = review.changes().size();
        if (review.state() != SyncReview::State::ready)
            qFatal("the preview failed: %s", qPrintable(review.error()));
    }
    std::printf("preview of 10,000 files, %lld changes listed\n", static_cast<long long>(changes));
    std::printf("  rclone bisync --dry-run alone: median %.0f ms\n", median(directs));
    std::printf("  Nimbrell's preview:            median %.0f ms (%+.1f %%)\n", median(previews),
                (median(previews) / median(directs) - 1.0) * 100.0);
    return 0;
}
