#include "sync/FolderProblems.h"

bool FolderProblems::Reading::isOf(const SyncFolder &folder) const
{
    return status == folder.status && lastError == folder.lastError && targets == folder.remoteTargets
        && localPath == folder.localPath;
}

void FolderProblems::read(const SyncFolder &folder)
{
    const auto it = m_readings.constFind(folder.id);
    if (it == m_readings.constEnd() || !it->isOf(folder))
        m_readings.insert(folder.id, {folder.status, folder.lastError, folder.remoteTargets, folder.localPath,
                                      SyncProblem::forFolder(folder, m_details.value(folder.id))});
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
