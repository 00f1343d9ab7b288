#pragma once

#include "sync/ActivityLog.h"

#include <QDate>
#include <QDateTime>
#include <QString>

#include <functional>

// The two files bisync kept of a file changed on both sides, as they are on
// this computer now, and the three ways to settle them. Nothing is ever
// deleted: a copy that is not kept goes to the desktop's trash, and the next
// run carries the outcome to the remote.
//
// bisync leaves the original name out of both sides' listings after a
// conflict, so at the next run whatever holds that name on each side is new
// on both, and unless the two are equal they conflict again (the newer
// winning). Keeping the renamed copy therefore also needs the remote's copy
// under the name replaced by it (`remoteCopy`).
class ConflictCopies
{
public:
    enum class Choice { keepOriginal, keepRenamed, keepBoth };

    struct Copy
    {
        QString path; // relative to the folder
        bool exists = false;
        qint64 size = 0;
        QDateTime modified;
        bool fromRemote = false; // whose copy it was before the conflict
    };

    ConflictCopies(const QString &localPath, const ActivityRecord &conflict);

    // The copy that kept the name, and the one bisync renamed.
    const Copy &original() const { return m_original; }
    const Copy &renamed() const { return m_renamed; }

    // keepOriginal and keepRenamed keep one copy under the original name, the
    // other goes to the trash; keepBoth gives the renamed copy a name a
    // person can read, "report (conflict 2026-11-22).txt". An error
    // sentence, or empty when done.
    QString settle(Choice choice);
    // The rclone arguments that make the remote agree with this computer
    // after `choice`; empty when the next run needs no help.
    QStringList remoteCopy(Choice choice) const;

    // `path` with "(conflict DATE)" before its extension, numbered while
    // `taken` says the name is in use: "a/report (conflict 2026-11-22 2).txt".
    static QString readableName(const QString &path, QDate date, const std::function<bool(const QString &)> &taken);

private:
    QString absolute(const QString &path) const;
    // Both copies are still there; else the sentence that says which is not.
    QString missing() const;

    QString m_localPath;
    QString m_target;
    QDate m_date;
    Copy m_original;
    Copy m_renamed;
};
