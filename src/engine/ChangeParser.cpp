#include "engine/ChangeParser.h"
#include "engine/RcloneOutput.h"

#include "engine/RcloneEngine.h"
#include "model/Formatting.h"
#include "model/RelativePath.h"
#include "platform/AppLogger.h"

#include <algorithm>

namespace {

// The message of a log line: "2026/11/22 21:11:49 INFO  : <message>".
QStringView messageOf(QStringView line)
{
    const qsizetype colon = line.indexOf(u": ", 19);
    return colon < 0 ? QStringView() : line.mid(colon + 2).trimmed();
}

// "- Path2    Queue delete              - dav:Docs/a.txt": the side and what
// follows the last " - ".
bool sideAndTail(QStringView message, QStringView what, int &side, QStringView &tail)
{
    if (!message.startsWith(u"- Path") || message.size() < 8)
        return false;
    side = message.at(6) == u'2' ? 2 : 1;
    const QStringView rest = message.mid(7).trimmed();
    if (!rest.startsWith(what))
        return false;
    const qsizetype dash = rest.indexOf(u" - ", what.size());
    if (dash < 0)
        return false;
    tail = rest.mid(dash + 3);
    return true;
}

} // namespace

std::optional<QString> ChangeParser::relative(QStringView path, int side) const
{
    const QString &root = m_roots[side - 1];
    if (root.isEmpty() || !path.startsWith(root))
        return std::nullopt;
    return path.mid(root.size()).toString();
}

bool ChangeParser::accepts(QStringView path)
{
    return RelativePath::isSafe(path) || refuse(path);
}

bool ChangeParser::refuse(QStringView path)
{
    if (!std::exchange(m_refusedPath, true))
        qCWarning(lcEngine, "Ignoring a path in rclone's output that is not inside the folder: %s",
                  qUtf8Printable(Formatting::printable(path)));
    return false;
}

void ChangeParser::add(const QString &path, Action action, bool toRemote)
{
    if (m_changes.size() >= kMaxChanges) {
        ++m_dropped;
        return;
    }
    m_changes.append({path, action, toRemote});
}

void ChangeParser::settle(const QString &path)
{
    if (m_watched.contains(path))
        m_settled.insert(path);
}

void ChangeParser::copied(const QString &path)
{
    settle(path);
    if (const auto queued = m_queuedCopies.constFind(path); queued != m_queuedCopies.cend() && *queued == m_copiesTo)
        m_queuedCopies.erase(queued);
}

QList<ChangeParser::SkippedCopy> ChangeParser::skippedCopies() const
{
    QList<SkippedCopy> skipped;
    for (auto queued = m_queuedCopies.cbegin(); queued != m_queuedCopies.cend(); ++queued)
        skipped.append({queued.key(), queued.value()});
    std::sort(skipped.begin(), skipped.end(), [](const SkippedCopy &a, const SkippedCopy &b) { return a.path < b.path; });
    // Directories are queued too, and made rather than copied.
    skipped.removeIf([this](const SkippedCopy &copy) { return m_queuedParents.contains(copy.path); });
    return skipped;
}

qsizetype ChangeParser::foundDeleted(int side) const
{
    return std::count_if(m_foundDeleted.cbegin(), m_foundDeleted.cend(), [side](int sides) { return sides & side; });
}

qsizetype ChangeParser::foundDeletedOnlyOn(int side) const
{
    return std::count(m_foundDeleted.cbegin(), m_foundDeleted.cend(), side);
}

