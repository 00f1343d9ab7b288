#include "model/SyncFolder.h"

#include "model/OptionalHash.h"

size_t qHash(const SyncFolder &f, size_t seed)
{
    return qHashMulti(seed, f.id, f.name, f.localPath, qHashRange(f.remoteTargets.begin(), f.remoteTargets.end()),
                      qHashOptional(f.lastSync), qToUnderlying(f.status), qHashOptional(f.currentTargetIndex),
                      f.progress, qHashOptional(f.transferredSize), qHashOptional(f.transferredFiles),
                      qHashOptional(f.transferSpeed), qHashOptional(f.lastError), f.filters,
                      qToUnderlying(f.conflictResolution), qHashOptional(f.periodicIntervalMinutes),
                      qHashOptional(f.localPathBookmarkData));
}

void resetRunState(SyncFolder &folder, SyncStatus status)
{
    folder.status = status;
    folder.progress = 0.0;
    folder.currentTargetIndex.reset();
    folder.transferredSize.reset();
    folder.transferredFiles.reset();
    folder.transferSpeed.reset();
}
