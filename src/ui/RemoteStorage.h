#pragma once

#include "model/RemoteSpaceInfo.h"

#include <QObject>
#include <QPointer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

#include <optional>

class RcloneEngine;
class RcloneJob;

// A remote's storage card: its figures as `rclone about` gives them, and
// what went wrong with the remote's pane.
class RemoteStorage : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a remote's pane")
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY changed)
    Q_PROPERTY(QString error READ error NOTIFY changed)
    Q_PROPERTY(bool hasSpaceInfo READ hasSpaceInfo NOTIFY changed)
    Q_PROPERTY(QVariant total READ total NOTIFY changed)
    Q_PROPERTY(QVariant used READ used NOTIFY changed)
    Q_PROPERTY(QVariant free READ free NOTIFY changed)
    Q_PROPERTY(QVariant trashed READ trashed NOTIFY changed)
    Q_PROPERTY(QVariant usageFraction READ usageFractionValue NOTIFY changed)
    Q_PROPERTY(bool usageCritical READ usageCritical NOTIFY changed)
    // "120%" when a remote holds more than its quota: not capped.
    Q_PROPERTY(QString usagePercentage READ usagePercentage NOTIFY changed)

public:
    using QObject::QObject;
    // A query still running ends with the card.
    ~RemoteStorage() override;

    // Asks rclone for the remote's figures; an earlier query still running is dropped.
    void load(RcloneEngine &engine, const QString &remoteName);
    bool isLoading() const { return m_isLoading; }
    const QString &error() const { return m_error; }
    void setError(const QString &error);
    // Figures to show: a backend that reports none (an empty answer) has none.
    bool hasSpaceInfo() const { return m_spaceInfo && *m_spaceInfo != RemoteSpaceInfo(); }
    QVariant total() const { return figure(&RemoteSpaceInfo::total); }
    QVariant used() const { return figure(&RemoteSpaceInfo::used); }
    QVariant free() const { return figure(&RemoteSpaceInfo::free); }
    QVariant trashed() const { return figure(&RemoteSpaceInfo::trashed); }
    QVariant usageFractionValue() const;
    bool usageCritical() const;
    QString usagePercentage() const;
    void setSpaceInfo(const std::optional<RemoteSpaceInfo> &info);

    // used / total, when there is a total of at least one byte.
    static std::optional<double> usageFraction(const RemoteSpaceInfo &info);

signals:
    void changed();

private:
    std::optional<double> currentFraction() const;
    QVariant figure(std::optional<qint64> RemoteSpaceInfo::*field) const;

    std::optional<RemoteSpaceInfo> m_spaceInfo;
    bool m_isLoading = false;
    QString m_error;
    QPointer<RcloneJob> m_job;
};
