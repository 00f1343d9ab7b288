import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The folder's open conflicts: for each file changed on both sides, the two
// copies bisync kept, where each came from, and the choice between them.
Card {
    id: card
    required property FolderConflicts conflicts
    property bool syncing: false

    // A copy deleted or renamed in a file manager settles its conflict: it
    // drops out within moments.
    Timer {
        running: card.visible
        interval: 2000
        repeat: true
        onTriggered: card.conflicts.recheck()
    }

    ColumnLayout {
        width: parent.width
        spacing: 10
        RowLayout {
            spacing: 8
            Icon { name: "doc.on.doc.fill"; color: app.theme.orange; size: 18 }
            Label {
                objectName: "conflictsTitle"
                text: card.conflicts.list.count === 1 ? "1 Conflict" : card.conflicts.list.count + " Conflicts"
                font.weight: Font.DemiBold
            }
        }
        Label {
            Layout.fillWidth: true
            text: "These files changed here and on the remote. Both versions were kept; choose the one to keep, or keep both."
            wrapMode: Text.Wrap
            color: app.theme.secondary
        }
        Label {
            objectName: "conflictError"
            visible: card.conflicts.error !== ""
            Layout.fillWidth: true
            text: card.conflicts.error
            textFormat: Text.PlainText
            wrapMode: Text.Wrap
            color: app.theme.red
        }
        // Only the conflicts in view are made: a few fit, the rest scroll.
        ListView {
            id: list
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(contentHeight, 480)
            interactive: contentHeight > height
            clip: true
            spacing: 10
            boundsBehavior: Flickable.StopAtBounds
            model: card.conflicts.list
            ScrollBar.vertical: ScrollBar { policy: list.interactive ? ScrollBar.AsNeeded : ScrollBar.AlwaysOff }
            delegate: ColumnLayout {
                id: conflict
                required property string name
                required property string renamed
                required property var time
                required property var copies
                required property int index
                objectName: "conflict_" + name
                width: ListView.view.width
                spacing: 6
                Rectangle {
                    visible: conflict.index > 0
                    Layout.fillWidth: true
                    Layout.preferredHeight: 1
                    color: app.theme.separator
                }
                RowLayout {
                    Layout.fillWidth: true
                    spacing: 8
                    Label {
                        Layout.fillWidth: true
                        text: conflict.name
                        textFormat: Text.PlainText
                        elide: Text.ElideMiddle
                        font.weight: Font.Medium
                    }
                    Label {
                        text: "Changed on both sides " + app.format.relativeTime(conflict.time, app.format.now) + " ago"
                        color: app.theme.secondary
                        font.pixelSize: 12
                    }
                    AppButton {
                        objectName: "keepBoth"
                        text: "Keep Both"
                        toolTip: "Keep both copies, the other one under a name with the date"
                        enabled: !card.syncing && !card.conflicts.isSettling
                        onClicked: card.conflicts.keepBoth(conflict.name, conflict.renamed)
                    }
                }
                Repeater {
                    model: conflict.copies
                    delegate: Rectangle {
                        id: copy
                        required property var modelData
                        required property int index
                        objectName: "conflictCopy" + index
                        Layout.fillWidth: true
                        implicitHeight: copyRow.implicitHeight + 16
                        radius: 8
                        color: Qt.rgba(app.theme.windowText.r, app.theme.windowText.g, app.theme.windowText.b, 0.04)
                        border.color: app.theme.separator
                        RowLayout {
                            id: copyRow
                            anchors.fill: parent
                            anchors.margins: 8
                            spacing: 10
                            Icon {
                                name: copy.modelData.fromRemote ? "cloud.fill" : "internaldrive.fill"
                                color: copy.modelData.fromRemote ? app.theme.blue : app.theme.secondary
                                size: 18
                            }
                            ColumnLayout {
                                Layout.fillWidth: true
                                spacing: 1
                                Label {
                                    Layout.fillWidth: true
                                    text: copy.modelData.fileName
                                    textFormat: Text.PlainText
                                    elide: Text.ElideMiddle
                                    font.family: "monospace"
                                }
                                Label {
                                    objectName: "copyDetails"
                                    Layout.fillWidth: true
                                    text: "From " + copy.modelData.side + " · " + app.format.byteCount(copy.modelData.size)
                                          + " · modified " + app.format.relativeTime(copy.modelData.modified, app.format.now) + " ago"
                                    textFormat: Text.PlainText
                                    elide: Text.ElideRight
                                    font.pixelSize: 11
                                    color: app.theme.secondary
                                }
                            }
                            AppButton {
                                objectName: "openCopy"
                                kind: "borderless"
                                tint: app.theme.blue
                                text: "Open"
                                toolTip: "Open " + copy.modelData.fileName
                                onClicked: app.openPath(copy.modelData.filePath)
                            }
                            AppButton {
                                objectName: "keepThis"
                                text: "Keep This"
                                toolTip: copy.modelData.keepsName
                                         ? "Keep this copy; the other one goes to the trash"
                                         : "Keep this copy under the original name; the other one goes to the trash"
                                enabled: !card.syncing && !card.conflicts.isSettling
                                onClicked: card.conflicts.keepCopy(conflict.name, conflict.renamed, copy.index)
                            }
                        }
                    }
                }
            }
        }
    }
}
