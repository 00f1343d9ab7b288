#include "ui/FolderConflicts.h"

#include "sync/SyncManager.h"
#include "ui/FolderDetailController.h"

#include <QDir>

FolderConflicts::FolderConflicts(FolderDetailController &pane)
    : QObject(&pane)
    , m_pane(pane)
{
    setObjectName(QStringLiteral("folderConflicts"));
}

void FolderConflicts::reset()
{
    m_error.clear();
    m_isSettling = false;
    recheck();
    emit changed();
}

QVariantList FolderConflicts::list() const
{
    const std::optional<SyncFolder> f = m_pane.folder();
    if (!f)
        return {};
    QVariantList conflicts;
    for (const ActivityRecord &record : m_pane.app()->syncManager()->conflicts().of(f->id)) {
        const ConflictCopies copies(f->localPath, record);
        QVariantList both;
        for (const ConflictCopies::Copy *copy : {&copies.original(), &copies.renamed()}) {
            both.append(QVariantMap{
                {QStringLiteral("path"), copy->path},
                {QStringLiteral("fileName"), copy->path.section(u'/', -1)},
                {QStringLiteral("filePath"), QDir(f->localPath).filePath(copy->path)},
                {QStringLiteral("size"), copy->size},
                {QStringLiteral("modified"), copy->modified},
                {QStringLiteral("side"), copy->fromRemote ? record.target : QStringLiteral("this computer")},
                {QStringLiteral("fromRemote"), copy->fromRemote},
                {QStringLiteral("keepsName"), copy == &copies.original()},
            });
        }
        conflicts.append(QVariantMap{{QStringLiteral("name"), record.path},
                                     {QStringLiteral("renamed"), record.renamed},
                                     {QStringLiteral("time"), record.time},
                                     {QStringLiteral("copies"), both}});
    }
    return conflicts;
}

void FolderConflicts::keepCopy(const QString &original, const QString &renamed, int copy)
{
    settle(original, renamed, copy == 1 ? ConflictCopies::Choice::keepRenamed : ConflictCopies::Choice::keepOriginal);
}

void FolderConflicts::keepBoth(const QString &original, const QString &renamed)
{
    settle(original, renamed, ConflictCopies::Choice::keepBoth);
}

void FolderConflicts::settle(const QString &original, const QString &renamed, ConflictCopies::Choice choice)
{
    if (!m_pane.app() || m_pane.id().isNull() || m_isSettling)
        return;
    m_isSettling = true;
    m_error.clear();
    emit changed();
    m_pane.app()->syncManager()->conflicts().settle(m_pane.id(), {original, renamed}, choice, this,
                                                    [this](const QString &error) {
                                                        m_isSettling = false;
                                                        m_error = error;
                                                        emit changed();
                                                    });
}

void FolderConflicts::recheck()
{
    if (m_pane.app() && !m_pane.id().isNull())
        m_pane.app()->syncManager()->conflicts().recheck(m_pane.id());
}
