// Prints what the long lists cost the window: a folder with 5,000 open
// conflicts, as many as the activity file keeps (shown, one settled, left
// open), a review of 200,000 changes (opened, then filtered, once with the
// filter changed while it runs) and Recently Removed with 100,000 kept files
// (listed, pruned, emptied). Each with the longest stall of the event loop in
// it, and the step that made it.
// `bench_lists review` measures one part only.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "model/FolderStore.h"
#include "platform/InotifyFileEventService.h"
#include "platform/StallProbe.h"
#include "sync/ActivityLog.h"
#include "sync/RecentlyRemoved.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "ui/AppSetup.h"
#include "ui/NavigationState.h"
#include "ui/NimbrellApp.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cstdio>
#include <functional>

Q_IMPORT_QML_PLUGIN(NimbrellPlugin)

namespace {

constexpr int kChanges = 200000;
constexpr int kKeptFiles = 100000;
constexpr int kConflicts = int(ActivityLog::kMaxRecords);

QElapsedTimer phaseTimer;

double sinceStart()
{
    return double(phaseTimer.nsecsElapsed()) / 1e6;
}

// Starts a phase: its time and its longest stall count from here.
void start()
{
    wait(300); // what came before has settled
    StallProbe::instance()->reset();
    phaseTimer.start();
}

// Milliseconds since the phase started once `done` holds (checked every turn
// of the event loop), or -1.
double until(const std::function<bool()> &done)
{
    while (!done()) {
        if (phaseTimer.elapsed() > 120000)
            return -1;
        wait(1);
    }
    return sinceStart();
}

// Milliseconds since the phase started at the first frame drawn while
// `shown` holds, or -1.
double firstFrame(QQuickWindow *window, const std::function<bool()> &shown)
{
    double at = -1;
    const auto drawn = QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] {
        if (at < 0 && shown())
            at = sinceStart();
    });
    window->update();
    while (at < 0 && phaseTimer.elapsed() < 120000)
        wait(1);
    QObject::disconnect(drawn);
    return at;
}

void reportStall()
{
    wait(2 * StallProbe::kTickMs); // a tick held up by the last step is counted
    const StallProbe *probe = StallProbe::instance();
    const QString step = probe->longestStallStep();
    std::printf("      longest stall: %lld ms%s%s\n", static_cast<long long>(probe->longestStallMs()),
                step.isEmpty() ? "" : ", in ", qPrintable(step));
}

QObject *child(QQuickWindow *window, const char *name)
{
    return window->findChild<QObject *>(QString::fromLatin1(name));
}

int listCount(QQuickWindow *window, const char *list)
{
    QObject *view = child(window, list);
    return view ? view->property("count").toInt() : -1;
}

QString uuidOf(const SyncFolder &folder)
{
    return folder.id.toString(QUuid::WithoutBraces);
}

void conflicts(NimbrellApp &app, QQuickWindow *window, const SyncFolder &folder)
{
    std::printf("a folder with %d open conflicts\n", kConflicts);
    const auto titled = [window](int count) {
        return [window, count] {
            const auto *title = window->findChild<QQuickItem *>(QStringLiteral("conflictsTitle"));
            return title && title->isVisible()
                && title->property("text").toString() == QStringLiteral("%1 Conflicts").arg(count);
        };
    };
    start();
    app.navigation()->showFolder(uuidOf(folder));
    std::printf("  its pane: first frame with the list after %.0f ms\n", firstFrame(window, titled(kConflicts)));
    reportStall();
    start();
    QMetaObject::invokeMethod(child(window, "folderConflicts"), "keepBoth",
                              Q_ARG(QString, QStringLiteral("c0/letter 0.txt")),
                              Q_ARG(QString, QStringLiteral("c0/letter 0.txt.conflict1")));
    std::printf("  one settled (Keep Both): first frame without it after %.0f ms\n",
                firstFrame(window, titled(kConflicts - 1)));
    reportStall();
    start();
    wait(5000);
    std::printf("  left open for 5 s (looked at again every 2 s)\n");
    reportStall();
}

