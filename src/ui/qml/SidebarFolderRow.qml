import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// One sync folder in the sidebar: icon in its status colour, name, remote
// count with the time of the last sync, and a status mark.
ItemDelegate {
    id: row
    required property NimbrellApp app
    required property string folderId
    required property string name
    required property string status
    required property int remoteCount
    required property var lastSync
    required property int conflicts
    required property bool paused
    required property string direction
    property bool selected: false
    property bool showsFocus: false

    signal deleteRequested()

    highlighted: selected
    focusPolicy: Qt.NoFocus
    padding: 8
    horizontalPadding: 14
    background: SidebarRowBackground { row: row }
    readonly property color textColor: highlighted ? palette.highlightedText : palette.windowText

    readonly property color statusColor: app.theme.statusColors[status] ?? app.theme.secondary
    readonly property string detailText: app.format.remoteCount(remoteCount)
        + (paused ? " · Paused"
           : lastSync && !isNaN(lastSync.getTime()) ? " · " + app.format.relativeTime(lastSync, app.format.now) : "")

    contentItem: RowLayout {
        spacing: 10
        Rectangle {
            Layout.preferredWidth: 28
            Layout.preferredHeight: 28
            radius: 7
            // On the selection's colour, a light tile keeps the status colour readable.
            color: row.highlighted ? Qt.rgba(1, 1, 1, 0.92)
                 : Qt.rgba(row.statusColor.r, row.statusColor.g, row.statusColor.b, 0.15)
            Icon {
                anchors.centerIn: parent
                name: "folder.fill"
                // An idle folder's grey is the dark theme's light one: on the light tile, a darker grey.
                color: row.highlighted && row.status === "idle" ? "#6E6E73" : row.statusColor
                size: 16
            }
            // A one-way folder: which way its changes go, on the tile's corner.
            Rectangle {
                objectName: "directionMark"
                visible: row.direction !== "two-way"
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                anchors.margins: -3
                width: 14
                height: 14
                radius: 7
                color: row.app.theme.card
                border.color: row.app.theme.separator
                Accessible.name: row.direction === "upload" ? "Upload only" : "Download only"
                Icon {
                    anchors.centerIn: parent
                    name: row.direction === "upload" ? "arrow.up" : "arrow.down"
                    color: row.app.theme.secondary
                    size: 10
                }
            }
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 1
            Label {
                Layout.fillWidth: true
                text: row.name
                textFormat: Text.PlainText
                elide: Text.ElideRight
                font.weight: Font.Medium
                color: row.textColor
            }
            Label {
                Layout.fillWidth: true
                text: row.detailText
                textFormat: Text.PlainText
                elide: Text.ElideRight
                font.pixelSize: 11
                color: row.textColor
                opacity: 0.65
            }
        }
        // Open conflicts, counted.
        Rectangle {
            id: badge
            objectName: "conflictBadge"
            visible: row.conflicts > 0
            Layout.preferredWidth: Math.max(18, badgeText.implicitWidth + 10)
            Layout.preferredHeight: 18
            radius: 9
            color: app.theme.orange
            Accessible.name: row.conflicts === 1 ? "1 conflict" : row.conflicts + " conflicts"
            Label {
                id: badgeText
                anchors.centerIn: parent
                text: String(row.conflicts)
                color: "white"
                font.pixelSize: 11
                font.bold: true
            }
            ToolTip.visible: badgeHover.hovered
            ToolTip.delay: 500
            ToolTip.text: badge.Accessible.name
            HoverHandler { id: badgeHover }
        }
        Item {
            Layout.preferredWidth: 16
            Layout.preferredHeight: 16
            Rectangle {
                anchors.centerIn: parent
                width: 7
                height: 7
                radius: 3.5
                visible: row.status === "success" || row.status === "error"
                color: row.status === "error" ? app.theme.red : app.theme.green
            }
            BusyIndicator {
                anchors.centerIn: parent
                visible: row.status === "syncing"
                running: visible
                width: 18
                height: 18
                padding: 0
            }
        }
    }

    // Also from the keyboard (the menu key, Shift+F10): under the row.
    function openContextMenu() {
        contextMenu.popup(row, 14, row.height)
    }

    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: contextMenu.popup()
    }
    Menu {
        id: contextMenu
        MenuItem {
            text: row.paused ? "Resume" : "Pause"
            icon.source: "image://icon/" + (row.paused ? "play" : "pause") + "?color=" + encodeURIComponent(palette.windowText.toString())
            onTriggered: app.setFolderPaused(row.folderId, !row.paused)
        }
        MenuItem {
            text: "Delete"
            icon.source: "image://icon/trash?color=" + encodeURIComponent(app.theme.red.toString())
            onTriggered: row.deleteRequested()
        }
    }
}
