import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The application's switch: a pill in the accent colour when on, with an
// optional symbol before its text.
Switch {
    id: control
    property string iconName

    readonly property AppTheme theme: ApplicationWindow.window ? ApplicationWindow.window.app.theme : null
    readonly property color accent: theme ? theme.accent : palette.highlight

    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    spacing: 10
    padding: 4
    opacity: enabled ? 1 : 0.5
    Accessible.name: text

    indicator: Rectangle {
        implicitWidth: 36
        implicitHeight: 20
        x: control.text ? control.leftPadding : (control.width - width) / 2
        y: (control.height - height) / 2
        radius: height / 2
        color: control.checked ? (control.down ? Qt.darker(control.accent, 1.15) : control.accent)
             : Qt.rgba(control.palette.windowText.r, control.palette.windowText.g, control.palette.windowText.b,
                       control.hovered ? 0.24 : 0.18)
        Behavior on color { ColorAnimation { duration: 120 } }
        Rectangle {
            width: 16
            height: 16
            radius: 8
            y: 2
            x: control.checked ? parent.width - width - 2 : 2
            color: "white"
            border.width: 1
            border.color: Qt.rgba(0, 0, 0, 0.08)
            Behavior on x { SpringAnimation { spring: 6; damping: 0.55; epsilon: 0.25 } }
        }
        FocusRing { target: control }
    }

    contentItem: RowLayout {
        spacing: 6
        Item { Layout.preferredWidth: control.indicator.width + control.spacing - 6 }
        Icon {
            visible: control.iconName !== ""
            name: control.iconName
            color: control.palette.windowText
        }
        Label {
            Layout.fillWidth: true
            text: control.text
            textFormat: Text.PlainText
            elide: Text.ElideRight
        }
    }
}
