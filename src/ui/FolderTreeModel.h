#pragma once

#include <QAbstractItemModel>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <vector>

class RcloneEngine;

// "Choose Folders…": the folder's subdirectories on this computer and on
// each target, merged by name, as a tree with check boxes. A level is read
// when it is first opened (a local directory listing, and `rclone lsjson
// --dirs-only` per target), so a tree of any size opens at once. Unchecking
// a directory skips it; what lies in a skipped directory is skipped with it
// and cannot be checked on its own.
class FolderTreeModel : public QAbstractItemModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder editor")
    // Listings under way.
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)
    // A target that could not be listed, and why; "" when all could.
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(QStringList skipped READ skipped NOTIFY skippedChanged)
    Q_PROPERTY(QString summary READ summary NOTIFY skippedChanged)

public:
    enum Role {
        NameRole = Qt::UserRole + 1,
        PathRole,       // relative to the folder: "Photos/2019"
        CheckStateRole, // Qt::CheckState: partly checked when something inside is skipped
        CheckableRole,  // false inside a skipped directory
        WhereRole,      // "" on both sides, else "This computer only" or "Remote only"
    };

    explicit FolderTreeModel(QObject *parent = nullptr);
    ~FolderTreeModel() override;

    // Starts over: the folder's own level is read at once.
    void load(RcloneEngine *engine, const QString &localPath, const QStringList &remoteSpecs, const QStringList &skipped);

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    bool hasChildren(const QModelIndex &parent = {}) const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Checks or unchecks the directory at `path`.
    Q_INVOKABLE void toggle(const QString &path);
    const QStringList &skipped() const { return m_skipped; }
    QString summary() const { return summaryOf(m_skipped); }
    // "All folders sync", "3 folders not synced"
    static QString summaryOf(const QStringList &skipped);
    bool isLoading() const { return m_pendingLevels > 0; }
    const QString &error() const { return m_error; }

signals:
    void loadingChanged();
    void errorChanged();
    void skippedChanged();

private:
    struct Node;
    Node *nodeOf(const QModelIndex &index) const;
    QModelIndex indexOf(const Node *node) const;
    void listed(Node *node, const QStringList &names, bool remote);
    void levelDone(Node *node);
    Qt::CheckState checkState(const Node *node) const;
    bool isCheckable(const Node *node) const;
    void refresh(Node *node); // its row, its ancestors' and its loaded descendants'

    RcloneEngine *m_engine = nullptr;
    QString m_localPath;
    QStringList m_remoteSpecs;
    QStringList m_skipped;
    std::unique_ptr<Node> m_root;
    int m_pendingLevels = 0;
    QString m_error;
    quint64 m_generation = 0; // a listing from before a load() is dropped
};
