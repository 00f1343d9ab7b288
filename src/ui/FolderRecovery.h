#pragma once

#include "ui/ReviewChangesModel.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

class FolderDetailController;
class RcloneJob;
class SyncReview;

// What went wrong with a folder's last run, and the way back: the problem
// banners with their actions, signing in again, and the review of a run
// that waits for the user.
class FolderRecovery : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of a folder's pane")
    // [{kind, title, sentence, action, actionText, actionEnabled, location}]
    // per failing target of the last run.
    Q_PROPERTY(QVariantList problems READ problems NOTIFY problemsChanged)
    Q_PROPERTY(bool isSigningIn READ isSigningIn NOTIFY problemsChanged)
    Q_PROPERTY(QString signInError READ signInError NOTIFY problemsChanged)
    // The review: "idle", "previewing", "ready", "failed".
    Q_PROPERTY(QString reviewState READ reviewState NOTIFY reviewChanged)
    Q_PROPERTY(QString reviewTitle READ reviewTitle NOTIFY reviewChanged)
    Q_PROPERTY(QString reviewError READ reviewError NOTIFY reviewChanged)
    // The files of a ready review, with group 0..4 as `reviewGroups` names
    // them, and how many each group has.
    Q_PROPERTY(ReviewChangesModel *reviewChanges READ reviewChanges CONSTANT)
    Q_PROPERTY(QVariantList reviewCounts READ reviewCounts NOTIFY reviewChanged)
    Q_PROPERTY(QStringList reviewGroups READ reviewGroups CONSTANT)

public:
    explicit FolderRecovery(FolderDetailController &pane);

    QVariantList problems() const;
    bool isSigningIn() const { return !m_signIn.isNull(); }
    const QString &signInError() const { return m_signInError; }
    // The action of a problem that Nimbrell takes itself: retry, the three
    // reviews, sign in again, edit folder, open remote. (Show Folder, Choose
    // Folder and View Log are the screen's own.)
    Q_INVOKABLE void runAction(int problem);
    // The lock of a held lock may have gone: problems are read again.
    Q_INVOKABLE void refreshProblems() { emit problemsChanged(); }
    // "Choose Folder…": the folder now lives at `path`; it syncs from there.
    Q_INVOKABLE void relocate(const QString &path);

    QString reviewState() const;
    QString reviewTitle() const;
    QString reviewError() const;
    ReviewChangesModel *reviewChanges() { return &m_changes; }
    QVariantList reviewCounts() const;
    static QStringList reviewGroups();
    Q_INVOKABLE void applyReview();
    Q_INVOKABLE void cancelReview();

    // Another app: a review of the new one's folders.
    void appChanged();

signals:
    void problemsChanged();
    void reviewChanged();

private:
    FolderDetailController &m_pane;
    SyncReview *m_review = nullptr;
    ReviewChangesModel m_changes{this};
    QPointer<RcloneJob> m_signIn;
    QString m_signInError;
};
