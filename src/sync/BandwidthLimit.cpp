#include "sync/BandwidthLimit.h"

#include "platform/SettingsStore.h"

#include <QRegularExpression>

BandwidthLimit BandwidthLimit::read(const SettingsStore &settings)
{
    return {settings.boolValue(kEnabledKey), settings.integerValue(kUploadKey), settings.integerValue(kDownloadKey),
            settings.stringValue(kScheduleKey).simplified()};
}

QString BandwidthLimit::argument() const
{
    if (!enabled)
        return {};
    if (!schedule.isEmpty())
        return schedule;
    if (uploadKiB <= 0 && downloadKiB <= 0)
        return {};
    const auto rate = [](qint64 kib) { return kib > 0 ? QString::number(kib) + u'k' : QStringLiteral("off"); };
    return rate(uploadKiB) + u':' + rate(downloadKiB);
}

QString BandwidthLimit::scheduleError(const QString &text)
{
    // rclone's sizes: a decimal number with an optional unit (b, or k to e
    // with an optional "i" or "iB"), or "off"; a pair is upload:download.
    static const QString size = QStringLiteral(R"((?:off|(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?(?:[bB]|[kKmMgGtTpPeE](?:i|iB)?)?))");
    static const QRegularExpression rate(QStringLiteral("^%1(?::%1)?$").arg(size), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression entry(
        QStringLiteral(R"(^(?:(?:mon|tue|wed|thu|fri|sat|sun|monday|tuesday|wednesday|thursday|friday|saturday|sunday)-)?)"
                       R"((?:[01]\d|2[0-3]):[0-5]\d,%1(?::%1)?$)").arg(size),
        QRegularExpression::CaseInsensitiveOption);
    const QStringList entries = text.simplified().split(u' ', Qt::SkipEmptyParts);
    if (entries.isEmpty())
        return QStringLiteral("Enter a rate or a timetable.");
    if (entries.size() == 1 && !entries.first().contains(u','))
        return rate.match(entries.first()).hasMatch() ? QString() : QStringLiteral("“%1” is not a rate, such as 512k or 2M.").arg(entries.first());
    for (const QString &one : entries) {
        if (!entry.match(one).hasMatch())
            return QStringLiteral("“%1” is not a time and a rate, such as 08:00,512k or Mon-19:00,off.").arg(one);
    }
    return {};
}
