// Prints what the application costs: the time from start to the main window
// being drawn and the memory in use after 10 s idle, with 0 and with 500
// folders (the real program, started as a user would), and the main window's
// frame times while 20 folders report progress.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "platform/InotifyFileEventService.h"
#include "platform/SettingsStore.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/Format.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QQmlApplicationEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <unistd.h>
#include <utility>
#include <vector>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

namespace {





void writeStore(const QString &home, int count)
{
    QList<SyncFolder> folders;
    for (int i = 0; i < count; ++i) {
        SyncFolder folder;
        folder.name = QStringLiteral("Folder %1").arg(i);
        folder.localPath = QStringLiteral("%1/folders/%2").arg(home).arg(i);
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("remote"), QStringLiteral("f%1").arg(i), true}};
        folder.status = i % 5 == 0 ? SyncStatus::error : SyncStatus::success;
        folder.lastSync = QDateTime::currentDateTimeUtc().addSecs(-60 * i);
        folders.append(folder);
    }
    QDir().mkpath(home + QStringLiteral("/.config/rclone"));
    QFile store(home + QStringLiteral("/.config/rclone/rclone_sync_folders.json"));
    if (store.open(QIODevice::WriteOnly))
        store.write(FolderStore::encode(folders).value());
}

// One start of a contender: the time to its first frame, and at 10 s its
// CPU (its own and its reaped children's) and resident memory.
struct Start
{
    double firstFrame = -1;
    double cpuSeconds = 0;
    double residentMB = 0;
};

// user + system time of a process and of its reaped children, in seconds.
double cpuOf(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    // utime, stime, cutime, cstime are fields 14 to 17 of the line, 12 to 15 after the name.
    double ticks = 0;
    for (int i = 11; i <= 14; ++i)
        ticks += fields.value(i).toDouble();
    return ticks / double(sysconf(_SC_CLK_TCK));
}

// Starts `executable` in a fresh HOME holding `folders` sync folders, waits
// for the line saying its main window has been drawn, then lets it run to 10 s.
Start startOnce(const QString &executable, const QStringList &arguments, int folders)
{
    QTemporaryDir home;
    writeStore(home.path(), folders);
    QDir().mkpath(home.filePath(QStringLiteral("run")));
    QFile::setPermissions(home.filePath(QStringLiteral("run")), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QProcess program;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home.path() + QStringLiteral("/.cache"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path() + QStringLiteral("/run"));
    env.insert(QStringLiteral("RCLONE_CONFIG"), home.path() + QStringLiteral("/rclone.conf"));
    env.insert(QStringLiteral("NIMBRELL_REPORT_STARTUP"), QStringLiteral("1"));
    env.insert(QStringLiteral("NIMBRELL_STALL_PROBE"), QStringLiteral("0"));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("org.nimbrell.*=false"));
    program.setProcessEnvironment(env);
    QElapsedTimer timer;
    timer.start();
    program.start(executable, arguments);
    Start start;
    QByteArray log;
    while (program.state() != QProcess::NotRunning && timer.elapsed() < 20000) {
        program.waitForReadyRead(5);
        log += program.readAllStandardError();
        if (log.contains("main window shown")) {
            start.firstFrame = double(timer.nsecsElapsed()) / 1e9;
            break;
        }
    }
    if (start.firstFrame < 0)
        std::fprintf(stderr, "%s did not show its window:\n%s\n", qPrintable(executable), log.constData());
    wait(int(10000 - timer.elapsed()));
    start.cpuSeconds = cpuOf(program.processId());
    start.residentMB = double(residentKiB(QString::number(program.processId()))) / 1024.0;
    program.terminate();
    program.waitForFinished();
    return start;
}

