#include "model/ConflictResolution.h"

namespace {
struct Names
{
    ConflictResolution value;
    QStringView raw;
    QStringView label;
};

// "remoteWins" is labelled after the primary remote on purpose: the first
// target is the one that wins.
constexpr std::array<Names, 4> kNames{{
    {ConflictResolution::keepBoth, u"keepBoth", u"Keep Both (Rename older)"},
    {ConflictResolution::newerWins, u"newerWins", u"Newer Wins"},
    {ConflictResolution::localWins, u"localWins", u"Local Wins"},
    {ConflictResolution::remoteWins, u"remoteWins", u"Primary Remote Wins"},
}};

const Names &namesOf(ConflictResolution resolution)
{
    return kNames.at(qToUnderlying(resolution)); // listed in enumeration order
}
} // namespace

QString rawValue(ConflictResolution resolution)
{
    return namesOf(resolution).raw.toString();
}

QString label(ConflictResolution resolution)
{
    return namesOf(resolution).label.toString();
}

std::optional<ConflictResolution> conflictResolutionFromRawValue(QStringView raw)
{
    for (const Names &names : kNames) {
        if (names.raw == raw)
            return names.value;
    }
    return std::nullopt;
}
