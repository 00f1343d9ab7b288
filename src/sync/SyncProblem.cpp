#include "sync/SyncProblem.h"
#include "engine/LocalRoot.h"
#include "engine/BisyncLocks.h"

#include "engine/RcloneEngine.h"
#include "model/Formatting.h"

#include <QFileInfo>
#include <QMetaEnum>
#include <QRegularExpression>

namespace {

using Kind = SyncProblem::Kind;
using Action = SyncProblem::Action;
using Side = SyncProblem::Side;

bool containsAny(const QString &text, std::initializer_list<QLatin1String> needles)
{
    return std::any_of(needles.begin(), needles.end(),
                       [&text](QLatin1String needle) { return text.contains(needle, Qt::CaseInsensitive); });
}

// bisync's first path is always the local folder, the second the remote.
Side sideOf(QStringView pathName)
{
    return pathName == u"Path1" ? Side::local : pathName == u"Path2" ? Side::remote : Side::none;
}

Side opposite(Side side)
{
    return side == Side::local ? Side::remote : side == Side::remote ? Side::local : Side::none;
}

const QRegularExpression &tooManyDeletesExpression()
{
    // "Safety abort: too many deletes (>50%, 6 of 10) on Path1 "/home/user/Documents". ..."
    static const QRegularExpression expression(
        QStringLiteral("too many deletes \\(>\\d+%, (\\d+) of (\\d+)\\) on (Path[12])"));
    return expression;
}

// The side named right after a phrase: "all files were changed on Path1".
Side sideAfter(const QString &message, const QString &phrase)
{
    const QRegularExpression expression(QRegularExpression::escape(phrase) + QStringLiteral("\\s*(Path[12])"),
                                        QRegularExpression::CaseInsensitiveOption);
    return sideOf(expression.match(message).capturedView(1));
}

QString unknownFlagIn(const QString &message)
{
    static const QRegularExpression expression(QStringLiteral("unknown flag: (--?[\\w-]+)"));
    return expression.match(message).captured(1);
}

bool isLocalFolderMissing(const QString &localPath)
{
    return !localPath.isEmpty() && !QFileInfo(localPath).isDir();
}

QString sideText(const SyncProblem &problem, Side side)
{
    return side == Side::local ? QStringLiteral("this computer") : problem.location;
}

} // namespace

