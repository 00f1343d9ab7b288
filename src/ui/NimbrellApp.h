#pragma once

#include "sync/SyncManager.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QtQml/qqmlregistration.h>

#include <memory>

class ActivityLog;
class BatteryMonitor;
class MeteredNetworkMonitor;
class AppTheme;
class DesktopNotifier;
class FileEventService;
class FolderListModel;
class Format;
class LoginItemService;
class NavigationState;
class QQmlEngine;
class RcloneEngine;
class RemoteConfig;
class RemoteListModel;
class SettingsController;
class SettingsStore;
class SyncService;
class TrayHostWatcher;
class TrayMenu;

// What the application runs on; main() provides the real services, tests
// and the screenshot tool their own.
struct AppServices
{
    SettingsStore &settings;
    RcloneEngine &engine;
    FileEventService &fileEvents;
    LoginItemService &loginItem;
    int concurrentSyncs = defaultConcurrentSyncs();
    // Desktop notifications of failures, recoveries and conflicts; none
    // when null.
    DesktopNotifier *notifier = nullptr;
    // Tells when the desktop has a tray for the icon; no icon when null.
    TrayHostWatcher *trayHost = nullptr;
    // Where runs write what they changed; nowhere when null.
    ActivityLog *activity = nullptr;
    // Whether the network is metered and the computer on battery; never
    // when null.
    MeteredNetworkMonitor *network = nullptr;
    BatteryMonitor *battery = nullptr;
};

// The application: the one sync manager and navigation state, the models the
// screens share, the windows by identifier ("main", "about", "settings") and
// the tray menu. Every window gets this object as its `app` property.
class NimbrellApp final : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by main()")
    Q_MOC_INCLUDE("sync/SyncManager.h")
    Q_MOC_INCLUDE("ui/AppTheme.h")
    Q_MOC_INCLUDE("ui/FolderListModel.h")
    Q_MOC_INCLUDE("ui/Format.h")
    Q_MOC_INCLUDE("ui/NavigationState.h")
    Q_MOC_INCLUDE("ui/RemoteListModel.h")
    Q_MOC_INCLUDE("ui/SettingsController.h")
    Q_PROPERTY(SyncManager *syncManager READ syncManager CONSTANT)
    Q_PROPERTY(NavigationState *navigation READ navigation CONSTANT)
    Q_PROPERTY(FolderListModel *folders READ folders CONSTANT)
    Q_PROPERTY(RemoteListModel *remotes READ remotes CONSTANT)
    Q_PROPERTY(SettingsController *settings READ settings CONSTANT)
    Q_PROPERTY(Format *format READ format CONSTANT)
    Q_PROPERTY(AppTheme *theme READ theme CONSTANT)
    // Quit was asked for and the program waits for its syncs to stop.
    Q_PROPERTY(bool isQuitting READ isQuitting NOTIFY isQuittingChanged)
    // NetworkManager and UPower answer: the settings that depend on them can be used.
    Q_PROPERTY(bool canTellMetered READ canTellMetered NOTIFY conditionSourcesChanged)
    Q_PROPERTY(bool canTellBattery READ canTellBattery NOTIFY conditionSourcesChanged)

public:
    explicit NimbrellApp(const AppServices &services, QObject *parent = nullptr);
    ~NimbrellApp() override;

    SyncManager *syncManager() const { return m_syncManager.get(); }
    SyncService *service() const { return m_service; }
    RcloneEngine *engine() const { return &m_engine; }
    // Making and changing remotes; rclone's list of backends is read once.
    RemoteConfig *remoteConfig() const { return m_remoteConfig; }
    NavigationState *navigation() const { return m_navigation; }
    FolderListModel *folders() const { return m_folders; }
    RemoteListModel *remotes() const { return m_remotes; }
    SettingsController *settings() const { return m_settings; }
    Format *format() const { return m_format; }
    AppTheme *theme() const { return m_theme; }
    TrayMenu *trayMenu() const { return m_tray; }
    QQmlEngine *qmlEngine() const;

    // Opens the window with this identifier, creating it the first time and
    // raising it every time after.
    Q_INVOKABLE QQuickWindow *openWindow(const QString &id);
    QQuickWindow *window(const QString &id) const { return m_windows.value(id); }

    // "Open Dashboard" of the tray: the dashboard in the main window, in front.
    Q_INVOKABLE void openDashboard();
    // A folder's pane in the main window, in front (a notification's or a
    // tray line's click).
    void openFolder(const QUuid &id);
    // The sidebar's Up and Down keys: the row `step` rows away, in the
    // sidebar's order (dashboard, folders, remotes), stopping at either end.
    Q_INVOKABLE void selectAdjacent(int step);
    // Pause or Resume from the sidebar's menu.
    Q_INVOKABLE void setFolderPaused(const QString &id, bool paused);
    // The confirmed deletion of a folder; an open detail of it closes.
    Q_INVOKABLE void deleteFolder(const QString &id);
    // What the delete confirmation says of the folder: the files its runs
    // kept on this computer stay where they are, and it says where.
    Q_INVOKABLE QString deleteMessage(const QString &id) const;
    // The one way out (menus, tray, signals, the command line): every rclone
    // is asked once to stop, the event loop runs on until all have exited,
    // and the program ends with status 0.
    Q_INVOKABLE void quit();
    bool isQuitting() const { return m_isQuitting; }
    bool canTellMetered() const;
    bool canTellBattery() const;
    // Replaces the clipboard's content with plain text.
    Q_INVOKABLE void copyToClipboard(const QString &text);
    // Opens a file or a folder as the desktop would on a double-click.
    Q_INVOKABLE void openPath(const QString &path);
    // The file manager shows the file selected in its folder; without one
    // that can, the folder is opened.
    Q_INVOKABLE void showInFolder(const QString &path);

    // Shows the main window and the tray; once the window is on screen the
    // remotes are listed (rclone's start-up would only slow down the window's).
    void start();

Q_SIGNALS:
    // The main window has been drawn for the first time.
    void mainWindowShown();
    void isQuittingChanged();
    void conditionSourcesChanged();

private:
    void windowVisibilityChanged();
    RcloneEngine &m_engine;
    std::unique_ptr<QQmlEngine> m_qml;
    std::unique_ptr<SyncManager> m_syncManager;
    SyncService *m_service;
    NavigationState *m_navigation;
    FolderListModel *m_folders;
    RemoteListModel *m_remotes;
    RemoteConfig *m_remoteConfig;
    SettingsController *m_settings;
    Format *m_format;
    AppTheme *m_theme;
    TrayMenu *m_tray;
    TrayHostWatcher *m_trayHost;
    QPointer<MeteredNetworkMonitor> m_network;
    QPointer<BatteryMonitor> m_battery;
    QHash<QString, QPointer<QQuickWindow>> m_windows;
    bool m_isQuitting = false;
};
