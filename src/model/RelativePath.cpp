#include "model/RelativePath.h"

#include <QDir>
#include <QFileInfo>

namespace RelativePath {

bool isSafe(QStringView path)
{
    if (path.isEmpty() || path.front() == u'/')
        return false;
    for (const QChar c : path) {
        // C0, DEL and C1 controls: line breaks and terminal escapes among them.
        if (c.unicode() < 0x20 || (c.unicode() >= 0x7f && c.unicode() <= 0x9f))
            return false;
    }
    for (const QStringView segment : path.split(u'/')) {
        if (segment.isEmpty() || segment == u"." || segment == u"..")
            return false;
    }
    return true;
}

std::optional<QString> inside(const QString &root, const QString &relative)
{
    if (!isSafe(relative))
        return std::nullopt;
    const QString canonicalRoot = QFileInfo(root).canonicalFilePath();
    if (canonicalRoot.isEmpty())
        return std::nullopt;
    const QString path = QDir::cleanPath(root) + u'/' + relative;
    // The deepest directory of the path that exists must be the root or in
    // it: a directory inside that is a link to elsewhere leads out.
    QString existing = QFileInfo(path).absolutePath();
    while (!QFileInfo(existing).isDir() && existing.size() > root.size())
        existing = QFileInfo(existing).absolutePath();
    const QString reached = QFileInfo(existing).canonicalFilePath();
    if (reached != canonicalRoot && !reached.startsWith(canonicalRoot + u'/') && canonicalRoot != u"/")
        return std::nullopt;
    return path;
}

} // namespace RelativePath
