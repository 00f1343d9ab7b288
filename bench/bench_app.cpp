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
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cstdio>
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

// Starts the program and waits until it has drawn its main window; seconds,
// or -1 when it did not.
double startProgram(QProcess &program, const QString &home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("RCLONE_CONFIG"), home + QStringLiteral("/rclone.conf"));
    env.insert(QStringLiteral("NIMBRELL_REPORT_STARTUP"), QStringLiteral("1"));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("org.nimbrell.*=false"));
    program.setProcessEnvironment(env);
    QElapsedTimer timer;
    timer.start();
    program.start(QStringLiteral(NIMBRELL_EXECUTABLE), {});
    QByteArray log;
    while (program.state() != QProcess::NotRunning && timer.elapsed() < 20000) {
        program.waitForReadyRead(20);
        log += program.readAllStandardError();
        if (log.contains("nimbrell: main window shown"))
            return double(timer.nsecsElapsed()) / 1e9;
    }
    std::fprintf(stderr, "the program did not show its window:\n%s\n", log.constData());
    return -1;
}

void measureStartup(int folders)
{
    QTemporaryDir home;
    writeStore(home.path(), folders);
    std::vector<double> times;
    for (int run = 0; run < 7; ++run) {
        QProcess program;
        const double seconds = startProgram(program, home.path());
        if (seconds < 0)
            return;
        times.push_back(seconds);
        program.terminate();
        program.waitForFinished();
        wait(500); // the rclone it started at the end is gone before the next start
    }
    QProcess program;
    startProgram(program, home.path());
    wait(10000);
    const long rss = residentKiB(QString::number(program.processId()));
    program.terminate();
    program.waitForFinished();
    std::printf("  %3d folders: main window drawn after %.3f s (median of %zu starts, best %.3f s); "
                "%.1f MB resident after 10 s idle\n",
                folders, median(times), times.size(), *std::min_element(times.begin(), times.end()),
                double(rss) / 1024.0);
}


// Automatic sync on, so every folder syncs at start.
MemorySettingsStore syncingSettings()
{
    MemorySettingsStore settings;
    settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
    return settings;
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
    QApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show up as they come
    setUpApplication();
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));
    std::printf("application (platform: %s)\n", qPrintable(QGuiApplication::platformName()));
    measureStartup(0);
    measureStartup(500);
    measureFrames();
    return 0;
}
