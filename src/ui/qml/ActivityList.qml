import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// What runs changed, newest first, in a card: a folder's "Recent Changes",
// or with no folder every folder's "Recent Activity". A double-click or
// Return opens the file; its menu also shows it in its folder. The list
// scrolls within the card, so only the rows in view are made.
Card {
    id: card
    property string title
    property alias folderId: activity.folderId
    property alias limit: activity.limit
    property int visibleRows: 8
    property string emptyText: "No changes yet"
    readonly property alias count: activity.count

    ActivityModel {
        id: activity
        app: card.app
    }

    ColumnLayout {
        width: parent.width
        spacing: 6
        Label { text: card.title; font.weight: Font.DemiBold }
        Label {
            visible: activity.count === 0
            text: card.emptyText
            color: app.theme.secondary
        }
        ListView {
            id: list
            objectName: "activityList"
            visible: activity.count > 0
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(activity.count, card.visibleRows) * 44
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            activeFocusOnTab: true
            keyNavigationEnabled: true
            highlightMoveDuration: 0
            // Rows beyond the view would be made in the background, and a
            // reload (a run ended, another folder) while they are half made
            // trips the list: the few in view are made at once instead.
            cacheBuffer: 0
            model: activity
            ScrollBar.vertical: ScrollBar {}
            Accessible.role: Accessible.List
            Accessible.name: card.title

            function open(row) {
                if (row && row.exists)
                    app.openPath(row.filePath)
            }
            Keys.onReturnPressed: open(currentItem)
            Keys.onEnterPressed: open(currentItem)
            Keys.onMenuPressed: if (currentItem) currentItem.openMenu(true)
            Keys.onPressed: event => {
                if (event.key === Qt.Key_F10 && (event.modifiers & Qt.ShiftModifier) && currentItem) {
                    currentItem.openMenu(true)
                    event.accepted = true
                }
            }

            highlight: Rectangle {
                radius: 6
                color: Qt.rgba(app.theme.accent.r, app.theme.accent.g, app.theme.accent.b, list.activeFocus ? 0.16 : 0)
            }

            delegate: Item {
                id: row
                objectName: "change_" + fileName
                required property int index
                required property string fileName
                required property string location
                required property string action
                required property bool toRemote
                required property string target
                required property var time
                required property string filePath
                required property bool exists
                width: list.width
                height: 44
                Accessible.role: Accessible.ListItem
                Accessible.name: fileName + ", " + action + (toRemote ? ", to " : ", from ") + target

                function openMenu(atRow) {
                    if (atRow)
                        menu.popup(row, 40, row.height)
                    else
                        menu.popup()
                }

                RowLayout {
                    anchors.fill: parent
                    anchors.leftMargin: 6
                    anchors.rightMargin: 10
                    spacing: 10
                    Rectangle {
                        Layout.preferredWidth: 26
                        Layout.preferredHeight: 26
                        radius: 13
                        readonly property color tint: row.toRemote ? app.theme.blue : app.theme.green
                        color: Qt.rgba(tint.r, tint.g, tint.b, 0.15)
                        Icon {
                            anchors.centerIn: parent
                            name: row.toRemote ? "arrow.up" : "arrow.down"
                            color: parent.tint
                            size: 14
                        }
                        ToolTip.visible: arrowHover.hovered
                        ToolTip.delay: 500
                        ToolTip.text: (row.toRemote ? "To " : "From ") + row.target
                        HoverHandler { id: arrowHover }
                    }
                    ColumnLayout {
                        Layout.fillWidth: true
                        spacing: 1
                        Label {
                            Layout.fillWidth: true
                            text: row.fileName
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            font.weight: Font.Medium
                            font.strikeout: row.action === "Deleted"
                        }
                        Label {
                            Layout.fillWidth: true
                            text: row.location
                            textFormat: Text.PlainText
                            elide: Text.ElideMiddle
                            font.pixelSize: 11
                            color: app.theme.secondary
                        }
                    }
                    Label {
                        text: row.action
                        color: row.action === "Deleted" ? app.theme.red : app.theme.secondary
                        font.pixelSize: 12
                    }
                    Label {
                        Layout.preferredWidth: 118
                        horizontalAlignment: Text.AlignRight
                        text: app.format.relativeTime(row.time, app.format.now) + " ago"
                        color: app.theme.secondary
                        font.pixelSize: 12
                        elide: Text.ElideRight
                    }
                }
                TapHandler {
                    acceptedButtons: Qt.LeftButton
                    onTapped: { list.currentIndex = row.index; list.forceActiveFocus() }
                    onDoubleTapped: list.open(row)
                }
                TapHandler {
                    acceptedButtons: Qt.RightButton
                    onTapped: { list.currentIndex = row.index; row.openMenu(false) }
                }
                Menu {
                    id: menu
                    MenuItem {
                        text: "Open"
                        enabled: row.exists
                        onTriggered: app.openPath(row.filePath)
                    }
                    MenuItem {
                        text: "Show in Folder"
                        onTriggered: app.showInFolder(row.filePath)
                    }
                }
            }
        }
    }
}
