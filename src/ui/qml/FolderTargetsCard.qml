import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// Where the folder is, and the remotes it syncs with in turn.
Card {
    id: card
    required property var folder
    required property bool syncing

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
                    visible: card.syncing && folder.currentTargetIndex === index
                    running: visible
                    Layout.preferredWidth: 16
                    Layout.preferredHeight: 16
                    padding: 0
                }
                Label {
                    visible: card.syncing && folder.currentTargetIndex === index
                    text: "Syncing"
                    color: app.theme.blue
                }
                Icon {
                    visible: card.syncing && folder.currentTargetIndex > index
                    name: "checkmark.circle.fill"
                    color: app.theme.green
                }
            }
        }
    }
}
