#pragma once

#include "model/Formatting.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

// The shared formatter for the screens, with a clock that ticks every second
// so that relative times on screen ("42 seconds") stay current.
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
