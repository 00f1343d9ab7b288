#pragma once

#include "model/ConflictResolution.h"
#include "model/RemoteTarget.h"
#include "model/SyncFilterOptions.h"
#include "model/SyncStatus.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

// A local directory kept in two-way sync with its remote targets, together with
// the live state of its latest run. A plain value: every change to a folder
// replaces the whole record in the manager's list.
struct SyncFolder
{
    QUuid id = QUuid::createUuid();
    QString name;
    QString localPath;
    QList<RemoteTarget> remoteTargets; // in sync order; the first is the primary
    std::optional<QDateTime> lastSync;
    SyncStatus status = SyncStatus::idle;
    std::optional<qint64> currentTargetIndex;
    double progress = 0.0; // 0..1 over the whole run
    std::optional<QString> transferredSize;
    std::optional<QString> transferredFiles;
    std::optional<QString> transferSpeed;
    std::optional<QString> lastError;
    SyncFilterOptions filters;
    ConflictResolution conflictResolution = ConflictResolution::keepBoth;
    std::optional<qint64> periodicIntervalMinutes;
    std::optional<QByteArray> localPathBookmarkData;

    friend bool operator==(const SyncFolder &, const SyncFolder &) = default;
};

size_t qHash(const SyncFolder &folder, size_t seed = 0);

// Clears what a run shows, for a run that starts or ends without an outcome.
void resetRunState(SyncFolder &folder, SyncStatus status);
