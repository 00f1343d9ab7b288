#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// Texts that several screens show the same way.
namespace Formatting {

// "0 remotes", "1 remote", "2 remotes"
QString remoteCount(qsizetype count);

// Byte counts in units that grow by 1024: "512 B", "1 KiB", "1.50 MiB", ...
QString formatByteCount(qint64 bytes);

// The first line of an error text that is not blank, as it stands; "Unknown
// error" when there is none.
QString errorSummary(const QString &log);

// A progress fraction as a whole percentage: 0.425 gives "42%".
QString percentage(double fraction);

// How long ago `date` was, as a count and a unit: "now", "1 minute",
// "5 minutes", "2 hours", "3 days", "2 weeks", "4 months", "1 year".
QString relativeTime(const QDateTime &date, const QDateTime &now);

} // namespace Formatting

// The shared formatter for the screens, with a clock that ticks every 30
// seconds so that relative times on screen stay current.
class Format : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(QDateTime now READ now NOTIFY nowChanged)

public:
    explicit Format(QObject *parent = nullptr);

    QDateTime now() const { return m_now; }

    Q_INVOKABLE QString remoteCount(int count) const { return Formatting::remoteCount(count); }
    Q_INVOKABLE QString byteCount(qint64 bytes) const { return Formatting::formatByteCount(bytes); }
    Q_INVOKABLE QString errorSummary(const QString &log) const { return Formatting::errorSummary(log); }
    Q_INVOKABLE QString percentage(double fraction) const { return Formatting::percentage(fraction); }
    // Relative to `now`, so a binding that passes `now` refreshes with it.
    Q_INVOKABLE QString relativeTime(const QDateTime &date, const QDateTime &now) const
    {
        return Formatting::relativeTime(date, now);
    }

Q_SIGNALS:
    void nowChanged();

private:
    QDateTime m_now;
    QTimer m_tick;
};
