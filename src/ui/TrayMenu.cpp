#include "ui/TrayMenu.h"

#include "platform/TrayHostWatcher.h"
#include "sync/SyncManager.h"
#include "sync/SyncProblem.h"

#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

#include <cmath>

TrayMenu::TrayMenu(SyncManager &manager, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_menu(std::make_unique<QMenu>())
{
    const auto update = [this] {
        // Progress reports come many times a second; rebuild only when a line changes.
        const QStringList lines = syncingLines(m_manager.folders(), [this](const QUuid &id) { return m_manager.runs().isWaiting(id); })
            + failedLines() + QStringList{conflictLine()} + pauseEntries();
        if (lines != m_shownLines || m_menu->isEmpty())
            rebuild();
    };
    connect(&manager.repository(), &FolderRepository::folderInserted, this, update);
    connect(&manager.repository(), &FolderRepository::folderChanged, this, update);
    connect(&manager.repository(), &FolderRepository::folderRemoved, this, update);
    rebuild();
}

TrayMenu::~TrayMenu() = default;

QStringList TrayMenu::syncingLines(const QList<SyncFolder> &folders, const std::function<bool(const QUuid &)> &isWaiting)
{
    QStringList lines;
    for (const SyncFolder &folder : folders) {
        if (folder.status != SyncStatus::syncing)
            continue;
        const double progress = std::isfinite(folder.progress) ? folder.progress : 0.0;
        const int percent = int(std::trunc(qBound(0.0, progress, 1.0) * 100.0));
        QString line = folder.name;
        if (isWaiting && isWaiting(folder.id)) {
            lines.append(line + QStringLiteral(" — ") + kWaitingText);
            continue;
        }
        const auto index = folder.currentTargetIndex;
        if (index && *index >= 0 && *index < folder.remoteTargets.size())
            line += QStringLiteral(" → ") + folder.remoteTargets.at(*index).remoteName;
        line += QStringLiteral(" — ") + QString::number(percent) + u'%';
        lines.append(line);
    }
    return lines;
}

QStringList TrayMenu::failedLines() const
{
    QStringList lines;
    for (const SyncFolder &folder : m_manager.folders()) {
        if (folder.status == SyncStatus::error)
            lines.append(folder.name + QStringLiteral(" — ") + m_manager.problems(folder.id).value(0).title());
    }
    return lines;
}

QString TrayMenu::conflictLine() const
{
    qsizetype conflicts = 0;
    for (const SyncFolder &folder : m_manager.folders())
        conflicts += m_manager.conflicts().of(folder.id).size();
    if (conflicts == 0)
        return {};
    return conflicts == 1 ? QStringLiteral("1 conflict") : QStringLiteral("%1 conflicts").arg(conflicts);
}

QStringList TrayMenu::pauseEntries() const
{
    QStringList entries;
    for (const SyncFolder &folder : m_manager.folders())
        entries.append((m_manager.automatic().isPaused(folder.id) ? QStringLiteral("paused ") : QStringLiteral("running ")) + folder.name);
    return entries;
}

void TrayMenu::show(TrayHostWatcher *host)
{
    if (!host)
        return;
    // A StatusNotifier tray, or on X11 the older embedded one. Qt decides once
    // per process whether it talks to a StatusNotifier tray, at the first
    // question, so it is asked only once ours says a tray is there.
    const auto look = [this, host] {
        if (m_icon || !host->hasAnswered())
            return;
        if (host->isAvailable()
            || (QGuiApplication::platformName() == u"xcb" && QSystemTrayIcon::isSystemTrayAvailable()))
            showIcon();
    };
    connect(host, &TrayHostWatcher::checked, this, look);
    look();
}

void TrayMenu::showIcon()
{
    // By name, so that the panel draws it in its own colours; where the name
    // is not installed, the application's icon, which reads on light and
    // dark panels alike.
    const QIcon icon = QIcon::fromTheme(QStringLiteral("org.nimbrell.Nimbrell-symbolic"), QGuiApplication::windowIcon());
    m_icon = new QSystemTrayIcon(icon, this);
    m_icon->setToolTip(m_isFinishing ? QStringLiteral("Nimbrell — ") + kFinishingText : QStringLiteral("Nimbrell"));
    m_icon->setContextMenu(m_menu.get());
    connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            Q_EMIT openDashboardRequested();
    });
    m_icon->show();
}

