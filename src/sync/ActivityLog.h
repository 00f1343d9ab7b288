#pragma once

#include "engine/ChangeParser.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QUuid>

#include <optional>

// One thing a run did to one file, or one conflict it kept as two files.
struct ActivityRecord
{
    enum class Kind { change, conflict };
    QUuid folderId;
    QString target; // "remote:path"
    QDateTime time; // UTC
    Kind kind = Kind::change;
    QString path;   // the file; of a conflict, the original name
    ChangeParser::Action action = ChangeParser::Action::added; // of a change
    bool onRemote = false;  // a change: where it happened; a conflict: whose copy was renamed
    QString renamed;        // of a conflict
    std::optional<bool> remoteWon; // of a conflict, when bisync chose a winner
    friend bool operator==(const ActivityRecord &, const ActivityRecord &) = default;

    // What a run's parser read of one target, stamped with its time.
    static QList<ActivityRecord> fromRun(const QUuid &folderId, const QString &target, const QDateTime &time,
                                         const ChangeParser &parser);
};

// What a folder's activity comes to now: the conflicts still open (both
// copies still there on this computer) and when the last change was.
struct FolderActivity
{
    QList<ActivityRecord> openConflicts; // newest first, one per renamed copy
    std::optional<QDateTime> lastChange;

    static FolderActivity of(const QList<ActivityRecord> &records, const QUuid &folderId, const QString &localPath);
};

// The activity of every folder, newest last, in a file of its own: one JSON
// record per line, at most kMaxRecords of them. A line that cannot be read
// is skipped; the folder store is never touched.
class ActivityLog
{
public:
    static constexpr qsizetype kMaxRecords = 5000;

    // ~/.local/share/nimbrell/activity.jsonl (XDG_DATA_HOME).
    static QString defaultPath();
    explicit ActivityLog(const QString &path = defaultPath());

    const QString &path() const { return m_path; }
    // Appends at the end; past kMaxRecords the file is rewritten, atomically,
    // with the newest ones.
    bool append(const QList<ActivityRecord> &records);
    // Every readable record, oldest first.
    QList<ActivityRecord> read() const;
    // A deleted folder's records go with it.
    bool removeFolder(const QUuid &folderId);

    static QByteArray encode(const ActivityRecord &record);
    static std::optional<ActivityRecord> decode(QByteArrayView line);

private:
    bool rewrite(const QList<ActivityRecord> &records);

    QString m_path;
    qsizetype m_lines = -1; // in the file, once known
    // What read() last found, and the file's size and time then: a status
    // asked for many times a second reads the file once.
    mutable QList<ActivityRecord> m_read;
    mutable qint64 m_readSize = -1;
    mutable QDateTime m_readTime;
};
