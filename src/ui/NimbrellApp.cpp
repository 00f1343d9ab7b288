#include "ui/NimbrellApp.h"

#include "engine/RcloneEngine.h"
#include "engine/RemoteConfig.h"
#include "model/UuidString.h"
#include "platform/AppLogger.h"
#include "platform/DesktopNotifier.h"
#include "platform/FileManager.h"
#include "platform/PowerAndNetwork.h"
#include "sync/ProblemNotifier.h"
#include "sync/RemovedFiles.h"
#include "sync/SyncManager.h"
#include "sync/SyncService.h"
#include "ui/AppTheme.h"
#include "ui/FolderListModel.h"
#include "ui/Format.h"
#include "ui/IconImageProvider.h"
#include "ui/NavigationState.h"
#include "ui/RemoteListModel.h"
#include "ui/SettingsController.h"
#include "ui/TrayMenu.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>

#include <algorithm>

namespace {
// The QML file of each window identifier.
QString windowFile(const QString &id)
{
    if (id == u"main")
        return QStringLiteral("MainWindow.qml");
    if (id == u"about")
        return QStringLiteral("AboutWindow.qml");
    if (id == u"settings")
        return QStringLiteral("SettingsWindow.qml");
    return {};
}
} // namespace

NimbrellApp::NimbrellApp(const AppServices &services, QObject *parent)
    : QObject(parent)
    , m_engine(services.engine)
    , m_qml(std::make_unique<QQmlEngine>())
    , m_syncManager(std::make_unique<SyncManager>(SyncEnvironment{services.settings, services.engine, services.fileEvents, {}, &QDateTime::currentDateTimeUtc, services.concurrentSyncs, true, services.activity}))
    , m_service(new SyncService(*m_syncManager, services.engine, SyncService::Mode::window, this))
    , m_navigation(new NavigationState(this))
    , m_folders(new FolderListModel(*m_syncManager, this))
    , m_remotes(new RemoteListModel(services.engine, this))
    , m_remoteConfig(new RemoteConfig(services.engine, this))
    , m_settings(new SettingsController(services.loginItem, services.engine, services.settings, this))
    , m_format(new Format(this))
    , m_theme(new AppTheme(this))
    , m_tray(new TrayMenu(*m_syncManager, this))
    , m_trayHost(services.trayHost)
    , m_network(services.network)
    , m_battery(services.battery)
{
    m_syncManager->automatic().followConditions(services.network, services.battery);
    if (services.network)
        connect(services.network, &MeteredNetworkMonitor::changed, this, &NimbrellApp::conditionSourcesChanged);
    if (services.battery)
        connect(services.battery, &BatteryMonitor::changed, this, &NimbrellApp::conditionSourcesChanged);
    m_qml->addImageProvider(QStringLiteral("icon"), new IconImageProvider);
    connect(m_qml.get(), &QQmlEngine::quit, this, &NimbrellApp::quit);
    connect(m_tray, &TrayMenu::openDashboardRequested, this, &NimbrellApp::openDashboard);
    connect(m_tray, &TrayMenu::settingsRequested, this, [this] { openWindow(QStringLiteral("settings")); });
    connect(m_tray, &TrayMenu::aboutRequested, this, [this] { openWindow(QStringLiteral("about")); });
    connect(m_tray, &TrayMenu::quitRequested, this, &NimbrellApp::quit);
    connect(m_service, &SyncService::quitRequested, this, &NimbrellApp::quit);
    connect(m_service, &SyncService::remotesChanged, m_remotes, &RemoteListModel::reload);
    connect(m_tray, &TrayMenu::openFolderRequested, this, &NimbrellApp::openFolder);
    if (services.notifier) {
        connect(services.notifier, &DesktopNotifier::activated, this,
                [this](const QString &key) { openFolder(QUuid::fromString(key)); });
        new ProblemNotifier(*m_syncManager, services.settings, *services.notifier, this);
    }
}

bool NimbrellApp::canTellMetered() const
{
    return m_network && m_network->isAvailable();
}

bool NimbrellApp::canTellBattery() const
{
    return m_battery && m_battery->isAvailable();
}

void NimbrellApp::openFolder(const QUuid &id)
{
    if (m_syncManager->folder(id))
        m_navigation->setSelection(SidebarSelection::syncFolder(id));
    openWindow(QStringLiteral("main"));
}

NimbrellApp::~NimbrellApp()
{
    // Windows first: their bindings read the objects below. A window being
    // destroyed is hidden on the way and says so: not to us any more.
    for (const QPointer<QQuickWindow> &window : std::as_const(m_windows)) {
        if (window)
            window->disconnect(this);
    }
    for (const QPointer<QQuickWindow> &window : std::as_const(m_windows))
        delete window.data();
}

QQmlEngine *NimbrellApp::qmlEngine() const
{
    return m_qml.get();
}

