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
    background: SheetBackground {}
    closePolicy: Popup.CloseOnEscape

    AddRemoteController {
        id: controller
        objectName: "addRemoteController"
        app: sheet.app
        onFinished: sheet.close()
    }
    onOpened: {
        controller.reset()
        nameField.forceActiveFocus()
    }
    // However it closes, a run under way stops and the remote list is read
    // again: at once, or once a half-made remote has been removed.
    onClosed: {
        controller.abandon()
        if (!controller.isCleaningUp)
            app.remotes.reload()
    }
    // Return submits from anywhere in the sheet.
    Shortcut {
        sequences: ["Return", "Enter"]
        enabled: sheet.opened
        onActivated: controller.submit()
    }
    // The arrow keys move between the provider cards, choosing as they go.
    function moveProvider(from, step) {
        const to = from + step
        if (to < 0 || to >= providerCards.count)
            return
        controller.type = controller.providers[to].type
        providerCards.itemAt(to).forceActiveFocus(Qt.TabFocusReason)
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
        AppTextField {
            id: nameField
            objectName: "remoteName"
            Layout.fillWidth: true
            placeholderText: "e.g. My Google Drive"
            text: controller.name
            onTextEdited: controller.name = text
            enabled: !controller.isConfiguring
        }

        Label { text: "Provider"; font.weight: Font.DemiBold; Layout.topMargin: 6 }
        GridLayout {
            Layout.fillWidth: true
            columns: 3
            columnSpacing: 8
            rowSpacing: 8
            Repeater {
                id: providerCards
                model: controller.providers
                delegate: ProviderCard {
                    required property var modelData
                    required property int index
                    Layout.fillWidth: true
                    Keys.onLeftPressed: sheet.moveProvider(index, -1)
                    Keys.onRightPressed: sheet.moveProvider(index, 1)
                    Keys.onUpPressed: sheet.moveProvider(index, -3)
                    Keys.onDownPressed: sheet.moveProvider(index, 3)
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

    footer: RowLayout {
        spacing: 8
        Item { Layout.fillWidth: true }
        BusyIndicator {
            visible: controller.isConfiguring || controller.isCleaningUp
            running: visible
            Layout.preferredWidth: 18
            Layout.preferredHeight: 18
            Layout.bottomMargin: 20
            padding: 0
        }
        AppButton {
            Layout.bottomMargin: 20
            text: "Cancel"
            onClicked: sheet.close()
        }
        AppButton {
            objectName: "addAndAuthenticate"
            Layout.rightMargin: 24
            Layout.bottomMargin: 20
            kind: "primary"
            text: controller.buttonText
            enabled: controller.canSubmit
            onClicked: controller.submit()
        }
    }
}
