#pragma once

#include <QString>
#include <QUuid>

// The canonical text of an id, as the store and the log lines write it:
// 36 characters, upper case, no braces.
inline QString uuidString(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}
