import QtQuick
import Nimbrell

// The rounded tile the detail screens are built of.
Rectangle {
    required property NimbrellApp app
    default property alias content: inner.data
    property int padding: 16

    implicitWidth: inner.implicitWidth + 2 * padding
    implicitHeight: inner.implicitHeight + 2 * padding
    radius: 10
    color: app.theme.card
    border.color: app.theme.separator

    Item {
        id: inner
        anchors.fill: parent
        anchors.margins: parent.padding
        implicitWidth: childrenRect.width
        implicitHeight: childrenRect.height
    }
}
