#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// What bisync does with a file changed on both sides. Stored by its case name.
enum class ConflictResolution { keepBoth, newerWins, localWins, remoteWins };

// Every case in the order pickers show them.
inline constexpr std::array<ConflictResolution, 4> allConflictResolutions{
    ConflictResolution::keepBoth,
    ConflictResolution::newerWins,
    ConflictResolution::localWins,
    ConflictResolution::remoteWins,
};

QString rawValue(ConflictResolution resolution);
std::optional<ConflictResolution> conflictResolutionFromRawValue(QStringView raw);

// The text the folder editor shows for a policy.
QString label(ConflictResolution resolution);
