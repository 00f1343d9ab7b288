#pragma once

#include "model/SyncFolder.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>

class QMenu;
class QSystemTrayIcon;
class SyncManager;
class TrayHostWatcher;

// The tray icon and its menu, rebuilt whenever the folders or their runs change.
class TrayMenu final : public QObject
{
    Q_OBJECT

public:
    explicit TrayMenu(SyncManager &manager, QObject *parent = nullptr);
    ~TrayMenu() override;

    static inline const QString kWaitingText = QStringLiteral("Waiting for another sync to finish…");
    static inline const QString kFinishingText = QStringLiteral("Finishing syncs…");

    // One line per syncing folder: "Docs — 42%", or with its current target
    // "Docs → gdrive — 42%", or "Docs — Waiting for another sync to finish…".
    // "Documents — Stopped before deleting files": a line per failed folder.
    QStringList failedLines() const;
    // "2 conflicts" over all folders; empty without any.
    QString conflictLine() const;
    // Each folder's name with whether it is paused, for the "Pause Folders" menu.
    QStringList pauseEntries() const;
    static QStringList syncingLines(const QList<SyncFolder> &folders,
                                    const std::function<bool(const QUuid &)> &isWaiting = {});

    QMenu *menu() const { return m_menu.get(); }
    // Shows the icon once the desktop has a tray, now or when its panel
    // starts later. Without a watcher (tests), never.
    void show(TrayHostWatcher *host);
    bool isShown() const { return m_icon != nullptr; }
    // The program is quitting and waits for its syncs to stop.
    void setFinishing(bool finishing);

Q_SIGNALS:
    void openDashboardRequested();
    void openFolderRequested(const QUuid &id);
    void settingsRequested();
    void aboutRequested();
    void quitRequested();

private:
    void rebuild();
    void showIcon();

    SyncManager &m_manager;
    std::unique_ptr<QMenu> m_menu;
    QMenu *m_pauseMenu = nullptr; // a child of m_menu
    QSystemTrayIcon *m_icon = nullptr;
    QStringList m_shownLines;
    bool m_isFinishing = false;
};
