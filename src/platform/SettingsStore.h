#pragma once

#include <QString>

// The per-user defaults store: booleans, integers and texts by key. An
// absent key reads as false, 0 or empty.
class SettingsStore
{
public:
    virtual ~SettingsStore() = default;

    virtual bool boolValue(const QString &key, bool defaultValue = false) const = 0;
    virtual qint64 integerValue(const QString &key) const = 0;
    virtual void setBoolValue(const QString &key, bool value) = 0;
    virtual void setIntegerValue(const QString &key, qint64 value) = 0;
    // An absent key reads as empty.
    virtual QString stringValue(const QString &key) const = 0;
    virtual void setStringValue(const QString &key, const QString &value) = 0;
};
