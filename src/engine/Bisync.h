#pragma once

#include "engine/RcloneEngine.h"
#include "model/ConflictResolution.h"
#include "model/SyncFilterOptions.h"

#include <QString>
#include <QStringList>

#include <optional>

// One two-way sync of a local directory with one remote location.
struct BisyncRequest
{
    QString localPath;
    QString remoteSpec; // "remote:path", passed to rclone as one argument
    std::optional<SyncFilterOptions> filters; // none: nothing excluded
    ConflictResolution conflictResolution = ConflictResolution::keepBoth;
    bool isInitialSync = false; // adds "--resync"
    // Only runs a user starts from a review have these ("--dry-run",
    // "--force", "--resync-mode newer"); automatic runs never do.
    QStringList extraArguments = {};
    // The value of "--bwlimit"; empty adds nothing.
    QString bandwidthLimit = {};
    // Where deleted and replaced files are kept ("--backup-dir1", ...); empty adds nothing.
    QStringList keepArguments = {};
    // In place of keepArguments for a resync other than a dry run (a first
    // sync, or the recovery of a lost history): a resync replaces the
    // remote's differing copies with this computer's, and these keep them.
    QStringList resyncKeepArguments = {};
    // Where the local folder's volume was mounted when the folder was
    // chosen; "" when not known. No run is made while it is elsewhere: an
    // unmounted drive leaves an empty directory in its place.
    QString localMountPoint = {};
    // More "--exclude" pairs after the switches' (skipped directories,
    // ignore rules); empty adds nothing.
    QStringList selectionArguments = {};
    // What syncs changed since the pair's last bisync. Files now left out
    // look deleted on both sides, which deletes nothing but can trip the
    // too-many-deletes stop: when only such files push past it, the run is
    // made again allowing exactly those. Files back in again arrive as new
    // on both sides: two that differ are both kept, whatever the policy's
    // loser would be.
    bool followsSelectionChange = false;
    // The pair has synced before. Its resync (a first sync, or a retry) is
    // then made only while neither side is empty or missing.
    bool hasSyncedBefore = false;
};

// bisync, with what keeps the pair safe around it: no run while the local
// folder is missing or its drive is elsewhere, a wait for an earlier bisync
// of the pair, no resync that would fill an empty side, the remote directory
// made first, and one recovery, by a single retry, from a stale lock file or
// from a state in which rclone demands --resync. Afterwards, what bisync
// skipped as unchanged is copied.
namespace Bisync {
RcloneJob *start(RcloneEngine &engine, const BisyncRequest &request, const QObject *context,
                 RcloneEngine::ProgressHandler onProgress, RcloneEngine::Done<std::monostate> done);
// The argument list of one bisync of the pair.
QStringList arguments(const BisyncRequest &request, const QString &workDirectory);
// The "--exclude" pairs of the folder's three switches.
QStringList switchArguments(const std::optional<SyncFilterOptions> &filters);
// bisync's "Safety abort: too many deletes (>50%, 6 of 10)": the 10, or 0.
int listedBeforeTooManyDeletes(const QString &output);
} // namespace Bisync
