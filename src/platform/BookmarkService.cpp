#include "platform/BookmarkService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

namespace BookmarkService {
namespace {

const QByteArray kMagic = QByteArrayLiteral("nimbrell-bookmark/1\n");

struct Identity
{
    quint64 device = 0;
    quint64 inode = 0;
    friend bool operator==(const Identity &, const Identity &) = default;
};

std::optional<Identity> identityOf(const QByteArray &path)
{
    struct stat info;
    if (::stat(path.constData(), &info) != 0)
        return std::nullopt;
    return Identity{quint64(info.st_dev), quint64(info.st_ino)};
}

} // namespace

std::optional<QByteArray> create(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    const auto identity = identityOf(QFile::encodeName(absolute));
    if (!identity)
        return std::nullopt;
    // Numbers as text: JSON numbers would lose the top bits of a 64-bit inode.
    const QJsonObject object{{QStringLiteral("path"), absolute},
                             {QStringLiteral("device"), QString::number(identity->device)},
                             {QStringLiteral("inode"), QString::number(identity->inode)}};
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
                            object.value(QStringLiteral("inode")).toString().toULongLong(&inodeOk)};
    if (path.isEmpty() || !deviceOk || !inodeOk)
        return std::nullopt;

    if (identityOf(QFile::encodeName(path)) == recorded)
        return Resolved{path, false};

    // Renamed in place: look for the same directory among its old siblings.
    const QDir parent = QFileInfo(path).dir();
    for (const QString &name : parent.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks)) {
        const QString candidate = parent.filePath(name);
        if (identityOf(QFile::encodeName(candidate)) == recorded)
            return Resolved{candidate, true};
    }
    return std::nullopt;
}

} // namespace BookmarkService
