#pragma once

#include "platform/SettingsStore.h"

#include <QHash>
#include <QVariant>

// Settings that last as long as the program: for the tools, benchmarks and
// tests that must not touch the user's settings file. Counts its writes.
class MemorySettingsStore final : public SettingsStore
{
public:
    QHash<QString, QVariant> values;
    int writes = 0;

    bool boolValue(const QString &key, bool defaultValue = false) const override { return values.value(key, defaultValue).toBool(); }
    qint64 integerValue(const QString &key) const override { return values.value(key).toLongLong(); }
    void setBoolValue(const QString &key, bool value) override
    {
        values.insert(key, value);
        ++writes;
    }
    void setIntegerValue(const QString &key, qint64 value) override
    {
        values.insert(key, value);
        ++writes;
    }
    QString stringValue(const QString &key) const override { return values.value(key).toString(); }
    void setStringValue(const QString &key, const QString &value) override
    {
        values.insert(key, value);
        ++writes;
    }
};