void NimbrellApp::start()
{
    if (QQuickWindow *main = openWindow(QStringLiteral("main"))) {
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection = connect(main, &QQuickWindow::frameSwapped, this, [this, connection] {
            disconnect(*connection);
            m_remotes->reload();
            Q_EMIT mainWindowShown();
        });
    }
    m_tray->show(m_trayHost);
}

QQuickWindow *NimbrellApp::openWindow(const QString &id)
{
    QPointer<QQuickWindow> &window = m_windows[id];
    if (!window) {
        QQmlComponent component(m_qml.get(), QUrl(QStringLiteral("qrc:/qt/qml/Nimbrell/ui/qml/") + windowFile(id)));
        // (Creating from a component with errors crashes in Qt 6.4.)
        QObject *object = component.isReady()
            ? component.createWithInitialProperties({{QStringLiteral("app"), QVariant::fromValue(this)}})
            : nullptr;
        window = qobject_cast<QQuickWindow *>(object);
        if (!window) {
            qCCritical(lcGeneral, "Cannot open the window \"%s\": %s", qUtf8Printable(id),
                       qUtf8Printable(component.errorString()));
            delete object;
            return nullptr;
        }
        QQmlEngine::setObjectOwnership(window, QQmlEngine::CppOwnership);
        connect(window, &QWindow::visibilityChanged, this, &NimbrellApp::windowVisibilityChanged);
        // Asynchronous loaders make progress between the frames of a window.
        if (!m_qml->incubationController())
            m_qml->setIncubationController(window->incubationController());
    }
    // Shown as it was left: show() would un-maximise a maximised window.
    window->setVisible(true);
    window->setWindowStates(window->windowStates() & ~Qt::WindowMinimized);
    window->raise();
    window->requestActivate();
    return window;
}

void NimbrellApp::windowVisibilityChanged()
{
    // The screens' clock runs only while some window is on screen.
    m_format->setShown(std::any_of(m_windows.cbegin(), m_windows.cend(), [](const QPointer<QQuickWindow> &window) {
        return window && window->visibility() != QWindow::Hidden && window->visibility() != QWindow::Minimized;
    }));
}

void NimbrellApp::openDashboard()
{
    m_navigation->showDashboard();
    openWindow(QStringLiteral("main"));
}

void NimbrellApp::selectAdjacent(int step)
{
    QList<SidebarSelection> rows{SidebarSelection::dashboard()};
    for (const SyncFolder &folder : m_syncManager->folders())
        rows.append(SidebarSelection::syncFolder(folder.id));
    for (const CloudRemote &remote : m_remotes->remotes())
        rows.append(SidebarSelection::remote(remote.name));
    // From no row (the empty detail, a new folder), the first step lands on the dashboard.
    const qsizetype current = m_navigation->selection() ? rows.indexOf(*m_navigation->selection()) : -1;
    const qsizetype next = current < 0 ? 0 : qBound<qsizetype>(0, current + step, rows.size() - 1);
    m_navigation->setSelection(rows.at(next));
}

void NimbrellApp::setFolderPaused(const QString &id, bool paused)
{
    m_syncManager->automatic().setPaused(QUuid::fromString(id), paused);
}

void NimbrellApp::deleteFolder(const QString &id)
{
    const QUuid folderId = QUuid::fromString(id);
    // Cancels its run, removes it, saves and updates the watchers.
    m_syncManager->deleteFolder(folderId);
    if (m_navigation->selection() == SidebarSelection::syncFolder(folderId))
        m_navigation->clear();
}

QString NimbrellApp::deleteMessage(const QString &id) const
{
    QString message = QStringLiteral("This sync folder and its configuration will be permanently removed.");
    const QString kept = RemovedFiles::localDirectory(QUuid::fromString(id));
    if (!QDir(kept).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System))
        message += QStringLiteral("\n\nThe files kept from it stay in %1; delete them there when they are no longer "
                                  "needed.")
                       .arg(kept);
    return message;
}

void NimbrellApp::copyToClipboard(const QString &text)
{
    QGuiApplication::clipboard()->setText(text);
}

void NimbrellApp::openPath(const QString &path)
{
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        qCWarning(lcGeneral, "Cannot open %s", qUtf8Printable(path));
}

void NimbrellApp::showInFolder(const QString &path)
{
    // A file that is gone (a deletion) has its nearest folder opened.
    if (!QFileInfo::exists(path)) {
        QDir folder = QFileInfo(path).dir();
        while (!folder.exists() && folder.cdUp()) {
        }
        openPath(folder.absolutePath());
        return;
    }
    showInFileManager(QDBusConnection::sessionBus(), path, this, [this, path](bool shown) {
        if (!shown)
            openPath(QFileInfo(path).absolutePath());
    });
}

void NimbrellApp::quit()
{
    if (std::exchange(m_isQuitting, true))
        return;
    Q_EMIT isQuittingChanged();
    m_tray->setFinishing(true);
    m_service->quit();
}
