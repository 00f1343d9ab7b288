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
    }
}
