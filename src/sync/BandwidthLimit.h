#pragma once

#include <QString>

class SettingsStore;

// "Limit Bandwidth" of Settings: off, a rate for upload and for download, or
// a daily timetable in rclone's own words ("08:00,512k 19:00,off"). Each
// bisync gets it as `--bwlimit VALUE`; while it is off, nothing is added.
struct BandwidthLimit
{
    static inline const QString kEnabledKey = QStringLiteral("bandwidthLimitEnabled");
    static inline const QString kUploadKey = QStringLiteral("bandwidthUploadKiB");
    static inline const QString kDownloadKey = QStringLiteral("bandwidthDownloadKiB");
    static inline const QString kScheduleKey = QStringLiteral("bandwidthSchedule");

    bool enabled = false;
    qint64 uploadKiB = 0;   // KiB/s; 0: no limit
    qint64 downloadKiB = 0; // KiB/s; 0: no limit
    QString schedule;       // when set, it rules instead of the two rates

    static BandwidthLimit read(const SettingsStore &settings);

    // The value of --bwlimit; empty when nothing is limited.
    QString argument() const;

    // Why rclone would refuse `text` as the value of --bwlimit, or empty
    // when it takes it: a rate, "off", "UP:DOWN", or blank-separated
    // "[Day-]HH:MM,RATE" entries.
    static QString scheduleError(const QString &text);
};
