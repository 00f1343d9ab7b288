#pragma once

#include "model/SyncFolder.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

// What went wrong with one target of a failed run, read from the error entry
// that the run stored, in words a user can act on: a title, one sentence and
// the one action that fixes it safely. The stored text itself is untouched;
// this is only a reading of it.
struct SyncProblem
{
    Q_GADGET

public:
    enum class Kind {
        lockHeld,
        needsResync,
        tooManyDeletes,
        allFilesChanged,
        emptySide,
        remoteUnreachable,
        signInExpired,
        remoteMissing,
        conflictPolicyRejected,
        localFolderMissing,
        diskFull,
        quotaExceeded,
        rcloneTooOld,
        sourceEmpty,
        firstOneWay,
        other,
    };
    Q_ENUM(Kind)
    enum class Action {
        none,
        retry,
        reviewResync,
        reviewDeletions,
        reviewChanges,
        showFolder,
        signInAgain,
        editFolder,
        chooseFolder,
        openRemote,
        viewLog,
    };
    Q_ENUM(Action)
    // Which side of the pair a fact is about.
    enum class Side { none, local, remote };

    Kind kind = Kind::other;
    QUuid targetId;     // the target whose entry this is (null when unknown)
    QString remoteName; // "gdrive"
    QString location;   // "gdrive:Docs", as the entry names it
    QString localPath;
    QString message;    // rclone's text as stored, without the entry's prefix
    // Facts read from the message, where it has them.
    Side side = Side::none; // tooManyDeletes, firstOneWay: where files would be deleted;
                            // allFilesChanged, emptySide, sourceEmpty: the side concerned
    int count = -1;         // tooManyDeletes, firstOneWay: files that would be deleted
    int total = -1;         // tooManyDeletes: files on the side they were deleted from
    int replaced = -1;      // firstOneWay: files that would be replaced
    QString path;           // lockHeld: the lock file; rcloneTooOld: the flag

    // Reads one entry's message. `localPath` is checked on disk: a local
    // folder that is not there is the problem whatever rclone said.
    static SyncProblem classify(const QString &message, const QString &localPath = {});
    // One problem per failing target of the folder's last run, in target
    // order. `details`: beside each entry, the earlier error lines of its
    // output, when the program still has them.
    static QList<SyncProblem> forFolder(const SyncFolder &folder, const QStringList &details = {});

    // "tooManyDeletes", as the command line spells it.
    static QString kindName(Kind kind);
    QString kindName() const { return kindName(kind); }
    QString title() const;
    QString sentence() const;
    Action action() const;
    // The action's button text; empty for none.
    QString actionText() const;
    static QString actionName(Action action);

    // The process holding the lock file named in a lockHeld message, or 0
    // once no rclone holds it.
    qint64 lockHolder() const;

    friend bool operator==(const SyncProblem &, const SyncProblem &) = default;
};
