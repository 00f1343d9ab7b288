import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The add-remote sheet: a name, a provider, and rclone's own sign-in.
Dialog {
    id: sheet
    required property NimbrellApp app

    objectName: "addRemoteSheet"
    modal: true
    anchors.centerIn: Overlay.overlay
    padding: 24
    topPadding: 8
    contentWidth: 500
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    closePolicy: Popup.CloseOnEscape

    AddRemoteController {
        id: controller
        objectName: "addRemoteController"
        app: sheet.app
        onFinished: sheet.close()
    }
    onOpened: {
        controller.name = ""
        nameField.forceActiveFocus()
    }
    // However it closes, a run under way stops and the remote list is read again.
    onClosed: {
        controller.abandon()
        app.remotes.reload()
    }

    header: ColumnLayout {
        spacing: 2
        Label {
            Layout.leftMargin: 24
            Layout.topMargin: 20
            text: "Add Remote"
            font.pixelSize: 18
            font.bold: true
        }
        Label {
            Layout.leftMargin: 24
            text: "Connect a cloud storage provider to sync."
            color: app.theme.secondary
        }
    }

    ColumnLayout {
        width: parent.width
        spacing: 10

        Label { text: "Remote Name"; font.weight: Font.DemiBold; Layout.topMargin: 8 }
        TextField {
            id: nameField
            objectName: "remoteName"
            Layout.fillWidth: true
            placeholderText: "e.g. My Google Drive"
            text: controller.name
            onTextEdited: controller.name = text
            enabled: !controller.isConfiguring
            onAccepted: controller.submit()
        }

        Label { text: "Provider"; font.weight: Font.DemiBold; Layout.topMargin: 6 }
        GridLayout {
            Layout.fillWidth: true
            columns: 3
            columnSpacing: 8
            rowSpacing: 8
            Repeater {
                model: controller.providers
                delegate: ProviderCard {
                    required property var modelData
                    Layout.fillWidth: true
                    app: sheet.app
                    objectName: "provider-" + modelData.type
                    label: modelData.label
                    value: modelData.type
                    tint: modelData.color
                    isSelected: controller.type === modelData.type
                    enabled: !controller.isConfiguring
                    onClicked: controller.type = modelData.type
                }
            }
        }

        RowLayout {
            visible: controller.errorMessage !== ""
            Layout.fillWidth: true
            Layout.topMargin: 4
            spacing: 8
            Icon {
                Layout.alignment: Qt.AlignTop
                name: "exclamationmark.triangle.fill"
                color: app.theme.red
            }
            Label {
                objectName: "addRemoteError"
                Layout.fillWidth: true
                text: controller.errorMessage
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                maximumLineCount: 8
                elide: Text.ElideRight
                color: app.theme.red
            }
        }
        RowLayout {
            visible: controller.configStep === AddRemoteController.Authenticating
            spacing: 8
            BusyIndicator { Layout.preferredWidth: 18; Layout.preferredHeight: 18; padding: 0; running: parent.visible }
            Label { text: "A browser window has opened. Complete authentication there." }
        }
    }

    footer: DialogButtonBox {
        Button {
            text: "Cancel"
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        Button {
            objectName: "addAndAuthenticate"
            text: controller.buttonText.replace("&", "&&") // a lone "&" would mark a shortcut
            highlighted: true
            enabled: controller.canSubmit
            DialogButtonBox.buttonRole: DialogButtonBox.ActionRole
            onClicked: controller.submit()
            BusyIndicator {
                visible: controller.isConfiguring
                running: visible
                anchors.right: parent.left
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                width: 18
                height: 18
                padding: 0
            }
        }
    }
}
