#include "ui/FolderOptions.h"

#include "sync/SyncManager.h"

#include <algorithm>

void FolderOptions::load(const SyncFolder *folder, const SyncManager *manager)
{
    m_filters = folder ? folder->filters : SyncFilterOptions();
    m_conflictResolution = folder ? folder->conflictResolution : ConflictResolution::keepBoth;
    m_paused = folder && manager && manager->automatic().isPaused(folder->id);
    m_keepRemoved = folder && manager && manager->preferences().keepsRemoved(folder->id);
    m_keepDays = folder && manager ? manager->preferences().keepDays(folder->id) : FolderPreferences::kDefaultKeepDays;
    emit changed();
}

void FolderOptions::applyTo(const QUuid &id, SyncManager &manager) const
{
    manager.automatic().setPaused(id, m_paused);
    manager.preferences().setKeepsRemoved(id, m_keepRemoved);
    manager.preferences().setKeepDays(id, m_keepDays);
}

void FolderOptions::setConflictResolution(int index)
{
    if (index < 0 || index >= int(allConflictResolutions.size()) || allConflictResolutions[index] == m_conflictResolution)
        return;
    m_conflictResolution = allConflictResolutions[index];
    emit changed();
}

void FolderOptions::setFilter(bool SyncFilterOptions::*filter, bool on)
{
    m_filters.*filter = on;
    emit changed();
}

int FolderOptions::keepDaysIndex() const
{
    const auto *found = std::find(std::begin(kKeepDaysChoices), std::end(kKeepDaysChoices), m_keepDays);
    // A number of days set by hand shows as the nearest longer choice.
    if (found == std::end(kKeepDaysChoices))
        found = std::lower_bound(std::begin(kKeepDaysChoices), std::prev(std::end(kKeepDaysChoices)), m_keepDays);
    return int(found - std::begin(kKeepDaysChoices));
}

void FolderOptions::setKeepDaysIndex(int index)
{
    if (index < 0 || index >= int(std::size(kKeepDaysChoices)) || kKeepDaysChoices[index] == m_keepDays)
        return;
    m_keepDays = kKeepDaysChoices[index];
    emit changed();
}

QStringList FolderOptions::keepDaysLabels()
{
    return {QStringLiteral("7 days"), QStringLiteral("30 days"), QStringLiteral("90 days")};
}

QStringList FolderOptions::conflictLabels()
{
    QStringList labels;
    for (const ConflictResolution resolution : allConflictResolutions)
        labels.append(label(resolution));
    return labels;
}
