import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The editor's path and remote targets, in sync order.
Card {
    id: card
    required property FolderEditor editor
    signal browseRequested()
    
    // Which button of which target row takes the focus once the rows are remade.
    property var refocus: null
    function moveTarget(index, step, button) {
        refocus = { index: index + step, button: button }
        editor.moveTarget(index, step)
    }

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
                text: card.editor.localPath
                onTextEdited: card.editor.localPath = text
            }
            AppButton {
                text: "Browse"
                onClicked: card.browseRequested()
            }
        }
        Label {
            objectName: "pathWarning"
            visible: card.editor.pathWarning !== ""
            Layout.fillWidth: true
            text: card.editor.pathWarning
            color: app.theme.orange
            font.pixelSize: 11
            wrapMode: Text.Wrap
        }

        Label { text: "Remote Targets"; font.weight: Font.DemiBold; Layout.topMargin: 8 }
        Label {
            visible: card.editor.targets.length === 0
            text: "No remote targets configured"
            color: app.theme.secondary
        }
        Repeater {
            model: card.editor.targets
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
                    onActivated: card.editor.setTargetRemote(targetRow.index, currentValue)
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
                    onTextEdited: card.editor.setTargetPath(targetRow.index, text)
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
                    onClicked: card.moveTarget(targetRow.index, -1, "up")
                }
                AppButton {
                    id: downButton
                    objectName: "moveTargetDown"
                    kind: "borderless"
                    display: AbstractButton.IconOnly
                    iconName: "chevron.down"
                    text: "Move Down"
                    toolTip: "Move Down"
                    enabled: targetRow.index < card.editor.targets.length - 1
                    onClicked: card.moveTarget(targetRow.index, 1, "down")
                }
                AppButton {
                    objectName: "removeTarget"
                    kind: "borderless"
                    display: AbstractButton.IconOnly
                    iconName: "minus.circle.fill"
                    tint: app.theme.red
                    text: "Remove Target"
                    toolTip: "Remove Target"
                    onClicked: card.editor.removeTarget(targetRow.index)
                }
                // The rows are made again after a move: the
                // moved row's button takes the focus back
                // (or its other one, at either end).
                Component.onCompleted: {
                    if (card.refocus === null || card.refocus.index !== index)
                        return
                    const wanted = card.refocus.button === "up" ? upButton : downButton
                    const other = wanted === upButton ? downButton : upButton
                    card.refocus = null
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
            onClicked: card.editor.addTarget()
        }
    }
}
