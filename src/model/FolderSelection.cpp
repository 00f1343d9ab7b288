#include "model/FolderSelection.h"

#include "model/RelativePath.h"

#include <algorithm>

namespace {

bool isInside(const QString &path, const QString &directory)
{
    return path == directory || (path.startsWith(directory) && path.at(directory.size()) == u'/');
}

} // namespace

QStringList FolderSelection::filterArguments() const
{
    QStringList arguments;
    const QString exclude = QStringLiteral("--exclude");
    for (const QString &directory : skipped)
        arguments << exclude << u'/' + escapedGlob(directory) + QStringLiteral("/**");
    for (const QString &rule : ignore)
        arguments << exclude << rule;
    return arguments;
}

bool FolderSelection::isSkipped(const QString &path) const
{
    return std::any_of(skipped.begin(), skipped.end(), [&path](const QString &directory) { return isInside(path, directory); });
}

bool FolderSelection::holdsSkipped(const QString &path) const
{
    if (path.isEmpty())
        return !skipped.isEmpty();
    return std::any_of(skipped.begin(), skipped.end(),
                       [&path](const QString &directory) { return directory != path && isInside(directory, path); });
}

bool FolderSelection::reveals(const FolderSelection &before) const
{
    const auto dropped = [](const QStringList &then, const QStringList &now) {
        return std::any_of(then.begin(), then.end(), [&now](const QString &entry) { return !now.contains(entry); });
    };
    return dropped(before.skipped, skipped) || dropped(before.ignore, ignore);
}

bool FolderSelection::hides(const FolderSelection &before) const
{
    return before.reveals(*this);
}

QString FolderSelection::directionName(SyncDirection direction)
{
    switch (direction) {
    case SyncDirection::upload: return QStringLiteral("upload");
    case SyncDirection::download: return QStringLiteral("download");
    case SyncDirection::twoWay: break;
    }
    return QStringLiteral("two-way");
}

std::optional<SyncDirection> FolderSelection::directionFromName(const QString &name)
{
    for (const SyncDirection direction : {SyncDirection::twoWay, SyncDirection::upload, SyncDirection::download}) {
        if (name == directionName(direction))
            return direction;
    }
    return std::nullopt;
}

std::optional<QString> FolderSelection::normalizedDirectory(const QString &path)
{
    if (path.startsWith(u'/'))
        return std::nullopt;
    QStringList segments = path.split(u'/', Qt::SkipEmptyParts);
    segments.removeAll(QStringLiteral("."));
    const QString joined = segments.join(u'/');
    if (!RelativePath::isSafe(joined))
        return std::nullopt;
    return joined;
}

QString FolderSelection::escapedGlob(const QString &name)
{
    QString escaped;
    escaped.reserve(name.size());
    for (const QChar c : name) {
        if (QStringView(u"*?[]{}\\").contains(c))
            escaped += u'\\';
        escaped += c;
    }
    return escaped;
}
