#pragma once

#include "model/SyncFolder.h"
#include "sync/ConflictCopies.h"
#include "ui/FolderStatistics.h"
#include "ui/NimbrellApp.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

// The state of one folder's detail pane: the folder as the manager has it now,
// the statistics of its local directory, and the editor that creates or
// changes it. An empty `folderId` means a new folder.
class RcloneJob;
class SyncReview;

class FolderDetailController : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(NimbrellApp *app READ app WRITE setApp NOTIFY appChanged)
    Q_PROPERTY(QString folderId READ folderId WRITE setFolderId NOTIFY folderIdChanged)
    Q_PROPERTY(bool exists READ exists NOTIFY folderChanged)
    Q_PROPERTY(QVariantMap folder READ folderMap NOTIFY folderChanged)
    Q_PROPERTY(bool isEditing READ isEditing NOTIFY isEditingChanged)
    Q_PROPERTY(QString editName READ editName WRITE setEditName NOTIFY editChanged)
    Q_PROPERTY(QString editLocalPath READ editLocalPath WRITE setEditLocalPath NOTIFY editChanged)
    Q_PROPERTY(QVariantList editTargets READ editTargets NOTIFY editTargetsChanged)
    Q_PROPERTY(int editConflictResolution READ editConflictResolution WRITE setEditConflictResolution NOTIFY editChanged)
    Q_PROPERTY(bool excludeGit READ excludeGit WRITE setExcludeGit NOTIFY editChanged)
    Q_PROPERTY(bool excludeHidden READ excludeHidden WRITE setExcludeHidden NOTIFY editChanged)
    Q_PROPERTY(bool excludeNodeModules READ excludeNodeModules WRITE setExcludeNodeModules NOTIFY editChanged)
    // "Safety & Control": the folder syncs only when asked.
    Q_PROPERTY(bool editPaused READ editPaused WRITE setEditPaused NOTIFY editChanged)
    Q_PROPERTY(bool editKeepRemoved READ editKeepRemoved WRITE setEditKeepRemoved NOTIFY editChanged)
    // How long kept files stay, as an index into keepDaysChoices.
    Q_PROPERTY(int editKeepDaysIndex READ editKeepDaysIndex WRITE setEditKeepDaysIndex NOTIFY editChanged)
    Q_PROPERTY(QStringList keepDaysLabels READ keepDaysLabels CONSTANT)
    Q_PROPERTY(QStringList conflictLabels READ conflictLabels CONSTANT)
    Q_PROPERTY(bool canConfirm READ canConfirm NOTIFY editChanged)
    Q_PROPERTY(QString pathWarning READ pathWarning NOTIFY editChanged)
    Q_PROPERTY(QVariant fileCount READ fileCount NOTIFY statisticsChanged)
    Q_PROPERTY(QVariant totalSize READ totalSize NOTIFY statisticsChanged)
    Q_PROPERTY(bool isLoadingStats READ isLoadingStats NOTIFY statisticsChanged)
    // [{kind, title, sentence, action, actionText, actionEnabled, location}]
    // per failing target of the last run.
    Q_PROPERTY(QVariantList problems READ problems NOTIFY problemsChanged)
    Q_PROPERTY(bool isSigningIn READ isSigningIn NOTIFY problemsChanged)
    Q_PROPERTY(QString signInError READ signInError NOTIFY problemsChanged)
    // The review of a recovery: "idle", "previewing", "ready", "failed".
    Q_PROPERTY(QString reviewState READ reviewState NOTIFY reviewChanged)
    Q_PROPERTY(QString reviewTitle READ reviewTitle NOTIFY reviewChanged)
    Q_PROPERTY(QString reviewError READ reviewError NOTIFY reviewChanged)
    // [{path, group, toRemote}] with group 0..4 as `reviewGroups` names them.
    Q_PROPERTY(QVariantList reviewChanges READ reviewChanges NOTIFY reviewChanged)
    Q_PROPERTY(QVariantList reviewCounts READ reviewCounts NOTIFY reviewChanged)
    Q_PROPERTY(QStringList reviewGroups READ reviewGroups CONSTANT)
    // The conflicts whose two copies are both still here, newest first:
    // [{name, time, copies: [{path, fileName, filePath, size, modified, side,
    // fromRemote, keepsName}]}], the copy that kept the name first.
    Q_PROPERTY(QVariantList conflicts READ conflicts NOTIFY conflictsChanged)
    Q_PROPERTY(QString conflictError READ conflictError NOTIFY conflictsChanged)
    // A choice is being carried out (the remote's copy replaced).
    Q_PROPERTY(bool isSettlingConflict READ isSettlingConflict NOTIFY conflictsChanged)

