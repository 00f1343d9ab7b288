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

    // Which button of which target row takes the focus once the rows are remade.
    property var refocus: null
    function moveTarget(index, step, button) {
        refocus = { index: index + step, button: button }
        controller.editor.moveTarget(index, step)
    }

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
    onFolderIdChanged: buttonsSwapped()
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
                    visible: !controller.editor.isEditing
                    Layout.fillWidth: true
                    text: folder.name || ""
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    font.pixelSize: 22
                    font.bold: true
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
                Card {
                    visible: !controller.editor.isEditing
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
                                name: pane.paused ? "pause" : folder.status === "success" ? "checkmark.circle.fill"
                                    : folder.status === "error" ? "exclamationmark.triangle" : "clock"
                                color: pane.paused ? app.theme.secondary : folder.status === "success" ? app.theme.green
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
                                    if (pane.paused) return "Paused"
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
                            controller: controller.recovery
                            localPath: folder.localPath || ""
                        }
                    }
                }

                ConflictList {
                    objectName: "conflicts"
                    visible: !controller.editor.isEditing && controller.conflicts.list.length > 0
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

                Card {
                    visible: !controller.editor.isEditing
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

                Card {
                    objectName: "recentlyRemovedCard"
                    visible: !controller.editor.isEditing && !!folder.hasKeptRemoved
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    RowLayout {
                        width: parent.width
                        spacing: 12
                        ColumnLayout {
                            Layout.fillWidth: true
                            spacing: 2
                            Label { text: "Recently Removed"; font.weight: Font.DemiBold }
                            Label {
                                Layout.fillWidth: true
                                wrapMode: Text.Wrap
                                text: "What syncs delete or overwrite, here or on a remote, is kept for "
                                      + (folder.keepDays || 30) + " days."
                                color: app.theme.secondary
                                font.pixelSize: 12
                            }
                        }
                        AppButton {
                            objectName: "recentlyRemoved"
                            text: "Show…"
                            iconName: "clock.arrow.circlepath"
                            toolTip: "Restore or delete what syncs removed from this folder"
                            Accessible.name: "Show Recently Removed"
                            onClicked: removedSheet.open()
                        }
                    }
                }

                // ---- edit mode ----
                Card {
                    visible: controller.editor.isEditing
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
                            AppTextField {
                                objectName: "editLocalPath"
                                Layout.fillWidth: true
                                placeholderText: "/path/to/local/folder"
                                text: controller.editor.localPath
                                onTextEdited: controller.editor.localPath = text
                            }
                            AppButton {
                                text: "Browse"
                                onClicked: folderDialog.open()
                            }
                        }
                        Label {
                            objectName: "pathWarning"
                            visible: controller.editor.pathWarning !== ""
                            Layout.fillWidth: true
                            text: controller.editor.pathWarning
                            color: app.theme.orange
                            font.pixelSize: 11
                            wrapMode: Text.Wrap
                        }

                        Label { text: "Remote Targets"; font.weight: Font.DemiBold; Layout.topMargin: 8 }
                        Label {
                            visible: controller.editor.targets.length === 0
                            text: "No remote targets configured"
                            color: app.theme.secondary
                        }
                        Repeater {
                            model: controller.editor.targets
                            delegate: RowLayout {
                                id: targetRow
                                required property var modelData
                                required property int index
                                Layout.fillWidth: true
                                spacing: 6
                                // Follows the row's remote name, also when the
                                // remote list is read again under it; a name
                                // rclone no longer lists is shown as it is.
                                AppComboBox {
                                    id: remoteChooser
                                    objectName: "targetRemote"
                                    Layout.preferredWidth: 170
                                    model: app.remotes
                                    textRole: "name"
                                    valueRole: "name"
                                    displayText: targetRow.modelData.remoteName || "Select"
                                    onActivated: controller.editor.setTargetRemote(targetRow.index, currentValue)
                                    // After the combo box's own reaction to the reset.
                                    function follow() { currentIndex = indexOfValue(targetRow.modelData.remoteName) }
                                    Component.onCompleted: follow()
                                    Connections {
                                        target: app.remotes
                                        function onModelReset() { Qt.callLater(remoteChooser.follow) }
                                    }
                                }
                                AppTextField {
                                    objectName: "targetPath"
                                    Layout.fillWidth: true
                                    placeholderText: "/path"
                                    text: targetRow.modelData.remotePath
                                    onTextEdited: controller.editor.setTargetPath(targetRow.index, text)
                                }
                                AppButton {
                                    id: upButton
                                    objectName: "moveTargetUp"
                                    kind: "borderless"
                                    display: AbstractButton.IconOnly
                                    iconName: "chevron.up"
                                    text: "Move Up"
                                    toolTip: "Move Up"
                                    enabled: targetRow.index > 0
                                    onClicked: pane.moveTarget(targetRow.index, -1, "up")
                                }
                                AppButton {
                                    id: downButton
                                    objectName: "moveTargetDown"
                                    kind: "borderless"
                                    display: AbstractButton.IconOnly
                                    iconName: "chevron.down"
                                    text: "Move Down"
                                    toolTip: "Move Down"
                                    enabled: targetRow.index < controller.editor.targets.length - 1
                                    onClicked: pane.moveTarget(targetRow.index, 1, "down")
                                }
                                AppButton {
                                    objectName: "removeTarget"
                                    kind: "borderless"
                                    display: AbstractButton.IconOnly
                                    iconName: "minus.circle.fill"
                                    tint: app.theme.red
                                    text: "Remove Target"
                                    toolTip: "Remove Target"
                                    onClicked: controller.editor.removeTarget(targetRow.index)
                                }
                                // The rows are made again after a move: the
                                // moved row's button takes the focus back
                                // (or its other one, at either end).
                                Component.onCompleted: {
                                    if (pane.refocus === null || pane.refocus.index !== index)
                                        return
                                    const wanted = pane.refocus.button === "up" ? upButton : downButton
                                    const other = wanted === upButton ? downButton : upButton
                                    pane.refocus = null
                                    Qt.callLater(() => (wanted.enabled ? wanted : other).forceActiveFocus(Qt.TabFocusReason))
                                }
                            }
                        }
                        AppButton {
                            objectName: "addTarget"
                            kind: "borderless"
                            tint: app.theme.blue
                            text: "Add Remote Target"
                            iconName: "plus.circle.fill"
                            onClicked: controller.editor.addTarget()
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
                            AppComboBox {
                                objectName: "conflictResolution"
                                Layout.preferredWidth: 230
                                enabled: controller.editor.isEditing
                                model: controller.editor.options.conflictLabels
                                currentIndex: controller.editor.options.conflictResolution
                                onActivated: controller.editor.options.conflictResolution = currentIndex
                            }
                        }
                        SectionTitle { app: pane.app; icon: "eye.slash.circle.fill"; text: "Exclude Patterns"; Layout.topMargin: 6 }
                        AppSwitch {
                            objectName: "excludeGit"
                            text: ".git"
                            enabled: controller.editor.isEditing
                            checked: controller.editor.options.excludeGit
                            onToggled: controller.editor.options.excludeGit = checked
                        }
                        AppSwitch {
                            objectName: "excludeNodeModules"
                            text: "node_modules"
                            iconName: "shippingbox"
                            enabled: controller.editor.isEditing
                            checked: controller.editor.options.excludeNodeModules
                            onToggled: controller.editor.options.excludeNodeModules = checked
                        }
                        AppSwitch {
                            objectName: "excludeHidden"
                            text: "Hidden files"
                            iconName: "eye.slash"
                            enabled: controller.editor.isEditing
                            checked: controller.editor.options.excludeHidden
                            onToggled: controller.editor.options.excludeHidden = checked
                        }
                    }
                }
                Card {
                    visible: controller.editor.isEditing
                    Layout.fillWidth: true
                    Layout.leftMargin: 24
                    Layout.rightMargin: 24
                    app: pane.app
                    ColumnLayout {
                        width: parent.width
                        spacing: 8
                        Label { text: "Safety & Control"; font.weight: Font.DemiBold }
                        AppSwitch {
                            objectName: "editPaused"
                            text: "Paused"
                            iconName: "pause"
                            checked: controller.editor.options.paused
                            onToggled: controller.editor.options.paused = checked
                        }
                        Label {
                            Layout.fillWidth: true
                            wrapMode: Text.Wrap
                            text: "A paused folder syncs only when you click Sync Now: not when its files change, "
                                  + "nor at the sync interval."
                            font.pixelSize: 11
                            color: app.theme.secondary
                        }
                        AppSwitch {
                            objectName: "editKeepRemoved"
                            text: "Keep removed and replaced files"
                            iconName: "trash"
                            checked: controller.editor.options.keepRemoved
                            onToggled: controller.editor.options.keepRemoved = checked
                        }
                        RowLayout {
                            visible: controller.editor.options.keepRemoved
                            spacing: 8
                            Label { text: "Keep for" }
                            AppComboBox {
                                objectName: "editKeepDays"
                                Layout.preferredWidth: 120
                                model: controller.editor.options.keepDaysLabels
                                currentIndex: controller.editor.options.keepDaysIndex
                                onActivated: index => controller.editor.options.keepDaysIndex = index
                                Accessible.name: "Keep removed files for"
                            }
                        }
                        Label {
                            Layout.fillWidth: true
                            wrapMode: Text.Wrap
                            text: "What a sync deletes or overwrites is kept instead: on this computer in "
                                  + "~/.local/share/nimbrell/removed, on each remote in a hidden folder "
                                  + "\".nimbrell-removed\" that is never synced. Recently Removed puts them back."
                            font.pixelSize: 11
                            color: app.theme.secondary
                        }
                    }
                }
                Item { Layout.preferredHeight: 16 }
            }
        }
    }

    RemovedSheet {
        id: removedSheet
        app: pane.app
        parent: Overlay.overlay
        folderId: pane.folderId
        folderName: pane.folder.name || ""
        keepDays: pane.folder.keepDays || 30
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
