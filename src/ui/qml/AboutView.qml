import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

ColumnLayout {
    id: about
    required property NimbrellApp app
    spacing: 10

    Icon {
        Layout.alignment: Qt.AlignHCenter
        name: "arrow.triangle.2.circlepath.icloud.fill"
        size: 64
        gradient: true
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        text: "Nimbrell"
        font.pixelSize: 24
        font.bold: true
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        text: "Version 1.0"
        font.pixelSize: 12 // subheadline
        opacity: 0.75
    }
    Label {
        Layout.fillWidth: true
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        text: "A beautiful and modern native client for multi-cloud synchronization on Linux."
    }
    Rectangle {
        Layout.fillWidth: true
        Layout.topMargin: 4
        Layout.bottomMargin: 4
        Layout.preferredHeight: 1
        color: app.theme.separator
    }
    Label {
        Layout.alignment: Qt.AlignHCenter
        text: "Acknowledgments"
        font.weight: Font.DemiBold
        font.pixelSize: 15
    }
    Label {
        objectName: "acknowledgment"
        Layout.fillWidth: true
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        textFormat: Text.MarkdownText
        linkColor: app.theme.blue
        font.pixelSize: 12 // subheadline
        opacity: 0.85
        text: "This app utilizes [rclone](https://rclone.org) under the hood to perform syncing. Rclone is licensed under the MIT License."
        onLinkActivated: link => Qt.openUrlExternally(link)
        HoverHandler { cursorShape: parent.hoveredLink ? Qt.PointingHandCursor : Qt.ArrowCursor }
    }
}
