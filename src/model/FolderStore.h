#pragma once

#include "model/SyncFolder.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The folder store: the list of sync folders as one compact JSON array,
// including the run state each folder had when it was saved.
namespace FolderStore {

struct DecodeError
{
    enum class Kind {
        dataCorrupted, // not JSON, or a value that cannot be what its key holds
        keyNotFound,   // a required key is missing
        valueNotFound, // a required key holds null
        typeMismatch,  // a value of the wrong JSON type
    };
    Kind kind = Kind::dataCorrupted;
    QString keyPath; // e.g. "[1].remoteTargets[0].id"; empty for the document itself
    QString message;

    QString toString() const;
};

// Compact JSON, keys in field order, "/" escaped, absent optionals left out.
// Fails (nullopt) for a record that cannot be written faithfully, e.g. a
// progress that is infinite or not a number.
std::optional<QByteArray> encode(const QList<SyncFolder> &folders);

// Reads a whole store. The first problem anywhere makes the whole document
// unreadable: nullopt, with the problem in *error when given.
std::optional<QList<SyncFolder>> decode(const QByteArray &document, DecodeError *error = nullptr);

// Dates are stored as seconds since 2001-01-01 00:00:00 UTC.
double secondsSinceReferenceDate(const QDateTime &date);
std::optional<QDateTime> dateFromSecondsSinceReferenceDate(double seconds);

} // namespace FolderStore
