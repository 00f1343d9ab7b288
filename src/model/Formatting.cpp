#include "model/Formatting.h"

#include <QRegularExpression>

#include <cmath>

using namespace std::chrono_literals;

namespace Formatting {

QString remoteCount(qsizetype count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" remote") : QStringLiteral(" remotes"));
}

QString fileCount(qsizetype count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" file") : QStringLiteral(" files"));
}

QString folderCount(qsizetype count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" folder") : QStringLiteral(" folders"));
}

QString formatByteCount(qint64 bytes)
{
    if (bytes < 1024)
        return QString::number(bytes) + QStringLiteral(" B");
    static constexpr const char *kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB"};
    int unit = 0;
    double divisor = 1024.0;
    while (unit < 4 && double(bytes) >= divisor * 1024.0) {
        divisor *= 1024.0;
        ++unit;
    }
    const double value = double(bytes) / divisor;
    // Exactly this rule: a count just below the next unit shows as "1024.00 KiB".
    const QString number = value == std::trunc(value) ? QString::number(value, 'f', 0) : QString::number(value, 'f', 2);
    return number + u' ' + QLatin1String(kUnits[unit]);
}

QString errorSummary(const QString &log)
{
    static const QRegularExpression newline(QStringLiteral("[\\n\\r\\v\\f\\x{85}\\x{2028}\\x{2029}]"));
    for (const QString &line : log.split(newline)) {
        for (const QChar c : line) {
            if (c != u' ' && c != u'\t')
                return line;
        }
    }
    return QStringLiteral("Unknown error");
}

QString percentage(double fraction)
{
    // A run reports fractions from 0 to 1; anything else is shown at the nearest end.
    const double clamped = std::isfinite(fraction) ? qBound(0.0, fraction, 1.0) : 0.0;
    return QString::number(int(std::trunc(clamped * 100.0))) + u'%';
}

namespace {
struct TimeUnit
{
    qint64 seconds;
    const char *singular;
    const char *plural;
};
constexpr TimeUnit kTimeUnits[] = {
    {365 * 24 * 3600, "year", "years"}, {30 * 24 * 3600, "month", "months"}, {7 * 24 * 3600, "week", "weeks"},
    {24 * 3600, "day", "days"},         {3600, "hour", "hours"},             {60, "minute", "minutes"},
    {1, "second", "seconds"},
};
} // namespace

QString relativeTime(const QDateTime &date, const QDateTime &now)
{
    // A date in the future reads as 0 seconds: the clocks disagree a little.
    const qint64 seconds = qMax<qint64>(0, date.secsTo(now));
    for (const TimeUnit &unit : kTimeUnits) {
        if (seconds >= unit.seconds) {
            const qint64 count = seconds / unit.seconds;
            return QString::number(count) + u' ' + QLatin1String(count == 1 ? unit.singular : unit.plural);
        }
    }
    return QStringLiteral("0 seconds");
}

qint64 msecsUntilRelativeTimeChanges(const QDateTime &date, const QDateTime &now)
{
    const qint64 age = date.msecsTo(now);
    if (age < 0)
        return -age + 1000; // "0 seconds" until the date, and a second on
    // The text moves on at the next whole unit, or where the next larger
    // unit begins (4 weeks turn into 1 month after 30 days, not 35).
    qint64 larger = 0;
    for (const TimeUnit &unit : kTimeUnits) {
        const qint64 unitMs = unit.seconds * 1000;
        if (age >= unitMs || unit.seconds == 1) {
            const qint64 next = unitMs - age % unitMs;
            return larger > 0 ? qMin(next, larger - age) : next;
        }
        larger = unitMs;
    }
    return 1000;
}

QString printable(QStringView text)
{
    QString shown = text.toString();
    for (QChar &c : shown) {
        const char16_t u = c.unicode();
        if ((u < 0x20 && u != u'\n' && u != u'\t') || (u >= 0x7f && u <= 0x9f))
            c = QChar(0xFFFD);
    }
    return shown;
}

} // namespace Formatting