SyncProblem SyncProblem::classify(const QString &message, const QString &localPath)
{
    SyncProblem problem;
    problem.message = message;
    problem.localPath = localPath;
    const auto is = [&problem](Kind kind) {
        problem.kind = kind;
        return problem;
    };

    // Whatever rclone said, a local folder that is gone is what must be fixed
    // first; and one that is back makes an old "not found" moot.
    if (isLocalFolderMissing(localPath) || message.startsWith(QLatin1String("Local folder not mounted: "))
        || message.startsWith(QLatin1String("Local folder left its place during the sync: ")))
        return is(Kind::localFolderMissing);
    // A one-way run's own stops name the side they would have changed.
    static const QRegularExpression oneWay(
        QStringLiteral("^(One-way sync withheld|Safety abort: one-way sync would delete (\\d+) of (\\d+)|Review first: "
                       "the first \\S+ sync would delete (\\d+) and replace (\\d+)).* on (this computer|the remote) \\("),
        QRegularExpression::MultilineOption);
    if (const QRegularExpressionMatch stop = oneWay.match(message); stop.hasMatch()) {
        const Side destination = stop.capturedView(6) == u"this computer" ? Side::local : Side::remote;
        if (stop.capturedView(1).startsWith(u"One-way")) {
            problem.side = opposite(destination);
            return is(Kind::sourceEmpty);
        }
        problem.side = destination;
        if (stop.capturedView(1).startsWith(u"Safety")) {
            problem.count = stop.capturedView(2).toInt();
            problem.total = stop.capturedView(3).toInt();
            return is(Kind::tooManyDeletes);
        }
        problem.count = stop.capturedView(4).toInt();
        problem.replaced = stop.capturedView(5).toInt();
        return is(Kind::firstOneWay);
    }
    if (const QString flag = unknownFlagIn(message); !flag.isEmpty()) {
        problem.path = flag;
        return is(Kind::rcloneTooOld);
    }
    if (message.contains(QLatin1String("for \"--conflict-resolve\" flag")))
        return is(Kind::conflictPolicyRejected);
    if (message.contains(QLatin1String("didn't find section in config file"))) {
        static const QRegularExpression name(QStringLiteral("didn't find section in config file \\(\"([^\"]*)\"\\)"));
        problem.remoteName = name.match(message).captured(1);
        return is(Kind::remoteMissing);
    }
    if (message.contains(QLatin1String("prior lock file found"))) {
        problem.path = BisyncLocks::lockFileIn(message);
        return is(Kind::lockHeld);
    }
    if (const QRegularExpressionMatch deletes = tooManyDeletesExpression().match(message); deletes.hasMatch()) {
        problem.count = deletes.capturedView(1).toInt();
        problem.total = deletes.capturedView(2).toInt();
        // Deletions found on one side would be carried out on the other.
        problem.side = opposite(sideOf(deletes.capturedView(3)));
        return is(Kind::tooManyDeletes);
    }
    // The last lines alone say it without the counts.
    if (containsAny(message, {QLatin1String("Safety abort: too many deletes"),
                              QLatin1String("Failed to bisync: too many deletes")}))
        return is(Kind::tooManyDeletes);
    if (message.contains(QLatin1String("all files were changed"))) {
        problem.side = sideAfter(message, QStringLiteral("all files were changed on"));
        return is(Kind::allFilesChanged);
    }
    if (containsAny(message, {QLatin1String("empty current Path1 listing"), QLatin1String("empty current Path2 listing"),
                              QLatin1String("Cannot sync to an empty directory")})) {
        problem.side = sideAfter(message, QStringLiteral("empty current"));
        return is(Kind::emptySide);
    }
    if (containsAny(message, {QLatin1String("no space left on device"),
                              QLatin1String("file too big for remaining disk space")}))
        return is(Kind::diskFull);
    if (containsAny(message, {QLatin1String("quota"), QLatin1String("Insufficient Storage"),
                              QLatin1String("Error 507"), QLatin1String("507 ")}))
        return is(Kind::quotaExceeded);
    // (A 403 with a reason, such as a rate limit, is no sign-in problem.)
    if (containsAny(message, {QLatin1String("couldn't fetch token"), QLatin1String("cannot fetch token"),
                              QLatin1String("invalid_grant"), QLatin1String("token expired"),
                              QLatin1String("empty token found"), QLatin1String("401 Unauthorized"),
                              QLatin1String("Error 401"), QLatin1String("403 Forbidden")}))
        return is(Kind::signInExpired);
    // rclone asks for a resync after these too, which would only fail again.
    if (containsAny(message, {QLatin1String("permission denied"), QLatin1String("operation not permitted"),
                              QLatin1String("paths must be existing directories")}))
        return is(Kind::other);
    const bool needsResync = containsAny(message, {QLatin1String("Must run --resync to recover"),
                                                   QLatin1String("cannot find prior Path1 or Path2 listings"),
                                                   QLatin1String("out of sync, run --resync")});
    // A resync that would fill an empty local folder from the remote is
    // never made for the user: an unmounted drive looks like this.
    if (needsResync && !localPath.isEmpty() && LocalRoot::isEmptyDirectory(localPath)) {
        problem.side = Side::local;
        return is(Kind::emptySide);
    }
    if (needsResync)
        return is(Kind::needsResync);
    if (containsAny(message, {QLatin1String("connection refused"), QLatin1String("no such host"),
                              QLatin1String("i/o timeout"), QLatin1String("network is unreachable"),
                              QLatin1String("no route to host"), QLatin1String("connection reset"),
                              QLatin1String("tls:"), QLatin1String("x509:"), QLatin1String("TLS handshake"),
                              QLatin1String("HTTP response to HTTPS client"), QLatin1String("server misbehaving"),
                              QLatin1String("context deadline exceeded")}))
        return is(Kind::remoteUnreachable);
    return is(Kind::other);
}

QList<SyncProblem> SyncProblem::forFolder(const SyncFolder &folder, const QStringList &details)
{
    QList<SyncProblem> problems;
    if (folder.status == SyncStatus::syncing)
        return problems;
    if (!folder.lastError) {
        // Failed without a word: still a failure, with nothing more to say.
        if (folder.status == SyncStatus::error)
            problems.append(classify(QString(), folder.localPath));
        return problems;
    }
    const QString &log = *folder.lastError;
    // An entry is "remote:path — message" at the start of a line; its message
    // runs until the next entry starts. Entries come in target order.
    struct Start
    {
        qsizetype at;
        qsizetype messageAt;
        const RemoteTarget *target;
    };
    QList<Start> starts;
    qsizetype from = 0;
    for (const RemoteTarget &target : folder.remoteTargets) {
        const QString prefix = target.remoteName + u':' + target.remotePath + QStringLiteral(" — ");
        for (qsizetype at = log.indexOf(prefix, from); at >= 0; at = log.indexOf(prefix, at + 1)) {
            if (at == 0 || log.at(at - 1) == u'\n') {
                starts.append({at, at + prefix.size(), &target});
                from = at + prefix.size();
                break;
            }
        }
    }
    for (qsizetype i = 0; i < starts.size(); ++i) {
        const qsizetype end = i + 1 < starts.size() ? starts.at(i + 1).at - 1 : log.size();
        const QString message = log.mid(starts.at(i).messageAt, end - starts.at(i).messageAt);
        const QString detail = details.value(i);
        SyncProblem problem = classify(detail.isEmpty() ? message : detail + u'\n' + message, folder.localPath);
        problem.message = message;
        problem.targetId = starts.at(i).target->id;
        problem.remoteName = starts.at(i).target->remoteName;
        problem.location = starts.at(i).target->remoteName + u':' + starts.at(i).target->remotePath;
        problems.append(problem);
    }
    // A log that names none of the targets (they were edited since) still
    // gets a reading.
    if (problems.isEmpty())
        problems.append(classify(log, folder.localPath));
    return problems;
}

