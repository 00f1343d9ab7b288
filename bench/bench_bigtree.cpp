// Prints what big trees cost, with the real program and the real rclone
// against a local remote:
// - the longest event-loop stall (the program's own stall probe), the first
//   `status` answer and the window's first frame while 100,000 directories
//   are being watched at start, and while 10,000 directories are unpacked
//   into a watched folder;
// - a first sync and a no-change sync of 100,000 small files through
//   `nimbrell sync --wait`, against the same rclone calls run directly, with
//   the program's peak resident memory;
// - no-change syncs of 1,000 and 10,000 files, the same way.
// BENCH_BIG scales the 100,000 (e.g. 20000 for a quick look).
#include "BenchSupport.h"
#include "model/FolderStore.h"
#include "platform/InstanceChannel.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

using namespace std::chrono_literals;

namespace {

QString g_root;

QString path(const QString &relative)
{
    return g_root + u'/' + relative;
}

QProcessEnvironment environment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), path(QStringLiteral("home")));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), path(QStringLiteral("home/.config")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), path(QStringLiteral("home/.cache")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), path(QStringLiteral("run")));
    env.insert(QStringLiteral("RCLONE_CONFIG"), path(QStringLiteral("rclone.conf")));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("org.nimbrell.*=false"));
    env.insert(QStringLiteral("NIMBRELL_STALL_PROBE"), QStringLiteral("1"));
    env.insert(QStringLiteral("NIMBRELL_REPORT_STARTUP"), QStringLiteral("1"));
    return env;
}

// The store: one folder per path, each to backup:<its name>.
void writeStore(const QStringList &localPaths, bool automatic)
{
    QList<SyncFolder> folders;
    for (const QString &local : localPaths) {
        SyncFolder folder;
        folder.name = QFileInfo(local).fileName();
        folder.localPath = local;
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("backup"), folder.name, false}};
        folders.append(folder);
    }
    QDir().mkpath(path(QStringLiteral("home/.config/rclone")));
    QDir().mkpath(path(QStringLiteral("home/.config/nimbrell")));
    write(path(QStringLiteral("home/.config/rclone/rclone_sync_folders.json")), FolderStore::encode(folders).value());
    write(path(QStringLiteral("home/.config/nimbrell/nimbrell.conf")),
          automatic ? "[General]\nisGlobalSyncEnabled=true\n" : "[General]\nisGlobalSyncEnabled=false\n");
}

void makeDirectories(const QString &root, int count)
{
    for (int i = 0; i < count; ++i)
        QDir().mkpath(QStringLiteral("%1/d%2/e%3").arg(root).arg(i / 100).arg(i % 100));
}

void makeFiles(const QString &root, int count)
{
    for (int i = 0; i < count; ++i) {
        const QString directory = QStringLiteral("%1/d%2").arg(root).arg(i / 1000);
        if (i % 1000 == 0)
            QDir().mkpath(directory);
        write(QStringLiteral("%1/f%2.txt").arg(directory).arg(i), QByteArray::number(i));
    }
}

// What the stall probe printed at the program's exit.
QString longestStall(const QByteArray &log)
{
    const QRegularExpressionMatch match = QRegularExpression(QStringLiteral("longest stall (\\d+ ms \\([^)]*\\))"))
                                              .match(QString::fromUtf8(log));
    return match.hasMatch() ? match.captured(1) : QStringLiteral("(not reported)");
}

void stop(QProcess &program, QByteArray &log)
{
    program.terminate();
    program.waitForFinished(60000);
    log += program.readAllStandardError();
}

// The headless service with `root` as its one watched folder: the first
// `status` answer, the longest stall; `during` runs once it answers.
void headlessWhile(const char *what, const QString &root, const std::function<void()> &during = {})
{
    writeStore({root}, true);
    QProcess headless;
    headless.setProcessEnvironment(environment());
    QElapsedTimer timer;
    timer.start();
    headless.start(path(QStringLiteral("bin/nimbrell")), {QStringLiteral("--headless")});
    // Until it listens, a connection fails at once; then the answer is waited for.
    while (!InstanceChannel::send(QStringLiteral("status"), {}, 10s) && timer.elapsed() < 60000)
        QThread::msleep(1);
    const double firstAnswer = double(timer.nsecsElapsed()) / 1e6;
    if (timer.elapsed() >= 60000)
        std::fprintf(stderr, "the headless service did not answer: %s\n", headless.readAllStandardError().constData());
    double slowestAnswer = 0;
    if (during) {
        during();
        // Asked all along while the service takes the change in.
        for (int i = 0; i < 100; ++i) {
            QElapsedTimer asked;
            asked.start();
            InstanceChannel::send(QStringLiteral("status"), {}, 10s);
            slowestAnswer = std::max(slowestAnswer, double(asked.nsecsElapsed()) / 1e6);
            wait(20);
        }
    } else {
        wait(3000);
    }
    QByteArray log;
    stop(headless, log);
    std::printf("  %-52s first status answer %7.1f ms", what, firstAnswer);
    if (during)
        std::printf(", slowest answer during it %6.1f ms", slowestAnswer);
    std::printf("; longest stall %s\n", qPrintable(longestStall(log)));
}

