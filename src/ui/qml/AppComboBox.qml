import QtQuick
import QtQuick.Controls
import Nimbrell

// The application's drop-down list: a button-like box with a chevron.
ComboBox {
    id: control
    readonly property AppTheme theme: ApplicationWindow.window ? ApplicationWindow.window.app.theme : null

    implicitHeight: 30
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    leftPadding: 10
    rightPadding: 30
    opacity: enabled ? 1 : 0.55
    Accessible.name: displayText

    contentItem: Label {
        text: control.displayText
        textFormat: Text.PlainText
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        color: control.palette.buttonText
    }
    indicator: Icon {
        x: control.width - width - 10
        y: (control.height - height) / 2
        name: "chevron.down"
        size: 12
        color: control.palette.buttonText
    }
    background: Rectangle {
        radius: 7
        readonly property color ink: control.palette.windowText
        color: Qt.rgba(ink.r, ink.g, ink.b, control.down ? 0.16 : control.hovered ? 0.1 : 0.05)
        border.width: 1
        border.color: Qt.rgba(ink.r, ink.g, ink.b, 0.16)
        FocusRing { target: control }
    }
}
