#pragma once

#include <QHashFunctions>

// Exclusion switches of a sync folder. A default-constructed value holds the
// defaults a new folder gets.
struct SyncFilterOptions
{
    bool excludeGit = true;
    bool excludeHidden = false;
    bool excludeNodeModules = true;

    friend bool operator==(const SyncFilterOptions &, const SyncFilterOptions &) = default;
};

inline size_t qHash(const SyncFilterOptions &filters, size_t seed = 0) noexcept
{
    return qHashMulti(seed, filters.excludeGit, filters.excludeHidden, filters.excludeNodeModules);
}
