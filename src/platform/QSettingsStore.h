#pragma once

#include "platform/SettingsStore.h"

#include <QSettings>

// The user's settings file, $XDG_CONFIG_HOME/nimbrell/nimbrell.conf.
class QSettingsStore final : public SettingsStore
{
public:
    QSettingsStore();

    bool boolValue(const QString &key, bool defaultValue = false) const override;
    qint64 integerValue(const QString &key) const override;
    void setBoolValue(const QString &key, bool value) override;
    void setIntegerValue(const QString &key, qint64 value) override;
    QString stringValue(const QString &key) const override;
    void setStringValue(const QString &key, const QString &value) override;

private:
    void write();

    QSettings m_settings;
};
