#include "sync/ConnectionFailure.h"

#include "model/Formatting.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

using Kind = ConnectionFailure::Kind;

struct Reading
{
    Kind kind;
    std::initializer_list<const char *> needles; // any of them, in any case
};

// In this order: a certificate problem is also a failed connection, and a
// refused sign-in over HTTP is also an HTTP error.
const Reading kReadings[] = {
    {Kind::certificateRejected,
     {"x509:", "certificate signed by unknown authority", "failed to verify certificate", "certificate is not valid",
      "certificate has expired", "tls: bad certificate"}},
    {Kind::credentialsRefused,
     {"401 Unauthorized", "Error 401", "403 Forbidden", "unable to authenticate", "SignatureDoesNotMatch",
      "InvalidAccessKeyId", "AccessDenied", "invalid credentials", "authentication failed", "login failed",
      "permission denied (publickey", "530 Login incorrect", "bad password", "STATUS_LOGON_FAILURE"}},
    {Kind::unreachable,
     {"connection refused", "no such host", "i/o timeout", "network is unreachable", "no route to host",
      "connection reset", "HTTP response to HTTPS client", "server misbehaving", "context deadline exceeded",
      "No answer within", "EOF", "tls: first record does not look like a TLS handshake"}},
    {Kind::notFound, {"directory not found", "NoSuchBucket", "404 Not Found", "not found", "doesn't exist"}},
};

} // namespace

ConnectionFailure ConnectionFailure::read(const QString &remoteName, const QString &message)
{
    for (const Reading &reading : kReadings) {
        const bool matches = std::any_of(reading.needles.begin(), reading.needles.end(), [&message](const char *needle) {
            return message.contains(QLatin1String(needle), Qt::CaseInsensitive);
        });
        if (matches)
            return {reading.kind, remoteName, message};
    }
    return {Kind::other, remoteName, message};
}

QString ConnectionFailure::kindName() const
{
    switch (kind) {
    case Kind::unreachable: return QStringLiteral("unreachable");
    case Kind::credentialsRefused: return QStringLiteral("credentialsRefused");
    case Kind::certificateRejected: return QStringLiteral("certificateRejected");
    case Kind::notFound: return QStringLiteral("notFound");
    case Kind::other: break;
    }
    return QStringLiteral("other");
}

QString ConnectionFailure::sentence() const
{
    switch (kind) {
    case Kind::unreachable:
        return QStringLiteral("Can't reach %1: check the address and port, and that the server is running.").arg(remoteName);
    case Kind::credentialsRefused:
        return QStringLiteral("%1 refused the sign-in: check the user name, password or keys.").arg(remoteName);
    case Kind::certificateRejected:
        return QStringLiteral("%1's certificate is not trusted: check the address, or the server's certificate.")
            .arg(remoteName);
    case Kind::notFound:
        return QStringLiteral("%1 answered, but the place to sync with was not found: check the path or bucket.")
            .arg(remoteName);
    case Kind::other: break;
    }
    return {};
}

QString ConnectionFailure::text() const
{
    // rclone's line that says why: its last error line names the cause.
    static const QRegularExpression prefix(QStringLiteral("^\\S+ \\S+ (ERROR|CRITICAL|NOTICE) ?: ?"));
    QString cause;
    for (const QString &line : message.split(u'\n', Qt::SkipEmptyParts)) {
        if (!line.trimmed().isEmpty())
            cause = line.trimmed();
    }
    cause.remove(prefix);
    if (cause.isEmpty())
        cause = Formatting::errorSummary(message);
    const QString explained = sentence();
    return explained.isEmpty() ? cause : explained + u'\n' + cause;
}
