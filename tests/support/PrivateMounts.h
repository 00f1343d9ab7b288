#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

// Small file systems of a test's own: the test process moves into a mount
// namespace of its own (and, when not root, a user namespace in which it
// is), so what it mounts is seen by it and its children only, and goes
// with it. False where the system allows neither.
namespace PrivateMounts {

inline bool enter()
{
    const uid_t uid = ::getuid();
    const gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWNS | (uid == 0 ? 0 : CLONE_NEWUSER)) != 0)
        return false;
    if (uid != 0) {
        const auto write = [](const char *path, const QByteArray &text) {
            QFile file(QString::fromLatin1(path));
            return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
        };
        if (!write("/proc/self/setgroups", "deny") || !write("/proc/self/uid_map", "0 " + QByteArray::number(uid) + " 1")
            || !write("/proc/self/gid_map", "0 " + QByteArray::number(gid) + " 1"))
            return false;
    }
    return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A tmpfs of `kib` KiB at `path` (an existing directory), read-only if asked.
inline bool mountTmpfs(const QString &path, int kib, bool readOnly = false)
{
    const QByteArray options = "size=" + QByteArray::number(kib) + "k";
    return ::mount("tmpfs", QFile::encodeName(path).constData(), "tmpfs", readOnly ? MS_RDONLY : 0,
                   options.constData()) == 0;
}

inline bool unmount(const QString &path)
{
    return ::umount2(QFile::encodeName(path).constData(), MNT_DETACH) == 0;
}

} // namespace PrivateMounts
