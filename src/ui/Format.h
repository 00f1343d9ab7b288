#pragma once

#include "model/Formatting.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// The shared formatter for the screens, with the clock that keeps relative
// times on screen ("42 seconds") current. The clock ticks only when some
// relative time on screen is about to read differently, and not at all while
// no window shows: each relativeTime call notes when its text changes next.
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
    Q_INVOKABLE QString relativeTime(const QDateTime &date, const QDateTime &now);

    // Some window is on screen; while none is, the clock stands still.
    void setShown(bool shown);
    // Milliseconds to the next tick, or -1 when the clock stands still.
    int msecsToTick() const { return m_tick.remainingTime(); }

Q_SIGNALS:
    void nowChanged();

private:
    void tick();

    QDateTime m_now;
    QElapsedTimer m_read; // since `m_now` was read
    QTimer m_tick;
    bool m_shown = true;
};
