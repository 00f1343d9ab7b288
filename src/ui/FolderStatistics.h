#pragma once

#include <QString>
#include <QtGlobal>

#include <atomic>

// What a local folder holds: its files (every entry that is not a directory,
// hidden ones included) and their total size. Unreadable parts are skipped; a
// missing folder holds nothing.
struct FolderStatistics
{
    qint64 fileCount = 0;
    qint64 totalBytes = 0;

    // Walks the whole tree; blocking, so run it off the main thread. Once
    // `stop` is set, the walk ends early (its figures then count for nothing).
    static FolderStatistics of(const QString &path, const std::atomic_bool *stop = nullptr);

    friend bool operator==(const FolderStatistics &, const FolderStatistics &) = default;
};
