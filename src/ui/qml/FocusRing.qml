import QtQuick
import QtQuick.Controls

// The ring around a control that has the keyboard's focus.
Rectangle {
    property Item target
    property real gap: 2
    anchors.fill: parent
    anchors.margins: -gap - border.width
    radius: parent.radius + gap + border.width
    color: "transparent"
    border.width: 2
    border.color: target && target.theme ? target.theme.accent : palette.highlight
    visible: target && target.visualFocus
}
