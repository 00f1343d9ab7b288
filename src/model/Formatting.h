#pragma once

#include <QDateTime>
#include <QString>

// Texts that the screens and the command line show the same way.
namespace Formatting {

// "0 remotes", "1 remote", "2 remotes"
QString remoteCount(qsizetype count);
// "1 file", "3 files"; "1 folder", "3 folders"
QString fileCount(qsizetype count);
QString folderCount(qsizetype count);

// Byte counts in units that grow by 1024: "512 B", "1 KiB", "1.50 MiB", ...
QString formatByteCount(qint64 bytes);

// The first line of an error text that is not blank, as it stands; "Unknown
// error" when there is none.
QString errorSummary(const QString &log);

// A progress fraction as a whole percentage: 0.425 gives "42%".
QString percentage(double fraction);

// How long ago `date` was, as a count and a unit: "42 seconds", "1 minute",
// "5 minutes", "2 hours", "3 days", "2 weeks", "4 months", "1 year".
QString relativeTime(const QDateTime &date, const QDateTime &now);
// Milliseconds from `now` until relativeTime(date, ·) reads differently:
// under a minute every second, then at the next whole unit of its text.
qint64 msecsUntilRelativeTimeChanges(const QDateTime &date, const QDateTime &now);

// Text safe to write to a terminal: every control character but the line
// feed and the tab (escape sequences, OSC ones included, and C1 controls)
// becomes U+FFFD. File names can hold any of them.
QString printable(QStringView text);

} // namespace Formatting
