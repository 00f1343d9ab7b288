#include "ui/Format.h"

namespace {
// Past the moment a text changes, so that it has changed when the clock reads it.
constexpr qint64 kLateMs = 5;
// A `now` older than this was read before the clock last stood still.
constexpr qint64 kStaleMs = 1000;
} // namespace

Format::Format(QObject *parent)
    : QObject(parent)
    , m_now(QDateTime::currentDateTimeUtc())
{
    m_read.start();
    m_tick.setSingleShot(true);
    m_tick.setTimerType(Qt::PreciseTimer);
    connect(&m_tick, &QTimer::timeout, this, &Format::tick);
}

QString Format::relativeTime(const QDateTime &date, const QDateTime &now)
{
    if (m_shown && date.isValid()) {
        // A clock that stood still reads the time again first.
        const qint64 due = m_read.hasExpired(kStaleMs)
            ? 0
            : QDateTime::currentDateTimeUtc().msecsTo(now.addMSecs(Formatting::msecsUntilRelativeTimeChanges(date, now))) + kLateMs;
        if (!m_tick.isActive() || due < m_tick.remainingTime())
            m_tick.start(int(qBound(qint64(0), due, qint64(24 * 3600 * 1000))));
    }
    return Formatting::relativeTime(date, now);
}

void Format::setShown(bool shown)
{
    if (shown == m_shown)
        return;
    m_shown = shown;
    if (shown)
        tick(); // the texts catch up at once
    else
        m_tick.stop();
}

void Format::tick()
{
    m_tick.stop();
    m_now = QDateTime::currentDateTimeUtc();
    m_read.start();
    // The bindings read the texts again, and each one's next change sets the clock.
    Q_EMIT nowChanged();
}