// The first frame, CPU to 10 s and memory of the program against a bare Qt
// Quick window with the same software renderer, started alternately.
void measureStartup()
{
    struct Contender
    {
        const char *name;
        QString executable;
        QStringList arguments;
        int folders;
        std::vector<Start> starts;
    };
    std::vector<Contender> contenders{
        {"floor: a bare Qt Quick window", QCoreApplication::applicationFilePath(), {QStringLiteral("--floor")}, 0, {}},
        {"the same with Controls, Fusion, menu", QCoreApplication::applicationFilePath(), {QStringLiteral("--floor-controls")}, 0, {}},
        {"nimbrell, 0 folders", QStringLiteral(NIMBRELL_EXECUTABLE), {}, 0, {}},
        {"nimbrell, 500 folders", QStringLiteral(NIMBRELL_EXECUTABLE), {}, 500, {}},
        {"window program direct, 0 folders", QStringLiteral(NIMBRELL_WINDOW_EXECUTABLE), {}, 0, {}},
    };
    const int rounds = qEnvironmentVariableIntValue("BENCH_ROUNDS") > 0 ? qEnvironmentVariableIntValue("BENCH_ROUNDS") : 4;
    for (int round = 0; round < rounds; ++round) {
        for (Contender &contender : contenders)
            contender.starts.push_back(startOnce(contender.executable, contender.arguments, contender.folders));
    }
    const auto medianOf = [](const std::vector<Start> &starts, double Start::*field) {
        std::vector<double> values;
        for (const Start &start : starts)
            values.push_back(start.*field);
        return median(values);
    };
    const Contender &floor = contenders.front();
    const double floorFrame = medianOf(floor.starts, &Start::firstFrame);
    const double floorCpu = medianOf(floor.starts, &Start::cpuSeconds);
    const double floorMemory = medianOf(floor.starts, &Start::residentMB);
    std::printf("  start-up, medians of %d rounds (a fresh HOME per start):\n", rounds);
    std::printf("  %-34s %11s %7s %13s %7s %12s %7s\n", "", "first frame", "ratio", "CPU to 10 s", "ratio", "memory", "ratio");
    for (const Contender &contender : contenders) {
        const double frame = medianOf(contender.starts, &Start::firstFrame);
        const double cpu = medianOf(contender.starts, &Start::cpuSeconds);
        const double memory = medianOf(contender.starts, &Start::residentMB);
        std::printf("  %-34s %9.3f s %6.2fx %11.3f s %6.2fx %9.1f MB %6.2fx\n", contender.name, frame, frame / floorFrame,
                    cpu, cpu / floorCpu, memory, memory / floorMemory);
    }
}

// The floor: a bare Qt Quick window of the main window's size, drawn with the
// same software renderer, that says when its first frame is on screen.
// With `controls`, the stack the program is built on: QApplication (the
// tray needs widgets), Qt Quick Controls in the Fusion style, a menu bar.
int runFloor(int argc, char *argv[], bool controls)
{
    std::unique_ptr<QGuiApplication> application =
        controls ? std::make_unique<QApplication>(argc, argv) : std::make_unique<QGuiApplication>(argc, argv);
    QQmlApplicationEngine engine;
    if (controls) {
        QQuickStyle::setStyle(QStringLiteral("Fusion"));
        engine.loadData("import QtQuick\nimport QtQuick.Controls\n"
                        "ApplicationWindow { width: 980; height: 660; visible: true; title: \"Floor\"\n"
                        "menuBar: MenuBar { Menu { title: \"&File\"; Action { text: \"&Quit\" } } }\n"
                        "Label { anchors.centerIn: parent; text: \"Floor\" } }\n");
    } else {
        engine.loadData("import QtQuick\nWindow { width: 980; height: 660; visible: true; title: \"Floor\"\n"
                        "Text { anchors.centerIn: parent; text: \"Floor\" } }\n");
    }
    auto *window = qobject_cast<QQuickWindow *>(engine.rootObjects().value(0));
    if (!window)
        return 1;
    QObject::connect(window, &QQuickWindow::frameSwapped, window, [] {
        static bool said = false;
        if (!std::exchange(said, true))
            std::fputs("floor: main window shown\n", stderr);
    });
    return application->exec();
}

// Wake-ups of the main thread (voluntary context switches: each is a sleep
// ended by something) per minute, with the window shown and hidden.
long mainThreadSwitches()
{
    QFile status(QStringLiteral("/proc/self/task/%1/status").arg(QCoreApplication::applicationPid()));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("voluntary_ctxt_switches:"))
            return line.mid(24).trimmed().toLong();
    }
    return 0;
}

// Automatic sync on, so every folder syncs at start.
MemorySettingsStore syncingSettings()
{
    MemorySettingsStore settings;
    settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
    return settings;
}

