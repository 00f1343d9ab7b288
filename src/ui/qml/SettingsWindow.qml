import QtQuick
import QtQuick.Controls
import Nimbrell

AppWindow {
    id: window
    title: "Nimbrell Settings"
    width: 560
    height: 640
    minimumWidth: 420
    minimumHeight: 460

    // Scrolls when the window is smaller than its settings.
    ScrollView {
        id: scroll
        anchors.fill: parent
        contentWidth: availableWidth

        SettingsView {
            app: window.app
            width: scroll.availableWidth
        }
    }
}