// The window program with `root` as its one watched folder: its first frame.
void windowWhile(const char *what, const QString &root)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return;
    writeStore({root}, true);
    QProcess window;
    window.setProcessEnvironment(environment());
    QElapsedTimer timer;
    timer.start();
    window.start(path(QStringLiteral("bin/nimbrell")), {});
    QByteArray log;
    double frame = -1;
    while (window.state() != QProcess::NotRunning && timer.elapsed() < 60000 && frame < 0) {
        window.waitForReadyRead(5);
        log += window.readAllStandardError();
        if (log.contains("main window shown"))
            frame = double(timer.nsecsElapsed()) / 1e6;
    }
    wait(3000);
    stop(window, log);
    std::printf("  %-52s window's first frame %7.1f ms; longest stall %s\n", what, frame, qPrintable(longestStall(log)));
}

// The arguments of the bisync a process runs, from /proc.
QStringList bisyncArguments(qint64 parent)
{
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(entry));
        if (!stat.open(QIODevice::ReadOnly) || !cmdline.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        if (line.mid(line.lastIndexOf(')') + 2).split(' ').value(1).toLongLong() != parent)
            continue;
        QStringList arguments;
        for (const QByteArray &argument : cmdline.readAll().split('\0'))
            arguments.append(QString::fromUtf8(argument));
        arguments.removeLast(); // after the last NUL
        if (arguments.value(1) == u"bisync")
            return arguments.mid(1);
    }
    return {};
}

struct Timed
{
    double seconds = 0;
    long peakKiB = 0;
    QStringList bisync; // the arguments it ran bisync with
};

Timed syncThroughNimbrell(const QString &name)
{
    QProcess sync;
    sync.setProcessEnvironment(environment());
    QElapsedTimer timer;
    timer.start();
    sync.start(path(QStringLiteral("bin/nimbrell")), {QStringLiteral("sync"), QStringLiteral("--wait"), name});
    sync.waitForStarted();
    Timed timed;
    while (!sync.waitForFinished(2)) {
        timed.peakKiB = std::max(timed.peakKiB, statusKiB(QString::number(sync.processId()), "VmHWM:"));
        if (timed.bisync.isEmpty())
            timed.bisync = bisyncArguments(sync.processId());
    }
    timed.seconds = double(timer.nsecsElapsed()) / 1e9;
    if (sync.exitCode() != 0)
        std::fprintf(stderr, "nimbrell sync failed: %s\n", sync.readAll().constData());
    return timed;
}

double runRclone(const QStringList &arguments)
{
    QProcess rclone;
    rclone.setProcessEnvironment(environment());
    rclone.setStandardOutputFile(QProcess::nullDevice());
    rclone.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer timer;
    timer.start();
    rclone.start(path(QStringLiteral("libexec/nimbrell/rclone")), arguments);
    rclone.waitForFinished(-1);
    if (rclone.exitCode() != 0)
        std::fprintf(stderr, "rclone %s failed\n", qPrintable(arguments.join(u' ')));
    return double(timer.nsecsElapsed()) / 1e9;
}

void resetPair(const QString &name)
{
    QDir(path(QStringLiteral("remote/") + name)).removeRecursively();
    QDir(path(QStringLiteral("home/.config/rclone/bisync_workdir"))).removeRecursively();
    writeStore({path(QStringLiteral("local/") + name)}, false);
}

