import QtQuick
import Nimbrell

// The bar of a running sync: a rounded track and a fill of `value` of its width.
Rectangle {
    required property NimbrellApp app
    property real value: 0

    implicitHeight: 8
    radius: height / 2
    color: app.theme.separator
    Rectangle {
        width: parent.width * Math.max(0, Math.min(1, parent.value))
        height: parent.height
        radius: parent.radius
        color: app.theme.blue
    }
}
