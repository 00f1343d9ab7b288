#include "ui/FolderDetailController.h"
#include "engine/RemoteCommands.h"

#include "model/UuidString.h"
#include "platform/BookmarkService.h"
#include "engine/RcloneEngine.h"
#include "engine/RcloneJob.h"
#include "sync/ConflictCopies.h"
#include "sync/SyncManager.h"
#include "sync/SyncReview.h"
#include "ui/NavigationState.h"
#include "ui/RemoteListModel.h"

#include <QDir>
#include <QFileInfo>
#include <QtConcurrent/QtConcurrentRun>

FolderDetailController::FolderDetailController(QObject *parent)
    : QObject(parent)
{
    connect(this, &FolderDetailController::folderChanged, this, &FolderDetailController::problemsChanged);
}

FolderDetailController::~FolderDetailController() = default;

void FolderDetailController::setApp(NimbrellApp *app)
{
    if (app == m_app)
        return;
    if (m_app)
        m_app->syncManager()->disconnect(this);
    m_app = app;
    if (m_app) {
        SyncManager *manager = m_app->syncManager();
        const auto changedRow = [this](qsizetype row) {
            if (m_app && row < m_app->syncManager()->folders().size() &&
                m_app->syncManager()->folders().at(row).id == m_folderId)
                Q_EMIT folderChanged();
        };
        connect(&manager->repository(), &FolderRepository::folderChanged, this, changedRow);
        connect(&manager->repository(), &FolderRepository::folderInserted, this, changedRow);
        connect(&manager->repository(), &FolderRepository::folderRemoved, this, &FolderDetailController::folderChanged);
        connect(&manager->conflicts(), &OpenConflicts::changed, this, [this](const QUuid &id) {
            if (id == m_folderId)
                Q_EMIT conflictsChanged();
        });
        delete m_review;
        m_review = new SyncReview(*manager, *m_app->engine(), this);
        connect(m_review, &SyncReview::stateChanged, this, &FolderDetailController::reviewChanged);
    }
    Q_EMIT appChanged();
    reset();
}

QString FolderDetailController::folderId() const
{
    return m_folderId.isNull() ? QString() : uuidString(m_folderId);
}

void FolderDetailController::setFolderId(const QString &id)
{
    const QUuid folderId = id.isEmpty() ? QUuid() : QUuid::fromString(id);
    if (folderId == m_folderId)
        return;
    m_folderId = folderId;
    Q_EMIT folderIdChanged();
    reset();
}

// A new folder opens in the editor, an existing one in view mode.
void FolderDetailController::reset()
{
    if (m_review)
        m_review->cancel();
    Q_EMIT folderChanged();
    m_conflictError.clear();
    m_isSettling = false;
    recheckConflicts();
    Q_EMIT conflictsChanged();
    setEditing(m_folderId.isNull());
    loadEditState();
    loadFolderStats();
}

std::optional<SyncFolder> FolderDetailController::folder() const
{
    if (!m_app || m_folderId.isNull())
        return std::nullopt;
    return m_app->syncManager()->folder(m_folderId);
}

QVariantMap FolderDetailController::folderMap() const
{
    const std::optional<SyncFolder> f = folder();
    if (!f)
        return {};
    QVariantList targets;
    for (const RemoteTarget &target : f->remoteTargets)
        targets.append(QVariantMap{{QStringLiteral("remoteName"), target.remoteName},
                                   {QStringLiteral("remotePath"), target.remotePath}});
    const auto optional = [](const std::optional<QString> &text) { return text ? QVariant(*text) : QVariant(); };
    return {
        {QStringLiteral("name"), f->name},
        {QStringLiteral("localPath"), f->localPath},
        {QStringLiteral("status"), rawValue(f->status)},
        {QStringLiteral("progress"), f->progress},
        {QStringLiteral("currentTargetIndex"), f->currentTargetIndex ? QVariant(int(*f->currentTargetIndex)) : QVariant()},
        {QStringLiteral("lastSync"), f->lastSync ? QVariant(*f->lastSync) : QVariant()},
        {QStringLiteral("transferredSize"), optional(f->transferredSize)},
        {QStringLiteral("transferredFiles"), optional(f->transferredFiles)},
        {QStringLiteral("transferSpeed"), optional(f->transferSpeed)},
        {QStringLiteral("lastError"), optional(f->lastError)},
        {QStringLiteral("targets"), targets},
        {QStringLiteral("isWaiting"), m_app && m_app->syncManager()->runs().isWaiting(f->id)},
        {QStringLiteral("paused"), m_app && m_app->syncManager()->automatic().isPaused(f->id)},
        {QStringLiteral("hasKeptRemoved"), m_app && m_app->syncManager()->preferences().hasKept(f->id)},
        {QStringLiteral("keepDays"), m_app ? m_app->syncManager()->preferences().keepDays(f->id) : 0},
    };
}

