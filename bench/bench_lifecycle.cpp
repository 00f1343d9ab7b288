// Prints what stopping and starting cost: the time from SIGTERM to a clean
// exit of the real program with 0, 1 and 5 syncs running, the time a second
// start takes to hand over and leave, and, for a start with 500 folders and
// automatic sync on (no-change runs against local remotes), the peak number
// of rclone children, the peak resident memory of the process tree and the
// time until all are done: with the bounded number of slotCount, and all at once.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "platform/FileEventService.h"
#include "sync/SyncManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

namespace {

class NoFileEvents final : public FileEventService
{
public:
    std::unique_ptr<FileWatch> watch(const QString &, const QStringList &, Changes) override
    {
        return std::make_unique<FileWatch>();
    }
};

void writeText(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

QList<SyncFolder> makeFolders(const QString &root, int count, qint64 fileBytes)
{
    QList<SyncFolder> folders;
    for (int i = 0; i < count; ++i) {
        SyncFolder folder;
        folder.name = QStringLiteral("Folder %1").arg(i);
        folder.localPath = QStringLiteral("%1/local/%2").arg(root).arg(i);
        writeText(folder.localPath + QStringLiteral("/file.bin"), QByteArray(fileBytes, 'x'));
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("backup"), QStringLiteral("f%1").arg(i), false}};
        folders.append(folder);
    }
    return folders;
}

// A HOME with `count` folders and automatic sync on.
void prepareHome(const QString &root, const QList<SyncFolder> &folders)
{
    writeText(root + QStringLiteral("/rclone.conf"), "[backup]\ntype = alias\nremote = " + QFile::encodeName(root) + "/remote\n");
    writeText(root + QStringLiteral("/home/.config/nimbrell/nimbrell.conf"), "[General]\nisGlobalSyncEnabled=true\n");
    writeText(root + QStringLiteral("/home/.config/rclone/rclone_sync_folders.json"), FolderStore::encode(folders).value());
}

QProcessEnvironment environment(const QString &root)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), root + QStringLiteral("/home"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + QStringLiteral("/home/.config"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), root + QStringLiteral("/run"));
    env.insert(QStringLiteral("RCLONE_CONFIG"), root + QStringLiteral("/rclone.conf"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("org.nimbrell.*=false"));
    env.insert(QStringLiteral("RCLONE_BWLIMIT"), QStringLiteral("1M")); // the syncs are still running when asked to stop
    return env;
}

// The direct children of a process that are rclone.
QList<qint64> rcloneChildren(qint64 parent)
{
    QList<qint64> children;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.value(1).toLongLong() == parent && line.contains("(rclone)") && fields.value(0) != "Z")
            children.append(entry.toLongLong());
    }
    return children;
}

// Seconds from SIGTERM to the program's exit, with `syncs` folders syncing.
void terminationTime(int syncs)
{
    QTemporaryDir root;
    QDir().mkpath(root.filePath(QStringLiteral("run")));
    prepareHome(root.path(), makeFolders(root.path(), syncs, 50 * 1024 * 1024));
    QProcess program;
    program.setProcessEnvironment(environment(root.path()));
    program.start(QStringLiteral(NIMBRELL_EXECUTABLE), {});
    program.waitForStarted();
    QElapsedTimer waited;
    waited.start();
    while (rcloneChildren(program.processId()).size() < syncs && waited.elapsed() < 20000)
        wait(50);
    const qsizetype running = rcloneChildren(program.processId()).size();
    wait(1000); // into the uploads
    QElapsedTimer timer;
    timer.start();
    program.terminate();
    program.waitForFinished(180000);
    std::printf("SIGTERM to exit, %d sync(s) asked for, %lld rclone children at the time: %.2f s (exit status %d)\n", syncs,
                static_cast<long long>(running), double(timer.nsecsElapsed()) / 1e9, program.exitCode());
}

void secondStartTime()
{
    QTemporaryDir root;
    QDir().mkpath(root.filePath(QStringLiteral("run")));
    prepareHome(root.path(), {});
    QProcess first;
    first.setProcessEnvironment(environment(root.path()));
    first.start(QStringLiteral(NIMBRELL_EXECUTABLE), {});
    first.waitForStarted();
    wait(2000);
    std::vector<double> times;
    for (int i = 0; i < 5; ++i) {
        QProcess second;
        second.setProcessEnvironment(environment(root.path()));
        QElapsedTimer timer;
        timer.start();
        second.start(QStringLiteral(NIMBRELL_EXECUTABLE), {});
        second.waitForFinished(10000);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("second start to its exit: median %.0f ms, worst %.0f ms\n", median(times),
                *std::max_element(times.begin(), times.end()));
    first.terminate();
    first.waitForFinished(30000);
}

// A start with automatic sync on: every folder synced at once, with at most
// `slotCount` rclone bisyncs running.
void startWithManyFolders(int slotCount)
{
    MemorySettingsStore settings;
    settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));
    NoFileEvents fileEvents;
    QElapsedTimer timer;
    timer.start();
    SyncEnvironment environment{settings, engine, fileEvents};
    environment.concurrentSyncs = slotCount;
    SyncManager manager(environment);
    qsizetype peakChildren = 0;
    long peakKiB = 0;
    const auto syncing = [&manager] {
        return std::count_if(manager.folders().begin(), manager.folders().end(),
                             [](const SyncFolder &f) { return f.status == SyncStatus::syncing; });
    };
    while (syncing() > 0) {
        const QList<qint64> children = rcloneChildren(QCoreApplication::applicationPid());
        long kib = residentKiB();
        for (const qint64 child : children)
            kib += residentKiB(QString::number(child));
        peakChildren = std::max(peakChildren, children.size());
        peakKiB = std::max(peakKiB, kib);
        wait(100);
    }
    const auto failed = std::count_if(manager.folders().begin(), manager.folders().end(),
                                      [](const SyncFolder &f) { return f.status != SyncStatus::success; });
    std::printf("%lld folders, %d slot(s): all done after %.1f s, peak %lld rclone children, peak tree %.0f MB, %lld not successful\n",
                static_cast<long long>(manager.folders().size()), slotCount, double(timer.nsecsElapsed()) / 1e9,
                static_cast<long long>(peakChildren), double(peakKiB) / 1024.0, static_cast<long long>(failed));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    for (const int syncs : {0, 1, 5})
        terminationTime(syncs);
    secondStartTime();

    const int count = qEnvironmentVariableIntValue("BENCH_FOLDERS") > 0 ? qEnvironmentVariableIntValue("BENCH_FOLDERS") : 500;
    QTemporaryDir root;
    prepareHome(root.path(), makeFolders(root.path(), count, 1024));
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("RCLONE_CONFIG", QFile::encodeName(root.filePath(QStringLiteral("rclone.conf"))));
    std::printf("first syncs of %d folders (not measured)...\n", count);
    std::fflush(stdout);
    startWithManyFolders(defaultConcurrentSyncs()); // their first syncs
    startWithManyFolders(defaultConcurrentSyncs());
    startWithManyFolders(count); // all at once, as before the slotCount
    return 0;
}
