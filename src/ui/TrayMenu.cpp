#include "ui/TrayMenu.h"

#include "ui/IconTable.h"
#include "sync/SyncManager.h"
#include "sync/SyncProblem.h"

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
        const QStringList lines = syncingLines(m_manager.folders(), [this](const QUuid &id) { return m_manager.isWaiting(id); })
            + failedLines();
        if (lines != m_shownLines || m_menu->isEmpty())
            rebuild();
    };
    connect(&manager, &SyncManager::folderInserted, this, update);
    connect(&manager, &SyncManager::folderChanged, this, update);
    connect(&manager, &SyncManager::folderRemoved, this, update);
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

void TrayMenu::show()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return; // the main window is the way in
    if (!m_icon) {
        m_icon = new QSystemTrayIcon(QIcon(iconResource(u"arrow.triangle.2.circlepath.icloud.fill")), this);
        m_icon->setToolTip(QStringLiteral("Nimbrell"));
        m_icon->setContextMenu(m_menu.get());
        connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger)
                Q_EMIT openDashboardRequested();
        });
    }
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
    const QStringList syncing = syncingLines(m_manager.folders(), [this](const QUuid &id) { return m_manager.isWaiting(id); });
    const QStringList failed = failedLines();
    m_shownLines = syncing + failed;
    m_menu->clear();
    if (m_isFinishing) {
        m_menu->addAction(kFinishingText)->setEnabled(false);
        m_menu->addSeparator();
    }
    m_menu->addAction(QStringLiteral("Open Dashboard"), this, &TrayMenu::openDashboardRequested);
    m_menu->addSeparator();
    if (!syncing.isEmpty()) {
        m_menu->addSection(QStringLiteral("Syncing"));
        for (const QString &line : syncing)
            m_menu->addAction(line)->setEnabled(false);
        m_menu->addSeparator();
    }
    if (!failed.isEmpty()) {
        // A click opens the failed folder, where its fix is offered.
        qsizetype i = 0;
        for (const SyncFolder &folder : m_manager.folders()) {
            if (folder.status != SyncStatus::error || i >= failed.size())
                continue;
            QString text = failed.at(i++);
            m_menu->addAction(text.replace(u'&', QStringLiteral("&&")), this,
                              [this, id = folder.id] { Q_EMIT openFolderRequested(id); });
        }
        m_menu->addSeparator();
    }
    m_menu->addAction(QStringLiteral("Settings..."), this, &TrayMenu::settingsRequested);
    m_menu->addAction(QStringLiteral("About Nimbrell"), this, &TrayMenu::aboutRequested);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Quit Nimbrell"), this, &TrayMenu::quitRequested);
}
