#include "ui/FolderTreeModel.h"

#include "engine/RcloneEngine.h"
#include "engine/RemoteCommands.h"
#include "model/FolderSelection.h"
#include "model/Formatting.h"
#include "sync/RemovedFiles.h"

#include <QDir>

#include <algorithm>

struct FolderTreeModel::Node
{
    QString name;
    QString path;
    Node *parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;
    bool onLocal = false;
    bool onRemote = false;
    bool fetched = false;  // its level was asked for
    bool loaded = false;   // and has arrived
    int pendingListings = 0;
    int row = 0; // among its parent's children, which never move
    // Names found so far while its level loads: on this computer, on a remote.
    QMap<QString, std::pair<bool, bool>> found;
};

FolderTreeModel::FolderTreeModel(QObject *parent)
    : QAbstractItemModel(parent)
    , m_root(std::make_unique<Node>())
{
}

FolderTreeModel::~FolderTreeModel() = default;

void FolderTreeModel::load(RcloneEngine *engine, const QString &localPath, const QStringList &remoteSpecs,
                           const QStringList &skipped)
{
    beginResetModel();
    ++m_generation;
    m_engine = engine;
    m_localPath = localPath;
    m_remoteSpecs = remoteSpecs;
    m_skipped = skipped;
    m_root = std::make_unique<Node>();
    const bool wasLoading = isLoading();
    m_pendingLevels = 0;
    m_error.clear();
    endResetModel();
    if (wasLoading)
        emit loadingChanged();
    emit errorChanged();
    emit skippedChanged();
    fetchMore({});
}

FolderTreeModel::Node *FolderTreeModel::nodeOf(const QModelIndex &index) const
{
    return index.isValid() ? static_cast<Node *>(index.internalPointer()) : m_root.get();
}

QModelIndex FolderTreeModel::indexOf(const Node *node) const
{
    return node == m_root.get() || !node ? QModelIndex() : createIndex(node->row, 0, const_cast<Node *>(node));
}

QModelIndex FolderTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    const Node *node = nodeOf(parent);
    if (column != 0 || row < 0 || row >= int(node->children.size()))
        return {};
    return createIndex(row, 0, node->children[size_t(row)].get());
}

QModelIndex FolderTreeModel::parent(const QModelIndex &child) const
{
    return child.isValid() ? indexOf(nodeOf(child)->parent) : QModelIndex();
}

int FolderTreeModel::rowCount(const QModelIndex &parent) const
{
    return int(nodeOf(parent)->children.size());
}

int FolderTreeModel::columnCount(const QModelIndex &) const
{
    return 1;
}

bool FolderTreeModel::hasChildren(const QModelIndex &parent) const
{
    const Node *node = nodeOf(parent);
    return !node->loaded || !node->children.empty();
}

bool FolderTreeModel::canFetchMore(const QModelIndex &parent) const
{
    return !nodeOf(parent)->fetched;
}

void FolderTreeModel::fetchMore(const QModelIndex &parent)
{
    Node *node = nodeOf(parent);
    if (node->fetched)
        return;
    node->fetched = true;
    node->pendingListings = 1 + int(m_remoteSpecs.size());
    if (m_pendingLevels++ == 0)
        emit loadingChanged();
    for (const QString &spec : std::as_const(m_remoteSpecs)) {
        if (!m_engine) {
            listed(node, {}, true);
            continue;
        }
        const QString location = node->path.isEmpty() ? spec : spec + (spec.endsWith(u':') ? QString() : QStringLiteral("/")) + node->path;
        RemoteCommands::listDirectories(*m_engine, location, this,
                                        [this, node, location, generation = m_generation](const RcloneResult<QStringList> &result) {
                                            if (generation != m_generation)
                                                return;
                                            if (!result.ok()) {
                                                m_error = QStringLiteral("Could not list %1: %2")
                                                              .arg(location, result.error().description.trimmed());
                                                emit errorChanged();
                                            }
                                            listed(node, result.ok() ? result.value() : QStringList(), true);
                                        });
    }
    const QDir directory(node->path.isEmpty() ? m_localPath : m_localPath + u'/' + node->path);
    listed(node, directory.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks), false);
}

