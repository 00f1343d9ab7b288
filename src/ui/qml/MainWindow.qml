import QtQuick
import QtQuick.Controls
import Nimbrell

AppWindow {
    id: window

    title: "Nimbrell"
    width: 980
    height: 660
    minimumWidth: 720
    minimumHeight: 460

    menuBar: MenuBar {
        Menu {
            title: "&File"
            Action { text: "&New Sync Folder"; onTriggered: app.navigation.showNewSyncFolder() }
            MenuSeparator {}
            Action { text: "&Settings..."; shortcut: StandardKey.Preferences; onTriggered: app.openWindow("settings") }
            MenuSeparator {}
            Action { text: "&Quit Nimbrell"; shortcut: StandardKey.Quit; onTriggered: app.quit() }
        }
        Menu {
            title: "&Help"
            Action { text: "&About Nimbrell"; onTriggered: app.openWindow("about") }
        }
    }

    ContentView {
        anchors.fill: parent
        app: window.app
        enabled: !window.app.isQuitting
    }

    // Quitting waits for every rclone to stop gracefully, which can take a while.
    Rectangle {
        objectName: "finishingOverlay"
        anchors.fill: parent
        visible: window.app.isQuitting
        color: Qt.rgba(palette.window.r, palette.window.g, palette.window.b, 0.85)
        Column {
            anchors.centerIn: parent
            spacing: 12
            BusyIndicator {
                anchors.horizontalCenter: parent.horizontalCenter
                running: parent.parent.visible
            }
            Label {
                text: "Finishing syncs…"
                font.pixelSize: 16
                font.weight: Font.DemiBold
            }
        }
    }
}
