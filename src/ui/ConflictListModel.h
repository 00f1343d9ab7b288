#pragma once

#include "sync/ActivityLog.h"
#include "sync/ConflictCopies.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

// A folder's open conflicts as its pane lists them, newest first, each with
// its two copies as they are on this computer now. The copies are looked at
// on a worker (thousands of them hold up nothing); then only the rows that
// came, went or changed are reported.
class ConflictListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("a folder's conflicts")
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

public:
    enum Role {
        NameRole = Qt::UserRole + 1, // the original name
        RenamedRole,
        TimeRole,
        // [{path, fileName, filePath, size, modified, side, fromRemote,
        // keepsName}], the copy that kept the name first.
        CopiesRole,
    };

    explicit ConflictListModel(QObject *parent = nullptr);

    // The conflicts of the folder at `localPath` (OpenConflicts::of), shown
    // once their copies were looked at.
    void show(const QString &localPath, const QList<ActivityRecord> &conflicts);
    // None, at once: another folder's are not shown meanwhile.
    void clear();

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void countChanged();
    // A copy of a conflict shown is gone (settled in a file manager): the
    // folder's open conflicts are to be read again.
    void copiesGone();

private:
    struct Row
    {
        ActivityRecord record;
        ConflictCopies::Copy original;
        ConflictCopies::Copy renamed;
        QString key() const { return record.renamed + QChar(0) + record.path; }
        bool operator==(const Row &other) const;
    };
    void update(const QString &localPath, QList<Row> rows);
    void replace(const QString &localPath, QList<Row> rows);

    QString m_localPath;
    QList<Row> m_rows;
    int m_looking = 0; // the look under way; an older one's rows are dropped
};
