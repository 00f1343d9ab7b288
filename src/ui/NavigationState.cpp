#include "ui/NavigationState.h"

#include "model/UuidString.h"

NavigationState::NavigationState(QObject *parent)
    : QObject(parent)
{
}

void NavigationState::setSelection(const std::optional<SidebarSelection> &selection)
{
    if (selection == m_selection)
        return;
    m_selection = selection;
    Q_EMIT selectionChanged();
}

NavigationState::Page NavigationState::page() const
{
    if (!m_selection)
        return Page::None;
    switch (m_selection->kind) {
    case SidebarSelection::Kind::syncFolder:
        return Page::SyncFolder;
    case SidebarSelection::Kind::remote:
        return Page::Remote;
    case SidebarSelection::Kind::dashboard:
        return Page::Dashboard;
    case SidebarSelection::Kind::newSyncFolder:
        return Page::NewSyncFolder;
    }
    return Page::None;
}

QString NavigationState::folderId() const
{
    return m_selection && m_selection->kind == SidebarSelection::Kind::syncFolder ? uuidString(m_selection->folderId)
                                                                                 : QString();
}

const QString &NavigationState::remoteName() const
{
    static const QString none;
    return m_selection && m_selection->kind == SidebarSelection::Kind::remote ? m_selection->remoteName : none;
}

void NavigationState::setSheet(const QString &sheet)
{
    if (sheet == m_sheet)
        return;
    m_sheet = sheet;
    Q_EMIT sheetChanged();
}

QString NavigationState::takeSheet()
{
    const QString sheet = std::exchange(m_sheet, QString());
    if (!sheet.isEmpty())
        Q_EMIT sheetChanged();
    return sheet;
}
