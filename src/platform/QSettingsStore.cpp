#include "platform/QSettingsStore.h"

QSettingsStore::QSettingsStore()
    : m_settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("nimbrell"), QStringLiteral("nimbrell"))
{
}

bool QSettingsStore::boolValue(const QString &key, bool defaultValue) const
{
    return m_settings.value(key, defaultValue).toBool();
}

qint64 QSettingsStore::integerValue(const QString &key) const
{
    // A value that is not a number reads as 0, like an absent one.
    return m_settings.value(key).toLongLong();
}

void QSettingsStore::setBoolValue(const QString &key, bool value)
{
    m_settings.setValue(key, value);
    m_settings.sync();
}

void QSettingsStore::setIntegerValue(const QString &key, qint64 value)
{
    m_settings.setValue(key, value);
    m_settings.sync();
}

QString QSettingsStore::stringValue(const QString &key) const
{
    return m_settings.value(key).toString();
}

void QSettingsStore::setStringValue(const QString &key, const QString &value)
{
    m_settings.setValue(key, value);
    m_settings.sync();
}
