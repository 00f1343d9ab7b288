#pragma once

#include <QHashFunctions>
#include <QString>
#include <QUuid>

// One rclone remote location a folder syncs with.
struct RemoteTarget
{
    QUuid id = QUuid::createUuid();
    QString remoteName; // without the trailing colon
    QString remotePath; // empty for the root of the remote
    bool hasResynced = false;

    friend bool operator==(const RemoteTarget &, const RemoteTarget &) = default;
};

inline size_t qHash(const RemoteTarget &target, size_t seed = 0) noexcept
{
    return qHashMulti(seed, target.id, target.remoteName, target.remotePath, target.hasResynced);
}