public:
    explicit FolderDetailController(QObject *parent = nullptr);
    ~FolderDetailController() override;

    NimbrellApp *app() const { return m_app; }
    void setApp(NimbrellApp *app);
    QString folderId() const;
    void setFolderId(const QString &id);

    std::optional<SyncFolder> folder() const;
    bool exists() const { return folder().has_value(); }
    QVariantMap folderMap() const;

    bool isEditing() const { return m_isEditing; }
    const QString &editName() const { return m_editName; }
    void setEditName(const QString &name);
    const QString &editLocalPath() const { return m_editLocalPath; }
    void setEditLocalPath(const QString &path);
    QVariantList editTargets() const;
    const QList<RemoteTarget> &editTargetList() const { return m_editTargets; }
    int editConflictResolution() const { return int(m_editConflictResolution); }
    void setEditConflictResolution(int index);
    bool excludeGit() const { return m_editFilters.excludeGit; }
    void setExcludeGit(bool on);
    bool excludeHidden() const { return m_editFilters.excludeHidden; }
    void setExcludeHidden(bool on);
    bool excludeNodeModules() const { return m_editFilters.excludeNodeModules; }
    void setExcludeNodeModules(bool on);
    static QStringList conflictLabels();
    bool editPaused() const { return m_editPaused; }
    bool editKeepRemoved() const { return m_editKeepRemoved; }
    void setEditKeepRemoved(bool keep);
    void setEditPaused(bool paused);
    static constexpr int kKeepDaysChoices[] = {7, 30, 90};
    int editKeepDaysIndex() const;
    void setEditKeepDaysIndex(int index);
    static QStringList keepDaysLabels() { return {QStringLiteral("7 days"), QStringLiteral("30 days"), QStringLiteral("90 days")}; }

    // Whether "Create"/"Save" is enabled: a name, a path and at least one target row.
    bool canConfirm() const;
    // A note under the path field about a path that cannot be synced as typed.
    QString pathWarning() const;

    QVariant fileCount() const { return m_statistics ? QVariant(m_statistics->fileCount) : QVariant(); }
    QVariant totalSize() const { return m_statistics ? QVariant(m_statistics->totalBytes) : QVariant(); }
    bool isLoadingStats() const { return m_isLoadingStats; }

    // The editor, from the folder (or empty for a new one).
    Q_INVOKABLE void loadEditState();
    Q_INVOKABLE void startEditing();
    Q_INVOKABLE void cancel();
    // Creates or updates the folder from the editor.
    Q_INVOKABLE void save();
    Q_INVOKABLE void deleteFolder();
    Q_INVOKABLE void syncNow();
    Q_INVOKABLE void setPaused(bool paused);
    Q_INVOKABLE void abortSync();
    // Counts the local directory's files and bytes on a worker thread.
    Q_INVOKABLE void loadFolderStats();

    QVariantList problems() const;
    bool isSigningIn() const { return !m_signIn.isNull(); }
    const QString &signInError() const { return m_signInError; }
    // The action of a problem that Nimbrell takes itself: retry, the three
    // reviews, sign in again, edit folder, open remote. (Show Folder, Choose
    // Folder and View Log are the screen's own.)
    Q_INVOKABLE void runAction(int problem);
    // The lock of a held lock may have gone: problems are read again.
    Q_INVOKABLE void refreshProblems() { Q_EMIT problemsChanged(); }
    // "Choose Folder…": the folder now lives at `path`; it syncs from there.
    Q_INVOKABLE void relocate(const QString &path);

    QString reviewState() const;
    QString reviewTitle() const;
    QString reviewError() const;
    QVariantList reviewChanges() const;
    QVariantList reviewCounts() const;
    static QStringList reviewGroups();
    Q_INVOKABLE void applyReview();
    Q_INVOKABLE void cancelReview();

    QVariantList conflicts() const;
    const QString &conflictError() const { return m_conflictError; }
    bool isSettlingConflict() const { return m_isSettling; }
    // "Keep This": copy 0 (the one that kept the name) or 1 (the renamed one)
    // stays under the original name, the other goes to the trash.
    Q_INVOKABLE void keepConflictCopy(const QString &original, const QString &renamed, int copy);
    // "Keep Both": the renamed copy takes a readable name.
    Q_INVOKABLE void keepBothCopies(const QString &original, const QString &renamed);
    // Conflicts settled in a file manager meanwhile drop out.
    Q_INVOKABLE void recheckConflicts();

    Q_INVOKABLE void addTarget();
    Q_INVOKABLE void removeTarget(int row);
    Q_INVOKABLE void moveTarget(int row, int delta);
    // Typing in a row changes the list without rebuilding the rows.
    Q_INVOKABLE void setTargetRemote(int row, const QString &remoteName);
    Q_INVOKABLE void setTargetPath(int row, const QString &remotePath);

Q_SIGNALS:
    void appChanged();
    void folderIdChanged();
    void folderChanged();
    void isEditingChanged();
    void editChanged();
    void editTargetsChanged();
    void statisticsChanged();
    void problemsChanged();
    void reviewChanged();
    void conflictsChanged();

private:
    void reset();
    void setEditing(bool editing);
    void settleConflict(const QString &original, const QString &renamed, ConflictCopies::Choice choice);

    QPointer<NimbrellApp> m_app;
    QUuid m_folderId;
    bool m_isEditing = false;
    QString m_editName;
    QString m_editLocalPath;
    QList<RemoteTarget> m_editTargets;
    SyncFilterOptions m_editFilters;
    ConflictResolution m_editConflictResolution = ConflictResolution::keepBoth;
    bool m_editPaused = false;
    bool m_editKeepRemoved = false;
    int m_editKeepDays = FolderPreferences::kDefaultKeepDays;
    std::optional<FolderStatistics> m_statistics;
    bool m_isLoadingStats = false;
    QFutureWatcher<FolderStatistics> *m_statsWatcher = nullptr;
    SyncReview *m_review = nullptr;
    QPointer<RcloneJob> m_signIn;
    QString m_signInError;
    QString m_conflictError;
    bool m_isSettling = false;
};
