#include "sync/FolderProblems.h"

bool FolderProblems::sameOutcome(const SyncFolder &a, const SyncFolder &b)
{
    return a.status == b.status && a.lastError == b.lastError && a.remoteTargets == b.remoteTargets
        && a.localPath == b.localPath;
}

void FolderProblems::read(const SyncFolder &folder)
{
    const auto it = m_readings.constFind(folder.id);
    if (it == m_readings.constEnd() || !sameOutcome(it->read, folder))
        m_readings.insert(folder.id, {folder, SyncProblem::forFolder(folder, m_details.value(folder.id))});
}

void FolderProblems::setDetails(const QUuid &id, const QStringList &details)
{
    if (details.isEmpty())
        m_details.remove(id);
    else
        m_details.insert(id, details);
    m_readings.remove(id);
}

void FolderProblems::remove(const QUuid &id)
{
    m_details.remove(id);
    m_readings.remove(id);
}
