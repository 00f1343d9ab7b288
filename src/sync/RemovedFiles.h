#pragma once

#include "model/RemoteTarget.h"

#include <QDateTime>
#include <QList>
#include <QStringList>
#include <QUuid>

#include <optional>

// Where a folder's runs keep what they delete or replace, when the folder
// keeps it ("Keep removed and replaced files"): on this computer under
// ~/.local/share/nimbrell/removed/<folder id>/, on each remote in a hidden
// directory inside the target, which the runs leave out of the sync (rclone
// refuses a backup directory inside the synced path unless a filter
// excludes it; inside is the only place a target at a remote's root has).
// Each run keeps into a directory named for its start, "2026-11-23T10-00-00"
// (UTC): a kept file keeps its own modification time, so only that name
// says when it was removed.
namespace RemovedFiles {

inline const QString kDirectoryName = QStringLiteral(".nimbrell-removed");

QString localDirectory(const QUuid &folderId);
// "gdrive:Docs/.nimbrell-removed", "gdrive:.nimbrell-removed"
QString remoteDirectory(const RemoteTarget &target);
// "gdrive:Docs/a/b.txt", "gdrive:a/b.txt"
QString remotePath(const RemoteTarget &target, const QString &relative);

// The bisync arguments: both backup directories and the exclusion while the
// folder keeps; the exclusion alone after it stopped (the hidden directory
// may still hold files, which must not sync down); none for a folder that
// never kept.
QStringList arguments(const QUuid &folderId, const RemoteTarget &target, bool keeping, bool everKept,
                      const QDateTime &runStart);
// A one-way run's "--backup-dir", on its destination: the remote's hidden
// directory for an upload, this computer's for a download.
QStringList oneWayArguments(const QUuid &folderId, const RemoteTarget &target, bool toRemote, const QDateTime &runStart);
// The directory name of a run's kept files, and back.
QString runDirectory(const QDateTime &runStart);
std::optional<QDateTime> runTime(const QString &directory);

// One file that a run kept: removed from this computer (a null targetId) or
// from one of the folder's targets.
struct File
{
    QUuid targetId;
    QString run;  // the run's directory
    QString path; // where it was, relative to the folder or the target
    qint64 size = 0;
    QDateTime removed;
    friend bool operator==(const File &, const File &) = default;
};

// What this computer keeps of the folder, and where each file is.
QList<File> listLocal(const QUuid &folderId);
QString localFile(const QUuid &folderId, const File &file);
// `rclone lsjson` of a target's hidden directory, and what it printed,
// read a line at a time as it comes: "[", one object a line, "]". A listing
// of any size is read so, its memory only that of the files it names.
QStringList listArguments(const RemoteTarget &target);
class ListingReader
{
public:
    explicit ListingReader(const RemoteTarget &target) : m_target(target) {}
    void addLine(QByteArrayView line);
    // The kept files, or nothing when the listing was not whole and sound.
    std::optional<QList<File>> files() const;

private:
    RemoteTarget m_target;
    QList<File> m_files;
    bool m_started = false;
    bool m_ended = false;
    bool m_bad = false;
    bool m_refused = false;
};

// Removes a file or a directory tree without following any symbolic link,
// not even `path` itself.
bool removeTree(const QString &path);
// Removes this computer's run directories from before `cutoff`.
void pruneLocal(const QUuid &folderId, const QDateTime &cutoff);
// The runs among `runs` that started before `cutoff`.
QStringList runsBefore(const QStringList &runs, const QDateTime &cutoff);
// Deletes those runs' directories on the remote: one rclone start.
QStringList pruneArguments(const RemoteTarget &target, const QStringList &runs);
// After a file was taken out of a run's directory here: the directories it
// leaves empty go, up to the folder's own.
void removeEmptyParents(const QUuid &folderId, const QString &filePath);

} // namespace RemovedFiles
