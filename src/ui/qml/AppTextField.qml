import QtQuick
import QtQuick.Controls
import Nimbrell

// The application's text field: a rounded box that shows the accent while
// it has the focus.
TextField {
    id: control
    readonly property AppTheme theme: ApplicationWindow.window ? ApplicationWindow.window.app.theme : null

    implicitHeight: 30
    leftPadding: 9
    rightPadding: 9
    selectByMouse: true
    color: palette.text
    placeholderTextColor: palette.placeholderText
    selectionColor: palette.highlight
    selectedTextColor: palette.highlightedText
    opacity: enabled ? 1 : 0.55

    background: Rectangle {
        radius: 7
        color: control.palette.base
        border.width: control.activeFocus ? 2 : 1
        border.color: control.activeFocus ? (control.theme ? control.theme.accent : control.palette.highlight)
                    : Qt.rgba(control.palette.windowText.r, control.palette.windowText.g, control.palette.windowText.b, 0.2)
    }
}
