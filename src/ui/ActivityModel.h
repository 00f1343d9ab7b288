#pragma once

#include "sync/ActivityLog.h"
#include "ui/NimbrellApp.h"

#include <QAbstractListModel>
#include <QPointer>
#include <QQmlParserStatus>
#include <QtQml/qqmlregistration.h>

// What runs changed, newest first: one folder's changes (its pane's "Recent
// Changes") or every folder's (the dashboard's "Recent Activity"). Read
// again from the activity file whenever a run ends.
class ActivityModel : public QAbstractListModel, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app READ app WRITE setApp NOTIFY appChanged)
    // Empty: every folder.
    Q_PROPERTY(QString folderId READ folderId WRITE setFolderId NOTIFY folderIdChanged)
    // The newest this many; 0 keeps all.
    Q_PROPERTY(int limit READ limit WRITE setLimit NOTIFY limitChanged)
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)

public:
    enum Role {
        FileNameRole = Qt::UserRole + 1,
        LocationRole, // the folder it is in: "Documents/Reports 2025"
        ActionRole,   // "New", "Updated", "Deleted"
        ToRemoteRole, // uploaded (or deleted there), rather than brought here
        TargetRole,   // "remote:path"
        TimeRole,
        FilePathRole, // on this computer
        ExistsRole,   // there now, so it can be opened
        FolderIdRole,
    };

    explicit ActivityModel(QObject *parent = nullptr);

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    QString folderId() const;
    void setFolderId(const QString &id);
    int limit() const { return m_limit; }
    void setLimit(int limit);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    void classBegin() override { m_isComplete = false; }
    void componentComplete() override;

    static QString actionText(ChangeParser::Action action);

public Q_SLOTS:
    void reload();

Q_SIGNALS:
    void appChanged();
    void folderIdChanged();
    void limitChanged();
    void countChanged();

private:
    struct Row
    {
        ActivityRecord record;
        QString folderName;
        QString localPath;
        friend bool operator==(const Row &, const Row &) = default;
    };

    QPointer<NimbrellApp> m_app;
    QUuid m_folderId;
    int m_limit = 0;
    bool m_isComplete = true; // made from C++; QML sets it at the end
    QList<Row> m_rows;
};
