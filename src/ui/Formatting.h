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
