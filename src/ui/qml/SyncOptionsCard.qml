import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The direction, the conflict policy, the exclusions, the skipped folders
// and the ignore rules: shown in both modes, editable in the editor only.
Card {
    id: card
    required property FolderOptions options
    required property FolderChoices choices
    required property bool editing
    signal chooseFoldersRequested()

    ColumnLayout {
        width: parent.width
        spacing: 8
        Label { text: "Sync Options"; font.weight: Font.DemiBold }
        RowLayout {
            spacing: 8
            SectionTitle { app: card.app; icon: "arrow.triangle.2.circlepath"; text: "Direction" }
            AppComboBox {
                objectName: "direction"
                Layout.preferredWidth: 230
                enabled: card.editing
                model: card.choices.directionLabels
                currentIndex: card.choices.direction
                onActivated: card.choices.direction = currentIndex
                Accessible.name: "Direction"
            }
        }
        Label {
            objectName: "directionSentence"
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            text: card.choices.directionSentence
            font.pixelSize: 11
            color: card.app.theme.secondary
        }
        RowLayout {
            visible: card.choices.direction === 0
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
    
        SectionTitle { app: card.app; icon: "folder.fill"; text: "Folders"; Layout.topMargin: 6 }
        RowLayout {
            spacing: 8
            Label {
                objectName: "skippedSummary"
                text: card.choices.skippedSummary
            }
            AppButton {
                objectName: "chooseFolders"
                visible: card.editing
                text: "Choose Folders…"
                onClicked: card.chooseFoldersRequested()
            }
        }
        Repeater {
            model: card.choices.skipped
            delegate: RowLayout {
                required property string modelData
                spacing: 6
                Layout.leftMargin: 4
                Icon { name: "eye.slash"; color: card.app.theme.secondary }
                Label { text: parent.modelData; color: card.app.theme.secondary; elide: Text.ElideMiddle }
            }
        }
        SectionTitle { app: card.app; icon: "eye.slash.circle.fill"; text: "Ignore"; Layout.topMargin: 6 }
        Label {
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            visible: card.editing
            text: "One pattern a line, in rclone's filter syntax: *.tmp, /build/**, **/.cache/**."
            font.pixelSize: 11
            color: card.app.theme.secondary
        }
        TextArea {
            objectName: "ignoreRules"
            Layout.fillWidth: true
            Layout.minimumHeight: 64
            visible: card.editing || text !== ""
            readOnly: !card.editing
            text: card.choices.ignoreText
            placeholderText: card.editing ? "*.tmp" : ""
            font.family: "monospace"
            wrapMode: TextEdit.NoWrap
            selectByMouse: true
            onTextChanged: if (card.editing && text !== card.choices.ignoreText) card.choices.ignoreText = text
            Accessible.name: "Ignore rules"
            background: Rectangle {
                radius: 6
                color: card.app.theme.base
                border.color: parent.activeFocus ? card.app.theme.accent : card.app.theme.separator
            }
        }
        Label {
            visible: card.editing && card.choices.checking
            text: "Checking the rules with rclone…"
            font.pixelSize: 11
            color: card.app.theme.secondary
        }
        Repeater {
            model: card.editing ? card.choices.refusedRules : []
            delegate: Label {
                required property var modelData
                objectName: "refusedRule"
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                textFormat: Text.PlainText
                text: (modelData.pattern !== "" ? "“" + modelData.pattern + "” is not saved: " : "") + modelData.reason
                color: card.app.theme.red
            }
        }
    }
}