// `newest`: how long ago the most recent folder synced.
double wakeUpsPerMinute(qint64 newestSecondsAgo, bool shown)
{
    QTemporaryDir home;
    qputenv("HOME", QFile::encodeName(home.path()));
    QList<SyncFolder> folders;
    for (int i = 0; i < 20; ++i) {
        SyncFolder folder;
        folder.name = QStringLiteral("Folder %1").arg(i);
        folder.localPath = home.filePath(QStringLiteral("folders/%1").arg(i));
        QDir().mkpath(folder.localPath);
        folder.remoteTargets = {RemoteTarget{QUuid::createUuid(), QStringLiteral("remote"), QStringLiteral("f%1").arg(i), true}};
        folder.status = SyncStatus::success;
        folder.lastSync = QDateTime::currentDateTimeUtc().addSecs(-newestSecondsAgo - 3600 * i);
        folders.append(folder);
    }
    QDir().mkpath(home.filePath(QStringLiteral(".config/rclone")));
    write(home.filePath(QStringLiteral(".config/rclone/rclone_sync_folders.json")), FolderStore::encode(folders).value());
    MemorySettingsStore settings;
    RcloneEngine engine(QStringLiteral(RCLONE_PATH));
    InotifyFileEventService fileEvents;
    NoLoginItem loginItem;
    NimbrellApp app({settings, engine, fileEvents, loginItem});
    app.start();
    wait(3000); // the first frames, the remote list
    if (!shown)
        app.window(QStringLiteral("main"))->hide();
    wait(500);
    const int seconds = qEnvironmentVariableIntValue("BENCH_IDLE_SECONDS") > 0 ? qEnvironmentVariableIntValue("BENCH_IDLE_SECONDS") : 60;
    int ticks = 0;
    QObject::connect(app.format(), &Format::nowChanged, [&ticks] { ++ticks; });
    const long before = mainThreadSwitches();
    wait(seconds * 1000); // itself one wake-up
    const double wakeUps = double(mainThreadSwitches() - before - 1) * 60.0 / seconds;
    std::printf("%6.1f (the clock ticked %.1f times a minute)\n", wakeUps, double(ticks) * 60.0 / seconds);
    return wakeUps;
}

void measureWakeUps()
{
    std::printf("  main-thread wake-ups per minute, idle with 20 folders (automatic sync off):\n");
    std::printf("    window hidden:                          ");
    wakeUpsPerMinute(10, false);
    std::printf("    window shown, newest sync 2 hours ago:  ");
    wakeUpsPerMinute(7200, true);
    std::printf("    window shown, newest sync 10 s ago:     ");
    wakeUpsPerMinute(10, true);
    std::printf("    (a context switch is counted for the tick and one more inside the repaint it causes)\n");
}

void measureFrames()
{
    // An rclone stand-in whose bisync reports progress ten times a second, forever.
    QTemporaryDir root;
    const QString fake = root.filePath(QStringLiteral("rclone"));
    {
        QFile script(fake);
        if (!script.open(QIODevice::WriteOnly))
            return;
        script.write("#!/bin/bash\n[ \"$1\" = bisync ] || exit 0\ntrap 'exit 143' TERM\ni=0\n"
                     "while :; do i=$(( (i + 1) % 100 ))\n"
                     "printf 'Transferred:   \\t %d MiB / 100 MiB, %d%%, 10 MiB/s, ETA 9s\\nTransferred:   %d / 100, %d%%\\n' $i $i $i $i\n"
                     "sleep 0.1; done\n");
        script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }
    qputenv("HOME", QFile::encodeName(root.path()));
    writeStore(root.path(), 20);

    MemorySettingsStore settings = syncingSettings();
    RcloneEngine engine(fake);
    InotifyFileEventService fileEvents;
    NoLoginItem loginItem;
    NimbrellApp app({settings, engine, fileEvents, loginItem});
    app.start();
    QQuickWindow *window = app.window(QStringLiteral("main"));
    wait(1500); // every folder is syncing and reporting by now

    std::vector<double> renderMs, intervalMs;
    QElapsedTimer render, interval;
    QObject::connect(window, &QQuickWindow::beforeRendering, window, [&] { render.start(); }, Qt::DirectConnection);
    QObject::connect(window, &QQuickWindow::afterRendering, window, [&] {
        renderMs.push_back(double(render.nsecsElapsed()) / 1e6);
    }, Qt::DirectConnection);
    QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] {
        if (interval.isValid())
            intervalMs.push_back(double(interval.nsecsElapsed()) / 1e6);
        interval.start();
    }, Qt::DirectConnection);
    wait(5000);
    if (renderMs.empty() || intervalMs.empty()) {
        std::printf("  no frames were drawn\n");
        return;
    }
    double sum = 0;
    for (double ms : renderMs)
        sum += ms;
    std::printf("  20 folders reporting progress for 5 s: %zu frames, render %.2f ms mean, %.2f ms p95, %.2f ms max; "
                "frame interval %.1f ms median\n",
                renderMs.size(), sum / double(renderMs.size()), percentile(renderMs, 0.95),
                *std::max_element(renderMs.begin(), renderMs.end()), median(intervalMs));
    app.syncManager()->cancelAllSyncs();
}

} // namespace

int main(int argc, char *argv[])
{
    prepareGraphics();
    if (argc > 1 && (qstrcmp(argv[1], "--floor") == 0 || qstrcmp(argv[1], "--floor-controls") == 0))
        return runFloor(argc, argv, qstrcmp(argv[1], "--floor-controls") == 0);
    QApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show up as they come
    setUpApplication();
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));
    std::printf("application (platform: %s)\n", qPrintable(QGuiApplication::platformName()));
    measureStartup();
    measureWakeUps();
    measureFrames();
    return 0;
}
