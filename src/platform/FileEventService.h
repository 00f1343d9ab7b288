#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

// A watch on a directory tree; watching stops when it is destroyed.
class FileWatch
{
public:
    virtual ~FileWatch() = default;
};

// Reports changes anywhere under a directory tree, in batches: the first
// event of a batch starts the batch, and it is delivered on the main thread
// once the service's latency has passed.
class FileEventService
{
public:
    virtual ~FileEventService() = default;

    // What changed in a batch: the paths (files or directories, absolute),
    // or none when they are not known (too many, or events were lost).
    using Changes = std::function<void(const QStringList &paths)>;

    // Starts watching `path` and everything below it; `onChange` is called
    // once per batch. Changes to `ignored` paths, to what lies below them and
    // to their siblings that start with their name and a dot (temporary and
    // backup copies of a file) are not reported; an ignored path that ends
    // in "/" is that directory and what lies below it, nothing else. Nothing
    // ignored is watched. Returns a watch even when
    // nothing could be watched (the periodic sync still covers such a folder).
    virtual std::unique_ptr<FileWatch> watch(const QString &path, const QStringList &ignored, Changes onChange) = 0;
};
