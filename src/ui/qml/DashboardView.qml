import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The whole system at a glance.
Item {
    id: dashboard
    required property NimbrellApp app
    readonly property FolderListModel folders: app.folders
    readonly property SyncManager manager: app.syncManager
    readonly property AutomaticSync automatic: manager.automatic

    ScrollView {
        id: scroll
        anchors.fill: parent
        contentWidth: availableWidth

        ColumnLayout {
            width: scroll.availableWidth
            spacing: 18

            // Header
            RowLayout {
                Layout.fillWidth: true
                Layout.margins: 24
                Layout.bottomMargin: 0
                spacing: 16
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 4
                    Label {
                        Layout.fillWidth: true
                        text: "Welcome to Nimbrell"
                        font.pixelSize: 24
                        font.bold: true
                        elide: Text.ElideRight
                    }
                    Label {
                        Layout.fillWidth: true
                        text: "Manage and monitor all your cloud synchronizations in one place."
                        color: app.theme.secondary
                        wrapMode: Text.Wrap
                    }
                }
                Card {
                    app: dashboard.app
                    padding: 10
                    ColumnLayout {
                        spacing: 2
                        RowLayout {
                            spacing: 6
                            Icon {
                                name: automatic.isGlobalSyncEnabled ? "bolt.fill" : "bolt.slash.fill"
                                color: automatic.isGlobalSyncEnabled ? "#F5B400" : app.theme.secondary
                            }
                            Label { text: "Global Sync"; font.weight: Font.DemiBold }
                            AppSwitch {
                                objectName: "dashboardGlobalSync"
                                Accessible.name: "Global Sync"
                                checked: automatic.isGlobalSyncEnabled
                                onToggled: automatic.isGlobalSyncEnabled = checked
                            }
                        }
                        Label {
                            objectName: "globalSyncState"
                            text: !automatic.isGlobalSyncEnabled ? "Paused"
                                : automatic.holdReason !== "" ? "Paused: " + automatic.holdReason
                                : "Active & Auto-syncing"
                            color: automatic.isGlobalSyncEnabled && automatic.holdReason === "" ? app.theme.green
                                                                                           : app.theme.secondary
                            font.pixelSize: 11
                        }
                    }
                }
                AppButton {
                    objectName: "syncAllNow"
                    kind: "primary"
                    text: "Sync All Now"
                    iconName: "arrow.triangle.2.circlepath"
                    toolTip: "Manually trigger all syncs"
                    onClicked: manager.syncAllFolders()
                }
            }

            // The folder list on disk is not the one shown.
            Rectangle {
                objectName: "storeProblem"
                visible: manager.repository.problem !== ""
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                implicitHeight: storeRow.implicitHeight + 20
                radius: 8
                color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.10)
                border.color: Qt.rgba(app.theme.red.r, app.theme.red.g, app.theme.red.b, 0.35)
                RowLayout {
                    id: storeRow
                    anchors.fill: parent
                    anchors.margins: 10
                    spacing: 8
                    Icon { name: "exclamationmark.triangle.fill"; color: app.theme.red }
                    Label {
                        Layout.fillWidth: true
                        text: manager.repository.problem
                        wrapMode: Text.Wrap
                        Accessible.role: Accessible.AlertMessage
                    }
                }
            }

            // Stat cards
            RowLayout {
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                spacing: 12
                StatCard {
                    Layout.fillWidth: true
                    Layout.preferredWidth: 1
                    app: dashboard.app
                    title: "Configured Remotes"
                    value: String(app.remotes.count)
                    icon: "cloud.fill"
                    color: app.theme.blue
                }
                StatCard {
                    Layout.fillWidth: true
                    Layout.preferredWidth: 1
                    app: dashboard.app
                    title: "Sync Folders"
                    value: String(folders.count)
                    icon: "folder.fill"
                    color: "#5856D6"
                }
                StatCard {
                    id: activeCard
                    objectName: "activeSyncsCard"
                    Layout.fillWidth: true
                    Layout.preferredWidth: 1
                    app: dashboard.app
                    readonly property bool isAnimating: folders.activeCount >= 1
                    title: "Active Syncs"
                    value: String(folders.activeCount)
                    icon: "arrow.triangle.2.circlepath"
                    color: isAnimating ? app.theme.green : app.theme.secondary
                    // One turn every two seconds while syncs run; upright at once when they stop.
                    NumberAnimation on iconRotation {
                        running: activeCard.isAnimating
                        from: 0
                        to: 360
                        duration: 2000
                        loops: Animation.Infinite
                        onRunningChanged: if (!running) activeCard.iconRotation = 0
                    }
                }
            }

            // System status
            Card {
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                app: dashboard.app
                ColumnLayout {
                    width: parent.width
                    spacing: 12
                    Label { text: "System Status"; font.pixelSize: 15; font.weight: Font.DemiBold }
                    RowLayout {
                        spacing: 8
                        StatusPill { label: "Healthy"; count: folders.healthyCount; tint: app.theme.green }
                        StatusPill { label: "Errors"; count: folders.errorCount; tint: app.theme.red }
                        StatusPill { label: "Idle"; count: folders.idleCount; tint: app.theme.secondary }
                        StatusPill {
                            objectName: "pausedPill"
                            visible: folders.pausedCount > 0
                            label: "Paused"
                            count: folders.pausedCount
                            tint: app.theme.secondary
                        }
                        StatusPill {
                            objectName: "conflictsPill"
                            visible: folders.conflictCount > 0
                            label: folders.conflictCount === 1 ? "Conflict" : "Conflicts"
                            count: folders.conflictCount
                            tint: app.theme.orange
                        }
                    }
                    ColumnLayout {
                        visible: folders.summary === FolderListModel.NeedsAttention
                        Layout.fillWidth: true
                        spacing: 6
                        Label { text: "Needs Attention"; color: app.theme.red; font.weight: Font.DemiBold }
                        // A long list scrolls within the card; only the rows in view are made.
                        ListView {
                            id: attentionList
                            Layout.fillWidth: true
                            Layout.preferredHeight: Math.min(contentHeight, 6 * 40)
                            clip: true
                            boundsBehavior: Flickable.StopAtBounds
                            model: folders.errorFolders
                            ScrollBar.vertical: ScrollBar {}
                            delegate: RowLayout {
                                required property var modelData
                                width: attentionList.width
                                height: 40
                                spacing: 8
                                Icon { name: "exclamationmark.triangle.fill"; color: app.theme.red }
                                Label {
                                    Layout.preferredWidth: Math.min(implicitWidth, attentionList.width * 0.45)
                                    text: modelData.name
                                    textFormat: Text.PlainText
                                    elide: Text.ElideRight
                                    font.weight: Font.Medium
                                }
                                Label {
                                    objectName: "attentionProblem"
                                    Layout.fillWidth: true
                                    text: modelData.problem
                                    textFormat: Text.PlainText
                                    elide: Text.ElideRight
                                    color: app.theme.secondary
                                }
                                AppButton {
                                    text: "View Details"
                                    kind: "borderless"
                                    tint: app.theme.blue
                                    onClicked: app.navigation.showFolder(modelData.folderId)
                                }
                            }
                        }
                    }
                    Label {
                        visible: folders.summary === FolderListModel.Syncing
                        text: "Sync in progress..."
                        color: app.theme.secondary
                    }
                    RowLayout {
                        visible: folders.summary === FolderListModel.AllGood
                        spacing: 8
                        Icon { name: "checkmark.seal.fill"; color: app.theme.green; size: 18 }
                        Label { text: "All systems go. Your files are up to date." }
                    }
                }
            }

            ActivityList {
                objectName: "recentActivity"
                visible: folders.count > 0
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                app: dashboard.app
                title: "Recent Activity"
                limit: 50
                visibleRows: 5
            }

            // No folders yet
            ColumnLayout {
                visible: folders.count === 0
                Layout.alignment: Qt.AlignHCenter
                Layout.topMargin: 30
                spacing: 10
                Icon {
                    Layout.alignment: Qt.AlignHCenter
                    name: "folder.badge.plus"
                    color: app.theme.secondary
                    size: 48
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: "No Sync Folders Configured"
                    font.pixelSize: 17
                    font.weight: Font.DemiBold
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    Layout.maximumWidth: 420
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.Wrap
                    text: "Get started by adding a cloud remote and creating your first sync folder."
                    color: app.theme.secondary
                }
                AppButton {
                    objectName: "createSyncFolder"
                    Layout.alignment: Qt.AlignHCenter
                    kind: "primary"
                    text: "Create Sync Folder"
                    onClicked: app.navigation.showNewSyncFolder()
                }
            }
            Item { Layout.preferredHeight: 24 }
        }
    }
}
