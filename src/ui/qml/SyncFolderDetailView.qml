import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import Nimbrell

// A sync folder: what its runs show and what it holds, or, in edit mode, the
// editor that creates or changes it. An empty folderId creates a new folder.
Item {
    id: pane
    required property NimbrellApp app
    property string folderId

    FolderDetailController {
        id: controller
        objectName: "folderController"
        app: pane.app
        folderId: pane.folderId
    }
    readonly property var folder: controller.folder
    readonly property bool syncing: folder.status === "syncing"
    readonly property bool paused: !!folder.paused
    // Too narrow for the toolbar's labels: its buttons show their icons only.
    readonly property bool compact: width < 680

    function lastSyncText() {
        if (!folder.lastSync || isNaN(folder.lastSync.getTime()))
            return "Never synced"
        return "Last synced " + app.format.relativeTime(folder.lastSync, app.format.now) + " ago"
    }

    // Buttons that take each other's place (Sync Now and Abort Sync, the
    // view's and the editor's): for a moment after the swap, a press where
    // the last one was is ignored. The second click of a double-click must
    // not undo the first; a click elsewhere goes through.
    property bool swapGuard: false
    property point lastPress: Qt.point(-100, -100)
    function buttonsSwapped() {
        swapGuard = true
        swapGuardTimer.restart()
    }
    onSyncingChanged: buttonsSwapped()
    onPausedChanged: buttonsSwapped()
    onFolderIdChanged: {
        buttonsSwapped()
        openAskedSheet()
    }
    Connections {
        target: controller.editor
        function onIsEditingChanged() {
            pane.buttonsSwapped()
            modeSpring.restart()
        }
    }
    Timer {
        id: swapGuardTimer
        interval: 400
        onTriggered: pane.swapGuard = false
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // ---- toolbar: what the pane shows, and its actions ----
        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 24
            Layout.rightMargin: 20
            Layout.topMargin: 16
            Layout.bottomMargin: 12
            spacing: 12
            Icon {
                Layout.alignment: Qt.AlignVCenter
                name: controller.editor.isEditing ? "folder.fill.badge.gearshape" : "folder.fill"
                color: app.theme.blue
                size: 36
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Label {
                    visible: controller.editor.isEditing && pane.folderId === ""
                    text: "New Sync Folder"
                    font.pixelSize: 13
                    color: app.theme.secondary
                }
                Label {
                    id: title
                    readonly property bool oneWay: !!folder.direction && folder.direction !== "two-way"
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    rightPadding: oneWay ? 28 : 0
                    text: folder.name || ""
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    font.pixelSize: 22
                    font.bold: true
                    // A one-way folder: which way its changes go, after its name.
                    Icon {
                        objectName: "paneDirectionMark"
                        visible: title.oneWay
                        x: Math.min(title.contentWidth, title.width - title.rightPadding) + 8
                        anchors.verticalCenter: parent.verticalCenter
                        name: folder.direction === "upload" ? "arrow.up" : "arrow.down"
                        color: app.theme.secondary
                        size: 18
                        Accessible.name: folder.direction === "upload" ? "Upload only" : "Download only"
                        ToolTip.visible: directionHover.hovered
                        ToolTip.text: Accessible.name
                        HoverHandler { id: directionHover }
                    }
                }
                Label {
                    objectName: "lastSynced"
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    text: pane.lastSyncText()
                    color: app.theme.secondary
                }
                AppTextField {
                    objectName: "editName"
                    visible: controller.editor.isEditing
                    Layout.fillWidth: true
                    placeholderText: "Folder Name"
                    text: controller.editor.name
                    onTextEdited: controller.editor.name = text
                    font.pixelSize: 15
                }
            }
            Item {
                Layout.alignment: Qt.AlignVCenter
                implicitWidth: actions.implicitWidth
                implicitHeight: actions.implicitHeight
                RowLayout {
                    id: actions
                    anchors.fill: parent
                    spacing: 6
                    // view mode
                    AppButton {
                        objectName: "syncNow"
                        display: pane.compact ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                        visible: !controller.editor.isEditing && !pane.syncing
                        kind: "primary"
                        text: "Sync Now"
                        iconName: "arrow.triangle.2.circlepath"
                        toolTip: "Sync Now"
                        onClicked: controller.syncNow()
                    }
                    AppButton {
                        objectName: "abortSync"
                        display: pane.compact ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                        visible: !controller.editor.isEditing && pane.syncing
                        kind: "destructive"
                        text: "Abort Sync"
                        iconName: "stop.circle"
                        toolTip: "Abort Sync"
                        onClicked: controller.abortSync()
                    }
                    AppButton {
                        objectName: "pauseFolder"
                        display: pane.compact ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                        visible: !controller.editor.isEditing && pane.folderId !== ""
                        text: pane.paused ? "Resume" : "Pause"
                        iconName: pane.paused ? "play" : "pause"
                        toolTip: pane.paused ? "Sync this folder automatically again"
                                             : "Sync this folder only when you click Sync Now"
                        onClicked: controller.setPaused(!pane.paused)
                    }
                    AppButton {
                        objectName: "editFolder"
                        display: pane.compact ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                        visible: !controller.editor.isEditing
                        text: "Edit"
                        iconName: "pencil"
                        toolTip: "Edit Folder"
                        onClicked: controller.editor.start()
                    }
                    AppButton {
                        objectName: "deleteSync"
                        display: pane.compact ? AbstractButton.IconOnly : AbstractButton.TextBesideIcon
                        visible: !controller.editor.isEditing
                        kind: "destructive"
                        text: "Delete Sync"
                        iconName: "trash"
                        toolTip: "Delete Sync"
                        onClicked: deleteDialog.open()
                    }
                    // edit mode
                    AppButton {
                        objectName: "cancelEdit"
                        visible: controller.editor.isEditing
                        text: "Cancel"
                        onClicked: controller.editor.cancel()
                    }
                    AppButton {
                        objectName: "confirmEdit"
                        visible: controller.editor.isEditing
                        kind: "primary"
                        text: pane.folderId === "" ? "Create" : "Save"
                        enabled: controller.editor.canConfirm
                        onClicked: controller.editor.save()
                    }
                }
                // Sees every press first and lets it through to the buttons,
                // unless it repeats the last one while the guard is up. Keys
                // are not affected.
                MouseArea {
                    objectName: "swapGuard"
                    readonly property bool guarding: pane.swapGuard
                    anchors.fill: parent
                    acceptedButtons: Qt.AllButtons
                    onPressed: mouse => {
                        const repeated = Math.abs(mouse.x - pane.lastPress.x) <= 8
                                         && Math.abs(mouse.y - pane.lastPress.y) <= 8
                        pane.lastPress = Qt.point(mouse.x, mouse.y)
                        mouse.accepted = pane.swapGuard && repeated
                    }
                }
            }
        }
        Rectangle {
            Layout.fillWidth: true
            Layout.preferredHeight: 1
            color: app.theme.separator
        }

        ScrollView {
            id: scroll
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentWidth: availableWidth

            ColumnLayout {
                id: content
                width: scroll.availableWidth
                spacing: 16
                // Entering and leaving the editor settles with a spring
                // (about 0.35 s, lightly damped).
                transform: Translate { id: modeShift }
                ParallelAnimation {
                    id: modeSpring
                    SpringAnimation { target: modeShift; property: "y"; from: 14; to: 0; spring: 5.2; damping: 0.47; epsilon: 0.2 }
                    NumberAnimation { target: content; property: "opacity"; from: 0.35; to: 1; duration: 220; easing.type: Easing.OutCubic }
                }

                Item { Layout.preferredHeight: 4 }

                // ---- view mode ----
                SyncStatusCard {
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    folder: pane.folder
                    syncing: pane.syncing
                    paused: pane.paused
                    recovery: controller.recovery
                }

                ConflictList {
                    objectName: "conflicts"
                    visible: !controller.editor.isEditing && controller.conflicts.list.count > 0
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    conflicts: controller.conflicts
                    syncing: pane.syncing
                }

                RowLayout {
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    spacing: 12
                    StatCard {
                        objectName: "filesCard"
                        Layout.fillWidth: true
                        Layout.preferredWidth: 1
                        app: pane.app
                        title: "Files"
                        icon: "doc.on.doc.fill"
                        color: app.theme.blue
                        value: controller.fileCount !== undefined ? String(controller.fileCount)
                             : controller.isLoadingStats ? "..." : "--"
                    }
                    StatCard {
                        objectName: "sizeCard"
                        Layout.fillWidth: true
                        Layout.preferredWidth: 1
                        app: pane.app
                        title: "Total Size"
                        icon: "externaldrive.fill"
                        color: app.theme.purple
                        value: controller.totalSize !== undefined ? app.format.byteCount(controller.totalSize)
                             : controller.isLoadingStats ? "..." : "--"
                    }
                }

                FolderTargetsCard {
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    folder: pane.folder
                    syncing: pane.syncing
                }

                ActivityList {
                    objectName: "recentChanges"
                    visible: !controller.editor.isEditing && pane.folderId !== ""
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    title: "Recent Changes"
                    folderId: pane.folderId
                }

                RecentlyRemovedCard {
                    objectName: "recentlyRemovedCard"
                    visible: !controller.editor.isEditing && !!folder.hasKeptRemoved
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    folder: pane.folder
                    onShowRequested: removedSheet.open()
                }

                // ---- edit mode ----
                EditTargetsCard {
                    visible: controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    editor: controller.editor
                    onBrowseRequested: folderDialog.open()
                }

                SyncOptionsCard {
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    options: controller.editor.options
                    choices: controller.editor.choices
                    editing: controller.editor.isEditing
                    onChooseFoldersRequested: {
                        controller.editor.choices.chooseFolders(controller.editor.localPath, controller.editor.targets)
                        chooseFoldersSheet.open()
                    }
                }
                SafetyCard {
                    visible: controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    options: controller.editor.options
                }
                Item { Layout.preferredHeight: 16 }
            }
        }
    }

    // Recently Removed asked for from the file manager or `nimbrell open
    // --removed`: now, or once this pane (loaded in the background) has its folder.
    function openAskedSheet() {
        if (app.navigation.sheet !== "" && app.navigation.folderId === pane.folderId
                && app.navigation.takeSheet() === "removed")
            Qt.callLater(removedSheet.open) // once the sheet's own bindings have the new folder
    }
    Connections {
        target: pane.app.navigation
        function onSheetChanged() { pane.openAskedSheet() }
    }

    RemovedSheet {
        id: removedSheet
        app: pane.app
        parent: Overlay.overlay
        folderId: pane.folderId
        folderName: pane.folder.name || ""
        keepDays: pane.folder.keepDays || 30
    }

    ChooseFoldersSheet {
        id: chooseFoldersSheet
        app: pane.app
        choices: controller.editor.choices
        parent: Overlay.overlay
    }
    ReviewSheet {
        app: pane.app
        controller: controller.recovery
        parent: Overlay.overlay
    }

    FolderDialog {
        id: folderDialog
        title: "Choose a folder to sync"
        onAccepted: {
            const url = selectedFolder.toString()
            controller.editor.localPath = decodeURIComponent(url.replace(/^file:\/\//, ""))
        }
    }

    ConfirmDialog {
        id: deleteDialog
        objectName: "folderDeleteDialog"
        title: "Delete Sync Folder"
        message: app.deleteMessage(controller.folderId)
        onConfirmed: controller.deleteFolder()
    }
}
