#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Which way a folder's runs carry changes.
enum class SyncDirection {
    twoWay,   // bisync: changes on either side reach the other
    upload,   // the remote follows this computer (rclone sync LOCAL REMOTE)
    download, // this computer follows the remote (rclone sync REMOTE LOCAL)
};

// What of a folder syncs, beyond its three exclusion switches: directories
// the user left out, ignore rules in rclone's filter syntax, and the
// direction. A default value changes nothing in any run.
struct FolderSelection
{
    QStringList skipped; // directories relative to the folder: "Videos", "Projects/old"
    QStringList ignore;  // "*.tmp", "/build/**"
    SyncDirection direction = SyncDirection::twoWay;

    // The "--exclude" pairs of the skipped directories and the ignore rules,
    // in that order; the skipped directories are anchored at the folder's
    // root, their names taken literally, and the rules merged where rclone
    // matches the merged rule exactly as the separate ones.
    QStringList filterArguments() const;
    // Whether `path` (relative to the folder) is a skipped directory or lies
    // inside one.
    bool isSkipped(const QString &path) const;
    // Whether some skipped directory lies inside `path` (but is not it).
    bool holdsSkipped(const QString &path) const;
    // Whether this selection lets through something `before` left out: a
    // directory un-skipped, a rule dropped. Such files come back on both
    // sides as new, and may differ.
    bool reveals(const FolderSelection &before) const;
    // Whether it leaves out something `before` let through.
    bool hides(const FolderSelection &before) const;

    // "two-way", "upload", "download", as the command line and the JSON
    // reports spell them.
    static QString directionName(SyncDirection direction);
    static std::optional<SyncDirection> directionFromName(const QString &name);
    // A directory as typed ("./Photos/2019/", "Photos//2019") in its one
    // form ("Photos/2019"); nothing for the folder itself, an absolute
    // path or one that climbs out ("..").
    static std::optional<QString> normalizedDirectory(const QString &path);
    // `name` matched literally by rclone's glob syntax.
    static QString escapedGlob(const QString &name);

    friend bool operator==(const FolderSelection &, const FolderSelection &) = default;
};
