#include "platform/BookmarkService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace BookmarkService {
namespace {

const QByteArray kMagic = QByteArrayLiteral("nimbrell-bookmark/1\n");

struct Identity
{
    quint64 device = 0;
    quint64 inode = 0;
    // When the directory was made ("seconds.nanoseconds"), where the file
    // system keeps it: a file system reuses the inode numbers of deleted
    // directories, so device and inode alone name a slot, not a directory.
    QString birth;
    bool sameSlot(const Identity &other) const { return device == other.device && inode == other.inode; }
};

std::optional<Identity> identityOf(const QByteArray &path)
{
    struct statx info;
    if (::statx(AT_FDCWD, path.constData(), 0, STATX_INO | STATX_BTIME, &info) != 0)
        return std::nullopt;
    Identity identity{::makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino, {}};
    if (info.stx_mask & STATX_BTIME)
        identity.birth = QStringLiteral("%1.%2").arg(qint64(info.stx_btime.tv_sec)).arg(uint(info.stx_btime.tv_nsec), 9, 10, QChar(u'0'));
    return identity;
}

} // namespace

std::optional<QByteArray> create(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    const auto identity = identityOf(QFile::encodeName(absolute));
    if (!identity)
        return std::nullopt;
    // Numbers as text: JSON numbers would lose the top bits of a 64-bit inode.
    QJsonObject object{{QStringLiteral("path"), absolute},
                       {QStringLiteral("device"), QString::number(identity->device)},
                       {QStringLiteral("inode"), QString::number(identity->inode)}};
    if (!identity->birth.isEmpty())
        object.insert(QStringLiteral("birth"), identity->birth);
    return kMagic + QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<Resolved> resolve(const QByteArray &bookmark)
{
    if (!bookmark.startsWith(kMagic))
        return std::nullopt;
    const QJsonObject object = QJsonDocument::fromJson(bookmark.sliced(kMagic.size())).object();
    const QString path = object.value(QStringLiteral("path")).toString();
    bool deviceOk = false, inodeOk = false;
    const Identity recorded{object.value(QStringLiteral("device")).toString().toULongLong(&deviceOk),
                            object.value(QStringLiteral("inode")).toString().toULongLong(&inodeOk),
                            object.value(QStringLiteral("birth")).toString()};
    if (path.isEmpty() || !deviceOk || !inodeOk)
        return std::nullopt;

    const std::optional<Identity> atPath = identityOf(QFile::encodeName(path));
    if (atPath && atPath->sameSlot(recorded))
        return Resolved{path, false};

    // Renamed in place: the same directory among its old siblings. Only a
    // candidate born when the folder was is it: an inode number alone may
    // have gone to a directory made since (a missing drive's folder would
    // then be "found" in another one). Without a birth time to compare,
    // the folder stays missing.
    if (recorded.birth.isEmpty())
        return std::nullopt;
    const QDir parent = QFileInfo(path).dir();
    for (const QString &name : parent.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks)) {
        const QString candidate = parent.filePath(name);
        const std::optional<Identity> found = identityOf(QFile::encodeName(candidate));
        if (found && found->sameSlot(recorded) && found->birth == recorded.birth)
            return Resolved{candidate, true};
    }
    return std::nullopt;
}

QString currentPath(const QString &path, const std::optional<QByteArray> &bookmark)
{
    if (bookmark) {
        if (const std::optional<Resolved> resolved = resolve(*bookmark))
            return resolved->path;
    }
    return path;
}

} // namespace BookmarkService
