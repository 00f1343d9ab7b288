#pragma once

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

public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        NameRole,
        StatusRole, // "idle", "syncing", "error", "success"
        RemoteCountRole,
        LastSyncRole, // invalid when never synced
        ProgressRole,
        LocalPathRole,
    };

    explicit FolderListModel(SyncManager &manager, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return rowCount(); }

Q_SIGNALS:
    void countChanged();

private:
    SyncManager &m_manager;
};
