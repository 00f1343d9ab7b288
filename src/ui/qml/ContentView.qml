import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The main window: the sidebar of dashboard, sync folders and remotes, and
// the detail of whatever it has selected.
Item {
    id: content
    objectName: "contentView"
    required property NimbrellApp app
    readonly property NavigationState nav: app.navigation

    property string folderToDelete: ""

    // Return in the sidebar: on to the first control of the detail, as Tab would.
    function focusDetail() {
        if (detail.status === Loader.Loading) {
            detail.focusWhenLoaded = true
            return
        }
        const next = sidebar.nextItemInFocusChain(true)
        if (next)
            next.forceActiveFocus(Qt.TabFocusReason)
    }

    function confirmDelete(folderId) {
        folderToDelete = folderId
        deleteDialog.open()
    }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        // ---- sidebar ----
        Rectangle {
            Layout.preferredWidth: 270
            Layout.fillHeight: true
            color: app.theme.isDark ? Qt.darker(palette.window, 1.15) : Qt.darker(palette.window, 1.03)

            ColumnLayout {
                anchors.fill: parent
                spacing: 0

                RowLayout {
                    Layout.fillWidth: true
                    Layout.margins: 8
                    Label {
                        Layout.fillWidth: true
                        leftPadding: 4
                        text: "Nimbrell"
                        font.pixelSize: 15
                        font.weight: Font.DemiBold
                    }
                    AppButton {
                        id: plusButton
                        objectName: "plusButton"
                        kind: "borderless"
                        display: AbstractButton.IconOnly
                        iconName: "plus"
                        text: "Add"
                        toolTip: "New sync folder or remote"
                        onClicked: plusMenu.popup(plusButton, 0, plusButton.height)
                        Menu {
                            id: plusMenu
                            MenuItem {
                                text: "New Sync Folder"
                                icon.source: "image://icon/folder.badge.plus?color=" + encodeURIComponent(palette.text.toString())
                                onTriggered: nav.showNewSyncFolder()
                            }
                            MenuItem {
                                text: "Add Remote"
                                icon.source: "image://icon/cloud.badge.plus?color=" + encodeURIComponent(palette.text.toString())
                                onTriggered: content.openAddRemote()
                            }
                        }
                    }
                }

                // One stop for Tab: Up and Down move the selection, Return
                // goes on into the detail, Delete and the menu key act on a
                // selected folder.
                ListView {
                    id: sidebar
                    objectName: "sidebar"
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    clip: true
                    boundsBehavior: Flickable.StopAtBounds
                    model: app.folders
                    ScrollBar.vertical: ScrollBar {}
                    activeFocusOnTab: true
                    keyNavigationEnabled: false
                    Accessible.role: Accessible.List
                    Accessible.name: "Sidebar"

                    // Asked each time: rows move when other folders come and go.
                    function folderRow() {
                        return nav.page === NavigationState.SyncFolder ? app.folders.rowOf(nav.folderId) : -1
                    }
                    function step(delta) {
                        app.selectAdjacent(delta)
                        const row = folderRow()
                        if (row >= 0)
                            positionViewAtIndex(row, ListView.Contain)
                        else if (nav.page === NavigationState.Dashboard)
                            positionViewAtBeginning()
                        else
                            positionViewAtEnd()
                    }
                    function openSelectedMenu() {
                        const index = folderRow()
                        const row = index >= 0 ? itemAtIndex(index) : null
                        if (row)
                            row.openContextMenu()
                    }
                    Keys.onUpPressed: step(-1)
                    Keys.onDownPressed: step(1)
                    Keys.onReturnPressed: content.focusDetail()
                    Keys.onEnterPressed: content.focusDetail()
                    Keys.onDeletePressed: if (folderRow() >= 0) content.confirmDelete(nav.folderId)
                    Keys.onMenuPressed: openSelectedMenu()
                    Keys.onPressed: event => {
                        if (event.key === Qt.Key_F10 && (event.modifiers & Qt.ShiftModifier)) {
                            openSelectedMenu()
                            event.accepted = true
                        }
                    }

                    header: Column {
                        width: sidebar.width
                        ItemDelegate {
                            id: dashboardRow
                            objectName: "dashboardRow"
                            width: parent.width
                            focusPolicy: Qt.NoFocus
                            readonly property bool showsFocus: highlighted && sidebar.activeFocus
                            highlighted: nav.page === NavigationState.Dashboard
                            horizontalPadding: 14
                            background: SidebarRowBackground { row: dashboardRow }
                            contentItem: RowLayout {
                                spacing: 10
                                Item {
                                    Layout.preferredWidth: 28
                                    Layout.preferredHeight: 28
                                    Icon {
                                        anchors.centerIn: parent
                                        name: "house.fill"
                                        color: dashboardRow.highlighted ? palette.highlightedText : app.theme.accent
                                        size: 18
                                    }
                                }
                                Label {
                                    Layout.fillWidth: true
                                    text: "Dashboard"
                                    font.weight: Font.Medium
                                    color: dashboardRow.highlighted ? palette.highlightedText : palette.windowText
                                }
                            }
                            onClicked: { nav.showDashboard(); sidebar.forceActiveFocus() }
                        }
                        SectionHeader { text: "Sync Folders" }
                        Label {
                            visible: sidebar.count === 0
                            leftPadding: 12
                            bottomPadding: 6
                            text: "No sync folders"
                            color: app.theme.secondary
                        }
                    }

                    delegate: SidebarFolderRow {
                        required property int index
                        width: sidebar.width
                        app: content.app
                        selected: nav.page === NavigationState.SyncFolder && nav.folderId === folderId
                        showsFocus: selected && sidebar.activeFocus
                        onClicked: { nav.showFolder(folderId); sidebar.forceActiveFocus() }
                        onDeleteRequested: content.confirmDelete(folderId)
                    }

                    footer: Column {
                        width: sidebar.width
                        SectionHeader { text: "Remotes" }
                        Label {
                            visible: app.remotes.count === 0
                            leftPadding: 12
                            bottomPadding: 6
                            text: "No remotes"
                            color: app.theme.secondary
                        }
                        Repeater {
                            model: app.remotes
                            delegate: SidebarRemoteRow {
                                width: sidebar.width
                                app: content.app
                                selected: nav.page === NavigationState.Remote && nav.remoteName === name
                                showsFocus: selected && sidebar.activeFocus
                                onClicked: { nav.showRemote(name); sidebar.forceActiveFocus() }
                            }
                        }
                        Item { width: 1; height: 8 }
                    }
                }
            }
        }

        Rectangle {
            Layout.preferredWidth: 1
            Layout.fillHeight: true
            color: app.theme.separator
        }

        // ---- detail ----
        // Each pane is loaded by its file the first time it is shown, so the
        // window does not wait for screens it does not show yet.
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Loader {
                id: detail
                objectName: "detail"
                anchors.fill: parent
                asynchronous: true
                readonly property string file: {
                    switch (nav.page) {
                    case NavigationState.Dashboard: return "DashboardView.qml"
                    case NavigationState.SyncFolder:
                    case NavigationState.NewSyncFolder: return "SyncFolderDetailView.qml"
                    case NavigationState.Remote: return "RemoteDetailView.qml"
                    default: return ""
                    }
                }
                onFileChanged: {
                    if (file === "")
                        setSource("")
                    else
                        setSource(file, { app: content.app })
                }
                Component.onCompleted: fileChanged()
                // Return was pressed while the pane was still loading.
                property bool focusWhenLoaded: false
                onLoaded: if (focusWhenLoaded) { focusWhenLoaded = false; content.focusDetail() }
            }
            Binding {
                target: detail.item
                property: "folderId"
                value: nav.page === NavigationState.SyncFolder ? nav.folderId : ""
                when: detail.file === "SyncFolderDetailView.qml" && detail.status === Loader.Ready
            }
            Binding {
                target: detail.item
                property: "remoteName"
                value: nav.remoteName
                when: detail.file === "RemoteDetailView.qml" && detail.status === Loader.Ready
            }
            Loader {
                anchors.fill: parent
                active: nav.page === NavigationState.None
                sourceComponent: emptyDetail
            }
        }
    }

    Component {
        id: emptyDetail
        Item {
            objectName: "emptyDetail"
            ColumnLayout {
                anchors.centerIn: parent
                spacing: 8
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: "Nimbrell"
                    font.pixelSize: 26
                    font.weight: Font.Bold
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    horizontalAlignment: Text.AlignHCenter
                    text: "Select a sync folder or remote from the sidebar,\nor create a new one to get started."
                    color: app.theme.secondary
                }
            }
        }
    }

    ConfirmDialog {
        id: deleteDialog
        objectName: "deleteDialog"
        title: "Delete Sync Folder"
        message: app.deleteMessage(content.folderToDelete)
        confirmObjectName: "confirmDelete"
        onConfirmed: app.deleteFolder(content.folderToDelete)
        onClosed: content.folderToDelete = ""
    }

    // Made the first time it is asked for: the window shows sooner.
    function openAddRemote() {
        addRemoteLoader.active = true
        addRemoteLoader.item.open()
    }
    Loader {
        id: addRemoteLoader
        active: false
        sourceComponent: AddRemoteView { app: content.app }
    }
}