void TrayMenu::setFinishing(bool finishing)
{
    m_isFinishing = finishing;
    if (m_icon)
        m_icon->setToolTip(finishing ? QStringLiteral("Nimbrell — ") + kFinishingText : QStringLiteral("Nimbrell"));
    rebuild();
}

void TrayMenu::rebuild()
{
    const QStringList syncing = syncingLines(m_manager.folders(), [this](const QUuid &id) { return m_manager.runs().isWaiting(id); });
    const QStringList failed = failedLines();
    const QString conflicts = conflictLine();
    m_shownLines = syncing + failed + QStringList{conflicts} + pauseEntries();
    m_menu->clear();
    if (m_isFinishing) {
        m_menu->addAction(kFinishingText)->setEnabled(false);
        m_menu->addSeparator();
    }
    m_menu->addAction(QStringLiteral("Open Dashboard"), this, &TrayMenu::openDashboardRequested);
    m_menu->addSeparator();
    // "&" marks a shortcut in a menu: a name's own is doubled.
    const auto escaped = [](QString text) { return text.replace(u'&', QStringLiteral("&&")); };
    if (!syncing.isEmpty()) {
        // A heading as a disabled item: the tray's D-Bus menu drops a section's text.
        m_menu->addAction(QStringLiteral("Syncing"))->setEnabled(false);
        for (const QString &line : syncing)
            m_menu->addAction(escaped(line))->setEnabled(false);
        m_menu->addSeparator();
    }
    if (!failed.isEmpty()) {
        // A click opens the failed folder, where its fix is offered.
        qsizetype i = 0;
        for (const SyncFolder &folder : m_manager.folders()) {
            if (folder.status != SyncStatus::error || i >= failed.size())
                continue;
            m_menu->addAction(escaped(failed.at(i++)), this,
                              [this, id = folder.id] { Q_EMIT openFolderRequested(id); });
        }
        m_menu->addSeparator();
    }
    if (!conflicts.isEmpty()) {
        // A click opens the first folder with a conflict, where both copies are shown.
        for (const SyncFolder &folder : m_manager.folders()) {
            if (!m_manager.conflicts().of(folder.id).isEmpty()) {
                m_menu->addAction(conflicts, this, [this, id = folder.id] { Q_EMIT openFolderRequested(id); });
                break;
            }
        }
        m_menu->addSeparator();
    }
    if (!m_manager.folders().isEmpty()) {
        // Each folder's pause, as a check mark.
        // One submenu for the menu's whole life: a new one per rebuild would
        // pile up, since clear() leaves submenus alone.
        if (!m_pauseMenu)
            m_pauseMenu = new QMenu(QStringLiteral("Pause Folders"), m_menu.get());
        QMenu *pause = m_pauseMenu;
        pause->clear();
        m_menu->addMenu(pause);
        for (const SyncFolder &folder : m_manager.folders()) {
            QAction *action = pause->addAction(escaped(folder.name));
            action->setCheckable(true);
            action->setChecked(m_manager.automatic().isPaused(folder.id));
            connect(action, &QAction::toggled, this, [this, id = folder.id](bool paused) {
                // After the menu has closed: pausing rebuilds it.
                QMetaObject::invokeMethod(this, [this, id, paused] { m_manager.automatic().setPaused(id, paused); }, Qt::QueuedConnection);
            });
        }
        m_menu->addSeparator();
    }
    m_menu->addAction(QStringLiteral("Settings..."), this, &TrayMenu::settingsRequested);
    m_menu->addAction(QStringLiteral("About Nimbrell"), this, &TrayMenu::aboutRequested);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit Nimbrell"), this, &TrayMenu::quitRequested);
}
