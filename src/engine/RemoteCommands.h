#pragma once

#include "engine/RcloneEngine.h"
#include "model/CloudRemote.h"
#include "model/RemoteSpaceInfo.h"

// The short rclone commands about remotes, and the readers of their answers.
namespace RemoteCommands {
using Status = RcloneEngine::Done<std::monostate>;

RcloneJob *listRemotes(RcloneEngine &engine, const QObject *context, RcloneEngine::Done<QList<CloudRemote>> done);
RcloneJob *createRemote(RcloneEngine &engine, const QString &name, const QString &type, const QObject *context,
                        Status done);
RcloneJob *reconnectRemote(RcloneEngine &engine, const QString &name, const QObject *context, Status done);
RcloneJob *getSpaceInfo(RcloneEngine &engine, const QString &name, const QObject *context,
                        RcloneEngine::Done<RemoteSpaceInfo> done);
// rclone's version line. `rclone version` costs a fifth of a second of CPU
// (it runs lsb_release), so its answer is kept, in memory and in the cache
// directory, for as long as the binary is the same file (path, size, change
// time); a kept answer comes on the next event-loop turn, with no job (null).
RcloneJob *getVersion(RcloneEngine &engine, const QObject *context, RcloneEngine::Done<QString> done);
// The names of the directories right inside `location` ("remote:path"), one
// level; a location that does not exist has none.
RcloneJob *listDirectories(RcloneEngine &engine, const QString &location, const QObject *context,
                           RcloneEngine::Done<QStringList> done);

QList<CloudRemote> parseRemoteList(const QString &output);
RcloneResult<RemoteSpaceInfo> parseSpaceInfo(const QString &output);
QString parseVersion(const QString &output);
RcloneResult<QStringList> parseDirectoryNames(const QString &output);
} // namespace RemoteCommands
