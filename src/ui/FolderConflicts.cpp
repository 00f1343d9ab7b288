#include "ui/FolderConflicts.h"

#include "sync/SyncManager.h"
#include "ui/FolderDetailController.h"

FolderConflicts::FolderConflicts(FolderDetailController &pane)
    : QObject(&pane)
    , m_pane(pane)
{
    setObjectName(QStringLiteral("folderConflicts"));
    // Reading the folder's activity again costs the main thread more the more
    // conflicts it has: only once a copy has gone.
    connect(&m_list, &ConflictListModel::copiesGone, this, [this] {
        if (m_pane.app() && !m_pane.id().isNull())
            m_pane.app()->syncManager()->conflicts().recheck(m_pane.id());
    });
}

void FolderConflicts::reset()
{
    m_error.clear();
    m_isSettling = false;
    m_list.clear();
    refresh();
    emit changed();
}

void FolderConflicts::refresh()
{
    const std::optional<SyncFolder> f = m_pane.folder();
    if (f)
        m_list.show(f->localPath, m_pane.app()->syncManager()->conflicts().of(f->id));
    else
        m_list.clear();
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
