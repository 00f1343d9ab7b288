import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A count and a label, tinted.
Rectangle {
    id: pill
    property string label
    property int count
    property color tint

    implicitWidth: row.implicitWidth + 24
    implicitHeight: row.implicitHeight + 12
    radius: height / 2
    color: Qt.rgba(tint.r, tint.g, tint.b, 0.14)

    RowLayout {
        id: row
        anchors.centerIn: parent
        spacing: 6
        Label { text: String(pill.count); font.bold: true; color: pill.tint }
        Label { text: pill.label; color: pill.tint }
    }
}
