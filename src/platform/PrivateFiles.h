#pragma once

#include <QString>

// What the program writes about the user's files (which files there are,
// what was removed, where they sync) is theirs alone: directories 0700,
// files 0600, whatever the umask.

// Makes the directory and its missing parents; the directory itself (not
// its parents, which may be shared) is then accessible to its owner only.
bool makePrivateDirectory(const QString &path);

// A directory (not a link to one) that belongs to this user and that no one
// else may enter: safe to keep a lock or a socket in.
bool isPrivateDirectory(const QString &path);
