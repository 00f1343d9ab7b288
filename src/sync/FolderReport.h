#pragma once

#include "model/CloudRemote.h"
#include "model/SyncFolder.h"
#include "sync/ActivityLog.h"
#include "sync/SyncProblem.h"

#include <QJsonArray>
#include <QJsonObject>

// The folders and remotes as the command line reports them, in the field
// names its --json output documents. One shape whether the running instance
// answers or the store is read directly.
namespace FolderReport {

// What a folder shows: status, last sync, targets, progress, first error line.
// `running`: a run is queued or under way; `waiting`: it waits for a slot.
// `problems`: the manager's reading of the folder's failure; `activity`:
// its open conflicts and last change.
QJsonObject status(const SyncFolder &folder, bool running = false, bool waiting = false,
                   const QList<SyncProblem> &problems = {}, const FolderActivity &activity = {});
// How a folder is set up: path, targets, filters, conflict policy.
QJsonObject configuration(const SyncFolder &folder);
// Per failing target: [{target, kind, title, sentence, action}].
QJsonArray problems(const QList<SyncProblem> &problems);
QJsonObject remote(const CloudRemote &remote);

// "remote:path", as rclone writes a location.
QString targetText(const RemoteTarget &target);
// ISO 8601 in UTC, to the second: "2026-11-22T09:30:00Z".
QString isoDate(const QDateTime &date);

} // namespace FolderReport