void ChangeParser::addLine(QStringView raw)
{
    // Statistics blocks make up most of the output; log lines start with the date.
    if (raw.size() < 22 || !raw.front().isDigit())
        return;
    const QString cleaned = raw.contains(u'\x1b') ? RcloneOutput::stripAnsi(raw.toString()) : QString();
    const QStringView message = messageOf(cleaned.isNull() ? raw : QStringView(cleaned));
    if (message.isEmpty())
        return;

    int side = 0;
    QStringView tail;
    if (message.endsWith(u": Copied (new)") || message.endsWith(u": Copied (replaced existing)")) {
        if (m_copiesTo == 0)
            return;
        const bool isNew = message.endsWith(u"(new)");
        const QString path = message.left(message.lastIndexOf(u": Copied (")).toString();
        copied(path);
        if (!accepts(path))
            return;
        // A conflict's loser deleted to make room, or a file moved into the
        // backup directory: the copy replaces it.
        const bool replaces = m_conflictLosers.remove(path) > 0 || m_movedAside.remove(path);
        add(path, isNew && !replaces ? Action::added : Action::updated, m_copiesTo == 2);
    } else if (message.endsWith(u": Updated modification time in destination")) {
        // the same contents, as their checksums showed
        copied(message.chopped(42).toString());
    } else if (message.endsWith(u": Moved (server-side)")) {
        // With a backup directory, a file is moved there before it is replaced or deleted.
        m_movedAside.insert(message.chopped(21).toString());
    } else if (message.endsWith(u": Deleted") || message.endsWith(u": Moved into backup dir")) {
        const QString path = message.left(message.lastIndexOf(u": ")).toString();
        if (!accepts(path))
            return;
        settle(path);
        m_movedAside.remove(path);
        if (m_oneWay) {
            add(path, Action::deleted, m_copiesTo == 2);
        } else if (const auto queued = m_queuedDeletes.constFind(path); queued != m_queuedDeletes.cend()) {
            add(path, Action::deleted, *queued == 2);
            m_queuedDeletes.erase(queued);
        } else {
            m_conflictLosers.insert(path);
        }
    } else if (sideAndTail(message, u"Queue delete", side, tail)) {
        if (const std::optional<QString> path = relative(tail, side); !path)
            refuse(tail);
        else if (accepts(*path))
            m_queuedDeletes.insert(*path, side);
    } else if (sideAndTail(message, u"File was deleted", side, tail)) {
        m_foundDeleted[tail.toString()] |= side;
    } else if (sideAndTail(message, u"File changed: time (newer)", side, tail)) {
        // Its size is the same: the copy may take it for the one it replaces.
        if (m_newerInTimeOnly.size() < kMaxQueuedCopies)
            m_newerInTimeOnly.insert(tail.toString(), side);
    } else if (sideAndTail(message, u"Queue copy to", side, tail)) {
        // A conflict's winner is named without the root.
        const int toSide = 3 - side;
        const QString path = relative(tail, toSide).value_or(tail.toString());
        if (m_newerInTimeOnly.value(path) != side || !accepts(path) || m_queuedCopies.size() >= kMaxQueuedCopies)
            return;
        m_queuedCopies.insert(path, toSide);
        for (qsizetype slash = path.lastIndexOf(u'/'); slash > 0; slash = path.lastIndexOf(u'/', slash - 1)) {
            if (m_queuedParents.contains(path.left(slash)))
                break;
            m_queuedParents.insert(path.left(slash));
        }
    } else if (sideAndTail(message, u"Do queued copies to", side, tail)
               || sideAndTail(message, u"Resync is copying files to", side, tail)) {
        m_copiesTo = tail.endsWith(u'2') ? 2 : 1;
    } else if (sideAndTail(message, u"Renaming Path", side, tail)) {
        const std::optional<QString> path = relative(tail, side);
        if (!path ? !refuse(tail) : !accepts(*path))
            return;
        const QString &renamed = *path;
        const QString original = m_bothChanged.isEmpty() ? renamed.left(renamed.lastIndexOf(u'.')) : m_bothChanged;
        if (!accepts(original))
            return;
        Conflict conflict{original, renamed, side == 2, std::nullopt};
        // bisync names the winner just before it renames the loser.
        if (const auto winner = m_winners.constFind(original); winner != m_winners.cend())
            conflict.remoteWon = *winner;
        m_conflicts.append(conflict);
        // The other side's copy, arriving under the original name, replaces a file.
        m_conflictLosers.insert(original);
    } else if (message.startsWith(u"- WARNING") && message.contains(u"New or changed in both paths")) {
        m_bothChanged = message.mid(message.lastIndexOf(u" - ") + 3).toString();
    } else if (const qsizetype winner = message.indexOf(u": The winner is: Path"); winner > 0) {
        m_winners.insert(message.left(winner).toString(), message.endsWith(u'2'));
    } else if (message.startsWith(u"Synching Path1 \"")) {
        // Synching Path1 "/home/user/Docs/" with Path2 "dav:Docs/"
        const QList<QStringView> parts = message.split(u'"');
        if (parts.size() >= 4) {
            m_roots[0] = parts.at(1).toString();
            m_roots[1] = parts.at(3).toString();
        }
    }
}
