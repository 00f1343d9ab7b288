#include "ui/RemoteListModel.h"
#include "engine/RemoteCommands.h"

#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"

RemoteListModel::RemoteListModel(RcloneEngine &engine, QObject *parent)
    : QAbstractListModel(parent)
    , m_engine(engine)
{
}

int RemoteListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_remotes.size());
}

QVariant RemoteListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const CloudRemote &remote = m_remotes.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return remote.name;
    case TypeRole:
        return remote.type;
    case DisplayTypeNameRole:
        return remote.displayTypeName();
    case IconRole:
        return remote.providerIcon().name;
    case IconIsAssetRole:
        return remote.providerIcon().kind == ProviderIcon::Kind::asset;
    default:
        return {};
    }
}

QHash<int, QByteArray> RemoteListModel::roleNames() const
{
    return {{NameRole, "name"},
            {TypeRole, "type"},
            {DisplayTypeNameRole, "displayTypeName"},
            {IconRole, "iconName"},
            {IconIsAssetRole, "iconIsAsset"}};
}

void RemoteListModel::setRemotes(const QList<CloudRemote> &remotes)
{
    if (remotes == m_remotes)
        return;
    const bool countChanges = remotes.size() != m_remotes.size();
    beginResetModel();
    m_remotes = remotes;
    endResetModel();
    if (countChanges)
        Q_EMIT countChanged();
}

void RemoteListModel::reload()
{
    if (m_job)
        m_job->cancel();
    m_job = RemoteCommands::listRemotes(m_engine, this, [this](const RcloneResult<QList<CloudRemote>> &result) {
        if (result.isCancelled()) // replaced by a newer reload
            return;
        m_job = nullptr;
        setRemotes(result.ok() ? result.value() : QList<CloudRemote>{});
        Q_EMIT loadingChanged();
    });
    Q_EMIT loadingChanged();
}