void FolderTreeModel::listed(Node *node, const QStringList &names, bool remote)
{
    for (const QString &name : names) {
        // The kept files of the folder's runs are not the folder's.
        if (node->path.isEmpty() && name == RemovedFiles::kDirectoryName)
            continue;
        auto &[local, onRemote] = node->found[name];
        (remote ? onRemote : local) = true;
    }
    if (--node->pendingListings == 0)
        levelDone(node);
}

void FolderTreeModel::levelDone(Node *node)
{
    QStringList names = node->found.keys();
    std::sort(names.begin(), names.end(), [](const QString &a, const QString &b) {
        const int folded = a.compare(b, Qt::CaseInsensitive);
        return folded != 0 ? folded < 0 : a < b;
    });
    if (!names.isEmpty())
        beginInsertRows(indexOf(node), 0, int(names.size()) - 1);
    node->children.reserve(size_t(names.size()));
    for (const QString &name : std::as_const(names)) {
        auto child = std::make_unique<Node>();
        child->name = name;
        child->path = node->path.isEmpty() ? name : node->path + u'/' + name;
        child->parent = node;
        child->row = int(node->children.size());
        std::tie(child->onLocal, child->onRemote) = node->found.value(name);
        node->children.push_back(std::move(child));
    }
    node->found.clear();
    node->loaded = true;
    if (!names.isEmpty())
        endInsertRows();
    else if (node != m_root.get())
        emit dataChanged(indexOf(node), indexOf(node)); // it has no children after all
    if (--m_pendingLevels == 0)
        emit loadingChanged();
}

Qt::CheckState FolderTreeModel::checkState(const Node *node) const
{
    FolderSelection selection;
    selection.skipped = m_skipped;
    if (selection.isSkipped(node->path))
        return Qt::Unchecked;
    return selection.holdsSkipped(node->path) ? Qt::PartiallyChecked : Qt::Checked;
}

bool FolderTreeModel::isCheckable(const Node *node) const
{
    for (const Node *above = node->parent; above && above != m_root.get(); above = above->parent) {
        if (m_skipped.contains(above->path))
            return false;
    }
    return true;
}

QVariant FolderTreeModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    const Node *node = nodeOf(index);
    switch (role) {
    case Qt::DisplayRole:
    case NameRole: return node->name;
    case PathRole: return node->path;
    case CheckStateRole: return int(checkState(node));
    case CheckableRole: return isCheckable(node);
    case WhereRole:
        if (node->onLocal == node->onRemote)
            return QString();
        return node->onLocal ? QStringLiteral("This computer only") : QStringLiteral("Remote only");
    default: return {};
    }
}

QHash<int, QByteArray> FolderTreeModel::roleNames() const
{
    return {{Qt::DisplayRole, "display"}, {NameRole, "name"},       {PathRole, "path"},
            {CheckStateRole, "checkState"}, {CheckableRole, "checkable"}, {WhereRole, "where"}};
}

QString FolderTreeModel::summaryOf(const QStringList &skipped)
{
    if (skipped.isEmpty())
        return QStringLiteral("All folders sync");
    return Formatting::folderCount(skipped.size()) + QStringLiteral(" not synced");
}

void FolderTreeModel::toggle(const QString &path)
{
    // Find the node: the path's segments, level by level.
    Node *node = m_root.get();
    for (const QString &segment : path.split(u'/', Qt::SkipEmptyParts)) {
        const auto child = std::find_if(node->children.begin(), node->children.end(),
                                        [&segment](const auto &c) { return c->name == segment; });
        if (child == node->children.end())
            return;
        node = child->get();
    }
    if (node == m_root.get() || !isCheckable(node))
        return;
    if (m_skipped.removeAll(node->path) == 0) {
        m_skipped.removeIf([&](const QString &inside) { return inside.startsWith(node->path + u'/'); });
        m_skipped.append(node->path);
        m_skipped.sort();
    }
    refresh(node);
    emit skippedChanged();
}

void FolderTreeModel::refresh(Node *node)
{
    const QList<int> roles{CheckStateRole, CheckableRole};
    for (Node *above = node; above && above != m_root.get(); above = above->parent)
        emit dataChanged(indexOf(above), indexOf(above), roles);
    // What it holds follows it.
    std::vector<Node *> below{node};
    while (!below.empty()) {
        Node *next = below.back();
        below.pop_back();
        if (next->children.empty())
            continue;
        emit dataChanged(indexOf(next->children.front().get()), indexOf(next->children.back().get()), roles);
        for (const auto &child : next->children)
            below.push_back(child.get());
    }
}
