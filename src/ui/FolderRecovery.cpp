#include "ui/FolderRecovery.h"

#include "engine/RcloneJob.h"
#include "engine/RemoteCommands.h"
#include "platform/BookmarkService.h"
#include "sync/SyncManager.h"
#include "sync/SyncReview.h"
#include "ui/FolderDetailController.h"
#include "ui/NavigationState.h"

FolderRecovery::FolderRecovery(FolderDetailController &pane)
    : QObject(&pane)
    , m_pane(pane)
{
    setObjectName(QStringLiteral("folderRecovery"));
    connect(&pane, &FolderDetailController::folderChanged, this, &FolderRecovery::problemsChanged);
}

void FolderRecovery::appChanged()
{
    delete m_review;
    m_review = nullptr;
    m_changes.setChanges({});
    if (NimbrellApp *app = m_pane.app()) {
        m_review = new SyncReview(*app->syncManager(), *app->engine(), this);
        connect(m_review, &SyncReview::stateChanged, this, [this] {
            m_changes.setChanges(m_review->state() == SyncReview::State::ready ? m_review->changes()
                                                                              : QList<BisyncPlan::Change>());
            emit reviewChanged();
        });
    }
}

QVariantList FolderRecovery::problems() const
{
    QVariantList problems;
    if (!m_pane.app())
        return problems;
    for (const SyncProblem &problem : m_pane.app()->syncManager()->problems(m_pane.id())) {
        const bool busy = (problem.kind == SyncProblem::Kind::lockHeld && problem.lockHolder() != 0)
            || (problem.action() == SyncProblem::Action::signInAgain && isSigningIn());
        problems.append(QVariantMap{
            {QStringLiteral("kind"), problem.kindName()},
            {QStringLiteral("title"), problem.title()},
            {QStringLiteral("sentence"), problem.sentence()},
            {QStringLiteral("action"), SyncProblem::actionName(problem.action())},
            {QStringLiteral("actionText"), problem.actionText()},
            {QStringLiteral("actionEnabled"), !busy},
            {QStringLiteral("location"), problem.location},
        });
    }
    return problems;
}

void FolderRecovery::runAction(int index)
{
    NimbrellApp *app = m_pane.app();
    if (!app)
        return;
    const QList<SyncProblem> problems = m_pane.app()->syncManager()->problems(m_pane.id());
    if (index < 0 || index >= problems.size())
        return;
    const SyncProblem &problem = problems.at(index);
    using Action = SyncProblem::Action;
    switch (problem.action()) {
    case Action::retry:
        return m_pane.syncNow();
    case Action::reviewResync:
    case Action::reviewDeletions:
    case Action::reviewChanges: {
        m_review->preview(m_pane.id(), problem.targetId, *SyncReview::kindFor(problem.action()));
        return;
    }
    case Action::signInAgain: {
        if (isSigningIn())
            return;
        m_signInError.clear();
        // rclone opens the browser and waits for the sign-in; the remote is
        // never removed here, whatever the outcome.
        m_signIn = RemoteCommands::reconnectRemote(*app->engine(), problem.remoteName, this, [this](const RcloneStatus &result) {
            m_signIn = nullptr;
            if (!result.ok() && !result.isCancelled())
                m_signInError = QStringLiteral("Sign-in failed: ") + result.error().description;
            emit problemsChanged();
            if (result.ok())
                m_pane.syncNow();
        });
        emit problemsChanged();
        return;
    }
    case Action::editFolder:
        return m_pane.editor()->start();
    case Action::openRemote:
        app->navigation()->showRemote(problem.remoteName);
        return;
    case Action::showFolder:
    case Action::chooseFolder:
    case Action::viewLog:
    case Action::none:
        return;
    }
}

void FolderRecovery::relocate(const QString &path)
{
    std::optional<SyncFolder> f = m_pane.folder();
    if (!f || path.isEmpty())
        return;
    f->localPath = path;
    f->localPathBookmarkData = BookmarkService::create(path);
    m_pane.app()->syncManager()->updateFolder(*f);
    m_pane.app()->syncManager()->automatic().updateWatchers();
    m_pane.editor()->load();
    m_pane.loadFolderStats();
    m_pane.syncNow();
}

QString FolderRecovery::reviewState() const
{
    if (!m_review)
        return QStringLiteral("idle");
    switch (m_review->state()) {
    case SyncReview::State::previewing: return QStringLiteral("previewing");
    case SyncReview::State::ready: return QStringLiteral("ready");
    case SyncReview::State::failed: return QStringLiteral("failed");
    case SyncReview::State::idle:
    case SyncReview::State::applied: break;
    }
    return QStringLiteral("idle");
}

QString FolderRecovery::reviewTitle() const
{
    if (!m_review)
        return {};
    switch (m_review->kind()) {
    case SyncReview::Kind::resync: return QStringLiteral("Review and Resync");
    case SyncReview::Kind::deletions: return QStringLiteral("Review Deletions");
    case SyncReview::Kind::changes: return QStringLiteral("Review Changes");
    }
    return {};
}

QString FolderRecovery::reviewError() const
{
    return m_review ? m_review->error() : QString();
}

QVariantList FolderRecovery::reviewCounts() const
{
    QVariantList counts;
    for (const int count : m_changes.counts())
        counts.append(count);
    return counts;
}

QStringList FolderRecovery::reviewGroups()
{
    return {QStringLiteral("Copied to the remote"), QStringLiteral("Copied to this computer"),
            QStringLiteral("Deleted on the remote"), QStringLiteral("Deleted here"), QStringLiteral("Replaced")};
}

void FolderRecovery::applyReview()
{
    if (m_review)
        m_review->apply();
}

void FolderRecovery::cancelReview()
{
    if (m_review)
        m_review->cancel();
}
