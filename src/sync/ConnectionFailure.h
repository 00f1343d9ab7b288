#pragma once

#include <QString>

// Why a remote could not be listed, in words a user can act on: read from
// rclone's error text, which is kept beside it.
struct ConnectionFailure
{
    enum class Kind { unreachable, credentialsRefused, certificateRejected, notFound, other };

    Kind kind = Kind::other;
    QString remoteName;
    QString message; // rclone's own text

    static ConnectionFailure read(const QString &remoteName, const QString &message);

    // "credentialsRefused", as `--json` spells it.
    QString kindName() const;
    // "The server refused the user name or password." Empty for other.
    QString sentence() const;
    // The sentence and rclone's line that says why, on lines of their own.
    QString text() const;
};
