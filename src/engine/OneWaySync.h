#pragma once

#include "engine/RcloneEngine.h"

#include <QString>
#include <QStringList>

// One one-way run of a local directory and a remote location: `rclone sync`
// makes the destination (the remote for an upload, this computer for a
// download) follow the source.
struct OneWayRequest
{
    QString localPath;
    QString remoteSpec; // "remote:path", one argument
    bool toRemote = true;
    QStringList filterArguments = {}; // every "--exclude" of the folder's runs
    QStringList backupArguments = {}; // "--backup-dir" and where; empty keeps nothing
    QString bandwidthLimit = {};      // "--bwlimit"; empty adds nothing
    QString localMountPoint = {};     // see BisyncRequest
    // The target's first run in this direction: one that would delete or
    // replace anything waits for a review.
    bool reviewFirst = false;
    // Reviewed: made even past the too-many-deletes stop and the first run's review.
    bool force = false;
    // The dry run alone: a review's plan.
    bool planOnly = false;
};

// What a dry run found, from its report: files only in the source (added),
// in both but different (replaced), only in the destination (deleted), and
// the same on both.
struct OneWayPlan
{
    qsizetype same = 0, added = 0, replaced = 0, deleted = 0;
    qsizetype sourceFiles() const { return same + added + replaced; }
    qsizetype destinationFiles() const { return same + replaced + deleted; }
    bool changesNothing() const { return added + replaced + deleted == 0; }
    void addReportLine(QByteArrayView line);
};

// A run first asks rclone what it would do (a dry run and its report), and
// does nothing more when:
//   - the source is missing, or holds no file while the destination does:
//     an unmounted drive or a wiped remote would empty the other side;
//   - it would delete more than half of the destination's files;
//   - it is the target's first in this direction and would delete or
//     replace anything;
// each with a message that names the counts. Otherwise the real sync runs,
// allowed to delete no more files than the dry run found. The report's lines
// come as lineRead() before the real run's output.
namespace OneWaySync {
RcloneJob *start(RcloneEngine &engine, const OneWayRequest &request, const QObject *context,
                 RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done);
QStringList planArguments(const OneWayRequest &request);
QStringList syncArguments(const OneWayRequest &request, qsizetype maxDelete);
} // namespace OneWaySync
