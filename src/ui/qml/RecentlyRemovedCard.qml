import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// Where what the folder's syncs removed can be found again.
Card {
    id: card
    required property var folder
    signal showRequested()

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
            onClicked: card.showRequested()
        }
    }
}
