#pragma once

#include <QString>

#include <optional>

// What one statistics line of a running bisync says. A value holds only what
// its own line supplied.
struct SyncProgress
{
    std::optional<double> percentage; // 0..1
    std::optional<QString> sizeString;
    std::optional<QString> fileString;
    std::optional<QString> speedAndETA;

    friend bool operator==(const SyncProgress &, const SyncProgress &) = default;
};