QString SyncProblem::kindName(Kind kind)
{
    return QString::fromLatin1(QMetaEnum::fromType<Kind>().valueToKey(int(kind)));
}

QString SyncProblem::title() const
{
    const QString remote = remoteName.isEmpty() ? QStringLiteral("the remote") : remoteName;
    switch (kind) {
    case Kind::lockHeld: return QStringLiteral("Another sync is still running");
    case Kind::needsResync: return QStringLiteral("Sync history lost");
    case Kind::tooManyDeletes: return QStringLiteral("Stopped before deleting files");
    case Kind::allFilesChanged: return QStringLiteral("Every file changed");
    case Kind::emptySide:
        return side == Side::remote ? QStringLiteral("The remote folder is empty") : QStringLiteral("The local folder is empty");
    case Kind::remoteUnreachable: return QStringLiteral("Can't reach ") + remote;
    case Kind::signInExpired: return QStringLiteral("Sign-in to ") + remote + QStringLiteral(" expired");
    case Kind::remoteMissing: return QStringLiteral("Remote not found");
    case Kind::conflictPolicyRejected: return QStringLiteral("Conflict policy not supported");
    case Kind::localFolderMissing: return QStringLiteral("Local folder missing");
    case Kind::diskFull: return QStringLiteral("Disk full");
    case Kind::quotaExceeded: return QStringLiteral("Storage full on ") + remote;
    case Kind::rcloneTooOld: return QStringLiteral("rclone is too old");
    case Kind::sourceEmpty: return QStringLiteral("Nothing to sync from");
    case Kind::firstOneWay: return QStringLiteral("Review the first one-way sync");
    case Kind::other: break;
    }
    return QStringLiteral("Sync failed");
}

