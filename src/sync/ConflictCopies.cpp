#include "sync/ConflictCopies.h"

#include "model/RelativePath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
ConflictCopies::Copy look(const QString &absolute, const QString &relative, bool fromRemote)
{
    if (absolute.isEmpty())
        return {relative, false, 0, {}, fromRemote};
    const QFileInfo info(absolute);
    return {relative, info.isFile(), info.size(), info.lastModified(), fromRemote};
}

QString quoted(const QString &path)
{
    return u'“' + QFileInfo(path).fileName() + u'”';
}
} // namespace

ConflictCopies::ConflictCopies(const QString &localPath, const ActivityRecord &conflict)
    : m_localPath(localPath)
    , m_target(conflict.target)
    , m_date(conflict.time.toLocalTime().date())
    // The renamed copy came from the side it was renamed on; the original
    // name holds the other side's copy.
    , m_original(look(absolute(conflict.path), conflict.path, !conflict.onRemote))
    , m_renamed(look(absolute(conflict.renamed), conflict.renamed, conflict.onRemote))
{
}

QString ConflictCopies::absolute(const QString &path) const
{
    // The names come from rclone's log: one that leads out of the folder is
    // no copy of ours, whatever the log says.
    return RelativePath::inside(m_localPath, path).value_or(QString());
}

QString ConflictCopies::missing() const
{
    for (const Copy *copy : {&m_original, &m_renamed}) {
        const QString path = absolute(copy->path);
        if (path.isEmpty())
            return quoted(copy->path) + QStringLiteral(" is not in this folder.");
        if (!QFileInfo(path).isFile())
            return quoted(copy->path) + QStringLiteral(" is no longer there.");
    }
    return {};
}

QString ConflictCopies::settle(Choice choice)
{
    if (QString error = missing(); !error.isEmpty())
        return error;
    if (choice == Choice::keepBoth) {
        const QString name = readableName(m_original.path, m_date,
                                          [this](const QString &path) { return QFileInfo::exists(absolute(path)); });
        if (!QFile::rename(absolute(m_renamed.path), absolute(name)))
            return QStringLiteral("Could not rename %1 to %2.").arg(quoted(m_renamed.path), quoted(name));
        return {};
    }
    const bool renamedCopy = choice == Choice::keepRenamed;
    const QString gone = absolute(renamedCopy ? m_original.path : m_renamed.path);
    if (!QFile::moveToTrash(gone))
        return QStringLiteral("Could not move %1 to the trash.").arg(quoted(gone));
    if (renamedCopy && !QFile::rename(absolute(m_renamed.path), absolute(m_original.path))) {
        return QStringLiteral("Moved %1 to the trash, but could not rename %2 to it.")
            .arg(quoted(m_original.path), quoted(m_renamed.path));
    }
    return {};
}

QStringList ConflictCopies::remoteCopy(Choice choice) const
{
    if (choice != Choice::keepRenamed || absolute(m_original.path).isEmpty())
        return {};
    // "backup:" + "a/b.txt", "backup:Docs" + "/" + "a/b.txt"
    const bool atRoot = m_target.endsWith(u':') || m_target.endsWith(u'/');
    return {QStringLiteral("copyto"), absolute(m_original.path), m_target + (atRoot ? QString() : QStringLiteral("/")) + m_original.path};
}

QString ConflictCopies::readableName(const QString &path, QDate date, const std::function<bool(const QString &)> &taken)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    const QString directory = path.left(slash + 1);
    const QString name = path.mid(slash + 1);
    // The extension is what follows the last dot, unless the dot starts the
    // name (".bashrc").
    const qsizetype dot = name.lastIndexOf(u'.');
    const QString stem = dot > 0 ? name.left(dot) : name;
    const QString extension = dot > 0 ? name.mid(dot) : QString();
    const QString tag = QStringLiteral(" (conflict ") + date.toString(Qt::ISODate);
    for (int number = 1;; ++number) {
        const QString candidate = directory + stem + tag + (number > 1 ? u' ' + QString::number(number) : QString())
            + u')' + extension;
        if (!taken(candidate))
            return candidate;
    }
}
