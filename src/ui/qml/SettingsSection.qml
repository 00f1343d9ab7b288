import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A titled group of settings on a card.
ColumnLayout {
    id: section
    required property NimbrellApp app
    property string title
    default property alias content: card.content
    spacing: 6
    Label {
        leftPadding: 4
        text: section.title
        font.weight: Font.DemiBold
    }
    Card {
        id: card
        Layout.fillWidth: true
        app: section.app
        padding: 14
    }
}
