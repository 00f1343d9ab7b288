#pragma once

#include "engine/RcloneJob.h"

#include <QObject>
#include <QPointer>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class LoginItemService;
class RcloneEngine;
class SettingsStore;

// The settings window's own state: the login switch, which always ends up
// showing what the login-item service really has, and the rclone version.
// The two sync settings are the manager's and are bound to directly.
class SettingsController final : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString rcloneVersion READ rcloneVersion NOTIFY rcloneVersionChanged)
    Q_PROPERTY(QVariantList intervalChoices READ intervalChoices CONSTANT)
    Q_PROPERTY(bool showNotifications READ showNotifications WRITE setShowNotifications NOTIFY showNotificationsChanged)
    // "Limit Bandwidth": rates in KiB/s (0: no limit), or a daily timetable.
    Q_PROPERTY(bool limitBandwidth READ limitBandwidth WRITE setLimitBandwidth NOTIFY bandwidthChanged)
    Q_PROPERTY(qint64 uploadKiB READ uploadKiB WRITE setUploadKiB NOTIFY bandwidthChanged)
    Q_PROPERTY(qint64 downloadKiB READ downloadKiB WRITE setDownloadKiB NOTIFY bandwidthChanged)
    Q_PROPERTY(QString bandwidthSchedule READ bandwidthSchedule NOTIFY bandwidthChanged)
    // What is wrong with the timetable last typed; empty when it was saved.
    Q_PROPERTY(QString bandwidthScheduleError READ bandwidthScheduleError NOTIFY bandwidthChanged)

public:
    SettingsController(LoginItemService &loginItem, RcloneEngine &engine, SettingsStore &store,
                       QObject *parent = nullptr);

    bool showNotifications() const;
    void setShowNotifications(bool show);

    bool launchAtLogin() const { return m_launchAtLogin; }
    void setLaunchAtLogin(bool enabled);

    const QString &rcloneVersion() const { return m_rcloneVersion; }
    // Asks rclone for its version; "Loading..." until it answers.
    Q_INVOKABLE void loadVersion();

    bool limitBandwidth() const;
    void setLimitBandwidth(bool on);
    qint64 uploadKiB() const;
    void setUploadKiB(qint64 kib);
    qint64 downloadKiB() const;
    void setDownloadKiB(qint64 kib);
    QString bandwidthSchedule() const;
    const QString &bandwidthScheduleError() const { return m_scheduleError; }
    // Saves a timetable rclone will take (blank: none, the two rates
    // apply); otherwise keeps the saved one and says what is wrong.
    Q_INVOKABLE bool setBandwidthSchedule(const QString &text);

    // [{label: "5 Minutes", minutes: 5}, ...]
    static QVariantList intervalChoices();

Q_SIGNALS:
    void launchAtLoginChanged();
    void rcloneVersionChanged();
    void showNotificationsChanged();
    void bandwidthChanged();

private:
    void setRcloneVersion(const QString &version);

    LoginItemService &m_loginItem;
    RcloneEngine &m_engine;
    SettingsStore &m_store;
    bool m_launchAtLogin;
    QString m_rcloneVersion;
    QPointer<RcloneJob> m_versionJob;
    QString m_scheduleError;
};
