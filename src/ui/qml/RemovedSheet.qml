import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A folder's "Recently Removed": what its runs kept instead of deleting or
// overwriting, on this computer and on each remote, newest first. A file
// goes back where it was (the next sync carries it over) or is deleted for
// good; "Empty" deletes them all.
Dialog {
    id: sheet
    required property NimbrellApp app
    property string folderId
    property string folderName
    property int keepDays

    objectName: "removedSheet"
    modal: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(760, (parent ? parent.width : 760) - 40)
    height: Math.min(560, (parent ? parent.height : 560) - 40)
    padding: 16
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    background: SheetBackground {}
    onOpened: {
        kept.reload()
        list.forceActiveFocus()
    }

    RemovedFilesModel {
        id: kept
        objectName: "removedFiles"
        app: sheet.app
        folderId: sheet.folderId
        onNameTaken: (row, fileName, side) => {
            replaceDialog.row = row
            replaceDialog.title = "Replace “" + fileName + "”?"
            replaceDialog.message = "Something else is now called “" + fileName + "” "
                + (side === "This computer" ? "on this computer" : "in " + side)
                + ". Restoring puts it among the removed files."
            replaceDialog.open()
        }
    }

    header: Column {
        leftPadding: 16
        topPadding: 14
        bottomPadding: 6
        spacing: 2
        Label {
            text: "Recently Removed from " + sheet.folderName
            textFormat: Text.PlainText
            font.pixelSize: 15
            font.weight: Font.DemiBold
        }
        Label {
            text: "What syncs deleted or overwrote, kept for " + sheet.keepDays + " days."
            color: app.theme.secondary
            font.pixelSize: 12
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 10

        RowLayout {
            visible: kept.isBusy
            spacing: 10
            BusyIndicator { running: parent.visible; Layout.preferredWidth: 24; Layout.preferredHeight: 24 }
            Label { text: "Looking on this computer and on each remote…"; color: app.theme.secondary }
        }
        Label {
            objectName: "removedError"
            visible: kept.error !== ""
            Layout.fillWidth: true
            text: kept.error
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: app.theme.red
        }
        Label {
            visible: kept.isLoaded && !kept.isBusy && kept.count === 0
            text: "Nothing removed is kept for this folder."
            color: app.theme.secondary
        }
        ListView {
            id: list
            objectName: "removedList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            reuseItems: true
            boundsBehavior: Flickable.StopAtBounds
            activeFocusOnTab: true
            keyNavigationEnabled: true
            highlightMoveDuration: 0
            model: kept
            ScrollBar.vertical: ScrollBar {}
            Accessible.role: Accessible.List
            Accessible.name: "Recently Removed"
            Keys.onDeletePressed: if (currentItem) currentItem.askDelete()
            highlight: Rectangle {
                radius: 6
                color: Qt.rgba(app.theme.accent.r, app.theme.accent.g, app.theme.accent.b, list.activeFocus ? 0.16 : 0)
            }

            delegate: Item {
                id: row
                objectName: "removed_" + fileName
                required property int index
                required property string fileName
                required property string location
                required property string side
                required property bool fromRemote
                required property string size
                required property var removed
                width: list.width
                height: 48
                Accessible.role: Accessible.ListItem
                Accessible.name: fileName + ", removed from " + side

                function askDelete() {
                    deleteDialog.row = index
                    deleteDialog.message = "“" + fileName + "” will be deleted from " + side
                        + " for good. This cannot be undone."
                    deleteDialog.open()
                }

                RowLayout {
                    anchors.fill: parent
                    anchors.leftMargin: 6
                    anchors.rightMargin: 6
                    spacing: 10
                    Rectangle {
                        Layout.preferredWidth: 26
                        Layout.preferredHeight: 26
                        radius: 13
                        readonly property color tint: row.fromRemote ? app.theme.blue : app.theme.green
                        color: Qt.rgba(tint.r, tint.g, tint.b, 0.15)
                        Icon {
                            anchors.centerIn: parent
                            name: row.fromRemote ? "cloud.fill" : "house.fill"
                            color: parent.tint
                            size: 14
                        }
                    }
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 1
                        Label {
                            Layout.fillWidth: true
                            text: row.fileName
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            font.weight: Font.Medium
                        }
                        Label {
                            Layout.fillWidth: true
                            text: row.location + " · " + row.side + " · " + row.size
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            font.pixelSize: 11
                            color: app.theme.secondary
                        }
                    }
                    Label {
                        text: app.format.relativeTime(row.removed, app.format.now) + " ago"
                        color: app.theme.secondary
                        font.pixelSize: 12
                    }
                    AppButton {
                        objectName: "restore_" + row.fileName
                        text: "Restore"
                        iconName: "arrow.uturn.backward"
                        toolTip: "Put it back where it was"
                        enabled: !kept.isBusy
                        onClicked: kept.restore(row.index)
                    }
                    AppButton {
                        objectName: "deleteRemoved_" + row.fileName
                        kind: "destructive"
                        iconName: "trash"
                        toolTip: "Delete Permanently"
                        Accessible.name: "Delete Permanently"
                        enabled: !kept.isBusy
                        onClicked: row.askDelete()
                    }
                }
                TapHandler { onTapped: list.currentIndex = row.index }
            }
        }
    }

    footer: RowLayout {
        spacing: 8
        AppButton {
            objectName: "emptyRemoved"
            Layout.leftMargin: 16
            Layout.bottomMargin: 16
            kind: "destructive"
            text: "Empty…"
            enabled: kept.count > 0 && !kept.isBusy
            onClicked: emptyDialog.open()
        }
        Item { Layout.fillWidth: true }
        AppButton {
            Layout.bottomMargin: 16
            text: "Refresh"
            iconName: "arrow.triangle.2.circlepath"
            enabled: !kept.isBusy
            onClicked: kept.reload()
        }
        AppButton {
            objectName: "closeRemoved"
            Layout.rightMargin: 16
            Layout.bottomMargin: 16
            kind: "primary"
            text: "Close"
            onClicked: sheet.close()
        }
    }

    ConfirmDialog {
        id: replaceDialog
        property int row: -1
        objectName: "replaceDialog"
        confirmObjectName: "confirmReplace"
        confirmText: "Replace"
        confirmKind: "primary"
        onConfirmed: kept.restore(row, true)
    }
    ConfirmDialog {
        id: deleteDialog
        property int row: -1
        objectName: "deleteRemovedDialog"
        confirmObjectName: "confirmDeleteRemoved"
        title: "Delete Permanently"
        confirmText: "Delete Permanently"
        onConfirmed: kept.deletePermanently(row)
    }
    ConfirmDialog {
        id: emptyDialog
        objectName: "emptyRemovedDialog"
        confirmObjectName: "confirmEmptyRemoved"
        title: "Empty Recently Removed"
        message: "The " + kept.count + (kept.count === 1 ? " file" : " files")
                 + " kept for " + sheet.folderName + ", here and on its remotes, will be deleted for good."
        confirmText: "Empty"
        onConfirmed: kept.empty()
    }
}
