import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A remote: what it is, its storage figures, and its guarded deletion.
Item {
    id: pane
    required property NimbrellApp app
    property string remoteName

    RemoteDetailController {
        id: controller
        objectName: "remoteController"
        app: pane.app
        remoteName: pane.remoteName
        onConfirmationRequested: message => { confirmDialog.message = message; confirmDialog.open() }
        onRefusalShown: message => { refusalDialog.message = message; refusalDialog.open() }
        onDeleted: app.remotes.reload()
    }

    ScrollView {
        id: scroll
        anchors.fill: parent
        contentWidth: availableWidth

        ColumnLayout {
            width: scroll.availableWidth
            spacing: 16

            RowLayout {
                Layout.fillWidth: true
                Layout.margins: 24
                Layout.bottomMargin: 0
                spacing: 12
                Icon { name: controller.iconName; color: app.theme.blue; size: 40 }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        Layout.fillWidth: true
                        text: pane.remoteName
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        font.pixelSize: 22
                        font.bold: true
                    }
                    Label { text: controller.typeName; color: app.theme.secondary }
                }
            }

            Card {
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                app: pane.app
                GridLayout {
                    width: parent.width
                    columns: 3
                    columnSpacing: 10
                    rowSpacing: 10
                    Icon { name: "tag.fill"; color: app.theme.secondary }
                    Label { text: "Name"; color: app.theme.secondary }
                    Label { Layout.fillWidth: true; text: pane.remoteName; textFormat: Text.PlainText; elide: Text.ElideRight }
                    Icon { name: "cloud.fill"; color: app.theme.secondary }
                    Label { text: "Type"; color: app.theme.secondary }
                    Label { Layout.fillWidth: true; text: controller.typeName; elide: Text.ElideRight }
                    Icon { name: "gearshape.fill"; color: app.theme.secondary }
                    Label { text: "Backend"; color: app.theme.secondary }
                    Label { Layout.fillWidth: true; text: controller.backend; textFormat: Text.PlainText; elide: Text.ElideRight }
                }
            }

            Card {
                objectName: "storageCard"
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                app: pane.app
                ColumnLayout {
                    width: parent.width
                    spacing: 10
                    Label { text: "Storage"; font.weight: Font.DemiBold }

                    RowLayout {
                        visible: controller.storage.isLoading
                        spacing: 8
                        BusyIndicator { Layout.preferredWidth: 18; Layout.preferredHeight: 18; padding: 0; running: parent.visible }
                        Label { text: "Loading storage info..." }
                    }
                    ColumnLayout {
                        visible: !controller.storage.isLoading && controller.storage.error !== ""
                        Layout.fillWidth: true
                        spacing: 4
                        RowLayout {
                            spacing: 8
                            Icon { name: "exclamationmark.triangle"; color: app.theme.orange }
                            Label { text: "Could not load storage info" }
                        }
                        Label {
                            objectName: "storageError"
                            Layout.fillWidth: true
                            text: controller.storage.error
                            textFormat: Text.PlainText
                            wrapMode: Text.Wrap
                            maximumLineCount: 6
                            elide: Text.ElideRight
                            color: app.theme.secondary
                            font.pixelSize: 11
                        }
                    }
                    ColumnLayout {
                        visible: !controller.storage.isLoading && controller.storage.error === "" && controller.storage.hasSpaceInfo
                        Layout.fillWidth: true
                        spacing: 8
                        ColumnLayout {
                            visible: controller.storage.usageFraction !== undefined
                            Layout.fillWidth: true
                            spacing: 6
                            SyncProgressBar {
                                Layout.fillWidth: true
                                app: pane.app
                                value: controller.storage.usageFraction || 0
                            }
                            RowLayout {
                                Layout.fillWidth: true
                                Label {
                                    Layout.fillWidth: true
                                    text: app.format.byteCount(controller.storage.used || 0) + " of "
                                          + app.format.byteCount(controller.storage.total || 0) + " used"
                                    color: app.theme.secondary
                                }
                                Label {
                                    objectName: "usagePercentage"
                                    text: controller.storage.usagePercentage
                                    color: controller.storage.usageCritical ? app.theme.red : palette.windowText
                                    font.weight: Font.DemiBold
                                }
                            }
                        }
                        Repeater {
                            model: [
                                { label: "Total", icon: "externaldrive.fill", color: app.theme.blue, value: controller.storage.total },
                                { label: "Used", icon: "chart.bar.fill", color: app.theme.orange, value: controller.storage.used },
                                { label: "Free", icon: "checkmark.circle.fill", color: app.theme.green, value: controller.storage.free },
                                { label: "Trash", icon: "trash.fill", color: app.theme.secondary, value: controller.storage.trashed }
                            ]
                            delegate: RowLayout {
                                required property var modelData
                                visible: modelData.value !== undefined
                                Layout.fillWidth: true
                                spacing: 8
                                Icon { name: modelData.icon; color: modelData.color }
                                Label { Layout.fillWidth: true; text: modelData.label }
                                Label { text: app.format.byteCount(modelData.value || 0); font.family: "monospace" }
                            }
                        }
                    }
                    RowLayout {
                        visible: !controller.storage.isLoading && controller.storage.error === "" && !controller.storage.hasSpaceInfo
                        spacing: 8
                        Icon { name: "info.circle"; color: app.theme.secondary }
                        Label { text: "Storage info not available for this remote type"; color: app.theme.secondary }
                    }
                }
            }
            // Below the storage figures, as its own step: deleting takes a
            // moment, and is shown while it runs.
            RowLayout {
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                spacing: 10
                AppButton {
                    objectName: "editRemoteSettings"
                    text: "Edit Settings…"
                    iconName: "gearshape"
                    toolTip: "Change this remote's settings"
                    enabled: !controller.isDeleting
                    onClicked: editLoader.item ? editLoader.item.open() : editLoader.active = true
                }
                AppButton {
                    objectName: "deleteRemote"
                    kind: "destructive"
                    text: "Delete Remote"
                    iconName: "trash"
                    toolTip: "Delete this remote"
                    enabled: !controller.isDeleting
                    onClicked: controller.requestDelete()
                }
                BusyIndicator {
                    visible: controller.isDeleting
                    running: visible
                    Layout.preferredWidth: 18
                    Layout.preferredHeight: 18
                    padding: 0
                }
                Label {
                    objectName: "deletingRemote"
                    visible: controller.isDeleting
                    text: "Deleting…"
                    color: app.theme.secondary
                }
            }
            Item { Layout.preferredHeight: 16 }
        }
    }

    // Made the first time it is asked for; opened once made (which may take
    // a moment while the pane itself is still being loaded).
    Loader {
        id: editLoader
        active: false
        onLoaded: item.open()
        sourceComponent: EditRemoteSheet {
            app: pane.app
            remoteName: pane.remoteName
            onClosed: controller.loadSpaceInfo()
        }
    }
    ConfirmDialog {
        id: confirmDialog
        objectName: "remoteDeleteDialog"
        title: "Delete Remote?"
        confirmObjectName: "confirmRemoteDelete"
        onConfirmed: controller.confirmDelete()
    }
    ConfirmDialog {
        id: refusalDialog
        objectName: "remoteRefusalDialog"
        title: "Cannot Delete Remote"
        confirmText: "OK"
        confirmOnly: true
    }
}
