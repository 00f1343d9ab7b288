#pragma once

#include "model/SyncFolder.h"

#include <QObject>
#include <QStringList>

#include <memory>

class QMenu;
class QSystemTrayIcon;
class SyncManager;

// The tray icon and its menu, rebuilt whenever the folders or their runs change.
class TrayMenu final : public QObject
{
    Q_OBJECT

public:
    explicit TrayMenu(SyncManager &manager, QObject *parent = nullptr);
    ~TrayMenu() override;

    // One line per syncing folder: "Docs — 42%", or with its current target
    // "Docs → gdrive — 42%".
    static QStringList syncingLines(const QList<SyncFolder> &folders);

    QMenu *menu() const { return m_menu.get(); }
    void show();

Q_SIGNALS:
    void openDashboardRequested();
    void settingsRequested();
    void aboutRequested();
    void quitRequested();

private:
    void rebuild();

    SyncManager &m_manager;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_icon = nullptr;
    QStringList m_shownLines;
};
