#include "ui/FolderEditor.h"

#include "platform/BookmarkService.h"
#include "sync/SyncManager.h"
#include "ui/FolderDetailController.h"
#include "ui/NavigationState.h"
#include "ui/RemoteListModel.h"

#include <QDir>
#include <QFileInfo>

FolderEditor::FolderEditor(FolderDetailController &pane)
    : QObject(&pane)
    , m_pane(pane)
{
    setObjectName(QStringLiteral("folderEditor"));
    m_options.setParent(this);
    m_choices.setParent(this);
    m_choices.setObjectName(QStringLiteral("folderChoices"));
    connect(&m_choices, &FolderChoices::checkedChanged, this, &FolderEditor::changed);
    // What syncs, changed elsewhere (the command line) while the pane shows
    // the folder, shows at once.
    connect(&pane, &FolderDetailController::folderChanged, this, [this] {
        const SyncManager *manager = m_pane.app() ? m_pane.app()->syncManager() : nullptr;
        if (!m_isEditing && manager && !m_pane.id().isNull() && manager->selection(m_pane.id()) != m_choices.selection())
            m_choices.load(m_pane.id(), manager);
    });
}

void FolderEditor::setEditing(bool editing)
{
    if (editing == m_isEditing)
        return;
    m_isEditing = editing;
    emit isEditingChanged();
}

void FolderEditor::setName(const QString &name)
{
    if (name == m_name)
        return;
    m_name = name;
    emit changed();
}

void FolderEditor::setLocalPath(const QString &path)
{
    if (path == m_localPath)
        return;
    m_localPath = path;
    emit changed();
}

QVariantList FolderEditor::targets() const
{
    QVariantList targets;
    for (const RemoteTarget &target : m_targets)
        targets.append(QVariantMap{{QStringLiteral("remoteName"), target.remoteName},
                                   {QStringLiteral("remotePath"), target.remotePath}});
    return targets;
}

bool FolderEditor::canConfirm() const
{
    // The raw rows count: a row with an empty path still enables the button
    // (and is dropped when saving).
    return !m_name.isEmpty() && !m_localPath.isEmpty() && !m_targets.isEmpty() && m_choices.isValid();
}

QString FolderEditor::pathWarning() const
{
    if (m_localPath.isEmpty())
        return {};
    if (!QDir::isAbsolutePath(m_localPath))
        return QStringLiteral("Use a full path that starts with \"/\".");
    const QFileInfo info(m_localPath);
    if (!info.exists())
        return QStringLiteral("This folder does not exist.");
    if (!info.isDir())
        return QStringLiteral("This is a file, not a folder.");
    return {};
}

void FolderEditor::load()
{
    const std::optional<SyncFolder> f = m_pane.folder();
    m_name = f ? f->name : QString();
    m_localPath = f ? f->localPath : QString();
    m_targets = f ? f->remoteTargets : QList<RemoteTarget>{};
    m_options.load(f ? &*f : nullptr, m_pane.app() ? m_pane.app()->syncManager() : nullptr);
    m_choices.setEngine(m_pane.app() ? m_pane.app()->engine() : nullptr);
    m_choices.load(f ? f->id : QUuid(), m_pane.app() ? m_pane.app()->syncManager() : nullptr);
    emit changed();
    emit targetsChanged();
}

void FolderEditor::reset()
{
    setEditing(m_pane.id().isNull());
    load();
}

void FolderEditor::start()
{
    load();
    setEditing(true);
}

void FolderEditor::cancel()
{
    if (m_pane.id().isNull()) {
        if (m_pane.app())
            m_pane.app()->navigation()->clear();
        return;
    }
    setEditing(false);
    load(); // the edit is discarded
}

void FolderEditor::save()
{
    NimbrellApp *app = m_pane.app();
    if (!app)
        return;
    QList<RemoteTarget> validTargets;
    for (const RemoteTarget &target : std::as_const(m_targets)) {
        if (!target.remoteName.isEmpty() && !target.remotePath.isEmpty())
            validTargets.append(target);
    }
    const std::optional<QByteArray> bookmark = BookmarkService::create(m_localPath);
    SyncManager *manager = app->syncManager();

    if (!m_pane.id().isNull()) {
        std::optional<SyncFolder> f = m_pane.folder();
        if (!f)
            return; // it went away meanwhile; the editor stays open
        f->name = m_name;
        f->localPath = m_localPath;
        f->localPathBookmarkData = bookmark;
        f->remoteTargets = validTargets;
        f->filters = m_options.filters();
        f->conflictResolution = m_options.conflictResolution();
        manager->updateFolder(*f);
        m_options.applyTo(f->id, *manager);
        m_choices.applyTo(f->id, *manager);
        setEditing(false);
        return;
    }

    SyncFolder created; // a fresh id, idle, nothing run yet
    created.name = m_name.isEmpty() ? QStringLiteral("Untitled") : m_name;
    created.localPath = m_localPath;
    created.remoteTargets = validTargets;
    created.conflictResolution = m_options.conflictResolution();
    created.localPathBookmarkData = bookmark;
    // A new folder starts with the default exclusions, whatever the switches
    // showed; they apply from the first edit on.
    created.filters = SyncFilterOptions();
    manager->addFolder(created);
    m_options.applyTo(created.id, *manager);
    m_choices.applyTo(created.id, *manager);
    app->navigation()->setSelection(SidebarSelection::syncFolder(created.id));
}

void FolderEditor::addTarget()
{
    NimbrellApp *app = m_pane.app();
    const QList<CloudRemote> &remotes = app ? app->remotes()->remotes() : QList<CloudRemote>{};
    m_targets.append(RemoteTarget{QUuid::createUuid(), remotes.isEmpty() ? QString() : remotes.first().name,
                                  QStringLiteral("/"), false});
    emit targetsChanged();
    emit changed();
}

void FolderEditor::removeTarget(int row)
{
    if (row < 0 || row >= m_targets.size())
        return;
    m_targets.removeAt(row);
    emit targetsChanged();
    emit changed();
}

void FolderEditor::moveTarget(int row, int delta)
{
    const int to = row + delta;
    if (row < 0 || row >= m_targets.size() || to < 0 || to >= m_targets.size())
        return;
    m_targets.swapItemsAt(row, to);
    emit targetsChanged();
}

void FolderEditor::setTargetRemote(int row, const QString &remoteName)
{
    if (row >= 0 && row < m_targets.size())
        m_targets[row].remoteName = remoteName;
}

void FolderEditor::setTargetPath(int row, const QString &remotePath)
{
    if (row >= 0 && row < m_targets.size())
        m_targets[row].remotePath = remotePath;
}
