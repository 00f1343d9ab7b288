import QtQuick


// The rounded highlight of a selected or hovered sidebar row, ringed while
// the sidebar has the keyboard's focus.
Rectangle {
    property Item row
    x: 6
    width: row.width - 12
    height: row.height
    radius: 6
    color: row.highlighted ? palette.highlight
         : row.hovered ? Qt.rgba(palette.windowText.r, palette.windowText.g, palette.windowText.b, 0.07)
         : "transparent"
    border.width: row.showsFocus ? 2 : 0
    border.color: Qt.lighter(palette.highlight, 1.45)
}
