import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// What a recovery would do, from a dry run of it: the counts first, then
// every file, filterable; nothing changes until "Apply".
Dialog {
    id: sheet
    required property NimbrellApp app
    required property FolderRecovery controller
    property string filter: ""
    readonly property string state_: controller.reviewState
    readonly property ReviewChangesModel changes: controller.reviewChanges
    readonly property var groups: controller.reviewGroups

    objectName: "reviewSheet"
    modal: true
    visible: state_ !== "idle"
    closePolicy: Popup.NoAutoClose
    anchors.centerIn: Overlay.overlay
    width: Math.min(720, (parent ? parent.width : 720) - 40)
    height: Math.min(560, (parent ? parent.height : 560) - 40)
    padding: 16
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    background: SheetBackground {}
    onVisibleChanged: if (!visible) filter = ""
    onFilterChanged: changes.filter = filter

    header: Label {
        leftPadding: 16
        topPadding: 14
        bottomPadding: 6
        text: sheet.controller.reviewTitle
        font.pixelSize: 15
        font.weight: Font.DemiBold
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 10

        RowLayout {
            visible: sheet.state_ === "previewing"
            spacing: 10
            BusyIndicator { running: parent.visible; Layout.preferredWidth: 24; Layout.preferredHeight: 24 }
            Label { text: "Checking what would change…"; color: app.theme.secondary }
        }
        Label {
            objectName: "reviewError"
            visible: sheet.state_ === "failed"
            Layout.fillWidth: true
            text: "The preview failed:\n" + sheet.controller.reviewError
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: app.theme.red
        }

        Flow {
            visible: sheet.state_ === "ready"
            Layout.fillWidth: true
            spacing: 8
            Repeater {
                model: sheet.controller.reviewGroups
                delegate: Rectangle {
                    required property string modelData
                    required property int index
                    readonly property int count: sheet.controller.reviewCounts[index]
                    objectName: "reviewCount" + index
                    radius: 6
                    implicitWidth: countRow.implicitWidth + 16
                    implicitHeight: countRow.implicitHeight + 10
                    color: Qt.rgba(app.theme.blue.r, app.theme.blue.g, app.theme.blue.b, count > 0 ? 0.12 : 0.04)
                    RowLayout {
                        id: countRow
                        anchors.centerIn: parent
                        spacing: 6
                        Label { text: String(count); font.weight: Font.DemiBold }
                        Label { text: modelData; color: app.theme.secondary }
                    }
                }
            }
        }
        Label {
            visible: sheet.state_ === "ready" && sheet.changes.total === 0
            text: "Nothing would change."
            color: app.theme.secondary
        }
        AppTextField {
            visible: sheet.state_ === "ready" && sheet.changes.total > 0
            Layout.fillWidth: true
            placeholderText: "Filter files"
            text: sheet.filter
            onTextChanged: sheet.filter = text
        }
        ListView {
            objectName: "reviewList"
            visible: sheet.state_ === "ready"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            reuseItems: true
            model: sheet.changes
            ScrollBar.vertical: ScrollBar {}
            delegate: RowLayout {
                id: change
                required property string path
                required property int group
                required property bool toRemote
                readonly property bool deletes: group === 2 || group === 3
                width: ListView.view.width
                height: 26
                spacing: 8
                Icon {
                    name: change.deletes ? "trash" : change.toRemote ? "cloud.fill" : "house.fill"
                    color: change.deletes ? app.theme.red : app.theme.blue
                    size: 14
                }
                Label {
                    Layout.fillWidth: true
                    text: change.path
                    textFormat: Text.PlainText
                    elide: Text.ElideMiddle
                }
                Label {
                    text: sheet.groups[change.group]
                    color: app.theme.secondary
                }
            }
        }
        Item { visible: sheet.state_ !== "ready"; Layout.fillHeight: true }
    }

    footer: RowLayout {
        spacing: 8
        Item { Layout.fillWidth: true }
        AppButton {
            Layout.bottomMargin: 16
            text: "Cancel"
            onClicked: sheet.controller.cancelReview()
        }
        AppButton {
            objectName: "applyReview"
            Layout.rightMargin: 16
            Layout.bottomMargin: 16
            kind: "primary"
            text: "Apply"
            enabled: sheet.state_ === "ready"
            onClicked: sheet.controller.applyReview()
        }
    }
}
