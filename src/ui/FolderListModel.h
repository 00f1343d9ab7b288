#pragma once

#include "model/SyncStatus.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

class SyncManager;

// The manager's folders as a list for the screens. It follows the manager
// row by row, so a progress report repaints one row, not the list.
class FolderListModel final : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    // Folders by status, and the ones in error, for the dashboard.
    Q_PROPERTY(int activeCount READ activeCount NOTIFY statusCountsChanged)
    Q_PROPERTY(int healthyCount READ healthyCount NOTIFY statusCountsChanged)
    Q_PROPERTY(int errorCount READ errorCount NOTIFY statusCountsChanged)
    Q_PROPERTY(int idleCount READ idleCount NOTIFY statusCountsChanged)
    Q_PROPERTY(QVariantList errorFolders READ errorFolders NOTIFY statusCountsChanged)
    Q_PROPERTY(Summary summary READ summary NOTIFY statusCountsChanged)
    // Open conflicts over all folders.
    Q_PROPERTY(int conflictCount READ conflictCount NOTIFY conflictCountChanged)
    Q_PROPERTY(int pausedCount READ pausedCount NOTIFY conflictCountChanged)

public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        NameRole,
        StatusRole, // "idle", "syncing", "error", "success"
        RemoteCountRole,
        LastSyncRole, // invalid when never synced
        ProgressRole,
        LocalPathRole,
        ConflictsRole, // open conflicts
        PausedRole,
        DirectionRole, // "two-way", "upload", "download"
    };

    // What the dashboard's "System Status" says: errors first, then running syncs.
    enum class Summary { AllGood, Syncing, NeedsAttention };
    Q_ENUM(Summary)
    static Summary summaryFor(int errorCount, int activeCount);

    explicit FolderListModel(SyncManager &manager, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return rowCount(); }
    int activeCount() const { return countOf(SyncStatus::syncing); }
    int healthyCount() const { return countOf(SyncStatus::success); }
    int errorCount() const { return countOf(SyncStatus::error); }
    int idleCount() const { return countOf(SyncStatus::idle); }
    QVariantList errorFolders() const; // [{folderId, name}], in list order
    Summary summary() const { return summaryFor(errorCount(), activeCount()); }
    int conflictCount() const { return m_conflictCount; }
    int pausedCount() const { return m_pausedCount; }
    // The row of the folder with this id, or -1.
    Q_INVOKABLE int rowOf(const QString &folderId) const;

Q_SIGNALS:
    void countChanged();
    void statusCountsChanged();
    void conflictCountChanged(); // or the paused count

private:
    int countOf(SyncStatus status) const;
    // Tells the dashboard only when the statuses really changed: progress
    // reports arrive many times a second.
    void statusesMayHaveChanged();

    SyncManager &m_manager;
    // The statuses, with the names of the folders in error, as last told.
    QList<std::pair<SyncStatus, QString>> m_statuses;
    int m_conflictCount = 0;
    int m_pausedCount = 0;
};
