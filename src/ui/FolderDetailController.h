#pragma once

#include "model/SyncFolder.h"
#include "ui/FolderConflicts.h"
#include "ui/FolderEditor.h"
#include "ui/FolderRecovery.h"
#include "ui/FolderStatistics.h"
#include "ui/NimbrellApp.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

// One folder's detail pane: the folder as the manager has it now, the
// statistics of its local directory and its actions. Each card or sheet with
// state of its own has its part: the editor, the recovery (problems and
// reviews) and the conflicts. An empty `folderId` means a new folder.
class FolderDetailController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app READ app WRITE setApp NOTIFY appChanged)
    Q_PROPERTY(QString folderId READ folderId WRITE setFolderId NOTIFY folderIdChanged)
    Q_PROPERTY(bool exists READ exists NOTIFY folderChanged)
    Q_PROPERTY(QVariantMap folder READ folderMap NOTIFY folderChanged)
    Q_PROPERTY(QVariant fileCount READ fileCount NOTIFY statisticsChanged)
    Q_PROPERTY(QVariant totalSize READ totalSize NOTIFY statisticsChanged)
    Q_PROPERTY(bool isLoadingStats READ isLoadingStats NOTIFY statisticsChanged)
    Q_PROPERTY(FolderEditor *editor READ editor CONSTANT)
    Q_PROPERTY(FolderRecovery *recovery READ recovery CONSTANT)
    Q_PROPERTY(FolderConflicts *conflicts READ conflicts CONSTANT)

public:
    explicit FolderDetailController(QObject *parent = nullptr);
    ~FolderDetailController() override;

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    QString folderId() const;
    void setFolderId(const QString &id);
    const QUuid &id() const { return m_folderId; }

    std::optional<SyncFolder> folder() const;
    bool exists() const { return folder().has_value(); }
    QVariantMap folderMap() const;

    QVariant fileCount() const { return m_statistics ? QVariant(m_statistics->fileCount) : QVariant(); }
    QVariant totalSize() const { return m_statistics ? QVariant(m_statistics->totalBytes) : QVariant(); }
    bool isLoadingStats() const { return m_isLoadingStats; }
    // Counts the local directory's files and bytes on a worker thread.
    Q_INVOKABLE void loadFolderStats();

    FolderEditor *editor() { return &m_editor; }
    FolderRecovery *recovery() { return &m_recovery; }
    FolderConflicts *conflicts() { return &m_conflicts; }

    Q_INVOKABLE void deleteFolder();
    Q_INVOKABLE void syncNow();
    Q_INVOKABLE void setPaused(bool paused);
    Q_INVOKABLE void abortSync();

Q_SIGNALS:
    void appChanged();
    void folderIdChanged();
    void folderChanged();
    void statisticsChanged();

private:
    void reset();

    QPointer<NimbrellApp> m_app;
    QUuid m_folderId;
    std::optional<FolderStatistics> m_statistics;
    bool m_isLoadingStats = false;
    QFutureWatcher<FolderStatistics> *m_statsWatcher = nullptr;
    std::shared_ptr<std::atomic_bool> m_stopStats; // of the walk under way
    FolderEditor m_editor{*this};
    FolderRecovery m_recovery{*this};
    FolderConflicts m_conflicts{*this};
};
