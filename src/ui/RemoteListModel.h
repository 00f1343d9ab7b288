#pragma once

#include "engine/RcloneJob.h"

#include "model/CloudRemote.h"

#include <QAbstractListModel>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

class RcloneEngine;

// The remotes configured in rclone, as last listed. A listing that fails
// leaves the list empty; the screens then say there are none.
class RemoteListModel final : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)

public:
    enum Role { NameRole = Qt::UserRole + 1, TypeRole, DisplayTypeNameRole, IconRole, IconIsAssetRole };

    explicit RemoteListModel(RcloneEngine &engine, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<CloudRemote> &remotes() const { return m_remotes; }
    void setRemotes(const QList<CloudRemote> &remotes);
    int count() const { return int(m_remotes.size()); }
    bool isLoading() const { return m_job; }

    // Lists the remotes again (a reload already under way is replaced).
    Q_INVOKABLE void reload();

Q_SIGNALS:
    void countChanged();
    void loadingChanged();

private:
    RcloneEngine &m_engine;
    QList<CloudRemote> m_remotes;
    QPointer<RcloneJob> m_job;
};
