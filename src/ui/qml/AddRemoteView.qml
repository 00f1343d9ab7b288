import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The add-remote sheet: a name, a provider, its settings where it takes
// any, and rclone's own sign-in where it has one.
Dialog {
    id: sheet
    required property NimbrellApp app

    objectName: "addRemoteSheet"
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
        enabled: sheet.opened && !controller.choosingBackend
        onActivated: controller.submit()
    }
    // The arrow keys move between the provider cards, choosing as they go.
    function moveProvider(from, step) {
        const to = from + step
        if (to < 0 || to >= providerCards.count)
            return
        if (!controller.providers[to].more)
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
        anchors.fill: parent
        spacing: 10

        Label { text: "Remote Name"; font.weight: Font.DemiBold; Layout.topMargin: 8 }
        AppTextField {
            id: nameField
            objectName: "remoteName"
            Layout.fillWidth: true
            placeholderText: "e.g. My Google Drive"
            text: controller.name
            onTextEdited: controller.name = text
            enabled: !controller.isConfiguring && !controller.testFailed
        }

        // Once the remote is made, the choice of provider makes room for its
        // settings, and both for rclone's questions.
        Label {
            text: "Provider"
            font.weight: Font.DemiBold
            Layout.topMargin: 6
            visible: !controller.testFailed && controller.configStep !== AddRemoteController.Answering
        }
        GridLayout {
            visible: !controller.testFailed && controller.configStep !== AddRemoteController.Answering
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
                    objectName: modelData.more ? "provider-more" : "provider-" + modelData.type
                    label: modelData.more && controller.isOtherBackend ? "More: " + controller.type : modelData.label
                    value: modelData.type
                    tint: modelData.color
                    isSelected: modelData.more ? controller.isOtherBackend || controller.choosingBackend
                                               : !controller.choosingBackend && controller.type === modelData.type
                    enabled: !controller.isConfiguring && !controller.testFailed
                    onClicked: modelData.more ? controller.chooseOther() : controller.type = modelData.type
                }
            }
        }

        // "More…": every backend rclone reaches, searchable.
        ColumnLayout {
            visible: controller.choosingBackend
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 6
            AppTextField {
                id: backendSearch
                objectName: "backendSearch"
                Layout.fillWidth: true
                placeholderText: "Search storage kinds"
                text: controller.backendSearch
                onTextEdited: controller.backendSearch = text
                Accessible.name: "Search storage kinds"
                Keys.onDownPressed: backendList.forceActiveFocus()
            }
            ListView {
                id: backendList
                objectName: "backendList"
                Layout.fillWidth: true
                Layout.preferredHeight: 260
                Layout.fillHeight: true
                Layout.minimumHeight: 90
                clip: true
                model: controller.backends
                keyNavigationEnabled: true
                ScrollBar.vertical: ScrollBar {}
                Keys.onReturnPressed: if (currentItem) controller.chooseBackend(currentItem.backendType)
                delegate: ItemDelegate {
                    required property var modelData
                    required property int index
                    readonly property string backendType: modelData.type
                    objectName: "backend-" + modelData.type
                    width: ListView.view.width
                    highlighted: ListView.isCurrentItem
                    Accessible.name: modelData.type + ", " + modelData.description
                    onClicked: controller.chooseBackend(modelData.type)
                    contentItem: ColumnLayout {
                        spacing: 1
                        Label { text: modelData.type; font.weight: Font.DemiBold }
                        Label {
                            Layout.fillWidth: true
                            text: modelData.description
                            elide: Text.ElideRight
                            color: sheet.app.theme.secondary
                        }
                    }
                }
            }
            Label {
                visible: controller.catalogLoading || controller.catalogError !== "" || backendList.count === 0
                text: controller.catalogLoading ? "Reading the storage kinds rclone knows…"
                    : controller.catalogError !== "" ? controller.catalogError
                    : "No storage kind matches."
                color: controller.catalogError !== "" ? app.theme.red : app.theme.secondary
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
        }

        // The chosen backend's settings.
        ColumnLayout {
            visible: controller.needsSettings && !controller.choosingBackend
                     && controller.configStep !== AddRemoteController.Answering
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 6
            Label {
                Layout.fillWidth: true
                Layout.topMargin: 6
                text: "Settings" + (controller.form.description !== "" ? " · " + controller.form.description : "")
                elide: Text.ElideRight
                font.weight: Font.DemiBold
            }
            Label {
                visible: controller.catalogLoading
                text: "Reading the settings rclone takes…"
                color: app.theme.secondary
            }
            ScrollView {
                id: settingsScroll
                objectName: "settingsScroll"
                Layout.fillWidth: true
                Layout.preferredHeight: Math.min(settingsFields.implicitHeight, 320)
                Layout.fillHeight: true
                Layout.minimumHeight: Math.min(settingsFields.implicitHeight, 90)
                contentWidth: availableWidth
                clip: true
                enabled: !controller.isConfiguring
                RemoteSettingsFields {
                    id: settingsFields
                    width: settingsScroll.availableWidth
                    form: controller.form
                    app: sheet.app
                }
            }
        }

        // rclone asks something more before the remote is complete.
        RemoteQuestion {
            objectName: "question"
            visible: controller.configStep === AddRemoteController.Answering
            Layout.fillWidth: true
            question: controller.question
            answer: controller.answer
            app: sheet.app
            onAnswerEdited: answer => controller.answer = answer
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
            objectName: "testFailedChoices"
            visible: controller.testFailed && !controller.isConfiguring
            spacing: 8
            Label {
                Layout.fillWidth: true
                text: "Correct the settings and try again, or:"
                wrapMode: Text.Wrap
                color: app.theme.secondary
            }
            AppButton {
                objectName: "removeRemote"
                text: "Remove Remote"
                onClicked: controller.removeMadeRemote()
            }
            AppButton {
                objectName: "keepAnyway"
                text: "Keep Anyway"
                onClicked: controller.keepAnyway()
            }
        }
        RowLayout {
            visible: controller.configStep === AddRemoteController.Testing
            spacing: 8
            BusyIndicator { Layout.preferredWidth: 18; Layout.preferredHeight: 18; padding: 0; running: parent.visible }
            Label { text: "Listing the remote to check the connection…" }
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
            visible: (controller.isConfiguring && controller.configStep !== AddRemoteController.Answering)
                     || controller.isCleaningUp
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
