import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import Nimbrell

// A failed sync: per failing target what happened, in words, and the one
// action that fixes it; the full log a click away.
Rectangle {
    id: banner
    required property NimbrellApp app
    property string log
    property FolderRecovery controller
    property string localPath
    readonly property var problems: controller ? controller.problems : []

    implicitHeight: column.implicitHeight + 20
    radius: 8
    color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.10)
    border.color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.35)

    function act(index) {
        const action = banner.problems[index].action
        if (action === "showFolder")
            app.openPath(banner.localPath)
        else if (action === "chooseFolder")
            folderDialog.open()
        else if (action === "viewLog")
            logSheet.open()
        else
            banner.controller.runAction(index)
    }

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 10
        spacing: 8
        RowLayout {
            Layout.fillWidth: true
            spacing: 10
            Icon { name: "exclamationmark.triangle.fill"; color: app.theme.red; size: 18 }
            Label {
                Layout.fillWidth: true
                text: "Sync Error"
                color: app.theme.red
                font.weight: Font.DemiBold
            }
            AppButton {
                objectName: "viewLog"
                text: "View Log"
                onClicked: logSheet.open()
            }
        }
        Repeater {
            model: banner.problems
            delegate: RowLayout {
                id: problemRow
                required property var modelData
                required property int index
                objectName: "problem_" + modelData.kind
                Layout.fillWidth: true
                Layout.leftMargin: 28
                spacing: 10
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        objectName: "problemTitle"
                        Layout.fillWidth: true
                        text: problemRow.modelData.title
                            + (banner.problems.length > 1 && problemRow.modelData.location
                               ? " — " + problemRow.modelData.location : "")
                        textFormat: Text.PlainText
                        elide: Text.ElideRight
                        font.weight: Font.Medium
                    }
                    Label {
                        objectName: "problemSentence"
                        Layout.fillWidth: true
                        text: problemRow.modelData.sentence
                        textFormat: Text.PlainText
                        wrapMode: Text.Wrap
                        maximumLineCount: 3
                        elide: Text.ElideRight
                        color: app.theme.secondary
                    }
                }
                AppButton {
                    objectName: "problemAction"
                    visible: problemRow.modelData.actionText !== ""
                             && problemRow.modelData.action !== "viewLog"
                    text: problemRow.modelData.actionText
                    enabled: problemRow.modelData.actionEnabled
                    kind: "primary"
                    onClicked: banner.act(problemRow.index)
                }
            }
        }
        Label {
            visible: !!banner.controller && banner.controller.isSigningIn
            Layout.leftMargin: 28
            text: "Waiting for the sign-in in your browser…"
            color: app.theme.secondary
        }
        Label {
            visible: !!banner.controller && banner.controller.signInError !== ""
            Layout.leftMargin: 28
            Layout.fillWidth: true
            text: banner.controller ? banner.controller.signInError : ""
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: app.theme.red
        }
    }

    // A lock held by a running rclone lets go by itself; Retry follows it.
    Timer {
        interval: 2000
        repeat: true
        running: banner.visible && banner.problems.some(p => p.kind === "lockHeld" && !p.actionEnabled)
        onTriggered: banner.controller.refreshProblems()
    }

    FolderDialog {
        id: folderDialog
        title: "Choose Folder"
        onAccepted: banner.controller.relocate(decodeURIComponent(selectedFolder.toString().replace(/^file:\/\//, "")))
    }

    // The log goes with the error: a sheet left open would show nothing.
    onVisibleChanged: if (!visible) logSheet.close()
    onLogChanged: if (log === "") logSheet.close()

    ErrorLogSheet {
        id: logSheet
        app: banner.app
        log: banner.log
        parent: Overlay.overlay
    }
}