QString SyncProblem::sentence() const
{
    const QString target = location.isEmpty() ? QStringLiteral("the remote") : location;
    switch (kind) {
    case Kind::lockHeld:
        return QStringLiteral("Another rclone is syncing this folder with %1. Retry once it has finished.").arg(target);
    case Kind::needsResync:
        return QStringLiteral("rclone lost track of what was synced with %1. Review which copies will be kept "
                              "before the pair is compared afresh; the newer copy of each file wins.")
            .arg(target);
    case Kind::tooManyDeletes:
        if (count >= 0 && total >= 0)
            return QStringLiteral("Stopped before deleting %1 of %2 files on %3. Review them before anything is "
                                  "deleted.")
                .arg(count)
                .arg(total)
                .arg(side == Side::none ? target : sideText(*this, side));
        return QStringLiteral("Stopped before deleting many files. Review them before anything is deleted.");
    case Kind::allFilesChanged:
        return QStringLiteral("Every file on %1 changed since the last sync, which usually means their dates were "
                              "reset rather than their contents edited. Review the changes before they are synced.")
            .arg(side == Side::none ? QStringLiteral("one side") : sideText(*this, side));
    case Kind::emptySide:
        return side == Side::remote
            ? QStringLiteral("%1 lists no files. Nothing was deleted here; check that the remote is the right one, "
                             "then review what a resync would copy to it.")
                  .arg(target)
            : QStringLiteral("%1 is empty, so nothing was synced. A drive that is not mounted looks like this: "
                             "mount it first. Otherwise, review what a resync would copy back here.")
                  .arg(localPath.isEmpty() ? QStringLiteral("The local folder") : localPath);
    case Kind::remoteUnreachable:
        return QStringLiteral("%1 did not answer. Check the network or the server; the next sync tries again.")
            .arg(target);
    case Kind::signInExpired:
        return QStringLiteral("%1 no longer accepts the sign-in that rclone keeps. Sign in again to go on syncing.")
            .arg(remoteName.isEmpty() ? QStringLiteral("The remote") : remoteName);
    case Kind::remoteMissing:
        return QStringLiteral("rclone's configuration has no remote named \"%1\". Choose another remote for this "
                              "target, or add the remote again.")
            .arg(remoteName);
    case Kind::conflictPolicyRejected:
        return QStringLiteral("The installed rclone accepts only Keep Both and Newer Wins. Choose one of them for "
                              "this folder.");
    case Kind::localFolderMissing:
        if (message.startsWith(QLatin1String("Local folder not mounted: ")))
            return QStringLiteral("%1 is not on its drive. Mount the drive; if the folder moved, choose where it is now.")
                .arg(localPath);
        if (message.startsWith(QLatin1String("Local folder left its place during the sync: ")))
            return QStringLiteral("%1 was moved, removed or unmounted during the sync. Put it back, or choose where it "
                                  "is now; the next sync compares both sides afresh.")
                .arg(localPath);
        return QStringLiteral("%1 does not exist. If it is on a drive, mount it; if it moved, choose where it is now.")
            .arg(localPath.isEmpty() ? QStringLiteral("The local folder") : localPath);
    case Kind::diskFull:
        return QStringLiteral("A disk ran out of space during the sync. Free some space, then sync again.");
    case Kind::quotaExceeded:
        return QStringLiteral("%1 has no room left for these files. Free space there or enlarge the plan.")
            .arg(remoteName.isEmpty() ? QStringLiteral("The remote") : remoteName);
    case Kind::rcloneTooOld:
        return QStringLiteral("This rclone does not know %1. Two-way sync needs rclone 1.66 or newer.")
            .arg(path.isEmpty() ? QStringLiteral("bisync's options") : path);
    case Kind::sourceEmpty:
        return side == Side::remote
            ? QStringLiteral("%1 is missing or holds no files, so nothing was deleted on this computer. Check that "
                             "the remote is the right one.")
                  .arg(target)
            : QStringLiteral("%1 holds no files, so nothing was deleted on %2. A drive that is not mounted looks "
                             "like this: mount it first.")
                  .arg(localPath.isEmpty() ? QStringLiteral("The local folder") : localPath, target);
    case Kind::firstOneWay:
        return (side == Side::remote ? QStringLiteral("Upload only makes %1 follow this computer: its first sync "
                                                      "would delete %2 there and replace %3.")
                                     : QStringLiteral("Download only makes this computer follow %1: its first sync "
                                                      "would delete %2 here and replace %3."))
                   .arg(target, Formatting::fileCount(count))
                   .arg(replaced)
            + QStringLiteral(" Review them before anything changes.");
    case Kind::other: break;
    }
    return Formatting::errorSummary(message).trimmed();
}

SyncProblem::Action SyncProblem::action() const
{
    switch (kind) {
    case Kind::lockHeld:
    case Kind::remoteUnreachable: return Action::retry;
    case Kind::needsResync: return Action::reviewResync;
    case Kind::tooManyDeletes: return Action::reviewDeletions;
    case Kind::allFilesChanged: return Action::reviewChanges;
    // rclone asks for a resync after either side came up empty, and none is
    // made without the user: the review shows what it would copy, and where.
    case Kind::emptySide: return Action::reviewResync;
    case Kind::diskFull: return Action::showFolder;
    case Kind::signInExpired: return Action::signInAgain;
    case Kind::remoteMissing:
    case Kind::conflictPolicyRejected: return Action::editFolder;
    case Kind::localFolderMissing: return Action::chooseFolder;
    case Kind::quotaExceeded: return Action::openRemote;
    case Kind::rcloneTooOld: return Action::none;
    case Kind::sourceEmpty: return Action::retry;
    case Kind::firstOneWay: return Action::reviewDeletions;
    case Kind::other: break;
    }
    return Action::viewLog;
}

QString SyncProblem::actionText() const
{
    switch (action()) {
    case Action::none: return {};
    case Action::retry: return QStringLiteral("Retry");
    case Action::reviewResync: return QStringLiteral("Review and Resync…");
    case Action::reviewDeletions: return QStringLiteral("Review Deletions…");
    case Action::reviewChanges: return QStringLiteral("Review Changes…");
    case Action::showFolder: return QStringLiteral("Show Folder");
    case Action::signInAgain: return QStringLiteral("Sign In Again");
    case Action::editFolder: return QStringLiteral("Edit Folder");
    case Action::chooseFolder: return QStringLiteral("Choose Folder…");
    case Action::openRemote: return QStringLiteral("Open Remote");
    case Action::viewLog: return QStringLiteral("View Log");
    }
    return {};
}

QString SyncProblem::actionName(Action action)
{
    return QString::fromLatin1(QMetaEnum::fromType<Action>().valueToKey(int(action)));
}

qint64 SyncProblem::lockHolder() const
{
    if (kind != Kind::lockHeld || path.isEmpty())
        return 0;
    return std::max<qint64>(BisyncLocks::lockHolder(path), 0);
}
