#include "sync/RecentlyRemoved.h"

#include "engine/RcloneEngine.h"
#include "model/Formatting.h"
#include "model/RelativePath.h"
#include "platform/AppLogger.h"
#include "platform/Background.h"
#include "platform/BookmarkService.h"
#include "sync/FolderPreferences.h"
#include "sync/SyncManager.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <memory>

using RemovedFiles::File;

namespace {

// rclone's exit statuses for "directory not found" and "file not found".
bool isAbsent(const RcloneResult<QString> &result)
{
    return !result.ok() && result.error().kind == RcloneError::Kind::exitStatus
        && (result.error().code == 3 || result.error().code == 4);
}

const RemoteTarget *targetOf(const SyncFolder &folder, const QUuid &id)
{
    const auto it = std::find_if(folder.remoteTargets.begin(), folder.remoteTargets.end(),
                                 [&id](const RemoteTarget &target) { return target.id == id; });
    return it == folder.remoteTargets.end() ? nullptr : &*it;
}

QString fileName(const File &file)
{
    return file.path.section(u'/', -1);
}

bool moveHere(const QString &from, const QString &to)
{
    return QDir().mkpath(QFileInfo(to).absolutePath()) && QFile::rename(from, to);
}

bool existsHere(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

} // namespace

RecentlyRemoved::RecentlyRemoved(SyncManager &manager, RcloneEngine &engine, FolderPreferences &preferences,
                                 std::function<QDateTime()> clock)
    : QObject(&manager)
    , m_manager(manager)
    , m_engine(engine)
    , m_preferences(preferences)
    , m_clock(std::move(clock))
{
    m_localFiles.setMaxThreadCount(1);
}

QString RecentlyRemoved::refusal(const QUuid &folderId, const std::optional<File> &file) const
{
    if (!m_manager.folder(folderId))
        return QStringLiteral("This folder no longer exists.");
    if (file && (!RemovedFiles::runTime(file->run) || !RelativePath::isSafe(file->path)))
        return QStringLiteral("“%1” is not among the removed files.").arg(Formatting::printable(fileName(*file)));
    if (m_manager.runs().isRunning(folderId) || m_manager.runs().isHeld(folderId))
        return QStringLiteral("Wait for the sync to finish, then try again.");
    return {};
}

QDateTime RecentlyRemoved::nextRunStart(const QUuid &folderId)
{
    QStringList used;
    if (const std::optional<SyncFolder> folder = m_manager.folder(folderId)) {
        for (const RemoteTarget &target : folder->remoteTargets)
            used += m_preferences.keptRuns(folderId, target.id);
    }
    QDateTime start = m_clock().toUTC();
    if (const QDateTime last = m_lastRunStart.value(folderId); last.isValid()
        && start.toSecsSinceEpoch() <= last.toSecsSinceEpoch())
        start = QDateTime::fromSecsSinceEpoch(last.toSecsSinceEpoch() + 1, Qt::UTC);
    while (used.contains(RemovedFiles::runDirectory(start)))
        start = start.addSecs(1);
    m_lastRunStart.insert(folderId, start);
    return start;
}

void RecentlyRemoved::rememberRuns(const QUuid &folderId, const QUuid &targetId, const QStringList &runs)
{
    QStringList known = m_preferences.keptRuns(folderId, targetId);
    const qsizetype before = known.size();
    for (const QString &run : runs) {
        if (!known.contains(run))
            known.append(run);
    }
    if (known.size() != before)
        m_preferences.setKeptRuns(folderId, targetId, known);
}

void RecentlyRemoved::list(const QUuid &folderId, const QObject *context, std::function<void(const Listing &)> done)
{
    const std::optional<SyncFolder> folder = m_manager.folder(folderId);
    if (!folder)
        return done({{}, {QStringLiteral("This folder no longer exists.")}});
    // This computer and every target are read at once; the listing is
    // complete when the last answers. Walking this computer's kept files and
    // sorting them all take long with many: on a worker.
    auto listing = std::make_shared<Listing>();
    auto pending = std::make_shared<qsizetype>(folder->remoteTargets.size() + 1);
    const auto settle = [this, listing, pending, context = QPointer<const QObject>(context), done] {
        if (--*pending > 0)
            return;
        Background::run(
            m_localFiles, this,
            [files = std::exchange(listing->files, {})]() mutable {
                std::sort(files.begin(), files.end(), [](const File &a, const File &b) {
                    return a.removed != b.removed ? a.removed > b.removed : a.path < b.path;
                });
                return files;
            },
            [listing, context, done](QList<File> files) {
                listing->files = std::move(files);
                if (context)
                    done(*listing);
            });
    };
    Background::run(m_localFiles, this, [folderId] { return RemovedFiles::listLocal(folderId); },
                    [listing, settle](const QList<File> &files) {
                        listing->files.append(files);
                        settle();
                    });
    for (const RemoteTarget &target : folder->remoteTargets) {
        auto reader = std::make_shared<RemovedFiles::ListingReader>(target);
        m_engine.runLines(
            RemovedFiles::listArguments(target), this, [reader](const QByteArray &line) { reader->addLine(line); },
            [this, folderId, target, listing, settle, reader](const RcloneResult<QString> &result) {
                const QString name = target.remoteName + u':' + target.remotePath;
                if (isAbsent(result))
                    return settle();
                const auto files = result.ok() ? reader->files() : std::nullopt;
                if (!files) {
                    listing->errors.append(QStringLiteral("%1 could not be read: %2")
                                               .arg(name, result.ok() ? QStringLiteral("rclone's listing was not whole")
                                                                      : result.errorDescription()));
                    return settle();
                }
                // What the remote holds is pruned in time, also a run the
                // program did not see keep anything.
                QStringList runs;
                for (const File &file : *files)
                    runs.append(file.run);
                runs.removeDuplicates();
                rememberRuns(folderId, target.id, runs);
                listing->files.append(*files);
                settle();
            });
    }
}

void RecentlyRemoved::restore(const QUuid &folderId, const File &file, bool replace, const QObject *context,
                              std::function<void(Outcome, const QString &)> done)
{
    if (const QString refused = refusal(folderId, file); !refused.isEmpty())
        return done(Outcome::failed, refused);
    const SyncFolder folder = *m_manager.folder(folderId);
    const auto report = [this, folderId, file, context = QPointer<const QObject>(context), done](
                            Outcome outcome, const QString &error) {
        // A file back on a remote reaches this computer with the next run,
        // which nothing here would start: no watch sees a remote.
        if (outcome == Outcome::restored && !file.targetId.isNull() && m_manager.automatic().isGlobalSyncEnabled())
            m_manager.syncFolder(folderId, SyncTrigger::automatic);
        if (context)
            done(outcome, error);
    };
    if (file.targetId.isNull())
        restoreHere(folder, file, replace, report);
    else
        restoreThere(folder, file, replace, report);
}

void RecentlyRemoved::restoreHere(const SyncFolder &folder, const File &file, bool replace,
                                  const std::function<void(Outcome, const QString &)> &done)
{
    // Into the folder as it is now: never one made anew here, which the next
    // run would fill from the remote (an unmounted drive's mount point).
    const QString root = BookmarkService::currentPath(folder.localPath, folder.localPathBookmarkData);
    if (!QFileInfo(root).isDir())
        return done(Outcome::failed, QStringLiteral("Local folder not found: ") + root);
    const std::optional<QString> inFolder = RelativePath::inside(root, file.path);
    if (!inFolder)
        return done(Outcome::failed, QStringLiteral("“%1” would not be inside the folder.").arg(fileName(file)));
    const QString kept = RemovedFiles::localFile(folder.id, file);
    const QString original = *inFolder;
    if (!existsHere(kept))
        return done(Outcome::failed, QStringLiteral("“%1” is no longer among the removed files.").arg(fileName(file)));
    if (existsHere(original)) {
        if (!replace)
            return done(Outcome::nameTaken, {});
        // What has the name now becomes a removed file itself, in a run
        // directory of its own moment (the next free second).
        QString asidePath;
        for (QDateTime at = m_clock(); asidePath.isEmpty() || existsHere(asidePath); at = at.addSecs(1))
            asidePath = RemovedFiles::localFile(folder.id, {{}, RemovedFiles::runDirectory(at), file.path, 0, {}});
        if (!moveHere(original, asidePath))
            return done(Outcome::failed, QStringLiteral("“%1” could not be set aside.").arg(fileName(file)));
    }
    if (!moveHere(kept, original))
        return done(Outcome::failed, QStringLiteral("“%1” could not be put back.").arg(fileName(file)));
    RemovedFiles::removeEmptyParents(folder.id, kept);
    // Restoring is the newest change to the file: with its old time, bisync
    // would carry it over as "older", which it then finds out of step on a
    // remote that keeps whole seconds (WebDAV), and a conflict would let
    // the copy there win.
    QFile restored(original);
    if (restored.open(QIODevice::ReadWrite))
        restored.setFileTime(QDateTime::currentDateTimeUtc(), QFileDevice::FileModificationTime);
    done(Outcome::restored, {});
}

void RecentlyRemoved::restoreThere(const SyncFolder &folder, const File &file, bool replace,
                                   const std::function<void(Outcome, const QString &)> &done)
{
    const RemoteTarget *found = targetOf(folder, file.targetId);
    if (!found)
        return done(Outcome::failed, QStringLiteral("This folder no longer syncs with that remote."));
    const RemoteTarget target = *found;
    const QUuid folderId = folder.id;
    const QString kept = RemovedFiles::remoteDirectory(target) + u'/' + file.run + u'/' + file.path;
    const QString original = RemovedFiles::remotePath(target, file.path);
    const QString asideRun = RemovedFiles::runDirectory(m_clock());
    const QString aside = RemovedFiles::remoteDirectory(target) + u'/' + asideRun + u'/' + file.path;
    // The folder's runs wait until the remote is as it will stay.
    m_manager.runs().hold(folderId);
    const auto finish = [this, folderId, done](Outcome outcome, const QString &error) {
        m_manager.runs().release(folderId);
        done(outcome, error);
    };
    const auto failed = [file, finish](const QString &what, const RcloneResult<QString> &result) {
        finish(Outcome::failed, QStringLiteral("“%1” %2: %3").arg(fileName(file), what, result.errorDescription()));
    };
    const auto putBack = [this, kept, original, finish, failed] {
        m_engine.run({QStringLiteral("moveto"), kept, original}, this, [finish, failed](const RcloneResult<QString> &result) {
            if (result.ok())
                return finish(Outcome::restored, {});
            failed(QStringLiteral("could not be put back"), result);
        });
    };
    m_engine.run(
        {QStringLiteral("lsjson"), QStringLiteral("--stat"), QStringLiteral("--no-mimetype"), original}, this,
        [=, this](const RcloneResult<QString> &taken) {
            if (isAbsent(taken))
                return putBack();
            if (!taken.ok())
                return failed(QStringLiteral("could not be checked"), taken);
            if (!replace)
                return finish(Outcome::nameTaken, {});
            m_engine.run({QStringLiteral("moveto"), original, aside}, this,
                         [=, this](const RcloneResult<QString> &setAside) {
                             if (!setAside.ok() && !isAbsent(setAside))
                                 return failed(QStringLiteral("could not be set aside"), setAside);
                             rememberRuns(folderId, target.id, {asideRun});
                             putBack();
                         });
        });
}

void RecentlyRemoved::deletePermanently(const QUuid &folderId, const File &file, const QObject *context,
                                        std::function<void(const QString &)> done)
{
    if (const QString refused = refusal(folderId, file); !refused.isEmpty())
        return done(refused);
    const SyncFolder folder = *m_manager.folder(folderId);
    if (file.targetId.isNull()) {
        const QString kept = RemovedFiles::localFile(folderId, file);
        if (existsHere(kept) && !QFile::remove(kept))
            return done(QStringLiteral("“%1” could not be deleted.").arg(fileName(file)));
        RemovedFiles::removeEmptyParents(folderId, kept);
        return done({});
    }
    const RemoteTarget *target = targetOf(folder, file.targetId);
    if (!target)
        return done(QStringLiteral("This folder no longer syncs with that remote."));
    m_manager.runs().hold(folderId);
    m_engine.run({QStringLiteral("deletefile"), RemovedFiles::remoteDirectory(*target) + u'/' + file.run + u'/' + file.path},
                 this, [this, folderId, file, done, context = QPointer<const QObject>(context)](const RcloneResult<QString> &result) {
                     m_manager.runs().release(folderId);
                     if (context)
                         done(result.ok() || isAbsent(result)
                                  ? QString()
                                  : QStringLiteral("“%1” could not be deleted: %2").arg(fileName(file), result.errorDescription()));
                 });
}

void RecentlyRemoved::empty(const QUuid &folderId, const QObject *context, std::function<void(const QString &)> done)
{
    if (const QString refused = refusal(folderId); !refused.isEmpty())
        return done(refused);
    const QList<RemoteTarget> targets = m_manager.folder(folderId)->remoteTargets;
    // The folder's runs wait for the last of it: a run would keep files into
    // what is being deleted here.
    m_manager.runs().hold(folderId);
    Background::run(
        m_localFiles, this, [folderId] { return RemovedFiles::removeTree(RemovedFiles::localDirectory(folderId)); },
        [this, folderId, targets, context = QPointer<const QObject>(context), done](bool removed) {
            if (removed)
                return emptyTargets(folderId, targets, context, done);
            m_manager.runs().release(folderId);
            if (context)
                done(QStringLiteral("The files removed from this computer could not all be deleted."));
        });
}

void RecentlyRemoved::emptyTargets(const QUuid &folderId, const QList<RemoteTarget> &targets,
                                   const QPointer<const QObject> &context,
                                   const std::function<void(const QString &)> &done)
{
    // Every target at once.
    auto errors = std::make_shared<QStringList>();
    auto pending = std::make_shared<qsizetype>(targets.size() + 1);
    const auto settle = [this, folderId, errors, pending, done, context] {
        if (--*pending > 0)
            return;
        m_manager.runs().release(folderId);
        if (context)
            done(errors->join(u'\n'));
    };
    for (const RemoteTarget &target : targets) {
        m_engine.run({QStringLiteral("delete"), RemovedFiles::remoteDirectory(target), QStringLiteral("--rmdirs")}, this,
                     [this, folderId, target, errors, settle](const RcloneResult<QString> &result) {
                         if (result.ok() || isAbsent(result))
                             m_preferences.setKeptRuns(folderId, target.id, {});
                         else
                             errors->append(QStringLiteral("%1:%2 could not be emptied: %3")
                                                .arg(target.remoteName, target.remotePath, result.errorDescription()));
                         settle();
                     });
    }
    settle();
}

void RecentlyRemoved::runStopped(const SyncFolder &folder, const QDateTime &runStart, const QList<QUuid> &keptOnTargets)
{
    for (const QUuid &targetId : keptOnTargets)
        rememberRuns(folder.id, targetId, {RemovedFiles::runDirectory(runStart)});
}

void RecentlyRemoved::runFinished(const SyncFolder &folder, const QDateTime &runStart, const QList<QUuid> &keptOnTargets)
{
    runStopped(folder, runStart, keptOnTargets);
    const QDateTime cutoff = m_clock().addDays(-m_preferences.keepDays(folder.id));
    // Only directories of runs before the cutoff go: never the one a run
    // that starts meanwhile keeps into.
    Background::run(m_localFiles, this, [folderId = folder.id, cutoff] {
        RemovedFiles::pruneLocal(folderId, cutoff);
        return true;
    }, [](bool) {});
    for (const RemoteTarget &target : folder.remoteTargets) {
        const QStringList old = RemovedFiles::runsBefore(m_preferences.keptRuns(folder.id, target.id), cutoff);
        if (old.isEmpty())
            continue;
        const QUuid folderId = folder.id;
        m_engine.run(RemovedFiles::pruneArguments(target, old), this,
                     [this, folderId, target, old](const RcloneResult<QString> &result) {
                         if (!result.ok() && !isAbsent(result)) {
                             qCWarning(lcSyncManager, "Could not remove old kept files on %s:%s - %s",
                                       qUtf8Printable(target.remoteName), qUtf8Printable(target.remotePath),
                                       qUtf8Printable(result.errorDescription()));
                             return; // tried again after the next run
                         }
                         QStringList runs = m_preferences.keptRuns(folderId, target.id);
                         runs.removeIf([&old](const QString &run) { return old.contains(run); });
                         m_preferences.setKeptRuns(folderId, target.id, runs);
                     });
    }
}
