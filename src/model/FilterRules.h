#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <optional>

// Exclusion rules in rclone's filter syntax, matched as rclone matches
// them: a glob starting with "/" is anchored at the folder's root, any other
// matches at any depth; "*" and "?" stay within a path segment, "**" crosses
// them; "[...]" and "{a,b}" as in shells, "\" escapes. A rule with "**" or
// ending in "/" also leaves out a directory and all it holds, and rclone
// then never looks inside.
class FilterRules
{
public:
    // The patterns of "--exclude" pairs in an argument list (the rest is
    // ignored). A pattern rclone would refuse is left out.
    static FilterRules fromArguments(const QStringList &arguments);

    // Whether rclone leaves out the file (or directory) at `path` (relative
    // to the root, "/"-separated), or a directory above it.
    bool excludes(const QString &path, bool isDirectory = false) const;

    // rclone's regular expression for a glob; nothing for a glob it refuses.
    static std::optional<QString> regexOf(const QString &glob);

private:
    QList<QRegularExpression> m_fileRules;
    QList<QRegularExpression> m_directoryRules; // matched against "dir/"
};