void review(NimbrellApp &app, QQuickWindow *window, const SyncFolder &folder, const QString &plan)
{
    app.navigation()->showFolder(uuidOf(folder));
    QObject *recovery = nullptr;
    QObject *sheet = nullptr;
    until([&] { return (recovery = child(window, "folderRecovery")) && (sheet = child(window, "reviewSheet")); });
    std::printf("a review of %d changes\n", kChanges);
    start();
    const QDateTime asked = QDateTime::currentDateTime();
    QMetaObject::invokeMethod(recovery, "runAction", Q_ARG(int, 0));
    const double ready = until([&] { return recovery->property("reviewState").toString() == QStringLiteral("ready"); });
    // When the script had printed it all, by the file it touched then.
    const double printed = double(asked.msecsTo(QFileInfo(plan + QStringLiteral(".read")).lastModified()));
    const double shown = firstFrame(window, [&] { return listCount(window, "reviewList") == kChanges; });
    std::printf("  opened: rclone's plan printed after %.0f ms, the review ready after %.0f ms, the sheet's first "
                "frame with the list after %.0f ms\n",
                printed, ready, shown);
    reportStall();
    {
        // Scrolled a screenful of rows a frame, as a fast flick does.
        auto *list = window->findChild<QQuickItem *>(QStringLiteral("reviewList"));
        std::vector<double> intervals;
        QElapsedTimer interval;
        start();
        const auto scrolled = QObject::connect(window, &QQuickWindow::frameSwapped, window, [&] {
            if (interval.isValid())
                intervals.push_back(double(interval.nsecsElapsed()) / 1e6);
            interval.start();
            list->setProperty("contentY", list->property("contentY").toReal() + list->height());
        });
        window->update();
        until([&] { return intervals.size() >= 200; });
        QObject::disconnect(scrolled);
        std::printf("  scrolled a screenful a frame, 200 frames: frame interval median %.1f ms, max %.1f ms\n",
                    median(intervals), *std::max_element(intervals.begin(), intervals.end()));
        reportStall();
        list->setProperty("contentY", 0);
    }
    const auto filtered = [&](const QStringList &texts, int rows) {
        start();
        for (const QString &text : texts) {
            sheet->setProperty("filter", text);
            wait(1);
        }
        std::printf("  filtered by \"%s\" (%d rows): first frame with them after %.0f ms\n",
                    qPrintable(texts.join(QStringLiteral("\", then at once by \""))), rows,
                    firstFrame(window, [&] { return listCount(window, "reviewList") == rows; }));
        reportStall();
    };
    // "d1" is in d1, d10..d19 and d100..d199 of each side: 111 of 200 directories.
    filtered({QStringLiteral("d1")}, kChanges / 200 * 111);
    filtered({QString()}, kChanges);
    filtered({QStringLiteral("file"), QStringLiteral("file 12345.txt")}, 2);
    sheet->setProperty("filter", QString());
    QMetaObject::invokeMethod(recovery, "cancelReview");
    until([&] { return recovery->property("reviewState").toString() == QStringLiteral("idle"); });
}

