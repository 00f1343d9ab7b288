#include "ui/FolderChoices.h"

#include "engine/FilterCheck.h"
#include "engine/RcloneJob.h"
#include "sync/SyncManager.h"

using namespace std::chrono_literals;

FolderChoices::FolderChoices(QObject *parent)
    : QObject(parent)
{
    // rclone is asked once typing pauses, not at every key.
    m_checkTimer.setSingleShot(true);
    m_checkTimer.setInterval(400ms);
    connect(&m_checkTimer, &QTimer::timeout, this, &FolderChoices::check);
}

FolderChoices::~FolderChoices()
{
    if (m_check)
        m_check->cancel();
}

void FolderChoices::load(const QUuid &id, const SyncManager *manager)
{
    m_selection = manager && !id.isNull() ? manager->selection(id) : FolderSelection();
    m_ignoreText = m_selection.ignore.join(u'\n');
    // What was saved was checked then.
    m_checkTimer.stop();
    if (m_check)
        m_check->cancel();
    m_checked = m_selection.ignore;
    m_refused.clear();
    emit changed();
    emit checkedChanged();
}

FolderSelection FolderChoices::selection() const
{
    FolderSelection selection = m_selection;
    selection.ignore = ignorePatterns();
    return selection;
}

void FolderChoices::applyTo(const QUuid &id, SyncManager &manager) const
{
    manager.setSelection(id, selection());
}

void FolderChoices::setDirection(int index)
{
    if (index < 0 || index > int(SyncDirection::download) || index == directionIndex())
        return;
    m_selection.direction = SyncDirection(index);
    emit changed();
}

QStringList FolderChoices::directionLabels()
{
    return {QStringLiteral("Two-way"), QStringLiteral("Upload only"), QStringLiteral("Download only")};
}

QString FolderChoices::directionSentence() const
{
    switch (m_selection.direction) {
    case SyncDirection::upload:
        return QStringLiteral("The remote follows this computer: changes made there are replaced or removed at the "
                              "next sync, and kept in Recently Removed when Keep removed is on.");
    case SyncDirection::download:
        return QStringLiteral("This computer follows the remote: changes made here are replaced or removed at the "
                              "next sync, and kept in Recently Removed when Keep removed is on.");
    case SyncDirection::twoWay: break;
    }
    return QStringLiteral("Changes on either side reach the other.");
}

QString FolderChoices::skippedSummary() const
{
    return FolderTreeModel::summaryOf(m_selection.skipped);
}

void FolderChoices::setIgnoreText(const QString &text)
{
    if (text == m_ignoreText)
        return;
    m_ignoreText = text;
    emit changed();
    m_checkTimer.start();
    emit checkedChanged();
}

QStringList FolderChoices::ignorePatterns() const
{
    QStringList patterns;
    for (const QString &line : m_ignoreText.split(u'\n')) {
        const QString pattern = line.trimmed();
        if (!pattern.isEmpty() && !patterns.contains(pattern))
            patterns.append(pattern);
    }
    return patterns;
}

QVariantList FolderChoices::refusedRules() const
{
    QVariantList rules;
    for (const auto &[pattern, reason] : m_refused)
        rules.append(QVariantMap{{QStringLiteral("pattern"), pattern}, {QStringLiteral("reason"), reason}});
    return rules;
}

void FolderChoices::check()
{
    const QStringList patterns = ignorePatterns();
    if (m_check)
        m_check->cancel();
    if (patterns.isEmpty() || patterns == m_checked || !m_engine) {
        if (patterns.isEmpty() || !m_engine)
            m_refused.clear();
        m_checked = patterns;
        return emit checkedChanged();
    }
    m_check = FilterCheck::check(*m_engine, patterns, this,
                                 [this, patterns](const RcloneResult<QList<FilterCheck::Refused>> &result) {
                                     m_check = nullptr;
                                     if (result.isCancelled())
                                         return;
                                     m_checked = patterns;
                                     m_refused.clear();
                                     if (!result.ok())
                                         m_refused.append({QString(), result.error().description.trimmed()});
                                     for (const FilterCheck::Refused &refused : result.ok() ? result.value() : QList<FilterCheck::Refused>())
                                         m_refused.append({refused.pattern, refused.reason});
                                     emit checkedChanged();
                                 });
    emit checkedChanged();
}

void FolderChoices::chooseFolders(const QString &localPath, const QVariantList &targets)
{
    QStringList specs;
    for (const QVariant &target : targets) {
        const QVariantMap row = target.toMap();
        const QString name = row.value(QStringLiteral("remoteName")).toString();
        if (!name.isEmpty())
            specs.append(name + u':' + row.value(QStringLiteral("remotePath")).toString());
    }
    m_tree.load(m_engine, localPath, specs, m_selection.skipped);
}

void FolderChoices::acceptFolders()
{
    m_selection.skipped = m_tree.skipped();
    emit changed();
}
