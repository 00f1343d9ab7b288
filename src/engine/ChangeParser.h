#pragma once

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringView>

#include <optional>

// What a bisync run changed, read from its verbose output line by line
// beside the progress: each file copied or deleted, and where, and each
// conflicting copy it renamed. Paths are relative to the folder (and to the
// target's path). Memory is bounded by the number of changes kept.
class ChangeParser
{
public:
    enum class Action { added, updated, deleted };
    struct Change
    {
        QString path;
        Action action;
        bool toRemote; // where it happened: the remote, or this computer
        friend bool operator==(const Change &, const Change &) = default;
    };
    // A conflict kept as two files: `renamed` is the copy bisync renamed on
    // one side (and then copied to the other), `original` keeps the name.
    struct Conflict
    {
        QString original;
        QString renamed;
        bool renamedOnRemote;  // which side's copy was renamed
        std::optional<bool> remoteWon; // which side's copy kept the name, when bisync chose one
        friend bool operator==(const Conflict &, const Conflict &) = default;
    };

    static constexpr qsizetype kMaxChanges = 5000;

    // One line of bisync's merged output.
    void addLine(QStringView line);

    const QList<Change> &changes() const { return m_changes; }
    const QList<Conflict> &conflicts() const { return m_conflicts; }
    // Changes seen beyond kMaxChanges, counted but not kept.
    qsizetype droppedChanges() const { return m_dropped; }

    // A copy bisync queued for a file newer on one side, with its size
    // unchanged, that rclone's copy then skipped: it judged the two files the
    // same by size and time, and on a remote that keeps times to the second an
    // edit of the same size within that second passes as unchanged. (A file
    // found older is what a download from such a remote looks like on the
    // next run: the same contents, its copy rightly skipped.) `toSide` is the
    // side it was to be copied to (1: here).
    struct SkippedCopy
    {
        QString path;
        int toSide;
        friend bool operator==(const SkippedCopy &, const SkippedCopy &) = default;
    };
    static constexpr qsizetype kMaxQueuedCopies = 200000;
    QList<SkippedCopy> skippedCopies() const;

    // Files bisync found deleted since its last run on side 1 (here) or 2,
    // and of them those deleted on that side only: a file gone from both
    // sides (or newly left out of the sync, which looks the same) is
    // deleted nowhere.
    qsizetype foundDeleted(int side) const;
    qsizetype foundDeletedOnlyOn(int side) const;

    // Reads the verbose output of `rclone sync` (a one-way run to the
    // remote, or to this computer) rather than bisync's.
    void readOneWay(bool toRemote)
    {
        m_oneWay = true;
        m_copiesTo = toRemote ? 2 : 1;
    }

    // Of the paths given before the first line, those this output copied or
    // deleted on either side: the two sides agree on them now. (Kept apart
    // from changes(), which stops at kMaxChanges.)
    void watch(QSet<QString> paths) { m_watched = std::move(paths); }
    const QSet<QString> &settled() const { return m_settled; }

private:
    void add(const QString &path, Action action, bool toRemote);
    void copied(const QString &path);
    void settle(const QString &path);
    // A path under the side's root, without the root.
    std::optional<QString> relative(QStringView path, int side) const;
    // Whether a path read from the output names a file inside the folder;
    // the first one that does not is logged.
    bool accepts(QStringView path);
    // Logs the first path refused; false.
    bool refuse(QStringView path);

    QString m_roots[2];     // "/home/user/Docs/", "dav:Docs/"
    int m_copiesTo = 0;     // the side the current copy section writes to
    QHash<QString, int> m_queuedDeletes; // path -> side it is deleted on
    QHash<QString, int> m_queuedCopies;  // path -> side it is copied to, until copied
    QSet<QString> m_queuedParents;       // the directories of queued copies
    QHash<QString, int> m_newerInTimeOnly; // path -> side where only its time changed, to newer
    QSet<QString> m_conflictLosers; // deleted or renamed away to make room for a winner
    QSet<QString> m_movedAside;     // moved into the backup directory, about to be replaced or deleted
    QString m_bothChanged;  // the conflict being resolved
    QHash<QString, bool> m_winners; // path -> whether the remote's copy won
    QHash<QString, int> m_foundDeleted; // path -> sides (bits 1, 2) it was found deleted on
    bool m_oneWay = false;
    QSet<QString> m_watched;
    QSet<QString> m_settled;
    QList<Change> m_changes;
    QList<Conflict> m_conflicts;
    qsizetype m_dropped = 0;
    bool m_refusedPath = false;
};
