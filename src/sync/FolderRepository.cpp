#include "sync/FolderRepository.h"

#include "model/FolderStore.h"
#include "platform/AppLogger.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

#include <cerrno>
#include <cstring>

#include <unistd.h>

FolderRepository::FolderRepository(const QString &path, std::chrono::milliseconds retry, QObject *parent)
    : QObject(parent)
    , m_path(path)
{
    // The store that could not be read is read again, and a save that
    // failed made again, until they work.
    m_retry.setSingleShot(true);
    m_retry.setInterval(retry);
    connect(&m_retry, &QTimer::timeout, this, [this] { m_unread ? readAgainLater() : save(); });
    readAgainLater();
}

std::optional<SyncFolder> FolderRepository::folder(const QUuid &id) const
{
    const qsizetype row = indexOf(id);
    return row < 0 ? std::nullopt : std::optional(m_folders.at(row));
}

qsizetype FolderRepository::indexOf(const QUuid &id) const
{
    for (qsizetype row = 0; row < m_folders.size(); ++row) {
        if (m_folders.at(row).id == id)
            return row;
    }
    return -1;
}

void FolderRepository::append(const SyncFolder &folder)
{
    emit folderAboutToBeInserted(m_folders.size());
    m_folders.append(folder);
    emit folderInserted(m_folders.size() - 1);
}

void FolderRepository::replace(qsizetype row, const SyncFolder &folder)
{
    m_folders[row] = folder;
    emit folderChanged(row);
}

bool FolderRepository::change(const QUuid &id, const std::function<void(SyncFolder &)> &change)
{
    const qsizetype row = indexOf(id);
    if (row < 0)
        return false;
    SyncFolder folder = m_folders.at(row);
    change(folder);
    replace(row, folder);
    return true;
}

void FolderRepository::remove(const QUuid &id)
{
    for (qsizetype row = m_folders.size() - 1; row >= 0; --row) {
        if (m_folders.at(row).id == id) {
            emit folderAboutToBeRemoved(row);
            m_folders.removeAt(row);
            emit folderRemoved(row);
        }
    }
}

void FolderRepository::touch(const QUuid &id)
{
    if (const qsizetype row = indexOf(id); row >= 0)
        emit folderChanged(row);
}

void FolderRepository::store()
{
    m_pending = true;
    write();
}

void FolderRepository::save()
{
    if (m_pending)
        write();
}

void FolderRepository::write()
{
    // A store that could not be read is never written over: it may hold the
    // only copy of the list. It is read again first, and once it reads, what
    // is pending is written with what was read.
    if (m_unread)
        return readAgainLater();
    const std::optional<QByteArray> bytes = FolderStore::encode(m_folders);
    if (!bytes)
        return;
    QString failure;
    if (m_hasUndecodable && !setAsideUndecodable(&failure))
        return writeFailed(failure);
    QDir().mkpath(QFileInfo(m_path).path());
    // Written beside the store and renamed over it, so a crash or a full disk
    // never leaves a half-written store.
    // (commit() alone does not see a write that fails as the buffer is
    // flushed, and would put an empty file in the store's place: flush first.)
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.flush()
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || !file.commit()) {
        const QString why = file.errorString();
        file.cancelWriting();
        return writeFailed(why);
    }
    m_pending = false;
    setProblem({});
}

void FolderRepository::readAgainLater()
{
    if (!load())
        retryLater();
}

void FolderRepository::writeFailed(const QString &why)
{
    const QString problem = QStringLiteral("The folder list could not be saved to %1: %2. Your changes are kept and "
                                           "saved again shortly.")
                                .arg(m_path, why);
    if (problem != m_problem)
        qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
    setProblem(problem);
    retryLater();
}

void FolderRepository::retryLater()
{
    if (!m_retry.isActive())
        m_retry.start();
}

void FolderRepository::setProblem(const QString &problem)
{
    if (std::exchange(m_problem, problem) != problem)
        emit problemChanged(problem);
}

bool FolderRepository::load()
{
    // A missing store is a first start.
    QFile file(m_path);
    if (!file.exists())
        return loaded({});
    QByteArray bytes;
    if (file.open(QIODevice::ReadOnly))
        bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        // Not the store's fault (no permission, an I/O error, a home on the
        // network that hiccups): nothing is written until it reads.
        const QString problem = QStringLiteral("The folder list could not be read from %1: %2. Nothing is saved until "
                                               "it can be read.")
                                    .arg(m_path, file.errorString());
        if (problem != m_problem)
            qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
        m_unread = true;
        setProblem(problem);
        return false;
    }
    FolderStore::DecodeError error;
    std::optional<QList<SyncFolder>> folders = FolderStore::decode(bytes, &error);
    if (!folders) {
        // Corrupt, or written by a newer version: kept as it is until the
        // user changes something, then set aside under a name of its own.
        const QString problem = QStringLiteral("The folder list in %1 cannot be used (%2). It is kept as it is, and "
                                               "set aside under a name of its own when you add a folder.")
                                    .arg(m_path, error.toString());
        qCCritical(lcSyncManager, "%s", qUtf8Printable(problem));
        m_hasUndecodable = true;
        loaded({});
        setProblem(problem);
        return true;
    }
    // A folder saved mid-run by a program that then ended is not syncing now.
    for (SyncFolder &folder : *folders) {
        if (folder.status == SyncStatus::syncing)
            resetRunState(folder, SyncStatus::idle);
    }
    return loaded(*folders);
}

bool FolderRepository::loaded(const QList<SyncFolder> &stored)
{
    const bool wasUnread = std::exchange(m_unread, false);
    if (wasUnread) {
        qCInfo(lcSyncManager, "The folder list can be read again");
        setProblem({});
    }
    // The list so far holds only what was added while the store could not
    // be read: the stored folders come first, then those.
    QSet<QUuid> added;
    for (const SyncFolder &folder : std::as_const(m_folders))
        added.insert(folder.id);
    for (qsizetype row = 0; row < stored.size(); ++row) {
        if (added.contains(stored.at(row).id))
            continue;
        emit folderAboutToBeInserted(row);
        m_folders.insert(row, stored.at(row));
        emit folderInserted(row);
    }
    if (wasUnread) {
        emit readAgain();
        if (m_pending)
            write();
    }
    return true;
}

bool FolderRepository::setAsideUndecodable(QString *failure)
{
    // A name never used before, so no earlier copy is ever replaced.
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    for (int n = 1; n < 1000; ++n) {
        const QString aside =
            m_path + QStringLiteral(".unreadable-") + stamp + (n > 1 ? u'-' + QString::number(n) : QString());
        if (QFileInfo::exists(aside))
            continue;
        // link(2) fails when the name exists; the store goes only once it is there.
        if (::link(QFile::encodeName(m_path).constData(), QFile::encodeName(aside).constData()) == 0
            || errno == ENOENT) {
            qCInfo(lcSyncManager, "The unusable folder list was set aside as %s", qUtf8Printable(aside));
            m_hasUndecodable = false;
            return true;
        }
        if (errno != EEXIST) {
            *failure = QString::fromLocal8Bit(std::strerror(errno));
            return false;
        }
    }
    *failure = QStringLiteral("no free name to set the old list aside");
    return false;
}