void FolderDetailController::setEditing(bool editing)
{
    if (editing == m_isEditing)
        return;
    m_isEditing = editing;
    Q_EMIT isEditingChanged();
}

void FolderDetailController::setEditName(const QString &name)
{
    if (name == m_editName)
        return;
    m_editName = name;
    Q_EMIT editChanged();
}

void FolderDetailController::setEditLocalPath(const QString &path)
{
    if (path == m_editLocalPath)
        return;
    m_editLocalPath = path;
    Q_EMIT editChanged();
}

QVariantList FolderDetailController::editTargets() const
{
    QVariantList targets;
    for (const RemoteTarget &target : m_editTargets)
        targets.append(QVariantMap{{QStringLiteral("remoteName"), target.remoteName},
                                   {QStringLiteral("remotePath"), target.remotePath}});
    return targets;
}

void FolderDetailController::setEditConflictResolution(int index)
{
    if (index < 0 || index >= int(allConflictResolutions.size()) || allConflictResolutions[index] == m_editConflictResolution)
        return;
    m_editConflictResolution = allConflictResolutions[index];
    Q_EMIT editChanged();
}

void FolderDetailController::setExcludeGit(bool on)
{
    m_editFilters.excludeGit = on;
    Q_EMIT editChanged();
}

void FolderDetailController::setExcludeHidden(bool on)
{
    m_editFilters.excludeHidden = on;
    Q_EMIT editChanged();
}

void FolderDetailController::setExcludeNodeModules(bool on)
{
    m_editFilters.excludeNodeModules = on;
    Q_EMIT editChanged();
}

QStringList FolderDetailController::conflictLabels()
{
    QStringList labels;
    for (const ConflictResolution resolution : allConflictResolutions)
        labels.append(label(resolution));
    return labels;
}

bool FolderDetailController::canConfirm() const
{
    // The raw rows count: a row with an empty path still enables the button
    // (and is dropped when saving).
    return !m_editName.isEmpty() && !m_editLocalPath.isEmpty() && !m_editTargets.isEmpty();
}

QString FolderDetailController::pathWarning() const
{
    if (m_editLocalPath.isEmpty())
        return {};
    if (!QDir::isAbsolutePath(m_editLocalPath))
        return QStringLiteral("Use a full path that starts with \"/\".");
    const QFileInfo info(m_editLocalPath);
    if (!info.exists())
        return QStringLiteral("This folder does not exist.");
    if (!info.isDir())
        return QStringLiteral("This is a file, not a folder.");
    return {};
}

void FolderDetailController::loadEditState()
{
    const std::optional<SyncFolder> f = folder();
    m_editName = f ? f->name : QString();
    m_editLocalPath = f ? f->localPath : QString();
    m_editTargets = f ? f->remoteTargets : QList<RemoteTarget>{};
    m_editFilters = f ? f->filters : SyncFilterOptions();
    m_editConflictResolution = f ? f->conflictResolution : ConflictResolution::keepBoth;
    m_editPaused = f && m_app && m_app->syncManager()->automatic().isPaused(f->id);
    m_editKeepRemoved = f && m_app && m_app->syncManager()->preferences().keepsRemoved(f->id);
    m_editKeepDays = f && m_app ? m_app->syncManager()->preferences().keepDays(f->id) : FolderPreferences::kDefaultKeepDays;
    Q_EMIT editChanged();
    Q_EMIT editTargetsChanged();
}

void FolderDetailController::startEditing()
{
    loadEditState();
    setEditing(true);
}

