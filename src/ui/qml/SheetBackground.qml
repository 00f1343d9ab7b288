import QtQuick

// The rounded panel of a dialog or sheet.
Rectangle {
    radius: 12
    color: palette.window
    border.color: Qt.rgba(palette.windowText.r, palette.windowText.g, palette.windowText.b, 0.14)
}
