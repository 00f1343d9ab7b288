import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A titled value tile.
Card {
    id: card
    property string title
    property string value
    property string icon
    property color color
    property real iconRotation: 0

    implicitHeight: 96
    ColumnLayout {
        width: parent.width
        spacing: 4
        Icon {
            name: card.icon
            color: card.color
            size: 22
            rotation: card.iconRotation
        }
        Label {
            Layout.fillWidth: true
            text: card.value
            textFormat: Text.PlainText
            elide: Text.ElideRight
            font.pixelSize: 24
            font.bold: true
        }
        Label {
            Layout.fillWidth: true
            text: card.title
            elide: Text.ElideRight
            font.pixelSize: 11
            color: card.app.theme.secondary
        }
    }
}
