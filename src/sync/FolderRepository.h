#pragma once

#include "model/SyncFolder.h"

#include <QList>
#include <QObject>
#include <QTimer>
#include <QUuid>

#include <chrono>
#include <functional>
#include <optional>

// The sync folders and their store on disk
// (~/.config/rclone/rclone_sync_folders.json). A change replaces a whole
// record and is written at once; a store that cannot be read is never
// written over, and a write that fails is made again until it works.
class FolderRepository final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)

public:
    // Reads the store at `path`; while it cannot be read, it is read again
    // every `retry`.
    FolderRepository(const QString &path, std::chrono::milliseconds retry, QObject *parent = nullptr);

    const QList<SyncFolder> &folders() const { return m_folders; }
    std::optional<SyncFolder> folder(const QUuid &id) const;
    qsizetype indexOf(const QUuid &id) const;

    void append(const SyncFolder &folder);
    void replace(qsizetype row, const SyncFolder &folder);
    // Applies `change` to the folder with this id, if it still exists.
    bool change(const QUuid &id, const std::function<void(SyncFolder &)> &change);
    void remove(const QUuid &id);
    // Reports the folder's row as changed (something shown beside it did).
    void touch(const QUuid &id);

    // A change to keep: written now, or as soon as the store can be written.
    void store();
    // Writes a change that could not be saved yet, if any (on quitting).
    void save();

    const QString &path() const { return m_path; }
    // Why the folder list is not on disk as shown: it could not be read, or
    // a save failed (and is retried). Empty when all is well.
    const QString &problem() const { return m_problem; }

signals:
    // The list changes one row at a time: announced before an insert or a
    // removal (for list models), reported after every change.
    void folderAboutToBeInserted(qsizetype row);
    void folderInserted(qsizetype row);
    void folderChanged(qsizetype row);
    void folderAboutToBeRemoved(qsizetype row);
    void folderRemoved(qsizetype row);
    void problemChanged(const QString &problem);
    // The store could be read after all: what it held is in the list now.
    void readAgain();

private:
    // Reads the store; false while it cannot be read.
    bool load();
    void readAgainLater();
    bool loaded(const QList<SyncFolder> &stored);
    bool setAsideUndecodable(QString *failure);
    void write();
    void writeFailed(const QString &why);
    void retryLater();
    void setProblem(const QString &problem);

    QList<SyncFolder> m_folders;
    QString m_path;
    QString m_problem;
    QTimer m_retry;
    // The store on disk could not be decoded; it is set aside before the
    // first save replaces it.
    bool m_hasUndecodable = false;
    // The store could not be read: until it is, it is never written.
    bool m_unread = false;
    bool m_pending = false; // a change not yet on disk
};
