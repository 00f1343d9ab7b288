import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// One rclone remote in the sidebar: its provider's icon, name and kind.
ItemDelegate {
    id: row
    required property NimbrellApp app
    required property string name
    required property string displayTypeName
    required property string iconName
    required property bool iconIsAsset
    property bool selected: false
    property bool showsFocus: false

    highlighted: selected
    focusPolicy: Qt.NoFocus
    padding: 8
    horizontalPadding: 14
    background: SidebarRowBackground { row: row }
    readonly property color textColor: highlighted ? palette.highlightedText : palette.windowText

    contentItem: RowLayout {
        spacing: 10
        Item {
            Layout.preferredWidth: 28
            Layout.preferredHeight: 28
            Icon {
                anchors.centerIn: parent
                name: row.iconName
                size: row.iconIsAsset ? 24 : 18
                color: row.highlighted ? palette.highlightedText : app.theme.accent
            }
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 1
            Label {
                Layout.fillWidth: true
                text: row.name
                textFormat: Text.PlainText
                elide: Text.ElideRight
                font.weight: Font.Medium
                color: row.textColor
            }
            Label {
                Layout.fillWidth: true
                text: row.displayTypeName
                textFormat: Text.PlainText
                elide: Text.ElideRight
                font.pixelSize: 11
                color: row.textColor
                opacity: 0.65
            }
        }
    }
}