void FolderDetailController::cancel()
{
    if (m_folderId.isNull()) {
        if (m_app)
            m_app->navigation()->clear();
        return;
    }
    setEditing(false);
    loadEditState(); // the edit is discarded
}

void FolderDetailController::save()
{
    if (!m_app)
        return;
    QList<RemoteTarget> validTargets;
    for (const RemoteTarget &target : std::as_const(m_editTargets)) {
        if (!target.remoteName.isEmpty() && !target.remotePath.isEmpty())
            validTargets.append(target);
    }
    const std::optional<QByteArray> bookmark = BookmarkService::create(m_editLocalPath);
    SyncManager *manager = m_app->syncManager();

    if (!m_folderId.isNull()) {
        std::optional<SyncFolder> f = folder();
        if (!f)
            return; // it went away meanwhile; the editor stays open
        f->name = m_editName;
        f->localPath = m_editLocalPath;
        f->localPathBookmarkData = bookmark;
        f->remoteTargets = validTargets;
        f->filters = m_editFilters;
        f->conflictResolution = m_editConflictResolution;
        manager->updateFolder(*f);
        manager->automatic().setPaused(f->id, m_editPaused);
        manager->preferences().setKeepsRemoved(f->id, m_editKeepRemoved);
        manager->preferences().setKeepDays(f->id, m_editKeepDays);
        setEditing(false);
        return;
    }

    SyncFolder created; // a fresh id, idle, nothing run yet
    created.name = m_editName.isEmpty() ? QStringLiteral("Untitled") : m_editName;
    created.localPath = m_editLocalPath;
    created.remoteTargets = validTargets;
    created.conflictResolution = m_editConflictResolution;
    created.localPathBookmarkData = bookmark;
    // A new folder starts with the default exclusions, whatever the switches
    // showed; they apply from the first edit on.
    created.filters = SyncFilterOptions();
    manager->addFolder(created);
    manager->automatic().setPaused(created.id, m_editPaused);
    manager->preferences().setKeepsRemoved(created.id, m_editKeepRemoved);
    manager->preferences().setKeepDays(created.id, m_editKeepDays);
    m_app->navigation()->setSelection(SidebarSelection::syncFolder(created.id));
}

void FolderDetailController::deleteFolder()
{
    if (!m_app || m_folderId.isNull())
        return;
    m_app->syncManager()->deleteFolder(m_folderId);
    m_app->navigation()->clear();
}

void FolderDetailController::syncNow()
{
    if (m_app && !m_folderId.isNull())
        m_app->syncManager()->syncFolder(m_folderId);
}

void FolderDetailController::abortSync()
{
    if (m_app && !m_folderId.isNull())
        m_app->syncManager()->cancelSync(m_folderId);
}

void FolderDetailController::loadFolderStats()
{
    const std::optional<SyncFolder> f = folder();
    m_statistics.reset();
    if (!f) {
        m_isLoadingStats = false;
        Q_EMIT statisticsChanged();
        return;
    }
    m_isLoadingStats = true;
    Q_EMIT statisticsChanged();
    // A walk still under way for an earlier folder is left to finish; only the
    // latest one is shown.
    if (m_statsWatcher)
        m_statsWatcher->disconnect(this);
    auto *watcher = new QFutureWatcher<FolderStatistics>(this);
    m_statsWatcher = watcher;
    connect(watcher, &QFutureWatcher<FolderStatistics>::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (watcher != m_statsWatcher)
            return;
        m_statsWatcher = nullptr;
        m_statistics = watcher->result();
        m_isLoadingStats = false;
        Q_EMIT statisticsChanged();
    });
    watcher->setFuture(QtConcurrent::run(&FolderStatistics::of, f->localPath));
}

void FolderDetailController::addTarget()
{
    const QList<CloudRemote> &remotes = m_app ? m_app->remotes()->remotes() : QList<CloudRemote>{};
    m_editTargets.append(RemoteTarget{QUuid::createUuid(), remotes.isEmpty() ? QString() : remotes.first().name,
                                      QStringLiteral("/"), false});
    Q_EMIT editTargetsChanged();
    Q_EMIT editChanged();
}

