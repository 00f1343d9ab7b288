#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// Paths that come from outside (rclone's log, a remote's listing, a file
// the program wrote earlier) name a file inside a folder only when they pass
// here. rclone prints raw file names, so a name with a line break in it can
// forge a whole log line; nothing such a line names may be touched.
namespace RelativePath {

// A path relative to some root: not empty, not absolute, no "." or ".."
// segment, no empty segment, no control character.
bool isSafe(QStringView path);

// `root` + "/" + `relative`, when `relative` is safe and what exists of it
// lies inside `root` once symbolic links are followed; otherwise nothing.
std::optional<QString> inside(const QString &root, const QString &relative);

} // namespace RelativePath
