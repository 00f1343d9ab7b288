#include "ui/Formatting.h"

using namespace std::chrono_literals;

namespace Formatting {

QString remoteCount(qsizetype count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" remote") : QStringLiteral(" remotes"));
}

QString relativeTime(const QDateTime &date, const QDateTime &now)
{
    const qint64 seconds = date.secsTo(now);
    if (seconds < 60) // also a date in the future: the clocks disagree a little
        return QStringLiteral("now");
    struct Unit
    {
        qint64 seconds;
        const char *singular;
        const char *plural;
    };
    static constexpr Unit kUnits[] = {
        {365 * 24 * 3600, "year", "years"}, {30 * 24 * 3600, "month", "months"}, {7 * 24 * 3600, "week", "weeks"},
        {24 * 3600, "day", "days"},         {3600, "hour", "hours"},             {60, "minute", "minutes"},
    };
    for (const Unit &unit : kUnits) {
        if (seconds >= unit.seconds) {
            const qint64 count = seconds / unit.seconds;
            return QString::number(count) + u' ' + QLatin1String(count == 1 ? unit.singular : unit.plural);
        }
    }
    return QStringLiteral("now");
}

} // namespace Formatting

Format::Format(QObject *parent)
    : QObject(parent)
    , m_now(QDateTime::currentDateTimeUtc())
{
    m_tick.setInterval(30s);
    connect(&m_tick, &QTimer::timeout, this, [this] {
        m_now = QDateTime::currentDateTimeUtc();
        Q_EMIT nowChanged();
    });
    m_tick.start();
}
