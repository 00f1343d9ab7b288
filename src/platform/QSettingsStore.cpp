#include "platform/QSettingsStore.h"

#include "platform/AppLogger.h"

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
    write();
}

void QSettingsStore::setIntegerValue(const QString &key, qint64 value)
{
    m_settings.setValue(key, value);
    write();
}

QString QSettingsStore::stringValue(const QString &key) const
{
    return m_settings.value(key).toString();
}

void QSettingsStore::setStringValue(const QString &key, const QString &value)
{
    m_settings.setValue(key, value);
    write();
}

void QSettingsStore::write()
{
    m_settings.sync();
    // QSettings keeps the value in memory and writes it with the next change.
    if (m_settings.status() != QSettings::NoError)
        qCCritical(lcGeneral, "Could not save the settings to %s; tried again with the next change",
                   qUtf8Printable(m_settings.fileName()));
}
