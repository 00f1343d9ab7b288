import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// "Edit Settings…": the remote's settings in its backend's form.
Dialog {
    id: sheet
    required property NimbrellApp app
    property string remoteName

    objectName: "editRemoteSheet"
    modal: true
    anchors.centerIn: Overlay.overlay
    padding: 24
    topPadding: 8
    contentWidth: 500
    // A long form scrolls inside the sheet; the sheet stays in the window.
    height: Math.min(implicitHeight, Overlay.overlay ? Overlay.overlay.height - 32 : implicitHeight)
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    background: SheetBackground {}
    closePolicy: Popup.CloseOnEscape

    EditRemoteController {
        id: controller
        objectName: "editRemoteController"
        app: sheet.app
        remoteName: sheet.remoteName
        onFinished: sheet.close()
    }
    onOpened: controller.load()
    onClosed: controller.cancel()

    header: ColumnLayout {
        spacing: 2
        Label {
            Layout.leftMargin: 24
            Layout.topMargin: 20
            text: "Edit Settings"
            font.pixelSize: 18
            font.bold: true
        }
        Label {
            Layout.leftMargin: 24
            Layout.rightMargin: 24
            Layout.fillWidth: true
            text: sheet.remoteName + (controller.form.description !== "" ? " · " + controller.form.description : "")
            elide: Text.ElideRight
            color: app.theme.secondary
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 10

        RowLayout {
            visible: controller.state === EditRemoteController.Loading
            spacing: 8
            BusyIndicator { Layout.preferredWidth: 18; Layout.preferredHeight: 18; padding: 0; running: parent.visible }
            Label { text: "Reading the remote's settings…" }
        }
        ScrollView {
            id: scroll
            visible: controller.state !== EditRemoteController.Loading && controller.state !== EditRemoteController.Answering
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(fields.implicitHeight, 380)
            Layout.fillHeight: true
            Layout.minimumHeight: Math.min(fields.implicitHeight, 90)
            contentWidth: availableWidth
            clip: true
            enabled: controller.state === EditRemoteController.Editing || controller.state === EditRemoteController.Failed
            RemoteSettingsFields {
                id: fields
                width: scroll.availableWidth
                form: controller.form
                app: sheet.app
                flickable: scroll.contentItem
            }
        }
        RemoteQuestion {
            visible: controller.state === EditRemoteController.Answering
            Layout.fillWidth: true
            question: controller.question
            answer: controller.answer
            app: sheet.app
            onAnswerEdited: answer => controller.answer = answer
        }
        RowLayout {
            visible: controller.errorMessage !== ""
            Layout.fillWidth: true
            spacing: 8
            Icon {
                Layout.alignment: Qt.AlignTop
                name: "exclamationmark.triangle.fill"
                color: app.theme.red
            }
            Label {
                objectName: "editRemoteError"
                Layout.fillWidth: true
                text: controller.errorMessage
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                maximumLineCount: 8
                elide: Text.ElideRight
                color: app.theme.red
            }
        }
    }

    footer: RowLayout {
        spacing: 8
        Item { Layout.fillWidth: true }
        BusyIndicator {
            visible: controller.state === EditRemoteController.Saving || controller.state === EditRemoteController.Testing
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
            objectName: "saveRemoteSettings"
            Layout.rightMargin: 24
            Layout.bottomMargin: 20
            kind: "primary"
            text: controller.state === EditRemoteController.Saving ? "Saving…"
                : controller.state === EditRemoteController.Testing ? "Testing Connection…"
                : controller.state === EditRemoteController.Answering ? "Continue" : "Save"
            enabled: controller.canSave
            onClicked: controller.save()
        }
    }
}
