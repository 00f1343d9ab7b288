import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A detail pane that is still to come.
Item {
    property string title
    property string subtitle

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 480)
        spacing: 6
        Label {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: title
            textFormat: Text.PlainText
            elide: Text.ElideRight
            font.pixelSize: 20
            font.weight: Font.DemiBold
        }
        Label {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: subtitle
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            opacity: 0.65
        }
    }
}
