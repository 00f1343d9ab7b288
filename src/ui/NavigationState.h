#pragma once

#include <QObject>
#include <QString>
#include <QUuid>
#include <QtQml/qqmlregistration.h>

#include <optional>

// What the sidebar has selected, and so what the detail area shows.
struct SidebarSelection
{
    enum class Kind { syncFolder, remote, dashboard, newSyncFolder };

    Kind kind = Kind::dashboard;
    QUuid folderId;     // for syncFolder
    QString remoteName; // for remote

    static SidebarSelection dashboard() { return {}; }
    static SidebarSelection newSyncFolder() { return {Kind::newSyncFolder, {}, {}}; }
    static SidebarSelection syncFolder(const QUuid &id) { return {Kind::syncFolder, id, {}}; }
    static SidebarSelection remote(const QString &name) { return {Kind::remote, {}, name}; }

    friend bool operator==(const SidebarSelection &, const SidebarSelection &) = default;
};

// The one selection of the main window, shared by every screen that moves it.
// No selection shows the empty detail.
class NavigationState : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("created by the application")
    Q_PROPERTY(Page page READ page NOTIFY selectionChanged)
    Q_PROPERTY(QString folderId READ folderId NOTIFY selectionChanged)
    Q_PROPERTY(QString remoteName READ remoteName NOTIFY selectionChanged)
    // A sheet asked for from outside the window ("removed": the selected
    // folder's Recently Removed), until the pane that shows it takes it.
    Q_PROPERTY(QString sheet READ sheet NOTIFY sheetChanged)

public:
    enum class Page { None, Dashboard, SyncFolder, Remote, NewSyncFolder };
    Q_ENUM(Page)

    explicit NavigationState(QObject *parent = nullptr);

    const std::optional<SidebarSelection> &selection() const { return m_selection; }
    void setSelection(const std::optional<SidebarSelection> &selection);

    Page page() const;
    QString folderId() const;
    const QString &remoteName() const;

    Q_INVOKABLE void showDashboard() { setSelection(SidebarSelection::dashboard()); }
    Q_INVOKABLE void showNewSyncFolder() { setSelection(SidebarSelection::newSyncFolder()); }
    Q_INVOKABLE void showFolder(const QString &id) { setSelection(SidebarSelection::syncFolder(QUuid::fromString(id))); }
    Q_INVOKABLE void showRemote(const QString &name) { setSelection(SidebarSelection::remote(name)); }
    Q_INVOKABLE void clear() { setSelection(std::nullopt); }

    const QString &sheet() const { return m_sheet; }
    void setSheet(const QString &sheet);
    Q_INVOKABLE QString takeSheet();

Q_SIGNALS:
    void selectionChanged();
    void sheetChanged();

private:
    std::optional<SidebarSelection> m_selection = SidebarSelection::dashboard();
    QString m_sheet;
};
