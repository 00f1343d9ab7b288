#pragma once

#include <QLoggingCategory>

// The program's three log channels, under its reverse-DNS identifier.
Q_DECLARE_LOGGING_CATEGORY(lcEngine)      // org.nimbrell.Nimbrell.RcloneEngine
Q_DECLARE_LOGGING_CATEGORY(lcSyncManager) // org.nimbrell.Nimbrell.SyncManager
Q_DECLARE_LOGGING_CATEGORY(lcGeneral)     // org.nimbrell.Nimbrell.General

namespace AppLogger {
// Log lines quote file names and rclone's output, which may hold escape
// sequences: every message is made printable (Formatting::printable) before
// Qt's own handler writes it to the terminal or the journal.
void keepLogPrintable();

// "true" or "false", as the log lines print booleans.
inline const char *boolText(bool value)
{
    return value ? "true" : "false";
}
} // namespace AppLogger
