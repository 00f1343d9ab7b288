#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringView>

// What a bisync run with --dry-run would do, read from its output line by
// line: every file it would copy or delete, and where. Paths are relative to
// the folder (and to the remote path), as rclone prints them.
class BisyncPlan
{
public:
    enum class Group { toRemote, toLocal, deletedRemote, deletedLocal, replaced };
    struct Change
    {
        Group group;
        QString path;
        bool toRemote; // where the change lands
        friend bool operator==(const Change &, const Change &) = default;
    };

    // One line of bisync's merged output (with or without colour codes).
    void addLine(QStringView line);
    // One line of the report a one-way run's dry run writes ("+ new.txt",
    // "* changed.txt", "- gone.txt", "= same.txt"): what the run would do
    // on the remote (`toRemote`) or on this computer.
    void addReportLine(QStringView line, bool toRemote);
    // The changes in the order rclone listed them. A copy counts as a
    // replacement when the file changed on the side it comes from, or, for a
    // copy to this computer, when the file is already in `localPath`.
    QList<Change> changes(const QString &localPath = {}) const;

private:
    struct Pending
    {
        QString path;
        bool toRemote;
        bool isDelete;
        bool replaces = false;
    };
    bool m_toRemote = false; // the destination of the current section
    QList<Pending> m_pending;
    QSet<QString> m_changedOnLocal, m_changedOnRemote;
};
