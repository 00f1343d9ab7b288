import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The exclusions and the conflict policy: shown in both modes, editable in the editor only.
Card {
    id: card
    required property FolderOptions options
    required property bool editing

    ColumnLayout {
        width: parent.width
        spacing: 8
        Label { text: "Sync Options"; font.weight: Font.DemiBold }
        RowLayout {
            spacing: 8
            SectionTitle { app: card.app; icon: "arrow.triangle.branch"; text: "Conflict Resolution" }
            AppComboBox {
                objectName: "conflictResolution"
                Layout.preferredWidth: 230
                enabled: card.editing
                model: card.options.conflictLabels
                currentIndex: card.options.conflictResolution
                onActivated: card.options.conflictResolution = currentIndex
            }
        }
        SectionTitle { app: card.app; icon: "eye.slash.circle.fill"; text: "Exclude Patterns"; Layout.topMargin: 6 }
        AppSwitch {
            objectName: "excludeGit"
            text: ".git"
            enabled: card.editing
            checked: card.options.excludeGit
            onToggled: card.options.excludeGit = checked
        }
        AppSwitch {
            objectName: "excludeNodeModules"
            text: "node_modules"
            iconName: "shippingbox"
            enabled: card.editing
            checked: card.options.excludeNodeModules
            onToggled: card.options.excludeNodeModules = checked
        }
        AppSwitch {
            objectName: "excludeHidden"
            text: "Hidden files"
            iconName: "eye.slash"
            enabled: card.editing
            checked: card.options.excludeHidden
            onToggled: card.options.excludeHidden = checked
        }
    }
}
