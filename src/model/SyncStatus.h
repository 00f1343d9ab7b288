#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// State of a folder's latest sync run. Stored by its case name.
enum class SyncStatus { idle, syncing, error, success };

QString rawValue(SyncStatus status);
std::optional<SyncStatus> syncStatusFromRawValue(QStringView raw);
