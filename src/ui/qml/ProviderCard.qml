import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// One storage provider to choose in the add-remote sheet.
AbstractButton {
    id: card
    required property NimbrellApp app
    property string label
    property string value
    property color tint
    property bool isSelected: false

    implicitWidth: 150
    implicitHeight: 64
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    padding: 12
    Accessible.name: label
    Accessible.role: Accessible.RadioButton
    Accessible.checked: isSelected
    // For the focus ring's colour.
    readonly property AppTheme theme: app.theme

    background: Rectangle {
        radius: 10
        color: card.isSelected ? Qt.rgba(card.tint.r, card.tint.g, card.tint.b, 0.14)
             : card.hovered ? Qt.rgba(card.tint.r, card.tint.g, card.tint.b, 0.07)
             : card.app.theme.card
        border.width: card.isSelected ? 2 : 1
        border.color: card.isSelected ? card.tint : card.app.theme.separator
        scale: card.hovered && !card.isSelected ? 1.02 : 1.0
        Behavior on scale { SpringAnimation { spring: 4; damping: 0.4 } }
        FocusRing { target: card }
    }
    contentItem: RowLayout {
        spacing: 8
        Rectangle {
            Layout.preferredWidth: 10
            Layout.preferredHeight: 10
            radius: 5
            color: card.tint
        }
        Label {
            Layout.fillWidth: true
            text: card.label
            elide: Text.ElideRight
            font.weight: Font.Medium
        }
        Icon {
            visible: card.isSelected
            name: "checkmark.circle.fill"
            color: card.tint
        }
    }
}
