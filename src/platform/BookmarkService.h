#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// A remembered user-chosen folder that is found again after a rename in
// place. The bookmark is a small versioned byte string holding the folder's
// absolute path and its device and inode numbers.
namespace BookmarkService {

struct Resolved
{
    QString path;
    bool isStale = false; // the folder was found under another name
};

// Fails for a path that does not exist.
std::optional<QByteArray> create(const QString &path);

// The folder's path when that path is still the same directory; otherwise an
// entry of the old parent directory with the recorded device and inode (a
// folder renamed in place), marked stale; otherwise nothing.
std::optional<Resolved> resolve(const QByteArray &bookmark);

// Where a folder chosen at `path` is now: where its bookmark finds it, or
// `path` as stored when it has none or it cannot.
QString currentPath(const QString &path, const std::optional<QByteArray> &bookmark);

} // namespace BookmarkService