// A first sync, then no-change syncs, through Nimbrell and directly, in turns.
void syncs(int files, bool first, int rounds)
{
    const QString name = QStringLiteral("files%1").arg(files);
    makeFiles(path(QStringLiteral("local/") + name), files);
    std::vector<double> through, direct;
    long peak = 0;
    QStringList bisync;
    if (first) {
        for (int round = 0; round < rounds; ++round) {
            resetPair(name);
            const Timed timed = syncThroughNimbrell(name);
            through.push_back(timed.seconds);
            peak = std::max(peak, timed.peakKiB);
            bisync = timed.bisync;
            resetPair(name);
            // What a first sync runs: mkdir, then the resync.
            direct.push_back(runRclone({QStringLiteral("mkdir"), QStringLiteral("backup:") + name}) + runRclone(bisync));
        }
        std::printf("  first sync of %6d files: nimbrell %.2f s, rclone mkdir + bisync --resync %.2f s: %.3fx; "
                    "peak resident %.1f MB\n",
                    files, median(through), median(direct), median(through) / median(direct), double(peak) / 1024.0);
        return;
    }
    resetPair(name);
    syncThroughNimbrell(name); // the first sync, not measured
    const QStringList arguments = syncThroughNimbrell(name).bisync;
    std::vector<double> bisyncOnly;
    for (int round = 0; round < rounds; ++round) {
        const Timed timed = syncThroughNimbrell(name);
        through.push_back(timed.seconds);
        peak = std::max(peak, timed.peakKiB);
        const double mkdir = runRclone({QStringLiteral("mkdir"), QStringLiteral("backup:") + name});
        const double alone = runRclone(arguments);
        bisyncOnly.push_back(alone);
        direct.push_back(mkdir + alone);
    }
    std::printf("  no-change sync of %6d files: nimbrell %.3f s; bisync alone %.3f s: %.3fx; "
                "rclone mkdir + bisync %.3f s: %.3fx; peak resident %.1f MB\n",
                files, median(through), median(bisyncOnly), median(through) / median(bisyncOnly), median(direct),
                median(through) / median(direct), double(peak) / 1024.0);
}

} // namespace

int main(int argc, char *argv[])
{
    QTemporaryDir root;
    g_root = root.path();
    qputenv("HOME", QFile::encodeName(path(QStringLiteral("home"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(path(QStringLiteral("home/.config"))));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(path(QStringLiteral("run"))));
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QDir().mkpath(path(QStringLiteral("run")));
    QFile::setPermissions(path(QStringLiteral("run")), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    // The program as installed: the launcher, the window program and rclone side by side.
    QDir().mkpath(path(QStringLiteral("bin")));
    QDir().mkpath(path(QStringLiteral("libexec/nimbrell")));
    QFile::copy(QStringLiteral(NIMBRELL_EXECUTABLE), path(QStringLiteral("bin/nimbrell")));
    QFile::copy(QStringLiteral(NIMBRELL_WINDOW_EXECUTABLE), path(QStringLiteral("libexec/nimbrell/nimbrell")));
    QFile::link(QStringLiteral(RCLONE_PATH), path(QStringLiteral("libexec/nimbrell/rclone")));
    write(path(QStringLiteral("rclone.conf")), "[backup]\ntype = alias\nremote = " + QFile::encodeName(path(QStringLiteral("remote"))) + "\n");
    QDir().mkpath(path(QStringLiteral("remote")));

    const int big = qEnvironmentVariableIntValue("BENCH_BIG") > 0 ? qEnvironmentVariableIntValue("BENCH_BIG") : 100000;
    QFile limit(QStringLiteral("/proc/sys/fs/inotify/max_user_watches"));
    if (limit.open(QIODevice::ReadOnly) && QByteArray(limit.readAll()).trimmed().toInt() < big + 20000) {
        limit.close();
        // Root may raise the limit; anyone else gets as many watches as there are.
        if (limit.open(QIODevice::WriteOnly))
            limit.write(QByteArray::number(big + 20000));
    }
    limit.close();
    if (limit.open(QIODevice::ReadOnly))
        std::printf("inotify watch limit: %s", limit.readAll().constData());

    // BENCH_PARTS=responsiveness or =syncs runs one half.
    const QByteArray parts = qgetenv("BENCH_PARTS");
    if (parts.isEmpty() || parts == "responsiveness") {
        std::printf("responsiveness (automatic sync on, the folder has a target on a local remote):\n");
        const QString wide = path(QStringLiteral("local/wide"));
        makeDirectories(wide, big);
        QDir().mkpath(path(QStringLiteral("remote/wide")));
        headlessWhile(qPrintable(QStringLiteral("headless, %1 directories watched at start:").arg(big)), wide);
        windowWhile(qPrintable(QStringLiteral("window, %1 directories watched at start:").arg(big)), wide);
        const QString small = path(QStringLiteral("local/small"));
        QDir().mkpath(small);
        makeDirectories(path(QStringLiteral("unpacked")), 10000);
        headlessWhile("headless, 10,000 directories unpacked into the folder:", small, [&] {
            QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-r"), path(QStringLiteral("unpacked")), small + QStringLiteral("/unpacked")});
        });
        QDir(wide).removeRecursively();
    }
    if (!parts.isEmpty() && parts != "syncs")
        return 0;

    std::printf("syncs through nimbrell sync --wait against the same rclone calls run directly (medians):\n");
    syncs(1000, false, 7);
    syncs(10000, false, 5);
    syncs(big, true, 1);
    syncs(big, false, 3);
    return 0;
}
