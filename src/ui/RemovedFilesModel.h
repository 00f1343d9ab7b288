#pragma once

#include "sync/RecentlyRemoved.h"
#include "ui/NimbrellApp.h"

#include <QAbstractListModel>
#include <QPointer>
#include <QtQml/qqmlregistration.h>

// A folder's "Recently Removed": what its runs kept on this computer and on
// each remote, newest first. Read when asked (reading a remote starts
// rclone), and again after each action.
class RemovedFilesModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app READ app WRITE setApp NOTIFY appChanged)
    Q_PROPERTY(QString folderId READ folderId WRITE setFolderId NOTIFY folderIdChanged)
    Q_PROPERTY(int count READ rowCount NOTIFY countChanged)
    // Reading the backups, or moving or deleting a file.
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY stateChanged)
    Q_PROPERTY(bool isLoaded READ isLoaded NOTIFY stateChanged)
    // What went wrong last: remotes that could not be read, a failed action.
    Q_PROPERTY(QString error READ error NOTIFY stateChanged)

public:
    enum Role {
        FileNameRole = Qt::UserRole + 1,
        LocationRole, // where it was: "Documents/Reports"
        SideRole,     // "This computer" or the target, "backup:Docs"
        FromRemoteRole,
        SizeRole,     // "1.2 MB"
        RemovedRole,  // when
    };

    explicit RemovedFilesModel(QObject *parent = nullptr);

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    QString folderId() const;
    void setFolderId(const QString &id);
    bool isBusy() const { return m_isBusy; }
    bool isLoaded() const { return m_isLoaded; }
    const QString &error() const { return m_error; }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    Q_INVOKABLE void reload();
    // Puts the file back where it was. When its name is taken there,
    // nothing moves without `replace`: nameTaken() asks first.
    Q_INVOKABLE void restore(int row, bool replace = false);
    Q_INVOKABLE void deletePermanently(int row);
    Q_INVOKABLE void empty();

Q_SIGNALS:
    void appChanged();
    void folderIdChanged();
    void countChanged();
    void stateChanged();
    void nameTaken(int row, const QString &fileName, const QString &side);

private:
    // Starts an action unless one runs; `false` when it may not start.
    bool begin();
    // An action ended with `error` (empty when it worked): read again.
    void ended(const QString &error);
    QString sideName(const RemovedFiles::File &file) const;

    QPointer<NimbrellApp> m_app;
    QUuid m_folderId;
    QList<RemovedFiles::File> m_files;
    QString m_folderName;
    QHash<QUuid, QString> m_targetNames; // "remote:path" by target id
    bool m_isBusy = false;
    bool m_isLoaded = false;
    QString m_error;
    QString m_actionError;
    int m_generation = 0; // a listing for another folder is dropped
};
