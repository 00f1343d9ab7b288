import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// "Choose Folders…": the folder's directories here and on its remotes, one
// level read at a time as it is opened. An unchecked directory is skipped on
// both sides, and deleted nowhere.
Dialog {
    id: sheet
    required property NimbrellApp app
    required property FolderChoices choices

    objectName: "chooseFoldersSheet"
    modal: true
    closePolicy: Popup.CloseOnEscape
    anchors.centerIn: Overlay.overlay
    width: Math.min(560, (parent ? parent.width : 560) - 40)
    height: Math.min(520, (parent ? parent.height : 520) - 40)
    padding: 16
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    background: SheetBackground {}

    header: Label {
        leftPadding: 16
        topPadding: 14
        bottomPadding: 6
        text: "Choose Folders"
        font.pixelSize: 15
        font.weight: Font.DemiBold
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 8

        Label {
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            text: "Unchecked folders are not synced, on this computer or on the remotes. "
                  + "Nothing in them is deleted, and checking them again brings both sides together."
            color: sheet.app.theme.secondary
        }
        RowLayout {
            visible: sheet.choices.tree.loading
            spacing: 8
            BusyIndicator { running: parent.visible; Layout.preferredWidth: 20; Layout.preferredHeight: 20 }
            Label { text: "Reading folders…"; color: sheet.app.theme.secondary }
        }
        Label {
            objectName: "treeError"
            visible: text !== ""
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            textFormat: Text.PlainText
            text: sheet.choices.tree.error
            color: sheet.app.theme.red
        }
        Rectangle {
            Layout.fillWidth: true
            Layout.fillHeight: true
            radius: 6
            color: sheet.app.theme.base
            border.color: sheet.app.theme.separator
            clip: true

            TreeView {
                id: tree
                objectName: "folderTree"
                anchors.fill: parent
                anchors.margins: 1
                model: sheet.choices.tree
                ScrollBar.vertical: ScrollBar {}
                delegate: Item {
                    id: row
                    required property TreeView treeView
                    required property bool isTreeNode
                    required property bool expanded
                    required property bool hasChildren
                    required property int depth
                    required property int row
                    required property string name
                    required property string path
                    required property int checkState
                    required property bool checkable
                    required property string where

                    implicitWidth: tree.width
                    implicitHeight: 30

                    RowLayout {
                        anchors.fill: parent
                        anchors.leftMargin: 6 + row.depth * 20
                        spacing: 4
                        ToolButton {
                            objectName: "expand"
                            Layout.preferredWidth: 22
                            Layout.preferredHeight: 22
                            opacity: row.hasChildren ? 1 : 0
                            enabled: row.hasChildren
                            icon.name: ""
                            text: row.expanded ? "▾" : "▸"
                            onClicked: row.treeView.toggleExpanded(row.row)
                            Accessible.name: (row.expanded ? "Close " : "Open ") + row.name
                        }
                        CheckBox {
                            objectName: "folderCheck"
                            tristate: true
                            checkState: row.checkState
                            enabled: row.checkable
                            nextCheckState: function() { return checkState }
                            onClicked: sheet.choices.tree.toggle(row.path)
                            Accessible.name: row.name
                        }
                        Icon { name: "folder.fill"; color: sheet.app.theme.secondary; size: 14 }
                        Label {
                            Layout.fillWidth: true
                            text: row.name
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            opacity: row.checkState === Qt.Unchecked ? 0.6 : 1
                        }
                        Label {
                            visible: row.where !== ""
                            text: row.where
                            font.pixelSize: 11
                            color: sheet.app.theme.secondary
                            Layout.rightMargin: 8
                        }
                    }
                }
            }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            Label {
                Layout.fillWidth: true
                text: sheet.choices.tree.summary
                color: sheet.app.theme.secondary
            }
            AppButton {
                objectName: "cancelFolders"
                text: "Cancel"
                onClicked: sheet.close()
            }
            AppButton {
                objectName: "doneFolders"
                text: "Done"
                kind: "primary"
                onClicked: {
                    sheet.choices.acceptFolders()
                    sheet.close()
                }
            }
        }
    }
}
