#include "ui/FolderDetailController.h"

#include "model/UuidString.h"
#include "sync/SyncManager.h"
#include "ui/NavigationState.h"

#include <QtConcurrent/QtConcurrentRun>

FolderDetailController::FolderDetailController(QObject *parent)
    : QObject(parent)
{
}

// The parts are members: they go before the pane's own QObject children.
FolderDetailController::~FolderDetailController()
{
    if (m_stopStats)
        *m_stopStats = true;
}

void FolderDetailController::setApp(NimbrellApp *app)
{
    if (app == m_app)
        return;
    if (m_app) {
        m_app->syncManager()->repository().disconnect(this);
        m_app->syncManager()->conflicts().disconnect(this);
    }
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
                m_conflicts.refresh();
        });
    }
    m_recovery.appChanged();
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
    m_recovery.cancelReview();
    Q_EMIT folderChanged();
    m_conflicts.reset();
    m_editor.reset();
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
        {QStringLiteral("direction"), FolderSelection::directionName(m_app ? m_app->syncManager()->selection(f->id).direction
                                                                            : SyncDirection::twoWay)},
        {QStringLiteral("hasKeptRemoved"), m_app && m_app->syncManager()->preferences().hasKept(f->id)},
        {QStringLiteral("keepDays"), m_app ? m_app->syncManager()->preferences().keepDays(f->id) : 0},
    };
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
    // A walk still under way (of an earlier folder) is not shown, and stops
    // at its next directory: a worker is not kept busy for nothing.
    if (m_statsWatcher) {
        *m_stopStats = true;
        m_statsWatcher->disconnect(this);
        m_statsWatcher = nullptr;
    }
    const std::optional<SyncFolder> f = folder();
    m_statistics.reset();
    m_isLoadingStats = f.has_value();
    Q_EMIT statisticsChanged();
    if (!f)
        return;
    auto *watcher = new QFutureWatcher<FolderStatistics>(this);
    m_statsWatcher = watcher;
    m_stopStats = std::make_shared<std::atomic_bool>(false);
    connect(watcher, &QFutureWatcher<FolderStatistics>::finished, watcher, &QObject::deleteLater);
    connect(watcher, &QFutureWatcher<FolderStatistics>::finished, this, [this, watcher] {
        m_statsWatcher = nullptr;
        m_statistics = watcher->result(); // two figures: the hand-over costs nothing
        m_isLoadingStats = false;
        Q_EMIT statisticsChanged();
    });
    watcher->setFuture(QtConcurrent::run([path = f->localPath, stop = m_stopStats] {
        return FolderStatistics::of(path, stop.get());
    }));
}

void FolderDetailController::setPaused(bool paused)
{
    if (m_app && !m_folderId.isNull())
        m_app->syncManager()->automatic().setPaused(m_folderId, paused);
}
