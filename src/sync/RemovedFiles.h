#pragma once

#include "model/RemoteTarget.h"

#include <QDateTime>
#include <QStringList>
#include <QUuid>

// Where a folder's runs keep what they delete or replace, when the folder
// keeps it ("Keep removed and replaced files"): on this computer under
// ~/.local/share/nimbrell/removed/<folder id>/, on each remote in a hidden
// directory inside the target, which the runs leave out of the sync (rclone
// refuses a backup directory inside the synced path unless a filter
// excludes it; inside is the only place a target at a remote's root has).
// Each run keeps into a directory named for its start, "2026-11-23T10-00-00"
// (UTC): a kept file keeps its own modification time, so only that name
// says when it was removed.
namespace RemovedFiles {

inline const QString kDirectoryName = QStringLiteral(".nimbrell-removed");

QString localDirectory(const QUuid &folderId);
// "gdrive:Docs/.nimbrell-removed", "gdrive:.nimbrell-removed"
QString remoteDirectory(const RemoteTarget &target);

// The bisync arguments: both backup directories and the exclusion while the
// folder keeps; the exclusion alone after it stopped (the hidden directory
// may still hold files, which must not sync down); none for a folder that
// never kept.
QStringList arguments(const QUuid &folderId, const RemoteTarget &target, bool keeping, bool everKept,
                      const QDateTime &runStart);
// The directory name of a run's kept files.
QString runDirectory(const QDateTime &runStart);

} // namespace RemovedFiles
