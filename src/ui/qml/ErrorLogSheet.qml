import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The whole error text, selectable, with a button that copies all of it.
Dialog {
    id: sheet
    required property NimbrellApp app
    property string log
    property bool didCopy: false

    objectName: "errorLogSheet"
    modal: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(720, (parent ? parent.width : 720) - 40)
    height: Math.min(520, (parent ? parent.height : 520) - 40)
    padding: 16
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    background: SheetBackground {}
    onClosed: didCopy = false

    header: RowLayout {
        spacing: 8
        Item { Layout.preferredWidth: 8 }
        Icon { name: "exclamationmark.triangle.fill"; color: app.theme.red; size: 18 }
        Label {
            Layout.fillWidth: true
            Layout.topMargin: 14
            Layout.bottomMargin: 6
            text: "Error Log"
            font.pixelSize: 15
            font.weight: Font.DemiBold
        }
        AppButton {
            Layout.rightMargin: 16
            Layout.topMargin: 10
            kind: "primary"
            text: "Done"
            onClicked: sheet.close()
        }
    }

    ScrollView {
        anchors.fill: parent
        TextArea {
            objectName: "logText"
            text: sheet.log
            textFormat: TextEdit.PlainText
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.NoWrap
            font.family: "monospace"
            font.pixelSize: 12
        }
    }

    footer: RowLayout {
        spacing: 8
        Label {
            Layout.fillWidth: true
            Layout.leftMargin: 16
            text: "Select text above to copy a portion of the log."
            font.pixelSize: 11
            color: app.theme.secondary
            elide: Text.ElideRight
        }
        AppButton {
            objectName: "copyButton"
            Layout.rightMargin: 16
            Layout.bottomMargin: 14
            Layout.topMargin: 6
            text: sheet.didCopy ? "Copied!" : "Copy Full Log"
            iconName: sheet.didCopy ? "checkmark.circle.fill" : "doc.on.doc"
            iconColor: sheet.didCopy ? app.theme.green : foreground
            onClicked: {
                app.copyToClipboard(sheet.log)
                sheet.didCopy = true
                copiedTimer.restart()
            }
        }
    }
    Timer {
        id: copiedTimer
        interval: 2000
        onTriggered: sheet.didCopy = false
    }
}
