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
    // Each its own rule: one ending in "/**" keeps rclone from even listing
    // the directory.
    for (const QString &directory : skipped)
        arguments << exclude << u'/' + escapedGlob(directory) + QStringLiteral("/**");
    // rclone matches every path against every rule, one regular expression
    // each: the rules merge into one alternation per kind ("{a,b}" in its
    // globs), which matches the same paths at a fraction of the cost. A rule
    // that cannot go inside braces (one with braces, a comma or a backslash
    // of its own, or a directory rule ending in "/") stays apart.
    QStringList anchored, floating;
    for (const QString &rule : ignore) {
        const bool mergeable = !rule.contains(u'{') && !rule.contains(u'}') && !rule.contains(u',')
            && !rule.contains(u'\\') && !rule.endsWith(u'/');
        if (!mergeable)
            arguments << exclude << rule;
        else if (rule.startsWith(u'/'))
            anchored.append(rule.mid(1));
        else
            floating.append(rule);
    }
    const auto merged = [](const QString &prefix, const QStringList &rules) {
        return rules.size() == 1 ? prefix + rules.first() : prefix + u'{' + rules.join(u',') + u'}';
    };
    if (!floating.isEmpty())
        arguments << exclude << merged(QString(), floating);
    if (!anchored.isEmpty())
        arguments << exclude << merged(QStringLiteral("/"), anchored);
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
