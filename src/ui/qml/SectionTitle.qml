import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A section heading inside a detail card, with an optional icon.
RowLayout {
    property string text
    property string icon
    property NimbrellApp app
    spacing: 6
    Icon {
        visible: parent.icon !== ""
        name: parent.icon
        color: parent.app ? parent.app.theme.secondary : palette.windowText
    }
    Label {
        text: parent.text
        font.weight: Font.DemiBold
    }
}
