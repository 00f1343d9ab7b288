import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// What the folder's run is doing, or how its last one ended, with what went wrong.
Card {
    id: card
    required property var folder
    required property bool syncing
    required property bool paused
    required property FolderRecovery recovery

    ColumnLayout {
        width: parent.width
        spacing: 10
        Label { text: "Sync Status"; font.weight: Font.DemiBold }
        RowLayout {
            spacing: 8
            Layout.fillWidth: true
            BusyIndicator {
                visible: card.syncing
                running: visible
                Layout.preferredWidth: 20
                Layout.preferredHeight: 20
                padding: 0
            }
            Icon {
                visible: !card.syncing
                name: card.paused ? "pause" : folder.status === "success" ? "checkmark.circle.fill"
                    : folder.status === "error" ? "exclamationmark.triangle" : "clock"
                color: card.paused ? app.theme.secondary : folder.status === "success" ? app.theme.green
                     : folder.status === "error" ? app.theme.red : app.theme.secondary
                size: 18
            }
            Label {
                objectName: "statusLine"
                Layout.fillWidth: true
                elide: Text.ElideRight
                textFormat: Text.PlainText
                text: {
                    if (card.syncing) {
                        const targets = folder.targets || []
                        const index = folder.currentTargetIndex
                        if (index === undefined || index === null || index >= targets.length)
                            return "Syncing"
                        return "Syncing to " + targets[index].remoteName + ":" + targets[index].remotePath
                    }
                    if (card.paused) return "Paused"
                    if (folder.status === "success") return "Sync completed successfully"
                    if (folder.status === "error") return "Last sync failed"
                    return "Idle — ready to sync"
                }
            }
            Label {
                visible: card.syncing && folder.currentTargetIndex !== undefined && folder.currentTargetIndex !== null
                text: (folder.currentTargetIndex + 1) + " of " + (folder.targets ? folder.targets.length : 0)
                color: app.theme.secondary
            }
        }
        Label {
            objectName: "waitingLine"
            visible: card.syncing && !!folder.isWaiting
            text: "Waiting for another sync to finish…"
            color: app.theme.secondary
        }
        ColumnLayout {
            visible: card.syncing && !folder.isWaiting
            Layout.fillWidth: true
            spacing: 6
            SyncProgressBar {
                Layout.fillWidth: true
                app: card.app
                value: folder.progress || 0
            }
            RowLayout {
                Layout.fillWidth: true
                Label {
                    objectName: "percentage"
                    text: app.format.percentage(folder.progress || 0)
                    font.family: "monospace"
                }
                Label {
                    visible: !!folder.transferSpeed
                    Layout.fillWidth: true
                    text: folder.transferSpeed || ""
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    color: app.theme.secondary
                }
            }
            RowLayout {
                spacing: 16
                Label {
                    visible: !!folder.transferredFiles
                    text: "Files: " + (folder.transferredFiles || "")
                    textFormat: Text.PlainText
                    color: app.theme.secondary
                }
                Label {
                    visible: !!folder.transferredSize
                    text: "Data: " + (folder.transferredSize || "")
                    textFormat: Text.PlainText
                    color: app.theme.secondary
                }
            }
        }
        ErrorBanner {
            objectName: "errorBanner"
            visible: folder.lastError !== undefined && folder.lastError !== null
            Layout.fillWidth: true
            app: card.app
            log: folder.lastError || ""
            controller: card.recovery
            localPath: folder.localPath || ""
        }
    }
}
