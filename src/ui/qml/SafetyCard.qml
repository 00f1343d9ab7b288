import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// "Safety & Control" in the editor: pausing, and keeping what syncs remove.
Card {
    id: card
    required property FolderOptions options

    ColumnLayout {
        width: parent.width
        spacing: 8
        Label { text: "Safety & Control"; font.weight: Font.DemiBold }
        AppSwitch {
            objectName: "editPaused"
            text: "Paused"
            iconName: "pause"
            checked: card.options.paused
            onToggled: card.options.paused = checked
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
            checked: card.options.keepRemoved
            onToggled: card.options.keepRemoved = checked
        }
        RowLayout {
            visible: card.options.keepRemoved
            spacing: 8
            Label { text: "Keep for" }
            AppComboBox {
                objectName: "editKeepDays"
                Layout.preferredWidth: 120
                model: card.options.keepDaysLabels
                currentIndex: card.options.keepDaysIndex
                onActivated: index => card.options.keepDaysIndex = index
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
