#pragma once

#include "engine/RcloneEngine.h"

#include <QList>
#include <QString>
#include <QStringList>

// Ignore rules are checked by rclone itself before they are kept: each
// pattern as "--exclude" of a listing of rclone's in-memory backend, which
// reads nothing from disk or network. A pattern rclone refuses comes back
// with its reason ("mismatched '[' and ']' in glob \"[\"").
namespace FilterCheck {

struct Refused
{
    QString pattern;
    QString reason;
    friend bool operator==(const Refused &, const Refused &) = default;
};

// All patterns in one rclone start when rclone takes them all; otherwise one
// start per pattern, to tell which it refuses. The result lists the refused
// ones, in the order given (empty: every one is fine).
RcloneJob *check(RcloneEngine &engine, const QStringList &patterns, const QObject *context,
                 RcloneEngine::Done<QList<Refused>> done);
QStringList arguments(const QStringList &patterns);
// rclone's reason, from what it printed when it refused a pattern.
QString reasonIn(const QString &output);

} // namespace FilterCheck
