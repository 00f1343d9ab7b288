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

    function lastSyncText() {
        if (!folder.lastSync || isNaN(folder.lastSync.getTime()))
            return "Never synced"
        const text = app.format.relativeTime(folder.lastSync, app.format.now)
        return text === "now" ? "Last synced just now" : "Last synced " + text + " ago"
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // ---- toolbar ----
        ToolBar {
            Layout.fillWidth: true
            background: Item {}
            RowLayout {
                anchors.fill: parent
                anchors.leftMargin: 16
                anchors.rightMargin: 16
                spacing: 6
                Item { Layout.fillWidth: true }
                // view mode
                Button {
                    objectName: "syncNow"
                    visible: !controller.isEditing && !pane.syncing
                    text: "Sync Now"
                    icon.source: "image://icon/arrow.triangle.2.circlepath?color=" + encodeURIComponent(palette.buttonText.toString())
                    ToolTip.visible: hovered
                    ToolTip.text: "Sync Now"
                    onClicked: controller.syncNow()
                }
                Button {
                    objectName: "abortSync"
                    visible: !controller.isEditing && pane.syncing
                    text: "Abort Sync"
                    palette.buttonText: app.theme.red
                    icon.source: "image://icon/stop.circle?color=" + encodeURIComponent(app.theme.red.toString())
                    ToolTip.visible: hovered
                    ToolTip.text: "Abort Sync"
                    onClicked: controller.abortSync()
                }
                Button {
                    objectName: "editFolder"
                    visible: !controller.isEditing
                    text: "Edit"
                    icon.source: "image://icon/pencil?color=" + encodeURIComponent(palette.buttonText.toString())
                    ToolTip.visible: hovered
                    ToolTip.text: "Edit Folder"
                    onClicked: controller.startEditing()
                }
                Button {
                    objectName: "deleteSync"
                    visible: !controller.isEditing
                    text: "Delete Sync"
                    palette.buttonText: app.theme.red
                    icon.source: "image://icon/trash?color=" + encodeURIComponent(app.theme.red.toString())
                    ToolTip.visible: hovered
                    ToolTip.text: "Delete Sync"
                    onClicked: deleteDialog.open()
                }
                // edit mode
                Button {
                    objectName: "cancelEdit"
                    visible: controller.isEditing
                    text: "Cancel"
                    onClicked: controller.cancel()
                }
                Button {
                    objectName: "confirmEdit"
                    visible: controller.isEditing
                    text: pane.folderId === "" ? "Create" : "Save"
                    highlighted: true
                    enabled: controller.canConfirm
                    onClicked: controller.save()
                }
            }
        }

        ScrollView {
            id: scroll
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentWidth: availableWidth

            ColumnLayout {
                width: scroll.availableWidth
                spacing: 16

                // ---- header ----
                RowLayout {
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    spacing: 12
                    Icon {
                        name: controller.isEditing ? "folder.fill.badge.gearshape" : "folder.fill"
                        color: app.theme.blue
                        size: 36
                    }
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 2
                        Label {
                            visible: controller.isEditing && pane.folderId === ""
                            text: "New Sync Folder"
                            font.pixelSize: 13
                            color: app.theme.secondary
                        }
                        Label {
                            visible: !controller.isEditing
                            Layout.fillWidth: true
                            text: folder.name || ""
                            textFormat: Text.PlainText
                            elide: Text.ElideRight
                            font.pixelSize: 22
                            font.bold: true
                        }
                        Label {
                            visible: !controller.isEditing
                            text: pane.lastSyncText()
                            color: app.theme.secondary
                        }
                        TextField {
                            objectName: "editName"
                            visible: controller.isEditing
                            Layout.fillWidth: true
                            placeholderText: "Folder Name"
                            text: controller.editName
                            onTextEdited: controller.editName = text
                            font.pixelSize: 16
                        }
                    }
                }

                // ---- view mode ----
                Card {
                    visible: !controller.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    ColumnLayout {
                        width: parent.width
                        spacing: 10
                        Label { text: "Sync Status"; font.weight: Font.DemiBold }
                        RowLayout {
                            spacing: 8
                            Layout.fillWidth: true
                            BusyIndicator {
                                visible: pane.syncing
                                running: visible
                                Layout.preferredWidth: 20
                                Layout.preferredHeight: 20
                                padding: 0
                            }
                            Icon {
                                visible: !pane.syncing
                                name: folder.status === "success" ? "checkmark.circle.fill"
                                    : folder.status === "error" ? "exclamationmark.triangle" : "clock"
                                color: folder.status === "success" ? app.theme.green
                                     : folder.status === "error" ? app.theme.red : app.theme.secondary
                                size: 18
                            }
                            Label {
                                objectName: "statusLine"
                                Layout.fillWidth: true
                                elide: Text.ElideRight
                                textFormat: Text.PlainText
                                text: {
                                    if (pane.syncing) {
                                        const targets = folder.targets || []
                                        const index = folder.currentTargetIndex
                                        if (index === undefined || index === null || index >= targets.length)
                                            return "Syncing"
                                        return "Syncing to " + targets[index].remoteName + ":" + targets[index].remotePath
                                    }
                                    if (folder.status === "success") return "Sync completed successfully"
                                    if (folder.status === "error") return "Last sync failed"
                                    return "Idle — ready to sync"
                                }
                            }
                            Label {
                                visible: pane.syncing && folder.currentTargetIndex !== undefined && folder.currentTargetIndex !== null
                                text: (folder.currentTargetIndex + 1) + " of " + (folder.targets ? folder.targets.length : 0)
                                color: app.theme.secondary
                            }
                        }
                        Label {
                            objectName: "waitingLine"
                            visible: pane.syncing && !!folder.isWaiting
                            text: "Waiting for another sync to finish…"
                            color: app.theme.secondary
                        }
                        ColumnLayout {
                            visible: pane.syncing && !folder.isWaiting
                            Layout.fillWidth: true
                            spacing: 6
                            SyncProgressBar {
                                Layout.fillWidth: true
                                app: pane.app
                                value: folder.progress || 0
                            }
                            RowLayout {
                                Layout.fillWidth: true
                                Label {
                                    objectName: "percentage"
                                    text: app.format.percentage(folder.progress || 0)
                                    font.family: "monospace"
                                }
                                Label {
                                    visible: !!folder.transferSpeed
                                    Layout.fillWidth: true
                                    text: folder.transferSpeed || ""
                                    textFormat: Text.PlainText
                                    elide: Text.ElideRight
                                    color: app.theme.secondary
                                }
                            }
                            RowLayout {
                                spacing: 16
                                Label {
                                    visible: !!folder.transferredFiles
                                    text: "Files: " + (folder.transferredFiles || "")
                                    textFormat: Text.PlainText
                                    color: app.theme.secondary
                                }
                                Label {
                                    visible: !!folder.transferredSize
                                    text: "Data: " + (folder.transferredSize || "")
                                    textFormat: Text.PlainText
                                    color: app.theme.secondary
                                }
                            }
                        }
                        ErrorBanner {
                            objectName: "errorBanner"
                            visible: folder.lastError !== undefined && folder.lastError !== null
                            Layout.fillWidth: true
                            app: pane.app
                            log: folder.lastError || ""
                            controller: controller
                            localPath: folder.localPath || ""
                        }
                    }
                }

                RowLayout {
                    visible: !controller.isEditing
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

                Card {
                    visible: !controller.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    ColumnLayout {
                        width: parent.width
                        spacing: 8
                        Label { text: "Local Path"; font.weight: Font.DemiBold }
                        Label {
                            Layout.fillWidth: true
                            text: folder.localPath || ""
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            font.family: "monospace"
                        }
                        Label { text: "Remote Targets"; font.weight: Font.DemiBold; Layout.topMargin: 6 }
                        Label {
                            visible: !folder.targets || folder.targets.length === 0
                            text: "No remote targets configured"
                            color: app.theme.secondary
                        }
                        Repeater {
                            model: folder.targets || []
                            delegate: RowLayout {
                                required property var modelData
                                required property int index
                                Layout.fillWidth: true
                                spacing: 8
                                Icon { name: "cloud.fill"; color: app.theme.blue }
                                Label {
                                    Layout.fillWidth: true
                                    text: modelData.remoteName + ":" + modelData.remotePath
                                    textFormat: Text.PlainText
                                    elide: Text.ElideRight
                                }
                                BusyIndicator {
                                    visible: pane.syncing && folder.currentTargetIndex === index
                                    running: visible
                                    Layout.preferredWidth: 16
                                    Layout.preferredHeight: 16
                                    padding: 0
                                }
                                Label {
                                    visible: pane.syncing && folder.currentTargetIndex === index
                                    text: "Syncing"
                                    color: app.theme.blue
                                }
                                Icon {
                                    visible: pane.syncing && folder.currentTargetIndex > index
                                    name: "checkmark.circle.fill"
                                    color: app.theme.green
                                }
                            }
                        }
                    }
                }

                // ---- edit mode ----
                Card {
                    visible: controller.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    ColumnLayout {
                        width: parent.width
                        spacing: 8
                        Label { text: "Local Path"; font.weight: Font.DemiBold }
                        RowLayout {
                            Layout.fillWidth: true
                            TextField {
                                objectName: "editLocalPath"
                                Layout.fillWidth: true
                                placeholderText: "/path/to/local/folder"
                                text: controller.editLocalPath
                                onTextEdited: controller.editLocalPath = text
                            }
                            Button {
                                text: "Browse"
                                onClicked: folderDialog.open()
                            }
                        }
                        Label {
                            objectName: "pathWarning"
                            visible: controller.pathWarning !== ""
                            Layout.fillWidth: true
                            text: controller.pathWarning
                            color: app.theme.orange
                            font.pixelSize: 11
                            wrapMode: Text.Wrap
                        }

                        Label { text: "Remote Targets"; font.weight: Font.DemiBold; Layout.topMargin: 8 }
                        Label {
                            visible: controller.editTargets.length === 0
                            text: "No remote targets configured"
                            color: app.theme.secondary
                        }
                        Repeater {
                            model: controller.editTargets
                            delegate: RowLayout {
                                id: targetRow
                                required property var modelData
                                required property int index
                                Layout.fillWidth: true
                                spacing: 6
                                ComboBox {
                                    Layout.preferredWidth: 170
                                    model: app.remotes
                                    textRole: "name"
                                    displayText: currentIndex < 0 ? "Select" : currentText
                                    Component.onCompleted: currentIndex = find(targetRow.modelData.remoteName)
                                    onActivated: controller.setTargetRemote(targetRow.index, currentText)
                                }
                                TextField {
                                    Layout.fillWidth: true
                                    placeholderText: "/path"
                                    text: targetRow.modelData.remotePath
                                    onTextEdited: controller.setTargetPath(targetRow.index, text)
                                }
                                ToolButton {
                                    icon.source: "image://icon/chevron.up?color=" + encodeURIComponent(palette.buttonText.toString())
                                    enabled: targetRow.index > 0
                                    onClicked: controller.moveTarget(targetRow.index, -1)
                                }
                                ToolButton {
                                    icon.source: "image://icon/chevron.down?color=" + encodeURIComponent(palette.buttonText.toString())
                                    enabled: targetRow.index < controller.editTargets.length - 1
                                    onClicked: controller.moveTarget(targetRow.index, 1)
                                }
                                ToolButton {
                                    icon.source: "image://icon/minus.circle.fill?color=" + encodeURIComponent(app.theme.red.toString())
                                    onClicked: controller.removeTarget(targetRow.index)
                                }
                            }
                        }
                        Button {
                            objectName: "addTarget"
                            text: "Add Remote Target"
                            flat: true
                            icon.source: "image://icon/plus.circle.fill?color=" + encodeURIComponent(app.theme.blue.toString())
                            onClicked: controller.addTarget()
                        }
                    }
                }

                // Sync options: shown in both modes, editable in the editor only.
                Card {
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    ColumnLayout {
                        width: parent.width
                        spacing: 8
                        Label { text: "Sync Options"; font.weight: Font.DemiBold }
                        RowLayout {
                            spacing: 8
                            SectionTitle { app: pane.app; icon: "arrow.triangle.branch"; text: "Conflict Resolution" }
                            ComboBox {
                                objectName: "conflictResolution"
                                Layout.preferredWidth: 230
                                enabled: controller.isEditing
                                model: controller.conflictLabels
                                currentIndex: controller.editConflictResolution
                                onActivated: controller.editConflictResolution = currentIndex
                            }
                        }
                        SectionTitle { app: pane.app; icon: "eye.slash.circle.fill"; text: "Exclude Patterns"; Layout.topMargin: 6 }
                        Switch {
                            text: ".git"
                            enabled: controller.isEditing
                            checked: controller.excludeGit
                            onToggled: controller.excludeGit = checked
                        }
                        Switch {
                            text: "node_modules"
                            enabled: controller.isEditing
                            icon.source: "image://icon/shippingbox?color=" + encodeURIComponent(palette.windowText.toString())
                            checked: controller.excludeNodeModules
                            onToggled: controller.excludeNodeModules = checked
                        }
                        Switch {
                            text: "Hidden files"
                            enabled: controller.isEditing
                            icon.source: "image://icon/eye.slash?color=" + encodeURIComponent(palette.windowText.toString())
                            checked: controller.excludeHidden
                            onToggled: controller.excludeHidden = checked
                        }
                    }
                }
                Item { Layout.preferredHeight: 16 }
            }
        }
    }

    ReviewSheet {
        app: pane.app
        controller: controller
        parent: Overlay.overlay
    }

    FolderDialog {
        id: folderDialog
        title: "Choose a folder to sync"
        onAccepted: {
            const url = selectedFolder.toString()
            controller.editLocalPath = decodeURIComponent(url.replace(/^file:\/\//, ""))
        }
    }

    Dialog {
        id: deleteDialog
        objectName: "folderDeleteDialog"
        anchors.centerIn: parent
        modal: true
        title: "Delete Sync Folder"
        padding: 20
        topPadding: 12
        contentWidth: 380
        Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
        header: Label {
            text: deleteDialog.title
            font.pixelSize: 15
            font.weight: Font.DemiBold
            padding: 20
            bottomPadding: 0
        }
        Label {
            width: 380
            text: "This sync folder and its configuration will be permanently removed."
            wrapMode: Text.Wrap
        }
        footer: DialogButtonBox {
            Button {
                text: "Cancel"
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                text: "Delete"
                palette.buttonText: app.theme.red
                DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole
                onClicked: {
                    deleteDialog.close()
                    controller.deleteFolder()
                }
            }
        }
    }
}
