#pragma once

#include "platform/SettingsStore.h"

#include <QHash>
#include <QVariant>

// Settings kept in memory, with a count of writes.
class MemorySettingsStore final : public SettingsStore
{
public:
    QHash<QString, QVariant> values;
    int writes = 0;

    bool boolValue(const QString &key) const override { return values.value(key).toBool(); }
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
};
