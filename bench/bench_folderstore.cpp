// Prints how long the folder store takes to write and read a large folder list.
#include "model/FolderStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

QList<SyncFolder> makeFolders(int count, int targetsEach)
{
    QList<SyncFolder> folders;
    folders.reserve(count);
    for (int i = 0; i < count; ++i) {
        SyncFolder folder;
        folder.name = QStringLiteral("Folder %1").arg(i);
        folder.localPath = QStringLiteral("/home/user/Documents/Projects/folder-%1").arg(i);
        for (int t = 0; t < targetsEach; ++t) {
            folder.remoteTargets.append(RemoteTarget{QUuid::createUuid(), QStringLiteral("remote%1").arg(t),
                                                     QStringLiteral("Backup/folder-%1").arg(i), true});
        }
        folder.lastSync = QDateTime::currentDateTimeUtc();
        folder.status = i % 7 == 0 ? SyncStatus::error : SyncStatus::success;
        folder.progress = 1.0;
        if (folder.status == SyncStatus::error)
            folder.lastError = QStringLiteral("remote0:Backup — Failed to bisync: connection refused");
        folder.periodicIntervalMinutes = 30;
        folder.localPathBookmarkData = QByteArray(64, 'b');
        folders.append(folder);
    }
    return folders;
}

template <typename F>
double medianMilliseconds(int runs, F &&work)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show up as they come
    constexpr int kFolders = 1000;
    constexpr int kTargets = 3;
    constexpr int kRuns = 21;
    const QList<SyncFolder> folders = makeFolders(kFolders, kTargets);

    QByteArray document;
    const double encodeMs = medianMilliseconds(kRuns, [&] { document = FolderStore::encode(folders).value(); });
    qsizetype decoded = 0;
    const double decodeMs = medianMilliseconds(kRuns, [&] { decoded = FolderStore::decode(document).value().size(); });
    if (decoded != kFolders)
        return 1;

    std::printf("folder store, %d folders x %d targets (median of %d runs)\n", kFolders, kTargets, kRuns);
    std::printf("  encode: %8.2f ms\n", encodeMs);
    std::printf("  decode: %8.2f ms\n", decodeMs);
    std::printf("  file:   %8.1f KiB (%lld bytes)\n", double(document.size()) / 1024.0,
                static_cast<long long>(document.size()));
    return 0;
}