void recentlyRemoved(NimbrellApp &app, QQuickWindow *window, const SyncFolder &folder, const QDateTime &now)
{
    app.navigation()->showFolder(uuidOf(folder));
    QObject *sheet = nullptr;
    QObject *model = nullptr;
    until([&] { return (sheet = child(window, "removedSheet")) && (model = child(window, "removedFiles")); });
    const auto idle = [model] { return model->property("isLoaded").toBool() && !model->property("isBusy").toBool(); };
    std::printf("Recently Removed with %d kept files\n", kKeptFiles);
    start();
    QMetaObject::invokeMethod(sheet, "open");
    const double listed = until(idle);
    std::printf("  listed after %.0f ms; the sheet's first frame with the list after %.0f ms\n", listed,
                firstFrame(window, [&] { return listCount(window, "removedList") == kKeptFiles; }));
    reportStall();
    start();
    app.syncManager()->recentlyRemoved().runFinished(*app.syncManager()->folder(folder.id), now, {});
    const QString oldest =
        RemovedFiles::localDirectory(folder.id) + u'/' + RemovedFiles::runDirectory(now.addDays(-64));
    std::printf("  after a run, the runs past 30 days (%d files) pruned after %.0f ms\n", kKeptFiles / 5 * 2,
                until([&] { return !QFileInfo::exists(oldest); }));
    reportStall();
    QMetaObject::invokeMethod(model, "reload");
    until(idle);
    start();
    QMetaObject::invokeMethod(model, "empty");
    std::printf("  emptied (%d files): listed empty after %.0f ms\n", kKeptFiles / 5 * 3,
                until([&] { return idle() && model->property("count").toInt() == 0; }));
    reportStall();
    QMetaObject::invokeMethod(sheet, "close");
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    prepareGraphics();
    QApplication application(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    setUpApplication();
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.*=false"));
    new StallProbe(&application);
    // Some of the three by name ("conflicts", "review", "removed"); all without.
    const QStringList asked = application.arguments().mid(1);
    const auto measures = [&asked](const char *part) { return asked.isEmpty() || asked.contains(QLatin1String(part)); };

    QTemporaryDir root;
    const QString home = root.filePath(QStringLiteral("home"));
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home + QStringLiteral("/.local/share")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));

    // rclone's part is played by a script: the dry run prints the plan; no
    // remote keeps anything.
    const QString plan = root.filePath(QStringLiteral("plan.txt"));
    const QString rclone = root.filePath(QStringLiteral("rclone"));
    write(rclone, "#!/bin/sh\n"
                  "case \"$1\" in\n"
                  "  bisync) for a in \"$@\"; do [ \"$a\" = --dry-run ] && { cat '" + plan.toUtf8() + "'; touch '"
                      + plan.toUtf8() + ".read'; exit 0; }; done; exit 1 ;;\n"
                  "  lsjson) exit 3 ;;\n"
                  "esac\n"
                  "exit 0\n");
    QFile::setPermissions(rclone, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    SyncFolder big;
    big.name = QStringLiteral("Big");
    big.localPath = root.filePath(QStringLiteral("big"));
    big.remoteTargets = {{QUuid::createUuid(), QStringLiteral("gdrive"), QStringLiteral("Big"), true}};
    big.status = SyncStatus::error;
    big.lastError =
        QStringLiteral("gdrive:Big — ERROR : Safety abort: too many deletes (>50%, 7 of 10) on Path1 \"x\"");
    SyncFolder torn = big;
    torn.id = QUuid::createUuid();
    torn.name = QStringLiteral("Torn");
    torn.localPath = root.filePath(QStringLiteral("torn"));
    torn.remoteTargets = {{QUuid::createUuid(), QStringLiteral("gdrive"), QStringLiteral("Torn"), true}};
    torn.status = SyncStatus::success;
    torn.lastError.reset();

    // The plan: 80,000 copies to this computer (half of them over files here,
    // which the review looks up), 80,000 to the remote, 40,000 deletions.
    {
        QByteArray text;
        text.reserve(16 << 20);
        text += "2026/11/21 10:41:34 INFO  : - Path2    Do queued copies to                - Path1\n";
        for (int d = 0; d < 200; ++d)
            QDir().mkpath(big.localPath + QStringLiteral("/down/d%1").arg(d));
        for (int i = 0; i < 80000; ++i) {
            const QByteArray path = "down/d" + QByteArray::number(i % 200) + "/file " + QByteArray::number(i) + ".txt";
            text += "2026/11/21 10:41:35 NOTICE: " + path + ": Skipped copy as --dry-run is set (size 2)\n";
            if (i % 2 == 0)
                write(big.localPath + QLatin1Char('/') + QString::fromUtf8(path), {});
        }
        text += "2026/11/21 10:41:36 INFO  : - Path1    Do queued copies to                - Path2\n";
        for (int i = 0; i < 120000; ++i) {
            const QByteArray path = "up/d" + QByteArray::number(i % 200) + "/file " + QByteArray::number(i) + ".txt";
            text += "2026/11/21 10:41:37 NOTICE: " + path + ": Skipped " + (i < 80000 ? "copy" : "delete")
                + " as --dry-run is set (size 2)\n";
        }
        write(plan, text);
    }
    // The kept files: five runs, two of them past the folder's 30 days.
    const QString kept = RemovedFiles::localDirectory(big.id);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (int run = 0; run < 5; ++run) {
        const QString directory = kept + u'/' + RemovedFiles::runDirectory(now.addDays(run < 3 ? -run - 1 : -60 - run));
        for (int d = 0; d < kKeptFiles / 5 / 200; ++d) {
            QDir().mkpath(directory + QStringLiteral("/d%1").arg(d));
            for (int f = 0; f < 200; ++f)
                write(directory + QStringLiteral("/d%1/kept %2.txt").arg(d).arg(f), "k");
        }
    }
    // The conflicts: both copies of each still here.
    ActivityLog activity(home + QStringLiteral("/.local/share/nimbrell/activity.jsonl"));
    {
        QList<ActivityRecord> records;
        for (int i = 0; i < kConflicts; ++i) {
            const QString path = QStringLiteral("c%1/letter %2.txt").arg(i / 500).arg(i);
            QDir().mkpath(QFileInfo(torn.localPath + u'/' + path).path());
            write(torn.localPath + u'/' + path, QByteArray(i % 97, 'm'));
            write(torn.localPath + u'/' + path + QStringLiteral(".conflict1"), QByteArray(i % 89, 't'));
            records.append({torn.id, QStringLiteral("gdrive:Torn"), now.addSecs(-i * 60),
                            ActivityRecord::Kind::conflict, path, ChangeParser::Action::added, i % 2 == 0,
                            path + QStringLiteral(".conflict1"), true});
        }
        activity.append(records);
    }
    QDir().mkpath(home + QStringLiteral("/.config/rclone"));
    write(home + QStringLiteral("/.config/rclone/rclone_sync_folders.json"), FolderStore::encode({big, torn}).value());

    MemorySettingsStore settings;
    RcloneEngine engine(rclone);
    InotifyFileEventService fileEvents;
    NoLoginItem loginItem;
    NimbrellApp app({.settings = settings, .engine = engine, .fileEvents = fileEvents, .loginItem = loginItem,
                     .activity = &activity});
    app.syncManager()->preferences().setKeepsRemoved(big.id, true);
    app.start();
    QQuickWindow *window = app.window(QStringLiteral("main"));
    window->resize(1100, 900);
    wait(500);
    if (measures("conflicts"))
        conflicts(app, window, torn);
    if (measures("review"))
        review(app, window, big, plan);
    if (measures("removed"))
        recentlyRemoved(app, window, big, now);
    return 0;
}
