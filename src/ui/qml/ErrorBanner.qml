import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A failed sync in one line, with the full log a click away.
Rectangle {
    id: banner
    required property NimbrellApp app
    property string log

    implicitHeight: row.implicitHeight + 20
    radius: 8
    color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.10)
    border.color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.35)

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.margins: 10
        spacing: 10
        Icon { name: "exclamationmark.triangle.fill"; color: app.theme.red; size: 18 }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Label { text: "Sync Error"; color: app.theme.red; font.weight: Font.DemiBold }
            Label {
                objectName: "errorSummary"
                Layout.fillWidth: true
                text: app.format.errorSummary(banner.log)
                textFormat: Text.PlainText
                elide: Text.ElideRight
                maximumLineCount: 1
            }
        }
        Button {
            text: "View Log"
            flat: false
            onClicked: logSheet.open()
        }
    }

    ErrorLogSheet {
        id: logSheet
        app: banner.app
        log: banner.log
        parent: Overlay.overlay
    }
}
