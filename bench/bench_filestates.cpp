// What a file manager asks: the states of 10,000 files of a folder at once
// (with ignore rules, a skipped directory and 1,000 pending changes), and
// the answer as the instance channel sends it. Prints figures.
#include "BenchSupport.h"
#include "engine/RcloneEngine.h"
#include "fakes/FakeFileEventService.h"
#include "sync/FileStates.h"
#include "sync/SyncManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("org.nimbrell.Nimbrell.*=false"));
    QTemporaryDir root;
    qputenv("HOME", QFile::encodeName(root.filePath(QStringLiteral("home"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.filePath(QStringLiteral("home/.config"))));
    const QString local = root.filePath(QStringLiteral("Docs"));
    QStringList paths;
    for (int d = 0; d < 100; ++d) {
        QDir().mkpath(local + QStringLiteral("/d%1").arg(d));
        for (int f = 0; f < 100; ++f) {
            const QString path = local + QStringLiteral("/d%1/f%2.txt").arg(d).arg(f);
            write(path, "x");
            paths.append(path);
        }
    }
    MemorySettingsStore settings;
    settings.values.insert(AutomaticSync::kGlobalSyncEnabledKey, true);
    RcloneEngine engine(QStringLiteral("/nonexistent/rclone"));
    FakeFileEventService events;
    SyncManager manager({settings, engine, events, {std::chrono::hours(1), std::chrono::hours(1), std::chrono::hours(1)}});
    SyncFolder folder;
    folder.name = QStringLiteral("Docs");
    folder.localPath = local;
    folder.remoteTargets = {{QUuid::createUuid(), QStringLiteral("remote"), QStringLiteral("Docs"), true}};
    manager.addFolder(folder);
    manager.setSelection(folder.id, {{QStringLiteral("d99")}, {QStringLiteral("*.tmp"), QStringLiteral("/build/**"),
                                                                QStringLiteral("**/.cache/**")}, {}});
    events.change(local, paths.mid(0, 1000)); // pending
    // Directories too, as a file manager's view of the folder's top holds them.
    QStringList asked = paths;
    for (int d = 0; d < 100; ++d)
        asked.append(local + QStringLiteral("/d%1").arg(d));

    std::vector<double> states, answers;
    qsizetype bytes = 0;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        const QList<FileStates::Answer> found = FileStates::of(manager, asked);
        states.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (found.size() != asked.size() || !found.first().state || *found.first().state != FileStates::State::pending
            || *found.last().state != FileStates::State::excluded)
            qFatal("unexpected states");
        timer.restart();
        bytes = QJsonDocument(FileStates::answer(manager, {{QStringLiteral("paths"), QJsonArray::fromStringList(asked)}}))
                    .toJson(QJsonDocument::Compact)
                    .size();
        answers.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("states of 10,000 files and 100 directories asked at once (1,000 pending), medians of 5\n");
    std::printf("  the states:                  %7.1f ms\n", median(states));
    std::printf("  the channel's answer (JSON): %7.1f ms, %lld bytes\n", median(answers), static_cast<long long>(bytes));
    return 0;
}