void FolderDetailController::removeTarget(int row)
{
    if (row < 0 || row >= m_editTargets.size())
        return;
    m_editTargets.removeAt(row);
    Q_EMIT editTargetsChanged();
    Q_EMIT editChanged();
}

void FolderDetailController::moveTarget(int row, int delta)
{
    const int to = row + delta;
    if (row < 0 || row >= m_editTargets.size() || to < 0 || to >= m_editTargets.size())
        return;
    m_editTargets.swapItemsAt(row, to);
    Q_EMIT editTargetsChanged();
}

void FolderDetailController::setTargetRemote(int row, const QString &remoteName)
{
    if (row >= 0 && row < m_editTargets.size())
        m_editTargets[row].remoteName = remoteName;
}

void FolderDetailController::setTargetPath(int row, const QString &remotePath)
{
    if (row >= 0 && row < m_editTargets.size())
        m_editTargets[row].remotePath = remotePath;
}

QVariantList FolderDetailController::problems() const
{
    QVariantList problems;
    if (!m_app)
        return problems;
    for (const SyncProblem &problem : m_app->syncManager()->problems(m_folderId)) {
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

void FolderDetailController::runAction(int index)
{
    if (!m_app)
        return;
    const QList<SyncProblem> problems = m_app->syncManager()->problems(m_folderId);
    if (index < 0 || index >= problems.size())
        return;
    const SyncProblem &problem = problems.at(index);
    using Action = SyncProblem::Action;
    switch (problem.action()) {
    case Action::retry:
        return syncNow();
    case Action::reviewResync:
    case Action::reviewDeletions:
    case Action::reviewChanges: {
        m_review->preview(m_folderId, problem.targetId, *SyncReview::kindFor(problem.action()));
        return;
    }
    case Action::signInAgain: {
        if (isSigningIn())
            return;
        m_signInError.clear();
        // rclone opens the browser and waits for the sign-in; the remote is
        // never removed here, whatever the outcome.
        m_signIn = RemoteCommands::reconnectRemote(*m_app->engine(), problem.remoteName, this, [this](const RcloneStatus &result) {
            m_signIn = nullptr;
            if (!result.ok() && !result.isCancelled())
                m_signInError = QStringLiteral("Sign-in failed: ") + result.error().description;
            Q_EMIT problemsChanged();
            if (result.ok())
                syncNow();
        });
        Q_EMIT problemsChanged();
        return;
    }
    case Action::editFolder:
        return startEditing();
    case Action::openRemote:
        m_app->navigation()->showRemote(problem.remoteName);
        return;
    case Action::showFolder:
    case Action::chooseFolder:
    case Action::viewLog:
    case Action::none:
        return;
    }
}

void FolderDetailController::relocate(const QString &path)
{
    std::optional<SyncFolder> f = folder();
    if (!f || path.isEmpty())
        return;
    f->localPath = path;
    f->localPathBookmarkData = BookmarkService::create(path);
    m_app->syncManager()->updateFolder(*f);
    m_app->syncManager()->automatic().updateWatchers();
    loadEditState();
    loadFolderStats();
    syncNow();
}

QString FolderDetailController::reviewState() const
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

QString FolderDetailController::reviewTitle() const
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

QString FolderDetailController::reviewError() const
{
    return m_review ? m_review->error() : QString();
}

QVariantList FolderDetailController::reviewChanges() const
{
    QVariantList changes;
    if (!m_review || m_review->state() != SyncReview::State::ready)
        return changes;
    changes.reserve(m_review->changes().size());
    for (const BisyncPlan::Change &change : m_review->changes())
        changes.append(QVariantMap{{QStringLiteral("path"), change.path},
                                   {QStringLiteral("group"), int(change.group)},
                                   {QStringLiteral("toRemote"), change.toRemote}});
    return changes;
}

QVariantList FolderDetailController::reviewCounts() const
{
    QVariantList counts(reviewGroups().size(), 0);
    if (m_review && m_review->state() == SyncReview::State::ready) {
        for (const BisyncPlan::Change &change : m_review->changes())
            counts[int(change.group)] = counts.at(int(change.group)).toInt() + 1;
    }
    return counts;
}

QStringList FolderDetailController::reviewGroups()
{
    return {QStringLiteral("Copied to the remote"), QStringLiteral("Copied to this computer"),
            QStringLiteral("Deleted on the remote"), QStringLiteral("Deleted here"), QStringLiteral("Replaced")};
}

void FolderDetailController::applyReview()
{
    if (m_review)
        m_review->apply();
}

void FolderDetailController::cancelReview()
{
    if (m_review)
        m_review->cancel();
}

QVariantList FolderDetailController::conflicts() const
{
    const std::optional<SyncFolder> f = folder();
    if (!f)
        return {};
    QVariantList conflicts;
    for (const ActivityRecord &record : m_app->syncManager()->conflicts().of(f->id)) {
        const ConflictCopies copies(f->localPath, record);
        QVariantList both;
        for (const ConflictCopies::Copy *copy : {&copies.original(), &copies.renamed()}) {
            both.append(QVariantMap{
                {QStringLiteral("path"), copy->path},
                {QStringLiteral("fileName"), copy->path.section(u'/', -1)},
                {QStringLiteral("filePath"), QDir(f->localPath).filePath(copy->path)},
                {QStringLiteral("size"), copy->size},
                {QStringLiteral("modified"), copy->modified},
                {QStringLiteral("side"), copy->fromRemote ? record.target : QStringLiteral("this computer")},
                {QStringLiteral("fromRemote"), copy->fromRemote},
                {QStringLiteral("keepsName"), copy == &copies.original()},
            });
        }
        conflicts.append(QVariantMap{{QStringLiteral("name"), record.path},
                                     {QStringLiteral("renamed"), record.renamed},
                                     {QStringLiteral("time"), record.time},
                                     {QStringLiteral("copies"), both}});
    }
    return conflicts;
}

void FolderDetailController::keepConflictCopy(const QString &original, const QString &renamed, int copy)
{
    settleConflict(original, renamed, copy == 1 ? ConflictCopies::Choice::keepRenamed : ConflictCopies::Choice::keepOriginal);
}

void FolderDetailController::keepBothCopies(const QString &original, const QString &renamed)
{
    settleConflict(original, renamed, ConflictCopies::Choice::keepBoth);
}

void FolderDetailController::settleConflict(const QString &original, const QString &renamed, ConflictCopies::Choice choice)
{
    if (!m_app || m_folderId.isNull() || m_isSettling)
        return;
    m_isSettling = true;
    m_conflictError.clear();
    Q_EMIT conflictsChanged();
    m_app->syncManager()->conflicts().settle(m_folderId, {original, renamed}, choice, this, [this](const QString &error) {
        m_isSettling = false;
        m_conflictError = error;
        Q_EMIT conflictsChanged();
    });
}

void FolderDetailController::setEditPaused(bool paused)
{
    if (paused == m_editPaused)
        return;
    m_editPaused = paused;
    Q_EMIT editChanged();
}

void FolderDetailController::setEditKeepRemoved(bool keep)
{
    if (keep == m_editKeepRemoved)
        return;
    m_editKeepRemoved = keep;
    Q_EMIT editChanged();
}

int FolderDetailController::editKeepDaysIndex() const
{
    const auto *found = std::find(std::begin(kKeepDaysChoices), std::end(kKeepDaysChoices), m_editKeepDays);
    // A number of days set by hand shows as the nearest longer choice.
    if (found == std::end(kKeepDaysChoices))
        found = std::lower_bound(std::begin(kKeepDaysChoices), std::prev(std::end(kKeepDaysChoices)), m_editKeepDays);
    return int(found - std::begin(kKeepDaysChoices));
}

void FolderDetailController::setEditKeepDaysIndex(int index)
{
    if (index < 0 || index >= int(std::size(kKeepDaysChoices)) || kKeepDaysChoices[index] == m_editKeepDays)
        return;
    m_editKeepDays = kKeepDaysChoices[index];
    Q_EMIT editChanged();
}

void FolderDetailController::setPaused(bool paused)
{
    if (m_app && !m_folderId.isNull())
        m_app->syncManager()->automatic().setPaused(m_folderId, paused);
}

void FolderDetailController::recheckConflicts()
{
    if (m_app && !m_folderId.isNull())
        m_app->syncManager()->conflicts().recheck(m_folderId);
}
