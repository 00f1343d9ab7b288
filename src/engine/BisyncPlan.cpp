#include "engine/BisyncPlan.h"
#include "engine/RcloneOutput.h"

#include "engine/RcloneEngine.h"
#include "model/RelativePath.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

// "- Path2    Do queued copies to                - Path1"
// "- Path1    Resync is copying files to         - Path2"
const QRegularExpression &sectionExpression()
{
    static const QRegularExpression expression(
        QStringLiteral("- Path[12]\\s+(?:Do queued copies to|Resync is copying files to)\\s+- Path([12])\\s*$"));
    return expression;
}

// "NOTICE: sub/a b.txt: Skipped copy as --dry-run is set (size 2)"
const QRegularExpression &skippedExpression()
{
    static const QRegularExpression expression(
        QStringLiteral("NOTICE: (.+): Skipped (copy|delete) as --dry-run is set"));
    return expression;
}

// "- Path1    File changed: size (larger), time (newer) - f1.txt"
// "- WARNING  New or changed in both paths       - f5.txt"
const QRegularExpression &changedExpression()
{
    static const QRegularExpression expression(
        QStringLiteral("- (Path1|Path2|WARNING)\\s+(?:File changed: .*?|New or changed in both paths\\s*) - (.+?)\\s*$"));
    return expression;
}

} // namespace

void BisyncPlan::addLine(QStringView raw)
{
    if (!raw.contains(u"- ") && !raw.contains(u"dry-run"))
        return; // most lines are statistics
    const QString line = raw.contains(u'\x1b') ? RcloneOutput::stripAnsi(raw.toString()) : raw.toString();
    if (const QRegularExpressionMatch skipped = skippedExpression().match(line); skipped.hasMatch()) {
        m_pending.append({skipped.captured(1), m_toRemote, skipped.capturedView(2) == u"delete"});
    } else if (const QRegularExpressionMatch section = sectionExpression().match(line); section.hasMatch()) {
        m_toRemote = section.capturedView(1) == u"2";
    } else if (const QRegularExpressionMatch changed = changedExpression().match(line); changed.hasMatch()) {
        const QStringView side = changed.capturedView(1);
        if (side != u"Path2")
            m_changedOnLocal.insert(changed.captured(2));
        if (side != u"Path1")
            m_changedOnRemote.insert(changed.captured(2));
    }
}

void BisyncPlan::addReportLine(QStringView line, bool toRemote)
{
    if (line.size() < 3 || line.at(1) != u' ' || !QStringView(u"+*-").contains(line.at(0)))
        return;
    const QString path = line.mid(2).toString();
    if (RelativePath::isSafe(path))
        m_pending.append({path, toRemote, line.at(0) == u'-', line.at(0) == u'*'});
}

QList<BisyncPlan::Change> BisyncPlan::changes(const QString &localPath) const
{
    QList<Change> changes;
    changes.reserve(m_pending.size());
    const QDir local(localPath);
    for (const Pending &pending : m_pending) {
        Group group;
        if (pending.replaces) {
            group = Group::replaced;
        } else if (pending.isDelete) {
            group = pending.toRemote ? Group::deletedRemote : Group::deletedLocal;
        } else {
            const bool replaces = pending.toRemote
                ? m_changedOnLocal.contains(pending.path)
                : m_changedOnRemote.contains(pending.path)
                    || (!localPath.isEmpty() && QFileInfo::exists(local.filePath(pending.path)));
            group = replaces ? Group::replaced : pending.toRemote ? Group::toRemote : Group::toLocal;
        }
        changes.append({group, pending.path, pending.toRemote});
    }
    return changes;
}
