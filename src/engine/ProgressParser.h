#pragma once

#include "engine/SyncProgress.h"

#include <QList>
#include <QStringView>

// Reads rclone's "-P" statistics lines.
namespace ProgressParser {

// The progress of one output line: nothing unless the line begins with
// "Transferred:"; otherwise a value with whatever the line supplies (possibly
// nothing at all).
std::optional<SyncProgress> parseLine(QStringView line);

// rclone sometimes writes a statistics block straight after earlier text
// without a line break ("... 11.444 MiB/sTransferred: ..."). Splits such a
// line before every "Transferred:" that directly follows a non-blank
// character, so each statistics line can be read on its own.
QList<QStringView> splitStatistics(QStringView line);

} // namespace ProgressParser
