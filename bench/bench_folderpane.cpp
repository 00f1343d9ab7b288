// Prints what the folder pane costs: the statistics walk on a tree of 100,000
// files in 5,000 directories next to `du -sb` on the same tree, the main
// window's frame times while the walk runs, the time to open a 1 MB error
// log, and the first frame of the pane with 5,000 records of activity.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "platform/InotifyFileEventService.h"
#include "platform/LoginItemService.h"
#include "platform/SettingsStore.h"
#include "sync/ActivityLog.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/FolderStatistics.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cstdio>
#include <vector>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

namespace {





// Drops the tree from the page cache's point of view as far as we can: both
// tools read it warm, one after the other, several times.
double duSeconds(const QString &tree)
{
    QElapsedTimer timer;
    timer.start();
    QProcess du;
    du.start(QStringLiteral("du"), {QStringLiteral("-sb"), tree});
    du.waitForFinished(-1);
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char *argv[])
{
    prepareGraphics();
    QApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    setUpApplication();
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));

    QTemporaryDir root;
    const QString tree = root.filePath(QStringLiteral("tree"));
    for (int d = 0; d < 5000; ++d) {
        const QString dir = QStringLiteral("%1/d%2/e%3").arg(tree).arg(d / 100).arg(d);
        QDir().mkpath(dir);
        for (int f = 0; f < 20; ++f) {
            QFile file(QStringLiteral("%1/f%2").arg(dir).arg(f));
            if (file.open(QIODevice::WriteOnly))
                file.write(QByteArray(f * 37, 'x'));
        }
    }
    std::vector<double> walk, du;
    FolderStatistics statistics;
    for (int run = 0; run < 5; ++run) {
        du.push_back(duSeconds(tree));
        QElapsedTimer timer;
        timer.start();
        statistics = FolderStatistics::of(tree);
        walk.push_back(double(timer.nsecsElapsed()) / 1e9);
    }
    std::printf("statistics walk, %lld files in 5,100 directories (median of 5, warm cache)\n",
                static_cast<long long>(statistics.fileCount));
    std::printf("  walk:  %.3f s\n  du -sb: %.3f s\n  ratio: %.2f\n", median(walk), median(du), median(walk) / median(du));

    // The window while the walk runs on its worker.
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    SyncFolder folder;
    folder.name = QStringLiteral("Big");
    folder.localPath = tree;
    folder.status = SyncStatus::error;
    const QString line = QStringLiteral("2026/11/21 10:41:34 ERROR : some/file.txt: Failed to copy: connection reset\n");
    folder.lastError = line.repeated(1024 * 1024 / line.size());
    QDir().mkpath(root.filePath(QStringLiteral("home/.config/rclone")));
    {
        QFile store(root.filePath(QStringLiteral("home/.config/rclone/rclone_sync_folders.json")));
        if (store.open(QIODevice::WriteOnly))
            store.write(FolderStore::encode({folder}).value());
    }
    // As many changes as the activity file keeps, all of this folder.
    ActivityLog activity(root.filePath(QStringLiteral("home/.local/share/nimbrell/activity.jsonl")));
    {
        QList<ActivityRecord> records;
        const QDateTime start = QDateTime::currentDateTimeUtc().addDays(-30);
        for (int i = 0; i < ActivityLog::kMaxRecords; ++i)
            records.append({folder.id, QStringLiteral("gdrive:Big"), start.addSecs(i * 60), ActivityRecord::Kind::change,
                            QStringLiteral("d%1/e%2/f%3").arg(i % 50).arg(i).arg(i % 20), ChangeParser::Action(i % 3),
                            i % 2 == 0, {}, {}});
        activity.append(records);
        std::vector<double> reads;
        qsizetype count = 0;
        for (int run = 0; run < 7; ++run) {
            QElapsedTimer read;
            read.start();
            count = ActivityLog(activity.path()).read().size();
            reads.push_back(double(read.nsecsElapsed()) / 1e6);
        }
        std::printf("reading the activity file of %lld records (%.2f MB): %.1f ms (median of 7)\n",
                    static_cast<long long>(count), double(QFileInfo(activity.path()).size()) / 1e6, median(reads));
    }
    MemorySettingsStore settings;
    RcloneEngine engine(QStringLiteral("/bin/false"));
    InotifyFileEventService fileEvents;
    NoLoginItem loginItem;
    NimbrellApp app({.settings = settings, .engine = engine, .fileEvents = fileEvents, .loginItem = loginItem,
                     .activity = &activity});
    app.start();
    QQuickWindow *window = app.window(QStringLiteral("main"));
    wait(500);
    // The folder pane, then its walk again with the window asked to draw every 16 ms.
    app.navigation()->showFolder(app.syncManager()->folders().first().id.toString(QUuid::WithoutBraces));
    QObject *pane = nullptr;
    for (int i = 0; i < 2000 && !(pane && pane->property("fileCount").isValid()); ++i) {
        wait(10);
        pane = window->findChild<QObject *>(QStringLiteral("folderController"));
    }
    if (!pane)
        return 1;
    std::vector<double> intervals;
    QElapsedTimer interval;
    const auto counting = QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] {
        if (interval.isValid())
            intervals.push_back(double(interval.nsecsElapsed()) / 1e6);
        interval.start();
    });
    QTimer redraw;
    QObject::connect(&redraw, &QTimer::timeout, window, &QQuickWindow::update);
    redraw.start(16);
    QElapsedTimer walkTimer;
    walkTimer.start();
    QMetaObject::invokeMethod(pane, "loadFolderStats");
    while (pane->property("isLoadingStats").toBool() && walkTimer.elapsed() < 20000)
        wait(5);
    const double walkInWindow = double(walkTimer.nsecsElapsed()) / 1e9;
    redraw.stop();
    QObject::disconnect(counting);
    if (!intervals.empty()) {
        std::printf("window while the walk runs on its worker (%.2f s), redrawn every 16 ms: %zu frames, "
                    "interval median %.1f ms, max %.1f ms\n",
                    walkInWindow, intervals.size(), median(intervals),
                    *std::max_element(intervals.begin(), intervals.end()));
    }

    // A 1 MB error log.
    QObject *sheet = window->findChild<QObject *>(QStringLiteral("errorLogSheet"));
    if (sheet) {
        QElapsedTimer open;
        open.start();
        QMetaObject::invokeMethod(sheet, "open");
        bool opened = false;
        const auto drawn = QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] { opened = true; });
        while (!opened && open.elapsed() < 20000)
            wait(1);
        QObject::disconnect(drawn);
        std::printf("opening a %.1f MB error log: first frame after %.0f ms\n",
                    double(folder.lastError->size()) / 1e6, double(open.nsecsElapsed()) / 1e6);
        QMetaObject::invokeMethod(sheet, "close");
    }

    // The pane again, from the dashboard: its first frame with Recent Changes
    // listing 5,000 records, then with none.
    const auto firstFrame = [&](int records) {
        std::vector<double> frames;
        for (int run = 0; run < 7; ++run) {
            app.navigation()->showDashboard();
            wait(300);
            QElapsedTimer shown;
            shown.start();
            app.navigation()->showFolder(app.syncManager()->folders().first().id.toString(QUuid::WithoutBraces));
            double at = 0;
            const auto drawn = QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] {
                auto *list = window->findChild<QQuickItem *>(QStringLiteral("recentChanges"));
                if (at == 0 && list && list->isVisible() && list->property("count").toInt() == records)
                    at = double(shown.nsecsElapsed()) / 1e6;
            });
            while (at == 0 && shown.elapsed() < 20000)
                wait(1);
            QObject::disconnect(drawn);
            frames.push_back(at);
        }
        std::printf("folder pane with Recent Changes of %d records: first frame after %.0f ms (median of 7, max %.0f ms)\n",
                    records, median(frames), *std::max_element(frames.begin(), frames.end()));
    };
    firstFrame(int(ActivityLog::kMaxRecords));
    activity.removeFolder(folder.id);
    firstFrame(0);
    return 0;
}
