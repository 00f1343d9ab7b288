// Prints what watching costs: the time and memory to watch a tree of 10,000
// directories, the CPU the program uses while 100 watched folders sit idle,
// and the delay from the last change in a folder to the start of its sync.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "platform/InotifyFileEventService.h"
#include "sync/SyncManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <sys/resource.h>

using namespace std::chrono_literals;

namespace {



double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}


void touch(const QString &path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write("x");
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show up as they come
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*.info=false\norg.nimbrell.*.debug=false"));
    QTemporaryDir root;

    // 1. A tree of 10,000 directories (100 x 100).
    const QString tree = root.filePath(QStringLiteral("tree"));
    for (int a = 0; a < 100; ++a) {
        for (int b = 0; b < 100; ++b)
            QDir().mkpath(QStringLiteral("%1/a%2/b%3").arg(tree).arg(a).arg(b));
    }
    {
        InotifyFileEventService service;
        const long before = residentKiB();
        QElapsedTimer timer;
        timer.start();
        auto watch = service.watch(tree, {}, [](const QStringList &) {});
        const double ms = double(timer.nsecsElapsed()) / 1e6;
        std::printf("watching a tree of 10,100 directories\n");
        std::printf("  time:    %.1f ms\n", ms);
        std::printf("  memory:  %ld KiB more resident in the program (%d kernel watches)\n", residentKiB() - before,
                    service.watchCount());
    }

    // 2. 100 watched folders, idle for 60 s.
    const QString home = root.filePath(QStringLiteral("home"));
    qputenv("HOME", QFile::encodeName(home));
    MemorySettingsStore settings;
    settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));
    InotifyFileEventService fileEvents;
    {
        QList<SyncFolder> folders;
        for (int i = 0; i < 100; ++i) {
            SyncFolder folder;
            folder.name = QStringLiteral("Folder %1").arg(i);
            folder.localPath = QStringLiteral("%1/folders/%2").arg(root.path()).arg(i);
            for (int d = 0; d < 20; ++d)
                QDir().mkpath(QStringLiteral("%1/sub%2").arg(folder.localPath).arg(d));
            folders.append(folder); // no targets: nothing to sync, only watching
        }
        settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, false);
        SyncManager manager({settings, engine, fileEvents});
        for (const SyncFolder &folder : folders)
            manager.addFolder(folder);
        manager.automatic().setGlobalSyncEnabled(true);
        const double cpuBefore = cpuSeconds();
        QElapsedTimer timer;
        timer.start();
        wait(60000);
        const double cpu = cpuSeconds() - cpuBefore;
        std::printf("100 watched folders (2,100 directories) idle for %.0f s\n", double(timer.elapsed()) / 1000.0);
        std::printf("  CPU:     %.3f s (%.4f %%)\n", cpu, cpu * 100.0 / (double(timer.elapsed()) / 1000.0));
        std::printf("  watches: %d\n", fileEvents.watchCount());
    }

    // 3. From the last change to the start of the run, with the real delays.
    {
        QFile config(root.filePath(QStringLiteral("rclone.conf")));
        if (!config.open(QIODevice::WriteOnly))
            return 1;
        config.write("[backup]\ntype = alias\nremote = " + QFile::encodeName(root.filePath(QStringLiteral("remote"))) + "\n");
        config.close();
        qputenv("RCLONE_CONFIG", QFile::encodeName(config.fileName()));

        SyncFolder folder;
        folder.name = QStringLiteral("Watched");
        folder.localPath = root.filePath(QStringLiteral("watched"));
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("backup"), QStringLiteral("w"), false}};
        QDir().mkpath(folder.localPath);
        SyncManager manager({settings, engine, fileEvents});
        manager.addFolder(folder);

        std::printf("delay from the last change to the start of the run (debounce 5 s, batching 1 s)\n");
        for (int round = 0; round < 3; ++round) {
            QElapsedTimer sinceLastChange;
            bool started = false;
            double delay = 0;
            const auto connection = QObject::connect(&manager.repository(), &FolderRepository::folderChanged, [&](qsizetype row) {
                if (!started && manager.folders().at(row).status == SyncStatus::syncing) {
                    started = true;
                    delay = double(sinceLastChange.nsecsElapsed()) / 1e9;
                }
            });
            for (int i = 0; i < 5; ++i) { // a burst of changes over about 2 s
                touch(QStringLiteral("%1/file%2-%3").arg(folder.localPath).arg(round).arg(i));
                sinceLastChange.start();
                wait(400);
            }
            while (!started)
                wait(50);
            QObject::disconnect(connection);
            std::printf("  round %d: %.2f s\n", round + 1, delay);
            while (manager.folders().at(0).status == SyncStatus::syncing)
                wait(50);
            wait(3000); // let the run's own follow-up window pass
        }
    }
    return 0;
}
