#pragma once

#include <QtGlobal>

#include <optional>

// Storage figures of a remote in bytes; a field is absent when the backend
// does not report it.
struct RemoteSpaceInfo
{
    std::optional<qint64> total;
    std::optional<qint64> used;
    std::optional<qint64> free;
    std::optional<qint64> trashed;

    friend bool operator==(const RemoteSpaceInfo &, const RemoteSpaceInfo &) = default;
};
